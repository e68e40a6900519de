// SPDX-License-Identifier: MIT
#include "media.h"
#include "toolsupport.h"

#include <QDateTime>
#include <QJsonArray>
#include <QJsonObject>
#include <QTest>

#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

class VornfhInfoTest : public QObject
{
    Q_OBJECT

private slots:
    void showsAPhotoAndAnAudioFile();
    void showsAFolder();
    void showsAVideoWithAnyPath_data();
    void showsAVideoWithAnyPath();
    void jsonHasTheRawValues();
    void reportsAMissingPathAndShowsTheOthers();
    void readsPathsLiterally_data();
    void readsPathsLiterally();
    void refusesWrongCommandLines_data();
    void refusesWrongCommandLines();
    void otherProgramsCanReadTheComment_data();
    void otherProgramsCanReadTheComment();
    void aCommentReplacesAnEarlierOne();
    void aCommentKeepsModeOwnerAccessTimeAndAttributes();
    void aCommentFollowsALink();
    void aRefusedCommentChangesNothing_data();
    void aRefusedCommentChangesNothing();
    void aCommentNeedsAWritableFolder();
};

namespace {

constexpr qint64 TIME = 1740492000000; // 2025-02-25 14:00:00 in UTC

/// @p output without the lines that begin with "  created": no test can set that time.
QByteArray withoutCreation(const QByteArray &output)
{
    QByteArray rest;
    for (const QByteArray &line : output.split('\n'))
        rest += line.startsWith("  created") ? QByteArray() : line + "\n";
    rest.chop(1);
    return rest;
}

struct stat statusOf(const QString &path)
{
    struct stat status = {};
    ::stat(path.toUtf8().constData(), &status);
    return status;
}

/// The comment of a file as the program exiv2 prints it.
QByteArray readComment(const QString &path)
{
    return outputOf("exiv2", {"-K", "Exif.Photo.UserComment", "-Pv", path});
}

QByteArray unicode(const QByteArray &comment)
{
    return "charset=Unicode " + comment + "\n";
}

} // namespace

void VornfhInfoTest::showsAPhotoAndAnAudioFile()
{
    const ToolRun tool;
    const QByteArray photo = jpegHeader(640, 480);
    writeFile(tool.path() + "/a.jpg", photo);
    setModified((tool.path() + "/a.jpg").toUtf8(), TIME);
    tool.make({"b.wav size 2048 at 1740492000"});
    const Outcome outcome = tool.run({"info", "a.jpg", "@/b.wav"});
    QCOMPARE(withoutCreation(outcome.out), tool.expand("a.jpg\n"
                                                       "  type      image\n"
                                                       "  size      "
                                                       + QByteArray::number(photo.size())
                                                       + " B\n"
                                                         "  modified  2025-02-25 14:00:00\n"
                                                         "  picture   640 x 480 pixels\n"
                                                         "@/b.wav\n"
                                                         "  type      WAV audio\n"
                                                         "  size      2.0 KiB (2048 B)\n"
                                                         "  modified  2025-02-25 14:00:00\n"
                                                         "  length    60 (fixed value, not measured)\n"
                                                         "  bitrate   6000 (fixed value, not measured)\n"));
    QCOMPARE(outcome.out.count("  created   20"), 2);
    QCOMPARE(outcome.exitCode, 0);
    QCOMPARE(outcome.err, QByteArray());
}

void VornfhInfoTest::showsAFolder()
{
    const ToolRun tool;
    for (const QByteArray name : {"1.jpg", "2.png", "1.thumb", "3.avi", "4.mkv", "5.wav", "6.txt"})
        tool.make({"f/" + name + " = 1234"});
    setModified((tool.path() + "/f").toUtf8(), TIME);
    QCOMPARE(withoutCreation(tool.run({"info", "f"}).out), QByteArray("f\n"
                                                                      "  type      folder\n"
                                                                      "  size      28 B\n"
                                                                      "  modified  2025-02-25 14:00:00\n"
                                                                      "  images    2\n"
                                                                      "  thumbs    1\n"
                                                                      "  videos    2\n"
                                                                      "  audio     1\n"));
}

void VornfhInfoTest::showsAVideoWithAnyPath_data()
{
    QTest::addColumn<QByteArray>("file");
    QTest::addColumn<QString>("temporaryFolder");
    const auto row = [](const char *name, const QByteArray &file, const char *temporaryFolder = "") {
        QTest::newRow(name) << file << QString(temporaryFolder);
    };
    row("plain", "v.mkv");
    row("space", "a b/v.mkv");
    row("shell-commands", "$(touch x);`touch y`\"'.mkv");
    row("leading-dash-and-umlaut", "-\u00e4.mkv");
    row("space-in-the-temporary-folder", "a b.mkv", "t t");
}

void VornfhInfoTest::showsAVideoWithAnyPath()
{
    QFETCH(QByteArray, file);
    QFETCH(QString, temporaryFolder);
    ToolRun tool;
    const QByteArray path = tool.path().toUtf8() + "/" + file;
    makeVideo(tool.path() + "/made.mkv", QSize(64, 48));
    writeFile(path, tool.content("made.mkv"));
    setModified(path, TIME);
    if (!temporaryFolder.isEmpty()) {
        tool.make({temporaryFolder.toUtf8() + "/"});
        tool.environment.insert("TMPDIR", tool.path() + "/" + temporaryFolder);
    }
    const Tree before = treeWithContents(tool.path());
    const Outcome outcome = tool.run({"info", "--json", "--", "./" + file});
    QCOMPARE(outcome.exitCode, 0);
    QCOMPARE(outcome.err, QByteArray());
    const QJsonObject record = outcome.json().array().at(0).toObject();
    QCOMPARE(record["name"].toString().toUtf8(), file.mid(file.lastIndexOf('/') + 1));
    QCOMPARE(record["width"].toInt(), 64);
    QCOMPARE(record["height"].toInt(), 48);
    QCOMPARE(record["modified"].toString(), QString("2025-02-25T14:00:00.000Z"));
    QCOMPARE(record["size"].toInt(), tool.content(file).size());
    QCOMPARE(treeWithContents(tool.path()), before);
}

void VornfhInfoTest::jsonHasTheRawValues()
{
    const ToolRun tool;
    tool.make({"f/5.wav at 1740492000 = 1234"});
    setModified((tool.path() + "/f").toUtf8(), TIME);
    const QJsonArray array = tool.run({"info", "--json", "f/5.wav", "f"}).json().array();
    QCOMPARE(array.size(), 2);
    QJsonObject audio = array[0].toObject();
    QVERIFY(QDateTime::fromString(audio.take("created").toString(), Qt::ISODateWithMs).isValid());
    QCOMPARE(audio, (QJsonObject{{"type", 64},
                                 {"name", "5.wav"},
                                 {"size", 4},
                                 {"modified", "2025-02-25T14:00:00.000Z"},
                                 {"width", 0},
                                 {"height", 0},
                                 {"length", 60},
                                 {"bitrate", 6000},
                                 {"framerate", 0}}));
    QJsonObject folder = array[1].toObject();
    folder.remove("created");
    QCOMPARE(folder, (QJsonObject{{"type", 128},
                                  {"name", "f"},
                                  {"size", 4},
                                  {"modified", "2025-02-25T14:00:00.000Z"},
                                  {"width", 0},
                                  {"height", 0},
                                  {"length", 0},
                                  {"bitrate", 0},
                                  {"framerate", 0},
                                  {"imageCount", 0},
                                  {"thumbCount", 0},
                                  {"videoCount", 0},
                                  {"audioCount", 1}}));
}

void VornfhInfoTest::reportsAMissingPathAndShowsTheOthers()
{
    const ToolRun tool;
    tool.make({"b.txt = x", "link -> nowhere"});
    QCOMPARE(::mkfifo((tool.path() + "/pipe.avi").toUtf8().constData(), 0600), 0);
    const Outcome outcome = tool.run({"info", "none.jpg", "link", "pipe.avi", "b.txt"});
    QCOMPARE(outcome.exitCode, 1);
    QCOMPARE(outcome.err,
             errorLines({"none.jpg: No such file or directory", "link: No such file or directory",
                         "pipe.avi: is neither a file nor a folder"}));
    QVERIFY(outcome.out.startsWith("b.txt\n  type      other\n"));
}

void VornfhInfoTest::readsPathsLiterally_data()
{
    QTest::addColumn<QByteArray>("file");
    const auto row = [](const char *name, const QByteArray &file) { QTest::newRow(name) << file; };
    row("list-in-brackets", "[a,b]");
    row("name-of-a-command", "list");
    row("leading-colon", ":x");
    row("comma", "a,b");
}

void VornfhInfoTest::readsPathsLiterally()
{
    QFETCH(QByteArray, file);
    const ToolRun tool;
    tool.make({file + " = x"});
    const Outcome outcome = tool.run({"info", file, file});
    QCOMPARE(outcome.exitCode, 0);
    QCOMPARE(outcome.out.count(file + "\n  type      other\n"), 2);
    QCOMPARE(outcome.err, QByteArray());
}

void VornfhInfoTest::refusesWrongCommandLines_data()
{
    QTest::addColumn<QByteArrayList>("arguments");
    QTest::addColumn<QByteArray>("message");
    const auto row = [](const char *name, const QByteArrayList &arguments, const QByteArray &message) {
        QTest::newRow(name) << arguments << message;
    };
    row("info-without-a-path", {"info"}, "PATH... is required");
    row("info-with-an-empty-path", {"info", ""}, "the path is empty");
    row("info-not-utf-8", {"info", "a\xff"}, messages::notUtf8("the path", "a\\xff"));
    row("comment-without-text", {"comment", "p"}, "TEXT is required");
    row("comment-not-utf-8", {"comment", "p", "\xc3"}, messages::notUtf8("the comment", "\\xc3"));
    row("comment-path-not-utf-8", {"comment", "p\xff", "x"}, messages::notUtf8("the path", "p\\xff"));
}

void VornfhInfoTest::refusesWrongCommandLines()
{
    QFETCH(QByteArrayList, arguments);
    QFETCH(QByteArray, message);
    const ToolRun tool;
    QCOMPARE(tool.run(arguments), tool.usageError({message}));
}

void VornfhInfoTest::otherProgramsCanReadTheComment_data()
{
    QTest::addColumn<QByteArray>("file");
    QTest::addColumn<QByteArrayList>("text"); // the comment comes last
    const auto row = [](const char *name, const QByteArrayList &text, const QByteArray &file = "a.jpg") {
        QTest::newRow(name) << file << text;
    };
    row("plain", {"At the lake"});
    row("png", {"At the lake"}, "a.png");
    row("other-scripts", {"Gr\u00fc\u00dfe \u4e16"});
    row("name-of-a-command", {"list"});
    row("brackets", {"[a,b]"});
    row("leading-dash", {"--", "-x"});
    row("empty", {""});
}

void VornfhInfoTest::otherProgramsCanReadTheComment()
{
    QFETCH(QByteArray, file);
    QFETCH(QByteArrayList, text);
    const ToolRun tool;
    makePicture(tool.path() + "/" + file, QSize(64, 48));
    QCOMPARE(tool.run(QByteArrayList{"comment", file} + text), tool.success());
    QCOMPARE(readComment(tool.path() + "/" + file), unicode(text.last()));
    QCOMPARE(tree(tool.path()), Tree{file});
}

void VornfhInfoTest::aCommentReplacesAnEarlierOne()
{
    const ToolRun tool;
    makePicture(tool.path() + "/a.jpg", QSize(64, 48));
    QCOMPARE(tool.run({"comment", "a.jpg", "one"}).exitCode, 0);
    QCOMPARE(tool.run({"comment", "a.jpg", "two"}).exitCode, 0);
    QCOMPARE(readComment(tool.path() + "/a.jpg"), unicode("two"));
}

void VornfhInfoTest::aCommentKeepsModeOwnerAccessTimeAndAttributes()
{
    const ToolRun tool;
    const QString photo = tool.path() + "/a.jpg";
    const QByteArray path = photo.toUtf8();
    makePicture(photo, QSize(64, 48));
    if (::geteuid() == 0)
        QCOMPARE(::chown(path.constData(), 1234, 2345), 0);
    QCOMPARE(::chmod(path.constData(), 0640), 0);
    const bool hasAttributes = ::setxattr(path.constData(), "user.album", "lake", 4, 0) == 0;
    setModified(path, TIME);
    const struct stat before = statusOf(photo);
    QCOMPARE(tool.run({"comment", "a.jpg", "x"}), tool.success());
    const struct stat after = statusOf(photo);
    QCOMPARE(after.st_mode, before.st_mode);
    QCOMPARE(after.st_uid, before.st_uid);
    QCOMPARE(after.st_gid, before.st_gid);
    QCOMPARE(after.st_atim.tv_sec, before.st_atim.tv_sec);
    QVERIFY(after.st_mtim.tv_sec > before.st_mtim.tv_sec); // the content did change
    char value[8] = {};
    if (hasAttributes)
        QCOMPARE(::getxattr(path.constData(), "user.album", value, sizeof value), 4);
    QCOMPARE(QByteArray(value), QByteArray(hasAttributes ? "lake" : ""));
}

void VornfhInfoTest::aCommentFollowsALink()
{
    const ToolRun tool;
    tool.make({"folder/", "link -> folder/a.jpg"});
    makePicture(tool.path() + "/folder/a.jpg", QSize(64, 48));
    QCOMPARE(tool.run({"comment", "link", "x"}), tool.success());
    QCOMPARE(readComment(tool.path() + "/folder/a.jpg"), unicode("x"));
    QCOMPARE(tree(tool.path()), (Tree{"folder/", "folder/a.jpg", "link -> folder/a.jpg"}));
}

void VornfhInfoTest::aRefusedCommentChangesNothing_data()
{
    QTest::addColumn<QByteArray>("file");
    QTest::addColumn<QByteArray>("text");
    QTest::addColumn<QByteArray>("message");
    const auto row = [](const char *name, const QByteArray &file, const QByteArray &text,
                        const QByteArray &message) { QTest::newRow(name) << file << text << message; };
    const QByteArray notReadBack = ": the comment cannot be read back; the file is unchanged";
    row("beyond-the-basic-plane", "a.jpg", "\U0001F600",
        "a.jpg: the comment reads back differently; the file is unchanged");
    row("too-long", "a.jpg", QByteArray(40000, 'a'), "a.jpg" + notReadBack);
    row("avi", "a.avi", "x", "a.avi" + notReadBack);
    row("text-file", "a.txt", "x",
        "a.txt: the comment cannot be written: @/a.txt: The file contains data of an unknown image type");
    row("missing", "none.jpg", "x", "none.jpg: No such file or directory");
    row("folder", "folder", "x", "@/folder: is not a regular file");
}

void VornfhInfoTest::aRefusedCommentChangesNothing()
{
    QFETCH(QByteArray, file);
    QFETCH(QByteArray, text);
    QFETCH(QByteArray, message);
    const ToolRun tool;
    tool.make({"folder/", "a.txt = not a picture, but long enough for one"});
    makePicture(tool.path() + "/a.jpg", QSize(64, 48));
    makeVideo(tool.path() + "/a.avi", QSize(64, 48));
    const Tree before = treeWithContents(tool.path());
    const struct stat statusBefore = statusOf(tool.path() + "/" + file);
    QCOMPARE(tool.run({"comment", file, text}), tool.failure({message}));
    QCOMPARE(treeWithContents(tool.path()), before);
    const struct stat statusAfter = statusOf(tool.path() + "/" + file);
    QCOMPARE(statusAfter.st_ino, statusBefore.st_ino);
    QCOMPARE(statusAfter.st_mtim.tv_nsec, statusBefore.st_mtim.tv_nsec);
}

void VornfhInfoTest::aCommentNeedsAWritableFolder()
{
    const ToolRun tool;
    tool.make({"ro/"});
    makePicture(tool.path() + "/ro/a.jpg", QSize(64, 48));
    const QByteArray before = tool.content("ro/a.jpg");
    const QString script =
        "mount --bind ro ro && mount -o remount,ro,bind ro || exit 77; exec '%1' comment ro/a.jpg x";
    const Outcome outcome =
        tool.runProgram("unshare", {"-r", "-m", "/bin/sh", "-c", script.arg(ToolRun::toolPath())});
    if (outcome.exitCode != 1 || !outcome.err.startsWith("vornfh"))
        QSKIP("a private mount namespace is not allowed here");
    QCOMPARE(
        outcome,
        tool.failure({"@/ro/a.jpg: a copy of it cannot be created in its folder: Read-only file system"}));
    QCOMPARE(tool.content("ro/a.jpg"), before);
}

QTEST_GUILESS_MAIN(VornfhInfoTest)
#include "tst_vornfh_info.moc"

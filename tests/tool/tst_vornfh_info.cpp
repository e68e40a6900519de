// SPDX-License-Identifier: MIT
#include "media.h"
#include "toolsupport.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTest>

#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

using Arguments = QList<QByteArray>;

class VornfhInfoTest : public QObject
{
    Q_OBJECT

private slots:
    void showsAPhotoAndASound();
    void showsAFolder();
    void showsAVideoWhateverItsPath_data();
    void showsAVideoWhateverItsPath();
    void jsonHoldsTheRawFigures();
    void aMissingPathIsNamedAndTheRestShown();
    void pathsAreTakenAsTheyStand_data();
    void pathsAreTakenAsTheyStand();
    void refusesWrongCommandLines_data();
    void refusesWrongCommandLines();
    void aCommentCanBeReadByOthers_data();
    void aCommentCanBeReadByOthers();
    void aCommentReplacesAnEarlierOne();
    void aCommentKeepsModeOwnerAccessTimeAndAttributes();
    void aCommentGoesThroughALink();
    void whatTakesNoCommentStaysAsItIs_data();
    void whatTakesNoCommentStaysAsItIs();
    void aFolderThatTakesNoCopyIsAFailure();
};

namespace {

constexpr qint64 TIME = 1740492000000; // 2025-02-25 14:00:00 in UTC

/// The lines of an output that do not begin with "  created", which nothing can set.
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

/// The comment as the program exiv2 reads it.
QByteArray readComment(const QString &path)
{
    return outputOf("exiv2", {"-K", "Exif.Photo.UserComment", "-Pv", path});
}

} // namespace

void VornfhInfoTest::showsAPhotoAndASound()
{
    ToolRun tool;
    writeFile(tool.path() + "/a.jpg", jpegHeader(640, 480));
    writeFile(tool.path() + "/b.wav", QByteArray(2048, 'x'));
    setModified((tool.path() + "/a.jpg").toUtf8(), TIME);
    setModified((tool.path() + "/b.wav").toUtf8(), TIME);
    const Outcome outcome = tool.run({"info", "a.jpg", "@/b.wav"});
    const QByteArray size = QByteArray::number(jpegHeader(640, 480).size());
    QCOMPARE(withoutCreation(outcome.out), tool.expand("a.jpg\n"
                                                       "  type      image\n"
                                                       "  size      "
                                                       + size
                                                       + " B\n"
                                                         "  modified  2025-02-25 14:00:00\n"
                                                         "  picture   640 x 480 pixels\n"
                                                         "@/b.wav\n"
                                                         "  type      WAV sound\n"
                                                         "  size      2.0 KiB (2048 B)\n"
                                                         "  modified  2025-02-25 14:00:00\n"
                                                         "  length    60 (a fixed figure)\n"
                                                         "  bitrate   6000 (a fixed figure)\n"));
    QCOMPARE(outcome.out.count("  created   20"), 2);
    QCOMPARE(outcome.exitCode, 0);
    QCOMPARE(outcome.err, QByteArray());
}

void VornfhInfoTest::showsAFolder()
{
    ToolRun tool;
    for (const QByteArray name : {"1.jpg", "2.png", "1.thumb", "3.avi", "4.mkv", "5.wav", "6.txt"})
        writeFile(tool.path() + "/f/" + name, "1234");
    setModified((tool.path() + "/f").toUtf8(), TIME);
    QCOMPARE(withoutCreation(tool.run({"info", "f"}).out), QByteArray("f\n"
                                                                      "  type      folder\n"
                                                                      "  size      28 B\n"
                                                                      "  modified  2025-02-25 14:00:00\n"
                                                                      "  images    2\n"
                                                                      "  thumbs    1\n"
                                                                      "  videos    2\n"
                                                                      "  sounds    1\n"));
}

void VornfhInfoTest::showsAVideoWhateverItsPath_data()
{
    QTest::addColumn<QByteArray>("name");
    QTest::addColumn<QByteArray>("temporaryFolder");
    QTest::newRow("plain") << QByteArray("v.mkv") << QByteArray();
    QTest::newRow("blank") << QByteArray("a b/v.mkv") << QByteArray();
    QTest::newRow("command") << QByteArray("$(touch x);`touch y`\"'.mkv") << QByteArray();
    QTest::newRow("dash-and-umlaut") << QByteArray("-\xc3\xa4.mkv") << QByteArray();
    QTest::newRow("blank-in-the-temporary-folder") << QByteArray("a b.mkv") << QByteArray("t t");
}

void VornfhInfoTest::showsAVideoWhateverItsPath()
{
    QFETCH(QByteArray, name);
    QFETCH(QByteArray, temporaryFolder);
    ToolRun tool;
    const QByteArray path = tool.path().toUtf8() + "/" + name;
    makeVideo(tool.path() + "/made.mkv", QSize(64, 48));
    writeFile(path, tool.content(tool.path() + "/made.mkv"));
    setModified(path, TIME);
    if (!temporaryFolder.isEmpty()) {
        QVERIFY(QDir().mkpath(tool.path() + "/" + temporaryFolder));
        tool.environment.insert("TMPDIR", tool.path() + "/" + temporaryFolder);
    }
    const auto before = tool.contents();
    const Outcome outcome = tool.run({"info", "--json", "--", "./" + name});
    QCOMPARE(outcome.exitCode, 0);
    QCOMPARE(outcome.err, QByteArray());
    const QJsonObject record = QJsonDocument::fromJson(outcome.out).array().at(0).toObject();
    QCOMPARE(record["name"].toString().toUtf8(), name.mid(name.lastIndexOf('/') + 1));
    QCOMPARE(record["width"].toInt(), 64);
    QCOMPARE(record["height"].toInt(), 48);
    QCOMPARE(record["modified"].toString(), QString("2025-02-25T14:00:00.000Z"));
    QCOMPARE(record["size"].toInt(), tool.content(QString::fromUtf8(path)).size());
    QCOMPARE(tool.contents(), before);
}

void VornfhInfoTest::jsonHoldsTheRawFigures()
{
    ToolRun tool;
    writeFile(tool.path() + "/f/5.wav", "1234");
    setModified((tool.path() + "/f/5.wav").toUtf8(), TIME);
    setModified((tool.path() + "/f").toUtf8(), TIME);
    const QJsonArray array =
        QJsonDocument::fromJson(tool.run({"info", "--json", "f/5.wav", "f"}).out).array();
    QCOMPARE(array.size(), 2);
    QJsonObject sound = array[0].toObject();
    QVERIFY(QDateTime::fromString(sound.take("created").toString(), Qt::ISODateWithMs).isValid());
    QCOMPARE(sound, (QJsonObject{{"type", 64},
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

void VornfhInfoTest::aMissingPathIsNamedAndTheRestShown()
{
    ToolRun tool;
    writeFile(tool.path() + "/b.txt", "x");
    QCOMPARE(::symlink("nowhere", (tool.path() + "/link").toUtf8().constData()), 0);
    QCOMPARE(::mkfifo((tool.path() + "/pipe.avi").toUtf8().constData(), 0600), 0);
    const Outcome outcome = tool.run({"info", "none.jpg", "link", "pipe.avi", "b.txt"});
    QCOMPARE(outcome.exitCode, 1);
    QCOMPARE(outcome.err, QByteArray("vornfh: none.jpg: No such file or directory\n"
                                     "vornfh: link: No such file or directory\n"
                                     "vornfh: pipe.avi: neither a file nor a folder\n"));
    QVERIFY(outcome.out.startsWith("b.txt\n  type      other\n"));
}

void VornfhInfoTest::pathsAreTakenAsTheyStand_data()
{
    QTest::addColumn<QByteArray>("name");
    QTest::newRow("list-in-brackets") << QByteArray("[a,b]");
    QTest::newRow("name-of-a-command") << QByteArray("list");
    QTest::newRow("colon-in-front") << QByteArray(":x");
    QTest::newRow("comma") << QByteArray("a,b");
}

void VornfhInfoTest::pathsAreTakenAsTheyStand()
{
    QFETCH(QByteArray, name);
    ToolRun tool;
    writeFile(tool.path() + "/" + name, "x");
    const Outcome outcome = tool.run({"info", name, name});
    QCOMPARE(outcome.exitCode, 0);
    QCOMPARE(outcome.out.count(name + "\n  type      other\n"), 2);
    QCOMPARE(outcome.err, QByteArray());
}

void VornfhInfoTest::refusesWrongCommandLines_data()
{
    QTest::addColumn<Arguments>("arguments");
    QTest::addColumn<QByteArray>("message");
    QTest::newRow("info-without-a-path") << Arguments{"info"} << QByteArray("PATH... is required");
    QTest::newRow("info-of-an-empty-path") << Arguments{"info", ""} << QByteArray("the path is empty");
    QTest::newRow("info-no-utf-8") << Arguments{"info", "a\xff"}
                                   << QByteArray("the path 'a\\xff' is not valid UTF-8");
    QTest::newRow("comment-without-text") << Arguments{"comment", "p"} << QByteArray("TEXT is required");
    QTest::newRow("comment-no-utf-8")
        << Arguments{"comment", "p", "\xc3"} << QByteArray("the comment '\\xc3' is not valid UTF-8");
    QTest::newRow("comment-path-no-utf-8")
        << Arguments{"comment", "p\xff", "x"} << QByteArray("the path 'p\\xff' is not valid UTF-8");
}

void VornfhInfoTest::refusesWrongCommandLines()
{
    QFETCH(Arguments, arguments);
    QFETCH(QByteArray, message);
    ToolRun tool;
    QCOMPARE(tool.run(arguments), (Outcome{2, "", "vornfh: " + message + "\n"}));
}

void VornfhInfoTest::aCommentCanBeReadByOthers_data()
{
    QTest::addColumn<QByteArray>("file");
    QTest::addColumn<Arguments>("text");
    QTest::addColumn<QByteArray>("expected");
    QTest::newRow("plain") << QByteArray("a.jpg") << Arguments{"At the lake"}
                           << QByteArray("charset=Unicode At the lake\n");
    QTest::newRow("png") << QByteArray("a.png") << Arguments{"At the lake"}
                         << QByteArray("charset=Unicode At the lake\n");
    QTest::newRow("other-scripts") << QByteArray("a.jpg")
                                   << Arguments{"Gr\xc3\xbc\xc3\x9f"
                                                "e \xe4\xb8\x96"}
                                   << QByteArray("charset=Unicode Gr\xc3\xbc\xc3\x9f"
                                                 "e \xe4\xb8\x96\n");
    QTest::newRow("name-of-a-command")
        << QByteArray("a.jpg") << Arguments{"list"} << QByteArray("charset=Unicode list\n");
    QTest::newRow("brackets") << QByteArray("a.jpg") << Arguments{"[a,b]"}
                              << QByteArray("charset=Unicode [a,b]\n");
    QTest::newRow("dash-in-front") << QByteArray("a.jpg") << Arguments{"--", "-x"}
                                   << QByteArray("charset=Unicode -x\n");
    QTest::newRow("empty") << QByteArray("a.jpg") << Arguments{""} << QByteArray("charset=Unicode \n");
}

void VornfhInfoTest::aCommentCanBeReadByOthers()
{
    QFETCH(QByteArray, file);
    QFETCH(Arguments, text);
    QFETCH(QByteArray, expected);
    ToolRun tool;
    makePicture(tool.path() + "/" + file, QSize(64, 48));
    QCOMPARE(tool.run(Arguments{"comment", file} + text), (Outcome{0, "", ""}));
    QCOMPARE(readComment(tool.path() + "/" + file), expected);
    QCOMPARE(tree(tool.path()), QList<QByteArray>{file});
}

void VornfhInfoTest::aCommentReplacesAnEarlierOne()
{
    ToolRun tool;
    makePicture(tool.path() + "/a.jpg", QSize(64, 48));
    QCOMPARE(tool.run({"comment", "a.jpg", "one"}).exitCode, 0);
    QCOMPARE(tool.run({"comment", "a.jpg", "two"}).exitCode, 0);
    QCOMPARE(readComment(tool.path() + "/a.jpg"), QByteArray("charset=Unicode two\n"));
}

void VornfhInfoTest::aCommentKeepsModeOwnerAccessTimeAndAttributes()
{
    ToolRun tool;
    const QString photo = tool.path() + "/a.jpg";
    const QByteArray name = photo.toUtf8();
    makePicture(photo, QSize(64, 48));
    if (::geteuid() == 0)
        QCOMPARE(::chown(name.constData(), 1234, 2345), 0);
    QCOMPARE(::chmod(name.constData(), 0640), 0);
    const bool hasAttributes = ::setxattr(name.constData(), "user.album", "lake", 4, 0) == 0;
    setModified(name, TIME);
    const struct stat before = statusOf(photo);
    QCOMPARE(tool.run({"comment", "a.jpg", "x"}), (Outcome{0, "", ""}));
    const struct stat after = statusOf(photo);
    QCOMPARE(after.st_mode, before.st_mode);
    QCOMPARE(after.st_uid, before.st_uid);
    QCOMPARE(after.st_gid, before.st_gid);
    QCOMPARE(after.st_atim.tv_sec, before.st_atim.tv_sec);
    QVERIFY(after.st_mtim.tv_sec > before.st_mtim.tv_sec); // the content did change
    char value[8] = {};
    if (hasAttributes)
        QCOMPARE(::getxattr(name.constData(), "user.album", value, sizeof value), 4);
    QCOMPARE(QByteArray(value), QByteArray(hasAttributes ? "lake" : ""));
}

void VornfhInfoTest::aCommentGoesThroughALink()
{
    ToolRun tool;
    QVERIFY(QDir().mkpath(tool.path() + "/folder"));
    makePicture(tool.path() + "/folder/a.jpg", QSize(64, 48));
    QCOMPARE(::symlink("folder/a.jpg", (tool.path() + "/link").toUtf8().constData()), 0);
    QCOMPARE(tool.run({"comment", "link", "x"}), (Outcome{0, "", ""}));
    QCOMPARE(readComment(tool.path() + "/folder/a.jpg"), QByteArray("charset=Unicode x\n"));
    QCOMPARE(tree(tool.path()), (QList<QByteArray>{"folder/", "folder/a.jpg", "link -> folder/a.jpg"}));
}

void VornfhInfoTest::whatTakesNoCommentStaysAsItIs_data()
{
    QTest::addColumn<QByteArray>("file");
    QTest::addColumn<QByteArray>("text");
    QTest::addColumn<QByteArray>("message");
    const QByteArray unread = ": no comment can be read back from it, so it was left as it is";
    QTest::newRow("beyond-the-basic-plane")
        << QByteArray("a.jpg") << QByteArray("\xf0\x9f\x98\x80")
        << QByteArray("a.jpg: the comment comes back altered, so it was left as it is");
    QTest::newRow("too-long") << QByteArray("a.jpg") << QByteArray(40000, 'a') << "a.jpg" + unread;
    QTest::newRow("avi") << QByteArray("a.avi") << QByteArray("x") << "a.avi" + unread;
    QTest::newRow("text-file") << QByteArray("a.txt") << QByteArray("x")
                               << QByteArray("a.txt: takes no comment: @/a.txt: The file contains data of an "
                                             "unknown image type");
    QTest::newRow("missing") << QByteArray("none.jpg") << QByteArray("x")
                             << QByteArray("none.jpg: No such file or directory");
    QTest::newRow("folder") << QByteArray("folder") << QByteArray("x")
                            << QByteArray("@/folder: not a regular file");
}

void VornfhInfoTest::whatTakesNoCommentStaysAsItIs()
{
    QFETCH(QByteArray, file);
    QFETCH(QByteArray, text);
    QFETCH(QByteArray, message);
    ToolRun tool;
    QVERIFY(QDir().mkpath(tool.path() + "/folder"));
    makePicture(tool.path() + "/a.jpg", QSize(64, 48));
    makeVideo(tool.path() + "/a.avi", QSize(64, 48));
    writeFile(tool.path() + "/a.txt", "no picture at all, but long enough to be looked at");
    const auto before = tool.contents();
    const struct stat statusBefore = statusOf(tool.path() + "/" + file);
    QCOMPARE(tool.run({"comment", file, text}), (Outcome{1, "", "vornfh: " + tool.expand(message) + "\n"}));
    QCOMPARE(tool.contents(), before);
    const struct stat statusAfter = statusOf(tool.path() + "/" + file);
    QCOMPARE(statusAfter.st_ino, statusBefore.st_ino);
    QCOMPARE(statusAfter.st_mtim.tv_nsec, statusBefore.st_mtim.tv_nsec);
}

void VornfhInfoTest::aFolderThatTakesNoCopyIsAFailure()
{
    ToolRun tool;
    const QString folder = tool.path() + "/ro";
    QVERIFY(QDir().mkpath(folder));
    makePicture(folder + "/a.jpg", QSize(64, 48));
    const QByteArray before = tool.content(folder + "/a.jpg");
    const QString script =
        "mount --bind ro ro && mount -o remount,ro,bind ro || exit 77; exec '%1' comment ro/a.jpg x";
    const Outcome outcome =
        tool.runProgram("unshare", {"-r", "-m", "/bin/sh", "-c", script.arg(ToolRun::toolPath())});
    if (outcome.exitCode != 1 || !outcome.err.startsWith("vornfh"))
        QSKIP("no mounts of its own are allowed here");
    QCOMPARE(outcome, (Outcome{1, "",
                               tool.expand("vornfh: @/ro/a.jpg: no copy can be made beside it: "
                                           "Read-only file system\n")}));
    QCOMPARE(tool.content(folder + "/a.jpg"), before);
}

QTEST_GUILESS_MAIN(VornfhInfoTest)
#include "tst_vornfh_info.moc"

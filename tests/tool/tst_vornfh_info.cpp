// SPDX-License-Identifier: MIT
#include "media.h"
#include "standins.h"
#include "toolsupport.h"

#include <QDateTime>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonObject>
#include <QTest>

#include <algorithm>
#include <csignal>
#include <thread>

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
    void measuresVideosAndAudioFiles_data();
    void measuresVideosAndAudioFiles();
    void saysWhatCouldNotBeMeasured_data();
    void saysWhatCouldNotBeMeasured();
    void otherValuesAreThoseOfTheLibrary_data();
    void otherValuesAreThoseOfTheLibrary();
    void startsOneFfprobePerFile();
    void reportsAMissingPathAndShowsTheOthers();
    void readsSeveralVideosAtATime();
    void readsPathsLiterally_data();
    void readsPathsLiterally();
    void refusesWrongCommandLines_data();
    void refusesWrongCommandLines();
    void otherProgramsCanReadTheComment_data();
    void otherProgramsCanReadTheComment();
    void aCommentReplacesAnEarlierOne();
    void infoShowsTheComment_data();
    void infoShowsTheComment();
    void infoShowsNoComment_data();
    void infoShowsNoComment();
    void formatIsReadFromTheContent_data();
    void formatIsReadFromTheContent();
    void aCommentKeepsModeOwnerTimesAndAttributes_data();
    void aCommentKeepsModeOwnerTimesAndAttributes();
    void aCommentFollowsALink();
    void aRefusedCommentChangesNothing_data();
    void aRefusedCommentChangesNothing();
    void aPhotoChangedInTheMeantimeIsKept_data();
    void aPhotoChangedInTheMeantimeIsKept();
    void aSignalDoesNotInterruptAComment();
    void aKilledCommentLeavesThePhoto();
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

/// Creates a picture in the format of the extension; nothing for the path of a folder.
void makeImage(const QString &path)
{
    if (path.endsWith(".tiff"))
        outputOf("ffmpeg", {"-nostdin", "-v", "error", "-f", "lavfi", "-i", "testsrc=s=64x48", "-frames:v",
                            "1", "-c:v", "tiff", "-f", "image2", path});
    else if (!path.endsWith('/'))
        makePicture(path, QSize(64, 48));
}

/// One grey pixel. @p entry is another entry of the directory, of 12 bytes in hexadecimal.
QByteArray bigEndianTiff(const QByteArray &entry = QByteArray())
{
    return QByteArray::fromHex("4d4d002a0000000a"                                // header
                               "8000"                                            // the pixel
                               + QByteArray(entry.isEmpty() ? "0005" : "0006") + // directory: width, height,
                               "010000030000000100010000" // photometric interpretation,
                               "010100030000000100010000" // offset and size of the pixel
                               "010600030000000100010000"
                               "011100040000000100000008"
                               "011700040000000100000001"
                               + entry + "00000000");
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
                                                         "  length    could not be measured\n"
                                                         "  bitrate   could not be measured\n"));
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
    QCOMPARE(audio, (QJsonObject{{"path", tool.path() + "/f/5.wav"},
                                 {"folder", "f"},
                                 {"number", {}},
                                 {"type", "wav"},
                                 {"thumbnail", {}},
                                 {"name", "5.wav"},
                                 {"size", 4},
                                 {"modified", "2025-02-25T14:00:00.000Z"},
                                 {"width", 0},
                                 {"height", 0},
                                 {"length", 60},
                                 {"bitrate", 6000},
                                 {"framerate", 0},
                                 {"protected", false},
                                 {"measuredLength", QJsonValue()},
                                 {"measuredBitrate", QJsonValue()},
                                 {"measuredFramerate", QJsonValue()}}));
    QJsonObject folder = array[1].toObject();
    folder.remove("created");
    QCOMPARE(folder, (QJsonObject{{"path", tool.path() + "/f"},
                                  {"folder", QFileInfo(tool.path()).fileName()},
                                  {"number", {}},
                                  {"type", "folder"},
                                  {"thumbnail", {}},
                                  {"name", "f"},
                                  {"size", 4},
                                  {"modified", "2025-02-25T14:00:00.000Z"},
                                  {"width", 0},
                                  {"height", 0},
                                  {"length", 0},
                                  {"bitrate", 0},
                                  {"framerate", 0},
                                  {"protected", false},
                                  {"imageCount", 0},
                                  {"thumbCount", 0},
                                  {"videoCount", 0},
                                  {"audioCount", 1}}));
}

void VornfhInfoTest::measuresVideosAndAudioFiles_data()
{
    QTest::addColumn<QString>("file");
    QTest::addColumn<double>("seconds");
    QTest::addColumn<double>("framerate");
    QTest::addColumn<QByteArrayList>("lines");
    const QByteArray frames = "  frames    5 per second\n";
    row("avi", QString("a.avi"), 0.4, 5.0, QByteArrayList{"  length    0:00 (0.4 s)\n", frames});
    row("mkv", QString("a.mkv"), 0.4, 5.0, QByteArrayList{"  length    0:00 (0.4 s)\n", frames});
    row("wav", QString("a.wav"), 0.1, 0.0, QByteArrayList{"  length    0:00 (0.1 s)\n"});
}

void VornfhInfoTest::measuresVideosAndAudioFiles()
{
    QFETCH(QString, file);
    QFETCH(double, seconds);
    QFETCH(double, framerate);
    QFETCH(QByteArrayList, lines);
    const ToolRun tool;
    const QString path = tool.path() + "/" + file;
    file.endsWith(".wav") ? makeSound(path) : makeVideo(path, QSize(64, 48));
    const double bitrate = tool.content(file).size() * 8 / seconds;
    const QJsonObject record = tool.run({"info", "--json", file.toUtf8()}).json().array()[0].toObject();
    QCOMPARE(record["measuredLength"].toDouble(), seconds);
    QVERIFY(qAbs(record["measuredBitrate"].toDouble() - bitrate) <= 1);
    QCOMPARE(record.value("measuredFramerate"), framerate > 0 ? QJsonValue(framerate) : QJsonValue());
    const Outcome text = tool.run({"info", file.toUtf8()});
    const QByteArray rate = "  bitrate   " + QByteArray::number(bitrate / 1000, 'f', 1) + " kbit/s\n";
    for (const QByteArray &line : lines + QByteArrayList{rate})
        QVERIFY2(text.out.contains(line), text.out.constData());
    QCOMPARE(text.out.contains("  frames "), framerate > 0);
    QVERIFY(!text.out.contains("fixed") && !text.out.contains("6000"));
}

void VornfhInfoTest::saysWhatCouldNotBeMeasured_data()
{
    QTest::addColumn<bool>("hasFfprobe");
    QTest::addColumn<QByteArray>("file");
    QTest::addColumn<QByteArray>("end");
    QTest::addColumn<QByteArrayList>("keys");
    const QByteArray not_ = "could not be measured";
    const QByteArray missing = not_ + ": ffprobe is not on PATH";
    const auto linesOf = [](const QByteArray &text, bool isVideo) {
        return "  length    " + text + "\n  bitrate   " + text + "\n"
               + (isVideo ? "  frames    " + text + "\n" : QByteArray());
    };
    const QByteArrayList keys = {"measuredLength", "measuredBitrate", "measuredFramerate"};
    row("video-without-ffprobe", false, QByteArray("a.avi"), linesOf(missing, true), keys);
    row("audio-without-ffprobe", false, QByteArray("a.wav"), linesOf(missing, false), keys);
    row("damaged-video", true, QByteArray("bad.mkv"), linesOf(not_, true), keys);
    row("damaged-audio", true, QByteArray("bad.wav"), linesOf(not_, false), keys);
    row("empty-video", true, QByteArray("empty.avi"), linesOf(not_, true), keys);
    row("photo", true, QByteArray("a.jpg"), QByteArray("  picture   64 x 48 pixels\n"), QByteArrayList());
}

void VornfhInfoTest::saysWhatCouldNotBeMeasured()
{
    QFETCH(bool, hasFfprobe);
    QFETCH(QByteArray, file);
    QFETCH(QByteArray, end);
    QFETCH(QByteArrayList, keys);
    const QTemporaryDir files;
    makeVideo(files.filePath("a.avi"), QSize(64, 48));
    makeSound(files.filePath("a.wav"));
    makePicture(files.filePath("a.jpg"), QSize(64, 48));
    makeTree(files.path(), {"bad.mkv = x", "bad.wav = x", "empty.avi"});
    const StandIns programs(hasFfprobe ? StandIns::BeforeTheRealOnes : StandIns::Alone);
    const ToolRun tool;
    const QByteArray path = QFile::encodeName(files.path()) + "/" + file;
    const Outcome text = tool.run({"info", path});
    QVERIFY2(text.out.endsWith(end), text.out.constData());
    QCOMPARE(text.exitCode, 0);
    QCOMPARE(text.err, QByteArray());
    const QJsonObject record = tool.run({"info", "--json", path}).json().array()[0].toObject();
    for (const char *key : {"measuredLength", "measuredBitrate", "measuredFramerate"})
        QCOMPARE(record.value(QLatin1String(key)),
                 QJsonValue(keys.contains(key) ? QJsonValue::Null : QJsonValue::Undefined));
}

void VornfhInfoTest::otherValuesAreThoseOfTheLibrary_data()
{
    QTest::addColumn<QStringList>("arguments"); // of ffmpeg
    QTest::addColumn<QString>("file");
    QTest::addColumn<int>("size"); // the file is cut off; 0 if it is whole
    const auto row = [](const char *name, const char *arguments, const char *file, int size = 0) {
        QTest::newRow(name) << QString(arguments).split(' ', Qt::SkipEmptyParts) << QString(file) << size;
    };
    const char *video = "-f lavfi -i testsrc=r=5:d=0.4:s=64x48 -c:v mjpeg";
    const char *two =
        "-f lavfi -i testsrc=d=0.4:s=64x48 -f lavfi -i testsrc=d=0.4:s=32x16 -map 0 -map 1 -c:v "
        "mjpeg";
    row("avi", video, "a.avi");
    row("mkv", video, "a.mkv");
    row("upper-case", video, "a.AVI");
    row("two-videos", two, "a.mkv");
    row("video-and-audio",
        "-f lavfi -i sine=d=0.4 -f lavfi -i testsrc=d=0.4:s=64x48 -map 0 -map 1 -c:v mjpeg -c:a pcm_s16le",
        "a.avi");
    row("only-audio", "-f lavfi -i sine=d=0.4 -c:a pcm_s16le", "a.avi");
    row("other-container", "-f lavfi -i testsrc=d=0.4:s=64x48 -c:v mpeg2video -f mpegts", "a.avi");
    row("picture", "-f lavfi -i testsrc=s=64x48 -frames:v 1 -c:v mjpeg -f image2", "a.mkv");
    row("wav", "-f lavfi -i sine=d=0.4", "a.wav");
    row("avi-cut-off", video, "a.avi", 6000);
    row("avi-header-only", video, "a.avi", 300);
    row("mkv-cut-off", video, "a.mkv", 1500);
    row("empty", "", "a.avi");
}

void VornfhInfoTest::otherValuesAreThoseOfTheLibrary()
{
    QFETCH(QStringList, arguments);
    QFETCH(QString, file);
    QFETCH(int, size);
    const ToolRun tool;
    const QString path = tool.path() + "/" + file;
    if (arguments.isEmpty())
        writeFile(path);
    else
        outputOf("ffmpeg", QStringList{"-nostdin", "-v", "error"} + arguments + QStringList{"-y", path});
    if (size > 0)
        QCOMPARE(::truncate(QFile::encodeName(path).constData(), size), 0);
    const QJsonObject found = tool.run({"info", "--json", file.toUtf8()}).json().array()[0].toObject();
    Metadata expected;
    VornFileHandler::getMetadata(QFileInfo(path), expected);
    using namespace VORN_FILE_HANDLER;
    static const QMap<int, QString> TYPES = {{FILE_TYPE_VIDEO, "avi"},
                                             {FILE_TYPE_VIDEO_MKV, "mkv"},
                                             {FILE_TYPE_AUDIO, "wav"},
                                             {FILE_TYPE_UNKNOWN, "other"}};
    QCOMPARE(found["type"].toString(), TYPES.value(expected.mType, "none"));
    QCOMPARE(found["name"].toString(), expected.mFileName);
    QCOMPARE(found["size"].toDouble(), static_cast<double>(expected.mSize));
    QCOMPARE(QDateTime::fromString(found["created"].toString(), Qt::ISODateWithMs), expected.mCreated);
    QCOMPARE(QDateTime::fromString(found["modified"].toString(), Qt::ISODateWithMs), expected.mLastModified);
    QCOMPARE(found["width"].toInt(), expected.mWidth);
    QCOMPARE(found["height"].toInt(), expected.mHeight);
    QCOMPARE(found["length"].toInt(), expected.mLength);
    QCOMPARE(found["bitrate"].toInt(), expected.mBitrate);
    QCOMPARE(found["framerate"].toInt(), expected.mFramerate);
}

void VornfhInfoTest::startsOneFfprobePerFile()
{
    StandIns programs;
    programs.add("ffprobe", programs.becomes("ffprobe"));
    const ToolRun tool;
    tool.make({"b.wav = x", "c.txt = x", "folder/d.avi = x"});
    makeVideo(tool.path() + "/a.avi", QSize(64, 48));
    makePicture(tool.path() + "/e.jpg", QSize(64, 48));
    QCOMPARE(tool.run({"info", "a.avi", "b.wav", "c.txt", "folder", "e.jpg"}).exitCode, 0);
    QByteArrayList files;
    for (const QByteArrayList &call : programs.calls("ffprobe"))
        files.append(call.last());
    std::sort(files.begin(), files.end());
    QCOMPARE(files, tool.expand(Tree{"file:@/a.avi", "file:@/b.wav"}));
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

void VornfhInfoTest::readsSeveralVideosAtATime()
{
    if (std::thread::hardware_concurrency() < 2)
        QSKIP("there is only one processor");
    // The first is finished after the second.
    StandIns programs;
    programs.add("ffprobe", "for path; do :; done\n"
                            "case $path in\n"
                            "*1.avi) for i in $(seq 100); do [ -e second ] && break; sleep 0.1; done\n"
                            "    [ -e second ] && printf 'width=1\\nheight=1\\n' ;;\n"
                            "*2.avi) : >second; printf 'width=2\\nheight=2\\n' ;;\n"
                            "esac");
    const ToolRun tool;
    tool.make({"1.avi", "2.avi"});
    const Outcome outcome = tool.run({"info", "1.avi", "missing.avi", "2.avi", "--json"});
    const QJsonArray records = outcome.json().array();
    QCOMPARE(outcome.err, errorLines({"missing.avi: No such file or directory"}));
    QCOMPARE(records.size(), 3);
    QCOMPARE(records[1].toObject(),
             (QJsonObject{{"path", "missing.avi"}, {"error", "No such file or directory"}}));
    for (int i = 0; i < 2; ++i) {
        QCOMPARE(records[2 * i].toObject()["name"].toString(), QString("%1.avi").arg(i + 1));
        QCOMPARE(records[2 * i].toObject()["width"].toInt(), i + 1);
    }
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
    row("comment-with-an-empty-path", {"comment", "", "x"}, "the path is empty");
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

void VornfhInfoTest::infoShowsTheComment_data()
{
    QTest::addColumn<QByteArray>("file");
    QTest::addColumn<QByteArray>("comment");
    QTest::addColumn<QByteArray>("shown");
    const auto row = [](const char *name, const QByteArray &file, const QByteArray &comment,
                        const QByteArray &shown) { QTest::newRow(name) << file << comment << shown; };
    row("jpeg", "a.jpg", "At the lake", "At the lake");
    row("png", "a.png", "At the lake", "At the lake");
    row("tiff", "a.tiff", "At the lake", "At the lake");
    row("other-scripts", "a.jpg", "Gr\u00fc\u00dfe \u4e16", "Gr\u00fc\u00dfe \u4e16");
    row("control-characters", "a.jpg", "a\nb\x1b[31m", "a\\x0ab\\x1b[31m");
}

void VornfhInfoTest::infoShowsTheComment()
{
    QFETCH(QByteArray, file);
    QFETCH(QByteArray, comment);
    QFETCH(QByteArray, shown);
    const ToolRun tool;
    makeImage(tool.path() + "/" + file);
    QCOMPARE(tool.run({"comment", file, comment}), tool.success());
    const Outcome text = tool.run({"info", file});
    QVERIFY2(text.out.endsWith("\n  comment   " + shown + "\n"), text.out.constData());
    QCOMPARE(text.err, QByteArray());
    const QJsonObject record = tool.run({"info", "--json", file}).json().array()[0].toObject();
    QCOMPARE(record["comment"].toString().toUtf8(), comment);
}

void VornfhInfoTest::infoShowsNoComment_data()
{
    QTest::addColumn<QByteArray>("file");
    QTest::addColumn<QByteArray>("content");
    const auto row = [](const char *name, const QByteArray &file, const QByteArray &content) {
        QTest::newRow(name) << file << content;
    };
    row("none", "a.jpg", jpegHeader(640, 480));
    row("damaged-exif-data", "a.jpg",
        QByteArray::fromHex("ffd8ffe10010457869660000494900ff00ff00ff") + jpegHeader(640, 480).mid(2));
    row("damaged-tiff", "a.tiff", bigEndianTiff().left(20));
    row("empty-file", "a.jpg", "");
    row("other-file", "a.txt", "Exif comment");
}

void VornfhInfoTest::infoShowsNoComment()
{
    QFETCH(QByteArray, file);
    QFETCH(QByteArray, content);
    const ToolRun tool;
    writeFile(tool.path() + "/" + file, content);
    const Outcome text = tool.run({"info", file});
    QVERIFY2(!text.out.contains("  comment"), text.out.constData());
    QCOMPARE(text.err, QByteArray());
    QCOMPARE(text.exitCode, 0);
    const Outcome json = tool.run({"info", "--json", file});
    QVERIFY(!json.json().array()[0].toObject().contains("comment"));
    QCOMPARE(json.err, QByteArray());
}

void VornfhInfoTest::formatIsReadFromTheContent_data()
{
    QTest::addColumn<QByteArray>("made"); // by ffmpeg, or a big-endian TIFF file
    QTest::addColumn<QByteArray>("file");
    const auto row = [](const char *name, const QByteArray &made, const QByteArray &file) {
        QTest::newRow(name) << made << file;
    };
    row("jpeg", "a.jpg", "a.jpg");
    row("png", "a.png", "a.png");
    row("tiff", "a.tiff", "a.tiff");
    row("big-endian-tiff", "", "b.tiff");
    row("jpeg-with-the-extension-of-another-image", "a.jpg", "a.png");
    row("png-with-the-extension-of-a-video", "a.png", "a.avi");
    row("jpeg-without-an-extension", "a.jpg", "a");
}

void VornfhInfoTest::formatIsReadFromTheContent()
{
    QFETCH(QByteArray, made);
    QFETCH(QByteArray, file);
    const ToolRun tool;
    const QString path = tool.path() + "/" + file;
    makeImage(tool.path() + "/" + made);
    if (made.isEmpty())
        writeFile(path, bigEndianTiff());
    else if (made != file)
        QVERIFY(QFile::rename(tool.path() + "/" + made, path));
    QCOMPARE(tool.run({"comment", file, "At the lake"}), tool.success());
    QCOMPARE(readComment(path), unicode("At the lake"));
    QCOMPARE(tree(tool.path()), Tree{file});
}

void VornfhInfoTest::aCommentKeepsModeOwnerTimesAndAttributes_data()
{
    QTest::addColumn<QString>("file");
    for (const char *name : {"a.jpg", "a.png", "a.tiff"})
        QTest::newRow(name + 2) << QString(name);
}

void VornfhInfoTest::aCommentKeepsModeOwnerTimesAndAttributes()
{
    QFETCH(QString, file);
    const ToolRun tool;
    const QString photo = tool.path() + "/" + file;
    const QByteArray path = photo.toUtf8();
    makeImage(photo);
    if (::geteuid() == 0)
        QCOMPARE(::chown(path.constData(), 1234, 2345), 0);
    setMode(tool, file, 0640);
    const bool hasAttributes = ::setxattr(path.constData(), "user.album", "lake", 4, 0) == 0;
    setModified(path, TIME + 123);
    const struct stat before = statusOf(photo);
    QCOMPARE(tool.run({"comment", file.toUtf8(), "x"}), tool.success());
    const struct stat after = statusOf(photo);
    QVERIFY(after.st_ino != before.st_ino);
    QCOMPARE(after.st_mode, before.st_mode);
    QCOMPARE(after.st_uid, before.st_uid);
    QCOMPARE(after.st_gid, before.st_gid);
    QCOMPARE(after.st_atim.tv_sec, before.st_atim.tv_sec);
    QCOMPARE(after.st_mtim.tv_sec, before.st_mtim.tv_sec);
    QCOMPARE(after.st_mtim.tv_nsec, before.st_mtim.tv_nsec);
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
    const QByteArray unchanged = "; the file is unchanged";
    const QByteArray otherFormat = ": is not a JPEG, PNG or TIFF image";
    row("beyond-the-basic-plane", "a.jpg", "\U0001F600",
        "@/a.jpg: the comment reads back differently (characters above U+FFFF, such as emoji, cannot be "
        "stored)"
            + unchanged);
    row("too-long", "a.jpg", QByteArray(40000, 'a'),
        "@/a.jpg: the comment cannot be read back (40000 characters; a JPEG image has space for about 32000)"
            + unchanged);
    row("avi", "a.avi", "x", "@/a.avi" + otherFormat);
    row("avi-of-a-killed-recording", "killed.avi", "x", "@/killed.avi" + otherFormat);
    row("avi-of-a-killed-recording-with-the-extension-of-a-photo", "killed.jpg", "x",
        "@/killed.jpg" + otherFormat);
    row("text-file", "a.txt", "x", "@/a.txt" + otherFormat);
    row("text-file-with-the-extension-of-a-photo", "text.jpg", "x", "@/text.jpg" + otherFormat);
    row("empty-file", "empty.jpg", "x", "@/empty.jpg" + otherFormat);
    row("jpeg-cut-off-after-its-first-bytes", "cut.jpg", "x",
        "@/cut.jpg: the comment cannot be written: Failed to read image data");
    row("damaged-png-signature", "damaged.png", "x", "@/damaged.png" + otherFormat);
    const QByteArray raw = ": is a raw photo, not a TIFF image";
    row("cr2", "a.cr2", "x", "@/a.cr2" + raw);
    row("dng", "a.dng", "x", "@/a.dng" + raw);
    row("raw-photo-whose-first-image-is-a-preview", "a.nef", "x", "@/a.nef" + raw);
    row("missing", "none.jpg", "x", "none.jpg: No such file or directory");
    row("folder", "folder", "x", "@/folder: is not a regular file");
}

void VornfhInfoTest::aRefusedCommentChangesNothing()
{
    QFETCH(QByteArray, file);
    QFETCH(QByteArray, text);
    QFETCH(QByteArray, message);
    const ToolRun tool;
    const QByteArray content = " = not a picture, but long enough for one";
    tool.make({"folder/", "a.txt" + content, "text.jpg" + content, "empty.jpg"});
    writeFile(tool.path() + "/killed.avi", UNCLOSED_AVI);
    writeFile(tool.path() + "/killed.jpg", UNCLOSED_AVI);
    writeFile(tool.path() + "/cut.jpg", QByteArray::fromHex("ffd8ffe0"));
    writeFile(tool.path() + "/damaged.png", "\x89PNG and not what comes next");
    writeFile(tool.path() + "/a.cr2", QByteArray::fromHex("49492a001000000043520200") + QByteArray(64, '\0'));
    writeFile(tool.path() + "/a.dng", bigEndianTiff("c61200010000000401040000"));
    writeFile(tool.path() + "/a.nef", bigEndianTiff("00fe00040000000100000001"));
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

void VornfhInfoTest::aPhotoChangedInTheMeantimeIsKept_data()
{
    QTest::addColumn<QByteArray>("script");
    QTest::addColumn<QByteArray>("content");
    const auto row = [](const char *name, const QByteArray &script, const QByteArray &content) {
        QTest::newRow(name) << script << content;
    };
    row("grows", "printf more >> a.jpg", "more");
    row("is-replaced", "printf other > b.jpg; mv b.jpg a.jpg", "other");
}

void VornfhInfoTest::aPhotoChangedInTheMeantimeIsKept()
{
    QFETCH(QByteArray, script);
    QFETCH(QByteArray, content);
    ToolRun tool;
    makePicture(tool.path() + "/a.jpg", QSize(64, 48));
    if (!tool.runBefore("sendfile", script))
        QSKIP("nothing can be preloaded");
    QCOMPARE(tool.run({"comment", "a.jpg", "x"}),
             tool.failure({"@/a.jpg: was changed by another program in the meantime"}));
    QVERIFY(tool.content("a.jpg").endsWith(content));
    QCOMPARE(tree(tool.path()), Tree{"a.jpg"});
}

void VornfhInfoTest::aSignalDoesNotInterruptAComment()
{
    ToolRun tool;
    makePicture(tool.path() + "/a.jpg", QSize(64, 48));
    if (!tool.runBefore("sendfile", "kill -INT $PPID"))
        QSKIP("nothing can be preloaded");
    QCOMPARE(tool.run({"comment", "a.jpg", "x"}), tool.success());
    QCOMPARE(readComment(tool.path() + "/a.jpg"), unicode("x"));
    QCOMPARE(tree(tool.path()), Tree{"a.jpg"});
}

void VornfhInfoTest::aKilledCommentLeavesThePhoto()
{
    ToolRun tool;
    makePicture(tool.path() + "/a.jpg", QSize(64, 48));
    const QByteArray before = tool.content("a.jpg");
    const QProcessEnvironment usual = tool.environment;
    // Two calls copy the photo to memory.
    if (!tool.runBefore("sendfile", "kill -9 $PPID", 3))
        QSKIP("nothing can be preloaded");
    QCOMPARE(tool.run({"comment", "a.jpg", "x"}), (Outcome{128 + SIGKILL, "", ""}));
    QVERIFY(tool.content("a.jpg") == before);
    const QByteArray left = tree(tool.path()).first();
    QCOMPARE(withoutRandomNames(left), QByteArray(".vornfh-PID-XXXXXX"));

    tool.environment = usual;
    QCOMPARE(tool.run({"comment", "a.jpg", "x"}),
             tool.success("", errorLines({messages::removed("@/" + left)})));
    QCOMPARE(readComment(tool.path() + "/a.jpg"), unicode("x"));
    QCOMPARE(tree(tool.path()), Tree{"a.jpg"});
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
    QCOMPARE(outcome, tool.failure({"@/ro/a.jpg: no file can be created in @/ro: Read-only file system"}));
    QCOMPARE(tool.content("ro/a.jpg"), before);
}

QTEST_GUILESS_MAIN(VornfhInfoTest)
#include "tst_vornfh_info.moc"

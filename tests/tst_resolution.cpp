// SPDX-License-Identifier: MIT
#include "media.h"
#include "standins.h"
#include "testsupport.h"

#include <QtTest>

using namespace VORN_FILE_HANDLER;

namespace {

const QSize FORMER(7, 9);

/// The arguments of ffprobe before the path
const QByteArrayList PROBE =
    QByteArray("-v error -select_streams v:0 -show_entries stream=width,height -of default=nw=1:nk=1")
        .split(' ');

/// The size in a record, initially FORMER, after setResolution() for @p path as @p type.
QSize probed(int type, const QString &path)
{
    Metadata record;
    record.setType(anyType(type));
    record.mWidth = FORMER.width();
    record.mHeight = FORMER.height();
    QFileInfo file(path);
    record.setResolution(file);
    return {record.mWidth, record.mHeight};
}

/// The size that ffprobe reports for the first video stream of a file.
QSize sizeByFfprobe(const QString &path)
{
    QStringList arguments;
    for (const QByteArray &argument : PROBE)
        arguments.append(QString::fromLatin1(argument));
    const QByteArrayList lines = outputOf("ffprobe", arguments << path).split('\n');
    return {lines.at(0).toInt(), lines.at(1).toInt()};
}

} // namespace

class ResolutionTest : public QObject
{
    Q_OBJECT

private slots:
    void realMedia_data();
    void realMedia();
    void rotationIsNotApplied();
    void imageData_data();
    void imageData();
    void imageThatIsNotAFile_data();
    void imageThatIsNotAFile();
    void videoWithoutASize_data();
    void videoWithoutASize();
    void outputOfFfprobe_data();
    void outputOfFfprobe();
    void exitOfFfprobe_data();
    void exitOfFfprobe();
    void argumentsOfFfprobe_data();
    void argumentsOfFfprobe();
    void commandOfTheShell();
    void shellExpandsThePath();
    void missingPrograms_data();
    void missingPrograms();
    void onlyVideosStartAProcess_data();
    void onlyVideosStartAProcess();
    void onlyTheSizeIsWritten_data();
    void onlyTheSizeIsWritten();
    void getMetadataSetsTheSize();
};

void ResolutionTest::realMedia_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<int>("type");
    QTest::addColumn<QSize>("size");

    const auto row = [](const char *name, const char *file, int type, QSize size) {
        QTest::newRow(name) << file << type << size;
    };
    row("jpeg", "a.jpg", FILE_TYPE_IMAGE, {322, 242});
    row("jpeg-as-jpeg", "a.jpg", FILE_TYPE_IMAGE_JPEG, {323, 241});
    row("png", "a.png", FILE_TYPE_IMAGE, {17, 9});
    row("png-as-png", "a.png", FILE_TYPE_IMAGE_PNG, {640, 480});
    row("smallest-png", "a.png", FILE_TYPE_IMAGE, {1, 1});
    row("thumbnail", "a.thumb", FILE_TYPE_THUMB, {160, 120});
    row("avi", "a.avi", FILE_TYPE_VIDEO, {322, 242});
    row("avi-as-avi", "a.avi", FILE_TYPE_VIDEO_AVI, {64, 48});
    row("mkv", "a.mkv", FILE_TYPE_VIDEO_MKV, {321, 243});
}

void ResolutionTest::realMedia()
{
    QFETCH(const QString, name);
    QFETCH(const int, type);
    QFETCH(const QSize, size);
    const QTemporaryDir directory;
    const QString path = directory.filePath(name);
    if (path.endsWith(".avi") || path.endsWith(".mkv"))
        makeVideo(path, size);
    else
        makePicture(path, size);
    StandardErrorCapture capture;
    QCOMPARE(probed(type, path), size);
    QCOMPARE(capture.take(), QByteArray());
    QCOMPARE(sizeByFfprobe(path), size);
}

void ResolutionTest::rotationIsNotApplied()
{
    const QTemporaryDir directory;
    const QString path = directory.filePath("a.jpg");
    makePicture(path, QSize(64, 32));
    outputOf("exiv2", {"-M", "set Exif.Image.Orientation 6", path});
    QCOMPARE(probed(FILE_TYPE_IMAGE, path), QSize(64, 32));
}

void ResolutionTest::imageData_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<QByteArray>("data");
    QTest::addColumn<QSize>("expected");
    QTest::addColumn<bool>("damaged"); // the image libraries may print their own messages about it

    const auto row = [](const char *name, const char *file, const QByteArray &data, QSize expected,
                        bool damaged = false) { QTest::newRow(name) << file << data << expected << damaged; };
    const QByteArray png = pictureData("png", {20, 30});
    const QByteArray jpeg = pictureData("jpg", {20, 30});
    const QSize none(-1, -1);
    row("png-named-jpg", "a.jpg", png, {20, 30});
    row("jpeg-named-png", "a.png", jpeg, {20, 30});
    row("png-named-thumb", "a.thumb", png, {20, 30});
    row("portable-pixmap-named-jpg", "a.jpg", "P6\n3 4\n255\n", {3, 4});
    row("empty", "a.jpg", "", none);
    row("empty-thumbnail", "a.thumb", "", none);
    row("text-named-jpg", "a.jpg", "this is not a picture\n", none);
    row("text-named-png", "a.png", "this is not a picture\n", none);
    row("zeros", "a.jpg", QByteArray(1000, '\0'), none);
    row("png-signature-only", "a.png", png.left(8), none, true);
    row("png-with-half-a-header", "a.png", png.left(20), none, true);
    row("jpeg-marker-only", "a.jpg", jpeg.left(3), none, true);
    row("jpeg-without-a-frame", "a.jpg", jpeg.left(24), none, true);
    row("jpeg-header-only", "a.jpg", jpegHeader(120, 80), {120, 80}, true);
    row("jpeg-that-declares-the-largest-size", "a.jpg", jpegHeader(65500, 65500), {65500, 65500}, true);
    row("jpeg-that-declares-no-size", "a.jpg", jpegHeader(0, 0), none, true);
}

void ResolutionTest::imageData()
{
    QFETCH(const QString, name);
    QFETCH(const QByteArray, data);
    QFETCH(const QSize, expected);
    QFETCH(const bool, damaged);
    const QTemporaryDir directory;
    const QString path = directory.filePath(name);
    writeFile(path, data);
    StandardErrorCapture capture;
    QCOMPARE(probed(FILE_TYPE_IMAGE, path), expected);
    const QByteArray printed = capture.take();
    if (!damaged)
        QCOMPARE(printed, QByteArray());
    QCOMPARE(tree(directory.path()), Tree{name.toUtf8()});
}

void ResolutionTest::imageThatIsNotAFile_data()
{
    QTest::addColumn<QString>("path");

    row("missing", "gone.jpg");
    row("folder", "folder.jpg");
    row("dangling-link", "link.jpg");
    row("empty-path", "");
    row("null-character", "a" + NUL + "b.jpg");
}

void ResolutionTest::imageThatIsNotAFile()
{
    QFETCH(const QString, path);
    const QTemporaryDir directory;
    makeTree(directory.path(), {"folder.jpg/", "link.jpg -> missing"});
    const CurrentDirectory current(directory.path());
    for (const int type : {16, 17, 18, 20}) {
        StandardErrorCapture capture;
        QCOMPARE(probed(type, path), QSize(-1, -1));
        QCOMPARE(capture.take(), QByteArray());
    }
}

void ResolutionTest::videoWithoutASize_data()
{
    QTest::addColumn<QString>("name");

    row("missing", "gone.avi");
    row("empty", "empty.avi");
    row("text", "text.avi");
    row("audio-only", "sound.avi");
    row("folder", "folder.avi");
}

void ResolutionTest::videoWithoutASize()
{
    QFETCH(const QString, name);
    const QTemporaryDir directory;
    makeTree(directory.path(), {"folder.avi/", "empty.avi", "text.avi = 1920\n1080\n"});
    if (name == "sound.avi")
        makeSound(directory.filePath(name));
    StandardErrorCapture capture;
    QCOMPARE(probed(FILE_TYPE_VIDEO, directory.filePath(name)), FORMER);
    QCOMPARE(capture.take(), QByteArray());
}

void ResolutionTest::outputOfFfprobe_data()
{
    QTest::addColumn<QByteArray>("output");
    QTest::addColumn<QSize>("expected");

    const auto row = [](const char *name, const QByteArray &output, QSize expected) {
        QTest::newRow(name) << output << expected;
    };
    row("two-lines", "1920\n1080\n", {1920, 1080});
    row("spaces-around-the-line-feed", "1280 \n  720", {1280, 720});
    row("no-line-feed-at-the-end", "1920\n1080", {1920, 1080});
    row("carriage-returns", "1920\r\n1080\r\n", {1920, 1080});
    row("empty-lines-between", "1920\n\n \n1080\n", {1920, 1080});
    row("empty-lines-before", "\n\n1920\n1080\n", {1920, 1080});
    row("every-kind-of-white-space", "1920\t\f\v\r\n\t\v\f1080", {1920, 1080});
    row("three-numbers", "640\n480\n30\n", {640, 480});
    row("two-streams", "640\n480\n320\n240\n", {640, 480});
    row("leading-zeros", "0640\n0480\n", {640, 480});
    row("zeros", "0\n0\n", {0, 0});
    row("text-before", "warning\n640\n480\n", {640, 480});
    row("text-around-the-numbers", "w640\n480h", {640, 480});
    row("first-match-is-used", "1 2\n3 4\n5\n", {2, 3});
    row("bytes-that-are-not-utf-8", "\377\376 640\n480\377", {640, 480});
    row("largest-numbers", "2147483647\n2147483647\n", {2147483647, 2147483647});
    row("width-too-large", "2147483648\n480\n", {0, 480});
    row("height-too-large", "640\n99999999999999999999\n", {640, 0});
    row("much-output", QByteArray(300000, 'x') + "\n640\n480\n", {640, 480});
    row("empty", "", FORMER);
    row("line-feeds-only", "\n\n\n", FORMER);
    row("not-available", "N/A\nN/A\n", FORMER);
    row("width-not-available", "N/A\n480\n", FORMER);
    row("one-line", "1920\n", FORMER);
    row("one-number", "1920", FORMER);
    row("two-numbers-on-one-line", "1920 1080\n", FORMER);
    row("carriage-return-only", "1920\r1080", FORMER);
    row("with-keys", "width=1920\nheight=1080\n", FORMER);
    row("signs", "-1920\n-1080\n", FORMER);
    row("text-between", "1920x\n1080\n", FORMER);
    row("digits-outside-ascii", "\u0663\n\u0664\n", FORMER);
    row("no-break-space-between", "1920\u00A0\n1080\n", FORMER);
    row("leading-nul", QByteArray("\0001920\n1080\n", 11), FORMER);
    row("nul-between", QByteArray("1920\n\0001080\n", 11), FORMER);
    row("nul-in-the-height", QByteArray("1920\n10\00080\n", 11), {1920, 10});
    row("nul-after", QByteArray("1920\n1080\n\0007", 12), {1920, 1080});
}

void ResolutionTest::outputOfFfprobe()
{
    QFETCH(const QByteArray, output);
    QFETCH(const QSize, expected);
    StandIns programs;
    programs.add("ffprobe", programs.prints(output));
    StandardErrorCapture capture;
    QCOMPARE(probed(FILE_TYPE_VIDEO_AVI, "/nowhere/a.avi"), expected);
    QCOMPARE(capture.take(), QByteArray());
    QCOMPARE(programs.calls("ffprobe").size(), 1);
}

void ResolutionTest::exitOfFfprobe_data()
{
    QTest::addColumn<QByteArray>("script");
    QTest::addColumn<QSize>("expected");

    const auto row = [](const char *name, const QByteArray &script, QSize expected) {
        QTest::newRow(name) << script << expected;
    };
    const QByteArray size = "printf '640\\n480\\n'";
    row("failure-after-the-output", size + "; exit 1", {640, 480});
    row("crash-after-the-output", size + "; kill -9 $$", {640, 480});
    row("failure-without-output", "exit 1", FORMER);
    row("output-on-standard-error-only", size + " >&2", FORMER);
    row("output-on-both-channels", "printf '1\\n2\\n' >&2; " + size, {640, 480});
    row("half-on-each-channel", "echo 640; echo 480 >&2", FORMER);
    row("output-after-a-delay", "echo 640; sleep 0.3; echo 480", {640, 480});
}

void ResolutionTest::exitOfFfprobe()
{
    QFETCH(const QByteArray, script);
    QFETCH(const QSize, expected);
    StandIns programs;
    programs.add("ffprobe", script);
    StandardErrorCapture capture;
    QCOMPARE(probed(FILE_TYPE_VIDEO_MKV, "/nowhere/a.mkv"), expected);
    QCOMPARE(capture.take(), QByteArray());
}

void ResolutionTest::argumentsOfFfprobe_data()
{
    QTest::addColumn<QString>("path");
    QTest::addColumn<QByteArrayList>("expected"); // after the fixed ones

    const auto row = [](const char *name, const QString &path, const QByteArrayList &expected) {
        QTest::newRow(name) << path << expected;
    };
    row("plain", "/n/a.avi", {"/n/a.avi"});
    row("outside-ascii", "/n/\u00FC.avi", {"/n/\u00FC.avi"});
    row("space", "/n/a b.avi", {"/n/a", "b.avi"});
    row("several-spaces", "/n/a   b.avi ", {"/n/a", "b.avi"});
    row("single-quotes", "/n/'a b'.avi", {"/n/a b.avi"});
    row("double-quotes", "/n/\"a b\".avi", {"/n/a"});
    row("one-double-quote", "/n/a\" b.avi", {"/n/a"});
    row("three-double-quotes-twice", "/n/\"\"\"a b\"\"\".avi", {"/n/a b.avi"});
    row("backslash", "/n/a\\ b.avi", {"/n/a b.avi"});
    row("variable", "/n/${none}a.avi", {"/n/a.avi"});
    row("comment", "/n/a #b.avi", {"/n/a"});
    row("word-like-an-option", "/n/a -i.avi", {"/n/a", "-i.avi"});
    row("place-marker", "/n/%1.avi", {"/n/%1.avi"});
    row("two-place-markers", "/n/%1%2.avi", {"/n/%1%2.avi"});
    row("semicolon", "/n/a;: b.avi", {"/n/a"});
    row("line-feed", "/n/a\n: b.avi", {"/n/a"});
}

void ResolutionTest::argumentsOfFfprobe()
{
    QFETCH(const QString, path);
    QFETCH(const QByteArrayList, expected);
    StandIns programs;
    programs.add("ffprobe", programs.prints("640\n480\n"));
    StandardErrorCapture capture;
    QCOMPARE(probed(FILE_TYPE_VIDEO, path), QSize(640, 480));
    QCOMPARE(capture.take(), QByteArray());
    QCOMPARE(programs.calls("ffprobe"), Calls{PROBE + expected});
}

void ResolutionTest::commandOfTheShell()
{
    const QTemporaryDir directory;
    const CurrentDirectory current(directory.path());
    StandIns programs;
    programs.add("sh", programs.prints("640\n480\n"));
    programs.add("ffprobe");
    QCOMPARE(probed(FILE_TYPE_VIDEO, "a b.avi"), QSize(640, 480));
    const QByteArray line = "ffprobe " + PROBE.join(' ') + " " + QDir::currentPath().toUtf8() + "/a b.avi";
    QCOMPARE(programs.calls("sh"), (Calls{{"-c", line}}));
    QCOMPARE(programs.callOrder(), QByteArrayList{"sh"});
}

void ResolutionTest::shellExpandsThePath()
{
    const QTemporaryDir directory;
    const CurrentDirectory current(directory.path());
    StandIns programs;
    programs.add("ffprobe");
    StandardErrorCapture capture;
    QCOMPARE(probed(FILE_TYPE_VIDEO, "$(echo made >made; echo x).avi"), FORMER);
    QCOMPARE(capture.take(), QByteArray());
    QCOMPARE(tree(directory.path()), Tree{"made"});
    const QByteArray path = QDir::currentPath().toUtf8() + "/x.avi";
    QCOMPARE(programs.calls("ffprobe"), Calls{PROBE + QByteArrayList{path}});
}

void ResolutionTest::missingPrograms_data()
{
    QTest::addColumn<bool>("shell");

    row("ffprobe", true);
    row("sh", false);
}

void ResolutionTest::missingPrograms()
{
    QFETCH(const bool, shell);
    StandIns programs(StandIns::Alone);
    if (shell)
        programs.add("sh", programs.becomes("sh"));
    StandardErrorCapture capture;
    QCOMPARE(probed(FILE_TYPE_VIDEO, "/nowhere/a.avi"), FORMER);
    QCOMPARE(capture.take(), QByteArray());
    QCOMPARE(programs.callOrder(), shell ? QByteArrayList{"sh"} : QByteArrayList{});
}

void ResolutionTest::onlyVideosStartAProcess_data()
{
    QTest::addColumn<int>("type");
    QTest::addColumn<QSize>("expected");
    QTest::addColumn<QByteArrayList>("programs");

    const QByteArrayList none;
    const QByteArrayList probe = {"sh", "ffprobe"};
    const QSize unreadable(-1, -1);
    row("image", FILE_TYPE_IMAGE, unreadable, none);
    row("jpeg", FILE_TYPE_IMAGE_JPEG, unreadable, none);
    row("png", FILE_TYPE_IMAGE_PNG, unreadable, none);
    row("thumbnail", FILE_TYPE_THUMB, unreadable, none);
    row("video", FILE_TYPE_VIDEO, QSize(640, 480), probe);
    row("avi", FILE_TYPE_VIDEO_AVI, QSize(640, 480), probe);
    row("mkv", FILE_TYPE_VIDEO_MKV, QSize(640, 480), probe);
    row("audio", FILE_TYPE_AUDIO, FORMER, none);
    row("wav", FILE_TYPE_AUDIO_WAV, FORMER, none);
    row("folder", FILE_TYPE_DIRECTORY, FORMER, none);
    row("unknown", FILE_TYPE_UNKNOWN, FORMER, none);
    row("zero", 0, FORMER, none);
    row("bits-of-image-and-video", 48, FORMER, none);
}

void ResolutionTest::onlyVideosStartAProcess()
{
    QFETCH(const int, type);
    QFETCH(const QSize, expected);
    QFETCH(const QByteArrayList, programs);
    const QTemporaryDir directory;
    makeTree(directory.path(), {"a.avi"});
    StandIns standIns(StandIns::Alone);
    standIns.add("sh", standIns.becomes("sh"));
    standIns.add("ffprobe", standIns.prints("640\n480\n"));
    StandardErrorCapture capture;
    QCOMPARE(probed(type, directory.filePath("a.avi")), expected);
    QCOMPARE(capture.take(), QByteArray());
    QCOMPARE(standIns.callOrder(), programs);
}

void ResolutionTest::onlyTheSizeIsWritten_data()
{
    QTest::addColumn<int>("type");

    row("image", FILE_TYPE_THUMB);
    row("video", FILE_TYPE_VIDEO_MKV);
}

void ResolutionTest::onlyTheSizeIsWritten()
{
    QFETCH(const int, type);
    StandIns programs;
    programs.add("ffprobe", programs.prints("640\n480\n"));
    Metadata record;
    fillRecord(record);
    record.setType(anyType(type));
    QVariantList expected = fieldsOf(record);
    QFileInfo file("/nowhere/a.mkv");
    record.setResolution(file);
    expected[5] = record.mWidth;
    expected[6] = record.mHeight;
    QCOMPARE(fieldsOf(record), expected);
    QCOMPARE(file.filePath(), QString("/nowhere/a.mkv"));
}

void ResolutionTest::getMetadataSetsTheSize()
{
    const QTemporaryDir directory;
    makePicture(directory.filePath("a.thumb"), QSize(16, 12));
    makeVideo(directory.filePath("a.avi"), QSize(64, 48));
    Metadata record;
    StandardErrorCapture capture;
    VornFileHandler::getMetadata(QFileInfo(directory.filePath("a.thumb")), record);
    QCOMPARE(QSize(record.mWidth, record.mHeight), QSize(16, 12));
    VornFileHandler::getMetadata(QFileInfo(directory.filePath("gone.avi")), record);
    QCOMPARE(QSize(record.mWidth, record.mHeight), QSize(16, 12));
    VornFileHandler::getMetadata(QFileInfo(directory.filePath("a.avi")), record);
    QCOMPARE(QSize(record.mWidth, record.mHeight), QSize(64, 48));
    VornFileHandler::getMetadata(QFileInfo(directory.filePath("gone.jpg")), record);
    QCOMPARE(QSize(record.mWidth, record.mHeight), QSize(-1, -1));
    QCOMPARE(capture.take(), QByteArray());
}

QTEST_GUILESS_MAIN(ResolutionTest)
#include "tst_resolution.moc"

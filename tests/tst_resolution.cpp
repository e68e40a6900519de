// SPDX-License-Identifier: MIT
#include "media.h"
#include "standins.h"
#include "testsupport.h"

#include <QtTest>

using namespace VORN_FILE_HANDLER;

namespace {

const QSize FORMER(7, 9);

const QByteArrayList PROBE = {"-v",
                              "error",
                              "-select_streams",
                              "v:0",
                              "-show_entries",
                              "stream=width,height",
                              "-of",
                              "default=nw=1:nk=1"};

/// The size that a record holds after the probe of @p file as @p type, from FORMER.
QSize probed(int type, const QString &path)
{
    Metadata record;
    record.setType(static_cast<eFileTypes>(type));
    record.mWidth = FORMER.width();
    record.mHeight = FORMER.height();
    QFileInfo file(path);
    record.setResolution(file);
    return {record.mWidth, record.mHeight};
}

/// What ffprobe says of the first picture or video in a file.
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
    void imageThatIsNoFile_data();
    void imageThatIsNoFile();
    void videoWithoutAnAnswer_data();
    void videoWithoutAnAnswer();
    void outputOfFfprobe_data();
    void outputOfFfprobe();
    void endOfFfprobe_data();
    void endOfFfprobe();
    void argumentsOfFfprobe_data();
    void argumentsOfFfprobe();
    void commandOfTheShell();
    void pathIsWorkedOnByTheShell();
    void missingPrograms_data();
    void missingPrograms();
    void onlyVideosStartAProcess_data();
    void onlyVideosStartAProcess();
    void onlyTheSizeIsWritten_data();
    void onlyTheSizeIsWritten();
    void throughGetMetadata();
};

void ResolutionTest::realMedia_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<int>("type");
    QTest::addColumn<QSize>("size");

    QTest::newRow("jpeg") << "a.jpg" << int(FILE_TYPE_IMAGE) << QSize(322, 242);
    QTest::newRow("jpeg-of-its-own-type") << "a.jpg" << int(FILE_TYPE_IMAGE_JPEG) << QSize(323, 241);
    QTest::newRow("png") << "a.png" << int(FILE_TYPE_IMAGE) << QSize(17, 9);
    QTest::newRow("png-of-its-own-type") << "a.png" << int(FILE_TYPE_IMAGE_PNG) << QSize(640, 480);
    QTest::newRow("smallest-png") << "a.png" << int(FILE_TYPE_IMAGE) << QSize(1, 1);
    QTest::newRow("thumbnail") << "a.thumb" << int(FILE_TYPE_THUMB) << QSize(160, 120);
    QTest::newRow("avi") << "a.avi" << int(FILE_TYPE_VIDEO) << QSize(322, 242);
    QTest::newRow("avi-of-its-own-type") << "a.avi" << int(FILE_TYPE_VIDEO_AVI) << QSize(64, 48);
    QTest::newRow("mkv") << "a.mkv" << int(FILE_TYPE_VIDEO_MKV) << QSize(321, 243);
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
    QTest::addColumn<bool>("damaged"); // of that the image libraries may say something themselves

    const QByteArray png = pictureData("png", QSize(20, 30));
    const QByteArray jpeg = pictureData("jpg", QSize(20, 30));
    const QSize none(-1, -1);
    QTest::newRow("png-named-jpg") << "a.jpg" << png << QSize(20, 30) << false;
    QTest::newRow("jpeg-named-png") << "a.png" << jpeg << QSize(20, 30) << false;
    QTest::newRow("png-named-thumb") << "a.thumb" << png << QSize(20, 30) << false;
    QTest::newRow("portable-pixmap-named-jpg")
        << "a.jpg" << QByteArray("P6\n3 4\n255\n") << QSize(3, 4) << false;
    QTest::newRow("empty") << "a.jpg" << QByteArray() << none << false;
    QTest::newRow("empty-thumbnail") << "a.thumb" << QByteArray() << none << false;
    QTest::newRow("text-named-jpg") << "a.jpg" << QByteArray("this is no picture\n") << none << false;
    QTest::newRow("text-named-png") << "a.png" << QByteArray("this is no picture\n") << none << false;
    QTest::newRow("zeros") << "a.jpg" << QByteArray(1000, '\0') << none << false;
    QTest::newRow("png-signature-only") << "a.png" << png.left(8) << none << true;
    QTest::newRow("png-with-half-a-header") << "a.png" << png.left(20) << none << true;
    QTest::newRow("jpeg-marker-only") << "a.jpg" << jpeg.left(3) << none << true;
    QTest::newRow("jpeg-without-a-frame") << "a.jpg" << jpeg.left(24) << none << true;
    QTest::newRow("jpeg-header-only") << "a.jpg" << jpegHeader(120, 80) << QSize(120, 80) << true;
    QTest::newRow("jpeg-that-claims-the-largest-size")
        << "a.jpg" << jpegHeader(65500, 65500) << QSize(65500, 65500) << true;
    QTest::newRow("jpeg-that-claims-no-size") << "a.jpg" << jpegHeader(0, 0) << none << true;
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
    QCOMPARE(tree(directory.path()), QByteArrayList{name.toUtf8()});
}

void ResolutionTest::imageThatIsNoFile_data()
{
    QTest::addColumn<QString>("path");

    QTest::newRow("missing") << "gone.jpg";
    QTest::newRow("folder") << "folder.jpg";
    QTest::newRow("dangling-link") << "link.jpg";
    QTest::newRow("empty-path") << "";
    QTest::newRow("zero-character") << "a" + QString(QChar::Null) + "b.jpg";
}

void ResolutionTest::imageThatIsNoFile()
{
    QFETCH(const QString, path);
    const QTemporaryDir directory;
    makeEntries(directory.path(), {"folder.jpg/", "link.jpg@missing"});
    const CurrentDirectory inside(directory.path());
    for (const int type : {16, 17, 18, 20}) {
        StandardErrorCapture capture;
        QCOMPARE(probed(type, path), QSize(-1, -1));
        QCOMPARE(capture.take(), QByteArray());
    }
}

void ResolutionTest::videoWithoutAnAnswer_data()
{
    QTest::addColumn<QString>("name");

    QTest::newRow("missing") << "gone.avi";
    QTest::newRow("empty") << "empty.avi";
    QTest::newRow("text") << "text.avi";
    QTest::newRow("sound-only") << "sound.avi";
    QTest::newRow("folder") << "folder.avi";
}

void ResolutionTest::videoWithoutAnAnswer()
{
    QFETCH(const QString, name);
    const QTemporaryDir directory;
    makeEntries(directory.path(), {"folder.avi/"});
    writeFile(directory.filePath("empty.avi"));
    writeFile(directory.filePath("text.avi"), "1920\n1080\n");
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
    row("blanks-around-the-line-feed", "1280 \n  720", {1280, 720});
    row("no-line-feed-at-the-end", "1920\n1080", {1920, 1080});
    row("carriage-returns", "1920\r\n1080\r\n", {1920, 1080});
    row("empty-lines-between", "1920\n\n \n1080\n", {1920, 1080});
    row("empty-lines-in-front", "\n\n1920\n1080\n", {1920, 1080});
    row("every-kind-of-white-space", "1920\t\f\v\r\n\t\v\f1080", {1920, 1080});
    row("three-numbers", "640\n480\n30\n", {640, 480});
    row("two-streams", "640\n480\n320\n240\n", {640, 480});
    row("leading-zeros", "0640\n0480\n", {640, 480});
    row("zeros", "0\n0\n", {0, 0});
    row("text-in-front", "warning\n640\n480\n", {640, 480});
    row("text-around-the-numbers", "w640\n480h", {640, 480});
    row("first-match-counts", "1 2\n3 4\n5\n", {2, 3});
    row("bytes-outside-utf-8", "\xFF\xFE 640\n480\xFF", {640, 480});
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
    row("zero-byte-in-front",
        QByteArray("\0"
                   "1920\n1080\n",
                   11),
        FORMER);
    row("zero-byte-between",
        QByteArray("1920\n\0"
                   "1080\n",
                   11),
        FORMER);
    row("zero-byte-within-the-height",
        QByteArray("1920\n10\0"
                   "80\n",
                   11),
        {1920, 10});
    row("zero-byte-behind",
        QByteArray("1920\n1080\n\0"
                   "7",
                   12),
        {1920, 1080});
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

void ResolutionTest::endOfFfprobe_data()
{
    QTest::addColumn<QByteArray>("script");
    QTest::addColumn<QSize>("expected");

    const QByteArray answer = "printf '640\\n480\\n'";
    QTest::newRow("failure-after-the-answer") << answer + "; exit 1" << QSize(640, 480);
    QTest::newRow("crash-after-the-answer") << answer + "; kill -9 $$" << QSize(640, 480);
    QTest::newRow("failure-without-an-answer") << QByteArray("exit 1") << FORMER;
    QTest::newRow("answer-on-standard-error-only") << answer + " >&2" << FORMER;
    QTest::newRow("answers-on-both") << "printf '1\\n2\\n' >&2; " + answer << QSize(640, 480);
    QTest::newRow("halves-on-both") << QByteArray("echo 640; echo 480 >&2") << FORMER;
    QTest::newRow("answer-after-a-while") << QByteArray("echo 640; sleep 0.3; echo 480") << QSize(640, 480);
}

void ResolutionTest::endOfFfprobe()
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
    QTest::addColumn<QByteArrayList>("expected"); // behind the fixed ones

    const auto row = [](const char *name, const QString &path, const QByteArrayList &expected) {
        QTest::newRow(name) << path << expected;
    };
    row("plain", "/n/a.avi", {"/n/a.avi"});
    row("letters-outside-ascii", "/n/\u00FC.avi", {"/n/\u00FC.avi"});
    row("blank", "/n/a b.avi", {"/n/a", "b.avi"});
    row("several-blanks", "/n/a   b.avi ", {"/n/a", "b.avi"});
    row("single-quotes", "/n/'a b'.avi", {"/n/a b.avi"});
    row("double-quotes", "/n/\"a b\".avi", {"/n/a"});
    row("one-double-quote", "/n/a\" b.avi", {"/n/a"});
    row("three-double-quotes-twice", "/n/\"\"\"a b\"\"\".avi", {"/n/a b.avi"});
    row("backslash", "/n/a\\ b.avi", {"/n/a b.avi"});
    row("variable", "/n/${none}a.avi", {"/n/a.avi"});
    row("comment", "/n/a #b.avi", {"/n/a"});
    row("option-like-word", "/n/a -i.avi", {"/n/a", "-i.avi"});
    row("marker", "/n/%1.avi", {"/n/%1.avi"});
    row("two-markers", "/n/%1%2.avi", {"/n/%1%2.avi"});
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
    QCOMPARE(programs.calls("ffprobe"), QList<QByteArrayList>{PROBE + expected});
}

void ResolutionTest::commandOfTheShell()
{
    const QTemporaryDir directory;
    const CurrentDirectory inside(directory.path());
    StandIns programs;
    programs.add("sh", programs.prints("640\n480\n"));
    programs.add("ffprobe");
    QCOMPARE(probed(FILE_TYPE_VIDEO, "a b.avi"), QSize(640, 480));
    const QByteArray line = "ffprobe " + PROBE.join(' ') + " " + QDir::currentPath().toUtf8() + "/a b.avi";
    QCOMPARE(programs.calls("sh"), (QList<QByteArrayList>{{"-c", line}}));
    QCOMPARE(programs.callOrder(), QByteArrayList{"sh"});
}

void ResolutionTest::pathIsWorkedOnByTheShell()
{
    const QTemporaryDir directory;
    const CurrentDirectory inside(directory.path());
    StandIns programs;
    programs.add("ffprobe");
    StandardErrorCapture capture;
    QCOMPARE(probed(FILE_TYPE_VIDEO, "$(echo made >made; echo x).avi"), FORMER);
    QCOMPARE(capture.take(), QByteArray());
    QCOMPARE(tree(directory.path()), QByteArrayList{"made"});
    const QByteArray path = QDir::currentPath().toUtf8() + "/x.avi";
    QCOMPARE(programs.calls("ffprobe"), QList<QByteArrayList>{PROBE + QByteArrayList{path}});
}

void ResolutionTest::missingPrograms_data()
{
    QTest::addColumn<bool>("shell");

    QTest::newRow("ffprobe") << true;
    QTest::newRow("sh") << false;
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
    QTest::newRow("image") << int(FILE_TYPE_IMAGE) << unreadable << none;
    QTest::newRow("jpeg") << int(FILE_TYPE_IMAGE_JPEG) << unreadable << none;
    QTest::newRow("png") << int(FILE_TYPE_IMAGE_PNG) << unreadable << none;
    QTest::newRow("thumbnail") << int(FILE_TYPE_THUMB) << unreadable << none;
    QTest::newRow("video") << int(FILE_TYPE_VIDEO) << QSize(640, 480) << probe;
    QTest::newRow("avi") << int(FILE_TYPE_VIDEO_AVI) << QSize(640, 480) << probe;
    QTest::newRow("mkv") << int(FILE_TYPE_VIDEO_MKV) << QSize(640, 480) << probe;
    QTest::newRow("audio") << int(FILE_TYPE_AUDIO) << FORMER << none;
    QTest::newRow("wav") << int(FILE_TYPE_AUDIO_WAV) << FORMER << none;
    QTest::newRow("directory") << int(FILE_TYPE_DIRECTORY) << FORMER << none;
    QTest::newRow("unknown") << int(FILE_TYPE_UNKNOWN) << FORMER << none;
    QTest::newRow("zero") << 0 << FORMER << none;
    QTest::newRow("image-and-video-at-once") << 48 << FORMER << none;
}

void ResolutionTest::onlyVideosStartAProcess()
{
    QFETCH(const int, type);
    QFETCH(const QSize, expected);
    QFETCH(const QByteArrayList, programs);
    const QTemporaryDir directory;
    makeEntries(directory.path(), {"a.avi"});
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

    QTest::newRow("image") << int(FILE_TYPE_THUMB);
    QTest::newRow("video") << int(FILE_TYPE_VIDEO_MKV);
}

void ResolutionTest::onlyTheSizeIsWritten()
{
    QFETCH(const int, type);
    StandIns programs;
    programs.add("ffprobe", programs.prints("640\n480\n"));
    const QDateTime time = QDateTime::fromMSecsSinceEpoch(1000);
    Metadata record;
    record.mType = static_cast<eFileTypes>(type);
    record.mFileName = "former";
    record.mSize = 1;
    record.mCreated = record.mLastModified = time;
    record.mLength = record.mBitrate = record.mFramerate = 2;
    record.mImageCount = record.mThumbCount = record.mVideoCount = record.mAudioCount = 3;
    QFileInfo file("/nowhere/a.mkv");
    record.setResolution(file);
    QCOMPARE(int(record.mType), type);
    QCOMPARE(record.mFileName, QString("former"));
    QCOMPARE(record.mSize, 1);
    QCOMPARE((QList<QDateTime>{record.mCreated, record.mLastModified}), (QList<QDateTime>{time, time}));
    QCOMPARE((QList<int>{record.mLength, record.mBitrate, record.mFramerate}), (QList<int>{2, 2, 2}));
    QCOMPARE((QList<int>{record.mImageCount, record.mThumbCount, record.mVideoCount, record.mAudioCount}),
             (QList<int>{3, 3, 3, 3}));
    QCOMPARE(file.filePath(), QString("/nowhere/a.mkv"));
}

void ResolutionTest::throughGetMetadata()
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

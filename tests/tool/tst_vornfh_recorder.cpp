// SPDX-License-Identifier: MIT
// "vornfh record" that runs for a long time: segments, --duration 0, --loop, and an input that stops.
#include "media.h"
#include "recordings.h"
#include "standins.h"
#include "toolsupport.h"

#include <QFile>
#include <QRegularExpression>
#include <QSet>
#include <QStorageInfo>
#include <QTest>

#include <csignal>
#include <optional>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

class VornfhRecorderTest : public QObject
{
    Q_OBJECT

private slots:
    void segmentsLoseNothing_data();
    void segmentsLoseNothing();
    void segmentsKeepTheFrameRate_data();
    void segmentsKeepTheFrameRate();
    void segmentsTakeFreeNumbers_data();
    void segmentsTakeFreeNumbers();
    void aSegmentIsFinishedWhileTheNextIsRecorded();
    void twoRecordersShareNoNumber();
    void lowersTheLimitToTheLargestFile_data();
    void lowersTheLimitToTheLargestFile();
    void reportsTheLargestSizeOfAnEndlessRecording_data();
    void reportsTheLargestSizeOfAnEndlessRecording();
    void aLoopDeletesTheOldestObjects();
    void aLoopGoesOnAfterAnotherProgramFilledTheStorage_data();
    void aLoopGoesOnAfterAnotherProgramFilledTheStorage();
    void aLoopOfPhotosDeletesTheOldestObjects();
    void aLoopWithoutRoomSaysSoOnce();
    void aLoopEndsWhenNothingMayBeDeleted();
    void passesOnTheInputParameters_data();
    void passesOnTheInputParameters();
    void showsProgressOnATerminal_data();
    void showsProgressOnATerminal();
    void refusesWrongCommandLines_data();
    void refusesWrongCommandLines();
    void refusesStorages_data();
    void refusesStorages();
    void reportsAReadOnlyStorage();
    void withoutFfmpegNothingChanges();
};

namespace {

/// SMALL at the speed of a camera.
const QByteArrayList CAMERA = {
    "--input-format", "lavfi", "--input",
    "testsrc2=size=160x120:rate=25,realtime[out0];sine=sample_rate=8000,arealtime[out1]"};

/// The sound of a recording: the samples of a format without compression, the packets of another.
QByteArray soundOf(const QString &file)
{
    return file.endsWith("mkv") ? packetsOf(file, "a").join('\n') + '\n'
                                : outputOf("ffmpeg", {"-v", "error", "-i", file, "-map", "0:a", "-c", "copy",
                                                      "-f", "s16le", "-"});
}

/// Waits until the tool has printed @p count lines, and returns them.
QByteArrayList waitForLines(QProcess &process, int count)
{
    const QDeadlineTimer end(60000);
    while (process.peek(1 << 20).count('\n') < count && !end.hasExpired()
           && process.state() == QProcess::Running)
        process.waitForReadyRead(100);
    return linesIn(process.peek(1 << 20));
}

} // namespace

/// The segments together contain exactly what one recording of the same input contains.
void VornfhRecorderTest::segmentsLoseNothing_data()
{
    QTest::addColumn<QByteArray>("type");
    QTest::addColumn<QByteArray>("duration");
    QTest::addColumn<QByteArray>("segment");
    QTest::addColumn<int>("fewest");
    QTest::addColumn<qint64>("largest");
    const auto row = [](const char *name, const QByteArray &type, const QByteArray &duration,
                        const QByteArray &segment, int fewest, qint64 largest = 1 << 30) {
        QTest::newRow(name) << type << duration << segment << fewest << largest;
    };
    row("avi-by-time", "avi", "3.4", "1", 4);
    row("avi-in-one-segment", "avi", "1", "1m", 1);
    row("avi-by-size", "avi", "6", "1M", 3, 1 << 20);
    row("mkv-by-time", "mkv", "3.4", "1s", 3);
    row("mkv-by-size", "mkv", "16", "1M", 2, 1 << 20);
    row("wav-by-time", "wav", "3.4", "1", 4);
    row("wav-by-size", "wav", "30", "1M", 3, 1 << 20);
}

void VornfhRecorderTest::segmentsLoseNothing()
{
    QFETCH(QByteArray, type);
    QFETCH(QByteArray, duration);
    QFETCH(QByteArray, segment);
    QFETCH(int, fewest);
    QFETCH(qint64, largest);
    const ToolRun tool;
    QCOMPARE(tool.runOnStorages({"record", "usb", "--type", type, "--duration", duration}).exitCode, 0);
    const QString whole = tool.path() + "/usb/DCIM/100ABC/DCF_0001." + QString::fromUtf8(type);

    const Outcome outcome =
        tool.runOnStorages({"record", "sd", "--type", type, "--duration", duration, "--segment", segment});
    const int count = outcome.out.count('\n');
    QCOMPARE(outcome, tool.success(paths(1, count, type)));
    QVERIFY2(count >= fewest, QByteArray::number(count).constData());
    QByteArrayList pictures;
    QByteArray sound;
    for (const QByteArray &path : linesIn(outcome.out)) {
        const QString file = QString::fromUtf8(path);
        QCOMPARE(whyNotPlayable(file), QByteArray());
        QVERIFY(QFileInfo(file).size() <= largest);
        QCOMPARE(QFile::exists(file.chopped(3) + "thumb"), type != "wav");
        pictures += type == "wav" ? QByteArrayList() : packetsOf(file, "v");
        sound += soundOf(file);
    }
    if (type != "wav")
        QCOMPARE(pictures, packetsOf(whole, "v"));
    QVERIFY(sound == soundOf(whole));
    QCOMPARE(tree(tool.sd()).size(), 1 + count * (type == "wav" ? 1 : 2)); // nothing else is left
}

void VornfhRecorderTest::segmentsKeepTheFrameRate_data()
{
    QTest::addColumn<QByteArray>("type");
    QTest::addColumn<QByteArray>("rate");
    for (const QByteArray type : {"avi", "mkv"}) {
        for (const QByteArray rate : {"25/1", "30000/1001", "25/2", "1/1", "120/1"})
            row(type + "-" + rate, type, rate);
    }
}

void VornfhRecorderTest::segmentsKeepTheFrameRate()
{
    QFETCH(QByteArray, type);
    QFETCH(QByteArray, rate);
    const ToolRun tool;
    QCOMPARE(tool.runOnStorages({"record", "sd", "--type", type, "--segment", "3", "--duration", "6",
                                 "--input-format", "lavfi", "--input", "testsrc2=size=64x48:rate=" + rate}),
             tool.success(paths(1, 2, type)));
    for (const QByteArray &path : linesIn(tool.expand(paths(1, 2, type)))) {
        const QString file = QString::fromUtf8(path);
        QCOMPARE(probe(file, "stream=avg_frame_rate"), rate);
        QCOMPARE(whyNotPlayable(file), QByteArray());
        QVERIFY(!packetsOf(file, "v").contains(QByteArray())); // no frame is left out
    }
}

void VornfhRecorderTest::segmentsTakeFreeNumbers_data()
{
    QTest::addColumn<Tree>("entries");
    QTest::addColumn<QByteArrayList>("recorded");
    row("number-of-a-thumbnail-alone", Tree{"100ABC/DCF_0001.jpg = x", "100ABC/DCF_0003.thumb = x"},
        QByteArrayList{"100ABC/DCF_0002.avi", "100ABC/DCF_0004.avi", "100ABC/DCF_0005.avi"});
    row("next-folder", Tree{"100ABC/DCF_9997.jpg = x"},
        QByteArrayList{"100ABC/DCF_9998.avi", "100ABC/DCF_9999.avi", "101ABC/DCF_0001.avi"});
}

void VornfhRecorderTest::segmentsTakeFreeNumbers()
{
    QFETCH(Tree, entries);
    QFETCH(QByteArrayList, recorded);
    const ToolRun tool;
    tool.make(onCard(entries));
    QCOMPARE(tool.runOnStorages(QByteArrayList{"record", "sd", "--segment", "1", "--duration", "3"} + SMALL),
             tool.success(below("@/sd/DCIM/", recorded).join("\n") + "\n"));
    for (const QByteArray &entry : entries)
        QVERIFY2(treeWithContents(tool.sd()).contains(entry), entry.constData());
}

void VornfhRecorderTest::aSegmentIsFinishedWhileTheNextIsRecorded()
{
    const ToolRun tool;
    tool.make({"sd/DCIM/"});
    QProcess process;
    tool.startOnStorages(process, QByteArrayList{"record", "sd", "--segment", "1"} + CAMERA);
    const QByteArrayList lines = waitForLines(process, 2);
    QCOMPARE(process.state(), QProcess::Running);
    QCOMPARE(lines.join('\n') + '\n', tool.expand(paths(1, 2, "avi")));
    for (const QByteArray &line : lines) {
        QCOMPARE(whyNotPlayable(QString::fromUtf8(line)), QByteArray());
        QVERIFY(QFile::exists(QString::fromUtf8(line).chopped(3) + "thumb"));
    }
    QVERIFY(QFile::exists(tool.sd() + "/100ABC/DCF_0003.avi"));
    ::kill(static_cast<pid_t>(process.processId()), SIGTERM);
    QCOMPARE(ToolRun::finish(process).exitCode, 0);
}

void VornfhRecorderTest::twoRecordersShareNoNumber()
{
    const ToolRun tool;
    QProcess videos;
    QProcess audio;
    tool.startOnStorages(videos, QByteArrayList{"record", "sd", "--segment", "1", "--duration", "8"} + SMALL);
    tool.startOnStorages(audio, {"record", "sd", "--type", "wav", "--segment", "1", "--duration", "8"});
    const Outcome first = ToolRun::finish(videos);
    const Outcome second = ToolRun::finish(audio);
    QCOMPARE(first.exitCode, 0);
    QCOMPARE(second.exitCode, 0);
    QSet<QByteArray> numbers;
    for (const QByteArray &path : linesIn(first.out + second.out))
        numbers.insert(path.mid(path.lastIndexOf("DCF_") + 4, 4));
    QCOMPARE(numbers.size(), 16);
}

void VornfhRecorderTest::lowersTheLimitToTheLargestFile_data()
{
    QTest::addColumn<QByteArray>("type");
    QTest::addColumn<bool>("isFat");
    QTest::addColumn<QByteArray>("segment");
    QTest::addColumn<QByteArray>("message"); // empty if there is none
    const auto tooLarge = [](const QByteArray &stated) {
        return "--segment: a file of this type on this file system cannot be as large as " + stated
               + "; segments end at 3.9 GiB";
    };
    row("video-on-fat", QByteArray("avi"), true, QByteArray("8G"), tooLarge("8.0 GiB"));
    row("audio-format", QByteArray("wav"), false, QByteArray("4G"), tooLarge("4.0 GiB"));
    row("video-elsewhere", QByteArray("avi"), false, QByteArray("8G"), QByteArray());
    row("less-than-the-largest-file", QByteArray("mkv"), true, QByteArray("3G"), QByteArray());
    row("time", QByteArray("avi"), true, QByteArray("24h"),
        QByteArray("a file of this type on this file system can be at most 3.9 GiB; a segment ends there"));
    row("time-elsewhere", QByteArray("avi"), false, QByteArray("24h"), QByteArray());
    row("time-of-audio-elsewhere", QByteArray("wav"), false, QByteArray("24h"), QByteArray());
}

void VornfhRecorderTest::lowersTheLimitToTheLargestFile()
{
    QFETCH(QByteArray, type);
    QFETCH(bool, isFat);
    QFETCH(QByteArray, segment);
    QFETCH(QByteArray, message);
    ToolRun tool;
    if (isFat && !tool.pretendFat())
        QSKIP("nothing can be preloaded into the tool");
    tool.make({"sd/DCIM/"});
    QCOMPARE(tool.runOnStorages({"record", "sd", "--type", type, "--duration", "0.4", "--segment", segment}),
             tool.success(paths(1, 1, type), message.isEmpty() ? QByteArray() : errorLines({message})));
}

void VornfhRecorderTest::reportsTheLargestSizeOfAnEndlessRecording_data()
{
    QTest::addColumn<QByteArray>("type");
    QTest::addColumn<bool>("isFat");
    QTest::addColumn<bool>("isReported");
    row("video-on-fat", QByteArray("mkv"), true, true);
    row("audio-elsewhere", QByteArray("wav"), false, true);
    row("video-elsewhere", QByteArray("mkv"), false, false);
    row("photo-on-fat", QByteArray("jpg"), true, false);
}

void VornfhRecorderTest::reportsTheLargestSizeOfAnEndlessRecording()
{
    QFETCH(QByteArray, type);
    QFETCH(bool, isFat);
    QFETCH(bool, isReported);
    ToolRun tool;
    if (isFat && !tool.pretendFat())
        QSKIP("nothing can be preloaded into the tool");
    tool.make({"sd/DCIM/"});
    writeFile(tool.path() + "/input", wholeFile(type));
    const Outcome outcome =
        tool.runOnStorages({"record", "sd", "--type", type, "--duration", "0", "--input", "input"});
    QCOMPARE(outcome.out, tool.expand(paths(1, 1, type)));
    QCOMPARE(
        outcome.err.contains(
            "a file of this type on this file system can be at most 3.9 GiB; the recording ends there\n"),
        isReported);
}

void VornfhRecorderTest::aLoopDeletesTheOldestObjects()
{
    if (!hasOwnMounts())
        QSKIP("mounting needs root");
    const ToolRun tool;
    tool.make({"sd/"});
    const TmpfsMount card(tool.path() + "/sd", "size=8m");
    QVERIFY(card.isMounted());
    for (const QByteArray name : {"DCF_0001.avi", "DCF_0002.avi", "DCF_0003.avi"})
        fill(tool, "DCIM/100ABC/" + name, 1 << 20);
    setMode(tool, "sd/DCIM/100ABC/DCF_0002.avi", 0444);
    const Outcome outcome = tool.runOnStorages(
        {"record", "sd", "--segment", "1M", "--duration", "20", "--loop", "--keep-free", "30%"});
    const int count = outcome.out.count('\n');
    QVERIFY2(count >= 8, outcome.out.constData());
    QCOMPARE(outcome, tool.success(paths(4, 3 + count, "avi")));
    QVERIFY(QFile::exists(tool.sd() + "/100ABC/DCF_0002.avi"));
    QVERIFY(!QFile::exists(tool.sd() + "/100ABC/DCF_0003.avi"));
    bool wasKept = false; // the oldest ones are gone, and no others
    for (const QByteArray &path : linesIn(outcome.out)) {
        const bool isKept = QFile::exists(QString::fromUtf8(path));
        QVERIFY2(isKept || !wasKept, path.constData());
        if (isKept)
            QCOMPARE(whyNotPlayable(QString::fromUtf8(path)), QByteArray());
        wasKept = isKept;
    }
    QVERIFY(wasKept);
    QVERIFY(!QFile::exists(QString::fromUtf8(linesIn(outcome.out).first())));
}

void VornfhRecorderTest::aLoopGoesOnAfterAnotherProgramFilledTheStorage_data()
{
    QTest::addColumn<QByteArray>("type");
    QTest::addColumn<QByteArray>("duration");
    row("avi", QByteArray("avi"), QByteArray("8"));
    row("mkv", QByteArray("mkv"), QByteArray("20"));
}

void VornfhRecorderTest::aLoopGoesOnAfterAnotherProgramFilledTheStorage()
{
    QFETCH(QByteArray, type);
    QFETCH(QByteArray, duration);
    if (!hasOwnMounts())
        QSKIP("mounting needs root");
    StandIns programs;
    programs.add("ffmpeg", onlyToRecord(WRITES_SEGMENT)
                               + "case $target in *0002.*) ;; *) exec \"$real\" \"$@\";; esac\n"
                                 "head -c 400000 | \"$real\" \"$@\" 2>/dev/null\n"
                                 "cat /dev/zero >> sd/DCIM/100ABC/DCF_0001.jpg 2>/dev/null\n"
                                 "echo 'No space left on device' >&2; exit 1");
    const ToolRun tool;
    tool.make({"sd/"});
    const TmpfsMount card(tool.path() + "/sd", "size=8m");
    QVERIFY(card.isMounted());
    tool.make(onCard({"100ABC/DCF_0001.jpg = x"}));
    const Outcome outcome = tool.runOnStorages(
        {"record", "sd", "--type", type, "--segment", "1M", "--duration", duration, "--loop"});
    const int count = outcome.out.count('\n');
    QVERIFY2(count >= 2, outcome.out.constData());
    QCOMPARE(outcome, tool.failure({endedEarly("DCF_0002." + type, "No space left on device")},
                                   paths(2, 1 + count, type)));
    QVERIFY(!QFile::exists(tool.sd() + "/100ABC/DCF_0001.jpg"));
    for (const QByteArray &path : linesIn(outcome.out)) {
        QCOMPARE(whyNotPlayable(QString::fromUtf8(path)), QByteArray());
        const QByteArray flags =
            outputOf("ffprobe", {"-v", "error", "-of", "csv=p=0", "-select_streams", "v", "-show_entries",
                                 "packet=flags", QString::fromUtf8(path)});
        QVERIFY2(flags.startsWith('K'), path.constData());
    }
}

void VornfhRecorderTest::aLoopOfPhotosDeletesTheOldestObjects()
{
    if (!hasOwnMounts())
        QSKIP("mounting needs root");
    const ToolRun tool;
    tool.make({"sd/"});
    const TmpfsMount card(tool.path() + "/sd", "size=3m");
    QVERIFY(card.isMounted());
    for (const QByteArray name : {"DCF_0001.jpg", "DCF_0002.jpg", "DCF_0003.jpg"})
        fill(tool, "DCIM/100ABC/" + name, 700 << 10);
    QCOMPARE(tool.runOnStorages(
                 {"record", "sd", "--type", "jpg", "--count", "2", "--loop", "--keep-free", "1500K"}),
             tool.success(paths(4, 5, "jpg")));
    QVERIFY(!QFile::exists(tool.sd() + "/100ABC/DCF_0001.jpg"));
    QVERIFY(QFile::exists(tool.sd() + "/100ABC/DCF_0003.jpg"));
}

void VornfhRecorderTest::aLoopWithoutRoomSaysSoOnce()
{
    if (!hasOwnMounts())
        QSKIP("mounting needs root");
    const ToolRun tool;
    tool.make({"sd/"});
    const TmpfsMount card(tool.path() + "/sd", "size=16m");
    QVERIFY(card.isMounted());
    tool.make({"sd/DCIM/"});
    fill(tool, "filler", 4 << 20);
    QCOMPARE(tool.runOnStorages({"record", "sd", "--type", "wav", "--segment", "1", "--duration", "4",
                                 "--loop", "--keep-free", "14M"}),
             tool.success(
                 paths(1, 4, "wav"),
                 errorLines({"@/sd/DCIM: 12.0 MiB free instead of 14.0 MiB; nothing more can be deleted"})));
    // Each is the newest when the next begins, and is deleted before the one after that.
    QCOMPARE(tree(tool.sd()), (Tree{"100ABC/", "100ABC/DCF_0003.wav", "100ABC/DCF_0004.wav"}));
}

void VornfhRecorderTest::aLoopEndsWhenNothingMayBeDeleted()
{
    if (!hasOwnMounts())
        QSKIP("mounting needs root");
    const ToolRun tool;
    tool.make({"sd/"});
    const TmpfsMount card(tool.path() + "/sd", "size=8m");
    QVERIFY(card.isMounted());
    tool.make({"sd/DCIM/"});
    fill(tool, "filler", 7 << 20);
    const Outcome outcome =
        tool.runOnStorages({"record", "sd", "--segment", "1h", "--duration", "3600", "--loop"});
    QCOMPARE(outcome.exitCode, 1);
    QCOMPARE(outcome.out, tool.expand(paths(1, 1, "avi")));
    QCOMPARE(outcome.err,
             tool.expand(errorLines(
                 {"@/sd/DCIM: " + outcome.err.mid(outcome.err.indexOf("DCIM: ") + 6).split(';').first()
                      + "; nothing more can be deleted",
                  endedEarly("DCF_0001.avi", "the storage device is full")})));
    QCOMPARE(whyNotPlayable(tool.sd() + "/100ABC/DCF_0001.avi"), QByteArray());
}

void VornfhRecorderTest::passesOnTheInputParameters_data()
{
    QTest::addColumn<QByteArrayList>("options");
    QTest::addColumn<QByteArrayList>("arguments");
    row("none", QByteArrayList{"--input", "camera.avi"}, QByteArrayList{"-i", "camera.avi"});
    row("camera", QByteArrayList{"--input", "/dev/video7"},
        QByteArrayList{"-f", "v4l2", "-i", "/dev/video7"});
    row("size-and-rate",
        QByteArrayList{"--rate", "30000/1001", "--size", "1920x1080", "--input", "/dev/video7"},
        QByteArrayList{"-f", "v4l2", "-video_size", "1920x1080", "-framerate", "30000/1001", "-i",
                       "/dev/video7"});
    row("format",
        QByteArrayList{"--input", "/dev/video7", "--input-format", "video4linux2", "--rate", "12.5"},
        QByteArrayList{"-f", "video4linux2", "-framerate", "12.5", "-i", "/dev/video7"});
}

void VornfhRecorderTest::passesOnTheInputParameters()
{
    QFETCH(QByteArrayList, options);
    QFETCH(QByteArrayList, arguments);
    StandIns programs;
    programs.add("ffmpeg", WRITE_DATA);
    const ToolRun tool;
    QCOMPARE(tool.runOnStorages(QByteArrayList{"record", "sd", "--type", "wav"} + options),
             tool.success(paths(1, 1, "wav")));
    const QByteArrayList call = programs.calls("ffmpeg").first();
    QVERIFY2(("\n" + call.join('\n')).contains("\n" + arguments.join('\n') + "\n-map\n"),
             call.join(' ').constData());
    QCOMPARE(call.count("-f"), arguments.count("-f") + 1); // and that of the output
}

void VornfhRecorderTest::showsProgressOnATerminal_data()
{
    QTest::addColumn<QByteArrayList>("options");
    QTest::addColumn<bool>("hasEnd");
    row("one-recording", QByteArrayList(), true);
    row("segments", QByteArrayList{"--segment", "1"}, true);
    row("loop", QByteArrayList{"--segment", "1", "--loop"}, false);
}

void VornfhRecorderTest::showsProgressOnATerminal()
{
    QFETCH(QByteArrayList, options);
    QFETCH(bool, hasEnd);
    const ToolRun tool;
    tool.make({"sd/DCIM/"});
    const Outcome outcome =
        tool.runOnTerminal(QByteArrayList{"record", "sd", "--duration", "3"} + CAMERA + options);
    QCOMPARE(outcome.exitCode, 0);
    const QRegularExpression line(QString(R"(\rrecording 0:0[123], [0-9.]+ KiB, [0-9.]+ KiB/s%1\x1b)")
                                      .arg(hasEnd ? R"(, [0-9:]+ left on the storage device)" : ""));
    QVERIFY2(QString::fromUtf8(outcome.out).contains(line), outcome.out.constData());
    // Each path is on its own line.
    QVERIFY2(outcome.out.contains("\r\x1b[K" + tool.expand(FOLDER) + "DCF_0001.avi\r\n"),
             outcome.out.constData());
}

void VornfhRecorderTest::refusesWrongCommandLines_data()
{
    QTest::addColumn<QByteArrayList>("options");
    QTest::addColumn<QByteArray>("message");
    const auto value = [](const char *name, const QByteArray &option, const QByteArray &text,
                          const QByteArray &wanted, const QByteArrayList &others = {}) {
        QTest::newRow(name) << QByteArrayList{option + "=" + text} + others
                            << option + ": '" + text + "' is not " + wanted;
    };
    const QByteArray segment = "a time of at most 24h, such as 60, 90s or 10m, or a size of at least 1M";
    value("segment-zero", "--segment", "0", segment);
    value("segment-negative", "--segment", "-60", segment);
    value("segment-too-long", "--segment", "86401", segment);
    value("segment-too-long-with-a-unit", "--segment", "2d", segment);
    value("segment-too-small", "--segment", "1023K", segment);
    value("segment-unknown-unit", "--segment", "60x", segment);
    value("segment-without-a-number", "--segment", "s", segment);
    const QByteArrayList input = {"--input", "x"};
    value("size-without-a-height", "--size", "640", "a size such as 1920x1080", input);
    value("size-zero", "--size", "0x480", "a size such as 1920x1080", input);
    value("size-negative", "--size", "-640x480", "a size such as 1920x1080", input);
    value("size-with-more", "--size", "640x480x2", "a size such as 1920x1080", input);
    const QByteArray rate = "a positive number or fraction, such as 25 or 30000/1001";
    value("rate-zero", "--rate", "0", rate, input);
    value("rate-zero-fraction", "--rate", "0/5", rate, input);
    value("rate-negative", "--rate", "-25", rate, input);
    value("rate-divided-by-zero", "--rate", "25/0", rate, input);
    value("rate-not-a-number", "--rate", "pal", rate, input);
    value("format-that-is-an-option", "--input-format", "-i", "the name of an ffmpeg format, such as v4l2",
          input);
    value("format-empty", "--input-format", "a b", "the name of an ffmpeg format, such as v4l2", input);
    value("timeout-zero", "--timeout", "0", "a number from 0.1 to 86400");
    value("keep-free-zero", "--keep-free", "0", "a size such as 2G or a percentage from 1% to 99%",
          {"--loop", "--segment", "60"});
    const auto row = [](const char *name, const QByteArrayList &options, const QByteArray &message) {
        QTest::newRow(name) << options << message;
    };
    row("duration-too-short", {"--duration", "0.05"},
        "--duration: '0.05' is not 0 or a number from 0.1 to 86400");
    row("segments-of-a-photo", {"--segment", "60", "--type", "jpg"},
        "--segment requires a video or audio type: avi, mkv or wav");
    row("segments-and-count", {"--segment", "60", "--count", "2"}, "--segment excludes --count");
    row("endless-recordings", {"--duration", "0", "--count", "2"},
        "--count requires a --duration of more than 0");
    row("loop-of-one-recording", {"--loop"}, "--loop requires --segment or a --count of more than 1");
    row("endless-recording-in-a-loop", {"--loop", "--duration", "0"},
        "--loop requires --segment or a --count of more than 1");
    row("keep-free-without-loop", {"--keep-free", "10%", "--segment", "60"}, "--keep-free requires --loop");
    row("size-without-input", {"--size", "640x480"}, "--size requires --input");
    row("rate-without-input", {"--rate", "25"}, "--rate requires --input");
    row("format-without-input", {"--input-format", "v4l2"}, "--input-format requires --input");
    row("segment-without-a-value", {"--segment"}, "--segment needs a value: SECONDS|SIZE");
    row("keep-free-without-a-value", {"--segment", "60", "--loop", "--keep-free"},
        "--keep-free needs a value: SIZE|PERCENT");
    row("duration-without-a-value", {"--duration"}, "--duration needs a value: SECONDS");
    row("timeout-without-a-value", {"--timeout"}, "--timeout needs a value: SECONDS");
    row("input-without-a-value", {"--input"}, "--input needs a value: INPUT");
    row("segment-not-utf-8", {"--segment", "\xff"}, messages::notUtf8("--segment", "\\xff"));
}

void VornfhRecorderTest::refusesWrongCommandLines()
{
    QFETCH(QByteArrayList, options);
    QFETCH(QByteArray, message);
    const ToolRun tool;
    QCOMPARE(tool.runOnStorages(QByteArrayList{"record", "sd"} + options), tool.usageError({message}));
    QCOMPARE(tree(tool.path()), Tree());
}

void VornfhRecorderTest::refusesStorages_data()
{
    QTest::addColumn<QByteArrayList>("arguments");
    QTest::addColumn<int>("exitCode");
    QTest::addColumn<QByteArray>("message");
    row("unknown", QByteArrayList{"record", "cf"}, 2, messages::unknownStorage("cf"));
    row("not-configured", QByteArrayList{"--mmc", "@/mmc/DCIM", "record", "sd"}, 2,
        messages::notConfigured("sd"));
    row("root-folder", QByteArrayList{"--sd", "/", "record", "sd"}, 2,
        QByteArray("/: the root folder cannot be used as a location"));
    row("absent-device", QByteArrayList{"--sd", "@/sd/DCIM", "--sd-block", "nosuchdevice", "record", "sd"}, 1,
        QByteArray("@/sd/DCIM: the block device nosuchdevice of storage sd is not present"));
    row("file", QByteArrayList{"--sd", "@/file", "record", "sd"}, 1, QByteArray("@/file: is not a folder"));
}

void VornfhRecorderTest::refusesStorages()
{
    QFETCH(QByteArrayList, arguments);
    QFETCH(int, exitCode);
    QFETCH(QByteArray, message);
    const ToolRun tool;
    tool.make({"file"});
    const Tree before = tree(tool.path());
    QCOMPARE(tool.run(arguments + QByteArrayList{"--segment", "60", "--loop"}),
             (Outcome{exitCode, "", tool.expand(errorLines({message}))}));
    QCOMPARE(tree(tool.path()), before);
}

void VornfhRecorderTest::reportsAReadOnlyStorage()
{
    if (!hasOwnMounts())
        QSKIP("mounting needs root");
    const ToolRun tool;
    tool.make({"sd/"});
    const TmpfsMount card(tool.path() + "/sd", "size=1m");
    QVERIFY(card.isMounted());
    tool.make(onCard({"100ABC/DCF_0001.jpg = one"}));
    QVERIFY(card.makeReadOnly());
    QCOMPARE(tool.runOnStorages({"record", "sd", "--segment", "60", "--loop"}),
             tool.failure({messages::readOnly("@/sd/DCIM")}));
}

void VornfhRecorderTest::withoutFfmpegNothingChanges()
{
    const StandIns noPrograms(StandIns::Alone);
    const ToolRun tool;
    tool.make(onCard({"100ABC/DCF_0001.jpg = one"}));
    const Tree before = tree(tool.path());
    QCOMPARE(tool.runOnStorages({"record", "sd", "--segment", "60", "--loop"}),
             tool.failure({"ffmpeg is not on PATH; recording needs it"}));
    QCOMPARE(tree(tool.path()), before);
}

QTEST_GUILESS_MAIN(VornfhRecorderTest)
#include "tst_vornfh_recorder.moc"

// SPDX-License-Identifier: MIT
// How a long "vornfh record" ends: on a signal, with its input, after a failure, on a full card.
#include "media.h"
#include "recordings.h"
#include "standins.h"
#include "toolsupport.h"

#include <QFile>
#include <QStorageInfo>
#include <QTest>

#include <csignal>
#include <optional>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

class VornfhRecordingEndsTest : public QObject
{
    Q_OBJECT

private slots:
    void endsNormallyOnASignal_data();
    void endsNormallyOnASignal();
    void isInterruptedByAHangup();
    void reportsAnInterruptionBeforeTheFirstFrame();
    void aKilledRecorderLeavesWhatCanBeRepaired();
    void keepsWhatWasRecordedBeforeAFailure_data();
    void keepsWhatWasRecordedBeforeAFailure();
    void endsOnASignalAlthoughFfmpegDoesNot();
    void endsIfTheInputEnds_data();
    void endsIfTheInputEnds();
    void aFailureLeavesNothing_data();
    void aFailureLeavesNothing();
    void endsIfTheInputDeliversNothing_data();
    void endsIfTheInputDeliversNothing();
    void aSlowInputIsNotAFailure();
    void endsWhenTheStorageIsFull_data();
    void endsWhenTheStorageIsFull();
};

namespace {

/// The argument that only the ffmpeg that reads the input has if there are segments.
const QByteArray READS_INPUT = "-cluster_size_limit";
qint64 sizeOf(const ToolRun &tool, const QByteArray &name)
{
    return QFileInfo(QString::fromUtf8(tool.expand(FOLDER + name))).size();
}

/// Records with a stand-in that writes its process ID to the file "ffmpeg", and then sends SIGTERM to the
/// tool.
void terminateOnceFfmpegRuns(const ToolRun &tool, Outcome &outcome)
{
    QProcess process;
    tool.startOnStorages(process, {"record", "sd", "--segment", "60"});
    QTRY_VERIFY_WITH_TIMEOUT(tool.content("ffmpeg").endsWith('\n'), 20000);
    QCOMPARE(::kill(static_cast<pid_t>(process.processId()), SIGTERM), 0);
    outcome = ToolRun::finish(process);
}

} // namespace

void VornfhRecordingEndsTest::endsNormallyOnASignal_data()
{
    QTest::addColumn<int>("signal");
    QTest::addColumn<QByteArrayList>("options");
    row("SIGINT", SIGINT, QByteArrayList{"--duration", "0", "--type", "avi"});
    row("SIGTERM", SIGTERM, QByteArrayList{"--duration", "0", "--type", "mkv"});
    row("SIGINT-in-a-segment", SIGINT, QByteArrayList{"--segment", "1h", "--type", "mkv"});
    row("SIGTERM-in-a-segment", SIGTERM,
        QByteArrayList{"--segment", "100M", "--duration", "0", "--type", "avi"});
    row("SIGTERM-in-an-audio-segment", SIGTERM, QByteArrayList{"--segment", "60", "--type", "wav"});
}

void VornfhRecordingEndsTest::endsNormallyOnASignal()
{
    QFETCH(int, signal);
    QFETCH(QByteArrayList, options);
    const ToolRun tool;
    tool.make({"sd/DCIM/"});
    const QByteArray name = "DCF_0001." + options.last();
    QProcess process;
    tool.startOnStorages(process, QByteArrayList{"record", "sd"} + options);
    QTRY_VERIFY_WITH_TIMEOUT(sizeOf(tool, name) > 100000, 60000);
    QCOMPARE(::kill(static_cast<pid_t>(process.processId()), signal), 0);
    QCOMPARE(ToolRun::finish(process), tool.success(FOLDER + name + "\n"));
    QCOMPARE(whyNotPlayable(tool.sd() + "/100ABC/" + QString::fromUtf8(name)), QByteArray());
    QCOMPARE(tree(tool.sd()).size(), options.last() == "wav" ? 2 : 3);
}

void VornfhRecordingEndsTest::isInterruptedByAHangup()
{
    const ToolRun tool;
    tool.make({"sd/DCIM/"});
    QProcess process;
    tool.startOnStorages(process, {"record", "sd", "--segment", "60"});
    QTRY_VERIFY_WITH_TIMEOUT(sizeOf(tool, "DCF_0001.avi") > 100000, 60000);
    QCOMPARE(::kill(static_cast<pid_t>(process.processId()), SIGHUP), 0);
    QCOMPARE(ToolRun::finish(process),
             tool.failure({endedEarly("DCF_0001.avi", "interrupted")}, paths(1, 1, "avi")));
}

void VornfhRecordingEndsTest::reportsAnInterruptionBeforeTheFirstFrame()
{
    StandIns programs;
    programs.add("ffmpeg", "echo $$ > ffmpeg\n" + WAIT_FOR_SIGNAL);
    const ToolRun tool;
    tool.make({"sd/DCIM/"});
    Outcome outcome;
    terminateOnceFfmpegRuns(tool, outcome);
    QCOMPARE(outcome, tool.failure({FOLDER + "DCF_0001.avi: recording failed: interrupted"}));
    QCOMPARE(tree(tool.sd()), Tree{"100ABC/"});
    QVERIFY(!isRunning(processIn(tool, "ffmpeg")));
}

void VornfhRecordingEndsTest::aKilledRecorderLeavesWhatCanBeRepaired()
{
    const ToolRun tool;
    tool.make({"sd/DCIM/"});
    QCOMPARE(tool.runOnStorages({"record", "sd", "--duration", "1"}).exitCode, 0);
    QProcess process;
    // A segment that does not end before the recorder is killed, however slow the machine is.
    tool.startOnStorages(process, {"record", "sd", "--segment", "60"});
    QTRY_VERIFY_WITH_TIMEOUT(sizeOf(tool, "DCF_0002.avi") > 500000, 60000);
    QCOMPARE(::kill(static_cast<pid_t>(process.processId()), SIGKILL), 0);
    QCOMPARE(ToolRun::finish(process).exitCode, 128 + SIGKILL);
    Outcome found; // ffmpeg may have the file open for a moment
    QTRY_COMPARE_WITH_TIMEOUT((found = tool.runOnStorages({"check", "sd"})).exitCode, 3, 60000);
    // An ffmpeg that sees the end of its pipe before it is killed has time to close the file.
    QVERIFY2(found.out.contains("DCF_0002.avi: is incomplete")
                 || found.out.contains("DCF_0002.avi: has no thumbnail"),
             found.out.constData());
    QCOMPARE(tool.runOnStorages({"repair", "sd"}).exitCode, 0);
    QCOMPARE(tool.runOnStorages({"check", "sd"}).exitCode, 0);
    for (const QString name : {"DCF_0001.avi", "DCF_0002.avi"})
        QCOMPARE(whyNotPlayable(tool.sd() + "/100ABC/" + name), QByteArray());
}

void VornfhRecordingEndsTest::keepsWhatWasRecordedBeforeAFailure_data()
{
    QTest::addColumn<QByteArray>("which");  // of the ffmpegs fails
    QTest::addColumn<QByteArray>("script"); // what it does
    QTest::addColumn<QByteArray>("reason");
    row("ffmpeg-is-killed", READS_INPUT,
        QByteArray("\"$real\" \"$@\" & child=$!; sleep 2; kill -9 $child; wait $child; kill -9 $$"),
        QByteArray("ffmpeg was killed by signal 9"));
    row("ffmpeg-fails", READS_INPUT, QByteArray("\"$real\" -t 1 \"$@\"; echo broken >&2; exit 1"),
        QByteArray("broken"));
    row("segment-cannot-be-written", WRITES_SEGMENT,
        QByteArray("head -c 400000 | \"$real\" \"$@\" 2>/dev/null; echo broken >&2; exit 1"),
        QByteArray("broken"));
    row("segment-ends-early-without-a-failure", WRITES_SEGMENT,
        QByteArray("head -c 400000 | \"$real\" \"$@\" 2>/dev/null; exit 0"),
        QByteArray("ffmpeg ended early"));
    row("ffmpeg-does-not-end", READS_INPUT, QByteArray("\"$real\" -t 1 \"$@\"; exec >&-; sleep 60"),
        QByteArray("ffmpeg has closed its output but has not exited"));
}

void VornfhRecordingEndsTest::keepsWhatWasRecordedBeforeAFailure()
{
    QFETCH(QByteArray, which);
    QFETCH(QByteArray, script);
    QFETCH(QByteArray, reason);
    StandIns programs;
    programs.add("ffmpeg", onlyToRecord(which) + script);
    const ToolRun tool;
    tool.make({"sd/DCIM/"});
    QCOMPARE(tool.runOnStorages({"record", "sd", "--segment", "60"}),
             tool.failure({endedEarly("DCF_0001.avi", reason)}, paths(1, 1, "avi")));
    QCOMPARE(whyNotPlayable(tool.sd() + "/100ABC/DCF_0001.avi"), QByteArray());
    QCOMPARE(tree(tool.sd()), (Tree{"100ABC/", "100ABC/DCF_0001.avi", "100ABC/DCF_0001.thumb"}));
}

/// ffmpeg reads no more input, and has not ended.
void VornfhRecordingEndsTest::endsOnASignalAlthoughFfmpegDoesNot()
{
    StandIns programs;
    programs.add("ffmpeg",
                 onlyToRecord(READS_INPUT) + "\"$real\" -t 1 \"$@\"; exec >&-; echo $$ > ffmpeg; sleep 60");
    const ToolRun tool;
    tool.make({"sd/DCIM/"});
    Outcome outcome;
    terminateOnceFfmpegRuns(tool, outcome);
    QCOMPARE(outcome, tool.success(paths(1, 1, "avi")));
    QCOMPARE(whyNotPlayable(tool.sd() + "/100ABC/DCF_0001.avi"), QByteArray());
    QVERIFY(!isRunning(processIn(tool, "ffmpeg")));
}

void VornfhRecordingEndsTest::endsIfTheInputEnds_data()
{
    QTest::addColumn<QByteArrayList>("options");
    QTest::addColumn<bool>("fails"); // the input
    for (const bool fails : {false, true}) {
        const QByteArray name = fails ? "-of-a-camera-that-is-disconnected" : "-of-a-file";
        row("recording" + name, QByteArrayList{"--duration", "0"}, fails);
        row("segments" + name, QByteArrayList{"--segment", "60", "--type", "mkv"}, fails);
    }
    row("recording-of-a-camera-that-is-disconnected-before-the-duration-ends",
        QByteArrayList{"--duration", "3600"}, true);
    row("segments-of-a-camera-that-is-disconnected-before-the-duration-ends",
        QByteArrayList{"--segment", "60", "--duration", "3600"}, true);
}

void VornfhRecordingEndsTest::endsIfTheInputEnds()
{
    QFETCH(QByteArrayList, options);
    QFETCH(bool, fails);
    StandIns programs;
    if (fails) // as ffmpeg does if it cannot read the input
        programs.add("ffmpeg", onlyToRecord("camera.avi")
                                   + "\"$real\" \"$@\"; echo '[v @ 0x1] ioctl(VIDIOC_DQBUF): No such device' "
                                     ">&2; echo 'camera.avi: No such device' >&2");
    const ToolRun tool;
    tool.make({"sd/DCIM/"});
    makeVideo(tool.path() + "/camera.avi", QSize(64, 48));
    const QByteArray name = options.contains("mkv") ? "DCF_0001.mkv" : "DCF_0001.avi";
    const QByteArray reason =
        fails ? "the input has ended: camera.avi: No such device" : "the input has ended";
    QCOMPARE(tool.runOnStorages(QByteArrayList{"record", "sd", "--input", "camera.avi"} + options),
             tool.failure({endedEarly(name, reason)}, FOLDER + name + "\n"));
    QCOMPARE(whyNotPlayable(tool.sd() + "/100ABC/" + QString::fromUtf8(name)), QByteArray());
    QVERIFY(QFile::exists(tool.sd() + "/100ABC/DCF_0001.thumb"));
}

void VornfhRecordingEndsTest::aFailureLeavesNothing_data()
{
    QTest::addColumn<QByteArray>("which");
    QTest::addColumn<QByteArray>("script"); // empty for the real ffmpeg
    QTest::addColumn<QByteArray>("reason");
    row("missing-input", READS_INPUT, QByteArray(), QByteArray("@/none.avi: No such file or directory"));
    row("writes-nothing", READS_INPUT, QByteArray("exit 0"), QByteArray("ffmpeg wrote nothing"));
    row("does-not-write-a-stream", READS_INPUT, QByteArray("seq 1000"), QByteArray("ffmpeg wrote nothing"));
    row("cannot-write-the-segment", WRITES_SEGMENT, QByteArray("echo broken >&2; exit 1"),
        QByteArray("broken"));
}

void VornfhRecordingEndsTest::aFailureLeavesNothing()
{
    QFETCH(QByteArray, which);
    QFETCH(QByteArray, script);
    QFETCH(QByteArray, reason);
    StandIns programs;
    if (!script.isEmpty())
        programs.add("ffmpeg", onlyToRecord(which) + script);
    const ToolRun tool;
    tool.make(onCard({"100ABC/DCF_0001.jpg = one"}));
    const Tree before = treeWithContents(tool.path());
    const QByteArrayList input = script.isEmpty() ? QByteArrayList{"--input", "@/none.avi"} : SMALL;
    QCOMPARE(tool.runOnStorages(QByteArrayList{"record", "sd", "--segment", "1"} + input),
             tool.failure({FOLDER + "DCF_0002.avi: recording failed: " + reason}));
    QCOMPARE(treeWithContents(tool.path()), before);
}

void VornfhRecordingEndsTest::endsIfTheInputDeliversNothing_data()
{
    QTest::addColumn<QByteArrayList>("options");
    QTest::addColumn<QByteArray>("which");  // of the ffmpegs stops; empty for a FIFO that delivers nothing
    QTest::addColumn<QByteArray>("script"); // what it does before
    const QByteArray records = "\"$real\" \"$@\"\n";
    const QByteArray emptyCluster = "printf '\\037\\103\\266\\165\\200'\n"; // of Matroska
    row("after-some-frames", QByteArrayList{"--duration", "1"}, QByteArray("-fs"), records);
    row("after-some-frames-in-a-segment", QByteArrayList{"--duration", "1", "--segment", "60"}, READS_INPUT,
        records);
    row("before-the-first-frame-of-a-segment", QByteArrayList{"--segment", "60"}, READS_INPUT, emptyCluster);
    row("never-delivered-anything", QByteArrayList{"--duration", "0"}, QByteArray(), QByteArray());
    row("never-delivered-anything-for-segments", QByteArrayList{"--segment", "1"}, QByteArray(),
        QByteArray());
}

void VornfhRecordingEndsTest::endsIfTheInputDeliversNothing()
{
    QFETCH(QByteArrayList, options);
    QFETCH(QByteArray, which);
    QFETCH(QByteArray, script);
    StandIns programs;
    if (!which.isEmpty())
        programs.add("ffmpeg", onlyToRecord(which) + script + WAIT_FOR_SIGNAL);
    const ToolRun tool;
    tool.make({"sd/DCIM/"});
    const QByteArray fifo = tool.expand("@/camera");
    QCOMPARE(::mkfifo(fifo.constData(), 0600), 0);
    const int writer = ::open(fifo.constData(), O_RDWR | O_CLOEXEC);
    const QByteArrayList input =
        which.isEmpty() ? QByteArrayList{"--input", "@/camera", "--input-format", "mjpeg"} : SMALL;
    const Outcome outcome =
        tool.runOnStorages(QByteArrayList{"record", "sd", "--timeout", "0.7"} + options + input);
    ::close(writer);
    const QByteArray reason = "the input has delivered no data for 0.7 s";
    if (!script.contains("real")) {
        QCOMPARE(outcome, tool.failure({FOLDER + "DCF_0001.avi: recording failed: " + reason}));
        QCOMPARE(tree(tool.sd()), Tree{"100ABC/"});
    } else {
        QCOMPARE(outcome, tool.failure({endedEarly("DCF_0001.avi", reason)}, paths(1, 1, "avi")));
        QCOMPARE(whyNotPlayable(tool.sd() + "/100ABC/DCF_0001.avi"), QByteArray());
    }
}

/// The timeout restarts with each frame. (ffmpeg analyses this input for more than 5 s before it records.)
void VornfhRecordingEndsTest::aSlowInputIsNotAFailure()
{
    const ToolRun tool;
    const QByteArrayList camera = {
        "--timeout",      "9",     "--duration", "12",
        "--input-format", "lavfi", "--input",    "testsrc2=size=64x48:rate=2,realtime"};
    QProcess whole;
    QProcess segments;
    tool.startOnStorages(whole, QByteArrayList{"record", "sd"} + camera);
    tool.startOnStorages(segments, QByteArrayList{"record", "usb", "--segment", "60"} + camera);
    QCOMPARE(ToolRun::finish(whole), tool.success("@/sd/DCIM/100ABC/DCF_0001.avi\n"));
    QCOMPARE(ToolRun::finish(segments), tool.success("@/usb/DCIM/100ABC/DCF_0001.avi\n"));
}

void VornfhRecordingEndsTest::endsWhenTheStorageIsFull_data()
{
    QTest::addColumn<bool>("isExt4");
    row("tmpfs", false);
    row("ext4", true);
}

/// ext4 reserves 5 % of the device for root, and 2 % for its own data, which not even root can use.
void VornfhRecordingEndsTest::endsWhenTheStorageIsFull()
{
    if (!hasOwnMounts())
        QSKIP("mounting needs root");
    QFETCH(bool, isExt4);
    const ToolRun tool;
    tool.make({"sd/"});
    std::optional<TmpfsMount> memory;
    std::optional<LoopCard> card;
    if (isExt4) {
        card.emplace(tool, QStringList{"mkfs.ext4", "-q", "-F"}, 64);
        QVERIFY(!card->mount(tool.path() + "/sd").isEmpty());
        fill(tool, "filler", static_cast<int>(QStorageInfo(tool.path() + "/sd").bytesFree()) - (6 << 20));
    } else {
        memory.emplace(tool.path() + "/sd", "size=5m");
        QVERIFY(memory->isMounted());
    }
    tool.make({"sd/DCIM/"});
    const Outcome outcome = tool.runOnStorages({"record", "sd", "--segment", "1M", "--duration", "3600"});
    const int count = outcome.out.count('\n');
    QVERIFY2(count >= 4, outcome.out.constData());
    const QByteArray last = linesIn(paths(1, count, "avi")).last();
    QCOMPARE(outcome, tool.failure({last + ": recording ended early: the storage device is full"},
                                   paths(1, count, "avi")));
    for (const QByteArray &path : linesIn(outcome.out))
        QCOMPARE(whyNotPlayable(QString::fromUtf8(path)), QByteArray());
    QCOMPARE(tree(tool.sd()).size(), 1 + 2 * count);
}

QTEST_GUILESS_MAIN(VornfhRecordingEndsTest)
#include "tst_vornfh_recordingends.moc"

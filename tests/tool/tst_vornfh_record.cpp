// SPDX-License-Identifier: MIT
#include "media.h"
#include "recordings.h"
#include "standins.h"
#include "toolsupport.h"

#include <QRegularExpression>
#include <QSet>
#include <QTest>

#include <algorithm>
#include <csignal>

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

class VornfhRecordTest : public QObject
{
    Q_OBJECT

private slots:
    void recordsEveryType_data();
    void recordsEveryType();
    void consecutivePhotosDiffer();
    void recordsFromAFile();
    void nextPrintsAPathAndCreatesItsFolder();
    void twoProcessesShareNoNumber();
    void waitsWhileAnotherProcessAllocates();
    void continuesInTheNextFolder();
    void neverOverwritesATakenName_data();
    void neverOverwritesATakenName();
    void skipsATakenNumber_data();
    void skipsATakenNumber();
    void keepsAThumbnailCreatedInTheMeantime();
    void aFailureLeavesNothing_data();
    void aFailureLeavesNothing();
    void recordingsBeforeAFailureStay();
    void keepsAnUnreadableRecordingAsItIs();
    void withoutFfmpegNothingChanges();
    void keepsARecordingThatEndsEarly_data();
    void keepsARecordingThatEndsEarly();
    void keepsARecordingThatFillsTheStorage_data();
    void keepsARecordingThatFillsTheStorage();
    void keepsARecordingOnAStorageThatFillsUp_data();
    void keepsARecordingOnAStorageThatFillsUp();
    void removesAnEmptyRecordingOnAFullStorage();
    void keepsARecordingWithoutRoomForTheThumbnail();
    void needsSpaceToRecord();
    void removesAnInterruptedRecordingWithoutContent_data();
    void removesAnInterruptedRecordingWithoutContent();
    void stopsAfterTheCurrentRecording();
    void killsAnFfmpegThatDoesNotStop();
    void aSecondSignalEndsTheToolAtOnce_data();
    void aSecondSignalEndsTheToolAtOnce();
    void aKilledToolEndsFfmpeg();
    void aToolKilledWhileItStartsFfmpegLeavesNoProcess();
    void removesWhatAnInterruptedCommandLeft_data();
    void removesWhatAnInterruptedCommandLeft();
    void removesWhatAProcessWithTheSameNumberLeft();
    void refusesWrongValues_data();
    void refusesWrongValues();
};

namespace {

/// Whether process @p number handles @p signal instead of being ended by it.
bool isHandling(qint64 number, int signal)
{
    QFile status(QString("/proc/%1/status").arg(number));
    if (!status.open(QIODevice::ReadOnly))
        return false;
    for (const QByteArray &line : status.readAll().split('\n')) {
        if (line.startsWith("SigCgt:"))
            return (line.mid(7).trimmed().toULongLong(nullptr, 16) >> (signal - 1) & 1) != 0;
    }
    return false;
}

} // namespace

void VornfhRecordTest::recordsEveryType_data()
{
    QTest::addColumn<QByteArray>("type");
    QTest::addColumn<QByteArray>("streams"); // as ffprobe prints them
    QTest::addColumn<bool>("hasThumbnail");
    const auto row = [](const QByteArray &type, const QByteArray &streams, bool hasThumbnail = true) {
        QTest::newRow(type) << type << streams << hasThumbnail;
    };
    row("avi", "mjpeg,640,480 pcm_s16le avi");
    row("mkv", "mpeg4,640,480 aac \"matroska,webm\"");
    row("jpg", "mjpeg,640,480 image2");
    row("png", "png,640,480 png_pipe");
    row("wav", "pcm_s16le wav", false);
}

void VornfhRecordTest::recordsEveryType()
{
    QFETCH(QByteArray, type);
    QFETCH(QByteArray, streams);
    QFETCH(bool, hasThumbnail);
    const ToolRun tool;
    QCOMPARE(tool.runOnStorages({"record", "sd", "--type", type, "--duration", "0.4"}),
             tool.success("@/sd/DCIM/100ABC/DCF_0001." + type + "\n"));

    const QString base = tool.sd() + "/100ABC/DCF_0001.";
    QCOMPARE(probe(base + type, "stream=codec_name,width,height:format=format_name"), streams);
    if (type == "avi" || type == "mkv" || type == "wav") {
        const QByteArray length = probe(base + type, "format=duration");
        QVERIFY2(qAbs(length.toDouble() - 0.4) < 0.15, length.constData());
    }
    QCOMPARE(QFile::exists(base + "thumb"), hasThumbnail);
    if (hasThumbnail)
        QCOMPARE(probe(base + "thumb", "stream=codec_name,width,height", {"-f", "mjpeg"}),
                 QByteArray("mjpeg,160,120"));
    QCOMPARE(tree(tool.sd()).size(), hasThumbnail ? 3 : 2);
}

void VornfhRecordTest::consecutivePhotosDiffer()
{
    const ToolRun tool;
    QCOMPARE(tool.runOnStorages({"record", "sd", "--type", "jpg", "--count", "2"}).exitCode, 0);
    const QByteArray first = tool.content("sd/DCIM/100ABC/DCF_0001.jpg");
    QVERIFY(!first.isEmpty());
    QVERIFY(first != tool.content("sd/DCIM/100ABC/DCF_0002.jpg"));
}

void VornfhRecordTest::recordsFromAFile()
{
    const ToolRun tool;
    makeVideo(tool.path() + "/clip.avi", QSize(64, 48));
    const Outcome outcome = tool.runOnStorages({"record", "usb", "--type", "png", "--input", "clip.avi"});
    QCOMPARE(outcome.exitCode, 0);
    QCOMPARE(outcome.out, tool.expand("@/usb/DCIM/100ABC/DCF_0001.png\n"));
    QCOMPARE(probe(tool.path() + "/usb/DCIM/100ABC/DCF_0001.png", "stream=width,height"),
             QByteArray("64,48"));
}

void VornfhRecordTest::nextPrintsAPathAndCreatesItsFolder()
{
    const ToolRun tool;
    tool.make(onCard({"101ABC/DCF_0041.jpg"}));
    const Tree before = tree(tool.path());
    for (const QByteArray type : {"avi", "mkv", "jpg", "png", "wav", "thumb"})
        QCOMPARE(tool.runOnStorages({"next", "sd", type}),
                 tool.success("@/sd/DCIM/101ABC/DCF_0042." + type + "\n"));
    QCOMPARE(tree(tool.path()), before);

    tool.make(onCard({"101ABC/DCF_9999.jpg"}));
    QCOMPARE(tool.runOnStorages({"next", "sd", "wav"}), tool.success("@/sd/DCIM/102ABC/DCF_0001.wav\n"));
    QVERIFY(tree(tool.sd()).contains("102ABC/"));
}

void VornfhRecordTest::twoProcessesShareNoNumber()
{
    StandIns programs;
    programs.add("ffmpeg", WRITE_DATA);
    const ToolRun tool;
    QProcess first;
    QProcess second;
    tool.startOnStorages(first, {"record", "sd", "--type", "avi", "--count", "10"});
    tool.startOnStorages(second, {"record", "sd", "--type", "wav", "--count", "10"});
    const Outcome videos = ToolRun::finish(first);
    const Outcome audio = ToolRun::finish(second);
    QCOMPARE(videos.exitCode, 0);
    QCOMPARE(audio.exitCode, 0);
    QSet<QByteArray> numbers;
    for (const QByteArray &path : (videos.out + audio.out).trimmed().split('\n'))
        numbers.insert(path.mid(path.lastIndexOf("DCF_") + 4, 4));
    QCOMPARE(numbers.size(), 20);
    QVERIFY(numbers.contains("0001") && numbers.contains("0020"));
}

void VornfhRecordTest::waitsWhileAnotherProcessAllocates()
{
    StandIns programs;
    programs.add("ffmpeg", WRITE_DATA);
    const ToolRun tool;
    tool.make(onCard({"100ABC/DCF_0001.jpg"}));
    const int folder = ::open(tool.sd().toUtf8().constData(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    QCOMPARE(::flock(folder, LOCK_EX), 0);
    QProcess process;
    tool.startOnStorages(process, {"record", "sd", "--type", "wav"});
    // The tool waits as soon as it has opened the location.
    const QString descriptors = QString("/proc/%1/fd").arg(process.processId());
    const auto hasOpened = [&] {
        const QFileInfoList files = QDir(descriptors).entryInfoList(QDir::Files | QDir::Dirs | QDir::System);
        return std::any_of(files.begin(), files.end(),
                           [&tool](const QFileInfo &file) { return file.symLinkTarget() == tool.sd(); });
    };
    QTRY_VERIFY_WITH_TIMEOUT(hasOpened(), 20000);
    QTest::qWait(100);
    QCOMPARE(process.state(), QProcess::Running);
    tool.make(onCard({"100ABC/DCF_0002.jpg"}));
    ::close(folder);
    QCOMPARE(ToolRun::finish(process), tool.success("@/sd/DCIM/100ABC/DCF_0003.wav\n"));
}

void VornfhRecordTest::continuesInTheNextFolder()
{
    const ToolRun tool;
    tool.make(onCard({"100ABC/DCF_9998.jpg"}));
    QCOMPARE(tool.runOnStorages({"record", "sd", "--type", "wav", "--count", "2", "--duration", "0.1"}),
             tool.success("@/sd/DCIM/100ABC/DCF_9999.wav\n@/sd/DCIM/101ABC/DCF_0001.wav\n"));
    QCOMPARE(tree(tool.path()), onCard({"100ABC/", "100ABC/DCF_9998.jpg", "100ABC/DCF_9999.wav", "101ABC/",
                                        "101ABC/DCF_0001.wav"}));
}

void VornfhRecordTest::neverOverwritesATakenName_data()
{
    QTest::addColumn<Tree>("entries");
    QTest::addColumn<QByteArray>("message");
    const auto row = [](const char *name, const Tree &entries, const QByteArray &message) {
        QTest::newRow(name) << entries << message;
    };
    const QByteArray usedUp =
        "storage sd has no numbers left: the number of @/sd/DCIM/999ABC/DCF_0001.avi is taken";
    row("numbers-used-up", {"999ABC/DCF_0001.avi = x", "999ABC/DCF_9999.avi = x", "1000ABC/"}, usedUp);
    row("numbers-used-up-by-other-types", {"999ABC/DCF_0001.jpg = x", "999ABC/DCF_9999.wav = x", "1000ABC/"},
        usedUp);
    row("numbers-used-up-with-thumbnails",
        {"999ABC/DCF_0001.avi = x", "999ABC/DCF_0001.thumb = x", "999ABC/DCF_9999.avi = x", "1000ABC/"},
        usedUp);
    row("thumbnail-has-the-last-number-of-all", {"999ABC/DCF_9998.avi = x", "999ABC/DCF_9999.thumb = x"},
        "storage sd has no numbers left: the number of @/sd/DCIM/999ABC/DCF_9999.avi is taken");
}

void VornfhRecordTest::neverOverwritesATakenName()
{
    QFETCH(Tree, entries);
    QFETCH(QByteArray, message);
    const ToolRun tool;
    tool.make(onCard(entries));
    const Tree before = treeWithContents(tool.path());
    QCOMPARE(tool.runOnStorages({"record", "sd"}), tool.failure({message}));
    QCOMPARE(treeWithContents(tool.path()), before);
}

void VornfhRecordTest::skipsATakenNumber_data()
{
    QTest::addColumn<Tree>("entries");
    QTest::addColumn<QByteArrayList>("recorded");
    QTest::addColumn<QByteArray>("err");
    const auto row = [](const char *name, const Tree &entries, const QByteArrayList &recorded,
                        const QByteArray &err = QByteArray()) {
        QTest::newRow(name) << entries << recorded << err;
    };
    row("thumbnail-in-an-empty-folder", {"100ABC/DCF_0001.thumb = x"},
        {"100ABC/DCF_0002.wav", "100ABC/DCF_0003.wav"});
    row("thumbnail-after-the-last-recording", {"100ABC/DCF_0005.jpg = x", "100ABC/DCF_0006.thumb = x"},
        {"100ABC/DCF_0007.jpg", "100ABC/DCF_0008.jpg"});
    row("several-thumbnails",
        {"100ABC/DCF_0001.thumb = x", "100ABC/DCF_0002.thumb -> nowhere", "100ABC/DCF_0004.thumb/"},
        {"100ABC/DCF_0003.avi", "100ABC/DCF_0005.avi"});
    row("thumbnail-has-the-last-number", {"100ABC/DCF_9998.avi = x", "100ABC/DCF_9999.thumb = x"},
        {"101ABC/DCF_0001.avi", "101ABC/DCF_0002.avi"});
    row("file-in-place-of-the-next-folder",
        {"100ABC/DCF_9998.avi = x", "100ABC/DCF_9999.thumb = x", "101ABC = x"},
        {"102ABC/DCF_0001.avi", "102ABC/DCF_0002.avi"});
    row("file-in-place-of-the-folder-after-a-full-one", {"100ABC/DCF_9999.avi = x", "101ABC -> nowhere"},
        {"102ABC/DCF_0001.avi", "102ABC/DCF_0002.avi"});
    row("folder-without-a-number", {"XABC/"}, {"100ABC/DCF_0001.avi", "100ABC/DCF_0002.avi"},
        withoutColours(noFolderNumberLine().repeated(6)));
    row("folder-has-the-name", {"100ABC/DCF_0001.avi = x", "100ABC/DCF_0002.avi/"},
        {"100ABC/DCF_0003.avi", "100ABC/DCF_0004.avi"});
    row("dangling-link-has-the-number", {"100ABC/DCF_0001.avi = x", "100ABC/DCF_0002.png -> nowhere"},
        {"100ABC/DCF_0003.avi", "100ABC/DCF_0004.avi"});
    row("name-in-the-wrong-case", {"100ABC/DCF_0003.jpg = x", "100ABC/dcf_0004.JPG = x"},
        {"100ABC/DCF_0005.jpg", "100ABC/DCF_0006.jpg"}, withoutColours(noFileNumberLine().repeated(4)));
}

void VornfhRecordTest::skipsATakenNumber()
{
    QFETCH(Tree, entries);
    QFETCH(QByteArrayList, recorded);
    QFETCH(QByteArray, err);
    StandIns programs;
    programs.add("ffmpeg", WRITE_DATA);
    const ToolRun tool;
    tool.make(onCard(entries));
    const QByteArray type = recorded.first().right(3);
    const QByteArray out = below("@/sd/DCIM/", recorded).join("\n") + "\n";
    QCOMPARE(tool.runOnStorages({"record", "sd", "--type", type, "--count", "2"}), tool.success(out, err));
    const Tree after = treeWithContents(tool.sd());
    for (const QByteArray &entry : entries)
        QVERIFY2(after.contains(entry), entry.constData());
}

void VornfhRecordTest::keepsAThumbnailCreatedInTheMeantime()
{
    StandIns programs;
    programs.add("ffmpeg", WRITE_DATA + "echo mine > \"${target%.*}.thumb\"");
    const ToolRun tool;
    tool.make({"sd/DCIM/"});
    QCOMPARE(tool.runOnStorages({"record", "sd", "--type", "jpg"}),
             tool.failure(
                 {"@/sd/DCIM/100ABC/DCF_0001.thumb: was created by another program and is left unchanged"},
                 "@/sd/DCIM/100ABC/DCF_0001.jpg\n"));
    QCOMPARE(tool.content("sd/DCIM/100ABC/DCF_0001.thumb"), QByteArray("mine\n"));
}

void VornfhRecordTest::aFailureLeavesNothing_data()
{
    QTest::addColumn<QByteArray>("script"); // for ffmpeg; empty for the real one
    QTest::addColumn<QByteArray>("reason");
    const auto row = [](const char *name, const QByteArray &script, const QByteArray &reason) {
        QTest::newRow(name) << script << reason;
    };
    row("missing-input", "", "@/none.avi: No such file or directory");
    row("writes-only-a-header",
        "\"$real\" -v error -y -f lavfi -i testsrc2 -t 0 -c:v mjpeg -f avi \"$target\"; echo first >&2; echo "
        "last "
        ">&2; "
        "exit 3",
        "last");
    row("fails-without-a-message", "exit 3", "ffmpeg exited with code 3");
    row("writes-nothing", "exit 0", "ffmpeg wrote nothing");
    row("escape-sequence-in-its-message", "printf 'a\\033b\\n' >&2; exit 1", "a\\x1bb");
}

void VornfhRecordTest::aFailureLeavesNothing()
{
    QFETCH(QByteArray, script);
    QFETCH(QByteArray, reason);
    StandIns programs;
    if (!script.isEmpty())
        programs.add("ffmpeg", onlyToRecord() + script);
    const ToolRun tool;
    tool.make(onCard({"100ABC/DCF_0001.jpg = one"}));
    const Tree before = treeWithContents(tool.path());
    QCOMPARE(tool.runOnStorages({"record", "sd", "--input", "@/none.avi"}),
             tool.failure({"@/sd/DCIM/100ABC/DCF_0002.avi: recording failed: " + reason}));
    QCOMPARE(treeWithContents(tool.path()), before);
}

void VornfhRecordTest::recordingsBeforeAFailureStay()
{
    StandIns programs;
    programs.add("ffmpeg",
                 FIND_TARGET + "case $target in *0003*) echo broken >&2; exit 1;; esac\n" + WRITE_DATA);
    const ToolRun tool;
    tool.make({"sd/DCIM/"});
    QCOMPARE(tool.runOnStorages({"record", "sd", "--type", "wav", "--count", "5"}),
             tool.failure({"@/sd/DCIM/100ABC/DCF_0003.wav: recording failed: broken"},
                          "@/sd/DCIM/100ABC/DCF_0001.wav\n@/sd/DCIM/100ABC/DCF_0002.wav\n"));
    QCOMPARE(tree(tool.path()), onCard({"100ABC/", "100ABC/DCF_0001.wav", "100ABC/DCF_0002.wav"}));
}

void VornfhRecordTest::withoutFfmpegNothingChanges()
{
    const StandIns noPrograms(StandIns::Alone);
    const ToolRun tool;
    QCOMPARE(tool.runOnStorages({"record", "sd"}),
             tool.failure({"ffmpeg is not on PATH; recording needs it"}));
    QCOMPARE(tree(tool.path()), Tree());
}

void VornfhRecordTest::keepsAnUnreadableRecordingAsItIs()
{
    StandIns programs;
    programs.add("ffmpeg", onlyToRecord() + "echo half > \"$target\"; echo broken >&2; exit 3");
    const ToolRun tool;
    tool.make({"sd/DCIM/"});
    const QByteArray path = "@/sd/DCIM/100ABC/DCF_0001.";
    const QByteArray reason = "file:" + path + "avi: Invalid data found when processing input";
    QCOMPARE(tool.runOnStorages({"record", "sd"}),
             tool.failure({path + "avi: recording ended early: broken",
                           path + "avi: cannot be closed: " + reason + "; it is kept unchanged",
                           path + "thumb: cannot be created: " + reason},
                          path + "avi\n"));
    QCOMPARE(treeWithContents(tool.path()), onCard({"100ABC/", "100ABC/DCF_0001.avi = half\n"}));
}

void VornfhRecordTest::keepsARecordingThatEndsEarly_data()
{
    QTest::addColumn<QByteArray>("type");
    QTest::addColumn<QByteArray>("script"); // for ffmpeg when it records; empty for the real one
    QTest::addColumn<int>("signal");        // to the tool; 0 for none
    QTest::addColumn<QByteArray>("reason");
    const auto row = [](const QByteArray &name, const QByteArray &type, const QByteArray &script, int signal,
                        const QByteArray &reason = "interrupted") {
        QTest::newRow(type + "-" + name) << type << script << signal << reason;
    };
    // Each script copies the file as ffmpeg left it.
    const QByteArray start = "\"$real\" \"$@\" & child=$!\n"
                             "while [ $(stat -c %s \"$target\") -lt 300000 ]; do sleep 0.02; done\n";
    const QByteArray killed = start + "kill -9 $child; wait $child; cp \"$target\" left; kill -9 $$";
    const QByteArray failed =
        start + "kill $child; wait $child; cp \"$target\" left; echo broken >&2; exit 1";
    for (const QByteArray type : {"avi", "mkv", "wav"}) {
        row("SIGINT", type, "", SIGINT);
        row("SIGTERM", type, "", SIGTERM);
        row("SIGHUP", type, "", SIGHUP);
        row("ffmpeg-is-killed", type, killed, 0, "ffmpeg was killed by signal 9");
    }
    row("ffmpeg-fails", "avi", failed, 0, "broken");
    row("a-script-runs-ffmpeg", "avi", "trap : INT; \"$real\" \"$@\"; cp \"$target\" left; exit 255", SIGINT);
}

void VornfhRecordTest::keepsARecordingThatEndsEarly()
{
    QFETCH(QByteArray, type);
    QFETCH(QByteArray, script);
    QFETCH(int, signal);
    QFETCH(QByteArray, reason);
    StandIns programs;
    if (!script.isEmpty())
        programs.add("ffmpeg", onlyToRecord() + script);
    const ToolRun tool;
    tool.make({"sd/DCIM/"});
    const QByteArray name = "@/sd/DCIM/100ABC/DCF_0001." + type;
    const QString path = QString::fromUtf8(tool.expand(name));
    QProcess process;
    tool.startOnStorages(process, {"record", "sd", "--type", type, "--duration", "3600", "--count", "2"});
    if (signal != 0) {
        QTRY_VERIFY_WITH_TIMEOUT(QFileInfo(path).size() > 300000, 60000);
        QCOMPARE(::kill(static_cast<pid_t>(process.processId()), signal), 0);
    }
    QCOMPARE(ToolRun::finish(process),
             tool.failure({name + ": recording ended early: " + reason}, name + "\n"));

    QCOMPARE(whyNotPlayable(path), QByteArray());
    if (!script.isEmpty())
        QCOMPARE(packetsIn(path), packetsIn(tool.path() + "/left"));
    Tree expected = {"100ABC/", "100ABC/DCF_0001." + type};
    if (type != "wav") {
        expected.append("100ABC/DCF_0001.thumb");
        QCOMPARE(
            probe(tool.sd() + "/100ABC/DCF_0001.thumb", "stream=codec_name,width,height", {"-f", "mjpeg"}),
            QByteArray("mjpeg,160,120"));
    }
    QCOMPARE(tree(tool.sd()), expected);
}

void VornfhRecordTest::keepsARecordingThatFillsTheStorage_data()
{
    QTest::addColumn<QByteArray>("type");
    for (const char *type : {"avi", "mkv", "wav"})
        QTest::newRow(type) << QByteArray(type);
}

void VornfhRecordTest::keepsARecordingThatFillsTheStorage()
{
    if (!hasOwnMounts())
        QSKIP("mounting needs root");
    QFETCH(QByteArray, type);
    const ToolRun tool;
    tool.make({"sd/"});
    const TmpfsMount card(tool.path() + "/sd", "size=2m");
    QVERIFY(card.isMounted());
    tool.make({"sd/DCIM/"});
    const QByteArray path = "@/sd/DCIM/100ABC/DCF_0001." + type;
    QCOMPARE(tool.runOnStorages({"record", "sd", "--type", type, "--duration", "3600", "--count", "2"}),
             tool.failure({path + ": recording ended early: the storage device is full"}, path + "\n"));
    QCOMPARE(whyNotPlayable(QString::fromUtf8(tool.expand(path))), QByteArray());
    QCOMPARE(QFileInfo(tool.sd() + "/100ABC/DCF_0001.thumb").size() > 0, type != "wav");
    QCOMPARE(tree(tool.sd()).size(), type == "wav" ? 2 : 3);
}

namespace {

/// A script line that leaves 100 KiB on the storage device.
const QByteArray FILL =
    "head -c $((($(df --output=avail -k sd | tail -n 1) - 100) * 1024)) /dev/zero > sd/filler\n";

} // namespace

void VornfhRecordTest::keepsARecordingOnAStorageThatFillsUp_data()
{
    QTest::addColumn<QByteArray>("script");
    QTest::addColumn<QByteArrayList>("messages");
    const auto row = [](const char *name, const QByteArray &script, const QByteArrayList &messages) {
        QTest::newRow(name) << script << messages;
    };
    const QByteArray full =
        "@/sd/DCIM/100ABC/DCF_0001.avi: recording ended early: the storage device is full";
    row("closed-by-ffmpeg", "\"$real\" \"$@\"\n", {full});
    row("no-space-to-close-it",
        "\"$real\" \"$@\"; printf '\\0\\0\\0\\0' | dd of=\"$target\" bs=1 seek=4 conv=notrunc status=none\n",
        {full, "@/sd/DCIM/100ABC/DCF_0001.avi: cannot be closed: "
               "Error closing file file:@/sd/DCIM/100ABC/.vornfh-PID-XXXXXX: No space left on device; "
               "up to N KiB needed, N KiB free; it is kept unchanged"});
}

void VornfhRecordTest::keepsARecordingOnAStorageThatFillsUp()
{
    if (!hasOwnMounts())
        QSKIP("mounting needs root");
    QFETCH(QByteArray, script);
    QFETCH(QByteArrayList, messages);
    StandIns programs;
    programs.add("ffmpeg", onlyToRecord() + script + "cp \"$target\" left\n" + FILL + WAIT_FOR_SIGNAL);
    const ToolRun tool;
    tool.make({"sd/"});
    const TmpfsMount card(tool.path() + "/sd", "size=2m");
    QVERIFY(card.isMounted());
    tool.make({"sd/DCIM/"});
    Outcome outcome = withoutRandomNames(tool.runOnStorages({"record", "sd", "--duration", "0.6"}));
    static const QRegularExpression SIZE("[0-9.]+ KiB");
    outcome.err = QString::fromUtf8(outcome.err).replace(SIZE, "N KiB").toUtf8();
    QCOMPARE(outcome, tool.failure(messages, "@/sd/DCIM/100ABC/DCF_0001.avi\n"));
    QVERIFY(tool.content("sd/DCIM/100ABC/DCF_0001.avi") == tool.content("left"));
    QCOMPARE(tree(tool.sd()), (Tree{"100ABC/", "100ABC/DCF_0001.avi", "100ABC/DCF_0001.thumb"}));
}

void VornfhRecordTest::removesAnEmptyRecordingOnAFullStorage()
{
    if (!hasOwnMounts())
        QSKIP("mounting needs root");
    StandIns programs;
    programs.add("ffmpeg", FILL + WAIT_FOR_SIGNAL);
    const ToolRun tool;
    tool.make({"sd/"});
    const TmpfsMount card(tool.path() + "/sd", "size=2m");
    QVERIFY(card.isMounted());
    tool.make({"sd/DCIM/"});
    QCOMPARE(tool.runOnStorages({"record", "sd"}),
             tool.failure({"@/sd/DCIM/100ABC/DCF_0001.avi: recording failed: the storage device is full"}));
    QCOMPARE(tree(tool.sd()), Tree{"100ABC/"});
}

/// The recording is on the device and is printed although its thumbnail cannot be created.
void VornfhRecordTest::keepsARecordingWithoutRoomForTheThumbnail()
{
    if (!hasOwnMounts())
        QSKIP("mounting needs root");
    const ToolRun tool;
    tool.make({"sd/"});
    const TmpfsMount card(tool.path() + "/sd", "size=4m,nr_inodes=4"); // for DCIM, the folder and the video
    QVERIFY(card.isMounted());
    tool.make({"sd/DCIM/"});
    QCOMPARE(tool.runOnStorages({"record", "sd", "--duration", "0.4"}),
             tool.failure({"@/sd/DCIM/100ABC/DCF_0001.thumb: cannot be created: No space left on device"},
                          "@/sd/DCIM/100ABC/DCF_0001.avi\n"));
    QCOMPARE(whyNotPlayable(tool.sd() + "/100ABC/DCF_0001.avi"), QByteArray());
}

void VornfhRecordTest::needsSpaceToRecord()
{
    if (!hasOwnMounts())
        QSKIP("mounting needs root");
    const ToolRun tool;
    tool.make({"sd/"});
    const TmpfsMount card(tool.path() + "/sd", "size=256k");
    QVERIFY(card.isMounted());
    tool.make({"sd/DCIM/"});
    QCOMPARE(tool.runOnStorages({"record", "sd"}),
             tool.failure({"@/sd/DCIM: not enough space to record: 256.0 KiB free"}));
    QCOMPARE(tree(tool.sd()), Tree());
}

void VornfhRecordTest::removesAnInterruptedRecordingWithoutContent_data()
{
    QTest::addColumn<int>("number");
    row("SIGINT", SIGINT);
    row("SIGTERM", SIGTERM);
    row("SIGHUP", SIGHUP);
}

void VornfhRecordTest::removesAnInterruptedRecordingWithoutContent()
{
    QFETCH(int, number);
    StandIns programs;
    programs.add("ffmpeg", "echo $$ > ffmpeg\n" + WAIT_FOR_SIGNAL);
    const ToolRun tool;
    tool.make(onCard({"100ABC/DCF_0001.jpg"}));
    QProcess process;
    tool.startOnStorages(process, {"record", "sd", "--count", "3"});
    QTRY_VERIFY_WITH_TIMEOUT(tool.content("ffmpeg").endsWith('\n'), 20000);
    QVERIFY(QFile::exists(tool.sd() + "/100ABC/DCF_0002.avi"));
    QCOMPARE(::kill(static_cast<pid_t>(process.processId()), number), 0);
    QCOMPARE(ToolRun::finish(process),
             tool.failure({"@/sd/DCIM/100ABC/DCF_0002.avi: recording failed: interrupted"}));
    QCOMPARE(tree(tool.sd()), (Tree{"100ABC/", "100ABC/DCF_0001.jpg"}));
    QVERIFY(!isRunning(processIn(tool, "ffmpeg")));
}

void VornfhRecordTest::stopsAfterTheCurrentRecording()
{
    StandIns programs; // the interruption comes while the thumbnail is made
    programs.add("ffmpeg", WRITE_DATA + "case $target in *0002.thumb) kill -INT $PPID;; esac");
    const ToolRun tool;
    tool.make({"sd/DCIM/"});
    const QByteArray path = "@/sd/DCIM/100ABC/";
    QCOMPARE(tool.runOnStorages({"record", "sd", "--type", "jpg", "--count", "3"}),
             tool.failure({"interrupted after 2 of 3 recordings"},
                          path + "DCF_0001.jpg\n" + path + "DCF_0002.jpg\n"));
    QCOMPARE(tree(tool.sd()), (Tree{"100ABC/", "100ABC/DCF_0001.jpg", "100ABC/DCF_0001.thumb",
                                    "100ABC/DCF_0002.jpg", "100ABC/DCF_0002.thumb"}));
}

void VornfhRecordTest::killsAnFfmpegThatDoesNotStop()
{
    StandIns programs;
    programs.add("ffmpeg",
                 onlyToRecord()
                     + "\"$real\" \"$@\"; trap '' INT; sleep 60 & echo $! > sleep; echo $$ > ffmpeg; wait");
    const ToolRun tool;
    tool.make({"sd/DCIM/"});
    QProcess process;
    tool.startOnStorages(process, {"record", "sd", "--duration", "0.4"});
    QTRY_VERIFY_WITH_TIMEOUT(tool.content("ffmpeg").endsWith('\n'), 20000);
    QCOMPARE(::kill(static_cast<pid_t>(process.processId()), SIGINT), 0);
    const QByteArray path = "@/sd/DCIM/100ABC/DCF_0001.avi";
    QCOMPARE(ToolRun::finish(process),
             tool.failure({path + ": recording ended early: interrupted"}, path + "\n"));
    QCOMPARE(whyNotPlayable(QString::fromUtf8(tool.expand(path))), QByteArray());
    QVERIFY(!isRunning(processIn(tool, "ffmpeg")));
    QTRY_VERIFY(!isRunning(processIn(tool, "sleep")));
}

void VornfhRecordTest::aSecondSignalEndsTheToolAtOnce_data()
{
    QTest::addColumn<int>("first");
    QTest::addColumn<int>("second");
    const auto row = [](const char *name, int first, int second) { QTest::newRow(name) << first << second; };
    row("SIGINT-twice", SIGINT, SIGINT);
    row("SIGTERM-after-SIGINT", SIGINT, SIGTERM);
    row("SIGHUP-after-SIGTERM", SIGTERM, SIGHUP);
}

void VornfhRecordTest::aSecondSignalEndsTheToolAtOnce()
{
    QFETCH(int, first);
    QFETCH(int, second);
    if (isEmulated())
        QSKIP(IS_EMULATED);
    StandIns programs;
    programs.add("ffmpeg", "trap '' INT TERM HUP; echo $$ > ffmpeg; exec sleep 60");
    const ToolRun tool;
    tool.make({"sd/DCIM/"});
    QProcess process;
    tool.startOnStorages(process, {"record", "sd"});
    QTRY_VERIFY_WITH_TIMEOUT(tool.content("ffmpeg").endsWith('\n'), 20000);
    QVERIFY(isHandling(process.processId(), first));
    QCOMPARE(::kill(static_cast<pid_t>(process.processId()), first), 0);
    QTRY_VERIFY_WITH_TIMEOUT(!isHandling(process.processId(), second), 20000);
    QCOMPARE(process.state(), QProcess::Running);
    QCOMPARE(::kill(static_cast<pid_t>(process.processId()), second), 0);
    QCOMPARE(ToolRun::finish(process), (Outcome{128 + second, "", ""}));
    QTRY_VERIFY(!isRunning(processIn(tool, "ffmpeg")));
}

void VornfhRecordTest::aKilledToolEndsFfmpeg()
{
    StandIns programs;
    programs.add("ffmpeg", "trap '' INT TERM HUP; echo $$ > ffmpeg; exec sleep 60");
    const ToolRun tool;
    tool.make({"sd/DCIM/"});
    QProcess process;
    tool.startOnStorages(process, {"record", "sd"});
    QTRY_VERIFY_WITH_TIMEOUT(tool.content("ffmpeg").endsWith('\n'), 20000);
    QCOMPARE(::kill(static_cast<pid_t>(process.processId()), SIGKILL), 0);
    QCOMPARE(ToolRun::finish(process), (Outcome{128 + SIGKILL, "", ""}));
    QTRY_VERIFY(!isRunning(processIn(tool, "ffmpeg")));
}

/// A process that holds a recording open would be in the way of unmounting the card.
void VornfhRecordTest::aToolKilledWhileItStartsFfmpegLeavesNoProcess()
{
    ToolRun tool;
    // QProcess calls eventfd_write() when it has registered the child that it has just created.
    if (!tool.runBefore("eventfd_write", "cat /proc/$PPID/task/*/children > children; kill -9 $PPID"))
        QSKIP(CANNOT_PRELOAD);
    tool.make({"sd/DCIM/"});
    QProcess process;
    tool.startOnStorages(process, {"record", "sd", "--type", "wav"});
    QTRY_COMPARE_WITH_TIMEOUT(process.state(), QProcess::NotRunning, 20000);
    const QByteArrayList children = tool.content("children").simplified().split(' ');
    QCOMPARE(children.size(), 2); // one of them is the shell
    for (const QByteArray &child : children)
        QTRY_VERIFY(!isRunning(child.toInt()));
}

void VornfhRecordTest::removesWhatAnInterruptedCommandLeft_data()
{
    QTest::addColumn<Tree>("left"); // in the last folder
    QTest::addColumn<Tree>("kept");
    QTest::addColumn<QByteArrayList>("messages");
    const QByteArray file = ".vornfh-99999999-abcdef";
    const QByteArray mark = ".vornfh-99999999-fedcba.renaming";
    const auto left = [](const QByteArray &name) {
        return "@/sd/DCIM/101ABC/" + name + ": left by an interrupted command";
    };
    const auto kept = [&left](const QByteArray &name) {
        return left(name)
               + " and kept: it may share its content with another file, or be the only copy of a file; "
                 "unmount the storage device and check it with fsck before you delete the leftover";
    };
    row("file", Tree{file + " = x"}, Tree{}, QByteArrayList{left(file) + "; removed"});
    row("folder", Tree{file + "/"}, Tree{}, QByteArrayList{left(file) + "; removed"});
    row("file-that-was-being-renamed", Tree{file + " = x", mark}, Tree{file + " = x", mark},
        QByteArrayList{kept(file)});
    const QByteArray backup = ".vornfh-99999999-backup";
    const QByteArray replacement = mark + " = another session\na.jpg\n" + file + "\n" + backup + "\n";
    const QByteArray restored = "@/sd/DCIM/101ABC/a.jpg: an interrupted command was replacing it; restored";
    row("replacement-with-the-new-file", Tree{file + " = new", backup + " = old", replacement},
        Tree{file + " = new", backup + " = old", replacement, "a.jpg = new"},
        QByteArrayList{restored, kept(file), kept(backup)});
    row("replacement-with-the-old-file", Tree{backup + " = old", replacement},
        Tree{backup + " = old", replacement, "a.jpg = old"}, QByteArrayList{restored, kept(backup)});
    row("replacement-that-was-finished", Tree{backup + " = old", replacement, "a.jpg = new"},
        Tree{backup + " = old", replacement, "a.jpg = new"}, QByteArrayList{kept(backup)});
    row("replacement-cut-off",
        Tree{backup + " = old", mark + " = another session\na.jpg\n.vornfh-99999999-bac"},
        Tree{backup + " = old", mark + " = another session\na.jpg\n.vornfh-99999999-bac"},
        QByteArrayList{kept(backup)});
    row("mark-of-renamed-files", Tree{mark}, Tree{}, QByteArrayList{});
    row("name-that-is-not-the-tool's", Tree{".vornfh-x"}, Tree{".vornfh-x"}, QByteArrayList{});
}

void VornfhRecordTest::removesWhatAnInterruptedCommandLeft()
{
    QFETCH(Tree, left);
    QFETCH(Tree, kept);
    QFETCH(QByteArrayList, messages);
    StandIns programs;
    programs.add("ffmpeg", WRITE_DATA);
    const ToolRun tool;
    tool.make(onCard({"100ABC/.vornfh-99999999-abcdef = x"}) + below("sd/DCIM/101ABC/", left));
    QCOMPARE(tool.runOnStorages({"record", "sd", "--type", "wav"}),
             tool.success("@/sd/DCIM/101ABC/DCF_0001.wav\n", errorLines(messages)));
    QCOMPARE(treeWithContents(tool.sd()), (Tree{"100ABC/", "100ABC/.vornfh-99999999-abcdef = x", "101ABC/"}
                                           + below("101ABC/", sorted(kept + Tree{"DCF_0001.wav = data\n"}))));
}

/// A camera can give the tool the same process ID every time it starts.
void VornfhRecordTest::removesWhatAProcessWithTheSameNumberLeft()
{
    StandIns programs;
    programs.add("ffmpeg", WRITE_DATA);
    const ToolRun tool;
    tool.make({"sd/DCIM/100ABC/"});
    const Outcome outcome = tool.runProgram(
        "sh", {"-c", "touch sd/DCIM/100ABC/.vornfh-$$-abcdef; exec \"$0\" \"$@\"", ToolRun::toolPath(),
               "--suffix", "ABC", "--sd", tool.sd(), "record", "sd", "--type", "wav"});
    QCOMPARE(outcome.exitCode, 0);
    QCOMPARE(tree(tool.sd()), (Tree{"100ABC/", "100ABC/DCF_0001.wav"}));
}

void VornfhRecordTest::refusesWrongValues_data()
{
    QTest::addColumn<QByteArrayList>("options");
    QTest::addColumn<QByteArray>("message");
    const auto row = [](const char *name, const QByteArrayList &options, const QByteArray &message) {
        QTest::newRow(name) << options << message;
    };
    const QByteArray outsideCount = " is not a number from 1 to 9999";
    const QByteArray outsideDuration = " is not 0 or a number from 0.1 to 86400";
    row("unknown-type", {"--type", "gif"}, "--type: gif not in {avi,mkv,jpg,png,wav}");
    row("count-zero", {"--count", "0"}, "--count: '0'" + outsideCount);
    row("count-not-a-number", {"--count", "many"}, "--count: 'many'" + outsideCount);
    row("duration-not-a-number", {"--duration", "nan"}, "--duration: 'nan'" + outsideDuration);
    row("negative-duration", {"--duration=-1"}, "--duration: '-1'" + outsideDuration);
    row("input-not-utf-8", {"--input", "\xff"}, messages::notUtf8("--input", "\\xff"));
}

void VornfhRecordTest::refusesWrongValues()
{
    QFETCH(QByteArrayList, options);
    QFETCH(QByteArray, message);
    const ToolRun tool;
    QCOMPARE(tool.runOnStorages(QByteArrayList{"record", "sd"} + options), tool.usageError({message}));
    QCOMPARE(tree(tool.path()), Tree());
}

QTEST_GUILESS_MAIN(VornfhRecordTest)
#include "tst_vornfh_record.moc"

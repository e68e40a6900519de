// SPDX-License-Identifier: MIT
#include "media.h"
#include "standins.h"
#include "toolsupport.h"

#include <QSet>
#include <QTest>

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
    void skipsTheNumberOfAnOrphanedThumbnail_data();
    void skipsTheNumberOfAnOrphanedThumbnail();
    void keepsAThumbnailCreatedInTheMeantime();
    void aFailureLeavesNothing_data();
    void aFailureLeavesNothing();
    void recordingsBeforeAFailureStay();
    void withoutFfmpegNothingChanges();
    void removesAnInterruptedRecording_data();
    void removesAnInterruptedRecording();
    void refusesWrongValues_data();
    void refusesWrongValues();
};

namespace {

/// The start of a script for ffmpeg: the path to write is the last argument, after "file:".
const QByteArray FIND_TARGET = "for target; do :; done\ntarget=${target#file:}\n";
const QByteArray WRITE_DATA = FIND_TARGET + "echo data > \"$target\"\n";

/// What ffprobe prints about @p entries of a file.
QByteArray probe(const QString &file, const QString &entries, const QStringList &options = {})
{
    return outputOf("ffprobe", QStringList{"-v", "error", "-of", "csv=p=0"} + options
                                   + QStringList{"-show_entries", entries, file})
        .simplified();
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
             tool.success("@/sd/DCIM/100ABC/DCF_0001." + type + "\n", missingLocationLine("@/sd/DCIM")));

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
    const QByteArray usedUp = "storage sd has no numbers left: @/sd/DCIM/999ABC/DCF_0001.avi would be "
                              "next, and its number is taken";
    const QByteArray taken = ": its number is taken by something that the numbering skips";
    row("numbers-used-up", {"999ABC/DCF_0001.avi = x", "999ABC/DCF_9999.avi = x", "1000ABC/"}, usedUp);
    row("numbers-used-up-by-other-types", {"999ABC/DCF_0001.jpg = x", "999ABC/DCF_9999.wav = x", "1000ABC/"},
        usedUp);
    row("numbers-used-up-with-thumbnails",
        {"999ABC/DCF_0001.avi = x", "999ABC/DCF_0001.thumb = x", "999ABC/DCF_9999.avi = x", "1000ABC/"},
        usedUp);
    row("thumbnail-has-the-last-number", {"100ABC/DCF_9998.avi = x", "100ABC/DCF_9999.thumb = x"},
        "@/sd/DCIM/100ABC/DCF_9999.avi" + taken);
    row("folder-has-the-name", {"100ABC/DCF_0001.avi = x", "100ABC/DCF_0002.avi/"},
        "@/sd/DCIM/100ABC/DCF_0002.avi" + taken);
    row("dangling-link-has-the-number", {"100ABC/DCF_0001.avi = x", "100ABC/DCF_0002.png -> nowhere"},
        "@/sd/DCIM/100ABC/DCF_0002.avi" + taken);
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

void VornfhRecordTest::skipsTheNumberOfAnOrphanedThumbnail_data()
{
    QTest::addColumn<Tree>("entries");
    QTest::addColumn<QByteArrayList>("recorded"); // in folder 100ABC
    const auto row = [](const char *name, const Tree &entries, const QByteArrayList &recorded) {
        QTest::newRow(name) << entries << recorded;
    };
    row("in-an-empty-folder", {"DCF_0001.thumb = x"}, {"DCF_0002.wav", "DCF_0003.wav"});
    row("after-the-last-recording", {"DCF_0005.jpg = x", "DCF_0006.thumb = x"},
        {"DCF_0007.jpg", "DCF_0008.jpg"});
    row("several", {"DCF_0001.thumb = x", "DCF_0002.thumb -> nowhere", "DCF_0004.thumb/"},
        {"DCF_0003.avi", "DCF_0005.avi"});
}

void VornfhRecordTest::skipsTheNumberOfAnOrphanedThumbnail()
{
    QFETCH(Tree, entries);
    QFETCH(QByteArrayList, recorded);
    StandIns programs;
    programs.add("ffmpeg", WRITE_DATA);
    const ToolRun tool;
    tool.make(below("sd/DCIM/100ABC/", entries));
    const QByteArray type = recorded.first().right(3);
    const QByteArray out = below("@/sd/DCIM/100ABC/", recorded).join("\n") + "\n";
    QCOMPARE(tool.runOnStorages({"record", "sd", "--type", type, "--count", "2"}), tool.success(out));
    const Tree after = treeWithContents(tool.sd() + "/100ABC");
    for (const QByteArray &entry : entries)
        QVERIFY2(after.contains(entry), entry.constData());
}

void VornfhRecordTest::keepsAThumbnailCreatedInTheMeantime()
{
    StandIns programs;
    programs.add("ffmpeg", WRITE_DATA + "echo mine > \"${target%.*}.thumb\"");
    const ToolRun tool;
    tool.make({"sd/DCIM/"});
    QCOMPARE(
        tool.runOnStorages({"record", "sd", "--type", "jpg"}),
        tool.failure({"@/sd/DCIM/100ABC/DCF_0001.thumb: was created by another program and is left as it is"},
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
    row("writes-and-fails", FIND_TARGET + "echo half > \"$target\"; echo first >&2; echo last >&2; exit 3",
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
        programs.add("ffmpeg", script);
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
    programs.add("ffmpeg", WRITE_DATA + "case $target in *0003*) echo broken >&2; exit 1;; esac");
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

void VornfhRecordTest::removesAnInterruptedRecording_data()
{
    QTest::addColumn<int>("number");
    QTest::newRow("SIGINT") << SIGINT;
    QTest::newRow("SIGTERM") << SIGTERM;
}

void VornfhRecordTest::removesAnInterruptedRecording()
{
    QFETCH(int, number);
    StandIns programs;
    programs.add("ffmpeg", FIND_TARGET
                               + "echo $$ > \"$target\"\n"
                                 "trap 'exit 255' TERM\n"
                                 "while :; do sleep 0.05; done");
    const ToolRun tool;
    tool.make(onCard({"100ABC/DCF_0001.jpg"}));
    const QString target = "sd/DCIM/100ABC/DCF_0002.avi";
    QProcess process;
    tool.startOnStorages(process, {"record", "sd", "--count", "3"});
    QTRY_VERIFY_WITH_TIMEOUT(tool.content(target).endsWith('\n'), 20000);
    const pid_t ffmpeg = tool.content(target).trimmed().toInt();
    QCOMPARE(::kill(static_cast<pid_t>(process.processId()), number), 0);
    QCOMPARE(ToolRun::finish(process),
             tool.failure({"@/sd/DCIM/100ABC/DCF_0002.avi: recording failed: interrupted"}));
    QCOMPARE(tree(tool.path()), onCard({"100ABC/", "100ABC/DCF_0001.jpg"}));
    QVERIFY(::kill(ffmpeg, 0) != 0);
}

void VornfhRecordTest::refusesWrongValues_data()
{
    QTest::addColumn<QByteArrayList>("options");
    QTest::addColumn<QByteArray>("message");
    const auto row = [](const char *name, const QByteArrayList &options, const QByteArray &message) {
        QTest::newRow(name) << options << message;
    };
    const QByteArray outsideCount = " is not a number from 1 to 9999";
    const QByteArray outsideDuration = " is not a number from 0.1 to 86400";
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

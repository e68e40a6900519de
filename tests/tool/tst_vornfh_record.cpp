// SPDX-License-Identifier: MIT
#include "media.h"
#include "toolsupport.h"

#include <QRegularExpression>
#include <QTest>

#include <csignal>

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

using Arguments = QList<QByteArray>;

class VornfhRecordTest : public QObject
{
    Q_OBJECT

private slots:
    void recordsEveryType_data();
    void recordsEveryType();
    void photosDifferFromOneToTheNext();
    void recordsFromAFile();
    void nextNamesAPathAndCreatesItsFolder();
    void twoAtOnceShareNoNumber();
    void waitsWhileAnotherProcessAllocates();
    void rollsOverIntoTheNextFolder();
    void takenNamesAreNeverOverwritten_data();
    void takenNamesAreNeverOverwritten();
    void theNumberOfAThumbnailLeftBehindIsPassedOver_data();
    void theNumberOfAThumbnailLeftBehindIsPassedOver();
    void aThumbnailThatCameInTheMeantimeIsAFailure();
    void aFailureLeavesNothingBehind_data();
    void aFailureLeavesNothingBehind();
    void recordingsBeforeAFailureStay();
    void withoutFfmpegNothingIsTouched();
    void anInterruptedRecordingIsRemoved_data();
    void anInterruptedRecordingIsRemoved();
    void refusesWrongValues_data();
    void refusesWrongValues();
};

namespace {

/// Makes @p script the program ffmpeg that the tool finds.
void standInForFfmpeg(ToolRun &tool, const QByteArray &script)
{
    const QString folder = tool.path() + "/bin";
    writeFile(folder + "/ffmpeg", "#!/bin/sh\n" + script + "\n");
    QFile::setPermissions(folder + "/ffmpeg", QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
    tool.environment.insert("PATH", folder + ":" + tool.environment.value("PATH"));
}

/// Lines of a stand-in: the last argument without "file:" is the path to write.
const QByteArray FIND_TARGET = "for target; do :; done\ntarget=${target#file:}\n";

QByteArray mediaNumber(const QByteArray &path)
{
    return path.mid(path.lastIndexOf("DCF_") + 4, 4);
}

} // namespace

void VornfhRecordTest::recordsEveryType_data()
{
    QTest::addColumn<QByteArray>("type");
    QTest::addColumn<QByteArray>("streams"); // as ffprobe names them
    QTest::addColumn<bool>("hasThumbnail");

    QTest::newRow("avi") << QByteArray("avi") << QByteArray("mjpeg,640,480 pcm_s16le avi") << true;
    QTest::newRow("mkv") << QByteArray("mkv") << QByteArray("mpeg4,640,480 aac \"matroska,webm\"") << true;
    QTest::newRow("jpg") << QByteArray("jpg") << QByteArray("mjpeg,640,480 image2") << true;
    QTest::newRow("png") << QByteArray("png") << QByteArray("png,640,480 png_pipe") << true;
    QTest::newRow("wav") << QByteArray("wav") << QByteArray("pcm_s16le wav") << false;
}

void VornfhRecordTest::recordsEveryType()
{
    QFETCH(QByteArray, type);
    QFETCH(QByteArray, streams);
    QFETCH(bool, hasThumbnail);
    ToolRun tool;
    const Outcome outcome = tool.runOnStorages({"record", "sd", "--type", type, "--duration", "0.4"});
    QCOMPARE(outcome, (Outcome{0, tool.expand("@/sd/DCIM/100ABC/DCF_0001." + type + "\n"),
                               diagnosticLine(tool.expand("root dir @/sd/DCIM doesn't exist. Create it"))}));

    const auto probe = [](const QString &file) {
        return outputOf("ffprobe",
                        {"-v", "error", "-show_entries", "stream=codec_name,width,height:format=format_name",
                         "-of", "csv=p=0", file})
            .simplified();
    };
    const QString base = tool.sd() + "/100ABC/DCF_0001.";
    QCOMPARE(probe(base + type), streams);
    if (type == "avi" || type == "mkv" || type == "wav") {
        const double length = outputOf("ffprobe", {"-v", "error", "-show_entries", "format=duration", "-of",
                                                   "csv=p=0", base + type})
                                  .trimmed()
                                  .toDouble();
        QVERIFY2(qAbs(length - 0.4) < 0.15, QByteArray::number(length));
    }
    QCOMPARE(QFile::exists(base + "thumb"), hasThumbnail);
    if (hasThumbnail)
        QCOMPARE(outputOf("ffprobe", {"-v", "error", "-f", "mjpeg", "-show_entries",
                                      "stream=codec_name,width,height", "-of", "csv=p=0", base + "thumb"})
                     .trimmed(),
                 QByteArray("mjpeg,160,120"));
    QCOMPARE(tree(tool.sd()).size(), hasThumbnail ? 3 : 2);
}

void VornfhRecordTest::photosDifferFromOneToTheNext()
{
    ToolRun tool;
    QCOMPARE(tool.runOnStorages({"record", "sd", "--type", "jpg", "--count", "2"}).exitCode, 0);
    const QByteArray first = tool.content(tool.sd() + "/100ABC/DCF_0001.jpg");
    QVERIFY(!first.isEmpty());
    QVERIFY(first != tool.content(tool.sd() + "/100ABC/DCF_0002.jpg"));
}

void VornfhRecordTest::recordsFromAFile()
{
    ToolRun tool;
    makeVideo(tool.path() + "/clip.avi", QSize(64, 48));
    const Outcome outcome = tool.runOnStorages({"record", "usb", "--type", "png", "--input", "clip.avi"});
    QCOMPARE(outcome.exitCode, 0);
    QCOMPARE(outcome.out, tool.expand("@/usb/DCIM/100ABC/DCF_0001.png\n"));
    QCOMPARE(outputOf("ffprobe", {"-v", "error", "-show_entries", "stream=width,height", "-of", "csv=p=0",
                                  tool.path() + "/usb/DCIM/100ABC/DCF_0001.png"})
                 .trimmed(),
             QByteArray("64,48"));
}

void VornfhRecordTest::nextNamesAPathAndCreatesItsFolder()
{
    ToolRun tool;
    writeFile(tool.sd() + "/101ABC/DCF_0041.jpg");
    const auto before = tree(tool.path());
    for (const QByteArray type : {"avi", "mkv", "jpg", "png", "wav", "thumb"})
        QCOMPARE(tool.runOnStorages({"next", "sd", type}),
                 (Outcome{0, tool.expand("@/sd/DCIM/101ABC/DCF_0042." + type + "\n"), ""}));
    QCOMPARE(tree(tool.path()), before);

    writeFile(tool.sd() + "/101ABC/DCF_9999.jpg");
    QCOMPARE(tool.runOnStorages({"next", "sd", "wav"}),
             (Outcome{0, tool.expand("@/sd/DCIM/102ABC/DCF_0001.wav\n"), ""}));
    QVERIFY(tree(tool.sd()).contains("102ABC/"));
}

void VornfhRecordTest::twoAtOnceShareNoNumber()
{
    ToolRun tool;
    standInForFfmpeg(tool, FIND_TARGET + "echo data > \"$target\"");
    QProcess first;
    QProcess second;
    tool.start(first,
               ToolRun::storageOptions() + Arguments{"record", "sd", "--type", "avi", "--count", "10"});
    tool.start(second,
               ToolRun::storageOptions() + Arguments{"record", "sd", "--type", "wav", "--count", "10"});
    const Outcome videos = ToolRun::finish(first);
    const Outcome sounds = ToolRun::finish(second);
    QCOMPARE(videos.exitCode, 0);
    QCOMPARE(sounds.exitCode, 0);
    QSet<QByteArray> numbers;
    for (const QByteArray &line : (videos.out + sounds.out).trimmed().split('\n'))
        numbers.insert(mediaNumber(line));
    QCOMPARE(numbers.size(), 20);
    QVERIFY(numbers.contains("0001") && numbers.contains("0020"));
}

void VornfhRecordTest::waitsWhileAnotherProcessAllocates()
{
    ToolRun tool;
    writeFile(tool.sd() + "/100ABC/DCF_0001.jpg");
    standInForFfmpeg(tool, FIND_TARGET + "echo data > \"$target\"");
    const int folder = ::open(tool.sd().toUtf8().constData(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    QCOMPARE(::flock(folder, LOCK_EX), 0);
    QProcess process;
    tool.start(process, ToolRun::storageOptions() + Arguments{"record", "sd", "--type", "wav"});
    // A waiting process stands there with its number, behind the lock that it waits for.
    const QByteArray number = " " + QByteArray::number(process.processId()) + " ";
    QTRY_VERIFY_WITH_TIMEOUT(tool.content("/proc/locks").contains(number), 20000);
    writeFile(tool.sd() + "/100ABC/DCF_0002.jpg");
    ::close(folder);
    QCOMPARE(ToolRun::finish(process), (Outcome{0, tool.expand("@/sd/DCIM/100ABC/DCF_0003.wav\n"), ""}));
}

void VornfhRecordTest::rollsOverIntoTheNextFolder()
{
    ToolRun tool;
    writeFile(tool.sd() + "/100ABC/DCF_9998.jpg", "9998");
    const Outcome outcome =
        tool.runOnStorages({"record", "sd", "--type", "wav", "--count", "2", "--duration", "0.1"});
    QCOMPARE(outcome,
             (Outcome{0, tool.expand("@/sd/DCIM/100ABC/DCF_9999.wav\n@/sd/DCIM/101ABC/DCF_0001.wav\n"), ""}));
    QCOMPARE(tree(tool.sd()), (QList<QByteArray>{"100ABC/", "100ABC/DCF_9998.jpg", "100ABC/DCF_9999.wav",
                                                 "101ABC/", "101ABC/DCF_0001.wav"}));
}

void VornfhRecordTest::takenNamesAreNeverOverwritten_data()
{
    QTest::addColumn<QByteArrayList>("entries");
    QTest::addColumn<QByteArray>("message");
    QTest::newRow("numbers-used-up")
        << QByteArrayList{"999ABC/DCF_0001.avi", "999ABC/DCF_9999.avi", "1000ABC/"}
        << QByteArray(
               "the numbers of storage sd are used up: @/sd/DCIM/999ABC/DCF_0001.avi would be next, and "
               "its number is taken");
    QTest::newRow("numbers-used-up-by-another-type")
        << QByteArrayList{"999ABC/DCF_0001.jpg", "999ABC/DCF_9999.wav", "1000ABC/"}
        << QByteArray(
               "the numbers of storage sd are used up: @/sd/DCIM/999ABC/DCF_0001.avi would be next, and "
               "its number is taken");
    QTest::newRow("numbers-used-up-with-thumbnails")
        << QByteArrayList{"999ABC/DCF_0001.avi", "999ABC/DCF_0001.thumb", "999ABC/DCF_9999.avi", "1000ABC/"}
        << QByteArray(
               "the numbers of storage sd are used up: @/sd/DCIM/999ABC/DCF_0001.avi would be next, and "
               "its number is taken");
    QTest::newRow("a-thumbnail-has-the-last-number")
        << QByteArrayList{"100ABC/DCF_9998.avi", "100ABC/DCF_9999.thumb"}
        << QByteArray("@/sd/DCIM/100ABC/DCF_9999.avi: its number is taken by something that the numbering "
                      "passes over");
    QTest::newRow("a-folder-has-the-name")
        << QByteArrayList{"100ABC/DCF_0001.avi", "100ABC/DCF_0002.avi/"}
        << QByteArray("@/sd/DCIM/100ABC/DCF_0002.avi: its number is taken by something that the numbering "
                      "passes over");
    QTest::newRow("a-dangling-link-has-the-name")
        << QByteArrayList{"100ABC/DCF_0001.avi", "100ABC/DCF_0002.png@nowhere"}
        << QByteArray("@/sd/DCIM/100ABC/DCF_0002.avi: its number is taken by something that the numbering "
                      "passes over");
}

void VornfhRecordTest::takenNamesAreNeverOverwritten()
{
    QFETCH(QByteArrayList, entries);
    QFETCH(QByteArray, message);
    ToolRun tool;
    QVERIFY(QDir().mkpath(tool.sd()));
    makeEntries(tool.sd(), entries);
    const auto before = tool.contents();
    QCOMPARE(tool.runOnStorages({"record", "sd"}),
             (Outcome{1, "", tool.expand("vornfh: " + message + "\n")}));
    QCOMPARE(tool.contents(), before);
}

void VornfhRecordTest::theNumberOfAThumbnailLeftBehindIsPassedOver_data()
{
    QTest::addColumn<QByteArrayList>("entries");
    QTest::addColumn<QByteArray>("type");
    QTest::addColumn<QByteArray>("out");
    QTest::newRow("in-an-empty-folder")
        << QByteArrayList{"100ABC/DCF_0001.thumb"} << QByteArray("wav")
        << QByteArray("@/sd/DCIM/100ABC/DCF_0002.wav\n@/sd/DCIM/100ABC/DCF_0003.wav\n");
    QTest::newRow("behind-the-last-recording")
        << QByteArrayList{"100ABC/DCF_0005.jpg", "100ABC/DCF_0006.thumb"} << QByteArray("jpg")
        << QByteArray("@/sd/DCIM/100ABC/DCF_0007.jpg\n@/sd/DCIM/100ABC/DCF_0008.jpg\n");
    QTest::newRow("several") << QByteArrayList{"100ABC/DCF_0001.thumb", "100ABC/DCF_0002.thumb@nowhere",
                                               "100ABC/DCF_0004.thumb/"}
                             << QByteArray("avi")
                             << QByteArray("@/sd/DCIM/100ABC/DCF_0003.avi\n@/sd/DCIM/100ABC/DCF_0005.avi\n");
}

void VornfhRecordTest::theNumberOfAThumbnailLeftBehindIsPassedOver()
{
    QFETCH(QByteArrayList, entries);
    QFETCH(QByteArray, type);
    QFETCH(QByteArray, out);
    ToolRun tool;
    standInForFfmpeg(tool, FIND_TARGET + "echo data > \"$target\"");
    QVERIFY(QDir().mkpath(tool.sd()));
    makeEntries(tool.sd(), entries);
    const auto before = tool.contents();
    QCOMPARE(tool.runOnStorages({"record", "sd", "--type", type, "--count", "2"}),
             (Outcome{0, tool.expand(out), ""}));
    const auto after = tool.contents();
    for (auto entry = before.begin(); entry != before.end(); ++entry)
        QCOMPARE(after.value(entry.key(), "gone"), *entry);
}

void VornfhRecordTest::aThumbnailThatCameInTheMeantimeIsAFailure()
{
    ToolRun tool;
    standInForFfmpeg(tool, FIND_TARGET + "echo data > \"$target\"; echo mine > \"${target%.*}.thumb\"");
    QVERIFY(QDir().mkpath(tool.sd()));
    QCOMPARE(tool.runOnStorages({"record", "sd", "--type", "jpg"}),
             (Outcome{1, tool.expand("@/sd/DCIM/100ABC/DCF_0001.jpg\n"),
                      tool.expand("vornfh: @/sd/DCIM/100ABC/DCF_0001.thumb: came in the meantime and is left "
                                  "as it is\n")}));
    QCOMPARE(tool.content(tool.sd() + "/100ABC/DCF_0001.thumb"), QByteArray("mine\n"));
}

void VornfhRecordTest::aFailureLeavesNothingBehind_data()
{
    QTest::addColumn<QByteArray>("standIn"); // empty for the real ffmpeg
    QTest::addColumn<QByteArray>("input");
    QTest::addColumn<QByteArray>("reason");
    QTest::newRow("missing-input") << QByteArray() << QByteArray("@/none.avi")
                                   << QByteArray("@/none.avi: No such file or directory");
    QTest::newRow("writes-and-fails")
        << FIND_TARGET + "echo half > \"$target\"; echo first >&2; echo last >&2; exit 3" << QByteArray("x")
        << QByteArray("last");
    QTest::newRow("fails-without-a-word")
        << QByteArray("exit 3") << QByteArray("x") << QByteArray("ffmpeg ended with exit code 3");
    QTest::newRow("writes-nothing") << QByteArray("exit 0") << QByteArray("x")
                                    << QByteArray("ffmpeg wrote nothing");
    QTest::newRow("escape-in-its-message")
        << QByteArray("printf 'a\\033b\\n' >&2; exit 1") << QByteArray("x") << QByteArray("a\\x1bb");
}

void VornfhRecordTest::aFailureLeavesNothingBehind()
{
    QFETCH(QByteArray, standIn);
    QFETCH(QByteArray, input);
    QFETCH(QByteArray, reason);
    ToolRun tool;
    writeFile(tool.sd() + "/100ABC/DCF_0001.jpg", "one");
    if (!standIn.isEmpty())
        standInForFfmpeg(tool, standIn);
    const auto before = tool.contents();
    const QByteArray error = "vornfh: @/sd/DCIM/100ABC/DCF_0002.avi: cannot be recorded: " + reason + "\n";
    QCOMPARE(tool.runOnStorages({"record", "sd", "--input", input}), (Outcome{1, "", tool.expand(error)}));
    QCOMPARE(tool.contents(), before);
}

void VornfhRecordTest::recordingsBeforeAFailureStay()
{
    ToolRun tool;
    QVERIFY(QDir().mkpath(tool.sd()));
    standInForFfmpeg(tool, FIND_TARGET
                               + "echo data > \"$target\"\n"
                                 "case $target in *0003*) echo broken >&2; exit 1;; esac");
    QCOMPARE(tool.runOnStorages({"record", "sd", "--type", "wav", "--count", "5"}),
             (Outcome{1, tool.expand("@/sd/DCIM/100ABC/DCF_0001.wav\n@/sd/DCIM/100ABC/DCF_0002.wav\n"),
                      tool.expand("vornfh: @/sd/DCIM/100ABC/DCF_0003.wav: cannot be recorded: broken\n")}));
    QCOMPARE(tree(tool.sd()), (QList<QByteArray>{"100ABC/", "100ABC/DCF_0001.wav", "100ABC/DCF_0002.wav"}));
}

void VornfhRecordTest::withoutFfmpegNothingIsTouched()
{
    ToolRun tool;
    tool.environment.insert("PATH", tool.path() + "/nowhere");
    QCOMPARE(tool.runOnStorages({"record", "sd"}),
             (Outcome{1, "", "vornfh: ffmpeg is not on the search path; recording needs it\n"}));
    QCOMPARE(tree(tool.path()), QList<QByteArray>());
}

void VornfhRecordTest::anInterruptedRecordingIsRemoved_data()
{
    QTest::addColumn<int>("number");
    QTest::newRow("SIGINT") << SIGINT;
    QTest::newRow("SIGTERM") << SIGTERM;
}

void VornfhRecordTest::anInterruptedRecordingIsRemoved()
{
    QFETCH(int, number);
    ToolRun tool;
    writeFile(tool.sd() + "/100ABC/DCF_0001.jpg", "one");
    standInForFfmpeg(tool, FIND_TARGET
                               + "echo $$ > \"$target\"\n"
                                 "trap 'exit 255' TERM\n"
                                 "while :; do sleep 0.05; done");
    const QString target = tool.sd() + "/100ABC/DCF_0002.avi";
    QProcess process;
    tool.start(process, ToolRun::storageOptions() + Arguments{"record", "sd", "--count", "3"});
    QTRY_VERIFY_WITH_TIMEOUT(tool.content(target).endsWith('\n'), 20000);
    const pid_t ffmpeg = tool.content(target).trimmed().toInt();
    QCOMPARE(::kill(static_cast<pid_t>(process.processId()), number), 0);
    QCOMPARE(ToolRun::finish(process),
             (Outcome{1, "", "vornfh: " + target.toUtf8() + ": cannot be recorded: interrupted\n"}));
    QCOMPARE(tree(tool.sd()), (QList<QByteArray>{"100ABC/", "100ABC/DCF_0001.jpg"}));
    QVERIFY(::kill(ffmpeg, 0) != 0);
}

void VornfhRecordTest::refusesWrongValues_data()
{
    QTest::addColumn<Arguments>("arguments");
    QTest::addColumn<QByteArray>("message");
    QTest::newRow("type") << Arguments{"--type", "gif"}
                          << QByteArray("--type: gif not in {avi,mkv,jpg,png,wav}");
    QTest::newRow("count-zero") << Arguments{"--count", "0"}
                                << QByteArray("--count: '0' is no number from 1 to 9999");
    QTest::newRow("count-no-number") << Arguments{"--count", "many"}
                                     << QByteArray("--count: 'many' is no number from 1 to 9999");
    QTest::newRow("duration-not-a-number")
        << Arguments{"--duration", "nan"} << QByteArray("--duration: 'nan' is no number from 0.1 to 86400");
    QTest::newRow("duration-negative")
        << Arguments{"--duration=-1"} << QByteArray("--duration: '-1' is no number from 0.1 to 86400");
    QTest::newRow("input-no-utf-8") << Arguments{"--input", "\xff"}
                                    << QByteArray("--input '\\xff' is not valid UTF-8");
}

void VornfhRecordTest::refusesWrongValues()
{
    QFETCH(Arguments, arguments);
    QFETCH(QByteArray, message);
    ToolRun tool;
    QCOMPARE(tool.runOnStorages(Arguments{"record", "sd"} + arguments),
             (Outcome{2, "", "vornfh: " + message + "\n"}));
    QCOMPARE(tree(tool.path()), QList<QByteArray>());
}

QTEST_GUILESS_MAIN(VornfhRecordTest)
#include "tst_vornfh_record.moc"

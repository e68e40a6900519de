// SPDX-License-Identifier: MIT
// "vornfh watch". The tool runs while a shell changes the storage device.
#include "device.h"
#include "toolsupport.h"

#include <QDateTime>
#include <QDeadlineTimer>
#include <QFile>
#include <QJsonArray>
#include <QJsonObject>
#include <QTest>

#include <algorithm>
#include <csignal>

#include <fcntl.h>
#include <sys/mount.h>
#include <unistd.h>

class VornfhWatchTest : public QObject
{
    Q_OBJECT

private slots:
    void reportsFiles_data();
    void reportsFiles();
    void reportsFolders_data();
    void reportsFolders();
    void aFileIsFinishedWhenNobodyHasItOpen();
    void aRecordingInProgressIsFinishedOnce();
    void aRecordingOfTheToolIsFinishedOnce();
    void reportsALocationThatIsCreatedLater();
    void reportsWhatHasChangedAfterAnOverflow();
    void reportsMounts();
    void reportsAnotherCard();
    void reportsAFullCard_data();
    void reportsAFullCard();
    void reportsThatTheLastNumberIsUsed();
    void reportsAnErrorOfTheFileSystem();
    void reportsACardThatIsPulledOut();
    void watchesAllStorages();
    void watchesOnceWhatIsNamedTwice();
    void printsJson();
    void endsOnASignal_data();
    void endsOnASignal();
    void endsIfItsOutputIsLost_data();
    void endsIfItsOutputIsLost();
    void failsIfTheLocationCannotBeRead();
    void refusesWrongCommandLines_data();
    void refusesWrongCommandLines();
};

namespace {

const QByteArray FOLDER = "@/sd/DCIM/100ABC/";
/// A file that each test can write in order to see that nothing else is printed before it.
const QByteArray LAST = "@/sd/DCIM/900ABC/DCF_9998.wav";

/// A running "vornfh watch".
class Watch
{
public:
    /// Waits for the lines "watching STORAGE".
    Watch(const ToolRun &tool, const QByteArrayList &arguments = {"sd"}, int storages = 1) : mTool(tool)
    {
        tool.startOnStorages(mProcess, QByteArrayList{"watch"} + arguments);
        for (int i = 0; i < storages; ++i)
            waitForLine();
        mLines.clear();
    }
    ~Watch()
    {
        mProcess.kill();
        mProcess.waitForFinished();
    }
    Watch(const Watch &) = delete;
    Watch &operator=(const Watch &) = delete;

    QProcess &process() { return mProcess; }

    void send(int signal) const { ::kill(static_cast<pid_t>(mProcess.processId()), signal); }

    /// The next line, without line feed; it is also one of lines(). Empty if none is printed.
    QByteArray waitForLine()
    {
        const QDeadlineTimer end(60000);
        while (!mProcess.canReadLine() && !end.hasExpired() && mProcess.state() != QProcess::NotRunning)
            mProcess.waitForReadyRead(100);
        const QByteArray line = mProcess.readLine().trimmed().replace(mTool.path().toUtf8(), "@");
        if (!line.isEmpty())
            mLines.append(line);
        return line;
    }

    /// Waits for the line @p last, and returns the lines since the last call, up to and including it.
    QByteArrayList linesUntil(const QByteArray &last)
    {
        QByteArray line = waitForLine();
        while (line != last && !line.isEmpty())
            line = waitForLine();
        return std::exchange(mLines, {});
    }

    /// The lines before those of the file LAST, which is written now.
    QByteArrayList lines()
    {
        writeFile(mTool.expand(LAST), "x");
        QByteArrayList lines = linesUntil("finished " + LAST);
        lines.removeAll("added " + LAST);
        lines.removeAll("finished " + LAST);
        return lines;
    }

private:
    const ToolRun &mTool;
    QProcess mProcess;
    QByteArrayList mLines;
};

/// Runs a shell script in the location.
void runScript(const ToolRun &tool, const QByteArray &script)
{
    const Outcome outcome =
        tool.runProgram("sh", {"-ec", "cd sd/DCIM\n" + QString::fromUtf8(tool.expand(script))});
    require(outcome.exitCode == 0, script + ": " + outcome.err);
}

/// "added FILE" and "finished FILE" for a file in FOLDER.
QByteArrayList comes(const QByteArray &name)
{
    return {"added " + FOLDER + name, "finished " + FOLDER + name};
}

} // namespace

void VornfhWatchTest::reportsFiles_data()
{
    QTest::addColumn<Tree>("files");
    QTest::addColumn<QByteArray>("script");
    QTest::addColumn<QByteArrayList>("lines");
    const auto row = [](const char *name, const Tree &files, const QByteArray &script,
                        const QByteArrayList &lines) { ::row(name, files, script, lines); };

    row("is-written", {}, "printf x > DCF_0001.avi", comes("DCF_0001.avi"));
    row("is-written-in-parts", {},
        "exec 3> DCF_0001.avi; printf a >&3; touch DCF_0001.avi; chmod 600 DCF_0001.avi; printf b >&3",
        comes("DCF_0001.avi"));
    row("thumbnail", {}, "printf x > DCF_0001.thumb", comes("DCF_0001.thumb"));
    row("extension-in-capitals", {}, "printf x > DCF_0001.JPG", comes("DCF_0001.JPG"));
    row("is-renamed-to-its-name", {}, "printf x > .new; mv .new DCF_0001.jpg", comes("DCF_0001.jpg"));
    row("is-linked-to-its-name", {}, "printf x > .new; ln .new DCF_0001.jpg; rm .new", comes("DCF_0001.jpg"));
    row("comes-from-elsewhere", {}, "printf x > ../x; mv ../x DCF_0001.jpg", comes("DCF_0001.jpg"));
    row("is-empty", {}, ": > DCF_0001.avi", {"added " + FOLDER + "DCF_0001.avi"});
    row("replaces-an-empty-file", {"DCF_0001.avi"}, "printf x > .new; mv .new DCF_0001.avi",
        {"finished " + FOLDER + "DCF_0001.avi"});
    row("empty-file-is-written", {"DCF_0001.avi"}, "printf x > DCF_0001.avi",
        {"finished " + FOLDER + "DCF_0001.avi"});
    row("is-written-again", {"DCF_0001.jpg = x"}, "printf yy > DCF_0001.jpg",
        {"finished " + FOLDER + "DCF_0001.jpg"});
    row("is-opened-but-not-written", {"DCF_0001.jpg = x"}, ": >> DCF_0001.jpg", {});
    row("is-read", {"DCF_0001.jpg = x"}, "cat DCF_0001.jpg", {});
    row("is-replaced", {"DCF_0001.jpg = x"}, "printf y > .new; mv .new DCF_0001.jpg",
        {"changed " + FOLDER + "DCF_0001.jpg"});
    row("is-protected", {"DCF_0001.jpg = x"}, "chmod a-w DCF_0001.jpg",
        {"changed " + FOLDER + "DCF_0001.jpg"});
    row("is-deleted", {"DCF_0001.jpg = x", "DCF_0001.thumb = x"}, "rm DCF_0001.jpg",
        {"removed " + FOLDER + "DCF_0001.jpg"});
    row("gets-another-name", {"DCF_0001.jpg = x"}, "mv DCF_0001.jpg DCF_0002.jpg",
        QByteArrayList{"removed " + FOLDER + "DCF_0001.jpg"} + comes("DCF_0002.jpg"));
    row("gets-a-hidden-name", {"DCF_0001.jpg = x"}, "mv DCF_0001.jpg .DCF_0001.jpg",
        {"removed " + FOLDER + "DCF_0001.jpg"});
    row("is-deleted-and-recreated", {"DCF_0001.jpg = x"}, "rm DCF_0001.jpg; printf y > DCF_0001.jpg",
        QByteArrayList{"removed " + FOLDER + "DCF_0001.jpg"} + comes("DCF_0001.jpg"));
    row("is-replaced-by-a-link", {"DCF_0001.jpg = x"}, "ln -s /etc/passwd .new; mv .new DCF_0001.jpg",
        {"removed " + FOLDER + "DCF_0001.jpg"});
    row("temporary-file-of-the-tool", {}, "printf x > .vornfh-1-AAAAAA; rm .vornfh-1-AAAAAA", {});
    row("not-a-recording", {},
        "for name in DCF_0001.txt DCF_0000.jpg DCF_1.jpg IMG_0001.jpg dcf_0001.jpg .DCF_0001.jpg DCF_0001\n"
        "do printf x > $name; done; mkdir DCF_0002.avi; ln -s /etc/passwd DCF_0003.jpg; mkfifo DCF_0004.wav",
        {});
    row("in-another-folder", {}, "printf x > ../DCF_0001.jpg; printf x > ../MISC/DCF_0001.jpg", {});
}

void VornfhWatchTest::reportsFiles()
{
    QFETCH(Tree, files);
    QFETCH(QByteArray, script);
    QFETCH(QByteArrayList, lines);
    const ToolRun tool;
    tool.make(inFolder("sd/DCIM/100ABC/", files) + Tree{"sd/DCIM/900ABC/", "sd/DCIM/MISC/"});
    Watch watch(tool);
    runScript(tool, "cd 100ABC; " + script);
    QCOMPARE(watch.lines(), lines);
    watch.process().terminate();
    QCOMPARE(ToolRun::finish(watch.process()), tool.success());
}

void VornfhWatchTest::reportsFolders_data()
{
    QTest::addColumn<Tree>("files");
    QTest::addColumn<QByteArray>("script");
    QTest::addColumn<QByteArrayList>("lines");
    const auto row = [](const char *name, const Tree &files, const QByteArray &script,
                        const QByteArrayList &lines) { ::row(name, files, script, lines); };

    row("is-created", {}, "mkdir 100ABC; printf x > 100ABC/DCF_0001.avi", comes("DCF_0001.avi"));
    row("appears-with-files", {"100NEW/DCF_0001.jpg = x", "100NEW/DCF_0002.jpg"}, "mv 100NEW 100ABC",
        comes("DCF_0001.jpg") + QByteArrayList{"added " + FOLDER + "DCF_0002.jpg"});
    row("disappears-with-files", {"100ABC/DCF_0001.jpg = x", "100ABC/DCF_0001.thumb = x"}, "mv 100ABC 100OLD",
        {"removed " + FOLDER + "DCF_0001.jpg", "removed " + FOLDER + "DCF_0001.thumb"});
    row("is-deleted", {"100ABC/DCF_0001.jpg = x"}, "rm -r 100ABC", {"removed " + FOLDER + "DCF_0001.jpg"});
    row("is-deleted-and-created-again", {"100ABC/DCF_0001.jpg = x"},
        "rm -r 100ABC; mkdir 100ABC; printf y > 100ABC/DCF_0002.jpg",
        QByteArrayList{"removed " + FOLDER + "DCF_0001.jpg"} + comes("DCF_0002.jpg"));
    row("link-to-a-folder", {"MISC/DCF_0001.jpg = x"}, "ln -s MISC 100ABC", {});
    row("not-a-number", {}, "mkdir 0100ABC 100abc; printf x > 0100ABC/DCF_0001.jpg", {});
    row("location-is-deleted-and-created-again", {"100ABC/DCF_0001.jpg = x"},
        "rm -r 900ABC 100ABC; cd ..; rmdir DCIM; mkdir -p DCIM/100ABC DCIM/900ABC\n"
        "printf y > DCIM/100ABC/DCF_0002.jpg",
        QByteArrayList{"removed " + FOLDER + "DCF_0001.jpg"} + comes("DCF_0002.jpg"));
    row("location-is-created-again-many-times",
        {"100ABC/DCF_0001.jpg = x"}, // often with the same inode number
        "cd ..; for i in $(seq 30); do rm -r DCIM; mkdir -p DCIM/100ABC DCIM/900ABC; done\n"
        "printf y > DCIM/100ABC/DCF_0002.jpg",
        QByteArrayList{"removed " + FOLDER + "DCF_0001.jpg"} + comes("DCF_0002.jpg"));
    row("location-is-replaced", {"100ABC/DCF_0001.jpg = x"},
        "cd ..; mv DCIM OLD; mkdir -p DCIM/100ABC DCIM/900ABC; printf y > DCIM/100ABC/DCF_0002.jpg",
        QByteArrayList{"removed " + FOLDER + "DCF_0001.jpg"} + comes("DCF_0002.jpg"));
}

void VornfhWatchTest::reportsFolders()
{
    QFETCH(Tree, files);
    QFETCH(QByteArray, script);
    QFETCH(QByteArrayList, lines);
    const ToolRun tool;
    tool.make(inFolder("sd/DCIM/", files + Tree{"900ABC/"}));
    Watch watch(tool);
    runScript(tool, script);
    QCOMPARE(watch.lines(), lines);
}

void VornfhWatchTest::aFileIsFinishedWhenNobodyHasItOpen()
{
    const ToolRun tool;
    tool.make(onCard({"100ABC/", "900ABC/"}));
    Watch watch(tool);
    QFile file(tool.sd() + "/100ABC/DCF_0001.avi");
    QVERIFY(file.open(QIODevice::WriteOnly));
    writeFile(file.fileName(), "x"); // opens and closes it too
    QCOMPARE(watch.lines(), QByteArrayList{"added " + FOLDER + "DCF_0001.avi"});
    file.close();
    QCOMPARE(watch.waitForLine(), "finished " + FOLDER + "DCF_0001.avi");
}

void VornfhWatchTest::aRecordingInProgressIsFinishedOnce()
{
    const ToolRun tool;
    tool.make(onCard({"100ABC/"}));
    QFile file(tool.sd() + "/100ABC/DCF_0001.avi");
    QVERIFY(file.open(QIODevice::WriteOnly | QIODevice::Unbuffered));
    QCOMPARE(file.write("x"), 1);
    Watch watch(tool);
    file.close(); // nothing has been written since the tool was started
    QCOMPARE(watch.linesUntil("finished " + FOLDER + "DCF_0001.avi"),
             QByteArrayList{"finished " + FOLDER + "DCF_0001.avi"});
}

void VornfhWatchTest::aRecordingOfTheToolIsFinishedOnce()
{
    const ToolRun tool;
    tool.make(onCard({"100ABC/", "900ABC/"}));
    Watch watch(tool);
    QCOMPARE(tool.runOnStorages({"record", "sd", "--input-format", "lavfi", "--input",
                                 "testsrc2=size=160x120:rate=25", "--duration", "0.2"})
                 .exitCode,
             0);
    QByteArrayList lines = watch.linesUntil("finished @/sd/DCIM/900ABC/DCF_0001.avi");
    std::sort(lines.begin(), lines.end()); // the thumbnail may be the first to be finished
    QCOMPARE(lines,
             (QByteArrayList{"added @/sd/DCIM/900ABC/DCF_0001.avi", "added @/sd/DCIM/900ABC/DCF_0001.thumb",
                             "finished @/sd/DCIM/900ABC/DCF_0001.avi",
                             "finished @/sd/DCIM/900ABC/DCF_0001.thumb"}));
    QCOMPARE(watch.lines(), QByteArrayList());
}

void VornfhWatchTest::reportsALocationThatIsCreatedLater()
{
    const ToolRun tool;
    Watch watch(tool);
    tool.make(onCard({"100ABC/DCF_0001.jpg = x"}));
    QCOMPARE(watch.linesUntil("finished " + FOLDER + "DCF_0001.jpg"), comes("DCF_0001.jpg"));
}

void VornfhWatchTest::reportsWhatHasChangedAfterAnOverflow()
{
    const ToolRun tool;
    tool.make(onCard({"100ABC/DCF_0001.jpg = x", "100ABC/DCF_0002.jpg = x", "100ABC/DCF_0003.jpg = x",
                      "100ABC/DCF_0004.jpg = x", "900ABC/"}));
    Watch watch(tool);
    watch.send(SIGSTOP);
    const int limit = contentOf("/proc/sys/fs/inotify/max_queued_events").trimmed().toInt();
    const QByteArray transient = QFile::encodeName(tool.sd() + "/100ABC/DCF_0009.jpg");
    for (int events = 0; events <= limit; events += 2) {
        writeFile(transient);
        QCOMPARE(::unlink(transient.constData()), 0);
    }
    QFile recording(tool.sd() + "/100ABC/DCF_0006.avi");
    QVERIFY(recording.open(QIODevice::WriteOnly | QIODevice::Unbuffered));
    QCOMPARE(recording.write("x"), 1);
    runScript(tool, "cd 100ABC; rm DCF_0001.jpg; printf yy > DCF_0002.jpg; chmod a-w DCF_0003.jpg\n"
                    "printf x > DCF_0005.jpg");
    watch.send(SIGCONT);
    QCOMPARE(watch.lines(),
             (QByteArrayList{"removed " + FOLDER + "DCF_0001.jpg", "finished " + FOLDER + "DCF_0002.jpg",
                             "changed " + FOLDER + "DCF_0003.jpg"}
              + comes("DCF_0005.jpg") + QByteArrayList{"added " + FOLDER + "DCF_0006.avi"}));
    recording.close();
    QCOMPARE(watch.waitForLine(), "finished " + FOLDER + "DCF_0006.avi");
}

void VornfhWatchTest::reportsMounts()
{
    if (!hasOwnMounts())
        QSKIP(CANNOT_MOUNT);
    const ToolRun tool;
    tool.make(onCard({"100ABC/DCF_0001.jpg = x"}));
    Watch watch(tool);
    {
        const TmpfsMount card(tool.path() + "/sd", "size=8m");
        QVERIFY(card.isMounted());
        QCOMPARE(watch.waitForLine(), QByteArray("mounted sd"));
        tool.make(onCard({"100ABC/DCF_0007.jpg = x"}));
        QCOMPARE(watch.waitForLine(), "added " + FOLDER + "DCF_0007.jpg");
        QCOMPARE(watch.waitForLine(), "finished " + FOLDER + "DCF_0007.jpg");
        QVERIFY(card.makeReadOnly());
        QCOMPARE(watch.waitForLine(), QByteArray("read-only sd"));
        QCOMPARE(::mount("tmpfs", QFile::encodeName(tool.path() + "/sd").constData(), "tmpfs", MS_REMOUNT,
                         nullptr),
                 0);
        QCOMPARE(watch.waitForLine(), QByteArray("writable sd"));
    }
    QCOMPARE(watch.waitForLine(), QByteArray("unmounted sd"));
    runScript(tool, "rm 100ABC/DCF_0001.jpg"); // of the file system below
    QCOMPARE(watch.waitForLine(), "removed " + FOLDER + "DCF_0001.jpg");
}

void VornfhWatchTest::reportsAnotherCard()
{
    if (!hasOwnMounts())
        QSKIP(CANNOT_MOUNT);
    const ToolRun tool;
    tool.make({"sd/"});
    auto card = std::make_unique<TmpfsMount>(tool.path() + "/sd", "size=8m");
    QVERIFY(card->isMounted());
    tool.make(onCard({"100ABC/DCF_0001.jpg = x"}));
    Watch watch(tool);
    watch.send(SIGSTOP); // it sees both changes at once
    card.reset();
    card = std::make_unique<TmpfsMount>(tool.path() + "/sd", "size=8m,ro");
    watch.send(SIGCONT);
    QCOMPARE(watch.waitForLine(), QByteArray("unmounted sd"));
    QCOMPARE(watch.waitForLine(), QByteArray("mounted sd"));
    QCOMPARE(watch.waitForLine(), QByteArray("read-only sd"));
}

void VornfhWatchTest::reportsAFullCard_data()
{
    QTest::addColumn<Tree>("files");
    QTest::addColumn<QByteArray>("script");
    const auto row = [](const char *name, const Tree &files, const QByteArray &script) {
        ::row(name, files, script);
    };

    row("no-space", {}, "cat /dev/zero > ../filler 2>&- || true");
    row("less-than-the-largest-recording", {"DCF_0001.avi size 5000000"},
        "cat 100ABC/DCF_0001.avi > ../filler");
}

void VornfhWatchTest::reportsAFullCard()
{
    QFETCH(Tree, files);
    QFETCH(QByteArray, script);
    if (!hasOwnMounts())
        QSKIP(CANNOT_MOUNT);
    const ToolRun tool;
    tool.make({"sd/"});
    const TmpfsMount card(tool.path() + "/sd", "size=8m");
    QVERIFY(card.isMounted());
    tool.make(inFolder("sd/DCIM/100ABC/", files));
    Watch watch(tool);
    runScript(tool, script);
    QCOMPARE(watch.waitForLine(), QByteArray("full sd"));
    const Outcome status = tool.runOnStorages({"status", "sd"});
    QVERIFY2(status.out.contains("full: "), status.out.constData());
    runScript(tool, "rm ../filler");
    QCOMPARE(watch.waitForLine(), QByteArray("not-full sd"));
}

void VornfhWatchTest::reportsThatTheLastNumberIsUsed()
{
    const ToolRun tool;
    tool.make(onCard({"999ABC/DCF_9998.jpg = x"}));
    Watch watch(tool);
    runScript(tool, "printf x > .new; mv .new 999ABC/DCF_9999.jpg");
    QCOMPARE(watch.linesUntil("full sd"),
             (QByteArrayList{"added @/sd/DCIM/999ABC/DCF_9999.jpg", "finished @/sd/DCIM/999ABC/DCF_9999.jpg",
                             "full sd"}));
    runScript(tool, "rm 999ABC/DCF_9999.jpg");
    QCOMPARE(watch.linesUntil("not-full sd"),
             (QByteArrayList{"removed @/sd/DCIM/999ABC/DCF_9999.jpg", "not-full sd"}));
}

void VornfhWatchTest::reportsAnErrorOfTheFileSystem()
{
    const QString reason = enterOwnMounts().isEmpty() ? whyNot(EXT4) : enterOwnMounts();
    if (!reason.isEmpty())
        QSKIP(qPrintable(reason));
    const ToolRun tool;
    Watch watch(tool);
    Device card(EXT4, tool.path() + "/sd");
    QCOMPARE(watch.linesUntil("mounted sd"), QByteArrayList{"mounted sd"});
    tool.make(onCard({"100ABC/DCF_0001.jpg = x"}));
    QCOMPARE(watch.linesUntil("finished " + FOLDER + "DCF_0001.jpg"), comes("DCF_0001.jpg"));
    card.turnReadOnly();
    QCOMPARE(watch.waitForLine(), QByteArray("read-only sd"));
    card.unmount();
    QCOMPARE(watch.waitForLine(), QByteArray("unmounted sd"));
}

void VornfhWatchTest::reportsACardThatIsPulledOut()
{
    const QString reason = enterOwnMounts().isEmpty() ? whyNot(EXT4) : enterOwnMounts();
    if (!reason.isEmpty())
        QSKIP(qPrintable(reason));
    const ToolRun tool;
    Device card(EXT4, tool.path() + "/sd");
    tool.make(onCard({"100ABC/DCF_0001.jpg = x"}));
    Watch watch(tool);
    QVERIFY(card.pullOut());
    // The kernel removes the device from this list; here, a file takes its place.
    writeFile(tool.path() + "/partitions", "major minor  #blocks  name\n");
    QCOMPARE(::mount(QFile::encodeName(tool.path() + "/partitions").constData(), "/proc/partitions", nullptr,
                     MS_BIND, nullptr),
             0);
    const QByteArray line = watch.waitForLine();
    ::umount("/proc/partitions");
    QCOMPARE(line, QByteArray("absent sd"));
}

void VornfhWatchTest::watchesAllStorages()
{
    const ToolRun tool;
    tool.make(onCard({"100ABC/"}) + Tree{"usb/DCIM/100ABC/"});
    Watch watch(tool, {}, 3);
    tool.make({"usb/DCIM/100ABC/DCF_0001.jpg = x"});
    QCOMPARE(watch.waitForLine(), QByteArray("added @/usb/DCIM/100ABC/DCF_0001.jpg"));
    watch.waitForLine();
    tool.make({"sd/DCIM/100ABC/DCF_0001.jpg = x"});
    QCOMPARE(watch.waitForLine(), "added " + FOLDER + "DCF_0001.jpg");
}

void VornfhWatchTest::watchesOnceWhatIsNamedTwice()
{
    const ToolRun tool;
    Watch watch(tool, {"sd", "SD", "mmc"}, 0);
    QCOMPARE(watch.waitForLine(), QByteArray("watching sd"));
    QCOMPARE(watch.waitForLine(), QByteArray("watching mmc"));
}

void VornfhWatchTest::printsJson()
{
    const ToolRun tool;
    tool.make(onCard({"100ABC/DCF_0012.thumb = x"}));
    Watch watch(tool, {"sd", "--json"});
    runScript(tool, "cd 100ABC; printf abc > .new; touch -d '1970-01-01 00:01:00.5Z' .new; chmod a-w .new; "
                    "mv .new DCF_0012.avi");
    watch.waitForLine();
    const QJsonObject object = QJsonDocument::fromJson(tool.expand(watch.waitForLine())).object();
    const qint64 created = creationTime(QFile::encodeName(tool.sd() + "/100ABC/DCF_0012.avi"));
    const QString shownCreation =
        QDateTime::fromMSecsSinceEpoch(created, Qt::OffsetFromUTC).toString(Qt::ISODateWithMs);
    QCOMPARE(object, (QJsonObject{
                         {"event", "finished"},
                         {"storage", "sd"},
                         {"path", tool.sd() + "/100ABC/DCF_0012.avi"},
                         {"folder", "100ABC"},
                         {"number", 12},
                         {"type", "avi"},
                         {"size", 3},
                         {"created", shownCreation},
                         {"modified", "1970-01-01T00:01:00.500Z"},
                         {"thumbnail", tool.sd() + "/100ABC/DCF_0012.thumb"},
                         {"protected", true},
                     }));
    runScript(tool, "rm -f 100ABC/DCF_0012.avi");
    const QJsonObject removed = QJsonDocument::fromJson(watch.waitForLine()).object();
    QCOMPARE(removed["event"], QJsonValue("removed"));
    QCOMPARE(removed["size"], QJsonValue(3));
    QCOMPARE(removed["created"], QJsonValue(shownCreation));
}

void VornfhWatchTest::endsOnASignal_data()
{
    QTest::addColumn<int>("signal");
    row("interrupt", SIGINT);
    row("terminate", SIGTERM);
    row("hangup", SIGHUP);
}

void VornfhWatchTest::endsOnASignal()
{
    QFETCH(int, signal);
    const ToolRun tool;
    tool.make(onCard({"100ABC/"}));
    Watch watch(tool);
    watch.send(signal);
    QCOMPARE(ToolRun::finish(watch.process()), tool.success());
}

void VornfhWatchTest::endsIfItsOutputIsLost_data()
{
    QTest::addColumn<QString>("destination");
    QTest::addColumn<QByteArray>("out");
    QTest::addColumn<QByteArray>("message");
    const auto row = [](const char *name, const QString &destination, const QByteArray &out,
                        const QByteArray &message) { ::row(name, destination, out, message); };

    row("reader-that-ends", "| head -n 1", "watching sd\n", "standard output: Broken pipe");
    row("full-device", "> /dev/full", "", "cannot write to standard output");
}

void VornfhWatchTest::endsIfItsOutputIsLost()
{
    QFETCH(QString, destination);
    QFETCH(QByteArray, out);
    QFETCH(QByteArray, message);
    const ToolRun tool;
    tool.make(onCard({"100ABC/"}));
    const QString script = R"({ "$0" --sd sd/DCIM watch sd; echo "exit $?" >&2; } )" + destination;
    QCOMPARE(tool.runProgram("sh", {"-c", script, ToolRun::toolPath()}),
             tool.success(out, errorLines({message}) + "exit 1\n"));
}

void VornfhWatchTest::failsIfTheLocationCannotBeRead()
{
    ToolRun tool;
    if (!tool.dropPrivileges())
        QSKIP("the tool cannot run as another user");
    tool.make(onCard({"100ABC/"}));
    const FolderMode mode(tool.sd(), 0);
    QCOMPARE(tool.runOnStorages({"watch", "sd"}),
             tool.failure({"@/sd/DCIM: cannot be watched: Permission denied"}));
}

void VornfhWatchTest::refusesWrongCommandLines_data()
{
    QTest::addColumn<QByteArrayList>("arguments");
    QTest::addColumn<QByteArray>("message");
    row("unknown-storage", QByteArrayList{"watch", "cf"}, messages::unknownStorage("cf"));
    row("storage-that-is-not-configured", QByteArrayList{"--sd", "@/sd/DCIM", "watch", "usb"},
        messages::notConfigured("usb"));
}

void VornfhWatchTest::refusesWrongCommandLines()
{
    QFETCH(QByteArrayList, arguments);
    QFETCH(QByteArray, message);
    const ToolRun tool;
    QCOMPARE(tool.run(arguments), tool.usageError({message}));
}

QTEST_GUILESS_MAIN(VornfhWatchTest)
#include "tst_vornfh_watch.moc"

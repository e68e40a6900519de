// SPDX-License-Identifier: MIT
#include "standins.h"
#include "toolsupport.h"

#include <QJsonArray>
#include <QJsonObject>
#include <QStorageInfo>
#include <QTest>

#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

namespace {

QJsonObject firstOf(const Outcome &outcome)
{
    return outcome.json().array().at(0).toObject();
}

bool isOnRootFileSystem(const QString &path)
{
    struct stat root = {};
    struct stat status = {};
    return ::stat("/", &root) == 0 && ::stat(QFile::encodeName(path).constData(), &status) == 0
           && root.st_dev == status.st_dev;
}

QByteArray deviceOf(const QString &path)
{
    return QStorageInfo(path).device();
}

/// An ext4 file system on a loop device, which the kernel detaches when it is unmounted.
class LoopCard
{
public:
    explicit LoopCard(const ToolRun &tool) : mTool(tool)
    {
        tool.make({"sd/", "card.img size 16777216"});
        mIsMade = hasOwnMounts()
                  && tool.runProgram("mkfs.ext4", {"-q", "-F", tool.path() + "/card.img"}).exitCode == 0;
    }
    ~LoopCard() { unmount(); }
    LoopCard(const LoopCard &) = delete;
    LoopCard &operator=(const LoopCard &) = delete;

    /// Returns the name of the loop device; empty if it cannot be mounted.
    QByteArray mount(const QString &path, const QString &options = "loop")
    {
        const QStringList arguments = {"-o", options, mTool.path() + "/card.img", path};
        if (!mIsMade || mTool.runProgram("mount", arguments).exitCode != 0)
            return {};
        mMountPoint = QFile::encodeName(path);
        return deviceOf(path).mid(5);
    }
    void unmount()
    {
        if (!mMountPoint.isEmpty())
            ::umount2(mMountPoint.constData(), 0);
        mMountPoint.clear();
    }

private:
    const ToolRun &mTool;
    QByteArray mMountPoint;
    bool mIsMade = false;
};

} // namespace

class VornfhStatusTest : public QObject
{
    Q_OBJECT

private slots:
    void showsFoldersAndCreatesNothing_data();
    void showsFoldersAndCreatesNothing();
    void showsTheConfiguredStorages();
    void refusesWrongStorages_data();
    void refusesWrongStorages();
    void showsTheOtherStoragesIfOneIsUnreadable();
    void reportsAMissingProgram();
    void printsNoWarningForASuffixThatIsNotAPattern();
    void findsTheBlockDeviceOfTheLocation();
    void showsTheSpaceOfACard();
    void reportsThatTheCardIsNotMounted();
    void reportsTheSpaceOfAnotherFileSystem();
    void reportsThatTheCardIsReadOnly();
};

void VornfhStatusTest::showsFoldersAndCreatesNothing_data()
{
    QTest::addColumn<Tree>("entries");
    QTest::addColumn<QByteArray>("current"); // empty if the storage has no numbered folder
    QTest::addColumn<QByteArray>("next");
    QTest::addColumn<int>("count");
    QTest::addColumn<QByteArray>("err");
    const auto row = [](const char *name, const Tree &entries, const char *current, const char *next,
                        int count, const QByteArray &err = {}) {
        QTest::newRow(name) << entries << QByteArray(current) << QByteArray(next) << count << err;
    };
    row("missing-location", {}, "", "100ABC/DCF_0001.jpg", 0);
    row("location-only", onCard({}), "", "100ABC/DCF_0001.jpg", 0);
    row("other-folder", onCard({"MISC/a.jpg"}), "", "100ABC/DCF_0001.jpg", 0);
    row("file-as-location", {"sd/DCIM"}, "", "100ABC/DCF_0001.jpg", 0);
    row("recordings", onCard({"100ABC/DCF_0007.jpg", "101ABC/DCF_0002.avi", "101ABC/DCF_0002.thumb"}),
        "101ABC", "101ABC/DCF_0003.jpg", 2);
    row("folder-full", onCard({"100ABC/DCF_9999.jpg"}), "100ABC", "101ABC/DCF_0001.jpg", 1);
    row("last-folder-full", onCard({"999ABC/DCF_9999.jpg"}), "999ABC", "999ABC/DCF_0001.jpg", 1);
    row("largest-folder-full", onCard({"2147483647ABC/DCF_9999.jpg"}), "2147483647ABC",
        "2147483647ABC/DCF_0001.jpg", 1);
    row("folder-without-a-number", onCard({"100ABC/", "XABC/"}), "100ABC", "100ABC/DCF_0001.jpg", 0,
        noFolderNumberLine());
}

void VornfhStatusTest::showsFoldersAndCreatesNothing()
{
    QFETCH(Tree, entries);
    QFETCH(QByteArray, current);
    QFETCH(QByteArray, next);
    QFETCH(int, count);
    QFETCH(QByteArray, err);
    const ToolRun tool;
    tool.make(entries);
    const Tree before = treeWithContents(tool.path());
    const QStorageInfo fileSystem(tool.path());
    const QByteArray mounted = isOnRootFileSystem(tool.path())
                                   ? QByteArray("no: the location is on the root file system")
                                   : "yes, at " + fileSystem.rootPath().toUtf8();
    const QByteArray out = "sd: @/sd/DCIM\n"
                           "  block device    nosuchdevice, not present\n"
                           "  mounted         "
                           + mounted + "\n  file system     " + fileSystem.fileSystemType()
                           + "\n  space           unknown: nosuchdevice is not present\n"
                             "  current folder  "
                           + (current.isEmpty() ? "not created yet" : "@/sd/DCIM/" + current)
                           + "\n  next photo      @/sd/DCIM/" + next + "\n  media files     "
                           + QByteArray::number(count) + "\n";
    Outcome outcome = tool.runOnStorages({"--sd-block", "nosuchdevice", "status", "sd"});
    // The tool reports this only if the root file system is on a block device.
    outcome.out.replace("no: nosuchdevice is not mounted; the", "no: the");
    QCOMPARE(outcome, tool.success(out, err));
    QCOMPARE(treeWithContents(tool.path()), before);

    const QJsonObject json =
        firstOf(tool.runOnStorages({"--sd-block", "nosuchdevice", "status", "--json", "sd"}));
    QCOMPARE(json["created"].toBool(), !current.isEmpty());
    QCOMPARE(json["currentFolder"], current.isEmpty() ? QJsonValue() : tool.sd() + "/" + current);
    QCOMPARE(json["nextPath"].toString(), tool.sd() + "/" + next);
    QCOMPARE(json["mediaCount"].toInt(-1), count);
    QCOMPARE(json["present"], QJsonValue(false));
    for (const char *unknown : {"size", "free", "used", "freePercent", "spaceElsewhere"})
        QCOMPARE(json[QLatin1String(unknown)], QJsonValue());
    QCOMPARE(treeWithContents(tool.path()), before);
}

void VornfhStatusTest::showsTheConfiguredStorages()
{
    const ToolRun tool;
    const QJsonArray two =
        tool.run({"--usb", "@/usb/DCIM", "--mmc", "@/mmc/DCIM", "status", "--json"}).json().array();
    QCOMPARE(two.size(), 2);
    QCOMPARE(two.at(0).toObject()["storage"].toString(), QString("mmc"));
    QCOMPARE(two.at(1).toObject()["location"].toString(), tool.path() + "/usb/DCIM");
    QCOMPARE(tool.run({"status", "--json"}).json().array().size(), 3);
    QCOMPARE(tree(tool.path()), Tree());
}

void VornfhStatusTest::refusesWrongStorages_data()
{
    QTest::addColumn<QByteArray>("storage");
    QTest::addColumn<QByteArray>("message");
    QTest::newRow("not-configured") << QByteArray("usb") << messages::notConfigured("usb");
    QTest::newRow("unknown") << QByteArray("card") << messages::unknownStorage("card");
}

void VornfhStatusTest::refusesWrongStorages()
{
    QFETCH(QByteArray, storage);
    QFETCH(QByteArray, message);
    const ToolRun tool;
    QCOMPARE(tool.run({"--sd", "@/sd/DCIM", "status", storage}), tool.usageError({message}));
}

void VornfhStatusTest::showsTheOtherStoragesIfOneIsUnreadable()
{
    ToolRun tool;
    if (!tool.dropPrivileges())
        QSKIP("the tool cannot run as another user");
    tool.make({"mmc/DCIM/100ABC/", "sd/DCIM/100ABC/", "usb/DCIM/100ABC/"});
    const FolderMode unreadable(tool.sd(), 0);
    const QByteArray err = tool.expand(errorLines({"@/sd/DCIM: Permission denied"}));
    const Outcome text = tool.runOnStorages({"status"});
    QVERIFY2(text.out.contains("mmc: ") && text.out.contains("usb: ") && !text.out.contains("sd: "),
             text.out.constData());
    QCOMPARE(text.err, err);
    QCOMPARE(text.exitCode, 1);
    const Outcome json = tool.runOnStorages({"status", "--json"});
    QCOMPARE(json.json().array().size(), 2);
    QCOMPARE(json.err, err);
    QCOMPARE(json.exitCode, 1);
}

void VornfhStatusTest::reportsAMissingProgram()
{
    const StandIns noPrograms(StandIns::Alone);
    const ToolRun tool;
    tool.make({"sd/DCIM/"});
    const QByteArray reason = "sh is not on PATH";
    const QByteArray out = tool.runOnStorages({"--sd-block", "vda", "status", "sd"}).out;
    QVERIFY2(out.contains("  block device    vda, presence unknown: " + reason + "\n"), out.constData());
    QVERIFY2(out.contains("  space           unknown: " + reason + "\n"), out.constData());
    QCOMPARE(firstOf(tool.runOnStorages({"--sd-block", "vda", "status", "sd", "--json"}))["present"],
             QJsonValue());
    QCOMPARE(tool.runOnStorages({"--sd-block", "vda", "mkdir", "sd", "MISC"}),
             tool.failure({"@/sd/DCIM: cannot check whether vda is present: " + reason}));
}

void VornfhStatusTest::printsNoWarningForASuffixThatIsNotAPattern()
{
    const ToolRun tool;
    tool.make(onCard({"100A[/DCF_0005.jpg", "101A[/"}));
    const Outcome outcome = tool.run({"--suffix", "A[", "--sd", "@/sd/DCIM", "status", "sd"});
    QCOMPARE(outcome.exitCode, 0);
    QCOMPARE(outcome.err, QByteArray());
    // The library lists no folder, so that folder 100 is the current one.
    QVERIFY2(outcome.out.contains(tool.expand("  next photo      @/sd/DCIM/100A[/DCF_0006.jpg\n")),
             outcome.out);
}

void VornfhStatusTest::findsTheBlockDeviceOfTheLocation()
{
    const ToolRun tool;
    const QByteArray device = deviceOf(tool.path());
    const QByteArray name = device.mid(device.lastIndexOf('/') + 1);
    if (!device.startsWith("/dev/") || !tool.content("/proc/partitions").contains(" " + name + "\n"))
        QSKIP("the temporary directory is not on a block device");
    const QJsonObject json = firstOf(tool.runOnStorages({"status", "sd", "--json"}));
    QCOMPARE(json["block"].toString(), QString(name));
    QCOMPARE(json["present"], QJsonValue(true));
    QCOMPARE(tree(tool.path()), Tree());
}

void VornfhStatusTest::showsTheSpaceOfACard()
{
    const ToolRun tool;
    LoopCard card(tool);
    const QByteArray block = card.mount(tool.path() + "/sd");
    if (block.isEmpty())
        QSKIP("mounting a loop device needs root");
    writeFile(tool.sd() + "/100ABC/DCF_0001.avi", QByteArray(3 << 20, 'x'));
    ::sync();
    const QJsonObject json = firstOf(tool.runOnStorages({"--sd-block", block, "status", "sd", "--json"}));
    struct statvfs space = {};
    QCOMPARE(::statvfs(QFile::encodeName(tool.sd()).constData(), &space), 0);
    const auto size = static_cast<double>(space.f_blocks * space.f_frsize);
    const auto free = static_cast<double>(space.f_bavail * space.f_frsize);
    QCOMPARE(json["size"].toDouble(), size);
    QCOMPARE(json["free"].toDouble(), free);
    QCOMPARE(json["used"].toDouble(), size - free);
    QCOMPARE(json["freePercent"].toInt(), qRound(free / size * 100));
    QCOMPARE(json["block"].toString(), QString(block));
    QCOMPARE(json["mounted"], QJsonValue(true));
    QCOMPARE(json["mountPoint"].toString(), tool.path() + "/sd");
    QCOMPARE(json["fileSystem"].toString(), QString("ext4"));
    QCOMPARE(json["readOnly"], QJsonValue(false));
    QCOMPARE(json["spaceElsewhere"], QJsonValue(false));

    // Without --sd-block the tool finds the block device itself.
    const QByteArray out = tool.runOnStorages({"status", "sd"}).out;
    QVERIFY2(out.contains("  block device    " + block + ", present\n"), out.constData());
    QVERIFY2(out.contains(tool.expand("  mounted         yes, at @/sd\n")), out.constData());
    QVERIFY2(out.contains("] " + QByteArray::number(100 - qRound(free / size * 100)) + "% used: "),
             out.constData());
}

void VornfhStatusTest::reportsThatTheCardIsNotMounted()
{
    const ToolRun tool;
    if (!isOnRootFileSystem(tool.path()))
        QSKIP("the temporary directory is not on the root file system");
    LoopCard card(tool);
    const QByteArray block = card.mount(tool.path() + "/sd");
    if (block.isEmpty())
        QSKIP("mounting a loop device needs root");
    // A second mount keeps the device present.
    tool.make({"elsewhere/"});
    const QByteArray from = QFile::encodeName(tool.path() + "/sd");
    const QByteArray to = QFile::encodeName(tool.path() + "/elsewhere");
    QCOMPARE(::mount(from.constData(), to.constData(), nullptr, MS_BIND, nullptr), 0);
    card.unmount();
    const Outcome status = tool.runOnStorages({"--sd-block", block, "status", "sd"});
    const Outcome mkdir = tool.runOnStorages({"--sd-block", block, "mkdir", "sd", "MISC"});
    QList<Outcome> listings;
    for (const QByteArray command : {"list", "folders", "count"})
        listings.append(tool.runOnStorages({"--sd-block", block, command, "sd"}));
    ::umount2(to.constData(), 0);
    QVERIFY2(status.out.contains("  mounted         no: " + block
                                 + " is not mounted; the location is on the root file system\n"),
             status.out.constData());
    const Outcome notMounted = tool.failure(
        {"@/sd/DCIM: " + block + " is not mounted there; the folder is on the root file system"});
    QCOMPARE(mkdir, notMounted);
    for (const Outcome &listing : listings)
        QCOMPARE(listing, notMounted);
    QVERIFY(!QFile::exists(tool.sd()));
}

void VornfhStatusTest::reportsTheSpaceOfAnotherFileSystem()
{
    const ToolRun tool;
    LoopCard card(tool);
    tool.make({"sd/DCIM/"});
    if (card.mount(tool.sd()).isEmpty())
        QSKIP("mounting a loop device needs root");
    const QByteArray out = tool.runOnStorages({"status", "sd"}).out;
    QVERIFY2(out.contains(tool.expand("measured at @/sd/, on a different file system from the location\n")),
             out.constData());
    const QJsonObject json = firstOf(tool.runOnStorages({"status", "sd", "--json"}));
    QCOMPARE(json["spaceElsewhere"], QJsonValue(true));
    QCOMPARE(json["spacePath"].toString(), tool.path() + "/sd/");
    QCOMPARE(json["mountPoint"].toString(), tool.sd());
}

void VornfhStatusTest::reportsThatTheCardIsReadOnly()
{
    const ToolRun tool;
    LoopCard card(tool);
    if (card.mount(tool.path() + "/sd", "loop,ro").isEmpty())
        QSKIP("mounting a loop device needs root");
    QVERIFY(tool.runOnStorages({"status", "sd"}).out.contains("  file system     ext4, read-only\n"));
    QCOMPARE(firstOf(tool.runOnStorages({"status", "sd", "--json"}))["readOnly"], QJsonValue(true));
}

QTEST_GUILESS_MAIN(VornfhStatusTest)
#include "tst_vornfh_status.moc"

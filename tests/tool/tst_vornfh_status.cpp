// SPDX-License-Identifier: MIT
#include "surroundings.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QStorageInfo>
#include <QtTest>

#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/statvfs.h>

namespace {

using Words = QList<QByteArray>;

QJsonArray jsonOf(const Outcome &outcome)
{
    return QJsonDocument::fromJson(outcome.out).array();
}

/// What the lines about mount and file system say on the machine that runs the test.
QByteArray expectedMount(const QString &path)
{
    struct stat root = {};
    struct stat status = {};
    ::stat("/", &root);
    ::stat(QFile::encodeName(path).constData(), &status);
    const QByteArray place = QStorageInfo(path).rootPath().toUtf8();
    return root.st_dev == status.st_dev ? QByteArray("no: the location lies on the root file system")
                                        : "yes, at " + place;
}

/// An ext4 file system on a loop device. The mount sets it to go when it is unmounted.
class LoopCard
{
public:
    explicit LoopCard(const ToolRun &tool) : mTool(tool), mPath(tool.path() + "/sd")
    {
        const QString image = tool.path() + "/card.img";
        writeFile(image);
        QDir().mkpath(mPath);
        mIsMade = ::truncate(QFile::encodeName(image).constData(), 16 << 20) == 0
                  && tool.runProgram("mkfs.ext4", {"-q", "-F", image}).exitCode == 0;
    }
    ~LoopCard() { unmount(); }
    LoopCard(const LoopCard &) = delete;
    LoopCard &operator=(const LoopCard &) = delete;

    /// The name of the loop device; empty where it cannot be mounted.
    QByteArray mount(const QString &path, const QString &options = "loop")
    {
        mPath = path;
        mIsMounted =
            mIsMade
            && mTool.runProgram("mount", {"-o", options, mTool.path() + "/card.img", path}).exitCode == 0;
        return mIsMounted ? QByteArray(QStorageInfo(path).device()).mid(5) : QByteArray();
    }
    void unmount()
    {
        if (mIsMounted)
            ::umount2(QFile::encodeName(mPath).constData(), 0);
        mIsMounted = false;
    }

private:
    const ToolRun &mTool;
    QString mPath;
    bool mIsMade = false;
    bool mIsMounted = false;
};

} // namespace

class VornfhStatusTest : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase() { mHasMounts = hasOwnMounts(); }

    void showsFoldersAndCreatesNothing_data();
    void showsFoldersAndCreatesNothing();
    void showsTheStoragesThatAreConfigured();
    void refusesAStorageThatIsNotConfigured_data();
    void refusesAStorageThatIsNotConfigured();
    void showsTheOthersWhereOneCannotBeRead();
    void saysWhichProgramIsMissing();
    void takesTheBlockDeviceOfTheLocation();
    void tellsTheSpaceOfACard();
    void tellsThatTheCardIsNotMounted();
    void tellsThatTheSpaceIsThatOfAnotherFileSystem();
    void tellsThatTheCardIsReadOnly();

private:
    bool mHasMounts = false;
};

void VornfhStatusTest::showsFoldersAndCreatesNothing_data()
{
    QTest::addColumn<Words>("before");
    QTest::addColumn<QByteArray>("current");
    QTest::addColumn<QByteArray>("next");
    QTest::addColumn<int>("count");
    QTest::addColumn<QByteArray>("err");

    const QByteArray fresh = "not created yet";
    QTest::newRow("nothing-there") << Words{} << fresh << QByteArray("100ABC/DCF_0001.jpg") << 0
                                   << QByteArray();
    QTest::newRow("location-only") << Words{"sd/DCIM/"} << fresh << QByteArray("100ABC/DCF_0001.jpg") << 0
                                   << QByteArray();
    QTest::newRow("other-folder") << Words{"sd/DCIM/MISC/a.jpg"} << fresh << QByteArray("100ABC/DCF_0001.jpg")
                                  << 0 << QByteArray();
    QTest::newRow("file-in-place-of-the-location")
        << Words{"sd/DCIM"} << fresh << QByteArray("100ABC/DCF_0001.jpg") << 0 << QByteArray();
    QTest::newRow("recordings") << Words{"sd/DCIM/100ABC/DCF_0007.jpg", "sd/DCIM/101ABC/DCF_0002.avi",
                                         "sd/DCIM/101ABC/DCF_0002.thumb"}
                                << QByteArray("@/sd/DCIM/101ABC") << QByteArray("101ABC/DCF_0003.jpg") << 2
                                << QByteArray();
    QTest::newRow("folder-full") << Words{"sd/DCIM/100ABC/DCF_9999.jpg"} << QByteArray("@/sd/DCIM/100ABC")
                                 << QByteArray("101ABC/DCF_0001.jpg") << 1 << QByteArray();
    QTest::newRow("last-folder-full")
        << Words{"sd/DCIM/999ABC/DCF_9999.jpg"} << QByteArray("@/sd/DCIM/999ABC")
        << QByteArray("999ABC/DCF_0001.jpg") << 1 << QByteArray();
    QTest::newRow("odd-folder") << Words{"sd/DCIM/100ABC/", "sd/DCIM/XABC/"} << QByteArray("@/sd/DCIM/100ABC")
                                << QByteArray("100ABC/DCF_0001.jpg") << 0
                                << diagnosticLine(
                                       "directory is not a number, continue to check remaining directories");
}

void VornfhStatusTest::showsFoldersAndCreatesNothing()
{
    QFETCH(Words, before);
    QFETCH(QByteArray, current);
    QFETCH(QByteArray, next);
    QFETCH(int, count);
    QFETCH(QByteArray, err);
    ToolRun tool;
    make(tool, before);
    const auto contents = tool.contents();
    const QByteArray expected = "sd: @/sd/DCIM\n"
                                "  block device    nosuchdevice, not present\n"
                                "  mounted         "
                                + expectedMount(tool.path()) + "\n  file system     "
                                + QStorageInfo(tool.path()).fileSystemType()
                                + "\n  space           unknown: nosuchdevice is not present\n"
                                  "  current folder  "
                                + current + "\n  next photo      @/sd/DCIM/" + next + "\n  media files     "
                                + QByteArray::number(count) + "\n";
    const QByteArray mount = tool.expand(expected).replace(
        "no: the location lies", "no: nosuchdevice is not mounted, the location lies");
    const Outcome outcome = tool.runOnStorages({"--sd-block", "nosuchdevice", "status", "sd"});
    QVERIFY2(outcome.out == mount || outcome.out == tool.expand(expected), outcome.out.constData());
    QCOMPARE(outcome.exitCode, 0);
    QCOMPARE(outcome.err, err);
    QCOMPARE(tool.contents(), contents);

    const QJsonObject json =
        jsonOf(tool.runOnStorages({"--sd-block", "nosuchdevice", "status", "--json", "sd"})).at(0).toObject();
    QCOMPARE(json["created"].toBool(), current != "not created yet");
    QCOMPARE(json["currentFolder"],
             current == "not created yet" ? QJsonValue() : QJsonValue(QString(tool.expand(current))));
    QCOMPARE(json["nextPath"].toString(), QString(tool.expand("@/sd/DCIM/" + next)));
    QCOMPARE(json["mediaCount"].toInt(-1), count);
    QCOMPARE(json["present"], QJsonValue(false));
    for (const char *unknown : {"size", "free", "used", "freePercent", "spaceElsewhere"})
        QCOMPARE(json[QLatin1String(unknown)], QJsonValue());
    QCOMPARE(tool.contents(), contents);
}

void VornfhStatusTest::showsTheStoragesThatAreConfigured()
{
    ToolRun tool;
    const QJsonArray two =
        jsonOf(tool.run({"--usb", "@/usb/DCIM", "--mmc", "@/mmc/DCIM", "status", "--json"}));
    QCOMPARE(two.size(), 2);
    QCOMPARE(two.at(0).toObject()["storage"].toString(), QString("mmc"));
    QCOMPARE(two.at(1).toObject()["location"].toString(), tool.path() + "/usb/DCIM");
    QCOMPARE(jsonOf(tool.run({"status", "--json"})).size(), 3);
    QCOMPARE(tree(tool.path()), Words());
}

void VornfhStatusTest::refusesAStorageThatIsNotConfigured_data()
{
    QTest::addColumn<QByteArray>("storage");
    QTest::addColumn<QByteArray>("err");
    QTest::newRow("not-configured") << QByteArray("usb")
                                    << QByteArray("vornfh: storage usb is not configured\n");
    QTest::newRow("no-storage") << QByteArray("card")
                                << QByteArray("vornfh: STORAGE: 'card' is not one of mmc, sd, usb\n");
}

void VornfhStatusTest::refusesAStorageThatIsNotConfigured()
{
    QFETCH(QByteArray, storage);
    QFETCH(QByteArray, err);
    const ToolRun tool;
    QCOMPARE(tool.run({"--sd", "@/sd/DCIM", "status", storage}), (Outcome{2, "", err}));
}

void VornfhStatusTest::showsTheOthersWhereOneCannotBeRead()
{
    ToolRun tool;
    if (!tool.dropPrivileges())
        QSKIP("the tool cannot be run as another user");
    make(tool, {"mmc/DCIM/100ABC/", "sd/DCIM/100ABC/", "usb/DCIM/100ABC/"});
    const FolderMode unreadable(tool.sd(), 0);
    const QByteArray err = tool.expand("vornfh: @/sd/DCIM: Permission denied\n");
    const Outcome text = tool.runOnStorages({"status"});
    QVERIFY2(text.out.contains("mmc: ") && text.out.contains("usb: ") && !text.out.contains("sd: "),
             text.out.constData());
    QCOMPARE(text.err, err);
    QCOMPARE(text.exitCode, 1);
    const Outcome json = tool.runOnStorages({"status", "--json"});
    QCOMPARE(jsonOf(json).size(), 2);
    QCOMPARE(json.err, err);
    QCOMPARE(json.exitCode, 1);
}

void VornfhStatusTest::saysWhichProgramIsMissing()
{
    ToolRun tool;
    make(tool, {"sd/DCIM/"});
    tool.environment.insert("PATH", tool.path() + "/nowhere");
    const Words command = {"--sd-block", "vda", "status", "sd"};
    const Outcome text = tool.runOnStorages(command);
    QVERIFY2(text.out.contains("  block device    vda, presence unknown: sh is not on the search path\n"),
             text.out.constData());
    QVERIFY2(text.out.contains("  space           unknown: sh is not on the search path\n"),
             text.out.constData());
    QCOMPARE(jsonOf(tool.runOnStorages(command + Words{"--json"})).at(0).toObject()["present"], QJsonValue());
    QCOMPARE(tool.runOnStorages({"--sd-block", "vda", "mkdir", "sd", "MISC"}),
             (Outcome{1, "",
                      tool.expand("vornfh: @/sd/DCIM: cannot tell whether vda is present: sh is not on the "
                                  "search path\n")}));
}

void VornfhStatusTest::takesTheBlockDeviceOfTheLocation()
{
    ToolRun tool;
    const QByteArray device = QStorageInfo(tool.path()).device();
    const QByteArray name = device.mid(device.lastIndexOf('/') + 1);
    const QByteArray partitions = tool.content("/proc/partitions");
    const bool isListed = partitions.contains(" " + name + "\n");
    const QJsonObject json = jsonOf(tool.runOnStorages({"status", "sd", "--json"})).at(0).toObject();
    if (!device.startsWith("/dev/") || !isListed)
        QSKIP("the temporary directory lies on no block device of its own");
    QCOMPARE(json["block"].toString(), QString(name));
    QCOMPARE(json["present"], QJsonValue(true));
    QCOMPARE(tree(tool.path()), Words());
}

void VornfhStatusTest::tellsTheSpaceOfACard()
{
    ToolRun tool;
    LoopCard card(tool);
    const QByteArray block = mHasMounts ? card.mount(tool.path() + "/sd") : QByteArray();
    if (block.isEmpty())
        QSKIP("mounting a loop device needs root");
    make(tool, {"sd/DCIM/100ABC/"});
    writeFile(tool.sd() + "/100ABC/DCF_0001.avi", QByteArray(3 << 20, 'x'));
    ::sync();
    const QJsonObject json =
        jsonOf(tool.runOnStorages({"--sd-block", block, "status", "sd", "--json"})).at(0).toObject();
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

    const QByteArray text = tool.runOnStorages({"status", "sd"}).out; // the block device found by itself
    QVERIFY2(text.contains("  block device    " + block + ", present\n"), text.constData());
    QVERIFY2(text.contains(tool.expand("  mounted         yes, at @/sd\n")), text.constData());
    QVERIFY2(text.contains("] " + QByteArray::number(100 - qRound(free / size * 100)) + " % used: "),
             text.constData());
}

void VornfhStatusTest::tellsThatTheCardIsNotMounted()
{
    ToolRun tool;
    struct stat root = {};
    struct stat own = {};
    if (::stat("/", &root) != 0 || ::stat(QFile::encodeName(tool.path()).constData(), &own) != 0
        || root.st_dev != own.st_dev)
        QSKIP("the temporary directory does not lie on the root file system");
    LoopCard card(tool);
    const QByteArray block = mHasMounts ? card.mount(tool.path() + "/sd") : QByteArray();
    if (block.isEmpty())
        QSKIP("mounting a loop device needs root");
    // The device stays present, mounted at another place.
    QDir().mkpath(tool.path() + "/elsewhere");
    const QByteArray from = QFile::encodeName(tool.path() + "/sd");
    const QByteArray to = QFile::encodeName(tool.path() + "/elsewhere");
    QCOMPARE(::mount(from.constData(), to.constData(), nullptr, MS_BIND, nullptr), 0);
    card.unmount();
    const Outcome outcome = tool.runOnStorages({"--sd-block", block, "status", "sd"});
    const Outcome copy = tool.runOnStorages({"--sd-block", block, "mkdir", "sd", "MISC"});
    ::umount2(to.constData(), 0);
    QVERIFY2(outcome.out.contains("  mounted         no: " + block
                                  + " is not mounted, the location lies on the root file system\n"),
             outcome.out.constData());
    QCOMPARE(copy, (Outcome{1, "",
                            tool.expand("vornfh: @/sd/DCIM: lies on the root file system: " + block
                                        + " is not mounted there\n")}));
    QVERIFY(!QFile::exists(tool.sd()));
}

void VornfhStatusTest::tellsThatTheSpaceIsThatOfAnotherFileSystem()
{
    ToolRun tool;
    LoopCard card(tool);
    QDir().mkpath(tool.sd());
    const QByteArray block = mHasMounts ? card.mount(tool.sd()) : QByteArray();
    if (block.isEmpty())
        QSKIP("mounting a loop device needs root");
    const QByteArray text = tool.runOnStorages({"status", "sd"}).out;
    QVERIFY2(text.contains(tool.expand("that is @/sd/, another file system than the location's\n")),
             text.constData());
    const QJsonObject json = jsonOf(tool.runOnStorages({"status", "sd", "--json"})).at(0).toObject();
    QCOMPARE(json["spaceElsewhere"], QJsonValue(true));
    QCOMPARE(json["spacePath"].toString(), tool.path() + "/sd/");
    QCOMPARE(json["mountPoint"].toString(), tool.sd());
}

void VornfhStatusTest::tellsThatTheCardIsReadOnly()
{
    ToolRun tool;
    LoopCard card(tool);
    const QByteArray block = mHasMounts ? card.mount(tool.path() + "/sd", "loop,ro") : QByteArray();
    if (block.isEmpty())
        QSKIP("mounting a loop device needs root");
    QVERIFY(tool.runOnStorages({"status", "sd"}).out.contains("  file system     ext4, read-only\n"));
    QCOMPARE(jsonOf(tool.runOnStorages({"status", "sd", "--json"})).at(0).toObject()["readOnly"],
             QJsonValue(true));
}

QTEST_GUILESS_MAIN(VornfhStatusTest)
#include "tst_vornfh_status.moc"

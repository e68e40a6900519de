// SPDX-License-Identifier: MIT
#include "media.h"
#include "standins.h"
#include "toolsupport.h"

#include <QFile>
#include <QJsonArray>
#include <QJsonObject>
#include <QSet>
#include <QStorageInfo>
#include <QTest>

#include <fcntl.h>
#include <sys/file.h>
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

/// @p folder in place of /sys/class/block for the lifetime of the object.
class BlockAttributes
{
public:
    explicit BlockAttributes(const QString &folder)
        : mIsMounted(hasOwnMounts()
                     && ::mount(QFile::encodeName(folder).constData(), PLACE, nullptr, MS_BIND, nullptr) == 0)
    {
    }
    ~BlockAttributes()
    {
        if (mIsMounted)
            ::umount2(PLACE, MNT_DETACH);
    }
    BlockAttributes(const BlockAttributes &) = delete;
    BlockAttributes &operator=(const BlockAttributes &) = delete;

    bool isMounted() const { return mIsMounted; }

private:
    static constexpr char PLACE[] = "/sys/class/block";
    bool mIsMounted;
};

/// The value of the line @p name of the status; empty if there is none.
QByteArray lineOf(const Outcome &outcome, const QByteArray &name)
{
    for (const QByteArray &line : outcome.out.split('\n')) {
        if (line.startsWith("  " + name.leftJustified(14) + "  "))
            return line.mid(18);
    }
    return QByteArray();
}

/// The bytes that are free on the file system of @p path, which reserves none.
qint64 freeOn(const QString &path)
{
    struct statvfs space = {};
    require(::statvfs(QFile::encodeName(path).constData(), &space) == 0, "statvfs");
    return static_cast<qint64>(space.f_bavail * space.f_frsize);
}

/// A card of 8 MiB in memory, with @p entries in its folders. Files that are given a size are sparse and take
/// no space.
class MemoryCard
{
public:
    MemoryCard(const ToolRun &tool, const Tree &entries)
        : mIsThere(hasOwnMounts() && (tool.make({"sd/"}), true)), mMount(tool.path() + "/sd", "size=8m")
    {
        if (isMounted())
            tool.make(onCard(entries));
    }
    bool isMounted() const { return mIsThere && mMount.isMounted(); }
    bool makeReadOnly() const { return mMount.makeReadOnly(); }

private:
    const bool mIsThere;
    const TmpfsMount mMount;
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
    void showsStoragesThatAreUnreadable();
    void givesAVerdict_data();
    void givesAVerdict();
    void isFullIfTheLargestOfTheLastObjectsDoesNotFit_data();
    void isFullIfTheLargestOfTheLastObjectsDoesNotFit();
    void isReadOnlyBeforeItIsFull();
    void isFullIfThereIsNotEnoughSpaceToRecord();
    void countsObjects();
    void estimatesWhatFits_data();
    void estimatesWhatFits();
    void estimatesTheMinutesOfVideo_data();
    void estimatesTheMinutesOfVideo();
    void measuresRealVideos();
    void saysThatMinutesCannotBeMeasured_data();
    void saysThatMinutesCannotBeMeasured();
    void showsTheLargestFile_data();
    void showsTheLargestFile();
    void showsTheWearOfAnEmmc_data();
    void showsTheWearOfAnEmmc();
    void hintsAtRepair_data();
    void hintsAtRepair();
    void suggestsNoRepairOfWhatIsBeingWritten();
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
    QTest::addColumn<int>("count"); // of media files, and of objects
    QTest::addColumn<int>("left");
    QTest::addColumn<QByteArray>("err");
    const auto row = [](const char *name, const Tree &entries, const char *current, const char *next,
                        int count, int left, const QByteArray &err = {}) {
        QTest::newRow(name) << entries << QByteArray(current) << QByteArray(next) << count << left << err;
    };
    constexpr int ALL = 900 * 9999;
    row("missing-location", {}, "", "100ABC/DCF_0001.jpg", 0, ALL);
    row("location-only", onCard({}), "", "100ABC/DCF_0001.jpg", 0, ALL);
    row("other-folder", onCard({"MISC/a.jpg"}), "", "100ABC/DCF_0001.jpg", 0, ALL);
    row("file-as-location", {"sd/DCIM"}, "", "100ABC/DCF_0001.jpg", 0, ALL);
    row("recordings", onCard({"100ABC/DCF_0007.jpg", "101ABC/DCF_0002.avi", "101ABC/DCF_0002.thumb"}),
        "101ABC", "101ABC/DCF_0003.jpg", 2, ALL - 9999 - 2);
    row("folder-full", onCard({"100ABC/DCF_9999.jpg"}), "100ABC", "101ABC/DCF_0001.jpg", 1, ALL - 9999);
    row("last-folder-full", onCard({"999ABC/DCF_9999.jpg"}), "999ABC", "999ABC/DCF_0001.jpg", 1, 0);
    row("largest-folder-full", onCard({"2147483647ABC/DCF_9999.jpg"}), "2147483647ABC",
        "2147483647ABC/DCF_0001.jpg", 1, 0);
    row("folder-without-a-number", onCard({"100ABC/", "XABC/"}), "100ABC", "100ABC/DCF_0001.jpg", 0, ALL,
        withoutColours(noFolderNumberLine()));
}

void VornfhStatusTest::showsFoldersAndCreatesNothing()
{
    QFETCH(Tree, entries);
    QFETCH(QByteArray, current);
    QFETCH(QByteArray, next);
    QFETCH(int, count);
    QFETCH(int, left);
    QFETCH(QByteArray, err);
    const ToolRun tool;
    tool.make(entries);
    const Tree before = treeWithContents(tool.path());
    const QStorageInfo fileSystem(tool.path());
    const QByteArray mounted = isOnRootFileSystem(tool.path())
                                   ? QByteArray("no: the location is on the root file system")
                                   : "yes, at " + fileSystem.rootPath().toUtf8();
    const QByteArray out = "sd: @/sd/DCIM\n"
                           "  verdict         absent: nosuchdevice is not present\n"
                           "  block device    nosuchdevice, not present\n"
                           "  mounted         "
                           + mounted + "\n  file system     " + fileSystem.fileSystemType()
                           + "\n  space           unknown: nosuchdevice is not present\n"
                             "  current folder  "
                           + (current.isEmpty() ? "not created yet" : "@/sd/DCIM/" + current)
                           + "\n  next photo      @/sd/DCIM/" + next + "\n  media files     "
                           + QByteArray::number(count) + "\n  objects         " + QByteArray::number(count)
                           + ", 0 protected\n  numbers left    " + QByteArray::number(left) + "\n";
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
    QCOMPARE(json["objects"].toInt(-1), count);
    QCOMPARE(json["numbersLeft"].toInt(-1), left);
    QCOMPARE(json["present"], QJsonValue(false));
    for (const char *unknown :
         {"size", "free", "used", "freePercent", "spaceElsewhere", "photosLeft", "videosLeft", "audioLeft",
          "videoMinutesLeft", "videoBitrate", "largestFile", "wear"})
        QCOMPARE(json.value(QLatin1String(unknown)), QJsonValue());
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
    row("not-configured", QByteArray("usb"), messages::notConfigured("usb"));
    row("unknown", QByteArray("card"), messages::unknownStorage("card"));
}

void VornfhStatusTest::refusesWrongStorages()
{
    QFETCH(QByteArray, storage);
    QFETCH(QByteArray, message);
    const ToolRun tool;
    QCOMPARE(tool.run({"--sd", "@/sd/DCIM", "status", storage}), tool.usageError({message}));
}

void VornfhStatusTest::showsStoragesThatAreUnreadable()
{
    ToolRun tool;
    if (!tool.dropPrivileges())
        QSKIP("the tool cannot run as another user");
    tool.make({"mmc/DCIM/100ABC/", "sd/DCIM/100ABC/", "usb/DCIM/100ABC/"});
    const FolderMode unreadable(tool.sd(), 0);
    const QByteArray err = tool.expand(errorLines({"@/sd/DCIM: Permission denied"}));
    const Outcome text = tool.runOnStorages({"status"});
    QVERIFY2(text.out.contains("mmc: ") && text.out.contains("usb: "), text.out.constData());
    QVERIFY2(text.out.contains(tool.expand("sd: @/sd/DCIM\n"
                                           "  verdict         unreadable: @/sd/DCIM: Permission denied\n")),
             text.out.constData());
    QCOMPARE(text.out.count("  next photo "), 2);
    QCOMPARE(text.err, err);
    QCOMPARE(text.exitCode, 1);
    const Outcome json = tool.runOnStorages({"status", "--json"});
    QCOMPARE(json.json().array().size(), 3);
    QCOMPARE(json.err, err);
    QCOMPARE(json.exitCode, 1);
    const QJsonObject object = json.json().array().at(1).toObject();
    QCOMPARE(object.keys(), json.json().array().at(0).toObject().keys());
    QCOMPARE(object["verdict"].toString(), QString("unreadable"));
    QCOMPARE(object["reason"].toString(), tool.sd() + ": Permission denied");
    for (const char *unknown : {"created", "currentFolder", "nextPath", "mediaCount", "objects",
                                "protectedObjects", "numbersLeft", "repairable", "photosLeft"})
        QCOMPARE(object.value(QLatin1String(unknown)), QJsonValue());
}

void VornfhStatusTest::givesAVerdict_data()
{
    QTest::addColumn<Tree>("entries");
    QTest::addColumn<QByteArrayList>("options");
    QTest::addColumn<QString>("verdict");
    QTest::addColumn<QByteArray>("reason");
    QTest::addColumn<int>("exitCode");
    const auto row = [](const char *name, const Tree &entries, const char *verdict,
                        const QByteArray &reason = {}, int exitCode = 0, const QByteArrayList &options = {}) {
        QTest::newRow(name) << entries << options << QString(verdict) << reason << exitCode;
    };
    row("missing-location", {}, "ok");
    row("location-only", onCard({}), "ok");
    row("recordings", onCard({"100ABC/DCF_0001.jpg = x"}), "ok");
    row("other-things", onCard({"MISC/a.jpg = x", "b.txt = x"}), "ok");
    row("no-number-left", onCard({"999ABC/DCF_9999.jpg = x"}), "full", "no numbers are left");
    row("absent", onCard({}), "absent", "nosuchdevice is not present", 0, {"--sd-block", "nosuchdevice"});
    row("absent-and-no-number-left", onCard({"999ABC/DCF_9999.jpg"}), "absent", "nosuchdevice is not present",
        0, {"--sd-block", "nosuchdevice"});
    row("file-as-location", {"sd/DCIM = x"}, "unreadable", "@/sd/DCIM: is not a folder", 1);
    row("file-above-the-location", {"sd = x"}, "unreadable", "@/sd: is not a folder", 1);
}

void VornfhStatusTest::givesAVerdict()
{
    QFETCH(Tree, entries);
    QFETCH(QByteArrayList, options);
    QFETCH(QString, verdict);
    QFETCH(QByteArray, reason);
    QFETCH(int, exitCode);
    const ToolRun tool;
    tool.make(entries);
    const Tree before = treeWithContents(tool.path());
    const Outcome text = tool.runOnStorages(options + QByteArrayList{"status", "sd"});
    const QByteArray rest = reason.isEmpty() ? QByteArray() : ": " + reason;
    const QByteArray start = "sd: @/sd/DCIM\n  verdict         " + verdict.toUtf8() + rest + "\n";
    QVERIFY2(text.out.startsWith(tool.expand(start)), text.out.constData());
    QCOMPARE(text.exitCode, exitCode);
    QCOMPARE(text.err, exitCode == 0 ? QByteArray() : tool.expand(errorLines({reason})));
    const Outcome json = tool.runOnStorages(options + QByteArrayList{"status", "sd", "--json"});
    QCOMPARE(firstOf(json)["verdict"].toString(), verdict);
    QCOMPARE(firstOf(json)["reason"].toString().toUtf8(), tool.expand(reason));
    QCOMPARE(firstOf(json)["reason"].isNull(), reason.isEmpty());
    QCOMPARE(json.exitCode, exitCode);
    QCOMPARE(treeWithContents(tool.path()), before);
}

void VornfhStatusTest::isFullIfTheLargestOfTheLastObjectsDoesNotFit_data()
{
    QTest::addColumn<Tree>("entries");
    QTest::addColumn<QByteArray>("verdict");
    const auto row = [](const char *name, const Tree &entries, const QByteArray &verdict) {
        QTest::newRow(name) << entries << verdict;
    };
    Tree many = {"100ABC/DCF_0001.avi size 9000000"};
    for (int i = 2; i <= 100; ++i)
        many.append("100ABC/DCF_" + QByteArray::number(i).rightJustified(4, '0') + ".jpg size 1000");
    const QByteArray full = "full: 8.0 MiB free, but the largest of the last recordings is 8.6 MiB";
    row("fits", {"100ABC/DCF_0001.avi size 7000000"}, "ok");
    row("does-not-fit", {"100ABC/DCF_0001.avi size 9000000", "100ABC/DCF_0002.jpg size 1000"}, full);
    row("with-its-thumbnail", {"100ABC/DCF_0001.avi size 4500000", "100ABC/DCF_0001.thumb size 4500000"},
        full);
    row("largest-is-the-last-of-100", many, full);
    row("largest-is-older", many + Tree{"101ABC/DCF_0001.jpg size 1000"}, "ok");
}

void VornfhStatusTest::isFullIfTheLargestOfTheLastObjectsDoesNotFit()
{
    QFETCH(Tree, entries);
    QFETCH(QByteArray, verdict);
    const ToolRun tool;
    const MemoryCard card(tool, entries);
    if (!card.isMounted())
        QSKIP("mounting needs root");
    QCOMPARE(lineOf(tool.runOnStorages({"status", "sd"}), "verdict"), verdict);
}

void VornfhStatusTest::isReadOnlyBeforeItIsFull()
{
    const ToolRun tool;
    const MemoryCard card(tool, {"100ABC/DCF_0001.jpg = x"});
    if (!card.isMounted())
        QSKIP("mounting needs root");
    QFile file(tool.path() + "/sd/filler");
    QVERIFY(file.open(QIODevice::WriteOnly | QIODevice::Unbuffered));
    while (file.write(QByteArray(4096, 'x')) == 4096)
        continue;
    file.close();
    QCOMPARE(lineOf(tool.runOnStorages({"status", "sd"}), "verdict"), QByteArray("full: no space is left"));
    QVERIFY(card.makeReadOnly());
    QCOMPARE(lineOf(tool.runOnStorages({"status", "sd"}), "verdict"),
             QByteArray("read-only: the file system is mounted read-only"));
}

void VornfhStatusTest::isFullIfThereIsNotEnoughSpaceToRecord()
{
    if (!hasOwnMounts())
        QSKIP("mounting needs root");
    const ToolRun tool;
    tool.make({"sd/"});
    const TmpfsMount card(tool.path() + "/sd", "size=260k");
    QVERIFY(card.isMounted());
    tool.make({"sd/DCIM/"});
    QCOMPARE(lineOf(tool.runOnStorages({"status", "sd"}), "verdict"),
             QByteArray("full: 260.0 KiB free, which is not enough to record"));
    QCOMPARE(tool.runOnStorages({"record", "sd"}).exitCode, 1);
}

void VornfhStatusTest::countsObjects()
{
    const ToolRun tool;
    tool.make(onCard({"100ABC/DCF_0001.jpg = x", "100ABC/DCF_0001.thumb = x", "100ABC/DCF_0002.avi = x",
                      "100ABC/DCF_0002.wav = x", "100ABC/DCF_0003.thumb = x", "100ABC/IMG_0004.jpg = x",
                      "101ABC/DCF_0001.jpg = x", "MISC/DCF_0005.jpg = x"}));
    for (const QByteArray file : {"100ABC/DCF_0001.thumb", "101ABC/DCF_0001.jpg", "MISC/DCF_0005.jpg"})
        setMode(tool, "sd/DCIM/" + file, 0444);
    QCOMPARE(lineOf(tool.runOnStorages({"status", "sd"}), "objects"), QByteArray("3, 2 protected"));
    const QJsonObject json = firstOf(tool.runOnStorages({"status", "sd", "--json"}));
    QCOMPARE(json["objects"].toInt(), 3);
    QCOMPARE(json["protectedObjects"].toInt(), 2);
}

void VornfhStatusTest::estimatesWhatFits_data()
{
    QTest::addColumn<Tree>("entries");
    QTest::addColumn<QList<int>>("means"); // of photos, videos and audio files; 0 if there are none
    const auto row = [](const char *name, const Tree &entries, const QList<int> &means) {
        QTest::newRow(name) << entries << means;
    };
    Tree many = {"100ABC/DCF_0001.jpg size 800000", "100ABC/DCF_0002.wav size 700"};
    for (int i = 3; i <= 102; ++i)
        many.append("100ABC/DCF_" + QByteArray::number(i).rightJustified(4, '0') + ".jpg size 1000");
    row("nothing", {}, {0, 0, 0});
    row("each-type",
        {"100ABC/DCF_0001.jpg size 1000", "100ABC/DCF_0002.png size 3000", "100ABC/DCF_0003.avi size 50000",
         "100ABC/DCF_0004.mkv size 70000", "101ABC/DCF_0001.wav size 900"},
        {2000, 60000, 900});
    row("with-thumbnails", {"100ABC/DCF_0001.jpg size 1000", "100ABC/DCF_0001.thumb size 500"}, {1500, 0, 0});
    row("two-files-of-one-number",
        {"100ABC/DCF_0001.avi size 1000", "100ABC/DCF_0001.wav size 500", "100ABC/DCF_0002.jpg size 200",
         "100ABC/DCF_0002.wav size 100", "100ABC/DCF_0003.jpg size 10", "100ABC/DCF_0003.mkv size 2000"},
        {300, 1755, 0});
    row("empty-files-do-not-count", {"100ABC/DCF_0001.jpg size 1000", "100ABC/DCF_0002.jpg"}, {1000, 0, 0});
    row("only-empty-files", {"100ABC/DCF_0001.jpg", "100ABC/DCF_0002.avi"}, {0, 0, 0});
    row("thumbnail-alone", {"100ABC/DCF_0001.thumb size 500"}, {0, 0, 0});
    row("not-an-object", {"100ABC/IMG_0001.jpg size 500", "MISC/DCF_0001.jpg size 500"}, {0, 0, 0});
    row("last-100-of-each-type", many, {1000, 0, 700});
}

void VornfhStatusTest::estimatesWhatFits()
{
    static const QStringList KEYS = {"photosLeft", "videosLeft", "audioLeft"};
    static const QByteArrayList LINES = {"photos left", "videos left", "audio left"};
    QFETCH(Tree, entries);
    QFETCH(QList<int>, means);
    const ToolRun tool;
    const MemoryCard card(tool, entries);
    if (!card.isMounted())
        QSKIP("mounting needs root");
    const qint64 free = freeOn(tool.sd());
    const Outcome text = tool.runOnStorages({"status", "sd"});
    const QJsonObject json = firstOf(tool.runOnStorages({"status", "sd", "--json"}));
    for (int i = 0; i < 3; ++i) {
        const QByteArray line = lineOf(text, LINES[i]);
        QCOMPARE(json.value(KEYS[i]), means[i] > 0 ? QJsonValue(free / means[i]) : QJsonValue());
        QVERIFY2(means[i] > 0 ? line.startsWith("about " + QByteArray::number(free / means[i]) + ", of ")
                              : line.isEmpty(),
                 line.constData());
    }
}

void VornfhStatusTest::estimatesTheMinutesOfVideo_data()
{
    QTest::addColumn<Tree>("entries");
    QTest::addColumn<QStringList>("measured");
    QTest::addColumn<int>("size"); // of the measured ones
    const auto row = [](const char *name, const Tree &entries, const QStringList &measured, int size) {
        QTest::newRow(name) << entries << measured << size;
    };
    row("one", {"100ABC/DCF_0001.avi size 6000"}, {"100ABC/DCF_0001.avi"}, 6000);
    row("last-three",
        {"100ABC/DCF_0001.avi size 90000", "100ABC/DCF_0002.avi size 6000", "100ABC/DCF_0003.mkv size 7000",
         "100ABC/DCF_0003.thumb size 10", "101ABC/DCF_0001.avi size 8000", "101ABC/DCF_0002.jpg size 10"},
        {"100ABC/DCF_0002.avi", "100ABC/DCF_0003.mkv", "101ABC/DCF_0001.avi"}, 21000);
    row("empty-one-is-skipped", {"100ABC/DCF_0001.avi size 6000", "100ABC/DCF_0002.avi"},
        {"100ABC/DCF_0001.avi"}, 6000);
    row("locked-one-is-skipped", {"100ABC/DCF_0001.avi size 6000", "100ABC/DCF_0002.avi size 7000 locked"},
        {"100ABC/DCF_0001.avi"}, 6000);
}

/// ffprobe reports 3 seconds for each video.
void VornfhStatusTest::estimatesTheMinutesOfVideo()
{
    QFETCH(Tree, entries);
    QFETCH(QStringList, measured);
    QFETCH(int, size);
    StandIns programs;
    programs.add("ffprobe", "echo duration=3.000000");
    const ToolRun tool;
    QByteArray locked;
    for (QByteArray &entry : entries) {
        if (entry.endsWith(" locked"))
            locked = (entry = entry.chopped(7)).left(entry.indexOf(" size"));
    }
    const MemoryCard card(tool, entries);
    if (!card.isMounted())
        QSKIP("mounting needs root");
    QFile held(tool.sd() + "/" + locked);
    QVERIFY(locked.isEmpty() || (held.open(QIODevice::ReadOnly) && ::flock(held.handle(), LOCK_EX) == 0));
    const qint64 bitrate = size * 8 / (3 * measured.size());
    const qint64 minutes = freeOn(tool.sd()) / (60 * bitrate / 8);
    const QJsonObject json = firstOf(tool.runOnStorages({"status", "sd", "--json"}));
    QCOMPARE(json["videoBitrate"].toInt(), static_cast<int>(bitrate));
    QCOMPARE(json["videoMinutesLeft"].toInt(), static_cast<int>(minutes));
    QStringList paths;
    for (const QByteArrayList &call : programs.calls("ffprobe"))
        paths.append(QString::fromUtf8(call.last()).section('/', -2));
    QCOMPARE(QSet<QString>(paths.begin(), paths.end()), QSet<QString>(measured.begin(), measured.end()));
    QCOMPARE(paths.size(), measured.size());
    QCOMPARE(lineOf(tool.runOnStorages({"status", "sd"}), "minutes left"),
             "about " + QByteArray::number(minutes) + " of video, at "
                 + QByteArray::number(static_cast<double>(bitrate) / 1000, 'f', 1) + " kbit/s");
}

void VornfhStatusTest::measuresRealVideos()
{
    const ToolRun tool;
    tool.make({"sd/DCIM/100ABC/"});
    for (const char *name : {"DCF_0001.avi", "DCF_0002.mkv"})
        makeVideo(tool.sd() + "/100ABC/" + name, QSize(64, 48)); // of 0.4 seconds
    const double size = static_cast<double>(tool.content("sd/DCIM/100ABC/DCF_0001.avi").size()
                                            + tool.content("sd/DCIM/100ABC/DCF_0002.mkv").size());
    const double bitrate = firstOf(tool.runOnStorages({"status", "sd", "--json"}))["videoBitrate"].toDouble();
    QVERIFY2(qAbs(bitrate - size * 8 / 0.8) < bitrate / 20, QByteArray::number(bitrate));
}

void VornfhStatusTest::saysThatMinutesCannotBeMeasured_data()
{
    QTest::addColumn<Tree>("entries");
    QTest::addColumn<bool>("hasFfprobe");
    QTest::addColumn<QByteArray>("line");
    const QByteArray missing = "unknown: ffprobe is not on PATH";
    row("no-ffprobe", onCard({"100ABC/DCF_0001.avi = x"}), false, missing);
    row("no-ffprobe-and-no-videos", onCard({"100ABC/DCF_0001.jpg = x"}), false, QByteArray());
    row("damaged-videos", onCard({"100ABC/DCF_0001.avi = x"}), true, QByteArray());
}

void VornfhStatusTest::saysThatMinutesCannotBeMeasured()
{
    QFETCH(Tree, entries);
    QFETCH(bool, hasFfprobe);
    QFETCH(QByteArray, line);
    const StandIns programs(hasFfprobe ? StandIns::BeforeTheRealOnes : StandIns::Alone);
    const ToolRun tool;
    tool.make(entries);
    const Outcome text = tool.runOnStorages({"status", "sd"});
    QCOMPARE(lineOf(text, "minutes left"), line);
    QCOMPARE(text.exitCode, 0);
    QCOMPARE(text.err, QByteArray());
    const QJsonObject json = firstOf(tool.runOnStorages({"status", "sd", "--json"}));
    for (const char *unknown : {"videoMinutesLeft", "videoBitrate"})
        QCOMPARE(json.value(QLatin1String(unknown)), QJsonValue(QJsonValue::Null));
}

void VornfhStatusTest::showsTheLargestFile_data()
{
    QTest::addColumn<QStringList>("mkfs");
    QTest::addColumn<QByteArray>("line");
    QTest::addColumn<QJsonValue>("value");
    const auto row = [](const char *name, const QStringList &mkfs, const QByteArray &line,
                        const QJsonValue &value) { QTest::newRow(name) << mkfs << line << value; };
    row("fat", {"mkfs.vfat"}, "4.0 GiB (4294967295 B)", qint64(4294967295));
    row("ext4", {"mkfs.ext4", "-q", "-F"}, "no limit", {});
}

void VornfhStatusTest::showsTheLargestFile()
{
    QFETCH(QStringList, mkfs);
    QFETCH(QByteArray, line);
    QFETCH(QJsonValue, value);
    const ToolRun tool;
    LoopCard card(tool, mkfs);
    if (card.mount(tool.path() + "/sd").isEmpty())
        QSKIP("mounting a loop device needs root and a kernel that knows the file system");
    QCOMPARE(lineOf(tool.runOnStorages({"status", "sd"}), "largest file"), line);
    QCOMPARE(firstOf(tool.runOnStorages({"status", "sd", "--json"})).value("largestFile"), value);
}

void VornfhStatusTest::showsTheWearOfAnEmmc_data()
{
    QTest::addColumn<Tree>("attributes");
    QTest::addColumn<QByteArray>("line");
    QTest::addColumn<QJsonValue>("value");
    const auto row = [](const char *name, const Tree &attributes, const QByteArray &line,
                        const QJsonValue &value) { QTest::newRow(name) << attributes << line << value; };
    const auto object = [](const QJsonValue &a, const QJsonValue &b, const QJsonValue &spare) {
        return QJsonObject{{"lifeUsedA", a}, {"lifeUsedB", b}, {"spareBlocks", spare}};
    };
    const QJsonValue null;
    const QByteArray life = " of the expected life";
    row("new", {"life_time = 0x01 0x01\n", "pre_eol_info = 0x01\n"},
        "0-10%" + life + " (type A), 0-10%" + life + " (type B), spare blocks normal",
        object(10, 10, "normal"));
    row("worn", {"life_time = 0x0a 0x03\n", "pre_eol_info = 0x02\n"},
        "90-100%" + life + " (type A), 20-30%" + life + " (type B), spare blocks warning",
        object(100, 30, "warning"));
    row("beyond-its-life", {"life_time = 0x0b 0x0b\n", "pre_eol_info = 0x03\n"},
        "more than 100%" + life + " (type A), more than 100%" + life + " (type B), spare blocks urgent",
        object(110, 110, "urgent"));
    row("one-type", {"life_time = 0x00 0x02\n", "pre_eol_info = 0x00\n"}, "10-20%" + life + " (type B)",
        object(null, 20, null));
    row("spare-blocks-only", {"pre_eol_info = 0x01\n"}, "spare blocks normal", object(null, null, "normal"));
    row("undefined", {"life_time = 0x00 0x00\n", "pre_eol_info = 0x00\n"}, "", null);
    row("unknown-values", {"life_time = 0x0c 0xff\n", "pre_eol_info = 0x04\n"}, "", null);
    row("not-numbers", {"life_time = many\n", "pre_eol_info\n"}, "", null);
    row("sd-card", {"cid = 1\n"}, "", null);
}

void VornfhStatusTest::showsTheWearOfAnEmmc()
{
    QFETCH(Tree, attributes);
    QFETCH(QByteArray, line);
    QFETCH(QJsonValue, value);
    const ToolRun tool;
    tool.make(Tree{"block/mmcblk7p1 -> mmcblk7/mmcblk7p1"} + below("block/mmcblk7/device/", attributes)
              + Tree{"block/mmcblk7/mmcblk7p1/partition = 1\n"});
    const BlockAttributes block(tool.path() + "/block");
    if (!block.isMounted())
        QSKIP("mounting needs root");
    for (const QByteArray name : {"mmcblk7", "mmcblk7p1"}) {
        const QByteArrayList status = {"--sd-block", name, "status", "sd"};
        QCOMPARE(lineOf(tool.runOnStorages(status), "wear"), line);
        QCOMPARE(firstOf(tool.runOnStorages(status + QByteArrayList{"--json"})).value("wear"), value);
    }
}

void VornfhStatusTest::hintsAtRepair_data()
{
    QTest::addColumn<Tree>("entries"); // in sd/
    QTest::addColumn<QByteArrayList>("paths");
    QTest::addColumn<QStringList>("kinds");
    const auto row = [](const char *name, const Tree &entries, const QByteArrayList &paths = {},
                        const QStringList &kinds = {}) { QTest::newRow(name) << entries << paths << kinds; };
    const QByteArray leftover = ".vornfh-999999999-abcdef";
    row("nothing", {"DCIM/100ABC/DCF_0001.jpg = x"});
    row("leftover-in-a-numbered-folder", {"DCIM/100ABC/" + leftover + " = x"}, {"DCIM/100ABC/" + leftover},
        {"leftover"});
    row("leftover-in-the-location", {"DCIM/" + leftover + " = x"}, {"DCIM/" + leftover}, {"leftover"});
    row("leftover-above-the-location", {"DCIM/", leftover + " = x"}, {leftover}, {"leftover"});
    row("several", {"DCIM/100ABC/" + leftover + " = x", "DCIM/101ABC/" + leftover + " = x"},
        {"DCIM/100ABC/" + leftover, "DCIM/101ABC/" + leftover}, {"leftover", "leftover"});
    row("leftover-that-may-share-its-content",
        {"DCIM/100ABC/" + leftover + " = x", "DCIM/100ABC/" + leftover + ".renaming"});
    row("other-hidden-file", {"DCIM/100ABC/.hidden = x", "DCIM/100ABC/.vornfh-x = x"});
    row("unclosed-last-recording", {"DCIM/100ABC/DCF_0001.avi = " + UNCLOSED_AVI},
        {"DCIM/100ABC/DCF_0001.avi"}, {"file-not-closed"});
    row("empty-last-recording", {"DCIM/100ABC/DCF_0001.avi"}, {"DCIM/100ABC/DCF_0001.avi"}, {"empty-file"});
    row("before-an-empty-folder", {"DCIM/100ABC/DCF_0001.avi", "DCIM/101ABC/"}, {"DCIM/100ABC/DCF_0001.avi"},
        {"empty-file"});
    row("unclosed-earlier-recording",
        {"DCIM/100ABC/DCF_0001.avi = " + UNCLOSED_AVI, "DCIM/100ABC/DCF_0002.jpg = x"});
    row("damage-that-cannot-be-repaired", {"DCIM/100ABC/DCF_0001.jpg = x"});
}

void VornfhStatusTest::hintsAtRepair()
{
    QFETCH(Tree, entries);
    QFETCH(QByteArrayList, paths);
    QFETCH(QStringList, kinds);
    const ToolRun tool;
    makeTree(tool.path() + "/sd", entries);
    const Tree before = treeWithContents(tool.path());
    const Outcome text = tool.runOnStorages({"status", "sd"});
    const QByteArray count = paths.size() == 1 ? "" : QByteArray::number(paths.size()) + " files, including ";
    const QByteArray hint = count + "@/sd/" + paths.value(0) + "; try vornfh repair sd --dry-run";
    QCOMPARE(lineOf(text, "to repair"), paths.isEmpty() ? QByteArray() : tool.expand(hint));
    QCOMPARE(lineOf(text, "verdict"), QByteArray("ok"));
    QCOMPARE(text.exitCode, 0);
    QCOMPARE(text.err, QByteArray());
    const QJsonArray found = firstOf(tool.runOnStorages({"status", "sd", "--json"}))["repairable"].toArray();
    QCOMPARE(found.size(), paths.size());
    for (int i = 0; i < found.size(); ++i) {
        QCOMPARE(found[i].toObject()["path"].toString(), tool.path() + "/sd/" + paths[i]);
        QCOMPARE(found[i].toObject()["kind"].toString(), kinds[i]);
        QVERIFY(!found[i].toObject()["text"].toString().isEmpty());
    }
    QCOMPARE(treeWithContents(tool.path()), before);
}

void VornfhStatusTest::suggestsNoRepairOfWhatIsBeingWritten()
{
    const ToolRun tool;
    writeFile(tool.sd() + "/100ABC/DCF_0001.avi", UNCLOSED_AVI);
    QFile file(tool.sd() + "/100ABC/DCF_0001.avi");
    QVERIFY(file.open(QIODevice::ReadOnly) && ::flock(file.handle(), LOCK_EX) == 0);
    QCOMPARE(lineOf(tool.runOnStorages({"status", "sd"}), "to repair"), QByteArray());
    file.close();
    QVERIFY(!lineOf(tool.runOnStorages({"status", "sd"}), "to repair").isEmpty());
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
    // The library lists no folder, so folder 100 is the current one.
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
    QList<Outcome> readings;
    for (const QByteArray command : {"list", "folders", "count", "check"})
        readings.append(tool.runOnStorages({"--sd-block", block, command, "sd"}));
    readings.append(tool.runOnStorages({"--sd-block", block, "gallery", "sd", "--output", "@/sd.html"}));
    ::umount2(to.constData(), 0);
    QCOMPARE(lineOf(status, "verdict"),
             "not mounted: " + block + " is not mounted; the location is on the root file system");
    QVERIFY2(status.out.contains("  mounted         no: " + block
                                 + " is not mounted; the location is on the root file system\n"),
             status.out.constData());
    const Outcome notMounted = tool.failure(
        {"@/sd/DCIM: " + block + " is not mounted there; the folder is on the root file system"});
    QCOMPARE(mkdir, notMounted);
    for (const Outcome &reading : readings)
        QCOMPARE(reading, notMounted);
    QVERIFY(!QFile::exists(tool.path() + "/sd.html"));
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
    const Outcome text = tool.runOnStorages({"status", "sd"});
    QVERIFY(text.out.contains("  file system     ext4, read-only\n"));
    QCOMPARE(lineOf(text, "verdict"), QByteArray("read-only: the file system is mounted read-only"));
    QCOMPARE(firstOf(tool.runOnStorages({"status", "sd", "--json"}))["readOnly"], QJsonValue(true));
}

QTEST_GUILESS_MAIN(VornfhStatusTest)
#include "tst_vornfh_status.moc"

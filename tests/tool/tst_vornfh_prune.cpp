// SPDX-License-Identifier: MIT
#include "standins.h"
#include "toolsupport.h"

#include <QDateTime>
#include <QFile>
#include <QJsonArray>
#include <QJsonObject>
#include <QMap>
#include <QRegularExpression>
#include <QTest>

#include <algorithm>
#include <numeric>
#include <optional>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/statvfs.h>
#include <unistd.h>

namespace {

/// Three objects of two files and one of one file, 100 bytes each, in two folders.
const QByteArrayList FOUR = {"100ABC/DCF_0001.jpg size 90", "100ABC/DCF_0001.thumb size 10",
                             "100ABC/DCF_0002.avi size 90", "100ABC/DCF_0002.thumb size 10",
                             "101ABC/DCF_0001.png size 90", "101ABC/DCF_0001.thumb size 10",
                             "101ABC/DCF_0002.wav size 100"};

const QByteArray FIRST = cardLines({"100ABC/DCF_0001.jpg", "100ABC/DCF_0001.thumb"});
const QByteArray SECOND = cardLines({"100ABC/DCF_0002.avi", "100ABC/DCF_0002.thumb"});
const QByteArray THIRD = cardLines({"101ABC/DCF_0001.png", "101ABC/DCF_0001.thumb"});
const QByteArray FOLDER = cardLines({"100ABC"});

QByteArray stillTakes(const QByteArray &size, const QByteArray &wanted)
{
    return "@/sd/DCIM: the objects take up " + size + " instead of at most " + wanted
           + "; nothing more can be deleted";
}

} // namespace

class VornfhPruneTest : public QObject
{
    Q_OBJECT

private slots:
    void prunes_data();
    void prunes();
    void keepsWhatIsNotAnObject_data();
    void keepsWhatIsNotAnObject();
    void keepsFreeSpace_data();
    void keepsFreeSpace();
    void comparesFreeSpaceWithTheFileSystem_data();
    void comparesFreeSpaceWithTheFileSystem();
    void comparesAges_data();
    void comparesAges();
    void removesLeftovers();
    void keepsWhatIsBeingWritten_data();
    void keepsWhatIsBeingWritten();
    void keepsARecordingBeforeItsFirstByte();
    void goesOnIfAnotherProgramOpensAFile();
    void goesOnAfterWhatCannotBeDeleted_data();
    void goesOnAfterWhatCannotBeDeleted();
    void reportsAFolderThatCannotBeDeleted();
    void flushesEachStep();
    void deletesInBatches_data();
    void deletesInBatches();
    void stopsAtASignal_data();
    void stopsAtASignal();
    void printsJson();
    void refusesWrongCommandLines_data();
    void refusesWrongCommandLines();
    void refusesStorages_data();
    void refusesStorages();
    void reportsAReadOnlyStorage();
    void agreesWithTheRules();
};

void VornfhPruneTest::prunes_data()
{
    QTest::addColumn<QByteArrayList>("policies");
    QTest::addColumn<QByteArrayList>("isProtected");
    QTest::addColumn<QByteArray>("out");
    QTest::addColumn<QByteArray>("message"); // with exit code 3
    const auto row = [](const char *name, const QByteArrayList &policies, const QByteArray &out,
                        const QByteArrayList &isProtected = {}, const QByteArray &message = {}) {
        QTest::newRow(name) << policies << isProtected << out << message;
    };
    row("exactly-the-size", {"--max-size", "400"}, "");
    row("one-byte-too-much", {"--max-size", "399"}, FIRST);
    row("two-objects-too-much", {"--max-size", "200"}, FIRST + SECOND + FOLDER);
    row("newest-stays", {"--max-size", "50"}, FIRST + SECOND + THIRD + FOLDER, {},
        stillTakes("100 B", "50 B"));
    row("last-one", {"--keep-last", "1"}, FIRST + SECOND + THIRD + FOLDER);
    row("last-three", {"--keep-last", "3"}, FIRST);
    row("more-than-there-are", {"--keep-last", "5000000000"}, "");
    row("last-three-against-the-size", {"--keep-last", "3", "--max-size", "200"}, FIRST, {},
        stillTakes("300 B", "200 B"));
    row("last-three-within-the-size", {"--keep-last", "3", "--max-size", "1K"}, "");
    row("recent-ones-stay", {"--keep-within", "1h"}, "");
    row("protected-recording", {"--max-size", "200"}, SECOND + THIRD, {"100ABC/DCF_0001.jpg"});
    row("protected-thumbnail", {"--max-size", "200"}, SECOND + THIRD, {"100ABC/DCF_0001.thumb"});
    row("all-protected", {"--max-size", "200"}, "",
        {"100ABC/DCF_0001.jpg", "100ABC/DCF_0002.avi", "101ABC/DCF_0001.thumb"},
        stillTakes("400 B", "200 B"));
    row("newest-stays-although-enough-is-free", {"--max-size", "50", "--keep-free", "1"},
        FIRST + SECOND + THIRD + FOLDER, {}, stillTakes("100 B", "50 B"));
}

void VornfhPruneTest::prunes()
{
    QFETCH(QByteArrayList, policies);
    QFETCH(QByteArrayList, isProtected);
    QFETCH(QByteArray, out);
    QFETCH(QByteArray, message);
    const ToolRun tool;
    tool.make(onCard(FOUR));
    for (const QByteArray &file : isProtected)
        setMode(tool, "sd/DCIM/" + file, 0444);
    const Tree before = tree(tool.path());
    Tree expected = before;
    for (const QByteArray &line : out.split('\n'))
        expected.removeAll(line.mid(2) + (line.endsWith("ABC") ? "/" : ""));
    Outcome outcome = tool.success(out);
    if (!message.isEmpty())
        outcome = {3, tool.expand(out), tool.expand(errorLines({message}))};
    const QByteArrayList prune = QByteArrayList{"prune", "sd"} + policies;
    QCOMPARE(tool.runOnStorages(prune + QByteArrayList{"--dry-run"}), outcome);
    QCOMPARE(tree(tool.path()), before);
    QCOMPARE(tool.runOnStorages(prune), outcome);
    QCOMPARE(tree(tool.path()), expected);
}

void VornfhPruneTest::keepsWhatIsNotAnObject_data()
{
    QTest::addColumn<QByteArray>("entry");
    for (const QByteArray entry :
         {"100ABC/IMG_0001.jpg",   "100ABC/DCF_0000.jpg",   "100ABC/DCF_001.jpg",
          "100ABC/DCF_00001.jpg",  "100ABC/DCF_+001.jpg",   "100ABC/DCF_0001_1.jpg",
          "100ABC/dcf_0001.jpg",   "100ABC/DCF_0001",       "100ABC/DCF_0001.txt",
          "100ABC/.DCF_0001.jpg",  "100ABC/DCF_0001.jpg/x", "100ABC/DCF_0001.jpg -> @/elsewhere",
          "100ABC/DCF_0001.thumb", "100ABC/notes.txt",      "100ABC/x\xff",
          "0100ABC/DCF_0001.jpg",  "MISC/DCF_0001.jpg",     "100abc/DCF_0001.jpg",
          "DCF_0001.jpg",          "ABC/DCF_0001.jpg",      "102ABC/"})
        QTest::newRow(entry.constData()) << entry;
}

void VornfhPruneTest::keepsWhatIsNotAnObject()
{
    QFETCH(QByteArray, entry);
    const ToolRun tool;
    tool.make(onCard({entry, "101ABC/DCF_0001.jpg", "101ABC/DCF_0002.jpg"}));
    Tree expected = tree(tool.path());
    expected.removeAll("sd/DCIM/101ABC/DCF_0001.jpg");
    QCOMPARE(tool.runOnStorages({"prune", "sd", "--keep-last", "1"}),
             tool.success(cardLines({"101ABC/DCF_0001.jpg"})));
    QCOMPARE(tree(tool.path()), expected);
}

void VornfhPruneTest::keepsFreeSpace_data()
{
    QTest::addColumn<QByteArrayList>("policies");
    QTest::addColumn<int>("deleted"); // how many objects of 64 KiB, of eight
    QTest::addColumn<QByteArray>("message");
    QTest::addColumn<int>("filler"); // KiB of another file
    const auto row = [](const char *name, const QByteArrayList &policies, int deleted,
                        const QByteArray &message = {}, int filler = 0) {
        QTest::newRow(name) << QByteArrayList{"--keep-free"} + policies << deleted << message << filler;
    };
    const QByteArray notEnough = "960.0 KiB free instead of 1013.7 KiB";
    const QByteArray tooLarge = "the objects take up 64.0 KiB instead of at most 32.0 KiB";
    row("enough", {"512K"}, 0);
    row("one-byte-short", {"524289"}, 1);
    row("one-object-and-a-byte", {"589825"}, 2);
    row("three-objects", {"700K"}, 3);
    row("percentage", {"75%"}, 4);
    row("one-percent", {"1%"}, 1, {}, 508);
    row("not-enough", {"99%"}, 7, notEnough);
    row("not-enough-but-small-enough", {"99%", "--max-size", "64K"}, 7, notEnough);
    row("enough-but-too-large", {"960K", "--max-size", "32K"}, 7, tooLarge);
    row("not-enough-and-too-large", {"99%", "--max-size", "32K"}, 7, notEnough + ", " + tooLarge);
}

/// On a card of 1 MiB, half of which is used.
void VornfhPruneTest::keepsFreeSpace()
{
    if (!hasOwnMounts())
        QSKIP("mounting needs root");
    QFETCH(QByteArrayList, policies);
    QFETCH(int, deleted);
    QFETCH(QByteArray, message);
    QFETCH(int, filler);
    const ToolRun tool;
    tool.make({"sd/"});
    const TmpfsMount card(tool.path() + "/sd", "size=1m");
    tool.make({"sd/filler = " + QByteArray(filler << 10, 'x')});
    QByteArrayList expected;
    for (char number = '1'; number <= '8'; ++number) {
        const QByteArray file = QByteArray("100ABC/DCF_000") + number + ".avi";
        tool.make(onCard({file + " = " + QByteArray(64 << 10, 'x')}));
        if (expected.size() < deleted)
            expected.append(file);
    }
    const QByteArray err =
        message.isEmpty() ? message : errorLines({"@/sd/DCIM: " + message + "; nothing more can be deleted"});
    const Outcome outcome = {message.isEmpty() ? 0 : 3, tool.expand(cardLines(expected)), tool.expand(err)};
    const QByteArrayList prune = QByteArrayList{"prune", "sd"} + policies;
    QCOMPARE(tool.runOnStorages(prune + QByteArrayList{"--dry-run"}), outcome);
    QCOMPARE(tool.runOnStorages(prune), outcome);
}

void VornfhPruneTest::comparesFreeSpaceWithTheFileSystem_data()
{
    QTest::addColumn<QByteArray>("size"); // of the card; unknown to the tool if it is 0, which means no limit
    QTest::addColumn<QByteArray>("policy");
    QTest::addColumn<QByteArrayList>("messages"); // with exit code 2
    row("the-whole-card", QByteArray("size=1m"), QByteArray("1M"),
        QByteArrayList{"--keep-free: 1.0 MiB is not less than the size of the file system, 1.0 MiB"});
    row("card-without-a-limit", QByteArray("size=0"), QByteArray("1T"), QByteArrayList());
}

void VornfhPruneTest::comparesFreeSpaceWithTheFileSystem()
{
    if (!hasOwnMounts())
        QSKIP("mounting needs root");
    QFETCH(QByteArray, size);
    QFETCH(QByteArray, policy);
    QFETCH(QByteArrayList, messages);
    const ToolRun tool;
    tool.make({"sd/"});
    const TmpfsMount card(tool.path() + "/sd", size);
    QVERIFY(card.isMounted());
    tool.make(onCard(FOUR));
    const Tree before = tree(tool.path());
    QCOMPARE(tool.runOnStorages({"prune", "sd", "--keep-free", policy}),
             messages.isEmpty() ? tool.success() : tool.usageError(messages));
    QCOMPARE(tree(tool.path()), before);
    const Outcome dryRun = tool.runOnStorages({"prune", "sd", "--keep-last", "1", "--dry-run", "--json"});
    QVERIFY(dryRun.json().object()["free"].toDouble() > 0);
}

void VornfhPruneTest::comparesAges_data()
{
    QTest::addColumn<int>("age"); // in seconds, of the older of two objects
    QTest::addColumn<QByteArrayList>("policies");
    QTest::addColumn<bool>("isDeleted");
    row("exactly-the-age", 3600, QByteArrayList{"--keep-within", "1h"}, true);
    row("in-the-future", -3600, QByteArrayList{"--keep-last", "1"}, true);
    row("in-the-future-within-a-second", -3600, QByteArrayList{"--keep-within", "1s"}, false);
}

void VornfhPruneTest::comparesAges()
{
    QFETCH(int, age);
    QFETCH(QByteArrayList, policies);
    QFETCH(bool, isDeleted);
    const ToolRun tool;
    tool.make(onCard({"100ABC/DCF_0001.jpg", "100ABC/DCF_0002.jpg"}));
    // So early in a second, the tool probably runs in the same one.
    QTRY_VERIFY(QDateTime::currentMSecsSinceEpoch() % 1000 < 300);
    setModified(QFile::encodeName(tool.sd()) + "/100ABC/DCF_0001.jpg",
                (QDateTime::currentSecsSinceEpoch() - age) * 1000);
    QCOMPARE(tool.runOnStorages(QByteArrayList{"prune", "sd"} + policies),
             tool.success(isDeleted ? cardLines({"100ABC/DCF_0001.jpg"}) : QByteArray()));
}

void VornfhPruneTest::removesLeftovers()
{
    const QByteArray leftover = "100ABC/.vornfh-4194304-abcdef";
    const QByteArrayList prune = {"prune", "sd", "--keep-last", "2"};
    const ToolRun tool;
    tool.make(onCard(FOUR + QByteArrayList{leftover}));
    const Tree before = tree(tool.path());
    QCOMPARE(tool.runOnStorages(prune + QByteArrayList{"--dry-run"}), tool.success(FIRST + SECOND + FOLDER));
    QCOMPARE(tree(tool.path()), before);
    QCOMPARE(tool.runOnStorages(prune),
             tool.success(FIRST + SECOND + FOLDER, errorLines({messages::removed("@/sd/DCIM/" + leftover)})));
}

void VornfhPruneTest::keepsWhatIsBeingWritten_data()
{
    QTest::addColumn<QByteArray>("file");
    QTest::addColumn<bool>("isWriting"); // or locked
    row("open-for-writing", QByteArray("100ABC/DCF_0001.jpg"), true);
    row("thumbnail-open-for-writing", QByteArray("100ABC/DCF_0001.thumb"), true);
    row("locked", QByteArray("100ABC/DCF_0001.jpg"), false);
}

void VornfhPruneTest::keepsWhatIsBeingWritten()
{
    QFETCH(QByteArray, file);
    QFETCH(bool, isWriting);
    const ToolRun tool;
    tool.make(onCard(FOUR));
    const QByteArray path = QFile::encodeName(tool.sd()) + "/" + file;
    const int descriptor = ::open(path.constData(), isWriting ? O_WRONLY : O_RDONLY);
    QVERIFY(descriptor >= 0 && (isWriting || ::flock(descriptor, LOCK_EX) == 0));
    const Outcome outcome = tool.runOnStorages({"prune", "sd", "--keep-last", "1"});
    ::close(descriptor);
    QCOMPARE(outcome, tool.success(SECOND + THIRD));
    QCOMPARE(tool.runOnStorages({"prune", "sd", "--keep-last", "1"}), tool.success(FIRST + FOLDER));
}

void VornfhPruneTest::keepsARecordingBeforeItsFirstByte()
{
    StandIns programs;
    programs.add("ffmpeg", "sleep 60");
    const ToolRun tool;
    tool.make(onCard({"100ABC/"}));
    QProcess process;
    tool.startOnStorages(process, {"record", "sd", "--type", "wav"});
    QTRY_COMPARE_WITH_TIMEOUT(programs.calls("ffmpeg").size(), 1, 10000);
    const QByteArray path = QFile::encodeName(tool.sd()) + "/100ABC/DCF_0001.wav";
    const int file = ::open(path.constData(), O_RDONLY | O_CLOEXEC);
    QVERIFY(::flock(file, LOCK_EX | LOCK_NB) != 0);   // which other users see, too
    QVERIFY(::fcntl(file, F_SETLEASE, F_RDLCK) != 0); // because it is open for writing
    ::close(file);
    tool.make(onCard({"100ABC/DCF_0002.jpg"}));
    QCOMPARE(tool.runOnStorages({"prune", "sd", "--keep-last", "1"}), tool.success());
    process.terminate();
    QCOMPARE(ToolRun::finish(process).exitCode, 1);
    QCOMPARE(tree(tool.path()), onCard({"100ABC/", "100ABC/DCF_0002.jpg"}));
}

/// The kernel sends a signal to the tool if a program opens a file that the tool is just probing.
void VornfhPruneTest::goesOnIfAnotherProgramOpensAFile()
{
    ToolRun tool;
    tool.make(onCard({"100ABC/DCF_0001.jpg", "100ABC/DCF_0002.jpg"}));
    // To open the file for writing, the other program has to wait for the end of the lease.
    if (!tool.runBefore(
            "lease", "cd '" + QFile::encodeName(tool.sd())
                         + "/100ABC' && dd if=/dev/null of=DCF_0001.jpg conv=nocreat,notrunc "
                           "oflag=nonblock 2>&1 | grep -o 'Resource temporarily unavailable' > ../refused"))
        QSKIP(CANNOT_PRELOAD);
    QCOMPARE(tool.runOnStorages({"prune", "sd", "--keep-last", "1"}),
             tool.success("@/sd/DCIM/100ABC/DCF_0001.jpg\n"));
    QCOMPARE(tool.content("sd/DCIM/refused"), QByteArray("Resource temporarily unavailable\n"));
}

void VornfhPruneTest::goesOnAfterWhatCannotBeDeleted_data()
{
    QTest::addColumn<Tree>("entries"); // in 100ABC
    QTest::addColumn<int>("mode");     // of 100ABC
    QTest::addColumn<QByteArray>("out");
    QTest::addColumn<QByteArrayList>("messages");
    QTest::addColumn<int>("exitCode");
    const QByteArray path = "@/sd/DCIM/100ABC/DCF_0001.jpg: ";
    row("status-cannot-be-read", Tree{"DCF_0001.jpg"}, 0444, QByteArray(),
        QByteArrayList{path + "cannot be read, so its object is kept: Permission denied"}, 0);
    row("folder-is-read-only", Tree{"DCF_0001.jpg"}, 0555, QByteArray(),
        QByteArrayList{path + "cannot be deleted: Permission denied", "1 object not deleted"}, 1);
    row("thumbnail-in-a-read-only-folder", Tree{"DCF_0001.jpg", "DCF_0001.thumb"}, 0555, QByteArray(),
        QByteArrayList{"@/sd/DCIM/100ABC/DCF_0001.thumb: cannot be deleted: Permission denied",
                       "1 object not deleted"},
        1);
    row("hidden-file-in-the-folder", Tree{".hidden", "DCF_0001.jpg"}, 0777,
        cardLines({"100ABC/DCF_0001.jpg"}), QByteArrayList(), 0);
}

/// The user may not delete folders.
void VornfhPruneTest::goesOnAfterWhatCannotBeDeleted()
{
    QFETCH(Tree, entries);
    QFETCH(int, mode);
    QFETCH(QByteArray, out);
    QFETCH(QByteArrayList, messages);
    QFETCH(int, exitCode);
    ToolRun tool;
    if (!tool.dropPrivileges())
        QSKIP("the tool cannot run as another user");
    tool.make(onCard(below("100ABC/", entries) + Tree{"101ABC/DCF_0001.jpg", "101ABC/DCF_0002.jpg"}));
    setMode(tool, "sd/DCIM/101ABC", 0777);
    const FolderMode location(tool.sd(), 0555);
    const FolderMode folder(tool.sd() + "/100ABC", static_cast<mode_t>(mode));
    const Outcome outcome = {exitCode, tool.expand(out + cardLines({"101ABC/DCF_0001.jpg"})),
                             tool.expand(errorLines(messages))};
    QCOMPARE(tool.runOnStorages({"prune", "sd", "--keep-last", "1", "--dry-run"}), outcome);
    QCOMPARE(tool.runOnStorages({"prune", "sd", "--keep-last", "1"}), outcome);
}

void VornfhPruneTest::reportsAFolderThatCannotBeDeleted()
{
    ToolRun tool;
    if (!tool.dropPrivileges())
        QSKIP("the tool cannot run as another user");
    tool.make(onCard({"100ABC/DCF_0001.jpg", "101ABC/DCF_0001.jpg"}));
    const FolderMode location(tool.sd(), 0555);
    const FolderMode folder(tool.sd() + "/100ABC", 0777);
    const Outcome outcome = tool.failure({"@/sd/DCIM/100ABC: cannot be deleted: Permission denied"},
                                         cardLines({"100ABC/DCF_0001.jpg"}));
    QCOMPARE(tool.runOnStorages({"prune", "sd", "--keep-last", "1", "--dry-run"}), outcome);
    QCOMPARE(tool.runOnStorages({"prune", "sd", "--keep-last", "1"}), outcome);
}

/// After a power failure, no thumbnail is without its recording.
void VornfhPruneTest::flushesEachStep()
{
    ToolRun tool;
    if (!tool.runBefore("fsync", "echo $(cd sd/DCIM; find 100ABC 2>&- | sort) >> flushed", 0))
        QSKIP(CANNOT_PRELOAD);
    const QByteArrayList files = {"100ABC/DCF_0001.jpg", "100ABC/DCF_0001.thumb", "100ABC/DCF_0002.wav"};
    tool.make(onCard(files + QByteArrayList{"101ABC/DCF_0001.jpg"}));
    QCOMPARE(tool.runOnStorages({"prune", "sd", "--keep-last", "1"}),
             tool.success(cardLines(files) + FOLDER));
    QCOMPARE(tool.content("flushed"),
             QByteArray("100ABC 100ABC/DCF_0001.jpg 100ABC/DCF_0002.wav\n100ABC\n\n"));
}

void VornfhPruneTest::deletesInBatches_data()
{
    QTest::addColumn<bool>("isStopped"); // by a signal during the first batch
    row("two-batches", false);
    row("one-batch", true);
}

/// A leftover that is kept is reported once.
void VornfhPruneTest::deletesInBatches()
{
    QFETCH(bool, isStopped);
    ToolRun tool;
    if (!tool.runBefore("unlink", isStopped ? "kill -TERM $PPID" : ""))
        QSKIP(CANNOT_PRELOAD);
    const QByteArray leftover = "100ABC/.vornfh-4194304-abcdef";
    QByteArrayList files;
    for (int number = 1; number <= 1002; ++number)
        files.append("100ABC/DCF_" + QByteArray::number(number).rightJustified(4, '0') + ".jpg");
    tool.make(onCard(files + QByteArrayList{leftover, "100ABC/.vornfh-4194304-ghijkl.renaming"}));
    const QByteArray kept = "@/sd/DCIM/" + leftover
                            + ": left by an interrupted command and kept: it may share its content with "
                              "another file, or be the only copy of a file; unmount the storage device and "
                              "check it with fsck before you delete the leftover";
    QCOMPARE(tool.runOnStorages({"prune", "sd", "--keep-last", "1"}),
             isStopped ? tool.failure({kept, "interrupted after deleting 1000 objects"},
                                      cardLines(files.mid(0, 1000)))
                       : tool.success(cardLines(files.mid(0, 1001)), errorLines({kept})));
}

void VornfhPruneTest::stopsAtASignal_data()
{
    QTest::addColumn<QByteArrayList>("policies");
    QTest::addColumn<QByteArray>("out");
    QTest::addColumn<QByteArrayList>("messages");
    const QByteArrayList interrupted = {"interrupted after deleting 2 objects"};
    row("before-the-next-folder", QByteArrayList{"--keep-last", "1"}, FIRST + SECOND, interrupted);
    row("before-the-next-folder-json", QByteArrayList{"--keep-last", "1", "--json"}, FIRST + SECOND,
        interrupted);
    row("during-the-last-batch", QByteArrayList{"--keep-last", "2"}, FIRST + SECOND + FOLDER,
        QByteArrayList());
}

void VornfhPruneTest::stopsAtASignal()
{
    QFETCH(QByteArrayList, policies);
    QFETCH(QByteArray, out);
    QFETCH(QByteArrayList, messages);
    ToolRun tool;
    tool.make(onCard(FOUR));
    Tree expected = tree(tool.path());
    for (const QByteArray &line : out.split('\n'))
        expected.removeAll(line.mid(2) + (line.endsWith("ABC") ? "/" : ""));
    if (!tool.runBefore("unlink", "kill -TERM $PPID"))
        QSKIP("nothing can be preloaded");
    Outcome outcome = tool.runOnStorages(QByteArrayList{"prune", "sd"} + policies);
    if (policies.contains("--json")) {
        const QJsonObject object = outcome.json().object();
        QCOMPARE(object["met"], QJsonValue(false));
        outcome.out.clear();
        for (const QJsonValue file : object["deleted"].toArray())
            outcome.out += file["path"].toString().toUtf8() + "\n";
    }
    QCOMPARE(outcome, messages.isEmpty() ? tool.success(out) : tool.failure(messages, out));
    QCOMPARE(tree(tool.path()), expected);
}

void VornfhPruneTest::printsJson()
{
    const ToolRun tool;
    tool.make(onCard(FOUR));
    const QString sd = tool.sd();
    const QByteArray path = QFile::encodeName(sd) + "/100ABC/DCF_0001.jpg";
    QTest::qSleep(20); // so that the last status change is later than the creation
    setModified(path, 1740492000000);
    const qint64 created = creationTime(path);
    const Outcome outcome =
        tool.runOnStorages({"prune", "sd", "--max-size", "50", "--keep-last", "2", "--json"});
    QJsonObject object = outcome.json().object();
    QVERIFY(object.take("free").toDouble() > 0);
    const QJsonObject first = object["deleted"].toArray().first().toObject();
    QCOMPARE(first["modified"].toString(), QString("2025-02-25T14:00:00.000Z"));
    QCOMPARE(QDateTime::fromString(first["created"].toString(), Qt::ISODateWithMs).toMSecsSinceEpoch(),
             created);
    QJsonArray deleted;
    for (const QJsonValue file : object["deleted"].toArray()) {
        QCOMPARE(file["action"].toString(), QString("deleted"));
        deleted.append(file["path"]);
    }
    object["deleted"] = deleted;
    QCOMPARE(object,
             (QJsonObject{{"storage", "sd"},
                          {"location", sd},
                          {"deleted", QJsonArray{sd + "/100ABC/DCF_0001.jpg", sd + "/100ABC/DCF_0001.thumb",
                                                 sd + "/100ABC/DCF_0002.avi", sd + "/100ABC/DCF_0002.thumb",
                                                 sd + "/100ABC"}},
                          {"errors", QJsonArray()},
                          {"objects", 2},
                          {"bytes", 200},
                          {"left", 200},
                          {"met", false}}));
    QCOMPARE(outcome.exitCode, 3);
    QCOMPARE(outcome.err, tool.expand(errorLines({stillTakes("200 B", "50 B")})));
}

void VornfhPruneTest::refusesWrongCommandLines_data()
{
    QTest::addColumn<QByteArrayList>("arguments");
    QTest::addColumn<QByteArray>("message");
    const auto row = [](const char *name, const QByteArrayList &arguments, const QByteArray &message) {
        QTest::newRow(name) << arguments << message;
    };
    const auto badValue = [](const char *option, const char *value, const char *wanted) {
        return QByteArray(option) + ": '" + value + "' is not " + wanted;
    };
    const char *const free = "a size such as 2G or a percentage from 1% to 99%";
    row("no-policy", {"sd"},
        "prune needs at least one of --keep-free, --max-size, --keep-last and --keep-within");
    row("no-storage", {"--keep-last", "1"}, "STORAGE is required");
    row("unknown-storage", {"card", "--keep-last", "1"}, messages::unknownStorage("card"));
    row("policy-without-a-value", {"sd", "--keep-free"}, "--keep-free needs a value: SIZE|PERCENT");
    row("max-size-without-a-value", {"sd", "--max-size"}, "--max-size needs a value: SIZE");
    row("keep-last-without-a-value", {"sd", "--keep-last"}, "--keep-last needs a value: N");
    row("keep-within-without-a-value", {"sd", "--keep-within"}, "--keep-within needs a value: AGE");
    for (const char *value : {"0", "0%", "100%", "101%", "%", "5K%", "2g", "1.5G", "-1", " 1G",
                              "9999999999999T", "99999999999999999999"})
        row(QByteArray("keep-free-").append(value), {"sd", "--keep-free=" + QByteArray(value)},
            badValue("--keep-free", value, free));
    for (const char *value : {"0", "0G", "10%", "x"})
        row(QByteArray("max-size-").append(value), {"sd", "--max-size", value},
            badValue("--max-size", value, "a size such as 2G"));
    for (const char *value : {"0", "-1", "x", "1K"})
        row(QByteArray("keep-last-").append(value), {"sd", QByteArray("--keep-last=") + value},
            badValue("--keep-last", value, "a whole number of at least 1"));
    for (const char *value : {"0d", "7", "d", "7D", "1y", "-1h"})
        row(QByteArray("keep-within-").append(value), {"sd", QByteArray("--keep-within=") + value},
            badValue("--keep-within", value, "an age such as 7d, 12h, 30m or 90s"));
}

void VornfhPruneTest::refusesWrongCommandLines()
{
    QFETCH(QByteArrayList, arguments);
    QFETCH(QByteArray, message);
    const ToolRun tool;
    tool.make(onCard(FOUR));
    const Tree before = tree(tool.path());
    QCOMPARE(tool.runOnStorages(QByteArrayList{"prune"} + arguments), tool.usageError({message}));
    QCOMPARE(tree(tool.path()), before);
}

void VornfhPruneTest::refusesStorages_data()
{
    QTest::addColumn<Tree>("entries");
    QTest::addColumn<QByteArrayList>("options");
    QTest::addColumn<QByteArray>("message");
    const auto row = [](const char *name, const Tree &entries, const QByteArrayList &options,
                        const QByteArray &message) { QTest::newRow(name) << entries << options << message; };
    row("missing", {}, {"--sd", "@/sd/DCIM"}, "@/sd/DCIM: does not exist");
    row("file", {"sd/DCIM"}, {"--sd", "@/sd/DCIM"}, "@/sd/DCIM: is not a folder");
    row("absent-device", onCard(FOUR), {"--sd", "@/sd/DCIM", "--sd-block", "nosuchdevice"},
        "@/sd/DCIM: the block device nosuchdevice of storage sd is not present");
    row("absent-device-without-the-location", {}, {"--sd", "@/sd/DCIM", "--sd-block", "nosuchdevice"},
        "@/sd/DCIM: the block device nosuchdevice of storage sd is not present");
}

void VornfhPruneTest::refusesStorages()
{
    QFETCH(Tree, entries);
    QFETCH(QByteArrayList, options);
    QFETCH(QByteArray, message);
    const ToolRun tool;
    tool.make(entries);
    const Tree before = tree(tool.path());
    QCOMPARE(tool.run(options + QByteArrayList{"--suffix", "ABC", "prune", "sd", "--keep-last", "1"}),
             tool.failure({message}));
    QCOMPARE(tree(tool.path()), before);
}

void VornfhPruneTest::reportsAReadOnlyStorage()
{
    if (!hasOwnMounts())
        QSKIP("mounting needs root");
    const ToolRun tool;
    tool.make({"sd/"});
    const TmpfsMount card(tool.path() + "/sd", "size=1m");
    tool.make(onCard(FOUR));
    QVERIFY(card.isMounted() && card.makeReadOnly());
    const Tree before = tree(tool.path());
    QCOMPARE(tool.runOnStorages({"prune", "sd", "--keep-last", "1"}),
             tool.failure({messages::readOnly("@/sd/DCIM")}));
    QCOMPARE(tree(tool.path()), before);
}

// The rules, stated a second time and more simply

namespace {

constexpr int PAGE = 4096; // the least that tmpfs allocates

struct ModelFile {
    QByteArray path; // relative to the location
    int size;
    bool isProtected;
    bool isRecent;

    int allocated() const { return size > 0 ? PAGE : 0; } // no file is longer
};

struct ModelPolicy {
    int toFree;   // the bytes that must become free; -1 for any number
    int maxSize;  // -1 for none
    int keepLast; // 0 for none
    bool isKeepingRecent;

    bool hasSpace() const { return toFree >= 0 || maxSize >= 0; }
};

using Key = std::pair<QByteArray, int>; // folder and number

/// The object that a file belongs to, if it belongs to one.
std::optional<Key> keyOf(const QByteArray &path)
{
    static const QRegularExpression NAME(
        "^([1-9][0-9]*ABC)/DCF_([0-9]{4})\\.(?i:jpg|png|avi|mkv|wav|thumb)$");
    const auto match = NAME.match(path);
    const int number = match.captured(2).toInt();
    return match.hasMatch() && number > 0 ? std::optional(Key(match.captured(1).toUtf8(), number))
                                          : std::nullopt;
}

int allocatedBy(const QList<ModelFile> &files)
{
    return std::accumulate(files.begin(), files.end(), 0,
                           [](int sum, const ModelFile &file) { return sum + file.allocated(); });
}

/// The files that are left.
QList<ModelFile> pruned(QList<ModelFile> files, const ModelPolicy &policy)
{
    QMap<Key, QList<ModelFile>> objects;
    for (const ModelFile &file : files) {
        if (const auto key = keyOf(file.path))
            objects[*key].append(file);
    }
    const auto any = [&objects](const Key &key, const std::function<bool(const ModelFile &)> &isSo) {
        return std::any_of(objects[key].begin(), objects[key].end(), isSo);
    };
    const auto isRecording = [](const ModelFile &file) { return !file.path.endsWith("thumb"); };
    QList<Key> recordings;
    for (const Key &key : objects.keys()) {
        if (any(key, isRecording))
            recordings.append(key);
    }
    const int last = std::max(1, policy.keepLast);
    int freed = 0;
    const auto size = [&files] {
        int sum = 0;
        for (const ModelFile &file : files)
            sum += keyOf(file.path) ? file.size : 0;
        return sum;
    };
    for (int i = 0; i + last < recordings.size(); ++i) {
        const Key key = recordings[i];
        const bool mayGo = !any(key, [](const ModelFile &file) {
            return file.isProtected;
        }) && !(policy.isKeepingRecent && any(key, [](const ModelFile &file) { return file.isRecent; }));
        const bool isNeeded = (policy.maxSize >= 0 && size() > policy.maxSize) || freed < policy.toFree;
        if (!mayGo || (policy.hasSpace() && !isNeeded))
            continue;
        freed += allocatedBy(objects[key]);
        files.erase(std::remove_if(files.begin(), files.end(),
                                   [&](const ModelFile &file) { return keyOf(file.path) == key; }),
                    files.end());
    }
    return files;
}

QList<ModelFile> randomFiles(QRandomGenerator &random)
{
    static const QByteArrayList FOLDERS = {"100ABC", "100ABC", "101ABC", "102ABC", "9ABC", "0101ABC", "MISC"};
    static const QByteArrayList EXTENSIONS = {"jpg", "jpg", "thumb", "thumb", "png",
                                              "avi", "wav", "JPG",   "txt"};
    static const QByteArrayList STRAYS = {"IMG_0001.jpg", "DCF_0001_1.jpg", "DCF_0000.avi", ".DCF_0001.jpg"};
    QMap<QByteArray, ModelFile> files;
    for (int i = random.bounded(40); i > 0; --i) {
        const QByteArray number = QByteArray::number(random.bounded(1, 6)).rightJustified(4, '0');
        const QByteArray name = random.bounded(12) == 0 ? oneOf(random, STRAYS)
                                                        : "DCF_" + number + "." + oneOf(random, EXTENSIONS);
        const QByteArray path = oneOf(random, FOLDERS) + "/" + name;
        files[path] = {path, static_cast<int>(random.bounded(100)), random.bounded(8) == 0,
                       random.bounded(6) == 0};
    }
    return files.values();
}

} // namespace

void VornfhPruneTest::agreesWithTheRules()
{
    constexpr int ROUNDS = 200;
    const bool hasMount = hasOwnMounts(); // other file systems do not free exactly these bytes
    QRandomGenerator random(20261122);
    const qint64 now = QDateTime::currentSecsSinceEpoch();
    for (int round = 0; round < ROUNDS; ++round) {
        const ToolRun tool;
        tool.make({"sd/"});
        std::optional<TmpfsMount> card;
        if (hasMount)
            QVERIFY(card.emplace(tool.path() + "/sd", "size=1m").isMounted());
        tool.make(onCard({})
                  + Tree{"sd/filler = " + QByteArray(40 * PAGE, 'x')}); // more than --keep-free requires
        const QList<ModelFile> files = randomFiles(random);
        for (const ModelFile &file : files) {
            tool.make(onCard({file.path + " = " + QByteArray(file.size, 'x')})); // without holes
            setModified(QFile::encodeName(tool.sd()) + "/" + file.path,
                        (now - (file.isRecent ? 10 : 100000)) * 1000);
            setMode(tool, "sd/DCIM/" + file.path, file.isProtected ? 0444 : 0644);
        }
        ModelPolicy policy = {!hasMount || random.bounded(2) == 0 ? -1 : PAGE * random.bounded(20),
                              random.bounded(3) == 0 ? -1 : random.bounded(1, 800), random.bounded(4),
                              random.bounded(2) == 0};
        policy.keepLast =
            !policy.hasSpace() && !policy.isKeepingRecent ? policy.keepLast + 1 : policy.keepLast;
        QByteArrayList arguments = {"prune", "sd"};
        struct statvfs fileSystem = {};
        QCOMPARE(::statvfs(QFile::encodeName(tool.sd()).constData(), &fileSystem), 0);
        const quint64 free = fileSystem.f_bfree * fileSystem.f_frsize;
        if (policy.toFree >= 0)
            arguments << "--keep-free" << QByteArray::number(free + static_cast<quint64>(policy.toFree));
        if (policy.maxSize >= 0)
            arguments << "--max-size" << QByteArray::number(policy.maxSize);
        if (policy.keepLast > 0)
            arguments << "--keep-last" << QByteArray::number(policy.keepLast);
        if (policy.isKeepingRecent)
            arguments << "--keep-within"
                      << "1h";
        Tree expected = onCard({});
        int size = 0;
        QByteArrayList folders; // with the names of the numbering
        for (const QByteArray &entry : tree(tool.sd())) {
            if (QRegularExpression("^[1-9][0-9]*ABC/$").match(entry).hasMatch())
                folders.append(entry);
        }
        Tree left;
        const QList<ModelFile> kept = pruned(files, policy);
        for (const ModelFile &file : kept) {
            left.append(file.path);
            size += keyOf(file.path) ? file.size : 0;
        }
        const bool isMet = (policy.maxSize < 0 || size <= policy.maxSize)
                           && allocatedBy(files) - allocatedBy(kept) >= policy.toFree;
        for (const QByteArray &entry : tree(tool.sd())) {
            const bool isFolder = entry.endsWith('/');
            const bool isEmptied = isFolder && folders.contains(entry) && entry != folders.last()
                                   && std::none_of(left.begin(), left.end(), [&](const QByteArray &path) {
                                          return path.startsWith(entry);
                                      });
            if (isFolder ? !isEmptied : left.contains(entry))
                expected.append("sd/DCIM/" + entry);
        }
        expected.append("sd/filler");
        const Outcome outcome = tool.runOnStorages(arguments);
        const QByteArray what = "round " + QByteArray::number(round) + ": " + arguments.join(' ') + "\n";
        QVERIFY2(tree(tool.path()) == expected,
                 (what + tree(tool.path()).join('\n') + "\ninstead of\n" + expected.join('\n')).constData());
        QVERIFY2(outcome.exitCode == (isMet ? 0 : 3), (what + outcome.err).constData());
    }
}

QTEST_GUILESS_MAIN(VornfhPruneTest)
#include "tst_vornfh_prune.moc"

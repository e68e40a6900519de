// SPDX-License-Identifier: MIT
#include "toolsupport.h"

#include <QFile>
#include <QTest>

#include <csignal>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

const Tree CARD =
    onCard({"100ABC/DCF_0001.jpg = one", "100ABC/DCF_0001.thumb = t", "100ABC/DCF_0002.avi = two",
            "100ABC/DCF_0002.wav = both", "100ABC/IMG_0001.jpg = other", "101ABC/DCF_0001.jpg = three",
            "MISC/DCF_0001.jpg = four"});

/// The files on the card that nobody may write to.
QByteArrayList protectedFiles(const ToolRun &tool)
{
    QByteArrayList found;
    for (const QByteArray &entry : tree(tool.sd())) {
        const struct stat status = statusOf(tool, "sd/DCIM/" + entry);
        if (S_ISREG(status.st_mode) && (status.st_mode & 0222) == 0)
            found.append(entry);
    }
    return found;
}

} // namespace

class VornfhProtectTest : public QObject
{
    Q_OBJECT

private slots:
    void marksObjects_data();
    void marksObjects();
    void refusesPaths_data();
    void refusesPaths();
    void requiresAPath();
    void requiresAReadableLocation();
    void keepsTheOtherPermissions_data();
    void keepsTheOtherPermissions();
    void isAnErrorIfTheMarkIsNotKept();
    void unprotectsByACopy();
    void keepsWhatCannotBeCopied_data();
    void keepsWhatCannotBeCopied();
    void survivesAKillDuringTheCopy_data();
    void survivesAKillDuringTheCopy();
    void leavesProtectedObjectsAlone_data();
    void leavesProtectedObjectsAlone();
    void overridesWithForce_data();
    void overridesWithForce();
    void deletesTheThumbnailOfTheLastRecording_data();
    void deletesTheThumbnailOfTheLastRecording();
    void leavesTheTargetOfALinkAlone();
    void leavesWhatIsBeingWrittenAlone();
    void showsTheMark();
    void showsTheMarkOfAnotherFile_data();
    void showsTheMarkOfAnotherFile();
    void extensionsMayBeInAnyCase_data();
    void extensionsMayBeInAnyCase();
};

void VornfhProtectTest::marksObjects_data()
{
    QTest::addColumn<QByteArrayList>("paths");
    QTest::addColumn<QByteArrayList>("files");
    const auto row = [](const char *name, const QByteArrayList &paths, const QByteArrayList &files) {
        QTest::newRow(name) << paths << files;
    };
    row("recording", {"sd/DCIM/100ABC/DCF_0001.jpg"}, {"100ABC/DCF_0001.jpg", "100ABC/DCF_0001.thumb"});
    row("thumbnail", {"sd/DCIM/100ABC/DCF_0001.thumb"}, {"100ABC/DCF_0001.jpg", "100ABC/DCF_0001.thumb"});
    row("two-formats", {"sd/DCIM/100ABC/DCF_0002.wav"}, {"100ABC/DCF_0002.avi", "100ABC/DCF_0002.wav"});
    row("both-files-of-an-object", {"sd/DCIM/100ABC/DCF_0002.wav", "sd/DCIM/100ABC/DCF_0002.avi"},
        {"100ABC/DCF_0002.avi", "100ABC/DCF_0002.wav"});
    row("folder", {"sd/DCIM/100ABC"},
        {"100ABC/DCF_0001.jpg", "100ABC/DCF_0001.thumb", "100ABC/DCF_0002.avi", "100ABC/DCF_0002.wav"});
    row("folder-with-a-slash", {"sd/DCIM/101ABC/"}, {"101ABC/DCF_0001.jpg"});
    row("through-a-link", {"in/DCF_0001.jpg"}, {"101ABC/DCF_0001.jpg"});
}

void VornfhProtectTest::marksObjects()
{
    QFETCH(QByteArrayList, paths);
    QFETCH(QByteArrayList, files);
    const ToolRun tool;
    tool.make(CARD + Tree{"in -> sd/DCIM/101ABC"});
    const Tree before = treeWithContents(tool.path());
    QCOMPARE(tool.runOnStorages(QByteArrayList{"protect"} + paths), tool.success(cardLines(files)));
    QCOMPARE(protectedFiles(tool), files);
    QCOMPARE(tool.runOnStorages(QByteArrayList{"protect"} + paths), tool.success(cardLines(files)));
    QCOMPARE(protectedFiles(tool), files);
    QCOMPARE(tool.runOnStorages(QByteArrayList{"unprotect"} + paths), tool.success(cardLines(files)));
    QCOMPARE(protectedFiles(tool), QByteArrayList());
    QCOMPARE(treeWithContents(tool.path()), before);
}

void VornfhProtectTest::refusesPaths_data()
{
    QTest::addColumn<QByteArray>("path");
    QTest::addColumn<QByteArray>("message");
    const auto row = [](const char *name, const QByteArray &path, const QByteArray &message) {
        QTest::newRow(name) << path << message;
    };
    const QByteArray outside = ": is not in a numbered folder of a configured storage device";
    row("missing", "sd/DCIM/100ABC/DCF_0009.jpg", "@/sd/DCIM/100ABC/DCF_0009.jpg: No such file or directory");
    row("outside", "DCF_0001.jpg", "@/DCF_0001.jpg" + outside);
    row("in-another-folder", "sd/DCIM/MISC/DCF_0001.jpg", "@/sd/DCIM/MISC/DCF_0001.jpg" + outside);
    row("another-folder", "sd/DCIM/MISC", "@/sd/DCIM/MISC" + outside);
    row("folder-that-the-numbering-cannot-use", "sd/DCIM/0101ABC", "@/sd/DCIM/0101ABC" + outside);
    row("folder-in-another-folder", "sd/DCIM/MISC/100ABC", "@/sd/DCIM/MISC/100ABC" + outside);
    row("location", "sd/DCIM", "@/sd/DCIM" + outside);
    row("not-an-object", "sd/DCIM/100ABC/IMG_0001.jpg",
        "@/sd/DCIM/100ABC/IMG_0001.jpg: does not belong to an object");
    row("empty", "", "'': is not a file name");
    row("not-utf-8", "sd/\xff", "sd/\\xff: the name is not valid UTF-8");
}

void VornfhProtectTest::refusesPaths()
{
    QFETCH(QByteArray, path);
    QFETCH(QByteArray, message);
    const ToolRun tool;
    tool.make(CARD + Tree{"DCF_0001.jpg"} + onCard({"0101ABC/DCF_0001.jpg", "MISC/100ABC/DCF_0001.jpg"}));
    QCOMPARE(tool.runOnStorages({"protect", path, "sd/DCIM/101ABC/DCF_0001.jpg"}),
             tool.failure({message, "1 of 2 paths not protected"}, cardLines({"101ABC/DCF_0001.jpg"})));
    QCOMPARE(protectedFiles(tool), QByteArrayList{"101ABC/DCF_0001.jpg"});
    QCOMPARE(tool.runOnStorages({"unprotect", path, "sd/DCIM/101ABC/DCF_0001.jpg"}),
             tool.failure({message, "1 of 2 paths not unprotected"}, cardLines({"101ABC/DCF_0001.jpg"})));
    QCOMPARE(protectedFiles(tool), QByteArrayList());
}

void VornfhProtectTest::requiresAPath()
{
    const ToolRun tool;
    for (const QByteArray command : {"protect", "unprotect"})
        QCOMPARE(tool.runOnStorages({command}), tool.usageError({"PATH... is required"}));
}

/// The numbered folders cannot be listed.
void VornfhProtectTest::requiresAReadableLocation()
{
    ToolRun tool;
    if (!tool.dropPrivileges())
        QSKIP("the tool cannot run as another user");
    tool.make(CARD);
    const FolderMode unreadable(tool.sd(), 0311);
    QCOMPARE(tool.runOnStorages({"protect", "sd/DCIM/101ABC/DCF_0001.jpg"}),
             tool.failure({"@/sd/DCIM: Permission denied", "1 of 1 paths not protected"}));
}

void VornfhProtectTest::keepsTheOtherPermissions_data()
{
    QTest::addColumn<int>("before");
    QTest::addColumn<int>("marked");
    QTest::addColumn<int>("after");
    row("usual", 0644, 0444, 0644);
    row("private", 0600, 0400, 0600);
    row("executable", 0755, 0555, 0755);
}

void VornfhProtectTest::keepsTheOtherPermissions()
{
    QFETCH(int, before);
    QFETCH(int, marked);
    QFETCH(int, after);
    const ToolRun tool;
    tool.make(CARD);
    const QByteArray file = "sd/DCIM/101ABC/DCF_0001.jpg";
    const auto mode = [&] { return static_cast<int>(statusOf(tool, file).st_mode & 07777); };
    setMode(tool, file, static_cast<mode_t>(before));
    QCOMPARE(tool.runOnStorages({"protect", file}).exitCode, 0);
    QCOMPARE(mode(), marked);
    QCOMPARE(tool.runOnStorages({"unprotect", file}).exitCode, 0);
    QCOMPARE(mode(), after);
}

void VornfhProtectTest::isAnErrorIfTheMarkIsNotKept()
{
    if (!hasOwnMounts())
        QSKIP("mounting needs root");
    const ToolRun tool;
    tool.make({"sd/"});
    const TmpfsMount card(tool.path() + "/sd", "size=1m");
    tool.make(CARD);
    QVERIFY(card.isMounted() && card.makeReadOnly());
    QCOMPARE(tool.runOnStorages({"protect", "sd/DCIM/101ABC/DCF_0001.jpg"}),
             tool.failure({"@/sd/DCIM/101ABC/DCF_0001.jpg: cannot be protected: Read-only file system",
                           "1 of 1 paths not protected"}));
}

namespace {

const QByteArray RECORDING = "sd/DCIM/100ABC/DCF_0002.avi";

/// The names of the hidden files in the folder of RECORDING.
QByteArrayList hiddenFiles(const ToolRun &tool)
{
    QByteArrayList names;
    for (const QByteArray &name : tree(tool.sd() + "/100ABC")) {
        if (name.startsWith(".vornfh-"))
            names.append(name);
    }
    return names;
}

} // namespace

/// On exFAT before Linux 6.8 the kernel cannot clear the mark.
void VornfhProtectTest::unprotectsByACopy()
{
    ToolRun tool;
    if (!tool.pretendExfat())
        QSKIP(CANNOT_PRELOAD);
    tool.make(CARD);
    setMode(tool, RECORDING, 0440);
    setModified(QFile::encodeName(tool.path()) + "/" + RECORDING, 1000000000000);
    const Tree before = treeWithContents(tool.path());
    const ino_t inode = statusOf(tool, RECORDING).st_ino;
    QCOMPARE(tool.runOnStorages({"unprotect", RECORDING}),
             tool.success(cardLines({"100ABC/DCF_0002.avi", "100ABC/DCF_0002.wav"})));
    QCOMPARE(treeWithContents(tool.path()), before);
    const struct stat status = statusOf(tool, RECORDING);
    QVERIFY(status.st_ino != inode);
    QCOMPARE(status.st_mtime, 1000000000L);
    QCOMPARE(status.st_mode & 0200U, 0200U);
}

void VornfhProtectTest::keepsWhatCannotBeCopied_data()
{
    QTest::addColumn<QByteArray>("call"); // before which something happens
    QTest::addColumn<QByteArray>("script");
    QTest::addColumn<QByteArray>("message");
    const QByteArray append =
        "chmod u+w '" + RECORDING + "'; echo more >> '" + RECORDING + "'; chmod 444 '" + RECORDING + "'";
    row("changed-before-the-copy-is-compared", QByteArray("posix_fadvise"), append,
        QByteArray("the unprotected copy differs"));
    row("changed-while-the-copy-is-written", QByteArray("sendfile"), append,
        QByteArray("was changed by another program in the meantime"));
    row("being-written", QByteArray("posix_fadvise"),
        "chmod u+w '" + RECORDING + "'; sleep 10 >> '" + RECORDING + "' & chmod 444 '" + RECORDING + "'",
        QByteArray("was changed by another program in the meantime"));
    row("no-space", QByteArray("sendfile"), QByteArray("head -c 3000000 /dev/zero > sd/filler 2>&-"),
        QByteArray("an unprotected copy cannot be written: No space left on device"));
}

void VornfhProtectTest::keepsWhatCannotBeCopied()
{
    QFETCH(QByteArray, call);
    QFETCH(QByteArray, script);
    QFETCH(QByteArray, message);
    if (!hasOwnMounts())
        QSKIP(CANNOT_MOUNT);
    ToolRun tool;
    tool.make({"sd/"});
    const TmpfsMount card(tool.path() + "/sd", "size=1m");
    QVERIFY(card.isMounted());
    tool.make(CARD);
    makeTree(tool.path(), {RECORDING + " = " + pattern(50000, 'r')});
    setMode(tool, RECORDING, 0444);
    if (!tool.pretendExfat() || !tool.runBefore(call, script))
        QSKIP(CANNOT_PRELOAD);
    QCOMPARE(tool.runOnStorages({"unprotect", RECORDING}),
             tool.failure({"@/" + RECORDING + ": " + message, "1 of 1 paths not unprotected"},
                          cardLines({"100ABC/DCF_0002.wav"})));
    QVERIFY(tool.content(RECORDING).startsWith(pattern(50000, 'r')));
    QCOMPARE(protectedFiles(tool), QByteArrayList{"100ABC/DCF_0002.avi"});
    QCOMPARE(hiddenFiles(tool), QByteArrayList());
}

void VornfhProtectTest::survivesAKillDuringTheCopy_data()
{
    QTest::addColumn<QByteArray>("call"); // before which the tool is killed
    QTest::addColumn<int>("count");
    QTest::addColumn<bool>("hasName"); // the recording, until the next command
    QTest::addColumn<int>("leftovers");
    row("while-it-is-written", QByteArray("sendfile"), 1, true, 1);
    row("before-it-is-flushed", QByteArray("fsync"), 1, true, 1);
    row("before-it-is-compared", QByteArray("posix_fadvise"), 1, true, 1);
    row("before-the-replacement-is-recorded", QByteArray("fsync"), 4, true, 2);
    row("after-the-recording-has-lost-its-name", QByteArray("syncfs"), 1, false, 2);
    row("before-the-copy-gets-the-name", QByteArray("renameat2"), 1, false, 2);
    row("before-the-name-is-flushed", QByteArray("syncfs"), 2, true, 1);
    row("before-the-old-file-is-deleted", QByteArray("unlink"), 1, true, 1);
    row("before-the-mark-is-deleted", QByteArray("unlink"), 2, true, 0);
    row("before-the-folder-is-flushed", QByteArray("syncfs"), 3, true, 0);
}

/// The next command removes what is left: it is still the same session of the device.
void VornfhProtectTest::survivesAKillDuringTheCopy()
{
    QFETCH(QByteArray, call);
    QFETCH(int, count);
    QFETCH(bool, hasName);
    QFETCH(int, leftovers);
    ToolRun tool;
    LoopCard card(tool);
    if (card.mount(tool.path() + "/sd").isEmpty())
        QSKIP(CANNOT_MOUNT);
    if (!tool.pretendExfat())
        QSKIP(CANNOT_PRELOAD);
    const QProcessEnvironment usual = tool.environment;
    tool.make(CARD);
    setMode(tool, RECORDING, 0444);
    const Tree before = treeWithContents(tool.sd());
    QVERIFY(tool.runBefore(call, "kill -9 $PPID", count));
    QCOMPARE(tool.runOnStorages({"unprotect", RECORDING}).exitCode, 128 + SIGKILL);
    tool.environment = usual;
    QCOMPARE(tool.content(RECORDING), hasName ? QByteArray("two") : QByteArray());
    const QByteArray found = tool.runOnStorages({"check", "sd"}).out;
    QCOMPARE(found.count("was left by an interrupted command"), leftovers);
    const Outcome outcome = tool.runOnStorages({"unprotect", RECORDING});
    QCOMPARE(outcome.exitCode, 0);
    QCOMPARE(outcome.out, tool.expand(cardLines({"100ABC/DCF_0002.avi", "100ABC/DCF_0002.wav"})));
    QCOMPARE(outcome.err.count("; removed\n"), leftovers);
    QCOMPARE(outcome.err.count("; restored\n"), hasName ? 0 : 1);
    QCOMPARE(treeWithContents(tool.sd()), before);
    QCOMPARE(protectedFiles(tool), QByteArrayList());
}

void VornfhProtectTest::leavesProtectedObjectsAlone_data()
{
    QTest::addColumn<QByteArrayList>("arguments");
    QTest::addColumn<QByteArray>("out");
    QTest::addColumn<QByteArrayList>("messages");
    QTest::addColumn<Tree>("deleted"); // besides the protected object 100ABC/DCF_0001
    const auto row = [](const char *name, const QByteArrayList &arguments, const QByteArrayList &messages,
                        const QByteArray &out = {}, const Tree &deleted = {}) {
        QTest::newRow(name) << arguments << out << messages << deleted;
    };
    const QByteArray recording = "@/sd/DCIM/100ABC/DCF_0001.jpg";
    const QByteArray thumbnail = "@/sd/DCIM/100ABC/DCF_0001.thumb";
    const QByteArray why = ": is protected; use --force";
    const QByteArray keeps =
        ": keeps 2 files of objects that are protected or being written; use --force to delete them too";
    const Tree others = onCard({"100ABC/DCF_0002.avi", "100ABC/DCF_0002.wav", "100ABC/IMG_0001.jpg"}).mid(2);
    const Tree elsewhere = onCard({"101ABC/", "101ABC/DCF_0001.jpg", "MISC/", "MISC/DCF_0001.jpg"}).mid(2);
    row("delete", {"delete", recording}, {recording + why, "1 of 1 files not deleted"});
    row("delete-thumbnail", {"delete", thumbnail}, {thumbnail + why, "1 of 1 files not deleted"});
    row("delete-only", {"delete", "--only", recording}, {recording + why, "1 of 1 files not deleted"});
    row("move", {"move", recording, "sd", "MISC"}, {recording + why, "2 of 2 files not moved"});
    row("move-thumbnail", {"move", thumbnail, "mmc", "MISC"}, {thumbnail + why, "1 of 1 files not moved"});
    row("move-from-a-missing-folder", {"move", "@/sd/DCIM/none/a.jpg", "mmc", "MISC"},
        {"@/sd/DCIM/none/a.jpg: No such file or directory", "1 of 1 files not moved"});
    row("rmdir", {"rmdir", "sd", "100ABC", "--yes"},
        {"@/sd/DCIM/100ABC: will delete 3 files, 12 B", "@/sd/DCIM/100ABC" + keeps},
        "@/sd/DCIM/100ABC: deleted 3 files, 12 B; kept 2 files\n", others);
    row("wipe", {"wipe", "sd", "--yes"},
        {"@/sd/DCIM: will delete 5 files and 2 folders, 21 B", "@/sd/DCIM" + keeps},
        "@/sd/DCIM: deleted 5 files and 2 folders, 21 B; kept 2 files\n", others + elsewhere);
}

void VornfhProtectTest::leavesProtectedObjectsAlone()
{
    QFETCH(QByteArrayList, arguments);
    QFETCH(QByteArray, out);
    QFETCH(QByteArrayList, messages);
    QFETCH(Tree, deleted);
    const ToolRun tool;
    tool.make(CARD + Tree{"mmc/DCIM/"});
    setMode(tool, "sd/DCIM/100ABC/DCF_0001.thumb", 0444);
    Tree expected = tree(tool.path());
    for (const QByteArray &entry : deleted)
        QVERIFY2(expected.removeOne(entry), entry.constData());
    QCOMPARE(tool.runOnStorages(arguments), tool.failure(messages, out));
    QCOMPARE(tree(tool.path()), expected);
}

void VornfhProtectTest::overridesWithForce_data()
{
    QTest::addColumn<QByteArrayList>("arguments");
    const auto row = [](const char *name, const QByteArrayList &arguments) {
        QTest::newRow(name) << arguments;
    };
    row("delete", {"delete", "--force", "sd/DCIM/100ABC/DCF_0001.jpg"});
    row("move", {"move", "--force", "sd/DCIM/100ABC/DCF_0001.jpg", "sd", "MISC2"});
    row("rmdir", {"rmdir", "sd", "100ABC", "--yes", "--force"});
    row("wipe", {"wipe", "sd", "--yes", "--force"});
}

void VornfhProtectTest::overridesWithForce()
{
    QFETCH(QByteArrayList, arguments);
    const ToolRun tool;
    tool.make(CARD);
    QCOMPARE(tool.runOnStorages({"protect", "sd/DCIM/100ABC"}).exitCode, 0);
    const Outcome outcome = tool.runOnStorages(arguments);
    QVERIFY2(outcome.exitCode == 0, outcome.err);
    QVERIFY(!QFile::exists(tool.sd() + "/100ABC/DCF_0001.jpg"));
}

void VornfhProtectTest::deletesTheThumbnailOfTheLastRecording_data()
{
    QTest::addColumn<Tree>("entries"); // of which the first is protected and deleted
    QTest::addColumn<Tree>("left");
    QTest::addColumn<bool>("isLinked"); // the second entry, to the first
    const auto row = [](const char *name, const Tree &entries, const Tree &left, bool isLinked = false) {
        QTest::newRow(name) << entries << left << isLinked;
    };
    const QByteArray thumbnail = "DCF_0005.thumb";
    row("photo", {"DCF_0005.jpg", thumbnail}, {});
    row("video", {"DCF_0005.avi", thumbnail}, {});
    row("audio-file", {"DCF_0005.wav", thumbnail}, {thumbnail});
    row("without-a-thumbnail", {"DCF_0005.jpg"}, {});
    row("folder-in-place-of-the-thumbnail", {"DCF_0005.jpg", "DCF_0005.thumb/"}, {"DCF_0005.thumb/"});
    row("photo-is-left", {"DCF_0005.avi", "DCF_0005.jpg", thumbnail}, {"DCF_0005.jpg", thumbnail});
    row("video-is-left", {"DCF_0005.jpg", "DCF_0005.mkv", thumbnail}, {"DCF_0005.mkv", thumbnail});
    row("video-in-upper-case-is-left", {"DCF_0005.jpg", "DCF_0005.AVI", thumbnail},
        {"DCF_0005.AVI", thumbnail});
    row("photo-in-upper-case-is-left", {"DCF_0005.jpg", "DCF_0005.JPG", thumbnail},
        {"DCF_0005.JPG", thumbnail});
    row("hard-link-is-left", {"DCF_0005.jpg", "DCF_0005.avi", thumbnail}, {"DCF_0005.avi", thumbnail}, true);
}

void VornfhProtectTest::deletesTheThumbnailOfTheLastRecording()
{
    QFETCH(Tree, entries);
    QFETCH(Tree, left);
    QFETCH(bool, isLinked);
    const ToolRun tool;
    tool.make(onCard(below("100ABC/", entries)));
    const QByteArray folder = QFile::encodeName(tool.sd()) + "/100ABC/";
    const QByteArray first = folder + entries[0];
    if (isLinked) {
        const QByteArray second = folder + entries[1];
        QVERIFY(::unlink(second.constData()) == 0 && ::link(first.constData(), second.constData()) == 0);
    }
    setMode(tool, "sd/DCIM/100ABC/" + entries[0], 0444);
    QByteArrayList deleted = entries;
    for (const QByteArray &entry : left)
        deleted.removeOne(entry);
    QCOMPARE(tool.runOnStorages({"delete", "--force", first}),
             tool.success(cardLines(below("100ABC/", deleted))));
    QCOMPARE(tree(tool.sd() + "/100ABC"), left);
}

/// The target is protected and being written.
void VornfhProtectTest::leavesTheTargetOfALinkAlone()
{
    const ToolRun tool;
    tool.make(onCard({"100ABC/DCF_0001.jpg -> @/a.jpg"}) + Tree{"a.jpg = a"});
    const QByteArray target = QFile::encodeName(tool.path()) + "/a.jpg";
    const int file = ::open(target.constData(), O_WRONLY | O_CLOEXEC);
    setMode(tool, "a.jpg", 0444);
    const Outcome outcome = tool.runOnStorages({"delete", "sd/DCIM/100ABC/DCF_0001.jpg"});
    ::close(file);
    QCOMPARE(outcome, tool.success(cardLines({"100ABC/DCF_0001.jpg"})));
    QCOMPARE(tool.content("a.jpg"), QByteArray("a"));
}

void VornfhProtectTest::leavesWhatIsBeingWrittenAlone()
{
    const ToolRun tool;
    tool.make(CARD);
    const QByteArray thumbnail = QFile::encodeName(tool.sd()) + "/100ABC/DCF_0001.thumb";
    const int file = ::open(thumbnail.constData(), O_WRONLY | O_CLOEXEC);
    const Tree before = tree(tool.path());
    const Outcome outcome = tool.runOnStorages({"delete", "sd/DCIM/100ABC/DCF_0001.jpg"});
    ::close(file);
    QCOMPARE(outcome, tool.failure({"@/sd/DCIM/100ABC/DCF_0001.jpg: is being written; use --force",
                                    "1 of 1 files not deleted"}));
    QCOMPARE(tree(tool.path()), before);
}

void VornfhProtectTest::showsTheMark()
{
    const ToolRun tool;
    tool.make(CARD);
    const QByteArrayList info = {"info", "sd/DCIM/100ABC/DCF_0001.jpg"};
    QVERIFY(!tool.runOnStorages(info).out.contains("protected"));
    QCOMPARE(tool.runOnStorages({"protect", "sd/DCIM/100ABC/DCF_0001.jpg"}).exitCode, 0);
    QVERIFY(tool.runOnStorages(info).out.contains("\n  mark      protected\n"));
    QCOMPARE(tool.runOnStorages(info + QByteArrayList{"--json"}).json()[0]["protected"].toBool(), true);
}

void VornfhProtectTest::showsTheMarkOfAnotherFile_data()
{
    QTest::addColumn<QByteArray>("marked");
    QTest::addColumn<QByteArray>("other"); // file
    QTest::addColumn<QByteArray>("fileSystem");
    QTest::addColumn<bool>("isShown"); // for the other file
    const auto row = [](const char *name, const QByteArray &marked, const QByteArray &other, bool isShown,
                        const QByteArray &fileSystem = {}) {
        QTest::newRow(name) << marked << other << fileSystem << isShown;
    };
    row("short-name", "a.thumb", "a.jpg", true);
    row("hidden", ".a.thumb", ".a.jpg", false);
    row("name-in-another-case", "DCF_0005.thumb", "dcf_0005.jpg", false);
    row("name-in-another-case-on-fat", "DCF_0005.thumb", "dcf_0005.jpg", true, "fat");
    row("name-in-another-case-on-exfat", "DCF_0005.thumb", "dcf_0005.jpg", true, "exfat");
}

void VornfhProtectTest::showsTheMarkOfAnotherFile()
{
    QFETCH(QByteArray, marked);
    QFETCH(QByteArray, other);
    QFETCH(QByteArray, fileSystem);
    QFETCH(bool, isShown);
    ToolRun tool;
    if ((fileSystem == "fat" && !tool.pretendFat()) || (fileSystem == "exfat" && !tool.pretendExfat()))
        QSKIP(CANNOT_PRELOAD);
    tool.make(onCard(below("100ABC/", {marked + " = x", other + " = x"})));
    setMode(tool, "sd/DCIM/100ABC/" + marked, 0444);
    const QByteArray out = tool.runOnStorages({"info", "sd/DCIM/100ABC/" + other}).out;
    QVERIFY2(out.contains("\n  type      image\n"), out.constData());
    QCOMPARE(out.contains("\n  mark      protected\n"), isShown);
}

void VornfhProtectTest::extensionsMayBeInAnyCase_data()
{
    QTest::addColumn<QByteArray>("marked");
    QTest::addColumn<QByteArray>("other"); // file of the same object
    row("photo", QByteArray("DCF_0005.JPG"), QByteArray("DCF_0005.thumb"));
    row("thumbnail", QByteArray("DCF_0005.thumb"), QByteArray("DCF_0005.JPG"));
    row("format", QByteArray("DCF_0005.AVI"), QByteArray("DCF_0005.jpg"));
    row("mixed-case", QByteArray("DCF_0005.Png"), QByteArray("DCF_0005.Thumb"));
}

/// To the library, a file has the number in its name whatever the case of its extension.
void VornfhProtectTest::extensionsMayBeInAnyCase()
{
    QFETCH(QByteArray, marked);
    QFETCH(QByteArray, other);
    const QByteArray folder = "sd/DCIM/100ABC/";
    const ToolRun tool;
    tool.make(CARD + Tree{folder + marked + " = x", folder + other + " = x"});
    QVERIFY(!tool.runOnStorages({"info", folder + other}).out.contains("protected"));
    setMode(tool, folder + marked, 0444);
    for (const QByteArray &name : {marked, other}) {
        const QByteArray path = folder + name;
        QVERIFY2(tool.runOnStorages({"info", path}).out.contains("\n  mark      protected\n"),
                 name.constData());
        for (const QByteArrayList &command : {QByteArrayList{"delete", path}, {"delete", "--only", path}})
            QCOMPARE(tool.runOnStorages(command),
                     tool.failure({"@/" + path + ": is protected; use --force", "1 of 1 files not deleted"}));
    }
    const Outcome outcome = tool.runOnStorages({"unprotect", folder + other});
    QCOMPARE(outcome.exitCode, 0);
    QCOMPARE(sorted(outcome.out.trimmed().split('\n')),
             sorted(tool.expand(Tree{"@/" + folder + marked, "@/" + folder + other})));
    QCOMPARE(protectedFiles(tool), QByteArrayList());
}

QTEST_GUILESS_MAIN(VornfhProtectTest)
#include "tst_vornfh_protect.moc"

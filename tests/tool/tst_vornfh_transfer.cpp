// SPDX-License-Identifier: MIT
#include "standins.h"
#include "toolsupport.h"

#include <QElapsedTimer>
#include <QFile>
#include <QRandomGenerator>
#include <QTest>

#include <algorithm>
#include <cerrno>
#include <csignal>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

/// The start of a script for cp, which may call the real one.
const QByteArray REAL_CP = "real() { /bin/cp \"$@\"; }\n";

QByteArray pattern(int size, char seed)
{
    QByteArray bytes(size, '\0');
    for (int i = 0; i < size; ++i)
        bytes[i] = static_cast<char>(seed + i * 7 + i / 251);
    return bytes;
}

/// The line about a file that was copied to a folder of the card.
QByteArray copied(const QByteArray &source, const QByteArray &target, const QByteArray &folder = "100ABC")
{
    return "@/" + source + " -> @/sd/DCIM/" + folder + "/" + target + "\n";
}

QByteArray copied(const QByteArray &file)
{
    return copied(file, file);
}

/// The last message of @p command.
QByteArray notDone(const QByteArray &command, int failed, int all)
{
    return QByteArray::number(failed) + " of " + QByteArray::number(all) + " files not "
           + (command == "move" ? "moved" : "copied");
}

QByteArray alreadyThere(const QByteArray &path)
{
    return path + ": is already in that folder";
}

/// Waits for programs that outlived the tool.
void waitForOrphans()
{
    while (::waitpid(-1, nullptr, 0) > 0 || errno == EINTR) {
    }
}

} // namespace

class VornfhTransferTest : public QObject
{
    Q_OBJECT

private slots:
    void copies_data();
    void copies();
    void moves_data();
    void moves();
    void refusesWrongCommandLines_data();
    void refusesWrongCommandLines();
    void survivesABadCp_data();
    void survivesABadCp();
    void reportsThatCpIsMissing();
    void stopsWhenAllCountersAreTaken();
    void keepsModeAndTimes();
    void keepsASourceThatChanges_data();
    void keepsASourceThatChanges();
    void keepsACopyWhoseSourceVanished();
    void stopsAfterTheCurrentFile();
    void refusesAFolderInUse();
    void movesAcrossFileSystems();
    void reportsAFullStorage_data();
    void reportsAFullStorage();
    void reportsAReadOnlyStorage();
    void reportsAMissingStorage_data();
    void reportsAMissingStorage();
    void showsProgressOnlyOnATerminal();
    void losesNothingWhenKilled();
};

void VornfhTransferTest::copies_data()
{
    QTest::addColumn<Tree>("before");
    QTest::addColumn<QByteArrayList>("files");
    QTest::addColumn<QByteArray>("storage");
    QTest::addColumn<QByteArray>("folder");
    QTest::addColumn<Tree>("copies"); // in the folder, which is created for them
    QTest::addColumn<QByteArray>("out");
    QTest::addColumn<QByteArrayList>("messages");
    const auto row = [](const char *name, const Tree &before, const QByteArrayList &files, const Tree &copies,
                        const QByteArray &out, const QByteArrayList &messages = {},
                        const QByteArray &folder = "100ABC", const QByteArray &storage = "sd") {
        QTest::newRow(name) << before << files << storage << folder << copies << out << messages;
    };
    row("one-file", {"a.jpg = x"}, {"a.jpg"}, {"a.jpg = x"}, copied("a.jpg"));
    row("storage-in-upper-case", {"a.jpg = x"}, {"a.jpg"}, {"a.jpg = x"}, copied("a.jpg"), {}, "100ABC",
        "SD");
    row("spaces-and-quotes", {"a 'b' \"c\".jpg = x"}, {"a 'b' \"c\".jpg"}, {"a 'b' \"c\".jpg = x"},
        copied("a 'b' \"c\".jpg", "a 'b' \"c\".jpg", "my folder"), {}, "my folder");
    row("line-feed-in-the-name", {"a\nb.jpg = x"}, {"a\nb.jpg"}, {"a\nb.jpg = x"}, copied("a\\x0ab.jpg"));
    row("leading-dash", {"-r.jpg = x"}, {"--", "-r.jpg"}, {"-r.jpg = x"}, copied("-r.jpg"));
    row("brackets", {"[a,b] = x", "a", "b"}, {"[a,b]"}, {"[a,b] = x"}, copied("[a,b]", "[a,b]", "[1,2]"), {},
        "[1,2]");
    row("placeholders-in-the-name", {"%1 %2%3.%4 = new", "sd/DCIM/100ABC/%1 %2%3.%4 = old"}, {"%1 %2%3.%4"},
        {"1 %4%3_%3.%4 = new"}, copied("%1 %2%3.%4", "1 %4%3_%3.%4"));
    row("name-taken", {"DCF_0001.jpg = new", "sd/DCIM/100ABC/DCF_0001.jpg = old"}, {"DCF_0001.jpg"},
        {"DCF_0001_1.jpg = new"}, copied("DCF_0001.jpg", "DCF_0001_1.jpg"));
    row("same-name-twice", {"x/a.b.c = 1", "y/a.b.c = 2"}, {"x/a.b.c", "y/a.b.c"}, {"a.b.c = 1", "a_1.c = 2"},
        copied("x/a.b.c", "a.b.c") + copied("y/a.b.c", "a_1.c"));
    row("link-to-a-file", {"a.jpg = x", "link.jpg -> a.jpg"}, {"link.jpg"}, {"link.jpg = x"},
        copied("link.jpg"));
    row("bad-sources-between-good-ones", {"a.jpg = 1", "folder/", "nowhere -> gone", "b.jpg = 2"},
        {"a.jpg", "folder", "nowhere", "missing", "a.jpg/", "", "/dev/null", "b\xff", "b.jpg"},
        {"a.jpg = 1", "b.jpg = 2"}, copied("a.jpg") + copied("b.jpg"),
        {"@/folder: is a folder", "@/nowhere: is a dangling symbolic link",
         "@/missing: No such file or directory", "@/a.jpg/: Not a directory", "'': is not a file name",
         "/dev/null: is not a regular file", "b\\xff: the name is not valid UTF-8", notDone("copy", 7, 9)});
    row("already-in-the-folder", {"sd/DCIM/100ABC/a.jpg = x"}, {"sd/DCIM/100ABC/a.jpg"}, {}, "",
        {alreadyThere("@/sd/DCIM/100ABC/a.jpg"), notDone("copy", 1, 1)});
    row("dangling-link-as-target", {"a.jpg = x", "sd/DCIM/100ABC/a.jpg -> @/elsewhere"}, {"a.jpg"}, {}, "",
        {"@/sd/DCIM/100ABC/a.jpg: is a dangling symbolic link", notDone("copy", 1, 1)});
    row("file-in-place-of-the-folder", {"a.jpg = x", "sd/DCIM/100ABC"}, {"a.jpg"}, {}, "",
        {"@/sd/DCIM/100ABC: is not a folder"});
    const QByteArray longFolder(300, 'x');
    row("folder-name-too-long", {"a.jpg = x"}, {"a.jpg"}, {}, "",
        {"@/sd/DCIM/" + longFolder + ": cannot be created: File name too long"}, longFolder);
    const QByteArray longName(255, 'x');
    row("name-too-long-with-a-counter", {longName + " = new", "sd/DCIM/100ABC/" + longName + " = old"},
        {longName}, {}, "",
        {"@/" + longName + ": cannot be copied: File name too long", notDone("copy", 1, 1)});
}

void VornfhTransferTest::copies()
{
    QFETCH(Tree, before);
    QFETCH(QByteArrayList, files);
    QFETCH(QByteArray, storage);
    QFETCH(QByteArray, folder);
    QFETCH(Tree, copies);
    QFETCH(QByteArray, out);
    QFETCH(QByteArrayList, messages);
    const ToolRun tool;
    tool.make(onCard({}) + before);
    Tree expected = treeWithContents(tool.path());
    const QByteArray path = "sd/DCIM/" + folder + "/";
    if (!copies.isEmpty() && !expected.contains(path))
        expected.append(path);
    expected += below(path, copies);
    std::sort(expected.begin(), expected.end());
    QCOMPARE(tool.runOnStorages(QByteArrayList{"copy"} + files + QByteArrayList{storage, folder}),
             messages.isEmpty() ? tool.success(out) : tool.failure(messages, out));
    QCOMPARE(treeWithContents(tool.path()), expected);
}

void VornfhTransferTest::moves_data()
{
    QTest::addColumn<Tree>("before");
    QTest::addColumn<QByteArrayList>("files");
    QTest::addColumn<Tree>("after");
    QTest::addColumn<QByteArray>("out");
    QTest::addColumn<QByteArrayList>("messages");
    const auto row = [](const char *name, const Tree &before, const QByteArrayList &files, const Tree &after,
                        const QByteArray &out, const QByteArrayList &messages = {}) {
        QTest::newRow(name) << before << files << after << out << messages;
    };
    row("one-file", {"a.jpg = x"}, {"a.jpg"}, onCard({"100ABC/", "100ABC/a.jpg = x"}), copied("a.jpg"));
    row("only-the-link-is-deleted", {"a.jpg = x", "link.jpg -> a.jpg"}, {"link.jpg"},
        Tree{"a.jpg = x"} + onCard({"100ABC/", "100ABC/link.jpg = x"}), copied("link.jpg"));
    row("same-file-twice", {"a.jpg = x"}, {"a.jpg", "a.jpg"}, onCard({"100ABC/", "100ABC/a.jpg = x"}),
        copied("a.jpg"), {"@/a.jpg: No such file or directory", notDone("move", 1, 2)});
    row("already-in-the-folder", {"sd/DCIM/100ABC/a.jpg = x"}, {"sd/DCIM/100ABC/../100ABC/a.jpg"},
        onCard({"100ABC/", "100ABC/a.jpg = x"}), "",
        {alreadyThere("@/sd/DCIM/100ABC/../100ABC/a.jpg"), notDone("move", 1, 1)});
    row("name-taken", {"a.jpg = new", "sd/DCIM/100ABC/a.jpg = old"}, {"a.jpg"},
        onCard({"100ABC/", "100ABC/a.jpg = old", "100ABC/a_1.jpg = new"}), copied("a.jpg", "a_1.jpg"));
}

void VornfhTransferTest::moves()
{
    QFETCH(Tree, before);
    QFETCH(QByteArrayList, files);
    QFETCH(Tree, after);
    QFETCH(QByteArray, out);
    QFETCH(QByteArrayList, messages);
    const ToolRun tool;
    tool.make(onCard({}) + before);
    QCOMPARE(tool.runOnStorages(QByteArrayList{"move"} + files + QByteArrayList{"sd", "100ABC"}),
             messages.isEmpty() ? tool.success(out) : tool.failure(messages, out));
    QCOMPARE(treeWithContents(tool.path()), after);
}

void VornfhTransferTest::refusesWrongCommandLines_data()
{
    QTest::addColumn<QByteArrayList>("target");
    QTest::addColumn<QByteArray>("message");
    const auto row = [](const char *name, const QByteArrayList &target, const QByteArray &message) {
        QTest::newRow(name) << target << message;
    };
    row("no-folder", {"sd"}, "copy needs FILE..., STORAGE and FOLDER");
    row("unknown-storage", {"card", "100ABC"}, messages::unknownStorage("card"));
    row("empty-folder-name", {"sd", ""}, messages::emptyFolderName());
    row("dot", {"sd", "."}, messages::reservedFolderName("."));
    row("two-dots", {"sd", ".."}, messages::reservedFolderName(".."));
    row("path", {"sd", "../x"}, messages::folderNameWithSlash("../x"));
    row("trailing-slash", {"sd", "x/"}, messages::folderNameWithSlash("x/"));
    row("line-feed", {"sd", "x\n"}, "the folder name 'x\\x0a' contains a control character");
    row("not-utf-8", {"sd", "x\xff"}, messages::notUtf8("FOLDER", "x\\xff"));
    row("placeholder", {"sd", "50%2"},
        "the folder name '50%2' contains '%' before a digit, which the library would replace");
}

void VornfhTransferTest::refusesWrongCommandLines()
{
    QFETCH(QByteArrayList, target);
    QFETCH(QByteArray, message);
    const ToolRun tool;
    tool.make(Tree{"a.jpg"} + onCard({}));
    QCOMPARE(tool.runOnStorages(QByteArrayList{"copy", "a.jpg"} + target), tool.usageError({message}));
    QCOMPARE(tree(tool.path()), Tree{"a.jpg"} + onCard({}));
}

void VornfhTransferTest::survivesABadCp_data()
{
    QTest::addColumn<QByteArray>("script");
    QTest::addColumn<QByteArray>("message");
    QTest::addColumn<bool>("leavesATarget");
    const auto row = [](const char *name, const char *script, const QByteArray &message,
                        bool leavesATarget = false) {
        QTest::newRow(name) << QByteArray(script) << message << leavesATarget;
    };
    const QByteArray different = "@/bad.jpg: its copy differs: cp failed";
    row("does-nothing", "exit 1", "@/bad.jpg: cannot be copied: cp failed");
    row("writes-half", "head -c 2 \"$2\" > \"$3\"; exit 1", different);
    row("writes-half-and-claims-success", "head -c 2 \"$2\" > \"$3\"", different);
    row("writes-something-else", "tr a b < \"$2\" > \"$3\"", different);
    row("writes-too-much", "cat \"$2\" \"$2\" > \"$3\"", different);
    row("is-killed", "head -c 2 \"$2\" > \"$3\"; kill -9 $$", different);
    row("makes-a-hard-link", "ln \"$2\" \"$3\"", "@/sd/DCIM/100ABC/bad.jpg: is not a copy of @/bad.jpg",
        true);
}

void VornfhTransferTest::survivesABadCp()
{
    QFETCH(QByteArray, script);
    QFETCH(QByteArray, message);
    QFETCH(bool, leavesATarget);
    StandIns programs;
    programs.add("cp", REAL_CP + "case $2 in */good.jpg) real \"$@\"; exit;; esac\n" + script);
    for (const QByteArray command : {"copy", "move"}) {
        const ToolRun tool;
        tool.make({"sd/DCIM/", "bad.jpg = a bad copy", "good.jpg = a good copy"});
        QCOMPARE(tool.runOnStorages({command, "bad.jpg", "good.jpg", "sd", "100ABC"}),
                 tool.failure({message, notDone(command, 1, 2)}, copied("good.jpg")));
        QCOMPARE(tool.content("bad.jpg"), QByteArray("a bad copy"));
        QCOMPARE(tool.content("sd/DCIM/100ABC/good.jpg"), QByteArray("a good copy"));
        QCOMPARE(QFile::exists(tool.path() + "/good.jpg"), command == "copy");
        QCOMPARE(QFile::exists(tool.sd() + "/100ABC/bad.jpg"), leavesATarget);
    }
}

void VornfhTransferTest::reportsThatCpIsMissing()
{
    const StandIns noPrograms(StandIns::Alone);
    const ToolRun tool;
    tool.make({"sd/DCIM/", "a.jpg"});
    QCOMPARE(tool.runOnStorages({"move", "a.jpg", "sd", "100ABC"}),
             tool.failure({"@/a.jpg: cannot be copied: cp is not on PATH", notDone("move", 1, 1)}));
    QCOMPARE(tree(tool.path()), Tree{"a.jpg"} + onCard({"100ABC/"}));
}

void VornfhTransferTest::stopsWhenAllCountersAreTaken()
{
    const ToolRun tool;
    tool.make({"README = new", "sd/DCIM/100ABC/README = old"});
    for (int i = 1; i <= 998; ++i)
        tool.make(onCard({"100ABC/README_" + QByteArray::number(i) + ".README = old"}));
    QCOMPARE(tool.runOnStorages({"move", "README", "sd", "100ABC"}),
             tool.success(copied("README", "README_999.README")));
    tool.make({"README = newer"});
    const Tree before = treeWithContents(tool.path());
    const QByteArray message =
        "@/sd/DCIM/100ABC/README_999.README: exists, and so do the other 998 names with a counter";
    for (const QByteArray command : {"copy", "move"})
        QCOMPARE(tool.runOnStorages({command, "README", "sd", "100ABC"}),
                 tool.failure({message, notDone(command, 1, 1)}));
    QCOMPARE(treeWithContents(tool.path()), before);
}

void VornfhTransferTest::keepsModeAndTimes()
{
    const ToolRun tool;
    tool.make({"a.jpg = x", "sd/DCIM/"});
    const QByteArray source = tool.path().toUtf8() + "/a.jpg";
    ::chmod(source.constData(), 0440);
    setModified(source, 1234567890123);
    QCOMPARE(tool.runOnStorages({"move", "a.jpg", "sd", "100ABC"}).exitCode, 0);
    struct stat copy = {};
    QCOMPARE(::stat(QFile::encodeName(tool.sd() + "/100ABC/a.jpg").constData(), &copy), 0);
    QCOMPARE(copy.st_mode & 07777U, 0440U);
    QCOMPARE(qint64(copy.st_mtim.tv_sec), qint64(1234567890));
    QCOMPARE(qint64(copy.st_mtim.tv_nsec), qint64(123000000));
}

void VornfhTransferTest::keepsASourceThatChanges_data()
{
    QTest::addColumn<QByteArray>("script");
    QTest::addColumn<QByteArray>("content");
    QTest::addColumn<QByteArray>("reason");
    const auto row = [](const char *name, const char *script, const char *content, const char *reason) {
        QTest::newRow(name) << QByteArray(script) << QByteArray(content) << QByteArray(reason);
    };
    row("grows-before-the-copy", "printf x >> \"$2\"; real \"$@\"", "oldx",
        "has changed since it was opened");
    row("grows-after-the-copy", "real \"$@\"; printf x >> \"$2\"", "oldx", "its copy differs: cp failed");
    row("is-replaced", "real \"$@\"; printf new > \"$2.n\"; mv \"$2.n\" \"$2\"", "new",
        "has changed since it was opened");
}

void VornfhTransferTest::keepsASourceThatChanges()
{
    QFETCH(QByteArray, script);
    QFETCH(QByteArray, content);
    QFETCH(QByteArray, reason);
    StandIns programs;
    programs.add("cp", REAL_CP + script);
    const ToolRun tool;
    tool.make({"a.jpg = old", "sd/DCIM/"});
    QCOMPARE(tool.runOnStorages({"move", "a.jpg", "sd", "100ABC"}),
             tool.failure({"@/a.jpg: " + reason, notDone("move", 1, 1)}));
    QCOMPARE(tool.content("a.jpg"), content);
}

void VornfhTransferTest::keepsACopyWhoseSourceVanished()
{
    StandIns programs;
    programs.add("cp", REAL_CP + "real \"$@\"; rm \"$2\"");
    const ToolRun tool;
    tool.make({"a.jpg = x", "sd/DCIM/"});
    QCOMPARE(tool.runOnStorages({"move", "a.jpg", "sd", "100ABC"}),
             tool.failure({"@/a.jpg: has changed since it was opened", notDone("move", 1, 1)}));
    QCOMPARE(tool.content("sd/DCIM/100ABC/a.jpg"), QByteArray("x"));
}

void VornfhTransferTest::stopsAfterTheCurrentFile()
{
    StandIns programs;
    programs.add("cp", "head -c 2 \"$2\" > \"$3\"; kill -TERM $PPID; sleep 0.1");
    const ToolRun tool;
    tool.make({"a.jpg = long enough", "b.jpg", "sd/DCIM/"});
    QCOMPARE(tool.runOnStorages({"move", "a.jpg", "b.jpg", "sd", "100ABC"}),
             tool.failure({"@/a.jpg: interrupted", "interrupted: " + notDone("move", 2, 2)}));
    QCOMPARE(tree(tool.path()), (Tree{"a.jpg", "b.jpg"} + onCard({"100ABC/"})));
}

void VornfhTransferTest::refusesAFolderInUse()
{
    const ToolRun tool;
    tool.make({"a.jpg", "sd/DCIM/100ABC/"});
    const int folder = ::open(QFile::encodeName(tool.sd() + "/100ABC").constData(), O_RDONLY | O_CLOEXEC);
    QCOMPARE(::flock(folder, LOCK_EX), 0);
    QCOMPARE(tool.runOnStorages({"move", "a.jpg", "sd", "100ABC"}),
             tool.failure({"@/sd/DCIM/100ABC: another vornfh is copying into this folder"}));
    ::close(folder);
    QCOMPARE(tool.runOnStorages({"move", "a.jpg", "sd", "100ABC"}).exitCode, 0);
}

void VornfhTransferTest::movesAcrossFileSystems()
{
    if (!hasOwnMounts())
        QSKIP("mounting needs root");
    const ToolRun tool;
    tool.make({"sd/", "a.jpg"});
    const TmpfsMount card(tool.path() + "/sd", "size=4m");
    QVERIFY(card.isMounted());
    tool.make({"sd/DCIM/"});
    const QByteArray big = pattern(2500000, 'x');
    writeFile(tool.path() + "/big.avi", big);
    QCOMPARE(tool.runOnStorages({"move", "a.jpg", "big.avi", "sd", "100ABC"}),
             tool.success(copied("a.jpg") + copied("big.avi")));
    QCOMPARE(tree(tool.path()), onCard({"100ABC/", "100ABC/a.jpg", "100ABC/big.avi"}));
    QVERIFY(tool.content("sd/DCIM/100ABC/big.avi") == big);
}

void VornfhTransferTest::reportsAFullStorage_data()
{
    QTest::addColumn<int>("size");
    QTest::addColumn<QByteArray>("reason");
    const auto row = [](const char *name, int size, const char *reason) {
        QTest::newRow(name) << size << QByteArray(reason);
    };
    row("before-the-copy", 2500000, "not enough space in @/sd/DCIM/100ABC: 2.4 MiB needed, 1.0 MiB free");
    row("during-the-copy", 500000, "its copy differs: No space left on device");
}

void VornfhTransferTest::reportsAFullStorage()
{
    if (!hasOwnMounts())
        QSKIP("mounting needs root");
    QFETCH(int, size);
    QFETCH(QByteArray, reason);
    StandIns programs; // cp fills the device, in which the tool found enough space
    programs.add("cp", REAL_CP + "head -c 2000000 /dev/zero > \"${3%/*}/../filler\"; real \"$@\"");
    for (const QByteArray command : {"copy", "move"}) {
        const ToolRun tool;
        tool.make({"sd/"});
        const TmpfsMount card(tool.path() + "/sd", "size=1m");
        QVERIFY(card.isMounted());
        tool.make({"sd/DCIM/"});
        const QByteArray content = pattern(size, 'y');
        writeFile(tool.path() + "/a.avi", content);
        QCOMPARE(tool.runOnStorages({command, "a.avi", "sd", "100ABC"}),
                 tool.failure({"@/a.avi: " + reason, notDone(command, 1, 1)}));
        QVERIFY(tool.content("a.avi") == content);
        QCOMPARE(tree(tool.sd() + "/100ABC"), Tree());
    }
}

void VornfhTransferTest::reportsAReadOnlyStorage()
{
    if (!hasOwnMounts())
        QSKIP("mounting needs root");
    const ToolRun tool;
    tool.make({"sd/", "a.jpg"});
    const TmpfsMount card(tool.path() + "/sd", "size=1m");
    tool.make({"sd/DCIM/"});
    QVERIFY(card.isMounted() && card.makeReadOnly());
    QCOMPARE(tool.runOnStorages({"move", "a.jpg", "sd", "100ABC"}),
             tool.failure({messages::readOnly("@/sd/DCIM")}));
    QCOMPARE(tree(tool.path()), Tree{"a.jpg"} + onCard({}));
}

void VornfhTransferTest::reportsAMissingStorage_data()
{
    QTest::addColumn<Tree>("before");
    QTest::addColumn<QByteArrayList>("options");
    QTest::addColumn<QByteArray>("message");
    const auto row = [](const char *name, const Tree &before, const QByteArrayList &options,
                        const char *message) {
        QTest::newRow(name) << before << options << QByteArray(message);
    };
    row("no-location", {}, {}, "@/sd/DCIM: does not exist");
    row("file-as-location", {"sd/DCIM"}, {}, "@/sd/DCIM: is not a folder");
    row("no-block-device", {"sd/DCIM/"}, {"--sd-block", "nosuchdevice"},
        "@/sd/DCIM: the block device nosuchdevice of storage sd is not present");
}

void VornfhTransferTest::reportsAMissingStorage()
{
    QFETCH(Tree, before);
    QFETCH(QByteArrayList, options);
    QFETCH(QByteArray, message);
    const ToolRun tool;
    tool.make(Tree{"a.jpg = x"} + before);
    const Tree contents = treeWithContents(tool.path());
    QCOMPARE(tool.runOnStorages(options + QByteArrayList{"move", "a.jpg", "sd", "100ABC"}),
             tool.failure({message}));
    QCOMPARE(treeWithContents(tool.path()), contents);
}

void VornfhTransferTest::showsProgressOnlyOnATerminal()
{
    const ToolRun tool;
    tool.make({"a.jpg = x", "b.jpg = x", "sd/DCIM/"});
    const Outcome shown = tool.runOnTerminal({"copy", "a.jpg", "sd", "100ABC"});
    QCOMPARE(shown.exitCode, 0);
    QVERIFY(shown.out.contains("] 0 of 1 files, "));
    QVERIFY(shown.out.contains(tool.expand("\r\x1b[K@/a.jpg -> @/sd/DCIM/100ABC/a.jpg\r\n")));
    QCOMPARE(tool.runOnStorages({"copy", "b.jpg", "sd", "100ABC"}), tool.success(copied("b.jpg")));
}

void VornfhTransferTest::losesNothingWhenKilled()
{
    constexpr int RUNS = 200;
    constexpr quint32 SEED = 20250225;
    qInfo("seed %u", SEED);
    QRandomGenerator random(SEED);
    ::prctl(PR_SET_CHILD_SUBREAPER, 1);
    const QByteArrayList names{"DCF_0001.jpg", "DCF_0002.avi", "DCF_0003.wav"};
    QByteArrayList contents;
    for (int i = 0; i < names.size(); ++i)
        contents.append(pattern(200000 + 70000 * i, static_cast<char>(i)));

    quint32 longest = 20000; // microseconds; grows to the duration of a complete run
    int interrupted = 0;
    for (int run = 0; run < RUNS; ++run) {
        const ToolRun tool;
        tool.make({"sd/DCIM/"});
        for (int i = 0; i < names.size(); ++i)
            writeFile(tool.path() + "/card/" + names[i], contents[i]);
        QElapsedTimer timer;
        timer.start();
        QProcess process;
        tool.startOnStorages(process,
                             QByteArrayList{"move"} + below("card/", names) + QByteArrayList{"sd", "100ABC"});
        const quint32 moment = random.bounded(longest);
        if (run > 0) {
            ::usleep(moment);
            process.kill();
        }
        QVERIFY(process.waitForFinished());
        waitForOrphans();
        if (run == 0)
            longest = std::max(longest, static_cast<quint32>(timer.nsecsElapsed() / 1000));
        for (int i = 0; i < names.size(); ++i) {
            const bool isAtSource = tool.content("card/" + names[i]) == contents[i];
            const bool isAtTarget = tool.content("sd/DCIM/100ABC/" + names[i]) == contents[i];
            QVERIFY2(isAtSource || isAtTarget,
                     qPrintable(QString("run %1, after %2 us: %3 is lost").arg(run).arg(moment).arg(i)));
        }
        const int left = tree(tool.path() + "/card").size();
        interrupted += left > 0 && QFile::exists(tool.sd() + "/100ABC/" + names[0]) ? 1 : 0;
    }
    qInfo("%d of %d runs were killed between the first copy and the last deletion", interrupted, RUNS);
    QVERIFY(interrupted > 0);
}

QTEST_GUILESS_MAIN(VornfhTransferTest)
#include "tst_vornfh_transfer.moc"

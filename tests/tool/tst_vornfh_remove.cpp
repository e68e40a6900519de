// SPDX-License-Identifier: MIT
#include "toolsupport.h"

#include <QFile>
#include <QProcess>
#include <QTest>

#include <algorithm>
#include <csignal>

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

namespace {

const Tree MEDIA = {"mmc/DCIM/100ABC/DCF_0001.jpg = 1234", "sd/DCIM/100ABC/DCF_0001.jpg = 1234",
                    "sd/DCIM/100ABC/DCF_0002.AVI = 1234", "sd/DCIM/101ABC/DCF_0001.wav = 1234"};

/// @p entries without @p deleted.
Tree without(Tree entries, const Tree &deleted)
{
    for (const QByteArray &entry : deleted)
        entries.removeOne(entry);
    return entries;
}

QByteArray notDeleted(int failed, int all)
{
    return QByteArray::number(failed) + " of " + QByteArray::number(all) + " files not deleted";
}

QByteArray toDelete(const QByteArray &path, const QByteArray &what)
{
    return path + ": will delete " + what;
}

QByteArray notConfirmed(const QByteArray &path)
{
    return path + ": standard input is not a terminal; use --yes to delete without asking";
}

QByteArray isALink(const QByteArray &path)
{
    return path + ": is a symbolic link; nothing was deleted";
}

QByteArray holdsMount(const QByteArray &path, const QByteArray &mountPoint)
{
    return path + ": another file system is mounted at " + mountPoint;
}

} // namespace

class VornfhRemoveTest : public QObject
{
    Q_OBJECT

private slots:
    void deletesFiles_data();
    void deletesFiles();
    void createsFolders_data();
    void createsFolders();
    void removesFolders_data();
    void removesFolders();
    void leavesAloneWhatIsBeingWritten_data();
    void leavesAloneWhatIsBeingWritten();
    void leavesAloneWhatAnotherUserIsWriting();
    void deletesWhatIsOnlyBeingRead_data();
    void deletesWhatIsOnlyBeingRead();
    void keepsARecordingThatBeginsMeanwhile_data();
    void keepsARecordingThatBeginsMeanwhile();
    void deletesNothingIfAFileIsOpenedBeforeTheAnswer();
    void refusesPaths_data();
    void refusesPaths();
    void refusesWrongCommandLines_data();
    void refusesWrongCommandLines();
    void asksOnATerminal_data();
    void asksOnATerminal();
    void refusesToWipeTheHomeFolder();
    void refusesToWipeAnotherLocation_data();
    void refusesToWipeAnotherLocation();
    void refusesTheRootFolder();
    void keepsOtherFileSystems();
    void emptiesALocationThatIsAMountPoint();
    void reportsWhatCannotBeDeleted();
    void refusesUnreadableFolders_data();
    void refusesUnreadableFolders();
    void wipesWithoutASuffix();
    void reportsAReadOnlyStorage_data();
    void reportsAReadOnlyStorage();
};

void VornfhRemoveTest::deletesFiles_data()
{
    QTest::addColumn<Tree>("before"); // in addition to MEDIA
    QTest::addColumn<QByteArrayList>("files");
    QTest::addColumn<QByteArray>("out");
    QTest::addColumn<Tree>("deleted");
    QTest::addColumn<QByteArrayList>("messages");
    const auto row = [](const char *name, const Tree &before, const QByteArrayList &files,
                        const QByteArray &out, const Tree &deleted, const QByteArrayList &messages = {}) {
        QTest::newRow(name) << before << files << out << deleted << messages;
    };
    row("two-files", {}, {"sd/DCIM/100ABC/DCF_0001.jpg", "@/mmc/DCIM/100ABC/DCF_0001.jpg"},
        "@/sd/DCIM/100ABC/DCF_0001.jpg\n@/mmc/DCIM/100ABC/DCF_0001.jpg\n",
        {"sd/DCIM/100ABC/DCF_0001.jpg", "mmc/DCIM/100ABC/DCF_0001.jpg"});
    row("good-file-after-bad-ones", {}, {"missing", "sd/DCIM/100ABC", "sd/DCIM/100ABC/DCF_0001.jpg"},
        "@/sd/DCIM/100ABC/DCF_0001.jpg\n", {"sd/DCIM/100ABC/DCF_0001.jpg"},
        {"@/missing: No such file or directory", "@/sd/DCIM/100ABC: is a folder", notDeleted(2, 3)});
    row("through-a-link-into-the-location", {"in -> sd/DCIM/100ABC"}, {"in/DCF_0001.jpg"},
        "@/in/DCF_0001.jpg\n", {"sd/DCIM/100ABC/DCF_0001.jpg"});
    row("link-but-not-its-target", {"a.jpg", "sd/DCIM/l.jpg -> @/a.jpg"}, {"sd/DCIM/l.jpg"},
        "@/sd/DCIM/l.jpg\n", {"sd/DCIM/l.jpg -> @/a.jpg"});
    row("odd-name", {"sd/DCIM/-f [a,b] 'x'\n"}, {"sd/DCIM/-f [a,b] 'x'\n"}, "@/sd/DCIM/-f [a,b] 'x'\\x0a\n",
        {"sd/DCIM/-f [a,b] 'x'\n"});
    const Tree photo = {"sd/DCIM/100ABC/DCF_0005.jpg", "sd/DCIM/100ABC/DCF_0005.thumb"};
    const QByteArray photoLines = "@/sd/DCIM/100ABC/DCF_0005.jpg\n@/sd/DCIM/100ABC/DCF_0005.thumb\n";
    row("thumbnail-is-deleted-too", photo, {"sd/DCIM/100ABC/DCF_0005.jpg"}, photoLines, photo);
    row("thumbnail-is-named-too", photo, {"sd/DCIM/100ABC/DCF_0005.jpg", "sd/DCIM/100ABC/DCF_0005.thumb"},
        photoLines, photo);
    row("thumbnail-is-named-first", photo, {"sd/DCIM/100ABC/DCF_0005.thumb", "sd/DCIM/100ABC/DCF_0005.jpg"},
        "@/sd/DCIM/100ABC/DCF_0005.thumb\n@/sd/DCIM/100ABC/DCF_0005.jpg\n", photo);
    row("thumbnail-alone", photo, {"sd/DCIM/100ABC/DCF_0005.thumb"}, "@/sd/DCIM/100ABC/DCF_0005.thumb\n",
        photo.mid(1));
    row("only-the-recording", photo, {"--only", "sd/DCIM/100ABC/DCF_0005.jpg"},
        "@/sd/DCIM/100ABC/DCF_0005.jpg\n", photo.mid(0, 1));
    row("thumbnail-of-two-formats-stays", photo + Tree{"sd/DCIM/100ABC/DCF_0005.avi"},
        {"sd/DCIM/100ABC/DCF_0005.jpg"}, "@/sd/DCIM/100ABC/DCF_0005.jpg\n", photo.mid(0, 1));
    row("thumbnail-goes-with-the-last-format", photo + Tree{"sd/DCIM/100ABC/DCF_0005.avi"},
        {"sd/DCIM/100ABC/DCF_0005.jpg", "sd/DCIM/100ABC/DCF_0005.avi"},
        "@/sd/DCIM/100ABC/DCF_0005.jpg\n@/sd/DCIM/100ABC/DCF_0005.avi\n@/sd/DCIM/100ABC/DCF_0005.thumb\n",
        photo + Tree{"sd/DCIM/100ABC/DCF_0005.avi"});
    row("thumbnail-stays-with-an-audio-file", photo + Tree{"sd/DCIM/100ABC/DCF_0005.wav"},
        {"sd/DCIM/100ABC/DCF_0005.wav"}, "@/sd/DCIM/100ABC/DCF_0005.wav\n", {"sd/DCIM/100ABC/DCF_0005.wav"});
    row("thumbnail-of-a-format-in-upper-case-stays", photo + Tree{"sd/DCIM/100ABC/DCF_0005.AVI"},
        {"sd/DCIM/100ABC/DCF_0005.jpg"}, "@/sd/DCIM/100ABC/DCF_0005.jpg\n", photo.mid(0, 1));
    const Tree upperCase = {"sd/DCIM/100ABC/DCF_0006.JPG", "sd/DCIM/100ABC/DCF_0006.thumb"};
    row("thumbnail-goes-with-a-recording-in-upper-case", upperCase, {"sd/DCIM/100ABC/DCF_0006.JPG"},
        "@/sd/DCIM/100ABC/DCF_0006.JPG\n@/sd/DCIM/100ABC/DCF_0006.thumb\n", upperCase);
    row("brackets", {"sd/DCIM/[a]", "sd/DCIM/a"}, {"sd/DCIM/[a]"}, "@/sd/DCIM/[a]\n", {"sd/DCIM/[a]"});
}

void VornfhRemoveTest::deletesFiles()
{
    QFETCH(Tree, before);
    QFETCH(QByteArrayList, files);
    QFETCH(QByteArray, out);
    QFETCH(Tree, deleted);
    QFETCH(QByteArrayList, messages);
    const ToolRun tool;
    tool.make(MEDIA + before);
    const Tree expected = without(tree(tool.path()), tool.expand(deleted));
    QCOMPARE(tool.runOnStorages(QByteArrayList{"delete"} + files),
             messages.isEmpty() ? tool.success(out) : tool.failure(messages, out));
    QCOMPARE(tree(tool.path()), expected);
}

void VornfhRemoveTest::createsFolders_data()
{
    QTest::addColumn<QByteArrayList>("arguments");
    QTest::addColumn<QByteArray>("out");
    QTest::addColumn<Tree>("created");
    const auto row = [](const char *name, const QByteArrayList &arguments, const QByteArray &out,
                        const Tree &created) { QTest::newRow(name) << arguments << out << created; };
    row("folder", {"sd", "MISC"}, "@/sd/DCIM/MISC\n", {"sd/DCIM/MISC/"});
    row("name-of-a-command", {"sd", "list"}, "@/sd/DCIM/list\n", {"sd/DCIM/list/"});
    row("missing-location", {"usb", "MISC"}, "@/usb/DCIM/MISC\n", {"usb/", "usb/DCIM/", "usb/DCIM/MISC/"});
}

void VornfhRemoveTest::createsFolders()
{
    QFETCH(QByteArrayList, arguments);
    QFETCH(QByteArray, out);
    QFETCH(Tree, created);
    const ToolRun tool;
    tool.make(MEDIA);
    Tree expected = tree(tool.path()) + created;
    std::sort(expected.begin(), expected.end());
    QCOMPARE(tool.runOnStorages(QByteArrayList{"mkdir"} + arguments), tool.success(out));
    QCOMPARE(tree(tool.path()), expected);
}

void VornfhRemoveTest::removesFolders_data()
{
    QTest::addColumn<Tree>("before"); // in addition to MEDIA
    QTest::addColumn<QByteArrayList>("arguments");
    QTest::addColumn<QByteArray>("folder");
    QTest::addColumn<QByteArray>("contents");
    QTest::addColumn<Tree>("deleted");
    QTest::addColumn<QByteArray>("notMedia");
    const auto row = [](const char *name, const Tree &before, const QByteArrayList &arguments,
                        const QByteArray &folder, const QByteArray &contents, const Tree &deleted,
                        const QByteArray &notMedia = {}) {
        QTest::newRow(name) << before << arguments << folder << contents << deleted << notMedia;
    };
    row("rmdir", {}, {"rmdir", "sd", "100ABC"}, "@/sd/DCIM/100ABC", "2 files, 8 B",
        {"sd/DCIM/100ABC/", "sd/DCIM/100ABC/DCF_0001.jpg", "sd/DCIM/100ABC/DCF_0002.AVI"});
    row("rmdir-with-other-files", {"sd/DCIM/101ABC/x/notes.txt = 1234", "sd/DCIM/101ABC/l.jpg -> nowhere"},
        {"rmdir", "sd", "101ABC"}, "@/sd/DCIM/101ABC", "3 files and 1 folder, 8 B",
        {"sd/DCIM/101ABC/", "sd/DCIM/101ABC/x/", "sd/DCIM/101ABC/x/notes.txt", "sd/DCIM/101ABC/DCF_0001.wav",
         "sd/DCIM/101ABC/l.jpg -> nowhere"},
        "l.jpg, x/notes.txt");
    row("wipe", {"sd/DCIM/loose.txt = 1234", "sd/beside.jpg"}, {"wipe", "sd"}, "@/sd/DCIM",
        "4 files and 2 folders, 16 B",
        {"sd/DCIM/", "sd/DCIM/100ABC/", "sd/DCIM/100ABC/DCF_0001.jpg", "sd/DCIM/100ABC/DCF_0002.AVI",
         "sd/DCIM/101ABC/", "sd/DCIM/101ABC/DCF_0001.wav", "sd/DCIM/loose.txt"},
        "loose.txt");
}

void VornfhRemoveTest::removesFolders()
{
    QFETCH(Tree, before);
    QFETCH(QByteArrayList, arguments);
    QFETCH(QByteArray, folder);
    QFETCH(QByteArray, contents);
    QFETCH(Tree, deleted);
    QFETCH(QByteArray, notMedia);
    const ToolRun tool;
    tool.make(MEDIA + before);
    const Tree expected = without(tree(tool.path()), deleted);
    QByteArrayList messages = {toDelete(folder, contents)};
    if (!notMedia.isEmpty())
        messages.append(folder + ": including files that are not media files: " + notMedia);
    QCOMPARE(tool.runOnStorages(arguments + QByteArrayList{"--yes"}),
             tool.success(folder + ": deleted " + contents + "\n", errorLines(messages)));
    QCOMPARE(tree(tool.path()), expected);
}

void VornfhRemoveTest::leavesAloneWhatIsBeingWritten_data()
{
    QTest::addColumn<QByteArrayList>("arguments");
    QTest::addColumn<QByteArray>("opened"); // by this process, for writing unless it is locked
    QTest::addColumn<bool>("isLocked");
    QTest::addColumn<QByteArrayList>("messages");
    QTest::addColumn<QByteArray>("out");
    QTest::addColumn<Tree>("deleted");
    const QByteArray folder = "@/sd/DCIM/100ABC";
    const QByteArray recording = folder + "/DCF_0003.mkv";
    const QByteArray thumbnail = folder + "/DCF_0003.thumb";
    const QByteArray keeps =
        ": keeps 2 files of objects that are protected or being written; use --force to delete them too";
    const auto row = [](const char *name, const QByteArrayList &arguments, const QByteArray &opened,
                        bool isLocked, const QByteArrayList &messages, const QByteArray &out = {},
                        const Tree &deleted = {}) {
        QTest::newRow(name) << arguments << opened << isLocked << messages << out << deleted;
    };
    const auto refused = [](const QByteArray &path) {
        return QByteArrayList{path + ": is being written; use --force", notDeleted(1, 1)};
    };
    const Tree others = onCard({"100ABC/DCF_0001.jpg", "100ABC/DCF_0002.AVI"}).mid(2);
    const Tree elsewhere = onCard({"101ABC/", "101ABC/DCF_0001.wav"}).mid(2);
    row("delete-open", {"delete", recording}, recording, false, refused(recording));
    row("delete-locked", {"delete", recording}, recording, true, refused(recording));
    row("delete-only", {"delete", "--only", recording}, recording, false, refused(recording));
    row("delete-dry-run", {"delete", "-n", recording}, recording, false, refused(recording));
    row("delete-with-its-open-thumbnail", {"delete", recording}, thumbnail, false, refused(recording));
    row("delete-thumbnail-of-an-open-recording", {"delete", thumbnail}, recording, false, refused(thumbnail));
    row("rmdir", {"rmdir", "sd", "100ABC", "--yes"}, recording, false,
        {toDelete(folder, "2 files, 8 B"), folder + keeps}, folder + ": deleted 2 files, 8 B; kept 2 files\n",
        others);
    row("rmdir-with-an-open-thumbnail", {"rmdir", "sd", "100ABC", "--yes"}, thumbnail, false,
        {toDelete(folder, "2 files, 8 B"), folder + keeps}, folder + ": deleted 2 files, 8 B; kept 2 files\n",
        others);
    row("wipe", {"wipe", "sd", "--yes"}, recording, true,
        {toDelete("@/sd/DCIM", "3 files and 1 folder, 12 B"), "@/sd/DCIM" + keeps},
        "@/sd/DCIM: deleted 3 files and 1 folder, 12 B; kept 2 files\n", others + elsewhere);
}

void VornfhRemoveTest::leavesAloneWhatIsBeingWritten()
{
    QFETCH(QByteArrayList, arguments);
    QFETCH(QByteArray, opened);
    QFETCH(bool, isLocked);
    QFETCH(QByteArrayList, messages);
    QFETCH(QByteArray, out);
    QFETCH(Tree, deleted);
    const ToolRun tool;
    tool.make(MEDIA + onCard({"100ABC/DCF_0003.mkv", "100ABC/DCF_0003.thumb"}));
    const Tree before = tree(tool.path());
    const int file = ::open(tool.expand(opened).constData(), (isLocked ? O_RDONLY : O_WRONLY) | O_CLOEXEC);
    QVERIFY(file >= 0 && (!isLocked || ::flock(file, LOCK_EX) == 0));
    QCOMPARE(tool.runOnStorages(arguments), tool.failure(messages, out));
    QCOMPARE(tree(tool.path()), without(before, deleted));
    const Outcome forced = tool.runOnStorages(arguments + QByteArrayList{"--force"});
    ::close(file);
    QVERIFY2(forced.exitCode == 0, forced.err);
    QVERIFY(arguments.contains("-n") || tree(tool.path()) != without(before, deleted));
}

/// The open files of this process are not visible to the tool.
void VornfhRemoveTest::leavesAloneWhatAnotherUserIsWriting()
{
    ToolRun tool;
    tool.make(MEDIA);
    const QByteArray recording = QFile::encodeName(tool.sd()) + "/100ABC/DCF_0001.jpg";
    const int file = ::open(recording.constData(), O_RDONLY | O_CLOEXEC);
    QVERIFY(file >= 0 && ::flock(file, LOCK_EX) == 0);
    QCOMPARE(QProcess::execute("chown", {"-R", "65534:65534", tool.path()}), 0);
    if (!tool.dropPrivileges())
        QSKIP("the tool cannot be run as another user");
    const Outcome outcome = tool.runOnStorages({"rmdir", "sd", "100ABC", "--yes"});
    ::close(file);
    QCOMPARE(outcome.exitCode, 1);
    QCOMPARE(tree(tool.sd() + "/100ABC"), Tree{"DCF_0001.jpg"});
}

void VornfhRemoveTest::deletesWhatIsOnlyBeingRead_data()
{
    QTest::addColumn<QByteArrayList>("arguments");
    row("delete", QByteArrayList{"delete", "sd/DCIM/100ABC/DCF_0001.jpg"});
    row("rmdir", QByteArrayList{"rmdir", "sd", "100ABC", "--yes"});
}

void VornfhRemoveTest::deletesWhatIsOnlyBeingRead()
{
    QFETCH(QByteArrayList, arguments);
    const ToolRun tool;
    tool.make(MEDIA);
    QFile file(tool.sd() + "/100ABC/DCF_0001.jpg");
    QVERIFY(file.open(QIODevice::ReadOnly));
    const Outcome outcome = tool.runOnStorages(arguments);
    QVERIFY2(outcome.exitCode == 0, outcome.err);
    QVERIFY(!file.exists());
}

void VornfhRemoveTest::keepsARecordingThatBeginsMeanwhile_data()
{
    QTest::addColumn<QByteArrayList>("arguments");
    row("rmdir", QByteArrayList{"rmdir", "sd", "100ABC", "--yes"});
    row("wipe", QByteArrayList{"wipe", "sd", "--yes"});
}

/// Each file that is open is probed with flock() to find out whether it is being written.
void VornfhRemoveTest::keepsARecordingThatBeginsMeanwhile()
{
    QFETCH(QByteArrayList, arguments);
    ToolRun tool;
    tool.make({"sd/DCIM/100ABC/DCF_0001.jpg"});
    QFile file(tool.sd() + "/100ABC/DCF_0001.jpg");
    QVERIFY(file.open(QIODevice::ReadOnly));
    if (!tool.runBefore("flock", "printf new > sd/DCIM/100ABC/DCF_0002.mkv"))
        QSKIP(CANNOT_PRELOAD);
    const Outcome outcome = tool.runOnStorages(arguments);
    QCOMPARE(outcome.exitCode, 1);
    QVERIFY2(outcome.err.contains("DCF_0002.mkv") && outcome.err.endsWith(": created in the meantime\n"),
             outcome.err);
    QCOMPARE(tree(tool.sd()), (Tree{"100ABC/", "100ABC/DCF_0002.mkv"}));
}

void VornfhRemoveTest::deletesNothingIfAFileIsOpenedBeforeTheAnswer()
{
    ToolRun tool;
    tool.make({"sd/DCIM/100ABC/DCF_0001.jpg", "sd/DCIM/100ABC/DCF_0002.jpg"});
    QFile one(tool.sd() + "/100ABC/DCF_0001.jpg");
    QFile other(tool.sd() + "/100ABC/DCF_0002.jpg");
    QVERIFY(one.open(QIODevice::ReadOnly) && other.open(QIODevice::ReadOnly));
    const QByteArray openIt =
        "exec 3>> sd/DCIM/100ABC/DCF_0001.jpg; sleep 60 >&3 2>&1 < /dev/null & echo $! > writer";
    if (!tool.runBefore("flock", openIt, 3)) // after the two before the question
        QSKIP(CANNOT_PRELOAD);
    const Outcome outcome = tool.runOnTerminal({"wipe", "sd"}, "y\n");
    ::kill(tool.content("writer").trimmed().toInt(), SIGKILL);
    QCOMPARE(outcome.exitCode, 1);
    QVERIFY2(
        outcome.out.endsWith(tool.expand("vornfh: @/sd/DCIM: nothing was deleted, because in the meantime a "
                                         "file has been protected or opened for writing\r\n")),
        outcome.out);
    QCOMPARE(tree(tool.sd()), (Tree{"100ABC/", "100ABC/DCF_0001.jpg", "100ABC/DCF_0002.jpg"}));
}

void VornfhRemoveTest::refusesPaths_data()
{
    QTest::addColumn<Tree>("before"); // in addition to MEDIA
    QTest::addColumn<QByteArrayList>("arguments");
    QTest::addColumn<QByteArrayList>("messages");
    const auto row = [](const char *name, const Tree &before, const QByteArrayList &arguments,
                        const QByteArrayList &messages) {
        QTest::newRow(name) << before << arguments << messages;
    };
    const QByteArray outside = ": is not in the location of a configured storage device";
    row("delete-outside", {"a.jpg"}, {"delete", "a.jpg"}, {"@/a.jpg" + outside, notDeleted(1, 1)});
    row("delete-outside-through-two-dots", {"sd/a.jpg"}, {"delete", "sd/DCIM/../a.jpg"},
        {"@/sd/DCIM/../a.jpg" + outside, notDeleted(1, 1)});
    row("delete-in-a-folder-whose-name-begins-like-the-location", {"sd/DCIM2/a.jpg"},
        {"delete", "sd/DCIM2/a.jpg"}, {"@/sd/DCIM2/a.jpg" + outside, notDeleted(1, 1)});
    row("delete-through-a-link-out-of-the-location", {"x/a.jpg", "sd/DCIM/out -> @/x"},
        {"delete", "sd/DCIM/out/a.jpg"}, {"@/sd/DCIM/out/a.jpg" + outside, notDeleted(1, 1)});
    row("delete-not-utf-8", {}, {"delete", "sd/DCIM/\xff"},
        {"sd/DCIM/\\xff: the name is not valid UTF-8", notDeleted(1, 1)});
    row("mkdir-existing-folder", {}, {"mkdir", "sd", "100ABC"}, {"@/sd/DCIM/100ABC: already exists"});
    row("mkdir-below-a-file", {"usb"}, {"mkdir", "usb", "MISC"},
        {"@/usb/DCIM/MISC: cannot be created: Not a directory"});
    row("rmdir-missing-folder", {}, {"rmdir", "sd", "102ABC", "--yes"}, {"@/sd/DCIM/102ABC: does not exist"});
    row("rmdir-file", {"sd/DCIM/x"}, {"rmdir", "sd", "x", "--yes"}, {"@/sd/DCIM/x: is not a folder"});
    row("rmdir-link", {"x/a.jpg", "sd/DCIM/link -> @/x"}, {"rmdir", "sd", "link", "--yes"},
        {isALink("@/sd/DCIM/link")});
    row("wipe-missing-location", {}, {"wipe", "usb", "--yes"},
        {"@/usb/DCIM: does not exist; there is nothing to delete"});
    row("wipe-link", {"x/a.jpg", "usb/", "usb/DCIM -> @/x"}, {"wipe", "usb", "--yes"},
        {isALink("@/usb/DCIM")});
    const QByteArray notPresent = "@/usb/DCIM: the block device nosuchdevice of storage usb is not present";
    row("wipe-absent-device", {}, {"wipe", "usb", "--yes", "--usb-block", "nosuchdevice"}, {notPresent});
    row("rmdir-on-an-absent-device", {}, {"rmdir", "usb", "100ABC", "--yes", "--usb-block", "nosuchdevice"},
        {notPresent});
}

void VornfhRemoveTest::refusesPaths()
{
    QFETCH(Tree, before);
    QFETCH(QByteArrayList, arguments);
    QFETCH(QByteArrayList, messages);
    const ToolRun tool;
    tool.make(MEDIA + before);
    const Tree expected = tree(tool.path());
    QCOMPARE(tool.runOnStorages(arguments), tool.failure(messages));
    QCOMPARE(tree(tool.path()), expected);
}

void VornfhRemoveTest::refusesWrongCommandLines_data()
{
    QTest::addColumn<QByteArrayList>("arguments");
    QTest::addColumn<QByteArrayList>("messages");
    const auto row = [](const char *name, const QByteArrayList &arguments, const QByteArrayList &messages) {
        QTest::newRow(name) << arguments << messages;
    };
    row("delete-without-a-path", {"delete"}, {"PATH... is required"});
    row("mkdir-path", {"mkdir", "sd", "a/b"}, {messages::folderNameWithSlash("a/b")});
    row("mkdir-two-dots", {"mkdir", "sd", ".."}, {messages::reservedFolderName("..")});
    row("mkdir-empty-name", {"mkdir", "sd", ""}, {messages::emptyFolderName()});
    row("rmdir-two-dots", {"rmdir", "sd", "..", "--yes"}, {messages::reservedFolderName("..")});
    row("rmdir-empty-name", {"rmdir", "sd", "", "--yes"}, {messages::emptyFolderName()});
    row("rmdir-unknown-storage", {"rmdir", "card", "100ABC", "--yes"}, {messages::unknownStorage("card")});
    row("rmdir-not-confirmed", {"rmdir", "sd", "101ABC"},
        {toDelete("@/sd/DCIM/101ABC", "1 file, 4 B"), notConfirmed("@/sd/DCIM/101ABC")});
    row("wipe-not-confirmed", {"wipe", "mmc"},
        {toDelete("@/mmc/DCIM", "1 file and 1 folder, 4 B"), notConfirmed("@/mmc/DCIM")});
}

void VornfhRemoveTest::refusesWrongCommandLines()
{
    QFETCH(QByteArrayList, arguments);
    QFETCH(QByteArrayList, messages);
    const ToolRun tool;
    tool.make(MEDIA);
    const Tree before = tree(tool.path());
    QCOMPARE(tool.runOnStorages(arguments), tool.usageError(messages));
    QCOMPARE(tree(tool.path()), before);
}

void VornfhRemoveTest::asksOnATerminal_data()
{
    QTest::addColumn<QByteArrayList>("arguments");
    QTest::addColumn<QByteArray>("answer");
    QTest::addColumn<int>("exitCode");
    QTest::addColumn<QByteArray>("lastLine");
    const auto row = [](const char *name, const QByteArrayList &arguments, const char *answer, int exitCode,
                        const QByteArray &lastLine) {
        QTest::newRow(name) << arguments << QByteArray(answer) << exitCode << lastLine;
    };
    const QByteArray wiped = "@/sd/DCIM: deleted 3 files and 2 folders, 12 B";
    const QByteArray kept = "vornfh: @/sd/DCIM: not deleted";
    row("yes", {"wipe", "sd"}, "y\n", 0, wiped);
    row("yes-in-full", {"wipe", "sd"}, "yes\n", 0, wiped);
    row("no", {"wipe", "sd"}, "n\n", 1, kept);
    row("empty-line", {"wipe", "sd"}, "\n", 1, kept);
    row("end-of-input", {"wipe", "sd"}, "\x04", 1, kept);
    row("yes-for-a-folder", {"rmdir", "sd", "100ABC"}, "y\n", 0, "@/sd/DCIM/100ABC: deleted 2 files, 8 B");
}

void VornfhRemoveTest::asksOnATerminal()
{
    QFETCH(QByteArrayList, arguments);
    QFETCH(QByteArray, answer);
    QFETCH(int, exitCode);
    QFETCH(QByteArray, lastLine);
    const ToolRun tool;
    tool.make(MEDIA);
    const Outcome outcome = tool.runOnTerminal(arguments, answer);
    QVERIFY2(outcome.out.endsWith(tool.expand(lastLine) + "\r\n"), outcome.out.constData());
    QVERIFY(outcome.out.contains("Delete all of it? [y/N] "));
    QCOMPARE(outcome.exitCode, exitCode);
    QCOMPARE(QFile::exists(tool.sd() + "/100ABC"), exitCode != 0);
}

void VornfhRemoveTest::refusesToWipeTheHomeFolder()
{
    ToolRun tool;
    tool.make(onCard({"user/a.jpg"}));
    tool.environment.insert("HOME", tool.sd() + "/user");
    const Tree before = treeWithContents(tool.path());
    QCOMPARE(tool.runOnStorages({"wipe", "sd", "--yes"}),
             tool.usageError({"@/sd/DCIM: is or contains the home folder @/sd/DCIM/user"}));
    QCOMPARE(treeWithContents(tool.path()), before);
}

void VornfhRemoveTest::refusesToWipeAnotherLocation_data()
{
    QTest::addColumn<QByteArray>("other");
    const auto row = [](const char *name, const QByteArray &other) { QTest::newRow(name) << other; };
    row("same", "@/sd/DCIM");
    row("same-through-a-link", "@/link/DCIM");
    row("inside", "@/sd/DCIM/100ABC");
    row("inside-but-missing", "@/sd/DCIM/later/on");
}

void VornfhRemoveTest::refusesToWipeAnotherLocation()
{
    QFETCH(QByteArray, other);
    const ToolRun tool;
    tool.make(MEDIA + Tree{"link -> sd"});
    const Tree before = treeWithContents(tool.path());
    QCOMPARE(tool.run({"--suffix", "ABC", "--sd", "@/sd/DCIM", "--usb", other, "wipe", "sd", "--yes"}),
             tool.usageError({"@/sd/DCIM: is or contains the location of storage usb, " + other}));
    QCOMPARE(treeWithContents(tool.path()), before);
}

void VornfhRemoveTest::refusesTheRootFolder()
{
    const ToolRun tool;
    tool.make({"root -> /"});
    for (const QByteArray location : {"/", "@/root"}) {
        const Outcome expected =
            tool.usageError({location + ": the root folder cannot be used as a location"});
        QCOMPARE(tool.run({"--sd", location, "wipe", "sd"}), expected);
        QCOMPARE(tool.run({"--sd", location, "rmdir", "sd", "no-such-folder"}), expected);
    }
}

void VornfhRemoveTest::keepsOtherFileSystems()
{
    if (!hasOwnMounts())
        QSKIP("mounting needs root");
    const ToolRun tool;
    tool.make(onCard({"100ABC/DCF_0001.jpg", "100ABC/card/"}));
    const TmpfsMount card(tool.sd() + "/100ABC/card", "size=1m");
    QVERIFY(card.isMounted());
    tool.make(onCard({"100ABC/card/a.jpg"}));
    const Tree before = treeWithContents(tool.path());
    QCOMPARE(tool.runOnStorages({"rmdir", "sd", "100ABC", "--yes"}),
             tool.failure({holdsMount("@/sd/DCIM/100ABC", "@/sd/DCIM/100ABC/card")}));
    QCOMPARE(tool.runOnStorages({"wipe", "sd", "--yes"}),
             tool.failure({holdsMount("@/sd/DCIM", "@/sd/DCIM/100ABC/card")}));
    QCOMPARE(treeWithContents(tool.path()), before);
}

void VornfhRemoveTest::emptiesALocationThatIsAMountPoint()
{
    if (!hasOwnMounts())
        QSKIP("mounting needs root");
    const ToolRun tool;
    tool.make({"sd/DCIM/"});
    const TmpfsMount card(tool.sd(), "size=1m");
    QVERIFY(card.isMounted());
    tool.make(onCard({"100ABC/DCF_0001.jpg = 1234"}));
    QCOMPARE(
        tool.runOnStorages({"wipe", "sd", "--yes"}),
        tool.success(
            "@/sd/DCIM: deleted 1 file and 1 folder, 4 B; the folder itself remains because a file system is "
            "mounted on it\n",
            errorLines({toDelete("@/sd/DCIM", "1 file and 1 folder, 4 B")})));
    QCOMPARE(tree(tool.path()), onCard({}));
}

void VornfhRemoveTest::reportsWhatCannotBeDeleted()
{
    const ToolRun tool;
    tool.make(onCard({"100ABC/DCF_0001.jpg = 1234", "100ABC/x\xff.jpg = 1234"}));
    QCOMPARE(tool.runOnStorages({"rmdir", "sd", "100ABC", "--yes"}),
             tool.failure(
                 {toDelete("@/sd/DCIM/100ABC", "2 files, 8 B"),
                  "@/sd/DCIM/100ABC: could not be deleted: x\\xff.jpg: files whose names are not valid UTF-8 "
                  "cannot be deleted"}));
    QCOMPARE(tree(tool.path()), onCard({"100ABC/", "100ABC/x\xff.jpg"}));
}

void VornfhRemoveTest::refusesUnreadableFolders_data()
{
    QTest::addColumn<QByteArrayList>("arguments");
    QTest::addColumn<QByteArray>("folder");
    const auto row = [](const char *name, const QByteArrayList &arguments, const char *folder) {
        QTest::newRow(name) << arguments << QByteArray(folder);
    };
    row("folder", {"rmdir", "sd", "100ABC", "--yes"}, "sd/DCIM/100ABC");
    row("nested-folder", {"rmdir", "sd", "101ABC", "--yes"}, "sd/DCIM/101ABC/a/b");
    row("folder-of-the-storage", {"wipe", "sd", "--yes"}, "sd/DCIM/100ABC");
}

void VornfhRemoveTest::refusesUnreadableFolders()
{
    QFETCH(QByteArrayList, arguments);
    QFETCH(QByteArray, folder);
    ToolRun tool;
    if (!tool.dropPrivileges())
        QSKIP("the tool cannot run as another user");
    tool.make(MEDIA + onCard({"101ABC/a/b/c.jpg"}));
    // The user may delete everything else.
    for (const char *parent : {"sd", "sd/DCIM", "sd/DCIM/100ABC", "sd/DCIM/101ABC"})
        setMode(tool, parent, 0777);
    const Tree before = treeWithContents(tool.path());
    Outcome outcome;
    {
        const FolderMode unreadable(tool.path() + "/" + folder, 0);
        outcome = tool.runOnStorages(arguments);
    }
    QCOMPARE(outcome, tool.failure({"@/" + folder + ": Permission denied"}));
    QCOMPARE(treeWithContents(tool.path()), before);
}

void VornfhRemoveTest::wipesWithoutASuffix()
{
    const ToolRun tool;
    tool.make({"sd/beside.jpg", "sd/DCIM/100/DCF_0001.jpg"});
    QCOMPARE(tool.run({"--suffix", "", "--sd", "@/sd/DCIM", "wipe", "sd", "--yes"}).exitCode, 0);
    QCOMPARE(tree(tool.path()), (Tree{"sd/", "sd/beside.jpg"}));
}

void VornfhRemoveTest::reportsAReadOnlyStorage_data()
{
    QTest::addColumn<QByteArrayList>("arguments");
    QTest::addColumn<QByteArrayList>("messages");
    const auto row = [](const char *name, const QByteArrayList &arguments, const QByteArrayList &messages) {
        QTest::newRow(name) << arguments << messages;
    };
    row("mkdir", {"mkdir", "sd", "MISC"}, {messages::readOnly("@/sd/DCIM")});
    row("rmdir", {"rmdir", "sd", "100ABC", "--yes"}, {messages::readOnly("@/sd/DCIM")});
    row("wipe", {"wipe", "sd", "--yes"}, {messages::readOnly("@/sd/DCIM")});
    row("delete", {"delete", "sd/DCIM/100ABC/DCF_0001.jpg"},
        {"@/sd/DCIM/100ABC/DCF_0001.jpg: cannot be deleted: Read-only file system", notDeleted(1, 1)});
}

void VornfhRemoveTest::reportsAReadOnlyStorage()
{
    if (!hasOwnMounts())
        QSKIP("mounting needs root");
    QFETCH(QByteArrayList, arguments);
    QFETCH(QByteArrayList, messages);
    const ToolRun tool;
    tool.make({"sd/"});
    const TmpfsMount card(tool.path() + "/sd", "size=1m");
    tool.make(onCard({"100ABC/DCF_0001.jpg"}));
    QVERIFY(card.isMounted() && card.makeReadOnly());
    QCOMPARE(tool.runOnStorages(arguments), tool.failure(messages));
    QCOMPARE(tree(tool.path()), onCard({"100ABC/", "100ABC/DCF_0001.jpg"}));
}

QTEST_GUILESS_MAIN(VornfhRemoveTest)
#include "tst_vornfh_remove.moc"

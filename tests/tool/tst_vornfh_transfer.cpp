// SPDX-License-Identifier: MIT
#include "standins.h"
#include "toolsupport.h"
#include "vornfilehandler.h"

#include <QFile>
#include <QMap>
#include <QRandomGenerator>
#include <QRegularExpression>
#include <QSet>
#include <QTest>

#include <algorithm>
#include <csignal>
#include <optional>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

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

QByteArrayList sortedLines(const QByteArray &text)
{
    return sorted(text.split('\n'));
}

/// A name of one to three pieces with dots between them.
QByteArray randomName(QRandomGenerator &random)
{
    const QByteArrayList pieces{"a", "a_1", "\xc3\xa9 b", ""};
    QByteArrayList name;
    for (int count = 1 + random.bounded(3); count > 0; --count)
        name.append(pieces[random.bounded(pieces.size())]);
    const QByteArray joined = name.join('.');
    return joined.count('.') == joined.size() ? "README" : joined; // "", "." and ".." are not names of files
}

const QString FOLDER = "sd/DCIM/100ABC/";

/// A file of 24 MiB with one piece of data at its start and another near its end. Copying it takes two steps.
void makeSparse(const QString &path)
{
    writeFile(path, "start");
    QFile file(path);
    require(file.open(QIODevice::ReadWrite) && file.seek(20 << 20) && file.write("end") == 3
                && file.resize(24 << 20),
            "sparse file");
}

/// Makes the user as whom the tool runs the owner of all files and folders.
void giveToTool(const ToolRun &tool)
{
    for (const QByteArray &entry : tree(tool.path())) {
        if (::geteuid() == 0 && !entry.contains(" -> "))
            require(::chown((QFile::encodeName(tool.path()) + "/" + entry).constData(), 65534, 65534) == 0,
                    entry);
    }
}

/// A card with its own file system, so that nothing can be moved there without a copy.
class Card
{
public:
    explicit Card(const ToolRun &tool, const QByteArray &options = "size=64m")
    {
        tool.make({"sd/"});
        if (hasOwnMounts())
            mMount.emplace(tool.path() + "/sd", options);
        tool.make({"sd/DCIM/"});
    }
    bool isMounted() const { return mMount && mMount->isMounted(); }

private:
    std::optional<TmpfsMount> mMount;
};

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
    void survivesABadCopy_data();
    void survivesABadCopy();
    void survivesAFileThatCannotBeWritten();
    void neverTreatsTheSourceAsItsCopy();
    void neverTreatsAMountedSourceAsItsCopy();
    void describesEachFileInJson();
    void movesByCopyingOnFat();
    void refusesWhatFatCannotHold();
    void doesNotWaitForALease();
    void needsNoOtherProgram();
    void choosesTheNamesOfTheLibrary_data();
    void choosesTheNamesOfTheLibrary();
    void stopsWhenAllCountersAreTaken();
    void takesTheNextNameIfOneIsTakenInTheMeantime();
    void keepsModeAndTimes_data();
    void keepsModeAndTimes();
    void keepsHoles_data();
    void keepsHoles();
    void keepsTheProtectionOfACopy();
    void movesWithinAFileSystemByRenaming();
    void movesAFileOnlyOnce();
    void doesNotCopyAgain();
    void keepsASourceThatChanges_data();
    void keepsASourceThatChanges();
    void rejectsASourceThatContainsLessThanItsSize();
    void reportsASourceThatIsReplacedBeforeItIsOpened();
    void keepsASourceWhoseFolderIsReplaced();
    void givesNoNameToASourceThatChanges();
    void keepsASourceThatIsBeingWritten_data();
    void keepsASourceThatIsBeingWritten();
    void keepsACopyWhoseSourceVanished();
    void keepsASourceThatCannotBeDeleted();
    void saysWhereAFileIsThatCannotGoBack();
    void stopsAfterTheCurrentFile_data();
    void stopsAfterTheCurrentFile();
    void stopsWithinAFile_data();
    void stopsWithinAFile();
    void stopsBetweenPartsThatTheKernelCopies_data();
    void stopsBetweenPartsThatTheKernelCopies();
    void aSecondSignalEndsTheToolAtOnce_data();
    void aSecondSignalEndsTheToolAtOnce();
    void nohupKeepsAHangUpFromEndingTheTool_data();
    void nohupKeepsAHangUpFromEndingTheTool();
    void continuesAfterBeingKilled_data();
    void continuesAfterBeingKilled();
    void continuesAfterBeingKilledBeforeTheFolderIsNamed();
    void removesOnlyWhatNobodyUses();
    void createsAFolderBesideAFileInUse();
    void copiesMoreFilesThanItMayOpen();
    void endsABatchAtItsLimits_data();
    void endsABatchAtItsLimits();
    void refusesAFolderInUse();
    void movesAcrossFileSystems();
    void movesAThumbnailAcrossFileSystems();
    void keepsAThumbnailWhoseRecordingChanges();
    void keepsARecordingIfTheDeletedThumbnailIsNotFlushed();
    void keepsARecordingWhoseThumbnailCannotBeRead();
    void neverLeavesAThumbnailWithoutItsRecording();
    void neverLeavesAThumbnailWithoutItsRecordingWhenKilled_data();
    void neverLeavesAThumbnailWithoutItsRecordingWhenKilled();
    void keepsAnObjectWhoseThumbnailLosesItsName();
    void saysWhereAThumbnailIsThatCannotGoBack();
    void saysThatARecordingKeepsItsOldName();
    void needsRoomOnlyForCopies_data();
    void needsRoomOnlyForCopies();
    void reportsMissingPermissions_data();
    void reportsMissingPermissions();
    void reportsAFullStorage_data();
    void reportsAFullStorage();
    void reportsAReadOnlyStorage();
    void reportsAMissingStorage_data();
    void reportsAMissingStorage();
    void showsProgressOnlyOnATerminal();
    void fitsTheProgressLineIntoTheTerminal_data();
    void fitsTheProgressLineIntoTheTerminal();
    void showsTheStage_data();
    void showsTheStage();
    void countsFilesThatFailLater_data();
    void countsFilesThatFailLater();
    void reportsFilesBeforeALargeOneIsComplete_data();
    void reportsFilesBeforeALargeOneIsComplete();
    void erasesTheProgressLineBeforeAMessage();
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
    row("copied-before", {"a.jpg = x", "sd/DCIM/100ABC/a.jpg = x"}, {"a.jpg"}, {}, copied("a.jpg"));
    row("copied-before-with-a-counter",
        {"a.jpg = new", "sd/DCIM/100ABC/a.jpg = old", "sd/DCIM/100ABC/a_1.jpg = new"}, {"a.jpg"}, {},
        copied("a.jpg", "a_1.jpg"));
    row("same-file-twice", {"a.jpg = x"}, {"a.jpg", "a.jpg"}, {"a.jpg = x", "a_1.jpg = x"},
        copied("a.jpg") + copied("a.jpg", "a_1.jpg"));
    row("empty-file", {"a.jpg"}, {"a.jpg"}, {"a.jpg"}, copied("a.jpg"));
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
    row("link-to-the-same-content-as-target", {"a.jpg = x", "b.jpg = x", "sd/DCIM/100ABC/a.jpg -> @/b.jpg"},
        {"a.jpg"}, {"a_1.jpg = x"}, copied("a.jpg", "a_1.jpg"));
    row("file-in-place-of-the-folder", {"a.jpg = x", "sd/DCIM/100ABC"}, {"a.jpg"}, {}, "",
        {"@/sd/DCIM/100ABC: is not a folder"});
    const Tree pair = {"a.jpg = x", "a.thumb = t"};
    const QByteArray pairLines = copied("a.jpg") + copied("a.thumb");
    row("thumbnail-is-deleted-too", pair, {"a.jpg"}, pair, pairLines);
    row("thumbnail-is-named-too", pair, {"a.jpg", "a.thumb"}, pair, pairLines);
    row("thumbnail-is-named-first", pair, {"a.thumb", "a.jpg"}, pair, pairLines);
    row("thumbnail-alone-is-named", pair, {"a.thumb"}, {"a.thumb = t"}, copied("a.thumb"));
    row("only-the-recording", pair, {"--only", "a.jpg"}, {"a.jpg = x"}, copied("a.jpg"));
    row("no-thumbnail-with-an-audio-file", {"a.wav = x", "a.thumb = t"}, {"a.wav"}, {"a.wav = x"},
        copied("a.wav"));
    row("name-of-the-recording-taken", pair + Tree{"sd/DCIM/100ABC/a.jpg = old"}, {"a.jpg"},
        {"a_1.jpg = x", "a_1.thumb = t"}, copied("a.jpg", "a_1.jpg") + copied("a.thumb", "a_1.thumb"));
    row("name-of-the-thumbnail-taken", pair + Tree{"sd/DCIM/100ABC/a.thumb = old"}, {"a.jpg"},
        {"a_1.jpg = x", "a_1.thumb = t"}, copied("a.jpg", "a_1.jpg") + copied("a.thumb", "a_1.thumb"));
    row("name-of-the-recording-taken-beside-the-thumbnail",
        pair + Tree{"sd/DCIM/100ABC/a.jpg = old", "sd/DCIM/100ABC/a.thumb = t"}, {"a.jpg"},
        {"a_1.jpg = x", "a_1.thumb = t"}, copied("a.jpg", "a_1.jpg") + copied("a.thumb", "a_1.thumb"));
    const Tree others = {"in/a.png = y", "in/a.thumb = u"};
    const QByteArray otherLines = copied("in/a.png", "a.png") + copied("in/a.thumb", "a.thumb");
    row("name-of-the-thumbnail-given-to-another", others + pair, {"in/a.png", "a.jpg"},
        {"a.png = y", "a.thumb = u", "a_1.jpg = x", "a_1.thumb = t"},
        otherLines + copied("a.jpg", "a_1.jpg") + copied("a.thumb", "a_1.thumb"));
    row("thumbnail-of-a-copy-given-to-another", others + pair + Tree{"sd/DCIM/100ABC/a.jpg = x"},
        {"in/a.png", "a.jpg"}, {"a.png = y", "a.thumb = u"}, otherLines,
        {"@/a.thumb: cannot be copied: @/sd/DCIM/100ABC/a.thumb exists and differs", notDone("copy", 2, 4)});
    row("recording-that-ends-with-a-hole", {"a.avi size 100000 = start", "a.thumb = t"}, {"a.avi"},
        {"a.avi = " + QByteArray("start").leftJustified(100000, '\0'), "a.thumb = t"},
        copied("a.avi") + copied("a.thumb"));
    row("pair-copied-before-with-a-counter",
        pair
            + Tree{"sd/DCIM/100ABC/a.thumb = old", "sd/DCIM/100ABC/a_1.jpg = x",
                   "sd/DCIM/100ABC/a_1.thumb = t"},
        {"a.jpg"}, {}, copied("a.jpg", "a_1.jpg") + copied("a.thumb", "a_1.thumb"));
    row("thumbnail-of-a-copy-is-missing", pair + Tree{"sd/DCIM/100ABC/a.jpg = x"}, {"a.jpg"}, {"a.thumb = t"},
        pairLines);
    row("thumbnail-of-a-copy-differs",
        pair + Tree{"sd/DCIM/100ABC/a.jpg = x", "sd/DCIM/100ABC/a.thumb = old"}, {"a.jpg"}, {}, "",
        {"@/a.thumb: cannot be copied: @/sd/DCIM/100ABC/a.thumb exists and differs", notDone("copy", 2, 2)});
    row("two-formats-share-a-thumbnail", pair + Tree{"a.png = y"}, {"a.jpg", "a.png"},
        pair + Tree{"a.png = y"}, pairLines + copied("a.png"));
    row("other-format-came-before", pair + Tree{"sd/DCIM/100ABC/a.png = y", "sd/DCIM/100ABC/a.thumb = t"},
        {"a.jpg"}, {"a.jpg = x"}, pairLines);
    const QByteArray longFolder(300, 'x');
    row("folder-name-too-long", {"a.jpg = x"}, {"a.jpg"}, {}, "",
        {"@/sd/DCIM/" + longFolder + ": cannot be created: File name too long"}, longFolder);
    const QByteArray longName(255, 'x');
    row("name-too-long-with-a-counter", {longName + " = new", "sd/DCIM/100ABC/" + longName + " = old"},
        {longName}, {}, "",
        {"@/" + longName + ": cannot be named @/sd/DCIM/100ABC/" + longName + "_1." + longName
             + ": File name too long",
         notDone("copy", 1, 1)});
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
    const Tree present = treeWithContents(tool.path());
    Tree expected = present;
    const QByteArray path = "sd/DCIM/" + folder + "/";
    if (!copies.isEmpty() && !expected.contains(path))
        expected.append(path);
    expected += below(path, copies);
    std::sort(expected.begin(), expected.end());
    const QByteArrayList arguments = files + QByteArrayList{storage, folder};
    const Outcome outcome = messages.isEmpty() ? tool.success(out) : tool.failure(messages, out);
    if (!messages.join().contains("File name too long")) { // a dry run does not try the name
        QCOMPARE(tool.runOnStorages(QByteArrayList{"copy", "-n"} + arguments), outcome);
        QCOMPARE(treeWithContents(tool.path()), present);
    }
    QCOMPARE(tool.runOnStorages(QByteArrayList{"copy"} + arguments), outcome);
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
    row("link-among-files-that-are-renamed", {"a.jpg = 1", "b.jpg -> target", "c.jpg = 3", "target = 2"},
        {"a.jpg", "b.jpg", "c.jpg"},
        onCard({"100ABC/", "100ABC/a.jpg = 1", "100ABC/b.jpg = 2", "100ABC/c.jpg = 3"}) + Tree{"target = 2"},
        copied("a.jpg") + copied("b.jpg") + copied("c.jpg"));
    row("same-file-twice", {"a.jpg = x"}, {"a.jpg", "a.jpg"}, onCard({"100ABC/", "100ABC/a.jpg = x"}),
        copied("a.jpg"), {"@/a.jpg: is given twice; a file can be moved only once", notDone("move", 1, 2)});
    row("same-file-by-another-path", {"a.jpg = x", "here -> ."}, {"a.jpg", "./here/a.jpg"},
        Tree{"here -> ."} + onCard({"100ABC/", "100ABC/a.jpg = x"}), copied("a.jpg"),
        {"@/./here/a.jpg: is given twice; a file can be moved only once", notDone("move", 1, 2)});
    row("copied-before", {"a.jpg = x", "sd/DCIM/100ABC/a.jpg = x"}, {"a.jpg"},
        onCard({"100ABC/", "100ABC/a.jpg = x"}), copied("a.jpg"));
    row("already-in-the-folder", {"sd/DCIM/100ABC/a.jpg = x"}, {"sd/DCIM/100ABC/../100ABC/a.jpg"},
        onCard({"100ABC/", "100ABC/a.jpg = x"}), "",
        {alreadyThere("@/sd/DCIM/100ABC/../100ABC/a.jpg"), notDone("move", 1, 1)});
    row("name-taken", {"a.jpg = new", "sd/DCIM/100ABC/a.jpg = old"}, {"a.jpg"},
        onCard({"100ABC/", "100ABC/a.jpg = old", "100ABC/a_1.jpg = new"}), copied("a.jpg", "a_1.jpg"));
    const Tree pair = {"a.jpg = x", "a.thumb = t"};
    const Tree moved = onCard({"100ABC/", "100ABC/a.jpg = x", "100ABC/a.thumb = t"});
    const QByteArray pairLines = copied("a.jpg") + copied("a.thumb");
    row("thumbnail-is-deleted-too", pair, {"a.jpg"}, moved, pairLines);
    row("thumbnail-is-named-too", pair, {"a.thumb", "a.jpg"}, moved, pairLines);
    row("only-the-recording", pair, {"--only", "a.jpg"},
        Tree{"a.thumb = t"} + onCard({"100ABC/", "100ABC/a.jpg = x"}), copied("a.jpg"));
    row("shared-thumbnail-stays", pair + Tree{"a.png = y"}, {"a.jpg"},
        Tree{"a.png = y", "a.thumb = t"} + moved, pairLines);
    row("shared-thumbnail-goes-with-all-formats", pair + Tree{"a.png = y"}, {"a.jpg", "a.png"},
        onCard({"100ABC/", "100ABC/a.jpg = x", "100ABC/a.png = y", "100ABC/a.thumb = t"}),
        pairLines + copied("a.png"));
    row("thumbnail-that-is-there-differs",
        pair + Tree{"sd/DCIM/100ABC/a.jpg = x", "sd/DCIM/100ABC/a.thumb = old"}, {"a.jpg"},
        pair + onCard({"100ABC/", "100ABC/a.jpg = x", "100ABC/a.thumb = old"}), "",
        {"@/a.thumb: cannot be copied: @/sd/DCIM/100ABC/a.thumb exists and differs", notDone("move", 2, 2)});
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
    const Tree present = treeWithContents(tool.path());
    const QByteArrayList arguments = files + QByteArrayList{"sd", "100ABC"};
    const Outcome outcome = messages.isEmpty() ? tool.success(out) : tool.failure(messages, out);
    QCOMPARE(tool.runOnStorages(QByteArrayList{"move", "-n"} + arguments), outcome);
    QCOMPARE(treeWithContents(tool.path()), present);
    QCOMPARE(tool.runOnStorages(QByteArrayList{"move"} + arguments), outcome);
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
        "the folder name '50%2' contains a place marker such as '%1', which the library would replace");
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

void VornfhTransferTest::survivesABadCopy_data()
{
    QTest::addColumn<QByteArray>("command");
    QTest::addColumn<QByteArray>("call");
    QTest::addColumn<QByteArray>("script");
    QTest::addColumn<QByteArray>("message");
    const auto row = [](const QByteArray &name, const QByteArray &call, const QByteArray &script,
                        const QByteArray &message = "the copy on the device differs") {
        for (const QByteArray command : {"copy", "move"})
            QTest::newRow(command + "-" + name) << command << call << script << message;
    };
    // The hidden copy of bad.jpg is "$bad".
    row("is-cut-off", "syncfs", "truncate -s 2 \"$bad\"");
    row("has-zeros-at-its-end", "syncfs", "truncate -s 2 \"$bad\"; truncate -s 10 \"$bad\"");
    row("has-other-content", "syncfs", "printf 'A bad copy' > \"$bad\"");
    row("is-too-long", "syncfs", "printf x >> \"$bad\"");
    row("is-deleted", "renameat2", "rm \"$bad\"",
        "cannot be named @/sd/DCIM/100ABC/bad.jpg: No such file or directory");
}

void VornfhTransferTest::survivesABadCopy()
{
    QFETCH(QByteArray, command);
    QFETCH(QByteArray, call);
    QFETCH(QByteArray, script);
    QFETCH(QByteArray, message);
    ToolRun tool;
    const Card card(tool);
    if (!card.isMounted())
        QSKIP(CANNOT_MOUNT);
    const QByteArray find = "bad=$(grep -l 'a bad copy' sd/DCIM/100ABC/.vornfh-*)\n";
    if (!tool.runBefore(call, find + script))
        QSKIP(CANNOT_PRELOAD);
    tool.make({"bad.jpg = a bad copy", "good.jpg = a good copy", "sd/DCIM/100ABC/"});
    QCOMPARE(tool.runOnStorages({command, "bad.jpg", "good.jpg", "sd", "100ABC"}),
             tool.failure({"@/bad.jpg: " + message, notDone(command, 1, 2)}, copied("good.jpg")));
    const Tree sources = command == "copy" ? Tree{"bad.jpg = a bad copy", "good.jpg = a good copy"}
                                           : Tree{"bad.jpg = a bad copy"};
    QCOMPARE(treeWithContents(tool.path()), sources + onCard({"100ABC/", "100ABC/good.jpg = a good copy"}));
}

void VornfhTransferTest::survivesAFileThatCannotBeWritten()
{
    const QString script =
        "trap '' XFSZ; ulimit -f 8; exec '%1' --suffix ABC --sd sd/DCIM copy bad.jpg good.jpg sd 100ABC";
    const ToolRun tool;
    tool.make({"sd/DCIM/", "bad.jpg size 100000", "good.jpg = x"});
    QCOMPARE(tool.runProgram("/bin/sh", {"-c", script.arg(ToolRun::toolPath())}),
             tool.failure({"@/bad.jpg: cannot be copied: File too large", notDone("copy", 1, 2)},
                          copied("good.jpg")));
    QCOMPARE(tree(tool.sd()), (Tree{"100ABC/", "100ABC/good.jpg"}));
}

void VornfhTransferTest::neverTreatsTheSourceAsItsCopy()
{
    for (const QByteArray command : {"copy", "move"}) {
        const ToolRun tool;
        tool.make({"a.jpg = x", "sd/DCIM/100ABC/"});
        QCOMPARE(::link(QFile::encodeName(tool.path() + "/a.jpg").constData(),
                        QFile::encodeName(tool.sd() + "/100ABC/a.jpg").constData()),
                 0);
        const bool isCopy = command == "copy"; // a move only has to remove the old name
        QCOMPARE(tool.runOnStorages({command, "a.jpg", "sd", "100ABC"}),
                 tool.success(copied("a.jpg", isCopy ? "a_1.jpg" : "a.jpg")));
        QCOMPARE(treeWithContents(tool.path()),
                 (isCopy ? Tree{"a.jpg = x"} : Tree{}) + onCard({"100ABC/", "100ABC/a.jpg = x"})
                     + (isCopy ? onCard({"100ABC/a_1.jpg = x"}).mid(2) : Tree{}));
    }
}

/// Another mount shows the file that is in the folder at the path of the source.
void VornfhTransferTest::neverTreatsAMountedSourceAsItsCopy()
{
    if (!hasOwnMounts())
        QSKIP(CANNOT_MOUNT);
    const ToolRun tool;
    tool.make({"a.jpg", "sd/DCIM/100ABC/a.jpg = x"});
    const QByteArray source = QFile::encodeName(tool.path() + "/a.jpg");
    const QByteArray file = QFile::encodeName(tool.sd() + "/100ABC/a.jpg");
    QCOMPARE(::mount(file.constData(), source.constData(), nullptr, MS_BIND, nullptr), 0);
    const Outcome outcome = tool.runOnStorages({"move", "a.jpg", "sd", "100ABC"});
    ::umount(source.constData());
    QCOMPARE(outcome, tool.failure({"@/a.jpg: was copied to @/sd/DCIM/100ABC/a_1.jpg but cannot be deleted: "
                                    "Device or resource busy",
                                    notDone("move", 1, 1)}));
    QCOMPARE(treeWithContents(tool.path()),
             Tree{"a.jpg"} + onCard({"100ABC/", "100ABC/a.jpg = x", "100ABC/a_1.jpg = x"}));
}

void VornfhTransferTest::describesEachFileInJson()
{
    const QByteArrayList names = {"a.jpg", "a.thumb"};
    for (const QByteArray command : {"copy", "move"}) {
        const ToolRun tool;
        tool.make({"a.jpg = x", "a.png = y", "a.thumb = t", "sd/DCIM/"});
        const QJsonDocument results = tool.runOnStorages({command, "--json", "a.jpg", "sd", "100ABC"}).json();
        for (int i = 0; i < names.size(); ++i) {
            const bool isMoved = command == "move" && i == 0; // a.png still needs the thumbnail
            QCOMPARE(results[i]["path"].toString(), tool.sd() + "/100ABC/" + names[i]);
            QCOMPARE(results[i]["source"].toString(), tool.path() + "/" + names[i]);
            QCOMPARE(results[i]["action"].toString(), QString(isMoved ? "moved" : "copied"));
        }
        QVERIFY(results[2].isUndefined());
    }
}

void VornfhTransferTest::movesByCopyingOnFat()
{
    ToolRun tool;
    if (!tool.pretendFat() || !tool.runBefore("renameat2", "ls -A sd/DCIM/100ABC | grep renaming > mark"))
        QSKIP(CANNOT_PRELOAD);
    tool.make({"a.jpg = x", "b.jpg = y", "sd/DCIM/100ABC/"});
    const ino_t source = statusOf(tool, "a.jpg").st_ino;
    QCOMPARE(tool.runOnStorages({"move", "a.jpg", "sd", "100ABC"}), tool.success(copied("a.jpg")));
    QVERIFY(statusOf(tool, FOLDER + "a.jpg").st_ino != source);
    QCOMPARE(withoutRandomNames(tool.content("mark")), QByteArray(".vornfh-PID-XXXXXX.renaming\n"));

    const int writer = ::open(QFile::encodeName(tool.path() + "/b.jpg").constData(), O_WRONLY | O_CLOEXEC);
    for (const QByteArray folder : {"100ABC", "new"})
        QCOMPARE(tool.runOnStorages({"move", "-n", "b.jpg", "sd", folder}),
                 tool.failure({"@/b.jpg: is being written", notDone("move", 1, 1)}));
    ::close(writer);
    QCOMPARE(tree(tool.path()), (Tree{"b.jpg", "mark"} + onCard({"100ABC/", "100ABC/a.jpg"})));
}

void VornfhTransferTest::refusesWhatFatCannotHold()
{
    ToolRun tool;
    if (!tool.pretendFat())
        QSKIP(CANNOT_PRELOAD);
    tool.make({"a.avi size 4294967295", "b.avi size 4294967296", "sd/DCIM/100ABC/"});
    const QByteArray message = "@/b.avi: is too large for the FAT file system of @/sd/DCIM/100ABC";
    for (const QByteArray command : {"copy", "move"}) {
        QCOMPARE(tool.runOnStorages({command, "-n", "a.avi", "b.avi", "sd", "100ABC"}),
                 tool.failure({message, notDone(command, 1, 2)}, copied("a.avi")));
        QCOMPARE(tool.runOnStorages({command, "b.avi", "sd", "100ABC"}),
                 tool.failure({message, notDone(command, 1, 1)}));
    }
    QCOMPARE(tree(tool.path()), (Tree{"a.avi", "b.avi"} + onCard({"100ABC/"})));
}

/// Another program, such as a file server, holds a lease on the first file.
void VornfhTransferTest::doesNotWaitForALease()
{
    const ToolRun tool;
    tool.make({"a.jpg = x", "b.jpg = y", "sd/DCIM/"});
    std::signal(SIGIO, SIG_IGN); // the kernel asks for the lease
    const int file = ::open(QFile::encodeName(tool.path() + "/a.jpg").constData(), O_RDWR | O_CLOEXEC);
    if (::fcntl(file, F_SETLEASE, F_WRLCK) != 0) {
        ::close(file);
        QSKIP("the file system does not support leases");
    }
    const Outcome outcome = tool.runOnStorages({"copy", "a.jpg", "b.jpg", "sd", "100ABC"});
    ::close(file);
    QCOMPARE(outcome, tool.failure({"@/a.jpg: Resource temporarily unavailable", notDone("copy", 1, 2)},
                                   copied("b.jpg")));
}

/// Another program takes the name of the thumbnail when the recording already has its new one.
void VornfhTransferTest::keepsAnObjectWhoseThumbnailLosesItsName()
{
    ToolRun tool;
    if (!tool.runBefore("renameat2", "printf other > sd/DCIM/101ABC/DCF_0001.thumb", 2))
        QSKIP(CANNOT_PRELOAD);
    tool.make(onCard({"100ABC/DCF_0001.jpg = x", "100ABC/DCF_0001.thumb = t"}));
    QCOMPARE(
        tool.runOnStorages({"move", "sd/DCIM/100ABC/DCF_0001.jpg", "sd", "101ABC"}),
        tool.failure({"@/sd/DCIM/100ABC/DCF_0001.thumb: cannot be named @/sd/DCIM/101ABC/DCF_0001.thumb: "
                      "File exists",
                      notDone("move", 2, 2)}));
    QCOMPARE(treeWithContents(tool.sd()),
             (Tree{"100ABC/", "100ABC/DCF_0001.jpg = x", "100ABC/DCF_0001.thumb = t", "101ABC/",
                   "101ABC/DCF_0001.thumb = other"}));
}

/// The tool may not make a link to the recording. Another program takes its new name, and the old name of the
/// thumbnail, when the thumbnail already has its new one.
void VornfhTransferTest::saysWhereAThumbnailIsThatCannotGoBack()
{
    ToolRun tool;
    if (::geteuid() != 0 || contentOf("/proc/sys/fs/protected_hardlinks") != "1\n" || !tool.dropPrivileges())
        QSKIP("needs root and protected hard links");
    const QByteArray script =
        "printf new > sd/DCIM/101ABC/DCF_0001.jpg; printf new > sd/DCIM/100ABC/DCF_0001.thumb";
    if (!tool.runBefore("renameat2", script, 2))
        QSKIP(CANNOT_PRELOAD);
    tool.make(onCard({"100ABC/", "101ABC/"}));
    giveToTool(tool);
    tool.make(onCard({"100ABC/DCF_0001.jpg = x", "100ABC/DCF_0001.thumb = t"}));
    const QByteArray recording = "@/sd/DCIM/100ABC/DCF_0001.jpg";
    QCOMPARE(
        tool.runOnStorages({"move", recording, "sd", "101ABC"}),
        tool.failure({"@/sd/DCIM/100ABC/DCF_0001.thumb: " + recording
                          + ": cannot be named @/sd/DCIM/101ABC/DCF_0001.jpg: File exists; the file is now "
                            "@/sd/DCIM/101ABC/DCF_0001.thumb",
                      notDone("move", 2, 2)}));
    QCOMPARE(treeWithContents(tool.sd()),
             (Tree{"100ABC/", "100ABC/DCF_0001.jpg = x", "100ABC/DCF_0001.thumb = new", "101ABC/",
                   "101ABC/DCF_0001.jpg = new", "101ABC/DCF_0001.thumb = t"}));
}

void VornfhTransferTest::saysThatARecordingKeepsItsOldName()
{
    ToolRun tool;
    if (!tool.dropPrivileges())
        QSKIP("needs root");
    if (!tool.runBefore("unlink", "chmod a-w sd/DCIM/100ABC"))
        QSKIP(CANNOT_PRELOAD);
    tool.make(onCard({"100ABC/DCF_0001.jpg = x", "100ABC/DCF_0001.thumb = t", "101ABC/"}));
    giveToTool(tool);
    const QByteArray recording = "@/sd/DCIM/100ABC/DCF_0001.jpg";
    QCOMPARE(
        tool.runOnStorages({"move", recording, "sd", "101ABC"}),
        tool.failure({recording
                          + ": now also has the name @/sd/DCIM/101ABC/DCF_0001.jpg, but its old name cannot "
                            "be deleted: Permission denied",
                      notDone("move", 2, 2)}));
    setMode(tool, "sd/DCIM/100ABC", 0755);
    QCOMPARE(treeWithContents(tool.sd()), (Tree{"100ABC/", "100ABC/DCF_0001.jpg = x", "101ABC/",
                                                "101ABC/DCF_0001.jpg = x", "101ABC/DCF_0001.thumb = t"}));
}

void VornfhTransferTest::neverLeavesAThumbnailWithoutItsRecordingWhenKilled_data()
{
    QTest::addColumn<QByteArray>("call");
    QTest::addColumn<int>("count");
    QTest::addColumn<Tree>("left");
    const Tree folder = {"100ABC/", "101ABC/"};
    row("before-the-recording-is-linked", QByteArray("link"), 1,
        folder + Tree{"100ABC/DCF_0001.jpg", "100ABC/DCF_0001.thumb"});
    row("before-the-thumbnail-is-renamed", QByteArray("renameat2"), 2,
        folder + Tree{"100ABC/DCF_0001.jpg", "100ABC/DCF_0001.thumb", "101ABC/DCF_0001.jpg"});
    row("before-the-recording-loses-its-old-name", QByteArray("unlink"), 1,
        folder + Tree{"100ABC/DCF_0001.jpg", "101ABC/DCF_0001.jpg", "101ABC/DCF_0001.thumb"});
}

/// Neither a command that was killed nor its repetition leaves a thumbnail without its recording.
void VornfhTransferTest::neverLeavesAThumbnailWithoutItsRecordingWhenKilled()
{
    QFETCH(QByteArray, call);
    QFETCH(int, count);
    QFETCH(Tree, left);
    ToolRun tool;
    const QProcessEnvironment usual = tool.environment;
    if (!tool.runBefore(call, "kill -9 $PPID", count))
        QSKIP(CANNOT_PRELOAD);
    tool.make(onCard({"100ABC/DCF_0001.jpg = x", "100ABC/DCF_0001.thumb = t"}));
    const QByteArrayList move = {"move", "sd/DCIM/100ABC/DCF_0001.jpg", "sd", "101ABC"};
    QCOMPARE(tool.runOnStorages(move).exitCode, 128 + SIGKILL);
    QCOMPARE(sorted(tree(tool.sd())), sorted(left));
    tool.environment = usual;
    QCOMPARE(tool.runOnStorages(move).exitCode, 0);
    QCOMPARE(treeWithContents(tool.sd()),
             (Tree{"100ABC/", "101ABC/", "101ABC/DCF_0001.jpg = x", "101ABC/DCF_0001.thumb = t"}));
}

void VornfhTransferTest::needsNoOtherProgram()
{
    const StandIns noPrograms(StandIns::Alone);
    for (const QByteArray command : {"copy", "move"}) {
        const ToolRun tool;
        tool.make({"sd/DCIM/", "a.jpg"});
        QCOMPARE(tool.runOnStorages({command, "a.jpg", "sd", "100ABC"}), tool.success(copied("a.jpg")));
    }
}

void VornfhTransferTest::choosesTheNamesOfTheLibrary_data()
{
    QTest::addColumn<QByteArray>("command");
    row("copy", QByteArray("copy"));
    row("move", QByteArray("move")); // renames the files
}

void VornfhTransferTest::choosesTheNamesOfTheLibrary()
{
    constexpr int RUNS = 20;
    constexpr quint32 SEED = 20261122;
    QFETCH(QByteArray, command);
    qInfo("seed %u", SEED);
    QRandomGenerator random(SEED);
    const Storages restoring; // its destructor resets the library
    const StandardErrorCapture banner;
    for (int run = 0; run < RUNS; ++run) {
        QByteArrayList files; // of the same few names, so that many are taken
        for (const QByteArray folder : {"a/", "b/", "c/", "sd/DCIM/100ABC/"}) {
            for (int count = random.bounded(8); count > 0; --count)
                files.append(folder + randomName(random));
        }
        files = sorted(QSet<QByteArray>(files.begin(), files.end()).values());
        Tree before{"sd/DCIM/100ABC/"};
        QByteArrayList sources;
        for (const QByteArray &file : qAsConst(files)) {
            before.append(file + " = content of " + file); // no two are the same
            if (!file.startsWith("sd/"))
                sources.append(file);
        }
        if (sources.isEmpty())
            continue;
        std::shuffle(sources.begin(), sources.end(), random);
        const ToolRun tool;
        const ToolRun library;
        tool.make(before);
        library.make(before);
        QCOMPARE(
            tool.runOnStorages(QByteArrayList{command} + sources + QByteArrayList{"sd", "100ABC"}).exitCode,
            0);
        VornFileHandler::init("ABC", "/dev/null/x", "", library.sd(), "", "/dev/null/x", "");
        QStringList paths;
        for (const QByteArray &source : qAsConst(sources))
            paths.append(library.path() + "/" + source);
        VornFileHandler::copyToFolder(paths, VORN_FILE_HANDLER::STORAGE_SD, "100ABC");
        QCOMPARE(treeWithContents(tool.sd()), treeWithContents(library.sd()));
    }
}

void VornfhTransferTest::stopsWhenAllCountersAreTaken()
{
    const ToolRun tool;
    tool.make({"README = new", "sd/DCIM/100ABC/README = old"});
    for (int i = 1; i <= 998; ++i)
        tool.make(onCard({"100ABC/README_" + QByteArray::number(i) + ".README = old"}));
    QCOMPARE(tool.runOnStorages({"move", "README", "sd", "100ABC"}),
             tool.success(copied("README", "README_999.README")));
    tool.make({"README = new"});
    QCOMPARE(tool.runOnStorages({"move", "README", "sd", "100ABC"}),
             tool.success(copied("README", "README_999.README"))); // it is there already
    tool.make({"README = newer"});
    const Tree before = treeWithContents(tool.path());
    const QByteArray message =
        "@/sd/DCIM/100ABC/README_999.README: exists, and so do the other 998 names with a counter";
    for (const QByteArray command : {"copy", "move"})
        QCOMPARE(tool.runOnStorages({command, "README", "sd", "100ABC"}),
                 tool.failure({message, notDone(command, 1, 1)}));
    QCOMPARE(treeWithContents(tool.path()), before);
}

void VornfhTransferTest::takesTheNextNameIfOneIsTakenInTheMeantime()
{
    for (const QByteArray command : {"copy", "move"}) {
        ToolRun tool;
        tool.make({"a.jpg = mine", "sd/DCIM/100ABC/"});
        if (!tool.runBefore("renameat2", "printf other > sd/DCIM/100ABC/a.jpg"))
            QSKIP(CANNOT_PRELOAD);
        QCOMPARE(tool.runOnStorages({command, "a.jpg", "sd", "100ABC"}),
                 tool.success(copied("a.jpg", "a_1.jpg")));
        QCOMPARE(treeWithContents(tool.path()),
                 (command == "copy" ? Tree{"a.jpg = mine"} : Tree{})
                     + onCard({"100ABC/", "100ABC/a.jpg = other", "100ABC/a_1.jpg = mine"}));
    }
}

void VornfhTransferTest::keepsModeAndTimes_data()
{
    QTest::addColumn<QByteArray>("command");
    QTest::addColumn<bool>("hasOwnFileSystem");
    QTest::addColumn<Tree>("existing");
    QTest::addColumn<uint>("mode");
    const auto row = [](const char *name, const QByteArray &command, bool hasOwnFileSystem = false,
                        const Tree &existing = {}, uint mode = 0440) {
        QTest::newRow(name) << command << hasOwnFileSystem << existing << mode;
    };
    row("copy", "copy");
    row("move", "move");
    row("move-to-another-file-system", "move", true);
    row("move-of-what-is-there", "move", false, {"sd/DCIM/100ABC/a.jpg at 1 = x"});
    row("move-of-a-writable-file-that-is-there", "move", false, {"sd/DCIM/100ABC/a.jpg at 1 = x"}, 0640);
    row("move-of-what-is-on-another-file-system", "move", true, {"sd/DCIM/100ABC/a.jpg at 1 = x"});
}

void VornfhTransferTest::keepsModeAndTimes()
{
    QFETCH(QByteArray, command);
    QFETCH(bool, hasOwnFileSystem);
    QFETCH(Tree, existing);
    QFETCH(uint, mode);
    const ToolRun tool;
    tool.make({"a.jpg = x", "sd/DCIM/"});
    std::optional<Card> card;
    if (hasOwnFileSystem && !card.emplace(tool).isMounted())
        QSKIP(CANNOT_MOUNT);
    tool.make(existing);
    const QByteArray source = tool.path().toUtf8() + "/a.jpg";
    if (::geteuid() == 0)
        QCOMPARE(::chown(source.constData(), 1234, 2345), 0);
    setMode(tool, "a.jpg", mode);
    setModified(source, 1234567890123);
    const struct stat before = statusOf(tool, "a.jpg");
    QCOMPARE(tool.runOnStorages({command, "a.jpg", "sd", "100ABC"}).exitCode, 0);
    const struct stat copy = statusOf(tool, FOLDER + "a.jpg");
    QCOMPARE(copy.st_mode & 07777U, mode);
    QCOMPARE(copy.st_uid, before.st_uid);
    QCOMPARE(copy.st_gid, before.st_gid);
    QCOMPARE(qint64(copy.st_mtim.tv_sec), qint64(1234567890));
    QCOMPARE(qint64(copy.st_mtim.tv_nsec), qint64(123000000));
}

void VornfhTransferTest::keepsHoles_data()
{
    QTest::addColumn<QByteArray>("command");
    row("copy", QByteArray("copy"));
    row("move", QByteArray("move"));
}

void VornfhTransferTest::keepsHoles()
{
    QFETCH(QByteArray, command);
    const ToolRun tool;
    const Card card(tool);
    if (!card.isMounted())
        QSKIP(CANNOT_MOUNT);
    tool.make({"hole.avi size 20000000", "start.avi size 20000000 = start"});
    makeSparse(tool.path() + "/pieces.avi");
    const QByteArrayList names{"hole.avi", "start.avi", "pieces.avi"};
    QByteArrayList contents;
    for (const QByteArray &name : names) {
        contents.append(tool.content(name));
        if (statusOf(tool, name).st_blocks * 512 > 1000000)
            QSKIP("the file system does not support holes in files");
    }
    QCOMPARE(tool.runOnStorages(QByteArrayList{command} + names + QByteArrayList{"sd", "100ABC"}),
             tool.success(copied("hole.avi") + copied("start.avi") + copied("pieces.avi")));
    for (int i = 0; i < names.size(); ++i) {
        QVERIFY2(tool.content(FOLDER + names[i]) == contents[i], names[i].constData());
        QVERIFY2(statusOf(tool, FOLDER + names[i]).st_blocks * 512 < 1000000, names[i].constData());
    }
}

void VornfhTransferTest::keepsTheProtectionOfACopy()
{
    const ToolRun tool;
    tool.make({"a.jpg at 9 = x", "sd/DCIM/100ABC/a.jpg at 1 = x"});
    setMode(tool, FOLDER + "a.jpg", 0444);
    QCOMPARE(tool.runOnStorages({"move", "a.jpg", "sd", "100ABC"}), tool.success(copied("a.jpg")));
    const struct stat copy = statusOf(tool, FOLDER + "a.jpg");
    QCOMPARE(copy.st_mode & 0222U, 0U);
    QCOMPARE(qint64(copy.st_mtim.tv_sec), qint64(9));
}

void VornfhTransferTest::movesWithinAFileSystemByRenaming()
{
    const ToolRun tool;
    tool.make({"a.jpg = x", "sd/DCIM/101ABC/b.avi = y"});
    const struct stat a = statusOf(tool, "a.jpg");
    const struct stat b = statusOf(tool, "sd/DCIM/101ABC/b.avi");
    QCOMPARE(tool.runOnStorages({"move", "a.jpg", "@/sd/DCIM/101ABC/b.avi", "sd", "100ABC"}),
             tool.success(copied("a.jpg") + copied("sd/DCIM/101ABC/b.avi", "b.avi")));
    QCOMPARE(statusOf(tool, FOLDER + "a.jpg").st_ino, a.st_ino);
    QCOMPARE(statusOf(tool, FOLDER + "b.avi").st_ino, b.st_ino);
    QCOMPARE(treeWithContents(tool.path()),
             onCard({"100ABC/", "100ABC/a.jpg = x", "100ABC/b.avi = y", "101ABC/"}));
}

void VornfhTransferTest::movesAFileOnlyOnce()
{
    const ToolRun tool;
    const Card card(tool);
    if (!card.isMounted())
        QSKIP(CANNOT_MOUNT);
    tool.make({"a.jpg = x", "b.jpg = x"});
    QCOMPARE(tool.runOnStorages({"move", "a.jpg", "a.jpg", "b.jpg", "sd", "100ABC"}),
             tool.failure({"@/a.jpg: is given twice; a file can be moved only once", notDone("move", 1, 3)},
                          copied("a.jpg") + copied("b.jpg")));
    QCOMPARE(treeWithContents(tool.path()), onCard({"100ABC/", "100ABC/a.jpg = x", "100ABC/b.jpg = x"}));
}

void VornfhTransferTest::doesNotCopyAgain()
{
    const ToolRun tool;
    tool.make({"a.jpg = x", "b.jpg = y", "sd/DCIM/"});
    const QByteArray out = copied("a.jpg") + copied("b.jpg");
    const auto copy = [&tool] { return tool.runOnStorages({"copy", "a.jpg", "b.jpg", "sd", "100ABC"}); };
    QCOMPARE(copy(), tool.success(out));
    const struct stat before = statusOf(tool, FOLDER + "a.jpg");
    QVERIFY(QFile::remove(tool.sd() + "/100ABC/b.jpg"));
    QCOMPARE(copy(), tool.success(out));
    const struct stat after = statusOf(tool, FOLDER + "a.jpg");
    QCOMPARE(after.st_ino, before.st_ino);
    QCOMPARE(after.st_ctim.tv_nsec, before.st_ctim.tv_nsec);
    QCOMPARE(treeWithContents(tool.sd()), (Tree{"100ABC/", "100ABC/a.jpg = x", "100ABC/b.jpg = y"}));

    QCOMPARE(tool.runOnStorages({"move", "a.jpg", "b.jpg", "sd", "100ABC"}), tool.success(out));
    QCOMPARE(statusOf(tool, FOLDER + "a.jpg").st_ino, before.st_ino);
    QCOMPARE(treeWithContents(tool.path()), onCard({"100ABC/", "100ABC/a.jpg = x", "100ABC/b.jpg = y"}));
}

void VornfhTransferTest::keepsASourceThatChanges_data()
{
    QTest::addColumn<QByteArray>("command");
    QTest::addColumn<QByteArray>("call");
    QTest::addColumn<QByteArray>("script");
    QTest::addColumn<QByteArray>("content");
    QTest::addColumn<Tree>("copies");
    const auto row = [](const QByteArray &name, const QByteArray &call, const QByteArray &script,
                        const QByteArray &content, const QByteArrayList &commands = {"copy", "move"},
                        const Tree &copies = {}) {
        for (const QByteArray &command : commands)
            QTest::newRow(command + "-" + name) << command << call << script << content << copies;
    };
    row("grows-before-the-copy", "copy_file_range", "printf x >> a.jpg", "oldx");
    row("shrinks-before-the-copy", "copy_file_range", "truncate -s 1 a.jpg", "o");
    row("is-emptied-before-the-copy", "copy_file_range", ": > a.jpg", "");
    row("grows-after-the-copy", "syncfs", "printf x >> a.jpg", "oldx");
    row("is-replaced", "syncfs", "printf new > n; mv n a.jpg", "new");
    row("is-touched", "syncfs", "touch a.jpg", "old");
    row("grows-before-it-is-deleted", "renameat2", "printf x >> a.jpg", "oldx", {"move"},
        {"100ABC/a.jpg = old"});
    row("is-replaced-before-it-is-deleted", "renameat2", "printf new > n; mv n a.jpg", "new", {"move"},
        {"100ABC/a.jpg = old"});
}

void VornfhTransferTest::keepsASourceThatChanges()
{
    QFETCH(QByteArray, command);
    QFETCH(QByteArray, call);
    QFETCH(QByteArray, script);
    QFETCH(QByteArray, content);
    QFETCH(Tree, copies);
    ToolRun tool;
    const Card card(tool);
    if (!card.isMounted())
        QSKIP(CANNOT_MOUNT);
    if (!tool.runBefore(call, script))
        QSKIP(CANNOT_PRELOAD);
    tool.make({"a.jpg = old", "sd/DCIM/100ABC/"});
    QCOMPARE(tool.runOnStorages({command, "a.jpg", "sd", "100ABC"}),
             tool.failure({"@/a.jpg: has changed since it was opened", notDone(command, 1, 1)}));
    QCOMPARE(treeWithContents(tool.path()),
             Tree{content.isEmpty() ? "a.jpg" : "a.jpg = " + content} + onCard(Tree{"100ABC/"} + copies));
}

/// A file of the kernel: it ends before its size, its holes are unknown, and it does not change.
void VornfhTransferTest::rejectsASourceThatContainsLessThanItsSize()
{
    const ToolRun tool;
    const QByteArray path = "/sys/class/net/lo/mtu";
    QVERIFY(QFileInfo(path).size() > contentOf(path).size());
    tool.make({"sd/DCIM/100ABC/"});
    QCOMPARE(tool.runOnStorages({"copy", path, "sd", "100ABC"}),
             tool.failure({path + ": the copy on the device differs", notDone("copy", 1, 1)}));
    QCOMPARE(tree(tool.path()), onCard({"100ABC/"}));
}

void VornfhTransferTest::reportsASourceThatIsReplacedBeforeItIsOpened()
{
    for (const QByteArrayList &options : {QByteArrayList(), QByteArrayList{"--dry-run"}}) {
        ToolRun tool;
        if (!tool.runBefore("open", "printf new > n; mv n a.jpg"))
            QSKIP(CANNOT_PRELOAD);
        tool.make({"a.jpg = old", "sd/DCIM/100ABC/"});
        QCOMPARE(
            tool.runOnStorages(QByteArrayList{"copy"} + options + QByteArrayList{"a.jpg", "sd", "100ABC"}),
            tool.failure({"@/a.jpg: has changed since it was opened", notDone("copy", 1, 1)}));
        QCOMPARE(treeWithContents(tool.path()), Tree{"a.jpg = new"} + onCard({"100ABC/"}));
    }
}

/// The path then leads to another file, although the one that was copied has not changed.
void VornfhTransferTest::keepsASourceWhoseFolderIsReplaced()
{
    for (const QByteArray command : {"copy", "move"}) {
        ToolRun tool;
        const Card card(tool);
        if (!card.isMounted())
            QSKIP(CANNOT_MOUNT);
        if (!tool.runBefore("syncfs", "mv in old; mkdir in; printf new > in/a.jpg"))
            QSKIP(CANNOT_PRELOAD);
        tool.make({"in/a.jpg = x", "sd/DCIM/100ABC/"});
        QCOMPARE(tool.runOnStorages({command, "in/a.jpg", "sd", "100ABC"}),
                 tool.failure({"@/in/a.jpg: has changed since it was opened", notDone(command, 1, 1)}));
        QCOMPARE(treeWithContents(tool.path()),
                 (Tree{"in/", "in/a.jpg = new", "old/", "old/a.jpg = x"} + onCard({"100ABC/"})));
    }
}

/// The name remains free for the next file.
void VornfhTransferTest::givesNoNameToASourceThatChanges()
{
    ToolRun tool;
    if (!tool.runBefore("copy_file_range", "printf x >> in/a.jpg"))
        QSKIP(CANNOT_PRELOAD);
    tool.make({"a.jpg = x", "in/a.jpg = x", "sd/DCIM/"});
    QCOMPARE(tool.runOnStorages({"copy", "in/a.jpg", "a.jpg", "sd", "100ABC"}),
             tool.failure({"@/in/a.jpg: has changed since it was opened", notDone("copy", 1, 2)},
                          copied("a.jpg")));
}

void VornfhTransferTest::keepsASourceThatIsBeingWritten_data()
{
    QTest::addColumn<int>("flags"); // with which this process has the file open; 0 if it is not open
    QTest::addColumn<bool>("isLocked");
    QTest::addColumn<QByteArray>("script"); // before the copy is named
    QTest::addColumn<Tree>("existing");
    QTest::addColumn<QByteArray>("message");
    const QByteArray afterTheCopy = "was copied to @/sd/DCIM/100ABC/a.jpg but is being written";
    const QByteArray openIt = "exec 3>> a.jpg; sleep 60 >&3 2>&1 < /dev/null & echo $! > writer";
    row("open", O_WRONLY, false, QByteArray(), Tree{}, QByteArray("is being written"));
    row("locked", O_RDONLY, true, QByteArray(), Tree{}, QByteArray("is being written"));
    row("opened-after-the-copy", 0, false, openIt, Tree{}, afterTheCopy);
    row("copied-before", O_WRONLY, false, QByteArray(), Tree{"sd/DCIM/100ABC/a.jpg = x"}, afterTheCopy);
}

void VornfhTransferTest::keepsASourceThatIsBeingWritten()
{
    QFETCH(int, flags);
    QFETCH(bool, isLocked);
    QFETCH(QByteArray, script);
    QFETCH(Tree, existing);
    QFETCH(QByteArray, message);
    ToolRun tool;
    const Card card(tool);
    if (!card.isMounted())
        QSKIP(CANNOT_MOUNT);
    if (!script.isEmpty() && !tool.runBefore("renameat2", script))
        QSKIP(CANNOT_PRELOAD);
    tool.make(Tree{"a.jpg = x", "sd/DCIM/100ABC/"} + existing);
    const int file = ::open(QFile::encodeName(tool.path() + "/a.jpg").constData(), flags | O_CLOEXEC);
    QVERIFY(!isLocked || ::flock(file, LOCK_EX) == 0);
    if (!script.isEmpty())
        ::close(file);
    const Outcome outcome = tool.runOnStorages({"move", "a.jpg", "sd", "100ABC"});
    if (script.isEmpty())
        ::close(file);
    else
        ::kill(tool.content("writer").trimmed().toInt(), SIGKILL);
    QCOMPARE(outcome, tool.failure({"@/a.jpg: " + message, notDone("move", 1, 1)}));
    QCOMPARE(tool.content("a.jpg"), QByteArray("x"));
    const bool isCopied = message != "is being written";
    QCOMPARE(tree(tool.sd()), isCopied ? Tree({"100ABC/", "100ABC/a.jpg"}) : Tree{"100ABC/"});
}

void VornfhTransferTest::keepsACopyWhoseSourceVanished()
{
    ToolRun tool;
    const Card card(tool);
    if (!card.isMounted())
        QSKIP(CANNOT_MOUNT);
    if (!tool.runBefore("renameat2", "rm a.jpg"))
        QSKIP(CANNOT_PRELOAD);
    tool.make({"a.jpg = x", "sd/DCIM/100ABC/"});
    QCOMPARE(tool.runOnStorages({"move", "a.jpg", "sd", "100ABC"}),
             tool.failure({"@/a.jpg: has changed since it was opened", notDone("move", 1, 1)}));
    QCOMPARE(treeWithContents(tool.path()), onCard({"100ABC/", "100ABC/a.jpg = x"}));
}

void VornfhTransferTest::keepsASourceThatCannotBeDeleted()
{
    if (!hasOwnMounts())
        QSKIP(CANNOT_MOUNT);
    const ToolRun tool;
    tool.make({"in/", "sd/DCIM/"});
    const TmpfsMount source(tool.path() + "/in", "size=1m");
    tool.make({"in/a.jpg = x"});
    QVERIFY(source.isMounted() && source.makeReadOnly());
    const QByteArray reason = "cannot be deleted: Read-only file system";
    QCOMPARE(tool.runOnStorages({"move", "-n", "in/a.jpg", "sd", "100ABC"}),
             tool.failure({"@/in/a.jpg: " + reason, notDone("move", 1, 1)}));
    QCOMPARE(tree(tool.sd()), Tree());
    QCOMPARE(tool.runOnStorages({"move", "in/a.jpg", "sd", "100ABC"}),
             tool.failure(
                 {"@/in/a.jpg: was copied to @/sd/DCIM/100ABC/a.jpg but " + reason, notDone("move", 1, 1)}));
    QCOMPARE(tree(tool.path()), (Tree{"in/", "in/a.jpg"} + onCard({"100ABC/", "100ABC/a.jpg"})));
}

/// The folder of the source is deleted once the file has been renamed.
void VornfhTransferTest::saysWhereAFileIsThatCannotGoBack()
{
    ToolRun tool;
    if (!tool.runBefore("syncfs", "rmdir in"))
        QSKIP(CANNOT_PRELOAD);
    tool.make({"in/a.jpg = x", "sd/DCIM/100ABC/"});
    QCOMPARE(tool.runOnStorages({"move", "in/a.jpg", "sd", "100ABC"}),
             tool.failure(
                 {"@/in/a.jpg: @/in: cannot be flushed to the device: No such file or directory; the file "
                  "is now @/sd/DCIM/100ABC/a.jpg",
                  notDone("move", 1, 1)}));
    QCOMPARE(treeWithContents(tool.path()), onCard({"100ABC/", "100ABC/a.jpg = x"}));
}

namespace {

void addInterruptions()
{
    QTest::addColumn<QByteArray>("command");
    QTest::addColumn<QByteArray>("signal");
    for (const QByteArray command : {"copy", "move"}) {
        for (const QByteArray signal : {"INT", "TERM", "HUP"})
            row(command + "-SIG" + signal, command, signal);
    }
}

} // namespace

void VornfhTransferTest::stopsAfterTheCurrentFile_data()
{
    addInterruptions();
}

void VornfhTransferTest::stopsAfterTheCurrentFile()
{
    QFETCH(QByteArray, command);
    QFETCH(QByteArray, signal);
    ToolRun tool;
    const Card card(tool);
    if (!card.isMounted())
        QSKIP(CANNOT_MOUNT);
    if (!tool.runBefore("copy_file_range", "kill -" + signal + " $PPID"))
        QSKIP(CANNOT_PRELOAD);
    tool.make({"a.jpg = x", "b.jpg = y"});
    QCOMPARE(tool.runOnStorages({command, "a.jpg", "b.jpg", "sd", "100ABC"}),
             tool.failure({"interrupted: " + notDone(command, 1, 2)}, copied("a.jpg")));
    QCOMPARE(treeWithContents(tool.path()),
             (command == "copy" ? Tree{"a.jpg = x", "b.jpg = y"} : Tree{"b.jpg = y"})
                 + onCard({"100ABC/", "100ABC/a.jpg = x"}));
}

void VornfhTransferTest::stopsWithinAFile_data()
{
    addInterruptions();
}

void VornfhTransferTest::stopsWithinAFile()
{
    QFETCH(QByteArray, command);
    QFETCH(QByteArray, signal);
    ToolRun tool;
    const Card card(tool);
    if (!card.isMounted())
        QSKIP(CANNOT_MOUNT);
    const QProcessEnvironment usual = tool.environment;
    if (!tool.runBefore("copy_file_range", "kill -" + signal + " $PPID", 2))
        QSKIP(CANNOT_PRELOAD);
    tool.make({"a.jpg = x", "c.jpg = z"});
    const QByteArray content = pattern((1 << 20) + 1, 'b'); // 1 MiB is copied at a time
    writeFile(tool.path() + "/b.avi", content);
    QCOMPARE(
        tool.runOnStorages({command, "a.jpg", "b.avi", "c.jpg", "sd", "100ABC"}),
        tool.failure({"@/b.avi: interrupted", "interrupted: " + notDone(command, 2, 3)}, copied("a.jpg")));
    QCOMPARE(treeWithContents(tool.sd()), (Tree{"100ABC/", "100ABC/a.jpg = x"}));
    QVERIFY(tool.content("b.avi") == content);

    tool.environment = usual;
    const ino_t first = statusOf(tool, FOLDER + "a.jpg").st_ino;
    const QByteArrayList rest =
        command == "copy" ? QByteArrayList{"a.jpg", "b.avi", "c.jpg"} : QByteArrayList{"b.avi", "c.jpg"};
    QCOMPARE(tool.runOnStorages(QByteArrayList{command} + rest + QByteArrayList{"sd", "100ABC"}),
             tool.success((command == "copy" ? copied("a.jpg") : "") + copied("b.avi") + copied("c.jpg")));
    QCOMPARE(statusOf(tool, FOLDER + "a.jpg").st_ino, first);
    QCOMPARE(tree(tool.sd()), (Tree{"100ABC/", "100ABC/a.jpg", "100ABC/b.avi", "100ABC/c.jpg"}));
    QVERIFY(tool.content("sd/DCIM/100ABC/b.avi") == content);
}

void VornfhTransferTest::stopsBetweenPartsThatTheKernelCopies_data()
{
    QTest::addColumn<int>("size");
    QTest::addColumn<bool>("isStopped");
    row("one-part", 8 << 20, false);
    row("two-parts", (8 << 20) + 1, true);
}

void VornfhTransferTest::stopsBetweenPartsThatTheKernelCopies()
{
    QFETCH(int, size);
    QFETCH(bool, isStopped);
    ToolRun tool;
    if (!tool.runBefore("copy_file_range", "kill -INT $PPID"))
        QSKIP(CANNOT_PRELOAD);
    tool.make({"sd/DCIM/"});
    writeFile(tool.path() + "/b.avi", pattern(size, 'b'));
    QCOMPARE(tool.runOnStorages({"copy", "b.avi", "sd", "100ABC"}),
             isStopped ? tool.failure({"@/b.avi: interrupted", "interrupted: " + notDone("copy", 1, 1)})
                       : tool.success(copied("b.avi")));
    QCOMPARE(tree(tool.sd()), isStopped ? Tree{"100ABC/"} : Tree({"100ABC/", "100ABC/b.avi"}));
}

void VornfhTransferTest::aSecondSignalEndsTheToolAtOnce_data()
{
    QTest::addColumn<QByteArray>("call");
    QTest::addColumn<QByteArray>("first");
    QTest::addColumn<QByteArray>("second");
    QTest::addColumn<int>("number"); // of the second
    const auto row = [](const char *name, const QByteArray &call, const QByteArray &first,
                        const QByteArray &second,
                        int number) { QTest::newRow(name) << call << first << second << number; };
    row("SIGINT-twice-while-a-file-is-copied", "copy_file_range", "INT", "INT", SIGINT);
    row("SIGINT-twice-while-copies-are-flushed", "syncfs", "INT", "INT", SIGINT);
    row("SIGINT-twice-while-copies-are-compared", "posix_fadvise", "INT", "INT", SIGINT);
    row("SIGTERM-twice-while-copies-are-compared", "posix_fadvise", "TERM", "TERM", SIGTERM);
    row("SIGHUP-after-SIGTERM-while-copies-are-compared", "posix_fadvise", "TERM", "HUP", SIGHUP);
}

void VornfhTransferTest::aSecondSignalEndsTheToolAtOnce()
{
    QFETCH(QByteArray, call);
    QFETCH(QByteArray, first);
    QFETCH(QByteArray, second);
    QFETCH(int, number);
    ToolRun tool;
    if (!tool.runBefore(call, twoSignals(first, second)))
        QSKIP(CANNOT_PRELOAD);
    tool.make({"a.jpg = x", "sd/DCIM/100ABC/"});
    QCOMPARE(tool.runOnStorages({"copy", "a.jpg", "sd", "100ABC"}), (Outcome{128 + number, "", ""}));
    QCOMPARE(withoutRandomNames(tree(tool.sd()).join(' ')), QByteArray("100ABC/ 100ABC/.vornfh-PID-XXXXXX"));
}

void VornfhTransferTest::nohupKeepsAHangUpFromEndingTheTool_data()
{
    QTest::addColumn<QByteArray>("script");
    row("SIGHUP", QByteArray("kill -HUP $PPID"));
    row("SIGHUP-after-SIGINT", twoSignals("INT", "HUP"));
}

void VornfhTransferTest::nohupKeepsAHangUpFromEndingTheTool()
{
    QFETCH(QByteArray, script);
    ToolRun tool;
    if (!tool.runBefore("posix_fadvise", script))
        QSKIP(CANNOT_PRELOAD);
    tool.make({"a.jpg = x", "sd/DCIM/100ABC/"});
    const QString line = "exec nohup '%1' --suffix ABC --sd sd/DCIM copy a.jpg sd 100ABC";
    QCOMPARE(tool.runProgram("/bin/sh", {"-c", line.arg(ToolRun::toolPath())}),
             tool.success(copied("a.jpg")));
    QCOMPARE(tree(tool.sd()), (Tree{"100ABC/", "100ABC/a.jpg"}));
}

void VornfhTransferTest::continuesAfterBeingKilled_data()
{
    QTest::addColumn<QByteArray>("command");
    QTest::addColumn<QByteArray>("call");
    QTest::addColumn<int>("count");
    QTest::addColumn<Tree>("left"); // in the folder
    QTest::addColumn<QByteArrayList>("again");
    const auto row = [](const char *name, const QByteArray &command, const QByteArray &call, int count,
                        const Tree &left, const QByteArrayList &again = {"a.jpg", "b.avi", "c.jpg"}) {
        QTest::newRow(name) << command << call << count << left << again;
    };
    const QByteArray hidden = ".vornfh-PID-XXXXXX";
    row("copy-while-the-first-file-is-written", "copy", "copy_file_range", 1, {hidden});
    row("copy-while-the-second-file-is-written", "copy", "copy_file_range", 3, {hidden, hidden});
    row("copy-before-the-copies-are-flushed", "copy", "syncfs", 1, {hidden, hidden, hidden});
    row("copy-before-the-copies-are-named", "copy", "renameat2", 1, {hidden, hidden, hidden});
    row("copy-after-the-first-copy-is-named", "copy", "renameat2", 2, {hidden, hidden, "a.jpg"});
    row("copy-after-the-copies-are-named", "copy", "syncfs", 2, {"a.jpg", "b.avi", "c.jpg"});
    row("move-while-the-second-file-is-written", "move", "copy_file_range", 3, {hidden, hidden});
    row("move-after-the-first-copy-is-named", "move", "renameat2", 2, {hidden, hidden, "a.jpg"});
    row("move-before-the-files-are-deleted", "move", "unlink", 1, {"a.jpg", "b.avi", "c.jpg"});
    row("move-after-the-first-file-is-deleted", "move", "unlink", 2, {"a.jpg", "b.avi", "c.jpg"},
        {"b.avi", "c.jpg"});
}

void VornfhTransferTest::continuesAfterBeingKilled()
{
    QFETCH(QByteArray, command);
    QFETCH(QByteArray, call);
    QFETCH(int, count);
    QFETCH(Tree, left);
    QFETCH(QByteArrayList, again);
    ToolRun tool;
    const Card card(tool);
    if (!card.isMounted())
        QSKIP(CANNOT_MOUNT);
    const QProcessEnvironment usual = tool.environment;
    if (!tool.runBefore(call, "kill -9 $PPID", count))
        QSKIP(CANNOT_PRELOAD);
    tool.make({"a.jpg = x", "c.jpg = z", "sd/DCIM/100ABC/"});
    makeSparse(tool.path() + "/b.avi");
    const QByteArray content = tool.content("b.avi");
    QCOMPARE(tool.runOnStorages({command, "a.jpg", "b.avi", "c.jpg", "sd", "100ABC"}),
             (Outcome{128 + SIGKILL, "", ""}));
    Tree found;
    QByteArrayList messages;
    QMap<QByteArray, ino_t> named;
    for (const QByteArray &name : tree(tool.sd() + "/100ABC")) {
        found.append(withoutRandomNames(name));
        if (found.last() != name)
            messages.append(messages::removed("@/sd/DCIM/100ABC/" + name));
        else
            named[name] = statusOf(tool, FOLDER + name).st_ino;
    }
    QCOMPARE(found, left);

    tool.environment = usual;
    QByteArray out;
    for (const QByteArray &name : again)
        out += copied(name);
    const Outcome outcome =
        tool.runOnStorages(QByteArrayList{command} + again + QByteArrayList{"sd", "100ABC"});
    QCOMPARE(outcome.exitCode, 0);
    QCOMPARE(outcome.out, tool.expand(out));
    QCOMPARE(sortedLines(outcome.err), sortedLines(tool.expand(errorLines(messages))));
    const Tree sources = command == "copy" ? Tree{"a.jpg", "b.avi", "c.jpg"} : Tree{};
    QCOMPARE(tree(tool.path()),
             sources + onCard({"100ABC/", "100ABC/a.jpg", "100ABC/b.avi", "100ABC/c.jpg"}));
    QVERIFY(tool.content("sd/DCIM/100ABC/b.avi") == content);
    for (const QByteArray &name : named.keys())
        QCOMPARE(statusOf(tool, FOLDER + name).st_ino, named[name]);
}

void VornfhTransferTest::continuesAfterBeingKilledBeforeTheFolderIsNamed()
{
    ToolRun tool;
    tool.make({"a.jpg = x", "sd/DCIM/"});
    const QProcessEnvironment usual = tool.environment;
    if (!tool.runBefore("renameat2", "kill -9 $PPID"))
        QSKIP(CANNOT_PRELOAD);
    const QByteArrayList copy = {"copy", "a.jpg", "sd", "100ABC"};
    QCOMPARE(tool.runOnStorages(copy), (Outcome{128 + SIGKILL, "", ""}));
    const Tree left = tree(tool.sd());
    QCOMPARE(left.size(), 1);
    QCOMPARE(withoutRandomNames(left.first()), QByteArray(".vornfh-PID-XXXXXX/"));

    tool.environment = usual;
    QCOMPARE(tool.runOnStorages(copy),
             tool.success(copied("a.jpg"),
                          errorLines({messages::removed("@/sd/DCIM/" + left.first().chopped(1))})));
    QCOMPARE(tree(tool.sd()), (Tree{"100ABC/", "100ABC/a.jpg"}));
}

void VornfhTransferTest::removesOnlyWhatNobodyUses()
{
    StandIns programs;
    programs.add("ffmpeg", "echo > started; exec sleep 60");
    const ToolRun tool;
    tool.make({"a.jpg = x", "usb/DCIM/"});
    QProcess other;
    tool.startOnStorages(other, {"record", "usb"});
    QTRY_VERIFY_WITH_TIMEOUT(QFile::exists(tool.path() + "/started"), 20000);
    const QByteArray anotherProgram = ".vornfh-" + QByteArray::number(::getpid()) + "-ABC123";
    const QByteArray runningTool = ".vornfh-" + QByteArray::number(other.processId()) + "-ABC123";
    const QByteArray locked = ".vornfh-99999999-locked";
    const QByteArray filled = ".vornfh-99999999-filled";
    Tree kept = {locked,
                 filled + "/",
                 filled + "/a.jpg",
                 ".vornfh-99999999-ABC1234",
                 ".vornfh-99999999-ABC12_",
                 ".vornfh-x9999999-ABC123",
                 ".vornfh-99999999-linked -> @/a.jpg",
                 "x.vornfh-99999999-ABC123"};
    if (!isEmulated()) // else it does not look like the tool
        kept.append(runningTool);
    tool.make(below("sd/DCIM/100ABC/", kept));
    tool.make(
        below("sd/DCIM/100ABC/", {".vornfh-99999999-ABC123", ".vornfh-99999999-folder/", anotherProgram}));
    const int file =
        ::open(QFile::encodeName(tool.sd() + "/100ABC/" + locked).constData(), O_RDONLY | O_CLOEXEC);
    QCOMPARE(::flock(file, LOCK_EX), 0);

    const QByteArrayList messages = {
        messages::removed("@/sd/DCIM/100ABC/.vornfh-99999999-ABC123"),
        messages::removed("@/sd/DCIM/100ABC/.vornfh-99999999-folder"),
        "@/sd/DCIM/100ABC/" + filled
            + ": left by an interrupted command and cannot be removed: Directory not empty",
        messages::removed("@/sd/DCIM/100ABC/" + anotherProgram)};
    const Outcome outcome = tool.runOnStorages({"copy", "a.jpg", "sd", "100ABC"});
    ::close(file);
    other.kill();
    other.waitForFinished();
    QCOMPARE(outcome.out, tool.expand(copied("a.jpg")));
    QCOMPARE(sortedLines(outcome.err), sortedLines(tool.expand(errorLines(messages))));
    QCOMPARE(tree(tool.sd() + "/100ABC"), sorted(tool.expand(kept + Tree{"a.jpg"})));
}

void VornfhTransferTest::createsAFolderBesideAFileInUse()
{
    const ToolRun tool;
    const QByteArray locked = ".vornfh-99999999-locked";
    tool.make(Tree{"a.jpg = x"} + onCard({locked}));
    const int file = ::open(QFile::encodeName(tool.sd() + "/" + locked).constData(), O_RDONLY | O_CLOEXEC);
    QCOMPARE(::flock(file, LOCK_EX), 0);
    const Outcome outcome = tool.runOnStorages({"copy", "a.jpg", "sd", "100ABC"});
    ::close(file);
    QCOMPARE(outcome, tool.success(copied("a.jpg")));
    QCOMPARE(tree(tool.sd()), (Tree{locked, "100ABC/", "100ABC/a.jpg"}));
}

void VornfhTransferTest::copiesMoreFilesThanItMayOpen()
{
    ToolRun tool;
    // While the first batch is flushed, the tool writes as many other files as its limit allows.
    if (!tool.runBefore("syncfs", "sleep 0.5"))
        QSKIP(CANNOT_PRELOAD);
    tool.make({"sd/DCIM/"});
    QByteArray out;
    Tree files;
    for (int i = 1000; i < 1500; ++i) {
        files.append("DCF_" + QByteArray::number(i) + ".jpg");
        out += copied(files.last());
        tool.make({files.last() + " = " + QByteArray::number(i)});
    }
    const QString script = "ulimit -n 600; exec '%1' --suffix ABC --sd sd/DCIM copy *.jpg sd 100ABC";
    QCOMPARE(tool.runProgram("/bin/sh", {"-c", script.arg(ToolRun::toolPath())}), tool.success(out));
    for (const QByteArray &file : files)
        QCOMPARE(tool.content(FOLDER + file), tool.content(file));
}

void VornfhTransferTest::endsABatchAtItsLimits_data()
{
    QTest::addColumn<QByteArray>("limits"); // of open files
    QTest::addColumn<Tree>("files");
    QTest::addColumn<int>("batches");
    const auto photos = [](int count) {
        Tree files;
        for (int i = 1; i <= count; ++i)
            files.append("DCF_" + QByteArray::number(1000 + i) + ".jpg = " + QByteArray::number(i));
        return files;
    };
    const QByteArray full = " size " + QByteArray::number(256 << 20);
    const QByteArray almostFull = " size " + QByteArray::number((256 << 20) - 1);
    row("one-file-in-each", QByteArray("ulimit -n 22"), photos(4), 4);
    row("limit-that-can-be-raised", QByteArray("ulimit -n 260; ulimit -S -n 22"), photos(44), 2);
    row("bytes", QByteArray(":"), Tree{"1.avi = 1", "2.avi" + full, "3.avi = 3"}, 3);
    row("bytes-of-two-files", QByteArray(":"), Tree{"1.avi" + full, "2.avi" + almostFull, "3.avi = 3"}, 2);
}

void VornfhTransferTest::endsABatchAtItsLimits()
{
    QFETCH(QByteArray, limits);
    QFETCH(Tree, files);
    QFETCH(int, batches);
    int flushes = 0; // two for each batch
    // On a busy machine, a batch can end earlier because it is a second old.
    for (int attempt = 0; attempt < 3 && flushes != 2 * batches; ++attempt) {
        ToolRun tool;
        if (!tool.runBefore("syncfs", "echo >> flushes", 0))
            QSKIP(CANNOT_PRELOAD);
        tool.make(files + Tree{"sd/DCIM/"});
        QByteArray out;
        for (const QByteArray &file : files)
            out += copied(file.left(file.indexOf(' ')));
        const QString script =
            QString::fromUtf8(limits + "; exec '%1' --suffix ABC --sd sd/DCIM copy *.* sd 100ABC");
        QCOMPARE(tool.runProgram("/bin/sh", {"-c", script.arg(ToolRun::toolPath())}), tool.success(out));
        flushes = tool.content("flushes").count('\n');
    }
    QCOMPARE(flushes, 2 * batches);
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

void VornfhTransferTest::movesAThumbnailAcrossFileSystems()
{
    const ToolRun tool;
    const Card card(tool);
    if (!card.isMounted())
        QSKIP(CANNOT_MOUNT);
    tool.make({"a.jpg = x", "a.thumb = t", "b.jpg = y", "b.png = z", "b.thumb = u", "c.thumb = v"});
    QCOMPARE(tool.runOnStorages({"move", "a.jpg", "b.jpg", "c.thumb", "sd", "100ABC"}),
             tool.success(copied("a.jpg") + copied("a.thumb") + copied("b.jpg") + copied("b.thumb")
                          + copied("c.thumb")));
    QCOMPARE(treeWithContents(tool.path()),
             (Tree{"b.png = z", "b.thumb = u"}
              + onCard({"100ABC/", "100ABC/a.jpg = x", "100ABC/a.thumb = t", "100ABC/b.jpg = y",
                        "100ABC/b.thumb = u", "100ABC/c.thumb = v"})));
}

void VornfhTransferTest::keepsAThumbnailWhoseRecordingChanges()
{
    ToolRun tool;
    const Card card(tool);
    if (!card.isMounted())
        QSKIP(CANNOT_MOUNT);
    if (!tool.runBefore("renameat2", "printf x >> a.jpg"))
        QSKIP(CANNOT_PRELOAD);
    tool.make({"a.jpg = x", "a.thumb = t", "sd/DCIM/100ABC/"});
    QCOMPARE(tool.runOnStorages({"move", "a.jpg", "sd", "100ABC"}),
             tool.failure({"@/a.jpg: has changed since it was opened", notDone("move", 2, 2)}));
    QCOMPARE(
        treeWithContents(tool.path()),
        (Tree{"a.jpg = xx", "a.thumb = t"} + onCard({"100ABC/", "100ABC/a.jpg = x", "100ABC/a.thumb = t"})));
}

/// The tool may delete files in the folder, but not open the folder. The link is copied, and then deleted.
void VornfhTransferTest::keepsARecordingIfTheDeletedThumbnailIsNotFlushed()
{
    ToolRun tool;
    if (!tool.dropPrivileges())
        QSKIP("needs root");
    tool.make({"in/a.jpg -> @/photo", "in/a.thumb = t", "photo = x", "sd/DCIM/100ABC/"});
    giveToTool(tool);
    setMode(tool, "in", 0333);
    const Outcome outcome = tool.runOnStorages({"move", "in/a.jpg", "sd", "100ABC"});
    setMode(tool, "in", 0755);
    QCOMPARE(outcome, tool.failure({"@/in/a.thumb: was copied to @/sd/DCIM/100ABC/a.thumb and deleted; @/in: "
                                    "cannot be flushed to the device: Permission denied",
                                    notDone("move", 2, 2)}));
    QCOMPARE(treeWithContents(tool.path()),
             tool.expand(Tree{"in/", "in/a.jpg -> @/photo", "photo = x"}
                         + onCard({"100ABC/", "100ABC/a.jpg = x", "100ABC/a.thumb = t"})));
}

void VornfhTransferTest::keepsARecordingWhoseThumbnailCannotBeRead()
{
    ToolRun tool;
    if (!tool.dropPrivileges())
        QSKIP("needs root");
    tool.make({"a.jpg = x", "a.thumb = t", "sd/DCIM/100ABC/"});
    ::chmod(QFile::encodeName(tool.path() + "/a.thumb").constData(), 0);
    for (const QByteArray command : {"copy", "move"})
        QCOMPARE(tool.runOnStorages({command, "a.jpg", "sd", "100ABC"}),
                 tool.failure({"@/a.thumb: Permission denied", notDone(command, 2, 2)}));
    QCOMPARE(tree(tool.path()), (Tree{"a.jpg", "a.thumb"} + onCard({"100ABC/"})));
}

void VornfhTransferTest::neverLeavesAThumbnailWithoutItsRecording()
{
    const ToolRun tool;
    for (const QByteArray number : {"1", "2", "3", "4"})
        tool.make(onCard({"100ABC/DCF_000" + number + ".jpg = " + number,
                          "100ABC/DCF_000" + number + ".thumb = t" + number}));
    const QByteArrayList commands[] = {
        {"move", "sd/DCIM/100ABC/DCF_0001.jpg", "sd", "101ABC"},
        {"copy", "sd/DCIM/100ABC/DCF_0002.jpg", "sd", "101ABC"},
        {"delete", "sd/DCIM/100ABC/DCF_0002.jpg"},
        {"prune", "sd", "--keep-last", "2"},
    };
    for (const QByteArrayList &command : commands) {
        QCOMPARE(tool.runOnStorages(command).exitCode, 0);
        const Outcome outcome = tool.runOnStorages({"check", "sd", "--names"});
        QVERIFY2(!outcome.out.contains("of this thumbnail is missing"), outcome.out.constData());
    }
}

void VornfhTransferTest::needsRoomOnlyForCopies_data()
{
    QTest::addColumn<Tree>("files");
    QTest::addColumn<QByteArrayList>("arguments");
    QTest::addColumn<QByteArray>("out");
    QTest::addColumn<QByteArrayList>("messages");
    const auto row = [](const char *name, const Tree &files, const QByteArrayList &arguments,
                        const QByteArray &out, const QByteArrayList &messages = {}) {
        QTest::newRow(name) << files << arguments << out << messages;
    };
    const QByteArray large = " = " + QByteArray(600 << 10, 'x');
    const QByteArray rest = " = " + QByteArray(424 << 10, 'x'); // of the 1 MiB on the card
    row("second-file-does-not-fit", {"a.avi" + large, "b.avi" + large}, {"copy", "a.avi", "b.avi"},
        copied("a.avi"),
        {"@/b.avi: not enough space in @/sd/DCIM/100ABC: 600.0 KiB needed, 424.0 KiB free",
         notDone("copy", 1, 2)});
    row("both-files-fit", {"a.avi" + large, "b.avi" + rest}, {"copy", "a.avi", "b.avi"},
        copied("a.avi") + copied("b.avi"));
    row("copied-before", {"a.avi" + large, "b.avi" + rest, "sd/DCIM/100ABC/a.avi" + large},
        {"copy", "a.avi", "b.avi"}, copied("a.avi") + copied("b.avi"));
    row("renamed", {"sd/DCIM/101ABC/a.avi" + large, "b.avi" + rest},
        {"move", "sd/DCIM/101ABC/a.avi", "b.avi"}, copied("sd/DCIM/101ABC/a.avi", "a.avi") + copied("b.avi"));
    row("renamed-on-a-full-card", {"sd/a.avi" + large, "sd/DCIM/b.avi" + rest},
        {"move", "sd/a.avi", "sd/DCIM/b.avi"},
        copied("sd/a.avi", "a.avi") + copied("sd/DCIM/b.avi", "b.avi"));
    row("half-is-a-hole", {"sd/DCIM/101ABC/a.avi size 1048576 = " + QByteArray(512 << 10, 'x')},
        {"copy", "sd/DCIM/101ABC/a.avi"}, copied("sd/DCIM/101ABC/a.avi", "a.avi"));
}

void VornfhTransferTest::needsRoomOnlyForCopies()
{
    QFETCH(Tree, files);
    QFETCH(QByteArrayList, arguments);
    QFETCH(QByteArray, out);
    QFETCH(QByteArrayList, messages);
    const ToolRun tool;
    const Card card(tool, "size=1m");
    if (!card.isMounted())
        QSKIP(CANNOT_MOUNT);
    tool.make(files);
    const Tree before = tree(tool.path());
    const Outcome outcome = messages.isEmpty() ? tool.success(out) : tool.failure(messages, out);
    QCOMPARE(tool.runOnStorages(arguments + QByteArrayList{"sd", "100ABC", "-n"}), outcome);
    QCOMPARE(tree(tool.path()), before);
    QCOMPARE(tool.runOnStorages(arguments + QByteArrayList{"sd", "100ABC"}), outcome);
}

void VornfhTransferTest::reportsMissingPermissions_data()
{
    QTest::addColumn<QByteArray>("command");
    QTest::addColumn<QString>("folder");
    QTest::addColumn<int>("mode");
    QTest::addColumn<QByteArrayList>("messages");
    row("folder-that-cannot-be-read", QByteArray("copy"), QString("sd/DCIM/100ABC"), 0333,
        QByteArrayList{"@/sd/DCIM/100ABC: Permission denied"});
    row("folder-that-cannot-be-written", QByteArray("copy"), QString("sd/DCIM/100ABC"), 0555,
        QByteArrayList{"@/in/a.jpg: no file can be created in @/sd/DCIM/100ABC: Permission denied",
                       notDone("copy", 1, 1)});
    row("source-that-cannot-be-renamed", QByteArray("move"), QString("in"), 0555,
        QByteArrayList{"@/in/a.jpg: cannot be named @/sd/DCIM/100ABC/a.jpg: Permission denied",
                       notDone("move", 1, 1)});
}

void VornfhTransferTest::reportsMissingPermissions()
{
    QFETCH(QByteArray, command);
    QFETCH(QString, folder);
    QFETCH(int, mode);
    QFETCH(QByteArrayList, messages);
    ToolRun tool;
    if (!tool.dropPrivileges())
        QSKIP("needs root");
    tool.make({"in/a.jpg = x", "sd/DCIM/100ABC/"});
    giveToTool(tool);
    setMode(tool, folder, static_cast<mode_t>(mode));
    const Outcome dry = tool.runOnStorages({command, "-n", "in/a.jpg", "sd", "100ABC"});
    const Outcome real = tool.runOnStorages({command, "in/a.jpg", "sd", "100ABC"});
    setMode(tool, folder, 0755);
    QCOMPARE(dry, tool.failure(messages));
    QCOMPARE(real, tool.failure(messages));
    QCOMPARE(tree(tool.path()), (Tree{"in/", "in/a.jpg"} + onCard({"100ABC/"})));
}

void VornfhTransferTest::reportsAFullStorage_data()
{
    QTest::addColumn<int>("size");
    QTest::addColumn<QByteArray>("reason");
    QTest::addColumn<QByteArray>("options"); // of the file system
    const auto row = [](const char *name, int size, const char *reason,
                        const QByteArray &options = "size=1m") {
        QTest::newRow(name) << size << QByteArray(reason) << options;
    };
    row("before-the-copy", 2500000, "not enough space in @/sd/DCIM/100ABC: 2.4 MiB needed, 1.0 MiB free");
    row("during-the-copy", 500000, "cannot be copied: No space left on device");
    row("no-room-for-another-file", 500000,
        "no file can be created in @/sd/DCIM/100ABC: No space left on device", "size=1m,nr_inodes=3");
}

void VornfhTransferTest::reportsAFullStorage()
{
    QFETCH(int, size);
    QFETCH(QByteArray, reason);
    QFETCH(QByteArray, options);
    for (const QByteArray command : {"copy", "move"}) {
        ToolRun tool;
        const Card card(tool, options);
        if (!card.isMounted())
            QSKIP(CANNOT_MOUNT);
        // The device fills after the tool has found enough space.
        if (!tool.runBefore("copy_file_range", "head -c 2000000 /dev/zero > sd/filler 2>&-"))
            QSKIP(CANNOT_PRELOAD);
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
    QVERIFY(shown.out.contains("\r0 of 1 files, "));
    QVERIFY(shown.out.contains(tool.expand("\r\x1b[K@/a.jpg -> @/sd/DCIM/100ABC/a.jpg\r\n")));
    QCOMPARE(tool.runOnStorages({"copy", "b.jpg", "sd", "100ABC"}), tool.success(copied("b.jpg")));
}

void VornfhTransferTest::fitsTheProgressLineIntoTheTerminal_data()
{
    QTest::addColumn<int>("columns");
    QTest::addColumn<QByteArray>("shown");
    row("unknown-width", 0, QByteArray("0 of 1 files, 0 B of 1 B, copying, 0 B/s [--------------------]"));
    row("19-columns", 19, QByteArray("0/1 files 0 B/1 B"));
}

void VornfhTransferTest::fitsTheProgressLineIntoTheTerminal()
{
    QFETCH(int, columns);
    QFETCH(QByteArray, shown);
    ToolRun tool;
    if (!tool.runBefore("copy_file_range", "sleep 0.5")) // so that the line is drawn
        QSKIP(CANNOT_PRELOAD);
    tool.make({"a.jpg = x", "sd/DCIM/"});
    const Outcome outcome = tool.runOnTerminal({"copy", "a.jpg", "sd", "100ABC"}, "", columns);
    QVERIFY2(outcome.out.contains("\r" + shown + "\x1b[K"), outcome.out);
}

void VornfhTransferTest::showsTheStage_data()
{
    QTest::addColumn<QByteArrayList>("arguments");
    QTest::addColumn<QByteArray>("call"); // which takes so long that the line is drawn
    QTest::addColumn<int>("count");
    QTest::addColumn<QByteArray>("shown");
    const QByteArrayList copy = {"copy", "a.jpg", "sd", "100ABC"};
    const QByteArrayList copyAgain = {"copy", "there.jpg", "sd", "100ABC"};
    const QByteArrayList copySparse = {"copy", "b.avi", "sd", "100ABC"};
    const QByteArrayList move = {"move", "a.jpg", "sd", "100ABC"};
    const QByteArrayList moveTwice = {"move", "a.jpg", "a.jpg", "sd", "100ABC"};
    const auto row = [](const char *name, const QByteArrayList &arguments, const QByteArray &call, int count,
                        const QByteArray &shown) {
        QTest::newRow(name) << arguments << call << count << shown;
    };
    row("copy-copies", copy, "copy_file_range", 1, "0 of 1 files, 0 B of 1 B, copying");
    row("copy-flushes-the-content", copy, "syncfs", 1, "0 of 1 files, 1 B of 1 B, flushing");
    row("copy-compares", copy, "posix_fadvise", 1, "0 of 1 files, 1 B of 1 B, comparing");
    row("copy-flushes-the-names", copy, "syncfs", 2, "0 of 1 files, 1 B of 1 B, flushing");
    row("copy-of-what-is-there-compares", copyAgain, "posix_fadvise", 1,
        "0 of 1 files, 0 B of 1 B, comparing");
    row("copy-of-what-is-there-flushes", copyAgain, "syncfs", 1, "0 of 1 files, 1 B of 1 B, flushing");
    row("holes-are-counted", copySparse, "syncfs", 1, "0 of 1 files, 24.0 MiB of 24.0 MiB, flushing");
    row("move-renames", move, "renameat2", 1, "0 of 1 files, 0 B of 1 B, moving");
    row("move-flushes", move, "syncfs", 1, "0 of 1 files, 1 B of 1 B, flushing");
    row("failures-are-counted", moveTwice, "syncfs", 1, "1 of 2 files, 2 B of 2 B, flushing");
}

void VornfhTransferTest::showsTheStage()
{
    QFETCH(QByteArrayList, arguments);
    QFETCH(QByteArray, call);
    QFETCH(int, count);
    QFETCH(QByteArray, shown);
    ToolRun tool;
    if (!tool.runBefore(call, "sleep 0.5", count))
        QSKIP(CANNOT_PRELOAD);
    tool.make({"a.jpg = x", "there.jpg = x", "sd/DCIM/100ABC/there.jpg = x"});
    makeSparse(tool.path() + "/b.avi");
    const Outcome outcome = tool.runOnTerminal(arguments);
    QVERIFY2(outcome.out.contains("\r" + shown + ", "), outcome.out);
}

void VornfhTransferTest::countsFilesThatFailLater_data()
{
    QTest::addColumn<QByteArray>("command");
    QTest::addColumn<QByteArray>("script"); // while the file is flushed
    row("changed", QByteArray("copy"), QByteArray("touch in/a.jpg"));
    row("not-flushed", QByteArray("move"), QByteArray("rmdir in"));
}

/// The second flush, of the other file, takes so long that the line is drawn. A link is never renamed.
void VornfhTransferTest::countsFilesThatFailLater()
{
    QFETCH(QByteArray, command);
    QFETCH(QByteArray, script);
    ToolRun tool;
    const QByteArray scripts =
        "echo >> calls; case $(grep -c '' calls) in\n1) " + script + ";;\n2) sleep 0.5;;\nesac";
    if (!tool.runBefore("syncfs", scripts, 0))
        QSKIP(CANNOT_PRELOAD);
    tool.make({"in/a.jpg = x", "b.jpg -> photo", "photo = y", "sd/DCIM/100ABC/"});
    const Outcome outcome = tool.runOnTerminal({command, "in/a.jpg", "b.jpg", "sd", "100ABC"});
    QVERIFY2(outcome.out.contains("\r1 of 2 files, 2 B of 2 B, flushing, "), outcome.out);
}

void VornfhTransferTest::reportsFilesBeforeALargeOneIsComplete_data()
{
    QTest::addColumn<qint64>("size");       // of the large file
    QTest::addColumn<QByteArray>("second"); // what happens when the first part of the large file is copied
    QTest::addColumn<QByteArray>("third");  // the second part
    const QByteArray waiting = "i=0; until [ -e sd/DCIM/100ABC/a.jpg ] || [ $i = 100 ]\n"
                               "do sleep 0.05; i=$((i + 1)); done; sleep 0.5";
    row("it-fills-a-batch", qint64(300) << 20, waiting, QByteArray());
    row("it-takes-longer-than-a-second", qint64(24) << 20, QByteArray("sleep 1.1"), waiting);
}

void VornfhTransferTest::reportsFilesBeforeALargeOneIsComplete()
{
    QFETCH(qint64, size);
    QFETCH(QByteArray, second);
    QFETCH(QByteArray, third);
    ToolRun tool;
    const QByteArray script = "echo >> calls; case $(grep -c '' calls) in\n2) " + second + ";;\n3) "
                              + (third.isEmpty() ? ":" : third) + ";;\nesac";
    if (!tool.runBefore("copy_file_range", script, 0))
        QSKIP(CANNOT_PRELOAD);
    tool.make({"a.jpg = x", "sd/DCIM/100ABC/"});
    makeSparse(tool.path() + "/b.avi");
    QVERIFY(QFile::resize(tool.path() + "/b.avi", size));
    const Outcome outcome = tool.runOnTerminal({"copy", "a.jpg", "b.avi", "sd", "100ABC"});
    QCOMPARE(outcome.exitCode, 0);
    static const QRegularExpression LINE("\r1 of 2 files, [0-9.]+ K?i?B of [0-9.]+ MiB, copying, ");
    QVERIFY2(QString::fromUtf8(outcome.out).contains(LINE), outcome.out);
}

void VornfhTransferTest::erasesTheProgressLineBeforeAMessage()
{
    ToolRun tool;
    if (!tool.runBefore("flock", "sleep 0.5"))
        QSKIP(CANNOT_PRELOAD);
    const QByteArray leftover = "sd/DCIM/100ABC/.vornfh-99999999-ABC123";
    tool.make({"a.jpg = x", leftover});
    const QByteArray out = tool.runOnTerminal({"copy", "a.jpg", "sd", "100ABC"}).out;
    const QByteArray message = tool.expand("vornfh: " + messages::removed("@/" + leftover) + "\r\n");
    QVERIFY2(out.startsWith(message) || out.contains("\r\x1b[K" + message), out);
}

QTEST_GUILESS_MAIN(VornfhTransferTest)
#include "tst_vornfh_transfer.moc"

// SPDX-License-Identifier: MIT
#include "media.h"
#include "recordings.h"
#include "standins.h"
#include "toolsupport.h"

#include <QFile>
#include <QFileInfo>
#include <QRegularExpression>
#include <QStorageInfo>
#include <QTest>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

const QByteArray NO_THUMBNAIL = "has no thumbnail, unlike others in this folder";
const QByteArray NOT_CLOSED =
    "is incomplete: it is still being recorded, or the recording was interrupted; a player may reject it";
const QByteArray CUT_OFF = "does not end like a file of its type: the end is missing or damaged";

/// A recording whose writer was killed: the sizes in its header are unknown, and it has no index.
QByteArray unclosedFile(const QByteArray &extension)
{
    QByteArray content = wholeFile(extension);
    if (extension == "avi")
        content.truncate(content.lastIndexOf("idx1"));
    if (extension == "mkv")
        content.truncate(content.size() * 3 / 4);
    else
        content.replace(4, 4, QByteArray(4, '\xff'));
    return content;
}

/// All that precedes the first frame or sample.
QByteArray headerOf(const QByteArray &extension)
{
    const QByteArray content = unclosedFile(extension);
    if (extension == "mkv")
        return content.left(content.indexOf(QByteArray::fromHex("1f43b675"))); // the first cluster
    return extension == "avi" ? content.left(content.indexOf("movi") + 4)
                              : content.left(content.indexOf("data") + 8);
}

/// The sizes of the packets that can be read, one per line.
QByteArray packetSizesIn(const QString &path)
{
    return outputOf("ffprobe", {"-v", "error", "-of", "csv=p=0", "-show_entries", "packet=size", path});
}

QByteArray linesOf(const QByteArrayList &lines)
{
    QByteArray text;
    for (const QByteArray &line : lines)
        text += "@/sd/DCIM/100ABC/" + line + "\n";
    return text;
}

QByteArrayList messagesOf(const QByteArrayList &lines)
{
    QByteArrayList messages;
    for (const QByteArray &line : lines)
        messages.append("@/sd/DCIM/100ABC/" + line);
    return messages;
}

/// Creates @p entries, which may contain anything, in the folder 100ABC.
void makeOnCard(const ToolRun &tool, const Tree &entries)
{
    makeTree(tool.sd() + "/100ABC", entries);
}

Tree namesOnCard(const ToolRun &tool)
{
    return tree(tool.sd() + "/100ABC");
}

} // namespace

class VornfhRepairTest : public QObject
{
    Q_OBJECT

private slots:
    void closesRecordings_data();
    void closesRecordings();
    void deletesEmptyFilesAndLeftovers_data();
    void deletesEmptyFilesAndLeftovers();
    void restoresAFileWhoseReplacementWasInterrupted();
    void makesThumbnails_data();
    void makesThumbnails();
    void keepsAndNamesWhatCannotBeRepaired_data();
    void keepsAndNamesWhatCannotBeRepaired();
    void leavesProtectedObjectsAlone_data();
    void leavesProtectedObjectsAlone();
    void leavesObjectsBeingWrittenAlone_data();
    void leavesObjectsBeingWrittenAlone();
    void leavesTheThumbnailOfARecordingBeingWrittenAlone();
    void repairsOnlyWhatIsNamed_data();
    void repairsOnlyWhatIsNamed();
    void changesNothingInADryRun();
    void keepsTheRecordingIfFfmpegFails_data();
    void keepsTheRecordingIfFfmpegFails();
    void requiresFfmpeg();
    void keepsARecordingThatChanges();
    void keepsALinkInPlaceOfARecording();
    void keepsAnEmptyFileThatIsFilled();
    void refusesWrongArguments_data();
    void refusesWrongArguments();
    void saysHowMuchSpaceItNeeds();
    void reportsAReadOnlyStorage();
};

void VornfhRepairTest::closesRecordings_data()
{
    QTest::addColumn<QByteArray>("extension");
    QTest::addColumn<QByteArray>("content");
    const auto row = [](const QByteArray &name, const QByteArray &extension, const QByteArray &content) {
        QTest::newRow(name) << extension << content;
    };
    for (const QByteArray extension : {"avi", "mkv", "wav"})
        row(extension, extension, unclosedFile(extension));
    QByteArray withoutIndex = wholeFile("avi");
    withoutIndex.replace(withoutIndex.lastIndexOf("idx1"), 4, "JUNK");
    row("avi-without-an-index", "avi", withoutIndex);
    row("upper-case", "AVI", unclosedFile("avi"));
}

void VornfhRepairTest::closesRecordings()
{
    QFETCH(QByteArray, extension);
    QFETCH(QByteArray, content);
    const ToolRun tool;
    const QByteArray file = "DCF_0001." + extension;
    const QString path = tool.sd() + "/100ABC/" + file;
    writeFile(path, content);
    setModified(QFile::encodeName(path), 1000000000000);
    setMode(tool, "sd/DCIM/100ABC/" + file, 0640);
    const QByteArray sizes = packetSizesIn(path);
    QCOMPARE(tool.runOnStorages({"repair", "sd"}), tool.success(linesOf({file + ": closed"})));
    QVERIFY(!tool.runOnStorages({"check", "sd"}).out.contains("repairable"));
    QCOMPARE(packetSizesIn(path), sizes);
    const struct stat status = statusOf(tool, "sd/DCIM/100ABC/" + file);
    QCOMPARE(status.st_mtime, 1000000000L);
    QCOMPARE(status.st_mode & 0777, 0640U);
    QCOMPARE(namesOnCard(tool), Tree{file});
    QCOMPARE(tool.runOnStorages({"repair", "sd"}), tool.success());
}

void VornfhRepairTest::deletesEmptyFilesAndLeftovers_data()
{
    QTest::addColumn<Tree>("entries");
    QTest::addColumn<QByteArrayList>("deleted");
    QTest::addColumn<Tree>("left");
    const QByteArray photo = "DCF_0001.jpg = " + wholeFile("jpg");
    const QByteArray thumbnail =
        "DCF_0001.thumb = " + wholeFile("jpg"); // if one recording has a thumbnail, all need one
    row("empty-files", Tree{photo, "DCF_0002.jpg", "DCF_0003.wav"},
        QByteArrayList{"DCF_0002.jpg", "DCF_0003.wav"}, Tree{"DCF_0001.jpg"});
    row("empty-recording-with-a-thumbnail", Tree{photo, thumbnail, "DCF_0002.avi", "DCF_0002.thumb = t"},
        QByteArrayList{"DCF_0002.thumb", "DCF_0002.avi"}, Tree{"DCF_0001.jpg", "DCF_0001.thumb"});
    row("empty-format-of-two", Tree{photo, thumbnail, "DCF_0001.avi"}, QByteArrayList{"DCF_0001.avi"},
        Tree{"DCF_0001.jpg", "DCF_0001.thumb"});
    row("empty-format-beside-one-in-upper-case",
        Tree{"DCF_0001.JPG = " + wholeFile("jpg"), thumbnail, "DCF_0001.avi"}, QByteArrayList{"DCF_0001.avi"},
        Tree{"DCF_0001.JPG", "DCF_0001.thumb"});
    row("thumbnails-alone", Tree{photo, thumbnail, "DCF_0002.thumb = t", "DCF_0003.thumb", "DCF_0004.wav"},
        QByteArrayList{"DCF_0003.thumb", "DCF_0004.wav", "DCF_0002.thumb"},
        Tree{"DCF_0001.jpg", "DCF_0001.thumb"});
    row("leftovers", Tree{photo, ".vornfh-99999999-ABC123 = x", ".vornfh-99999999-ABCDEF/"},
        QByteArrayList{".vornfh-99999999-ABC123", ".vornfh-99999999-ABCDEF"}, Tree{"DCF_0001.jpg"});
    row("names-that-players-reject", Tree{"notes.txt", "IMG_0001.jpg = " + wholeFile("jpg"), ".DCF_0001.jpg"},
        QByteArrayList(), Tree{".DCF_0001.jpg", "IMG_0001.jpg", "notes.txt"});
}

void VornfhRepairTest::deletesEmptyFilesAndLeftovers()
{
    QFETCH(Tree, entries);
    QFETCH(QByteArrayList, deleted);
    QFETCH(Tree, left);
    const ToolRun tool;
    makeOnCard(tool, entries);
    QByteArrayList lines;
    for (const QByteArray &path : deleted)
        lines.append(path + ": deleted");
    const Outcome outcome = tool.runOnStorages({"repair", "sd"});
    const auto sortedLines = [](const QByteArray &text) { return sorted(text.split('\n')); };
    QCOMPARE(sortedLines(outcome.out), sortedLines(tool.expand(linesOf(lines))));
    QCOMPARE(outcome.err, QByteArray());
    QCOMPARE(outcome.exitCode, 0);
    QCOMPARE(namesOnCard(tool), left);
}

void VornfhRepairTest::restoresAFileWhoseReplacementWasInterrupted()
{
    const ToolRun tool;
    const QByteArray left = ".vornfh-99999999-ABC123";
    const QByteArray photo = wholeFile("jpg");
    makeOnCard(tool, {left + " = " + photo,
                      ".vornfh-99999999-ABC124.renaming = another session\nDCF_0001.jpg\n" + left + "\n"});
    const Tree before = treeWithContents(tool.path());
    const QByteArray mayShare =
        "it may share its content with another file, or be the only copy of a file; unmount "
        "the storage device and check it with fsck before you delete the leftover";
    const QByteArray unrepaired =
        left + ": was left by an interrupted command; " + mayShare + "; cannot be repaired";
    QCOMPARE(tool.runOnStorages({"repair", "sd", "--dry-run"}),
             (Outcome{3, tool.expand(linesOf({"DCF_0001.jpg: would be restored"})),
                      tool.expand(errorLines(messagesOf({unrepaired})))}));
    QCOMPARE(treeWithContents(tool.path()), before);
    QCOMPARE(tool.runOnStorages({"repair", "sd"}),
             (Outcome{3, tool.expand(linesOf({"DCF_0001.jpg: restored"})),
                      tool.expand(errorLines(messagesOf(
                          {"DCF_0001.jpg: an interrupted command was replacing it; restored",
                           left + ": left by an interrupted command and kept: " + mayShare, unrepaired})))}));
    QCOMPARE(tool.content("sd/DCIM/100ABC/DCF_0001.jpg"), photo);
    QCOMPARE(tool.content("sd/DCIM/100ABC/" + left), photo);
}

void VornfhRepairTest::makesThumbnails_data()
{
    QTest::addColumn<Tree>("entries");
    QTest::addColumn<QByteArray>("thumbnail");
    const Tree other = {"DCF_0009.jpg = " + wholeFile("jpg"), "DCF_0009.thumb = " + wholeFile("jpg")};
    row("missing", other + Tree{"DCF_0001.png = " + wholeFile("png")}, QByteArray("DCF_0001.thumb"));
    row("missing-for-a-video", other + Tree{"DCF_0001.mkv = " + wholeFile("mkv")},
        QByteArray("DCF_0001.thumb"));
    row("empty", Tree{"DCF_0001.jpg = " + wholeFile("jpg"), "DCF_0001.thumb"}, QByteArray("DCF_0001.thumb"));
    row("cut", Tree{"DCF_0001.jpg = " + wholeFile("jpg"), "DCF_0001.thumb = " + wholeFile("jpg").chopped(2)},
        QByteArray("DCF_0001.thumb"));
}

void VornfhRepairTest::makesThumbnails()
{
    QFETCH(Tree, entries);
    QFETCH(QByteArray, thumbnail);
    const ToolRun tool;
    makeOnCard(tool, entries);
    QCOMPARE(tool.runOnStorages({"repair", "sd"}), tool.success(linesOf({thumbnail + ": created"})));
    QCOMPARE(outputOf("ffprobe", {"-v", "error", "-of", "csv=p=0", "-f", "mjpeg", "-show_entries",
                                  "stream=codec_name,width,height", tool.sd() + "/100ABC/" + thumbnail})
                 .trimmed(),
             QByteArray("mjpeg,160,120"));
    QCOMPARE(tool.runOnStorages({"check", "sd"}).exitCode, 0);
}

void VornfhRepairTest::keepsAndNamesWhatCannotBeRepaired_data()
{
    QTest::addColumn<Tree>("entries");
    QTest::addColumn<QByteArray>("message");
    const QByteArray jpeg = wholeFile("jpg");
    row("cut-photo", Tree{"DCF_0001.jpg = " + jpeg.chopped(1)},
        "DCF_0001.jpg: " + CUT_OFF + "; cannot be repaired");
    row("text", Tree{"DCF_0001.avi = text"},
        QByteArray("DCF_0001.avi: does not begin like a file of type avi; cannot be repaired"));
    // The recorder was killed before the first frame.
    for (const QByteArray extension : {"avi", "mkv", "wav"})
        row("only-a-header-" + extension, Tree{"DCF_0001." + extension + " = " + headerOf(extension)},
            "DCF_0001." + extension + ": contains no readable video or audio; cannot be repaired");
    // A hidden file on FAT that has lost its long name may be a leftover or a file of the user.
    row("short-name-of-a-leftover", Tree{"VORNFH~1 = x", "VORNFH~2/", "DCF_0001.jpg = " + jpeg.chopped(1)},
        "DCF_0001.jpg: " + CUT_OFF + "; cannot be repaired");
    row("leftover-that-may-share-its-content",
        Tree{".vornfh-99999999-ABC123 = x", ".vornfh-99999999-ABC124.renaming"},
        QByteArray(
            ".vornfh-99999999-ABC123: was left by an interrupted command; it may share its content with "
            "another file, or be the only copy of a file; unmount the storage device and check it with fsck "
            "before you "
            "delete the leftover; cannot be repaired"));
}

void VornfhRepairTest::keepsAndNamesWhatCannotBeRepaired()
{
    QFETCH(Tree, entries);
    QFETCH(QByteArray, message);
    const ToolRun tool;
    makeOnCard(tool, entries);
    const Tree before = treeWithContents(tool.path());
    QCOMPARE(tool.runOnStorages({"repair", "sd"}),
             (Outcome{3, QByteArray(), tool.expand(errorLines(messagesOf({message})))}));
    QCOMPARE(tool.runOnStorages({"repair", "sd", "--dry-run"}),
             (Outcome{3, QByteArray(), tool.expand(errorLines(messagesOf({message})))}));
    QCOMPARE(treeWithContents(tool.path()), before);
}

void VornfhRepairTest::leavesProtectedObjectsAlone_data()
{
    QTest::addColumn<Tree>("entries");
    QTest::addColumn<QByteArray>("isProtected");
    QTest::addColumn<QByteArray>("message");
    const QByteArray end = "; the file is protected and is left alone";
    row("recording", Tree{"DCF_0001.avi = " + unclosedFile("avi")}, QByteArray("DCF_0001.avi"),
        "DCF_0001.avi: " + NOT_CLOSED + end);
    row("empty-file", Tree{"DCF_0001.wav"}, QByteArray("DCF_0001.wav"),
        "DCF_0001.wav: is empty: it was never written, or its content was lost" + end);
    row("thumbnail", Tree{"DCF_0001.thumb = x"}, QByteArray("DCF_0001.thumb"),
        "DCF_0001.thumb: the photo or video of this thumbnail is missing" + end);
    row("photo-of-a-damaged-thumbnail", Tree{"DCF_0001.jpg = " + wholeFile("jpg"), "DCF_0001.thumb = x"},
        QByteArray("DCF_0001.jpg"), "DCF_0001.thumb: does not begin like a file of type thumb" + end);
    row("photo-in-upper-case-of-a-damaged-thumbnail",
        Tree{"DCF_0001.JPG = " + wholeFile("jpg"), "DCF_0001.thumb = x"}, QByteArray("DCF_0001.JPG"),
        "DCF_0001.thumb: does not begin like a file of type thumb" + end);
}

void VornfhRepairTest::leavesProtectedObjectsAlone()
{
    QFETCH(Tree, entries);
    QFETCH(QByteArray, isProtected);
    QFETCH(QByteArray, message);
    const ToolRun tool;
    makeOnCard(tool, entries);
    setMode(tool, "sd/DCIM/100ABC/" + isProtected, 0444);
    const Tree before = treeWithContents(tool.path());
    QCOMPARE(tool.runOnStorages({"repair", "sd"}),
             (Outcome{3, QByteArray(), tool.expand(errorLines(messagesOf({message})))}));
    QCOMPARE(treeWithContents(tool.path()), before);
}

void VornfhRepairTest::leavesObjectsBeingWrittenAlone_data()
{
    QTest::addColumn<QByteArray>("file");
    QTest::addColumn<QByteArray>("content");
    QTest::addColumn<bool>("isLocked");
    const auto row = [](const QByteArray &name, const QByteArray &file, const QByteArray &content) {
        QTest::newRow(name + "-open-for-writing") << file << content << false;
        QTest::newRow(name + "-locked") << file << content << true;
    };
    row("recording", "DCF_0001.avi", unclosedFile("avi"));
    row("empty", "DCF_0001.wav", {});
}

void VornfhRepairTest::leavesObjectsBeingWrittenAlone()
{
    QFETCH(QByteArray, file);
    QFETCH(QByteArray, content);
    QFETCH(bool, isLocked);
    const ToolRun tool;
    const QByteArray path = QFile::encodeName(tool.sd()) + "/100ABC/" + file;
    writeFile(path, content);
    const Tree before = treeWithContents(tool.path());
    const int descriptor = ::open(path.constData(), (isLocked ? O_RDONLY : O_WRONLY) | O_CLOEXEC);
    QVERIFY(descriptor >= 0 && (!isLocked || ::flock(descriptor, LOCK_EX) == 0));
    QCOMPARE(tool.runOnStorages({"repair", "sd"}), tool.success());
    QCOMPARE(treeWithContents(tool.path()), before);
    ::close(descriptor);
}

/// Only the first byte of the recording has been written so far.
void VornfhRepairTest::leavesTheThumbnailOfARecordingBeingWrittenAlone()
{
    const ToolRun tool;
    makeOnCard(tool, {"DCF_0001.avi = R", "DCF_0001.thumb = x"});
    const Tree before = treeWithContents(tool.path());
    QFile recording(tool.sd() + "/100ABC/DCF_0001.avi");
    QVERIFY(recording.open(QIODevice::ReadOnly) && ::flock(recording.handle(), LOCK_EX) == 0);
    QCOMPARE(tool.runOnStorages({"repair", "sd"}),
             (Outcome{3, QByteArray(),
                      tool.expand(
                          errorLines(messagesOf({"DCF_0001.thumb: is being written and is left alone"})))}));
    QCOMPARE(treeWithContents(tool.path()), before);
}

void VornfhRepairTest::repairsOnlyWhatIsNamed_data()
{
    QTest::addColumn<QByteArrayList>("arguments");
    QTest::addColumn<QByteArrayList>("deleted");
    row("file", QByteArrayList{"sd/DCIM/100ABC/DCF_0001.jpg"}, QByteArrayList{"sd/DCIM/100ABC/DCF_0001.jpg"});
    row("thumbnail-of-the-object", QByteArrayList{"@/sd/DCIM/100ABC/DCF_0002.thumb"},
        QByteArrayList{"sd/DCIM/100ABC/DCF_0002.thumb", "sd/DCIM/100ABC/DCF_0002.jpg"});
    row("folder", QByteArrayList{"sd/DCIM/101ABC"}, QByteArrayList{"sd/DCIM/101ABC/DCF_0001.jpg"});
    row("folder-and-file", QByteArrayList{"sd/DCIM/101ABC/", "sd/DCIM/100ABC/DCF_0001.jpg"},
        QByteArrayList{"sd/DCIM/101ABC/DCF_0001.jpg", "sd/DCIM/100ABC/DCF_0001.jpg"});
    row("two-storages", QByteArrayList{"MMC", "sd/DCIM/101ABC"},
        QByteArrayList{"mmc/DCIM/100ABC/DCF_0001.jpg", "sd/DCIM/101ABC/DCF_0001.jpg"});
    row("the-same-twice", QByteArrayList{"mmc", "mmc"}, QByteArrayList{"mmc/DCIM/100ABC/DCF_0001.jpg"});
}

void VornfhRepairTest::repairsOnlyWhatIsNamed()
{
    QFETCH(QByteArrayList, arguments);
    QFETCH(QByteArrayList, deleted);
    const ToolRun tool;
    const Tree files = {"mmc/DCIM/100ABC/DCF_0001.jpg", "sd/DCIM/100ABC/DCF_0001.jpg",
                        "sd/DCIM/100ABC/DCF_0002.jpg", "sd/DCIM/100ABC/DCF_0002.thumb = x",
                        "sd/DCIM/101ABC/DCF_0001.jpg"};
    tool.make(files);
    QByteArray out;
    Tree left = tree(tool.path());
    for (const QByteArray &path : deleted) {
        out += "@/" + path + ": deleted\n";
        left.removeOne(path);
    }
    QCOMPARE(tool.runOnStorages(QByteArrayList{"repair"} + arguments), tool.success(out));
    QCOMPARE(tree(tool.path()), left);
}

void VornfhRepairTest::changesNothingInADryRun()
{
    const ToolRun tool;
    makeOnCard(tool, {"DCF_0001.avi = " + unclosedFile("avi"), "DCF_0002.jpg = " + wholeFile("jpg"),
                      "DCF_0002.thumb = x", "DCF_0003.jpg = x", "DCF_0003.thumb", "DCF_0004.wav",
                      "DCF_0005.thumb = x", "DCF_0006.avi", "DCF_0006.thumb = x", "DCF_0007.png",
                      "DCF_0007.thumb"});
    const Tree before = treeWithContents(tool.path());
    const QByteArray out = linesOf({"DCF_0001.avi: would be closed", "DCF_0002.thumb: would be created",
                                    "DCF_0003.thumb: would be deleted", "DCF_0004.wav: would be deleted",
                                    "DCF_0006.thumb: would be deleted", "DCF_0006.avi: would be deleted",
                                    "DCF_0007.thumb: would be deleted", "DCF_0007.png: would be deleted",
                                    "DCF_0005.thumb: would be deleted", "DCF_0001.thumb: would be created"});
    const QByteArrayList messages =
        messagesOf({"DCF_0003.jpg: does not begin like a file of type jpg; cannot be repaired"});
    QCOMPARE(tool.runOnStorages({"repair", "sd", "--dry-run"}),
             (Outcome{3, tool.expand(out), tool.expand(errorLines(messages))}));
    QCOMPARE(treeWithContents(tool.path()), before);
}

void VornfhRepairTest::keepsTheRecordingIfFfmpegFails_data()
{
    QTest::addColumn<QByteArray>("script");
    QTest::addColumn<QByteArray>("message");
    row("fails", QByteArray("echo broken >&2; exit 1"), QByteArray("cannot be closed: broken"));
    row("writes-nothing", QByteArray("exit 0"), QByteArray("cannot be closed: not all of it can be read"));
    row("writes-something-else", FIND_TARGET + "echo text > \"$target\"",
        QByteArray("cannot be closed: not all of it can be read"));
    row("writes-half-of-it", onlyToRecord("copy") + "\"$real\" -t 0.2 \"$@\"",
        QByteArray("cannot be closed: not all of it can be read"));
}

void VornfhRepairTest::keepsTheRecordingIfFfmpegFails()
{
    QFETCH(QByteArray, script);
    QFETCH(QByteArray, message);
    const QByteArray content = unclosedFile("avi"); // with the real ffmpeg
    StandIns programs;
    programs.add("ffmpeg", script);
    const ToolRun tool;
    makeOnCard(tool, {"DCF_0001.avi = " + content, "DCF_0002.wav"});
    QCOMPARE(tool.runOnStorages({"repair", "sd"}),
             tool.failure(messagesOf({"DCF_0001.avi: " + message}), linesOf({"DCF_0002.wav: deleted"})));
    QCOMPARE(treeWithContents(tool.sd() + "/100ABC"), Tree{"DCF_0001.avi = " + content});
}

void VornfhRepairTest::requiresFfmpeg()
{
    const QByteArray content = unclosedFile("avi");
    const StandIns noPrograms(StandIns::Alone);
    const ToolRun tool;
    makeOnCard(tool, {"DCF_0001.avi = " + content});
    QCOMPARE(tool.runOnStorages({"repair", "sd"}), tool.failure({"ffmpeg is not on PATH; repair needs it"}));
    QCOMPARE(treeWithContents(tool.sd() + "/100ABC"), Tree{"DCF_0001.avi = " + content});
}

/// A program continues to write the recording after it was checked.
void VornfhRepairTest::keepsARecordingThatChanges()
{
    const QByteArray content = unclosedFile("avi");
    StandIns programs;
    programs.add("ffmpeg", "echo more >> '" + QByteArray("sd/DCIM/100ABC/DCF_0001.avi") + "'\n"
                               + programs.becomes("ffmpeg"));
    const ToolRun tool;
    makeOnCard(tool, {"DCF_0001.avi = " + content});
    QCOMPARE(tool.runOnStorages({"repair", "sd"}),
             tool.failure(messagesOf({"DCF_0001.avi: cannot be closed: it was changed by another program in "
                                      "the meantime"})));
    QCOMPARE(treeWithContents(tool.sd() + "/100ABC"), Tree{"DCF_0001.avi = " + content + "more\n"});
}

/// After the recording was checked, a program moves it and puts a link in its place.
void VornfhRepairTest::keepsALinkInPlaceOfARecording()
{
    const QByteArray content = unclosedFile("avi");
    StandIns programs;
    programs.add("ffprobe", "mv sd/DCIM/100ABC/DCF_0001.avi moved.avi\n"
                            "ln -s ../../../moved.avi sd/DCIM/100ABC/DCF_0001.avi\n"
                                + programs.becomes("ffprobe"));
    const ToolRun tool;
    makeOnCard(tool, {"DCF_0001.avi = " + content});
    QCOMPARE(tool.runOnStorages({"repair", "sd"}),
             tool.failure(messagesOf({"DCF_0001.avi: cannot be read: Too many levels of symbolic links"})));
    QCOMPARE(namesOnCard(tool), Tree{"DCF_0001.avi -> ../../../moved.avi"});
    QCOMPARE(tool.content("moved.avi"), content);
}

/// A program writes to a file after it was found to be empty.
void VornfhRepairTest::keepsAnEmptyFileThatIsFilled()
{
    const QByteArray content = unclosedFile("avi");
    StandIns programs;
    programs.add("ffmpeg", "echo more > 'sd/DCIM/100ABC/DCF_0002.wav'\n" + programs.becomes("ffmpeg"));
    const ToolRun tool;
    makeOnCard(tool, {"DCF_0001.avi = " + content, "DCF_0002.wav"});
    QCOMPARE(tool.runOnStorages({"repair", "sd"}), tool.success(linesOf({"DCF_0001.avi: closed"})));
    QCOMPARE(tool.content("sd/DCIM/100ABC/DCF_0002.wav"), QByteArray("more\n"));
}

void VornfhRepairTest::refusesWrongArguments_data()
{
    QTest::addColumn<QByteArrayList>("arguments");
    QTest::addColumn<QByteArray>("message");
    QTest::addColumn<bool>("isUsageError");
    const QByteArray outside = ": is not in a numbered folder of a configured storage device";
    row("no-argument", QByteArrayList(), QByteArray("STORAGE|PATH... is required"), true);
    row("empty", QByteArrayList{""}, QByteArray("'': is not a file name"), false);
    row("missing-file", QByteArrayList{"sd/DCIM/100ABC/none.jpg"},
        QByteArray("@/sd/DCIM/100ABC/none.jpg: No such file or directory"), false);
    row("file-outside-a-storage", QByteArrayList{"a.jpg"}, "@/a.jpg" + outside, false);
    row("location", QByteArrayList{"sd/DCIM"}, "@/sd/DCIM" + outside, false);
    row("folder-that-is-not-numbered", QByteArrayList{"sd/DCIM/MISC"}, "@/sd/DCIM/MISC" + outside, false);
    row("storage-without-a-location", QByteArrayList{"usb"}, QByteArray("@/usb/DCIM: does not exist"), false);
    const QByteArray notPresent = ": the block device nosuchdevice of storage ";
    row("absent-device", QByteArrayList{"sd", "--sd-block", "nosuchdevice"},
        "@/sd/DCIM" + notPresent + "sd is not present", false);
    row("absent-device-in-a-dry-run", QByteArrayList{"sd", "-n", "--sd-block", "nosuchdevice"},
        "@/sd/DCIM" + notPresent + "sd is not present", false);
    row("file-on-an-absent-device-in-a-dry-run",
        QByteArrayList{"sd/DCIM/100ABC/DCF_0001.jpg", "-n", "--sd-block", "nosuchdevice"},
        "@/sd/DCIM" + notPresent + "sd is not present", false);
    row("absent-device-without-the-location", QByteArrayList{"usb", "--usb-block", "nosuchdevice"},
        "@/usb/DCIM" + notPresent + "usb is not present", false);
}

void VornfhRepairTest::refusesWrongArguments()
{
    QFETCH(QByteArrayList, arguments);
    QFETCH(QByteArray, message);
    QFETCH(bool, isUsageError);
    const ToolRun tool;
    tool.make({"a.jpg", "sd/DCIM/MISC/", "sd/DCIM/100ABC/DCF_0001.jpg"});
    const Tree before = tree(tool.path());
    QCOMPARE(tool.runOnStorages(QByteArrayList{"repair"} + arguments),
             isUsageError ? tool.usageError({message}) : tool.failure({message}));
    QCOMPARE(tree(tool.path()), before);
}

void VornfhRepairTest::saysHowMuchSpaceItNeeds()
{
    if (!hasOwnMounts())
        QSKIP("mounting needs root");
    const ToolRun tool;
    tool.make({"sd/"});
    const TmpfsMount card(tool.path() + "/sd", "size=1m");
    QVERIFY(card.isMounted());
    makeOnCard(tool, {"DCF_0001.avi = " + unclosedFile("avi")});
    const qint64 free = QStorageInfo(tool.path() + "/sd").bytesAvailable();
    writeFile(tool.path() + "/sd/filler", QByteArray(static_cast<int>(free) - 4096, 'x'));
    const Tree before = treeWithContents(tool.sd());
    const Outcome outcome = tool.runOnStorages({"repair", "sd"});
    QVERIFY2(outcome.exitCode == 1, outcome.err);
    const QString message = "/100ABC/DCF_0001.avi: cannot be closed: .*; up to "
                            + QString::number(unclosedFile("avi").size() / 1024.0, 'f', 1)
                            + " KiB needed, 4.0 KiB free\n$";
    QVERIFY2(QRegularExpression(message).match(outcome.err).hasMatch(), outcome.err);
    QCOMPARE(treeWithContents(tool.sd()), before);
}

void VornfhRepairTest::reportsAReadOnlyStorage()
{
    if (!hasOwnMounts())
        QSKIP("mounting needs root");
    const ToolRun tool;
    tool.make({"sd/"});
    const TmpfsMount card(tool.path() + "/sd", "size=4m");
    tool.make(onCard({"100ABC/DCF_0001.jpg"}));
    QVERIFY(card.isMounted() && card.makeReadOnly());
    QCOMPARE(tool.runOnStorages({"repair", "sd"}), tool.failure({messages::readOnly("@/sd/DCIM")}));
    QCOMPARE(tool.runOnStorages({"repair", "sd", "--dry-run"}),
             tool.success("@/sd/DCIM/100ABC/DCF_0001.jpg: would be deleted\n"));
}

QTEST_GUILESS_MAIN(VornfhRepairTest)
#include "tst_vornfh_repair.moc"

// SPDX-License-Identifier: MIT
#include "media.h"
#include "standins.h"
#include "toolsupport.h"

#include <QFile>
#include <QJsonArray>
#include <QJsonObject>
#include <QTest>
#include <QtEndian>

#include <functional>

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

namespace {

const QByteArray NO_NUMBER = "has no number before the suffix: the numbering ignores it";
const QByteArray SUFFIX_IN_OTHER_CASE = "its suffix differs from 'ABC' in case: the numbering ignores it";
const QByteArray NOT_THREE_DIGITS = "the number is not between 100 and 999: players ignore it";
const QByteArray NEVER_REACHED =
    "comes before 999ABC in name order: the numbering never reaches it, and players ignore it";
const QByteArray MISSING =
    "the next recording belongs here, but the folder does not exist and the library does not create it";
const QByteArray NOT_A_FOLDER =
    "has the name of a numbered folder but is not a folder: the numbering cannot use it";
const QByteArray BESIDE_THE_FOLDERS = "is not in a folder: the library never lists it";
const QByteArray USED_UP = "no numbers are left: the library keeps returning DCF_0001 here";

const QByteArray OTHER_PREFIX = "does not begin with 'DCF_': the numbering ignores it";
const QByteArray PREFIX_IN_LOWER_CASE =
    "begins with 'dcf_' instead of 'DCF_': the numbering ignores it and assigns its number again";
const QByteArray EXTENSION_IN_UPPER_CASE =
    "ends in '.JPG' instead of '.jpg': the library lists it as a file of unknown type";
const QByteArray OTHER_EXTENSION =
    "has none of the extensions jpg, png, avi, mkv, wav, thumb: the media lists, the "
    "count and the numbering ignore it";
const QByteArray NO_NUMBER_AFTER_THE_PREFIX =
    "does not have four digits after 'DCF_': the numbering and players ignore it";
const QByteArray NUMBER_ZERO = "has the number 0000: players accept 0001 to 9999";
const QByteArray EMPTY = "is empty: it was never written, or its content was lost";
const QByteArray THUMBNAIL_ALONE = "the photo or video of this thumbnail is missing";
const QByteArray HIDDEN = "the name begins with '.': the library never lists it";
const QByteArray NOT_A_FILE = "is a link or a special file: the library never lists it";
const QByteArray NESTED_FOLDER = "is a folder in a numbered folder: the library lists nothing in it";
const QByteArray NOT_UTF8 = "the name is not valid UTF-8: the library never lists it";

const QByteArray NOT_CLOSED =
    "is incomplete: it is still being recorded, or the recording was interrupted; a player may reject it";
const QByteArray LEFTOVER =
    "was left by an interrupted command; the next command that writes to this folder removes it";
const QByteArray LEFTOVER_KEPT =
    "was left by an interrupted command; it may share its content with another file, or be the only copy of "
    "a file; unmount the storage device and check it with fsck before you delete the leftover";

/// After a finding that "repair" can fix.
const QByteArray REPAIRABLE = " [repairable]";

const QByteArray BEGINS_WITH_ZEROS = "begins with zeros: its content was lost, probably in a power failure";
const QByteArray ENDS_WITH_ZEROS = "ends with zeros: its content was lost, probably in a power failure";
const QByteArray CUT_OFF = "does not end like a file of its type: the end is missing or damaged";
const QByteArray BROKEN_CHUNKS = "its sequence of chunks is broken";
const QByteArray NO_MOVIE = "has no header or no movie data";
const QByteArray NO_AUDIO = "has no format header or no audio data";
const QByteArray NO_INDEX = "has no index: a player may reject it or be unable to seek";
const QByteArray WRONG_INDEX = "its index does not match its content";
const QByteArray NO_THUMBNAIL = "has no thumbnail, unlike others in this folder";
const QByteArray DCF_FOLDER =
    "the name does not follow the camera standard (DCF), which requires a number from 100 to 999 "
    "and five characters A-Z 0-9 _";
const QByteArray DCF_FILE =
    "the name does not follow the camera standard (DCF), which requires four characters A-Z 0-9 _ "
    "and a number from 0001 to 9999";

QByteArray otherType(const QByteArray &extension)
{
    return "does not begin like a file of type " + extension;
}

QByteArray shortName(const QByteArray &name)
{
    return "its short name on FAT, " + name + ", does not follow the camera standard (DCF)";
}

/// @p content with @p count bytes at @p place replaced by @p byte; a negative place counts from the end.
QByteArray overwritten(QByteArray content, int place, int count, char byte = '\0')
{
    return content.replace(place < 0 ? content.size() + place : place, count, QByteArray(count, byte));
}

/// @p content with the last occurrence of @p name replaced by @p other.
QByteArray renamed(QByteArray content, const QByteArray &name, const QByteArray &other)
{
    return content.replace(content.lastIndexOf(name), name.size(), other);
}

/// The start of an AVI or WAV file, with @p size in its header, in hexadecimal digits.
QByteArray riff(const QByteArray &size)
{
    return "RIFF" + QByteArray::fromHex(size);
}

/// The start of a Matroska file: an EBML header without content, and a segment of @p size, in hexadecimal
/// digits.
QByteArray matroska(const QByteArray &size)
{
    return QByteArray::fromHex("1a45dfa380"
                               "18538067"
                               + size);
}

/// A chunk of an AVI or WAV file, or the file as a whole.
QByteArray chunkOf(const QByteArray &name, const QByteArray &content)
{
    QByteArray size(4, '\0');
    qToLittleEndian(static_cast<quint32>(content.size()), size.data());
    return name + size + content;
}

QByteArray aviOf(const QByteArray &chunks)
{
    return chunkOf("RIFF", "AVI " + chunks);
}

QByteArray wavOf(const QByteArray &chunks)
{
    return chunkOf("RIFF", "WAVE" + chunks);
}

/// The index of an AVI file with one frame, which has four bytes; @p offset is in hexadecimal digits.
QByteArray indexTo(const QByteArray &offset)
{
    return chunkOf("idx1", "00dc" + QByteArray::fromHex("10000000" + offset + "04000000"));
}

/// A PNG image with @p chunks before the last one.
QByteArray pngOf(const QByteArray &chunks)
{
    return QByteArray::fromHex("89504e470d0a1a0a") + chunks + QByteArray::fromHex("0000000049454e44ae426082");
}

/// A chunk of a PNG image that has no content but declares @p size bytes.
QByteArray pngChunk(const QByteArray &type, char size = 0)
{
    return QByteArray(3, '\0') + size + type + QByteArray(4, '\0');
}

QByteArray sameNumber(const QByteArray &other)
{
    return "has the same number as " + other + ": a player may show only one of them, or neither";
}

QByteArray countsAsFolder(const QByteArray &number)
{
    return "the numbering reads it as folder " + number + " and looks for files in " + number + "ABC";
}

QByteArray countsAsFile(const QByteArray &number)
{
    return "does not have exactly four digits between 'DCF_' and the extension: the numbering reads it as "
           "number "
           + number + ", and players ignore it";
}

QByteArray unsafeInAShell(const QByteArray &character)
{
    return "the name contains '" + character
           + "', which a shell might interpret: the library passes the names of videos to a shell";
}

QByteArray fileNotANumber()
{
    return withoutColours(noFileNumberLine());
}

/// The last lines of the output.
QByteArray summary(const QByteArray &findings, const QByteArray &left)
{
    return "sd: " + findings + "\nsd: " + left + "\n";
}

} // namespace

class VornfhCheckTest : public QObject
{
    Q_OBJECT

private slots:
    void reportsNothingOnACleanStorage_data();
    void reportsNothingOnACleanStorage();
    void reportsOddFolders_data();
    void reportsOddFolders() { compareFindings("sd/DCIM/"); }
    void reportsOddFiles_data();
    void reportsOddFiles() { compareFindings("sd/DCIM/100ABC/"); }
    void reportsWhatIsLeftAboveTheLocation_data();
    void reportsWhatIsLeftAboveTheLocation() { compareFindings("sd/"); }
    void reportsHowManyRecordingsAreLeft_data();
    void reportsHowManyRecordingsAreLeft();
    void reportsDamage_data();
    void reportsDamage();
    void reportsDamageOfMinimalFiles_data();
    void reportsDamageOfMinimalFiles() { reportsDamage(); }
    void reportsThumbnails_data();
    void reportsThumbnails();
    void reportsNamesThatCamerasReject_data();
    void reportsNamesThatCamerasReject();
    void namesTheKindOfEachFinding_data();
    void namesTheKindOfEachFinding();
    void readsAndDecodesEverything_data();
    void readsAndDecodesEverything();
    void readsEverythingFromTheDevice();
    void reportsTheLastErrorOfFfmpeg();
    void requiresFfmpegToReadEverything();
    void ignoresFilesThatAreBeingWritten_data();
    void ignoresFilesThatAreBeingWritten();
    void reportsAnUnreadableFile();
    void opensNoFileForNames();
    void refusesWrongCommandLines_data();
    void refusesWrongCommandLines();
    void printsFindingsAsJson();
    void checksFoldersWithoutASuffix();
    void reportsAnUnreadableFolder_data();
    void reportsAnUnreadableFolder();
    void requiresALocation();

private:
    static void compareFindings(const QByteArray &folder);
};

void VornfhCheckTest::reportsNothingOnACleanStorage_data()
{
    QTest::addColumn<Tree>("entries");
    QTest::addColumn<QByteArray>("counted");
    QTest::addColumn<QByteArray>("left");
    const auto row = [](const char *name, const Tree &entries, const char *counted, const char *left) {
        QTest::newRow(name) << entries << QByteArray(counted) << QByteArray(left);
    };
    row("empty-location", {}, "0 folders with 0 files",
        "numbers left for 8999100 recordings, up to 999ABC/DCF_9999");
    row("recordings-of-all-types",
        {"100ABC/DCF_0001.jpg = x", "100ABC/DCF_0001.thumb = x", "100ABC/DCF_0002.avi = x",
         "100ABC/DCF_0002.thumb = x", "100ABC/DCF_0003.wav = x", "100ABC/DCF_0004.png = x",
         "101ABC/DCF_0001.mkv = x"},
        "2 folders with 7 files", "numbers left for 8989100 recordings, up to 999ABC/DCF_9999");
    row("closed-recordings",
        {"100ABC/DCF_0001.avi = " + riff("04000000") + "AVI ",
         "100ABC/DCF_0002.wav = " + riff("04000000") + "WAVE",
         "100ABC/DCF_0003.mkv = " + matroska("81") + "x", "100ABC/DCF_0004.avi = not a recording"},
        "1 folder with 4 files", "numbers left for 8999096 recordings, up to 999ABC/DCF_9999");
    row("third-party-folders-and-files",
        {"MISC/a b.txt", ".loose.jpg", "103CANON/IMG_0001.JPG", "100ABC/DCF_0001.jpg = x", "100ABC/.hidden",
         "100ABC/.notes.txt", "100ABC/.jpg/", ".101ABC/", "PHOTOS100/"},
        "1 folder with 1 file", "numbers left for 8999099 recordings, up to 999ABC/DCF_9999");
}

void VornfhCheckTest::reportsNothingOnACleanStorage()
{
    QFETCH(Tree, entries);
    QFETCH(QByteArray, counted);
    QFETCH(QByteArray, left);
    const ToolRun tool;
    tool.make(onCard(entries));
    const Tree before = treeWithContents(tool.path());
    QCOMPARE(tool.runOnStorages({"check", "sd", "--names"}),
             tool.success(summary("no findings in " + counted, left)));
    QCOMPARE(treeWithContents(tool.path()), before);
}

void VornfhCheckTest::reportsOddFolders_data()
{
    QTest::addColumn<Tree>("entries");
    QTest::addColumn<QByteArrayList>("findings");
    QTest::addColumn<QByteArray>("err");
    const auto row = [](const char *name, const Tree &entries, const QByteArrayList &findings,
                        const QByteArray &err = {}) { QTest::newRow(name) << entries << findings << err; };
    row("no-number", {"100ABC/", "XABC/"}, {"XABC: " + NO_NUMBER}, withoutColours(noFolderNumberLine()));
    row("suffix-in-lower-case", {"100ABC/", "101abc/"}, {"101abc: " + SUFFIX_IN_OTHER_CASE},
        withoutColours(noFolderNumberLine()));
    row("duplicate-number", {"100ABC/", "100abc/", "100XYZ/"},
        {"100XYZ: " + sameNumber("100ABC"), "100abc: " + sameNumber("100ABC"),
         "100abc: " + SUFFIX_IN_OTHER_CASE},
        withoutColours(noFolderNumberLine()));
    row("four-digits-before-the-current-folder", {"1000ABC/", "100ABC/", "999ABC/"},
        {"1000ABC: " + NEVER_REACHED});
    row("four-digits-alone", {"1000ABC/"}, {"1000ABC: " + NOT_THREE_DIGITS});
    row("two-digits", {"99ABC/"}, {"99ABC: " + NOT_THREE_DIGITS});
    row("leading-zeros", {"007ABC/", "7ABC/"},
        {"007ABC: " + countsAsFolder("7"), "7ABC: " + sameNumber("007ABC"), "7ABC: " + NOT_THREE_DIGITS});
    row("suffix-in-the-middle", {"1ABC2ABC/", "200ABC/"}, {"1ABC2ABC: " + countsAsFolder("12")});
    row("number-above-999-that-comes-last", {"999ABC/", "9ABC999ABC/"},
        {"9999ABC: " + MISSING, "9ABC999ABC: " + countsAsFolder("9999")});
    row("no-folder-for-the-next-recording", {"XABC/"}, {"100ABC: " + MISSING, "XABC: " + NO_NUMBER},
        withoutColours(noFolderNumberLine()));
    row("file-and-link-in-place-of-a-folder", {"100ABC/", "101ABC", "102ABC -> 100ABC"},
        {"101ABC: " + NOT_A_FOLDER, "102ABC: " + NOT_A_FOLDER});
    row("file-and-links-beside-the-folders",
        {"100ABC/", "loose.jpg", "101", "XABC", "link -> 100ABC", "dangling -> nowhere", ".hidden"},
        {"101: " + BESIDE_THE_FOLDERS, "XABC: " + BESIDE_THE_FOLDERS, "dangling: " + BESIDE_THE_FOLDERS,
         "link: " + BESIDE_THE_FOLDERS, "loose.jpg: " + BESIDE_THE_FOLDERS});
    row("leftovers-beside-and-in-other-folders",
        {".vornfh-99999999-folder/", "100ABC/", "MISC/.vornfh-99999999-ABC123 = x"},
        {".vornfh-99999999-folder: " + LEFTOVER + REPAIRABLE,
         "MISC/.vornfh-99999999-ABC123: " + LEFTOVER + REPAIRABLE});
    row("unusable-names", {"100ABC/", "a b/", "x\xff"},
        {"a b: " + unsafeInAShell(" "), "x\\xff: " + NOT_UTF8});
}

void VornfhCheckTest::reportsOddFiles_data()
{
    QTest::addColumn<Tree>("entries");
    QTest::addColumn<QByteArrayList>("findings");
    QTest::addColumn<QByteArray>("err");
    const auto row = [](const char *name, const Tree &entries, const QByteArrayList &findings,
                        const QByteArray &err = {}) { QTest::newRow(name) << entries << findings << err; };
    row("duplicate-number", {"DCF_0001.avi = x", "DCF_0001.jpg = x", "DCF_0001.thumb = x"},
        {"DCF_0001.jpg: " + sameNumber("DCF_0001.avi")});
    row("duplicate-number-with-another-prefix", {"DCF_0001.jpg = x", "IMG_0001.jpg = x"},
        {"IMG_0001.jpg: " + OTHER_PREFIX, "IMG_0001.jpg: " + sameNumber("DCF_0001.jpg")});
    row("mixed-case", {"dcf_0001.JPG = x"},
        {"dcf_0001.JPG: " + EXTENSION_IN_UPPER_CASE, "dcf_0001.JPG: " + PREFIX_IN_LOWER_CASE},
        fileNotANumber());
    row("five-digits", {"DCF_12345.jpg = x"}, {"DCF_12345.jpg: " + countsAsFile("1234")});
    row("copy-with-a-counter", {"DCF_0001_1.png = x"}, {"DCF_0001_1.png: " + countsAsFile("1")});
    row("one-digit", {"DCF_7.jpg = x"}, {"DCF_7.jpg: " + NO_NUMBER_AFTER_THE_PREFIX}, fileNotANumber());
    row("number-zero", {"DCF_0000.jpg = x"}, {"DCF_0000.jpg: " + NUMBER_ZERO});
    row("empty-file", {"DCF_0001.avi"}, {"DCF_0001.avi: " + EMPTY + REPAIRABLE});
    row("leftovers", {".vornfh-99999999-ABC123 = x", ".vornfh-99999999-folder/", ".vornfh-99999999-ABC = x"},
        {".vornfh-99999999-ABC123: " + LEFTOVER + REPAIRABLE,
         ".vornfh-99999999-folder: " + LEFTOVER + REPAIRABLE});
    row("short-names-of-leftovers", {"VORNFH~1 = x", "VORNFH~1.REN = x"},
        {"VORNFH~1: " + unsafeInAShell("~"), "VORNFH~1.REN: " + unsafeInAShell("~"),
         "VORNFH~1: " + OTHER_EXTENSION, "VORNFH~1.REN: " + OTHER_EXTENSION});
    row("leftover-that-was-being-renamed",
        {".vornfh-99999999-ABC123 = x", ".vornfh-99999999-ABC124.renaming"},
        {".vornfh-99999999-ABC123: " + LEFTOVER_KEPT});
    row("interrupted-replacement",
        {".vornfh-99999999-ABC123 = old",
         ".vornfh-99999999-ABC124.renaming = another session\nDCF_0001.wav\n.vornfh-99999999-ABC123\n"},
        {"DCF_0001.wav: an interrupted command was replacing it; the next command that writes to this "
         "folder restores it"
             + REPAIRABLE,
         ".vornfh-99999999-ABC123: " + LEFTOVER_KEPT});
    row("thumbnail-alone-and-of-an-audio-file",
        {"DCF_0001.thumb = x", "DCF_0002.thumb = x", "DCF_0002.wav = x"},
        {"DCF_0001.thumb: " + THUMBNAIL_ALONE + REPAIRABLE,
         "DCF_0002.thumb: " + THUMBNAIL_ALONE + REPAIRABLE});
    row("extensions-that-the-library-does-not-list",
        {"DCF_0001.jpeg = x", "DCF_0002.mp4 = x", "DCF_0003 = x", "archive.tar.gz = x", "notes.txt"},
        {"DCF_0001.jpeg: " + OTHER_EXTENSION, "DCF_0002.mp4: " + OTHER_EXTENSION,
         "DCF_0003: " + OTHER_EXTENSION, "archive.tar.gz: " + OTHER_EXTENSION,
         "notes.txt: " + OTHER_EXTENSION});
    row("hidden-media", {".DCF_0001.JPG = x", "._DCF_0002.thumb = x", ".DS_Store = x"},
        {".DCF_0001.JPG: " + HIDDEN, "._DCF_0002.thumb: " + HIDDEN});
    row("folder-and-link", {"DCF_0001.jpg -> nothing", "sub/"},
        {"DCF_0001.jpg: " + NOT_A_FILE, "sub: " + NESTED_FOLDER});
    row("unusable-names",
        {"$a.txt = x", "a\nb.txt = x", "a;b.txt = x", "\xc2\x80.txt = x", "\u00e4.txt = x", "\xe4.txt = x"},
        {"$a.txt: " + unsafeInAShell("$"), "a\\x0ab.txt: " + unsafeInAShell("\\x0a"),
         "a;b.txt: " + unsafeInAShell(";"), "\\xe4.txt: " + NOT_UTF8, "$a.txt: " + OTHER_EXTENSION,
         "a\\x0ab.txt: " + OTHER_EXTENSION, "a;b.txt: " + OTHER_EXTENSION, "\\x80.txt: " + OTHER_EXTENSION,
         "\u00e4.txt: " + OTHER_EXTENSION});
}

/// One row of reportsOddFolders() or reportsOddFiles(), with the entries and the findings in @p folder.
void VornfhCheckTest::compareFindings(const QByteArray &folder)
{
    QFETCH(Tree, entries);
    QFETCH(QByteArrayList, findings);
    QFETCH(QByteArray, err);
    const ToolRun tool;
    tool.make(below(folder, entries));
    const Tree before = treeWithContents(tool.path());
    const Outcome outcome = tool.runOnStorages({"check", "sd", "--names"});
    const QByteArray expected = below("@/" + folder, findings).join("\n") + "\n";
    QCOMPARE(outcome.out.left(outcome.out.indexOf("sd: ")), tool.expand(expected));
    QCOMPARE(outcome.err, err);
    QCOMPARE(outcome.exitCode, 3);
    QCOMPARE(treeWithContents(tool.path()), before);
}

void VornfhCheckTest::reportsWhatIsLeftAboveTheLocation_data()
{
    QTest::addColumn<Tree>("entries");
    QTest::addColumn<QByteArrayList>("findings");
    QTest::addColumn<QByteArray>("err");
    row("folder-that-was-to-become-the-location", Tree{".vornfh-99999999-abcdef/", "DCIM/"},
        QByteArrayList{".vornfh-99999999-abcdef: " + LEFTOVER + REPAIRABLE}, QByteArray());
}

void VornfhCheckTest::reportsHowManyRecordingsAreLeft_data()
{
    QTest::addColumn<Tree>("entries");
    QTest::addColumn<QByteArray>("left");
    QTest::addColumn<bool>("isUsedUp");
    const auto row = [](const char *name, const Tree &entries, const char *left, bool isUsedUp = false) {
        QTest::newRow(name) << entries << QByteArray(left) << isUsedUp;
    };
    row("first-folder-full", {"100ABC/DCF_9999.jpg = x"},
        "numbers left for 8989101 recordings, up to 999ABC/DCF_9999");
    row("one-left", {"999ABC/DCF_9998.jpg = x"}, "numbers left for 1 recording, up to 999ABC/DCF_9999");
    row("used-up", {"999ABC/DCF_9999.jpg = x"}, "numbers left for 0 recordings, up to 999ABC/DCF_9999", true);
    row("no-three-digit-folder-sorts-after-99", {"99ABC/DCF_9990.jpg = x"},
        "numbers left for 9 recordings, up to 99ABC/DCF_9999");
    row("folder-0", {"0ABC/DCF_0009.jpg = x"}, "numbers left for 99981 recordings, up to 9ABC/DCF_9999");
    row("folder-minus-10", {"-10ABC/DCF_0009.jpg = x"},
        "numbers left for 19989 recordings, up to -9ABC/DCF_9999");
    row("folder-minus-2", {"-2ABC/DCF_0009.jpg = x"},
        "numbers left for 9990 recordings, up to -2ABC/DCF_9999");
}

void VornfhCheckTest::reportsHowManyRecordingsAreLeft()
{
    QFETCH(Tree, entries);
    QFETCH(QByteArray, left);
    QFETCH(bool, isUsedUp);
    const ToolRun tool;
    tool.make(onCard(entries));
    const QByteArray out = tool.runOnStorages({"check", "sd"}).out;
    QVERIFY2(out.endsWith("sd: " + left + "\n"), out.constData());
    QCOMPARE(out.contains(tool.expand("@/sd/DCIM/999ABC: " + USED_UP + "\n")), isUsedUp);
}

/// The findings of "check sd" with @p options, without the path of the folder 100ABC.
static QByteArrayList findingsIn(const ToolRun &tool, const QByteArrayList &options = {})
{
    const Outcome outcome = tool.runOnStorages(QByteArrayList{"check", "sd"} + options);
    const QByteArray lines = outcome.out.left(outcome.out.indexOf("sd: ")).trimmed();
    require(outcome.exitCode == (lines.isEmpty() ? 0 : 3) && outcome.err.isEmpty(),
            outcome.out + outcome.err);
    QByteArrayList findings;
    for (QByteArray line : lines.isEmpty() ? QByteArrayList() : lines.split('\n'))
        findings.append(line.replace(tool.expand("@/sd/DCIM/100ABC/"), ""));
    return findings;
}

/// The names of the files and folders in which "check sd" with @p options finds something, each with the kind
/// of the finding.
static QByteArrayList kindsIn(const ToolRun &tool, const QByteArrayList &options = {})
{
    const Outcome outcome = tool.runOnStorages(QByteArrayList{"check", "sd", "--json"} + options);
    QByteArrayList kinds;
    for (const QJsonValue value : outcome.json().object()["findings"].toArray()) {
        const QJsonObject finding = value.toObject();
        kinds.append(
            (finding["path"].toString().section('/', -1) + ": " + finding["kind"].toString()).toUtf8());
    }
    return kinds;
}

/// The rows of reportsDamage().
struct DamageTable {
    DamageTable()
    {
        QTest::addColumn<QByteArray>("extension");
        QTest::addColumn<QByteArray>("content");
        QTest::addColumn<QByteArray>("finding"); // empty if there is none
    }

    void operator()(const QByteArray &name, const QByteArray &extension, const QByteArray &content,
                    const QByteArray &finding = {}) const
    {
        QTest::newRow((extension + "-" + name).constData()) << extension << content << finding;
    }
};

void VornfhCheckTest::reportsDamage_data()
{
    const DamageTable row;
    for (const QByteArray extension : {"jpg", "png", "avi", "mkv", "wav"}) {
        const QByteArray whole = wholeFile(extension);
        row("whole", extension, whole);
        row("text", extension, "not a recording", otherType(extension));
        row("of-another-type", extension, wholeFile(extension == "jpg" ? "png" : "jpg"),
            otherType(extension));
        row("head-of-zeros", extension, overwritten(whole, 0, 64), BEGINS_WITH_ZEROS);
        row("zeros", extension, QByteArray(8, '\0'), BEGINS_WITH_ZEROS);
    }
    const QByteArray jpeg = wholeFile("jpg");
    row("cut", "jpg", jpeg.chopped(1), CUT_OFF);
    row("cut-in-half", "jpg", jpeg.left(jpeg.size() / 2), CUT_OFF);
    row("tail-of-zeros", "jpg", overwritten(jpeg, -5000, 5000), ENDS_WITH_ZEROS);
    row("padded", "jpg", jpeg + QByteArray(101, '\0'));
    row("only-a-signature", "jpg", "\xff\xd8\xff", CUT_OFF);
    row("begins-with-16-zeros", "jpg", QByteArray(16, '\0') + "text", BEGINS_WITH_ZEROS);
    const QByteArray png = wholeFile("png");
    row("cut", "png", png.chopped(1), CUT_OFF);
    row("tail-of-zeros", "png", overwritten(png, -5000, 5000), ENDS_WITH_ZEROS);
    row("other-data-after-its-end", "png", png + "x", CUT_OFF);
    row("length-of-a-chunk-is-wrong", "png", overwritten(png, 8, 1, '\x7f'), BROKEN_CHUNKS);
    for (const QByteArray length : {"fffffff4", "ffffffff", "80000000"})
        row("length-of-a-chunk-is-" + length, "png",
            QByteArray(png).replace(png.indexOf("IDAT") - 4, 4, QByteArray::fromHex(length)), BROKEN_CHUNKS);
    row("without-a-header", "png", renamed(png, "IHDR", "IHDX"), BROKEN_CHUNKS);
    row("end-in-the-middle", "png", renamed(png, "IDAT", "IEND"), BROKEN_CHUNKS);
    row("only-an-end", "png", pngOf(QByteArray()));

    const QByteArray notClosed = NOT_CLOSED + REPAIRABLE;
    row("size-is-unknown", "avi", riff("ffffffff") + "AVI ", notClosed);
    // With the header, such a size does not fit into 32 bits.
    for (const QByteArray size : {"f7ffffff", "f8ffffff", "feffffff"}) {
        row("size-is-" + size, "avi", riff(size) + "AVI ", notClosed);
        row("size-is-" + size, "wav", riff(size) + "WAVE", notClosed);
    }
    row("size-is-zero", "wav", riff("00000000") + "WAVE", notClosed);
    row("size-is-too-large", "avi", riff("05000000") + "AVI ", notClosed);
    row("size-is-unknown", "mkv", matroska("01ffffffffffffff"), notClosed);
    row("size-is-too-large", "mkv", matroska("82") + "x", notClosed);
    for (const QByteArray extension : {"avi", "mkv", "wav"}) {
        const QByteArray whole = wholeFile(extension);
        row("cut", extension, whole.left(whole.size() / 2), notClosed);
    }
    const QByteArray avi = wholeFile("avi");
    row("without-movie-data", "avi", riff("04000000") + "AVI ", NO_MOVIE);
    row("without-stream-headers", "avi", renamed(avi, "hdrl", "JUNK"), NO_MOVIE);
    row("without-movie-data-after-headers", "avi", renamed(avi, "movi", "JUNK"), NO_MOVIE);
    row("without-an-index", "avi", renamed(avi, "idx1", "JUNK"), NO_INDEX + REPAIRABLE);
    row("tail-of-zeros", "avi", overwritten(avi, -16, 16), WRONG_INDEX + REPAIRABLE);
    row("index-of-other-content", "avi", overwritten(avi, -8, 1, '\x01'), WRONG_INDEX + REPAIRABLE);
    row("movie-data-beyond-the-end", "avi", overwritten(avi, avi.indexOf("movi") - 1, 1, '\x01'), notClosed);
    const QByteArray wav = wholeFile("wav");
    row("of-audio", "avi", wav, otherType("avi"));
    // A long file continues in another RIFF chunk.
    row("second-part", "avi", avi + chunkOf("RIFF", "AVIX"));
    row("second-part-of-size-zero", "avi", avi + chunkOf("RIFF", QByteArray()), notClosed);
    row("other-data-after-its-end", "wav", wav + chunkOf("JUNK", "data"), notClosed);
    row("without-its-last-byte", "wav", wav.chopped(1), notClosed);
    row("without-audio-data", "wav", riff("04000000") + "WAVE", NO_AUDIO);
    row("audio-data-beyond-the-end", "wav", overwritten(wav, wav.indexOf("data") + 7, 1, '\x01'), notClosed);
    row("silence-at-the-end", "wav", overwritten(wav, -5000, 5000));
    row("without-a-type", "mkv", matroska("81") + "x", otherType("mkv"));
    row("tail-of-zeros", "mkv", overwritten(wholeFile("mkv"), -4096, 4096), ENDS_WITH_ZEROS + REPAIRABLE);
}

void VornfhCheckTest::reportsDamageOfMinimalFiles_data()
{
    const DamageTable row;
    const QByteArray header = pngChunk("IHDR");
    row("unknown-types", "png", pngOf(header + pngChunk("tEND") + pngChunk(QByteArray("t\0\0\0", 4))));
    row("type-of-zeros", "png", pngOf(header + pngChunk(QByteArray(4, '\0'))), BROKEN_CHUNKS);
    row("chunk-beyond-the-end", "png", pngOf(pngChunk("IHDR", 24)), BROKEN_CHUNKS);
    // Only the first 32 chunks are checked.
    row("wrong-length-of-chunk-32", "png",
        pngOf(header + pngChunk("tEXt").repeated(30) + pngChunk("tEXt", 1)), BROKEN_CHUNKS);
    row("wrong-length-of-chunk-33", "png",
        pngOf(header + pngChunk("tEXt").repeated(31) + pngChunk("tEXt", 1)));

    const QByteArray notClosed = NOT_CLOSED + REPAIRABLE;
    const QByteArray headers = chunkOf("LIST", "hdrl");
    const QByteArray movie = chunkOf("LIST", "movi" + chunkOf("00dc", "data"));
    row("odd-size-with-padding", "avi", riff("05000000") + "AVI x" + '\0', NO_MOVIE);
    row("odd-size-without-padding", "avi", riff("05000000") + "AVI x", NO_MOVIE);
    row("one-frame", "avi", aviOf(headers + movie + indexTo("04000000")));
    row("offset-from-the-start-of-the-file", "avi", aviOf(headers + movie + indexTo("24000000")));
    row("without-frames", "avi", aviOf(headers + chunkOf("LIST", "movi") + chunkOf("idx1", QByteArray())));
    row("empty-index", "avi", aviOf(headers + movie + chunkOf("idx1", QByteArray())),
        WRONG_INDEX + REPAIRABLE);
    row("index-in-the-headers", "avi",
        aviOf(chunkOf("LIST", "hdrl" + chunkOf("indx", QByteArray())) + movie));
    // Only the first 64 KiB of the headers are searched.
    row("index-in-long-headers", "avi",
        aviOf(chunkOf("LIST", "hdrlandx" + QByteArray(64 << 10, '\0') + "indx") + movie),
        NO_INDEX + REPAIRABLE);

    const QByteArray format = chunkOf("fmt ", QByteArray(16, '\0'));
    const QByteArray samples = chunkOf("data", "data");
    row("without-samples", "wav", wavOf(format + chunkOf("data", QByteArray())));
    row("without-a-data-chunk", "wav", wavOf(format), NO_AUDIO);
    row("without-a-format", "wav", wavOf(samples), NO_AUDIO);
    row("chunk-of-odd-size", "wav", wavOf(format + chunkOf("note", "abc") + QByteArray(1, '\0') + samples));
    row("chunk-without-a-name", "wav", wavOf(format + chunkOf(QByteArray(4, '\0'), "data") + samples),
        NO_AUDIO);
    // Here too, only the first 32 chunks are checked.
    const QByteArray beyondTheEnd = "note" + QByteArray(4, '\1');
    const QByteArray note = chunkOf("note", QByteArray());
    row("chunk-32-beyond-the-end", "wav", wavOf(format + samples + note.repeated(29) + beyondTheEnd),
        notClosed);
    row("chunk-33-beyond-the-end", "wav", wavOf(format + samples + note.repeated(30) + beyondTheEnd));

    const QByteArray otherSegment = renamed(matroska("88"), QByteArray::fromHex("18538067"), "none");
    row("without-a-segment", "mkv", otherSegment + "matroska", notClosed);
    row("cut-in-the-size", "mkv", matroska("01ffffffffffff"), notClosed);
    row("webm", "mkv", matroska("84") + "webm");
    row("type-without-its-first-letter", "mkv", matroska("8b") + "atroska,ebm", otherType("mkv"));
}

void VornfhCheckTest::reportsDamage()
{
    QFETCH(QByteArray, extension);
    QFETCH(QByteArray, content);
    QFETCH(QByteArray, finding);
    const ToolRun tool;
    const QString file = "DCF_0001." + extension;
    writeFile(tool.sd() + "/100ABC/" + file, content);
    const Tree before = treeWithContents(tool.path());
    QCOMPARE(findingsIn(tool),
             finding.isEmpty() ? QByteArrayList() : QByteArrayList{file.toUtf8() + ": " + finding});
    QCOMPARE(findingsIn(tool, {"--names"}), QByteArrayList());
    QCOMPARE(treeWithContents(tool.path()), before);
}

void VornfhCheckTest::reportsThumbnails_data()
{
    QTest::addColumn<Tree>("entries");
    QTest::addColumn<QByteArrayList>("findings");
    const QByteArray jpeg = wholeFile("jpg");
    const QByteArray png = wholeFile("png");
    const QByteArray photo = "DCF_0001.jpg = " + jpeg;
    row("whole", Tree{photo, "DCF_0001.thumb = " + jpeg}, QByteArrayList());
    row("not-a-jpeg-image", Tree{photo, "DCF_0001.thumb = " + png},
        QByteArrayList{"DCF_0001.thumb: " + otherType("thumb") + REPAIRABLE});
    row("cut", Tree{photo, "DCF_0001.thumb = " + jpeg.chopped(1)},
        QByteArrayList{"DCF_0001.thumb: " + CUT_OFF + REPAIRABLE});
    row("empty", Tree{photo, "DCF_0001.thumb"}, QByteArrayList{"DCF_0001.thumb: " + EMPTY + REPAIRABLE});
    row("of-an-empty-recording", Tree{"DCF_0001.jpg", "DCF_0001.thumb = x"},
        QByteArrayList{"DCF_0001.jpg: " + EMPTY + REPAIRABLE, "DCF_0001.thumb: " + otherType("thumb")});
    row("alone", Tree{"DCF_0001.thumb = x"},
        QByteArrayList{"DCF_0001.thumb: " + THUMBNAIL_ALONE + REPAIRABLE});
    row("missing", Tree{photo, "DCF_0001.thumb = " + jpeg, "DCF_0002.png = " + png},
        QByteArrayList{"DCF_0002.png: " + NO_THUMBNAIL + REPAIRABLE});
    row("missing-beside-a-file-that-is-not-a-photo",
        Tree{photo, "DCF_0001.thumb = " + jpeg, "DCF_0002.jpg = text"},
        QByteArrayList{"DCF_0002.jpg: does not begin like a file of type jpg"});
    row("missing-beside-a-photo-of-zeros",
        Tree{photo, "DCF_0001.thumb = " + jpeg, "DCF_0002.jpg = " + QByteArray(16, '\0')},
        QByteArrayList{"DCF_0002.jpg: " + BEGINS_WITH_ZEROS});
    row("missing-beside-a-video-that-can-be-closed",
        Tree{photo, "DCF_0001.thumb = " + jpeg,
             "DCF_0002.mkv = " + overwritten(wholeFile("mkv"), -4096, 4096)},
        QByteArrayList{"DCF_0002.mkv: " + ENDS_WITH_ZEROS + REPAIRABLE,
                       "DCF_0002.mkv: " + NO_THUMBNAIL + REPAIRABLE});
    row("cut-beside-a-file-that-is-not-a-photo",
        Tree{"DCF_0001.jpg = text", "DCF_0001.thumb = " + jpeg.chopped(1)},
        QByteArrayList{"DCF_0001.jpg: " + otherType("jpg"), "DCF_0001.thumb: " + CUT_OFF});
    row("none-in-the-folder", Tree{photo, "DCF_0002.png = " + png}, QByteArrayList());
    row("two-formats-of-one-shot", Tree{photo, "DCF_0001.png = " + png, "DCF_0001.thumb = " + jpeg},
        QByteArrayList{"DCF_0001.png: " + sameNumber("DCF_0001.jpg")});
}

void VornfhCheckTest::reportsThumbnails()
{
    QFETCH(Tree, entries);
    QFETCH(QByteArrayList, findings);
    const ToolRun tool;
    makeTree(tool.path(), below("sd/DCIM/100ABC/", entries));
    QCOMPARE(findingsIn(tool), findings);
}

void VornfhCheckTest::reportsNamesThatCamerasReject_data()
{
    QTest::addColumn<QByteArray>("suffix");
    QTest::addColumn<Tree>("entries");
    QTest::addColumn<QByteArrayList>("findings"); // without the location
    row("names-of-the-standard", QByteArray("VORN_"), Tree{"100VORN_/DCF_0001.jpg", "998VORN_/DCF_9999.wav"},
        QByteArrayList());
    row("suffix-of-four-characters", QByteArray("VORN"), Tree{"100VORN/DCF_0001.jpg"},
        QByteArrayList{"100VORN: " + DCF_FOLDER});
    row("suffix-of-six-characters", QByteArray("VORN25"), Tree{"100VORN25/DCF_0001.jpg"},
        QByteArrayList{"100VORN25: " + DCF_FOLDER});
    row("other-characters-in-the-suffix", QByteArray("VOR-N"), Tree{"100VOR-N/DCF_0001.jpg"},
        QByteArrayList{"100VOR-N: " + DCF_FOLDER});
    row("number-below-100", QByteArray("VORN_"), Tree{"99VORN_/DCF_0001.jpg"},
        QByteArrayList{"99VORN_: " + NOT_THREE_DIGITS, "99VORN_: " + DCF_FOLDER});
    row("number-of-four-digits", QByteArray("VORN_"), Tree{"1100VORN_/DCF_0001.jpg"},
        QByteArrayList{"1100VORN_: " + NOT_THREE_DIGITS, "1100VORN_: " + DCF_FOLDER});
    row("nine-characters-before-the-extension", QByteArray("VORN_"), Tree{"100VORN_/XDCF_0001.jpg"},
        QByteArrayList{"100VORN_/XDCF_0001.jpg: " + OTHER_PREFIX, "100VORN_/XDCF_0001.jpg: " + DCF_FILE});
    row("counter-after-the-number", QByteArray("VORN_"), Tree{"100VORN_/DCF_0001_1.jpg"},
        QByteArrayList{"100VORN_/DCF_0001_1.jpg: " + countsAsFile("1"),
                       "100VORN_/DCF_0001_1.jpg: " + DCF_FILE});
    row("number-zero", QByteArray("VORN_"), Tree{"100VORN_/DCF_0000.jpg"},
        QByteArrayList{"100VORN_/DCF_0000.jpg: " + NUMBER_ZERO, "100VORN_/DCF_0000.jpg: " + DCF_FILE});
    row("extension-of-five-characters", QByteArray("VORN_"),
        Tree{"100VORN_/DCF_0001.jpg", "100VORN_/DCF_0001.thumb"},
        QByteArrayList{"100VORN_/DCF_0001.thumb: " + shortName("DCF_00~1.THU")});
    row("number-used-twice", QByteArray("VORN_"), Tree{"100VORN_/DCF_0001.jpg", "100VORN_/DCF_0001.wav"},
        QByteArrayList{"100VORN_/DCF_0001.wav: " + sameNumber("DCF_0001.jpg")});
}

void VornfhCheckTest::reportsNamesThatCamerasReject()
{
    QFETCH(QByteArray, suffix);
    QFETCH(Tree, entries);
    QFETCH(QByteArrayList, findings);
    const ToolRun tool;
    Tree files;
    for (const QByteArray &entry : entries)
        files.append("sd/DCIM/" + entry + " = x");
    tool.make(files);
    const Outcome outcome =
        tool.run({"--suffix", suffix, "--sd", "@/sd/DCIM", "check", "sd", "--names", "--dcf"});
    QByteArray expected;
    for (const QByteArray &finding : findings)
        expected += "@/sd/DCIM/" + finding + "\n";
    QCOMPARE(outcome.out.left(outcome.out.indexOf("sd: ")), tool.expand(expected));
    QCOMPARE(outcome.exitCode, findings.isEmpty() ? 0 : 3);
}

void VornfhCheckTest::namesTheKindOfEachFinding_data()
{
    QTest::addColumn<Tree>("entries"); // in the location
    QTest::addColumn<QByteArrayList>("options");
    QTest::addColumn<QByteArrayList>("kinds");
    const QByteArrayList names = {"--names"};
    const QByteArrayList dcf = {"--names", "--dcf"};
    row("folders",
        Tree{"0103ABC/", "1000ABC/", "100ABC/", "100XYZ/", "101abc/", "102ABC", "99ABC/", "XABC/",
             "loose.jpg"},
        names,
        QByteArrayList{"0103ABC: folder-number", "1000ABC: folder-unreachable", "100XYZ: folder-duplicate",
                       "101abc: folder-case", "102ABC: not-a-folder", "99ABC: folder-digits",
                       "XABC: folder-number", "loose.jpg: loose-file"});
    row("no-folder-for-the-next-recording", Tree{"XABC/"}, names,
        QByteArrayList{"100ABC: no-current-folder", "XABC: folder-number"});
    row("no-number-left", Tree{"999ABC/DCF_9999.jpg = x"}, names, QByteArrayList{"999ABC: numbers-used-up"});
    row("leftovers",
        below("100ABC/", {".vornfh-99999999-ABC123 = old",
                          ".vornfh-99999999-ABC124.renaming = another session\nDCF_0001.wav\n"
                          ".vornfh-99999999-ABC123\n"}),
        names, QByteArrayList{"DCF_0001.wav: interrupted-replacement", ".vornfh-99999999-ABC123: leftover"});
    row("entries", below("100ABC/", {".DCF_0001.jpg = x", "a b.jpg = x", "sub/", "\xff"}), names,
        QByteArrayList{".DCF_0001.jpg: hidden-file", "a b.jpg: shell-name", "sub: not-a-file",
                       "\\xff: not-utf8", "a b.jpg: file-number"});
    row("files",
        below("100ABC/", {"DCF_0000.jpg = x", "DCF_0001.avi = x", "DCF_0001.jpg = x", "DCF_0002.JPG = x",
                          "DCF_0003.mp4 = x", "DCF_0004.jpg", "DCF_0005.thumb = x", "DCF_00067.jpg = x",
                          "DCF_8.jpg = x", "IMG_0009.jpg = x", "dcf_0010.jpg = x"}),
        names,
        QByteArrayList{"DCF_0000.jpg: file-number", "DCF_0002.JPG: file-case", "DCF_0003.mp4: file-type",
                       "DCF_0004.jpg: empty-file", "DCF_00067.jpg: file-number", "DCF_8.jpg: file-number",
                       "IMG_0009.jpg: file-number", "dcf_0010.jpg: file-case", "DCF_0001.jpg: file-duplicate",
                       "DCF_0005.thumb: thumb-alone"});
    row("names-that-cameras-reject",
        below("100ABC/", {"DCF_0000.jpg = x", "DCF_0001.jpg = x", "DCF_0001.thumb = x"}), dcf,
        QByteArrayList{"100ABC: dcf-folder", "DCF_0000.jpg: file-number", "DCF_0000.jpg: dcf-file",
                       "DCF_0001.thumb: dcf-short-name"});
    const QByteArray streams = chunkOf("LIST", "hdrl") + chunkOf("LIST", "movi" + chunkOf("00dc", "data"));
    row("contents",
        below("100ABC/", {"DCF_0001.jpg = \xff\xd8\xff", "DCF_0002.jpg = " + QByteArray(16, '\0'),
                          "DCF_0003.jpg = text", "DCF_0004.png = " + pngOf(pngChunk("tEXt")),
                          "DCF_0005.avi = " + aviOf(QByteArray()), "DCF_0006.avi = " + aviOf(streams),
                          "DCF_0007.avi = " + aviOf(streams + chunkOf("idx1", QByteArray())),
                          "DCF_0008.wav = " + wavOf(QByteArray()), "DCF_0009.mkv = " + matroska("81")}),
        QByteArrayList(),
        QByteArrayList{"DCF_0001.jpg: cut-off", "DCF_0002.jpg: zero-filled", "DCF_0003.jpg: wrong-content",
                       "DCF_0004.png: damaged", "DCF_0005.avi: damaged", "DCF_0006.avi: no-index",
                       "DCF_0007.avi: no-index", "DCF_0008.wav: damaged", "DCF_0009.mkv: file-not-closed"});
    row("missing-thumbnail",
        below("100ABC/", {"DCF_0001.jpg = " + wholeFile("jpg"), "DCF_0001.thumb = " + wholeFile("jpg"),
                          "DCF_0002.jpg = " + wholeFile("jpg")}),
        QByteArrayList(), QByteArrayList{"DCF_0002.jpg: thumb-missing"});
}

void VornfhCheckTest::namesTheKindOfEachFinding()
{
    QFETCH(Tree, entries);
    QFETCH(QByteArrayList, options);
    QFETCH(QByteArrayList, kinds);
    const ToolRun tool;
    makeTree(tool.sd(), entries);
    QCOMPARE(kindsIn(tool, options), kinds);
}

void VornfhCheckTest::readsAndDecodesEverything_data()
{
    QTest::addColumn<QByteArray>("extension");
    QTest::addColumn<QByteArray>("content");
    QTest::addColumn<bool>("isDamaged");
    const auto row = [](const QByteArray &name, const QByteArray &extension, const QByteArray &content,
                        bool isDamaged) { QTest::newRow(name) << extension << content << isDamaged; };
    for (const QByteArray extension : {"jpg", "png", "avi", "mkv", "wav"})
        row("whole-" + extension, extension, wholeFile(extension), false);
    const QByteArray png = wholeFile("png");
    row("damaged-png", "png", overwritten(png, png.size() / 2, 100, '\x55'), true);
    const QByteArray avi = wholeFile("avi");
    row("damaged-avi", "avi", overwritten(avi, avi.size() / 2 - 600, 1200, '\x55'), true);
}

void VornfhCheckTest::readsAndDecodesEverything()
{
    QFETCH(QByteArray, extension);
    QFETCH(QByteArray, content);
    QFETCH(bool, isDamaged);
    const ToolRun tool;
    const QByteArray file = "DCF_0001." + extension;
    writeFile(tool.sd() + "/100ABC/" + file, content);
    QCOMPARE(findingsIn(tool), QByteArrayList());
    const QByteArrayList found = findingsIn(tool, {"--read-all"});
    QCOMPARE(found.size(), isDamaged ? 1 : 0);
    if (isDamaged)
        QVERIFY2(found[0].startsWith(file + ": cannot be decoded: "), found[0].constData());
}

/// The device returns something other than what the kernel has in memory.
void VornfhCheckTest::readsEverythingFromTheDevice()
{
    const ToolRun tool;
    LoopCard card(tool);
    if (card.mount(tool.path() + "/sd").isEmpty())
        QSKIP(CANNOT_MOUNT);
    const QByteArray photo = wholeFile("png");
    writeFile(tool.sd() + "/100ABC/DCF_0001.png", photo);
    ::sync();
    QFile device(tool.path() + "/card.img");
    QVERIFY(device.open(QIODevice::ReadWrite));
    const QByteArray start = photo.left(512);
    const int place = device.readAll().indexOf(start);
    QVERIFY(place >= 0 && device.seek(place) && device.write(QByteArray(start.size(), 'x')) == start.size());
    device.close();
    QCOMPARE(findingsIn(tool), QByteArrayList());
    const QByteArrayList found = findingsIn(tool, {"--read-all"});
    QCOMPARE(found.size(), 1);
    QVERIFY2(found[0].startsWith("DCF_0001.png: cannot be decoded: "), found[0].constData());
}

void VornfhCheckTest::reportsTheLastErrorOfFfmpeg()
{
    StandIns programs;
    programs.add(
        "ffmpeg",
        "printf '[avi @ 0x1] first\\n[avi @ 0x1] second\\n    Last message repeated 9 times\\n' >&2");
    const ToolRun tool;
    writeFile(tool.sd() + "/100ABC/DCF_0001.jpg", wholeFile("jpg"));
    QCOMPARE(findingsIn(tool, {"--read-all"}), QByteArrayList{"DCF_0001.jpg: cannot be decoded: second"});
    QCOMPARE(kindsIn(tool, {"--read-all"}), QByteArrayList{"DCF_0001.jpg: not-decodable"});
}

void VornfhCheckTest::requiresFfmpegToReadEverything()
{
    const StandIns noPrograms(StandIns::Alone);
    const ToolRun tool;
    tool.make(onCard({"100ABC/DCF_0001.jpg = x"}));
    QCOMPARE(tool.runOnStorages({"check", "sd", "--read-all"}),
             tool.failure({"ffmpeg is not on PATH; check --read-all needs it"}));
}

void VornfhCheckTest::ignoresFilesThatAreBeingWritten_data()
{
    QTest::addColumn<bool>("isLocked");
    row("open-for-writing", false);
    row("locked", true);
}

void VornfhCheckTest::ignoresFilesThatAreBeingWritten()
{
    QFETCH(bool, isLocked);
    const ToolRun tool;
    tool.make(onCard({"100ABC/DCF_0001.avi = " + riff("ffffffff") + "AVI ", "100ABC/DCF_0002.avi"}));
    {
        QList<int> descriptors;
        for (const char *name : {"/100ABC/DCF_0001.avi", "/100ABC/DCF_0002.avi"}) {
            const QByteArray path = QFile::encodeName(tool.sd()) + name;
            descriptors.append(::open(path.constData(), (isLocked ? O_RDONLY : O_WRONLY) | O_CLOEXEC));
            QVERIFY(descriptors.last() >= 0);
            if (isLocked)
                QCOMPARE(::flock(descriptors.last(), LOCK_EX), 0);
        }
        QCOMPARE(findingsIn(tool), QByteArrayList());
        for (const int descriptor : descriptors)
            ::close(descriptor);
    }
    QCOMPARE(findingsIn(tool), (QByteArrayList{"DCF_0001.avi: " + NOT_CLOSED + REPAIRABLE,
                                               "DCF_0002.avi: " + EMPTY + REPAIRABLE}));
}

void VornfhCheckTest::reportsAnUnreadableFile()
{
    ToolRun tool;
    if (!tool.dropPrivileges())
        QSKIP("the tool cannot run as another user");
    tool.make(onCard({"100ABC/DCF_0001.jpg = x"}));
    const FolderMode unreadable(tool.sd() + "/100ABC/DCF_0001.jpg", 0);
    QCOMPARE(findingsIn(tool), QByteArrayList{"DCF_0001.jpg: cannot be read: Permission denied"});
    QCOMPARE(kindsIn(tool), QByteArrayList{"DCF_0001.jpg: unreadable"});
    QCOMPARE(findingsIn(tool, {"--names"}), QByteArrayList());
}

void VornfhCheckTest::opensNoFileForNames()
{
    const ToolRun tool;
    tool.make(onCard({"100ABC/DCF_0001.avi = x", "100ABC/DCF_0001.thumb = x", "100ABC/DCF_0002.avi = x"}));
    QCOMPARE(findingsIn(tool).size(), 3);
    QCOMPARE(findingsIn(tool, {"--names"}), QByteArrayList());
}

void VornfhCheckTest::refusesWrongCommandLines_data()
{
    QTest::addColumn<QByteArrayList>("arguments");
    QTest::addColumn<QByteArray>("message");
    row("names-and-content", QByteArrayList{"check", "sd", "--names", "--read-all"},
        QByteArray("--names excludes --read-all"));
    row("without-a-storage", QByteArrayList{"check"}, QByteArray("STORAGE is required"));
    row("unknown-storage", QByteArrayList{"check", "cf"}, messages::unknownStorage("cf"));
}

void VornfhCheckTest::refusesWrongCommandLines()
{
    QFETCH(QByteArrayList, arguments);
    QFETCH(QByteArray, message);
    const ToolRun tool;
    QCOMPARE(tool.runOnStorages(arguments), tool.usageError({message}));
}

void VornfhCheckTest::printsFindingsAsJson()
{
    const ToolRun tool;
    tool.make(onCard({"100ABC/DCF_0005.jpg", "100ABC/\xff.jpg"}));
    const Outcome outcome = tool.runOnStorages({"check", "sd", "--json"});
    const auto finding = [&tool](const QString &file, const QString &kind, const QByteArray &text) {
        return QJsonObject{{"path", tool.sd() + "/100ABC/" + file},
                           {"folder", "100ABC"},
                           {"number", kind == "empty-file" ? QJsonValue(5) : QJsonValue()},
                           {"type", "jpg"},
                           {"kind", kind},
                           {"text", QString(text)},
                           {"repairable", kind == "empty-file"}};
    };
    const QJsonObject expected = {
        {"storage", "sd"},
        {"location", tool.sd()},
        {"folders", 1},
        {"files", 1},
        {"recordingsLeft", 8999095},
        {"errors", QJsonArray()},
        {"findings", QJsonArray{finding("\\xff.jpg", "not-utf8", NOT_UTF8),
                                finding("DCF_0005.jpg", "empty-file", EMPTY)}},
    };
    QCOMPARE(outcome.json().object(), expected);
    QCOMPARE(outcome.exitCode, 3);
}

void VornfhCheckTest::checksFoldersWithoutASuffix()
{
    const QByteArrayList command = {"--suffix", "", "--sd", "@/sd/DCIM", "check", "sd", "--names"};
    {
        // The location and its parent count as numbered folders, so the library creates none.
        const ToolRun tool;
        tool.make({"sd/DCIM/"});
        const QByteArray out = "@/sd/DCIM/100: " + MISSING + "\n"
                               + summary("1 finding in 0 folders with 0 files",
                                         "numbers left for 8999100 recordings, up to 999/DCF_9999");
        QCOMPARE(tool.run(command),
                 (Outcome{3, tool.expand(out), withoutColours(noFolderNumberLine().repeated(2))}));
    }
    const ToolRun tool;
    tool.make(onCard({"100/DCF_0001.jpg = x", "101 = x"}));
    const QByteArray out = "@/sd/DCIM/101: " + NOT_A_FOLDER + "\n"
                           + summary("1 finding in 1 folder with 1 file",
                                     "numbers left for 8999099 recordings, up to 999/DCF_9999");
    QCOMPARE(tool.run(command), (Outcome{3, tool.expand(out), QByteArray()}));
}

void VornfhCheckTest::reportsAnUnreadableFolder_data()
{
    QTest::addColumn<int>("mode");
    row("without-permissions", 0);
    row("with-readable-names", 0444);
}

void VornfhCheckTest::reportsAnUnreadableFolder()
{
    QFETCH(int, mode);
    ToolRun tool;
    if (!tool.dropPrivileges())
        QSKIP("the tool cannot run as another user");
    tool.make(onCard({"100ABC/DCF_0001.jpg = x", "101ABC/DCF_0001.jpg = x"}));
    const FolderMode unreadable(tool.sd() + "/100ABC", static_cast<mode_t>(mode));
    const QByteArray out = "@/sd/DCIM/100ABC: cannot be read: Permission denied\n"
                           + summary("1 finding in 2 folders with 1 file",
                                     "numbers left for 8989100 recordings, up to 999ABC/DCF_9999");
    QCOMPARE(tool.runOnStorages({"check", "sd", "--names"}), (Outcome{3, tool.expand(out), QByteArray()}));
    QCOMPARE(kindsIn(tool, {"--names"}), QByteArrayList{"100ABC: unreadable"});
}

void VornfhCheckTest::requiresALocation()
{
    const ToolRun tool;
    QCOMPARE(tool.runOnStorages({"check", "sd"}), tool.failure({"@/sd/DCIM: does not exist"}));
    QCOMPARE(tree(tool.path()), Tree());
    tool.make({"sd/DCIM"});
    QCOMPARE(tool.runOnStorages({"check", "sd"}), tool.failure({"@/sd/DCIM: is not a folder"}));
    QCOMPARE(tool.run({"--mmc", "@/mmc", "check", "sd"}), tool.usageError({messages::notConfigured("sd")}));
}

QTEST_GUILESS_MAIN(VornfhCheckTest)
#include "tst_vornfh_check.moc"

// SPDX-License-Identifier: MIT
#include "toolsupport.h"

#include <QJsonArray>
#include <QJsonObject>
#include <QTest>

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
    "has no number after 'DCF_': the numbering and players ignore it";
const QByteArray NUMBER_ZERO = "has the number 0000: players accept 0001 to 9999";
const QByteArray EMPTY = "is empty: the recording was never written, or its data was lost";
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
    "was left by an interrupted command; it may share its content with another file; unmount the storage "
    "device and check it with fsck, then delete the leftover";

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
    return "does not have exactly four digits after 'DCF_': the numbering reads it as number " + number
           + ", and players ignore it";
}

QByteArray unsafeInAShell(const QByteArray &character)
{
    return "the name contains '" + character
           + "', which a shell might interpret: the library passes the names of videos to a shell";
}

QByteArray fileNotANumber()
{
    return diagnosticLine("problem finding the file number in this filename, continue to the next file");
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
         "100ABC/.notes.txt", "100ABC/.jpg/", ".101ABC/"},
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
    QCOMPARE(tool.runOnStorages({"check", "sd"}), tool.success(summary("no findings in " + counted, left)));
    QCOMPARE(treeWithContents(tool.path()), before);
}

void VornfhCheckTest::reportsOddFolders_data()
{
    QTest::addColumn<Tree>("entries");
    QTest::addColumn<QByteArrayList>("findings");
    QTest::addColumn<QByteArray>("err");
    const auto row = [](const char *name, const Tree &entries, const QByteArrayList &findings,
                        const QByteArray &err = {}) { QTest::newRow(name) << entries << findings << err; };
    row("no-number", {"100ABC/", "XABC/"}, {"XABC: " + NO_NUMBER}, noFolderNumberLine());
    row("suffix-in-lower-case", {"100ABC/", "101abc/"}, {"101abc: " + SUFFIX_IN_OTHER_CASE},
        noFolderNumberLine());
    row("duplicate-number", {"100ABC/", "100abc/", "100XYZ/"},
        {"100XYZ: " + sameNumber("100ABC"), "100abc: " + sameNumber("100ABC"),
         "100abc: " + SUFFIX_IN_OTHER_CASE},
        noFolderNumberLine());
    row("four-digits-before-the-current-folder", {"1000ABC/", "100ABC/", "999ABC/"},
        {"1000ABC: " + NEVER_REACHED});
    row("four-digits-alone", {"1000ABC/"}, {"1000ABC: " + NOT_THREE_DIGITS});
    row("two-digits", {"99ABC/"}, {"99ABC: " + NOT_THREE_DIGITS});
    row("leading-zeros", {"007ABC/", "7ABC/"},
        {"007ABC: " + countsAsFolder("7"), "7ABC: " + sameNumber("007ABC"), "7ABC: " + NOT_THREE_DIGITS});
    row("suffix-in-the-middle", {"1ABC2ABC/", "200ABC/"}, {"1ABC2ABC: " + countsAsFolder("12")});
    row("no-folder-for-the-next-recording", {"XABC/"}, {"100ABC: " + MISSING, "XABC: " + NO_NUMBER},
        noFolderNumberLine());
    row("file-and-link-in-place-of-a-folder", {"100ABC/", "101ABC", "102ABC -> 100ABC"},
        {"101ABC: " + NOT_A_FOLDER, "102ABC: " + NOT_A_FOLDER});
    row("file-and-links-beside-the-folders",
        {"100ABC/", "loose.jpg", "link -> 100ABC", "dangling -> nowhere", ".hidden"},
        {"dangling: " + BESIDE_THE_FOLDERS, "link: " + BESIDE_THE_FOLDERS,
         "loose.jpg: " + BESIDE_THE_FOLDERS});
    row("leftovers-beside-and-in-other-folders",
        {".vornfh-99999999-folder/", "100ABC/", "MISC/.vornfh-99999999-ABC123 = x"},
        {".vornfh-99999999-folder: " + LEFTOVER, "MISC/.vornfh-99999999-ABC123: " + LEFTOVER});
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
    row("empty-file", {"DCF_0001.avi"}, {"DCF_0001.avi: " + EMPTY});
    row("recordings-that-are-not-closed",
        {"DCF_0001.avi = " + riff("ffffffff") + "AVI ", "DCF_0002.wav = " + riff("00000000") + "WAVE",
         "DCF_0003.avi = " + riff("05000000") + "AVI ", "DCF_0004.mkv = " + matroska("01ffffffffffffff"),
         "DCF_0005.mkv = " + matroska("82") + "x", "DCF_0006.avi = " + QByteArray(8, '\0')},
        {"DCF_0001.avi: " + NOT_CLOSED, "DCF_0002.wav: " + NOT_CLOSED, "DCF_0003.avi: " + NOT_CLOSED,
         "DCF_0004.mkv: " + NOT_CLOSED, "DCF_0005.mkv: " + NOT_CLOSED, "DCF_0006.avi: " + NOT_CLOSED});
    row("leftovers", {".vornfh-99999999-ABC123 = x", ".vornfh-99999999-folder/", ".vornfh-99999999-ABC = x"},
        {".vornfh-99999999-ABC123: " + LEFTOVER, ".vornfh-99999999-folder: " + LEFTOVER});
    row("leftover-that-was-being-renamed",
        {".vornfh-99999999-ABC123 = x", ".vornfh-99999999-ABC124.renaming"},
        {".vornfh-99999999-ABC123: " + LEFTOVER_KEPT});
    row("thumbnail-alone-and-of-an-audio-file",
        {"DCF_0001.thumb = x", "DCF_0002.thumb = x", "DCF_0002.wav = x"},
        {"DCF_0001.thumb: " + THUMBNAIL_ALONE, "DCF_0002.thumb: " + THUMBNAIL_ALONE});
    row("extensions-that-the-library-does-not-list",
        {"DCF_0001.jpeg = x", "DCF_0002.mp4 = x", "DCF_0003 = x", "archive.tar.gz = x", "notes.txt"},
        {"DCF_0001.jpeg: " + OTHER_EXTENSION, "DCF_0002.mp4: " + OTHER_EXTENSION,
         "DCF_0003: " + OTHER_EXTENSION, "archive.tar.gz: " + OTHER_EXTENSION,
         "notes.txt: " + OTHER_EXTENSION});
    row("hidden-media", {".DCF_0001.JPG = x", "._DCF_0002.thumb = x", ".DS_Store = x"},
        {".DCF_0001.JPG: " + HIDDEN, "._DCF_0002.thumb: " + HIDDEN});
    row("folder-and-link", {"DCF_0001.jpg -> nothing", "sub/"},
        {"DCF_0001.jpg: " + NOT_A_FILE, "sub: " + NESTED_FOLDER});
    row("unusable-names", {"a\nb.txt = x", "a;b.txt = x", "\u00e4.txt = x", "\xe4.txt = x"},
        {"a\\x0ab.txt: " + unsafeInAShell("\\x0a"), "a;b.txt: " + unsafeInAShell(";"),
         "\\xe4.txt: " + NOT_UTF8, "a\\x0ab.txt: " + OTHER_EXTENSION, "a;b.txt: " + OTHER_EXTENSION,
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
    const Outcome outcome = tool.runOnStorages({"check", "sd"});
    const QByteArray expected = below("@/" + folder, findings).join("\n") + "\n";
    QCOMPARE(outcome.out.left(outcome.out.indexOf("sd: ")), tool.expand(expected));
    QCOMPARE(outcome.err, err);
    QCOMPARE(outcome.exitCode, 1);
    QCOMPARE(treeWithContents(tool.path()), before);
}

void VornfhCheckTest::reportsWhatIsLeftAboveTheLocation_data()
{
    QTest::addColumn<Tree>("entries");
    QTest::addColumn<QByteArrayList>("findings");
    QTest::addColumn<QByteArray>("err");
    row("folder-that-was-to-become-the-location", Tree{".vornfh-99999999-abcdef/", "DCIM/"},
        QByteArrayList{".vornfh-99999999-abcdef: " + LEFTOVER}, QByteArray());
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

void VornfhCheckTest::printsFindingsAsJson()
{
    const ToolRun tool;
    tool.make(onCard({"100ABC/DCF_0005.jpg", "100ABC/\xff.jpg"}));
    const Outcome outcome = tool.runOnStorages({"check", "sd", "--json"});
    const auto finding = [&tool](const QString &file, const QString &kind, const QByteArray &text) {
        return QJsonObject{{"path", tool.sd() + "/100ABC/" + file}, {"kind", kind}, {"text", QString(text)}};
    };
    const QJsonObject expected = {
        {"storage", "sd"},
        {"location", tool.sd()},
        {"folders", 1},
        {"files", 1},
        {"recordingsLeft", 8999095},
        {"findings", QJsonArray{finding("\\xff.jpg", "not-utf8", NOT_UTF8),
                                finding("DCF_0005.jpg", "empty-file", EMPTY)}},
    };
    QCOMPARE(outcome.json().object(), expected);
    QCOMPARE(outcome.exitCode, 1);
}

void VornfhCheckTest::checksFoldersWithoutASuffix()
{
    const QByteArrayList command = {"--suffix", "", "--sd", "@/sd/DCIM", "check", "sd"};
    {
        // The location and its parent count as numbered folders, so the library creates none.
        const ToolRun tool;
        tool.make({"sd/DCIM/"});
        const QByteArray out = "@/sd/DCIM/100: " + MISSING + "\n"
                               + summary("1 finding in 0 folders with 0 files",
                                         "numbers left for 8999100 recordings, up to 999/DCF_9999");
        QCOMPARE(tool.run(command), (Outcome{1, tool.expand(out), noFolderNumberLine().repeated(2)}));
    }
    const ToolRun tool;
    tool.make(onCard({"100/DCF_0001.jpg = x", "101 = x"}));
    QCOMPARE(tool.run(command),
             tool.failure({}, "@/sd/DCIM/101: " + NOT_A_FOLDER + "\n"
                                  + summary("1 finding in 1 folder with 1 file",
                                            "numbers left for 8999099 recordings, up to 999/DCF_9999")));
}

void VornfhCheckTest::reportsAnUnreadableFolder_data()
{
    QTest::addColumn<int>("mode");
    QTest::newRow("without-permissions") << 0;
    QTest::newRow("with-readable-names") << 0444;
}

void VornfhCheckTest::reportsAnUnreadableFolder()
{
    QFETCH(int, mode);
    ToolRun tool;
    if (!tool.dropPrivileges())
        QSKIP("the tool cannot run as another user");
    tool.make(onCard({"100ABC/DCF_0001.jpg = x", "101ABC/DCF_0001.jpg = x"}));
    const FolderMode unreadable(tool.sd() + "/100ABC", static_cast<mode_t>(mode));
    QCOMPARE(tool.runOnStorages({"check", "sd"}),
             tool.failure({}, "@/sd/DCIM/100ABC: cannot be read: Permission denied\n"
                                  + summary("1 finding in 2 folders with 1 file",
                                            "numbers left for 8989100 recordings, up to 999ABC/DCF_9999")));
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

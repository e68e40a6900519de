// SPDX-License-Identifier: MIT
#include "reference.h"
#include "testsupport.h"

#include <QTextCodec>
#include <QtTest>

#include <sys/stat.h>

using namespace VORN_FILE_HANDLER;

namespace {

// A function pointer takes a function of exactly its own type.
constexpr QList<QFileInfo> (*DCIM_FOLDERS)(eStorageType) = &VornFileHandler::getDCIMFolders;
constexpr int (*LAST_DIRECTORY_NUM)(eStorageType) = &VornFileHandler::getLastDirectoryNum;

const QString ZERO_BYTE(1, QChar(QChar::Null));

QByteArray rootLine(const QString &location)
{
    return diagnosticLine("root dir " + location.toUtf8() + " doesn't exist. Create it");
}

QByteArray notANumber(int times)
{
    return diagnosticLine("directory is not a number, continue to check remaining directories")
        .repeated(times);
}

/// "sd/" and "sd/DCIM/", with @p entries in them.
Tree inLocation(const Tree &entries)
{
    Tree all = {"sd/", "sd/DCIM/"};
    for (const QByteArray &entry : entries)
        all.append("sd/DCIM/" + entry);
    return all;
}

QString utf8(const char *text)
{
    return QString::fromUtf8(text);
}

} // namespace

class FolderNumberingTest : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void listAndNumber_data();
    void listAndNumber();
    void missingLocation_data();
    void missingLocation();
    void entriesCarryTheFullPath();
    void eachStorageIsItsOwn();
    void laterListingsCreateNothing();
    void allThreeDigitFolders();
    void fifoIsNoFolder();
    void linkAsLocation();
    void relativeLocationFollowsTheCurrentDirectory();
    void unsupportedStorageListsTmp();
    void readOnlyMedium_data();
    void readOnlyMedium();
    void sameAsQDirOnRandomTrees();
};

void FolderNumberingTest::initTestCase()
{
    QTextCodec::setCodecForLocale(QTextCodec::codecForName("UTF-8")); // of names, whatever the locale
}

void FolderNumberingTest::listAndNumber_data()
{
    QTest::addColumn<QString>("suffix");
    QTest::addColumn<Tree>("before");
    QTest::addColumn<QStringList>("listed");
    QTest::addColumn<int>("passedOver");
    QTest::addColumn<int>("number");
    QTest::addColumn<Tree>("created");
    const auto row = [](const char *name, const QString &suffix, const Tree &before,
                        const QStringList &listed, int passedOver, int number, const Tree &created = {}) {
        QTest::newRow(name) << suffix << before << listed << passedOver << number << created;
    };
    const QString abc = "ABC";
    row("one-folder", abc, {"100ABC/"}, {"100ABC"}, 0, 100);
    row("several-folders", abc, {"102ABC/", "100ABC/", "101ABC/"}, {"100ABC", "101ABC", "102ABC"}, 0, 102);
    row("number-below-hundred-alone", abc, {"7ABC/"}, {"7ABC"}, 0, 7);
    row("empty-location", abc, {}, {"100ABC"}, 0, 100, {"100ABC/"});
    row("other-folders-only", abc, {"MISC/"}, {"100ABC"}, 0, 100, {"100ABC/"});
    row("text-in-front-of-the-suffix", abc, {"100ABC/", "101ABC/", "XYZABC/"}, {"100ABC", "101ABC", "XYZABC"},
        1, 101);
    row("suffix-alone", abc, {"ABC/"}, {"ABC"}, 1, 100);
    row("suffix-alone-behind-a-number", abc, {"100ABC/", "ABC/"}, {"100ABC", "ABC"}, 1, 100);
    row("nothing-converts", abc, {"AABC/", "BABC/", "CABC/"}, {"AABC", "BABC", "CABC"}, 3, 100);
    row("suffix-in-lower-case", abc, {"100abc/"}, {"100abc"}, 1, 100);
    row("suffix-in-mixed-case-behind-a-number", abc, {"104ABC/", "105Abc/"}, {"104ABC", "105Abc"}, 1, 104);
    row("suffix-twice", abc, {"1ABC2ABC/"}, {"1ABC2ABC"}, 0, 12);
    row("suffix-twice-in-a-row", abc, {"12ABCABC/"}, {"12ABCABC"}, 0, 12);
    row("suffix-once-more-in-lower-case", abc, {"1abc2ABC/"}, {"1abc2ABC"}, 1, 100);
    row("suffix-in-front-only", abc, {"ABC100/"}, {"100ABC"}, 0, 100, {"100ABC/"});
    row("suffix-appears-by-the-removal", abc, {"5AABCBCABC/"}, {"5AABCBCABC"}, 1, 100);
    row("four-digits-sort-before-three", abc, {"1000ABC/", "100ABC/", "101ABC/"},
        {"1000ABC", "100ABC", "101ABC"}, 0, 101);
    row("four-digits-with-folder-100-only", abc, {"1000ABC/", "100ABC/"}, {"1000ABC", "100ABC"}, 0, 100);
    row("one-and-two-digits", abc, {"12ABC/", "9ABC/"}, {"12ABC", "9ABC"}, 0, 9);
    row("leading-zeros", abc, {"007ABC/"}, {"007ABC"}, 0, 7);
    row("sign", abc, {"+12ABC/", "-5ABC/"}, {"+12ABC", "-5ABC"}, 0, -5);
    row("plus-sign-alone", abc, {"+012ABC/"}, {"+012ABC"}, 0, 12);
    row("blanks-around-the-number", abc, {" 012 ABC/"}, {" 012 ABC"}, 0, 12);
    row("tab-and-line-feed-around-the-number", abc, {"\t14\nABC/"}, {"\t14\nABC"}, 0, 14);
    row("blank-inside-the-number", abc, {"1 2ABC/"}, {"1 2ABC"}, 1, 100);
    row("hexadecimal-is-no-number", abc, {"0x10ABC/"}, {"0x10ABC"}, 1, 100);
    row("fraction-is-no-number", abc, {"1.5ABC/"}, {"1.5ABC"}, 1, 100);
    row("thousands-separator-is-no-number", abc, {"1,000ABC/"}, {"1,000ABC"}, 1, 100);
    row("largest-int", abc, {"2147483647ABC/"}, {"2147483647ABC"}, 0, INT_MAX);
    row("beyond-int", abc, {"2147483648ABC/"}, {"2147483648ABC"}, 1, 100);
    row("digits-beyond-ascii", abc, {"\u0661\u0662ABC/"}, {utf8("\u0661\u0662ABC")}, 1, 100);
    row("line-feed-behind-the-suffix", abc, {"101ABC\n/"}, {"100ABC"}, 0, 100, {"100ABC/"});
    row("hidden-folder", abc, {".101ABC/"}, {"100ABC"}, 0, 100, {"100ABC/"});
    row("file-with-a-folder's-name", abc, {"101ABC"}, {"100ABC"}, 0, 100, {"100ABC/"});
    row("file-in-the-place-of-folder-100", abc, {"100ABC"}, {}, 0, 100);
    row("link-to-a-folder", abc, {"101ABC -> MISC", "MISC/"}, {"100ABC"}, 0, 100, {"100ABC/"});
    row("link-in-the-place-of-folder-100", abc, {"100ABC -> MISC", "MISC/"}, {}, 0, 100);
    row("dangling-link-in-the-place-of-folder-100", abc, {"100ABC -> none"}, {}, 0, 100);
    row("files-inside-do-not-matter", abc, {"100ABC/", "100ABC/101ABC/", "100ABC/DCF_0001.jpg"}, {"100ABC"},
        0, 100);
    row("name-that-is-no-utf-8", abc,
        {"100ABC/", "101\xff"
                    "ABC/"},
        {"100ABC"}, 0, 100);
    row("only-a-name-that-is-no-utf-8", abc,
        {"101\xff"
         "ABC/"},
        {"100ABC"}, 0, 100, {"100ABC/"});
    row("plain-and-other-names-mixed", abc, {"100ABC/", "101ABC/", "\u00e4ABC/"},
        {"100ABC", "101ABC", utf8("\u00e4ABC")}, 1, 101);
    row("surrogate-pair-sorts-before-later-characters", abc, {"\uff61ABC/", "\U0001F4F7ABC/"},
        {utf8("\U0001F4F7ABC"), utf8("\uff61ABC")}, 2, 100);
    row("kelvin-sign-for-k", "MKV", {"5M\u212aV/"}, {utf8("5M\u212aV")}, 1, 100);
    row("suffix-beyond-ascii", utf8("\u00c4"), {"101\u00c4/"}, {utf8("101\u00c4")}, 0, 101);
    row("suffix-beyond-ascii-in-lower-case", utf8("\u00c4"), {"101\u00e4/"}, {utf8("101\u00e4")}, 1, 100);
    row("suffix-beyond-the-basic-plane", utf8("\U0001F4F7"), {}, {utf8("100\U0001F4F7")}, 0, 100,
        {"100\U0001F4F7/"});
    row("empty-suffix", "", {"100/", "101/"}, {".", "..", "100", "101"}, 0, 101);
    row("empty-suffix-and-other-folders-only", "", {"MISC/"}, {".", "..", "MISC"}, 3, 100);
    row("empty-suffix-and-empty-location", "", {}, {".", ".."}, 2, 100);
    row("null-suffix", QString(), {"102/", "MISC/"}, {".", "..", "102", "MISC"}, 1, 102);
    row("empty-suffix-and-a-name-before-the-dots", "", {"+5/"}, {"+5", ".", ".."}, 2, 5);
    row("empty-suffix-and-hidden-folder", "", {".5/", "..6/"}, {".", ".."}, 2, 100);
    row("empty-suffix-and-name-beyond-ascii", "", {"100/", "\u00e4/"}, {".", "..", "100", utf8("\u00e4")}, 1,
        100);
    row("suffix-is-a-dot", ".", {"101./", "102/"}, {".", "..", "101."}, 0, 101);
    row("suffix-is-two-dots", "..", {"101../"}, {"..", "101.."}, 0, 101);
    row("suffix-of-digits", "07", {"10107/"}, {"10107"}, 0, 101);
    row("suffix-that-takes-digits-away", "1", {"101/"}, {"101"}, 0, 0);
    row("suffix-with-a-star", "A*", {"101A/", "102AXY/", "103B/"}, {"101A", "102AXY"}, 2, 100);
    row("suffix-with-a-star-none-there", "A*", {}, {"100A*"}, 0, 100, {"100A*/"});
    row("suffix-with-a-question-mark", "A?", {"101A/", "102AX/", "103A?/"}, {"102AX", "103A?"}, 0, 103);
    row("suffix-with-a-set", "A[BC]", {"101AB/", "102Ac/", "103AD/"}, {"101AB", "102Ac"}, 2, 100);
    row("suffix-with-a-set-that-misses-itself", "A[B]", {}, {}, 0, 100, {"100A[B]/"});
    row("suffix-with-a-set-beside-its-own-name", "A[B]", {"100A[B]/", "7AB/"}, {"7AB"}, 1, 100);
    row("suffix-that-is-no-wildcard", "A[", {"101A[/", "102A/"}, {}, 0, 100, {"100A[/"});
    row("suffix-that-is-no-wildcard-and-name-beyond-ascii", "A[", {"\u00e4A[/"}, {}, 0, 100, {"100A[/"});
    row("suffix-with-pattern-characters", "A.+(", {"101A.+(/", "102AXX/"}, {"101A.+("}, 0, 101);
    row("suffix-with-a-backslash", "\\A", {"101\\A/"}, {"101\\A"}, 0, 101);
    row("suffix-with-a-blank", " A", {"101 A/", "102A/"}, {"101 A"}, 0, 101);
    row("suffix-with-a-line-feed", "A\n", {"101A\n/", "102A/"}, {"101A\n"}, 0, 101);
    row("suffix-with-a-marker", "%1", {}, {"100%1"}, 0, 100, {"100%1/"});
    row("suffix-with-a-slash", "A/B", {}, {}, 0, 100, {"100A/", "100A/B/"});
    row("suffix-with-a-colon", "A:", {"101A:/"}, {"101A:"}, 0, 101);
    row("suffix-with-a-zero-byte", "A" + ZERO_BYTE + "B", {"101A/"}, {}, 0, 100);
    row("suffix-longer-than-a-name-may-be", QString(300, 'A'), {}, {}, 0, 100);
}

void FolderNumberingTest::listAndNumber()
{
    QFETCH(QString, suffix);
    QFETCH(Tree, before);
    QFETCH(QStringList, listed);
    QFETCH(int, passedOver);
    QFETCH(int, number);
    QFETCH(Tree, created);
    Tree after = inLocation(before + created);
    std::sort(after.begin(), after.end());
    {
        const Storages storages(suffix);
        makeTree(storages.path(), inLocation(before));
        StandardErrorCapture capture;
        QCOMPARE(fileNames(DCIM_FOLDERS(STORAGE_SD)), listed);
        QCOMPARE(capture.take(), QByteArray());
        QCOMPARE(tree(storages.path()), after);
    }
    const Storages storages(suffix);
    makeTree(storages.path(), inLocation(before));
    StandardErrorCapture capture;
    QCOMPARE(LAST_DIRECTORY_NUM(STORAGE_SD), number);
    QCOMPARE(capture.take(), notANumber(passedOver));
    QCOMPARE(tree(storages.path()), after);
}

void FolderNumberingTest::missingLocation_data()
{
    QTest::addColumn<QString>("suffix");
    QTest::addColumn<Tree>("before");
    QTest::addColumn<QStringList>("listed");
    QTest::addColumn<int>("passedOver");
    QTest::addColumn<Tree>("after");
    const auto row = [](const char *name, const char *suffix, const Tree &before, const QStringList &listed,
                        int passedOver, const Tree &after) {
        QTest::newRow(name) << suffix << before << listed << passedOver << after;
    };
    row("fresh-storage", "ABC", {}, {"100ABC"}, 0, inLocation({"100ABC/"}));
    row("fresh-storage-with-an-empty-suffix", "", {}, {".", ".."}, 2, inLocation({}));
    row("fresh-storage-with-a-suffix-that-is-no-wildcard", "A[", {}, {}, 0, inLocation({"100A[/"}));
    row("file-in-the-place-of-the-location", "ABC", {"sd/", "sd/DCIM"}, {}, 0, {"sd/", "sd/DCIM"});
    row("file-in-the-place-of-its-parent", "ABC", {"sd"}, {}, 0, {"sd"});
    row("dangling-link-as-location", "ABC", {"sd/", "sd/DCIM -> none"}, {}, 0, {"sd/", "sd/DCIM -> none"});
    row("dangling-link-as-location-with-an-empty-suffix", "", {"sd/", "sd/DCIM -> none"}, {}, 0,
        {"sd/", "sd/DCIM -> none"});
    row("link-to-a-file-as-location", "ABC", {"file", "sd/", "sd/DCIM -> ../file"}, {}, 0,
        {"file", "sd/", "sd/DCIM -> ../file"});
}

void FolderNumberingTest::missingLocation()
{
    QFETCH(QString, suffix);
    QFETCH(Tree, before);
    QFETCH(QStringList, listed);
    QFETCH(int, passedOver);
    QFETCH(Tree, after);
    {
        const Storages storages(suffix);
        makeTree(storages.path(), before);
        StandardErrorCapture capture;
        QCOMPARE(fileNames(DCIM_FOLDERS(STORAGE_SD)), listed);
        QCOMPARE(capture.take(), rootLine(storages.sd()));
        QCOMPARE(tree(storages.path()), after);
    }
    const Storages storages(suffix);
    makeTree(storages.path(), before);
    StandardErrorCapture capture;
    QCOMPARE(LAST_DIRECTORY_NUM(STORAGE_SD), 100);
    QCOMPARE(capture.take(), rootLine(storages.sd()) + notANumber(passedOver));
    QCOMPARE(tree(storages.path()), after);
}

void FolderNumberingTest::entriesCarryTheFullPath()
{
    const Storages storages;
    makeTree(storages.sd(), {"100ABC/", "101ABC/"});
    StandardErrorCapture capture;
    const QList<QFileInfo> folders = DCIM_FOLDERS(STORAGE_SD);
    QCOMPARE(capture.take(), QByteArray());
    QCOMPARE(folders.size(), 2);
    QCOMPARE(folders.at(0).absoluteFilePath(), storages.sd() + "/100ABC");
    QCOMPARE(folders.at(1).absoluteFilePath(), storages.sd() + "/101ABC");
    QVERIFY(folders.at(0).isDir());
}

void FolderNumberingTest::eachStorageIsItsOwn()
{
    const Storages storages;
    makeTree(storages.location(STORAGE_MMC), {"101ABC/"});
    makeTree(storages.location(STORAGE_SD), {"102ABC/"});
    makeTree(storages.location(STORAGE_USB), {"103ABC/"});
    StandardErrorCapture capture;
    QCOMPARE(fileNames(DCIM_FOLDERS(STORAGE_MMC)), QStringList{"101ABC"});
    QCOMPARE(fileNames(DCIM_FOLDERS(STORAGE_SD)), QStringList{"102ABC"});
    QCOMPARE(fileNames(DCIM_FOLDERS(STORAGE_USB)), QStringList{"103ABC"});
    QCOMPARE(LAST_DIRECTORY_NUM(STORAGE_MMC), 101);
    QCOMPARE(LAST_DIRECTORY_NUM(STORAGE_SD), 102);
    QCOMPARE(LAST_DIRECTORY_NUM(STORAGE_USB), 103);
    QCOMPARE(capture.take(), QByteArray());
}

void FolderNumberingTest::laterListingsCreateNothing()
{
    const Storages storages;
    StandardErrorCapture capture;
    DCIM_FOLDERS(STORAGE_SD);
    QCOMPARE(capture.take(), rootLine(storages.sd()));
    QVERIFY(QDir(storages.sd()).rename("100ABC", "105ABC"));
    // Nothing is kept between two calls: the new name is seen at once.
    QCOMPARE(fileNames(DCIM_FOLDERS(STORAGE_SD)), QStringList{"105ABC"});
    QCOMPARE(LAST_DIRECTORY_NUM(STORAGE_SD), 105);
    QVERIFY(QDir(storages.sd()).rename("105ABC", "104ABC"));
    QCOMPARE(LAST_DIRECTORY_NUM(STORAGE_SD), 104);
    QCOMPARE(capture.take(), QByteArray());
    QCOMPARE(tree(storages.path()), inLocation({"104ABC/"}));
}

void FolderNumberingTest::allThreeDigitFolders()
{
    const Storages storages;
    QStringList expected;
    for (int number = 100; number <= 999; ++number) {
        expected.append(QString::number(number) + "ABC");
        QVERIFY(QDir().mkpath(storages.sd() + "/" + expected.last()));
    }
    QVERIFY(QDir().mkpath(storages.sd() + "/1000ABC"));
    expected.prepend("1000ABC");
    StandardErrorCapture capture;
    QCOMPARE(fileNames(DCIM_FOLDERS(STORAGE_SD)), expected);
    QCOMPARE(LAST_DIRECTORY_NUM(STORAGE_SD), 999);
    QCOMPARE(capture.take(), QByteArray());
}

void FolderNumberingTest::fifoIsNoFolder()
{
    const Storages storages;
    makeTree(storages.sd(), {"100ABC/"});
    QCOMPARE(::mkfifo(QFile::encodeName(storages.sd() + "/101ABC").constData(), 0600), 0);
    StandardErrorCapture capture;
    QCOMPARE(fileNames(DCIM_FOLDERS(STORAGE_SD)), QStringList{"100ABC"});
    QCOMPARE(LAST_DIRECTORY_NUM(STORAGE_SD), 100);
    QCOMPARE(capture.take(), QByteArray());
}

void FolderNumberingTest::linkAsLocation()
{
    const Storages storages;
    makeTree(storages.path(), {"real/101ABC/", "sd/DCIM -> ../real"});
    StandardErrorCapture capture;
    const QList<QFileInfo> folders = DCIM_FOLDERS(STORAGE_SD);
    QCOMPARE(fileNames(folders), QStringList{"101ABC"});
    QCOMPARE(folders.at(0).absoluteFilePath(), storages.sd() + "/101ABC");
    QCOMPARE(LAST_DIRECTORY_NUM(STORAGE_SD), 101);
    VornFileHandler::deleteDCIMFolder(STORAGE_SD, 101);
    QCOMPARE(LAST_DIRECTORY_NUM(STORAGE_SD), 100);
    QCOMPARE(capture.take(), QByteArray());
    QCOMPARE(tree(storages.path()), Tree({"real/", "real/100ABC/", "sd/", "sd/DCIM -> ../real"}));
}

void FolderNumberingTest::relativeLocationFollowsTheCurrentDirectory()
{
    const Storages storages;
    makeTree(storages.path(), {"one/x/101ABC/", "two/"});
    const QString root = QDir(storages.path()).canonicalPath();
    StandardErrorCapture capture;
    VornFileHandler::mSDLocation = QDir("x");
    {
        const CurrentDirectory current(root + "/one");
        QCOMPARE(LAST_DIRECTORY_NUM(STORAGE_SD), 101);
        QCOMPARE(DCIM_FOLDERS(STORAGE_SD).value(0).absoluteFilePath(), root + "/one/x/101ABC");
        QCOMPARE(capture.take(), QByteArray());
    }
    const CurrentDirectory current(root + "/two");
    QCOMPARE(LAST_DIRECTORY_NUM(STORAGE_SD), 100);
    QCOMPARE(capture.take(), rootLine(root + "/two/x"));
    QCOMPARE(DCIM_FOLDERS(STORAGE_SD).value(0).absoluteFilePath(), root + "/two/x/100ABC");
    QCOMPARE(tree(root), Tree({"one/", "one/x/", "one/x/101ABC/", "two/", "two/x/", "two/x/100ABC/"}));
}

void FolderNumberingTest::unsupportedStorageListsTmp()
{
    const Storages storages;
    StandardErrorCapture capture;
    const auto answer = withEmptyTmp([] {
        const int first = LAST_DIRECTORY_NUM(anyStorage(3));
        const QByteArray created = tree("/tmp").join(" ");
        makeTree("/tmp", {"105ABC/"});
        const QString names = fileNames(DCIM_FOLDERS(anyStorage(-1))).join(" ");
        const int last = LAST_DIRECTORY_NUM(anyStorage(1000));
        return QString("%1|%2|%3|%4").arg(first).arg(QString(created), names).arg(last).toUtf8();
    });
    if (!answer)
        QSKIP("this user may not mount");
    QCOMPARE(*answer, QByteArray("100|100ABC/|100ABC 105ABC|105"));
    QCOMPARE(capture.take(), QByteArray());
}

void FolderNumberingTest::readOnlyMedium_data()
{
    QTest::addColumn<Tree>("before");
    QTest::addColumn<bool>("missing");
    QTest::addColumn<QByteArray>("expected");
    QTest::newRow("without-a-location") << Tree{"sd/"} << true << QByteArray(" 100");
    QTest::newRow("without-numbered-folders") << inLocation({"MISC/"}) << false << QByteArray(" 100");
    QTest::newRow("with-numbered-folders")
        << inLocation({"103ABC/", "104ABC/"}) << false << QByteArray("103ABC,104ABC 104");
}

void FolderNumberingTest::readOnlyMedium()
{
    QFETCH(Tree, before);
    QFETCH(bool, missing);
    QFETCH(QByteArray, expected);
    const Storages storages;
    makeTree(storages.path(), before);
    StandardErrorCapture capture;
    const auto answer = onReadOnlyMedium(storages.path(), [] {
        const QString names = fileNames(DCIM_FOLDERS(STORAGE_SD)).join(",");
        return (names + " " + QString::number(LAST_DIRECTORY_NUM(STORAGE_SD))).toUtf8();
    });
    if (!answer)
        QSKIP("this user may not mount");
    QCOMPARE(*answer, expected);
    QCOMPARE(capture.take(), missing ? rootLine(storages.sd()).repeated(2) : QByteArray());
    QCOMPARE(tree(storages.path()), before);
}

namespace {

QByteArray randomFolder(QRandomGenerator &random, const QByteArray &suffix)
{
    static const QList<QByteArray> HEADS = {"100",
                                            "101",
                                            "999",
                                            "1000",
                                            "99",
                                            "007",
                                            "+12",
                                            " 13",
                                            "-5",
                                            "14 ",
                                            "1\n5",
                                            "X",
                                            "",
                                            ".1",
                                            "1 2",
                                            "\u0661",
                                            "\u00e4",
                                            "\xff",
                                            "\xef\xbb\xbf"
                                            "102",
                                            "\U0001F4F7",
                                            "\uff61",
                                            "2147483648"};
    const QList<QByteArray> tails = {
        suffix, suffix, suffix, suffix.toLower(), suffix + suffix, "ABC",
        "A",    "",     "k",    "\u212a",         suffix + "\n",   suffix + "7" + suffix};
    QByteArray name = Reference::oneOf(random, HEADS) + Reference::oneOf(random, tails);
    name.replace('/', '_').replace('\0', '_');
    return name.isEmpty() || name == "." || name == ".." ? "empty" : name.left(200);
}

Tree randomLocation(QRandomGenerator &random, const QByteArray &suffix)
{
    Tree entries;
    for (int i = random.bounded(8); i > 0; --i) {
        const QByteArray name = randomFolder(random, suffix);
        const bool taken =
            entries.contains(name) || entries.contains(name + "/") || entries.contains(name + " -> .");
        static const QList<QByteArray> KINDS = {"/", "/", "/", "/", "/", "", " -> ."};
        if (!taken)
            entries.append(name + Reference::oneOf(random, KINDS));
    }
    return entries;
}

} // namespace

void FolderNumberingTest::sameAsQDirOnRandomTrees()
{
    constexpr quint32 SEED = 20250225;
    qInfo("seed %u", SEED);
    QRandomGenerator random(SEED);
    const QStringList suffixes = {"ABC", "",    "A*", "A?",    "A[B]",         "A[",  "[!A]",
                                  "A]",  ".",   "*",  "k",     utf8("\u212a"), "0",   utf8("\u00c4"),
                                  "A\\", "A\n", "%1", "a.b(c", utf8("\u00df"), "\\*", "[a-"};
    for (int round = 0; round < 200; ++round) {
        const QString suffix = Reference::oneOf(random, suffixes);
        const Storages storages(suffix);
        const Tree before = randomLocation(random, suffix.toUtf8());
        for (const eStorageType storage : {STORAGE_MMC, STORAGE_SD}) {
            if (round % 10 != 0)
                QVERIFY(QDir().mkpath(storages.location(storage)));
            makeTree(storages.location(storage), before);
        }
        const Reference::Storage reference = {QDir(storages.location(STORAGE_MMC)), suffix};
        StandardErrorCapture capture;
        QStringList expectedNames;
        int expectedNumber = 0;
        {
            const Reference::QuietQt quiet;
            expectedNumber = Reference::lastDirectoryNum(reference);
            expectedNames = fileNames(Reference::dcimFolders(reference));
        }
        const QByteArray expectedText = capture.take().replace("/mmc/", "/sd/");
        QCOMPARE(LAST_DIRECTORY_NUM(STORAGE_SD), expectedNumber);
        QCOMPARE(fileNames(DCIM_FOLDERS(STORAGE_SD)), expectedNames);
        QCOMPARE(capture.take(), expectedText);
        QCOMPARE(tree(storages.sd()), tree(storages.location(STORAGE_MMC)));
    }
}

QTEST_GUILESS_MAIN(FolderNumberingTest)
#include "tst_foldernumbering.moc"

// SPDX-License-Identifier: MIT
#include "literal.h"
#include "testsupport.h"

#include <QtTest>

#include <sys/stat.h>

using namespace VORN_FILE_HANDLER;

namespace {

/// "sd/" and "sd/DCIM/", with @p entries in them.
Tree inLocation(const Tree &entries)
{
    return Tree{"sd/"} + inFolder("sd/DCIM/", entries);
}

} // namespace

class FolderNumberingTest : public QObject
{
    Q_OBJECT

private slots:
    void listAndNumber_data();
    void listAndNumber();
    void missingLocation_data();
    void missingLocation();
    void entriesCarryTheFullPath();
    void storageDevicesAreSeparate();
    void renamedFolderTakesEffectAtOnce();
    void allThreeDigitFolders();
    void fifoIsNotAFolder();
    void locationIsALink();
    void relativeLocationFollowsTheCurrentDirectory();
    void unsupportedStorageUsesTmp();
    void readOnlyFileSystem_data();
    void readOnlyFileSystem();
    void sameAsQDirOnRandomTrees();
};

void FolderNumberingTest::listAndNumber_data()
{
    QTest::addColumn<QString>("suffix");
    QTest::addColumn<Tree>("before");
    QTest::addColumn<QStringList>("listed");
    QTest::addColumn<int>("skipped");
    QTest::addColumn<int>("number");
    QTest::addColumn<Tree>("created");
    const auto row = [](const char *name, const QString &suffix, const Tree &before,
                        const QStringList &listed, int skipped, int number, const Tree &created = {}) {
        QTest::newRow(name) << suffix << before << listed << skipped << number << created;
    };
    const QString abc = "ABC";
    row("one-folder", abc, {"100ABC/"}, {"100ABC"}, 0, 100);
    row("several-folders", abc, {"102ABC/", "100ABC/", "101ABC/"}, {"100ABC", "101ABC", "102ABC"}, 0, 102);
    row("number-below-100-alone", abc, {"7ABC/"}, {"7ABC"}, 0, 7);
    row("empty-location", abc, {}, {"100ABC"}, 0, 100, {"100ABC/"});
    row("other-folders-only", abc, {"MISC/"}, {"100ABC"}, 0, 100, {"100ABC/"});
    row("text-before-the-suffix", abc, {"100ABC/", "101ABC/", "XYZABC/"}, {"100ABC", "101ABC", "XYZABC"}, 1,
        101);
    row("suffix-alone", abc, {"ABC/"}, {"ABC"}, 1, 100);
    row("suffix-alone-after-a-number", abc, {"100ABC/", "ABC/"}, {"100ABC", "ABC"}, 1, 100);
    row("no-name-is-a-number", abc, {"AABC/", "BABC/", "CABC/"}, {"AABC", "BABC", "CABC"}, 3, 100);
    row("suffix-in-lower-case", abc, {"100abc/"}, {"100abc"}, 1, 100);
    row("suffix-in-mixed-case-after-a-number", abc, {"104ABC/", "105Abc/"}, {"104ABC", "105Abc"}, 1, 104);
    row("suffix-twice", abc, {"1ABC2ABC/"}, {"1ABC2ABC"}, 0, 12);
    row("suffix-twice-in-a-row", abc, {"12ABCABC/"}, {"12ABCABC"}, 0, 12);
    row("suffix-again-in-lower-case", abc, {"1abc2ABC/"}, {"1abc2ABC"}, 1, 100);
    row("suffix-at-the-start-only", abc, {"ABC100/"}, {"100ABC"}, 0, 100, {"100ABC/"});
    row("removal-creates-another-suffix", abc, {"5AABCBCABC/"}, {"5AABCBCABC"}, 1, 100);
    row("four-digits-sort-before-three", abc, {"1000ABC/", "100ABC/", "101ABC/"},
        {"1000ABC", "100ABC", "101ABC"}, 0, 101);
    row("four-digits-with-folder-100-only", abc, {"1000ABC/", "100ABC/"}, {"1000ABC", "100ABC"}, 0, 100);
    row("one-and-two-digits", abc, {"12ABC/", "9ABC/"}, {"12ABC", "9ABC"}, 0, 9);
    row("leading-zeros", abc, {"007ABC/"}, {"007ABC"}, 0, 7);
    row("sign", abc, {"+12ABC/", "-5ABC/"}, {"+12ABC", "-5ABC"}, 0, -5);
    row("plus-sign-alone", abc, {"+012ABC/"}, {"+012ABC"}, 0, 12);
    row("spaces-around-the-number", abc, {" 012 ABC/"}, {" 012 ABC"}, 0, 12);
    row("tab-and-line-feed-around-the-number", abc, {"\t14\nABC/"}, {"\t14\nABC"}, 0, 14);
    row("space-inside-the-number", abc, {"1 2ABC/"}, {"1 2ABC"}, 1, 100);
    row("hexadecimal-is-not-a-number", abc, {"0x10ABC/"}, {"0x10ABC"}, 1, 100);
    row("fraction-is-not-a-number", abc, {"1.5ABC/"}, {"1.5ABC"}, 1, 100);
    row("thousands-separator-is-not-a-number", abc, {"1,000ABC/"}, {"1,000ABC"}, 1, 100);
    row("largest-int", abc, {"2147483647ABC/"}, {"2147483647ABC"}, 0, INT_MAX);
    row("beyond-int", abc, {"2147483648ABC/"}, {"2147483648ABC"}, 1, 100);
    row("digits-outside-ascii", abc, {"\u0661\u0662ABC/"}, {"\u0661\u0662ABC"}, 1, 100);
    row("line-feed-after-the-suffix", abc, {"101ABC\n/"}, {"100ABC"}, 0, 100, {"100ABC/"});
    row("hidden-folder", abc, {".101ABC/"}, {"100ABC"}, 0, 100, {"100ABC/"});
    row("file-named-like-a-folder", abc, {"101ABC"}, {"100ABC"}, 0, 100, {"100ABC/"});
    row("file-in-place-of-folder-100", abc, {"100ABC"}, {}, 0, 100);
    row("link-to-a-folder", abc, {"101ABC -> MISC", "MISC/"}, {"100ABC"}, 0, 100, {"100ABC/"});
    row("link-in-place-of-folder-100", abc, {"100ABC -> MISC", "MISC/"}, {}, 0, 100);
    row("dangling-link-in-place-of-folder-100", abc, {"100ABC -> none"}, {}, 0, 100);
    row("files-inside-do-not-matter", abc, {"100ABC/", "100ABC/101ABC/", "100ABC/DCF_0001.jpg"}, {"100ABC"},
        0, 100);
    row("name-is-not-utf-8", abc, {"100ABC/", "101\377ABC/"}, {"100ABC"}, 0, 100);
    row("the-only-name-is-not-utf-8", abc, {"101\377ABC/"}, {"100ABC"}, 0, 100, {"100ABC/"});
    row("ascii-and-other-names", abc, {"100ABC/", "101ABC/", "\u00e4ABC/"}, {"100ABC", "101ABC", "\u00e4ABC"},
        1, 101);
    row("surrogate-pair-sorts-before-later-characters", abc, {"\uff61ABC/", "\U0001F4F7ABC/"},
        {"\U0001F4F7ABC", "\uff61ABC"}, 2, 100);
    row("kelvin-sign-for-k", "MKV", {"5M\u212aV/"}, {"5M\u212aV"}, 1, 100);
    row("suffix-outside-ascii", "\u00c4", {"101\u00c4/"}, {"101\u00c4"}, 0, 101);
    row("suffix-outside-ascii-in-lower-case", "\u00c4", {"101\u00e4/"}, {"101\u00e4"}, 1, 100);
    row("suffix-outside-the-basic-plane", "\U0001F4F7", {}, {"100\U0001F4F7"}, 0, 100, {"100\U0001F4F7/"});
    row("empty-suffix", "", {"100/", "101/"}, {".", "..", "100", "101"}, 0, 101);
    row("empty-suffix-and-other-folders-only", "", {"MISC/"}, {".", "..", "MISC"}, 3, 100);
    row("empty-suffix-and-empty-location", "", {}, {".", ".."}, 2, 100);
    row("null-suffix", QString(), {"102/", "MISC/"}, {".", "..", "102", "MISC"}, 1, 102);
    row("empty-suffix-and-a-name-before-the-dots", "", {"+5/"}, {"+5", ".", ".."}, 2, 5);
    row("empty-suffix-and-hidden-folder", "", {".5/", "..6/"}, {".", ".."}, 2, 100);
    row("empty-suffix-and-name-outside-ascii", "", {"100/", "\u00e4/"}, {".", "..", "100", "\u00e4"}, 1, 100);
    row("suffix-is-a-dot", ".", {"101./", "102/"}, {".", "..", "101."}, 0, 101);
    row("suffix-is-two-dots", "..", {"101../"}, {"..", "101.."}, 0, 101);
    row("suffix-of-digits", "07", {"10107/"}, {"10107"}, 0, 101);
    row("suffix-that-removes-digits", "1", {"101/"}, {"101"}, 0, 0);
    row("suffix-with-a-star", "A*", {"101A/", "102AXY/", "103B/"}, {"101A", "102AXY"}, 2, 100);
    row("suffix-with-a-star-and-empty-location", "A*", {}, {"100A*"}, 0, 100, {"100A*/"});
    row("suffix-with-a-question-mark", "A?", {"101A/", "102AX/", "103A?/"}, {"102AX", "103A?"}, 0, 103);
    row("suffix-with-a-set", "A[BC]", {"101AB/", "102Ac/", "103AD/"}, {"101AB", "102Ac"}, 2, 100);
    row("suffix-with-a-set-does-not-match-itself", "A[B]", {}, {}, 0, 100, {"100A[B]/"});
    row("suffix-with-a-set-and-the-same-name", "A[B]", {"100A[B]/", "7AB/"}, {"7AB"}, 1, 100);
    row("suffix-is-an-invalid-wildcard", "A[", {"101A[/", "102A/"}, {}, 0, 100, {"100A[/"});
    row("suffix-is-an-invalid-wildcard-and-name-outside-ascii", "A[", {"\u00e4A[/"}, {}, 0, 100, {"100A[/"});
    row("suffix-with-pattern-characters", "A.+(", {"101A.+(/", "102AXX/"}, {"101A.+("}, 0, 101);
    row("suffix-with-a-backslash", "\\A", {"101\\A/"}, {"101\\A"}, 0, 101);
    row("suffix-with-a-space", " A", {"101 A/", "102A/"}, {"101 A"}, 0, 101);
    row("suffix-with-a-line-feed", "A\n", {"101A\n/", "102A/"}, {"101A\n"}, 0, 101);
    row("suffix-with-a-place-marker", "%1", {}, {"100%1"}, 0, 100, {"100%1/"});
    row("suffix-with-a-slash", "A/B", {}, {}, 0, 100, {"100A/", "100A/B/"});
    row("suffix-with-a-colon", "A:", {"101A:/"}, {"101A:"}, 0, 101);
    row("suffix-with-a-null-character", "A" + NUL + "B", {"101A/"}, {}, 0, 100);
    row("suffix-too-long-for-a-name", QString(300, 'A'), {}, {}, 0, 100);
}

void FolderNumberingTest::listAndNumber()
{
    QFETCH(QString, suffix);
    QFETCH(Tree, before);
    QFETCH(QStringList, listed);
    QFETCH(int, skipped);
    QFETCH(int, number);
    QFETCH(Tree, created);
    const Tree after = sorted(inLocation(before + created));
    {
        const Storages storages(suffix);
        makeTree(storages.path(), inLocation(before));
        StandardErrorCapture capture;
        QCOMPARE(fileNames(VornFileHandler::getDCIMFolders(STORAGE_SD)), listed);
        QCOMPARE(capture.take(), QByteArray());
        QCOMPARE(tree(storages.path()), after);
    }
    const Storages storages(suffix);
    makeTree(storages.path(), inLocation(before));
    StandardErrorCapture capture;
    QCOMPARE(VornFileHandler::getLastDirectoryNum(STORAGE_SD), number);
    QCOMPARE(capture.take(), noFolderNumberLine().repeated(skipped));
    QCOMPARE(tree(storages.path()), after);
}

void FolderNumberingTest::missingLocation_data()
{
    QTest::addColumn<QString>("suffix");
    QTest::addColumn<Tree>("before");
    QTest::addColumn<QStringList>("listed");
    QTest::addColumn<int>("skipped");
    QTest::addColumn<Tree>("after");
    const auto row = [](const char *name, const char *suffix, const Tree &before, const QStringList &listed,
                        int skipped, const Tree &after) {
        QTest::newRow(name) << suffix << before << listed << skipped << after;
    };
    row("missing-location", "ABC", {}, {"100ABC"}, 0, inLocation({"100ABC/"}));
    row("missing-location-with-an-empty-suffix", "", {}, {".", ".."}, 2, inLocation({}));
    row("missing-location-and-suffix-is-an-invalid-wildcard", "A[", {}, {}, 0, inLocation({"100A[/"}));
    row("file-in-place-of-the-location", "ABC", {"sd/", "sd/DCIM"}, {}, 0, {"sd/", "sd/DCIM"});
    row("file-in-place-of-its-parent", "ABC", {"sd"}, {}, 0, {"sd"});
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
    QFETCH(int, skipped);
    QFETCH(Tree, after);
    {
        const Storages storages(suffix);
        makeTree(storages.path(), before);
        StandardErrorCapture capture;
        QCOMPARE(fileNames(VornFileHandler::getDCIMFolders(STORAGE_SD)), listed);
        QCOMPARE(capture.take(), missingLocationLine(storages.sd()));
        QCOMPARE(tree(storages.path()), after);
    }
    const Storages storages(suffix);
    makeTree(storages.path(), before);
    StandardErrorCapture capture;
    QCOMPARE(VornFileHandler::getLastDirectoryNum(STORAGE_SD), 100);
    QCOMPARE(capture.take(), missingLocationLine(storages.sd()) + noFolderNumberLine().repeated(skipped));
    QCOMPARE(tree(storages.path()), after);
}

void FolderNumberingTest::entriesCarryTheFullPath()
{
    const Storages storages;
    makeTree(storages.sd(), {"100ABC/", "101ABC/"});
    StandardErrorCapture capture;
    const QList<QFileInfo> folders = VornFileHandler::getDCIMFolders(STORAGE_SD);
    QCOMPARE(capture.take(), QByteArray());
    QCOMPARE(folders.size(), 2);
    QCOMPARE(folders.at(0).absoluteFilePath(), storages.sd() + "/100ABC");
    QCOMPARE(folders.at(1).absoluteFilePath(), storages.sd() + "/101ABC");
    QVERIFY(folders.at(0).isDir());
}

void FolderNumberingTest::storageDevicesAreSeparate()
{
    const Storages storages;
    makeTree(storages.location(STORAGE_MMC), {"101ABC/"});
    makeTree(storages.location(STORAGE_SD), {"102ABC/"});
    makeTree(storages.location(STORAGE_USB), {"103ABC/"});
    StandardErrorCapture capture;
    QCOMPARE(fileNames(VornFileHandler::getDCIMFolders(STORAGE_MMC)), QStringList{"101ABC"});
    QCOMPARE(fileNames(VornFileHandler::getDCIMFolders(STORAGE_SD)), QStringList{"102ABC"});
    QCOMPARE(fileNames(VornFileHandler::getDCIMFolders(STORAGE_USB)), QStringList{"103ABC"});
    QCOMPARE(VornFileHandler::getLastDirectoryNum(STORAGE_MMC), 101);
    QCOMPARE(VornFileHandler::getLastDirectoryNum(STORAGE_SD), 102);
    QCOMPARE(VornFileHandler::getLastDirectoryNum(STORAGE_USB), 103);
    QCOMPARE(capture.take(), QByteArray());
}

void FolderNumberingTest::renamedFolderTakesEffectAtOnce()
{
    const Storages storages;
    StandardErrorCapture capture;
    VornFileHandler::getDCIMFolders(STORAGE_SD);
    QCOMPARE(capture.take(), missingLocationLine(storages.sd()));
    QVERIFY(QDir(storages.sd()).rename("100ABC", "105ABC"));
    // Nothing is cached between calls: the new name takes effect at once.
    QCOMPARE(fileNames(VornFileHandler::getDCIMFolders(STORAGE_SD)), QStringList{"105ABC"});
    QCOMPARE(VornFileHandler::getLastDirectoryNum(STORAGE_SD), 105);
    QVERIFY(QDir(storages.sd()).rename("105ABC", "104ABC"));
    QCOMPARE(VornFileHandler::getLastDirectoryNum(STORAGE_SD), 104);
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
    QCOMPARE(fileNames(VornFileHandler::getDCIMFolders(STORAGE_SD)), expected);
    QCOMPARE(VornFileHandler::getLastDirectoryNum(STORAGE_SD), 999);
    QCOMPARE(capture.take(), QByteArray());
}

void FolderNumberingTest::fifoIsNotAFolder()
{
    const Storages storages;
    makeTree(storages.sd(), {"100ABC/"});
    QCOMPARE(::mkfifo(QFile::encodeName(storages.sd() + "/101ABC").constData(), 0600), 0);
    StandardErrorCapture capture;
    QCOMPARE(fileNames(VornFileHandler::getDCIMFolders(STORAGE_SD)), QStringList{"100ABC"});
    QCOMPARE(VornFileHandler::getLastDirectoryNum(STORAGE_SD), 100);
    QCOMPARE(capture.take(), QByteArray());
}

void FolderNumberingTest::locationIsALink()
{
    const Storages storages;
    makeTree(storages.path(), {"real/101ABC/", "sd/DCIM -> ../real"});
    StandardErrorCapture capture;
    const QList<QFileInfo> folders = VornFileHandler::getDCIMFolders(STORAGE_SD);
    QCOMPARE(fileNames(folders), QStringList{"101ABC"});
    QCOMPARE(folders.at(0).absoluteFilePath(), storages.sd() + "/101ABC");
    QCOMPARE(VornFileHandler::getLastDirectoryNum(STORAGE_SD), 101);
    VornFileHandler::deleteDCIMFolder(STORAGE_SD, 101);
    QCOMPARE(VornFileHandler::getLastDirectoryNum(STORAGE_SD), 100);
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
        QCOMPARE(VornFileHandler::getLastDirectoryNum(STORAGE_SD), 101);
        QCOMPARE(VornFileHandler::getDCIMFolders(STORAGE_SD).value(0).absoluteFilePath(),
                 root + "/one/x/101ABC");
        QCOMPARE(capture.take(), QByteArray());
    }
    const CurrentDirectory current(root + "/two");
    QCOMPARE(VornFileHandler::getLastDirectoryNum(STORAGE_SD), 100);
    QCOMPARE(capture.take(), missingLocationLine(root + "/two/x"));
    QCOMPARE(VornFileHandler::getDCIMFolders(STORAGE_SD).value(0).absoluteFilePath(), root + "/two/x/100ABC");
    QCOMPARE(tree(root), Tree({"one/", "one/x/", "one/x/101ABC/", "two/", "two/x/", "two/x/100ABC/"}));
}

void FolderNumberingTest::unsupportedStorageUsesTmp()
{
    const Storages storages;
    StandardErrorCapture capture;
    const auto result = withEmptyTmp([] {
        const int first = VornFileHandler::getLastDirectoryNum(anyStorage(3));
        const QByteArray created = tree("/tmp").join(" ");
        makeTree("/tmp", {"105ABC/"});
        const QString names = fileNames(VornFileHandler::getDCIMFolders(anyStorage(-1))).join(" ");
        const int last = VornFileHandler::getLastDirectoryNum(anyStorage(1000));
        return QString("%1|%2|%3|%4").arg(first).arg(QString(created), names).arg(last).toUtf8();
    });
    if (!result)
        QSKIP("mounting is not permitted");
    QCOMPARE(*result, QByteArray("100|100ABC/|100ABC 105ABC|105"));
    QCOMPARE(capture.take(), QByteArray());
}

void FolderNumberingTest::readOnlyFileSystem_data()
{
    QTest::addColumn<Tree>("before");
    QTest::addColumn<bool>("missing");
    QTest::addColumn<QByteArray>("expected");
    const auto row = [](const char *name, const Tree &before, bool missing, const QByteArray &expected) {
        QTest::newRow(name) << before << missing << expected;
    };
    row("without-a-location", {"sd/"}, true, " 100");
    row("without-numbered-folders", inLocation({"MISC/"}), false, " 100");
    row("with-numbered-folders", inLocation({"103ABC/", "104ABC/"}), false, "103ABC,104ABC 104");
}

void FolderNumberingTest::readOnlyFileSystem()
{
    QFETCH(Tree, before);
    QFETCH(bool, missing);
    QFETCH(QByteArray, expected);
    const Storages storages;
    makeTree(storages.path(), before);
    StandardErrorCapture capture;
    const auto result = onReadOnlyFileSystem(storages.path(), [] {
        const QString names = fileNames(VornFileHandler::getDCIMFolders(STORAGE_SD)).join(",");
        return (names + " " + QString::number(VornFileHandler::getLastDirectoryNum(STORAGE_SD))).toUtf8();
    });
    if (!result)
        QSKIP("mounting is not permitted");
    QCOMPARE(*result, expected);
    QCOMPARE(capture.take(), missing ? missingLocationLine(storages.sd()).repeated(2) : QByteArray());
    QCOMPARE(tree(storages.path()), before);
}

namespace {

QByteArray randomFolder(QRandomGenerator &random, const QByteArray &suffix)
{
    static const QByteArrayList HEADS = {"100",       "101",        "999",    "1000",      "99",     "007",
                                         "+12",       " 13",        "-5",     "14 ",       "1\n5",   "X",
                                         "",          ".1",         "1 2",    "\u0661",    "\u00e4", "\377",
                                         "\uFEFF102", "\U0001F4F7", "\uff61", "2147483648"};
    const QByteArrayList tails = {
        suffix, suffix, suffix, suffix.toLower(), suffix + suffix, "ABC",
        "A",    "",     "k",    "\u212a",         suffix + "\n",   suffix + "7" + suffix};
    QByteArray name = oneOf(random, HEADS) + oneOf(random, tails);
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
        static const QByteArrayList KINDS = {"/", "/", "/", "/", "/", "", " -> ."};
        if (!taken)
            entries.append(name + oneOf(random, KINDS));
    }
    return entries;
}

} // namespace

void FolderNumberingTest::sameAsQDirOnRandomTrees()
{
    constexpr quint32 SEED = 20250225;
    qInfo("seed %u", SEED);
    QRandomGenerator random(SEED);
    const QStringList suffixes = {"ABC", "",    "A*", "A?",    "A[B]",   "A[",  "[!A]",
                                  "A]",  ".",   "*",  "k",     "\u212a", "0",   "\u00c4",
                                  "A\\", "A\n", "%1", "a.b(c", "\u00df", "\\*", "[a-"};
    for (int round = 0; round < 200; ++round) {
        const QString suffix = oneOf(random, suffixes);
        const Storages storages(suffix);
        const Tree before = randomLocation(random, suffix.toUtf8());
        for (const eStorageType storage : {STORAGE_MMC, STORAGE_SD}) {
            if (round % 10 != 0)
                QVERIFY(QDir().mkpath(storages.location(storage)));
            makeTree(storages.location(storage), before);
        }
        StandardErrorCapture capture;
        const int expectedNumber = literal::lastFolder(STORAGE_MMC);
        const QStringList expectedNames = fileNames(literal::numberedFolders(STORAGE_MMC));
        const QByteArray expectedText = capture.take().replace("/mmc/", "/sd/");
        QCOMPARE(VornFileHandler::getLastDirectoryNum(STORAGE_SD), expectedNumber);
        QCOMPARE(fileNames(VornFileHandler::getDCIMFolders(STORAGE_SD)), expectedNames);
        QCOMPARE(capture.take(), expectedText);
        QCOMPARE(tree(storages.sd()), tree(storages.location(STORAGE_MMC)));
    }
}

QTEST_GUILESS_MAIN(FolderNumberingTest)
#include "tst_foldernumbering.moc"

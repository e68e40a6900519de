// SPDX-License-Identifier: MIT
#include "literal.h"
#include "testsupport.h"

#include <QTextCodec>
#include <QtTest>

#include <type_traits>

#include <sys/stat.h>

using namespace VORN_FILE_HANDLER;

static_assert(DIRECTORY_FILTER_DCIM == 1 && DIRECTORY_FILTER_NON_DCIM == 16);
static_assert(std::is_enum_v<eDIRECTORY_FILTER> && std::is_convertible_v<eDIRECTORY_FILTER, int>);

namespace {

using literal::OLDEST_FIRST;

QStringList paths(const QFileInfoList &files)
{
    QStringList list;
    for (const QFileInfo &file : files)
        list.append(file.filePath());
    return list;
}

} // namespace

class ListingsTest : public QObject
{
    Q_OBJECT

private slots:
    void files_data();
    void files();
    void fifoIsNotAFile();
    void missingDirectory_data();
    void missingDirectory();
    void nullCharacterInThePath();
    void emptyPathIsTheCurrentDirectory();
    void pathsAreThoseOfQDir_data();
    void pathsAreThoseOfQDir();
    void searchPathOfTheHost();
    void sortOrder_data();
    void sortOrder();
    void ownNameFilters_data();
    void ownNameFilters();
    void ownFilterAndOrderAreReplaced();
    void directoryOfTheCallerIsUnchanged();
    void folders_data();
    void folders();
    void foldersOfMissingLocation_data();
    void foldersOfMissingLocation();
    void locationIsALink();
    void storageFiles_data();
    void storageFiles();
    void emptySuffixIncludesTheParentDirectory();
    void oldestFirstInEachFolder();
    void storageDevicesAreSeparate();
    void relativeLocationFollowsTheCurrentDirectory();
    void unsupportedStorageUsesTmp();
    void readOnlyFileSystem();
    void sameAsQDirOnRandomFolders();
    void sameAsQDirOnRandomStorages();
    void sameAsQDirOnNamesOutsideAscii();
    void sameAsQDirInOtherEncodings_data();
    void sameAsQDirInOtherEncodings();
};

void ListingsTest::files_data()
{
    QTest::addColumn<Tree>("before");
    QTest::addColumn<QStringList>("filters");
    QTest::addColumn<QStringList>("expected"); // in name order
    const auto row = [](const char *name, const Tree &before, const QStringList &filters,
                        const QStringList &expected) {
        QTest::newRow(name) << before << filters << expected;
    };
    const Tree media = {"DCF_0001.jpg", "DCF_0002.JPG", "DCF_0003.avi", "DCF_0004.thumb", "notes"};
    row("empty-directory", {}, {}, {});
    row("no-filter-matches-all", media, {},
        {"DCF_0001.jpg", "DCF_0002.JPG", "DCF_0003.avi", "DCF_0004.thumb", "notes"});
    row("one-filter-ignores-case", media, {"*.jpg"}, {"DCF_0001.jpg", "DCF_0002.JPG"});
    row("filter-in-upper-case", media, {"*.JPG"}, {"DCF_0001.jpg", "DCF_0002.JPG"});
    row("any-of-several-filters", media, {"*.avi", "*.jpg"},
        {"DCF_0001.jpg", "DCF_0002.JPG", "DCF_0003.avi"});
    row("two-filters-that-match-the-same", media, {"*.avi", "DCF_0003*"}, {"DCF_0003.avi"});
    row("filter-without-a-match", media, {"*.wav"}, {});
    row("name-as-filter", media, {"NOTES"}, {"notes"});
    row("star-alone", media, {"*"},
        {"DCF_0001.jpg", "DCF_0002.JPG", "DCF_0003.avi", "DCF_0004.thumb", "notes"});
    row("star-at-the-end", media, {"dcf_0003*"}, {"DCF_0003.avi"});
    row("two-stars", media, {"*0003*"}, {"DCF_0003.avi"});
    row("question-mark", media, {"DCF_000?.avi"}, {"DCF_0003.avi"});
    row("set", media, {"DCF_000[12].*"}, {"DCF_0001.jpg", "DCF_0002.JPG"});
    row("empty-filter", media, {""}, {});
    row("null-filter", media, {QString()}, {});
    row("empty-filter-and-another", media, {"", "*.avi"}, {"DCF_0003.avi"});
    row("invalid-wildcard", media, {"["}, {});
    row("invalid-wildcard-and-another-filter", media, {"[", "*.avi"}, {"DCF_0003.avi"});
    row("head-and-tail-do-not-overlap", {"aba", "aa", "ababa"}, {"aba*aba"}, {});
    row("head-and-tail-touch", {"abaaba"}, {"aba*aba"}, {"abaaba"});
    row("hidden-files", {".a.jpg", "b.jpg", "..c.jpg"}, {}, {"b.jpg"});
    row("hidden-files-with-a-filter", {".jpg", ".a.jpg", "b.jpg"}, {"*.jpg"}, {"b.jpg"});
    row("folders", {"a.jpg/", "b.jpg"}, {"*.jpg"}, {"b.jpg"});
    row("file-in-a-subfolder", {"a/", "a/c.jpg", "b.jpg"}, {"*.jpg"}, {"b.jpg"});
    row("links", {"a.jpg", "b.jpg -> a.jpg", "c.jpg -> none", "d/", "e.jpg -> d"}, {"*.jpg"}, {"a.jpg"});
    row("name-is-not-utf-8", {"a.jpg", "\377.jpg"}, {}, {"a.jpg"});
    row("the-only-name-is-not-utf-8", {"\377.jpg"}, {"*.jpg"}, {});
    row("name-outside-ascii-among-ascii-names", {"a.jpg", "\u00e4.jpg", "z.jpg"}, {"*.jpg"},
        {"a.jpg", "z.jpg", "\u00e4.jpg"});
    row("filter-outside-ascii-ignores-case", {"a.jpg", "\u00e4.jpg"}, {"\u00c4*"}, {"\u00e4.jpg"});
    row("kelvin-sign-for-k", {"a.mkv", "b.m\u212av"}, {"*.mkv"}, {"a.mkv", "b.m\u212av"});
    row("kelvin-sign-for-k-in-the-filter", {"a.mkv", "b.jpg"}, {"*.m\u212av"}, {"a.mkv"});
    row("order-is-by-code-unit", {"B", "a", "\U0001F4F7", "\uff61"}, {}, {"B", "a", "\U0001F4F7", "\uff61"});
    row("kelvin-sign-as-head", {"\u212a1.mkv", "k2.mkv", "x.mkv"}, {"k*"}, {"k2.mkv", "\u212a1.mkv"});
    row("long-s-for-s", {"\u017fa.jpg", "b.jpg", "sc.jpg"}, {"S*"}, {"sc.jpg", "\u017fa.jpg"});
    row("sharp-s-is-not-two-letters", {"a\u00df", "ass"}, {"*ss"}, {"ass"});
    row("i-with-and-without-a-dot-is-not-i", {"a.\u0131", "b.\u0130", "c.i", "d.I"}, {"*.i"}, {"c.i", "d.I"});
    row("composed-and-combining-characters-differ", {"a\u0308.jpg", "\u00e4.jpg"}, {},
        {"a\u0308.jpg", "\u00e4.jpg"});
    row("tail-overlaps-the-head-outside-ascii", {"k\u212a", "k\u212ak"}, {"kk*k"}, {"k\u212ak"});
    row("line-feed-and-name-outside-ascii", {"\u00e4\n.jpg", "\u00e4.jpg\n"}, {"*.jpg"}, {"\u00e4\n.jpg"});
    row("hidden-file-outside-ascii", {".\u00e4.jpg", "\u00e4.jpg"}, {"*.jpg"}, {"\u00e4.jpg"});
    row("byte-order-mark", {"\uFEFF", "\uFEFFa.jpg", "a.jpg"}, {},
        {"a.jpg", QString(QChar(0xFEFF)), QChar(0xFEFF) + QString("a.jpg")});
    row("overlong-form-surrogate-and-too-large", {"a\300\257", "b\355\240\200", "c\364\220\200\200", "d"}, {},
        {"d"});
    row("replacement-character", {"\uFFFD.jpg"}, {}, {"\uFFFD.jpg"});
    row("line-feed-in-the-name", {"a\n.jpg", "b.jpg\n"}, {"*.jpg"}, {"a\n.jpg"});
    row("pattern-characters-in-the-name", {"a[1].jpg", "a+b(.jpg"}, {"a+b(*"}, {"a+b(.jpg"});
    row("backslash-in-the-filter", {"a\\b"}, {"a\\*"}, {"a\\b"});
}

void ListingsTest::files()
{
    QFETCH(Tree, before);
    QFETCH(QStringList, filters);
    QFETCH(QStringList, expected);
    const Storages storages;
    const QString folder = storages.path() + "/folder";
    makeTree(storages.path(), inFolder("folder/", before));
    const Tree all = tree(folder);
    StandardErrorCapture capture;
    QCOMPARE(fileNames(VornFileHandler::getDirectoryContents(folder, filters, QDir::Name)), expected);
    QCOMPARE(fileNames(VornFileHandler::getDirectoryContents(QDir(folder), filters, QDir::Name)), expected);
    QStringList byTime = fileNames(VornFileHandler::getDirectoryContents(folder, filters, OLDEST_FIRST));
    std::sort(byTime.begin(), byTime.end());
    QCOMPARE(byTime, expected);
    QCOMPARE(capture.take(), QByteArray());
    QCOMPARE(tree(folder), all);
}

void ListingsTest::fifoIsNotAFile()
{
    const Storages storages;
    makeTree(storages.path(), {"folder/a.jpg"});
    const QString folder = storages.path() + "/folder";
    QCOMPARE(::mkfifo(QFile::encodeName(folder + "/b.jpg").constData(), 0600), 0);
    StandardErrorCapture capture;
    for (const QDir::SortFlags order : {QDir::SortFlags(QDir::Name), OLDEST_FIRST})
        QCOMPARE(fileNames(VornFileHandler::getDirectoryContents(folder, {}, order)), QStringList{"a.jpg"});
    QCOMPARE(capture.take(), QByteArray());
}

void ListingsTest::missingDirectory_data()
{
    QTest::addColumn<QString>("path"); // in the current directory
    row("missing", "none");
    row("missing-with-its-parent", "none/at/all");
    row("file", "file");
    row("below-a-file", "file/a");
    row("dangling-link", "link");
    row("format-characters", "%s%n%1");
    row("outside-ascii", "\u00e4");
    row("name-too-long", QString(300, 'a'));
}

void ListingsTest::missingDirectory()
{
    QFETCH(QString, path);
    const Storages storages;
    makeTree(storages.path(), {"file", "link -> none"});
    const QString root = QDir(storages.path()).canonicalPath();
    const CurrentDirectory current(root);
    StandardErrorCapture capture;
    for (const QDir::SortFlags order : {QDir::SortFlags(QDir::Name), OLDEST_FIRST}) {
        QCOMPARE(VornFileHandler::getDirectoryContents(path, {}, order), QFileInfoList());
        QCOMPARE(capture.take(), missingDirectoryLine(root + "/" + path));
        QCOMPARE(VornFileHandler::getDirectoryContents(root + "/./" + path + "/", {"*.jpg"}, order),
                 QFileInfoList());
        QCOMPARE(capture.take(), missingDirectoryLine(root + "/" + path));
        QCOMPARE(VornFileHandler::getDirectoryContents(QDir(path), {}, order), QFileInfoList());
        QCOMPARE(capture.take(), missingDirectoryLine(root + "/" + path));
    }
    // The line shows the path as absolutePath() returns it, without all but one of the slashes at the end.
    for (const char *slashes : {"//", "///"}) {
        const QString written = root + "/" + path + slashes;
        QCOMPARE(VornFileHandler::getDirectoryContents(written, {}, QDir::Name), QFileInfoList());
        QCOMPARE(capture.take(), missingDirectoryLine(QDir(written).absolutePath()));
    }
    QCOMPARE(tree(storages.path()), Tree({"file", "link -> none"}));
}

void ListingsTest::nullCharacterInThePath()
{
    const Storages storages;
    StandardErrorCapture capture;
    QCOMPARE(VornFileHandler::getDirectoryContents("/none" + NUL + "at/all", {}, QDir::Name),
             QFileInfoList());
    QCOMPARE(capture.take(), missingDirectoryLine("/none")); // the path ends at the null character
    QCOMPARE(VornFileHandler::getDirectoryContents(NUL + "none", {}, QDir::Name), QFileInfoList());
    QCOMPARE(capture.take(), missingDirectoryLine(QDir::currentPath()));
}

void ListingsTest::emptyPathIsTheCurrentDirectory()
{
    const Storages storages;
    makeTree(storages.path(), {"a.jpg", "b.jpg"});
    const CurrentDirectory current(storages.path());
    StandardErrorCapture capture;
    for (const QDir::SortFlags order : {QDir::SortFlags(QDir::Name), QDir::SortFlags(QDir::Time)}) {
        QCOMPARE(VornFileHandler::getDirectoryContents("", {"a*"}, order).value(0).absoluteFilePath(),
                 QDir(storages.path()).canonicalPath() + "/a.jpg");
        QCOMPARE(VornFileHandler::getDirectoryContents(QString(), {"b*"}, order).value(0).fileName(),
                 QString("b.jpg"));
    }
    QCOMPARE(capture.take(), QByteArray());
}

void ListingsTest::pathsAreThoseOfQDir_data()
{
    QTest::addColumn<QString>("path");
    row("absolute", "%1/folder");
    row("trailing-slash", "%1/folder/");
    row("two-trailing-slashes", "%1/folder//");
    row("dots", "%1/other/../folder/.");
    row("doubled-slashes", "%1//folder");
    row("relative", "folder");
    row("relative-with-dots", "./other/../folder");
    row("link", "link");
    row("current", ".");
    row("empty", "");
    row("root-directory", "/");
    row("colon", "%1/fol:der");
    row("resource", ":/");
    row("resource-that-exists", ":/qt-project.org");
}

void ListingsTest::pathsAreThoseOfQDir()
{
    QFETCH(QString, path);
    const Storages storages;
    makeTree(storages.path(), {"c.jpg", "fol:der/d.jpg", ":/qt-project.org/e.jpg", "folder/a.jpg",
                               "folder/b.jpg", "link -> folder", "other/"});
    const CurrentDirectory current(storages.path());
    path.replace("%1", storages.path());
    StandardErrorCapture capture;
    for (const QDir::SortFlags order : {QDir::SortFlags(QDir::Name), OLDEST_FIRST}) {
        const QFileInfoList expected = literal::files(QDir(path), {}, order);
        const QByteArray expectedText = capture.take();
        const QFileInfoList actual = VornFileHandler::getDirectoryContents(path, {}, order);
        QCOMPARE(capture.take(), expectedText);
        QCOMPARE(paths(actual), paths(expected));
        QCOMPARE(actual, expected);
    }
}

void ListingsTest::searchPathOfTheHost()
{
    const Storages storages;
    makeTree(storages.path(), {"media/folder/a.jpg", "pictures:folder/b.jpg"});
    const CurrentDirectory current(storages.path());
    QDir::setSearchPaths("pictures", {storages.path() + "/media"});
    StandardErrorCapture capture;
    const QStringList byName =
        fileNames(VornFileHandler::getDirectoryContents("pictures:folder", {}, QDir::Name));
    const QStringList byTime =
        fileNames(VornFileHandler::getDirectoryContents("pictures:folder", {}, OLDEST_FIRST));
    QDir::setSearchPaths("pictures", {});
    QCOMPARE(byName, QStringList{"a.jpg"});
    QCOMPARE(byTime, QStringList{"a.jpg"});
    QCOMPARE(capture.take(), QByteArray());
}

void ListingsTest::sortOrder_data()
{
    QTest::addColumn<int>("order");
    const auto row = [](const char *name, QDir::SortFlags flags) { QTest::newRow(name) << int(flags); };
    const auto rows = [&row](const QByteArray &name, QDir::SortFlags key) {
        row(name, key);
        row(name + "-reversed", key | QDir::Reversed);
        row(name + "-ignoring-case", key | QDir::IgnoreCase);
        row(name + "-reversed-ignoring-case", key | QDir::Reversed | QDir::IgnoreCase);
        row(name + "-folders-first", key | QDir::DirsFirst);
        row(name + "-reversed-folders-last", key | QDir::Reversed | QDir::DirsLast);
        row(name + "-reversed-by-locale", key | QDir::Reversed | QDir::LocaleAware);
    };
    rows("name", QDir::Name);
    rows("time", QDir::Time);
    rows("size", QDir::Size);
    rows("type", QDir::Type);
    rows("unsorted", QDir::Unsorted);
    row("no-sort", QDir::NoSort);
}

void ListingsTest::sortOrder()
{
    QFETCH(int, order);
    const QDir::SortFlags flags = QDir::SortFlags(order);
    const Tree ascii = {"B.jpg at 60",       "a.jpg at 63 = x", "a.avi at 62 = xx",
                        "A.jpg at 61 = xxx", "c.png at 60",     "b at 63 = x"};
    for (const Tree &files : {ascii, ascii + Tree{"\u00e4.jpg at 62 = xx"}}) {
        const Storages storages;
        const QString folder = storages.path() + "/folder";
        makeTree(folder, files);
        StandardErrorCapture capture;
        const QStringList expected = paths(literal::files(QDir(folder), {}, flags));
        QCOMPARE(paths(VornFileHandler::getDirectoryContents(folder, {}, flags)), expected);
        QCOMPARE(paths(VornFileHandler::getDirectoryContents(QDir(folder), {}, flags)), expected);
        QCOMPARE(capture.take(), QByteArray());
    }
}

void ListingsTest::ownNameFilters_data()
{
    QTest::addColumn<QStringList>("own");
    QTest::addColumn<QStringList>("given");
    QTest::addColumn<QStringList>("expected");
    const auto row = [](const char *name, const QStringList &own, const QStringList &given,
                        const QStringList &expected) { QTest::newRow(name) << own << given << expected; };
    row("kept-if-no-filter-is-passed", {"*.avi"}, {}, {"b.avi"});
    row("replaced-if-a-filter-is-passed", {"*.avi"}, {"*.jpg"}, {"a.jpg"});
    row("own-filter-is-an-invalid-wildcard", {"["}, {}, {});
    row("one-own-filter-is-an-invalid-wildcard", {"[", "*.png"}, {}, {"c.png"});
    row("invalid-own-filter-is-replaced", {"["}, {"*.png"}, {"c.png"});
    row("no-own-filter", {}, {}, {"a.jpg", "b.avi", "c.png"});
    row("no-own-filter-and-one-is-passed", {}, {"*.png"}, {"c.png"});
}

void ListingsTest::ownNameFilters()
{
    QFETCH(QStringList, own);
    QFETCH(QStringList, given);
    QFETCH(QStringList, expected);
    const Storages storages;
    makeTree(storages.path(), {"folder/a.jpg", "folder/b.avi", "folder/c.png"});
    QDir directory(storages.path() + "/folder");
    directory.setNameFilters(own);
    StandardErrorCapture capture;
    QCOMPARE(fileNames(VornFileHandler::getDirectoryContents(directory, given, QDir::Name)), expected);
    QStringList byTime = fileNames(VornFileHandler::getDirectoryContents(directory, given, OLDEST_FIRST));
    std::sort(byTime.begin(), byTime.end());
    QCOMPARE(byTime, expected);
    QCOMPARE(capture.take(), QByteArray());
}

void ListingsTest::ownFilterAndOrderAreReplaced()
{
    const Storages storages;
    makeTree(storages.path(), {"folder/.hidden", "folder/a", "folder/b", "folder/link -> a", "folder/sub/"});
    QDir directory(storages.path() + "/folder", QString(), QDir::Name | QDir::Reversed,
                   QDir::AllEntries | QDir::Hidden | QDir::System);
    StandardErrorCapture capture;
    QCOMPARE(fileNames(VornFileHandler::getDirectoryContents(directory, {}, QDir::Name)),
             QStringList({"a", "b"}));
    directory.entryInfoList(); // cached in the object
    writeFile(storages.path() + "/folder/c");
    QCOMPARE(fileNames(VornFileHandler::getDirectoryContents(directory, {}, QDir::Name)),
             QStringList({"a", "b", "c"}));
    QCOMPARE(capture.take(), QByteArray());
}

void ListingsTest::directoryOfTheCallerIsUnchanged()
{
    const Storages storages;
    makeTree(storages.path(), {"folder/a"});
    const QDir directory(storages.path() + "/folder", "*.x", QDir::Size, QDir::Dirs);
    StandardErrorCapture capture;
    VornFileHandler::getDirectoryContents(directory, {"*.y"}, OLDEST_FIRST);
    VornFileHandler::getDirectoryContents(directory, {"*.y"}, QDir::Name);
    QCOMPARE(capture.take(), QByteArray());
    QCOMPARE(directory, QDir(storages.path() + "/folder", "*.x", QDir::Size, QDir::Dirs));
    QCOMPARE(directory.nameFilters(), QStringList{"*.x"});
    QCOMPARE(directory.sorting(), QDir::SortFlags(QDir::Size));
    QCOMPARE(directory.filter(), QDir::Filters(QDir::Dirs));
}

void ListingsTest::folders_data()
{
    QTest::addColumn<QString>("suffix");
    QTest::addColumn<Tree>("before");
    QTest::addColumn<QStringList>("dcim");
    QTest::addColumn<QStringList>("nonDcim");
    QTest::addColumn<QStringList>("all");
    QTest::addColumn<bool>("creates"); // only the selection of numbered folders creates folder 100
    const auto row = [](const char *name, const QString &suffix, const Tree &before, const QStringList &dcim,
                        const QStringList &nonDcim, const QStringList &all, bool creates = false) {
        QTest::newRow(name) << suffix << before << dcim << nonDcim << all << creates;
    };
    row("numbered-and-other-folders", "ABC", {"100ABC/", "MISC/"}, {"100ABC"}, {"MISC"}, {"100ABC", "MISC"});
    row("selections-overlap", "ABC", {"1000ABC/", "100ABC/", "100abc/", "12ABC/", "ABC/"},
        {"1000ABC", "100ABC", "100abc", "12ABC", "ABC"}, {"1000ABC", "100abc", "12ABC", "ABC"},
        {"1000ABC", "100ABC", "100abc", "12ABC", "ABC"});
    row("empty-location", "ABC", {}, {"100ABC"}, {}, {}, true);
    row("numbered-only", "ABC", {"100ABC/", "999ABC/"}, {"100ABC", "999ABC"}, {}, {"100ABC", "999ABC"});
    row("other-only", "ABC", {"A/", "B/"}, {"100ABC"}, {"A", "B"}, {"A", "B"}, true);
    row("text-before-the-number-and-after-the-suffix", "ABC", {"100ABCD/", "X100ABC/"}, {"X100ABC"},
        {"100ABCD", "X100ABC"}, {"100ABCD", "X100ABC"});
    row("empty-suffix", "", {"100/", "1000/", "12/", "MISC/"}, {".", "..", "100", "1000", "12", "MISC"},
        {"1000", "12", "MISC"}, {"100", "1000", "12", "MISC"});
    row("null-suffix", QString(), {"100/"}, {".", "..", "100"}, {}, {"100"});
    row("hidden-folders", "ABC", {".100ABC/", "100ABC/"}, {"100ABC"}, {}, {"100ABC"});
    row("links", "ABC", {"100ABC/", "101ABC -> 100ABC", "MISC -> 100ABC"}, {"100ABC"}, {}, {"100ABC"});
    row("files", "ABC", {"100ABC/", "101ABC", "MISC"}, {"100ABC"}, {}, {"100ABC"});
    row("subfolders", "ABC", {"100ABC/", "100ABC/MISC/", "100ABC/101ABC/"}, {"100ABC"}, {}, {"100ABC"});
    row("order-is-by-code-unit", "ABC", {"a/", "B/", "\uff61/", "\U0001F4F7/"}, {"100ABC"},
        {"B", "a", "\U0001F4F7", "\uff61"}, {"B", "a", "\U0001F4F7", "\uff61"}, true);
    row("name-is-not-utf-8", "ABC", {"100ABC/", "\377/"}, {"100ABC"}, {}, {"100ABC"});
    row("line-feed-after-the-suffix", "ABC", {"100ABC/", "101ABC\n/"}, {"100ABC"}, {},
        {"100ABC", "101ABC\n"});
    row("digits-outside-ascii", "ABC", {"\u0661\u0662\u0663ABC/"}, {"\u0661\u0662\u0663ABC"},
        {"\u0661\u0662\u0663ABC"}, {"\u0661\u0662\u0663ABC"});
    row("dot-in-the-suffix-matches-any-character", "A.C", {"100A.C/", "101ABC/"}, {"100A.C"}, {},
        {"100A.C", "101ABC"});
    row("plus-in-the-suffix-repeats", "A+", {"100A+/", "101AAA/"}, {"100A+"}, {"100A+"}, {"100A+", "101AAA"});
    row("alternative-in-the-suffix", "A|B", {"100A/", "100A|B/", "MB/", "M/"}, {"100A|B"}, {"M"},
        {"100A", "100A|B", "M", "MB"});
    row("set-in-the-suffix", "A[BC]", {"100AB/", "101AC/", "102AD/"}, {"100AB", "101AC"}, {"102AD"},
        {"100AB", "101AC", "102AD"});
    row("star-in-the-suffix", "A*", {"100AXX/", "101AAA/", "102/"}, {"100AXX", "101AAA"}, {"100AXX"},
        {"100AXX", "101AAA", "102"});
    row("suffix-is-an-invalid-pattern", "A(", {"100A(/", "MISC/"}, {"100A("}, {"100A(", "MISC"},
        {"100A(", "MISC"});
    row("suffix-is-an-invalid-wildcard", "A[", {"100A[/", "MISC/"}, {}, {"100A[", "MISC"}, {"100A[", "MISC"});
    row("place-marker-in-the-suffix", "%1", {"100%1/", "MISC/"}, {"100%1"}, {"MISC"}, {"100%1", "MISC"});
    row("line-feed-in-the-suffix", "A\n", {"100A\n/", "101A/"}, {"100A\n"}, {"101A"}, {"100A\n", "101A"});
    row("suffix-outside-ascii", "\u00c4", {"100\u00c4/", "101\u00e4/"}, {"100\u00c4", "101\u00e4"},
        {"101\u00e4"}, {"100\u00c4", "101\u00e4"});
    row("suffix-outside-the-basic-plane", "\U0001F4F7", {"100\U0001F4F7/", "101/"}, {"100\U0001F4F7"},
        {"101"}, {"100\U0001F4F7", "101"});
    row("null-character-in-the-suffix", "A" + NUL, {"100A/"}, {}, {"100A"}, {"100A"});
}

void ListingsTest::folders()
{
    QFETCH(QString, suffix);
    QFETCH(Tree, before);
    QFETCH(QStringList, dcim);
    QFETCH(QStringList, nonDcim);
    QFETCH(QStringList, all);
    QFETCH(bool, creates);
    const Storages storages(suffix);
    QVERIFY(QDir().mkpath(storages.sd()));
    makeTree(storages.sd(), before);
    Tree expected = tree(storages.sd());
    StandardErrorCapture capture;
    for (const int filter : {0, 2, 17, -1, 15, 32, 1000})
        QCOMPARE(fileNames(VornFileHandler::getFolders(STORAGE_SD, anyFilter(filter))), all);
    QCOMPARE(fileNames(VornFileHandler::getFolders(STORAGE_SD, DIRECTORY_FILTER_NON_DCIM)), nonDcim);
    QCOMPARE(tree(storages.sd()), expected);
    QCOMPARE(fileNames(VornFileHandler::getFolders(STORAGE_SD, DIRECTORY_FILTER_DCIM)), dcim);
    QCOMPARE(capture.take(), QByteArray());
    if (creates)
        expected.append(QFile::encodeName("100" + suffix + "/"));
    std::sort(expected.begin(), expected.end());
    QCOMPARE(tree(storages.sd()), expected);
}

void ListingsTest::foldersOfMissingLocation_data()
{
    QTest::addColumn<int>("filter");
    QTest::addColumn<Tree>("before");
    QTest::addColumn<QStringList>("listed");
    QTest::addColumn<Tree>("after");
    const Tree location = {"sd/", "sd/DCIM/"};
    const Tree file = {"sd/", "sd/DCIM"};
    const Tree link = {"sd/", "sd/DCIM -> none"};
    const auto row = [](const char *name, int filter, const Tree &before, const QStringList &listed,
                        const Tree &after) { QTest::newRow(name) << filter << before << listed << after; };
    row("numbered-folders", 1, {}, {"100ABC"}, location + Tree{"sd/DCIM/100ABC/"});
    row("other-folders", 16, {}, {}, location);
    row("all-folders", 0, {}, {}, location);
    row("file-in-its-place-numbered-folders", 1, file, {}, file);
    row("file-in-its-place-other-folders", 16, file, {}, file);
    row("file-in-its-place-all-folders", 0, file, {}, file);
    row("dangling-link-numbered-folders", 1, link, {}, link);
    row("dangling-link-other-folders", 16, link, {}, link);
    row("dangling-link-all-folders", 17, link, {}, link);
}

void ListingsTest::foldersOfMissingLocation()
{
    QFETCH(int, filter);
    QFETCH(Tree, before);
    QFETCH(QStringList, listed);
    QFETCH(Tree, after);
    for (const int form : {0, 1, 2}) {
        const Storages storages;
        makeTree(storages.path(), before);
        StandardErrorCapture capture;
        if (form == 0)
            QCOMPARE(fileNames(VornFileHandler::getFolders(STORAGE_SD, anyFilter(filter))), listed);
        if (form == 1)
            QCOMPARE(VornFileHandler::getDirectoryContents(STORAGE_SD, anyFilter(filter)), QFileInfoList());
        if (form == 2)
            QCOMPARE(VornFileHandler::getDirectoryContents(STORAGE_SD, {"*.jpg"}, anyFilter(filter)),
                     QFileInfoList());
        QCOMPARE(capture.take(), missingLocationLine(storages.sd()));
        QCOMPARE(tree(storages.path()), after);
    }
}

void ListingsTest::locationIsALink()
{
    const Storages storages;
    makeTree(storages.path(), {"real/100ABC/a.jpg", "real/MISC/b.jpg", "sd/DCIM -> ../real"});
    StandardErrorCapture capture;
    QCOMPARE(paths(VornFileHandler::getFolders(STORAGE_SD, anyFilter(0))),
             QStringList({storages.sd() + "/100ABC", storages.sd() + "/MISC"}));
    QCOMPARE(paths(VornFileHandler::getDirectoryContents(STORAGE_SD, anyFilter(0))),
             QStringList({storages.sd() + "/100ABC/a.jpg", storages.sd() + "/MISC/b.jpg"}));
    QCOMPARE(capture.take(), QByteArray());
}

void ListingsTest::storageFiles_data()
{
    QTest::addColumn<QString>("suffix");
    QTest::addColumn<int>("filter");
    QTest::addColumn<QStringList>("nameFilters");
    QTest::addColumn<QStringList>("expected"); // below the location
    const auto row = [](const char *name, const QString &suffix, int filter, const QStringList &nameFilters,
                        const QStringList &expected) {
        QTest::newRow(name) << suffix << filter << nameFilters << expected;
    };
    row("numbered-folders", "ABC", 1, {}, {"/100ABC/b.jpg", "/100ABC/a.JPG", "/101ABC/c.avi"});
    row("other-folders", "ABC", 16, {}, {"/200/e.jpg", "/MISC/d.jpg"});
    row("all-folders", "ABC", 0, {},
        {"/100ABC/b.jpg", "/100ABC/a.JPG", "/101ABC/c.avi", "/200/e.jpg", "/MISC/d.jpg"});
    row("numbered-folders-by-name", "ABC", 1, {"*.jpg"}, {"/100ABC/b.jpg", "/100ABC/a.JPG"});
    row("other-folders-by-name", "ABC", 16, {"d*"}, {"/MISC/d.jpg"});
    row("all-folders-by-name", "ABC", 17, {"*.avi", "e.*"}, {"/101ABC/c.avi", "/200/e.jpg"});
    row("filter-without-a-match", "ABC", 0, {"*.wav"}, {});
    row("invalid-wildcard", "ABC", 0, {"["}, {});
    row("empty-suffix-and-other-folders", "", 16, {},
        {"/100ABC/b.jpg", "/100ABC/a.JPG", "/101ABC/c.avi", "/MISC/d.jpg"});
}

void ListingsTest::storageFiles()
{
    QFETCH(QString, suffix);
    QFETCH(int, filter);
    QFETCH(QStringList, nameFilters);
    QFETCH(QStringList, expected);
    const Storages storages(suffix);
    makeTree(storages.sd(), {"100ABC/.hidden.jpg", "100ABC/a.JPG at 2000", "100ABC/b.jpg at 2000",
                             "100ABC/link.jpg -> a.JPG", "100ABC/sub/deep.jpg", "101ABC/c.avi at 2000",
                             "200/e.jpg", "MISC/d.jpg at 1000", "loose.jpg"});
    for (QString &path : expected)
        path.prepend(storages.sd());
    const Tree before = tree(storages.path());
    StandardErrorCapture capture;
    QCOMPARE(paths(VornFileHandler::getDirectoryContents(STORAGE_SD, nameFilters, anyFilter(filter))),
             expected);
    if (nameFilters.isEmpty())
        QCOMPARE(paths(VornFileHandler::getDirectoryContents(STORAGE_SD, anyFilter(filter))), expected);
    QCOMPARE(capture.take(), QByteArray());
    QCOMPARE(tree(storages.path()), before);
}

void ListingsTest::emptySuffixIncludesTheParentDirectory()
{
    const Storages storages("");
    makeTree(storages.path(), {"sd/DCIM/100/a.jpg", "sd/DCIM/loose.jpg", "sd/beside.jpg", "sd/other/b.jpg"});
    StandardErrorCapture capture;
    const QFileInfoList files = VornFileHandler::getDirectoryContents(STORAGE_SD, DIRECTORY_FILTER_DCIM);
    QCOMPARE(fileNames(files), QStringList({"loose.jpg", "beside.jpg", "a.jpg"}));
    QCOMPARE(paths(files), paths(literal::files(STORAGE_SD, {}, DIRECTORY_FILTER_DCIM)));
    QCOMPARE(capture.take(), QByteArray());
}

void ListingsTest::oldestFirstInEachFolder()
{
    const Storages storages;
    makeTree(storages.sd(), {"100ABC/a.jpg at 9000", "100ABC/b.jpg at 8000", "100ABC/c.jpg at 8000",
                             "100ABC/d.jpg at 7000", "101ABC/e.jpg at 2000", "101ABC/f.jpg at 1000"});
    const QStringList expected = {"d.jpg", "c.jpg", "b.jpg", "a.jpg", "f.jpg", "e.jpg"};
    StandardErrorCapture capture;
    QCOMPARE(fileNames(VornFileHandler::getDirectoryContents(STORAGE_SD, DIRECTORY_FILTER_DCIM)), expected);
    QCOMPARE(fileNames(VornFileHandler::getDirectoryContents(STORAGE_SD, anyFilter(0))), expected);
    QCOMPARE(capture.take(), QByteArray());
}

void ListingsTest::storageDevicesAreSeparate()
{
    const Storages storages;
    for (const eStorageType storage : {STORAGE_MMC, STORAGE_SD, STORAGE_USB})
        makeTree(storages.location(storage), {"100ABC/" + QByteArray::number(storage) + ".jpg"});
    StandardErrorCapture capture;
    for (const eStorageType storage : {STORAGE_MMC, STORAGE_SD, STORAGE_USB}) {
        const QStringList folder = {storages.location(storage) + "/100ABC"};
        QCOMPARE(paths(VornFileHandler::getFolders(storage, DIRECTORY_FILTER_DCIM)), folder);
        QCOMPARE(paths(VornFileHandler::getFolders(storage, anyFilter(0))), folder);
        QCOMPARE(paths(VornFileHandler::getDirectoryContents(storage, anyFilter(0))),
                 QStringList{folder.first() + "/" + QString::number(storage) + ".jpg"});
    }
    QCOMPARE(capture.take(), QByteArray());
}

void ListingsTest::relativeLocationFollowsTheCurrentDirectory()
{
    const Storages storages;
    makeTree(storages.path(), {"one/x/100ABC/a.jpg", "two/x/MISC/b.jpg"});
    const QString root = QDir(storages.path()).canonicalPath();
    StandardErrorCapture capture;
    VornFileHandler::mSDLocation = QDir("x");
    {
        const CurrentDirectory current(root + "/one");
        QCOMPARE(paths(VornFileHandler::getDirectoryContents(STORAGE_SD, anyFilter(0))),
                 QStringList{root + "/one/x/100ABC/a.jpg"});
    }
    const CurrentDirectory current(root + "/two");
    QCOMPARE(paths(VornFileHandler::getDirectoryContents(STORAGE_SD, anyFilter(0))),
             QStringList{root + "/two/x/MISC/b.jpg"});
    QCOMPARE(capture.take(), QByteArray());
}

void ListingsTest::unsupportedStorageUsesTmp()
{
    const Storages storages;
    StandardErrorCapture capture;
    const auto result = withEmptyTmp([] {
        makeTree("/tmp", {"MISC/a.jpg", "loose.jpg"});
        QStringList all = paths(VornFileHandler::getFolders(anyStorage(3), anyFilter(0)));
        all += paths(VornFileHandler::getDirectoryContents(anyStorage(-1), DIRECTORY_FILTER_NON_DCIM));
        all += paths(
            VornFileHandler::getDirectoryContents(anyStorage(1000), {"*.avi"}, DIRECTORY_FILTER_NON_DCIM));
        all += paths(VornFileHandler::getFolders(anyStorage(3), DIRECTORY_FILTER_DCIM));
        return all.join(' ').toUtf8();
    });
    if (!result)
        QSKIP("mounting is not permitted");
    QCOMPARE(*result, QByteArray("/tmp/MISC /tmp/MISC/a.jpg /tmp/100ABC"));
    QCOMPARE(capture.take(), QByteArray());
}

void ListingsTest::readOnlyFileSystem()
{
    const Storages storages;
    makeTree(storages.path(), {"mmc/DCIM/MISC/a.jpg", "sd/"});
    const Tree before = tree(storages.path());
    StandardErrorCapture capture;
    const auto result = onReadOnlyFileSystem(storages.path(), [] {
        QStringList all =
            fileNames(VornFileHandler::getDirectoryContents(STORAGE_MMC, DIRECTORY_FILTER_NON_DCIM));
        all += fileNames(VornFileHandler::getDirectoryContents(STORAGE_MMC, DIRECTORY_FILTER_DCIM));
        all += fileNames(VornFileHandler::getFolders(STORAGE_SD, DIRECTORY_FILTER_NON_DCIM));
        return all.join(' ').toUtf8();
    });
    if (!result)
        QSKIP("mounting is not permitted");
    QCOMPARE(*result, QByteArray("a.jpg"));
    QCOMPARE(capture.take(), missingLocationLine(storages.sd()));
    QCOMPARE(tree(storages.path()), before);
}

namespace {

QByteArray randomName(QRandomGenerator &random)
{
    static const QByteArrayList HEADS = {"DCF_0001", "DCF_0002", "dcf_0001", "a",   "A",
                                         "\u00e4",   "\377",     ".a",       "a b", "k\n"};
    static const QByteArrayList TAILS = {".jpg", ".JPG", ".mkv", ".m\u212av", ".\u017fpg",
                                         "",     ".wav", "[1]",  "\uff61",    "\U0001F4F7"};
    return oneOf(random, HEADS) + oneOf(random, TAILS);
}

QStringList randomFilters(QRandomGenerator &random)
{
    static const QStringList FILTERS = {"*.jpg", "*.mkv", "DCF_*",      "a*",       "*",     "*k*",
                                        "?",     "*[1]",  "[",          "",         "*.JPG", "A*.jpg",
                                        "*\n*",  "k\n*",  "*.\u017fpg", "DCF_*.jpg"};
    QStringList filters;
    for (int i = random.bounded(4); i > 0; --i)
        filters.append(oneOf(random, FILTERS));
    return filters;
}

} // namespace

void ListingsTest::sameAsQDirOnRandomFolders()
{
    constexpr quint32 SEED = 20250228;
    qInfo("seed %u", SEED);
    QRandomGenerator random(SEED);
    const QList<int> orders = {0, 1, 2, 3, 4, 8, 9, 10, 16, 24, 25, 128, 136};
    for (int round = 0; round < 60; ++round) {
        const Storages storages;
        const QString folder = storages.path() + "/folder";
        QMap<QByteArray, QByteArray> entries; // by the name, because a name is that of a file or a folder
        for (int i = random.bounded(10); i > 0; --i) {
            const QByteArray name = randomName(random);
            entries[name] = random.bounded(6) == 0 ? name + "/" : name;
        }
        makeTree(storages.path(), inFolder("folder/", entries.values()));
        StandardErrorCapture capture;
        for (int i = 0; i < 20; ++i) {
            const QStringList filters = randomFilters(random);
            const QDir::SortFlags order = QDir::SortFlags(oneOf(random, orders));
            const QStringList expected = paths(literal::files(QDir(folder), filters, order));
            QCOMPARE(paths(VornFileHandler::getDirectoryContents(folder, filters, order)), expected);
        }
        QCOMPARE(capture.take(), QByteArray());
    }
}

void ListingsTest::sameAsQDirOnRandomStorages()
{
    constexpr quint32 SEED = 20250301;
    qInfo("seed %u", SEED);
    QRandomGenerator random(SEED);
    const QStringList suffixes = {"ABC", "", "A*", "A[B]", "A[", "A(", "A.C", "A|B", "k", "\u00c4", "A\n"};
    const QByteArrayList folders = {"100", "101", "1000", "12", "X", "", "200", "\u00e4", "100\u0661"};
    for (int round = 0; round < 60; ++round) {
        const QString suffix = oneOf(random, suffixes);
        const Storages storages(suffix);
        Tree before = {"MISC/"};
        for (int i = random.bounded(10); i > 0; --i) {
            const QByteArray end = random.bounded(3) == 0 ? QByteArray("ABC") : suffix.toUtf8();
            before.append("F" + QByteArray::number(i) + "/");
            before.append(oneOf(random, folders) + end + "/" + randomName(random));
        }
        makeTree(storages.sd(), before);
        for (const auto filter : {DIRECTORY_FILTER_NON_DCIM, anyFilter(0), DIRECTORY_FILTER_DCIM}) {
            const QStringList filters = randomFilters(random);
            StandardErrorCapture capture;
            // The library first, because it must create folder 100 if that is missing.
            const QStringList names = fileNames(VornFileHandler::getFolders(STORAGE_SD, filter));
            const QStringList list =
                paths(VornFileHandler::getDirectoryContents(STORAGE_SD, filters, filter));
            QCOMPARE(capture.take(), QByteArray());
            QCOMPARE(names, fileNames(literal::folders(STORAGE_SD, filter)));
            QCOMPARE(list, paths(literal::files(STORAGE_SD, filters, filter)));
        }
    }
}

namespace {

/// A file whose name is mostly not plain ASCII, with one of four times.
QByteArray randomForeignFile(QRandomGenerator &random)
{
    static const QByteArrayList HEADS = {"", "", "DCF_", "DCF_000", "d\u0107f_", "k", "\u212a", ".\u00e4"};
    // Kelvin sign, long s, i without and with a dot, sharp s
    static const QByteArrayList CASES = {"\u212a", "k", "K", "\u017f", "s",      "S", "\u0131",
                                         "\u0130", "i", "I", "\u00df", "\u1e9e", "ss"};
    // composed and combining, Angstrom sign, micro sign, sigma, dz with caron, full width, Deseret
    static const QByteArrayList LETTERS = {"\u00e4", "\u00c4", "a\u0308",    "\u0308",    "\u00e5",
                                           "\u212b", "\u00b5", "\u03bc",     "\u039c",    "\u03c3",
                                           "\u03c2", "\u03a3", "\u01c6",     "\u01c5",    "\u01c4",
                                           "\uff4b", "\uff2b", "\U00010400", "\U00010428"};
    static const QByteArrayList OTHERS = {"\uFEFF", "\uFFFD",     "\uffff", "\u200d", "\u2028",
                                          "\uff61", "\U0001F4F7", "\u0661", "1",      "9",
                                          "\n",     "[",          "\\"};
    static const QByteArrayList INVALID = {"\377",         "\303",     "\244",
                                           "\355\240\200", "\300\257", "\364\220\200\200"};
    static const QByteArrayList PIECES = CASES + CASES + LETTERS + OTHERS + INVALID;
    static const QByteArrayList TAILS = {".jpg", ".JPG",      ".mkv",   ".m\u212av",
                                         ".avi", ".av\u0131", ".thumb", ""};
    QByteArray name = oneOf(random, HEADS);
    for (int i = 1 + random.bounded(3); i > 0; --i)
        name += oneOf(random, PIECES);
    return name + oneOf(random, TAILS) + " at " + QByteArray::number(1700000000 + random.bounded(4));
}

QStringList filtersForForeignFiles(QRandomGenerator &random)
{
    static const QStringList FILTERS = {
        "*.jpg",   "*.MKV",     "*.mkv", "*k*", "k*",         "K*",      "*S", "s*",     "*i",  "*ss", "a*",
        "DCF_*.*", "DCF_*.avi", "*[",    "*1",  "*.m\u212av", "\u00c4*", "*",  "d*.jpg", "?.*", "*\\*"};
    QStringList filters;
    for (int i = random.bounded(3); i > 0; --i)
        filters.append(oneOf(random, FILTERS));
    return filters;
}

} // namespace

void ListingsTest::sameAsQDirOnNamesOutsideAscii()
{
    constexpr quint32 SEED = 20250302;
    qInfo("seed %u", SEED);
    QRandomGenerator random(SEED);
    for (int round = 0; round < 100; ++round) {
        const Storages storages;
        Tree files;
        for (int i = random.bounded(30); i > 0; --i)
            files.append(random.bounded(4) == 0 ? "DCF_" + QByteArray::number(1000 + i) + ".jpg at 1700000001"
                                                : randomForeignFile(random));
        makeTree(storages.sd(), inFolder("100ABC/", files));
        const QString folder = storages.sd() + "/100ABC";
        StandardErrorCapture capture;
        for (int i = 0; i < 10; ++i) {
            const QStringList filters = filtersForForeignFiles(random);
            for (const QDir::SortFlags order : {OLDEST_FIRST, QDir::SortFlags(QDir::Name)}) {
                QCOMPARE(paths(VornFileHandler::getDirectoryContents(folder, filters, order)),
                         paths(literal::files(QDir(folder), filters, order)));
            }
        }
        QCOMPARE(capture.take(), QByteArray());
        const QByteArray expected = literal::report(STORAGE_SD);
        const QByteArray expectedText = capture.take();
        QCOMPARE(literal::libraryReport(STORAGE_SD), expected);
        QCOMPARE(capture.take(), expectedText);
    }
}

void ListingsTest::sameAsQDirInOtherEncodings_data()
{
    QTest::addColumn<QByteArray>("encoding");
    for (const char *encoding : {"ISO-8859-1", "US-ASCII", "Big5", "EUC-JP", "Shift_JIS"})
        QTest::newRow(encoding) << QByteArray(encoding);
}

void ListingsTest::sameAsQDirInOtherEncodings()
{
    QFETCH(QByteArray, encoding);
    QTextCodec *const codec = QTextCodec::codecForName(encoding);
    if (!codec)
        QSKIP("not supported by this Qt");
    QRandomGenerator random(20250303);
    const Storages storages;
    Tree files = {"folder/a.jpg"};
    for (int i = 0; i < 200; ++i)
        files.append("folder/" + randomForeignFile(random));
    makeTree(storages.path(), files);
    const QString folder = storages.path() + "/folder";
    QTextCodec *const previous = QTextCodec::codecForLocale();
    QTextCodec::setCodecForLocale(codec);
    const QStringList expected = paths(literal::files(QDir(folder), {"*.jpg"}, OLDEST_FIRST));
    const QStringList actual = paths(VornFileHandler::getDirectoryContents(folder, {"*.jpg"}, OLDEST_FIRST));
    QTextCodec::setCodecForLocale(previous);
    QCOMPARE(actual, expected);
}

QTEST_GUILESS_MAIN(ListingsTest)
#include "tst_listings.moc"

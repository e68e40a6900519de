// SPDX-License-Identifier: MIT
#include "reference.h"
#include "testsupport.h"

#include <QTextCodec>
#include <QtTest>

#include <type_traits>

#include <sys/stat.h>

using namespace VORN_FILE_HANDLER;

static_assert(DIRECTORY_FILTER_DCIM == 1 && DIRECTORY_FILTER_NON_DCIM == 16);
static_assert(std::is_enum_v<eDIRECTORY_FILTER> && std::is_convertible_v<eDIRECTORY_FILTER, int>);

namespace {

using Files = QList<QFileInfo>;
using SortOrder = QFlags<QDir::SortFlag>;

// A function pointer takes a function of exactly its own type.
constexpr Files (*OF_DIRECTORY)(QDir, QStringList, SortOrder) = &VornFileHandler::getDirectoryContents;
constexpr Files (*OF_PATH)(QString, QStringList, SortOrder) = &VornFileHandler::getDirectoryContents;
constexpr Files (*FOLDERS)(eStorageType, eDIRECTORY_FILTER) = &VornFileHandler::getFolders;
constexpr Files (*OF_STORAGE_BY_NAME)(eStorageType, QStringList,
                                      eDIRECTORY_FILTER) = &VornFileHandler::getDirectoryContents;
constexpr Files (*OF_STORAGE)(eStorageType, eDIRECTORY_FILTER) = &VornFileHandler::getDirectoryContents;

constexpr QDir::SortFlags OLDEST_FIRST = QDir::Time | QDir::Reversed;
const QString ZERO_BYTE(1, QChar(QChar::Null));

eDIRECTORY_FILTER anyFilter(int value)
{
    return static_cast<eDIRECTORY_FILTER>(value);
}

QByteArray missingDirectory(const QString &path)
{
    return diagnosticLine("directory " + path.toUtf8() + " doesn't exist");
}

QByteArray missingLocation(const QString &path)
{
    return diagnosticLine("root dir " + path.toUtf8() + " doesn't exist. Create it");
}

QString utf8(const char *text)
{
    return QString::fromUtf8(text);
}

QStringList paths(const Files &files)
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
    void initTestCase();
    void files_data();
    void files();
    void fifoIsNoFile();
    void missingDirectory_data();
    void missingDirectory();
    void zeroByteInThePath();
    void emptyPathIsTheCurrentDirectory();
    void pathsAreThoseOfQDir_data();
    void pathsAreThoseOfQDir();
    void searchPathOfTheHost();
    void sortOrder_data();
    void sortOrder();
    void ownNameFilters_data();
    void ownNameFilters();
    void ownFilterAndOrderAreReplaced();
    void directoryOfTheCallerStaysAsItIs();
    void folders_data();
    void folders();
    void foldersOfMissingLocation_data();
    void foldersOfMissingLocation();
    void foldersBelowLinkAsLocation();
    void storageFiles_data();
    void storageFiles();
    void storageFilesWithTheParentDirectory();
    void oldestFirstInEachFolder();
    void eachStorageIsItsOwn();
    void relativeLocationFollowsTheCurrentDirectory();
    void unsupportedStorageListsTmp();
    void readOnlyMedium();
    void sameAsQDirOnRandomFolders();
    void sameAsQDirOnRandomStorages();
};

void ListingsTest::initTestCase()
{
    QTextCodec::setCodecForLocale(QTextCodec::codecForName("UTF-8")); // of names, whatever the locale
}

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
    row("no-filter-takes-all", media, {},
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
    row("empty-text-as-filter", media, {""}, {});
    row("null-text-as-filter", media, {QString()}, {});
    row("empty-text-beside-a-filter", media, {"", "*.avi"}, {"DCF_0003.avi"});
    row("filter-that-is-no-wildcard", media, {"["}, {});
    row("filter-that-is-no-wildcard-beside-a-filter", media, {"[", "*.avi"}, {"DCF_0003.avi"});
    row("head-and-tail-may-not-overlap", {"aba", "aa", "ababa"}, {"aba*aba"}, {});
    row("head-and-tail-touch", {"abaaba"}, {"aba*aba"}, {"abaaba"});
    row("hidden-files", {".a.jpg", "b.jpg", "..c.jpg"}, {}, {"b.jpg"});
    row("hidden-files-with-a-filter", {".jpg", ".a.jpg", "b.jpg"}, {"*.jpg"}, {"b.jpg"});
    row("folders", {"a.jpg/", "b.jpg"}, {"*.jpg"}, {"b.jpg"});
    row("files-further-down", {"a/", "a/c.jpg", "b.jpg"}, {"*.jpg"}, {"b.jpg"});
    row("links", {"a.jpg", "b.jpg -> a.jpg", "c.jpg -> none", "d/", "e.jpg -> d"}, {"*.jpg"}, {"a.jpg"});
    row("names-that-are-no-utf-8", {"a.jpg", "\xff.jpg"}, {}, {"a.jpg"});
    row("only-names-that-are-no-utf-8", {"\xff.jpg"}, {"*.jpg"}, {});
    row("name-beyond-ascii-among-plain-ones", {"a.jpg", "\u00e4.jpg", "z.jpg"}, {"*.jpg"},
        {"a.jpg", "z.jpg", utf8("\u00e4.jpg")});
    row("filter-beyond-ascii-ignores-case", {"a.jpg", "\u00e4.jpg"}, {utf8("\u00c4*")}, {utf8("\u00e4.jpg")});
    row("kelvin-sign-for-k", {"a.mkv", "b.m\u212av"}, {"*.mkv"}, {"a.mkv", utf8("b.m\u212av")});
    row("order-is-by-code-unit", {"B", "a", "\U0001F4F7", "\uff61"}, {},
        {"B", "a", utf8("\U0001F4F7"), utf8("\uff61")});
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
    QVERIFY(QDir().mkpath(folder));
    makeTree(folder, before);
    const Tree all = tree(folder);
    StandardErrorCapture capture;
    QCOMPARE(fileNames(OF_PATH(folder, filters, QDir::Name)), expected);
    QCOMPARE(fileNames(OF_DIRECTORY(QDir(folder), filters, QDir::Name)), expected);
    QStringList byTime = fileNames(OF_PATH(folder, filters, OLDEST_FIRST));
    std::sort(byTime.begin(), byTime.end());
    QCOMPARE(byTime, expected);
    QCOMPARE(capture.take(), QByteArray());
    QCOMPARE(tree(folder), all);
}

void ListingsTest::fifoIsNoFile()
{
    const Storages storages;
    makeTree(storages.path(), {"folder/a.jpg"});
    const QString folder = storages.path() + "/folder";
    QCOMPARE(::mkfifo(QFile::encodeName(folder + "/b.jpg").constData(), 0600), 0);
    StandardErrorCapture capture;
    for (const SortOrder order : {SortOrder(QDir::Name), OLDEST_FIRST})
        QCOMPARE(fileNames(OF_PATH(folder, {}, order)), QStringList{"a.jpg"});
    QCOMPARE(capture.take(), QByteArray());
}

void ListingsTest::missingDirectory_data()
{
    QTest::addColumn<QString>("path"); // in the current directory
    QTest::newRow("missing") << "none";
    QTest::newRow("missing-with-its-parent") << "none/at/all";
    QTest::newRow("file") << "file";
    QTest::newRow("below-a-file") << "file/a";
    QTest::newRow("dangling-link") << "link";
    QTest::newRow("format-characters") << "%s%n%1";
    QTest::newRow("beyond-ascii") << utf8("\u00e4");
    QTest::newRow("name-too-long") << QString(300, 'a');
}

void ListingsTest::missingDirectory()
{
    QFETCH(QString, path);
    const Storages storages;
    makeTree(storages.path(), {"file", "link -> none"});
    const QString root = QDir(storages.path()).canonicalPath();
    const CurrentDirectory current(root);
    StandardErrorCapture capture;
    for (const SortOrder order : {SortOrder(QDir::Name), OLDEST_FIRST}) {
        QCOMPARE(OF_PATH(path, {}, order), Files());
        QCOMPARE(capture.take(), ::missingDirectory(root + "/" + path));
        QCOMPARE(OF_PATH(root + "/./" + path + "/", {"*.jpg"}, order), Files());
        QCOMPARE(capture.take(), ::missingDirectory(root + "/" + path));
        QCOMPARE(OF_DIRECTORY(QDir(path), {}, order), Files());
        QCOMPARE(capture.take(), ::missingDirectory(root + "/" + path));
    }
    // As absolutePath() shows it, without the slashes at the end.
    QCOMPARE(OF_PATH(root + "/" + path + "///", {}, QDir::Name), Files());
    QCOMPARE(capture.take(), ::missingDirectory(QDir(root + "/" + path + "///").absolutePath()));
    QCOMPARE(tree(storages.path()), Tree({"file", "link -> none"}));
}

void ListingsTest::zeroByteInThePath()
{
    const Storages storages;
    StandardErrorCapture capture;
    QCOMPARE(OF_PATH("/none" + ZERO_BYTE + "at/all", {}, QDir::Name), Files());
    QCOMPARE(capture.take(), ::missingDirectory("/none")); // what printf() sees of the path
}

void ListingsTest::emptyPathIsTheCurrentDirectory()
{
    const Storages storages;
    makeTree(storages.path(), {"a.jpg", "b.jpg"});
    const CurrentDirectory current(storages.path());
    StandardErrorCapture capture;
    for (const SortOrder order : {SortOrder(QDir::Name), SortOrder(QDir::Time)}) {
        QCOMPARE(OF_PATH("", {"a*"}, order).value(0).absoluteFilePath(),
                 QDir(storages.path()).canonicalPath() + "/a.jpg");
        QCOMPARE(OF_PATH(QString(), {"b*"}, order).value(0).fileName(), QString("b.jpg"));
    }
    QCOMPARE(capture.take(), QByteArray());
}

void ListingsTest::pathsAreThoseOfQDir_data()
{
    QTest::addColumn<QString>("path");
    QTest::newRow("absolute") << "%1/folder";
    QTest::newRow("trailing-slash") << "%1/folder/";
    QTest::newRow("two-trailing-slashes") << "%1/folder//";
    QTest::newRow("dots") << "%1/other/../folder/.";
    QTest::newRow("doubled-slashes") << "%1//folder";
    QTest::newRow("relative") << "folder";
    QTest::newRow("relative-with-dots") << "./other/../folder";
    QTest::newRow("link") << "link";
    QTest::newRow("current") << ".";
    QTest::newRow("empty") << "";
    QTest::newRow("root-of-the-system") << "/";
    QTest::newRow("colon") << "%1/fol:der";
    QTest::newRow("resource") << ":/";
    QTest::newRow("resource-that-exists") << ":/qt-project.org";
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
    for (const SortOrder order : {SortOrder(QDir::Name), OLDEST_FIRST}) {
        const Files expected = Reference::contents(QDir(path), {}, order);
        const QByteArray text = capture.take();
        const Files actual = OF_PATH(path, {}, order);
        QCOMPARE(capture.take(), text);
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
    const QStringList byName = fileNames(OF_PATH("pictures:folder", {}, QDir::Name));
    const QStringList byTime = fileNames(OF_PATH("pictures:folder", {}, OLDEST_FIRST));
    QDir::setSearchPaths("pictures", {});
    QCOMPARE(byName, QStringList{"a.jpg"});
    QCOMPARE(byTime, QStringList{"a.jpg"});
    QCOMPARE(capture.take(), QByteArray());
}

void ListingsTest::sortOrder_data()
{
    QTest::addColumn<int>("order");
    const QList<QPair<const char *, int>> flags = {
        {"name", QDir::Name}, {"time", QDir::Time},         {"size", QDir::Size},
        {"type", QDir::Type}, {"unsorted", QDir::Unsorted},
    };
    for (const auto &flag : flags) {
        const QByteArray name = flag.first;
        QTest::newRow(name) << flag.second;
        QTest::newRow(name + "-reversed") << int(flag.second | QDir::Reversed);
        QTest::newRow(name + "-ignoring-case") << int(flag.second | QDir::IgnoreCase);
        QTest::newRow(name + "-reversed-ignoring-case")
            << int(flag.second | QDir::Reversed | QDir::IgnoreCase);
        QTest::newRow(name + "-folders-first") << int(flag.second | QDir::DirsFirst);
        QTest::newRow(name + "-reversed-folders-last") << int(flag.second | QDir::Reversed | QDir::DirsLast);
        QTest::newRow(name + "-reversed-by-locale") << int(flag.second | QDir::Reversed | QDir::LocaleAware);
    }
    QTest::newRow("no-sort") << int(QDir::NoSort);
}

void ListingsTest::sortOrder()
{
    QFETCH(int, order);
    const SortOrder flags = QDir::SortFlags(order);
    const Tree names = {"B.jpg", "a.jpg", "a.avi", "A.jpg", "c.png", "b", "\u00e4.jpg"};
    for (const bool mixed : {false, true}) {
        const Storages storages;
        const QString folder = storages.path() + "/folder";
        for (int i = 0; i < names.size() - (mixed ? 0 : 1); ++i) {
            const QByteArray path = QFile::encodeName(folder) + "/" + names.at(i);
            writeFile(path, QByteArray((i * 5) % 4, 'x'));
            setModified(path, 1700000000000 + (i * 3) % 4 * 1000);
        }
        StandardErrorCapture capture;
        const QStringList expected = paths(Reference::contents(QDir(folder), {}, flags));
        QCOMPARE(paths(OF_PATH(folder, {}, flags)), expected);
        QCOMPARE(paths(OF_DIRECTORY(QDir(folder), {}, flags)), expected);
        QCOMPARE(capture.take(), QByteArray());
    }
}

void ListingsTest::ownNameFilters_data()
{
    QTest::addColumn<QStringList>("own");
    QTest::addColumn<QStringList>("given");
    QTest::addColumn<QStringList>("expected");
    using Names = QStringList;
    const Names all = {"a.jpg", "b.avi", "c.png"};
    QTest::newRow("kept-where-none-is-given") << Names{"*.avi"} << Names{} << Names{"b.avi"};
    QTest::newRow("replaced-where-one-is-given") << Names{"*.avi"} << Names{"*.jpg"} << Names{"a.jpg"};
    QTest::newRow("own-is-no-wildcard") << Names{"["} << Names{} << Names{};
    QTest::newRow("own-one-is-no-wildcard") << Names{"[", "*.png"} << Names{} << Names{"c.png"};
    QTest::newRow("own-is-no-wildcard-but-replaced") << Names{"["} << Names{"*.png"} << Names{"c.png"};
    QTest::newRow("own-emptied") << Names{} << Names{} << all;
    QTest::newRow("own-emptied-and-replaced") << Names{} << Names{"*.png"} << Names{"c.png"};
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
    QCOMPARE(fileNames(OF_DIRECTORY(directory, given, QDir::Name)), expected);
    QStringList byTime = fileNames(OF_DIRECTORY(directory, given, OLDEST_FIRST));
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
    QCOMPARE(fileNames(OF_DIRECTORY(directory, {}, QDir::Name)), QStringList({"a", "b"}));
    directory.entryInfoList(); // which the object remembers
    writeFile(storages.path() + "/folder/c");
    QCOMPARE(fileNames(OF_DIRECTORY(directory, {}, QDir::Name)), QStringList({"a", "b", "c"}));
    QCOMPARE(capture.take(), QByteArray());
}

void ListingsTest::directoryOfTheCallerStaysAsItIs()
{
    const Storages storages;
    makeTree(storages.path(), {"folder/a"});
    const QDir directory(storages.path() + "/folder", "*.x", QDir::Size, QDir::Dirs);
    const QDir same = directory;
    StandardErrorCapture capture;
    OF_DIRECTORY(directory, {"*.y"}, OLDEST_FIRST);
    OF_DIRECTORY(directory, {"*.y"}, QDir::Name);
    QCOMPARE(capture.take(), QByteArray());
    QCOMPARE(directory, same);
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
    QTest::addColumn<bool>("creates"); // by the selection of numbered folders alone
    const auto row = [](const char *name, const QString &suffix, const Tree &before, const QStringList &dcim,
                        const QStringList &nonDcim, const QStringList &all, bool creates = false) {
        QTest::newRow(name) << suffix << before << dcim << nonDcim << all << creates;
    };
    row("numbered-and-other", "ABC", {"100ABC/", "MISC/"}, {"100ABC"}, {"MISC"}, {"100ABC", "MISC"});
    row("selections-that-overlap", "ABC", {"1000ABC/", "100ABC/", "100abc/", "12ABC/", "ABC/"},
        {"1000ABC", "100ABC", "100abc", "12ABC", "ABC"}, {"1000ABC", "100abc", "12ABC", "ABC"},
        {"1000ABC", "100ABC", "100abc", "12ABC", "ABC"});
    row("empty-location", "ABC", {}, {"100ABC"}, {}, {}, true);
    row("numbered-only", "ABC", {"100ABC/", "999ABC/"}, {"100ABC", "999ABC"}, {}, {"100ABC", "999ABC"});
    row("other-only", "ABC", {"A/", "B/"}, {"100ABC"}, {"A", "B"}, {"A", "B"}, true);
    row("text-around", "ABC", {"100ABCD/", "X100ABC/"}, {"X100ABC"}, {"100ABCD", "X100ABC"},
        {"100ABCD", "X100ABC"});
    row("empty-suffix", "", {"100/", "1000/", "12/", "MISC/"}, {".", "..", "100", "1000", "12", "MISC"},
        {"1000", "12", "MISC"}, {"100", "1000", "12", "MISC"});
    row("null-suffix", QString(), {"100/"}, {".", "..", "100"}, {}, {"100"});
    row("hidden", "ABC", {".100ABC/", "100ABC/"}, {"100ABC"}, {}, {"100ABC"});
    row("links", "ABC", {"100ABC/", "101ABC -> 100ABC", "MISC -> 100ABC"}, {"100ABC"}, {}, {"100ABC"});
    row("files", "ABC", {"100ABC/", "101ABC", "MISC"}, {"100ABC"}, {}, {"100ABC"});
    row("further-down", "ABC", {"100ABC/", "100ABC/MISC/", "100ABC/101ABC/"}, {"100ABC"}, {}, {"100ABC"});
    row("order-is-by-code-unit", "ABC", {"a/", "B/", "\uff61/", "\U0001F4F7/"}, {"100ABC"},
        {"B", "a", utf8("\U0001F4F7"), utf8("\uff61")}, {"B", "a", utf8("\U0001F4F7"), utf8("\uff61")}, true);
    row("names-that-are-no-utf-8", "ABC", {"100ABC/", "\xff/"}, {"100ABC"}, {}, {"100ABC"});
    row("line-feed-behind-the-suffix", "ABC", {"100ABC/", "101ABC\n/"}, {"100ABC"}, {},
        {"100ABC", "101ABC\n"});
    row("digits-beyond-ascii", "ABC", {"\u0661\u0662\u0663ABC/"}, {utf8("\u0661\u0662\u0663ABC")},
        {utf8("\u0661\u0662\u0663ABC")}, {utf8("\u0661\u0662\u0663ABC")});
    row("dot-in-the-suffix-matches-any-character", "A.C", {"100A.C/", "101ABC/"}, {"100A.C"}, {},
        {"100A.C", "101ABC"});
    row("plus-in-the-suffix-repeats", "A+", {"100A+/", "101AAA/"}, {"100A+"}, {"100A+"}, {"100A+", "101AAA"});
    row("alternative-in-the-suffix", "A|B", {"100A/", "100A|B/", "MB/", "M/"}, {"100A|B"}, {"M"},
        {"100A", "100A|B", "M", "MB"});
    row("set-in-the-suffix", "A[BC]", {"100AB/", "101AC/", "102AD/"}, {"100AB", "101AC"}, {"102AD"},
        {"100AB", "101AC", "102AD"});
    row("star-in-the-suffix", "A*", {"100AXX/", "101AAA/", "102/"}, {"100AXX", "101AAA"}, {"100AXX"},
        {"100AXX", "101AAA", "102"});
    row("suffix-that-is-no-pattern", "A(", {"100A(/", "MISC/"}, {"100A("}, {"100A(", "MISC"},
        {"100A(", "MISC"});
    row("suffix-that-is-no-wildcard", "A[", {"100A[/", "MISC/"}, {}, {"100A[", "MISC"}, {"100A[", "MISC"});
    row("marker-in-the-suffix", "%1", {"100%1/", "MISC/"}, {"100%1"}, {"MISC"}, {"100%1", "MISC"});
    row("line-feed-in-the-suffix", "A\n", {"100A\n/", "101A/"}, {"100A\n"}, {"101A"}, {"100A\n", "101A"});
    row("suffix-beyond-ascii", utf8("\u00c4"), {"100\u00c4/", "101\u00e4/"},
        {utf8("100\u00c4"), utf8("101\u00e4")}, {utf8("101\u00e4")}, {utf8("100\u00c4"), utf8("101\u00e4")});
    row("suffix-beyond-the-basic-plane", utf8("\U0001F4F7"), {"100\U0001F4F7/", "101/"},
        {utf8("100\U0001F4F7")}, {"101"}, {utf8("100\U0001F4F7"), "101"});
    row("zero-byte-in-the-suffix", "A" + ZERO_BYTE, {"100A/"}, {}, {"100A"}, {"100A"});
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
        QCOMPARE(fileNames(FOLDERS(STORAGE_SD, anyFilter(filter))), all);
    QCOMPARE(fileNames(FOLDERS(STORAGE_SD, DIRECTORY_FILTER_NON_DCIM)), nonDcim);
    QCOMPARE(tree(storages.sd()), expected);
    QCOMPARE(fileNames(FOLDERS(STORAGE_SD, DIRECTORY_FILTER_DCIM)), dcim);
    QCOMPARE(capture.take(), QByteArray());
    if (creates)
        expected.append(QFile::encodeName("100" + suffix + "/"));
    std::sort(expected.begin(), expected.end());
    if (suffix != "A[" && !suffix.contains(QChar::Null))
        QCOMPARE(tree(storages.sd()), expected);
}

void ListingsTest::foldersOfMissingLocation_data()
{
    QTest::addColumn<int>("filter");
    QTest::addColumn<Tree>("before");
    QTest::addColumn<QStringList>("listed");
    QTest::addColumn<Tree>("after");
    const Tree location = {"sd/", "sd/DCIM/"};
    const Tree numbered = {"sd/", "sd/DCIM/", "sd/DCIM/100ABC/"};
    const Tree file = {"sd/", "sd/DCIM"};
    const Tree link = {"sd/", "sd/DCIM -> none"};
    QTest::newRow("numbered-folders") << 1 << Tree{} << QStringList{"100ABC"} << numbered;
    QTest::newRow("other-folders") << 16 << Tree{} << QStringList{} << location;
    QTest::newRow("all-folders") << 0 << Tree{} << QStringList{} << location;
    QTest::newRow("file-in-its-place-numbered") << 1 << file << QStringList{} << file;
    QTest::newRow("file-in-its-place-other") << 16 << file << QStringList{} << file;
    QTest::newRow("file-in-its-place-all") << 0 << file << QStringList{} << file;
    QTest::newRow("dangling-link-numbered") << 1 << link << QStringList{} << link;
    QTest::newRow("dangling-link-other") << 16 << link << QStringList{} << link;
    QTest::newRow("dangling-link-all") << 17 << link << QStringList{} << link;
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
            QCOMPARE(fileNames(FOLDERS(STORAGE_SD, anyFilter(filter))), listed);
        if (form == 1)
            QCOMPARE(OF_STORAGE(STORAGE_SD, anyFilter(filter)), Files());
        if (form == 2)
            QCOMPARE(OF_STORAGE_BY_NAME(STORAGE_SD, {"*.jpg"}, anyFilter(filter)), Files());
        QCOMPARE(capture.take(), missingLocation(storages.sd()));
        QCOMPARE(tree(storages.path()), after);
    }
}

void ListingsTest::foldersBelowLinkAsLocation()
{
    const Storages storages;
    makeTree(storages.path(), {"real/100ABC/a.jpg", "real/MISC/b.jpg", "sd/DCIM -> ../real"});
    StandardErrorCapture capture;
    QCOMPARE(paths(FOLDERS(STORAGE_SD, anyFilter(0))),
             QStringList({storages.sd() + "/100ABC", storages.sd() + "/MISC"}));
    QCOMPARE(paths(OF_STORAGE(STORAGE_SD, anyFilter(0))),
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
    row("names-that-no-file-has", "ABC", 0, {"*.wav"}, {});
    row("filter-that-is-no-wildcard", "ABC", 0, {"["}, {});
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
    makeTree(storages.sd(), {"100ABC/.hidden.jpg", "100ABC/a.JPG", "100ABC/b.jpg", "100ABC/link.jpg -> a.JPG",
                             "100ABC/sub/deep.jpg", "101ABC/c.avi", "200/e.jpg", "MISC/d.jpg", "loose.jpg"});
    const QByteArray location = QFile::encodeName(storages.sd());
    for (const char *name : {"/100ABC/a.JPG", "/100ABC/b.jpg", "/101ABC/c.avi"})
        setModified(location + name, 2000000);
    setModified(location + "/MISC/d.jpg", 1000000); // older than all, in the last folder
    for (QString &path : expected)
        path.prepend(storages.sd());
    const Tree before = tree(storages.path());
    StandardErrorCapture capture;
    QCOMPARE(paths(OF_STORAGE_BY_NAME(STORAGE_SD, nameFilters, anyFilter(filter))), expected);
    if (nameFilters.isEmpty())
        QCOMPARE(paths(OF_STORAGE(STORAGE_SD, anyFilter(filter))), expected);
    QCOMPARE(capture.take(), QByteArray());
    QCOMPARE(tree(storages.path()), before);
}

void ListingsTest::storageFilesWithTheParentDirectory()
{
    const Storages storages("");
    makeTree(storages.path(), {"sd/DCIM/100/a.jpg", "sd/DCIM/loose.jpg", "sd/beside.jpg", "sd/other/b.jpg"});
    StandardErrorCapture capture;
    const Files files = OF_STORAGE(STORAGE_SD, DIRECTORY_FILTER_DCIM);
    QCOMPARE(fileNames(files), QStringList({"loose.jpg", "beside.jpg", "a.jpg"}));
    const Reference::Storage reference = {QDir(storages.sd()), ""};
    QCOMPARE(paths(files), paths(Reference::storageContents(reference, {}, 1)));
    QCOMPARE(capture.take(), QByteArray());
}

void ListingsTest::oldestFirstInEachFolder()
{
    const Storages storages;
    const QByteArray location = QFile::encodeName(storages.sd());
    const QList<QPair<QByteArray, qint64>> times = {
        {"/100ABC/a.jpg", 9000000}, {"/100ABC/b.jpg", 8000000}, {"/100ABC/c.jpg", 8000000},
        {"/100ABC/d.jpg", 7000000}, {"/101ABC/e.jpg", 2000000}, {"/101ABC/f.jpg", 1000000},
    };
    for (const auto &file : times) {
        writeFile(location + file.first);
        setModified(location + file.first, file.second);
    }
    const QStringList expected = {"d.jpg", "c.jpg", "b.jpg", "a.jpg", "f.jpg", "e.jpg"};
    StandardErrorCapture capture;
    QCOMPARE(fileNames(OF_STORAGE(STORAGE_SD, DIRECTORY_FILTER_DCIM)), expected);
    QCOMPARE(fileNames(OF_STORAGE(STORAGE_SD, anyFilter(0))), expected);
    QCOMPARE(capture.take(), QByteArray());
}

void ListingsTest::eachStorageIsItsOwn()
{
    const Storages storages;
    for (const eStorageType storage : {STORAGE_MMC, STORAGE_SD, STORAGE_USB})
        makeTree(storages.location(storage), {"100ABC/" + QByteArray::number(storage) + ".jpg"});
    StandardErrorCapture capture;
    for (const eStorageType storage : {STORAGE_MMC, STORAGE_SD, STORAGE_USB}) {
        const QStringList folder = {storages.location(storage) + "/100ABC"};
        QCOMPARE(paths(FOLDERS(storage, DIRECTORY_FILTER_DCIM)), folder);
        QCOMPARE(paths(FOLDERS(storage, anyFilter(0))), folder);
        QCOMPARE(paths(OF_STORAGE(storage, anyFilter(0))),
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
        QCOMPARE(paths(OF_STORAGE(STORAGE_SD, anyFilter(0))), QStringList{root + "/one/x/100ABC/a.jpg"});
    }
    const CurrentDirectory current(root + "/two");
    QCOMPARE(paths(OF_STORAGE(STORAGE_SD, anyFilter(0))), QStringList{root + "/two/x/MISC/b.jpg"});
    QCOMPARE(capture.take(), QByteArray());
}

void ListingsTest::unsupportedStorageListsTmp()
{
    const Storages storages;
    StandardErrorCapture capture;
    const auto answer = withEmptyTmp([] {
        makeTree("/tmp", {"MISC/a.jpg", "loose.jpg"});
        QStringList all = paths(FOLDERS(anyStorage(3), anyFilter(0)));
        all += paths(OF_STORAGE(anyStorage(-1), DIRECTORY_FILTER_NON_DCIM));
        all += paths(OF_STORAGE_BY_NAME(anyStorage(1000), {"*.avi"}, DIRECTORY_FILTER_NON_DCIM));
        all += paths(FOLDERS(anyStorage(3), DIRECTORY_FILTER_DCIM));
        return all.join(' ').toUtf8();
    });
    if (!answer)
        QSKIP("this user may not mount");
    QCOMPARE(*answer, QByteArray("/tmp/MISC /tmp/MISC/a.jpg /tmp/100ABC"));
    QCOMPARE(capture.take(), QByteArray());
}

void ListingsTest::readOnlyMedium()
{
    const Storages storages;
    makeTree(storages.path(), {"mmc/DCIM/MISC/a.jpg", "sd/"});
    const Tree before = tree(storages.path());
    StandardErrorCapture capture;
    const auto answer = onReadOnlyMedium(storages.path(), [] {
        QStringList all = fileNames(OF_STORAGE(STORAGE_MMC, DIRECTORY_FILTER_NON_DCIM));
        all += fileNames(OF_STORAGE(STORAGE_MMC, DIRECTORY_FILTER_DCIM));
        all += fileNames(FOLDERS(STORAGE_SD, DIRECTORY_FILTER_NON_DCIM));
        return all.join(' ').toUtf8();
    });
    if (!answer)
        QSKIP("this user may not mount");
    QCOMPARE(*answer, QByteArray("a.jpg"));
    QCOMPARE(capture.take(), missingLocation(storages.sd()));
    QCOMPARE(tree(storages.path()), before);
}

namespace {

QByteArray randomName(QRandomGenerator &random)
{
    static const Tree HEADS = {"DCF_0001", "DCF_0002", "dcf_0001", "a",   "A",
                               "\u00e4",   "\xff",     ".a",       "a b", "k\n"};
    static const Tree TAILS = {".jpg", ".JPG", ".mkv", ".m\u212av", ".\u017fpg",
                               "",     ".wav", "[1]",  "\uff61",    "\U0001F4F7"};
    return Reference::oneOf(random, HEADS) + Reference::oneOf(random, TAILS);
}

QStringList randomFilters(QRandomGenerator &random)
{
    static const QStringList FILTERS = {"*.jpg", "*.mkv", "DCF_*",      "a*",       "*",     "*k*",
                                        "?",     "*[1]",  "[",          "",         "*.JPG", "A*.jpg",
                                        "*\n*",  "k\n*",  "*.\u017fpg", "DCF_*.jpg"};
    QStringList filters;
    for (int i = random.bounded(4); i > 0; --i)
        filters.append(Reference::oneOf(random, FILTERS));
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
        QSet<QByteArray> names;
        for (int i = random.bounded(10); i > 0; --i)
            names.insert(randomName(random));
        QVERIFY(QDir().mkpath(folder));
        for (const QByteArray &name : names)
            makeTree(folder, {random.bounded(6) == 0 ? name + "/" : name});
        StandardErrorCapture capture;
        for (int i = 0; i < 20; ++i) {
            const QStringList filters = randomFilters(random);
            const SortOrder order = QDir::SortFlags(Reference::oneOf(random, orders));
            QStringList expected;
            {
                const Reference::QuietQt quiet;
                expected = paths(Reference::contents(QDir(folder), filters, order));
            }
            QCOMPARE(paths(OF_PATH(folder, filters, order)), expected);
        }
        QCOMPARE(capture.take(), QByteArray());
    }
}

void ListingsTest::sameAsQDirOnRandomStorages()
{
    constexpr quint32 SEED = 20250301;
    qInfo("seed %u", SEED);
    QRandomGenerator random(SEED);
    const QStringList suffixes = {"ABC", "",    "A*", "A[B]",         "A[", "A(",
                                  "A.C", "A|B", "k",  utf8("\u00c4"), "A\n"};
    const QList<QByteArray> folders = {"100", "101", "1000", "12", "X", "", "200", "\u00e4", "100\u0661"};
    for (int round = 0; round < 60; ++round) {
        const QString suffix = Reference::oneOf(random, suffixes);
        const Storages storages(suffix);
        Tree before = {"MISC/"};
        for (int i = random.bounded(10); i > 0; --i) {
            const QByteArray end = random.bounded(3) == 0 ? QByteArray("ABC") : suffix.toUtf8();
            before.append("F" + QByteArray::number(i) + "/");
            before.append(Reference::oneOf(random, folders) + end + "/" + randomName(random));
        }
        makeTree(storages.sd(), before);
        const Reference::Storage reference = {QDir(storages.sd()), suffix};
        for (const int filter : {16, 0, 1}) {
            const QStringList filters = randomFilters(random);
            StandardErrorCapture capture;
            // The library first: it is the one that may have to create folder 100.
            const QStringList names = fileNames(FOLDERS(STORAGE_SD, anyFilter(filter)));
            const QStringList list = paths(OF_STORAGE_BY_NAME(STORAGE_SD, filters, anyFilter(filter)));
            QCOMPARE(capture.take(), QByteArray());
            const Reference::QuietQt quiet;
            QCOMPARE(names, fileNames(Reference::folders(reference, filter)));
            QCOMPARE(list, paths(Reference::storageContents(reference, filters, filter)));
        }
    }
}

QTEST_GUILESS_MAIN(ListingsTest)
#include "tst_listings.moc"

// SPDX-License-Identifier: MIT
#include "testsupport.h"

#include <QTextCodec>
#include <QtTest>

#include <type_traits>

using namespace VORN_FILE_HANDLER;

static_assert(FILE_TYPE_IMAGE == 16 && FILE_TYPE_IMAGE_JPEG == 17 && FILE_TYPE_IMAGE_PNG == 18
              && FILE_TYPE_THUMB == 20 && FILE_TYPE_VIDEO == 32 && FILE_TYPE_VIDEO_AVI == 33
              && FILE_TYPE_VIDEO_MKV == 34 && FILE_TYPE_AUDIO == 64 && FILE_TYPE_AUDIO_WAV == 65
              && FILE_TYPE_DIRECTORY == 128 && FILE_TYPE_UNKNOWN == -1);
static_assert(std::is_enum_v<eFileTypes> && std::is_convertible_v<eFileTypes, int>);

namespace {

// A function pointer takes a function of exactly its own type.
using OnPath = void (*)(QString);
using OnNumber = void (*)(eStorageType, int);
using OnName = void (*)(eStorageType, QString);

constexpr QString (*DIR_PATH)(eStorageType, int) = &VornFileHandler::getDirPath;
constexpr QString (*NAMED_DIR_PATH)(eStorageType, QString) = &VornFileHandler::getDirPath;
constexpr QString (*FILE_PATH)(eStorageType, int, int, QString) = &VornFileHandler::getFilePath;
constexpr QString (*FILE_EXTENSION)(eFileTypes) = &VornFileHandler::getFileExtension;
constexpr QString (*DOS_BASE_NAME)(QString) = &VornFileHandler::getDosBaseName;
constexpr OnPath CREATE[] = {&VornFileHandler::createFolder, &VornFileHandler::createDCIMFolder};
constexpr OnPath REMOVE[] = {&VornFileHandler::deleteFolder, &VornFileHandler::deleteDCIMFolder};
constexpr OnNumber CREATE_NUMBERED = &VornFileHandler::createDCIMFolder;
constexpr OnNumber REMOVE_NUMBERED = &VornFileHandler::deleteDCIMFolder;
constexpr OnName CREATE_NAMED = &VornFileHandler::createFolder;
constexpr OnName REMOVE_NAMED = &VornFileHandler::deleteFolder;

const QString ZERO_BYTE(1, QChar(QChar::Null));

void useSuffixAndLocation(const QString &suffix, const QString &location)
{
    VornFileHandler::mFolderSuffix = suffix;
    VornFileHandler::mSDLocation = QDir(location);
}

} // namespace

class PathsTest : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void folderPath_data();
    void folderPath();
    void namedFolderPath_data();
    void namedFolderPath();
    void filePath_data();
    void filePath();
    void eachStorageHasItsOwnPaths();
    void unsupportedStorageLiesInTmp_data();
    void unsupportedStorageLiesInTmp();
    void relativeLocationFollowsTheCurrentDirectory();
    void extension_data();
    void extension();
    void dosBaseName_data();
    void dosBaseName();
    void createByPath_data();
    void createByPath();
    void deleteByPath_data();
    void deleteByPath();
    void emptyPathToDeleteIsTheCurrentDirectory();
    void currentDirectoryIsGone();
    void relativePathsLieInTheCurrentDirectory();
    void createNumbered();
    void deleteNumbered();
    void createNamed_data();
    void createNamed();
    void deleteNamed_data();
    void deleteNamed();
    void parentAsNameDeletesTheDirectoryAbove();
    void unsupportedStorageWorksInTmp();
    void readOnlyMediumStaysAsItIs();
};

void PathsTest::initTestCase()
{
    QTextCodec::setCodecForLocale(QTextCodec::codecForName("UTF-8")); // of names, whatever the locale
}

void PathsTest::folderPath_data()
{
    QTest::addColumn<QString>("location");
    QTest::addColumn<QString>("suffix");
    QTest::addColumn<int>("number");
    QTest::addColumn<QString>("expected");
    const auto row = [](const char *name, const char *location, const QString &suffix, int number,
                        const QString &expected) {
        QTest::newRow(name) << location << suffix << number << expected;
    };
    const char *const sd = "/media/sd/DCIM";
    row("first-folder", sd, "ABC", 100, "/media/sd/DCIM/100ABC");
    row("empty-suffix", sd, "", 100, "/media/sd/DCIM/100");
    row("null-suffix", sd, QString(), 100, "/media/sd/DCIM/100");
    row("one-digit-is-not-padded", sd, "ABC", 7, "/media/sd/DCIM/7ABC");
    row("four-digits", sd, "ABC", 1000, "/media/sd/DCIM/1000ABC");
    row("zero", sd, "ABC", 0, "/media/sd/DCIM/0ABC");
    row("negative", sd, "ABC", -5, "/media/sd/DCIM/-5ABC");
    row("largest-number", sd, "ABC", INT_MAX, "/media/sd/DCIM/2147483647ABC");
    row("smallest-number", sd, "ABC", INT_MIN, "/media/sd/DCIM/-2147483648ABC");
    row("location-ends-in-a-slash", "/media/sd/DCIM/", "ABC", 100, "/media/sd/DCIM/100ABC");
    row("location-with-dots", "/media/./usb/../sd/DCIM/.", "ABC", 100, "/media/sd/DCIM/100ABC");
    row("location-with-doubled-slashes", "/media//sd///DCIM", "ABC", 100, "/media/sd/DCIM/100ABC");
    row("location-is-the-root", "/", "ABC", 100, "//100ABC");
    row("location-without-dcim", "/media/sd", "ABC", 100, "/media/sd/100ABC");
    row("blank-in-the-suffix", sd, " A B ", 100, "/media/sd/DCIM/100 A B ");
    row("line-feed-in-the-suffix", sd, "A\n", 100, "/media/sd/DCIM/100A\n");
    row("slash-in-the-suffix", sd, "A/../B", 100, "/media/sd/DCIM/100A/../B");
    row("digits-in-the-suffix", sd, "007", 100, "/media/sd/DCIM/100007");
    row("pattern-characters-in-the-suffix", sd, "A[*?(", 100, "/media/sd/DCIM/100A[*?(");
    row("suffix-beyond-ascii", sd, QString::fromUtf8("\u00c4\U0001F4F7"), 100,
        QString::fromUtf8("/media/sd/DCIM/100\u00c4\U0001F4F7"));
    row("marker-in-the-suffix-stays", sd, "%1", 100, "/media/sd/DCIM/100%1");
    row("two-markers-in-the-suffix-stay", sd, "%2%3", 100, "/media/sd/DCIM/100%2%3");
    row("location-holds-marker-1", "/media/%1x", "ABC", 100, "/media/100x/ABC%3");
    row("location-holds-marker-2", "/media/%2x", "ABC", 100, "/media/100x/100ABC");
    row("location-holds-marker-3", "/media/%3x", "ABC", 100, "/media/ABCx/100ABC");
    row("location-holds-marker-4", "/media/%4x", "ABC", 100, "/media/%4x/100ABC");
    row("location-holds-markers-1-and-2", "/%1/%2", "ABC", 100, "/100/ABC/ABC%3");
    row("location-holds-marker-0", "/media/%0x", "ABC", 100, "/media/100x/ABC%3");
    row("location-holds-marker-01", "/media/%01x", "ABC", 100, "/media/100x/ABC%3");
    row("location-holds-marker-12", "/media/%12x", "ABC", 100, "/media/%12x/100ABC");
    row("location-holds-a-localised-marker", "/media/%L1x", "ABC", 100, "/media/100x/ABC%3");
    row("location-holds-a-bare-percent", "/media/50%", "ABC", 100, "/media/50%/100ABC");
    row("location-holds-a-doubled-percent", "/media/%%1", "ABC", 100, "/media/%100/ABC%3");
}

void PathsTest::folderPath()
{
    QFETCH(QString, location);
    QFETCH(QString, suffix);
    QFETCH(int, number);
    QFETCH(QString, expected);
    const Storages storages;
    StandardErrorCapture capture;
    useSuffixAndLocation(suffix, location);
    QCOMPARE(DIR_PATH(STORAGE_SD, number), expected);
    QCOMPARE(capture.take(), QByteArray());
}

void PathsTest::namedFolderPath_data()
{
    QTest::addColumn<QString>("location");
    QTest::addColumn<QString>("name");
    QTest::addColumn<QString>("expected");
    const auto row = [](const char *name, const char *location, const QString &folder,
                        const QString &expected) { QTest::newRow(name) << location << folder << expected; };
    const char *const sd = "/media/sd/DCIM";
    row("plain", sd, "MISC", "/media/sd/DCIM/MISC");
    row("empty", sd, "", "/media/sd/DCIM/");
    row("null", sd, QString(), "/media/sd/DCIM/");
    row("nested", sd, "a/b", "/media/sd/DCIM/a/b");
    row("parent", sd, "..", "/media/sd/DCIM/..");
    row("current", sd, ".", "/media/sd/DCIM/.");
    row("slashes-around", sd, "/a/", "/media/sd/DCIM//a/");
    row("blanks", sd, " a b ", "/media/sd/DCIM/ a b ");
    row("beyond-ascii", sd, QString::fromUtf8("\u00c4"), QString::fromUtf8("/media/sd/DCIM/\u00c4"));
    row("zero-byte", sd, "a" + ZERO_BYTE + "b", "/media/sd/DCIM/a" + ZERO_BYTE + "b");
    row("marker-in-the-name-stays", sd, "%1%2", "/media/sd/DCIM/%1%2");
    row("location-holds-marker-1", "/m/%1x", "MISC", "/m/MISCx/%2");
    row("location-holds-marker-2", "/m/%2x", "MISC", "/m/MISCx/MISC");
    row("location-holds-marker-3", "/m/%3x", "MISC", "/m/%3x/MISC");
    row("location-ends-in-a-slash", "/m/", "MISC", "/m/MISC");
    row("location-with-dots", "/m/../n/.", "MISC", "/n/MISC");
}

void PathsTest::namedFolderPath()
{
    QFETCH(QString, location);
    QFETCH(QString, name);
    QFETCH(QString, expected);
    const Storages storages;
    StandardErrorCapture capture;
    useSuffixAndLocation("ABC", location); // the suffix is that of numbered folders only
    QCOMPARE(NAMED_DIR_PATH(STORAGE_SD, name), expected);
    QCOMPARE(capture.take(), QByteArray());
}

void PathsTest::filePath_data()
{
    QTest::addColumn<QString>("location");
    QTest::addColumn<QString>("suffix");
    QTest::addColumn<int>("number");
    QTest::addColumn<QString>("fileExtension");
    QTest::addColumn<QString>("expected");
    const auto row = [](const char *name, const char *location, const char *suffix, int number,
                        const QString &fileExtension, const QString &expected) {
        QTest::newRow(name) << location << suffix << number << fileExtension << expected;
    };
    row("padded-to-four-digits", "/sd", "ABC", 7, "jpg", "/sd/100ABC/DCF_0007.jpg");
    row("four-digits", "/sd", "ABC", 9999, "jpg", "/sd/100ABC/DCF_9999.jpg");
    row("five-digits-are-not-cut", "/sd", "ABC", 12345, "jpg", "/sd/100ABC/DCF_12345.jpg");
    row("zero", "/sd", "ABC", 0, "jpg", "/sd/100ABC/DCF_0000.jpg");
    row("negative", "/sd", "ABC", -7, "jpg", "/sd/100ABC/DCF_-007.jpg");
    row("negative-with-four-digits", "/sd", "ABC", -1234, "jpg", "/sd/100ABC/DCF_-1234.jpg");
    row("largest-number", "/sd", "ABC", INT_MAX, "jpg", "/sd/100ABC/DCF_2147483647.jpg");
    row("empty-extension", "/sd", "ABC", 7, "", "/sd/100ABC/DCF_0007.");
    row("null-extension", "/sd", "ABC", 7, QString(), "/sd/100ABC/DCF_0007.");
    row("extension-with-a-dot", "/sd", "ABC", 7, ".tar.gz", "/sd/100ABC/DCF_0007..tar.gz");
    row("extension-with-a-marker-stays", "/sd", "ABC", 7, "%1", "/sd/100ABC/DCF_0007.%1");
    row("empty-suffix", "/sd", "", 7, "wav", "/sd/100/DCF_0007.wav");
    row("suffix-holds-marker-1", "/sd", "%1", 7, "jpg", "/sd/100DCF_/0007jpg.%4");
    row("suffix-holds-marker-2", "/sd", "%2", 7, "jpg", "/sd/100DCF_/DCF_0007.jpg");
    row("suffix-holds-marker-3", "/sd", "%3", 7, "jpg", "/sd/1000007/DCF_0007.jpg");
    row("suffix-holds-marker-4", "/sd", "%4", 7, "jpg", "/sd/100jpg/DCF_0007.jpg");
    row("suffix-holds-marker-5", "/sd", "%5", 7, "jpg", "/sd/100%5/DCF_0007.jpg");
    row("suffix-holds-markers-1-and-2", "/sd", "%1%2", 7, "jpg", "/sd/100DCF_0007/0007jpg.%4");
    row("location-holds-marker-1", "/%1x", "ABC", 7, "jpg", "/100x/ABC0007/DCF_0007.jpg");
    row("location-holds-marker-2", "/%2x", "ABC", 7, "jpg", "/100x/100ABC/DCF_0007.jpg");
    row("location-holds-marker-4", "/%4x", "ABC", 7, "jpg", "/jpgx/100ABC/DCF_0007.jpg");
    row("location-holds-marker-5", "/%5x", "ABC", 7, "jpg", "/%5x/100ABC/DCF_0007.jpg");
}

void PathsTest::filePath()
{
    QFETCH(QString, location);
    QFETCH(QString, suffix);
    QFETCH(int, number);
    QFETCH(QString, fileExtension);
    QFETCH(QString, expected);
    const Storages storages;
    StandardErrorCapture capture;
    useSuffixAndLocation(suffix, location);
    QCOMPARE(FILE_PATH(STORAGE_SD, 100, number, fileExtension), expected);
    QCOMPARE(capture.take(), QByteArray());
}

void PathsTest::eachStorageHasItsOwnPaths()
{
    const Storages storages;
    StandardErrorCapture capture;
    for (const eStorageType storage : {STORAGE_MMC, STORAGE_SD, STORAGE_USB}) {
        const QString location = storages.location(storage);
        QCOMPARE(DIR_PATH(storage, 101), location + "/101ABC");
        QCOMPARE(NAMED_DIR_PATH(storage, "MISC"), location + "/MISC");
        QCOMPARE(FILE_PATH(storage, 101, 1, "wav"), location + "/101ABC/DCF_0001.wav");
    }
    QCOMPARE(capture.take(), QByteArray());
    QCOMPARE(tree(storages.path()), Tree());
}

void PathsTest::unsupportedStorageLiesInTmp_data()
{
    QTest::addColumn<int>("value");
    QTest::newRow("one-beyond-the-last") << 3;
    QTest::newRow("negative") << -1;
    QTest::newRow("far-beyond") << 1000;
}

void PathsTest::unsupportedStorageLiesInTmp()
{
    QFETCH(int, value);
    const Storages storages;
    StandardErrorCapture capture;
    QCOMPARE(DIR_PATH(anyStorage(value), 100), QString("/tmp/100ABC"));
    QCOMPARE(NAMED_DIR_PATH(anyStorage(value), "MISC"), QString("/tmp/MISC"));
    QCOMPARE(FILE_PATH(anyStorage(value), 100, 1, "jpg"), QString("/tmp/100ABC/DCF_0001.jpg"));
    QCOMPARE(capture.take(), QByteArray());
}

void PathsTest::relativeLocationFollowsTheCurrentDirectory()
{
    const Storages storages;
    makeTree(storages.path(), {"one/", "two/"});
    const QString root = QDir(storages.path()).canonicalPath();
    StandardErrorCapture capture;
    useSuffixAndLocation("ABC", "x/DCIM");
    for (const char *name : {"/one", "/two", "/one"}) {
        const CurrentDirectory current(root + name);
        QCOMPARE(DIR_PATH(STORAGE_SD, 100), root + name + "/x/DCIM/100ABC");
        QCOMPARE(NAMED_DIR_PATH(STORAGE_SD, "M"), root + name + "/x/DCIM/M");
        QCOMPARE(FILE_PATH(STORAGE_SD, 100, 1, "jpg"), root + name + "/x/DCIM/100ABC/DCF_0001.jpg");
        CREATE_NUMBERED(STORAGE_SD, 100);
    }
    QCOMPARE(capture.take(), QByteArray());
    const Tree expected = {"one/", "one/x/", "one/x/DCIM/", "one/x/DCIM/100ABC/",
                           "two/", "two/x/", "two/x/DCIM/", "two/x/DCIM/100ABC/"};
    QCOMPARE(tree(root), expected);
}

void PathsTest::extension_data()
{
    QTest::addColumn<int>("type");
    QTest::addColumn<QString>("expected");
    QTest::newRow("image") << 16 << "jpg";
    QTest::newRow("jpeg") << 17 << "jpg";
    QTest::newRow("png") << 18 << "png";
    QTest::newRow("thumbnail") << 20 << "thumb";
    QTest::newRow("video") << 32 << "avi";
    QTest::newRow("avi") << 33 << "avi";
    QTest::newRow("matroska") << 34 << "mkv";
    QTest::newRow("audio-is-avi") << 64 << "avi";
    QTest::newRow("wav") << 65 << "wav";
    for (const int type : {128, -1, 0, 1, 15, 19, 21, 31, 35, 48, 63, 66, 80, 127, 129, 240, 272, 1000, -2})
        QTest::newRow(("none-for-" + QByteArray::number(type)).constData()) << type << "";
}

void PathsTest::extension()
{
    QFETCH(int, type);
    QFETCH(QString, expected);
    StandardErrorCapture capture;
    QCOMPARE(FILE_EXTENSION(static_cast<eFileTypes>(type)), expected);
    QCOMPARE(capture.take(), QByteArray());
}

void PathsTest::dosBaseName_data()
{
    QTest::addColumn<QString>("path");
    QTest::addColumn<QString>("expected");
    QTest::newRow("empty") << ""
                           << "";
    QTest::newRow("null") << QString() << "";
    QTest::newRow("full-path") << "/media/sd/DCIM/100ABC/DCF_0007.jpg"
                               << "/DCF_000";
    QTest::newRow("bare-name") << "DCF_0007.jpg"
                               << "DCF_0007";
    QTest::newRow("short-bare-name") << "a.jpg"
                                     << "a.jpg";
    QTest::newRow("bare-name-of-eight") << "12345678"
                                        << "12345678";
    QTest::newRow("bare-name-of-nine") << "123456789"
                                       << "12345678";
    QTest::newRow("slash-alone") << "/"
                                 << "/";
    QTest::newRow("ends-in-a-slash") << "/media/sd/"
                                     << "/";
    QTest::newRow("ends-in-two-slashes") << "/media/sd//"
                                         << "/";
    QTest::newRow("short-name-in-a-folder") << "a/b.c"
                                            << "/b.c";
    QTest::newRow("name-of-seven-in-a-folder") << "a/1234567"
                                               << "/1234567";
    QTest::newRow("name-of-eight-in-a-folder") << "a/12345678"
                                               << "/1234567";
    QTest::newRow("backslash-is-no-separator") << "a\\b\\c"
                                               << "a\\b\\c";
    QTest::newRow("beyond-ascii-counts-by-character")
        << QString::fromUtf8("\u00e4\u00f6\u00fc456789") << QString::fromUtf8("\u00e4\u00f6\u00fc45678");
    QTest::newRow("zero-byte-counts") << "1" + ZERO_BYTE + "3456789"
                                      << "1" + ZERO_BYTE + "345678";
}

void PathsTest::dosBaseName()
{
    QFETCH(QString, path);
    QFETCH(QString, expected);
    StandardErrorCapture capture;
    QCOMPARE(DOS_BASE_NAME(path), expected);
    QCOMPARE(capture.take(), QByteArray());
}

void PathsTest::createByPath_data()
{
    QTest::addColumn<Tree>("before");
    QTest::addColumn<QString>("path"); // below the test's directory; none is no path at all
    QTest::addColumn<Tree>("after");
    const auto row = [](const char *name, const Tree &before, const QString &path, const Tree &after) {
        QTest::newRow(name) << before << path << after;
    };
    row("new", {}, "/a", {"a/"});
    row("with-all-parents", {}, "/a/b/c", {"a/", "a/b/", "a/b/c/"});
    row("exists", {"a/", "a/file"}, "/a", {"a/", "a/file"});
    row("ends-in-a-slash", {}, "/a/", {"a/"});
    row("dots", {}, "/a/../b/./c", {"a/", "b/", "b/c/"}); // what ".." goes out of is created
    row("file-in-its-place", {"a"}, "/a", {"a"});
    row("file-as-parent", {"a"}, "/a/b", {"a"});
    row("below-a-link", {"a/", "link -> a"}, "/link/b", {"a/", "a/b/", "link -> a"});
    row("dangling-link", {"link -> none"}, "/link", {"link -> none"});
    row("below-a-dangling-link", {"link -> none"}, "/link/b", {"link -> none"});
    row("odd-name", {}, "/ %1\n", {" %1\n/"});
    row("beyond-ascii", {}, QString::fromUtf8("/\u00e4"), {"\u00e4/"});
    row("name-too-long", {}, "/" + QString(256, 'a'), {});
    row("zero-byte", {}, "/a" + ZERO_BYTE + "b", {});
    row("empty-path", {"a/"}, QString(), {"a/"});
}

void PathsTest::createByPath()
{
    QFETCH(Tree, before);
    QFETCH(QString, path);
    QFETCH(Tree, after);
    for (const OnPath create : CREATE) {
        const QTemporaryDir directory;
        makeTree(directory.path(), before);
        StandardErrorCapture capture;
        const CurrentDirectory current(directory.path());
        create(path.isEmpty() ? path : directory.path() + path);
        QCOMPARE(capture.take(), QByteArray());
        QCOMPARE(tree(directory.path()), after);
    }
}

void PathsTest::deleteByPath_data()
{
    QTest::addColumn<Tree>("before");
    QTest::addColumn<QString>("path");
    QTest::addColumn<Tree>("after");
    const auto row = [](const char *name, const Tree &before, const QString &path, const Tree &after) {
        QTest::newRow(name) << before << path << after;
    };
    const Tree full = {"a/",    "a/.hidden", "a/.hidden-folder/", "a/.hidden-folder/file",
                       "a/b/",  "a/b/c/",    "a/b/c/file",        "a/file",
                       "kept/", "kept/file"};
    row("with-all-it-holds", full, "/a", {"kept/", "kept/file"});
    row("empty-folder", {"a/"}, "/a", {});
    row("ends-in-a-slash", {"a/", "a/file"}, "/a/", {});
    row("missing", {"a/"}, "/none", {"a/"});
    row("file", {"a"}, "/a", {"a"});
    row("links-inside-are-not-followed",
        {"a/", "a/dir -> ../kept", "a/file -> ../kept/file", "kept/", "kept/file"}, "/a",
        {"kept/", "kept/file"});
    row("dangling-link-inside", {"a/", "a/link -> none"}, "/a", {});
    row("target-of-a-link-is-emptied", {"a/", "a/file", "link -> a"}, "/link", {"a/", "link -> a"});
    row("dangling-link", {"link -> none"}, "/link", {"link -> none"});
    row("dots", {"a/", "a/file", "b/"}, "/b/../a/.", {"b/"});
    row("name-that-is-no-utf-8-stays", {"a/", "a/file", "a/\xff"}, "/a", {"a/", "a/\xff"});
    row("beyond-ascii", {"\u00e4/", "\u00e4/\u00f6"}, QString::fromUtf8("/\u00e4"), {});
    row("zero-byte", {"a/"}, "/a" + ZERO_BYTE, {"a/"});
    row("zero-byte-behind-dots", {"a/", "a/b/"}, "/a/b/../c" + ZERO_BYTE, {"a/", "a/b/"});
    row("parent-of-a-folder", {"a/", "a/b/", "a/b/file", "a/c", "a/d/", "a/d/file"}, "/a/b/..", {});
    row("parent-of-a-missing-folder", {"a/", "a/file"}, "/a/none/..", {"a/", "a/file"});
    row("parent-of-a-file", {"a/", "a/file"}, "/a/file/..", {"a/", "a/file"});
    row("link-to-a-folder-behind-a-parent", {"a/", "b/", "b/file", "link -> b"}, "/a/../link",
        {"a/", "b/", "link -> b"});
    row("link-with-a-slash-behind-a-parent", {"a/", "b/", "b/file", "link -> b"}, "/a/../link/",
        {"a/", "b/", "link -> b"});
    row("folder-behind-a-parent", {"a/", "b/", "b/file"}, "/a/../b", {"a/"});
    row("parent-of-what-a-link-leads-to", {"a/", "a/link -> ../b/c", "b/", "b/c/", "b/file"}, "/a/link/..",
        {"a/", "a/link -> ../b/c"});
}

void PathsTest::deleteByPath()
{
    QFETCH(Tree, before);
    QFETCH(QString, path);
    QFETCH(Tree, after);
    for (const OnPath remove : REMOVE) {
        const Storages directory; // for the names that a QTemporaryDir would leave behind
        makeTree(directory.path(), before);
        QCOMPARE(tree(directory.path()), before);
        StandardErrorCapture capture;
        remove(directory.path() + path);
        QCOMPARE(capture.take(), QByteArray());
        QCOMPARE(tree(directory.path()), after);
    }
}

void PathsTest::emptyPathToDeleteIsTheCurrentDirectory()
{
    for (const OnPath remove : REMOVE) {
        const QTemporaryDir directory;
        makeTree(directory.path(), {"a/deep/here/file", "a/kept"});
        StandardErrorCapture capture;
        const CurrentDirectory current(directory.path() + "/a/deep/here");
        remove(QString());
        QCOMPARE(capture.take(), QByteArray());
        QCOMPARE(tree(directory.path()), Tree({"a/", "a/deep/", "a/kept"}));
    }
}

void PathsTest::currentDirectoryIsGone()
{
    for (const OnPath remove : REMOVE) {
        const QTemporaryDir directory;
        makeTree(directory.path(), {"a/gone/", "a/kept"});
        const CurrentDirectory current(directory.path() + "/a/gone");
        QVERIFY(QDir().rmdir(directory.path() + "/a/gone"));
        StandardErrorCapture capture;
        for (const char *path : {"", ".", "..", "./", "none", "../kept"})
            remove(path);
        QCOMPARE(capture.take(), QByteArray());
        QCOMPARE(tree(directory.path()), Tree({"a/", "a/kept"}));
    }
}

void PathsTest::relativePathsLieInTheCurrentDirectory()
{
    const QTemporaryDir directory;
    StandardErrorCapture capture;
    const CurrentDirectory current(directory.path());
    VornFileHandler::createFolder("a/b");
    VornFileHandler::createDCIMFolder("a/c");
    QCOMPARE(tree(directory.path()), Tree({"a/", "a/b/", "a/c/"}));
    VornFileHandler::deleteFolder("a/b");
    QCOMPARE(tree(directory.path()), Tree({"a/", "a/c/"}));
    VornFileHandler::deleteDCIMFolder("a");
    QCOMPARE(tree(directory.path()), Tree());
    QCOMPARE(capture.take(), QByteArray());
}

void PathsTest::createNumbered()
{
    for (const eStorageType storage : {STORAGE_MMC, STORAGE_SD, STORAGE_USB}) {
        const Storages storages;
        const QString location = storages.location(storage);
        StandardErrorCapture capture;
        CREATE_NUMBERED(storage, 100);
        CREATE_NUMBERED(storage, 7);
        CREATE_NUMBERED(storage, 1000);
        CREATE_NUMBERED(storage, 100);
        QCOMPARE(capture.take(), QByteArray());
        QCOMPARE(tree(location), Tree({"1000ABC/", "100ABC/", "7ABC/"}));
        QCOMPARE(tree(storages.path()).size(), 5); // and the two levels of the location
    }
}

void PathsTest::deleteNumbered()
{
    for (const eStorageType storage : {STORAGE_MMC, STORAGE_SD, STORAGE_USB}) {
        const Storages storages;
        makeTree(storages.location(storage), {"100/", "1000ABC/", "100ABC/DCF_0001.jpg", "101ABC/x"});
        StandardErrorCapture capture;
        REMOVE_NUMBERED(storage, 100);
        REMOVE_NUMBERED(storage, 102);
        QCOMPARE(capture.take(), QByteArray());
        QCOMPARE(tree(storages.location(storage)), Tree({"100/", "1000ABC/", "101ABC/", "101ABC/x"}));
    }
}

void PathsTest::createNamed_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<Tree>("after"); // beside the location, which is sd/DCIM
    QTest::newRow("plain") << "MISC" << Tree{"sd/", "sd/DCIM/", "sd/DCIM/MISC/"};
    QTest::newRow("nested") << "a/b" << Tree{"sd/", "sd/DCIM/", "sd/DCIM/a/", "sd/DCIM/a/b/"};
    QTest::newRow("empty-is-the-location") << "" << Tree{"sd/", "sd/DCIM/"};
    QTest::newRow("current-is-the-location") << "." << Tree{"sd/", "sd/DCIM/"};
    QTest::newRow("parent") << ".." << Tree{"sd/", "sd/DCIM/"};
    QTest::newRow("beside-the-location") << "../OTHER" << Tree{"sd/", "sd/DCIM/", "sd/OTHER/"};
    QTest::newRow("marker") << "%1" << Tree{"sd/", "sd/DCIM/", "sd/DCIM/%1/"};
    QTest::newRow("zero-byte") << "a" + ZERO_BYTE << Tree{};
}

void PathsTest::createNamed()
{
    QFETCH(QString, name);
    QFETCH(Tree, after);
    const Storages storages;
    StandardErrorCapture capture;
    CREATE_NAMED(STORAGE_SD, name);
    QCOMPARE(capture.take(), QByteArray());
    QCOMPARE(tree(storages.path()), after);
}

void PathsTest::deleteNamed_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<Tree>("after"); // of usb/deep/sd/DCIM/{100ABC/x,MISC/a/b,file}, usb/deep/sd/x, usb/y
    const Tree above = {"usb/", "usb/deep/"};
    const Tree tail = {"usb/y"};
    const Tree location = {"usb/deep/sd/", "usb/deep/sd/DCIM/"};
    const Tree numbered = {"usb/deep/sd/DCIM/100ABC/", "usb/deep/sd/DCIM/100ABC/x"};
    const Tree misc = {"usb/deep/sd/DCIM/MISC/", "usb/deep/sd/DCIM/MISC/a/", "usb/deep/sd/DCIM/MISC/a/b"};
    const Tree loose = {"usb/deep/sd/DCIM/file"};
    const Tree beside = {"usb/deep/sd/x"};
    QTest::newRow("plain") << "MISC" << above + location + numbered + loose + beside + tail;
    QTest::newRow("nested") << "MISC/a"
                            << above + location + numbered + Tree{misc[0]} + loose + beside + tail;
    QTest::newRow("numbered-by-its-name") << "100ABC" << above + location + misc + loose + beside + tail;
    QTest::newRow("empty-is-the-location") << "" << above + Tree{location[0]} + beside + tail;
    QTest::newRow("current-is-the-location") << "." << above + Tree{location[0]} + beside + tail;
    QTest::newRow("missing") << "none" << above + location + numbered + misc + loose + beside + tail;
    QTest::newRow("file") << "file" << above + location + numbered + misc + loose + beside + tail;
    QTest::newRow("zero-byte") << "MISC" + ZERO_BYTE
                               << above + location + numbered + misc + loose + beside + tail;
}

void PathsTest::deleteNamed()
{
    QFETCH(QString, name);
    QFETCH(Tree, after);
    const Storages storages;
    makeTree(storages.path(), {"usb/deep/sd/DCIM/100ABC/x", "usb/deep/sd/DCIM/MISC/a/b",
                               "usb/deep/sd/DCIM/file", "usb/deep/sd/x", "usb/y"});
    StandardErrorCapture capture;
    useSuffixAndLocation("ABC", storages.path() + "/usb/deep/sd/DCIM");
    REMOVE_NAMED(STORAGE_SD, name);
    QCOMPARE(capture.take(), QByteArray());
    QCOMPARE(tree(storages.path()), after);
}

void PathsTest::parentAsNameDeletesTheDirectoryAbove()
{
    const Storages storages;
    makeTree(storages.path(), {"kept", "sd/beside/x", "sd/DCIM/100ABC/x", "sd/DCIM/file", "sd/more"});
    StandardErrorCapture capture;
    REMOVE_NAMED(STORAGE_SD, "..");
    QCOMPARE(capture.take(), QByteArray());
    QCOMPARE(tree(storages.path()), Tree{"kept"});
}

void PathsTest::unsupportedStorageWorksInTmp()
{
    const Storages storages;
    StandardErrorCapture capture;
    const auto answer = withEmptyTmp([] {
        CREATE_NUMBERED(anyStorage(3), 100);
        CREATE_NUMBERED(anyStorage(-1), 101);
        CREATE_NAMED(anyStorage(1000), "MISC");
        CREATE_NAMED(anyStorage(3), "GONE");
        REMOVE_NAMED(anyStorage(3), "GONE");
        REMOVE_NUMBERED(anyStorage(3), 101);
        return tree("/tmp").join(" ");
    });
    if (!answer)
        QSKIP("this user may not mount");
    QCOMPARE(*answer, QByteArray("100ABC/ MISC/"));
    QCOMPARE(capture.take(), QByteArray());
}

void PathsTest::readOnlyMediumStaysAsItIs()
{
    const Storages storages;
    makeTree(storages.sd(), {"100ABC/DCF_0001.jpg", "MISC/x"});
    const Tree before = tree(storages.path());
    StandardErrorCapture capture;
    const auto answer = onReadOnlyMedium(storages.path(), [&storages] {
        CREATE_NUMBERED(STORAGE_SD, 101);
        CREATE_NAMED(STORAGE_SD, "NEW");
        REMOVE_NUMBERED(STORAGE_SD, 100);
        REMOVE_NAMED(STORAGE_SD, "MISC");
        return tree(storages.path()).join(" ");
    });
    if (!answer)
        QSKIP("this user may not mount");
    QCOMPARE(*answer, before.join(" "));
    QCOMPARE(capture.take(), QByteArray());
    QCOMPARE(tree(storages.path()), before);
}

QTEST_GUILESS_MAIN(PathsTest)
#include "tst_paths.moc"

// SPDX-License-Identifier: MIT
#include "testsupport.h"

#include <QtTest>

#include <type_traits>

using namespace VORN_FILE_HANDLER;

static_assert(FILE_TYPE_IMAGE == 16 && FILE_TYPE_IMAGE_JPEG == 17 && FILE_TYPE_IMAGE_PNG == 18
              && FILE_TYPE_THUMB == 20 && FILE_TYPE_VIDEO == 32 && FILE_TYPE_VIDEO_AVI == 33
              && FILE_TYPE_VIDEO_MKV == 34 && FILE_TYPE_AUDIO == 64 && FILE_TYPE_AUDIO_WAV == 65
              && FILE_TYPE_DIRECTORY == 128 && FILE_TYPE_UNKNOWN == -1);
static_assert(std::is_enum_v<eFileTypes> && std::is_convertible_v<eFileTypes, int>);

namespace {

// Both names of the operations on a path
constexpr void (*CREATE[])(QString) = {&VornFileHandler::createFolder, &VornFileHandler::createDCIMFolder};
constexpr void (*REMOVE[])(QString) = {&VornFileHandler::deleteFolder, &VornFileHandler::deleteDCIMFolder};

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
    void folderPath_data();
    void folderPath();
    void namedFolderPath_data();
    void namedFolderPath();
    void filePath_data();
    void filePath();
    void storageDevicesHaveSeparatePaths();
    void unsupportedStorageIsInTmp_data();
    void unsupportedStorageIsInTmp();
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
    void currentDirectoryWasDeleted();
    void relativePathsStartInTheCurrentDirectory();
    void createNumbered();
    void deleteNumbered();
    void createNamed_data();
    void createNamed();
    void deleteNamed_data();
    void deleteNamed();
    void parentAsNameDeletesTheDirectoryAbove();
    void unsupportedStorageUsesTmp();
    void readOnlyFileSystemIsUnchanged();
};

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
    row("location-with-a-trailing-slash", "/media/sd/DCIM/", "ABC", 100, "/media/sd/DCIM/100ABC");
    row("location-with-dots", "/media/./usb/../sd/DCIM/.", "ABC", 100, "/media/sd/DCIM/100ABC");
    row("location-with-doubled-slashes", "/media//sd///DCIM", "ABC", 100, "/media/sd/DCIM/100ABC");
    row("location-is-the-root", "/", "ABC", 100, "//100ABC");
    row("location-without-dcim", "/media/sd", "ABC", 100, "/media/sd/100ABC");
    row("spaces-in-the-suffix", sd, " A B ", 100, "/media/sd/DCIM/100 A B ");
    row("line-feed-in-the-suffix", sd, "A\n", 100, "/media/sd/DCIM/100A\n");
    row("slash-in-the-suffix", sd, "A/../B", 100, "/media/sd/DCIM/100A/../B");
    row("digits-in-the-suffix", sd, "007", 100, "/media/sd/DCIM/100007");
    row("pattern-characters-in-the-suffix", sd, "A[*?(", 100, "/media/sd/DCIM/100A[*?(");
    row("suffix-outside-ascii", sd, "\u00c4\U0001F4F7", 100, "/media/sd/DCIM/100\u00c4\U0001F4F7");
    row("place-marker-in-the-suffix-stays", sd, "%1", 100, "/media/sd/DCIM/100%1");
    row("two-place-markers-in-the-suffix-stay", sd, "%2%3", 100, "/media/sd/DCIM/100%2%3");
    row("location-contains-marker-1", "/media/%1x", "ABC", 100, "/media/100x/ABC%3");
    row("location-contains-marker-2", "/media/%2x", "ABC", 100, "/media/100x/100ABC");
    row("location-contains-marker-3", "/media/%3x", "ABC", 100, "/media/ABCx/100ABC");
    row("location-contains-marker-4", "/media/%4x", "ABC", 100, "/media/%4x/100ABC");
    row("location-contains-markers-1-and-2", "/%1/%2", "ABC", 100, "/100/ABC/ABC%3");
    row("location-contains-marker-0", "/media/%0x", "ABC", 100, "/media/100x/ABC%3");
    row("location-contains-marker-01", "/media/%01x", "ABC", 100, "/media/100x/ABC%3");
    row("location-contains-marker-12", "/media/%12x", "ABC", 100, "/media/%12x/100ABC");
    row("location-contains-a-localised-marker", "/media/%L1x", "ABC", 100, "/media/100x/ABC%3");
    row("location-contains-a-single-percent-sign", "/media/50%", "ABC", 100, "/media/50%/100ABC");
    row("location-contains-a-doubled-percent-sign", "/media/%%1", "ABC", 100, "/media/%100/ABC%3");
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
    QCOMPARE(VornFileHandler::getDirPath(STORAGE_SD, number), expected);
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
    row("spaces", sd, " a b ", "/media/sd/DCIM/ a b ");
    row("outside-ascii", sd, "\u00c4", "/media/sd/DCIM/\u00c4");
    row("null-character", sd, "a" + NUL + "b", "/media/sd/DCIM/a" + NUL + "b");
    row("place-marker-in-the-name-stays", sd, "%1%2", "/media/sd/DCIM/%1%2");
    row("location-contains-marker-1", "/m/%1x", "MISC", "/m/MISCx/%2");
    row("location-contains-marker-2", "/m/%2x", "MISC", "/m/MISCx/MISC");
    row("location-contains-marker-3", "/m/%3x", "MISC", "/m/%3x/MISC");
    row("location-with-a-trailing-slash", "/m/", "MISC", "/m/MISC");
    row("location-with-dots", "/m/../n/.", "MISC", "/n/MISC");
}

void PathsTest::namedFolderPath()
{
    QFETCH(QString, location);
    QFETCH(QString, name);
    QFETCH(QString, expected);
    const Storages storages;
    StandardErrorCapture capture;
    useSuffixAndLocation("ABC", location); // the suffix applies to numbered folders only
    QCOMPARE(VornFileHandler::getDirPath(STORAGE_SD, name), expected);
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
    row("place-marker-in-the-extension-stays", "/sd", "ABC", 7, "%1", "/sd/100ABC/DCF_0007.%1");
    row("empty-suffix", "/sd", "", 7, "wav", "/sd/100/DCF_0007.wav");
    row("suffix-contains-marker-1", "/sd", "%1", 7, "jpg", "/sd/100DCF_/0007jpg.%4");
    row("suffix-contains-marker-2", "/sd", "%2", 7, "jpg", "/sd/100DCF_/DCF_0007.jpg");
    row("suffix-contains-marker-3", "/sd", "%3", 7, "jpg", "/sd/1000007/DCF_0007.jpg");
    row("suffix-contains-marker-4", "/sd", "%4", 7, "jpg", "/sd/100jpg/DCF_0007.jpg");
    row("suffix-contains-marker-5", "/sd", "%5", 7, "jpg", "/sd/100%5/DCF_0007.jpg");
    row("suffix-contains-markers-1-and-2", "/sd", "%1%2", 7, "jpg", "/sd/100DCF_0007/0007jpg.%4");
    row("location-contains-marker-1", "/%1x", "ABC", 7, "jpg", "/100x/ABC0007/DCF_0007.jpg");
    row("location-contains-marker-2", "/%2x", "ABC", 7, "jpg", "/100x/100ABC/DCF_0007.jpg");
    row("location-contains-marker-4", "/%4x", "ABC", 7, "jpg", "/jpgx/100ABC/DCF_0007.jpg");
    row("location-contains-marker-5", "/%5x", "ABC", 7, "jpg", "/%5x/100ABC/DCF_0007.jpg");
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
    QCOMPARE(VornFileHandler::getFilePath(STORAGE_SD, 100, number, fileExtension), expected);
    QCOMPARE(capture.take(), QByteArray());
}

void PathsTest::storageDevicesHaveSeparatePaths()
{
    const Storages storages;
    StandardErrorCapture capture;
    for (const eStorageType storage : {STORAGE_MMC, STORAGE_SD, STORAGE_USB}) {
        const QString location = storages.location(storage);
        QCOMPARE(VornFileHandler::getDirPath(storage, 101), location + "/101ABC");
        QCOMPARE(VornFileHandler::getDirPath(storage, "MISC"), location + "/MISC");
        QCOMPARE(VornFileHandler::getFilePath(storage, 101, 1, "wav"), location + "/101ABC/DCF_0001.wav");
    }
    QCOMPARE(capture.take(), QByteArray());
    QCOMPARE(tree(storages.path()), Tree());
}

void PathsTest::unsupportedStorageIsInTmp_data()
{
    QTest::addColumn<int>("value");
    row("after-the-last", 3);
    row("negative", -1);
    row("far-after-the-last", 1000);
}

void PathsTest::unsupportedStorageIsInTmp()
{
    QFETCH(int, value);
    const Storages storages;
    StandardErrorCapture capture;
    QCOMPARE(VornFileHandler::getDirPath(anyStorage(value), 100), QString("/tmp/100ABC"));
    QCOMPARE(VornFileHandler::getDirPath(anyStorage(value), "MISC"), QString("/tmp/MISC"));
    QCOMPARE(VornFileHandler::getFilePath(anyStorage(value), 100, 1, "jpg"),
             QString("/tmp/100ABC/DCF_0001.jpg"));
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
        QCOMPARE(VornFileHandler::getDirPath(STORAGE_SD, 100), root + name + "/x/DCIM/100ABC");
        QCOMPARE(VornFileHandler::getDirPath(STORAGE_SD, "M"), root + name + "/x/DCIM/M");
        QCOMPARE(VornFileHandler::getFilePath(STORAGE_SD, 100, 1, "jpg"),
                 root + name + "/x/DCIM/100ABC/DCF_0001.jpg");
        VornFileHandler::createDCIMFolder(STORAGE_SD, 100);
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
    row("image", 16, "jpg");
    row("jpeg", 17, "jpg");
    row("png", 18, "png");
    row("thumbnail", 20, "thumb");
    row("video", 32, "avi");
    row("avi", 33, "avi");
    row("matroska", 34, "mkv");
    row("audio-is-avi", 64, "avi");
    row("wav", 65, "wav");
    for (const int type : {128, -1, 0, 1, 15, 19, 21, 31, 35, 48, 63, 66, 80, 127, 129, 240, 272, 1000, -2})
        row("none-for-" + QByteArray::number(type), type, "");
}

void PathsTest::extension()
{
    QFETCH(int, type);
    QFETCH(QString, expected);
    StandardErrorCapture capture;
    QCOMPARE(VornFileHandler::getFileExtension(anyType(type)), expected);
    QCOMPARE(capture.take(), QByteArray());
}

void PathsTest::dosBaseName_data()
{
    QTest::addColumn<QString>("path");
    QTest::addColumn<QString>("expected");
    row("empty", "", "");
    row("null", QString(), "");
    row("full-path", "/media/sd/DCIM/100ABC/DCF_0007.jpg", "/DCF_000");
    row("name-alone", "DCF_0007.jpg", "DCF_0007");
    row("short-name-alone", "a.jpg", "a.jpg");
    row("eight-characters-alone", "12345678", "12345678");
    row("nine-characters-alone", "123456789", "12345678");
    row("slash-alone", "/", "/");
    row("trailing-slash", "/media/sd/", "/");
    row("two-trailing-slashes", "/media/sd//", "/");
    row("short-name-in-a-folder", "a/b.c", "/b.c");
    row("seven-characters-in-a-folder", "a/1234567", "/1234567");
    row("eight-characters-in-a-folder", "a/12345678", "/1234567");
    row("backslash-is-not-a-separator", "a\\b\\c", "a\\b\\c");
    row("counted-in-characters-outside-ascii", "\u00e4\u00f6\u00fc456789", "\u00e4\u00f6\u00fc45678");
    row("null-character-is-counted", "1" + NUL + "3456789", "1" + NUL + "345678");
}

void PathsTest::dosBaseName()
{
    QFETCH(QString, path);
    QFETCH(QString, expected);
    StandardErrorCapture capture;
    QCOMPARE(VornFileHandler::getDosBaseName(path), expected);
    QCOMPARE(capture.take(), QByteArray());
}

void PathsTest::createByPath_data()
{
    QTest::addColumn<Tree>("before");
    QTest::addColumn<QString>("path"); // relative to the test's directory; a null value is passed unchanged
    QTest::addColumn<Tree>("after");
    const auto row = [](const char *name, const Tree &before, const QString &path, const Tree &after) {
        QTest::newRow(name) << before << path << after;
    };
    row("new", {}, "/a", {"a/"});
    row("with-all-parents", {}, "/a/b/c", {"a/", "a/b/", "a/b/c/"});
    row("exists", {"a/", "a/file"}, "/a", {"a/", "a/file"});
    row("trailing-slash", {}, "/a/", {"a/"});
    row("dots", {}, "/a/../b/./c", {"a/", "b/", "b/c/"}); // the folder that ".." leaves is created too
    row("file-in-its-place", {"a"}, "/a", {"a"});
    row("file-as-parent", {"a"}, "/a/b", {"a"});
    row("below-a-link", {"a/", "link -> a"}, "/link/b", {"a/", "a/b/", "link -> a"});
    row("dangling-link", {"link -> none"}, "/link", {"link -> none"});
    row("below-a-dangling-link", {"link -> none"}, "/link/b", {"link -> none"});
    row("odd-name", {}, "/ %1\n", {" %1\n/"});
    row("outside-ascii", {}, "/\u00e4", {"\u00e4/"});
    row("name-too-long", {}, "/" + QString(256, 'a'), {});
    row("null-character", {}, "/a" + NUL + "b", {});
    row("empty-path", {"a/"}, QString(), {"a/"});
}

void PathsTest::createByPath()
{
    QFETCH(Tree, before);
    QFETCH(QString, path);
    QFETCH(Tree, after);
    for (const auto create : CREATE) {
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
    row("folder-and-its-content", full, "/a", {"kept/", "kept/file"});
    row("empty-folder", {"a/"}, "/a", {});
    row("trailing-slash", {"a/", "a/file"}, "/a/", {});
    row("missing", {"a/"}, "/none", {"a/"});
    row("file", {"a"}, "/a", {"a"});
    row("links-inside-are-not-followed",
        {"a/", "a/dir -> ../kept", "a/file -> ../kept/file", "kept/", "kept/file"}, "/a",
        {"kept/", "kept/file"});
    row("dangling-link-inside", {"a/", "a/link -> none"}, "/a", {});
    row("target-of-a-link-is-emptied", {"a/", "a/file", "link -> a"}, "/link", {"a/", "link -> a"});
    row("dangling-link", {"link -> none"}, "/link", {"link -> none"});
    row("dots", {"a/", "a/file", "b/"}, "/b/../a/.", {"b/"});
    row("name-not-utf-8-remains", {"a/", "a/file", "a/\377"}, "/a", {"a/", "a/\377"});
    row("outside-ascii", {"\u00e4/", "\u00e4/\u00f6"}, "/\u00e4", {});
    row("null-character", {"a/"}, "/a" + NUL, {"a/"});
    row("null-character-after-dots", {"a/", "a/b/"}, "/a/b/../c" + NUL, {"a/", "a/b/"});
    row("parent-of-a-folder", {"a/", "a/b/", "a/b/file", "a/c", "a/d/", "a/d/file"}, "/a/b/..", {});
    row("parent-of-a-missing-folder", {"a/", "a/file"}, "/a/none/..", {"a/", "a/file"});
    row("parent-of-a-file", {"a/", "a/file"}, "/a/file/..", {"a/", "a/file"});
    row("link-to-a-folder-after-a-parent", {"a/", "b/", "b/file", "link -> b"}, "/a/../link",
        {"a/", "b/", "link -> b"});
    row("link-with-a-slash-after-a-parent", {"a/", "b/", "b/file", "link -> b"}, "/a/../link/",
        {"a/", "b/", "link -> b"});
    for (const char *end : {"/.", "/./", "/././"})
        row((QByteArray("link-with-") + end + "-after-a-parent").constData(),
            {"a/", "b/", "b/file", "link -> b"}, QString("/a/../link") + end, {"a/", "b/", "link -> b"});
    row("folder-after-a-parent", {"a/", "b/", "b/file"}, "/a/../b", {"a/"});
    row("parent-of-the-target-of-a-link", {"a/", "a/link -> ../b/c", "b/", "b/c/", "b/file"}, "/a/link/..",
        {"a/", "a/link -> ../b/c"});
}

void PathsTest::deleteByPath()
{
    QFETCH(Tree, before);
    QFETCH(QString, path);
    QFETCH(Tree, after);
    for (const auto remove : REMOVE) {
        const Storages directory; // a QTemporaryDir would leave behind the name that is not UTF-8
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
    for (const auto remove : REMOVE) {
        const QTemporaryDir directory;
        makeTree(directory.path(), {"a/deep/here/file", "a/kept"});
        StandardErrorCapture capture;
        const CurrentDirectory current(directory.path() + "/a/deep/here");
        remove(QString());
        QCOMPARE(capture.take(), QByteArray());
        QCOMPARE(tree(directory.path()), Tree({"a/", "a/deep/", "a/kept"}));
    }
}

void PathsTest::currentDirectoryWasDeleted()
{
    for (const auto remove : REMOVE) {
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

void PathsTest::relativePathsStartInTheCurrentDirectory()
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
        VornFileHandler::createDCIMFolder(storage, 100);
        VornFileHandler::createDCIMFolder(storage, 7);
        VornFileHandler::createDCIMFolder(storage, 1000);
        VornFileHandler::createDCIMFolder(storage, 100);
        QCOMPARE(capture.take(), QByteArray());
        QCOMPARE(tree(location), Tree({"1000ABC/", "100ABC/", "7ABC/"}));
        QCOMPARE(tree(storages.path()).size(), 5); // with the two levels of the location
    }
}

void PathsTest::deleteNumbered()
{
    for (const eStorageType storage : {STORAGE_MMC, STORAGE_SD, STORAGE_USB}) {
        const Storages storages;
        makeTree(storages.location(storage), {"100/", "1000ABC/", "100ABC/DCF_0001.jpg", "101ABC/x"});
        StandardErrorCapture capture;
        VornFileHandler::deleteDCIMFolder(storage, 100);
        VornFileHandler::deleteDCIMFolder(storage, 102);
        QCOMPARE(capture.take(), QByteArray());
        QCOMPARE(tree(storages.location(storage)), Tree({"100/", "1000ABC/", "101ABC/", "101ABC/x"}));
    }
}

void PathsTest::createNamed_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<Tree>("after"); // the location is sd/DCIM
    const auto row = [](const char *title, const QString &name, const Tree &after) {
        QTest::newRow(title) << name << after;
    };
    row("plain", "MISC", {"sd/", "sd/DCIM/", "sd/DCIM/MISC/"});
    row("nested", "a/b", {"sd/", "sd/DCIM/", "sd/DCIM/a/", "sd/DCIM/a/b/"});
    row("empty-is-the-location", "", {"sd/", "sd/DCIM/"});
    row("current-is-the-location", ".", {"sd/", "sd/DCIM/"});
    row("parent", "..", {"sd/", "sd/DCIM/"});
    row("beside-the-location", "../OTHER", {"sd/", "sd/DCIM/", "sd/OTHER/"});
    row("place-marker", "%1", {"sd/", "sd/DCIM/", "sd/DCIM/%1/"});
    row("null-character", "a" + NUL, {});
}

void PathsTest::createNamed()
{
    QFETCH(QString, name);
    QFETCH(Tree, after);
    const Storages storages;
    StandardErrorCapture capture;
    VornFileHandler::createFolder(STORAGE_SD, name);
    QCOMPARE(capture.take(), QByteArray());
    QCOMPARE(tree(storages.path()), after);
}

void PathsTest::deleteNamed_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<Tree>("deleted");
    const auto row = [](const char *title, const QString &name, const Tree &deleted) {
        QTest::newRow(title) << name << deleted;
    };
    const Tree numbered = {"sd/DCIM/100ABC/", "sd/DCIM/100ABC/x"};
    const Tree misc = {"sd/DCIM/MISC/", "sd/DCIM/MISC/a/", "sd/DCIM/MISC/a/b"};
    const Tree location = Tree{"sd/DCIM/"} + numbered + misc + Tree{"sd/DCIM/file"};
    row("plain", "MISC", misc);
    row("nested", "MISC/a", misc.mid(1));
    row("numbered-by-its-name", "100ABC", numbered);
    row("empty-is-the-location", "", location);
    row("current-is-the-location", ".", location);
    row("missing", "none", {});
    row("file", "file", {});
    row("null-character", "MISC" + NUL, {});
}

void PathsTest::deleteNamed()
{
    QFETCH(QString, name);
    QFETCH(Tree, deleted);
    const Storages storages;
    makeTree(storages.path(), {"sd/DCIM/100ABC/x", "sd/DCIM/MISC/a/b", "sd/DCIM/file", "sd/x", "usb/y"});
    Tree expected = tree(storages.path());
    for (const QByteArray &entry : deleted)
        QVERIFY(expected.removeOne(entry));
    StandardErrorCapture capture;
    VornFileHandler::deleteFolder(STORAGE_SD, name);
    QCOMPARE(capture.take(), QByteArray());
    QCOMPARE(tree(storages.path()), expected);
}

void PathsTest::parentAsNameDeletesTheDirectoryAbove()
{
    const Storages storages;
    makeTree(storages.path(), {"kept", "sd/beside/x", "sd/DCIM/100ABC/x", "sd/DCIM/file", "sd/more"});
    StandardErrorCapture capture;
    VornFileHandler::deleteFolder(STORAGE_SD, "..");
    QCOMPARE(capture.take(), QByteArray());
    QCOMPARE(tree(storages.path()), Tree{"kept"});
}

void PathsTest::unsupportedStorageUsesTmp()
{
    const Storages storages;
    StandardErrorCapture capture;
    const auto result = withEmptyTmp([] {
        VornFileHandler::createDCIMFolder(anyStorage(3), 100);
        VornFileHandler::createDCIMFolder(anyStorage(-1), 101);
        VornFileHandler::createFolder(anyStorage(1000), "MISC");
        VornFileHandler::createFolder(anyStorage(3), "GONE");
        VornFileHandler::deleteFolder(anyStorage(3), "GONE");
        VornFileHandler::deleteDCIMFolder(anyStorage(3), 101);
        return tree("/tmp").join(" ");
    });
    if (!result)
        QSKIP("mounting is not permitted");
    QCOMPARE(*result, QByteArray("100ABC/ MISC/"));
    QCOMPARE(capture.take(), QByteArray());
}

void PathsTest::readOnlyFileSystemIsUnchanged()
{
    const Storages storages;
    makeTree(storages.sd(), {"100ABC/DCF_0001.jpg", "MISC/x"});
    const Tree before = tree(storages.path());
    StandardErrorCapture capture;
    const auto result = onReadOnlyFileSystem(storages.path(), [&storages] {
        VornFileHandler::createDCIMFolder(STORAGE_SD, 101);
        VornFileHandler::createFolder(STORAGE_SD, "NEW");
        VornFileHandler::deleteDCIMFolder(STORAGE_SD, 100);
        VornFileHandler::deleteFolder(STORAGE_SD, "MISC");
        return tree(storages.path()).join(" ");
    });
    if (!result)
        QSKIP("mounting is not permitted");
    QCOMPARE(*result, before.join(" "));
    QCOMPARE(capture.take(), QByteArray());
    QCOMPARE(tree(storages.path()), before);
}

QTEST_GUILESS_MAIN(PathsTest)
#include "tst_paths.moc"

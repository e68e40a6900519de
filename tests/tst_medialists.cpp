// SPDX-License-Identifier: MIT
#include "testsupport.h"

#include <QtTest>

#include <algorithm>

using namespace VORN_FILE_HANDLER;

namespace {

using List = QFileInfoList (*)(eStorageType, eDIRECTORY_FILTER);

QFileInfoList photos(eStorageType storage, eDIRECTORY_FILTER filter)
{
    return VornFileHandler::getImageList(storage, false, filter);
}

QFileInfoList photosAndThumbnails(eStorageType storage, eDIRECTORY_FILTER filter)
{
    return VornFileHandler::getImageList(storage, true, filter);
}

constexpr List videos = VornFileHandler::getVideoList;
constexpr List audio = VornFileHandler::getAudioList;

} // namespace

Q_DECLARE_METATYPE(List)

class MediaListsTest : public QObject
{
    Q_OBJECT

private slots:
    void lists_data();
    void lists();
    void listsByFolderFilter_data();
    void listsByFolderFilter();
    void listsOfEachStorage_data();
    void listsOfEachStorage();
    void selectsFoldersOncePerPass_data();
    void selectsFoldersOncePerPass();
    void countsInDirectory_data();
    void countsInDirectory();
    void countIgnoresSettingsOfTheDirectory();
    void countIgnoresWhatTheDirectoryHasCached();
    void countOfMissingDirectory_data();
    void countOfMissingDirectory();
    void countsOnStorage_data();
    void countsOnStorage();
    void countOnMissingLocation_data();
    void countOnMissingLocation();
    void deletesLocation_data();
    void deletesLocation();
    void deletesRelativeLocation();
    void deletesOneStorageOnly_data();
    void deletesOneStorageOnly();
    void readOnlyFileSystemIsUnchanged();
    void nextListingCreatesTheLocationAgain();
    void unsupportedStorageUsesTmp_data();
    void unsupportedStorageUsesTmp();
};

void MediaListsTest::lists_data()
{
    QTest::addColumn<List>("list");
    QTest::addColumn<Tree>("before");
    QTest::addColumn<QByteArrayList>("expected");
    const auto row = [](const char *name, List list, const Tree &before, const QByteArrayList &expected) {
        QTest::newRow(name) << list << before << expected;
    };
    row("photos-oldest-first", photos, {"100ABC/DCF_0001.jpg at 2", "100ABC/DCF_0002.jpg at 1"},
        {"100ABC/DCF_0002.jpg", "100ABC/DCF_0001.jpg"});
    row("photos-of-equal-time-in-descending-name-order", photos,
        {"100ABC/DCF_0001.jpg at 1", "100ABC/DCF_0002.jpg at 1", "100ABC/DCF_0003.jpg at 1"},
        {"100ABC/DCF_0003.jpg", "100ABC/DCF_0002.jpg", "100ABC/DCF_0001.jpg"});
    row("photos-folder-by-folder", photos, {"100ABC/DCF_0001.jpg at 2", "101ABC/DCF_0001.jpg at 1"},
        {"100ABC/DCF_0001.jpg", "101ABC/DCF_0001.jpg"});
    row("png-after-newer-jpeg", photos, {"100ABC/DCF_0001.png at 1", "100ABC/DCF_0002.jpg at 2"},
        {"100ABC/DCF_0002.jpg", "100ABC/DCF_0001.png"});
    row("all-png-after-all-jpeg", photos,
        {"100ABC/DCF_0001.png at 1", "100ABC/DCF_0002.jpg at 4", "101ABC/DCF_0001.png at 2",
         "101ABC/DCF_0002.jpg at 3"},
        {"100ABC/DCF_0002.jpg", "101ABC/DCF_0002.jpg", "100ABC/DCF_0001.png", "101ABC/DCF_0001.png"});
    row("png-oldest-first-in-each-folder", photos,
        {"100ABC/DCF_0001.png at 3", "100ABC/DCF_0002.png at 2", "101ABC/DCF_0009.png at 1"},
        {"100ABC/DCF_0002.png", "100ABC/DCF_0001.png", "101ABC/DCF_0009.png"});
    row("no-thumbnails-without-the-flag", photos,
        {"100ABC/DCF_0001.jpg", "100ABC/DCF_0001.thumb", "100ABC/DCF_0002.THUMB"}, {"100ABC/DCF_0001.jpg"});
    row("thumbnails-and-jpeg-by-time", photosAndThumbnails,
        {"100ABC/DCF_0001.jpg at 2", "100ABC/DCF_0001.thumb at 1", "100ABC/DCF_0002.jpg at 4",
         "100ABC/DCF_0002.thumb at 3"},
        {"100ABC/DCF_0001.thumb", "100ABC/DCF_0001.jpg", "100ABC/DCF_0002.thumb", "100ABC/DCF_0002.jpg"});
    row("thumbnails-folder-by-folder-and-all-png-last", photosAndThumbnails,
        {"100ABC/DCF_0001.png at 1", "100ABC/DCF_0002.jpg at 4", "100ABC/DCF_0002.thumb at 5",
         "101ABC/DCF_0001.jpg at 3", "101ABC/DCF_0001.thumb at 2", "101ABC/DCF_0002.png at 6"},
        {"100ABC/DCF_0002.jpg", "100ABC/DCF_0002.thumb", "101ABC/DCF_0001.thumb", "101ABC/DCF_0001.jpg",
         "100ABC/DCF_0001.png", "101ABC/DCF_0002.png"});
    row("thumbnails-alone", photosAndThumbnails, {"100ABC/DCF_0001.thumb"}, {"100ABC/DCF_0001.thumb"});
    row("photos-in-upper-case", photosAndThumbnails,
        {"100ABC/A.Png at 2", "100ABC/A.ThumB at 3", "100ABC/DCF_0001.JPG at 1"},
        {"100ABC/DCF_0001.JPG", "100ABC/A.ThumB", "100ABC/A.Png"});
    row("photos-only", photosAndThumbnails,
        {"100ABC/a.avi", "100ABC/a.jpeg", "100ABC/a.jpg.txt", "100ABC/a.mkv", "100ABC/a.txt", "100ABC/a.wav",
         "100ABC/a.xpng", "100ABC/jpg"},
        {});
    row("names-without-the-prefix-and-with-several-dots", photos,
        {"100ABC/holiday.2.jpg at 1", "100ABC/x.png.jpg at 2"}, {"100ABC/holiday.2.jpg", "100ABC/x.png.jpg"});
    row("avi-and-mkv-by-time", videos,
        {"100ABC/DCF_0001.avi at 2", "100ABC/DCF_0002.mkv at 1", "100ABC/DCF_0003.mkv at 3",
         "100ABC/DCF_0004.avi at 4"},
        {"100ABC/DCF_0002.mkv", "100ABC/DCF_0001.avi", "100ABC/DCF_0003.mkv", "100ABC/DCF_0004.avi"});
    row("videos-folder-by-folder", videos, {"100ABC/a.mkv at 2", "101ABC/a.avi at 1"},
        {"100ABC/a.mkv", "101ABC/a.avi"});
    row("videos-only", videos,
        {"100ABC/a.AVI", "100ABC/a.jpg", "100ABC/a.png", "100ABC/a.thumb", "100ABC/a.txt", "100ABC/a.wav"},
        {"100ABC/a.AVI"});
    row("videos-with-a-kelvin-sign", videos, {"100ABC/a.m\u212Av at 1", "100ABC/b.mkv at 2"},
        {"100ABC/a.m\u212Av", "100ABC/b.mkv"});
    row("audio-files-oldest-first", audio, {"100ABC/a.WAV at 2", "100ABC/b.wav at 1"},
        {"100ABC/b.wav", "100ABC/a.WAV"});
    row("audio-files-only", audio,
        {"100ABC/a.avi", "100ABC/a.jpg", "100ABC/a.mkv", "100ABC/a.png", "100ABC/a.thumb", "100ABC/wav"}, {});
    row("no-files-beside-the-folders-or-in-subfolders", photos,
        {"100ABC/200ABC/DCF_0003.png", "100ABC/sub/DCF_0002.jpg", "DCF_0001.jpg"}, {});
    row("no-hidden-files-links-or-folders", photosAndThumbnails,
        {"100ABC/.b.jpg", "100ABC/a.jpg", "100ABC/c.jpg -> a.jpg", "100ABC/d.jpg/", "100ABC/e.png -> x"},
        {"100ABC/a.jpg"});
    row("no-hidden-files-links-or-folders-outside-ascii", photosAndThumbnails,
        {"100ABC/.b.jpg", "100ABC/\u00FC.jpg", "100ABC/c.jpg -> \u00FC.jpg", "100ABC/\u00E4.jpg/"},
        {"100ABC/\u00FC.jpg"});
    row("no-names-that-are-not-utf-8", photos, {"100ABC/a.jpg", "100ABC/b\377.jpg", "100ABC/c.png"},
        {"100ABC/a.jpg", "100ABC/c.png"});
}

void MediaListsTest::lists()
{
    QFETCH(const List, list);
    QFETCH(const Tree, before);
    QFETCH(const QByteArrayList, expected);
    const Storages storages;
    makeTree(storages.sd(), before);
    const Tree all = tree(storages.path());

    StandardErrorCapture capture;
    const auto files = list(STORAGE_SD, DIRECTORY_FILTER_DCIM);
    QCOMPARE(capture.take(), QByteArray());
    QCOMPARE(relativePaths(files, storages.sd()), expected);
    QCOMPARE(tree(storages.path()), all);
}

void MediaListsTest::listsByFolderFilter_data()
{
    QTest::addColumn<QString>("suffix");
    QTest::addColumn<int>("filter");
    QTest::addColumn<QByteArrayList>("expected");
    const auto row = [](const char *name, const char *suffix, int filter, const QByteArrayList &expected) {
        QTest::newRow(name) << suffix << filter << expected;
    };
    row("numbered-folders", "ABC", 1, {"1000ABC", "100ABC", "100abc", "ABC"});
    row("other-folders", "ABC", 16, {"100", "1000ABC", "100abc", "ABC", "MISC"});
    row("all-folders", "ABC", 0, {"100", "1000ABC", "100ABC", "100abc", "ABC", "MISC"});
    row("undefined-filter-selects-all-folders", "ABC", 17,
        {"100", "1000ABC", "100ABC", "100abc", "ABC", "MISC"});
    row("numbered-folders-with-an-empty-suffix", "", 1,
        {".", "..", "100", "1000ABC", "100ABC", "100abc", "ABC", "MISC"});
    row("other-folders-with-an-empty-suffix", "", 16, {"1000ABC", "100ABC", "100abc", "ABC", "MISC"});
}

void MediaListsTest::listsByFolderFilter()
{
    QFETCH(const QString, suffix);
    QFETCH(const int, filter);
    QFETCH(const QByteArrayList, expected);
    const Storages storages(suffix);
    for (const char *folder :
         {"/.", "/..", "/MISC", "/ABC", "/1000ABC", "/100ABC", "/100abc", "/100", "/.100ABC"})
        makeTree(storages.sd() + folder, {"a.jpg", "a.avi", "a.wav"});
    for (const auto &[list, name] : {std::pair<List, const char *>(photos, "/a.jpg"),
                                     {photosAndThumbnails, "/a.jpg"},
                                     {videos, "/a.avi"},
                                     {audio, "/a.wav"}}) {
        StandardErrorCapture capture;
        const QFileInfoList files = list(STORAGE_SD, anyFilter(filter));
        QCOMPARE(capture.take(), QByteArray());
        QByteArrayList paths;
        for (const QByteArray &folder : expected)
            paths.append(QDir::cleanPath(storages.sd() + "/" + folder + name).toUtf8());
        QByteArrayList found;
        for (const QFileInfo &file : files)
            found.append(QDir::cleanPath(file.absoluteFilePath()).toUtf8());
        QCOMPARE(sorted(found), sorted(paths));
    }
}

void MediaListsTest::listsOfEachStorage_data()
{
    QTest::addColumn<List>("list");
    QTest::addColumn<QString>("name");

    row("photos", List(photos), "a.jpg");
    row("photos-and-thumbnails", List(photosAndThumbnails), "a.thumb");
    row("videos", videos, "a.mkv");
    row("audio-files", audio, "a.wav");
}

void MediaListsTest::listsOfEachStorage()
{
    QFETCH(const List, list);
    QFETCH(const QString, name);
    const Storages storages;
    for (const eStorageType storage : {STORAGE_MMC, STORAGE_SD, STORAGE_USB}) {
        const QString path = storages.location(storage) + "/100ABC/" + name;
        writeFile(path);
        StandardErrorCapture capture;
        const auto files = list(storage, DIRECTORY_FILTER_DCIM);
        QCOMPARE(capture.take(), QByteArray());
        QCOMPARE(files.size(), 1);
        QCOMPARE(files.first().absoluteFilePath(), path);
    }
}

void MediaListsTest::selectsFoldersOncePerPass_data()
{
    QTest::addColumn<List>("list");
    QTest::addColumn<int>("filter");
    QTest::addColumn<Tree>("before");
    QTest::addColumn<Tree>("after");
    QTest::addColumn<int>("lines");

    const Tree numbered = {"sd/", "sd/DCIM/", "sd/DCIM/100ABC/"};
    const Tree bare = {"sd/", "sd/DCIM/"};
    const Tree blocked = {"sd/", "sd/DCIM"};
    const auto rows = [&](const QByteArray &name, List list, int passes) {
        const auto row = [&](const char *where, int filter, const Tree &before, const Tree &after,
                             int lines) {
            QTest::newRow(name + where) << list << filter << before << after << lines;
        };
        row("-of-a-missing-location", 1, {}, numbered, 1);
        row("-of-other-folders-of-a-missing-location", 16, {}, bare, 1);
        row("-of-an-empty-location", 1, bare, numbered, 0);
        row("-of-other-folders-of-an-empty-location", 16, bare, bare, 0);
        row("-of-a-location-that-cannot-be-created", 1, blocked, blocked, passes);
        row("-of-all-folders-of-a-location-that-cannot-be-created", 0, blocked, blocked, passes);
        row("-of-a-location-below-a-file", 1, {"sd"}, {"sd"}, passes);
    };
    rows("photos", photos, 2);
    rows("photos-and-thumbnails", photosAndThumbnails, 2);
    rows("videos", videos, 1);
    rows("audio-files", audio, 1);
}

void MediaListsTest::selectsFoldersOncePerPass()
{
    QFETCH(const List, list);
    QFETCH(const int, filter);
    QFETCH(const Tree, before);
    QFETCH(const Tree, after);
    QFETCH(const int, lines);
    const Storages storages;
    makeTree(storages.path(), before);

    StandardErrorCapture capture;
    QCOMPARE(list(STORAGE_SD, anyFilter(filter)), QFileInfoList());
    QCOMPARE(capture.take(), missingLocationLine(storages.sd()).repeated(lines));
    QCOMPARE(tree(storages.path()), after);
}

void MediaListsTest::countsInDirectory_data()
{
    QTest::addColumn<Tree>("before");
    QTest::addColumn<int>("expected");
    const auto row = [](const char *name, const Tree &before, int expected) {
        QTest::newRow(name) << before << expected;
    };
    row("empty", {}, 0);
    row("jpeg", {"a.jpg"}, 1);
    row("png", {"a.png"}, 1);
    row("avi", {"a.avi"}, 1);
    row("mkv", {"a.mkv"}, 1);
    row("wav", {"a.wav"}, 1);
    row("every-kind", {"a.jpg", "a.png", "a.avi", "a.mkv", "a.wav", "b.jpg"}, 6);
    row("thumbnails-only", {"a.thumb", "b.thumb", "C.THUMB"}, 0);
    row("thumbnail-beside-its-photo", {"a.thumb", "a.jpg"}, 1);
    row("other-extensions", {"a.txt", "a.jpeg", "a.jpg~", "jpg", "ajpg", "a.jpg.tmp"}, 0);
    row("upper-case-extensions", {"DCF_0001.JPG", "a.Png", "a.AVI", "a.mKv", "a.wAV"}, 5);
    row("several-dots", {"a.b.jpg", "a..png", "a.thumb.jpg"}, 3);
    row("kelvin-sign-for-k", {"a.m\u212Av"}, 1);
    row("names-outside-ascii", {"\u00FC.jpg", "a.jpg", "\U0001F600.png", "\u00FC.txt"}, 3);
    row("not-counted-beside-names-outside-ascii",
        {"\u00FC.jpg", "b.jpg -> \u00FC.jpg", "\u00E9.jpg -> gone", "c.jpg/", "\u00E4.png/", ".\u00E4.jpg"},
        1);
    row("names-that-are-not-utf-8", {"a\377.jpg", "b.jpg", "\303.png"}, 1);
    row("hidden-files", {".a.jpg", ".jpg", "..jpg", "b.jpg"}, 1);
    row("links-to-media", {"a.jpg", "b.jpg -> a.jpg"}, 1);
    row("dangling-links", {"a.jpg -> missing"}, 0);
    row("folders-named-like-media", {"a.jpg/", "b.wav/c.txt"}, 0);
    row("media-in-subfolders", {"sub/a.jpg", "100ABC/b.jpg", "c.jpg"}, 1);
    row("spaces-and-line-feeds-in-names", {" .jpg", "a\n.png", "a .avi", "a. wav"}, 3);
    row("wildcards-in-names", {"*.jpg", "[a].png", "?.avi", "\\.mkv"}, 4);
}

void MediaListsTest::countsInDirectory()
{
    QFETCH(const Tree, before);
    QFETCH(const int, expected);
    const Storages directory; // a QTemporaryDir would leave behind the names that are not UTF-8
    makeTree(directory.path(), before);
    const Tree all = tree(directory.path());

    StandardErrorCapture capture;
    QCOMPARE(VornFileHandler::getMediaFileCount(QDir(directory.path())), expected);
    QCOMPARE(VornFileHandler::getMediaFileCount(QDir(directory.path() + "/")), expected);
    QCOMPARE(capture.take(), QByteArray());
    QCOMPARE(tree(directory.path()), all);
}

void MediaListsTest::countIgnoresSettingsOfTheDirectory()
{
    const QTemporaryDir directory;
    makeTree(directory.path(), {"a.jpg", "b.txt", ".c.jpg", "d/"});
    const QDir::Filters filters = QDir::Dirs | QDir::Hidden | QDir::CaseSensitive;
    const QDir asked(directory.path(), "*.txt", QDir::Size, filters);

    StandardErrorCapture capture;
    QCOMPARE(VornFileHandler::getMediaFileCount(asked), 1);
    QCOMPARE(capture.take(), QByteArray());
    QCOMPARE(asked.nameFilters(), QStringList{"*.txt"});
    QCOMPARE(asked.filter(), filters);
}

void MediaListsTest::countIgnoresWhatTheDirectoryHasCached()
{
    const QTemporaryDir directory;
    const QDir asked(directory.path(), "*.jpg", QDir::NoSort, QDir::Files);
    QCOMPARE(asked.count(), 0U);
    QVERIFY(asked.exists());
    makeTree(directory.path(), {"a.jpg"});
    StandardErrorCapture capture;
    QCOMPARE(VornFileHandler::getMediaFileCount(asked), 1);
    QCOMPARE(capture.take(), QByteArray());
}

void MediaListsTest::countOfMissingDirectory_data()
{
    QTest::addColumn<QString>("path"); // in a directory with a.jpg and the dangling link "link"
    QTest::addColumn<QByteArray>("printed");
    const auto row = [](const char *name, const QString &path, const QByteArray &printed) {
        QTest::newRow(name) << path << printed;
    };
    row("missing", "/gone", "/gone");
    row("missing-with-trailing-slash", "/gone/", "/gone");
    row("file-in-its-place", "/a.jpg", "/a.jpg");
    row("dangling-link", "/link", "/link");
    row("outside-ascii", "/\u00FC", "/\u00FC");
    row("percent-signs", "/%s%n%1", "/%s%n%1");
    row("null-character", "/a" + NUL + "b", "/a");
}

void MediaListsTest::countOfMissingDirectory()
{
    QFETCH(const QString, path);
    QFETCH(const QByteArray, printed);
    const QTemporaryDir directory;
    makeTree(directory.path(), {"a.jpg", "link -> gone"});

    StandardErrorCapture capture;
    QCOMPARE(VornFileHandler::getMediaFileCount(QDir(directory.path() + path)), 0);
    QCOMPARE(capture.take(), diagnosticLine(directory.path().toUtf8() + printed + " doesn't exist"));
    const CurrentDirectory current(directory.path());
    QCOMPARE(VornFileHandler::getMediaFileCount(QDir(path.mid(1))), 0);
    QCOMPARE(capture.take(), diagnosticLine(QDir::currentPath().toUtf8() + printed + " doesn't exist"));
    QCOMPARE(tree(directory.path()), Tree({"a.jpg", "link -> gone"}));
}

void MediaListsTest::countsOnStorage_data()
{
    QTest::addColumn<QString>("suffix");
    QTest::addColumn<Tree>("before"); // in the parent of the location, which is DCIM
    QTest::addColumn<int>("expected");
    const auto row = [](const char *name, const char *suffix, const Tree &before, int expected) {
        QTest::newRow(name) << suffix << before << expected;
    };
    row("one-folder", "ABC", {"DCIM/100ABC/a.jpg", "DCIM/100ABC/a.thumb"}, 1);
    row("several-folders", "ABC",
        {"DCIM/100ABC/a.jpg", "DCIM/101ABC/a.jpg", "DCIM/101ABC/b.wav", "DCIM/102ABC/a.txt"}, 3);
    row("folder-without-the-suffix", "ABC", {"DCIM/MISC/a.jpg", "DCIM/100ABC/a.jpg"}, 1);
    row("folders-that-only-end-in-the-suffix", "ABC",
        {"DCIM/ABC/a.jpg", "DCIM/1000ABC/a.jpg", "DCIM/XABC/a.jpg", "DCIM/100abc/a.jpg"}, 4);
    row("files-beside-the-folders-and-the-location", "ABC", {"DCIM/100ABC/a.jpg", "DCIM/b.jpg", "c.jpg"}, 1);
    row("subfolders", "ABC", {"DCIM/100ABC/101ABC/a.jpg"}, 0);
    row("hidden-folder-and-linked-folder", "ABC",
        {"DCIM/100ABC/a.jpg", "DCIM/.101ABC/a.jpg", "DCIM/102ABC -> 100ABC"}, 1);
    row("thumbnails-only", "ABC", {"DCIM/100ABC/a.thumb"}, 0);
    row("empty-suffix-counts-location-and-parent", "",
        {"DCIM/100/a.jpg", "DCIM/b.jpg", "DCIM/b.png", "c.jpg", "c.png", "c.avi", "c.mkv"}, 7);
    row("empty-suffix-and-files-in-the-location-only", "", {"DCIM/b.jpg"}, 1);
    row("empty-suffix-does-not-count-beside-the-location", "", {"DCIM/MISC/a.jpg", "OTHER/a.jpg", "../a.jpg"},
        1);
}

void MediaListsTest::countsOnStorage()
{
    QFETCH(const QString, suffix);
    QFETCH(const Tree, before);
    QFETCH(const int, expected);
    for (const eStorageType storage : {STORAGE_MMC, STORAGE_SD, STORAGE_USB}) {
        const Storages storages(suffix);
        makeTree(QFileInfo(storages.location(storage)).path(), Tree{"DCIM/"} + before);
        const Tree all = tree(storages.path());
        StandardErrorCapture capture;
        QCOMPARE(VornFileHandler::getMediaFileCount(storage), expected);
        QCOMPARE(capture.take(), QByteArray());
        QCOMPARE(tree(storages.path()), all);
    }
}

void MediaListsTest::countOnMissingLocation_data()
{
    QTest::addColumn<Tree>("before");
    QTest::addColumn<int>("lines");
    QTest::addColumn<Tree>("after");
    const auto row = [](const char *name, const Tree &before, int lines, const Tree &after) {
        QTest::newRow(name) << before << lines << after;
    };
    row("missing", {}, 1, {"sd/", "sd/DCIM/", "sd/DCIM/100ABC/"});
    row("empty", {"sd/DCIM/"}, 0, {"sd/", "sd/DCIM/", "sd/DCIM/100ABC/"});
    row("other-folders-only", {"sd/DCIM/MISC/a.jpg"}, 0,
        {"sd/", "sd/DCIM/", "sd/DCIM/100ABC/", "sd/DCIM/MISC/", "sd/DCIM/MISC/a.jpg"});
    row("file-in-its-place", {"sd/DCIM"}, 1, {"sd/", "sd/DCIM"});
    row("below-a-file", {"sd"}, 1, {"sd"});
}

void MediaListsTest::countOnMissingLocation()
{
    QFETCH(const Tree, before);
    QFETCH(const int, lines);
    QFETCH(const Tree, after);
    const Storages storages;
    makeTree(storages.path(), before);

    StandardErrorCapture capture;
    QCOMPARE(VornFileHandler::getMediaFileCount(STORAGE_SD), 0);
    QCOMPARE(capture.take(), missingLocationLine(storages.sd()).repeated(lines));
    QCOMPARE(tree(storages.path()), after);
}

void MediaListsTest::deletesLocation_data()
{
    QTest::addColumn<QString>("suffix");
    QTest::addColumn<QString>("location");
    QTest::addColumn<Tree>("before"); // in the location's parent
    QTest::addColumn<Tree>("left");   // in the location's parent
    QTest::addColumn<int>("lines");
    for (const char *const suffix : {"ABC", ""}) {
        const auto row = [suffix](const char *name, const char *location, const Tree &before,
                                  const Tree &left, int lines = 0) {
            QTest::addRow("%s%s", name, *suffix ? "" : "-with-an-empty-suffix")
                << suffix << location << before << left << lines;
        };
        row("numbered-folders", "DCIM", {"DCIM/100ABC/a.jpg", "DCIM/101ABC/b.jpg"}, {});
        row("other-folders-and-files", "DCIM", {"DCIM/100ABC/a.jpg", "DCIM/MISC/notes.txt", "DCIM/loose.jpg"},
            {});
        row("other-folders-only", "DCIM", {"DCIM/MISC/notes.txt"}, {});
        row("hidden-and-nested", "DCIM", {"DCIM/100ABC/a/b/c.jpg", "DCIM/.hidden/.x", "DCIM/100ABC/.y"}, {});
        row("targets-of-links-remain", "DCIM",
            {"outside/a.jpg", "DCIM/100ABC/", "DCIM/link -> ../outside", "DCIM/100ABC/x -> ../../outside",
             "DCIM/gone -> missing"},
            {"outside/", "outside/a.jpg"});
        row("missing-location", "DCIM", {}, {}, 1);
        row("empty-location", "DCIM", {"DCIM/"}, {});
        row("location-with-trailing-slash", "DCIM/", {"DCIM/100ABC/a.jpg"}, {});
        row("location-is-a-link", "link", {"target/100ABC/a.jpg", "target/loose.jpg", "link -> target"},
            {"link -> target", "target/"});
        row("location-is-a-file", "DCIM", {"DCIM"}, {"DCIM"}, 1);
        row("location-is-a-dangling-link", "link", {"link -> gone"}, {"link -> gone"}, 1);
        row("names-that-are-not-utf-8-remain", "DCIM",
            {"DCIM/100ABC/a\377.jpg", "DCIM/100ABC/b.jpg", "DCIM/MISC/c"},
            {"DCIM/", "DCIM/100ABC/", "DCIM/100ABC/a\377.jpg"});
        row("outside-ascii", "\u00FCDCIM", {"\u00FCDCIM/100ABC/\u00E9.jpg"}, {});
        row("percent-sign-in-the-location", "%1", {"%1/MISC/a", "%1/100ABC/a.jpg"}, {});
    }
    row("suffix-does-not-match-itself", "A[B]", "DCIM", Tree{"DCIM/MISC/a.jpg"},
        Tree{"DCIM/", "DCIM/100A[B]/", "DCIM/MISC/", "DCIM/MISC/a.jpg"}, 0);
    row("suffix-is-an-invalid-wildcard", "A[", "DCIM", Tree{"DCIM/100A[/a.jpg"},
        Tree{"DCIM/", "DCIM/100A[/", "DCIM/100A[/a.jpg"}, 0);
}

void MediaListsTest::deletesLocation()
{
    QFETCH(const QString, suffix);
    QFETCH(const QString, location);
    QFETCH(const Tree, before);
    QFETCH(const Tree, left);
    QFETCH(const int, lines);
    const Storages storages(suffix);
    const QString parent = storages.path() + "/above/parent";
    VornFileHandler::mSDLocation = QDir(parent + "/" + location);
    makeTree(storages.path(), {"a.jpg", "100ABC/b.jpg", "above/c.jpg", "above/100ABC/d.jpg",
                               "above/parent/e.jpg", "above/parent/200ABC/f.jpg", "above/sibling/g.jpg"});
    Tree expected = tree(storages.path());
    for (const QByteArray &entry : left)
        expected.append("above/parent/" + entry);
    makeTree(parent, before);

    StandardErrorCapture capture;
    VornFileHandler::deleteAllFiles(STORAGE_SD);
    QCOMPARE(capture.take(),
             missingLocationLine(QDir(parent + "/" + location).absolutePath()).repeated(lines));
    QCOMPARE(tree(storages.path()), sorted(expected));
}

void MediaListsTest::deletesRelativeLocation()
{
    const Storages storages;
    makeTree(storages.path(), {"sd/DCIM/100ABC/a.jpg", "sd/b.jpg", "100ABC/c.jpg"});
    const CurrentDirectory current(storages.path());
    VornFileHandler::mSDLocation = QDir("sd/DCIM");
    StandardErrorCapture capture;
    VornFileHandler::deleteAllFiles(STORAGE_SD);
    QCOMPARE(capture.take(), QByteArray());
    QCOMPARE(tree(storages.path()), (Tree{"100ABC/", "100ABC/c.jpg", "sd/", "sd/b.jpg"}));
}

void MediaListsTest::deletesOneStorageOnly_data()
{
    QTest::addColumn<int>("storage");
    QTest::addColumn<Tree>("left");
    const Tree mmc = {"mmc/DCIM/", "mmc/DCIM/100ABC/", "mmc/DCIM/100ABC/a.jpg"};
    const Tree sd = {"sd/DCIM/", "sd/DCIM/100ABC/", "sd/DCIM/100ABC/a.jpg"};
    const Tree usb = {"usb/DCIM/", "usb/DCIM/100ABC/", "usb/DCIM/100ABC/a.jpg"};
    row("mmc", int(STORAGE_MMC), sd + usb);
    row("sd", int(STORAGE_SD), mmc + usb);
    row("usb", int(STORAGE_USB), mmc + sd);
}

void MediaListsTest::deletesOneStorageOnly()
{
    QFETCH(const int, storage);
    QFETCH(const Tree, left);
    const Storages storages;
    makeTree(storages.path(), {"mmc/DCIM/100ABC/a.jpg", "sd/DCIM/100ABC/a.jpg", "usb/DCIM/100ABC/a.jpg"});
    StandardErrorCapture capture;
    VornFileHandler::deleteAllFiles(anyStorage(storage));
    QCOMPARE(capture.take(), QByteArray());
    QCOMPARE(tree(storages.path()), sorted(left + Tree{"mmc/", "sd/", "usb/"}));
}

void MediaListsTest::readOnlyFileSystemIsUnchanged()
{
    const Storages storages;
    makeTree(storages.sd(), {"100ABC/a.jpg", "MISC/b.txt", "c.jpg"});
    const Tree before = tree(storages.path());
    StandardErrorCapture capture;
    const auto result = onReadOnlyFileSystem(storages.path(), [] {
        VornFileHandler::deleteAllFiles(STORAGE_SD);
        return QByteArray();
    });
    if (!result)
        QSKIP("mounting is not permitted");
    QCOMPARE(capture.take(), QByteArray());
    QCOMPARE(tree(storages.path()), before);
}

void MediaListsTest::nextListingCreatesTheLocationAgain()
{
    const Storages storages;
    makeTree(storages.sd(), {"100ABC/a.jpg", "101ABC/a.jpg"});
    StandardErrorCapture capture;
    VornFileHandler::deleteAllFiles(STORAGE_SD);
    QCOMPARE(capture.take(), QByteArray());
    QCOMPARE(fileNames(VornFileHandler::getDCIMFolders(STORAGE_SD)), QStringList{"100ABC"});
    QCOMPARE(capture.take(), missingLocationLine(storages.sd()));
    QCOMPARE(tree(storages.sd()), Tree{"100ABC/"});

    VornFileHandler::deleteAllFiles(STORAGE_SD);
    QCOMPARE(VornFileHandler::getFolders(STORAGE_SD, DIRECTORY_FILTER_NON_DCIM), QFileInfoList());
    QCOMPARE(capture.take(), missingLocationLine(storages.sd()));
    QCOMPARE(tree(storages.path()), (Tree{"sd/", "sd/DCIM/"}));
}

void MediaListsTest::unsupportedStorageUsesTmp_data()
{
    QTest::addColumn<Tree>("before");
    QTest::addColumn<QByteArray>("expected"); // photos|videos|audio files|count|what is left
    const auto row = [](const char *name, const Tree &before, const QByteArray &expected) {
        QTest::newRow(name) << before << expected;
    };
    row("with-media", {"100ABC/a.jpg", "100ABC/a.avi", "100ABC/a.wav", "loose.jpg"},
        "100ABC/a.jpg|100ABC/a.avi|100ABC/a.wav|3|");
    row("empty", {}, "|||0|");
}

void MediaListsTest::unsupportedStorageUsesTmp()
{
    QFETCH(const Tree, before);
    QFETCH(const QByteArray, expected);
    for (const int storage : {3, -1}) {
        const Storages storages;
        StandardErrorCapture capture;
        const auto result = withEmptyTmp([&before, storage] {
            makeTree("/tmp", before);
            QByteArrayList parts;
            for (const List list : {List(photos), videos, audio})
                parts.append(
                    relativePaths(list(anyStorage(storage), DIRECTORY_FILTER_DCIM), "/tmp").join(","));
            parts.append(QByteArray::number(VornFileHandler::getMediaFileCount(anyStorage(storage))));
            VornFileHandler::deleteAllFiles(anyStorage(storage));
            parts.append(tree("/tmp").join(",")); // the mount point itself cannot be removed
            return parts.join("|");
        });
        if (!result)
            QSKIP("mounting is not permitted");
        QCOMPARE(*result, expected);
        QCOMPARE(capture.take(), QByteArray());
    }
}

QTEST_GUILESS_MAIN(MediaListsTest)
#include "tst_medialists.moc"

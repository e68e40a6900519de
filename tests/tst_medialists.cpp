// SPDX-License-Identifier: MIT
#include "media.h"
#include "testsupport.h"

#include <QtTest>

#include <algorithm>

using namespace VORN_FILE_HANDLER;

namespace {

using List = QList<QFileInfo> (*)(eStorageType, eDIRECTORY_FILTER);

QList<QFileInfo> photos(eStorageType storage, eDIRECTORY_FILTER filter)
{
    return VornFileHandler::getImageList(storage, false, filter);
}

QList<QFileInfo> photosAndThumbnails(eStorageType storage, eDIRECTORY_FILTER filter)
{
    return VornFileHandler::getImageList(storage, true, filter);
}

const List videos = VornFileHandler::getVideoList;
const List sounds = VornFileHandler::getAudioList;

/// The paths of @p files relative to @p folder.
QByteArrayList relative(const QList<QFileInfo> &files, const QString &folder)
{
    QByteArrayList paths;
    for (const QFileInfo &file : files)
        paths.append(QDir(folder).relativeFilePath(file.absoluteFilePath()).toUtf8());
    return paths;
}

void configureSd(const QString &suffix, const QString &location)
{
    const StandardErrorCapture banner;
    VornFileHandler::init(suffix, "/nowhere", QString(), location, QString(), "/nowhere", QString());
}

QByteArray missingLocationLine(const QString &location)
{
    return diagnosticLine("root dir " + location.toUtf8() + " doesn't exist. Create it");
}

QByteArrayList sorted(QByteArrayList list)
{
    std::sort(list.begin(), list.end());
    return list;
}

} // namespace

Q_DECLARE_METATYPE(List)
Q_DECLARE_METATYPE(eStorageType)

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
    void countSeesWhatTheDirectoryReadBefore();
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
    void leavesAReadOnlyMediumAsItIs();
    void locationComesBackWithTheNextListing();
    void unsupportedStorageIsTmp_data();
    void unsupportedStorageIsTmp();
};

void MediaListsTest::lists_data()
{
    QTest::addColumn<List>("list");
    QTest::addColumn<QByteArrayList>("entries");
    QTest::addColumn<QByteArrayList>("expected");

    using Names = QByteArrayList;
    QTest::newRow("photos-oldest-first")
        << List(photos) << Names{"100ABC/DCF_0002.jpg", "100ABC/DCF_0001.jpg"}
        << Names{"100ABC/DCF_0002.jpg", "100ABC/DCF_0001.jpg"};
    QTest::newRow("photos-of-equal-time-in-descending-name-order")
        << List(photos) << Names{"100ABC/DCF_0001.jpg", "=100ABC/DCF_0003.jpg", "=100ABC/DCF_0002.jpg"}
        << Names{"100ABC/DCF_0003.jpg", "100ABC/DCF_0002.jpg", "100ABC/DCF_0001.jpg"};
    QTest::newRow("photos-folder-by-folder-whatever-their-times")
        << List(photos) << Names{"101ABC/DCF_0001.jpg", "100ABC/DCF_0001.jpg"}
        << Names{"100ABC/DCF_0001.jpg", "101ABC/DCF_0001.jpg"};
    QTest::newRow("png-behind-younger-jpeg")
        << List(photos) << Names{"100ABC/DCF_0001.png", "100ABC/DCF_0002.jpg"}
        << Names{"100ABC/DCF_0002.jpg", "100ABC/DCF_0001.png"};
    QTest::newRow("png-of-all-folders-behind-jpeg-of-all-folders")
        << List(photos)
        << Names{"100ABC/DCF_0001.png", "101ABC/DCF_0001.png", "101ABC/DCF_0002.jpg", "100ABC/DCF_0002.jpg"}
        << Names{"100ABC/DCF_0002.jpg", "101ABC/DCF_0002.jpg", "100ABC/DCF_0001.png", "101ABC/DCF_0001.png"};
    QTest::newRow("png-oldest-first-in-each-folder")
        << List(photos) << Names{"101ABC/DCF_0009.png", "100ABC/DCF_0002.png", "100ABC/DCF_0001.png"}
        << Names{"100ABC/DCF_0002.png", "100ABC/DCF_0001.png", "101ABC/DCF_0009.png"};
    QTest::newRow("no-thumbnails-without-the-flag")
        << List(photos) << Names{"100ABC/DCF_0001.thumb", "100ABC/DCF_0001.jpg", "100ABC/DCF_0002.THUMB"}
        << Names{"100ABC/DCF_0001.jpg"};
    QTest::newRow("thumbnails-among-the-jpeg-by-time")
        << List(photosAndThumbnails)
        << Names{"100ABC/DCF_0001.thumb", "100ABC/DCF_0001.jpg", "100ABC/DCF_0002.thumb",
                 "100ABC/DCF_0002.jpg"}
        << Names{"100ABC/DCF_0001.thumb", "100ABC/DCF_0001.jpg", "100ABC/DCF_0002.thumb",
                 "100ABC/DCF_0002.jpg"};
    QTest::newRow("thumbnails-folder-by-folder-and-png-behind-all")
        << List(photosAndThumbnails)
        << Names{"100ABC/DCF_0001.png", "101ABC/DCF_0001.thumb", "101ABC/DCF_0001.jpg",
                 "100ABC/DCF_0002.jpg", "100ABC/DCF_0002.thumb", "101ABC/DCF_0002.png"}
        << Names{"100ABC/DCF_0002.jpg", "100ABC/DCF_0002.thumb", "101ABC/DCF_0001.thumb",
                 "101ABC/DCF_0001.jpg", "100ABC/DCF_0001.png",   "101ABC/DCF_0002.png"};
    QTest::newRow("thumbnails-alone")
        << List(photosAndThumbnails) << Names{"100ABC/DCF_0001.thumb"} << Names{"100ABC/DCF_0001.thumb"};
    QTest::newRow("photos-in-capitals")
        << List(photosAndThumbnails) << Names{"100ABC/DCF_0001.JPG", "100ABC/A.Png", "100ABC/A.ThumB"}
        << Names{"100ABC/DCF_0001.JPG", "100ABC/A.ThumB", "100ABC/A.Png"};
    QTest::newRow("photos-only") << List(photosAndThumbnails)
                                 << Names{"100ABC/a.avi",     "100ABC/a.mkv", "100ABC/a.wav",
                                          "100ABC/a.txt",     "100ABC/jpg",   "100ABC/a.jpeg",
                                          "100ABC/a.jpg.txt", "100ABC/a.xpng"}
                                 << Names{};
    QTest::newRow("names-without-the-prefix-and-with-several-dots")
        << List(photos) << Names{"100ABC/holiday.2.jpg", "100ABC/x.png.jpg"}
        << Names{"100ABC/holiday.2.jpg", "100ABC/x.png.jpg"};
    QTest::newRow("avi-and-mkv-mixed-by-time")
        << List(videos)
        << Names{"100ABC/DCF_0002.mkv", "100ABC/DCF_0001.avi", "100ABC/DCF_0003.mkv", "100ABC/DCF_0004.avi"}
        << Names{"100ABC/DCF_0002.mkv", "100ABC/DCF_0001.avi", "100ABC/DCF_0003.mkv", "100ABC/DCF_0004.avi"};
    QTest::newRow("videos-folder-by-folder")
        << List(videos) << Names{"101ABC/a.avi", "100ABC/a.mkv"} << Names{"100ABC/a.mkv", "101ABC/a.avi"};
    QTest::newRow("videos-only") << List(videos) << Names{"100ABC/a.jpg", "100ABC/a.png", "100ABC/a.thumb",
                                                          "100ABC/a.wav", "100ABC/a.txt", "100ABC/a.AVI"}
                                 << Names{"100ABC/a.AVI"};
    QTest::newRow("videos-with-a-kelvin-sign") << List(videos) << Names{"100ABC/a.m\u212Av", "100ABC/b.mkv"}
                                               << Names{"100ABC/a.m\u212Av", "100ABC/b.mkv"};
    QTest::newRow("sounds-oldest-first")
        << List(sounds) << Names{"100ABC/b.wav", "100ABC/a.WAV"} << Names{"100ABC/b.wav", "100ABC/a.WAV"};
    QTest::newRow("sounds-only") << List(sounds) << Names{"100ABC/a.jpg", "100ABC/a.png", "100ABC/a.thumb",
                                                          "100ABC/a.avi", "100ABC/a.mkv", "100ABC/wav"}
                                 << Names{};
    QTest::newRow("no-files-beside-the-folders-nor-further-down")
        << List(photos) << Names{"DCF_0001.jpg", "100ABC/sub/DCF_0002.jpg", "100ABC/200ABC/DCF_0003.png"}
        << Names{};
    QTest::newRow("no-hidden-files-links-or-folders")
        << List(photosAndThumbnails)
        << Names{"100ABC/a.jpg", "100ABC/.b.jpg", "100ABC/c.jpg@a.jpg", "100ABC/d.jpg/", "100ABC/e.png@x"}
        << Names{"100ABC/a.jpg"};
    QTest::newRow("nothing-of-that-beside-letters-outside-ascii")
        << List(photosAndThumbnails)
        << Names{"100ABC/\u00FC.jpg", "100ABC/.b.jpg", "100ABC/c.jpg@\u00FC.jpg", "100ABC/\u00E4.jpg/"}
        << Names{"100ABC/\u00FC.jpg"};
    QTest::newRow("no-names-outside-utf-8")
        << List(photos) << Names{"100ABC/a.jpg", "100ABC/b\xFF.jpg", "100ABC/c.png"}
        << Names{"100ABC/a.jpg", "100ABC/c.png"};
}

void MediaListsTest::lists()
{
    QFETCH(const List, list);
    QFETCH(const QByteArrayList, entries);
    QFETCH(const QByteArrayList, expected);
    const Storages storages;
    const EmptiedAtTheEnd cleaner(storages.path());
    makeEntries(storages.sd(), entries);
    const auto before = tree(storages.path());

    StandardErrorCapture capture;
    const auto files = list(STORAGE_SD, DIRECTORY_FILTER_DCIM);
    QCOMPARE(capture.take(), QByteArray());
    QCOMPARE(relative(files, storages.sd()), expected);
    QCOMPARE(tree(storages.path()), before);
}

void MediaListsTest::listsByFolderFilter_data()
{
    QTest::addColumn<QString>("suffix");
    QTest::addColumn<int>("filter");
    QTest::addColumn<QByteArrayList>("expected");

    using Names = QByteArrayList;
    QTest::newRow("numbered-folders") << "ABC" << 1 << Names{"100ABC", "1000ABC", "100abc", "ABC"};
    QTest::newRow("other-folders") << "ABC" << 16 << Names{"100", "1000ABC", "100abc", "ABC", "MISC"};
    QTest::newRow("all-folders") << "ABC" << 0 << Names{"100", "1000ABC", "100ABC", "100abc", "ABC", "MISC"};
    QTest::newRow("unnamed-filter-takes-all-folders")
        << "ABC" << 17 << Names{"100", "1000ABC", "100ABC", "100abc", "ABC", "MISC"};
    QTest::newRow("numbered-folders-without-a-suffix")
        << "" << 1 << Names{".", "..", "100", "1000ABC", "100ABC", "100abc", "ABC", "MISC"};
    QTest::newRow("other-folders-without-a-suffix")
        << "" << 16 << Names{"1000ABC", "100ABC", "100abc", "ABC", "MISC"};
}

void MediaListsTest::listsByFolderFilter()
{
    QFETCH(const QString, suffix);
    QFETCH(const int, filter);
    QFETCH(const QByteArrayList, expected);
    const Storages storages(suffix);
    const QByteArrayList folders = {".",      "..",     "MISC", "ABC",    "1000ABC",
                                    "100ABC", "100abc", "100",  ".100ABC"};
    for (const QByteArray &folder : folders) {
        makeEntries(storages.sd(), {folder + "/a.jpg", folder + "/a.avi", folder + "/a.wav"});
    }
    for (const auto &[list, name] :
         {std::pair<List, QString>(photos, "a.jpg"), std::pair<List, QString>(photosAndThumbnails, "a.jpg"),
          std::pair<List, QString>(videos, "a.avi"), std::pair<List, QString>(sounds, "a.wav")}) {
        StandardErrorCapture capture;
        const auto files = list(STORAGE_SD, static_cast<eDIRECTORY_FILTER>(filter));
        QCOMPARE(capture.take(), QByteArray());
        QStringList paths;
        for (const QByteArray &folder : expected)
            paths.append(QDir::cleanPath(storages.sd() + "/" + folder + "/" + name));
        std::sort(paths.begin(), paths.end());
        QStringList found;
        for (const QFileInfo &file : files)
            found.append(QDir::cleanPath(file.absoluteFilePath()));
        std::sort(found.begin(), found.end());
        QCOMPARE(found, paths);
    }
}

void MediaListsTest::listsOfEachStorage_data()
{
    QTest::addColumn<List>("list");
    QTest::addColumn<QString>("name");

    QTest::newRow("photos") << List(photos) << "a.jpg";
    QTest::newRow("photos-and-thumbnails") << List(photosAndThumbnails) << "a.thumb";
    QTest::newRow("videos") << List(videos) << "a.mkv";
    QTest::newRow("sounds") << List(sounds) << "a.wav";
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
    QTest::addColumn<QByteArrayList>("before");
    QTest::addColumn<QByteArrayList>("after");
    QTest::addColumn<int>("lines");

    using Names = QByteArrayList;
    const Names numbered = {"sd/", "sd/DCIM/", "sd/DCIM/100ABC/"};
    const Names bare = {"sd/", "sd/DCIM/"};
    const Names blocked = {"sd/", "sd/DCIM"};
    for (const auto &[name, list, passes] : {std::tuple<const char *, List, int>("photos", photos, 2),
                                             {"photos-and-thumbnails", photosAndThumbnails, 2},
                                             {"videos", videos, 1},
                                             {"sounds", sounds, 1}}) {
        QTest::addRow("%s-of-a-missing-location", name) << list << 1 << Names{} << numbered << 1;
        QTest::addRow("%s-of-other-folders-of-a-missing-location", name)
            << list << 16 << Names{} << bare << 1;
        QTest::addRow("%s-of-an-empty-location", name) << list << 1 << Names{"sd/DCIM/"} << numbered << 0;
        QTest::addRow("%s-of-other-folders-of-an-empty-location", name)
            << list << 16 << Names{"sd/DCIM/"} << bare << 0;
        QTest::addRow("%s-of-a-location-that-cannot-be-created", name)
            << list << 1 << Names{"sd/DCIM"} << blocked << passes;
        QTest::addRow("%s-of-all-folders-of-a-location-that-cannot-be-created", name)
            << list << 0 << Names{"sd/DCIM"} << blocked << passes;
        QTest::addRow("%s-of-a-location-below-a-file", name)
            << list << 1 << Names{"sd"} << Names{"sd"} << passes;
    }
}

void MediaListsTest::selectsFoldersOncePerPass()
{
    QFETCH(const List, list);
    QFETCH(const int, filter);
    QFETCH(const QByteArrayList, before);
    QFETCH(const QByteArrayList, after);
    QFETCH(const int, lines);
    const Storages storages;
    makeEntries(storages.path(), before);

    StandardErrorCapture capture;
    const auto files = list(STORAGE_SD, static_cast<eDIRECTORY_FILTER>(filter));
    QCOMPARE(capture.take(), missingLocationLine(storages.sd()).repeated(lines));
    QCOMPARE(files, QList<QFileInfo>());
    QCOMPARE(tree(storages.path()), after);
}

void MediaListsTest::countsInDirectory_data()
{
    QTest::addColumn<QByteArrayList>("entries");
    QTest::addColumn<int>("expected");

    using Names = QByteArrayList;
    QTest::newRow("empty") << Names{} << 0;
    QTest::newRow("jpeg") << Names{"a.jpg"} << 1;
    QTest::newRow("png") << Names{"a.png"} << 1;
    QTest::newRow("avi") << Names{"a.avi"} << 1;
    QTest::newRow("mkv") << Names{"a.mkv"} << 1;
    QTest::newRow("wav") << Names{"a.wav"} << 1;
    QTest::newRow("every-kind") << Names{"a.jpg", "a.png", "a.avi", "a.mkv", "a.wav", "b.jpg"} << 6;
    QTest::newRow("thumbnails-only") << Names{"a.thumb", "b.thumb", "C.THUMB"} << 0;
    QTest::newRow("thumbnail-beside-its-photo") << Names{"a.thumb", "a.jpg"} << 1;
    QTest::newRow("other-extensions") << Names{"a.txt", "a.jpeg", "a.jpg~", "jpg", "ajpg", "a.jpg.tmp"} << 0;
    QTest::newRow("capital-extensions") << Names{"DCF_0001.JPG", "a.Png", "a.AVI", "a.mKv", "a.wAV"} << 5;
    QTest::newRow("several-dots") << Names{"a.b.jpg", "a..png", "a.thumb.jpg"} << 3;
    QTest::newRow("kelvin-sign-for-k") << Names{"a.m\u212Av"} << 1;
    QTest::newRow("letters-outside-ascii")
        << Names{"\u00FC.jpg", "a.jpg", "\U0001F600.png", "\u00FC.txt"} << 3;
    QTest::newRow("left-out-beside-letters-outside-ascii")
        << Names{"\u00FC.jpg", "b.jpg@\u00FC.jpg", "\u00E9.jpg@gone", "c.jpg/", "\u00E4.png/", ".\u00E4.jpg"}
        << 1;
    QTest::newRow("names-outside-utf-8") << Names{"a\xFF.jpg", "b.jpg", "\xC3.png"} << 1;
    QTest::newRow("hidden-files") << Names{".a.jpg", ".jpg", "..jpg", "b.jpg"} << 1;
    QTest::newRow("links-to-media") << Names{"a.jpg", "b.jpg@a.jpg"} << 1;
    QTest::newRow("dangling-links") << Names{"a.jpg@missing"} << 0;
    QTest::newRow("folders-named-like-media") << Names{"a.jpg/", "b.wav/c.txt"} << 0;
    QTest::newRow("media-in-sub-folders") << Names{"sub/a.jpg", "100ABC/b.jpg", "c.jpg"} << 1;
    QTest::newRow("blanks-and-line-feeds-in-names") << Names{" .jpg", "a\n.png", "a .avi", "a. wav"} << 3;
    QTest::newRow("wildcards-in-names") << Names{"*.jpg", "[a].png", "?.avi", "\\.mkv"} << 4;
}

void MediaListsTest::countsInDirectory()
{
    QFETCH(const QByteArrayList, entries);
    QFETCH(const int, expected);
    const QTemporaryDir directory;
    const EmptiedAtTheEnd cleaner(directory.path());
    makeEntries(directory.path(), entries);
    const auto before = tree(directory.path());

    StandardErrorCapture capture;
    QCOMPARE(VornFileHandler::getMediaFileCount(QDir(directory.path())), expected);
    QCOMPARE(VornFileHandler::getMediaFileCount(QDir(directory.path() + "/")), expected);
    QCOMPARE(capture.take(), QByteArray());
    QCOMPARE(tree(directory.path()), before);
}

void MediaListsTest::countIgnoresSettingsOfTheDirectory()
{
    const QTemporaryDir directory;
    makeEntries(directory.path(), {"a.jpg", "b.txt", ".c.jpg", "d/"});
    const QDir::Filters filters = QDir::Dirs | QDir::Hidden | QDir::CaseSensitive;
    const QDir asked(directory.path(), "*.txt", QDir::Size, filters);

    StandardErrorCapture capture;
    QCOMPARE(VornFileHandler::getMediaFileCount(asked), 1);
    QCOMPARE(capture.take(), QByteArray());
    QCOMPARE(asked.nameFilters(), QStringList{"*.txt"});
    QCOMPARE(asked.filter(), filters);
}

void MediaListsTest::countSeesWhatTheDirectoryReadBefore()
{
    const QTemporaryDir directory;
    const QDir asked(directory.path(), "*.jpg", QDir::NoSort, QDir::Files);
    QCOMPARE(asked.count(), 0U);
    QVERIFY(asked.exists());
    makeEntries(directory.path(), {"a.jpg"});
    StandardErrorCapture capture;
    QCOMPARE(VornFileHandler::getMediaFileCount(asked), 1);
    QCOMPARE(capture.take(), QByteArray());
}

void MediaListsTest::countOfMissingDirectory_data()
{
    QTest::addColumn<QByteArrayList>("entries");
    QTest::addColumn<QString>("path");
    QTest::addColumn<QByteArray>("reported");

    using Names = QByteArrayList;
    QTest::newRow("missing") << Names{} << "/gone" << QByteArray("/gone");
    QTest::newRow("missing-with-trailing-slash") << Names{} << "/gone/" << QByteArray("/gone");
    QTest::newRow("file-in-its-place") << Names{"a.jpg"} << "/a.jpg" << QByteArray("/a.jpg");
    QTest::newRow("dangling-link") << Names{"link@gone"} << "/link" << QByteArray("/link");
    QTest::newRow("letters-outside-ascii") << Names{} << "/\u00FC" << QByteArray("/\u00FC");
    QTest::newRow("percent-signs") << Names{} << "/%s%n%1" << QByteArray("/%s%n%1");
    QTest::newRow("zero-character") << Names{} << QString("/a%1b").arg(QChar(0)) << QByteArray("/a");
}

void MediaListsTest::countOfMissingDirectory()
{
    QFETCH(const QByteArrayList, entries);
    QFETCH(const QString, path);
    QFETCH(const QByteArray, reported);
    const QTemporaryDir directory;
    makeEntries(directory.path(), entries);
    const auto before = tree(directory.path());

    StandardErrorCapture capture;
    QCOMPARE(VornFileHandler::getMediaFileCount(QDir(directory.path() + path)), 0);
    QCOMPARE(capture.take(), diagnosticLine(directory.path().toUtf8() + reported + " doesn't exist"));
    QCOMPARE(tree(directory.path()), before);

    const CurrentDirectory inside(directory.path());
    QCOMPARE(VornFileHandler::getMediaFileCount(QDir(path.mid(1))), 0);
    QCOMPARE(capture.take(), diagnosticLine(QDir::currentPath().toUtf8() + reported + " doesn't exist"));
}

void MediaListsTest::countsOnStorage_data()
{
    QTest::addColumn<QString>("suffix");
    QTest::addColumn<QByteArrayList>("entries"); // below the folder that holds the location DCIM
    QTest::addColumn<int>("expected");

    using Names = QByteArrayList;
    QTest::newRow("one-folder") << "ABC" << Names{"DCIM/100ABC/a.jpg", "DCIM/100ABC/a.thumb"} << 1;
    QTest::newRow("several-folders") << "ABC"
                                     << Names{"DCIM/100ABC/a.jpg", "DCIM/101ABC/a.jpg", "DCIM/101ABC/b.wav",
                                              "DCIM/102ABC/a.txt"}
                                     << 3;
    QTest::newRow("folder-without-the-suffix") << "ABC" << Names{"DCIM/MISC/a.jpg", "DCIM/100ABC/a.jpg"} << 1;
    QTest::newRow("folders-that-merely-end-in-the-suffix")
        << "ABC" << Names{"DCIM/ABC/a.jpg", "DCIM/1000ABC/a.jpg", "DCIM/XABC/a.jpg", "DCIM/100abc/a.jpg"}
        << 4;
    QTest::newRow("loose-files-and-files-above")
        << "ABC" << Names{"DCIM/100ABC/a.jpg", "DCIM/b.jpg", "c.jpg"} << 1;
    QTest::newRow("sub-folders") << "ABC" << Names{"DCIM/100ABC/101ABC/a.jpg"} << 0;
    QTest::newRow("hidden-folder-and-linked-folder")
        << "ABC" << Names{"DCIM/100ABC/a.jpg", "DCIM/.101ABC/a.jpg", "DCIM/102ABC@100ABC"} << 1;
    QTest::newRow("thumbnails-only") << "ABC" << Names{"DCIM/100ABC/a.thumb"} << 0;
    QTest::newRow("empty-suffix-counts-location-and-parent")
        << "" << Names{"DCIM/100/a.jpg", "DCIM/b.jpg", "DCIM/b.png", "c.jpg", "c.png", "c.avi", "c.mkv"} << 7;
    QTest::newRow("empty-suffix-with-loose-files-only") << "" << Names{"DCIM/b.jpg"} << 1;
    QTest::newRow("empty-suffix-does-not-count-beside-the-location")
        << "" << Names{"DCIM/MISC/a.jpg", "OTHER/a.jpg", "../a.jpg"} << 1;
}

void MediaListsTest::countsOnStorage()
{
    QFETCH(const QString, suffix);
    QFETCH(const QByteArrayList, entries);
    QFETCH(const int, expected);
    for (const eStorageType storage : {STORAGE_MMC, STORAGE_SD, STORAGE_USB}) {
        const Storages storages(suffix);
        makeEntries(storages.location(storage) + "/..", QByteArrayList{"DCIM/"} + entries);
        const auto before = tree(storages.path());
        StandardErrorCapture capture;
        QCOMPARE(VornFileHandler::getMediaFileCount(storage), expected);
        QCOMPARE(capture.take(), QByteArray());
        QCOMPARE(tree(storages.path()), before);
    }
}

void MediaListsTest::countOnMissingLocation_data()
{
    QTest::addColumn<QByteArrayList>("before");
    QTest::addColumn<int>("lines");
    QTest::addColumn<QByteArrayList>("after");

    using Names = QByteArrayList;
    QTest::newRow("missing") << Names{} << 1 << Names{"sd/", "sd/DCIM/", "sd/DCIM/100ABC/"};
    QTest::newRow("empty") << Names{"sd/DCIM/"} << 0 << Names{"sd/", "sd/DCIM/", "sd/DCIM/100ABC/"};
    QTest::newRow("only-other-folders")
        << Names{"sd/DCIM/MISC/a.jpg"} << 0
        << Names{"sd/", "sd/DCIM/", "sd/DCIM/100ABC/", "sd/DCIM/MISC/", "sd/DCIM/MISC/a.jpg"};
    QTest::newRow("file-in-its-place") << Names{"sd/DCIM"} << 1 << Names{"sd/", "sd/DCIM"};
    QTest::newRow("below-a-file") << Names{"sd"} << 1 << Names{"sd"};
}

void MediaListsTest::countOnMissingLocation()
{
    QFETCH(const QByteArrayList, before);
    QFETCH(const int, lines);
    QFETCH(const QByteArrayList, after);
    const Storages storages;
    makeEntries(storages.path(), before);

    StandardErrorCapture capture;
    QCOMPARE(VornFileHandler::getMediaFileCount(STORAGE_SD), 0);
    QCOMPARE(capture.take(), missingLocationLine(storages.sd()).repeated(lines));
    QCOMPARE(tree(storages.path()), after);
}

void MediaListsTest::deletesLocation_data()
{
    QTest::addColumn<QString>("suffix");
    QTest::addColumn<QString>("location");
    QTest::addColumn<QByteArrayList>("entries"); // below the location's parent
    QTest::addColumn<int>("lines");
    QTest::addColumn<QByteArrayList>("left"); // below the location's parent

    using Names = QByteArrayList;
    for (const QString suffix : {"ABC", ""}) {
        const auto row = [&suffix](const char *name) -> QTestData & {
            return QTest::addRow("%s%s", name, suffix.isEmpty() ? "-under-an-empty-suffix" : "") << suffix;
        };
        row("numbered-folders") << "DCIM" << Names{"DCIM/100ABC/a.jpg", "DCIM/101ABC/b.jpg"} << 0 << Names{};
        row("other-folders-and-loose-files")
            << "DCIM" << Names{"DCIM/100ABC/a.jpg", "DCIM/MISC/notes.txt", "DCIM/loose.jpg"} << 0 << Names{};
        row("other-folders-only") << "DCIM" << Names{"DCIM/MISC/notes.txt"} << 0 << Names{};
        row("hidden-and-nested") << "DCIM"
                                 << Names{"DCIM/100ABC/a/b/c.jpg", "DCIM/.hidden/.x", "DCIM/100ABC/.y"} << 0
                                 << Names{};
        row("links-to-the-outside-stay-whole")
            << "DCIM"
            << Names{"outside/a.jpg", "DCIM/100ABC/", "DCIM/link@../outside", "DCIM/100ABC/x@../../outside",
                     "DCIM/gone@missing"}
            << 0 << Names{"outside/", "outside/a.jpg"};
        row("missing-location") << "DCIM" << Names{} << 1 << Names{};
        row("empty-location") << "DCIM" << Names{"DCIM/"} << 0 << Names{};
        row("location-with-trailing-slash") << "DCIM/" << Names{"DCIM/100ABC/a.jpg"} << 0 << Names{};
        row("location-that-is-a-link")
            << "link" << Names{"target/100ABC/a.jpg", "target/loose.jpg", "link@target"} << 0
            << Names{"link -> target", "target/"};
        row("location-that-is-a-file") << "DCIM" << Names{"DCIM"} << 1 << Names{"DCIM"};
        row("location-that-is-a-dangling-link") << "link" << Names{"link@gone"} << 1 << Names{"link -> gone"};
        row("names-outside-utf-8-stay")
            << "DCIM" << Names{"DCIM/100ABC/a\xFF.jpg", "DCIM/100ABC/b.jpg", "DCIM/MISC/c"} << 0
            << Names{"DCIM/", "DCIM/100ABC/", "DCIM/100ABC/a\xFF.jpg"};
        row("letters-outside-ascii") << "\u00FCDCIM" << Names{"\u00FCDCIM/100ABC/\u00E9.jpg"} << 0 << Names{};
        row("percent-sign-in-the-location") << "%1" << Names{"%1/MISC/a", "%1/100ABC/a.jpg"} << 0 << Names{};
    }
    QTest::newRow("suffix-that-lists-nothing")
        << "A[B]"
        << "DCIM" << Names{"DCIM/MISC/a.jpg"} << 0
        << Names{"DCIM/", "DCIM/100A[B]/", "DCIM/MISC/", "DCIM/MISC/a.jpg"};
    QTest::newRow("suffix-that-is-no-valid-pattern")
        << "A["
        << "DCIM" << Names{"DCIM/100A[/a.jpg"} << 0 << Names{"DCIM/", "DCIM/100A[/", "DCIM/100A[/a.jpg"};
}

void MediaListsTest::deletesLocation()
{
    QFETCH(const QString, suffix);
    QFETCH(const QString, location);
    QFETCH(const QByteArrayList, entries);
    QFETCH(const int, lines);
    QFETCH(const QByteArrayList, left);
    const Storages storages;
    const EmptiedAtTheEnd cleaner(storages.path());
    const QString parent = storages.path() + "/above/parent";
    configureSd(suffix, parent + "/" + location);
    makeEntries(storages.path(), {"a.jpg", "100ABC/b.jpg", "above/c.jpg", "above/100ABC/d.jpg",
                                  "above/parent/e.jpg", "above/parent/200ABC/f.jpg", "above/sibling/g.jpg"});
    QByteArrayList expected = tree(storages.path());
    for (const QByteArray &entry : left)
        expected.append("above/parent/" + entry);
    makeEntries(parent, entries);

    StandardErrorCapture capture;
    VornFileHandler::deleteAllFiles(STORAGE_SD);
    QCOMPARE(capture.take(),
             missingLocationLine(QDir(parent + "/" + location).absolutePath()).repeated(lines));
    QCOMPARE(tree(storages.path()), sorted(expected));
}

void MediaListsTest::deletesRelativeLocation()
{
    const Storages storages;
    makeEntries(storages.path(), {"sd/DCIM/100ABC/a.jpg", "sd/b.jpg", "100ABC/c.jpg"});
    const CurrentDirectory inside(storages.path());
    configureSd("ABC", "sd/DCIM");
    StandardErrorCapture capture;
    VornFileHandler::deleteAllFiles(STORAGE_SD);
    QCOMPARE(capture.take(), QByteArray());
    QCOMPARE(tree(storages.path()), (QByteArrayList{"100ABC/", "100ABC/c.jpg", "sd/", "sd/b.jpg"}));
}

void MediaListsTest::deletesOneStorageOnly_data()
{
    QTest::addColumn<eStorageType>("storage");
    QTest::addColumn<QByteArrayList>("left");

    using Names = QByteArrayList;
    const Names mmc = {"mmc/DCIM/", "mmc/DCIM/100ABC/", "mmc/DCIM/100ABC/a.jpg"};
    const Names sd = {"sd/DCIM/", "sd/DCIM/100ABC/", "sd/DCIM/100ABC/a.jpg"};
    const Names usb = {"usb/DCIM/", "usb/DCIM/100ABC/", "usb/DCIM/100ABC/a.jpg"};
    QTest::newRow("mmc") << STORAGE_MMC << sd + usb;
    QTest::newRow("sd") << STORAGE_SD << mmc + usb;
    QTest::newRow("usb") << STORAGE_USB << mmc + sd;
}

void MediaListsTest::deletesOneStorageOnly()
{
    QFETCH(const eStorageType, storage);
    QFETCH(const QByteArrayList, left);
    const Storages storages;
    makeEntries(storages.path(), {"mmc/DCIM/100ABC/a.jpg", "sd/DCIM/100ABC/a.jpg", "usb/DCIM/100ABC/a.jpg"});
    StandardErrorCapture capture;
    VornFileHandler::deleteAllFiles(storage);
    QCOMPARE(capture.take(), QByteArray());
    QCOMPARE(tree(storages.path()), sorted(left + QByteArrayList{"mmc/", "sd/", "usb/"}));
}

void MediaListsTest::leavesAReadOnlyMediumAsItIs()
{
    const Storages storages;
    makeEntries(storages.sd(), {"100ABC/a.jpg", "MISC/b.txt", "c.jpg"});
    const auto before = tree(storages.path());
    StandardErrorCapture capture;
    const auto answer = onReadOnlyMedium(storages.path(), [] {
        VornFileHandler::deleteAllFiles(STORAGE_SD);
        return QByteArray();
    });
    if (!answer)
        QSKIP("no read-only medium for this user");
    QCOMPARE(capture.take(), QByteArray());
    QCOMPARE(tree(storages.path()), before);
}

void MediaListsTest::locationComesBackWithTheNextListing()
{
    const Storages storages;
    makeEntries(storages.sd(), {"100ABC/a.jpg", "101ABC/a.jpg"});
    StandardErrorCapture capture;
    VornFileHandler::deleteAllFiles(STORAGE_SD);
    QCOMPARE(capture.take(), QByteArray());
    QCOMPARE(fileNames(VornFileHandler::getDCIMFolders(STORAGE_SD)), QStringList{"100ABC"});
    QCOMPARE(capture.take(), missingLocationLine(storages.sd()));
    QCOMPARE(tree(storages.sd()), QByteArrayList{"100ABC/"});

    VornFileHandler::deleteAllFiles(STORAGE_SD);
    QCOMPARE(VornFileHandler::getFolders(STORAGE_SD, DIRECTORY_FILTER_NON_DCIM), QList<QFileInfo>());
    QCOMPARE(capture.take(), missingLocationLine(storages.sd()));
    QCOMPARE(tree(storages.path()), (QByteArrayList{"sd/", "sd/DCIM/"}));
}

void MediaListsTest::unsupportedStorageIsTmp_data()
{
    QTest::addColumn<QByteArrayList>("entries");
    QTest::addColumn<QByteArray>("expected"); // photos, videos, sounds, count, what is left, joined by "|"

    using Names = QByteArrayList;
    QTest::newRow("media-in-it") << Names{"100ABC/a.jpg", "100ABC/a.avi", "100ABC/a.wav", "loose.jpg"}
                                 << QByteArray("100ABC/a.jpg|100ABC/a.avi|100ABC/a.wav|3|");
    QTest::newRow("nothing-in-it") << Names{} << QByteArray("|||0|");
}

void MediaListsTest::unsupportedStorageIsTmp()
{
    QFETCH(const QByteArrayList, entries);
    QFETCH(const QByteArray, expected);
    for (const int storage : {3, -1}) {
        const Storages storages;
        StandardErrorCapture capture;
        const auto answer = withEmptyTmp([&entries, storage] {
            makeEntries("/tmp", entries);
            QByteArrayList parts;
            for (const List list : {List(photos), videos, sounds})
                parts.append(relative(list(anyStorage(storage), DIRECTORY_FILTER_DCIM), "/tmp").join(","));
            parts.append(QByteArray::number(VornFileHandler::getMediaFileCount(anyStorage(storage))));
            VornFileHandler::deleteAllFiles(anyStorage(storage));
            parts.append(tree("/tmp").join(",")); // the mount point itself cannot go
            return parts.join("|");
        });
        if (!answer)
            QSKIP("no other /tmp for this user");
        QCOMPARE(*answer, expected);
        QCOMPARE(capture.take(), QByteArray());
    }
}

QTEST_GUILESS_MAIN(MediaListsTest)
#include "tst_medialists.moc"

// SPDX-License-Identifier: MIT
#include "literal.h"
#include "testsupport.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <QThread>
#include <QtTest>

#include <algorithm>
#include <ctime>

#include <sys/stat.h>
#include <unistd.h>

using namespace VORN_FILE_HANDLER;

namespace {

QByteArray text(const QJsonArray &array)
{
    return QJsonDocument(array).toJson(QJsonDocument::Compact);
}

/// The values of the only object, in the order of their keys.
QStringList fields(const QJsonArray &array)
{
    if (array.size() != 1)
        return {};
    QStringList values;
    const QJsonObject object = array.first().toObject();
    for (const QJsonValue value : object)
        values.append(value.isDouble() ? QString::number(value.toInt()) : value.toString());
    return values;
}

QJsonValue field(const QFileInfo &file, const QString &key)
{
    return VornFileHandler::getJsonFileList(STORAGE_SD, {file}).first().toObject().value(key);
}

/// Name and type of each object: "100ABC/DCF_0001.jpg 16".
QStringList namesAndTypes(const QJsonArray &array)
{
    QStringList list;
    for (const QJsonValue value : array) {
        const QJsonObject object = value.toObject();
        list.append(object["filename"].toString() + " " + QString::number(object["type"].toInt()));
    }
    return list;
}

/// A time as local wall-clock time, according to the C library.
QString wallClock(qint64 msecs, const char *format)
{
    const std::time_t seconds = msecs / 1000;
    std::tm local = {};
    ::tzset();
    ::localtime_r(&seconds, &local);
    char buffer[64];
    std::strftime(buffer, sizeof buffer, format, &local);
    return buffer;
}

/// Folders and files of every kind, some of them with the same time.
Tree randomTree(QRandomGenerator &random)
{
    static const QByteArrayList FOLDERS = {"",      "100ABC/",  "101ABC/",    "100abc/",
                                           "MISC/", "1000ABC/", "102ABC/sub/"};
    static const QByteArrayList EXTENSIONS = {
        ".jpg",     ".png", ".thumb",    ".avi",       ".mkv", ".wav",        ".JPG",           ".txt",
        ".b.c.jpg", "",     ".m\u212Av", "\u00FC.jpg", ".MKV", "u\u0308.jpg", "\U0001F600.png", "\377.jpg"};
    Tree entries;
    for (int i = 0; i < 60; ++i) {
        const QByteArray number = QByteArray::number(random.bounded(40)).rightJustified(4, '0');
        const QByteArray time = QByteArray::number(1600000000 + random.bounded(45) * 60);
        entries.append(oneOf(random, FOLDERS) + "DCF_" + number + oneOf(random, EXTENSIONS) + " size 8 at "
                       + time);
    }
    return entries;
}

/// A list whose entries are files, folders, missing, or changed or removed after they were listed.
QFileInfoList randomList(QRandomGenerator &random, const Storages &storages)
{
    QFileInfoList files = VornFileHandler::getDirectoryContents(STORAGE_SD, anyFilter(0));
    files += VornFileHandler::getFolders(STORAGE_SD, anyFilter(0));
    files += {QFileInfo(),
              QFileInfo(""),
              QFileInfo(storages.path()),
              QFileInfo(storages.sd()),
              QFileInfo(storages.sd() + "/100ABC/missing.jpg"),
              QFileInfo("relative.mkv"),
              QFileInfo("/proc/self/stat")};
    for (const QFileInfo &file : files) {
        const QString path = file.absoluteFilePath();
        const int fate = file.isFile() && path.startsWith(storages.sd()) ? random.bounded(4) : -1;
        if (fate == 0)
            QFile::remove(path);
        else if (fate == 1)
            QFile::resize(path, random.bounded(100000));
    }
    std::shuffle(files.begin(), files.end(), random);
    return files;
}

} // namespace

class JsonTest : public QObject
{
    Q_OBJECT

private slots:
    void objectOfAFile();
    void objectOfNoFile_data();
    void objectOfNoFile();
    void keepsOrderAndDuplicates();
    void emptyListReturnsEmptyArray();
    void unsupportedStorageReturnsEmptyArray_data();
    void unsupportedStorageReturnsEmptyArray();
    void types_data();
    void types();
    void sizes_data();
    void sizes();
    void sizeIsThatOfTheListing();
    void fileNames_data();
    void fileNames();
    void fileNamesBelowARelativeLocation();
    void prefixIsThatOfTheStorage();
    void entriesThatAreFolders();
    void entriesThatAreLinks();
    void timeIsTheCreationTime();
    void timeWithoutABirthTimeIsTheLastStatusChange();
    void wrappers_data();
    void wrappers();
    void wrappersOnAMissingLocation_data();
    void wrappersOnAMissingLocation();
    void wrappersOfEachStorage();
    void wrappersOfAnUnsupportedStorage();
    void sameAsTheLiteralWay_data();
    void sameAsTheLiteralWay();
};

void JsonTest::objectOfAFile()
{
    const Storages storages;
    const QString path = storages.sd() + "/100ABC/DCF_0001.mkv";
    writeFile(path, QByteArray(26, 'x'));
    setModified(path.toUtf8(), 1000000000000);
    const qint64 time = creationTime(path.toUtf8());

    StandardErrorCapture capture;
    const QJsonArray array = VornFileHandler::getJsonFileList(STORAGE_SD, {QFileInfo(path)});
    QCOMPARE(capture.take(), QByteArray());
    const QString expected = R"([{"filename":"100ABC/DCF_0001.mkv","moddate":"%1","modtime":"%2",)"
                             R"("size":"0x1a","type":34}])";
    QCOMPARE(QString::fromUtf8(text(array)),
             expected.arg(wallClock(time, "%Y-%m-%d"), wallClock(time, "%H:%M:%S")));
}

void JsonTest::objectOfNoFile_data()
{
    QTest::addColumn<QFileInfo>("file");
    QTest::addColumn<QStringList>("expected"); // name, date, time, size, type

    const auto row = [](const char *name, const QFileInfo &file, const QStringList &expected) {
        QTest::newRow(name) << file << expected;
    };
    row("null", QFileInfo(), {"", "", "", "0x0", "-1"});
    row("empty-path", QFileInfo(""), {"", "", "", "0x0", "-1"});
    row("missing-file", QFileInfo("/card/100ABC/DCF_0001.jpg"), {"100ABC/DCF_0001.jpg", "", "", "0x0", "16"});
    row("missing-folder", QFileInfo("/card/100ABC"), {"100ABC", "", "", "0x0", "-1"});
    row("null-character-in-the-path", QFileInfo("/card/a" + NUL + "b.jpg"),
        {"a" + NUL + "b.jpg", "", "", "0x0", "16"});
    row("null-character-in-a-relative-path", QFileInfo("a" + NUL + "b.wav"),
        {"a" + NUL + "b.wav", "", "", "0x0", "64"});
}

void JsonTest::objectOfNoFile()
{
    QFETCH(const QFileInfo, file);
    QFETCH(const QStringList, expected);
    const Storages storages;
    VornFileHandler::mSDLocation = QDir("/card");
    StandardErrorCapture capture;
    const QJsonArray array = VornFileHandler::getJsonFileList(STORAGE_SD, {file});
    QCOMPARE(capture.take(), QByteArray());
    QCOMPARE(fields(array), expected);
}

void JsonTest::keepsOrderAndDuplicates()
{
    const Storages storages;
    VornFileHandler::mSDLocation = QDir("/card");
    const QFileInfoList files = {QFileInfo("/card/b.jpg"), QFileInfo("/card/a.wav"), QFileInfo("/card/c.avi"),
                                 QFileInfo("/card/b.jpg")};
    StandardErrorCapture capture;
    QCOMPARE(namesAndTypes(VornFileHandler::getJsonFileList(STORAGE_SD, files)),
             (QStringList{"b.jpg 16", "a.wav 64", "c.avi 32", "b.jpg 16"}));
    QCOMPARE(capture.take(), QByteArray());
}

void JsonTest::emptyListReturnsEmptyArray()
{
    const Storages storages;
    StandardErrorCapture capture;
    QCOMPARE(VornFileHandler::getJsonFileList(STORAGE_SD, {}), QJsonArray());
    QCOMPARE(capture.take(), QByteArray());
    QCOMPARE(tree(storages.path()), Tree());
}

void JsonTest::unsupportedStorageReturnsEmptyArray_data()
{
    QTest::addColumn<int>("storage");

    row("after-the-last", 3);
    row("negative", -1);
    row("large", 0x7FFFFFFF);
}

void JsonTest::unsupportedStorageReturnsEmptyArray()
{
    QFETCH(const int, storage);
    const QTemporaryDir directory;
    makeTree(directory.path(), {"a.jpg"});
    StandardErrorCapture capture;
    const QFileInfo file(directory.filePath("a.jpg"));
    QCOMPARE(text(VornFileHandler::getJsonFileList(anyStorage(storage), {file, file})), QByteArray("[]"));
    QCOMPARE(capture.take(), QByteArray());
}

void JsonTest::types_data()
{
    QTest::addColumn<QByteArray>("entry"); // "x/" is a folder
    QTest::addColumn<int>("expected");

    const auto row = [](const char *name, const char *entry, int expected) {
        QTest::newRow(name) << QByteArray(entry) << expected;
    };
    row("jpeg", "DCF_0001.jpg", 16);
    row("png", "DCF_0001.png", 16);
    row("thumbnail", "DCF_0001.thumb", 20);
    row("avi", "DCF_0001.avi", 32);
    row("mkv", "DCF_0001.mkv", 34);
    row("wav", "DCF_0001.wav", 64);
    row("folder", "100ABC/", 128);
    row("folder-named-like-a-photo", "album.jpg/", 128);
    row("folder-named-like-a-video", "album.mkv/", 128);
    row("jpeg-in-upper-case", "DCF_0001.JPG", -1);
    row("png-in-mixed-case", "DCF_0001.Png", -1);
    row("thumbnail-in-upper-case", "DCF_0001.THUMB", -1);
    row("avi-in-upper-case", "DCF_0001.AVI", -1);
    row("mkv-in-mixed-case", "DCF_0001.mKv", -1);
    row("wav-in-upper-case", "DCF_0001.WAV", -1);
    row("no-dot", "README", -1);
    row("extension-without-a-dot", "jpg", -1);
    row("hidden-file-that-is-only-an-extension", ".jpg", 16);
    row("several-dots", "a.png.thumb", 20);
    row("several-dots-with-another-ending", "a.jpg.txt", -1);
    row("trailing-dot", "a.jpg.", -1);
    row("longer-extension", "a.jpeg", -1);
    row("extension-with-text-before-it", "a.xjpg", -1);
    row("extension-with-a-space", "a.jpg ", -1);
    row("other-extension", "notes.txt", -1);
}

void JsonTest::types()
{
    QFETCH(const QByteArray, entry);
    QFETCH(const int, expected);
    const Storages storages;
    makeTree(storages.sd(), {"100ABC/" + entry});
    StandardErrorCapture capture;
    const QFileInfo file(QDir::cleanPath(storages.sd() + "/100ABC/" + entry));
    QCOMPARE(field(file, "type"), QJsonValue(expected));
    QCOMPARE(capture.take(), QByteArray());
}

void JsonTest::sizes_data()
{
    QTest::addColumn<qint64>("size");
    QTest::addColumn<QString>("expected");

    row("empty", qint64(0), "0x0");
    row("one-byte", qint64(1), "0x1");
    row("lower-case-digits", qint64(255), "0xff");
    row("no-leading-zeros", qint64(4096), "0x1000");
    row("last-of-31-bits", qint64(0x7FFFFFFF), "0x7fffffff");
    row("first-above-31-bits", qint64(0x80000000), "0x80000000");
    row("more-than-four-gigabytes", qint64(0x123456789), "0x123456789");
}

void JsonTest::sizes()
{
    QFETCH(const qint64, size);
    QFETCH(const QString, expected);
    const Storages storages;
    makeTree(storages.sd(), {"100ABC/a.avi size " + QByteArray::number(size)});
    StandardErrorCapture capture;
    QCOMPARE(field(QFileInfo(storages.sd() + "/100ABC/a.avi"), "size"), QJsonValue(expected));
    const QJsonArray array = VornFileHandler::getJSONVideoList(STORAGE_SD);
    QCOMPARE(capture.take(), QByteArray());
    QCOMPARE(array.first().toObject().value("size"), QJsonValue(expected));
}

void JsonTest::sizeIsThatOfTheListing()
{
    const Storages storages;
    makeTree(storages.sd(), {"100ABC/a.jpg size 8", "100ABC/b.jpg size 8"});
    StandardErrorCapture capture;
    const auto files = VornFileHandler::getImageList(STORAGE_SD, false, DIRECTORY_FILTER_DCIM);
    QVERIFY(QFile::remove(storages.sd() + "/100ABC/a.jpg"));
    QVERIFY(QFile::resize(storages.sd() + "/100ABC/b.jpg", 4096));
    const QJsonArray array = VornFileHandler::getJsonFileList(STORAGE_SD, files);
    QCOMPARE(capture.take(), QByteArray());
    QCOMPARE(array.size(), 2);
    QCOMPARE(array.at(0).toObject().value("size"), QJsonValue("0x8"));
    QCOMPARE(array.at(1).toObject().value("size"), QJsonValue("0x8"));
}

void JsonTest::fileNames_data()
{
    QTest::addColumn<QString>("location");
    QTest::addColumn<QString>("path");
    QTest::addColumn<QString>("expected");

    const auto row = [](const char *name, const char *location, const char *path, const char *expected) {
        QTest::newRow(name) << location << path << expected;
    };
    row("below-the-location", "/card", "/card/100ABC/a.jpg", "100ABC/a.jpg");
    row("directly-in-the-location", "/card", "/card/a.jpg", "a.jpg");
    row("in-a-subfolder", "/card", "/card/100ABC/sub/a.jpg", "100ABC/sub/a.jpg");
    row("outside-the-location", "/card", "/other/a.jpg", "/other/a.jpg");
    row("location-itself", "/card", "/card", "/card");
    row("name-that-begins-like-the-location", "/card", "/cards/a.jpg", "/cards/a.jpg");
    row("different-case", "/card", "/CARD/a.jpg", "/CARD/a.jpg");
    row("location-twice", "/card", "/card/x/card/a.jpg", "xa.jpg");
    row("location-only-inside-the-path", "/card", "/mnt/card/a.jpg", "/mnta.jpg");
    row("location-twice-in-a-row-shares-a-slash", "/card", "/card/card/a.jpg", "card/a.jpg");
    row("occurrence-created-by-the-removal-remains", "/card", "/ca/card/rd/a.jpg", "/card/a.jpg");
    row("location-with-a-trailing-slash", "/card/", "/card/100ABC/a.jpg", "100ABC/a.jpg");
    row("location-is-not-clean", "/mnt/../card//", "/card/100ABC/a.jpg", "100ABC/a.jpg");
    row("deep-location", "/mnt/card/DCIM", "/mnt/card/DCIM/100ABC/a.jpg", "100ABC/a.jpg");
    row("parent-of-the-location", "/mnt/card/DCIM", "/mnt/card/a.jpg", "/mnt/card/a.jpg");
    row("root-location", "/", "/100ABC/a.jpg", "/100ABC/a.jpg");
    row("root-location-and-root", "/", "/", "/");
    row("outside-ascii", "/k\u00E4rtchen", "/k\u00E4rtchen/\u00FC.jpg", "\u00FC.jpg");
    row("pattern-characters", "/c.rd", "/card/a.jpg", "/card/a.jpg");
    row("place-markers", "/%1", "/%1/%2.jpg", "%2.jpg");
}

void JsonTest::fileNames()
{
    QFETCH(const QString, location);
    QFETCH(const QString, path);
    QFETCH(const QString, expected);
    const Storages storages;
    VornFileHandler::mSDLocation = QDir(location);
    StandardErrorCapture capture;
    QCOMPARE(field(QFileInfo(path), "filename"), QJsonValue(expected));
    QCOMPARE(capture.take(), QByteArray());
}

void JsonTest::fileNamesBelowARelativeLocation()
{
    const Storages storages;
    const CurrentDirectory current(storages.path());
    VornFileHandler::mSDLocation = QDir("sd/DCIM");
    makeTree(storages.sd(), {"100ABC/a.jpg", "b.jpg"});
    StandardErrorCapture capture;
    QCOMPARE(namesAndTypes(VornFileHandler::getJSONImageList(STORAGE_SD, false)),
             QStringList{"100ABC/a.jpg 16"});
    QCOMPARE(field(QFileInfo("sd/DCIM/b.jpg"), "filename"), QJsonValue("b.jpg"));
    QCOMPARE(field(QFileInfo("b.jpg"), "filename"), QJsonValue(QDir::currentPath() + "/b.jpg"));
    QCOMPARE(capture.take(), QByteArray());
}

void JsonTest::prefixIsThatOfTheStorage()
{
    const Storages storages;
    QFileInfoList files;
    for (const eStorageType storage : {STORAGE_MMC, STORAGE_SD, STORAGE_USB})
        files.append(QFileInfo(storages.location(storage) + "/a.jpg"));
    StandardErrorCapture capture;
    for (const eStorageType storage : {STORAGE_MMC, STORAGE_SD, STORAGE_USB}) {
        QStringList expected;
        for (const QFileInfo &file : files)
            expected.append(file.absoluteFilePath() + " 16");
        expected[storage] = "a.jpg 16";
        QCOMPARE(namesAndTypes(VornFileHandler::getJsonFileList(storage, files)), expected);
    }
    QCOMPARE(capture.take(), QByteArray());
}

void JsonTest::entriesThatAreFolders()
{
    const Storages storages;
    makeTree(storages.sd(), {"100ABC/a.jpg", "MISC/"});
    StandardErrorCapture capture;
    const auto folders = VornFileHandler::getFolders(STORAGE_SD, anyFilter(0));
    const QJsonArray array = VornFileHandler::getJsonFileList(STORAGE_SD, folders);
    QCOMPARE(capture.take(), QByteArray());
    QCOMPARE(namesAndTypes(array), (QStringList{"100ABC 128", "MISC 128"}));
    struct stat status = {};
    QVERIFY(::stat(QFile::encodeName(storages.sd() + "/100ABC").constData(), &status) == 0);
    QCOMPARE(array.first().toObject().value("size").toString(), "0x" + QString::number(status.st_size, 16));
}

void JsonTest::entriesThatAreLinks()
{
    const Storages storages;
    makeTree(storages.sd(),
             {"100ABC/a.jpg size 8", "file.png -> 100ABC/a.jpg", "folder.png -> 100ABC", "gone.png -> gone"});
    StandardErrorCapture capture;
    const QJsonArray array = VornFileHandler::getJsonFileList(
        STORAGE_SD, {QFileInfo(storages.sd() + "/file.png"), QFileInfo(storages.sd() + "/folder.png"),
                     QFileInfo(storages.sd() + "/gone.png")});
    QCOMPARE(capture.take(), QByteArray());
    QCOMPARE(namesAndTypes(array), (QStringList{"file.png 16", "folder.png 128", "gone.png 16"}));
    QCOMPARE(array.at(0).toObject().value("size"), QJsonValue("0x8"));
    QCOMPARE(array.at(2).toObject().value("size"), QJsonValue("0x0"));
    QCOMPARE(array.at(2).toObject().value("moddate"), QJsonValue(""));
}

void JsonTest::timeIsTheCreationTime()
{
    const Storages storages;
    const QByteArray path = QFile::encodeName(storages.sd() + "/100ABC/a.jpg");
    writeFile(path);
    QThread::msleep(1100); // so that the last status change differs from the birth time
    setModified(path, 1000000000000);
    const QString date = wallClock(creationTime(path), "%Y-%m-%d");
    const QString time = wallClock(creationTime(path), "%H:%M:%S");

    const QFileInfo file(QFile::decodeName(path));
    StandardErrorCapture capture;
    QCOMPARE(field(file, "moddate"), QJsonValue(date));
    QCOMPARE(field(file, "modtime"), QJsonValue(time));
    const QJsonObject listed = VornFileHandler::getJSONImageList(STORAGE_SD, false).first().toObject();
    QCOMPARE(listed.value("moddate"), QJsonValue(date));
    QCOMPARE(listed.value("modtime"), QJsonValue(time));
    QCOMPARE(capture.take(), QByteArray());
}

/// The files in /proc have no birth time. With the suffix "fdinfo", /proc/self can serve as a location.
void JsonTest::timeWithoutABirthTimeIsTheLastStatusChange()
{
    const Storages storages("fdinfo");
    VornFileHandler::mSDLocation = QDir("/proc/self");
    const QFileInfo file("/proc/self/fdinfo/0");
    QVERIFY(file.exists());
    QVERIFY(!file.birthTime().isValid());
    const qint64 time = creationTime("/proc/self/fdinfo/0");
    const QStringList expected = {"fdinfo/0", wallClock(time, "%Y-%m-%d"), wallClock(time, "%H:%M:%S"), "0x0",
                                  "-1"};
    StandardErrorCapture capture;
    QCOMPARE(fields(VornFileHandler::getJsonFileList(STORAGE_SD, {file})), expected);
    for (const char *filter : {"0", "0*"}) // the first requires QDir, the second does not
        QCOMPARE(fields(VornFileHandler::getJSONDirectoryContents(STORAGE_SD, {filter})), expected);
    QCOMPARE(capture.take(), QByteArray());
}

void JsonTest::wrappers_data()
{
    QTest::addColumn<Tree>("before");
    QTest::addColumn<QString>("wrapper");
    QTest::addColumn<QStringList>("expected");
    const auto row = [](const char *name, const Tree &before, const char *wrapper,
                        const QStringList &expected) {
        QTest::newRow(name) << before << wrapper << expected;
    };
    const Tree mixed = {"100ABC/b.jpg at 3",   "100ABC/n.txt at 7", "100ABC/p.png at 1", "100ABC/s.wav at 6",
                        "100ABC/t.thumb at 2", "100ABC/v.mkv at 4", "100ABC/w.avi at 5", "101ABC/a.jpg at 1",
                        "101ABC/t.thumb at 2", "MISC/x.jpg",        "loose.jpg"};
    row("photos-with-png-last", mixed, "photos", {"100ABC/b.jpg 16", "101ABC/a.jpg 16", "100ABC/p.png 16"});
    row("thumbnails-among-the-photos", mixed, "photos and thumbnails",
        {"100ABC/t.thumb 20", "100ABC/b.jpg 16", "101ABC/a.jpg 16", "101ABC/t.thumb 20", "100ABC/p.png 16"});
    row("videos", mixed, "videos", {"100ABC/v.mkv 34", "100ABC/w.avi 32"});
    row("audio-files", mixed, "audio files", {"100ABC/s.wav 64"});
    row("all-files", mixed, "all",
        {"100ABC/p.png 16", "100ABC/t.thumb 20", "100ABC/b.jpg 16", "100ABC/v.mkv 34", "100ABC/w.avi 32",
         "100ABC/s.wav 64", "100ABC/n.txt -1", "101ABC/a.jpg 16", "101ABC/t.thumb 20"});
    row("files-by-filter", mixed, "*.txt *.T*",
        {"100ABC/t.thumb 20", "100ABC/n.txt -1", "101ABC/t.thumb 20"});
    row("files-by-a-filter-without-a-match", mixed, "*.gif x", {});
    row("upper-case-is-listed-but-unknown", {"100ABC/DCF_0001.JPG at 1", "100ABC/a.jpg at 2"}, "photos",
        {"100ABC/DCF_0001.JPG -1", "100ABC/a.jpg 16"});
    row("upper-case-video", {"100ABC/a.AVI at 1", "100ABC/b.MKV at 2"}, "videos",
        {"100ABC/a.AVI -1", "100ABC/b.MKV -1"});
    row("upper-case-audio-file", {"100ABC/a.WAV"}, "audio files", {"100ABC/a.WAV -1"});
    row("folder-in-lower-case", {"100abc/a.jpg"}, "photos", {"100abc/a.jpg 16"});
    row("names-outside-ascii", {"100ABC/\u00FC.jpg at 1", "100ABC/b.jpg at 2"}, "photos",
        {"100ABC/\u00FC.jpg 16", "100ABC/b.jpg 16"});
    for (const char *wrapper : {"photos", "photos and thumbnails", "videos", "audio files", "all", "* ?"})
        row(QByteArray("nothing-for-") + QByteArray(wrapper).replace(' ', '-'), {"MISC/x.jpg", "100ABC/"},
            wrapper, {});
}

namespace {

/// The wrapper with a name from the rows above; any other text is a list of name filters.
QJsonArray callWrapper(const QString &wrapper, eStorageType storage)
{
    if (wrapper == "photos")
        return VornFileHandler::getJSONImageList(storage, false);
    if (wrapper == "photos and thumbnails")
        return VornFileHandler::getJSONImageList(storage, true);
    if (wrapper == "videos")
        return VornFileHandler::getJSONVideoList(storage);
    if (wrapper == "audio files")
        return VornFileHandler::getJSONAudioList(storage);
    if (wrapper == "all")
        return VornFileHandler::getJSONDirectoryContents(storage);
    return VornFileHandler::getJSONDirectoryContents(storage, wrapper.split(' '));
}

} // namespace

void JsonTest::wrappers()
{
    QFETCH(const Tree, before);
    QFETCH(const QString, wrapper);
    QFETCH(const QStringList, expected);
    const Storages storages;
    makeTree(storages.sd(), before);
    const Tree all = tree(storages.path());

    StandardErrorCapture capture;
    QCOMPARE(namesAndTypes(callWrapper(wrapper, STORAGE_SD)), expected);
    QCOMPARE(capture.take(), QByteArray());
    QCOMPARE(tree(storages.path()), all);
}

void JsonTest::wrappersOnAMissingLocation_data()
{
    QTest::addColumn<QString>("wrapper");
    QTest::addColumn<bool>("blocked"); // by a file
    QTest::addColumn<int>("lines");

    row("photos", "photos", false, 1);
    row("videos", "videos", false, 1);
    row("audio-files", "audio files", false, 1);
    row("all", "all", false, 1);
    row("filtered", "*", false, 1);
    row("photos-with-a-file-in-the-way", "photos", true, 2);
    row("photos-and-thumbnails-with-a-file-in-the-way", "photos and thumbnails", true, 2);
    row("videos-with-a-file-in-the-way", "videos", true, 1);
    row("audio-files-with-a-file-in-the-way", "audio files", true, 1);
    row("all-with-a-file-in-the-way", "all", true, 1);
    row("filtered-with-a-file-in-the-way", "*", true, 1);
}

void JsonTest::wrappersOnAMissingLocation()
{
    QFETCH(const QString, wrapper);
    QFETCH(const bool, blocked);
    QFETCH(const int, lines);
    const Storages storages;
    if (blocked)
        writeFile(storages.sd());
    StandardErrorCapture capture;
    QCOMPARE(callWrapper(wrapper, STORAGE_SD), QJsonArray());
    QCOMPARE(capture.take(), missingLocationLine(storages.sd()).repeated(lines));
    QCOMPARE(tree(storages.path()),
             blocked ? Tree({"sd/", "sd/DCIM"}) : Tree({"sd/", "sd/DCIM/", "sd/DCIM/100ABC/"}));
}

void JsonTest::wrappersOfEachStorage()
{
    const Storages storages;
    const QStringList names = {"mmc", "sd", "usb"};
    for (const eStorageType storage : {STORAGE_MMC, STORAGE_SD, STORAGE_USB}) {
        const QByteArray name = "100ABC/" + names.at(storage).toUtf8();
        makeTree(storages.location(storage), {name + ".jpg at 1", name + ".avi at 2", name + ".wav at 3"});
    }
    for (const eStorageType storage : {STORAGE_MMC, STORAGE_SD, STORAGE_USB}) {
        const QString name = "100ABC/" + names.at(storage);
        const QStringList photo = {name + ".jpg 16"};
        const QStringList all = {name + ".jpg 16", name + ".avi 32", name + ".wav 64"};
        StandardErrorCapture capture;
        QCOMPARE(namesAndTypes(callWrapper("photos", storage)), photo);
        QCOMPARE(namesAndTypes(callWrapper("photos and thumbnails", storage)), photo);
        QCOMPARE(namesAndTypes(callWrapper("videos", storage)), QStringList{name + ".avi 32"});
        QCOMPARE(namesAndTypes(callWrapper("audio files", storage)), QStringList{name + ".wav 64"});
        QCOMPARE(namesAndTypes(callWrapper("all", storage)), all);
        QCOMPARE(namesAndTypes(callWrapper("*.jpg", storage)), photo);
        QCOMPARE(capture.take(), QByteArray());
    }
}

/// The lists of /tmp are read, which creates a folder there, and are then discarded.
void JsonTest::wrappersOfAnUnsupportedStorage()
{
    const Storages storages;
    StandardErrorCapture capture;
    const auto result = withEmptyTmp([] {
        QByteArray texts;
        for (const char *wrapper : {"photos", "photos and thumbnails", "videos", "audio files", "all", "*"})
            texts += text(callWrapper(wrapper, anyStorage(3)));
        return texts + tree("/tmp").join(",");
    });
    if (!result)
        QSKIP("mounting is not permitted");
    QCOMPARE(*result, QByteArray("[][][][][][]100ABC/"));
    QCOMPARE(capture.take(), QByteArray());
}

void JsonTest::sameAsTheLiteralWay_data()
{
    QTest::addColumn<QByteArray>("zone"); // null: TZ is not set

    row("no-zone-set", QByteArray());
    for (const char *zone : {"UTC", "America/St_Johns", "Europe/London", "Australia/Lord_Howe",
                             "right/Europe/London", "XYZ-3:17"})
        QTest::newRow(zone) << QByteArray(zone);
}

void JsonTest::sameAsTheLiteralWay()
{
    QFETCH(const QByteArray, zone);
    const EnvironmentVariable timeZone("TZ", zone);
    ::tzset();
    constexpr quint32 SEED = 20250225;
    qInfo("seed %u", SEED);
    QRandomGenerator random(SEED);
    for (int round = 0; round < 6; ++round) {
        const Storages storages;
        makeTree(storages.sd(), randomTree(random));
        StandardErrorCapture capture;
        const auto expect = [](const QFileInfoList &files) { return text(literal::json(STORAGE_SD, files)); };
        for (const bool thumbnails : {false, true})
            QCOMPARE(text(VornFileHandler::getJSONImageList(STORAGE_SD, thumbnails)),
                     expect(VornFileHandler::getImageList(STORAGE_SD, thumbnails, DIRECTORY_FILTER_DCIM)));
        QCOMPARE(text(VornFileHandler::getJSONVideoList(STORAGE_SD)),
                 expect(VornFileHandler::getVideoList(STORAGE_SD, DIRECTORY_FILTER_DCIM)));
        QCOMPARE(text(VornFileHandler::getJSONAudioList(STORAGE_SD)),
                 expect(VornFileHandler::getAudioList(STORAGE_SD, DIRECTORY_FILTER_DCIM)));
        QCOMPARE(text(VornFileHandler::getJSONDirectoryContents(STORAGE_SD)),
                 expect(VornFileHandler::getDirectoryContents(STORAGE_SD, DIRECTORY_FILTER_DCIM)));
        const QStringList filters = {"*.jpg", "*2*"};
        QCOMPARE(text(VornFileHandler::getJSONDirectoryContents(STORAGE_SD, filters)),
                 expect(VornFileHandler::getDirectoryContents(STORAGE_SD, filters, DIRECTORY_FILTER_DCIM)));
        const QFileInfoList files = randomList(random, storages);
        QCOMPARE(text(VornFileHandler::getJsonFileList(STORAGE_SD, files)), expect(files));
        QCOMPARE(capture.take(), QByteArray());
    }
}

QTEST_GUILESS_MAIN(JsonTest)
#include "tst_json.moc"

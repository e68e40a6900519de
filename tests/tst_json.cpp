// SPDX-License-Identifier: MIT
#include "media.h"
#include "testsupport.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <QThread>
#include <QtTest>

#include <algorithm>
#include <ctime>
#include <random>

#include <sys/stat.h>
#include <unistd.h>

using namespace VORN_FILE_HANDLER;

namespace {

QByteArray text(const QJsonArray &array)
{
    return QJsonDocument(array).toJson(QJsonDocument::Compact);
}

void configureSd(const QString &location, const QString &suffix = "ABC")
{
    const StandardErrorCapture banner;
    VornFileHandler::init(suffix, "/nowhere/mmc", QString(), location, QString(), "/nowhere/usb", QString());
}

/// The five values of the only entry, in the order of their keys.
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

/// Name and type of each object, in order: "100ABC/DCF_0001.jpg 16".
QStringList namesAndTypes(const QJsonArray &array)
{
    QStringList list;
    for (const QJsonValue value : array) {
        const QJsonObject object = value.toObject();
        list.append(object["filename"].toString() + " " + QString::number(object["type"].toInt()));
    }
    return list;
}

void setSize(const QString &path, qint64 size)
{
    writeFile(path);
    QVERIFY(::truncate(QFile::encodeName(path).constData(), size) == 0);
}

/// A moment on the clock on the wall, as the C library tells it.
QString wallClock(qint64 msecs, const char *format)
{
    const std::time_t seconds = msecs / 1000;
    std::tm local = {};
    ::tzset();
    ::localtime_r(&seconds, &local);
    char buffer[64];
    return QString::fromLatin1(buffer,
                               static_cast<int>(std::strftime(buffer, sizeof buffer, format, &local)));
}

/// What QFileInfo::created() was.
QDateTime created(const QFileInfo &file)
{
    return file.birthTime().isValid() ? file.birthTime() : file.metadataChangeTime();
}

int typeOf(const QFileInfo &file)
{
    static const QMap<QString, int> TYPES = {{"jpg", 16}, {"png", 16}, {"thumb", 20},
                                             {"avi", 32}, {"mkv", 34}, {"wav", 64}};
    return file.isDir() ? 128 : TYPES.value(file.suffix(), -1);
}

/// The list as it is described, step by step and without any short cut.
QJsonArray plainList(const QString &location, const QList<QFileInfo> &files)
{
    QJsonArray array;
    for (const QFileInfo &file : files) {
        QJsonObject object;
        object["moddate"] = created(file).date().toString("yyyy-MM-dd");
        object["modtime"] = created(file).time().toString(Qt::TextDate);
        object["type"] = typeOf(file);
        object["filename"] = file.absoluteFilePath().remove(location + "/", Qt::CaseSensitive);
        object["size"] = QString::number(file.size(), 16).insert(0, "0x");
        array.append(object);
    }
    return array;
}

class Random
{
public:
    explicit Random(unsigned seed) : mEngine(seed) {}
    int below(int limit) { return static_cast<int>(mEngine() % static_cast<unsigned>(limit)); }
    QByteArray pick(const QByteArrayList &list) { return list.at(below(list.size())); }

private:
    std::mt19937 mEngine;
};

/// Some folders and files of every kind, some of them with the same time.
QByteArrayList randomEntries(Random &random)
{
    const QByteArrayList folders = {"", "100ABC/", "101ABC/", "100abc/", "MISC/", "1000ABC/", "102ABC/sub/"};
    const QByteArrayList suffixes = {".jpg", ".png",     ".thumb", ".avi",      ".mkv",       ".wav", ".JPG",
                                     ".txt", ".b.c.jpg", "",       ".m\u212Av", "\u00FC.jpg", ".MKV"};
    QByteArrayList entries;
    for (int i = 0; i < 60; ++i) {
        const QByteArray sameTime = i > 0 && random.below(4) == 0 ? "=" : "";
        const QByteArray number = QByteArray::number(random.below(40)).rightJustified(4, '0');
        entries.append(sameTime + random.pick(folders) + "DCF_" + number + random.pick(suffixes));
    }
    return entries;
}

/// A list with entries that are files, folders, missing, changed or removed after they were listed.
QList<QFileInfo> randomList(Random &random, const Storages &storages)
{
    const auto folders = static_cast<eDIRECTORY_FILTER>(0);
    QList<QFileInfo> files = VornFileHandler::getDirectoryContents(STORAGE_SD, folders);
    files += VornFileHandler::getFolders(STORAGE_SD, folders);
    files += {QFileInfo(),
              QFileInfo(""),
              QFileInfo(storages.path()),
              QFileInfo(storages.sd()),
              QFileInfo(storages.sd() + "/100ABC/missing.jpg"),
              QFileInfo("relative.mkv"),
              QFileInfo("/proc/self/stat")};
    for (int i = 0; i < files.size(); ++i) {
        const QString path = files.at(i).absoluteFilePath();
        if (!files.at(i).isFile() || !path.startsWith(storages.sd()))
            continue;
        const int fate = random.below(4);
        if (fate == 0)
            QFile::remove(path);
        else if (fate == 1)
            setSize(path, random.below(100000));
    }
    std::shuffle(files.begin(), files.end(), std::mt19937(static_cast<unsigned>(random.below(1000))));
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
    void keepsOrderAndDoubles();
    void emptyListGivesEmptyArray();
    void unsupportedStorageGivesEmptyArray_data();
    void unsupportedStorageGivesEmptyArray();
    void types_data();
    void types();
    void sizes_data();
    void sizes();
    void sizeOfAnEntryIsThatOfTheListing();
    void fileNames_data();
    void fileNames();
    void fileNamesBelowARelativeLocation();
    void prefixIsThatOfTheStorage();
    void entriesThatAreFolders();
    void entriesThatAreLinks();
    void timeIsThatOfTheCreation();
    void timeWithoutABirthTimeIsThatOfTheLastChange();
    void wrappers_data();
    void wrappers();
    void wrappersOnAMissingLocation_data();
    void wrappersOnAMissingLocation();
    void wrappersOfEachStorage();
    void wrappersOfAnUnsupportedStorage();
    void sameAsThePlainWay_data();
    void sameAsThePlainWay();
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

    const QString zero(QChar::Null);
    QTest::newRow("null") << QFileInfo() << QStringList{"", "", "", "0x0", "-1"};
    QTest::newRow("empty-path") << QFileInfo("") << QStringList{"", "", "", "0x0", "-1"};
    QTest::newRow("missing-file") << QFileInfo("/card/100ABC/DCF_0001.jpg")
                                  << QStringList{"100ABC/DCF_0001.jpg", "", "", "0x0", "16"};
    QTest::newRow("missing-folder") << QFileInfo("/card/100ABC")
                                    << QStringList{"100ABC", "", "", "0x0", "-1"};
    QTest::newRow("zero-character-in-the-path")
        << QFileInfo("/card/a" + zero + "b.jpg") << QStringList{"a" + zero + "b.jpg", "", "", "0x0", "16"};
    QTest::newRow("zero-character-in-a-relative-path")
        << QFileInfo("a" + zero + "b.wav") << QStringList{"a" + zero + "b.wav", "", "", "0x0", "64"};
}

void JsonTest::objectOfNoFile()
{
    QFETCH(const QFileInfo, file);
    QFETCH(const QStringList, expected);
    const Storages storages;
    configureSd("/card");
    StandardErrorCapture capture;
    const QJsonArray array = VornFileHandler::getJsonFileList(STORAGE_SD, {file});
    QCOMPARE(capture.take(), QByteArray());
    QCOMPARE(fields(array), expected);
}

void JsonTest::keepsOrderAndDoubles()
{
    const Storages storages;
    configureSd("/card");
    const QList<QFileInfo> files = {QFileInfo("/card/b.jpg"), QFileInfo("/card/a.wav"),
                                    QFileInfo("/card/c.avi"), QFileInfo("/card/b.jpg")};
    StandardErrorCapture capture;
    QCOMPARE(namesAndTypes(VornFileHandler::getJsonFileList(STORAGE_SD, files)),
             (QStringList{"b.jpg 16", "a.wav 64", "c.avi 32", "b.jpg 16"}));
    QCOMPARE(capture.take(), QByteArray());
}

void JsonTest::emptyListGivesEmptyArray()
{
    const Storages storages;
    StandardErrorCapture capture;
    QCOMPARE(VornFileHandler::getJsonFileList(STORAGE_SD, {}), QJsonArray());
    QCOMPARE(capture.take(), QByteArray());
    QCOMPARE(tree(storages.path()), QByteArrayList());
}

void JsonTest::unsupportedStorageGivesEmptyArray_data()
{
    QTest::addColumn<int>("storage");

    QTest::newRow("behind-the-last") << 3;
    QTest::newRow("negative") << -1;
    QTest::newRow("large") << 0x7FFFFFFF;
}

void JsonTest::unsupportedStorageGivesEmptyArray()
{
    QFETCH(const int, storage);
    const QTemporaryDir directory;
    makeEntries(directory.path(), {"a.jpg"});
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
    row("jpeg-in-capitals", "DCF_0001.JPG", -1);
    row("png-in-mixed-case", "DCF_0001.Png", -1);
    row("thumbnail-in-capitals", "DCF_0001.THUMB", -1);
    row("avi-in-capitals", "DCF_0001.AVI", -1);
    row("mkv-in-capitals", "DCF_0001.mKv", -1);
    row("wav-in-capitals", "DCF_0001.WAV", -1);
    row("no-dot", "README", -1);
    row("extension-without-a-dot", "jpg", -1);
    row("hidden-file-that-is-all-extension", ".jpg", 16);
    row("several-dots", "a.png.thumb", 20);
    row("several-dots-with-another-ending", "a.jpg.txt", -1);
    row("dot-at-the-end", "a.jpg.", -1);
    row("longer-extension", "a.jpeg", -1);
    row("extension-with-text-in-front", "a.xjpg", -1);
    row("extension-with-a-blank", "a.jpg ", -1);
    row("other-extension", "notes.txt", -1);
}

void JsonTest::types()
{
    QFETCH(const QByteArray, entry);
    QFETCH(const int, expected);
    const Storages storages;
    makeEntries(storages.sd(), {"100ABC/" + entry});
    StandardErrorCapture capture;
    const QFileInfo file(QDir::cleanPath(storages.sd() + "/100ABC/" + entry));
    QCOMPARE(field(file, "type"), QJsonValue(expected));
    QCOMPARE(capture.take(), QByteArray());
}

void JsonTest::sizes_data()
{
    QTest::addColumn<qint64>("size");
    QTest::addColumn<QString>("expected");

    QTest::newRow("empty") << qint64(0) << "0x0";
    QTest::newRow("one-byte") << qint64(1) << "0x1";
    QTest::newRow("lower-case-digits") << qint64(255) << "0xff";
    QTest::newRow("no-leading-zeros") << qint64(4096) << "0x1000";
    QTest::newRow("last-of-31-bits") << qint64(0x7FFFFFFF) << "0x7fffffff";
    QTest::newRow("first-beyond-31-bits") << qint64(0x80000000) << "0x80000000";
    QTest::newRow("beyond-four-gigabytes") << qint64(0x123456789) << "0x123456789";
}

void JsonTest::sizes()
{
    QFETCH(const qint64, size);
    QFETCH(const QString, expected);
    const Storages storages;
    setSize(storages.sd() + "/100ABC/a.avi", size);
    StandardErrorCapture capture;
    QCOMPARE(field(QFileInfo(storages.sd() + "/100ABC/a.avi"), "size"), QJsonValue(expected));
    const QJsonArray array = VornFileHandler::getJSONVideoList(STORAGE_SD);
    QCOMPARE(capture.take(), QByteArray());
    QCOMPARE(array.first().toObject().value("size"), QJsonValue(expected));
}

void JsonTest::sizeOfAnEntryIsThatOfTheListing()
{
    const Storages storages;
    makeEntries(storages.sd(), {"100ABC/a.jpg", "100ABC/b.jpg"});
    StandardErrorCapture capture;
    const auto files = VornFileHandler::getImageList(STORAGE_SD, false, DIRECTORY_FILTER_DCIM);
    QVERIFY(QFile::remove(storages.sd() + "/100ABC/a.jpg"));
    setSize(storages.sd() + "/100ABC/b.jpg", 4096);
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
    row("further-down", "/card", "/card/100ABC/sub/a.jpg", "100ABC/sub/a.jpg");
    row("outside-the-location", "/card", "/other/a.jpg", "/other/a.jpg");
    row("the-location-itself", "/card", "/card", "/card");
    row("name-that-begins-like-the-location", "/card", "/cards/a.jpg", "/cards/a.jpg");
    row("other-case", "/card", "/CARD/a.jpg", "/CARD/a.jpg");
    row("location-twice", "/card", "/card/x/card/a.jpg", "xa.jpg");
    row("location-further-on-only", "/card", "/mnt/card/a.jpg", "/mnta.jpg");
    row("location-twice-in-a-row-shares-a-slash", "/card", "/card/card/a.jpg", "card/a.jpg");
    row("occurrence-made-by-a-removal-stays", "/card", "/ca/card/rd/a.jpg", "/card/a.jpg");
    row("location-with-a-trailing-slash", "/card/", "/card/100ABC/a.jpg", "100ABC/a.jpg");
    row("location-that-is-not-clean", "/mnt/../card//", "/card/100ABC/a.jpg", "100ABC/a.jpg");
    row("deep-location", "/mnt/card/DCIM", "/mnt/card/DCIM/100ABC/a.jpg", "100ABC/a.jpg");
    row("parent-of-the-location", "/mnt/card/DCIM", "/mnt/card/a.jpg", "/mnt/card/a.jpg");
    row("root-location", "/", "/100ABC/a.jpg", "/100ABC/a.jpg");
    row("root-location-and-root", "/", "/", "/");
    row("letters-outside-ascii", "/k\u00E4rtchen", "/k\u00E4rtchen/\u00FC.jpg", "\u00FC.jpg");
    row("pattern-characters", "/c.rd", "/card/a.jpg", "/card/a.jpg");
    row("marker-characters", "/%1", "/%1/%2.jpg", "%2.jpg");
}

void JsonTest::fileNames()
{
    QFETCH(const QString, location);
    QFETCH(const QString, path);
    QFETCH(const QString, expected);
    const Storages storages;
    configureSd(location);
    StandardErrorCapture capture;
    QCOMPARE(field(QFileInfo(path), "filename"), QJsonValue(expected));
    QCOMPARE(capture.take(), QByteArray());
}

void JsonTest::fileNamesBelowARelativeLocation()
{
    const Storages storages;
    const CurrentDirectory inside(storages.path());
    configureSd("sd/DCIM");
    makeEntries(storages.sd(), {"100ABC/a.jpg", "b.jpg"});
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
    QList<QFileInfo> files;
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
    makeEntries(storages.sd(), {"100ABC/a.jpg", "MISC/"});
    StandardErrorCapture capture;
    const auto folders = VornFileHandler::getFolders(STORAGE_SD, static_cast<eDIRECTORY_FILTER>(0));
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
    makeEntries(storages.sd(),
                {"100ABC/a.jpg", "file.png@100ABC/a.jpg", "folder.png@100ABC", "gone.png@gone"});
    StandardErrorCapture capture;
    QJsonArray array = VornFileHandler::getJsonFileList(STORAGE_SD, {QFileInfo(storages.sd() + "/file.png"),
                                                                     QFileInfo(storages.sd() + "/folder.png"),
                                                                     QFileInfo(storages.sd() + "/gone.png")});
    QCOMPARE(capture.take(), QByteArray());
    QCOMPARE(namesAndTypes(array), (QStringList{"file.png 16", "folder.png 128", "gone.png 16"}));
    QCOMPARE(array.at(0).toObject().value("size"), QJsonValue("0x8"));
    QCOMPARE(array.at(2).toObject().value("size"), QJsonValue("0x0"));
    QCOMPARE(array.at(2).toObject().value("moddate"), QJsonValue(""));
}

void JsonTest::timeIsThatOfTheCreation()
{
    const Storages storages;
    const QByteArray path = QFile::encodeName(storages.sd() + "/100ABC/a.jpg");
    writeFile(path);
    QThread::msleep(1100); // so that the last change of status is told apart from the creation
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

// The files of /proc have no birth time. They can be a storage with the suffix "fdinfo".
void JsonTest::timeWithoutABirthTimeIsThatOfTheLastChange()
{
    const Storages storages;
    configureSd("/proc/self", "fdinfo");
    const QFileInfo file("/proc/self/fdinfo/0");
    QVERIFY(file.exists());
    QVERIFY(!file.birthTime().isValid());
    const qint64 time = creationTime("/proc/self/fdinfo/0");
    const QStringList expected = {"fdinfo/0", wallClock(time, "%Y-%m-%d"), wallClock(time, "%H:%M:%S"), "0x0",
                                  "-1"};
    StandardErrorCapture capture;
    QCOMPARE(fields(VornFileHandler::getJsonFileList(STORAGE_SD, {file})), expected);
    for (const char *filter : {"0", "0*"}) // one for QDir, and one that does without
        QCOMPARE(fields(VornFileHandler::getJSONDirectoryContents(STORAGE_SD, {filter})), expected);
    QCOMPARE(capture.take(), QByteArray());
}

void JsonTest::wrappers_data()
{
    QTest::addColumn<QByteArrayList>("entries");
    QTest::addColumn<QString>("wrapper");
    QTest::addColumn<QStringList>("expected");

    const QByteArrayList mixed = {"100ABC/p.png", "101ABC/a.jpg",   "100ABC/t.thumb", "100ABC/b.jpg",
                                  "100ABC/v.mkv", "100ABC/w.avi",   "100ABC/s.wav",   "100ABC/n.txt",
                                  "MISC/x.jpg",   "101ABC/t.thumb", "loose.jpg"};
    const auto row = [](const char *name, const QByteArrayList &entries, const char *wrapper,
                        const QStringList &expected) {
        QTest::newRow(name) << entries << wrapper << expected;
    };
    row("photos-with-png-last", mixed, "photos", {"100ABC/b.jpg 16", "101ABC/a.jpg 16", "100ABC/p.png 16"});
    row("thumbnails-among-the-photos", mixed, "photos and thumbnails",
        {"100ABC/t.thumb 20", "100ABC/b.jpg 16", "101ABC/a.jpg 16", "101ABC/t.thumb 20", "100ABC/p.png 16"});
    row("videos", mixed, "videos", {"100ABC/v.mkv 34", "100ABC/w.avi 32"});
    row("sounds", mixed, "sounds", {"100ABC/s.wav 64"});
    row("all-files", mixed, "all",
        {"100ABC/p.png 16", "100ABC/t.thumb 20", "100ABC/b.jpg 16", "100ABC/v.mkv 34", "100ABC/w.avi 32",
         "100ABC/s.wav 64", "100ABC/n.txt -1", "101ABC/a.jpg 16", "101ABC/t.thumb 20"});
    row("files-by-filter", mixed, "*.txt *.T*",
        {"100ABC/t.thumb 20", "100ABC/n.txt -1", "101ABC/t.thumb 20"});
    row("files-by-a-filter-that-matches-none", mixed, "*.gif x", {});
    row("capitals-are-listed-but-unknown", {"100ABC/DCF_0001.JPG", "100ABC/a.jpg"}, "photos",
        {"100ABC/DCF_0001.JPG -1", "100ABC/a.jpg 16"});
    row("capital-video", {"100ABC/a.AVI", "100ABC/b.MKV"}, "videos", {"100ABC/a.AVI -1", "100ABC/b.MKV -1"});
    row("capital-sound", {"100ABC/a.WAV"}, "sounds", {"100ABC/a.WAV -1"});
    row("folder-in-small-letters", {"100abc/a.jpg"}, "photos", {"100abc/a.jpg 16"});
    row("letters-outside-ascii", {"100ABC/\u00FC.jpg", "100ABC/b.jpg"}, "photos",
        {"100ABC/\u00FC.jpg 16", "100ABC/b.jpg 16"});
    for (const char *wrapper : {"photos", "photos and thumbnails", "videos", "sounds", "all", "* ?"})
        row(QByteArray("nothing-for-") + QByteArray(wrapper).replace(' ', '-'), {"MISC/x.jpg", "100ABC/"},
            wrapper, {});
}

namespace {

/// The wrapper named as in the rows above; any other text holds name filters.
QJsonArray callWrapper(const QString &wrapper, eStorageType storage)
{
    if (wrapper == "photos")
        return VornFileHandler::getJSONImageList(storage, false);
    if (wrapper == "photos and thumbnails")
        return VornFileHandler::getJSONImageList(storage, true);
    if (wrapper == "videos")
        return VornFileHandler::getJSONVideoList(storage);
    if (wrapper == "sounds")
        return VornFileHandler::getJSONAudioList(storage);
    if (wrapper == "all")
        return VornFileHandler::getJSONDirectoryContents(storage);
    return VornFileHandler::getJSONDirectoryContents(storage, wrapper.split(' '));
}

} // namespace

void JsonTest::wrappers()
{
    QFETCH(const QByteArrayList, entries);
    QFETCH(const QString, wrapper);
    QFETCH(const QStringList, expected);
    const Storages storages;
    makeEntries(storages.sd(), entries);
    const auto before = tree(storages.path());

    StandardErrorCapture capture;
    QCOMPARE(namesAndTypes(callWrapper(wrapper, STORAGE_SD)), expected);
    QCOMPARE(capture.take(), QByteArray());
    QCOMPARE(tree(storages.path()), before);
}

void JsonTest::wrappersOnAMissingLocation_data()
{
    QTest::addColumn<QString>("wrapper");
    QTest::addColumn<bool>("blocked"); // by a file
    QTest::addColumn<int>("lines");

    QTest::newRow("photos") << "photos" << false << 1;
    QTest::newRow("videos") << "videos" << false << 1;
    QTest::newRow("sounds") << "sounds" << false << 1;
    QTest::newRow("all") << "all" << false << 1;
    QTest::newRow("filtered") << "*" << false << 1;
    QTest::newRow("photos-behind-a-file") << "photos" << true << 2;
    QTest::newRow("photos-and-thumbnails-behind-a-file") << "photos and thumbnails" << true << 2;
    QTest::newRow("videos-behind-a-file") << "videos" << true << 1;
    QTest::newRow("sounds-behind-a-file") << "sounds" << true << 1;
    QTest::newRow("all-behind-a-file") << "all" << true << 1;
    QTest::newRow("filtered-behind-a-file") << "*" << true << 1;
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
    const QByteArray line = "root dir " + storages.sd().toUtf8() + " doesn't exist. Create it";
    QCOMPARE(capture.take(), diagnosticLine(line).repeated(lines));
    QCOMPARE(tree(storages.path()), blocked ? (QByteArrayList{"sd/", "sd/DCIM"})
                                            : (QByteArrayList{"sd/", "sd/DCIM/", "sd/DCIM/100ABC/"}));
}

void JsonTest::wrappersOfEachStorage()
{
    const Storages storages;
    const QStringList names = {"mmc", "sd", "usb"};
    for (const eStorageType storage : {STORAGE_MMC, STORAGE_SD, STORAGE_USB}) {
        const QByteArray name = "100ABC/" + names.at(storage).toUtf8();
        makeEntries(storages.location(storage), {name + ".jpg", name + ".avi", name + ".wav"});
    }
    for (const eStorageType storage : {STORAGE_MMC, STORAGE_SD, STORAGE_USB}) {
        const QString name = "100ABC/" + names.at(storage);
        const QStringList photo = {name + ".jpg 16"};
        const QStringList all = {name + ".jpg 16", name + ".avi 32", name + ".wav 64"};
        StandardErrorCapture capture;
        QCOMPARE(namesAndTypes(callWrapper("photos", storage)), photo);
        QCOMPARE(namesAndTypes(callWrapper("photos and thumbnails", storage)), photo);
        QCOMPARE(namesAndTypes(callWrapper("videos", storage)), QStringList{name + ".avi 32"});
        QCOMPARE(namesAndTypes(callWrapper("sounds", storage)), QStringList{name + ".wav 64"});
        QCOMPARE(namesAndTypes(callWrapper("all", storage)), all);
        QCOMPARE(namesAndTypes(callWrapper("*.jpg", storage)), photo);
        QCOMPARE(capture.take(), QByteArray());
    }
}

// The lists of /tmp are taken, with the folders that this creates, and then come to nothing.
void JsonTest::wrappersOfAnUnsupportedStorage()
{
    const Storages storages;
    StandardErrorCapture capture;
    const auto answer = withEmptyTmp([] {
        QByteArray texts;
        for (const char *wrapper : {"photos", "photos and thumbnails", "videos", "sounds", "all", "*"})
            texts += text(callWrapper(wrapper, anyStorage(3)));
        return texts + tree("/tmp").join(",");
    });
    if (!answer)
        QSKIP("no other /tmp for this user");
    QCOMPARE(*answer, QByteArray("[][][][][][]100ABC/"));
    QCOMPARE(capture.take(), QByteArray());
}

void JsonTest::sameAsThePlainWay_data()
{
    QTest::addColumn<QByteArray>("zone"); // null: TZ is not set

    QTest::newRow("no-zone-set") << QByteArray();
    for (const char *zone : {"UTC", "America/St_Johns", "Europe/London", "Australia/Lord_Howe",
                             "right/Europe/London", "XYZ-3:17"})
        QTest::newRow(zone) << QByteArray(zone);
}

void JsonTest::sameAsThePlainWay()
{
    QFETCH(const QByteArray, zone);
    const EnvironmentVariable timeZone("TZ", zone);
    ::tzset();
    const unsigned seed = 20250225;
    qInfo("seed %u", seed);
    Random random(seed);
    for (int round = 0; round < 6; ++round) {
        const Storages storages;
        makeEntries(storages.sd(), randomEntries(random));
        StandardErrorCapture capture;
        const auto expect = [&storages](const QList<QFileInfo> &files) {
            return text(plainList(storages.sd(), files));
        };
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
        const QList<QFileInfo> files = randomList(random, storages);
        QCOMPARE(text(VornFileHandler::getJsonFileList(STORAGE_SD, files)), expect(files));
        QCOMPARE(capture.take(), QByteArray());
    }
}

QTEST_GUILESS_MAIN(JsonTest)
#include "tst_json.moc"

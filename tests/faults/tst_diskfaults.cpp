// SPDX-License-Identifier: MIT
#include "literal.h"
#include "resources.h"
#include "shim.h"
#include "testsupport.h"

#include <QJsonObject>
#include <QTest>

#include <cerrno>

#include <unistd.h>

using namespace VORN_FILE_HANDLER;

/// A query of the SD card, with its result as text.
using Query = std::function<QByteArray()>;

Q_DECLARE_METATYPE(Faults)
Q_DECLARE_METATYPE(Query)

namespace {

const Faults NO_FAULTS;

Faults openFails(int error)
{
    Faults wanted;
    wanted.openError = error;
    return wanted;
}

Faults readFails(int error, int after, bool unknownTypes = false)
{
    Faults wanted;
    wanted.readError = error;
    wanted.readErrorAfter = after;
    wanted.unknownTypes = unknownTypes;
    return wanted;
}

Faults statxFails(int error, const char *name = nullptr, bool unknownTypes = false)
{
    Faults wanted;
    wanted.statxError = error;
    wanted.statxName = name;
    wanted.unknownTypes = unknownTypes;
    return wanted;
}

Faults createdAt(std::int64_t birth)
{
    Faults wanted;
    wanted.birth = birth;
    return wanted;
}

Faults unknownTypes()
{
    Faults wanted;
    wanted.unknownTypes = true;
    return wanted;
}

Faults mkdirFails(int error)
{
    Faults wanted;
    wanted.mkdirError = error;
    return wanted;
}

Faults removeFails(int error, const char *name = nullptr)
{
    Faults wanted;
    wanted.removeError = error;
    wanted.removeName = name;
    return wanted;
}

/// Creates folders and files of every kind, hundreds of photos among them, with times that determine their
/// order.
void fill(const QString &location)
{
    Tree entries = {"100ABC/.h.jpg",
                    "100ABC/a.png at 1600000000",
                    "100ABC/b.png at 1600000000",
                    "100ABC/link.jpg -> a.png",
                    "100ABC/sub/x.jpg",
                    "100abc/A.JPG",
                    "101ABC/DCF_0007.wav",
                    "1000ABC/x.avi",
                    "102ABC -> 101ABC",
                    "MISC/DCF_0003.mkv",
                    "XYZABC/",
                    "loose.jpg"};
    for (int i = 1; i <= 300; ++i) {
        const QByteArray number = QByteArray::number(i);
        entries.append("100ABC/DCF_" + number.rightJustified(4, '0') + ".jpg size " + number + " at "
                       + QByteArray::number(1700000000 + i * 7919 % 300));
    }
    makeTree(location, entries);
}

QByteArray relative(const QFileInfoList &files)
{
    return relativePaths(files, VornFileHandler::mSDLocation.path()).join(' ');
}

QByteArray fileNamesIn(const QJsonArray &array)
{
    QByteArrayList names;
    for (const QJsonValue value : array)
        names.append(value.toObject().value("filename").toString().toUtf8());
    return names.join(' ');
}

Query photosOf(eDIRECTORY_FILTER filter)
{
    return [filter] {
        return relative(VornFileHandler::getDirectoryContents(STORAGE_SD, QStringList{"*.jpg"}, filter));
    };
}

QByteArray numberedFolders()
{
    return relative(VornFileHandler::getDCIMFolders(STORAGE_SD));
}

QByteArray otherFolders()
{
    return relative(VornFileHandler::getFolders(STORAGE_SD, DIRECTORY_FILTER_NON_DCIM));
}

QByteArray images()
{
    return relative(VornFileHandler::getImageList(STORAGE_SD, false, DIRECTORY_FILTER_DCIM));
}

QByteArray videos()
{
    return relative(VornFileHandler::getVideoList(STORAGE_SD, DIRECTORY_FILTER_DCIM));
}

QByteArray audio()
{
    return relative(VornFileHandler::getAudioList(STORAGE_SD, DIRECTORY_FILTER_DCIM));
}

QByteArray jsonImages()
{
    return fileNamesIn(VornFileHandler::getJSONImageList(STORAGE_SD, false));
}

QByteArray jsonVideos()
{
    return fileNamesIn(VornFileHandler::getJSONVideoList(STORAGE_SD));
}

QByteArray files()
{
    return relative(VornFileHandler::getDirectoryContents(STORAGE_SD, DIRECTORY_FILTER_DCIM));
}

QByteArray jsonFiles()
{
    return fileNamesIn(VornFileHandler::getJSONDirectoryContents(STORAGE_SD));
}

QByteArray mediaCount()
{
    return QByteArray::number(VornFileHandler::getMediaFileCount(STORAGE_SD));
}

QByteArray lastFolder()
{
    return QByteArray::number(VornFileHandler::getLastDirectoryNum(STORAGE_SD));
}

QByteArray lastFile()
{
    return QByteArray::number(VornFileHandler::getLastFileNum(STORAGE_SD, 100));
}

QByteArray nextNumber()
{
    return QByteArray::number(VornFileHandler::getNextFileNum(STORAGE_SD));
}

QByteArray nextName()
{
    return relative({QFileInfo(VornFileHandler::getNextFileName(STORAGE_SD, FILE_TYPE_IMAGE))});
}

/// Counts in @p openings how many times the directory @p name is opened, and calls @p change just before
/// opening number @p opening, counted from 1.
Faults changeAtOpening(const QByteArray &name, int opening, int &openings,
                       const std::function<void()> &change)
{
    Faults wanted;
    wanted.beforeOpening = [=, &openings](const char *path) {
        if (QByteArray(path).endsWith("/" + name) && ++openings == opening)
            change();
    };
    return wanted;
}

} // namespace

class TestDiskFaults : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase()
    {
        qputenv("TZ", "UTC");
    } // without TZ, QDir checks /etc/localtime at every comparison
    void init() { mDescriptors = openDescriptors(); }
    void cleanup()
    {
        faults = NO_FAULTS;
        QCOMPARE(openDescriptors(), mDescriptors);
        QVERIFY(!hasChildren());
    }

    void reportIsThatOfQDir_data();
    void reportIsThatOfQDir();
    void missingLocationCannotBeCreated_data();
    void missingLocationCannotBeCreated();
    void rolloverFolderCannotBeCreated();
    void transferFolderCannotBeCreated();
    void remainsIfItCannotBeRemoved_data();
    void remainsIfItCannotBeRemoved();
    void fileRemainsIfItCannotBeRemoved();
    void directoryChangesWhileItIsRead_data();
    void directoryChangesWhileItIsRead();
    void folderIsDeletedBeforeItIsListed_data();
    void folderIsDeletedBeforeItIsListed();
    void readingsOfTheLocation_data();
    void readingsOfTheLocation();
    void costOfEachOperation_data();
    void costOfEachOperation();
    void faultsLeakNoBytes_data() { reportIsThatOfQDir_data(); }
    void faultsLeakNoBytes();

private:
    QByteArrayList mDescriptors;
};

void TestDiskFaults::reportIsThatOfQDir_data()
{
    QTest::addColumn<Faults>("wanted");
    row("no-fault", NO_FAULTS);
    row("directory-denied", openFails(EACCES));
    row("no-free-descriptors", openFails(EMFILE));
    row("read-error-at-once", readFails(EIO, 0));
    row("read-error-after-some-entries", readFails(EIO, 5));
    row("read-error-half-way", readFails(EIO, 150));
    row("read-error-half-way-without-types", readFails(EIO, 150, true));
    row("statx-missing", statxFails(ENOSYS));
    row("statx-missing-for-one-file", statxFails(ENOSYS, "DCF_0150.jpg"));
    row("statx-denied", statxFails(EACCES));
    row("statx-error-everywhere", statxFails(EIO));
    row("statx-error-for-one-file", statxFails(EIO, "DCF_0150.jpg"));
    row("statx-error-for-a-folder", statxFails(EIO, "101ABC"));
    row("statx-error-for-the-location", statxFails(EIO, "DCIM"));
    row("types-unknown", unknownTypes());
    row("created-before-1970", createdAt(-86400));
    row("created-in-2037", createdAt(2145916798));
    row("created-after-2037", createdAt(4102444800));
    row("created-in-the-year-10000", createdAt(253402300800));
    row("created-before-the-year-1", createdAt(-62200000000));
    row("types-unknown-and-statx-missing", statxFails(ENOSYS, nullptr, true));
    row("types-unknown-and-statx-error-for-one-file", statxFails(EIO, "DCF_0150.jpg", true));
}

void TestDiskFaults::reportIsThatOfQDir()
{
    QFETCH(const Faults, wanted);
    Storages storages;
    fill(storages.sd());
    for (const char *suffix : {"ABC", "", "A[BC]", "A["}) {
        VornFileHandler::mFolderSuffix = suffix;
        StandardErrorCapture capture;
        literal::report(STORAGE_SD); // creates everything that can be created
        capture.take();
        const WithFaults broken(wanted);
        const QByteArray expected = literal::report(STORAGE_SD);
        const QByteArray expectedLines = capture.take();
        const QByteArray report = literal::libraryReport(STORAGE_SD);
        QCOMPARE(capture.take(), expectedLines);
        QCOMPARE(report, expected);
    }
}

void TestDiskFaults::missingLocationCannotBeCreated_data()
{
    QTest::addColumn<int>("error");
    row("full", ENOSPC);
    row("denied", EACCES);
    row("read-only", EROFS);
}

void TestDiskFaults::missingLocationCannotBeCreated()
{
    QFETCH(const int, error);
    Storages storages;
    StandardErrorCapture capture;
    const WithFaults broken(mkdirFails(error));
    const QByteArray expected = literal::report(STORAGE_SD);
    const QByteArray expectedLines = capture.take();
    QCOMPARE(literal::libraryReport(STORAGE_SD), expected);
    QCOMPARE(capture.take(), expectedLines);
    VornFileHandler::deleteAllFiles(STORAGE_SD);
    QCOMPARE(tree(storages.path()), Tree());
}

void TestDiskFaults::rolloverFolderCannotBeCreated()
{
    Storages storages;
    writeFile(storages.sd() + "/100ABC/DCF_9999.jpg");
    StandardErrorCapture capture;
    const WithFaults broken(mkdirFails(ENOSPC));
    QCOMPARE(VornFileHandler::getNextFileName(STORAGE_SD, FILE_TYPE_VIDEO_MKV),
             storages.sd() + "/100ABC/DCF_0001.mkv");
    QCOMPARE(capture.take(), QByteArray());
    QCOMPARE(tree(storages.sd()), (Tree{"100ABC/", "100ABC/DCF_9999.jpg"}));
}

void TestDiskFaults::transferFolderCannotBeCreated()
{
    Storages storages;
    const QString source = storages.sd() + "/100ABC/DCF_0001.jpg";
    writeFile(source);
    StandardErrorCapture capture;
    const WithFaults broken(mkdirFails(ENOSPC));
    VornFileHandler::copyToFolder({source}, STORAGE_USB, "100ABC");
    QCOMPARE(tree(storages.path()),
             (Tree{"sd/", "sd/DCIM/", "sd/DCIM/100ABC/", "sd/DCIM/100ABC/DCF_0001.jpg"}));
    VornFileHandler::moveToFolder({source}, STORAGE_USB, "100ABC");
    QCOMPARE(tree(storages.path()), (Tree{"sd/", "sd/DCIM/", "sd/DCIM/100ABC/"}));
    QCOMPARE(capture.take(), QByteArray());
}

void TestDiskFaults::remainsIfItCannotBeRemoved_data()
{
    QTest::addColumn<Faults>("wanted");
    row("nothing-can-be-removed", removeFails(EROFS));
    row("nothing-may-be-removed", removeFails(EACCES));
    row("one-file", removeFails(EBUSY, "DCF_0150.jpg"));
    row("one-folder", removeFails(EBUSY, "101ABC"));
    row("the-location", removeFails(EBUSY, "DCIM"));
    row("read-error-half-way", readFails(EIO, 150));
    row("types-unknown", unknownTypes());
}

void TestDiskFaults::remainsIfItCannotBeRemoved()
{
    QFETCH(const Faults, wanted);
    Storages storages;
    fill(storages.location(STORAGE_MMC));
    fill(storages.location(STORAGE_SD));
    {
        StandardErrorCapture capture;
        const WithFaults broken(wanted);
        QDir(storages.location(STORAGE_MMC)).removeRecursively();
        VornFileHandler::deleteAllFiles(STORAGE_SD);
        QCOMPARE(capture.take(), QByteArray());
    }
    QCOMPARE(tree(storages.path() + "/sd"), tree(storages.path() + "/mmc"));
}

void TestDiskFaults::fileRemainsIfItCannotBeRemoved()
{
    Storages storages;
    const QString path = storages.sd() + "/100ABC/DCF_0001.jpg";
    writeFile(path);
    StandardErrorCapture capture;
    const WithFaults broken(removeFails(EACCES));
    VornFileHandler::deleteFile(path);
    QCOMPARE(capture.take(), QByteArray());
    QCOMPARE(tree(storages.sd()), (Tree{"100ABC/", "100ABC/DCF_0001.jpg"}));
}

void TestDiskFaults::directoryChangesWhileItIsRead_data()
{
    QTest::addColumn<int>("after");
    for (const int after : {0, 1, 5, 120, 280})
        QTest::addRow("after-%d-entries", after) << after;
}

void TestDiskFaults::directoryChangesWhileItIsRead()
{
    QFETCH(const int, after);
    Storages storages;
    fill(storages.sd());
    const QString folder = storages.sd() + "/100ABC";
    Faults wanted;
    wanted.afterEntries = after;
    wanted.whileReading = [&folder] {
        for (int i = 100; i < 200; ++i)
            ::unlink(QString("%1/DCF_0%2.jpg").arg(folder).arg(i).toUtf8());
        for (int i = 0; i < 100; ++i)
            writeFile(QString("%1/new%2.jpg").arg(folder).arg(i));
    };
    QStringList names;
    StandardErrorCapture capture;
    {
        const WithFaults broken(wanted);
        names =
            fileNames(VornFileHandler::getDirectoryContents(folder, {"*.jpg"}, QDir::Time | QDir::Reversed));
    }
    QCOMPARE(capture.take(), QByteArray());
    QCOMPARE(QSet<QString>(names.begin(), names.end()).size(), names.size());
    for (int i = 200; i < 300; ++i)
        QVERIFY(names.contains(QString("DCF_0%1.jpg").arg(i)));
    const QRegularExpression known("^(DCF_[0-9]{4}|new[0-9]{1,3})\\.jpg$");
    QCOMPARE(names.filter(known), names);
    QCOMPARE(literal::libraryReport(STORAGE_SD), literal::report(STORAGE_SD));
}

void TestDiskFaults::folderIsDeletedBeforeItIsListed_data()
{
    QTest::addColumn<Query>("query");
    QTest::addColumn<int>("opening"); // of the preceding folder
    QTest::addColumn<QByteArray>("expected");
    QTest::addColumn<QByteArray>("printed"); // %1 is the location

    const QByteArray line = "directory %1/BABC doesn't exist";
    const QByteArray photos = "AABC/a.jpg CABC/a.jpg";
    const auto row = [](const char *name, const Query &query, int opening, const QByteArray &expected,
                        const QByteArray &printed) {
        QTest::newRow(name) << query << opening << expected << printed;
    };
    row("numbered-folders", photosOf(DIRECTORY_FILTER_DCIM), 1, photos, line);
    row("other-folders", photosOf(DIRECTORY_FILTER_NON_DCIM), 1, photos, line);
    row("all-folders", photosOf(anyFilter(0)), 1, photos, line);
    row("images", images, 1, photos + " AABC/b.png CABC/b.png", line);
    row("images-in-the-second-pass", images, 2, "AABC/a.jpg BABC/a.jpg CABC/a.jpg AABC/b.png CABC/b.png",
        line);
    row("videos", videos, 1, "AABC/c.avi CABC/c.avi", line);
    row("audio-files", audio, 1, "AABC/d.wav CABC/d.wav", line);
    row("json-images", jsonImages, 1, photos + " AABC/b.png CABC/b.png", line);
    row("json-videos", jsonVideos, 1, "AABC/c.avi CABC/c.avi", line);
    row("count", mediaCount, 1, "8", "%1/BABC doesn't exist");
}

void TestDiskFaults::folderIsDeletedBeforeItIsListed()
{
    QFETCH(const Query, query);
    QFETCH(const int, opening);
    QFETCH(const QByteArray, expected);
    QFETCH(QByteArray, printed);
    Storages storages;
    for (const char *folder : {"/AABC", "/BABC", "/CABC"}) // every folder filter selects them
        makeTree(storages.sd() + folder, {"a.jpg", "b.png", "c.avi", "d.wav"});
    const QString folder = storages.sd() + "/BABC";
    int openings = 0;
    StandardErrorCapture capture;
    {
        const WithFaults broken(changeAtOpening("AABC", opening, openings, [&folder] {
            clearTree(folder);
            ::rmdir(QFile::encodeName(folder));
        }));
        QCOMPARE(query(), expected);
    }
    QCOMPARE(capture.take(), diagnosticLine(printed.replace("%1", storages.sd().toUtf8())));
    QVERIFY(!QFile::exists(folder));
}

void TestDiskFaults::readingsOfTheLocation_data()
{
    QTest::addColumn<Query>("query");
    QTest::addColumn<Tree>("before");
    QTest::addColumn<Tree>("added"); // just before the second reading
    QTest::addColumn<int>("readings");
    QTest::addColumn<QByteArray>("expected");

    const Tree full = {"102ABC/DCF_0007.jpg", "102ABC/DCF_0008.png"};
    const Tree bare = {"MISC/DCF_0001.jpg"};
    const Tree other = {"105ABC/DCF_0003.jpg", "105ABC/DCF_0004.png"};
    const auto row = [](const char *name, const Query &query, const Tree &before, const Tree &added,
                        int readings, const QByteArray &expected) {
        QTest::newRow(name) << query << before << added << readings << expected;
    };
    row("numbered-folders", numberedFolders, full, other, 1, "102ABC");
    row("no-numbered-folders", numberedFolders, bare, {}, 2, "100ABC");
    row("numbered-folder-appears-in-between", numberedFolders, bare, other, 2, "100ABC 105ABC");
    row("last-folder", lastFolder, full, other, 1, "102");
    row("no-last-folder", lastFolder, bare, {}, 2, "100");
    row("last-folder-appears-in-between", lastFolder, bare, other, 2, "105");
    row("next-number", nextNumber, full, other, 1, "9");
    row("next-number-in-a-folder-that-appears-in-between", nextNumber, bare, other, 2, "5");
    // The number is determined before its folder, so a new folder inherits the number of the previous one.
    row("next-name", nextName, full, {}, 2, "102ABC/DCF_0009.jpg");
    row("next-name-in-a-folder-that-appears-in-between", nextName, full, other, 2, "105ABC/DCF_0009.jpg");
    row("next-name-without-a-folder", nextName, bare, {}, 3, "100ABC/DCF_0001.jpg");
    row("other-folders", otherFolders, bare, other, 1, "MISC");
    row("no-other-folders", otherFolders, {"102ABC/"}, other, 1, "");
    row("images", images, full, {}, 2, "102ABC/DCF_0007.jpg 102ABC/DCF_0008.png");
    row("images-in-a-folder-that-appears-between-the-passes", images, full, other, 2,
        "102ABC/DCF_0007.jpg 102ABC/DCF_0008.png 105ABC/DCF_0004.png");
    row("images-without-a-folder", images, bare, {}, 3, "");
    row("videos", videos, full, other, 1, "");
    row("json-images", jsonImages, full, other, 2,
        "102ABC/DCF_0007.jpg 102ABC/DCF_0008.png 105ABC/DCF_0004.png");
    row("json-videos", jsonVideos, full, other, 1, "");
    row("count", mediaCount, full, other, 1, "2");
    row("count-without-a-folder", mediaCount, bare, other, 2, "2");
}

void TestDiskFaults::readingsOfTheLocation()
{
    QFETCH(const Query, query);
    QFETCH(const Tree, before);
    QFETCH(const Tree, added);
    QFETCH(const int, readings);
    QFETCH(const QByteArray, expected);
    Storages storages;
    makeTree(storages.sd(), before);
    int openings = 0;
    StandardErrorCapture capture;
    {
        const auto addOthers = [&storages, &added] { makeTree(storages.sd(), added); };
        const WithFaults counting(changeAtOpening("DCIM", 2, openings, addOthers));
        QCOMPARE(query(), expected);
    }
    QCOMPARE(openings, readings);
    QCOMPARE(capture.take(), QByteArray());
}

void TestDiskFaults::costOfEachOperation_data()
{
    QTest::addColumn<Query>("query");
    QTest::addColumn<int>("openings");
    QTest::addColumn<int>("statxCalls");
    row("last-file-number", Query(lastFile), 1, 0);
    row("count", Query(mediaCount), 1, 0);
    row("files", Query(files), 1, 2); // the first determines the order; the second is cached in the QFileInfo
    row("photos", Query(images), 2, 2);
    row("json", Query(jsonFiles), 1, 1);
}

/// A folder on a slow card is read once, no file in it is examined more often than necessary, and the time
/// zone is read once for all files.
void TestDiskFaults::costOfEachOperation()
{
    QFETCH(const Query, query);
    QFETCH(const int, openings);
    QFETCH(const int, statxCalls);
    Storages storages;
    int opened = 0;
    const auto costs = [&query, &opened] {
        opened = 0;
        const WithFaults counting(changeAtOpening("100ABC", 0, opened, [] {}));
        query();
        return qMakePair(faults.statxCalls, faults.tzsetCalls);
    };
    makeTree(storages.sd(), {"100ABC/DCF_0001.jpg", "100ABC/DCF_0002.jpg"});
    const auto few = costs();
    for (int i = 3; i <= 22; ++i)
        writeFile(QString("%1/100ABC/DCF_%2.jpg").arg(storages.sd()).arg(i, 4, 10, QChar('0')));
    const auto many = costs();
    QCOMPARE(opened, openings);
    QCOMPARE(many.first - few.first, 20 * statxCalls);
    QCOMPARE(many.second, few.second);
}

void TestDiskFaults::faultsLeakNoBytes()
{
    QFETCH(const Faults, wanted);
    Storages storages;
    makeTree(storages.sd(), {"100ABC/DCF_0001.jpg", "100ABC/a.png", "XYZABC/DCF_0150.jpg", "101ABC/x.wav"});
    const StandardErrorCapture capture;
    const WithFaults broken(wanted);
    QVERIFY(heapGrowth([] { literal::libraryReport(STORAGE_SD); }) < SMALLEST_LEAK);
}

QTEST_GUILESS_MAIN(TestDiskFaults)
#include "tst_diskfaults.moc"

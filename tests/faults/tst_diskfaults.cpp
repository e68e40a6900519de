// SPDX-License-Identifier: MIT
#include "literal.h"
#include "media.h"
#include "resources.h"
#include "shim.h"
#include "testsupport.h"

#include <QJsonObject>
#include <QTest>

#include <cerrno>

#include <unistd.h>

using namespace VORN_FILE_HANDLER;

/// Something asked about the SD card, with the answer as text.
using Question = std::function<QByteArray()>;
using Action = std::function<void()>;

Q_DECLARE_METATYPE(Faults)
Q_DECLARE_METATYPE(Question)
Q_DECLARE_METATYPE(Action)

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

/// Folders and files of every kind, hundreds of photos among them, with times that tell their order.
void fill(const QString &location)
{
    for (int i = 1; i <= 300; ++i) {
        const QByteArray path =
            (location + "/100ABC/DCF_" + QString::number(i).rightJustified(4, '0')).toUtf8();
        writeFile(path + ".jpg", QByteArray(i, 'x'));
        setModified(path + ".jpg", 1700000000000 + (i * 7919 % 300) * 1000);
    }
    makeEntries(location,
                {"100ABC/", "100ABC/a.png", "=100ABC/b.png", "100ABC/link.jpg@a.png", "100ABC/.h.jpg",
                 "100ABC/sub/x.jpg", "100abc/A.JPG", "101ABC/", "101ABC/DCF_0007.wav", "1000ABC/x.avi",
                 "MISC/DCF_0003.mkv", "XYZABC/", "102ABC@101ABC", "loose.jpg"});
}

/// The paths of @p files relative to the location.
QByteArray relative(const QList<QFileInfo> &files)
{
    QByteArrayList paths;
    for (const QFileInfo &file : files)
        paths.append(VornFileHandler::mSDLocation.relativeFilePath(file.absoluteFilePath()).toUtf8());
    return paths.join(' ');
}

QByteArray fileNamesIn(const QJsonArray &array)
{
    QByteArrayList names;
    for (const QJsonValue value : array)
        names.append(value.toObject().value("filename").toString().toUtf8());
    return names.join(' ');
}

Question photosOf(eDIRECTORY_FILTER filter)
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

QByteArray sounds()
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

QByteArray mediaCount()
{
    return QByteArray::number(VornFileHandler::getMediaFileCount(STORAGE_SD));
}

QByteArray lastFolder()
{
    return QByteArray::number(VornFileHandler::getLastDirectoryNum(STORAGE_SD));
}

QByteArray nextNumber()
{
    return QByteArray::number(VornFileHandler::getNextFileNum(STORAGE_SD));
}

QByteArray nextName()
{
    return relative({QFileInfo(VornFileHandler::getNextFileName(STORAGE_SD, FILE_TYPE_IMAGE))});
}

/// Counts in @p openings how often the directory @p name is opened, and calls @p change just before the one
/// with the number @p opening, from 1.
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
    } // QDir looks at /etc/localtime without it, at each comparison
    void init() { mDescriptors = openDescriptors(); }
    void cleanup()
    {
        faults = NO_FAULTS;
        QCOMPARE(openDescriptors(), mDescriptors);
        QVERIFY(!hasChildren());
    }

    void reportIsThatOfQDir_data();
    void reportIsThatOfQDir();
    void freshStorageWithoutFoldersToCreate_data();
    void freshStorageWithoutFoldersToCreate();
    void rolloverWithoutFolderToCreate();
    void transferWithoutFolderToCreate();
    void whatCannotBeRemovedStays_data();
    void whatCannotBeRemovedStays();
    void fileThatCannotBeRemovedStays();
    void directoryChangesWhileItIsRead_data();
    void directoryChangesWhileItIsRead();
    void folderVanishesBeforeItIsListed_data();
    void folderVanishesBeforeItIsListed();
    void readingsOfTheLocation_data();
    void readingsOfTheLocation();
    void looksAtEachFile_data();
    void looksAtEachFile();
    void faultsLeakNoBytes_data() { reportIsThatOfQDir_data(); }
    void faultsLeakNoBytes();

private:
    QByteArrayList mDescriptors;
};

void TestDiskFaults::reportIsThatOfQDir_data()
{
    QTest::addColumn<Faults>("wanted");
    const QList<QPair<const char *, Faults>> rows = {
        {"no-fault", NO_FAULTS},
        {"directory-denied", openFails(EACCES)},
        {"no-descriptors-left", openFails(EMFILE)},
        {"read-error-at-once", readFails(EIO, 0)},
        {"read-error-after-some-entries", readFails(EIO, 5)},
        {"read-error-half-way", readFails(EIO, 150)},
        {"read-error-half-way-without-types", readFails(EIO, 150, true)},
        {"statx-missing", statxFails(ENOSYS)},
        {"statx-missing-for-one-file", statxFails(ENOSYS, "DCF_0150.jpg")},
        {"statx-denied", statxFails(EACCES)},
        {"statx-error-everywhere", statxFails(EIO)},
        {"statx-error-for-one-file", statxFails(EIO, "DCF_0150.jpg")},
        {"statx-error-for-a-folder", statxFails(EIO, "101ABC")},
        {"statx-error-for-the-location", statxFails(EIO, "DCIM")},
        {"types-unknown", unknownTypes()},
        {"created-before-1970", createdAt(-86400)},
        {"created-in-2037", createdAt(2145916798)},
        {"created-after-2037", createdAt(4102444800)},
        {"types-unknown-and-statx-missing", statxFails(ENOSYS, nullptr, true)},
        {"types-unknown-and-statx-error-for-one-file", statxFails(EIO, "DCF_0150.jpg", true)},
    };
    for (const auto &[name, wanted] : rows)
        QTest::newRow(name) << wanted;
}

void TestDiskFaults::reportIsThatOfQDir()
{
    QFETCH(const Faults, wanted);
    Storages storages;
    fill(storages.sd());
    for (const char *suffix : {"ABC", "", "A[BC]", "A["}) {
        VornFileHandler::mFolderSuffix = suffix;
        StandardErrorCapture capture;
        literal::report(STORAGE_SD); // what can be created has been created
        capture.take();
        const WithFaults broken(wanted);
        const QByteArray expected = literal::report(STORAGE_SD);
        const QByteArray expectedLines = capture.take();
        const QByteArray report = literal::libraryReport(STORAGE_SD);
        QCOMPARE(capture.take(), expectedLines);
        QCOMPARE(report, expected);
    }
}

void TestDiskFaults::freshStorageWithoutFoldersToCreate_data()
{
    QTest::addColumn<int>("error");
    QTest::newRow("full") << ENOSPC;
    QTest::newRow("denied") << EACCES;
    QTest::newRow("read-only") << EROFS;
}

void TestDiskFaults::freshStorageWithoutFoldersToCreate()
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
    QCOMPARE(tree(storages.path()), QList<QByteArray>());
}

void TestDiskFaults::rolloverWithoutFolderToCreate()
{
    Storages storages;
    writeFile(storages.sd() + "/100ABC/DCF_9999.jpg");
    StandardErrorCapture capture;
    const WithFaults broken(mkdirFails(ENOSPC));
    QCOMPARE(VornFileHandler::getNextFileName(STORAGE_SD, FILE_TYPE_VIDEO_MKV),
             storages.sd() + "/100ABC/DCF_0001.mkv");
    QCOMPARE(capture.take(), QByteArray());
    QCOMPARE(tree(storages.sd()), (QList<QByteArray>{"100ABC/", "100ABC/DCF_9999.jpg"}));
}

void TestDiskFaults::transferWithoutFolderToCreate()
{
    Storages storages;
    const QString source = storages.sd() + "/100ABC/DCF_0001.jpg";
    writeFile(source);
    StandardErrorCapture capture;
    const WithFaults broken(mkdirFails(ENOSPC));
    VornFileHandler::copyToFolder({source}, STORAGE_USB, "100ABC");
    QCOMPARE(tree(storages.path()),
             (QList<QByteArray>{"sd/", "sd/DCIM/", "sd/DCIM/100ABC/", "sd/DCIM/100ABC/DCF_0001.jpg"}));
    VornFileHandler::moveToFolder({source}, STORAGE_USB, "100ABC");
    QCOMPARE(tree(storages.path()), (QList<QByteArray>{"sd/", "sd/DCIM/", "sd/DCIM/100ABC/"}));
    QCOMPARE(capture.take(), QByteArray());
}

void TestDiskFaults::whatCannotBeRemovedStays_data()
{
    QTest::addColumn<Faults>("wanted");
    QTest::newRow("nothing-can-be-removed") << removeFails(EROFS);
    QTest::newRow("nothing-may-be-removed") << removeFails(EACCES);
    QTest::newRow("one-file") << removeFails(EBUSY, "DCF_0150.jpg");
    QTest::newRow("one-folder") << removeFails(EBUSY, "101ABC");
    QTest::newRow("the-location") << removeFails(EBUSY, "DCIM");
    QTest::newRow("read-error-half-way") << readFails(EIO, 150);
    QTest::newRow("types-unknown") << unknownTypes();
}

void TestDiskFaults::whatCannotBeRemovedStays()
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

void TestDiskFaults::fileThatCannotBeRemovedStays()
{
    Storages storages;
    const QString path = storages.sd() + "/100ABC/DCF_0001.jpg";
    writeFile(path);
    StandardErrorCapture capture;
    const WithFaults broken(removeFails(EACCES));
    VornFileHandler::deleteFile(path);
    QCOMPARE(capture.take(), QByteArray());
    QCOMPARE(tree(storages.sd()), (QList<QByteArray>{"100ABC/", "100ABC/DCF_0001.jpg"}));
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

void TestDiskFaults::folderVanishesBeforeItIsListed_data()
{
    QTest::addColumn<Question>("question");
    QTest::addColumn<int>("opening"); // of the folder in front of it
    QTest::addColumn<QByteArray>("expected");
    QTest::addColumn<QByteArray>("printed"); // %1 is the location

    const QByteArray line = "directory %1/BABC doesn't exist";
    const QByteArray photos = "AABC/a.jpg CABC/a.jpg";
    const auto row = [](const char *name, const Question &question, int opening, const QByteArray &expected,
                        const QByteArray &printed) {
        QTest::newRow(name) << question << opening << expected << printed;
    };
    row("numbered-folders", photosOf(DIRECTORY_FILTER_DCIM), 1, photos, line);
    row("other-folders", photosOf(DIRECTORY_FILTER_NON_DCIM), 1, photos, line);
    row("all-folders", photosOf(static_cast<eDIRECTORY_FILTER>(0)), 1, photos, line);
    row("images", images, 1, photos + " AABC/b.png CABC/b.png", line);
    row("images-in-the-second-pass", images, 2, "AABC/a.jpg BABC/a.jpg CABC/a.jpg AABC/b.png CABC/b.png",
        line);
    row("videos", videos, 1, "AABC/c.avi CABC/c.avi", line);
    row("sounds", sounds, 1, "AABC/d.wav CABC/d.wav", line);
    row("json-images", jsonImages, 1, photos + " AABC/b.png CABC/b.png", line);
    row("json-videos", jsonVideos, 1, "AABC/c.avi CABC/c.avi", line);
    row("count", mediaCount, 1, "8", "%1/BABC doesn't exist");
}

void TestDiskFaults::folderVanishesBeforeItIsListed()
{
    QFETCH(const Question, question);
    QFETCH(const int, opening);
    QFETCH(const QByteArray, expected);
    QFETCH(QByteArray, printed);
    Storages storages;
    for (const char *folder : {"/AABC", "/BABC", "/CABC"}) // which every folder filter selects
        makeEntries(storages.sd() + folder, {"a.jpg", "b.png", "c.avi", "d.wav"});
    const QString folder = storages.sd() + "/BABC";
    int openings = 0;
    StandardErrorCapture capture;
    {
        const WithFaults broken(changeAtOpening("AABC", opening, openings, [&folder] {
            clearTree(folder);
            ::rmdir(QFile::encodeName(folder));
        }));
        QCOMPARE(question(), expected);
    }
    QCOMPARE(capture.take(), diagnosticLine(printed.replace("%1", storages.sd().toUtf8())));
    QVERIFY(!QFile::exists(folder));
}

void TestDiskFaults::readingsOfTheLocation_data()
{
    QTest::addColumn<Question>("question");
    QTest::addColumn<QByteArrayList>("before");
    QTest::addColumn<QByteArrayList>("made"); // just before the second reading
    QTest::addColumn<int>("readings");
    QTest::addColumn<QByteArray>("expected");

    using Names = QByteArrayList;
    const Names full = {"102ABC/DCF_0007.jpg", "102ABC/DCF_0008.png"};
    const Names bare = {"MISC/DCF_0001.jpg"};
    const Names other = {"105ABC/DCF_0003.jpg", "105ABC/DCF_0004.png"};
    const auto row = [](const char *name, const Question &question, const Names &before, const Names &made,
                        int readings, const QByteArray &expected) {
        QTest::newRow(name) << question << before << made << readings << expected;
    };
    row("folders", numberedFolders, full, other, 1, "102ABC");
    row("folders-that-are-missing", numberedFolders, bare, {}, 2, "100ABC");
    row("folders-of-which-one-comes-between", numberedFolders, bare, other, 2, "100ABC 105ABC");
    row("last-folder", lastFolder, full, other, 1, "102");
    row("last-folder-that-is-missing", lastFolder, bare, {}, 2, "100");
    row("last-folder-that-comes-between", lastFolder, bare, other, 2, "105");
    row("next-number", nextNumber, full, other, 1, "9");
    row("next-number-in-a-folder-that-comes-between", nextNumber, bare, other, 2, "5");
    // The number first and its folder after that: a new folder keeps the number of the former one.
    row("next-name", nextName, full, {}, 2, "102ABC/DCF_0009.jpg");
    row("next-name-in-a-folder-that-comes-between", nextName, full, other, 2, "105ABC/DCF_0009.jpg");
    row("next-name-without-a-folder", nextName, bare, {}, 3, "100ABC/DCF_0001.jpg");
    row("other-folders", otherFolders, bare, other, 1, "MISC");
    row("other-folders-that-are-missing", otherFolders, {"102ABC/"}, other, 1, "");
    row("images", images, full, {}, 2, "102ABC/DCF_0007.jpg 102ABC/DCF_0008.png");
    row("images-of-a-folder-that-comes-between-the-passes", images, full, other, 2,
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
    QFETCH(const Question, question);
    QFETCH(const QByteArrayList, before);
    QFETCH(const QByteArrayList, made);
    QFETCH(const int, readings);
    QFETCH(const QByteArray, expected);
    Storages storages;
    makeEntries(storages.sd(), before);
    int openings = 0;
    StandardErrorCapture capture;
    {
        const auto makeOthers = [&storages, &made] { makeEntries(storages.sd(), made); };
        const WithFaults broken(changeAtOpening("DCIM", 2, openings, makeOthers));
        QCOMPARE(question(), expected);
    }
    QCOMPARE(openings, readings);
    QCOMPARE(capture.take(), QByteArray());
}

void TestDiskFaults::looksAtEachFile_data()
{
    QTest::addColumn<Action>("action");
    QTest::addColumn<int>("openings");
    QTest::addColumn<int>("looks");
    QTest::newRow("last-file-number")
        << Action([] { VornFileHandler::getLastFileNum(STORAGE_SD, 100); }) << 1 << 0;
    QTest::newRow("count") << Action([] {
        VornFileHandler::getMediaFileCount(QDir(VornFileHandler::getDirPath(STORAGE_SD, 100)));
    }) << 1 << 0;
    QTest::newRow("files") << Action([] {
        VornFileHandler::getDirectoryContents(STORAGE_SD, DIRECTORY_FILTER_DCIM);
    }) << 1 << 2; // the order is made of the first; the second is kept in the QFileInfo
    QTest::newRow("photos") << Action([] {
        VornFileHandler::getImageList(STORAGE_SD, false, DIRECTORY_FILTER_DCIM);
    }) << 2 << 2;
    QTest::newRow("JSON") << Action([] { VornFileHandler::getJSONDirectoryContents(STORAGE_SD); }) << 1 << 1;
}

/// A folder on a slow card is read once, each file in it is not looked at more often than needed, and the
/// time zone is read once for all files.
void TestDiskFaults::looksAtEachFile()
{
    QFETCH(const Action, action);
    QFETCH(const int, openings);
    QFETCH(const int, looks);
    Storages storages;
    int opened = 0;
    const auto costs = [&action, &opened] {
        opened = 0;
        const WithFaults counting(changeAtOpening("100ABC", 0, opened, [] {}));
        action();
        return qMakePair(faults.looks, faults.zoneReadings);
    };
    makeEntries(storages.sd(), {"100ABC/DCF_0001.jpg", "100ABC/DCF_0002.jpg"});
    const auto few = costs();
    for (int i = 3; i <= 22; ++i)
        writeFile(QString("%1/100ABC/DCF_%2.jpg").arg(storages.sd()).arg(i, 4, 10, QChar('0')));
    const auto many = costs();
    QCOMPARE(opened, openings);
    QCOMPARE(many.first - few.first, 20 * looks);
    QCOMPARE(many.second, few.second);
}

void TestDiskFaults::faultsLeakNoBytes()
{
    QFETCH(const Faults, wanted);
    Storages storages;
    makeEntries(storages.sd(),
                {"100ABC/DCF_0001.jpg", "100ABC/a.png", "XYZABC/DCF_0150.jpg", "101ABC/x.wav"});
    const StandardErrorCapture capture;
    const WithFaults broken(wanted);
    QVERIFY(heapGrowth([] { literal::libraryReport(STORAGE_SD); }) < SMALLEST_LEAK);
}

QTEST_GUILESS_MAIN(TestDiskFaults)
#include "tst_diskfaults.moc"

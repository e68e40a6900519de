// SPDX-License-Identifier: MIT
#include "literal.h"
#include "media.h"
#include "resources.h"
#include "shim.h"
#include "testsupport.h"

#include <QTest>

#include <cerrno>

#include <unistd.h>

using namespace VORN_FILE_HANDLER;

Q_DECLARE_METATYPE(Faults)

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
    const WithFaults broken(mkdirFails(ENOSPC));
    QCOMPARE(VornFileHandler::getNextFileName(STORAGE_SD, FILE_TYPE_VIDEO_MKV),
             storages.sd() + "/100ABC/DCF_0001.mkv");
    QCOMPARE(tree(storages.sd()), (QList<QByteArray>{"100ABC/", "100ABC/DCF_9999.jpg"}));
}

void TestDiskFaults::transferWithoutFolderToCreate()
{
    Storages storages;
    const QString source = storages.sd() + "/100ABC/DCF_0001.jpg";
    writeFile(source);
    const WithFaults broken(mkdirFails(ENOSPC));
    VornFileHandler::copyToFolder({source}, STORAGE_USB, "100ABC");
    QCOMPARE(tree(storages.path()),
             (QList<QByteArray>{"sd/", "sd/DCIM/", "sd/DCIM/100ABC/", "sd/DCIM/100ABC/DCF_0001.jpg"}));
    VornFileHandler::moveToFolder({source}, STORAGE_USB, "100ABC");
    QCOMPARE(tree(storages.path()), (QList<QByteArray>{"sd/", "sd/DCIM/", "sd/DCIM/100ABC/"}));
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
    {
        const WithFaults broken(wanted);
        names =
            fileNames(VornFileHandler::getDirectoryContents(folder, {"*.jpg"}, QDir::Time | QDir::Reversed));
    }
    QCOMPARE(QSet<QString>(names.begin(), names.end()).size(), names.size());
    for (int i = 200; i < 300; ++i)
        QVERIFY(names.contains(QString("DCF_0%1.jpg").arg(i)));
    const QRegularExpression known("^(DCF_[0-9]{4}|new[0-9]{1,3})\\.jpg$");
    QCOMPARE(names.filter(known), names);
    const StandardErrorCapture capture;
    QCOMPARE(literal::libraryReport(STORAGE_SD), literal::report(STORAGE_SD));
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

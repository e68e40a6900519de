// SPDX-License-Identifier: MIT
// The code in docs/integration.md that examples/recorder does not contain. The page quotes what is between
// two lines "//! [name]".
#include "device.h"
#include "media.h"
#include "testsupport.h"

#include <QtTest>

#include <cstdio>
#include <memory>

#include <fcntl.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

using namespace VORN_FILE_HANDLER;

namespace {

constexpr int SKIPPED = 77;

//! [mounted]
/// Returns whether a file system is mounted at @p mountPoint.
bool isMounted(const QByteArray &mountPoint)
{
    struct stat here = {}, above = {};
    return ::stat(mountPoint.constData(), &here) == 0 && ::stat((mountPoint + "/..").constData(), &above) == 0
           && here.st_dev != above.st_dev;
}
//! [mounted]

//! [capacity]
/// All values are in bytes.
struct Capacity {
    qint64 size;        // getStorageSize()
    qint64 free;        // getRemainingBytes(): what users can still write
    qint64 used;        // getUsedBytes(): the space reserved for root counts as used
    qint64 usedByFiles; // what df shows as used
};

Capacity capacityOf(const QByteArray &mountPoint)
{
    struct statvfs card = {};
    if (!isMounted(mountPoint) || ::statvfs(mountPoint.constData(), &card) != 0)
        return {};
    const auto bytes = [&card](fsblkcnt_t blocks) { return static_cast<qint64>(blocks * card.f_frsize); };
    return {bytes(card.f_blocks), bytes(card.f_bavail), bytes(card.f_blocks - card.f_bavail),
            bytes(card.f_blocks - card.f_bfree)};
}
//! [capacity]

//! [listing]
/// Lists the photos of a card. Returns false if the card was removed in the meantime: the list may be empty
/// or incomplete, and must not replace the one on the screen.
bool listPhotos(QFileInfoList &photos)
{
    if (!isMounted("/mnt/sd"))
        return false;
    const int card = ::open("/mnt/sd", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    photos = VornFileHandler::getImageList(STORAGE_SD, false, DIRECTORY_FILTER_DCIM);
    const bool isComplete = isMounted("/mnt/sd") && ::fsync(card) == 0; // fails if the card is gone
    ::close(card);
    return isComplete;
}
//! [listing]

//! [image]
/// Returns whether a file begins like a JPEG, PNG or TIFF image.
bool isImage(const QString &path)
{
    QFile photo(path);
    const QByteArray start = photo.open(QIODevice::ReadOnly) ? photo.read(8) : QByteArray();
    const QByteArrayList tiff = {QByteArray("II*\0", 4), QByteArray("MM\0*", 4)};
    return start.startsWith("\xFF\xD8\xFF") || start == "\x89PNG\r\n\x1A\n" || tiff.contains(start.left(4));
}
//! [image]

} // namespace

/// A card is at /mnt/sd, as on the page. Only this process sees it.
class IntegrationTest : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void cleanup();

    void firstPath();
    void mounted();
    void capacity();
    void listing_data();
    void listing();
    void photosOfBothFormats();
    void images_data();
    void images();

private:
    std::unique_ptr<Device> mCard;
    std::unique_ptr<StandardErrorCapture> mStandardError;
};

void IntegrationTest::init()
{
    QCOMPARE(::mount("tmpfs", "/mnt", "tmpfs", 0, nullptr), 0);
    mCard = std::make_unique<Device>(EXT4, "/mnt/sd");
    mStandardError = std::make_unique<StandardErrorCapture>();
    VornFileHandler::init("VORN", QString(), QString(), "/mnt/sd/DCIM", mCard->block(), QString(), QString());
    QCOMPARE(mStandardError->take(), START_BANNER);
}

void IntegrationTest::cleanup()
{
    mStandardError.reset();
    mCard.reset();
    ::umount2("/mnt", MNT_DETACH);
}

void IntegrationTest::firstPath()
{
    //! [init]
    // In main(), before any other operation:
    VornFileHandler::init("VORN", "/mnt/mmc/DCIM", "mmcblk0p3", "/mnt/sd/DCIM", "mmcblk1p1", "/mnt/usb/DCIM",
                          "sda1");
    const QString path = VornFileHandler::getNextFileName(STORAGE_SD, FILE_TYPE_VIDEO_AVI); // not reserved
    //! [init]
    QCOMPARE(path, QString("/mnt/sd/DCIM/100VORN/DCF_0001.avi"));
    QCOMPARE(mStandardError->take(), START_BANNER + missingLocationLine("/mnt/sd/DCIM"));
}

void IntegrationTest::mounted()
{
    QFile inserted("/dev/" + mCard->block()); // the kernel would remove an unused loop device
    QVERIFY(inserted.open(QIODevice::ReadOnly));
    QVERIFY(isMounted("/mnt/sd"));
    mCard->unmount();
    QVERIFY(!isMounted("/mnt/sd"));
    QVERIFY(VornFileHandler::isMounted(STORAGE_SD));
    QVERIFY(!isMounted("/mnt/missing"));
}

void IntegrationTest::capacity()
{
    writeFile(QString("/mnt/sd/DCIM/100VORN/DCF_0001.avi"), QByteArray(3000000, 'v'));
    ::sync();
    const Capacity card = capacityOf("/mnt/sd");
    QCOMPARE(card.size, VornFileHandler::getStorageSize(STORAGE_SD));
    QCOMPARE(card.free, VornFileHandler::getRemainingBytes(STORAGE_SD));
    QCOMPARE(card.used, VornFileHandler::getUsedBytes(STORAGE_SD));
    const QByteArray used = outputOf("df", {"--block-size=1", "--output=used", "/mnt/sd"});
    QCOMPARE(card.usedByFiles, used.split('\n').value(1).trimmed().toLongLong());
    QVERIFY(card.used > card.usedByFiles);
    mCard->unmount();
    QCOMPARE(capacityOf("/mnt/sd").size, 0);
}

void IntegrationTest::listing_data()
{
    QTest::addColumn<QByteArray>("event");
    QTest::addColumn<bool>("isComplete");
    row("nothing", QByteArray(), true);
    row("pulled", QByteArray("pulled"), false);
    row("unmounted", QByteArray("unmounted"), false);
}

void IntegrationTest::listing()
{
    QFETCH(QByteArray, event);
    QFETCH(bool, isComplete);
    makeTree("/mnt/sd/DCIM", {"100VORN/DCF_0001.jpg", "100VORN/DCF_0002.png"});
    ::sync();
    QFileInfoList photos;
    QVERIFY(listPhotos(photos));
    QCOMPARE(fileNames(photos), (QStringList{"DCF_0001.jpg", "DCF_0002.png"}));
    if (event == "pulled")
        mCard->pullOut();
    else if (event == "unmounted")
        mCard->unmount();
    QCOMPARE(listPhotos(photos), isComplete);
}

void IntegrationTest::photosOfBothFormats()
{
    makeTree("/mnt/sd/DCIM",
             {"100VORN/DCF_0001.png at 10", "100VORN/DCF_0001.thumb at 11", "100VORN/DCF_0002.JPG at 20",
              "100VORN/DCF_0003.png at 30", "101VORN/DCF_0001.jpg at 40", "101VORN/DCF_0002.avi at 50"});
    //! [photos]
    const QFileInfoList photos =
        VornFileHandler::getDirectoryContents(STORAGE_SD, {"*.jpg", "*.png"}, DIRECTORY_FILTER_DCIM);
    //! [photos]
    QCOMPARE(relativePaths(photos, "/mnt/sd/DCIM"),
             (QByteArrayList{"100VORN/DCF_0001.png", "100VORN/DCF_0002.JPG", "100VORN/DCF_0003.png",
                             "101VORN/DCF_0001.jpg"}));
}

void IntegrationTest::images_data()
{
    QTest::addColumn<QByteArray>("content");
    QTest::addColumn<bool>("expected");
    row("jpeg", pictureData("jpg", QSize(16, 16)), true);
    row("png", pictureData("png", QSize(16, 16)), true);
    row("tiff-little-endian", QByteArray("II*\0\x08", 5), true);
    row("tiff-big-endian", QByteArray("MM\0*\0", 5), true);
    row("avi", QByteArray("RIFF\xFF\xFF\xFF\xFF"), false);
    row("empty", QByteArray(), false);
    row("cut-off", QByteArray("\xFF\xD8"), false);
}

void IntegrationTest::images()
{
    QFETCH(QByteArray, content);
    QFETCH(bool, expected);
    writeFile(QString("/mnt/photo"), content);
    QCOMPARE(isImage("/mnt/photo"), expected);
    QVERIFY(!isImage("/mnt/missing"));
}

int main(int argc, char *argv[])
{
    QString why = enterOwnMounts();
    if (why.isEmpty())
        why = whyNot(EXT4);
    if (!why.isEmpty()) {
        std::printf("tst_integration: skipped: %s\n", qPrintable(why));
        return SKIPPED;
    }
    const QCoreApplication application(argc, argv);
    IntegrationTest test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_integration.moc"

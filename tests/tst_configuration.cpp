// SPDX-License-Identifier: MIT
#include "testsupport.h"

#include <QtTest>

#include <type_traits>

using namespace VORN_FILE_HANDLER;

static_assert(STORAGE_MMC == 0 && STORAGE_SD == 1 && STORAGE_USB == 2);
static_assert(std::is_enum_v<eStorageType> && std::is_convertible_v<eStorageType, int>);

template <typename Declared, typename Expected>
constexpr bool is = std::is_same_v<Declared, Expected>;

static_assert(
    is<decltype(JPEG_FILE_EXT),
       const QString> && is<decltype(PNG_FILE_EXT), const QString> && is<decltype(THUMB_FILE_EXT), const QString> && is<decltype(AVI_FILE_EXT), const QString> && is<decltype(MKV_FILE_EXT), const QString> && is<decltype(WAV_FILE_EXT), const QString>);
static_assert(is<decltype(&VornFileHandler::mFolderSuffix), QString *>);
static_assert(is<decltype(&VornFileHandler::mMMCLocation), QDir *>);
static_assert(is<decltype(&VornFileHandler::mSDLocation), QDir *>);
static_assert(is<decltype(&VornFileHandler::mUSBLocation), QDir *>);
static_assert(is<decltype(&VornFileHandler::mMmcBlk), QString *>);
static_assert(is<decltype(&VornFileHandler::mSdBlk), QString *>);
static_assert(is<decltype(&VornFileHandler::mUsbBlk), QString *>);
static_assert(is<decltype(&VornFileHandler::mbIsLibInitialized), bool *>);
static_assert(is<decltype(&VornFileHandler::init),
                 void (*)(QString, QString, QString, QString, QString, QString, QString)>);
static_assert(is<decltype(&VornFileHandler::typeToMmcBlk), QString (*)(eStorageType)>);
static_assert(is<decltype(&VornFileHandler::typeToMountPath), QString (*)(eStorageType)>);
static_assert(is<decltype(&VornFileHandler::getStorageDir), QDir (*)(eStorageType)>);

namespace {

const QByteArray BANNER = "\x1b[31m-----------------------------------\n"
                          "----- VORN_FILE_HANDLER v25.02.25 -------\n"
                          "-----------------------------------\x1b[0m\n";
const QByteArray UNSUPPORTED = "\x1b[36m Unsupported storage type \x1b[0m\n";

/// Everything that the configuration answers, as one list: two states are equal if their lists are.
QStringList state()
{
    QStringList texts = {VornFileHandler::mFolderSuffix, VornFileHandler::mbIsLibInitialized ? "yes" : "no"};
    texts += {VornFileHandler::mMMCLocation.path(), VornFileHandler::mSDLocation.path(),
              VornFileHandler::mUSBLocation.path()};
    texts += {VornFileHandler::mMmcBlk, VornFileHandler::mSdBlk, VornFileHandler::mUsbBlk};
    for (const eStorageType storage : {STORAGE_MMC, STORAGE_SD, STORAGE_USB}) {
        texts += {VornFileHandler::typeToMmcBlk(storage), VornFileHandler::typeToMountPath(storage),
                  VornFileHandler::getStorageDir(storage).path(),
                  VornFileHandler::getStorageDir(storage).absolutePath()};
    }
    return texts;
}

QStringList extensions()
{
    return {JPEG_FILE_EXT, PNG_FILE_EXT, THUMB_FILE_EXT, AVI_FILE_EXT, MKV_FILE_EXT, WAV_FILE_EXT};
}

// The library is loaded before the static objects of this program are built.
const QStringList EXTENSIONS_AT_LOAD = extensions();
const QStringList STATE_AT_LOAD = state();

void initWithExample()
{
    VornFileHandler::init("CAM", "/mnt/mmc/DCIM", "mmcblk0", "/mnt/sd/DCIM", "mmcblk1", "/mnt/usb/DCIM",
                          "sda");
}

void initWithSdLocation(const QString &location)
{
    VornFileHandler::init("ABC", "/mnt/mmc/DCIM", "mmcblk0", location, "mmcblk1", "/mnt/usb/DCIM", "sda");
}

} // namespace

class ConfigurationTest : public QObject
{
    Q_OBJECT

private slots:
    void cleanup();
    void defaultsBeforeInit();
    void extensionsFromTheStart();
    void initSetsEveryValue();
    void initPrintsOneBannerPerCall();
    void secondInitReplacesEverything();
    void initChecksAndCreatesNothing();
    void initTakesAnyText_data();
    void initTakesAnyText();
    void mountPath_data();
    void mountPath();
    void mountPathOfEachStorage();
    void absoluteLocation_data();
    void absoluteLocation();
    void relativeLocationFollowsTheCurrentDirectory();
    void unsupportedStorage_data();
    void unsupportedStorage();
    void storageDirIsACopy();
    void membersAreTheConfiguration();
    void nothingRefusesToRunBeforeInit();
};

void ConfigurationTest::cleanup()
{
    const StandardErrorCapture banner;
    VornFileHandler::init(QString(), "/tmp", QString(), "/tmp", QString(), "/tmp", QString());
    VornFileHandler::mbIsLibInitialized = false;
}

void ConfigurationTest::defaultsBeforeInit()
{
    QStringList expected = {"", "no", "/tmp", "/tmp", "/tmp", "", "", ""};
    for (int storage = 0; storage < 3; ++storage)
        expected += {"", "/tmp", "/tmp", "/tmp"};
    QCOMPARE(STATE_AT_LOAD, expected);
}

void ConfigurationTest::extensionsFromTheStart()
{
    const QStringList expected = {"jpg", "png", "thumb", "avi", "mkv", "wav"};
    QCOMPARE(EXTENSIONS_AT_LOAD, expected);
    QCOMPARE(extensions(), expected);
}

void ConfigurationTest::initSetsEveryValue()
{
    StandardErrorCapture capture;
    initWithExample();
    QCOMPARE(capture.take(), BANNER);
    const QStringList expected = {
        "CAM",     "yes",       "/mnt/mmc/DCIM", "/mnt/sd/DCIM",  "/mnt/usb/DCIM", // members
        "mmcblk0", "mmcblk1",   "sda",                                             //
        "mmcblk0", "/mnt/mmc/", "/mnt/mmc/DCIM", "/mnt/mmc/DCIM",                  // eMMC
        "mmcblk1", "/mnt/sd/",  "/mnt/sd/DCIM",  "/mnt/sd/DCIM",                   // SD card
        "sda",     "/mnt/usb/", "/mnt/usb/DCIM", "/mnt/usb/DCIM",                  // USB
    };
    QCOMPARE(state(), expected);
    QCOMPARE(capture.take(), QByteArray());
}

void ConfigurationTest::initPrintsOneBannerPerCall()
{
    StandardErrorCapture capture;
    initWithExample();
    QCOMPARE(capture.take(), BANNER);
    initWithExample();
    initWithExample();
    QCOMPARE(capture.take(), BANNER + BANNER);
}

void ConfigurationTest::secondInitReplacesEverything()
{
    StandardErrorCapture capture;
    initWithExample();
    capture.take();
    VornFileHandler::init("X", "/a/DCIM", "b", "/c", "d", "/e/dcim", "f");
    QCOMPARE(capture.take(), BANNER);
    const QStringList expected = {
        "X", "yes",     "/a/DCIM", "/c",      "/e/dcim", "b", "d", "f", // members
        "b", "/a/",     "/a/DCIM", "/a/DCIM",                           // eMMC
        "d", "/c",      "/c",      "/c",                                // SD card
        "f", "/e/dcim", "/e/dcim", "/e/dcim",                           // USB
    };
    QCOMPARE(state(), expected);
}

void ConfigurationTest::initChecksAndCreatesNothing()
{
    QTemporaryDir directory;
    makeTree(directory.path(), {"file"});
    StandardErrorCapture capture;
    VornFileHandler::init("A", directory.path() + "/none/DCIM", QString(), directory.path() + "/file",
                          "no such device", directory.path() + "/usb", QString());
    for (const eStorageType storage : {STORAGE_MMC, STORAGE_SD, STORAGE_USB}) {
        VornFileHandler::typeToMountPath(storage);
        VornFileHandler::getStorageDir(storage);
    }
    QCOMPARE(capture.take(), BANNER);
    QCOMPARE(tree(directory.path()), QList<QByteArray>{"file"});
}

void ConfigurationTest::initTakesAnyText_data()
{
    QTest::addColumn<QString>("text");
    QTest::newRow("null-text") << QString();
    QTest::newRow("empty-text") << "";
    QTest::newRow("blanks") << "  ";
    QTest::newRow("line-feed") << "a\nb";
    QTest::newRow("zero-byte") << QString("a%1b").arg(QChar(QChar::Null));
    QTest::newRow("beyond-ascii") << QString::fromUtf8("\u00e4\U0001F4F7");
    QTest::newRow("format-characters") << "%s%n%1";
    QTest::newRow("pattern-characters") << "A[";
}

void ConfigurationTest::initTakesAnyText()
{
    QFETCH(QString, text);
    StandardErrorCapture capture;
    VornFileHandler::init(text, text, text, text, text, text, text);
    QCOMPARE(capture.take(), BANNER);
    const QStringList expected = {VornFileHandler::mFolderSuffix,
                                  VornFileHandler::mMmcBlk,
                                  VornFileHandler::mSdBlk,
                                  VornFileHandler::mUsbBlk,
                                  VornFileHandler::typeToMmcBlk(STORAGE_MMC),
                                  VornFileHandler::typeToMmcBlk(STORAGE_SD),
                                  VornFileHandler::typeToMmcBlk(STORAGE_USB)};
    QCOMPARE(expected, QStringList(QVector<QString>(7, text).toList()));
    const QString location = text.contains(QChar::Null) ? text : QDir(text).absolutePath();
    for (const eStorageType storage : {STORAGE_MMC, STORAGE_SD, STORAGE_USB}) {
        QCOMPARE(VornFileHandler::getStorageDir(storage).path(), QDir(text).path());
        QCOMPARE(VornFileHandler::typeToMountPath(storage), QString(location).remove("DCIM"));
    }
    QCOMPARE(capture.take(), QByteArray());
}

void ConfigurationTest::mountPath_data()
{
    QTest::addColumn<QString>("location");
    QTest::addColumn<QString>("expected");
    QTest::newRow("ends-in-dcim") << "/mnt/sd/DCIM"
                                  << "/mnt/sd/";
    QTest::newRow("without-dcim") << "/mnt/sd"
                                  << "/mnt/sd";
    QTest::newRow("in-two-components") << "/media/DCIMcard/DCIM"
                                       << "/media/card/";
    QTest::newRow("in-the-middle-of-a-component") << "/media/myDCIMcard"
                                                  << "/media/mycard";
    QTest::newRow("lower-case") << "/media/sd/dcim"
                                << "/media/sd/dcim";
    QTest::newRow("mixed-case") << "/media/sd/Dcim"
                                << "/media/sd/Dcim";
    QTest::newRow("twice-in-a-row") << "/media/DCIMDCIM"
                                    << "/media/";
    QTest::newRow("a-new-one-appears-by-the-removal") << "/media/DCDCIMIM"
                                                      << "/media/DCIM";
    QTest::newRow("nothing-but-dcim") << "/DCIM"
                                      << "/";
    QTest::newRow("root") << "/"
                          << "/";
    QTest::newRow("trailing-slash") << "/mnt/sd/DCIM/"
                                    << "/mnt/sd/";
    QTest::newRow("dots") << "/mnt/./usb/../sd/DCIM"
                          << "/mnt/sd/";
    QTest::newRow("blanks") << "/mnt/my card/DCIM"
                            << "/mnt/my card/";
    QTest::newRow("component-behind-dcim") << "/mnt/DCIM/sub"
                                           << "/mnt//sub";
}

void ConfigurationTest::mountPath()
{
    QFETCH(QString, location);
    QFETCH(QString, expected);
    StandardErrorCapture capture;
    initWithSdLocation(location);
    QCOMPARE(VornFileHandler::typeToMountPath(STORAGE_SD), expected);
    QCOMPARE(capture.take(), BANNER);
}

void ConfigurationTest::mountPathOfEachStorage()
{
    StandardErrorCapture capture;
    VornFileHandler::init(QString(), "/1/DCIM", QString(), "/2/DCIM", QString(), "/3/DCIM", QString());
    QCOMPARE(VornFileHandler::typeToMountPath(STORAGE_MMC), QString("/1/"));
    QCOMPARE(VornFileHandler::typeToMountPath(STORAGE_SD), QString("/2/"));
    QCOMPARE(VornFileHandler::typeToMountPath(STORAGE_USB), QString("/3/"));
    QCOMPARE(capture.take(), BANNER);
}

void ConfigurationTest::absoluteLocation_data()
{
    QTest::addColumn<QString>("location");
    QTest::addColumn<QString>("expected");
    QTest::newRow("plain") << "/mnt/sd/DCIM"
                           << "/mnt/sd/DCIM";
    QTest::newRow("trailing-slash") << "/mnt/sd/DCIM/"
                                    << "/mnt/sd/DCIM";
    QTest::newRow("doubled-slashes") << "/mnt//sd/DCIM"
                                     << "/mnt/sd/DCIM";
    QTest::newRow("dots") << "/mnt/./usb/../sd/DCIM"
                          << "/mnt/sd/DCIM";
    QTest::newRow("root") << "/"
                          << "/";
}

void ConfigurationTest::absoluteLocation()
{
    QFETCH(QString, location);
    QFETCH(QString, expected);
    StandardErrorCapture capture;
    initWithSdLocation(location);
    QCOMPARE(VornFileHandler::getStorageDir(STORAGE_SD).absolutePath(), expected);
    QCOMPARE(capture.take(), BANNER);
}

void ConfigurationTest::relativeLocationFollowsTheCurrentDirectory()
{
    QTemporaryDir directory;
    makeTree(directory.path(), {"one/", "two/"});
    const QString root = QDir(directory.path()).canonicalPath();
    StandardErrorCapture capture;
    initWithSdLocation("sd/DCIM");
    for (const char *name : {"/one", "/two", "/one"}) {
        const CurrentDirectory current(root + name);
        QCOMPARE(VornFileHandler::getStorageDir(STORAGE_SD).path(), QString("sd/DCIM"));
        QCOMPARE(VornFileHandler::getStorageDir(STORAGE_SD).absolutePath(), root + name + "/sd/DCIM");
        QCOMPARE(VornFileHandler::typeToMountPath(STORAGE_SD), root + name + "/sd/");
    }
    QCOMPARE(capture.take(), BANNER);
}

void ConfigurationTest::unsupportedStorage_data()
{
    QTest::addColumn<int>("value");
    QTest::newRow("one-beyond-the-last") << 3;
    QTest::newRow("negative") << -1;
    QTest::newRow("far-beyond") << 1000;
    QTest::newRow("wraps-to-a-storage-in-eight-bits") << 257;
    QTest::newRow("smallest") << INT_MIN;
    QTest::newRow("largest") << INT_MAX;
}

void ConfigurationTest::unsupportedStorage()
{
    QFETCH(int, value);
    StandardErrorCapture capture;
    initWithExample();
    capture.take();
    QCOMPARE(VornFileHandler::typeToMmcBlk(anyStorage(value)), QString());
    QCOMPARE(capture.take(), UNSUPPORTED);
    QCOMPARE(VornFileHandler::typeToMountPath(anyStorage(value)), QString());
    QCOMPARE(capture.take(), UNSUPPORTED);
    QCOMPARE(VornFileHandler::getStorageDir(anyStorage(value)).path(), QString("/tmp"));
    QCOMPARE(capture.take(), QByteArray());
}

void ConfigurationTest::storageDirIsACopy()
{
    StandardErrorCapture capture;
    initWithExample();
    for (const eStorageType storage : {STORAGE_MMC, STORAGE_SD, STORAGE_USB}) {
        const QString before = VornFileHandler::getStorageDir(storage).path();
        QDir copy = VornFileHandler::getStorageDir(storage);
        copy.setPath("/elsewhere");
        copy.setNameFilters({"*.none"});
        QCOMPARE(VornFileHandler::getStorageDir(storage).path(), before);
        QCOMPARE(VornFileHandler::getStorageDir(storage).nameFilters(), QDir(before).nameFilters());
    }
}

void ConfigurationTest::membersAreTheConfiguration()
{
    StandardErrorCapture capture;
    initWithExample();
    VornFileHandler::mUSBLocation = QDir("/new/DCIM");
    VornFileHandler::mUsbBlk = "sdb";
    QCOMPARE(VornFileHandler::typeToMountPath(STORAGE_USB), QString("/new/"));
    QCOMPARE(VornFileHandler::typeToMmcBlk(STORAGE_USB), QString("sdb"));
    VornFileHandler::mbIsLibInitialized = false; // which no operation looks at
    QCOMPARE(VornFileHandler::typeToMountPath(STORAGE_SD), QString("/mnt/sd/"));
    QCOMPARE(VornFileHandler::typeToMmcBlk(STORAGE_SD), QString("mmcblk1"));
    QVERIFY(!VornFileHandler::mbIsLibInitialized);
    QCOMPARE(capture.take(), BANNER);
}

void ConfigurationTest::nothingRefusesToRunBeforeInit()
{
    StandardErrorCapture capture;
    const auto answer = withEmptyTmp([] {
        const QString name = VornFileHandler::getNextFileName(STORAGE_SD, FILE_TYPE_VIDEO_AVI);
        VornFileHandler::createDCIMFolder(STORAGE_MMC, 100);
        VornFileHandler::createFolder(STORAGE_USB, "MISC");
        return name.toUtf8() + " " + tree("/tmp").join(" ");
    });
    if (!answer)
        QSKIP("this user may not mount");
    QCOMPARE(*answer, QByteArray("/tmp/100/DCF_0001.avi 100/ MISC/"));
    const QByteArray no =
        diagnosticLine("directory is not a number, continue to check remaining directories");
    QCOMPARE(capture.take(), no + no + diagnosticLine("directory /tmp/100 doesn't exist") + no + no);
}

QTEST_GUILESS_MAIN(ConfigurationTest)
#include "tst_configuration.moc"

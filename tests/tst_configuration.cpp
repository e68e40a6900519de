// SPDX-License-Identifier: MIT
#include "testsupport.h"

#include <QtTest>

#include <type_traits>

using namespace VORN_FILE_HANDLER;

static_assert(STORAGE_MMC == 0 && STORAGE_SD == 1 && STORAGE_USB == 2);
static_assert(std::is_enum_v<eStorageType> && std::is_convertible_v<eStorageType, int>);

namespace {

/// Everything that can be queried about the configuration.
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

// The library is loaded before the static objects of this program are constructed.
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
    void extensionsAtLoad();
    void initSetsEveryValue();
    void initPrintsOneBannerPerCall();
    void secondInitReplacesEverything();
    void initChecksAndCreatesNothing();
    void initAcceptsAnyString_data();
    void initAcceptsAnyString();
    void mountPath_data();
    void mountPath();
    void mountPathOfEachStorage();
    void absoluteLocation_data();
    void absoluteLocation();
    void nameFiltersOfALocation();
    void relativeLocationFollowsTheCurrentDirectory();
    void unsupportedStorage_data();
    void unsupportedStorage();
    void storageDirIsACopy();
    void membersAreTheConfiguration();
    void operationsWorkBeforeInit();
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

void ConfigurationTest::extensionsAtLoad()
{
    const QStringList expected = {"jpg", "png", "thumb", "avi", "mkv", "wav"};
    QCOMPARE(EXTENSIONS_AT_LOAD, expected);
    QCOMPARE(extensions(), expected);
}

void ConfigurationTest::initSetsEveryValue()
{
    StandardErrorCapture capture;
    initWithExample();
    QCOMPARE(capture.take(), START_BANNER);
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
    QCOMPARE(capture.take(), START_BANNER);
    initWithExample();
    initWithExample();
    QCOMPARE(capture.take(), START_BANNER + START_BANNER);
}

void ConfigurationTest::secondInitReplacesEverything()
{
    StandardErrorCapture capture;
    initWithExample();
    capture.take();
    VornFileHandler::init("X", "/a/DCIM", "b", "/c", "d", "/e/dcim", "f");
    QCOMPARE(capture.take(), START_BANNER);
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
    QCOMPARE(capture.take(), START_BANNER);
    QCOMPARE(tree(directory.path()), Tree{"file"});
}

void ConfigurationTest::initAcceptsAnyString_data()
{
    QTest::addColumn<QString>("string");
    const auto row = [](const char *name, const QString &string) { QTest::newRow(name) << string; };
    row("null", QString());
    row("empty", "");
    row("spaces", "  ");
    row("line-feed", "a\nb");
    row("null-character", "a" + NUL + "b");
    row("outside-ascii", "\u00e4\U0001F4F7");
    row("format-characters", "%s%n%1");
    row("pattern-characters", "A[");
    row("one-character-and-two-slashes", "a//");
    row("three-slashes", "///");
}

void ConfigurationTest::initAcceptsAnyString()
{
    QFETCH(QString, string);
    StandardErrorCapture capture;
    VornFileHandler::init(string, string, string, string, string, string, string);
    QCOMPARE(capture.take(), START_BANNER);
    QCOMPARE(VornFileHandler::mFolderSuffix, string);
    const QString location = string.contains(QChar::Null) ? string : QDir(string).absolutePath();
    for (const eStorageType storage : {STORAGE_MMC, STORAGE_SD, STORAGE_USB}) {
        QCOMPARE(VornFileHandler::typeToMmcBlk(storage), string);
        QCOMPARE(VornFileHandler::getStorageDir(storage).path(), QDir(string).path());
        QCOMPARE(VornFileHandler::typeToMountPath(storage), QString(location).remove("DCIM"));
    }
    QCOMPARE((QStringList{VornFileHandler::mMmcBlk, VornFileHandler::mSdBlk, VornFileHandler::mUsbBlk}),
             (QStringList{string, string, string}));
    QCOMPARE(capture.take(), QByteArray());
}

void ConfigurationTest::mountPath_data()
{
    QTest::addColumn<QString>("location");
    QTest::addColumn<QString>("expected");
    row("ends-in-dcim", "/mnt/sd/DCIM", "/mnt/sd/");
    row("without-dcim", "/mnt/sd", "/mnt/sd");
    row("in-two-components", "/media/DCIMcard/DCIM", "/media/card/");
    row("inside-a-component", "/media/myDCIMcard", "/media/mycard");
    row("lower-case", "/media/sd/dcim", "/media/sd/dcim");
    row("mixed-case", "/media/sd/Dcim", "/media/sd/Dcim");
    row("twice-in-a-row", "/media/DCIMDCIM", "/media/");
    row("removal-creates-a-new-one", "/media/DCDCIMIM", "/media/DCIM");
    row("dcim-only", "/DCIM", "/");
    row("root", "/", "/");
    row("trailing-slash", "/mnt/sd/DCIM/", "/mnt/sd/");
    row("dots", "/mnt/./usb/../sd/DCIM", "/mnt/sd/");
    row("spaces", "/mnt/my card/DCIM", "/mnt/my card/");
    row("component-after-dcim", "/mnt/DCIM/sub", "/mnt//sub");
}

void ConfigurationTest::mountPath()
{
    QFETCH(QString, location);
    QFETCH(QString, expected);
    StandardErrorCapture capture;
    initWithSdLocation(location);
    QCOMPARE(VornFileHandler::typeToMountPath(STORAGE_SD), expected);
    QCOMPARE(capture.take(), START_BANNER);
}

void ConfigurationTest::mountPathOfEachStorage()
{
    StandardErrorCapture capture;
    VornFileHandler::init(QString(), "/1/DCIM", QString(), "/2/DCIM", QString(), "/3/DCIM", QString());
    QCOMPARE(VornFileHandler::typeToMountPath(STORAGE_MMC), QString("/1/"));
    QCOMPARE(VornFileHandler::typeToMountPath(STORAGE_SD), QString("/2/"));
    QCOMPARE(VornFileHandler::typeToMountPath(STORAGE_USB), QString("/3/"));
    QCOMPARE(capture.take(), START_BANNER);
}

void ConfigurationTest::absoluteLocation_data()
{
    QTest::addColumn<QString>("location");
    QTest::addColumn<QString>("expected");
    row("plain", "/mnt/sd/DCIM", "/mnt/sd/DCIM");
    row("trailing-slash", "/mnt/sd/DCIM/", "/mnt/sd/DCIM");
    row("doubled-slashes", "/mnt//sd/DCIM", "/mnt/sd/DCIM");
    row("dots", "/mnt/./usb/../sd/DCIM", "/mnt/sd/DCIM");
    row("root", "/", "/");
    row("two-slashes-at-the-end", "/mnt/sd/DCIM//", QDir("/mnt/sd/DCIM//").absolutePath());
    row("three-slashes-at-the-end", "/mnt/sd/DCIM///", QDir("/mnt/sd/DCIM///").absolutePath());
}

/// The settings of a location apply to what is listed in it.
void ConfigurationTest::nameFiltersOfALocation()
{
    const Storages storages;
    makeTree(storages.sd(), {"MISC/", "MORE/", "OTHER/"});
    VornFileHandler::mSDLocation.setNameFilters({"M*"});
    QCOMPARE(VornFileHandler::getStorageDir(STORAGE_SD), VornFileHandler::mSDLocation);
    QCOMPARE(fileNames(VornFileHandler::getFolders(STORAGE_SD, anyFilter(0))), QStringList({"MISC", "MORE"}));
    VornFileHandler::mSDLocation.setNameFilters({});
}

void ConfigurationTest::absoluteLocation()
{
    QFETCH(QString, location);
    QFETCH(QString, expected);
    StandardErrorCapture capture;
    initWithSdLocation(location);
    QCOMPARE(VornFileHandler::getStorageDir(STORAGE_SD).absolutePath(), expected);
    QCOMPARE(capture.take(), START_BANNER);
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
    QCOMPARE(capture.take(), START_BANNER);
}

void ConfigurationTest::unsupportedStorage_data()
{
    QTest::addColumn<int>("value");
    row("after-the-last", 3);
    row("negative", -1);
    row("far-after-the-last", 1000);
    row("wraps-to-a-storage-in-eight-bits", 257);
    row("smallest", INT_MIN);
    row("largest", INT_MAX);
}

void ConfigurationTest::unsupportedStorage()
{
    QFETCH(int, value);
    StandardErrorCapture capture;
    initWithExample();
    capture.take();
    QCOMPARE(VornFileHandler::typeToMmcBlk(anyStorage(value)), QString());
    QCOMPARE(capture.take(), diagnosticLine("Unsupported storage type"));
    QCOMPARE(VornFileHandler::typeToMountPath(anyStorage(value)), QString());
    QCOMPARE(capture.take(), diagnosticLine("Unsupported storage type"));
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
    VornFileHandler::mbIsLibInitialized = false; // which no operation reads
    QCOMPARE(VornFileHandler::typeToMountPath(STORAGE_SD), QString("/mnt/sd/"));
    QCOMPARE(VornFileHandler::typeToMmcBlk(STORAGE_SD), QString("mmcblk1"));
    QVERIFY(!VornFileHandler::mbIsLibInitialized);
    QCOMPARE(capture.take(), START_BANNER);
}

void ConfigurationTest::operationsWorkBeforeInit()
{
    StandardErrorCapture capture;
    const auto result = withEmptyTmp([] {
        const QString name = VornFileHandler::getNextFileName(STORAGE_SD, FILE_TYPE_VIDEO_AVI);
        VornFileHandler::createDCIMFolder(STORAGE_MMC, 100);
        VornFileHandler::createFolder(STORAGE_USB, "MISC");
        return name.toUtf8() + " " + tree("/tmp").join(" ");
    });
    if (!result)
        QSKIP("mounting is not permitted");
    QCOMPARE(*result, QByteArray("/tmp/100/DCF_0001.avi 100/ MISC/"));
    const QByteArray noNumbers = noFolderNumberLine().repeated(2);
    QCOMPARE(capture.take(), noNumbers + missingDirectoryLine("/tmp/100") + noNumbers);
}

QTEST_GUILESS_MAIN(ConfigurationTest)
#include "tst_configuration.moc"

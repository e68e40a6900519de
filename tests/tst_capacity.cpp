// SPDX-License-Identifier: MIT
#include "standins.h"
#include "testsupport.h"

#include <QtTest>

#include <algorithm>
#include <cmath>
#include <functional>
#include <limits>
#include <memory>

#include <sys/statvfs.h>

using namespace VORN_FILE_HANDLER;

namespace {

constexpr char SD_BLOCK[] = "mmcblk1";
constexpr char PARTITIONS[] = "major minor  #blocks  name\n"
                              "\n"
                              " 179        0   15267840 mmcblk0\n"
                              " 179        1   15267823 mmcblk0p1\n"
                              " 179       32   31166976 mmcblk1\n"
                              " 179       33   31162880 mmcblk1p1\n"
                              "   8        1    7814144 sda1\n";

using Arguments = QList<QByteArray>;
using Calls = QList<Arguments>;

/// The shell's arguments of one look at the block devices.
Arguments look(const QByteArray &block)
{
    return {"-c", "cat /proc/partitions | grep " + block};
}

constexpr quint64 LARGEST_SIZE = 2147483647; // in blocks of 1024 bytes, as sizeInBlocks()

/// The size of the file system that holds @p path; 0 where nobody can tell.
quint64 sizeInBlocks(const QString &path)
{
    struct statvfs status = {};
    const bool known = ::statvfs(QFile::encodeName(path).constData(), &status) == 0;
    return known ? (quint64(status.f_blocks) * status.f_frsize + 1023) / 1024 : 0;
}

/// Whether the machine has a block device with something in it, other than loop devices. The kernel tells it
/// in another place than the one where the library looks.
bool hasBlockDevices()
{
    const QStringList names = QDir("/sys/class/block").entryList(QDir::Dirs | QDir::NoDotAndDotDot);
    return std::any_of(names.begin(), names.end(), [](const QString &name) {
        QFile size("/sys/class/block/" + name + "/size");
        return !name.startsWith("loop") && size.open(QIODevice::ReadOnly) && size.readAll().trimmed() != "0";
    });
}

/// The five questions, all on one storage.
struct Answers {
    bool mounted;
    qint64 remaining;
    qint64 size;
    int percent;
    qint64 used;
};

Answers ask(eStorageType storage)
{
    return {VornFileHandler::isMounted(storage), VornFileHandler::getRemainingBytes(storage),
            VornFileHandler::getStorageSize(storage), VornFileHandler::getRemainingPercent(storage),
            VornFileHandler::getUsedBytes(storage)};
}

} // namespace

class CapacityTest : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void cleanup();

    void isMounted_data();
    void isMounted();
    void isMountedByExitCodeAndOutput_data();
    void isMountedByExitCodeAndOutput();
    void blockNameInTheShellLine_data();
    void blockNameInTheShellLine();
    void eachStorageHasItsOwnDevice_data();
    void eachStorageHasItsOwnDevice();
    void column_data();
    void column();
    void columnFromARealTable_data();
    void columnFromARealTable();
    void pipelineFails_data();
    void pipelineFails();
    void percentAndUsed_data();
    void percentAndUsed();
    void usedStepsInSinglePrecision_data();
    void usedStepsInSinglePrecision();
    void processesOfEachQuery_data();
    void processesOfEachQuery();
    void programsOfEachQuery();
    void notMountedAsksNothingMore();
    void pulledOutBetweenTwoLooks_data();
    void pulledOutBetweenTwoLooks();
    void nothingIsRemembered();
    void mountPathWithBlank_data();
    void mountPathWithBlank();
    void mountPathWhoseFirstWordExists();
    void mountPathWithoutDcim();
    void beforeInit();
    void unsupportedStorage_data();
    void unsupportedStorage();
    void missingPrograms_data();
    void missingPrograms();
    void realDevices();
    void realFileSystem();

private:
    void configure(const QString &block, const QString &location = QString());
    void printColumns(const QByteArray &size, const QByteArray &available);

    std::unique_ptr<Storages> mStorages;
    std::unique_ptr<StandIns> mStandIns;
    std::unique_ptr<StandardErrorCapture> mStandardError;
};

void CapacityTest::init()
{
    mStorages = std::make_unique<Storages>();
    mStandIns = std::make_unique<StandIns>();
    mStandIns->add("cat", mStandIns->prints(PARTITIONS));
    configure(SD_BLOCK);
    mStandardError = std::make_unique<StandardErrorCapture>();
}

void CapacityTest::cleanup()
{
    const QByteArray printed = mStandardError->take();
    mStandardError.reset();
    mStandIns.reset();
    mStorages.reset();
    QCOMPARE(printed, QByteArray());
}

/// Gives the SD card a block name, and another location.
void CapacityTest::configure(const QString &block, const QString &location)
{
    VornFileHandler::mSdBlk = block;
    if (!location.isEmpty())
        VornFileHandler::mSDLocation = QDir(location);
}

/// Lets awk print these columns, whatever df prints.
void CapacityTest::printColumns(const QByteArray &size, const QByteArray &available)
{
    mStandIns->add("df");
    mStandIns->add("awk", "case \"$*\" in\n'{ print $2 }') " + mStandIns->prints(size)
                              + ";;\n'{ print $4 }') " + mStandIns->prints(available) + ";;\nesac");
}

void CapacityTest::isMounted_data()
{
    QTest::addColumn<QString>("block");
    QTest::addColumn<bool>("mounted");

    QTest::newRow("listed") << "mmcblk1" << true;
    QTest::newRow("listed-last") << "sda1" << true;
    QTest::newRow("not-listed") << "sdb" << false;
    QTest::newRow("only-its-partition-listed") << "sda" << true;
    QTest::newRow("listed-with-a-longer-name") << "mmcblk" << true;
    QTest::newRow("inside-another-name") << "blk1" << true;
    QTest::newRow("longer-than-what-is-listed") << "mmcblk1p12" << false;
    QTest::newRow("other-case") << "MMCBLK1" << false;
    QTest::newRow("empty") << "" << false;
    QTest::newRow("blank") << " " << false;
    QTest::newRow("blank-behind") << "mmcblk1 " << false;
    QTest::newRow("word-of-the-header") << "blocks" << true;
    QTest::newRow("size-of-a-device") << "7814144" << true;
    QTest::newRow("pattern-that-matches") << "mmc.lk1" << false;
    QTest::newRow("anchored-pattern") << "mmcblk1$" << false;
    QTest::newRow("more-of-the-line") << "31166976\\ mmcblk1" << false;
    QTest::newRow("option-to-grep") << "-c mmcblk1" << false;
    QTest::newRow("further-command-that-succeeds") << "sdb; echo x" << false;
}

void CapacityTest::isMounted()
{
    QFETCH(QString, block);
    QFETCH(bool, mounted);
    configure(block);

    QCOMPARE(VornFileHandler::isMounted(STORAGE_SD), mounted);
}

void CapacityTest::isMountedByExitCodeAndOutput_data()
{
    QTest::addColumn<QByteArray>("output");
    QTest::addColumn<int>("exitCode");
    QTest::addColumn<bool>("mounted");

    QTest::newRow("found") << QByteArray(" 179 32 31166976 mmcblk1\n") << 0 << true;
    QTest::newRow("name-alone") << QByteArray("mmcblk1") << 0 << true;
    QTest::newRow("name-in-the-second-line") << QByteArray("mmcblk0\nmmcblk1\n") << 0 << true;
    QTest::newRow("found-but-failed") << QByteArray(" 179 32 31166976 mmcblk1\n") << 1 << false;
    QTest::newRow("found-but-failed-beyond-127") << QByteArray("mmcblk1\n") << 128 << false;
    QTest::newRow("succeeded-with-nothing") << QByteArray() << 0 << false;
    QTest::newRow("succeeded-with-another-name") << QByteArray("mmcblk0\n") << 0 << false;
    QTest::newRow("succeeded-in-other-case") << QByteArray("MMCBLK1\n") << 0 << false;
    QTest::newRow("name-behind-a-zero-byte") << QByteArray("x\0mmcblk1\n", 10) << 0 << false;
}

void CapacityTest::isMountedByExitCodeAndOutput()
{
    QFETCH(QByteArray, output);
    QFETCH(int, exitCode);
    QFETCH(bool, mounted);
    mStandIns->add("grep", mStandIns->prints(output) + "exit " + QByteArray::number(exitCode));

    QCOMPARE(VornFileHandler::isMounted(STORAGE_SD), mounted);
}

void CapacityTest::blockNameInTheShellLine_data()
{
    QTest::addColumn<QString>("block");
    QTest::addColumn<Arguments>("arguments");

    QTest::newRow("plain") << "mmcblk1" << look("mmcblk1");
    QTest::newRow("empty") << "" << look("");
    QTest::newRow("blanks") << "  a  b " << look("  a  b ");
    QTest::newRow("single-quotes") << "'a b'" << look("'a b'");
    QTest::newRow("double-quote-ends-the-argument") << "a\"b c" << (look("ab") + Arguments{"c"});
    QTest::newRow("three-double-quotes") << "\"\"\"a b\"\"\"" << look("\"a b\"");
    QTest::newRow("percent-and-number") << "%1" << look("%1");
}

void CapacityTest::blockNameInTheShellLine()
{
    QFETCH(QString, block);
    QFETCH(Arguments, arguments);
    configure(block);
    mStandIns->add("sh", "exit 1");

    QVERIFY(!VornFileHandler::isMounted(STORAGE_SD));

    QCOMPARE(mStandIns->calls("sh"), Calls{arguments});
}

void CapacityTest::eachStorageHasItsOwnDevice_data()
{
    QTest::addColumn<int>("storage");
    QTest::addColumn<QByteArray>("block");
    QTest::addColumn<QString>("folder");

    QTest::newRow("mmc") << int(STORAGE_MMC) << QByteArray("mmcblk0") << "/mmc/";
    QTest::newRow("sd") << int(STORAGE_SD) << QByteArray("mmcblk1") << "/sd/";
    QTest::newRow("usb") << int(STORAGE_USB) << QByteArray("sda1") << "/usb/";
}

void CapacityTest::eachStorageHasItsOwnDevice()
{
    QFETCH(int, storage);
    QFETCH(QByteArray, block);
    QFETCH(QString, folder);
    VornFileHandler::mMmcBlk = "mmcblk0";
    VornFileHandler::mSdBlk = "mmcblk1";
    VornFileHandler::mUsbBlk = "sda1";
    mStandIns->add("df", "echo 'Filesystem 1K-blocks Used Available'; echo 'x 2000 1500 500'");
    mStandIns->add("sh", mStandIns->becomes("sh"));

    QCOMPARE(VornFileHandler::getStorageSize(anyStorage(storage)), qint64(2048000));

    const QByteArray path = QFile::encodeName(mStorages->path() + folder);
    QCOMPARE(mStandIns->calls("sh"), (Calls{look(block), {"-c", "df " + path + " | awk '{ print $2 }'"}}));
    QCOMPARE(mStandIns->calls("df"), (Calls{{path}}));
}

void CapacityTest::column_data()
{
    QTest::addColumn<QByteArray>("output");
    QTest::addColumn<qint64>("asRemaining");
    QTest::addColumn<qint64>("asSize");

    const auto row = [](const char *name, const QByteArray &output, qint64 asRemaining, qint64 asSize) {
        QTest::newRow(name) << output << asRemaining << asSize;
    };
    // Both headers are given to both questions: each takes away its own only.
    row("available-header", "Available\n1000\n", 1024000, 0);
    row("size-header", "1K-blocks\n2000\n", 0, 2048000);
    row("no-header", "1000\n", 1024000, 1024000);
    row("no-line-feed", "1000", 1024000, 1024000);
    row("capital-available", "AVAILABLE\n7\n", 7168, 0);
    row("lower-available", "available\n7\n", 7168, 0);
    row("mixed-available", "aVaiLabLe\n7\n", 7168, 0);
    row("lower-size-header", "1k-blocks\n7\n", 0, 0);
    row("capital-size-header", "1K-BLOCKS\n7\n", 0, 0);
    row("size-header-of-another-block", "512B-blocks\n7\n", 0, 0);
    row("short-available", "Avail\n7\n", 0, 0);
    row("available-twice", "Available\n7\nAvailable\n", 7168, 0);
    row("size-header-twice", "1K-blocks1K-blocks\n7\n", 0, 7168);
    row("available-behind", "7Available", 7168, 0);
    row("size-header-behind", "71K-blocks", 0, 7168);
    row("available-broken-by-a-line-feed", "Avail\nable\n7\n", 0, 0);
    row("size-header-broken-by-a-line-feed", "1K-\nblocks\n7\n", 0, 0);
    row("available-inside-available", "avaiAvailablelable7", 0, 0);
    row("nothing", "", 0, 0);
    row("line-feeds-only", "\n\n", 0, 0);
    row("zero", "0\n", 0, 0);
    row("one", "1\n", 1024, 1024);
    row("largest", "2147483647\n", 2199023254528, 2199023254528);
    row("beyond-the-largest", "2147483648\n", 0, 0);
    row("twice-two-tebibytes", "4294967296\n", 0, 0);
    row("no-64-bit-number", "99999999999999999999\n", 0, 0);
    row("negative", "-5\n", -5120, -5120);
    row("smallest", "-2147483648\n", -2199023255552, -2199023255552);
    row("below-the-smallest", "-2147483649\n", 0, 0);
    row("plus-sign", "+5\n", 5120, 5120);
    row("leading-zeros", "007\n", 7168, 7168);
    row("blanks-around", "  \t12  \n", 12288, 12288);
    row("carriage-return", "12\r\n", 12288, 12288);
    row("two-lines-join", "12\n34\n", 1263616, 1263616);
    row("empty-line-between", "12\n\n34\n", 1263616, 1263616);
    row("two-numbers", "12 34\n", 0, 0);
    row("word", "none\n", 0, 0);
    row("dash", "-\n", 0, 0);
    row("unit", "12K\n", 0, 0);
    row("percent", "25%\n", 0, 0);
    row("fraction", "12.0\n", 0, 0);
    row("exponent", "1e3\n", 0, 0);
    row("hexadecimal", "0x10\n", 0, 0);
    row("thousands-separator", "1,000\n", 0, 0);
    row("zero-byte-behind", QByteArray("12\0 34\n", 7), 12288, 12288);
}

void CapacityTest::column()
{
    QFETCH(QByteArray, output);
    QFETCH(qint64, asRemaining);
    QFETCH(qint64, asSize);
    printColumns(output, output);

    QCOMPARE(VornFileHandler::getRemainingBytes(STORAGE_SD), asRemaining);
    QCOMPARE(VornFileHandler::getStorageSize(STORAGE_SD), asSize);
}

void CapacityTest::columnFromARealTable_data()
{
    QTest::addColumn<QByteArray>("table");
    QTest::addColumn<qint64>("remaining");
    QTest::addColumn<qint64>("size");

    const QByteArray header = "Filesystem     1K-blocks     Used Available Use% Mounted on\n";
    const auto row = [&header](const char *name, const QByteArray &lines, qint64 remaining, qint64 size) {
        QTest::newRow(name) << header + lines << remaining << size;
    };
    row("one-line", "/dev/mmcblk1p1      2000     1500       500  75% /media/sd\n", 512000, 2048000);
    row("file-system-without-a-size", "tmpfs     0     0       0  - /media/sd\n", 0, 0);
    row("no-figures", "tmpfs     -     -       -  - /media/sd\n", 0, 0);
    row("mount-point-with-blanks", "/dev/sda1 2000 1500 500 75% /media/my card\n", 512000, 2048000);
    row("device-with-blank", "//nas/my share 2000 1500 500 75% /media/sd\n", 1536000, 0);
    // The wrapped line has its first figure in the column of the name: used and percentage are read.
    row("wrapped-long-name", "/dev/mapper/a-very-long-volume-name\n 2000 1500 500 75% /media/sd\n", 0,
        1536000);
    row("two-file-systems", "/dev/a 20 15 5 75% /a\n/dev/b 40 34 6 85% /b\n", 57344, 2088960);
    row("header-alone", "", 0, 0);
    row("two-tebibytes-less-one-block", "/dev/sda1 2147483647 0 2147483647 0% /media/usb\n", 2199023254528,
        2199023254528);
    row("two-tebibytes", "/dev/sda1 2147483648 1 2147483647 0% /media/usb\n", 2199023254528, 0);
    row("more-used-than-there-is", "/dev/sda1 100 120 -20 120% /media/usb\n", -20480, 102400);
}

void CapacityTest::columnFromARealTable()
{
    QFETCH(QByteArray, table);
    QFETCH(qint64, remaining);
    QFETCH(qint64, size);
    mStandIns->add("df", mStandIns->prints(table));

    QCOMPARE(VornFileHandler::getRemainingBytes(STORAGE_SD), remaining);
    QCOMPARE(VornFileHandler::getStorageSize(STORAGE_SD), size);
}

void CapacityTest::pipelineFails_data()
{
    QTest::addColumn<QByteArray>("df");
    QTest::addColumn<QByteArray>("awk");
    QTest::addColumn<qint64>("bytes");

    const QByteArray number = "echo 12; ";
    const QByteArray passOn = "while read line; do echo \"$line\"; done; ";
    QTest::newRow("neither") << number << passOn << qint64(12288);
    QTest::newRow("awk-prints-and-fails") << number << passOn + QByteArray("exit 1") << qint64(0);
    QTest::newRow("awk-prints-and-exits-with-255") << number << passOn + QByteArray("exit 255") << qint64(0);
    QTest::newRow("awk-prints-and-is-killed") << number << passOn + QByteArray("kill -9 $$") << qint64(0);
    // The exit code of a pipeline is its last program's.
    QTest::newRow("df-prints-and-fails") << number + "exit 1" << passOn << qint64(12288);
    QTest::newRow("df-fails-with-nothing") << QByteArray("exit 1") << passOn << qint64(0);
    QTest::newRow("both-complain") << QByteArray("echo x >&2; echo 12") << "echo y >&2; " + passOn
                                   << qint64(12288);
}

void CapacityTest::pipelineFails()
{
    QFETCH(QByteArray, df);
    QFETCH(QByteArray, awk);
    QFETCH(qint64, bytes);
    mStandIns->add("df", df);
    mStandIns->add("awk", awk);

    QCOMPARE(VornFileHandler::getRemainingBytes(STORAGE_SD), bytes);
    QCOMPARE(VornFileHandler::getStorageSize(STORAGE_SD), bytes);
}

void CapacityTest::percentAndUsed_data()
{
    QTest::addColumn<QByteArray>("available");
    QTest::addColumn<QByteArray>("size");
    QTest::addColumn<int>("percent");
    QTest::addColumn<qint64>("used");

    const auto row = [](const char *name, const QByteArray &available, const QByteArray &size, int percent,
                        qint64 usedBlocks) {
        QTest::newRow(name) << available << size << percent << usedBlocks * 1024;
    };
    row("quarter", "500", "2000", 25, 1500);
    row("one-third", "1", "3", 33, 2);
    row("two-thirds", "2", "3", 67, 1);
    row("all-free", "2000", "2000", 100, 0);
    row("nothing-free", "0", "2000", 0, 2000);
    row("hardly-anything-free", "1", "100000", 0, 99999);
    row("hardly-anything-used", "99999", "100000", 100, 1);
    row("just-below-the-half", "49", "10000", 0, 9951);
    row("half-rounds-up", "1", "8", 13, 7);
    row("half-rounds-up-from-even", "5", "8", 63, 3);
    row("half-that-single-precision-lowers", "21", "40", 52, 19);
    row("half-that-single-precision-raises", "23", "40", 58, 17);
    row("largest", "2147483647", "2147483647", 100, 0);
    row("free-above-the-size", "2001", "2000", 0, 0);
    row("far-above-the-size", "2147483647", "1", 0, 0);
    row("above-by-less-than-single-precision-sees", "16777217", "16777216", 100, 0);
    row("both-zero", "0", "0", 0, 0);
    row("size-zero", "5", "0", 0, 0);
    row("size-unreadable", "5", "4294967296", 0, 0);
    row("free-unreadable", "none", "2000", 0, 2000);
    row("both-unreadable", "none", "none", 0, 0);
    row("negative-free", "-500", "2000", -25, 2500);
    row("half-of-a-negative-rounds-away-from-zero", "-1", "8", -13, 9);
    row("negative-size", "5", "-10", 0, 0);
    row("smallest-int", "-2147483648", "100", -2147483647 - 1, 2147483648);
    row("both-negative", "-20", "-10", 200, 10);
    row("negative-free-of-nothing", "-5", "0", 0, 5);
    row("negative-beyond-32-bits", "-2147483648", "1", 0, 2147483648);
}

void CapacityTest::percentAndUsed()
{
    QFETCH(QByteArray, available);
    QFETCH(QByteArray, size);
    QFETCH(int, percent);
    QFETCH(qint64, used);
    printColumns("1K-blocks\n" + size + "\n", "Available\n" + available + "\n");

    QCOMPARE(VornFileHandler::getRemainingPercent(STORAGE_SD), percent);
    QCOMPARE(VornFileHandler::getUsedBytes(STORAGE_SD), used);
}

void CapacityTest::usedStepsInSinglePrecision_data()
{
    QTest::addColumn<int>("available");
    QTest::addColumn<int>("size");
    QTest::addColumn<qint64>("used");

    QTest::newRow("ten-gigabytes") << 1234567 << 10000000 << qint64(8975803392);
    QTest::newRow("thirty-gigabytes") << 12345677 << 31166975 << qint64(19273011200);
    QTest::newRow("sixty-gigabytes") << 12345677 << 61071360 << qint64(49895100416);
    QTest::newRow("two-tebibytes") << 0 << 2147483647 << qint64(2199023255552);
    QTest::newRow("size-rounded-up") << 1 << 2147483647 << qint64(2199023255552);
    QTest::newRow("small-enough-to-be-exact") << 77 << 8388607 << qint64(8589854720);
}

void CapacityTest::usedStepsInSinglePrecision()
{
    QFETCH(int, available);
    QFETCH(int, size);
    QFETCH(qint64, used);
    printColumns(QByteArray::number(size), QByteArray::number(available));
    const float freeBytes = static_cast<float>(available * qint64(1024));
    const float sizeBytes = static_cast<float>(size * qint64(1024));

    QCOMPARE(static_cast<qint64>(sizeBytes - freeBytes), used);
    QCOMPARE(VornFileHandler::getUsedBytes(STORAGE_SD), used);
    QCOMPARE(VornFileHandler::getRemainingPercent(STORAGE_SD),
             static_cast<int>(::roundf(freeBytes / sizeBytes * 100.0F)));
}

void CapacityTest::processesOfEachQuery_data()
{
    QTest::addColumn<int>("query");
    QTest::addColumn<QString>("lines");

    QTest::newRow("is-mounted") << 0 << "mounted";
    QTest::newRow("remaining-bytes") << 1 << "mounted free";
    QTest::newRow("storage-size") << 2 << "mounted size";
    QTest::newRow("remaining-percent") << 3 << "mounted mounted free mounted size";
    QTest::newRow("used-bytes") << 4 << "mounted mounted free mounted size";
}

void CapacityTest::processesOfEachQuery()
{
    QFETCH(int, query);
    QFETCH(QString, lines);
    mStandIns->add("df", "echo 'Filesystem 1K-blocks Used Available'; echo 'x 2000 1500 500'");
    mStandIns->add("sh", mStandIns->becomes("sh"));
    const QByteArray df = "df " + QFile::encodeName(mStorages->path() + "/sd/");
    const QHash<QString, Arguments> meaning = {{"mounted", look(SD_BLOCK)},
                                               {"free", {"-c", df + " | awk '{ print $4 }'"}},
                                               {"size", {"-c", df + " | awk '{ print $2 }'"}}};
    Calls expected;
    for (const QString &line : lines.split(' '))
        expected.append(meaning.value(line));
    const std::function<qint64()> queries[] = {
        [] { return qint64(VornFileHandler::isMounted(STORAGE_SD)); },
        [] { return VornFileHandler::getRemainingBytes(STORAGE_SD); },
        [] { return VornFileHandler::getStorageSize(STORAGE_SD); },
        [] { return qint64(VornFileHandler::getRemainingPercent(STORAGE_SD)); },
        [] { return VornFileHandler::getUsedBytes(STORAGE_SD); },
    };
    const qint64 results[] = {1, 512000, 2048000, 25, 1536000};

    QCOMPARE(queries[query](), results[query]);

    QCOMPARE(mStandIns->calls("sh"), expected);
}

void CapacityTest::programsOfEachQuery()
{
    const QByteArray path = QFile::encodeName(mStorages->path() + "/sd/");
    mStandIns->add("grep", "echo mmcblk1");
    printColumns("2000", "500");

    QCOMPARE(VornFileHandler::getRemainingPercent(STORAGE_SD), 25);

    const Arguments cat = {"/proc/partitions"};
    const Arguments grep = {SD_BLOCK};
    QCOMPARE(mStandIns->calls("cat"), (Calls{cat, cat, cat}));
    QCOMPARE(mStandIns->calls("grep"), (Calls{grep, grep, grep}));
    QCOMPARE(mStandIns->calls("df"), (Calls{{path}, {path}}));
    QCOMPARE(mStandIns->calls("awk"), (Calls{{"{ print $4 }"}, {"{ print $2 }"}}));
    QCOMPARE(mStandIns->callOrder().size(), 10);
}

void CapacityTest::notMountedAsksNothingMore()
{
    configure("sdb");
    printColumns("2000", "500");
    mStandIns->add("sh", mStandIns->becomes("sh"));

    const Answers answers = ask(STORAGE_SD);

    QVERIFY(!answers.mounted);
    QCOMPARE(answers.remaining, qint64(0));
    QCOMPARE(answers.size, qint64(0));
    QCOMPARE(answers.percent, 0);
    QCOMPARE(answers.used, qint64(0));
    QCOMPARE(mStandIns->calls("sh"),
             (Calls{look("sdb"), look("sdb"), look("sdb"), look("sdb"), look("sdb")}));
    QCOMPARE(mStandIns->calls("df"), Calls());
}

void CapacityTest::pulledOutBetweenTwoLooks_data()
{
    QTest::addColumn<int>("looks");
    QTest::addColumn<int>("processes");

    QTest::newRow("before-the-free-space") << 1 << 3;
    QTest::newRow("before-the-size") << 2 << 4;
}

void CapacityTest::pulledOutBetweenTwoLooks()
{
    QFETCH(int, looks);
    QFETCH(int, processes);
    printColumns("2000", "500");
    mStandIns->add("sh", mStandIns->becomes("sh"));
    const QString count = mStorages->path() + "/count";
    mStandIns->add("grep", QString("echo >>'%1'; [ $(wc -l <'%1') -le %2 ] && echo mmcblk1")
                               .arg(count)
                               .arg(looks)
                               .toLocal8Bit());

    QCOMPARE(VornFileHandler::getRemainingPercent(STORAGE_SD), 0);
    QCOMPARE(mStandIns->calls("sh").size(), processes);

    QVERIFY(QFile::remove(count));
    QCOMPARE(VornFileHandler::getUsedBytes(STORAGE_SD), qint64(0));
    QCOMPARE(mStandIns->calls("sh").size(), 2 * processes);
}

void CapacityTest::nothingIsRemembered()
{
    printColumns("2000", "500");
    QCOMPARE(VornFileHandler::getRemainingBytes(STORAGE_SD), qint64(512000));
    QCOMPARE(VornFileHandler::getStorageSize(STORAGE_SD), qint64(2048000));

    printColumns("4000", "600");
    QCOMPARE(VornFileHandler::getRemainingBytes(STORAGE_SD), qint64(614400));
    QCOMPARE(VornFileHandler::getStorageSize(STORAGE_SD), qint64(4096000));

    mStandIns->add("cat");
    QVERIFY(!VornFileHandler::isMounted(STORAGE_SD));
    QCOMPARE(VornFileHandler::getRemainingBytes(STORAGE_SD), qint64(0));
}

void CapacityTest::mountPathWithBlank_data()
{
    QTest::addColumn<QStringList>("present"); // in the current directory, beside the location's "my card"
    QTest::addColumn<qint64>("size");
    QTest::addColumn<qint64>("remaining");

    // df answers for each of the two words that is a path, and that it fails for the other is not asked for.
    QTest::newRow("neither-word-exists") << QStringList{} << qint64(0) << qint64(0);
    QTest::newRow("first-word-exists") << QStringList{"my"} << qint64(2048000) << qint64(512000);
    QTest::newRow("second-word-exists") << QStringList{"card"} << qint64(2048000) << qint64(512000);
    QTest::newRow("both-words-exist")
        << QStringList{"card", "my"} << qint64(20002000) * 1024 << qint64(500500) * 1024;
}

void CapacityTest::mountPathWithBlank()
{
    QFETCH(QStringList, present);
    QFETCH(qint64, size);
    QFETCH(qint64, remaining);
    const QString location = mStorages->path() + "/my card/DCIM";
    QVERIFY(QDir().mkpath(location));
    const CurrentDirectory current(mStorages->path());
    for (const QString &folder : present)
        QVERIFY(QDir().mkpath(folder));
    configure(SD_BLOCK, location);
    mStandIns->add("df", "echo 'Filesystem 1K-blocks Used Available'\n"
                         "for path; do [ -e \"$path\" ] && echo 'x 2000 1500 500'; done\n"
                         "exit 1");

    QCOMPARE(VornFileHandler::getStorageSize(STORAGE_SD), size);
    QCOMPARE(VornFileHandler::getRemainingBytes(STORAGE_SD), remaining);

    const Arguments words = {QFile::encodeName(mStorages->path() + "/my"), "card/"};
    QCOMPARE(mStandIns->calls("df"), (Calls{words, words}));
}

/// With the real df, which says of the second word that it is not there.
void CapacityTest::mountPathWhoseFirstWordExists()
{
    const CurrentDirectory current(mStorages->path());
    QVERIFY(QDir().mkpath(mStorages->path() + "/my card/DCIM"));
    configure(SD_BLOCK, mStorages->path() + "/my card/DCIM");
    QCOMPARE(VornFileHandler::getStorageSize(STORAGE_SD), qint64(0));
    QCOMPARE(VornFileHandler::getRemainingBytes(STORAGE_SD), qint64(0));

    QVERIFY(QDir().mkpath(mStorages->path() + "/my"));
    const quint64 size = sizeInBlocks(mStorages->path());
    if (size == 0 || size > LARGEST_SIZE)
        QSKIP("a size that cannot be read");
    QCOMPARE(quint64(VornFileHandler::getStorageSize(STORAGE_SD)), size * 1024);
}

void CapacityTest::mountPathWithoutDcim()
{
    configure(SD_BLOCK, mStorages->path() + "/DCIMcard/Media");
    mStandIns->add("df");

    QCOMPARE(VornFileHandler::getRemainingBytes(STORAGE_SD), qint64(0));

    QCOMPARE(mStandIns->calls("df"), (Calls{{QFile::encodeName(mStorages->path() + "/card/Media")}}));
}

void CapacityTest::beforeInit()
{
    VornFileHandler::mMmcBlk = VornFileHandler::mSdBlk = VornFileHandler::mUsbBlk = QString();
    VornFileHandler::mMMCLocation = VornFileHandler::mSDLocation = VornFileHandler::mUSBLocation =
        QDir("/tmp");
    printColumns("2000", "500");

    for (const eStorageType storage : {STORAGE_MMC, STORAGE_SD, STORAGE_USB}) {
        const Answers answers = ask(storage);
        QVERIFY(!answers.mounted);
        QCOMPARE(answers.remaining, qint64(0));
        QCOMPARE(answers.size, qint64(0));
        QCOMPARE(answers.percent, 0);
        QCOMPARE(answers.used, qint64(0));
    }
    QCOMPARE(mStandIns->calls("df"), Calls());
}

void CapacityTest::unsupportedStorage_data()
{
    QTest::addColumn<int>("storage");

    QTest::newRow("three") << 3;
    QTest::newRow("negative") << -1;
    QTest::newRow("largest") << std::numeric_limits<int>::max();
}

void CapacityTest::unsupportedStorage()
{
    QFETCH(int, storage);
    const eStorageType type = anyStorage(storage);
    const QByteArray line = diagnosticLine("Unsupported storage type");
    printColumns("2000", "500");

    QVERIFY(!VornFileHandler::isMounted(type));
    QCOMPARE(mStandardError->take(), line);
    QCOMPARE(VornFileHandler::getRemainingBytes(type), qint64(0));
    QCOMPARE(mStandardError->take(), line);
    QCOMPARE(VornFileHandler::getStorageSize(type), qint64(0));
    QCOMPARE(mStandardError->take(), line);
    QCOMPARE(VornFileHandler::getRemainingPercent(type), 0);
    QCOMPARE(mStandardError->take(), line);
    QCOMPARE(VornFileHandler::getUsedBytes(type), qint64(0));
    QCOMPARE(mStandardError->take(), line);
    QCOMPARE(mStandIns->calls("df"), Calls());
}

void CapacityTest::missingPrograms_data()
{
    QTest::addColumn<QStringList>("present");
    QTest::addColumn<bool>("mounted");
    QTest::addColumn<qint64>("bytes");

    QTest::newRow("none-missing") << QStringList{"sh", "cat", "grep", "df", "awk"} << true << qint64(12288);
    QTest::newRow("sh") << QStringList{"cat", "grep", "df", "awk"} << false << qint64(0);
    QTest::newRow("cat") << QStringList{"sh", "grep", "df", "awk"} << false << qint64(0);
    QTest::newRow("grep") << QStringList{"sh", "cat", "df", "awk"} << false << qint64(0);
    QTest::newRow("df") << QStringList{"sh", "cat", "grep", "awk"} << true << qint64(0);
    QTest::newRow("awk") << QStringList{"sh", "cat", "grep", "df"} << true << qint64(0);
}

void CapacityTest::missingPrograms()
{
    QFETCH(QStringList, present);
    QFETCH(bool, mounted);
    QFETCH(qint64, bytes);
    mStandIns.reset();
    StandIns alone(StandIns::Alone);
    const QByteArray passOn = "r=1; while read -r line; do echo \"$line\"; r=0; done; exit $r";
    const QHash<QString, QByteArray> scripts = {{"sh", alone.becomes("sh")},
                                                {"cat", alone.prints("mmcblk1\n")},
                                                {"grep", passOn},
                                                {"df", alone.prints("12\n")},
                                                {"awk", passOn}};
    for (const QString &program : present)
        alone.add(program.toLatin1(), scripts.value(program));

    QCOMPARE(VornFileHandler::isMounted(STORAGE_SD), mounted);
    QCOMPARE(VornFileHandler::getRemainingBytes(STORAGE_SD), bytes);
    QCOMPARE(VornFileHandler::getStorageSize(STORAGE_SD), bytes);
}

/// With the real programs: every device that the kernel lists is found. Loop devices are left out, because
/// other programs may free them meanwhile.
void CapacityTest::realDevices()
{
    mStandIns.reset();
    QFile partitions("/proc/partitions");
    QVERIFY(partitions.open(QIODevice::ReadOnly));
    const QList<QByteArray> lines = partitions.readAll().split('\n').mid(2);
    int found = 0;
    for (const QByteArray &line : lines) {
        const QByteArray name = line.simplified().split(' ').last();
        if (name.isEmpty() || name.startsWith("loop"))
            continue;
        configure(QString::fromLatin1(name));
        QVERIFY2(VornFileHandler::isMounted(STORAGE_SD), name.constData());
        ++found;
    }
    configure("no-such-device");
    QVERIFY(!VornFileHandler::isMounted(STORAGE_SD));
    if (found == 0 && !hasBlockDevices())
        QSKIP("no block devices");
    QVERIFY(found > 0);
}

/// With the real df and awk on the file system of the temporary directory. Others may write there
/// meanwhile, so only the size is compared to the byte.
void CapacityTest::realFileSystem()
{
    QVERIFY(QDir().mkpath(mStorages->sd()));
    const quint64 size = sizeInBlocks(mStorages->path());
    if (size == 0 || size > LARGEST_SIZE)
        QSKIP("a size that cannot be read");

    const Answers answers = ask(STORAGE_SD);

    QVERIFY(answers.mounted);
    QCOMPARE(quint64(answers.size), size * 1024);
    QVERIFY(answers.remaining >= 0 && answers.remaining <= answers.size);
    QVERIFY(answers.percent >= 0 && answers.percent <= 100);
    QVERIFY(answers.used >= 0);
}

QTEST_GUILESS_MAIN(CapacityTest)
#include "tst_capacity.moc"

// SPDX-License-Identifier: MIT
#include "standins.h"

#include <QtTest>

#include <algorithm>
#include <cmath>
#include <functional>
#include <limits>
#include <memory>
#include <vector>

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

/// The arguments of the shell for one check of the block devices
QByteArrayList check(const QByteArray &block)
{
    return {"-c", "cat /proc/partitions | grep " + block};
}

constexpr quint64 LARGEST_SIZE = 2147483647; // in blocks of 1024 bytes, like sizeInBlocks()

/// The size of the file system that contains @p path; 0 if it is unknown.
quint64 sizeInBlocks(const QString &path)
{
    struct statvfs status = {};
    const bool known = ::statvfs(QFile::encodeName(path).constData(), &status) == 0;
    return known ? (quint64(status.f_blocks) * status.f_frsize + 1023) / 1024 : 0;
}

/// Returns whether the machine has a block device that is neither empty nor a loop device. Read from /sys,
/// because the library reads /proc/partitions.
bool hasBlockDevices()
{
    const QStringList names = QDir("/sys/class/block").entryList(QDir::Dirs | QDir::NoDotAndDotDot);
    return std::any_of(names.begin(), names.end(), [](const QString &name) {
        QFile size("/sys/class/block/" + name + "/size");
        return !name.startsWith("loop") && size.open(QIODevice::ReadOnly) && size.readAll().trimmed() != "0";
    });
}

const std::vector<std::function<qint64(eStorageType)>> QUERIES = {
    VornFileHandler::isMounted, VornFileHandler::getRemainingBytes, VornFileHandler::getStorageSize,
    VornFileHandler::getRemainingPercent, VornFileHandler::getUsedBytes};

/// The results of all queries.
QVector<qint64> query(eStorageType storage)
{
    QVector<qint64> results;
    for (const auto &function : QUERIES)
        results.append(function(storage));
    return results;
}

const QVector<qint64> UNAVAILABLE = {0, 0, 0, 0, 0};

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
    void storageDevicesHaveSeparateBlockNames_data();
    void storageDevicesHaveSeparateBlockNames();
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
    void notMountedStartsNothingElse();
    void removedBetweenTwoChecks_data();
    void removedBetweenTwoChecks();
    void nothingIsCached();
    void mountPathWithSpace_data();
    void mountPathWithSpace();
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

/// Sets the block name of the SD card, and its location if @p location is not empty.
void CapacityTest::configure(const QString &block, const QString &location)
{
    VornFileHandler::mSdBlk = block;
    if (!location.isEmpty())
        VornFileHandler::mSDLocation = QDir(location);
}

/// Makes awk print these columns, whatever df prints.
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

    row("listed", "mmcblk1", true);
    row("listed-last", "sda1", true);
    row("not-listed", "sdb", false);
    row("only-a-partition-is-listed", "sda", true);
    row("listed-with-a-longer-name", "mmcblk", true);
    row("inside-another-name", "blk1", true);
    row("longer-than-the-listed-name", "mmcblk1p12", false);
    row("different-case", "MMCBLK1", false);
    row("empty", "", false);
    row("space", " ", false);
    row("trailing-space", "mmcblk1 ", false);
    row("word-of-the-header", "blocks", true);
    row("size-of-a-device", "7814144", true);
    row("pattern-that-matches", "mmc.lk1", false);
    row("anchored-pattern", "mmcblk1$", false);
    row("part-of-the-line", "31166976\\ mmcblk1", false);
    row("option-to-grep", "-c mmcblk1", false);
    row("another-command-that-succeeds", "sdb; echo x", false);
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

    const auto row = [](const char *name, const QByteArray &output, int exitCode, bool mounted) {
        QTest::newRow(name) << output << exitCode << mounted;
    };
    row("found", " 179 32 31166976 mmcblk1\n", 0, true);
    row("name-alone", "mmcblk1", 0, true);
    row("name-in-the-second-line", "mmcblk0\nmmcblk1\n", 0, true);
    row("found-but-failed", " 179 32 31166976 mmcblk1\n", 1, false);
    row("found-but-failed-with-128", "mmcblk1\n", 128, false);
    row("succeeded-without-output", "", 0, false);
    row("succeeded-with-another-name", "mmcblk0\n", 0, false);
    row("succeeded-in-different-case", "MMCBLK1\n", 0, false);
    row("name-after-a-nul", QByteArray("x\0mmcblk1\n", 10), 0, false);
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
    QTest::addColumn<QByteArrayList>("arguments");

    const auto row = [](const char *name, const char *block, const QByteArrayList &arguments) {
        QTest::newRow(name) << block << arguments;
    };
    row("plain", "mmcblk1", check("mmcblk1"));
    row("empty", "", check(""));
    row("spaces", "  a  b ", check("  a  b "));
    row("single-quotes", "'a b'", check("'a b'"));
    row("double-quote-ends-the-argument", "a\"b c", check("ab") + QByteArrayList{"c"});
    row("three-double-quotes", "\"\"\"a b\"\"\"", check("\"a b\""));
    row("percent-sign-and-number", "%1", check("%1"));
}

void CapacityTest::blockNameInTheShellLine()
{
    QFETCH(QString, block);
    QFETCH(QByteArrayList, arguments);
    configure(block);
    mStandIns->add("sh", "exit 1");

    QVERIFY(!VornFileHandler::isMounted(STORAGE_SD));

    QCOMPARE(mStandIns->calls("sh"), Calls{arguments});
}

void CapacityTest::storageDevicesHaveSeparateBlockNames_data()
{
    QTest::addColumn<int>("storage");
    QTest::addColumn<QByteArray>("block");
    QTest::addColumn<QString>("folder");

    const auto row = [](const char *name, int storage, const QByteArray &block, const char *folder) {
        QTest::newRow(name) << storage << block << folder;
    };
    row("mmc", STORAGE_MMC, "mmcblk0", "/mmc/");
    row("sd", STORAGE_SD, "mmcblk1", "/sd/");
    row("usb", STORAGE_USB, "sda1", "/usb/");
}

void CapacityTest::storageDevicesHaveSeparateBlockNames()
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
    QCOMPARE(mStandIns->calls("sh"), (Calls{check(block), {"-c", "df " + path + " | awk '{ print $2 }'"}}));
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
    // Both queries read both headers; each removes only its own.
    row("available-header", "Available\n1000\n", 1024000, 0);
    row("size-header", "1K-blocks\n2000\n", 0, 2048000);
    row("no-header", "1000\n", 1024000, 1024000);
    row("no-line-feed", "1000", 1024000, 1024000);
    row("upper-case-available", "AVAILABLE\n7\n", 7168, 0);
    row("lower-case-available", "available\n7\n", 7168, 0);
    row("mixed-case-available", "aVaiLabLe\n7\n", 7168, 0);
    row("lower-case-size-header", "1k-blocks\n7\n", 0, 0);
    row("upper-case-size-header", "1K-BLOCKS\n7\n", 0, 0);
    row("size-header-of-another-block-size", "512B-blocks\n7\n", 0, 0);
    row("short-available", "Avail\n7\n", 0, 0);
    row("available-twice", "Available\n7\nAvailable\n", 7168, 0);
    row("size-header-twice", "1K-blocks1K-blocks\n7\n", 0, 7168);
    row("trailing-available", "7Available", 7168, 0);
    row("trailing-size-header", "71K-blocks", 0, 7168);
    row("available-split-by-a-line-feed", "Avail\nable\n7\n", 0, 0);
    row("size-header-split-by-a-line-feed", "1K-\nblocks\n7\n", 0, 0);
    row("available-inside-available", "avaiAvailablelable7", 0, 0);
    row("nothing", "", 0, 0);
    row("line-feeds-only", "\n\n", 0, 0);
    row("zero", "0\n", 0, 0);
    row("one", "1\n", 1024, 1024);
    row("largest", "2147483647\n", 2199023254528, 2199023254528);
    row("above-the-largest", "2147483648\n", 0, 0);
    row("twice-two-tebibytes", "4294967296\n", 0, 0);
    row("not-a-64-bit-number", "99999999999999999999\n", 0, 0);
    row("negative", "-5\n", -5120, -5120);
    row("smallest", "-2147483648\n", -2199023255552, -2199023255552);
    row("below-the-smallest", "-2147483649\n", 0, 0);
    row("plus-sign", "+5\n", 5120, 5120);
    row("leading-zeros", "007\n", 7168, 7168);
    row("spaces-around", "  \t12  \n", 12288, 12288);
    row("carriage-return", "12\r\n", 12288, 12288);
    row("two-lines-are-joined", "12\n34\n", 1263616, 1263616);
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
    row("trailing-nul", QByteArray("12\0 34\n", 7), 12288, 12288);
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
    row("no-numbers", "tmpfs     -     -       -  - /media/sd\n", 0, 0);
    row("mount-point-with-space", "/dev/sda1 2000 1500 500 75% /media/my card\n", 512000, 2048000);
    row("device-with-space", "//nas/my share 2000 1500 500 75% /media/sd\n", 1536000, 0);
    // The first number of the wrapped line is in the column of the name, so the next column is read each
    // time.
    row("wrapped-long-name", "/dev/mapper/a-very-long-volume-name\n 2000 1500 500 75% /media/sd\n", 0,
        1536000);
    row("two-file-systems", "/dev/a 20 15 5 75% /a\n/dev/b 40 34 6 85% /b\n", 57344, 2088960);
    row("header-only", "", 0, 0);
    row("two-tebibytes-less-one-block", "/dev/sda1 2147483647 0 2147483647 0% /media/usb\n", 2199023254528,
        2199023254528);
    row("two-tebibytes", "/dev/sda1 2147483648 1 2147483647 0% /media/usb\n", 2199023254528, 0);
    row("more-used-than-the-size", "/dev/sda1 100 120 -20 120% /media/usb\n", -20480, 102400);
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

    const auto row = [](const char *name, const QByteArray &df, const QByteArray &awk, qint64 bytes) {
        QTest::newRow(name) << df << awk << bytes;
    };
    const QByteArray number = "echo 12; ";
    const QByteArray passOn = "while read line; do echo \"$line\"; done; ";
    row("neither", number, passOn, 12288);
    row("awk-prints-and-fails", number, passOn + "exit 1", 0);
    row("awk-prints-and-exits-with-255", number, passOn + "exit 255", 0);
    row("awk-prints-and-is-killed", number, passOn + "kill -9 $$", 0);
    // The exit code of a pipeline is that of its last program.
    row("df-prints-and-fails", number + "exit 1", passOn, 12288);
    row("df-fails-without-output", "exit 1", passOn, 0);
    row("both-print-errors", "echo x >&2; echo 12", "echo y >&2; " + passOn, 12288);
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
    row("almost-nothing-free", "1", "100000", 0, 99999);
    row("almost-nothing-used", "99999", "100000", 100, 1);
    row("just-below-one-half", "49", "10000", 0, 9951);
    row("half-rounds-up", "1", "8", 13, 7);
    row("half-rounds-up-from-even", "5", "8", 63, 3);
    row("half-lowered-by-single-precision", "21", "40", 52, 19);
    row("half-raised-by-single-precision", "23", "40", 58, 17);
    row("largest", "2147483647", "2147483647", 100, 0);
    row("free-above-the-size", "2001", "2000", 0, 0);
    row("far-above-the-size", "2147483647", "1", 0, 0);
    row("free-above-the-size-within-single-precision", "16777217", "16777216", 100, 0);
    row("both-zero", "0", "0", 0, 0);
    row("size-zero", "5", "0", 0, 0);
    row("size-unreadable", "5", "4294967296", 0, 0);
    row("free-unreadable", "none", "2000", 0, 2000);
    row("both-unreadable", "none", "none", 0, 0);
    row("negative-free", "-500", "2000", -25, 2500);
    row("negative-half-rounds-away-from-zero", "-1", "8", -13, 9);
    row("negative-size", "5", "-10", 0, 0);
    row("smallest-int", "-2147483648", "100", -2147483647 - 1, 2147483648);
    row("both-negative", "-20", "-10", 200, 10);
    row("both-negative-beyond-32-bits", "-2147483648", "-100", 0, 2147483520);
    row("negative-free-and-size-zero", "-5", "0", 0, 5);
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

    row("ten-gigabytes", 1234567, 10000000, qint64(8975803392));
    row("thirty-gigabytes", 12345677, 31166975, qint64(19273011200));
    row("sixty-gigabytes", 12345677, 61071360, qint64(49895100416));
    row("two-tebibytes", 0, 2147483647, qint64(2199023255552));
    row("size-rounded-up", 1, 2147483647, qint64(2199023255552));
    row("small-enough-to-be-exact", 77, 8388607, qint64(8589854720));
}

void CapacityTest::usedStepsInSinglePrecision()
{
    QFETCH(int, available);
    QFETCH(int, size);
    QFETCH(qint64, used);
    printColumns(QByteArray::number(size), QByteArray::number(available));
    const auto freeBytes = static_cast<float>(available * qint64(1024));
    const auto sizeBytes = static_cast<float>(size * qint64(1024));

    QCOMPARE(static_cast<qint64>(sizeBytes - freeBytes), used);
    QCOMPARE(VornFileHandler::getUsedBytes(STORAGE_SD), used);
    QCOMPARE(VornFileHandler::getRemainingPercent(STORAGE_SD),
             static_cast<int>(::roundf(freeBytes / sizeBytes * 100.0F)));
}

void CapacityTest::processesOfEachQuery_data()
{
    QTest::addColumn<uint>("query");
    QTest::addColumn<QString>("lines");
    QTest::addColumn<qint64>("result");
    const auto row = [](const char *name, uint query, const char *lines, qint64 result) {
        QTest::newRow(name) << query << lines << result;
    };
    row("is-mounted", 0, "mounted", 1);
    row("remaining-bytes", 1, "mounted free", 512000);
    row("storage-size", 2, "mounted size", 2048000);
    row("remaining-percent", 3, "mounted mounted free mounted size", 25);
    row("used-bytes", 4, "mounted mounted free mounted size", 1536000);
}

void CapacityTest::processesOfEachQuery()
{
    QFETCH(uint, query);
    QFETCH(QString, lines);
    QFETCH(qint64, result);
    mStandIns->add("df", "echo 'Filesystem 1K-blocks Used Available'; echo 'x 2000 1500 500'");
    mStandIns->add("sh", mStandIns->becomes("sh"));
    const QByteArray df = "df " + QFile::encodeName(mStorages->path() + "/sd/");
    const QHash<QString, QByteArrayList> meaning = {{"mounted", check(SD_BLOCK)},
                                                    {"free", {"-c", df + " | awk '{ print $4 }'"}},
                                                    {"size", {"-c", df + " | awk '{ print $2 }'"}}};
    Calls expected;
    for (const QString &line : lines.split(' '))
        expected.append(meaning.value(line));

    QCOMPARE(QUERIES[query](STORAGE_SD), result);

    QCOMPARE(mStandIns->calls("sh"), expected);
}

void CapacityTest::programsOfEachQuery()
{
    const QByteArray path = QFile::encodeName(mStorages->path() + "/sd/");
    mStandIns->add("grep", "echo mmcblk1");
    printColumns("2000", "500");

    QCOMPARE(VornFileHandler::getRemainingPercent(STORAGE_SD), 25);

    const QByteArrayList cat = {"/proc/partitions"};
    const QByteArrayList grep = {SD_BLOCK};
    QCOMPARE(mStandIns->calls("cat"), (Calls{cat, cat, cat}));
    QCOMPARE(mStandIns->calls("grep"), (Calls{grep, grep, grep}));
    QCOMPARE(mStandIns->calls("df"), (Calls{{path}, {path}}));
    QCOMPARE(mStandIns->calls("awk"), (Calls{{"{ print $4 }"}, {"{ print $2 }"}}));
    QCOMPARE(mStandIns->callOrder().size(), 10);
}

void CapacityTest::notMountedStartsNothingElse()
{
    configure("sdb");
    printColumns("2000", "500");
    mStandIns->add("sh", mStandIns->becomes("sh"));

    QCOMPARE(query(STORAGE_SD), UNAVAILABLE);

    QCOMPARE(mStandIns->calls("sh"),
             (Calls{check("sdb"), check("sdb"), check("sdb"), check("sdb"), check("sdb")}));
    QCOMPARE(mStandIns->calls("df"), Calls());
}

void CapacityTest::removedBetweenTwoChecks_data()
{
    QTest::addColumn<int>("checks");
    QTest::addColumn<int>("processes");

    row("before-the-free-space", 1, 3);
    row("before-the-size", 2, 4);
}

void CapacityTest::removedBetweenTwoChecks()
{
    QFETCH(int, checks);
    QFETCH(int, processes);
    printColumns("2000", "500");
    mStandIns->add("sh", mStandIns->becomes("sh"));
    const QString count = mStorages->path() + "/count";
    mStandIns->add("grep", QString("echo >>'%1'; [ $(wc -l <'%1') -le %2 ] && echo mmcblk1")
                               .arg(count)
                               .arg(checks)
                               .toLocal8Bit());

    QCOMPARE(VornFileHandler::getRemainingPercent(STORAGE_SD), 0);
    QCOMPARE(mStandIns->calls("sh").size(), processes);

    QVERIFY(QFile::remove(count));
    QCOMPARE(VornFileHandler::getUsedBytes(STORAGE_SD), qint64(0));
    QCOMPARE(mStandIns->calls("sh").size(), 2 * processes);
}

void CapacityTest::nothingIsCached()
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

void CapacityTest::mountPathWithSpace_data()
{
    QTest::addColumn<Tree>("present"); // in the current directory, which contains "my card"
    QTest::addColumn<qint64>("size");
    QTest::addColumn<qint64>("remaining");

    const auto row = [](const char *name, const Tree &present, qint64 size, qint64 remaining) {
        QTest::newRow(name) << present << size << remaining;
    };
    // df prints a line for each of the two words that is a path; its failure for the other is ignored.
    row("neither-word-exists", {}, 0, 0);
    row("first-word-exists", {"my/"}, 2048000, 512000);
    row("second-word-exists", {"card/"}, 2048000, 512000);
    row("both-words-exist", {"card/", "my/"}, 20002000 * qint64(1024), 500500 * qint64(1024));
}

void CapacityTest::mountPathWithSpace()
{
    QFETCH(Tree, present);
    QFETCH(qint64, size);
    QFETCH(qint64, remaining);
    makeTree(mStorages->path(), present + Tree{"my card/DCIM/"});
    const CurrentDirectory current(mStorages->path());
    configure(SD_BLOCK, mStorages->path() + "/my card/DCIM");
    mStandIns->add("df", "echo 'Filesystem 1K-blocks Used Available'\n"
                         "for path; do [ -e \"$path\" ] && echo 'x 2000 1500 500'; done\n"
                         "exit 1");

    QCOMPARE(VornFileHandler::getStorageSize(STORAGE_SD), size);
    QCOMPARE(VornFileHandler::getRemainingBytes(STORAGE_SD), remaining);

    const QByteArrayList words = {QFile::encodeName(mStorages->path() + "/my"), "card/"};
    QCOMPARE(mStandIns->calls("df"), (Calls{words, words}));
}

/// With the real df, which reports that the second word does not exist.
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
        QSKIP("the size of the file system is unknown or too large");
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

    for (const eStorageType storage : {STORAGE_MMC, STORAGE_SD, STORAGE_USB})
        QCOMPARE(query(storage), UNAVAILABLE);
    QCOMPARE(mStandIns->calls("df"), Calls());
}

void CapacityTest::unsupportedStorage_data()
{
    QTest::addColumn<int>("storage");

    row("after-the-last", 3);
    row("negative", -1);
    row("largest", std::numeric_limits<int>::max());
}

void CapacityTest::unsupportedStorage()
{
    QFETCH(int, storage);
    printColumns("2000", "500");

    for (const auto &function : QUERIES) {
        QCOMPARE(function(anyStorage(storage)), 0);
        QCOMPARE(mStandardError->take(), diagnosticLine("Unsupported storage type"));
    }
    QCOMPARE(mStandIns->calls("df"), Calls());
}

void CapacityTest::missingPrograms_data()
{
    QTest::addColumn<QByteArrayList>("present");
    QTest::addColumn<bool>("mounted");
    QTest::addColumn<qint64>("bytes");

    const auto row = [](const char *name, const QByteArrayList &present, bool mounted, qint64 bytes) {
        QTest::newRow(name) << present << mounted << bytes;
    };
    row("none-missing", {"sh", "cat", "grep", "df", "awk"}, true, 12288);
    row("sh", {"cat", "grep", "df", "awk"}, false, 0);
    row("cat", {"sh", "grep", "df", "awk"}, false, 0);
    row("grep", {"sh", "cat", "df", "awk"}, false, 0);
    row("df", {"sh", "cat", "grep", "awk"}, true, 0);
    row("awk", {"sh", "cat", "grep", "df"}, true, 0);
}

void CapacityTest::missingPrograms()
{
    QFETCH(QByteArrayList, present);
    QFETCH(bool, mounted);
    QFETCH(qint64, bytes);
    mStandIns.reset();
    StandIns alone(StandIns::Alone);
    const QByteArray passOn = "r=1; while read -r line; do echo \"$line\"; r=0; done; exit $r";
    const QHash<QByteArray, QByteArray> scripts = {{"sh", alone.becomes("sh")},
                                                   {"cat", alone.prints("mmcblk1\n")},
                                                   {"grep", passOn},
                                                   {"df", alone.prints("12\n")},
                                                   {"awk", passOn}};
    for (const QByteArray &program : present)
        alone.add(program, scripts.value(program));

    QCOMPARE(VornFileHandler::isMounted(STORAGE_SD), mounted);
    QCOMPARE(VornFileHandler::getRemainingBytes(STORAGE_SD), bytes);
    QCOMPARE(VornFileHandler::getStorageSize(STORAGE_SD), bytes);
}

/// With the real programs: every device that the kernel lists is found, except loop devices, which other
/// programs may free in the meantime.
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

/// With the real df and awk on the file system of the temporary directory. Other programs may write to it in
/// the meantime, so only the size is compared exactly.
void CapacityTest::realFileSystem()
{
    QVERIFY(QDir().mkpath(mStorages->sd()));
    const quint64 size = sizeInBlocks(mStorages->path());
    if (size == 0 || size > LARGEST_SIZE)
        QSKIP("the size of the file system is unknown or too large");

    QVERIFY(VornFileHandler::isMounted(STORAGE_SD));
    QCOMPARE(quint64(VornFileHandler::getStorageSize(STORAGE_SD)), size * 1024);
    const qint64 remaining = VornFileHandler::getRemainingBytes(STORAGE_SD);
    QVERIFY(remaining >= 0 && quint64(remaining) <= size * 1024);
    const int percent = VornFileHandler::getRemainingPercent(STORAGE_SD);
    QVERIFY(percent >= 0 && percent <= 100);
    QVERIFY(VornFileHandler::getUsedBytes(STORAGE_SD) >= 0);
}

QTEST_GUILESS_MAIN(CapacityTest)
#include "tst_capacity.moc"

// SPDX-License-Identifier: MIT
#include "literal.h"
#include "testsupport.h"

#include <QtTest>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

using namespace VORN_FILE_HANDLER;

namespace {

using literal::OLDEST_FIRST;

void setTime(const QByteArray &path, qint64 seconds, long nanoseconds)
{
    const timespec time = {static_cast<time_t>(seconds), nanoseconds};
    const timespec times[] = {time, time};
    QCOMPARE(::utimensat(AT_FDCWD, path.constData(), times, 0), 0);
}

/// Everything that a host can query about the entries of a listing, in order.
QStringList described(const QFileInfoList &files)
{
    const auto text = [](const QDateTime &time) {
        // Not as milliseconds: for the repeated hour at the end of summer time, the result of the C library
        // depends on earlier calls.
        return time.isValid() ? time.toString("yyyy-MM-dd HH:mm:ss.zzz") : QString("none");
    };
    QStringList lines;
    for (const QFileInfo &file : files) {
        lines.append(QStringList{file.filePath(), file.fileName(), file.absoluteFilePath(),
                                 QString::number(file.size()), text(file.lastModified()),
                                 text(file.birthTime())}
                         .join('|'));
    }
    return lines;
}

/// Moments, in seconds since 1970, at which clocks change or Qt follows other rules.
const QList<qint64> MOMENTS = {
    1635642000, 1616893200, // London, 2021: end and start of summer time
    1636263000, 1615699800, // St John's
    1617462000, 1633190400, // Lord Howe: half an hour
    -34729200,  57722400,   // London, 1968 and 1971: summer time all year in between
    1483228826, 1483228800, // a leap second, counted and not counted
    0,          -1,          1, 2145916799, 2145916800, // end of 2037
    2147483647, 2147483648,                             // end of 32 bits
    4102444800, 13569465600,                            // 2100 and 2400
    2234998800, 2235002399,                             // London, 2040: no summer time in Qt
    -631152000, -1577923200,                            // 1950 and 1920
    1700000000,
};

const QByteArrayList ASCII_NAMES = {"DCF_%1.jpg",    "DCF_%1.mkv", "dcf_%1.jpg", "%1.JPG",
                                    "a%1.avi",       "A%1.avi",    "%1",         "x y%1.wav",
                                    ".hidden%1.jpg", "a:%1.jpg",   "a\n%1.jpg"};
const QByteArrayList OTHER_NAMES = {
    "\u00e4%1.jpg",     "\u00c4%1.jpg",     "\U0001F4F7%1.jpg", "\uff61%1.jpg", "\377%1.jpg",
    "\uFEFFDCF_%1.jpg", "\uFEFFa%1.avi",    "%1.m\u212av",      "%1.\u017fpg",  "a\u0308%1.jpg",
    "\u212a%1.jpg",     "\U00010400%1.jpg", "\U00010428%1.jpg", "\303%1.jpg"};

/// Creates up to @p count files with random names in @p folder, some of them outside ASCII if @p mixed, and
/// returns their paths.
QByteArrayList randomFiles(QRandomGenerator &random, const QByteArray &folder, int count, bool mixed)
{
    QByteArrayList paths;
    for (int i = 0; i < count; ++i) {
        const bool other = mixed && random.bounded(3) == 0;
        QByteArray name = oneOf(random, other ? OTHER_NAMES : ASCII_NAMES);
        name.replace("%1", QByteArray::number(random.bounded(12)).rightJustified(2, '0'));
        const QByteArray path = folder + "/" + name;
        writeFile(path, QByteArray(random.bounded(9), 'x'));
        paths.append(path);
    }
    return paths;
}

/// For each moment, creates a file at that moment, one 999 ms later, one a second earlier and one without a
/// time.
void makeFileAtEachMoment(const QByteArray &folder)
{
    int number = 0;
    for (const qint64 moment : MOMENTS) {
        for (const qint64 time : {moment * 1000, moment * 1000 + 999, moment * 1000 - 1000, qint64(0)}) {
            const QByteArray path = folder + "/" + QByteArray::number(number * 37 % 101) + ".jpg";
            writeFile(path);
            setModified(path, time);
            ++number;
        }
    }
}

/// Sets times close to a few moments, so that many are equal or differ by exactly one clock change.
void setRandomTimes(QRandomGenerator &random, const QByteArrayList &paths)
{
    static const QList<qint64> STEPS = {0, 0, 0, 1, -1, 1800, -1800, 3600, -3600, 3599, 7200, -5400, 86400};
    static const QList<long> PARTS = {0, 0, 0, 1, 999999, 1000000, 1000001, 500000000, 999000000, 999999999};
    QList<qint64> moments;
    for (int i = 1 + random.bounded(4); i > 0; --i)
        moments.append(oneOf(random, MOMENTS));
    for (const QByteArray &path : paths)
        setTime(path, oneOf(random, moments) + oneOf(random, STEPS), oneOf(random, PARTS));
}

} // namespace

class TimeOrderTest : public QObject
{
    Q_OBJECT

private slots:
    void order_data();
    void order();
    void sameAsQDirInEveryTimeZone_data();
    void sameAsQDirInEveryTimeZone();
    void entriesKeepTheStateOfTheListing_data();
    void entriesKeepTheStateOfTheListing();
    void otherOrdersReadTheStateLater();
};

void TimeOrderTest::order_data()
{
    QTest::addColumn<QByteArray>("zone");
    QTest::addColumn<Tree>("files");
    QTest::addColumn<QStringList>("expected");
    const auto row = [](const char *name, const QByteArray &zone, const Tree &files,
                        const QStringList &expected) { QTest::newRow(name) << zone << files << expected; };
    const QByteArray london = "GMT0BST,M3.5.0/1,M10.5.0";
    row("oldest-first", "UTC0", {"a at 3", "b at 1", "c at 2"}, {"b", "c", "a"});
    row("equal-times-in-descending-name-order", "UTC0", {"a at 5", "c at 5", "b at 5"}, {"c", "b", "a"});
    row("equal-times-and-names-in-both-cases", "UTC0", {"b at 5", "A at 5", "a at 5", "B at 5"},
        {"b", "a", "B", "A"});
    row("file-without-a-time-is-ordered-by-name", "UTC0", {"a at 0", "b at 5"}, {"b", "a"});
    row("one-millisecond-apart", "UTC0", {"a at 5.001", "b at 5"}, {"b", "a"});
    row("before-1970", "UTC0", {"a at -1", "b at 1", "c at -2"}, {"c", "a", "b"});
    row("after-2038", "UTC0", {"a at 4102444800", "b at 2145916800", "c at 2147483648"}, {"b", "c", "a"});
    row("hour-that-repeats-at-the-end-of-summer-time", london, {"early at 1635640200", "late at 1635642600"},
        {"late", "early"});
    row("hour-that-is-skipped-at-the-start-of-summer-time", london,
        {"early at 1616893199", "late at 1616893201"}, {"early", "late"});
    row("the-same-without-summer-time", "UTC0", {"early at 1635640200", "late at 1635642600"},
        {"early", "late"});
    row("byte-order-mark", "UTC0", {"a at 1", "b at 2", "\uFEFFa at 3"},
        {"a", "b", QChar(0xFEFF) + QString("a")});
    row("surrogate-pair-and-later-character", "UTC0", {"\uff61 at 1", "\U0001F4F7 at 1"},
        {"\uff61", "\U0001F4F7"});
}

void TimeOrderTest::order()
{
    QFETCH(QByteArray, zone);
    QFETCH(Tree, files);
    QFETCH(QStringList, expected);
    const Storages storages;
    const EnvironmentVariable timeZone("TZ", zone);
    makeTree(storages.path() + "/folder", files);
    StandardErrorCapture capture;
    QCOMPARE(fileNames(VornFileHandler::getDirectoryContents(storages.path() + "/folder", {}, OLDEST_FIRST)),
             expected);
    QCOMPARE(capture.take(), QByteArray());
}

void TimeOrderTest::sameAsQDirInEveryTimeZone_data()
{
    QTest::addColumn<QByteArray>("zone");
    const auto row = [](const char *name, const QByteArray &zone) { QTest::newRow(name) << zone; };
    row("unset", QByteArray());
    row("utc", "UTC");
    row("st-johns", "America/St_Johns");
    row("london", "Europe/London");
    row("lord-howe", "Australia/Lord_Howe");
    row("london-with-leap-seconds", "right/Europe/London");
    row("posix-rule", "XYZ-3:17");
    row("posix-rule-with-summer-time", "GMT0BST,M3.5.0/1,M10.5.0");
}

void TimeOrderTest::sameAsQDirInEveryTimeZone()
{
    constexpr quint32 SEED = 20250227;
    QFETCH(QByteArray, zone);
    qInfo("seed %u", SEED);
    QRandomGenerator random(SEED);
    // tzset() is not called here: the library itself must notice the change.
    const EnvironmentVariable timeZone("TZ", zone);
    const QList<QStringList> filters = {{},    {"*.jpg"}, {"*.jpg", "*.mkv"}, {"DCF_*"},
                                        {"*"}, {"A["},    {"A[", "*.avi"},    {"?[0-9].*"}};
    for (int round = 0; round < 16; ++round) {
        const Storages storages;
        const QByteArray folder = QFile::encodeName(storages.path() + "/folder");
        const bool mixed = round % 2 != 0;
        if (round == 0)
            makeFileAtEachMoment(folder);
        else
            setRandomTimes(random,
                           randomFiles(random, folder, random.bounded(1, round < 12 ? 12 : 60), mixed));
        StandardErrorCapture capture;
        for (const QStringList &filter : filters) {
            const QStringList expected = described(literal::files(QDir(folder), filter, OLDEST_FIRST));
            QCOMPARE(described(VornFileHandler::getDirectoryContents(QString(folder), filter, OLDEST_FIRST)),
                     expected);
        }
        QCOMPARE(capture.take(), QByteArray());
    }
}

void TimeOrderTest::entriesKeepTheStateOfTheListing_data()
{
    QTest::addColumn<Tree>("names");
    const auto row = [](const char *name, const Tree &names) { QTest::newRow(name) << names; };
    row("several-files", {"a.jpg", "b.jpg", "c.jpg"});
    row("one-file", {"a.jpg"});
    row("name-outside-ascii", {"a.jpg", "\u00e4.jpg"});
    row("one-file-with-a-name-outside-ascii", {"\u00e4.jpg"});
}

void TimeOrderTest::entriesKeepTheStateOfTheListing()
{
    QFETCH(Tree, names);
    const Storages storages;
    const QByteArray folder = QFile::encodeName(storages.path() + "/folder/");
    for (const QByteArray &name : names)
        makeTree(folder, {name + " at 1000 = 12345"});
    StandardErrorCapture capture;
    const auto files = VornFileHandler::getDirectoryContents(QString(folder), {}, OLDEST_FIRST);
    QCOMPARE(files.size(), names.size());
    QVector<QDateTime> births;
    for (const QFileInfo &file : files)
        births.append(QFileInfo(file.filePath()).birthTime());
    for (const QByteArray &name : names)
        writeFile(folder + name, "longer than before");
    for (const QFileInfo &file : files) {
        QCOMPARE(file.size(), qint64(5));
        QCOMPARE(file.lastModified().toMSecsSinceEpoch(), qint64(1000000));
    }
    clearTree(folder);
    for (const QFileInfo &file : files) {
        QCOMPARE(::symlink("elsewhere", QFile::encodeName(file.filePath()).constData()), 0);
        QVERIFY(!file.isSymLink());
        QCOMPARE(file.size(), qint64(5));
        QCOMPARE(file.lastModified().toMSecsSinceEpoch(), qint64(1000000));
    }
    for (int i = 0; i < files.size(); ++i)
        QCOMPARE(files[i].birthTime(), births[i]);
    QCOMPARE(capture.take(), QByteArray());
}

void TimeOrderTest::otherOrdersReadTheStateLater()
{
    const Storages storages;
    const QByteArray folder = QFile::encodeName(storages.path() + "/folder/");
    makeTree(folder, {"a.jpg = 12345", "b.jpg = 12345"});
    StandardErrorCapture capture;
    const auto files = VornFileHandler::getDirectoryContents(QString(folder), {}, QDir::Name);
    writeFile(folder + "a.jpg", "longer than before");
    QCOMPARE(files.size(), 2);
    QCOMPARE(files.at(0).size(), qint64(18));
    QCOMPARE(capture.take(), QByteArray());
}

QTEST_GUILESS_MAIN(TimeOrderTest)
#include "tst_timeorder.moc"

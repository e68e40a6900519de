// SPDX-License-Identifier: MIT
#include "reference.h"
#include "testsupport.h"

#include <QTextCodec>
#include <QtTest>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

using namespace VORN_FILE_HANDLER;

namespace {

constexpr QDir::SortFlags OLDEST_FIRST = QDir::Time | QDir::Reversed;

/// The time zone of this process until the end of the scope; a null text for none. It is for the library to
/// notice the change: tzset() is not called here.
class TimeZone
{
public:
    explicit TimeZone(const QByteArray &zone) : mHad(qEnvironmentVariableIsSet("TZ")), mSaved(qgetenv("TZ"))
    {
        set(!zone.isNull(), zone);
    }
    ~TimeZone() { set(mHad, mSaved); }
    TimeZone(const TimeZone &) = delete;
    TimeZone &operator=(const TimeZone &) = delete;

private:
    static void set(bool present, const QByteArray &zone)
    {
        if (present)
            qputenv("TZ", zone);
        else
            qunsetenv("TZ");
    }

    bool mHad;
    QByteArray mSaved;
};

void setTime(const QByteArray &path, qint64 seconds, long nanoseconds)
{
    timespec times[2];
    times[0] = times[1] = {static_cast<time_t>(seconds), nanoseconds};
    QCOMPARE(::utimensat(AT_FDCWD, path.constData(), times, 0), 0);
}

/// All that a user of a listing may ask of its entries, in its order.
QStringList described(const QList<QFileInfo> &files)
{
    const auto text = [](const QDateTime &time) {
        // Not as milliseconds: which of the two hours at the end of summer time is meant, the C library
        // answers by what it was asked before.
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

/// Moments, in seconds, at which clocks are changed or Qt's reckoning changes its rules.
const QList<qint64> MOMENTS = {
    1635642000, 1616893200, // London, 2021, end and begin of summer time
    1636263000, 1615699800, // St John's
    1617462000, 1633190400, // Lord Howe: half an hour
    -34729200,  57722400,   // London in 1968 and 1971: no winter time between
    1483228826, 1483228800, // a leap second, in zones that count them and in those that do not
    0,          -1,          1, 2145916799, 2145916800, // end of 2037
    2147483647, 2147483648,                             // end of 32 bits
    4102444800, 13569465600,                            // 2100 and 2400
    2234998800, 2235002399,                             // London in 2040: no summer time in Qt
    -631152000, -1577923200,                            // 1950 and 1920
    1700000000,
};

const Tree PLAIN_NAMES = {"DCF_%1.jpg", "DCF_%1.mkv", "dcf_%1.jpg",    "%1.JPG",   "a%1.avi",  "A%1.avi",
                          "%1",         "x y%1.wav",  ".hidden%1.jpg", "a:%1.jpg", "a\n%1.jpg"};
const Tree OTHER_NAMES = {"\u00e4%1.jpg",
                          "\u00c4%1.jpg",
                          "\U0001F4F7%1.jpg",
                          "\uff61%1.jpg",
                          "\xff%1.jpg",
                          "\xef\xbb\xbf"
                          "DCF_%1.jpg",
                          "\xef\xbb\xbf"
                          "a%1.avi",
                          "%1.m\u212av",
                          "%1.\u017fpg"};

/// Up to @p count files with random names in @p folder; some of them go by names beyond ASCII if @p mixed.
Tree randomFiles(QRandomGenerator &random, const QByteArray &folder, int count, bool mixed)
{
    Tree paths;
    for (int i = 0; i < count; ++i) {
        const bool other = mixed && random.bounded(3) == 0;
        QByteArray name = Reference::oneOf(random, other ? OTHER_NAMES : PLAIN_NAMES);
        name.replace("%1", QByteArray::number(random.bounded(12)).rightJustified(2, '0'));
        const QByteArray path = folder + "/" + name;
        writeFile(path, QByteArray(random.bounded(9), 'x'));
        paths.append(path);
    }
    return paths;
}

/// A file at every moment, its second and its millisecond, and as many without a time.
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

/// Times close to a few moments, so that many are equal or differ by as much as a clock is changed.
void setRandomTimes(QRandomGenerator &random, const Tree &paths)
{
    static const QList<qint64> STEPS = {0, 0, 0, 1, -1, 1800, -1800, 3600, -3600, 3599, 7200, -5400, 86400};
    static const QList<long> PARTS = {0, 0, 0, 1, 999999, 1000000, 1000001, 500000000, 999000000, 999999999};
    QList<qint64> moments;
    for (int i = 1 + random.bounded(4); i > 0; --i)
        moments.append(Reference::oneOf(random, MOMENTS));
    for (const QByteArray &path : paths)
        setTime(path, Reference::oneOf(random, moments) + Reference::oneOf(random, STEPS),
                Reference::oneOf(random, PARTS));
}

} // namespace

class TimeOrderTest : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void order_data();
    void order();
    void sameAsQDirInEveryTimeZone_data();
    void sameAsQDirInEveryTimeZone();
    void entriesAnswerFromTheMomentOfTheListing_data();
    void entriesAnswerFromTheMomentOfTheListing();
    void otherOrdersReadWhenAsked();
};

void TimeOrderTest::initTestCase()
{
    QTextCodec::setCodecForLocale(QTextCodec::codecForName("UTF-8")); // of names, whatever the locale
}

void TimeOrderTest::order_data()
{
    using Times = QList<QPair<QByteArray, qint64>>;
    QTest::addColumn<QByteArray>("zone");
    QTest::addColumn<Times>("files"); // names and milliseconds
    QTest::addColumn<QStringList>("expected");
    const auto row = [](const char *name, const char *zone, const Times &files, const QStringList &expected) {
        QTest::newRow(name) << QByteArray(zone) << files << expected;
    };
    row("oldest-first", "UTC0", {{"a", 3000}, {"b", 1000}, {"c", 2000}}, {"b", "c", "a"});
    row("equal-times-in-descending-name-order", "UTC0", {{"a", 5000}, {"c", 5000}, {"b", 5000}},
        {"c", "b", "a"});
    row("equal-times-and-names-in-both-cases", "UTC0", {{"b", 5000}, {"A", 5000}, {"a", 5000}, {"B", 5000}},
        {"b", "a", "B", "A"});
    row("file-without-a-time-goes-by-its-name", "UTC0", {{"a", 0}, {"b", 5000}}, {"b", "a"});
    row("one-millisecond-apart", "UTC0", {{"a", 5001}, {"b", 5000}}, {"b", "a"});
    row("before-1970", "UTC0", {{"a", -1000}, {"b", 1000}, {"c", -2000}}, {"c", "a", "b"});
    row("beyond-2038", "UTC0", {{"a", 4102444800000}, {"b", 2145916800000}, {"c", 2147483648000}},
        {"b", "c", "a"});
    row("hour-that-summer-time-gives-back", "GMT0BST,M3.5.0/1,M10.5.0",
        {{"early", 1635638400000 + 1800000}, {"late", 1635642000000 + 600000}}, {"late", "early"});
    row("hour-that-summer-time-skips", "GMT0BST,M3.5.0/1,M10.5.0",
        {{"early", 1616893200000 - 1000}, {"late", 1616893200000 + 1000}}, {"early", "late"});
    row("the-same-without-summer-time", "UTC0",
        {{"early", 1635638400000 + 1800000}, {"late", 1635642000000 + 600000}}, {"early", "late"});
    row("byte-order-mark", "UTC0",
        {{"a", 1000},
         {"b", 2000},
         {"\xef\xbb\xbf"
          "a",
          3000}},
        {"a", "b", QString(QChar(0xFEFF)) + "a"});
    row("surrogate-pair-and-later-character", "UTC0", {{"\uff61", 1000}, {"\U0001F4F7", 1000}},
        {QString::fromUtf8("\uff61"), QString::fromUtf8("\U0001F4F7")});
}

void TimeOrderTest::order()
{
    using Times = QList<QPair<QByteArray, qint64>>;
    QFETCH(QByteArray, zone);
    QFETCH(Times, files);
    QFETCH(QStringList, expected);
    const Storages storages;
    const TimeZone timeZone(zone);
    for (const auto &file : files) {
        const QByteArray path = QFile::encodeName(storages.path() + "/folder/") + file.first;
        writeFile(path);
        setModified(path, file.second);
    }
    StandardErrorCapture capture;
    QCOMPARE(fileNames(VornFileHandler::getDirectoryContents(storages.path() + "/folder", {}, OLDEST_FIRST)),
             expected);
    QCOMPARE(capture.take(), QByteArray());
}

void TimeOrderTest::sameAsQDirInEveryTimeZone_data()
{
    QTest::addColumn<QByteArray>("zone");
    QTest::newRow("unset") << QByteArray();
    QTest::newRow("utc") << QByteArray("UTC");
    QTest::newRow("st-johns") << QByteArray("America/St_Johns");
    QTest::newRow("london") << QByteArray("Europe/London");
    QTest::newRow("lord-howe") << QByteArray("Australia/Lord_Howe");
    QTest::newRow("london-with-leap-seconds") << QByteArray("right/Europe/London");
    QTest::newRow("posix-text") << QByteArray("XYZ-3:17");
    QTest::newRow("posix-text-with-summer-time") << QByteArray("GMT0BST,M3.5.0/1,M10.5.0");
}

void TimeOrderTest::sameAsQDirInEveryTimeZone()
{
    constexpr quint32 SEED = 20250227;
    QFETCH(QByteArray, zone);
    qInfo("seed %u", SEED);
    QRandomGenerator random(SEED);
    const TimeZone timeZone(zone);
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
            QStringList expected;
            {
                const Reference::QuietQt quiet;
                expected = described(Reference::contents(QDir(folder), filter, OLDEST_FIRST));
            }
            QCOMPARE(described(VornFileHandler::getDirectoryContents(QString(folder), filter, OLDEST_FIRST)),
                     expected);
        }
        QCOMPARE(capture.take(), QByteArray());
    }
}

void TimeOrderTest::entriesAnswerFromTheMomentOfTheListing_data()
{
    QTest::addColumn<Tree>("names");
    QTest::newRow("several-files") << Tree{"a.jpg", "b.jpg", "c.jpg"};
    QTest::newRow("one-file") << Tree{"a.jpg"};
    QTest::newRow("name-beyond-ascii") << Tree{"a.jpg", "\u00e4.jpg"};
    QTest::newRow("one-file-with-a-name-beyond-ascii") << Tree{"\u00e4.jpg"};
}

void TimeOrderTest::entriesAnswerFromTheMomentOfTheListing()
{
    QFETCH(Tree, names);
    const Storages storages;
    const QByteArray folder = QFile::encodeName(storages.path() + "/folder/");
    for (const QByteArray &name : names) {
        writeFile(folder + name, "12345");
        setModified(folder + name, 1000000);
    }
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

void TimeOrderTest::otherOrdersReadWhenAsked()
{
    const Storages storages;
    const QByteArray folder = QFile::encodeName(storages.path() + "/folder/");
    writeFile(folder + "a.jpg", "12345");
    writeFile(folder + "b.jpg", "12345");
    StandardErrorCapture capture;
    const auto files = VornFileHandler::getDirectoryContents(QString(folder), {}, QDir::Name);
    writeFile(folder + "a.jpg", "longer than before");
    QCOMPARE(files.size(), 2);
    QCOMPARE(files.at(0).size(), qint64(18));
    QCOMPARE(capture.take(), QByteArray());
}

QTEST_GUILESS_MAIN(TimeOrderTest)
#include "tst_timeorder.moc"

// SPDX-License-Identifier: MIT
#include "toolsupport.h"

#include <QJsonArray>
#include <QJsonObject>
#include <QPair>
#include <QRegularExpression>
#include <QTest>
#include <QVector>

using namespace VORN_FILE_HANDLER;

using Listing = QJsonArray (*)();
Q_DECLARE_METATYPE(Listing)

class VornfhListTest : public QObject
{
    Q_OBJECT

private slots:
    void printsTables_data();
    void printsTables();
    void refusesWrongOptions_data();
    void refusesWrongOptions();
    void selectsAndSorts_data();
    void selectsAndSorts();
    void daysAreThoseOfTheLocalTime();
    void describesFiles_data();
    void describesFiles();
    void resultsAreInTheOrderOfTheLibrary();
    void jsonIsTheArrayOfTheLibrary_data();
    void jsonIsTheArrayOfTheLibrary();
    void printsFoldersAndCountsAsJson_data();
    void printsFoldersAndCountsAsJson();
    void listIsThatOfTheLibrary_data();
    void listIsThatOfTheLibrary();
    void printsAFolderBeforeItReadsTheNext();
    void marksProtectedFiles_data();
    void marksProtectedFiles();
    void escapesNames();
    void alignsWideNames_data();
    void alignsWideNames();
    void cutsRowsToTheTerminal_data();
    void cutsRowsToTheTerminal();
    void cutsFolderNamesToTheTerminal();
    void createsNothing_data();
    void createsNothing();
    void requiresALocation_data();
    void requiresALocation();
};

namespace {

/// Two numbered folders with media, another folder, and a file beside the folders. The files are modified
/// from 2025-02-25 14:00:00 on, a minute apart.
const Tree CARD = onCard({
    "100ABC/DCF_0002.jpg size 1023 at 1740492000",
    "100ABC/DCF_0001.avi size 1536 at 1740492060",
    "100ABC/DCF_0001.thumb size 10 at 1740492120",
    "100ABC/notes.txt at 1740492180",
    "101ABC/DCF_0001.png size 2048 at 1740492240",
    "101ABC/DCF_0002.mkv size 1048576 at 1740492300",
    "101ABC/DCF_0003.wav size 102400 at 1740492360",
    "holiday/clip.avi size 5 at 1740492420",
    "loose.jpg size 7 at 1740492480",
});

/// Names that the tool lists itself, and names that it leaves to the library.
const QByteArrayList ASCII_NAMES = {"DCF_%1.jpg", "dcf_%1.JPG", "DCF_%1.thumb",  "DCF_%1.png",
                                    "%1.avi",     "%1.Mkv",     "a \"b\\%1.wav", "a\n\t%1.jpg",
                                    "%1",         "x.y.%1.",    ".%1.jpg",       "\x7f%1.txt"};
const QByteArrayList OTHER_NAMES = {"\u00e4%1.jpg", "\U0001F4F7%1.png", "\xff%1.jpg", "%1.m\u212av"};

/// Before the first clock change of 2021 in London, in the hour that repeats, and outside the times that the
/// tool converts itself.
const QList<qint64> USUAL_TIMES = {1616893199000, 1635640200000, 1635642600000, 1635642600001, 1740492000000};
const QList<qint64> OTHER_TIMES = {0, -1000, 2145916800000, 2224152000000};

/// Creates up to thirty files with some of @p names and @p times in @p folder.
void makeRandomFiles(QRandomGenerator &random, const QByteArray &folder, const QByteArrayList &names,
                     const QList<qint64> &times)
{
    for (int i = random.bounded(10, 30); i > 0; --i) {
        const QByteArray number = QByteArray::number(random.bounded(5));
        const QByteArray path = folder + "/" + oneOf(random, names).replace("%1", number);
        writeFile(path, QByteArray(random.bounded(1200), 'x'));
        setModified(path, oneOf(random, times));
    }
}

/// Creates folders with files that the tool lists itself in @p location, and then folders with one name or
/// time that it leaves to the library.
void makeRandomFolders(QRandomGenerator &random, const QByteArray &location)
{
    for (const char *folder : {"100ABC", "101ABC", "1:2ABC", "\u00e4ABC", "other"})
        makeRandomFiles(random, location + "/" + folder, ASCII_NAMES, USUAL_TIMES);
    int number = 200;
    const auto next = [&] { return location + "/" + QByteArray::number(number++) + "ABC"; };
    for (const QByteArray &name : OTHER_NAMES)
        makeRandomFiles(random, next(), ASCII_NAMES + QByteArrayList{name}, USUAL_TIMES);
    for (const qint64 time : OTHER_TIMES)
        makeRandomFiles(random, next(), ASCII_NAMES, USUAL_TIMES + QList<qint64>{time});
}

/// The options of a list and the list of the library.
struct List {
    QByteArrayList options;
    std::function<QFileInfoList(eDIRECTORY_FILTER)> files;
};

const QVector<List> LISTS = {
    {{}, [](auto filter) { return VornFileHandler::getDirectoryContents(STORAGE_SD, filter); }},
    {{"--images"}, [](auto filter) { return VornFileHandler::getImageList(STORAGE_SD, false, filter); }},
    {{"--images", "--thumbs"},
     [](auto filter) { return VornFileHandler::getImageList(STORAGE_SD, true, filter); }},
    {{"--videos"}, [](auto filter) { return VornFileHandler::getVideoList(STORAGE_SD, filter); }},
    {{"--audio"}, [](auto filter) { return VornFileHandler::getAudioList(STORAGE_SD, filter); }},
};

const QVector<QPair<QByteArray, eDIRECTORY_FILTER>> FILTERS = {
    {"dcim", DIRECTORY_FILTER_DCIM}, {"other", DIRECTORY_FILTER_NON_DCIM}, {"all", anyFilter(0)}};

/// The rows of the table for @p files, with one space between the columns.
QByteArray rowsOf(const QFileInfoList &files)
{
    static const QMap<QString, QByteArray> LABELS = {{"jpg", "image"}, {"png", "image"}, {"avi", "avi"},
                                                     {"mkv", "mkv"},   {"wav", "wav"},   {"thumb", "thumb"}};
    QByteArray rows = "FILE TYPE SIZE MODIFIED\n";
    for (const QFileInfo &file : files) {
        QByteArray path = file.absoluteFilePath().remove(VornFileHandler::mSDLocation.path() + "/").toUtf8();
        path.replace('\n', "\\x0a").replace('\t', "\\x09").replace('\x7f', "\\x7f");
        const QByteArray size =
            file.size() < 1024 ? QByteArray::number(file.size()) + " B"
                               : QByteArray::number(static_cast<double>(file.size()) / 1024, 'f', 1) + " KiB";
        const QString time = file.lastModified().toString("yyyy-MM-dd HH:mm:ss");
        rows += path + " " + LABELS.value(file.suffix(), "other") + " " + size + " "
                + (time.isEmpty() ? "unknown" : time.toUtf8()) + "\n";
    }
    return rows;
}

QByteArray withSingleSpaces(const QByteArray &text)
{
    return QString(text).replace(QRegularExpression(" +"), " ").toUtf8();
}

const QByteArray EMPTY_TABLE = "FILE  TYPE  SIZE  MODIFIED\n";

} // namespace

void VornfhListTest::printsTables_data()
{
    QTest::addColumn<QByteArrayList>("arguments");
    QTest::addColumn<QByteArray>("out");
    const auto row = [](const char *name, const QByteArrayList &arguments, const QByteArray &out) {
        QTest::newRow(name) << arguments << out;
    };
    row("list", {"list", "sd"},
        "FILE                   TYPE      SIZE  MODIFIED\n"
        "100ABC/DCF_0002.jpg    image   1023 B  2025-02-25 14:00:00\n"
        "100ABC/DCF_0001.avi    avi    1.5 KiB  2025-02-25 14:01:00\n"
        "100ABC/DCF_0001.thumb  thumb     10 B  2025-02-25 14:02:00\n"
        "100ABC/notes.txt       other      0 B  2025-02-25 14:03:00\n"
        "101ABC/DCF_0001.png    image    2.0 KiB  2025-02-25 14:04:00\n"
        "101ABC/DCF_0002.mkv    mkv      1.0 MiB  2025-02-25 14:05:00\n"
        "101ABC/DCF_0003.wav    wav    100.0 KiB  2025-02-25 14:06:00\n");
    row("images", {"list", "--images", "sd"},
        "FILE                 TYPE     SIZE  MODIFIED\n"
        "100ABC/DCF_0002.jpg  image  1023 B  2025-02-25 14:00:00\n"
        "101ABC/DCF_0001.png  image  2.0 KiB  2025-02-25 14:04:00\n");
    row("images-and-thumbnails", {"list", "sd", "--images", "--thumbs"},
        "FILE                   TYPE     SIZE  MODIFIED\n"
        "100ABC/DCF_0002.jpg    image  1023 B  2025-02-25 14:00:00\n"
        "100ABC/DCF_0001.thumb  thumb    10 B  2025-02-25 14:02:00\n"
        "101ABC/DCF_0001.png    image  2.0 KiB  2025-02-25 14:04:00\n");
    row("videos-of-all-folders", {"list", "sd", "--videos", "--filter", "all"},
        "FILE                 TYPE     SIZE  MODIFIED\n"
        "100ABC/DCF_0001.avi  avi   1.5 KiB  2025-02-25 14:01:00\n"
        "101ABC/DCF_0002.mkv  mkv   1.0 MiB  2025-02-25 14:05:00\n"
        "holiday/clip.avi     avi       5 B  2025-02-25 14:07:00\n");
    row("audio-files", {"list", "sd", "--audio"},
        "FILE                 TYPE       SIZE  MODIFIED\n"
        "101ABC/DCF_0003.wav  wav   100.0 KiB  2025-02-25 14:06:00\n");
    row("files-of-other-folders", {"list", "sd", "--filter", "other"},
        "FILE              TYPE  SIZE  MODIFIED\n"
        "holiday/clip.avi  avi    5 B  2025-02-25 14:07:00\n");
    row("nothing-found", {"list", "sd", "--audio", "--filter", "other"}, EMPTY_TABLE);
    row("folders", {"folders", "sd"},
        "FOLDER  FILES     SIZE\n"
        "100ABC      4  2.5 KiB\n"
        "101ABC      3  1.1 MiB\n");
    row("all-folders", {"folders", "sd", "--filter", "all"},
        "FOLDER   FILES     SIZE\n"
        "100ABC       4  2.5 KiB\n"
        "101ABC       3  1.1 MiB\n"
        "holiday      1      5 B\n");
    row("other-folders", {"folders", "sd", "--filter", "other"},
        "FOLDER   FILES  SIZE\n"
        "holiday      1   5 B\n");
    row("count", {"count", "sd"}, "5\n");
}

void VornfhListTest::printsTables()
{
    QFETCH(QByteArrayList, arguments);
    QFETCH(QByteArray, out);
    const ToolRun tool;
    tool.make(CARD);
    const Tree before = treeWithContents(tool.path());
    QCOMPARE(tool.runOnStorages(arguments), tool.success(out));
    QCOMPARE(treeWithContents(tool.path()), before);
}

void VornfhListTest::refusesWrongOptions_data()
{
    QTest::addColumn<QByteArrayList>("options");
    QTest::addColumn<QByteArray>("message");
    const auto row = [](const QByteArray &name, const QByteArrayList &options, const QByteArray &message) {
        QTest::newRow(name) << options << message;
    };
    row("images-and-videos", {"--images", "--videos"}, "--images excludes --videos");
    row("videos-and-audio", {"--videos", "--audio"}, "--videos excludes --audio");
    row("videos-and-thumbnails", {"--videos", "--thumbs"}, "--thumbs requires --images");
    row("thumbnails-alone", {"--thumbs"}, "--thumbs requires --images");
    row("unknown-filter", {"--filter", "some"}, "--filter: some not in {dcim,other,all}");
    row("unknown-order", {"--sort", "age"}, "--sort: age not in {number,time,size,name}");
    for (const QByteArray number : {"0", "-5", "5-4", "5-x", "1-2-3", "10000", "5 "})
        row("number-" + number, {"--number=" + number},
            "--number: '" + number + "' is not a number from 1 to 9999 or a range such as 5-20 or 5-");
    for (const QByteArray option : {"--since", "--until"})
        row(option.mid(2), {option + "=2025-2-25"},
            option + ": '2025-2-25' is not a date such as 2025-02-25");
    row("json-and-json-lines", {"--json", "--jsonl"}, "--json excludes --jsonl");
    row("library-json-and-json", {"--library-json", "--json"}, "--json excludes --library-json");
}

void VornfhListTest::refusesWrongOptions()
{
    QFETCH(QByteArrayList, options);
    QFETCH(QByteArray, message);
    const ToolRun tool;
    QCOMPARE(tool.runOnStorages(QByteArrayList{"list", "sd"} + options), tool.usageError({message}));
}

void VornfhListTest::selectsAndSorts_data()
{
    QTest::addColumn<QByteArrayList>("options");
    QTest::addColumn<QStringList>("expected");
    const auto row = [](const char *name, const QByteArrayList &options, const QStringList &expected) {
        QTest::newRow(name) << options << expected;
    };
    const QStringList number1 = {"100ABC/DCF_0001.avi", "100ABC/DCF_0001.thumb", "101ABC/DCF_0001.png"};
    row("one-number", {"--number", "1"}, number1);
    row("range-of-one", {"--number", "1-1"}, number1);
    row("range", {"--number", "2-3"}, {"100ABC/DCF_0002.jpg", "101ABC/DCF_0002.mkv", "101ABC/DCF_0003.wav"});
    row("open-range", {"--number", "3-"}, {"101ABC/DCF_0003.wav"});
    row("no-such-number", {"--number", "9999"}, {});
    row("number-and-type", {"--number", "2", "--videos"}, {"101ABC/DCF_0002.mkv"});
    row("number-without-an-extension", {"--number", "4", "--filter", "all"}, {"99/DCF_0004"});
    row("since", {"--since", "2025-02-26"}, {"101ABC/DCF_0003.wav", "101ABC/\u00e4.jpg"});
    row("until", {"--until", "2025-02-24"}, {"100ABC/DCF_0001.avi"});
    row("one-day", {"--since", "2025-02-25", "--until", "2025-02-25"},
        {"100ABC/DCF_0002.jpg", "100ABC/DCF_0001.thumb", "100ABC/notes.txt", "101ABC/DCF_0002.mkv",
         "101ABC/DCF_0001.png"});
    row("no-day", {"--since", "2025-02-26", "--until", "2025-02-25"}, {});
    row("by-number", {"--sort", "number"},
        {"100ABC/DCF_0001.avi", "100ABC/DCF_0001.thumb", "100ABC/DCF_0002.jpg", "100ABC/notes.txt",
         "101ABC/DCF_0001.png", "101ABC/DCF_0002.mkv", "101ABC/DCF_0003.wav", "101ABC/\u00e4.jpg"});
    row("by-name", {"--sort", "name"},
        {"100ABC/DCF_0001.avi", "100ABC/DCF_0001.thumb", "100ABC/DCF_0002.jpg", "100ABC/notes.txt",
         "101ABC/DCF_0001.png", "101ABC/DCF_0002.mkv", "101ABC/DCF_0003.wav", "101ABC/\u00e4.jpg"});
    row("by-time", {"--sort", "time"},
        {"100ABC/DCF_0001.avi", "101ABC/DCF_0002.mkv", "100ABC/DCF_0002.jpg", "101ABC/DCF_0001.png",
         "100ABC/DCF_0001.thumb", "100ABC/notes.txt", "101ABC/DCF_0003.wav", "101ABC/\u00e4.jpg"});
    row("by-size", {"--sort", "size"},
        {"100ABC/notes.txt", "101ABC/DCF_0003.wav", "100ABC/DCF_0001.avi", "101ABC/DCF_0001.png",
         "100ABC/DCF_0002.jpg", "100ABC/DCF_0001.thumb", "101ABC/\u00e4.jpg", "101ABC/DCF_0002.mkv"});
    row("images-by-time", {"--sort", "time", "--images"},
        {"100ABC/DCF_0002.jpg", "101ABC/DCF_0001.png", "101ABC/\u00e4.jpg"});
    row("by-number-in-all-folders", {"--sort", "number", "--filter", "all", "--videos"},
        {"100ABC/DCF_0001.avi", "101ABC/DCF_0002.mkv", "99/DCF_0001.avi"});
}

/// The library lists the files in 101ABC, because of a name outside ASCII.
void VornfhListTest::selectsAndSorts()
{
    QFETCH(QByteArrayList, options);
    QFETCH(QStringList, expected);
    const ToolRun tool;
    tool.make(onCard({
        "100ABC/DCF_0001.avi size 4 at 1740441599", // 2025-02-24 23:59:59
        "100ABC/DCF_0001.thumb size 7 at 1740510000",
        "100ABC/DCF_0002.jpg size 6 at 1740492000",
        "100ABC/notes.txt at 1740527999", // 2025-02-25 23:59:59
        "101ABC/DCF_0001.png size 5 at 1740492001",
        "101ABC/DCF_0002.mkv size 9 at 1740441600", // 2025-02-25 00:00:00
        "101ABC/DCF_0003.wav size 3 at 1740528000", // 2025-02-26 00:00:00
        "101ABC/\u00e4.jpg size 8 at 1740528001",
        "99/DCF_0001.avi size 1 at 1740492002",
        "99/DCF_0004 size 2 at 1740492003",
    }));
    const QByteArrayList list = QByteArrayList{"list", "sd"} + options;
    const auto pathsIn = [&tool](const QByteArray &text) {
        QStringList paths;
        for (const QJsonValue file : QJsonDocument::fromJson(text).array())
            paths.append(file["path"].toString().mid(tool.sd().size() + 1));
        return paths;
    };
    QCOMPARE(pathsIn(tool.runOnStorages(list + QByteArrayList{"--json"}).out), expected);

    QByteArray lines = tool.runOnStorages(list + QByteArrayList{"--jsonl"}).out.trimmed();
    QCOMPARE(pathsIn("[" + lines.replace('\n', ',') + "]"), expected);

    QStringList rows = QString::fromUtf8(tool.runOnStorages(list).out).split('\n', Qt::SkipEmptyParts);
    rows.removeFirst(); // the heading
    for (QString &row : rows)
        row = row.section(' ', 0, 0);
    QCOMPARE(rows, expected);

    QStringList names;
    for (const QJsonValue file : tool.runOnStorages(list + QByteArrayList{"--library-json"}).json().array())
        names.append(file["filename"].toString());
    QCOMPARE(names, expected);
}

void VornfhListTest::daysAreThoseOfTheLocalTime()
{
    ToolRun tool;
    tool.environment.insert("TZ", "Asia/Kathmandu");                                 // 5:45 hours ahead
    tool.make(onCard({"100ABC/a.jpg at 1740420899", "100ABC/b.jpg at 1740420900"})); // 2025-02-24 18:15 UTC
    const QByteArrayList list = {"list", "sd", "--jsonl"};
    const Outcome since = tool.runOnStorages(list + QByteArrayList{"--since", "2025-02-25"});
    QCOMPARE(since.json()["path"].toString(), tool.sd() + "/100ABC/b.jpg");
    QCOMPARE(since.json()["modified"].toString(), QString("2025-02-25T00:00:00.000+05:45"));
    const Outcome until = tool.runOnStorages(list + QByteArrayList{"--until", "2025-02-24"});
    QCOMPARE(until.json()["path"].toString(), tool.sd() + "/100ABC/a.jpg");
    QCOMPARE(until.json()["modified"].toString(), QString("2025-02-24T23:59:59.000+05:45"));
}

void VornfhListTest::describesFiles_data()
{
    QTest::addColumn<QByteArray>("file");
    QTest::addColumn<QJsonObject>("expected");
    const auto row = [](const char *name, const QByteArray &file, const QJsonObject &expected) {
        QTest::newRow(name) << file << expected;
    };
    const QJsonObject audio = {{"folder", "100ABC"}, {"number", 12},
                               {"type", "wav"},      {"size", 5},
                               {"thumbnail", {}},    {"modified", "2025-02-25T14:00:00.000Z"},
                               {"protected", false}};
    const auto with = [](QJsonObject object, const char *key, const QJsonValue &value) {
        object[key] = value;
        return object;
    };
    row("audio", "100ABC/DCF_0012.wav", audio);
    row("photo-with-a-thumbnail", "100ABC/DCF_0001.jpg",
        {{"number", 1}, {"type", "jpg"}, {"thumbnail", "@/sd/DCIM/100ABC/DCF_0001.thumb"}});
    row("thumbnail", "100ABC/DCF_0001.thumb", {{"number", 1}, {"type", "thumb"}, {"thumbnail", {}}});
    row("photo-without-a-thumbnail", "100ABC/DCF_0012.png", with(with(audio, "type", "png"), "size", 6));
    row("audio-beside-a-thumbnail", "100ABC/DCF_0001.wav", {{"type", "wav"}, {"thumbnail", {}}});
    row("other-name", "100ABC/DCF_12.jpg", {{"number", {}}, {"type", "jpg"}});
    row("other-type", "100ABC/DCF_0012.txt", {{"number", 12}, {"type", "other"}});
    row("extension-in-capitals", "100ABC/DCF_0012.JPG", {{"number", 12}, {"type", "other"}});
    row("control-characters", "100ABC/a\"\\\x1b.jpg", {{"number", {}}, {"type", "jpg"}});
    row("outside-ascii", "101ABC/\u00e4.jpg",
        {{"folder", "101ABC"},
         {"number", {}},
         {"size", 1},
         {"thumbnail", "@/sd/DCIM/101ABC/\u00e4.thumb"},
         {"modified", "2025-02-25T14:00:00.000Z"},
         {"protected", false}});
    row("before-1970", "102ABC/a.jpg", {{"modified", "1969-12-31T23:59:59.000Z"}});
}

void VornfhListTest::describesFiles()
{
    QFETCH(QByteArray, file);
    QFETCH(QJsonObject, expected);
    const ToolRun tool;
    tool.make(
        onCard({"100ABC/DCF_0001.jpg = x", "100ABC/DCF_0001.thumb = x", "100ABC/DCF_0001.wav = x",
                "100ABC/DCF_0012.wav size 5 at 1740492000", "100ABC/DCF_0012.png size 6 at 1740492000",
                "100ABC/DCF_12.jpg", "100ABC/DCF_0012.txt", "100ABC/DCF_0012.JPG", "100ABC/a\"\\\x1b.jpg",
                "101ABC/\u00e4.jpg size 1 at 1740492000", "101ABC/\u00e4.thumb", "102ABC/a.jpg at -1"}));
    const QString path = tool.sd() + "/" + QString::fromUtf8(file);
    QJsonObject found;
    for (const QJsonValue one : tool.runOnStorages({"list", "sd", "--json"}).json().array()) {
        if (one["path"].toString() == path)
            found = one.toObject();
    }
    QCOMPARE(found.keys(), (QStringList{"created", "folder", "modified", "number", "path", "protected",
                                        "size", "thumbnail", "type"}));
    QVERIFY(QDateTime::fromString(found["created"].toString(), Qt::ISODateWithMs).isValid());
    expected = QJsonDocument::fromJson(tool.expand(QJsonDocument(expected).toJson())).object();
    for (const QString &key : expected.keys())
        QCOMPARE(found[key], expected[key]);
}

/// A random tree.
void VornfhListTest::resultsAreInTheOrderOfTheLibrary()
{
    QRandomGenerator random(20250301);
    ToolRun tool;
    makeRandomFolders(random, QFile::encodeName(tool.sd()));
    for (const List &list : LISTS) {
        const QByteArrayList command = QByteArrayList{"list", "sd", "--filter", "all"} + list.options;
        QStringList expected;
        for (const QJsonValue file :
             tool.runOnStorages(command + QByteArrayList{"--library-json"}).json().array())
            expected.append(tool.sd() + "/" + file["filename"].toString());
        QStringList found;
        for (const QJsonValue file : tool.runOnStorages(command + QByteArrayList{"--json"}).json().array())
            found.append(file["path"].toString());
        QCOMPARE(found, expected);
    }
}

void VornfhListTest::jsonIsTheArrayOfTheLibrary_data()
{
    QTest::addColumn<QByteArrayList>("options");
    QTest::addColumn<Listing>("expected");
    const auto row = [](const char *name, const QByteArrayList &options, Listing expected) {
        QTest::newRow(name) << options << expected;
    };
    row("all", {}, [] { return VornFileHandler::getJSONDirectoryContents(STORAGE_SD); });
    row("images", {"--images"}, [] { return VornFileHandler::getJSONImageList(STORAGE_SD, false); });
    row("images-and-thumbnails", {"--images", "--thumbs"},
        [] { return VornFileHandler::getJSONImageList(STORAGE_SD, true); });
    row("videos", {"--videos"}, [] { return VornFileHandler::getJSONVideoList(STORAGE_SD); });
    row("audio-files", {"--audio"}, [] { return VornFileHandler::getJSONAudioList(STORAGE_SD); });
    row("files-of-other-folders", {"--filter", "other"}, [] {
        return VornFileHandler::getJsonFileList(
            STORAGE_SD, VornFileHandler::getDirectoryContents(STORAGE_SD, DIRECTORY_FILTER_NON_DCIM));
    });
}

void VornfhListTest::jsonIsTheArrayOfTheLibrary()
{
    QFETCH(QByteArrayList, options);
    QFETCH(Listing, expected);
    ToolRun tool;
    tool.environment.remove("TZ"); // the tool prints dates in the time zone of this process
    if (qEnvironmentVariableIsSet("TZ"))
        tool.environment.insert("TZ", qEnvironmentVariable("TZ"));
    tool.make(CARD);
    const Outcome outcome = tool.runOnStorages(QByteArrayList{"list", "sd", "--library-json"} + options);
    QCOMPARE(outcome.exitCode, 0);

    const Storages restoring; // its destructor resets the library
    const StandardErrorCapture banner;
    VornFileHandler::init("ABC", "/dev/null/x", "", tool.sd(), "", "/dev/null/x", "");
    const QJsonArray array = expected();
    QVERIFY(!array.isEmpty());
    QCOMPARE(outcome.json().array(), array);
}

void VornfhListTest::printsFoldersAndCountsAsJson_data()
{
    QTest::addColumn<QByteArrayList>("arguments");
    QTest::addColumn<QJsonDocument>("expected");
    const auto row = [](const char *name, const QByteArrayList &arguments, const QJsonDocument &expected) {
        QTest::newRow(name) << arguments << expected;
    };
    const auto folder = [](const QString &name, int files, int size, int mediaCount) {
        return QJsonObject{{"name", name},
                           {"path", "@/sd/DCIM/" + name},
                           {"files", files},
                           {"size", size},
                           {"mediaCount", mediaCount}};
    };
    const QJsonObject first = folder("100ABC", 4, 1023 + 1536 + 10, 2);
    const QJsonObject second = folder("101ABC", 3, 2048 + 1048576 + 102400, 3);
    row("folders", {"folders", "sd"}, QJsonDocument(QJsonArray{first, second}));
    row("other-folders", {"folders", "sd", "--filter", "other"},
        QJsonDocument(QJsonArray{folder("holiday", 1, 5, 1)}));
    row("count", {"count", "sd"},
        QJsonDocument(QJsonObject{{"images", 2}, {"videos", 2}, {"sounds", 1}, {"total", 5}}));
}

void VornfhListTest::printsFoldersAndCountsAsJson()
{
    QFETCH(QByteArrayList, arguments);
    QFETCH(QJsonDocument, expected);
    const ToolRun tool;
    tool.make(CARD);
    const Outcome outcome = tool.runOnStorages(arguments + QByteArrayList{"--json"});
    QCOMPARE(outcome.exitCode, 0);
    QCOMPARE(outcome.err, QByteArray());
    QCOMPARE(outcome.json(), QJsonDocument::fromJson(tool.expand(expected.toJson())));
}

void VornfhListTest::listIsThatOfTheLibrary_data()
{
    QTest::addColumn<QByteArray>("zone");
    QTest::addColumn<QByteArray>("suffix");
    const auto row = [](const char *name, const QByteArray &zone, const QByteArray &suffix) {
        QTest::newRow(name) << zone << suffix;
    };
    row("utc", "UTC", "ABC");
    row("zone-with-summer-time", "Europe/London", "ABC");
    row("zone-with-leap-seconds", "right/Europe/London", "ABC");
    row("no-zone", QByteArray(), "ABC");
    row("no-suffix", "UTC", "");
}

/// A random tree.
void VornfhListTest::listIsThatOfTheLibrary()
{
    constexpr quint32 SEED = 20250228;
    QFETCH(QByteArray, zone);
    QFETCH(QByteArray, suffix);
    qInfo("seed %u", SEED);
    QRandomGenerator random(SEED);
    const EnvironmentVariable timeZone("TZ", zone);
    ToolRun tool;
    tool.environment.remove("TZ");
    if (!zone.isNull())
        tool.environment.insert("TZ", zone);
    tool.make({"sd/DCIM/100ABC/folder.jpg/", "sd/DCIM/100ABC/link.jpg -> folder.jpg"});
    makeRandomFolders(random, QFile::encodeName(tool.sd()));
    const Storages restoring; // its destructor resets the library
    const StandardErrorCapture banner;
    VornFileHandler::init(suffix, "/dev/null/x", "", tool.sd(), "", "/dev/null/x", "");
    for (const List &list : LISTS) {
        for (const auto &filter : FILTERS) {
            const QByteArrayList command = QByteArrayList{"--suffix", suffix, "--sd",     "@/sd/DCIM",
                                                          "list",     "sd",   "--filter", filter.first}
                                           + list.options;
            const QFileInfoList files = list.files(filter.second);
            const QJsonDocument json(VornFileHandler::getJsonFileList(STORAGE_SD, files));
            QCOMPARE(tool.run(command + QByteArrayList{"--library-json"}), tool.success(json.toJson()));
            const Outcome table = tool.run(command);
            QCOMPARE(withSingleSpaces(table.out), withSingleSpaces(rowsOf(files)));
            QCOMPARE(table.err, QByteArray());
        }
    }
}

void VornfhListTest::printsAFolderBeforeItReadsTheNext()
{
    const ToolRun tool;
    Tree entries = {"101ABC/"};
    for (int i = 0; i < 500; ++i) // more than a pipe holds, so the tool waits for the reader
        entries.append("100ABC/" + QByteArray::number(i).rightJustified(200, '0') + ".jpg");
    tool.make(onCard(entries));
    for (const QString option : {"", "--json", "--jsonl", "--library-json"}) {
        const QString list = "'" + ToolRun::toolPath() + "' --suffix ABC --sd sd/DCIM list sd " + option;
        const Outcome outcome =
            tool.runProgram("/bin/sh", {"-c", "rm -f sd/DCIM/101ABC/*; " + list
                                                  + " | { read line; touch sd/DCIM/101ABC/new.jpg; cat; }"});
        QCOMPARE(outcome.exitCode, 0);
        QVERIFY(outcome.out.contains("101ABC/new.jpg"));
    }
}

void VornfhListTest::marksProtectedFiles_data()
{
    QTest::addColumn<QByteArrayList>("marked"); // the files without write permission
    QTest::addColumn<QByteArrayList>("options");
    QTest::addColumn<QStringList>("shown"); // the files that are shown as protected
    const auto row = [](const char *name, const QByteArrayList &marked, const QByteArrayList &options,
                        const QStringList &shown) { QTest::newRow(name) << marked << options << shown; };
    const QStringList object = {"100ABC/DCF_0001.avi", "100ABC/DCF_0001.thumb"};
    row("none", {}, {}, {});
    row("recording", {"100ABC/DCF_0001.avi"}, {}, object);
    row("thumbnail", {"100ABC/DCF_0001.thumb"}, {}, object);
    row("whole-object", {"100ABC/DCF_0001.avi", "100ABC/DCF_0001.thumb"}, {}, object);
    row("thumbnail-that-is-not-listed", {"100ABC/DCF_0001.thumb"}, {"--videos"}, {"100ABC/DCF_0001.avi"});
    row("other-type-that-is-not-listed", {"100ABC/DCF_0001.avi"}, {"--audio"}, {});
    row("other-file", {"100ABC/notes.txt"}, {}, {"100ABC/notes.txt"});
    row("file-in-another-folder", {"holiday/clip.avi"}, {"--filter", "all"}, {"holiday/clip.avi"});
    row("same-number-in-another-folder", {"101ABC/DCF_0001.png"}, {}, {"101ABC/DCF_0001.png"});
    // The library lists folders with such names.
    row("name-outside-ascii", {"102ABC/\u00e4.jpg"}, {}, {"102ABC/\u00e4.jpg", "102ABC/\u00e4.thumb"});
    row("name-outside-ascii-that-is-not-listed", {"102ABC/\u00e4.thumb"}, {"--images"},
        {"102ABC/\u00e4.jpg"});
}

void VornfhListTest::marksProtectedFiles()
{
    QFETCH(QByteArrayList, marked);
    QFETCH(QByteArrayList, options);
    QFETCH(QStringList, shown);
    const ToolRun tool;
    tool.make(CARD + onCard({"102ABC/\u00e4.jpg = x", "102ABC/\u00e4.thumb = x"}));
    for (const QByteArray &file : marked)
        setMode(tool, "sd/DCIM/" + file, 0444);
    const QByteArrayList list = QByteArrayList{"list", "sd"} + options;
    QStringList inTable;
    for (const QByteArray &line : tool.runOnStorages(list).out.split('\n')) {
        if (line.endsWith("  protected"))
            inTable.append(QString::fromUtf8(line.left(line.indexOf("  "))));
        else
            QVERIFY2(!line.contains("protected"), line.constData());
    }
    inTable.sort();
    QCOMPARE(inTable, shown);
    QVERIFY(!tool.runOnStorages(list + QByteArrayList{"--library-json"}).out.contains("protected"));
    QStringList inResults;
    for (const QJsonValue file : tool.runOnStorages(list + QByteArrayList{"--json"}).json().array()) {
        if (file["protected"].toBool())
            inResults.append(file["path"].toString().mid(tool.sd().size() + 1));
    }
    inResults.sort();
    QCOMPARE(inResults, shown);
}

void VornfhListTest::escapesNames()
{
    const ToolRun tool;
    const QByteArray rightToLeft = QString(QChar(0x202e)).toUtf8();
    tool.make(onCard({"100ABC/a\x1b[2J\n" + rightToLeft + ".jpg at 1740492000 = x"}));
    QCOMPARE(tool.runOnStorages({"list", "sd"}),
             tool.success("FILE                           TYPE   SIZE  MODIFIED\n"
                          "100ABC/a\\x1b[2J\\x0a\\u202e.jpg  image   1 B  2025-02-25 14:00:00\n"));
}

void VornfhListTest::alignsWideNames_data()
{
    QTest::addColumn<QByteArray>("name");
    QTest::addColumn<int>("cells");
    const auto row = [](const char *situation, const char *name, int cells) {
        QTest::newRow(situation) << QByteArray(name) << cells;
    };
    row("ascii", "a.jpg", 5);
    row("letter-with-an-accent", "\u00e4.jpg", 5);
    row("combining-accent", "a\u0308.jpg", 5);
    row("enclosing-mark", "1\u20e3.jpg", 5);
    row("thai-vowel-mark", "\u0e01\u0e35.jpg", 5);
    row("cyrillic", "\u0444\u043e\u0442\u043e.jpg", 8);
    row("chinese", "\u5199\u771f.jpg", 8);
    row("chinese-beyond-the-first-plane", "\U00020000.jpg", 6);
    row("japanese-voiced-mark", "\u304b\u3099.jpg", 6);
    row("korean", "\uc0ac\uc9c4.jpg", 8);
    row("korean-in-letters", "\u1109\u1161\u110c\u1175\u11ab.jpg", 8);
    row("full-width-letter", "\uff21.jpg", 6);
    row("half-width-katakana", "\uff71.jpg", 5);
    row("emoji", "\U0001F4F7.jpg", 6);
    row("emoji-of-the-first-plane", "\u231a.jpg", 6);
    row("emoji-with-a-skin-tone", "\U0001F44D\U0001F3FD.jpg", 8);
    row("flag", "\U0001F1E9\U0001F1EA.jpg", 6);
    row("character-with-a-variation-selector", "\u2764\ufe0f.jpg", 5);
}

void VornfhListTest::alignsWideNames()
{
    QFETCH(QByteArray, name);
    QFETCH(int, cells);
    const ToolRun tool;
    tool.make(onCard({"100ABC/" + name + " at 1740492000 = x", "100ABC/b.jpg at 1740492000 = x"}));
    const int width = 7 + cells; // with the folder
    const QByteArray rest = "  image   1 B  2025-02-25 14:00:00";
    const QByteArrayList lines = tool.runOnStorages({"list", "sd"}).out.split('\n');
    QVERIFY(lines.contains("FILE" + QByteArray(width - 4, ' ') + "  TYPE   SIZE  MODIFIED"));
    QVERIFY2(lines.contains("100ABC/" + name + rest), lines.join('\n').constData());
    QVERIFY2(lines.contains("100ABC/b.jpg" + QByteArray(width - 12, ' ') + rest),
             lines.join('\n').constData());
}

void VornfhListTest::cutsRowsToTheTerminal_data()
{
    QTest::addColumn<int>("terminal"); // its width, 0 if it is unknown, -1 for a pipe
    QTest::addColumn<QString>("columns");
    QTest::addColumn<QByteArray>("name");
    QTest::addColumn<QByteArray>("line");
    const auto row = [](const char *situation, int terminal, const QString &columns, const QByteArray &given,
                        const QByteArray &line) {
        QTest::newRow(situation) << terminal << columns << given << line;
    };
    const QByteArray name = QByteArray(29, 'x') + ".jpg";
    const QByteArray chinese = QByteArray("\u5199").repeated(16);
    const QByteArray rest = "  image   1 B  2025-02-25 14:00:00";
    const QByteArray full = "100ABC/" + name + rest;
    row("wide", 80, "", name, full);
    row("exact", 74, "", name, full);
    row("one-too-narrow", 73, "", name, "100ABC/" + QByteArray(29, 'x') + ".j…" + rest);
    row("narrow", 50, "", name, "100ABC/xxxxxxxx…" + rest);
    row("shortest-name", 42, "", name, "100ABC/…" + rest);
    row("cut-after-the-name", 41, "", name, "100ABC/…  image   1 B  2025-02-25 14:00:…");
    row("very-narrow", 10, "", name, "100ABC/… …");
    row("one-column", 1, "", name, "…");
    row("unknown-width", 0, "", name, full);
    row("columns-is-smaller", 80, "50", name, "100ABC/xxxxxxxx…" + rest);
    row("columns-is-larger", 50, "80", name, full);
    row("columns-with-unknown-width", 0, "50", name, "100ABC/xxxxxxxx…" + rest);
    row("columns-is-not-a-number", 50, "wide", name, "100ABC/xxxxxxxx…" + rest);
    row("columns-is-zero", 50, "0", name, "100ABC/xxxxxxxx…" + rest);
    row("pipe", -1, "", name, full);
    row("pipe-with-columns", -1, "50", name, full);
    row("wide-characters", 50, "", chinese + ".jpg", "100ABC/" + chinese.left(12) + "…" + rest);
    row("wide-character-does-not-fit", 49, "", chinese + ".jpg", "100ABC/" + chinese.left(9) + "… " + rest);
    row("combining-character-at-the-end", 50, "", "xxxxxxxa\u0308xxxxxxxxxxxx.jpg",
        "100ABC/xxxxxxxa\u0308…" + rest);
}

void VornfhListTest::cutsRowsToTheTerminal()
{
    QFETCH(int, terminal);
    QFETCH(QString, columns);
    QFETCH(QByteArray, name);
    QFETCH(QByteArray, line);
    ToolRun tool;
    tool.environment.insert("COLUMNS", columns);
    tool.make(onCard({"100ABC/" + name + " at 1740492000 = x"}));
    const QByteArrayList command = {"list", "sd"};
    Outcome outcome = terminal < 0 ? tool.runOnStorages(command) : tool.runOnTerminal(command, "", terminal);
    QCOMPARE(outcome.exitCode, 0);
    QCOMPARE(outcome.out.replace("\r\n", "\n").split('\n').value(1), line);
}

void VornfhListTest::cutsFolderNamesToTheTerminal()
{
    const ToolRun tool;
    tool.make(onCard({"100ABC/", "a-long-name-of-a-folder/"}));
    QCOMPARE(tool.runOnTerminal({"folders", "sd", "--filter", "all"}, "", 25).out,
             QByteArray("FOLDER        FILES  SIZE\r\n"
                        "100ABC            0   0 B\r\n"
                        "a-long-name…      0   0 B\r\n"));
}

void VornfhListTest::createsNothing_data()
{
    QTest::addColumn<Tree>("entries");
    QTest::addColumn<QByteArrayList>("command");
    QTest::addColumn<QByteArray>("out");
    const auto row = [](const char *name, const Tree &entries, const QByteArrayList &command,
                        const char *out) { QTest::newRow(name) << entries << command << QByteArray(out); };
    const QByteArray folders = "FOLDER  FILES  SIZE\n";
    const Tree onlyOthers = onCard({"MISC/a.jpg = x", "b.jpg"});
    row("list-empty-location", onCard({}), {"list", "sd"}, EMPTY_TABLE);
    row("list-other-folders", onlyOthers, {"list", "sd", "--videos"}, EMPTY_TABLE);
    row("list-json", onlyOthers, {"list", "sd", "--json"}, "[\n]\n");
    row("list-json-lines", onlyOthers, {"list", "sd", "--jsonl"}, "");
    row("list-library-json", onlyOthers, {"list", "sd", "--library-json"}, "[\n]\n");
    row("list-sorted", onlyOthers, {"list", "sd", "--sort", "size"}, EMPTY_TABLE);
    row("folders-empty-location", onCard({}), {"folders", "sd"}, folders);
    row("folders-other-folders", onlyOthers, {"folders", "sd"}, folders);
    row("folders-all", onlyOthers, {"folders", "sd", "--filter", "all"}, folders + "MISC        1   1 B\n");
    row("count", onlyOthers, {"count", "sd"}, "0\n");
    row("count-json", onlyOthers, {"count", "sd", "--json"},
        "{\n    \"images\": 0,\n    \"sounds\": 0,\n    \"total\": 0,\n    \"videos\": 0\n}\n");
}

void VornfhListTest::createsNothing()
{
    QFETCH(Tree, entries);
    QFETCH(QByteArrayList, command);
    QFETCH(QByteArray, out);
    const ToolRun tool;
    tool.make(entries);
    const Tree before = treeWithContents(tool.path());
    QCOMPARE(tool.runOnStorages(command), tool.success(out));
    QCOMPARE(treeWithContents(tool.path()), before);
}

void VornfhListTest::requiresALocation_data()
{
    QTest::addColumn<Tree>("entries");
    QTest::addColumn<QByteArray>("message");
    const auto row = [](const char *name, const Tree &entries, const char *message) {
        QTest::newRow(name) << entries << QByteArray(message);
    };
    row("missing", {}, "@/sd/DCIM: does not exist");
    row("file-in-its-place", {"sd/DCIM = a file"}, "@/sd/DCIM: is not a folder");
    row("file-in-place-of-its-parent", {"sd = a file"}, "@/sd/DCIM: Not a directory");
}

void VornfhListTest::requiresALocation()
{
    QFETCH(Tree, entries);
    QFETCH(QByteArray, message);
    const ToolRun tool;
    tool.make(entries);
    const Tree before = treeWithContents(tool.path());
    for (const QByteArray command : {"list", "folders", "count"})
        QCOMPARE(tool.runOnStorages({command, "sd"}), tool.failure({message}));
    QCOMPARE(treeWithContents(tool.path()), before);
}

QTEST_GUILESS_MAIN(VornfhListTest)
#include "tst_vornfh_list.moc"

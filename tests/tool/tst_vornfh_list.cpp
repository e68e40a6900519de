// SPDX-License-Identifier: MIT
#include "toolsupport.h"

#include <QJsonArray>
#include <QJsonObject>
#include <QTest>

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
    void jsonIsTheArrayOfTheLibrary_data();
    void jsonIsTheArrayOfTheLibrary();
    void printsFoldersAndCountsAsJson_data();
    void printsFoldersAndCountsAsJson();
    void escapesNames();
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
        "FILE                   TYPE        SIZE  MODIFIED\n"
        "100ABC/DCF_0002.jpg    image     1023 B  2025-02-25 14:00:00\n"
        "100ABC/DCF_0001.avi    avi      1.5 KiB  2025-02-25 14:01:00\n"
        "100ABC/DCF_0001.thumb  thumb       10 B  2025-02-25 14:02:00\n"
        "100ABC/notes.txt       other        0 B  2025-02-25 14:03:00\n"
        "101ABC/DCF_0001.png    image    2.0 KiB  2025-02-25 14:04:00\n"
        "101ABC/DCF_0002.mkv    mkv      1.0 MiB  2025-02-25 14:05:00\n"
        "101ABC/DCF_0003.wav    wav    100.0 KiB  2025-02-25 14:06:00\n");
    row("images", {"list", "--images", "sd"},
        "FILE                 TYPE      SIZE  MODIFIED\n"
        "100ABC/DCF_0002.jpg  image   1023 B  2025-02-25 14:00:00\n"
        "101ABC/DCF_0001.png  image  2.0 KiB  2025-02-25 14:04:00\n");
    row("images-and-thumbnails", {"list", "sd", "--images", "--thumbs"},
        "FILE                   TYPE      SIZE  MODIFIED\n"
        "100ABC/DCF_0002.jpg    image   1023 B  2025-02-25 14:00:00\n"
        "100ABC/DCF_0001.thumb  thumb     10 B  2025-02-25 14:02:00\n"
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
    const auto row = [](const char *name, const QByteArrayList &options, const char *message) {
        QTest::newRow(name) << options << QByteArray(message);
    };
    row("images-and-videos", {"--images", "--videos"}, "--images excludes --videos");
    row("videos-and-audio", {"--videos", "--audio"}, "--videos excludes --audio");
    row("videos-and-thumbnails", {"--videos", "--thumbs"}, "--thumbs requires --images");
    row("thumbnails-alone", {"--thumbs"}, "--thumbs requires --images");
    row("unknown-filter", {"--filter", "some"}, "--filter: some not in {dcim,other,all}");
}

void VornfhListTest::refusesWrongOptions()
{
    QFETCH(QByteArrayList, options);
    QFETCH(QByteArray, message);
    const ToolRun tool;
    QCOMPARE(tool.runOnStorages(QByteArrayList{"list", "sd"} + options), tool.usageError({message}));
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
    const Outcome outcome = tool.runOnStorages(QByteArrayList{"list", "sd", "--json"} + options);
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

void VornfhListTest::escapesNames()
{
    const ToolRun tool;
    const QByteArray rightToLeft = QString(QChar(0x202e)).toUtf8();
    tool.make(onCard({"100ABC/a\x1b[2J\n" + rightToLeft + ".jpg at 1740492000 = x"}));
    QCOMPARE(tool.runOnStorages({"list", "sd"}),
             tool.success("FILE                           TYPE   SIZE  MODIFIED\n"
                          "100ABC/a\\x1b[2J\\x0a\\u202e.jpg  image   1 B  2025-02-25 14:00:00\n"));
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

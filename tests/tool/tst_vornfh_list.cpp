// SPDX-License-Identifier: MIT
#include "toolsupport.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTest>

using namespace VORN_FILE_HANDLER;
using Arguments = QList<QByteArray>;

class VornfhListTest : public QObject
{
    Q_OBJECT

private slots:
    void printsTables_data();
    void printsTables();
    void optionsThatExcludeEachOtherAreRefused_data();
    void optionsThatExcludeEachOtherAreRefused();
    void jsonIsTheLibrarysArray_data();
    void jsonIsTheLibrarysArray();
    void foldersAndCountsAsJson_data();
    void foldersAndCountsAsJson();
    void namesAreSafeForATerminal();
    void aMissingLocationIsCreated();
    void aLocationThatCannotBeCreatedIsAFailure();
};

namespace {

/// 100ABC and 101ABC with media, one foreign folder; each file a minute younger than the one before.
void makeTree(const ToolRun &tool)
{
    const QList<QPair<QByteArray, int>> files = {
        {"100ABC/DCF_0002.jpg", 1023},   {"100ABC/DCF_0001.avi", 1536}, {"100ABC/DCF_0001.thumb", 10},
        {"100ABC/notes.txt", 0},         {"101ABC/DCF_0001.png", 2048}, {"101ABC/DCF_0002.mkv", 1048576},
        {"101ABC/DCF_0003.wav", 102400}, {"holiday/clip.avi", 5},       {"loose.jpg", 7},
    };
    qint64 time = 1740492000000; // 2025-02-25 14:00:00 in UTC
    for (const auto &file : files) {
        const QByteArray path = (tool.sd() + "/").toUtf8() + file.first;
        writeFile(path, QByteArray(file.second, 'x'));
        setModified(path, time);
        time += 60000;
    }
}

} // namespace

void VornfhListTest::printsTables_data()
{
    QTest::addColumn<Arguments>("arguments");
    QTest::addColumn<QByteArray>("output");

    QTest::newRow("list") << Arguments{"list", "sd"}
                          << QByteArray("FILE                   TYPE        SIZE  MODIFIED\n"
                                        "100ABC/DCF_0002.jpg    image     1023 B  2025-02-25 14:00:00\n"
                                        "100ABC/DCF_0001.avi    avi      1.5 KiB  2025-02-25 14:01:00\n"
                                        "100ABC/DCF_0001.thumb  thumb       10 B  2025-02-25 14:02:00\n"
                                        "100ABC/notes.txt       other        0 B  2025-02-25 14:03:00\n"
                                        "101ABC/DCF_0001.png    image    2.0 KiB  2025-02-25 14:04:00\n"
                                        "101ABC/DCF_0002.mkv    mkv      1.0 MiB  2025-02-25 14:05:00\n"
                                        "101ABC/DCF_0003.wav    wav    100.0 KiB  2025-02-25 14:06:00\n");
    QTest::newRow("images") << Arguments{"list", "--images", "sd"}
                            << QByteArray("FILE                 TYPE      SIZE  MODIFIED\n"
                                          "100ABC/DCF_0002.jpg  image   1023 B  2025-02-25 14:00:00\n"
                                          "101ABC/DCF_0001.png  image  2.0 KiB  2025-02-25 14:04:00\n");
    QTest::newRow("images-and-thumbs")
        << Arguments{"list", "sd", "--images", "--thumbs"}
        << QByteArray("FILE                   TYPE      SIZE  MODIFIED\n"
                      "100ABC/DCF_0002.jpg    image   1023 B  2025-02-25 14:00:00\n"
                      "100ABC/DCF_0001.thumb  thumb     10 B  2025-02-25 14:02:00\n"
                      "101ABC/DCF_0001.png    image  2.0 KiB  2025-02-25 14:04:00\n");
    QTest::newRow("videos-of-all-folders")
        << Arguments{"list", "sd", "--videos", "--filter", "all"}
        << QByteArray("FILE                 TYPE     SIZE  MODIFIED\n"
                      "100ABC/DCF_0001.avi  avi   1.5 KiB  2025-02-25 14:01:00\n"
                      "101ABC/DCF_0002.mkv  mkv   1.0 MiB  2025-02-25 14:05:00\n"
                      "holiday/clip.avi     avi       5 B  2025-02-25 14:07:00\n");
    QTest::newRow("sounds") << Arguments{"list", "sd", "--audio"}
                            << QByteArray("FILE                 TYPE       SIZE  MODIFIED\n"
                                          "101ABC/DCF_0003.wav  wav   100.0 KiB  2025-02-25 14:06:00\n");
    QTest::newRow("other-folders") << Arguments{"list", "sd", "--filter", "other"}
                                   << QByteArray("FILE              TYPE  SIZE  MODIFIED\n"
                                                 "holiday/clip.avi  avi    5 B  2025-02-25 14:07:00\n");
    QTest::newRow("nothing-found") << Arguments{"list", "sd", "--audio", "--filter", "other"}
                                   << QByteArray("FILE  TYPE  SIZE  MODIFIED\n");
    QTest::newRow("folders") << Arguments{"folders", "sd"}
                             << QByteArray("FOLDER  FILES     SIZE\n"
                                           "100ABC      4  2.5 KiB\n"
                                           "101ABC      3  1.1 MiB\n");
    QTest::newRow("all-folders") << Arguments{"folders", "sd", "--filter", "all"}
                                 << QByteArray("FOLDER   FILES     SIZE\n"
                                               "100ABC       4  2.5 KiB\n"
                                               "101ABC       3  1.1 MiB\n"
                                               "holiday      1      5 B\n");
    QTest::newRow("foreign-folders") << Arguments{"folders", "sd", "--filter", "other"}
                                     << QByteArray("FOLDER   FILES  SIZE\nholiday      1   5 B\n");
    QTest::newRow("count") << Arguments{"count", "sd"} << QByteArray("5\n");
}

void VornfhListTest::printsTables()
{
    QFETCH(Arguments, arguments);
    QFETCH(QByteArray, output);
    ToolRun tool;
    makeTree(tool);
    const auto before = tool.contents();
    QCOMPARE(tool.runOnStorages(arguments), (Outcome{0, output, ""}));
    QCOMPARE(tool.contents(), before);
}

void VornfhListTest::optionsThatExcludeEachOtherAreRefused_data()
{
    QTest::addColumn<Arguments>("arguments");
    QTest::addColumn<QByteArray>("message");
    QTest::newRow("images-and-videos")
        << Arguments{"list", "sd", "--images", "--videos"} << QByteArray("--images excludes --videos");
    QTest::newRow("videos-and-audio")
        << Arguments{"list", "sd", "--videos", "--audio"} << QByteArray("--videos excludes --audio");
    QTest::newRow("videos-and-thumbs")
        << Arguments{"list", "sd", "--videos", "--thumbs"} << QByteArray("--thumbs requires --images");
    QTest::newRow("thumbs-alone") << Arguments{"list", "sd", "--thumbs"}
                                  << QByteArray("--thumbs requires --images");
    QTest::newRow("unknown-filter") << Arguments{"list", "sd", "--filter", "some"}
                                    << QByteArray("--filter: some not in {dcim,other,all}");
}

void VornfhListTest::optionsThatExcludeEachOtherAreRefused()
{
    QFETCH(Arguments, arguments);
    QFETCH(QByteArray, message);
    ToolRun tool;
    QCOMPARE(tool.runOnStorages(arguments), (Outcome{2, "", "vornfh: " + message + "\n"}));
}

void VornfhListTest::jsonIsTheLibrarysArray_data()
{
    QTest::addColumn<Arguments>("arguments");
    QTest::newRow("all") << Arguments{};
    QTest::newRow("images") << Arguments{"--images"};
    QTest::newRow("images-and-thumbs") << Arguments{"--images", "--thumbs"};
    QTest::newRow("videos") << Arguments{"--videos"};
    QTest::newRow("audio") << Arguments{"--audio"};
    QTest::newRow("other-folders") << Arguments{"--filter", "other"};
}

void VornfhListTest::jsonIsTheLibrarysArray()
{
    QFETCH(Arguments, arguments);
    ToolRun tool;
    tool.environment.remove("TZ"); // the dates of this process and of the tool are in the same zone
    if (qEnvironmentVariableIsSet("TZ"))
        tool.environment.insert("TZ", qEnvironmentVariable("TZ"));
    makeTree(tool);
    const Outcome outcome = tool.runOnStorages(Arguments{"list", "sd", "--json"} + arguments);

    const Storages otherwise; // brings the library back at the end
    StandardErrorCapture banner;
    VornFileHandler::init("ABC", "/dev/null/x", "", tool.sd(), "", "/dev/null/x", "");
    QJsonArray expected;
    if (arguments.contains("--images"))
        expected = VornFileHandler::getJSONImageList(STORAGE_SD, arguments.contains("--thumbs"));
    else if (arguments.contains("--videos"))
        expected = VornFileHandler::getJSONVideoList(STORAGE_SD);
    else if (arguments.contains("--audio"))
        expected = VornFileHandler::getJSONAudioList(STORAGE_SD);
    else if (arguments.contains("other"))
        expected = VornFileHandler::getJsonFileList(
            STORAGE_SD, VornFileHandler::getDirectoryContents(STORAGE_SD, DIRECTORY_FILTER_NON_DCIM));
    else
        expected = VornFileHandler::getJSONDirectoryContents(STORAGE_SD);
    QVERIFY(!expected.isEmpty());
    QCOMPARE(outcome.exitCode, 0);
    QCOMPARE(QJsonDocument::fromJson(outcome.out).array(), expected);
}

void VornfhListTest::foldersAndCountsAsJson_data()
{
    QTest::addColumn<Arguments>("arguments");
    QTest::addColumn<QJsonDocument>("expected");
    const auto folder = [](const QString &name, int files, int size, int mediaCount) {
        return QJsonObject{{"name", name},
                           {"path", "@/sd/DCIM/" + name},
                           {"files", files},
                           {"size", size},
                           {"mediaCount", mediaCount}};
    };
    const QJsonObject first = folder("100ABC", 4, 1023 + 1536 + 10, 2);
    const QJsonObject second = folder("101ABC", 3, 2048 + 1048576 + 102400, 3);
    QTest::newRow("folders") << Arguments{"folders", "sd"} << QJsonDocument(QJsonArray{first, second});
    QTest::newRow("other-folders") << Arguments{"folders", "sd", "--filter", "other"}
                                   << QJsonDocument(QJsonArray{folder("holiday", 1, 5, 1)});
    QTest::newRow("count") << Arguments{"count", "sd"}
                           << QJsonDocument(
                                  QJsonObject{{"images", 2}, {"videos", 2}, {"sounds", 1}, {"total", 5}});
}

void VornfhListTest::foldersAndCountsAsJson()
{
    QFETCH(Arguments, arguments);
    QFETCH(QJsonDocument, expected);
    ToolRun tool;
    makeTree(tool);
    const Outcome outcome = tool.runOnStorages(arguments + Arguments{"--json"});
    QCOMPARE(outcome.exitCode, 0);
    QCOMPARE(outcome.err, QByteArray());
    QCOMPARE(QJsonDocument::fromJson(outcome.out), QJsonDocument::fromJson(tool.expand(expected.toJson())));
}

void VornfhListTest::namesAreSafeForATerminal()
{
    ToolRun tool;
    const QByteArray path = tool.sd().toUtf8() + "/100ABC/a\x1b[2J\n\xe2\x80\xae.jpg";
    writeFile(path, "x");
    setModified(path, 1740492000000);
    QCOMPARE(tool.runOnStorages({"list", "sd"}),
             (Outcome{0,
                      "FILE                           TYPE   SIZE  MODIFIED\n"
                      "100ABC/a\\x1b[2J\\x0a\\u202e.jpg  image   1 B  2025-02-25 14:00:00\n",
                      ""}));
}

void VornfhListTest::aMissingLocationIsCreated()
{
    ToolRun tool;
    QCOMPARE(tool.runOnStorages({"list", "sd"}),
             (Outcome{0, "FILE  TYPE  SIZE  MODIFIED\n",
                      diagnosticLine(tool.expand("root dir @/sd/DCIM doesn't exist. Create it"))}));
    QCOMPARE(tree(tool.path()), (QList<QByteArray>{"sd/", "sd/DCIM/", "sd/DCIM/100ABC/"}));
}

void VornfhListTest::aLocationThatCannotBeCreatedIsAFailure()
{
    ToolRun tool;
    writeFile(tool.path() + "/sd", "a file");
    const QByteArray line = diagnosticLine(tool.expand("root dir @/sd/DCIM doesn't exist. Create it"));
    const QByteArray error = tool.expand("vornfh: @/sd/DCIM: cannot be created: @/sd is not a folder\n");
    for (const QByteArray command : {"list", "folders", "count"})
        QCOMPARE(tool.runOnStorages({command, "sd"}), (Outcome{1, "", line + error}));
    QCOMPARE(tree(tool.path()), QList<QByteArray>{"sd"});
}

QTEST_GUILESS_MAIN(VornfhListTest)
#include "tst_vornfh_list.moc"

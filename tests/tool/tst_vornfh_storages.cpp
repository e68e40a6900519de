// SPDX-License-Identifier: MIT
#include "toolsupport.h"

#include <QTest>

class VornfhStoragesTest : public QObject
{
    Q_OBJECT

private slots:
    void withoutArgumentsTheHelpIsNamed();
    void helpAndVersionAreResults();
    void refusesWrongCommandLines_data();
    void refusesWrongCommandLines();
    void takesHarmlessValues_data();
    void takesHarmlessValues();
    void readsAConfigFile_data();
    void readsAConfigFile();
    void storagesOfItsOwnAreNamed();
    void whatCannotBeReadIsNotTakenForEmpty_data();
    void whatCannotBeReadIsNotTakenForEmpty();
    void resultsThatCannotBeWrittenAreAFailure();
};

using Arguments = QList<QByteArray>;

void VornfhStoragesTest::withoutArgumentsTheHelpIsNamed()
{
    ToolRun tool;
    QCOMPARE(tool.run({}), (Outcome{2, "", "vornfh: a command is required: vornfh --help lists them\n"}));
}

void VornfhStoragesTest::helpAndVersionAreResults()
{
    ToolRun tool;
    QCOMPARE(tool.run({"--version"}), (Outcome{0, "vornfh 1.0.0\n", ""}));
    QVERIFY(tool.run({"--help"}).out.contains("Usage: vornfh [OPTIONS] COMMAND\n"));
    for (const QByteArray option : {"--suffix TEXT", "--sd DIR", "--usb-block NAME", "--config FILE"})
        QVERIFY2(tool.run({"--help"}).out.contains(option), option);
    const Outcome record = tool.run({"record", "--help"});
    QCOMPARE(record.exitCode, 0);
    QVERIFY(record.out.contains("interrupted"));
    QCOMPARE(tree(tool.path()), QList<QByteArray>());
}

void VornfhStoragesTest::refusesWrongCommandLines_data()
{
    QTest::addColumn<Arguments>("arguments");
    QTest::addColumn<QByteArray>("message");

    QTest::newRow("no-command") << Arguments{"--sd", "@/sd"}
                                << QByteArray("a command is required: vornfh --help lists them");
    QTest::newRow("unknown-command") << Arguments{"--sd", "@/sd", "bogus", "sd"}
                                     << QByteArray("'bogus' is not a command: vornfh --help lists them");
    QTest::newRow("unknown-command-with-an-escape")
        << Arguments{"\x1b[1m\xff"}
        << QByteArray("'\\x1b[1m\\xff' is not a command: vornfh --help lists them");
    QTest::newRow("unknown-option-without-a-command")
        << Arguments{"--bogus"} << QByteArray("'--bogus' is not an option: vornfh --help lists them");
    QTest::newRow("unknown-option") << Arguments{"count", "sd", "--bogus"}
                                    << QByteArray("The following argument was not expected: --bogus");
    QTest::newRow("no-storage") << Arguments{"count"} << QByteArray("STORAGE is required");
    QTest::newRow("unknown-storage") << Arguments{"count", "floppy"}
                                     << QByteArray("STORAGE: 'floppy' is not one of mmc, sd, usb");
    QTest::newRow("storage-not-configured")
        << Arguments{"--sd", "@/sd", "count", "usb"} << QByteArray("storage usb is not configured");
    QTest::newRow("block-without-location")
        << Arguments{"--sd-block", "mmcblk1", "count", "sd"} << QByteArray("--sd-block requires --sd");
    QTest::newRow("missing-config-file")
        << Arguments{"--config", "@/none", "count", "sd"} << QByteArray("@/none was not readable (missing?)");

    const auto refused = [](const QByteArray &option, const QByteArray &kind, const QByteArray &value,
                            const QByteArray &character, int place) {
        return option + ": the " + kind + " '" + value + "' holds '" + character + "' as character "
               + QByteArray::number(place) + ", which a shell would not take as part of a name";
    };
    QTest::newRow("blank-in-a-location") << Arguments{"--sd", "/mnt/my card/DCIM", "count", "sd"}
                                         << refused("--sd", "location", "/mnt/my card/DCIM", " ", 8);
    QTest::newRow("semicolon-in-a-location")
        << Arguments{"count", "sd", "--usb", "/a;b"} << refused("--usb", "location", "/a;b", ";", 3);
    QTest::newRow("dollar-in-a-location")
        << Arguments{"--mmc", "/$HOME", "count", "mmc"} << refused("--mmc", "location", "/$HOME", "$", 2);
    QTest::newRow("line-feed-in-a-location") << Arguments{"--mmc", "/a\nb", "count", "mmc"}
                                             << refused("--mmc", "location", "/a\\x0ab", "\\x0a", 3);
    QTest::newRow("letter-outside-ascii") << Arguments{"--mmc", "/\xc3\xa4", "count", "mmc"}
                                          << refused("--mmc", "location", "/\xc3\xa4", "\xc3\xa4", 2);
    QTest::newRow("percent-sign") << Arguments{"--mmc", "/%1", "count", "mmc"}
                                  << refused("--mmc", "location", "/%1", "%", 2);
    QTest::newRow("location-no-utf-8") << Arguments{"--sd", "/\xff", "count", "sd"}
                                       << QByteArray("the location '/\\xff' is not valid UTF-8");
    QTest::newRow("empty-location") << Arguments{"--sd", "", "count", "sd"}
                                    << QByteArray("--sd: the location is empty");
    QTest::newRow("dash-in-front-of-a-location")
        << Arguments{"--sd=-x", "count", "sd"}
        << QByteArray("--sd: the location '-x' begins with '-', which a program would take for an option");
    QTest::newRow("dash-in-front-of-a-block-name")
        << Arguments{"--sd", "@/sd", "--sd-block=-v", "count", "sd"}
        << QByteArray(
               "--sd-block: the block name '-v' begins with '-', which a program would take for an option");
    QTest::newRow("pipe-in-a-block-name") << Arguments{"--sd", "@/sd", "--sd-block", "a|b", "count", "sd"}
                                          << refused("--sd-block", "block name", "a|b", "|", 2);
    QTest::newRow("slash-in-the-suffix")
        << Arguments{"--suffix", "A/B", "count", "sd"}
        << QByteArray("--suffix: the suffix 'A/B' holds '/' as character 2, which cannot be part of a "
                      "folder's name");
    QTest::newRow("escape-in-the-suffix")
        << Arguments{"--suffix", "\x1b[1m", "count", "sd"}
        << QByteArray("--suffix: the suffix '\\x1b[1m' holds '\\x1b' as character 1, which cannot be part of "
                      "a folder's name");
    QTest::newRow("placeholder-in-the-suffix")
        << Arguments{"--suffix", "A%L2", "count", "sd"}
        << QByteArray("--suffix: the suffix 'A%L2' holds '%' before a digit, which the library fills in when "
                      "it builds a path");
}

void VornfhStoragesTest::refusesWrongCommandLines()
{
    QFETCH(Arguments, arguments);
    QFETCH(QByteArray, message);
    ToolRun tool;
    QCOMPARE(tool.run(arguments), (Outcome{2, "", "vornfh: " + tool.expand(message) + "\n"}));
    QCOMPARE(tree(tool.path()), QList<QByteArray>());
}

void VornfhStoragesTest::takesHarmlessValues_data()
{
    QTest::addColumn<Arguments>("options");
    QTest::addColumn<QByteArray>("folder");

    QTest::newRow("relative-location") << Arguments{"--sd", "card/DCIM"} << QByteArray("card/DCIM/100VORN");
    QTest::newRow("colon-in-front") << Arguments{"--sd", ":card"} << QByteArray(":card/100VORN");
    QTest::newRow("every-harmless-character")
        << Arguments{"--sd", "a.b_c+d,e=f:g-h/DCIM"} << QByteArray("a.b_c+d,e=f:g-h/DCIM/100VORN");
    QTest::newRow("suffix") << Arguments{"--sd", "card", "--suffix", "ABC"} << QByteArray("card/100ABC");
    QTest::newRow("blank-and-umlaut-in-the-suffix")
        << Arguments{"--sd", "card", "--suffix", " \xc3\xa4"} << QByteArray("card/100 \xc3\xa4");
    QTest::newRow("wildcards-in-the-suffix")
        << Arguments{"--sd", "card", "--suffix", "A[B]*"} << QByteArray("card/100A[B]*");
}

void VornfhStoragesTest::takesHarmlessValues()
{
    QFETCH(Arguments, options);
    QFETCH(QByteArray, folder);
    ToolRun tool;
    const QByteArray location = folder.left(folder.lastIndexOf('/'));
    const QByteArray created =
        diagnosticLine("root dir " + tool.expand("@/") + location + " doesn't exist. Create it");
    const Outcome expected{0, tool.expand("@/") + folder + "/DCF_0001.avi\n", created};
    QCOMPARE(tool.run(Arguments{"next", "SD", "avi"} + options), expected);
    QVERIFY(tree(tool.path()).contains(folder + "/"));
}

void VornfhStoragesTest::readsAConfigFile_data()
{
    QTest::addColumn<QByteArray>("config");
    QTest::addColumn<Arguments>("options");
    QTest::addColumn<int>("exitCode");
    QTest::addColumn<QByteArray>("output"); // the line on standard error where it is refused

    QTest::newRow("ini") << QByteArray("suffix=XYZ\nsd=@/sd\n") << Arguments{} << 0
                         << QByteArray("@/sd/100XYZ/DCF_0001.avi\n");
    QTest::newRow("toml") << QByteArray("# storages\nsuffix = \"X Z\"\nsd = \"@/sd\"\nsd-block = \"sda1x\"\n")
                          << Arguments{"--sd-block", ""} << 2
                          << QByteArray("--sd-block: the block name is empty");
    QTest::newRow("the-command-line-wins")
        << QByteArray("suffix=XYZ\nsd=@/other\n") << Arguments{"--sd", "@/sd"} << 0
        << QByteArray("@/sd/100XYZ/DCF_0001.avi\n");
    QTest::newRow("misspelt-key") << QByteArray("sdd=@/sd\n") << Arguments{} << 2
                                  << QByteArray("@/vornfh.ini: INI was not able to parse sdd");
    QTest::newRow("word-alone") << QByteArray("sd=@/sd\nbogus\n") << Arguments{} << 2
                                << QByteArray("@/vornfh.ini: INI was not able to parse bogus");
    QTest::newRow("option-that-is-none-of-a-file")
        << QByteArray("help=true\n") << Arguments{} << 2
        << QByteArray("@/vornfh.ini: help: This option is not allowed in a configuration file");
    QTest::newRow("blank-in-a-location")
        << QByteArray("sd=\"/s d\"\n") << Arguments{} << 2
        << QByteArray(
               "--sd: the location '/s d' holds ' ' as character 3, which a shell would not take as part "
               "of a name");
    QTest::newRow("another-storage") << QByteArray("usb=@/usb\n") << Arguments{} << 2
                                     << QByteArray("storage sd is not configured");
}

void VornfhStoragesTest::readsAConfigFile()
{
    QFETCH(QByteArray, config);
    QFETCH(Arguments, options);
    QFETCH(int, exitCode);
    QFETCH(QByteArray, output);
    ToolRun tool;
    writeFile(tool.path() + "/vornfh.ini", tool.expand(config));
    if (exitCode == 0)
        QVERIFY(QDir().mkpath(tool.path() + "/sd"));
    const Outcome outcome = tool.run(Arguments{"--config", "@/vornfh.ini", "next", "sd", "avi"} + options);
    const QByteArray line = tool.expand(output) + (exitCode == 0 ? "" : "\n");
    QCOMPARE(outcome, exitCode == 0 ? (Outcome{0, line, ""}) : (Outcome{exitCode, "", "vornfh: " + line}));
}

void VornfhStoragesTest::storagesOfItsOwnAreNamed()
{
    ToolRun tool;
    const QByteArray line =
        tool.expand("vornfh: no storage is given, using @/data/vornfh/mmc/DCIM, "
                    "@/data/vornfh/sd/DCIM and @/data/vornfh/usb/DCIM\n")
        + diagnosticLine(tool.expand("root dir @/data/vornfh/usb/DCIM doesn't exist. Create it"));
    QCOMPARE(tool.run({"count", "usb"}), (Outcome{0, "0\n", line}));
    QVERIFY(tree(tool.path()).contains("data/vornfh/usb/DCIM/100VORN/"));
    QVERIFY(!tree(tool.path()).contains("data/vornfh/sd/"));
}

void VornfhStoragesTest::whatCannotBeReadIsNotTakenForEmpty_data()
{
    QTest::addColumn<Arguments>("arguments");
    QTest::addColumn<QString>("folder");
    QTest::addColumn<int>("mode");
    const QString location = "sd/DCIM";
    const QString folder = "sd/DCIM/100ABC";
    for (const Arguments &command :
         {Arguments{"list", "sd"}, Arguments{"list", "sd", "--filter", "all", "--json"},
          Arguments{"folders", "sd"}, Arguments{"count", "sd"}, Arguments{"next", "sd", "jpg"},
          Arguments{"record", "sd"}, Arguments{"status", "sd"}, Arguments{"gallery", "sd", "-o", "p.html"}}) {
        const QByteArray name = command.join('-').replace("--", "-");
        QTest::newRow(name + "-location") << command << location << 0;
        QTest::newRow(name + "-folder") << command << folder << 0;
        QTest::newRow(name + "-folder-whose-names-can-be-read") << command << folder << 0444;
    }
    QTest::newRow("info-folder") << Arguments{"info", "@/sd/DCIM/100ABC"} << folder << 0;
    QTest::newRow("check-location") << Arguments{"check", "sd"} << location << 0;
    QTest::newRow("check-location-whose-names-can-be-read") << Arguments{"check", "sd"} << location << 0444;
    QTest::newRow("list-above-the-location") << Arguments{"list", "sd"} << QString("sd") << 0;
}

void VornfhStoragesTest::whatCannotBeReadIsNotTakenForEmpty()
{
    QFETCH(Arguments, arguments);
    QFETCH(QString, folder);
    QFETCH(int, mode);
    ToolRun tool;
    if (!tool.dropPrivileges())
        QSKIP("the tool cannot be run as another user");
    writeFile(tool.sd() + "/100ABC/DCF_0001.jpg", "x");
    const auto before = tree(tool.path());
    Outcome outcome;
    {
        const FolderMode unreadable(tool.path() + "/" + folder, static_cast<mode_t>(mode));
        outcome = tool.runOnStorages(arguments);
    }
    const QByteArray named = folder == "sd" ? QByteArray("sd/DCIM") : folder.toUtf8();
    QCOMPARE(outcome, (Outcome{1, "", tool.expand("vornfh: @/" + named + ": Permission denied\n")}));
    QCOMPARE(tree(tool.path()), before);
}

void VornfhStoragesTest::resultsThatCannotBeWrittenAreAFailure()
{
    ToolRun tool;
    const Outcome outcome =
        tool.runProgram("/bin/sh", {"-c", QString("'%1' --version > /dev/full").arg(ToolRun::toolPath())});
    QCOMPARE(outcome, (Outcome{1, "", "vornfh: standard output cannot be written\n"}));
}

QTEST_GUILESS_MAIN(VornfhStoragesTest)
#include "tst_vornfh_storages.moc"

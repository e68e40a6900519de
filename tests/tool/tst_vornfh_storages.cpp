// SPDX-License-Identifier: MIT
#include "toolsupport.h"

#include <QTest>

class VornfhStoragesTest : public QObject
{
    Q_OBJECT

private slots:
    void withoutArgumentsTheHelpIsPrinted();
    void helpAndVersionAreResults();
    void refusesWrongCommandLines_data();
    void refusesWrongCommandLines();
    void takesHarmlessValues_data();
    void takesHarmlessValues();
    void readsAConfigFile_data();
    void readsAConfigFile();
    void storagesOfItsOwnAreNamed();
    void resultsThatCannotBeWrittenAreAFailure();
};

using Arguments = QList<QByteArray>;

void VornfhStoragesTest::withoutArgumentsTheHelpIsPrinted()
{
    ToolRun tool;
    const Outcome help = tool.run({"--help"});
    QCOMPARE(help.exitCode, 0);
    QCOMPARE(tool.run({}), (Outcome{2, help.out, ""}));
}

void VornfhStoragesTest::helpAndVersionAreResults()
{
    ToolRun tool;
    QCOMPARE(tool.run({"--version"}), (Outcome{0, "vornfh 1.0.0\n", ""}));
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

    QTest::newRow("no-command") << Arguments{"--sd", "@/sd"} << QByteArray("A subcommand is required");
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
    QTest::newRow("location-no-utf-8")
        << Arguments{"--sd", "/\xff", "count", "sd"} << QByteArray("the location '/\\xff' is not valid UTF-8");
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
    QTest::addColumn<QByteArray>("output");

    QTest::newRow("ini") << QByteArray("suffix=XYZ\nsd=@/sd\n") << Arguments{} << 0
                         << QByteArray("@/sd/100XYZ/DCF_0001.avi\n");
    QTest::newRow("toml") << QByteArray("# storages\nsuffix = \"X Z\"\nsd = \"@/sd\"\nsd-block = \"sda1x\"\n")
                          << Arguments{"--sd-block", ""} << 2 << QByteArray();
    QTest::newRow("the-command-line-wins")
        << QByteArray("suffix=XYZ\nsd=@/other\n") << Arguments{"--sd", "@/sd"} << 0
        << QByteArray("@/sd/100XYZ/DCF_0001.avi\n");
    QTest::newRow("misspelt-key") << QByteArray("sdd=@/sd\n") << Arguments{} << 2 << QByteArray();
    QTest::newRow("blank-in-a-location") << QByteArray("sd=\"@/s d\"\n") << Arguments{} << 2 << QByteArray();
    QTest::newRow("another-storage") << QByteArray("usb=@/usb\n") << Arguments{} << 2 << QByteArray();
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
    QCOMPARE(outcome.exitCode, exitCode);
    QCOMPARE(outcome.out, tool.expand(output));
    QCOMPARE(outcome.err.count('\n'), exitCode == 0 ? 0 : 1);
    QCOMPARE(outcome.err.startsWith("vornfh: "), exitCode != 0);
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

void VornfhStoragesTest::resultsThatCannotBeWrittenAreAFailure()
{
    ToolRun tool;
    const Outcome outcome =
        tool.runProgram("/bin/sh", {"-c", QString("'%1' --version > /dev/full").arg(ToolRun::toolPath())});
    QCOMPARE(outcome, (Outcome{1, "", "vornfh: standard output cannot be written\n"}));
}

QTEST_GUILESS_MAIN(VornfhStoragesTest)
#include "tst_vornfh_storages.moc"

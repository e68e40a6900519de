// SPDX-License-Identifier: MIT
#include "toolsupport.h"

#include <QTest>

class VornfhStoragesTest : public QObject
{
    Q_OBJECT

private slots:
    void refersToTheHelpWithoutArguments();
    void helpAndVersionSucceed();
    void refusesWrongCommandLines_data();
    void refusesWrongCommandLines();
    void acceptsSafeValues_data();
    void acceptsSafeValues();
    void readsAConfigFile_data();
    void readsAConfigFile();
    void refusesAConfigFile_data();
    void refusesAConfigFile();
    void usesDefaultLocations();
    void reportsUnreadableFolders_data();
    void reportsUnreadableFolders();
    void reportsOutputThatCannotBeWritten();
};

namespace {

const QByteArray COMMAND_REQUIRED = "no command given; see vornfh --help";

QByteArray notACommand(const QByteArray &word)
{
    return "'" + word + "' is not a command; see vornfh --help";
}

QByteArray unsafeValue(const QByteArray &option, const QByteArray &kind, const QByteArray &value,
                       const QByteArray &character, int position)
{
    return option + ": the " + kind + " '" + value + "' contains '" + character + "' at position "
           + QByteArray::number(position) + ", which a shell might not treat as part of a name";
}

QByteArray leadingDash(const QByteArray &option, const QByteArray &kind, const QByteArray &value)
{
    return option + ": the " + kind + " '" + value
           + "' begins with '-', which a program would read as an option";
}

QByteArray unusableSuffix(const QByteArray &suffix, const QByteArray &character, int position)
{
    return "--suffix: the suffix '" + suffix + "' contains '" + character + "' at position "
           + QByteArray::number(position) + ", which cannot be part of a folder's name";
}

} // namespace

void VornfhStoragesTest::refersToTheHelpWithoutArguments()
{
    const ToolRun tool;
    QCOMPARE(tool.run({}), tool.usageError({COMMAND_REQUIRED}));
}

void VornfhStoragesTest::helpAndVersionSucceed()
{
    const ToolRun tool;
    QCOMPARE(tool.run({"--version"}), tool.success("vornfh 1.0.0\n"));
    QVERIFY(tool.run({"--help"}).out.contains("Usage: vornfh [OPTIONS] COMMAND\n"));
    for (const QByteArray option : {"--suffix TEXT", "--sd DIR", "--usb-block NAME", "--config FILE"})
        QVERIFY2(tool.run({"--help"}).out.contains(option), option);
    const Outcome record = tool.run({"record", "--help"});
    QCOMPARE(record.exitCode, 0);
    QVERIFY(record.out.contains("interrupted"));
    QCOMPARE(tree(tool.path()), Tree());
}

void VornfhStoragesTest::refusesWrongCommandLines_data()
{
    QTest::addColumn<QByteArrayList>("arguments");
    QTest::addColumn<QByteArray>("message");
    const auto row = [](const char *name, const QByteArrayList &arguments, const QByteArray &message) {
        QTest::newRow(name) << arguments << message;
    };
    row("no-command", {"--sd", "@/sd"}, COMMAND_REQUIRED);
    row("unknown-command", {"--sd", "@/sd", "bogus", "sd"}, notACommand("bogus"));
    row("unknown-command-with-an-escape-sequence", {"\x1b[1m\xff"}, notACommand("\\x1b[1m\\xff"));
    row("unknown-option-without-a-command", {"--bogus"}, "'--bogus' is not an option; see vornfh --help");
    row("unknown-option", {"count", "sd", "--bogus"}, "The following argument was not expected: --bogus");
    row("no-storage", {"count"}, "STORAGE is required");
    row("unknown-storage", {"count", "floppy"}, messages::unknownStorage("floppy"));
    row("storage-not-configured", {"--sd", "@/sd", "count", "usb"}, messages::notConfigured("usb"));
    row("block-device-without-location", {"--sd-block", "mmcblk1", "count", "sd"},
        "--sd-block requires --sd");
    row("missing-config-file", {"--config", "@/none", "count", "sd"}, "@/none was not readable (missing?)");

    row("space-in-a-location", {"--sd", "/mnt/my card/DCIM", "count", "sd"},
        unsafeValue("--sd", "location", "/mnt/my card/DCIM", " ", 8));
    row("semicolon-in-a-location", {"count", "sd", "--usb", "/a;b"},
        unsafeValue("--usb", "location", "/a;b", ";", 3));
    row("dollar-sign-in-a-location", {"--mmc", "/$HOME", "count", "mmc"},
        unsafeValue("--mmc", "location", "/$HOME", "$", 2));
    row("line-feed-in-a-location", {"--mmc", "/a\nb", "count", "mmc"},
        unsafeValue("--mmc", "location", "/a\\x0ab", "\\x0a", 3));
    row("letter-outside-ascii-in-a-location", {"--mmc", "/\u00e4", "count", "mmc"},
        unsafeValue("--mmc", "location", "/\u00e4", "\u00e4", 2));
    row("percent-sign-in-a-location", {"--mmc", "/%1", "count", "mmc"},
        unsafeValue("--mmc", "location", "/%1", "%", 2));
    row("location-not-utf-8", {"--sd", "/\xff", "count", "sd"}, messages::notUtf8("the location", "/\\xff"));
    row("empty-location", {"--sd", "", "count", "sd"}, "--sd: the location is empty");
    row("leading-dash-in-a-location", {"--sd=-x", "count", "sd"}, leadingDash("--sd", "location", "-x"));
    row("leading-dash-in-a-block-name", {"--sd", "@/sd", "--sd-block=-v", "count", "sd"},
        leadingDash("--sd-block", "block name", "-v"));
    row("pipe-in-a-block-name", {"--sd", "@/sd", "--sd-block", "a|b", "count", "sd"},
        unsafeValue("--sd-block", "block name", "a|b", "|", 2));
    row("slash-in-the-suffix", {"--suffix", "A/B", "count", "sd"}, unusableSuffix("A/B", "/", 2));
    row("escape-sequence-in-the-suffix", {"--suffix", "\x1b[1m", "count", "sd"},
        unusableSuffix("\\x1b[1m", "\\x1b", 1));
    row("placeholder-in-the-suffix", {"--suffix", "A%L2", "count", "sd"},
        "--suffix: the suffix 'A%L2' contains a place marker such as '%1', which the library would replace");
}

void VornfhStoragesTest::refusesWrongCommandLines()
{
    QFETCH(QByteArrayList, arguments);
    QFETCH(QByteArray, message);
    const ToolRun tool;
    QCOMPARE(tool.run(arguments), tool.usageError({message}));
    QCOMPARE(tree(tool.path()), Tree());
}

void VornfhStoragesTest::acceptsSafeValues_data()
{
    QTest::addColumn<QByteArrayList>("options");
    QTest::addColumn<QByteArray>("location");
    QTest::addColumn<QByteArray>("folder");
    const auto row = [](const char *name, const QByteArrayList &options, const QByteArray &location,
                        const QByteArray &folder = "100VORN") {
        QTest::newRow(name) << options << location << folder;
    };
    row("relative-location", {"--sd", "card/DCIM"}, "card/DCIM");
    row("leading-colon", {"--sd", ":card"}, ":card");
    row("every-safe-character", {"--sd", "a.b_c+d,e=f:g-h/DCIM"}, "a.b_c+d,e=f:g-h/DCIM");
    row("suffix", {"--sd", "card", "--suffix", "ABC"}, "card", "100ABC");
    row("space-and-umlaut-in-the-suffix", {"--sd", "card", "--suffix", " \u00e4"}, "card", "100 \u00e4");
    row("wildcards-in-the-suffix", {"--sd", "card", "--suffix", "A[B]*"}, "card", "100A[B]*");
}

void VornfhStoragesTest::acceptsSafeValues()
{
    QFETCH(QByteArrayList, options);
    QFETCH(QByteArray, location);
    QFETCH(QByteArray, folder);
    const ToolRun tool;
    const QByteArray path = location + "/" + folder + "/";
    QCOMPARE(tool.run(QByteArrayList{"next", "SD", "avi"} + options),
             tool.success("@/" + path + "DCF_0001.avi\n"));
    QVERIFY(tree(tool.path()).contains(path));
}

void VornfhStoragesTest::readsAConfigFile_data()
{
    QTest::addColumn<QByteArray>("config");
    QTest::addColumn<QByteArrayList>("options");
    row("ini", QByteArray("suffix=XYZ\nsd=@/sd\n"), QByteArrayList());
    row("command-line-wins", QByteArray("suffix=XYZ\nsd=@/other\n"), QByteArrayList{"--sd", "@/sd"});
}

void VornfhStoragesTest::readsAConfigFile()
{
    QFETCH(QByteArray, config);
    QFETCH(QByteArrayList, options);
    const ToolRun tool;
    tool.make({"sd/", "vornfh.ini = " + config});
    QCOMPARE(tool.run(QByteArrayList{"--config", "@/vornfh.ini", "next", "sd", "avi"} + options),
             tool.success("@/sd/100XYZ/DCF_0001.avi\n"));
}

void VornfhStoragesTest::refusesAConfigFile_data()
{
    QTest::addColumn<QByteArray>("config");
    QTest::addColumn<QByteArrayList>("options");
    QTest::addColumn<QByteArray>("message");
    const auto row = [](const char *name, const QByteArray &config, const QByteArray &message,
                        const QByteArrayList &options = {}) {
        QTest::newRow(name) << config << options << message;
    };
    row("toml-and-an-empty-block-name", "# storages\nsuffix = \"X Z\"\nsd = \"@/sd\"\nsd-block = \"sda1x\"\n",
        "--sd-block: the block name is empty", {"--sd-block", ""});
    row("misspelt-key", "sdd=@/sd\n", "@/vornfh.ini: INI was not able to parse sdd");
    row("word-without-a-value", "sd=@/sd\nbogus\n", "@/vornfh.ini: INI was not able to parse bogus");
    row("option-not-allowed-in-a-file", "help=true\n",
        "@/vornfh.ini: help: This option is not allowed in a configuration file");
    row("space-in-a-location", "sd=\"/s d\"\n", unsafeValue("--sd", "location", "/s d", " ", 3));
    row("other-storage-only", "usb=@/usb\n", messages::notConfigured("sd"));
}

void VornfhStoragesTest::refusesAConfigFile()
{
    QFETCH(QByteArray, config);
    QFETCH(QByteArrayList, options);
    QFETCH(QByteArray, message);
    const ToolRun tool;
    tool.make({"vornfh.ini = " + config});
    QCOMPARE(tool.run(QByteArrayList{"--config", "@/vornfh.ini", "next", "sd", "avi"} + options),
             tool.usageError({message}));
}

void VornfhStoragesTest::usesDefaultLocations()
{
    const ToolRun tool;
    const QByteArray err = errorLines({"no storage device is configured; using @/data/vornfh/mmc/DCIM, "
                                       "@/data/vornfh/sd/DCIM and @/data/vornfh/usb/DCIM"});
    QCOMPARE(tool.run({"next", "usb", "jpg"}),
             tool.success("@/data/vornfh/usb/DCIM/100VORN/DCF_0001.jpg\n", err));
    QCOMPARE(tool.run({"count", "usb"}), tool.success("0\n", err));
    QVERIFY(tree(tool.path()).contains("data/vornfh/usb/DCIM/100VORN/"));
    QVERIFY(!tree(tool.path()).contains("data/vornfh/sd/"));
}

void VornfhStoragesTest::reportsUnreadableFolders_data()
{
    QTest::addColumn<QByteArrayList>("arguments");
    QTest::addColumn<QByteArray>("folder"); // without permissions
    QTest::addColumn<int>("mode");
    QTest::addColumn<QByteArray>("named"); // in the message
    const auto row = [](const QByteArray &name, const QByteArrayList &arguments, const QByteArray &folder,
                        int mode = 0, const QByteArray &named = {}) {
        QTest::newRow(name) << arguments << folder << mode << (named.isEmpty() ? folder : named);
    };
    const QByteArray location = "sd/DCIM";
    const QByteArray folder = "sd/DCIM/100ABC";
    const QList<QByteArrayList> commands = {
        {"list", "sd"},        {"list", "sd", "--filter", "all", "--json"},
        {"folders", "sd"},     {"count", "sd"},
        {"next", "sd", "jpg"}, {"record", "sd"},
        {"status", "sd"},      {"gallery", "sd", "-o", "p.html"}};
    for (const QByteArrayList &command : commands) {
        const QByteArray name = command.join('-').replace("--", "-");
        row(name + "-location", command, location);
        row(name + "-folder", command, folder);
        row(name + "-folder-with-readable-names", command, folder, 0444);
    }
    row("info-folder", {"info", "@/sd/DCIM/100ABC"}, folder);
    row("check-location", {"check", "sd"}, location);
    row("check-location-with-readable-names", {"check", "sd"}, location, 0444);
    row("list-parent-of-the-location", {"list", "sd"}, "sd", 0, location);
}

void VornfhStoragesTest::reportsUnreadableFolders()
{
    QFETCH(QByteArrayList, arguments);
    QFETCH(QByteArray, folder);
    QFETCH(int, mode);
    QFETCH(QByteArray, named);
    ToolRun tool;
    if (!tool.dropPrivileges())
        QSKIP("the tool cannot run as another user");
    tool.make(onCard({"100ABC/DCF_0001.jpg = x"}));
    const Tree before = tree(tool.path());
    Outcome outcome;
    {
        const FolderMode unreadable(tool.path() + "/" + folder, static_cast<mode_t>(mode));
        outcome = tool.runOnStorages(arguments);
    }
    const QByteArray message = "@/" + named + ": Permission denied";
    if (arguments.first() == "status") {
        QVERIFY2(outcome.out.contains(tool.expand("\n  verdict         unreadable: " + message + "\n")),
                 outcome.out.constData());
        outcome.out.clear();
    }
    QCOMPARE(outcome, tool.failure({message}));
    QCOMPARE(tree(tool.path()), before);
}

void VornfhStoragesTest::reportsOutputThatCannotBeWritten()
{
    const ToolRun tool;
    QCOMPARE(
        tool.runProgram("/bin/sh", {"-c", QString("'%1' --version > /dev/full").arg(ToolRun::toolPath())}),
        tool.failure({"cannot write to standard output"}));
}

QTEST_GUILESS_MAIN(VornfhStoragesTest)
#include "tst_vornfh_storages.moc"

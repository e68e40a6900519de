// SPDX-License-Identifier: MIT
#include "toolsupport.h"

#include <QJsonArray>
#include <QJsonObject>
#include <QMap>
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
    void findsTheConfigFile_data();
    void findsTheConfigFile();
    void readsTheConfigFileOfTheSystem();
    void refusesAnUnusableEnvironment_data();
    void refusesAnUnusableEnvironment();
    void printsHelpDespiteAConfigFileThatCannotBeUsed_data();
    void printsHelpDespiteAConfigFileThatCannotBeUsed();
    void acceptsThePathOfABlockDevice_data();
    void acceptsThePathOfABlockDevice();
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
    QCOMPARE(tool.run({"--version"}), tool.success("vornfh 1.1.0\n"));
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
    row("unknown-option", {"count", "sd", "--bogus"}, "'--bogus' is not an option; see vornfh count --help");
    row("no-storage", {"count"}, "STORAGE is required");
    row("unknown-storage", {"count", "floppy"}, messages::unknownStorage("floppy"));
    row("storage-not-configured", {"--sd", "@/sd", "count", "usb"}, messages::notConfigured("usb"));
    row("block-device-without-location", {"--sd-block", "mmcblk1", "count", "sd"},
        "--sd-block requires --sd");
    row("missing-config-file", {"--config", "@/none", "count", "sd"},
        "--config: @/none: No such file or directory");
    row("config-without-a-value", {"count", "sd", "--config"}, "--config needs a value: FILE");
    row("block-without-a-value", {"count", "sd", "--sd-block"}, "--sd-block needs a value: NAME");
    row("location-without-a-value", {"count", "sd", "--sd"}, "--sd needs a value: DIR");
    row("folder-as-config-file", {"--config", "@/", "count", "sd"}, "--config: @/: is a folder");
    row("folder-as-config-file-with-a-storage", {"--config", "@/", "--sd", "@/sd", "count", "sd"},
        "--config: @/: is a folder");
    row("empty-config-file-name", {"--config", "", "count", "sd"}, "--config: the path is empty");
    row("empty-config-file-name-with-a-storage", {"--config", "", "--sd", "@/sd", "count", "sd"},
        "--config: the path is empty");
    row("empty-config-file-name-after-an-equals-sign", {"--config=", "--sd", "@/sd", "count", "sd"},
        "--config: the value is empty");
    row("block-name-that-is-only-dev", {"--sd", "@/sd", "--sd-block", "/dev/", "count", "sd"},
        "--sd-block: the block name is empty");
    row("leading-dash-after-dev", {"--sd", "@/sd", "--sd-block", "/dev/-v", "count", "sd"},
        leadingDash("--sd-block", "block name", "-v"));

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
    row("byte-order-mark", QByteArray("\xEF\xBB\xBFsuffix=XYZ\nsd=@/sd\n"), QByteArrayList());
    row("byte-order-mark-before-the-location", QByteArray("\xEF\xBB\xBFsd=@/sd\nsuffix=XYZ\n"),
        QByteArrayList());
    row("home-folder", QByteArray("suffix=XYZ\nsd=~/sd\n"), QByteArrayList());
    row("home-folder-in-quotes", QByteArray("suffix=\"XYZ\"\nsd=\"~/sd\"\n"), QByteArrayList());
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
    row("misspelt-key", "sdd=@/sd\n", "@/vornfh.ini: unknown key sdd");
    row("word-without-a-value", "sd=@/sd\nbogus\n", "@/vornfh.ini: unknown key bogus");
    row("option-not-allowed-in-a-file", "help=true\n",
        "@/vornfh.ini: help: This option is not allowed in a configuration file");
    row("space-in-a-location", "sd=\"/s d\"\n", unsafeValue("--sd", "location", "/s d", " ", 3));
    row("other-storage-only", "usb=@/usb\n", messages::notConfigured("sd"));
    row("misspelt-key-after-a-byte-order-mark", "\xEF\xBB\xBFsdd=@/sd\n", "@/vornfh.ini: unknown key sdd");
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

namespace {

/// In these, "@" is replaced with the directory of the tool.
using Variables = QMap<QString, QString>;

/// Sets @p variables; one whose value is a null string is removed.
void setEnvironment(ToolRun &tool, const Variables &variables)
{
    for (auto variable = variables.begin(); variable != variables.end(); ++variable) {
        if (variable.value().isNull())
            tool.environment.remove(variable.key());
        else
            tool.environment.insert(variable.key(), QString(variable.value()).replace('@', tool.path()));
    }
}

const Tree CONFIG_FILES = {"sd/", "given = suffix=GIVEN", "named = suffix=NAMED",
                           "xdg/vornfh.conf = suffix=XDG", ".config/vornfh.conf = suffix=HOME"};

} // namespace

void VornfhStoragesTest::findsTheConfigFile_data()
{
    QTest::addColumn<Variables>("environment");
    QTest::addColumn<QByteArrayList>("options");
    QTest::addColumn<QByteArray>("file");
    QTest::addColumn<QByteArray>("suffix");
    const auto row = [](const char *name, const Variables &environment, const QByteArray &file,
                        const QByteArray &suffix, const QByteArrayList &options = {}) {
        QTest::newRow(name) << environment << options << file << suffix;
    };
    row("option", {{"VORNFH_CONFIG", "@/named"}, {"XDG_CONFIG_HOME", "@/xdg"}}, "@/given", "GIVEN",
        {"--config", "@/given"});
    row("variable", {{"VORNFH_CONFIG", "@/named"}, {"XDG_CONFIG_HOME", "@/xdg"}}, "@/named", "NAMED");
    row("relative-path-in-the-variable", {{"VORNFH_CONFIG", "named"}}, "named", "NAMED");
    row("config-folder-of-the-user", {{"VORNFH_CONFIG", QString()}, {"XDG_CONFIG_HOME", "@/xdg"}},
        "@/xdg/vornfh.conf", "XDG");
    row("default-config-folder", {{"VORNFH_CONFIG", QString()}}, "@/.config/vornfh.conf", "HOME");
    row("empty-config-folder", {{"VORNFH_CONFIG", QString()}, {"XDG_CONFIG_HOME", ""}},
        "@/.config/vornfh.conf", "HOME");
    row("relative-config-folder", {{"VORNFH_CONFIG", QString()}, {"XDG_CONFIG_HOME", "xdg"}},
        "@/.config/vornfh.conf", "HOME");
    row("config-folder-without-home",
        {{"VORNFH_CONFIG", QString()}, {"XDG_CONFIG_HOME", "@/xdg"}, {"HOME", QString()}},
        "@/xdg/vornfh.conf", "XDG");
    row("empty-file", {{"VORNFH_CONFIG", "/dev/null"}, {"XDG_CONFIG_HOME", "@/xdg"}}, "/dev/null", "VORN");
}

void VornfhStoragesTest::findsTheConfigFile()
{
    QFETCH(Variables, environment);
    QFETCH(QByteArrayList, options);
    QFETCH(QByteArray, file);
    QFETCH(QByteArray, suffix);
    ToolRun tool;
    tool.make(CONFIG_FILES);
    setEnvironment(tool, environment);
    const QByteArrayList rest = QByteArrayList{"--sd", "@/sd"} + options;
    const Outcome status = tool.run(QByteArrayList{"status", "--verbose"} + rest);
    QCOMPARE(status.exitCode, 0);
    QVERIFY2(status.out.startsWith(tool.expand("config file: " + file + "\n")), status.out.constData());
    const Outcome json = tool.run(QByteArrayList{"status", "-v", "--json"} + rest);
    QCOMPARE(json.err, tool.expand(errorLines({"config file: " + file})));
    QCOMPARE(json.json().array().size(), 1);
    QCOMPARE(tool.run(QByteArrayList{"next", "sd", "jpg"} + rest),
             tool.success("@/sd/100" + suffix + "/DCF_0001.jpg\n"));
}

void VornfhStoragesTest::readsTheConfigFileOfTheSystem()
{
    ToolRun tool;
    tool.make({"sd/", "empty/"});
    tool.environment.remove("VORNFH_CONFIG");
    if (!hasOwnMounts())
        QSKIP(CANNOT_MOUNT);
    const TmpfsMount mount("/etc", "");
    QVERIFY(mount.isMounted());
    const QByteArray none = "config file: none\n";
    QVERIFY(tool.run({"status", "-v"}).out.startsWith(none));
    writeFile(QByteArray("/etc/vornfh.conf"), tool.expand("sd=@/sd\nsuffix=ETC\n"));
    tool.environment.insert("XDG_CONFIG_HOME", tool.path() + "/empty");
    QVERIFY(tool.run({"status", "-v"}).out.startsWith("config file: /etc/vornfh.conf\n"));
    tool.environment.remove("XDG_CONFIG_HOME");
    tool.environment.remove("HOME");
    QCOMPARE(tool.run({"next", "sd", "jpg"}), tool.success("@/sd/100ETC/DCF_0001.jpg\n"));
    tool.make({".config/vornfh.conf = suffix=HOME\nsd=@/sd"});
    tool.environment.insert("HOME", tool.path());
    QVERIFY(tool.run({"status", "-v"}).out.startsWith(tool.expand("config file: @/.config/vornfh.conf\n")));
}

void VornfhStoragesTest::refusesAnUnusableEnvironment_data()
{
    QTest::addColumn<Tree>("entries");
    QTest::addColumn<Variables>("environment");
    QTest::addColumn<QByteArrayList>("arguments");
    QTest::addColumn<QByteArray>("message");
    const auto row = [](const char *name, const Tree &entries, const Variables &environment,
                        const QByteArray &message, const QByteArrayList &arguments = {"next", "sd", "avi"}) {
        QTest::newRow(name) << entries << environment << arguments << message;
    };
    const QByteArray noHome =
        "no storage device is configured, and HOME is not set; use --sd DIR, or sd=DIR in the config file";
    row("empty-variable", {}, {{"VORNFH_CONFIG", ""}}, "VORNFH_CONFIG is empty");
    row("empty-variable-and-a-storage", {}, {{"VORNFH_CONFIG", ""}}, "VORNFH_CONFIG is empty",
        {"--sd", "@/sd", "next", "sd", "avi"});
    row("missing-file-in-the-variable", {}, {{"VORNFH_CONFIG", "@/none"}},
        "VORNFH_CONFIG: @/none: No such file or directory");
    row("folder-in-the-variable", {"folder/"}, {{"VORNFH_CONFIG", "@/folder"}},
        "VORNFH_CONFIG: @/folder: is a folder");
    row("folder-in-place-of-the-file", {".config/vornfh.conf/"}, {{"VORNFH_CONFIG", QString()}},
        "@/.config/vornfh.conf: is a folder");
    row("dangling-link-in-place-of-the-file", {".config/", ".config/vornfh.conf -> none"},
        {{"VORNFH_CONFIG", QString()}}, "@/.config/vornfh.conf: No such file or directory");
    row("misspelt-key", {".config/vornfh.conf = sdd=@/sd"}, {{"VORNFH_CONFIG", QString()}},
        "@/.config/vornfh.conf: unknown key sdd");
    row("misspelt-key-for-a-command-without-storages", {"xdg/vornfh.conf = sdd=@/sd"},
        {{"VORNFH_CONFIG", "@/xdg/vornfh.conf"}}, "@/xdg/vornfh.conf: unknown key sdd", {"info", "@"});
    row("no-home", {}, {{"HOME", QString()}, {"XDG_DATA_HOME", QString()}}, noHome);
    row("empty-home", {}, {{"HOME", ""}, {"XDG_DATA_HOME", ""}}, noHome);
    row("no-home-for-a-location", {"named = sd=~/sd"}, {{"HOME", QString()}, {"VORNFH_CONFIG", "@/named"}},
        "the config file uses '~/sd' for sd, but HOME is not set");
}

void VornfhStoragesTest::refusesAnUnusableEnvironment()
{
    QFETCH(Tree, entries);
    QFETCH(Variables, environment);
    QFETCH(QByteArrayList, arguments);
    QFETCH(QByteArray, message);
    ToolRun tool;
    tool.make(entries);
    setEnvironment(tool, environment);
    const Tree before = tree(tool.path());
    QCOMPARE(tool.run(arguments), tool.usageError({message}));
    QCOMPARE(tree(tool.path()), before);
}

void VornfhStoragesTest::printsHelpDespiteAConfigFileThatCannotBeUsed_data()
{
    QTest::addColumn<QByteArrayList>("arguments");
    QTest::addColumn<QByteArray>("start");
    row("help", QByteArrayList{"--help"}, QByteArray("Manages the media of a camera"));
    row("help-of-a-command", QByteArrayList{"count", "--help"}, QByteArray("Counts the image"));
    row("version", QByteArrayList{"--version"}, QByteArray("vornfh 1.1.0\n"));
}

void VornfhStoragesTest::printsHelpDespiteAConfigFileThatCannotBeUsed()
{
    QFETCH(QByteArrayList, arguments);
    QFETCH(QByteArray, start);
    ToolRun tool;
    tool.make({"named = sdd=@/sd"});
    for (const char *file : {"@/named", "@/none", ""}) {
        setEnvironment(tool, {{"VORNFH_CONFIG", file}});
        const Outcome outcome = tool.run(arguments);
        QCOMPARE(outcome.exitCode, 0);
        QCOMPARE(outcome.err, QByteArray());
        QVERIFY2(outcome.out.startsWith(start), outcome.out.constData());
    }
    const Outcome missing = tool.run(QByteArrayList{"--config", "@/none"} + arguments);
    QVERIFY2(missing.exitCode == 0 && missing.out.startsWith(start), missing.err.constData());
}

void VornfhStoragesTest::acceptsThePathOfABlockDevice_data()
{
    QTest::addColumn<QByteArray>("name");
    row("name", QByteArray("nosuchdevice"));
    row("path", QByteArray("/dev/nosuchdevice"));
}

void VornfhStoragesTest::acceptsThePathOfABlockDevice()
{
    QFETCH(QByteArray, name);
    const ToolRun tool;
    tool.make({"sd/"});
    const Outcome outcome = tool.run({"--sd", "@/sd", "--sd-block", name, "status", "--json", "sd"});
    QCOMPARE(outcome.json().array().first().toObject().value("block").toString(), QString("nosuchdevice"));
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
    Outcome expected = tool.failure({message});
    expected.out = arguments.contains("--json") ? "[\n]\n" : "";
    QCOMPARE(outcome, expected);
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

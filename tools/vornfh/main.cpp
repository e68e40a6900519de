// SPDX-License-Identifier: MIT
#include "table.h"
#include "vornfh.h"

#include <QTextCodec>

#include <cstdio>
#include <iostream>

namespace {

constexpr ExitCode SUCCESS = 0;
constexpr ExitCode FAILURE = 1;
constexpr ExitCode WRONG_COMMAND_LINE = 2;

ExitCode report(const std::exception &error, ExitCode exitCode)
{
    printError(printable(QByteArray(error.what())));
    return exitCode;
}

/// A word, or none, where a command should stand.
UsageError noCommand(const CLI::App &app)
{
    const std::vector<std::string> words = app.remaining();
    if (words.empty())
        return UsageError("a command is required: vornfh --help lists them");
    const QString word = printable(QByteArray::fromStdString(words.front()));
    return UsageError(QString(word.startsWith('-') ? "'%1' is not an option: vornfh --help lists them"
                                                   : "'%1' is not a command: vornfh --help lists them")
                          .arg(word));
}

/// The parser names neither the file of a config error nor a word that is no command.
ExitCode reportParseError(const CLI::App &app, const CLI::ParseError &error)
{
    if (dynamic_cast<const CLI::ConfigError *>(&error))
        return report(std::runtime_error(app.get_config_ptr()->as<std::string>() + ": " + error.what()),
                      WRONG_COMMAND_LINE);
    if (dynamic_cast<const CLI::RequiredError *>(&error) && app.get_subcommands().empty())
        return report(noCommand(app), WRONG_COMMAND_LINE);
    return report(error, WRONG_COMMAND_LINE);
}

ExitCode run(CLI::App &app, int argc, char *argv[], const ExitCode &result)
{
    try {
        app.parse(argc, argv);
        return result;
    } catch (const CLI::Success &help) { // --help and --version come as exceptions
        return app.exit(help);
    } catch (const CLI::ParseError &error) {
        return reportParseError(app, error);
    } catch (const UsageError &error) {
        return report(error, WRONG_COMMAND_LINE);
    } catch (const std::exception &error) {
        return report(error, FAILURE);
    }
}

/// A result that was lost on its way, on a full disk for instance, is no success.
ExitCode finishOutput(ExitCode exitCode)
{
    std::cout.flush();
    if (std::fflush(stdout) == 0 && !std::ferror(stdout) && std::cout)
        return exitCode;
    printError("standard output cannot be written");
    return exitCode == SUCCESS ? FAILURE : exitCode;
}

} // namespace

int main(int argc, char *argv[])
{
    // File names are UTF-8 on every storage, whatever the locale of whoever calls the tool.
    QTextCodec::setCodecForLocale(QTextCodec::codecForName("UTF-8"));

    CLI::App app("Works on the media storages of a camera: numbered folders with numbered files.", "vornfh");
    app.set_version_flag("--version", "vornfh " VORNFH_VERSION);
    app.require_subcommand(1);
    app.get_formatter()->label("SUBCOMMAND", "COMMAND");
    app.fallthrough(); // the storages may be named behind the command as well

    ExitCode exitCode = SUCCESS;
    StorageOptions storages;
    storages.addTo(app);
    addRecordCommands(app, storages, exitCode);
    addListCommands(app, storages, exitCode);
    addInfoCommands(app, storages, exitCode);
    addStatusCommand(app, storages, exitCode);
    addCheckCommand(app, storages, exitCode);
    addGalleryCommand(app, storages, exitCode);
    addTransferCommands(app, storages, exitCode);
    addRemoveCommands(app, storages, exitCode);
    app.parse_complete_callback([&app, &storages] {
        storages.check();
        if (storages.areNeededBy(*app.get_subcommands().front()))
            storages.initLibrary();
    });

    for (CLI::App *command : app.get_subcommands([](CLI::App *) { return true; }))
        command->group("Commands");
    return finishOutput(run(app, argc, argv, exitCode));
}

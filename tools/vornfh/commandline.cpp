// SPDX-License-Identifier: MIT
#include "commandline.h"

#include "completion.h"
#include "output.h"
#include "paths.h"
#include "report.h"
#include "text.h"

#include <QDir>

#include <algorithm>
#include <memory>
#include <vector>

namespace {

/// Shows an argument without the number of its values.
class NameOnly : public CLI::Formatter
{
public:
    std::string make_option_usage(const CLI::Option *option) const override { return option->get_name(); }
};

/// The folders directly in the location of the storage device @p storage, given the options common to all
/// commands; none if these or the storage device cannot be used.
QStringList foldersOf(CLI::App &app, const Storages &storages, std::vector<std::string> options,
                      const std::string &storage)
{
    try {
        app.require_subcommand(0);
        std::reverse(options.begin(), options.end()); // as the parser expects
        app.parse(options);
        const QString location = storages.require(parseStorage(storage)).location;
        return QDir(location).entryList(QDir::Dirs | QDir::NoDotAndDotDot);
    } catch (const std::exception &) {
        return QStringList();
    }
}

ExitCode report(const std::exception &error, ExitCode exitCode)
{
    printError(printable(QByteArray(error.what())));
    return exitCode;
}

void addJsonOptions(CLI::App &command, Format format, const std::string &description)
{
    CLI::Option *json = command.add_flag_callback(
        "--json", [format] { setFormat(format); }, description);
    command
        .add_flag_callback(
            "--jsonl", [] { setFormat(Format::JsonLines); },
            "Print an object for each result on its own line, as soon as it is known")
        ->excludes(json);
}

} // namespace

CommandLine::CommandLine()
    : mApp("Manages the media of a camera: numbered folders with numbered files on storage devices.",
           "vornfh")
{
    mApp.set_version_flag("--version", "vornfh " VORNFH_VERSION);
    mApp.require_subcommand(1);
    mApp.get_formatter()->label("SUBCOMMAND", "COMMAND");
    mApp.fallthrough(); // the options common to all commands may follow the command
    mStorages.addOptions(mApp);
}

CLI::App &CommandLine::addCommand(const std::string &name, const std::string &description,
                                  const Command &command)
{
    CLI::App *app = mApp.add_subcommand(name, description)->group("Commands");
    mCommands[app] = command;
    return *app;
}

CLI::App &CommandLine::add(const std::string &name, const std::string &description, const Run &run)
{
    return addCommand(name, description, {run, true});
}

CLI::App &CommandLine::addIndependent(const std::string &name, const std::string &description, const Run &run)
{
    return addCommand(name, description, {run, false});
}

/// The error for a missing or unknown command. The parser's own message does not name the unknown word.
UsageError CommandLine::noCommand() const
{
    const std::vector<std::string> words = mApp.remaining();
    if (words.empty())
        return UsageError("no command given; see vornfh --help");
    const QString word = printable(QByteArray::fromStdString(words.front()));
    return UsageError(QString("'%1' is not %2; see vornfh --help")
                          .arg(word, word.startsWith('-') ? "an option" : "a command"));
}

ExitCode CommandLine::reportParseError(const CLI::ParseError &error) const
{
    // The parser's message does not name the file.
    if (dynamic_cast<const CLI::ConfigError *>(&error))
        return report(std::runtime_error(mApp.get_config_ptr()->as<std::string>() + ": " + error.what()),
                      WRONG_COMMAND_LINE);
    if (dynamic_cast<const CLI::RequiredError *>(&error) && mApp.get_subcommands().empty())
        return report(noCommand(), WRONG_COMMAND_LINE);
    return report(error, WRONG_COMMAND_LINE);
}

ExitCode CommandLine::runCommand()
{
    const Command &command = mCommands.at(mApp.get_subcommands().front());
    mStorages.check();
    if (command.needsStorages)
        mStorages.initLibrary();
    const ExitCode exitCode = command.run();
    finishReport();
    return exitCode;
}

ExitCode CommandLine::run(int argc, char *argv[])
{
    // How the completion scripts of shells call the tool; neither a command nor in the help.
    if (argc > 1 && argv[1] == std::string("__complete")) {
        const auto folders = [this](const std::vector<std::string> &options, const std::string &storage) {
            return foldersOf(mApp, mStorages, options, storage);
        };
        printLines(Completion(mApp, {argv + 2, argv + argc}, folders).lines());
        return DONE;
    }
    try {
        mApp.parse(argc, argv);
        return runCommand();
    } catch (const CLI::Success &help) { // --help and --version
        return static_cast<ExitCode>(mApp.exit(help));
    } catch (const CLI::ParseError &error) {
        return reportParseError(error);
    } catch (const UsageError &error) {
        return report(error, WRONG_COMMAND_LINE);
    } catch (const FileFailure &failure) {
        printFailure(failure);
        finishReport();
        return FAILED;
    } catch (const std::exception &error) {
        finishReport();
        return report(error, FAILED);
    }
}

void addFolderArgument(CLI::App &command, std::string &folder)
{
    command.add_option("FOLDER", folder, "Name of a folder directly in the DCIM folder of STORAGE")
        ->required()
        ->type_name("");
}

CLI::Option *addNames(CLI::App &command, const std::string &name, const std::string &description)
{
    // Without a limit on their number, the parser would split a value "[a,b]" as a list. A high limit, which
    // need not be reached, avoids that.
    constexpr int LIMIT = 1 << 20;
    command.formatter(std::make_shared<NameOnly>());
    return command.add_option(name, description)
        ->expected(LIMIT)
        ->allow_extra_args(false)
        ->take_all()
        ->required()
        ->option_text(" ");
}

void addResultOptions(CLI::App &command)
{
    addJsonOptions(command, Format::Json, "Print an array with an object for each result");
}

void addDocumentOptions(CLI::App &command, const std::string &description)
{
    addJsonOptions(command, Format::Document, description);
}

void addSingleResultOption(CLI::App &command)
{
    command.add_flag_callback(
        "--json", [] { setFormat(Format::JsonLines); }, "Print an object");
}

void addDayOptions(CLI::App &command, DayRange &range, const std::string &what)
{
    const auto add = [&](const char *name, auto set, const std::string &description) {
        const auto parse = [name, set](const std::string &argument) {
            const QString text = fromCommandLine(argument, name);
            const auto day = parsedDay(text);
            if (!day)
                throw wrongValue(name, text, "a date such as 2025-02-25");
            set(*day);
        };
        command.add_option_function<std::string>(name, parse, description)->type_name("DATE");
    };
    add(
        "--since", [&range](QDate day) { range.since = day.startOfDay().toSecsSinceEpoch(); },
        "Only " + what + " that were modified on this day (YYYY-MM-DD, local time) or later");
    add(
        "--until", [&range](QDate day) { range.until = day.addDays(1).startOfDay().toSecsSinceEpoch(); },
        "Only " + what + " that were modified on this day or earlier");
}

CLI::Validator between(double lowest, double highest)
{
    const auto check = [lowest, highest](const std::string &text) {
        double value = 0;
        const bool isInside = CLI::detail::lexical_cast(text, value) && value >= lowest && value <= highest;
        const QString message = QString("'%1' is not a number from %2 to %3");
        return isInside ? std::string()
                        : message.arg(QString::fromStdString(text)).arg(lowest).arg(highest).toStdString();
    };
    return CLI::Validator(check, "");
}

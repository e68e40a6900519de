// SPDX-License-Identifier: MIT
#include "commandline.h"

#include "completion.h"
#include "config.h"
#include "files.h"
#include "output.h"
#include "paths.h"
#include "report.h"
#include "suggestion.h"
#include "text.h"

#include <CLI/CLI.hpp>

#include <QDir>
#include <QFile>
#include <QRegularExpression>

#include <algorithm>
#include <memory>
#include <sstream>
#include <vector>

namespace {

const std::string VERSION = "vornfh " VORNFH_VERSION;

/// Help that fits a screen: the descriptions of options are wrapped, and the list of all commands shows only
/// the beginning of each description.
class HelpFormat : public CLI::Formatter
{
public:
    std::string make_option_desc(const CLI::Option *option) const override
    {
        constexpr size_t WIDTH = 70; // after the names, in a line of 100 columns
        std::istringstream words(option->get_description());
        std::string text;
        size_t column = 0;
        for (std::string word; words >> word; column += word.size()) {
            const bool isNextLine = column + 1 + word.size() > WIDTH;
            text += text.empty() ? "" : isNextLine ? "\n" : " ";
            column = isNextLine || text.empty() ? 0 : column + 1;
            text += word;
        }
        return text;
    }

    std::string make_subcommand(const CLI::App *command) const override
    {
        constexpr size_t WIDTH = 12;
        std::string text = command->get_description();
        std::replace(text.begin(), text.end(), '\n', ' ');
        text.resize(std::min({text.size(), text.find(". "), text.find(": "), text.find("; ")}));
        std::ostringstream out;
        CLI::detail::format_help(out, command->get_display_name(true), text, WIDTH);
        return out.str();
    }
};

/// Shows an argument without the number of its values.
class NameOnly : public HelpFormat
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

/// What to do about a word that is not known.
QString hint(const QString &similar, const QString &help)
{
    return similar.isEmpty() ? "see " + help : QString("did you mean '%1'? See %2").arg(similar, help);
}

/// Throws UsageError for an option such as "--config=": the parser would use the next argument as its value.
void requireValues(const std::vector<std::string> &arguments)
{
    for (const std::string &argument : arguments) {
        if (argument == "--")
            return;
        if (argument.compare(0, 2, "--") == 0 && argument.find('=') == argument.size() - 1)
            throw UsageError(QString::fromStdString(argument).chopped(1) + ": the value is empty");
    }
}

ExitCode report(const std::exception &error, ExitCode exitCode)
{
    printError(printable(QByteArray(error.what())));
    return exitCode;
}

void addJsonOptions(const Command &command, Format format, const std::string &description)
{
    const Option json = command.flag(
        "--json", [format] { setFormat(format); }, description);
    command
        .flag(
            "--jsonl", [] { setFormat(Format::JsonLines); },
            "Print an object for each result on its own line, as soon as it is known")
        .excludes(json);
}

} // namespace

CommandLine::CommandLine()
    : mApp(std::make_unique<CLI::App>(
        "Manages the media of a camera: numbered folders with numbered files on storage devices.", "vornfh"))
{
    mApp->set_version_flag("--version", VERSION);
    mApp->require_subcommand(1);
    mApp->formatter(std::make_shared<HelpFormat>());
    mApp->get_formatter()->label("SUBCOMMAND", "COMMAND");
    mApp->fallthrough(); // the options common to all commands may follow the command
    mStorages.addOptions(*mApp);
}

CommandLine::~CommandLine() = default;

Command CommandLine::addCommand(const std::string &name, const std::string &description, const Task &task)
{
    CLI::App *app = mApp->add_subcommand(name, description)->group("Commands");
    mTasks[app] = task;
    return Command(*app);
}

Command CommandLine::add(const std::string &name, const std::string &description, const Run &run)
{
    const Command command = addCommand(name, description, {run, true});
    command.app().footer([] { return std::string("Options for storage devices: vornfh --help"); });
    return command;
}

Command CommandLine::addIndependent(const std::string &name, const std::string &description, const Run &run)
{
    return addCommand(name, description, {run, false});
}

QStringList CommandLine::commandNames() const
{
    QStringList names;
    for (const CLI::App *command : mApp->get_subcommands([](const CLI::App *) { return true; }))
        names.append(QString::fromStdString(command->get_name()));
    return names;
}

/// The long options of the command, if there is one, and those common to all commands.
QStringList CommandLine::optionNames() const
{
    std::vector<const CLI::App *> apps{mApp.get()};
    for (const CLI::App *command : mApp->get_subcommands())
        apps.insert(apps.begin(), command);
    QStringList names;
    for (const CLI::App *app : apps) {
        for (const CLI::Option *option : app->get_options()) {
            for (const std::string &name : option->get_lnames())
                names.append("--" + QString::fromStdString(name));
        }
    }
    return names;
}

/// Where the options of the command are described.
QString CommandLine::help() const
{
    const std::vector<CLI::App *> commands = mApp->get_subcommands();
    const std::string name = commands.empty() ? "" : commands.front()->get_name() + " ";
    return QString("vornfh %1--help").arg(QString::fromStdString(name));
}

/// The error for a missing or unknown command. The parser's own message does not name the unknown word.
UsageError CommandLine::noCommand() const
{
    const std::vector<std::string> words = mApp->remaining();
    if (words.empty())
        return UsageError("no command given; see vornfh --help");
    const QString word = printable(QByteArray::fromStdString(words.front()));
    return UsageError(
        QString("'%1' is not a command; %2").arg(word, hint(similarWord(word, commandNames()), help())));
}

/// The error for an argument that begins with a dash.
UsageError CommandLine::notAnOption(const QByteArray &argument) const
{
    const QString word = printable(argument);
    const QString message = QString("'%1' is not an option; ").arg(word);
    if (isEntry(fromRoot(QFile::decodeName(argument))))
        return UsageError(message
                          + QString("to name the file '%1', put -- before it or write ./%1").arg(word));
    return UsageError(message + hint(similarWord(word.section('=', 0, 0), optionNames()), help()));
}

/// Throws UsageError if there is an option that does not exist.
void CommandLine::requireKnownOptions() const
{
    for (const std::string &text : mApp->remaining(true)) {
        if (text == "--") // only arguments follow
            return;
        if (text.size() > 1 && text.front() == '-')
            throw notAnOption(QByteArray::fromStdString(text));
    }
}

bool CommandLine::isHelpRequested() const
{
    const std::vector<CLI::App *> commands = mApp->get_subcommands([](const CLI::App *) { return true; });
    return mApp->get_help_ptr()->count() > 0
           || std::any_of(commands.begin(), commands.end(),
                          [](const CLI::App *command) { return command->get_help_ptr()->count() > 0; });
}

ExitCode CommandLine::reportParseError(const CLI::ParseError &error) const
{
    const bool isFileError = dynamic_cast<const CLI::FileError *>(&error); // of the config file
    const bool isConfigError = isFileError || dynamic_cast<const CLI::ConfigError *>(&error);
    // The parser reads the config file before it prints the help or the version.
    if (isConfigError && isHelpRequested())
        return static_cast<ExitCode>(mApp->exit(CLI::CallForHelp()));
    if (isConfigError && mApp->get_version_ptr()->count() > 0)
        return static_cast<ExitCode>(mApp->exit(CLI::CallForVersion(VERSION, DONE)));
    if (isConfigError) {
        const QString file = QFile::decodeName(mApp->get_config_ptr()->as<std::string>().c_str());
        if (isFileError)
            return report(UsageError("--config: " + configFileProblem(file)), WRONG_COMMAND_LINE);
        // The parser's message does not name the file, nor say what is wrong with a key.
        const QString reason = QString(error.what()).replace("INI was not able to parse ", "unknown key ");
        return report(UsageError(file + ": " + reason), WRONG_COMMAND_LINE);
    }
    if (dynamic_cast<const CLI::RequiredError *>(&error) && mApp->get_subcommands().empty())
        return report(noCommand(), WRONG_COMMAND_LINE);
    static const QRegularExpression NO_VALUE("^(--.*): 1 required (.*) missing$");
    const QRegularExpressionMatch match = NO_VALUE.match(error.what());
    if (match.hasMatch())
        return report(UsageError(QString("%1 needs a value: %2").arg(match.captured(1), match.captured(2))),
                      WRONG_COMMAND_LINE);
    return report(error, WRONG_COMMAND_LINE);
}

void CommandLine::parse(int argc, char *argv[])
{
    requireValues({argv, argv + argc});
    try {
        mApp->parse(argc, argv);
    } catch (const CLI::Success &) { // --help and --version
        throw;
    } catch (const CLI::ConfigError &) {
        throw;
    } catch (const std::exception &) {
        requireKnownOptions(); // the value of an unknown option has often been parsed as an argument
        throw;
    }
}

ExitCode CommandLine::runCommand()
{
    const Task &task = mTasks.at(mApp->get_subcommands().front());
    mStorages.check();
    if (task.needsStorages)
        mStorages.initLibrary();
    const ExitCode exitCode = task.run();
    finishReport();
    return exitCode;
}

ExitCode CommandLine::run(int argc, char *argv[])
{
    // The completion scripts of shells call the tool like this. It is not a command, and the help does not
    // show it.
    if (argc > 1 && argv[1] == std::string("__complete")) {
        const auto folders = [this](const std::vector<std::string> &options, const std::string &storage) {
            return foldersOf(*mApp, mStorages, options, storage);
        };
        printLines(Completion(*mApp, {argv + 2, argv + argc}, folders).lines());
        return DONE;
    }
    try {
        parse(argc, argv);
        return runCommand();
    } catch (const CLI::Success &help) {
        return static_cast<ExitCode>(mApp->exit(help));
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

void addFolderArgument(const Command &command, std::string &folder)
{
    command.option("FOLDER", folder, "Name of a folder directly in the DCIM folder of STORAGE")
        .required()
        .type("");
}

Option addNames(const Command &command, const std::string &name, const std::string &description)
{
    // Without a limit on the number of values, the parser would split "[a,b]". A high limit, which
    // need not be reached, avoids that.
    constexpr int LIMIT = 1 << 20;
    command.app().formatter(std::make_shared<NameOnly>());
    return Option(command.app()
                      .add_option(name, description)
                      ->expected(LIMIT)
                      ->allow_extra_args(false)
                      ->take_all()
                      ->required()
                      ->option_text(" "));
}

void addResultOptions(const Command &command)
{
    addJsonOptions(command, Format::Json, "Print an array with an object for each result");
}

void addDocumentOptions(const Command &command, const std::string &description)
{
    addJsonOptions(command, Format::Document, description);
}

void addSingleResultOption(const Command &command)
{
    command.flag(
        "--json", [] { setFormat(Format::JsonLines); }, "Print an object");
}

void addDayOptions(const Command &command, DayRange &range, const std::string &what)
{
    const auto add = [&](const char *name, auto set, const std::string &description) {
        const auto parse = [name, set](const std::string &argument) {
            const QString text = fromCommandLine(argument, name);
            const auto day = parsedDay(text);
            if (!day)
                throw wrongValue(name, text, "a date such as 2025-02-25");
            set(*day);
        };
        command.option(name, parse, description).type("DATE");
    };
    add(
        "--since", [&range](QDate day) { range.since = day.startOfDay().toSecsSinceEpoch(); },
        "Only " + what + " that were modified on this day (YYYY-MM-DD, local time) or later");
    add(
        "--until", [&range](QDate day) { range.until = day.addDays(1).startOfDay().toSecsSinceEpoch(); },
        "Only " + what + " that were modified on this day or earlier");
}

void addDryRun(const Command &command, bool &isDryRun)
{
    const auto set = [&isDryRun] {
        isDryRun = true;
        setDryRun();
    };
    command.flag("-n,--dry-run", set, "Change nothing; print what would be created, changed or deleted");
}

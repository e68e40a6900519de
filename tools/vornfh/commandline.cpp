// SPDX-License-Identifier: MIT
#include "commandline.h"

#include "output.h"
#include "text.h"

#include <algorithm>
#include <memory>

namespace {

const std::string VERSION = "vornfh " VORNFH_VERSION;

/// Shows an argument without the number of its values.
class NameOnly : public CLI::Formatter
{
public:
    std::string make_option_usage(const CLI::Option *option) const override { return option->get_name(); }
};

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

} // namespace

CommandLine::CommandLine()
    : mApp("Manages the media of a camera: numbered folders with numbered files on storage devices.",
           "vornfh")
{
    mApp.set_version_flag("--version", VERSION);
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

bool CommandLine::isHelpRequested() const
{
    const std::vector<const CLI::App *> commands =
        mApp.get_subcommands([](const CLI::App *) { return true; });
    return mApp.get_help_ptr()->count() > 0
           || std::any_of(commands.begin(), commands.end(),
                          [](const CLI::App *command) { return command->get_help_ptr()->count() > 0; });
}

ExitCode CommandLine::reportParseError(const CLI::ParseError &error) const
{
    const bool isConfigError = dynamic_cast<const CLI::ConfigError *>(&error);
    // The parser reads the config file before it prints the help or the version.
    if (isConfigError && isHelpRequested())
        return static_cast<ExitCode>(mApp.exit(CLI::CallForHelp()));
    if (isConfigError && mApp.get_version_ptr()->count() > 0)
        return static_cast<ExitCode>(mApp.exit(CLI::CallForVersion(VERSION, DONE)));
    // The parser's message does not name the file.
    if (isConfigError)
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
    return command.run();
}

ExitCode CommandLine::run(int argc, char *argv[])
{
    try {
        requireValues({argv, argv + argc});
        mApp.parse(argc, argv);
        return runCommand();
    } catch (const CLI::Success &help) { // --help and --version
        return static_cast<ExitCode>(mApp.exit(help));
    } catch (const CLI::ParseError &error) {
        return reportParseError(error);
    } catch (const UsageError &error) {
        return report(error, WRONG_COMMAND_LINE);
    } catch (const std::exception &error) {
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

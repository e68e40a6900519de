// SPDX-License-Identifier: MIT
#ifndef COMMANDLINE_H
#define COMMANDLINE_H

#include "errors.h"
#include "storages.h"

#include <CLI/CLI.hpp>

#include <QByteArray>
#include <QString>
#include <QStringList>

#include <functional>
#include <map>
#include <optional>
#include <string>

/// The command line of the tool: the options common to all commands, and the function that each command runs.
class CommandLine
{
public:
    CommandLine();
    CommandLine(const CommandLine &) = delete;
    CommandLine &operator=(const CommandLine &) = delete;

    /// What a command runs: returns the exit code, or throws one of the exceptions of errors.h.
    using Run = std::function<ExitCode()>;

    /// Adds a command. Before it runs, the library is initialised with the storage devices. Its help refers
    /// to their options.
    CLI::App &add(const std::string &name, const std::string &description, const Run &run);

    /// Adds a command that works without storage devices.
    CLI::App &addIndependent(const std::string &name, const std::string &description, const Run &run);

    const Storages &storages() const { return mStorages; }

    /// Parses the arguments and runs the command. Errors are reported on standard error.
    ExitCode run(int argc, char *argv[]);

private:
    struct Command {
        Run run;
        bool needsStorages;
    };

    CLI::App &addCommand(const std::string &name, const std::string &description, const Command &command);
    void parse(int argc, char *argv[]);
    ExitCode runCommand();
    bool isHelpRequested() const;
    QStringList commandNames() const;
    QStringList optionNames() const;
    QString help() const;
    UsageError noCommand() const;
    UsageError notAnOption(const QByteArray &argument) const;
    void requireKnownOptions() const;
    ExitCode reportParseError(const CLI::ParseError &error) const;

    CLI::App mApp;
    Storages mStorages;
    std::map<const CLI::App *, Command> mCommands;
};

/// Adds the argument FOLDER: the name of a folder directly in the location.
void addFolderArgument(CLI::App &command, std::string &folder);

/// Adds an argument that takes one or more values; results() returns them exactly as they were given. The
/// help shows @p name once, however many values there are.
CLI::Option *addNames(CLI::App &command, const std::string &name, const std::string &description);

/// Adds --json and --jsonl, for a command that prints one result after the other.
void addResultOptions(CLI::App &command);

/// The same for a command whose --json prints printDocument().
void addDocumentOptions(CLI::App &command, const std::string &description);

/// Adds --json, for a command that prints one result.
void addSingleResultOption(CLI::App &command);

/// A range of days, in seconds since 1970.
struct DayRange {
    std::optional<qint64> since;
    std::optional<qint64> until; // the first moment after it

    bool isAll() const { return !since && !until; }
    bool contains(qint64 seconds) const
    {
        return (!since || seconds >= *since) && (!until || seconds < *until);
    }
};

/// Adds --since and --until, which select @p what by the day of modification.
void addDayOptions(CLI::App &command, DayRange &range, const std::string &what);
/// Adds --dry-run, with which a command changes nothing and prints what it would print or delete.
void addDryRun(CLI::App &command, bool &isDryRun);

/// Accepts the numbers from @p lowest to @p highest.
CLI::Validator between(double lowest, double highest);

#endif // COMMANDLINE_H

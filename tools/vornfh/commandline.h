// SPDX-License-Identifier: MIT
#ifndef COMMANDLINE_H
#define COMMANDLINE_H

#include "errors.h"
#include "options.h"
#include "storages.h"

#include <QByteArray>
#include <QString>
#include <QStringList>

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>

namespace CLI {
class ParseError;
} // namespace CLI

/// The command line of the tool: the options common to all commands, and the function that each command runs.
class CommandLine
{
public:
    CommandLine();
    ~CommandLine();
    CommandLine(const CommandLine &) = delete;
    CommandLine &operator=(const CommandLine &) = delete;

    /// What a command runs: returns the exit code, or throws one of the exceptions of errors.h.
    using Run = std::function<ExitCode()>;

    /// Adds a command. Before it runs, the library is initialised with the storage devices. The help of the
    /// command refers to the options for storage devices.
    Command add(const std::string &name, const std::string &description, const Run &run);

    /// Adds a command that works without storage devices.
    Command addIndependent(const std::string &name, const std::string &description, const Run &run);

    const Storages &storages() const { return mStorages; }

    /// Parses the arguments and runs the command. Errors are reported on standard error.
    ExitCode run(int argc, char *argv[]);

private:
    struct Task {
        Run run;
        bool needsStorages;
    };

    Command addCommand(const std::string &name, const std::string &description, const Task &task);
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

    std::unique_ptr<CLI::App> mApp;
    Storages mStorages;
    std::map<const CLI::App *, Task> mTasks;
};

/// Adds the argument FOLDER: the name of a folder directly in the location.
void addFolderArgument(const Command &command, std::string &folder);

/// Adds an argument that takes one or more values. The help shows @p name once, however many values there
/// are.
Option addNames(const Command &command, const std::string &name, const std::string &description);

/// Adds --json and --jsonl, for a command that prints one result after another.
void addResultOptions(const Command &command);

/// The same for a command whose --json output is printed by printDocument().
void addDocumentOptions(const Command &command, const std::string &description);

/// Adds --json, for a command that prints one result.
void addSingleResultOption(const Command &command);

/// A range of days, in seconds since 1970.
struct DayRange {
    std::optional<qint64> since;
    std::optional<qint64> until; // the first moment after the range

    bool isAll() const { return !since && !until; }
    bool contains(qint64 seconds) const
    {
        return (!since || seconds >= *since) && (!until || seconds < *until);
    }
};

/// Adds --since and --until, which select @p what by the day of modification.
void addDayOptions(const Command &command, DayRange &range, const std::string &what);
/// Adds --dry-run, with which a command changes nothing and prints what it would create, change or delete.
void addDryRun(const Command &command, bool &isDryRun);

#endif // COMMANDLINE_H

// SPDX-License-Identifier: MIT
#ifndef VORNFH_H
#define VORNFH_H

#include "vornfilehandler.h"

#include <CLI/CLI.hpp>

#include <QString>
#include <QStringList>

#include <stdexcept>
#include <string>
#include <vector>

/// Something that went wrong with a well-formed command: one line for standard error, exit code 1.
class Failure : public std::runtime_error
{
public:
    explicit Failure(const QString &message) : std::runtime_error(message.toStdString()) {}
};

/// A command line that cannot be carried out as it stands: one line for standard error, exit code 2.
class UsageError : public std::runtime_error
{
public:
    explicit UsageError(const QString &message) : std::runtime_error(message.toStdString()) {}
};

/// The storages as the command line or the config file names them.
class StorageOptions
{
public:
    /// Adds --config, --suffix, --mmc, --mmc-block and so on.
    void addTo(CLI::App &app);

    /// Names a command that works without storages: main() does not initialise the library for it.
    void notNeededBy(const CLI::App &command);
    bool areNeededBy(const CLI::App &command) const;

    /// Throws UsageError for values that the tool does not take.
    void check() const;

    /// Checks the values and initialises the library with them; the library's start banner is swallowed.
    /// With no storage given, takes storages of the tool's own under the user's data directory and says so
    /// on standard error. Throws UsageError.
    void initLibrary();

    /// Whether the storage was given by option or config file, or is one of the tool's own.
    bool isConfigured(VORN_FILE_HANDLER::eStorageType storage) const;

    /// Throws UsageError, "storage usb is not configured", unless isConfigured().
    void require(VORN_FILE_HANDLER::eStorageType storage) const;

private:
    struct Storage {
        CLI::Option *locationOption = nullptr;
        CLI::Option *blockOption = nullptr;
        std::string location;
        std::string block;
    };

    bool areNoneGiven() const;
    QString locationOf(int storage) const;

    std::string mSuffix = "VORN";
    Storage mStorages[3];
    std::vector<const CLI::App *> mIndependentCommands;
};

/// The STORAGE argument: "mmc", "sd" or "usb", case ignored.
CLI::Option *addStorageArgument(CLI::App &command, VORN_FILE_HANDLER::eStorageType &storage);

/// "mmc", "sd" or "usb".
QString storageName(VORN_FILE_HANDLER::eStorageType storage);

/// @p text from the command line, "PATH" for instance. Throws UsageError where it is not valid UTF-8.
QString fromCommandLine(const std::string &text, const QString &what);

/// The path from the root on, "//", "/." and "/.." resolved in the text; a relative one begins in the current
/// directory. Never one of Qt's own kind that begins with a colon.
QString absolutePath(const QString &path);

/// The first character of an absolute path that a shell might not take as part of a name, -1 if there is
/// none.
int unsafeCharacter(const QString &path);

/// Throws Failure unless @p path is a folder, with the reason why it cannot be created. To be asked after the
/// library had the occasion to create it.
void requireFolder(const QString &path);
/// The same for a storage's location.
void requireLocation(VORN_FILE_HANDLER::eStorageType storage);

/// Throws Failure, "<path>: Permission denied", if a folder is at @p path that cannot be read: Qt and the
/// library take it for an empty one. What is missing, or is no folder, is left to the caller.
void requireReadable(const QString &path);
/// The same for a storage's location and the folders that the library lists as numbered ones.
void requireReadableFolders(VORN_FILE_HANDLER::eStorageType storage);

/// The names of the folders that the library lists as numbered ones. Its own listing would create a missing
/// location, and a folder where there is none.
QStringList listedFolders(VORN_FILE_HANDLER::eStorageType storage);

/// A command sets its subcommand's callback; main() calls initLibrary() before any callback runs.
using ExitCode = int;

void addRecordCommands(CLI::App &app, StorageOptions &storages, ExitCode &exitCode);   // next, record
void addListCommands(CLI::App &app, StorageOptions &storages, ExitCode &exitCode);     // folders, list, count
void addInfoCommands(CLI::App &app, StorageOptions &storages, ExitCode &exitCode);     // info, comment
void addStatusCommand(CLI::App &app, StorageOptions &storages, ExitCode &exitCode);    // status
void addCheckCommand(CLI::App &app, StorageOptions &storages, ExitCode &exitCode);     // check
void addGalleryCommand(CLI::App &app, StorageOptions &storages, ExitCode &exitCode);   // gallery
void addTransferCommands(CLI::App &app, StorageOptions &storages, ExitCode &exitCode); // copy, move
void addRemoveCommands(CLI::App &app, StorageOptions &storages,
                       ExitCode &exitCode); // delete, mkdir, rmdir, wipe

#endif // VORNFH_H

// SPDX-License-Identifier: MIT
#ifndef STORAGES_H
#define STORAGES_H

#include "options.h"
#include "vornfilehandler.h"

#include <QList>
#include <QString>

#include <array>
#include <optional>
#include <string>

constexpr int STORAGE_COUNT = 3;

/// A storage device as it is configured.
struct Storage {
    VORN_FILE_HANDLER::eStorageType type;
    QString name;     // "sd"
    QString title;    // in a heading: "SD card"
    QString location; // absolute path of its DCIM folder
    QString block;    // block name; empty if it is not configured
};

/// The storage devices named on the command line and in the config file, and the options for them.
class Storages
{
public:
    /// Adds --config, --suffix, --mmc, --mmc-block and so on. Without --config, usualConfigFile() is read.
    void addOptions(CLI::App &app);

    /// Throws UsageError if a value or the config file cannot be used.
    void check() const;

    /// Initialises the library with the checked values, without its start banner. If no storage device is
    /// configured, default ones in the user's data directory are used, and a line on standard error says so.
    /// Throws UsageError if that directory is not known.
    void initLibrary();

    bool isConfigured(VORN_FILE_HANDLER::eStorageType type) const;

    /// Throws UsageError unless isConfigured().
    Storage require(VORN_FILE_HANDLER::eStorageType type) const;

    QList<Storage> configured() const;

    /// The config file that was read; empty if there is none.
    QString configFile() const;

private:
    struct Options {
        CLI::Option *location = nullptr;
        CLI::Option *block = nullptr;
        std::string locationText;
        std::string blockText;
    };

    void addConfigOption(CLI::App &app);
    void requireConfigFile() const;
    bool isNoneConfigured() const;
    QString location(int type) const;
    QString block(int type) const;

    CLI::Option *mConfig = nullptr;
    QString mConfigProblem; // of the file that is read without --config
    std::string mSuffix = "VORN";
    std::array<Options, STORAGE_COUNT> mOptions;
};

/// The storage device that is called @p name: "mmc", "sd" or "usb", ignoring case; nullopt for anything else.
std::optional<VORN_FILE_HANDLER::eStorageType> storageNamed(const QString &name);

/// Decodes a STORAGE argument: "mmc", "sd" or "usb", ignoring case. Throws UsageError for anything else.
VORN_FILE_HANDLER::eStorageType parseStorage(const std::string &text);

/// Adds the argument STORAGE.
Option addStorageArgument(const Command &command, VORN_FILE_HANDLER::eStorageType &type);

#endif // STORAGES_H

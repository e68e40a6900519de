// SPDX-License-Identifier: MIT
#include "storages.h"

#include "config.h"
#include "errors.h"
#include "files.h"
#include "mounts.h"
#include "output.h"
#include "paths.h"

#include <CLI/CLI.hpp>

#include <QFile>
#include <QStandardPaths>

#include <algorithm>
#include <cstdio>
#include <memory>
#include <vector>

#include <fcntl.h>
#include <unistd.h>

using namespace VORN_FILE_HANDLER;

namespace {

struct Row {
    eStorageType type;
    const char *name;
    const char *description; // in a sentence
    const char *title;       // in a heading
};

constexpr std::array<Row, STORAGE_COUNT> TABLE = {{
    {STORAGE_MMC, "mmc", "internal eMMC", "Internal memory"},
    {STORAGE_SD, "sd", "SD card", "SD card"},
    {STORAGE_USB, "usb", "USB storage device", "USB storage"},
}};

/// The location of a storage device that is not configured: no folder can ever exist there.
constexpr char NOWHERE[] = "/dev/null/";

/// Checks the value of an option that becomes part of a shell command line. @p place is the index of the
/// first character of @p value that is not allowed, -1 if there is none.
void requireShellSafe(const CLI::Option *option, const QString &kind, const QString &value, int place)
{
    const QString name = QString::fromStdString(option->get_name());
    if (value.isEmpty())
        throw UsageError(QString("%1: the %2 is empty").arg(name, kind));
    if (value.startsWith('-'))
        throw UsageError(QString("%1: the %2 '%3' begins with '-', which a program would read as an option")
                             .arg(name, kind, value));
    if (place >= 0)
        throw UsageError(
            QString("%1: the %2 '%3' contains '%4' at position %5, which a shell might not treat "
                    "as part of a name")
                .arg(name, kind, value, QString(value[place]), QString::number(place + 1)));
}

void requireUsableSuffix(const QString &suffix)
{
    for (int i = 0; i < suffix.size(); ++i) {
        if (suffix[i] == '/' || suffix[i].category() == QChar::Other_Control)
            throw UsageError(
                QString("--suffix: the suffix '%1' contains '%2' at position %3, which cannot be "
                        "part of a folder's name")
                    .arg(suffix, QString(suffix[i]), QString::number(i + 1)));
    }
    if (hasPlaceMarker(suffix))
        throw UsageError("--suffix: the suffix '" + suffix
                         + "' contains a place marker such as '%1', which the library would replace");
}

/// The name of the block device @p name in /proc/partitions.
QString withoutDev(const QString &name)
{
    const QString folder = "/dev/";
    return name.startsWith(folder) ? name.mid(folder.size()) : name;
}

QString defaultLocation(const Row &row)
{
    return QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation) + "/vornfh/" + row.name
           + "/DCIM";
}

/// Calls @p init with standard error redirected to /dev/null: the library's start banner has nothing to do
/// with the command.
template <typename Init>
void withoutBanner(Init init)
{
    std::fflush(stderr);
    const Descriptor saved(::dup(STDERR_FILENO));
    const Descriptor nothing = openFile("/dev/null", O_WRONLY);
    if (saved.isOpen() && nothing.isOpen())
        ::dup2(nothing.get(), STDERR_FILENO);
    init();
    std::fflush(stderr);
    if (saved.isOpen())
        ::dup2(saved.get(), STDERR_FILENO);
}

} // namespace

void Storages::addConfigOption(CLI::App &app)
{
    const ConfigFile file = usualConfigFile();
    mConfigProblem = file.problem;
    mConfig = app.set_config("--config", file.problem.isEmpty() ? file.path : std::string(),
                             "Config file with lines such as sd=/mnt/sd/DCIM; default: see vornfh(1)")
                  ->type_name("FILE")
                  ->option_text("FILE");
    std::vector<std::string> locations;
    locations.reserve(std::size(TABLE));
    for (const Row &row : TABLE)
        locations.emplace_back(row.name);
    app.config_formatter(std::make_shared<ConfigFormat>(locations));
    app.allow_config_extras(CLI::config_extras_mode::error); // otherwise, a misspelt option would be ignored
}

void Storages::addOptions(CLI::App &app)
{
    addConfigOption(app);
    app.add_option("--suffix", mSuffix, "Text after the number in folder names")
        ->type_name("TEXT")
        ->capture_default_str();
    for (const Row &row : TABLE) {
        const std::string option = std::string("--") + row.name;
        const std::string description = row.description;
        Options &options = mOptions[row.type];
        options.location = app.add_option(option, options.locationText, "DCIM folder of the " + description)
                               ->type_name("DIR");
        options.block =
            app.add_option(option + "-block", options.blockText,
                           "Block device of the " + description + ", as named in /proc/partitions");
        options.block->type_name("NAME")->option_text("NAME")->needs(options.location);
    }
    app.footer(
        "Without a configured storage device, default folders are used. Options may follow the command.\n"
        "Exit code: 0 done, 1 failed, 2 wrong command line, 3 done with findings");
}

bool Storages::isNoneConfigured() const
{
    return std::none_of(mOptions.begin(), mOptions.end(),
                        [](const Options &options) { return options.location->count() > 0; });
}

void Storages::requireConfigFile() const
{
    if (mConfig->empty() && !mConfigProblem.isEmpty())
        throw UsageError(mConfigProblem);
    if (mConfig->empty())
        return;
    const QString path = configFile();
    const QString problem = path.isEmpty() ? "the path is empty" : configFileProblem(path);
    if (!problem.isEmpty())
        throw UsageError("--config: " + problem);
}

void Storages::check() const
{
    requireConfigFile();
    requireUsableSuffix(fromCommandLine(mSuffix, "--suffix"));
    for (const Options &options : mOptions) {
        if (options.location->count() > 0) {
            const QString given = fromCommandLine(options.locationText, "the location");
            const bool isPath = !given.isEmpty() && !given.startsWith('-');
            const QString location = isPath ? absolutePath(given) : given;
            requireShellSafe(options.location, "location", location, unsafeCharacter(location));
        }
        if (options.block->count() > 0) {
            const QString block = withoutDev(fromCommandLine(options.blockText, "the block name"));
            requireShellSafe(options.block, "block name", block, firstOther(block, "/._!-"));
        }
    }
}

QString Storages::location(int type) const
{
    if (isNoneConfigured())
        return defaultLocation(TABLE[type]);
    return isConfigured(TABLE[type].type) ? absolutePath(QString::fromStdString(mOptions[type].locationText))
                                          : QString(NOWHERE) + TABLE[type].name;
}

QString Storages::block(int type) const
{
    return withoutDev(QString::fromStdString(mOptions[type].blockText));
}

void Storages::initLibrary()
{
    if (isNoneConfigured() && homeFolder().isEmpty() && qEnvironmentVariableIsEmpty("XDG_DATA_HOME"))
        throw UsageError("no storage device is configured, and HOME is not set; use --sd DIR, or sd=DIR in "
                         "the config file");
    if (isNoneConfigured())
        printError(QString("no storage device is configured; using %1, %2 and %3")
                       .arg(location(STORAGE_MMC), location(STORAGE_SD), location(STORAGE_USB)));
    // The library reports sizes only for a device whose block name it knows.
    const auto device = [this](int type) {
        const QString given = block(type);
        return given.isEmpty() ? blockDeviceOf(nearestExisting(location(type))) : given;
    };
    withoutBanner([this, &device] {
        VornFileHandler::init(QString::fromStdString(mSuffix), location(STORAGE_MMC), device(STORAGE_MMC),
                              location(STORAGE_SD), device(STORAGE_SD), location(STORAGE_USB),
                              device(STORAGE_USB));
    });
}

bool Storages::isConfigured(eStorageType type) const
{
    return isNoneConfigured() || mOptions[type].location->count() > 0;
}

Storage Storages::require(eStorageType type) const
{
    const Row &row = TABLE[type];
    if (!isConfigured(type))
        throw UsageError(QString("storage %1 is not configured; use --%1 DIR, or %1=DIR in the config file")
                             .arg(row.name));
    return {type, row.name, row.title, location(type), block(type)};
}

QString Storages::configFile() const
{
    return mConfig->empty() ? QString() : QFile::decodeName(mConfig->as<std::string>().c_str());
}

QList<Storage> Storages::configured() const
{
    QList<Storage> storages;
    for (const Row &row : TABLE) {
        if (isConfigured(row.type))
            storages.append(require(row.type));
    }
    return storages;
}

std::optional<eStorageType> storageNamed(const QString &name)
{
    const auto *const found = std::find_if(TABLE.begin(), TABLE.end(), [&name](const Row &row) {
        return name.compare(QLatin1String(row.name), Qt::CaseInsensitive) == 0;
    });
    return found == TABLE.end() ? std::nullopt : std::optional(found->type);
}

eStorageType parseStorage(const std::string &text)
{
    const QString name = fromCommandLine(text, "STORAGE");
    if (const auto type = storageNamed(name))
        return *type;
    throw UsageError(QString("STORAGE: '%1' is not one of mmc, sd, usb").arg(name));
}

Option addStorageArgument(const Command &command, eStorageType &type)
{
    const auto parse = [&type](const std::string &text) { type = parseStorage(text); };
    return command.option("STORAGE", parse, "mmc, sd or usb").required().type("");
}

// SPDX-License-Identifier: MIT
#include "device.h"
#include "filecheck.h"
#include "names.h"
#include "table.h"
#include "vornfh.h"

#include <QDir>
#include <QFileInfo>
#include <QStandardPaths>
#include <QTextCodec>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include <fcntl.h>
#include <unistd.h>

using namespace VORN_FILE_HANDLER;

namespace {

constexpr int STORAGE_COUNT = 3;
constexpr const char *STORAGE_NAMES[STORAGE_COUNT] = {"mmc", "sd", "usb"};
constexpr const char *STORAGE_TITLES[STORAGE_COUNT] = {"internal eMMC", "SD card", "USB storage"};

/// Where the library is to look for a storage that is not configured: no folder can ever be there.
constexpr char NOWHERE[] = "/dev/null/";

constexpr char LOCATION_CHARACTERS[] = "/._+,@=:-";
constexpr char BLOCK_CHARACTERS[] = "/._!-";

int firstNotIn(const QString &text, const char *specialCharacters)
{
    const auto isHarmless = [specialCharacters](QChar c) {
        const bool ascii = c.unicode() > 0 && c.unicode() < 0x80;
        return ascii && (c.isLetterOrNumber() || std::strchr(specialCharacters, c.toLatin1()));
    };
    const auto *const found = std::find_if_not(text.begin(), text.end(), isHarmless);
    return found == text.end() ? -1 : static_cast<int>(found - text.begin());
}

/// The value of an option that reaches a shell's command line.
void checkForShell(const CLI::Option *option, const QString &kind, const QString &value,
                   const char *specialCharacters)
{
    const QString name = QString::fromStdString(option->get_name());
    if (value.isEmpty())
        throw UsageError(QString("%1: the %2 is empty").arg(name, kind));
    if (value.startsWith('-'))
        throw UsageError(QString("%1: the %2 '%3' begins with '-', which a program would take for an option")
                             .arg(name, kind, value));
    const int place = firstNotIn(value, specialCharacters);
    if (place >= 0)
        throw UsageError(QString("%1: the %2 '%3' holds '%4' as character %5, which a shell would not take "
                                 "as part of a name")
                             .arg(name, kind, value, QString(value[place]), QString::number(place + 1)));
}

QString ownLocation(int storage)
{
    return QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation) + "/vornfh/"
           + STORAGE_NAMES[storage] + "/DCIM";
}

/// Calls init() with standard error turned away: the library's start banner says nothing about a command.
template <typename Init>
void quietly(Init init)
{
    std::fflush(stderr);
    const int saved = ::dup(STDERR_FILENO);
    const int nothing = ::open("/dev/null", O_WRONLY | O_CLOEXEC);
    if (saved >= 0 && nothing >= 0)
        ::dup2(nothing, STDERR_FILENO);
    init();
    std::fflush(stderr);
    if (saved >= 0)
        ::dup2(saved, STDERR_FILENO);
    ::close(nothing);
    ::close(saved);
}

} // namespace

void StorageOptions::addTo(CLI::App &app)
{
    app.set_config("--config", "", "Read options from a file, INI or TOML: sd=/mnt/sd/DCIM")
        ->type_name("FILE");
    app.allow_config_extras(CLI::config_extras_mode::error); // a misspelt storage would be one not given
    app.add_option("--suffix", mSuffix, "Text behind the number in the names of the numbered folders")
        ->type_name("TEXT")
        ->capture_default_str();
    for (int i = 0; i < STORAGE_COUNT; ++i) {
        const std::string option = std::string("--") + STORAGE_NAMES[i];
        const std::string title = STORAGE_TITLES[i];
        Storage &storage = mStorages[i];
        storage.locationOption =
            app.add_option(option, storage.location, title + ": its DCIM folder")->type_name("DIR");
        storage.blockOption = app.add_option(option + "-block", storage.block,
                                             title + ": its block device as /proc/partitions names it");
        storage.blockOption->type_name("NAME")->needs(storage.locationOption);
    }
    app.footer(
        "Storages that are not given cannot be named by a command. With none given at all, the commands "
        "work on\nfolders of the tool's own below the user's data directory. "
        "The options of vornfh --help may\nstand behind the command as well.\n"
        "Exit code: 0 success, 1 failure, 2 wrong command line.");
}

void StorageOptions::notNeededBy(const CLI::App &command)
{
    mIndependentCommands.push_back(&command);
}

bool StorageOptions::areNeededBy(const CLI::App &command) const
{
    return std::find(mIndependentCommands.begin(), mIndependentCommands.end(), &command)
           == mIndependentCommands.end();
}

bool StorageOptions::areNoneGiven() const
{
    return std::none_of(std::begin(mStorages), std::end(mStorages),
                        [](const Storage &storage) { return storage.locationOption->count() > 0; });
}

void StorageOptions::check() const
{
    const QString suffix = fromCommandLine(mSuffix, "--suffix");
    for (int i = 0; i < suffix.size(); ++i) {
        if (suffix[i] == '/' || suffix[i].category() == QChar::Other_Control)
            throw UsageError(QString("--suffix: the suffix '%1' holds '%2' as character %3, which cannot be "
                                     "part of a folder's name")
                                 .arg(suffix, QString(suffix[i]), QString::number(i + 1)));
    }
    if (holdsPlaceholder(suffix))
        throw UsageError("--suffix: the suffix '" + suffix
                         + "' holds '%' before a digit, which the library fills in when it builds a path");
    for (const Storage &storage : mStorages) {
        if (storage.locationOption->count() > 0) {
            const QString location = fromCommandLine(storage.location, "the location");
            const bool needsRoot = !location.isEmpty() && !location.startsWith('-');
            checkForShell(storage.locationOption, "location", needsRoot ? absolutePath(location) : location,
                          LOCATION_CHARACTERS);
        }
        if (storage.blockOption->count() > 0)
            checkForShell(storage.blockOption, "block name", fromCommandLine(storage.block, "the block name"),
                          BLOCK_CHARACTERS);
    }
}

QString StorageOptions::locationOf(int storage) const
{
    if (areNoneGiven())
        return ownLocation(storage);
    return mStorages[storage].locationOption->count() > 0
               ? absolutePath(QString::fromStdString(mStorages[storage].location))
               : QString(NOWHERE) + STORAGE_NAMES[storage];
}

void StorageOptions::initLibrary()
{
    check();
    if (areNoneGiven())
        printError(QString("no storage is given, using %1, %2 and %3")
                       .arg(ownLocation(STORAGE_MMC), ownLocation(STORAGE_SD), ownLocation(STORAGE_USB)));
    quietly([this] {
        const auto block = [this](int storage) { return QString::fromStdString(mStorages[storage].block); };
        VornFileHandler::init(QString::fromStdString(mSuffix), locationOf(STORAGE_MMC), block(STORAGE_MMC),
                              locationOf(STORAGE_SD), block(STORAGE_SD), locationOf(STORAGE_USB),
                              block(STORAGE_USB));
    });
}

bool StorageOptions::isConfigured(eStorageType storage) const
{
    return areNoneGiven() || mStorages[storage].locationOption->count() > 0;
}

void StorageOptions::require(eStorageType storage) const
{
    if (!isConfigured(storage))
        throw UsageError(QString("storage %1 is not configured").arg(storageName(storage)));
}

CLI::Option *addStorageArgument(CLI::App &command, eStorageType &storage)
{
    const auto take = [&storage](const std::string &text) {
        const QString name = QString::fromStdString(text).toLower();
        for (int i = 0; i < STORAGE_COUNT; ++i) {
            if (name == STORAGE_NAMES[i]) {
                storage = static_cast<eStorageType>(i);
                return;
            }
        }
        throw CLI::ValidationError("STORAGE", "'" + text + "' is not one of mmc, sd, usb");
    };
    return command.add_option_function<std::string>("STORAGE", take, "mmc, sd or usb")
        ->required()
        ->type_name("");
}

QString storageName(eStorageType storage)
{
    return STORAGE_NAMES[storage];
}

QString fromCommandLine(const std::string &text, const QString &what)
{
    QTextCodec::ConverterState state(QTextCodec::IgnoreHeader);
    const QString result =
        QTextCodec::codecForName("UTF-8")->toUnicode(text.data(), static_cast<int>(text.size()), &state);
    if (state.invalidChars > 0 || state.remainingChars > 0)
        throw UsageError(what + " '" + printable(QByteArray::fromStdString(text)) + "' is not valid UTF-8");
    return result;
}

QString absolutePath(const QString &path)
{
    return QDir::cleanPath(fromRoot(path));
}

int unsafeCharacter(const QString &path)
{
    return firstNotIn(path, LOCATION_CHARACTERS);
}

void requireFolder(const QString &path)
{
    if (QFileInfo(path).isDir())
        return;
    if (QFileInfo::exists(path))
        throw Failure(path + ": not a folder");
    const QString above = nearestExisting(path);
    if (!QFileInfo(above).isDir())
        throw Failure(QString("%1: cannot be created: %2 is not a folder").arg(path, above));
    const bool writable = ::access(QFile::encodeName(above), W_OK | X_OK) == 0;
    const QString reason = writable ? QString() : ": " + QString::fromLocal8Bit(std::strerror(errno));
    throw Failure(QString("%1: cannot be created%2").arg(path, reason));
}

void requireLocation(eStorageType storage)
{
    requireFolder(VornFileHandler::getStorageDir(storage).absolutePath());
}

void requireReadable(const QString &path)
{
    const Descriptor folder(::open(QFile::encodeName(path).constData(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    const bool isReadable = folder.isOpen() && ::faccessat(folder.get(), ".", X_OK, 0) == 0;
    if (!isReadable && errno != ENOENT && errno != ENOTDIR)
        throw Failure(path + ": " + errorText(errno));
}

void requireReadableFolders(eStorageType storage)
{
    const QString location = locationOf(storage);
    requireReadable(location);
    for (const QString &folder : listedFolders(storage))
        requireReadable(location + "/" + folder);
}

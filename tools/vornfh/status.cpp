// SPDX-License-Identifier: MIT
#include "device.h"
#include "filecheck.h"
#include "names.h"
#include "table.h"
#include "vornfh.h"

#include <QFileInfo>
#include <QJsonArray>
#include <QJsonObject>
#include <QStorageInfo>

#include <algorithm>
#include <memory>

using namespace VORN_FILE_HANDLER;

namespace {

/// What a storage's block device is and where it is mounted.
struct Device {
    QString block; // empty if unknown
    bool isPresent = false;
    QString missing;        // program without which the library cannot tell whether it is present
    bool isMounted = false; // anywhere but on the root file system
    bool isMountMissing = false;
    QStorageInfo fileSystem;
};

/// Size and free space as the library tells them. Without a size nothing else is known.
struct Space {
    qint64 size = 0;
    qint64 free = 0;
    qint64 used = 0;
    int freePercent = 0;
    QString path;
    bool isElsewhere = false; // of another file system than the location's
};

/// What the folders hold and where the next recording goes.
struct Folders {
    bool areCreated = false;
    QString current;
    QString next;
    int mediaCount = 0;
};

QString &configuredBlock(eStorageType storage)
{
    switch (storage) {
    case STORAGE_MMC: return VornFileHandler::mMmcBlk;
    case STORAGE_SD: return VornFileHandler::mSdBlk;
    default: return VornFileHandler::mUsbBlk;
    }
}

Device deviceOf(eStorageType storage)
{
    const QString existing = nearestExisting(locationOf(storage));
    QString &block = configuredBlock(storage);
    if (block.isEmpty())
        block = blockDeviceOf(existing); // the library tells sizes only of a device that it knows
    Device device;
    device.block = block;
    device.isPresent = !block.isEmpty() && VornFileHandler::isMounted(storage);
    device.missing = device.isPresent ? QString() : missingForPresence();
    device.isMounted = !isOnRootFileSystem(existing);
    device.isMountMissing = isMountMissing(storage);
    device.fileSystem = QStorageInfo(existing);
    return device;
}

Space spaceOf(eStorageType storage, bool isPresent)
{
    Space space;
    space.path = VornFileHandler::typeToMountPath(storage);
    if (!isPresent)
        return space;
    space.size = VornFileHandler::getStorageSize(storage);
    space.free = VornFileHandler::getRemainingBytes(storage);
    space.used = VornFileHandler::getUsedBytes(storage);
    space.freePercent = VornFileHandler::getRemainingPercent(storage);
    struct stat asked = {};
    struct stat holder = {};
    space.isElsewhere = readStatus(space.path, asked)
                        && readStatus(nearestExisting(locationOf(storage)), holder)
                        && asked.st_dev != holder.st_dev;
    return space;
}

/// Whether the library would list the folders without creating one.
bool hasFolders(eStorageType storage)
{
    const QDir location = VornFileHandler::getStorageDir(storage);
    const QStringList pattern("*" + VornFileHandler::mFolderSuffix);
    return location.exists()
           && !location.entryInfoList(pattern, QDir::Dirs | QDir::NoSymLinks, QDir::Name).isEmpty();
}

/// The path of the next photo. The library itself would create a folder to answer that behind file 9999.
QString nextPhoto(eStorageType storage, int folder)
{
    const QString extension = VornFileHandler::getFileExtension(FILE_TYPE_IMAGE_JPEG);
    const int last = VornFileHandler::getLastFileNum(storage, folder);
    if (last != LAST_FILE)
        return VornFileHandler::getFilePath(storage, folder, last + 1, extension);
    // The current folder is the last one by name, so 1000 never comes behind 999.
    const bool isBehind = QString::number(folder + 1) > QString::number(folder);
    return VornFileHandler::getFilePath(storage, isBehind ? folder + 1 : folder, 1, extension);
}

Folders foldersOf(eStorageType storage)
{
    Folders folders;
    folders.areCreated = hasFolders(storage);
    if (!folders.areCreated) {
        folders.next = VornFileHandler::getFilePath(storage, FIRST_FOLDER, 1, JPEG_FILE_EXT);
        return folders;
    }
    const int number = VornFileHandler::getLastDirectoryNum(storage);
    folders.current = VornFileHandler::getDirPath(storage, number);
    folders.next = nextPhoto(storage, number);
    folders.mediaCount = VornFileHandler::getMediaFileCount(storage);
    return folders;
}

QJsonValue knownText(const QString &text)
{
    return text.isEmpty() ? QJsonValue() : QJsonValue(text);
}

QJsonObject toJson(eStorageType storage)
{
    const Device device = deviceOf(storage);
    const Space space = spaceOf(storage, device.isPresent);
    const Folders folders = foldersOf(storage);
    const bool isPresenceKnown = !device.block.isEmpty() && device.missing.isEmpty();
    const bool isKnown = space.size > 0;
    return {
        {"storage", storageName(storage)},
        {"location", locationOf(storage)},
        {"exists", QFileInfo(locationOf(storage)).isDir()},
        {"block", knownText(device.block)},
        {"present", isPresenceKnown ? QJsonValue(device.isPresent) : QJsonValue()},
        {"mounted", device.isMounted},
        {"mountPoint", knownText(device.fileSystem.rootPath())},
        {"readOnly", device.fileSystem.isReadOnly()},
        {"fileSystem", knownText(device.fileSystem.fileSystemType())},
        {"spacePath", space.path},
        {"spaceElsewhere", isKnown ? QJsonValue(space.isElsewhere) : QJsonValue()},
        {"size", isKnown ? QJsonValue(space.size) : QJsonValue()},
        {"free", isKnown ? QJsonValue(space.free) : QJsonValue()},
        {"used", isKnown ? QJsonValue(space.used) : QJsonValue()},
        {"freePercent", isKnown ? QJsonValue(space.freePercent) : QJsonValue()},
        {"created", folders.areCreated},
        {"currentFolder", knownText(folders.current)},
        {"nextPath", folders.next},
        {"mediaCount", folders.mediaCount},
    };
}

void printField(const QString &name, const QString &value)
{
    printLine(QString("  %1  ").arg(name, -14) + printable(value));
}

QString notFound(const QString &program)
{
    return program + " is not on the search path";
}

QString blockText(const Device &device)
{
    if (device.block.isEmpty())
        return "unknown";
    if (!device.missing.isEmpty())
        return QString("%1, presence unknown: %2").arg(device.block, notFound(device.missing));
    return device.block + (device.isPresent ? ", present" : ", not present");
}

QString mountText(const Device &device)
{
    if (device.isMounted)
        return "yes, at " + device.fileSystem.rootPath();
    return device.isMountMissing
               ? QString("no: %1 is not mounted, the location lies on the root file system").arg(device.block)
               : QString("no: the location lies on the root file system");
}

QString whyNoSize(const Device &device, const Space &space)
{
    if (device.block.isEmpty())
        return "no block device is known";
    const QString missing = device.missing.isEmpty() ? missingProgram({"df", "awk"}) : device.missing;
    if (!missing.isEmpty())
        return notFound(missing);
    return device.isPresent ? QString("df tells no size for %1").arg(space.path)
                            : QString("%1 is not present").arg(device.block);
}

QString spaceText(const Device &device, const Space &space)
{
    constexpr int WIDTH = 20;
    if (space.size <= 0)
        return "unknown: " + whyNoSize(device, space);
    const int usedPercent = 100 - space.freePercent;
    const int filled = usedPercent * WIDTH / 100;
    const QString bar = QString(filled, '#') + QString(WIDTH - filled, '-');
    return QString("[%1] %2 % used: %3 of %4, %5 free")
        .arg(bar)
        .arg(usedPercent)
        .arg(humanSize(space.used), humanSize(space.size), humanSize(space.free));
}

void print(eStorageType storage)
{
    const Device device = deviceOf(storage);
    const Space space = spaceOf(storage, device.isPresent);
    const Folders folders = foldersOf(storage);
    const QString fileSystem = QString::fromUtf8(device.fileSystem.fileSystemType());
    printLine(storageName(storage) + ": " + printable(locationOf(storage)));
    printField("block device", blockText(device));
    printField("mounted", mountText(device));
    printField("file system", fileSystem + (device.fileSystem.isReadOnly() ? ", read-only" : ""));
    printField("space", spaceText(device, space));
    if (space.size > 0 && space.isElsewhere)
        printField("", QString("that is %1, another file system than the location's").arg(space.path));
    printField("current folder", folders.areCreated ? folders.current : QString("not created yet"));
    printField("next photo", folders.next);
    printField("media files", QString::number(folders.mediaCount));
}

/// Shows what can be read. The exit code is 1 if a storage cannot.
ExitCode show(const QList<eStorageType> &chosen, bool isJson)
{
    ExitCode exitCode = 0;
    QJsonArray array;
    for (const eStorageType storage : chosen) {
        try {
            requireReadableFolders(storage);
            if (isJson)
                array.append(toJson(storage));
            else
                print(storage);
        } catch (const Failure &failure) {
            printError(QString::fromUtf8(failure.what()));
            exitCode = 1;
        }
    }
    if (isJson)
        printJson(QJsonDocument(array));
    return exitCode;
}

/// The storage that was named, or else all that are configured.
QList<eStorageType> chosenStorages(const StorageOptions &storages, bool isNamed, eStorageType named)
{
    if (isNamed) {
        storages.require(named);
        return {named};
    }
    QList<eStorageType> chosen;
    for (const eStorageType storage : {STORAGE_MMC, STORAGE_SD, STORAGE_USB}) {
        if (storages.isConfigured(storage))
            chosen.append(storage);
    }
    return chosen;
}

} // namespace

void addStatusCommand(CLI::App &app, StorageOptions &storages, ExitCode &exitCode)
{
    struct Arguments {
        eStorageType storage = STORAGE_MMC;
        bool isJson = false;
    };
    const auto arguments = std::make_shared<Arguments>();
    CLI::App *command =
        app.add_subcommand("status", "Shows device, space and next recording of the storages");
    CLI::Option *storage = addStorageArgument(*command, arguments->storage)->required(false);
    command->add_flag("--json", arguments->isJson, "One array with an object for each storage");
    command->callback([arguments, storage, &storages, &exitCode] {
        const auto chosen = chosenStorages(storages, storage->count() > 0, arguments->storage);
        exitCode = show(chosen, arguments->isJson);
    });
}

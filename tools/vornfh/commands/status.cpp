// SPDX-License-Identifier: MIT
#include "commands.h"
#include "device.h"
#include "folders.h"
#include "numbering.h"
#include "output.h"
#include "text.h"

#include <QFileInfo>
#include <QJsonArray>
#include <QJsonObject>

#include <memory>

using namespace VORN_FILE_HANDLER;

namespace {

struct Status {
    Storage storage;
    bool exists; // the location is a folder
    Device device;
    Capacity capacity;
    Numbering numbering;
    QString nextPhoto;
    int mediaCount;
    QStringList problems; // of the file system, and entries that cannot be read
};

QStringList allProblems(const Storage &storage)
{
    QStringList problems = problemsOf(storage.location) + unreadableEntries(storage.location);
    for (const QString &folder : numberedFolders(storage))
        problems += unreadableEntries(storage.location + "/" + folder);
    return problems;
}

Status statusOf(const Storage &storage)
{
    requireReadableFolders(storage);
    const Device device = deviceOf(storage);
    const Numbering numbering = numberingOf(storage);
    return {storage,
            QFileInfo(storage.location).isDir(),
            device,
            capacityOf(storage, device),
            numbering,
            nextPath(storage, numbering, FILE_TYPE_IMAGE_JPEG),
            numbering.isCreated ? VornFileHandler::getMediaFileCount(storage.type) : 0,
            allProblems(storage)};
}

QJsonValue textOrNull(const QString &text)
{
    return text.isEmpty() ? QJsonValue() : QJsonValue(text);
}

QJsonObject toJson(const Status &status)
{
    const Device &device = status.device;
    const Capacity &capacity = status.capacity;
    const auto ifKnown = [&capacity](const QJsonValue &value) {
        return capacity.isKnown() ? value : QJsonValue();
    };
    return {
        {"storage", status.storage.name},
        {"location", status.storage.location},
        {"exists", status.exists},
        {"block", textOrNull(device.block)},
        {"present", device.isPresenceKnown() ? QJsonValue(device.isPresent) : QJsonValue()},
        {"mounted", device.isMounted},
        {"mountPoint", textOrNull(device.fileSystem.rootPath())},
        {"readOnly", device.isReadOnly},
        {"fileSystem", textOrNull(device.fileSystem.fileSystemType())},
        {"spacePath", capacity.path},
        {"spaceElsewhere", ifKnown(capacity.isElsewhere)},
        {"size", ifKnown(capacity.size)},
        {"free", ifKnown(capacity.free)},
        {"used", ifKnown(capacity.used)},
        {"freePercent", ifKnown(capacity.freePercent)},
        {"created", status.numbering.isCreated},
        {"currentFolder", status.numbering.isCreated ? status.numbering.folderPath : QJsonValue()},
        {"nextPath", status.nextPhoto},
        {"mediaCount", status.mediaCount},
        {"problems", QJsonArray::fromStringList(status.problems)},
    };
}

QString blockText(const Device &device)
{
    if (device.block.isEmpty())
        return "unknown";
    if (!device.missingProgram.isEmpty())
        return QString("%1, presence unknown: %2 is not on PATH").arg(device.block, device.missingProgram);
    return device.block + (device.isPresent ? ", present" : ", not present");
}

QString mountText(const Device &device)
{
    if (device.isMounted)
        return "yes, at " + device.fileSystem.rootPath();
    const QString where = "the location is on the root file system";
    return device.isMountMissing ? QString("no: %1 is not mounted; %2").arg(device.block, where)
                                 : "no: " + where;
}

QString capacityText(const Capacity &capacity)
{
    if (!capacity.isKnown())
        return "unknown: " + capacity.unknownBecause;
    return QString("[%1] %2% used: %3 of %4, %5 free")
        .arg(bar(capacity.usedPercent(), 100))
        .arg(capacity.usedPercent())
        .arg(humanSize(capacity.used), humanSize(capacity.size), humanSize(capacity.free));
}

void print(const Status &status)
{
    const auto field = [](const QString &name, const QString &value) {
        constexpr int WIDTH = 14;
        printField(name, value, WIDTH);
    };
    const Device &device = status.device;
    const QString fileSystem = QString::fromUtf8(device.fileSystem.fileSystemType());
    printLine(status.storage.name + ": " + printable(status.storage.location));
    field("block device", blockText(device));
    field("mounted", mountText(device));
    field("file system", fileSystem + (device.isReadOnly ? ", read-only" : ""));
    field("space", capacityText(status.capacity));
    if (status.capacity.isKnown() && status.capacity.isElsewhere)
        field("", QString("measured at %1, on a different file system from the location")
                      .arg(status.capacity.path));
    field("current folder",
          status.numbering.isCreated ? status.numbering.folderPath : QString("not created yet"));
    field("next photo", status.nextPhoto);
    field("media files", QString::number(status.mediaCount));
    for (const QString &problem : status.problems)
        field("problem", problem);
}

/// Shows every storage device that can be read.
ExitCode show(const QList<Storage> &storages, bool isJson)
{
    QJsonArray array;
    const int failures = forEachReporting(storages, [&](const Storage &storage) {
        const Status status = statusOf(storage);
        if (isJson)
            array.append(toJson(status));
        else
            print(status);
    });
    if (isJson)
        printJson(QJsonDocument(array));
    return failures > 0 ? FAILED : DONE;
}

} // namespace

void addStatus(CommandLine &line)
{
    struct Request {
        eStorageType storage = STORAGE_MMC;
        CLI::Option *storageArgument = nullptr;
        bool isJson = false;
    };
    const auto request = std::make_shared<Request>();
    const auto run = [&line, request] {
        const bool isNamed = request->storageArgument->count() > 0;
        return show(isNamed ? QList<Storage>{line.storages().require(request->storage)}
                            : line.storages().configured(),
                    request->isJson);
    };
    CLI::App &command = line.add(
        "status", "Shows the block device, the space and the next photo of one storage device, or of all",
        run);
    request->storageArgument = addStorageArgument(command, request->storage)->required(false);
    command.add_flag("--json", request->isJson, "Print an array with an object for each storage device");
}

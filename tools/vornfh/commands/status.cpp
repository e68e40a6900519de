// SPDX-License-Identifier: MIT
#include "checking.h"
#include "commands.h"
#include "device.h"
#include "estimates.h"
#include "folders.h"
#include "mounts.h"
#include "numbering.h"
#include "objects.h"
#include "output.h"
#include "paths.h"
#include "recorder.h"
#include "text.h"

#include <QFileInfo>
#include <QJsonArray>
#include <QJsonObject>

#include <array>
#include <memory>
#include <optional>
#include <vector>

using namespace VORN_FILE_HANDLER;

namespace {

/// What is in the numbered folders.
struct Contents {
    Numbering numbering;
    QString nextPhoto;
    int mediaCount = 0;
    std::optional<ObjectSummary> objects; // nullopt if the device fails while they are read
    QList<Finding> repairable;
};

/// What can still be recorded on the file system.
struct Room {
    qint64 free = 0;        // bytes; UNLIMITED if unknown
    qint64 largestFile = 0; // UNLIMITED if no recording can be too large
    bool isEnough = true;   // record would begin a recording
    Estimate estimate;
};

struct Verdict {
    QString text;
    QString reason; // empty if everything is in order
};

struct Status {
    Storage storage;
    bool exists = false; // the location is a folder
    Device device;
    Capacity capacity;
    QString failure;                  // why a folder cannot be read
    std::optional<Contents> contents; // nullopt if a folder cannot be read
    std::optional<Room> room;         // nullopt also if the storage device is not there
    Wear wear;
    QStringList problems; // of the file system, and entries that cannot be read
    Verdict verdict;
};

QStringList allProblems(const Storage &storage)
{
    QStringList problems = problemsOf(storage.location) + unreadableEntries(storage.location);
    for (const QString &folder : numberedFolders(storage))
        problems += unreadableEntries(storage.location + "/" + folder);
    return problems;
}

bool isAbsent(const Device &device)
{
    return device.isPresenceKnown() && !device.isPresent;
}

/// Returns whether the location is on the storage device, as far as that is known.
bool isThere(const Device &device)
{
    return !isAbsent(device) && !device.isMountMissing;
}

/// Why the numbered folders cannot be read; empty if they can, or can be created.
QString readingFailure(const Storage &storage, const Device &device)
{
    try {
        const QString existing = nearestExisting(storage.location);
        requireReadableFolders(storage);
        if (isThere(device) && !QFileInfo(existing).isDir())
            throw Failure(existing + ": is not a folder");
        return QString();
    } catch (const Failure &failure) {
        return QString::fromUtf8(failure.what());
    }
}

Contents contentsOf(const Storage &storage, const Device &device, QStringList &problems)
{
    Contents contents;
    contents.numbering = numberingOf(storage);
    contents.nextPhoto = nextPath(storage, contents.numbering, FILE_TYPE_IMAGE_JPEG);
    if (contents.numbering.isCreated)
        contents.mediaCount = VornFileHandler::getMediaFileCount(storage.type);
    std::vector<NumberedFolder> folders;
    try {
        folders = numberedObjects(storage);
        contents.objects = summaryOf(folders);
    } catch (const Failure &failure) {
        if (problems.isEmpty()) // otherwise it is one of them
            problems.append(QString::fromUtf8(failure.what()));
    }
    if (isThere(device))
        contents.repairable = quickFindings(storage, folders);
    return contents;
}

Room roomOn(const Storage &storage, const Capacity &capacity, const Contents &contents)
{
    const QString existing = nearestExisting(storage.location);
    const bool isMeasured = capacity.isKnown() && !capacity.isElsewhere;
    Room room = {isMeasured ? capacity.free : freeBytes(existing),
                 largestFile(existing),
                 sizeLimit(existing, VIDEO).bytes > 0,
                 {}};
    if (contents.objects && room.free < UNLIMITED)
        room.estimate = estimateOf(*contents.objects, room.free, contents.numbering.left());
    return room;
}

/// The first verdict that applies; the more severe ones come first.
Verdict verdictOn(const Status &status)
{
    const Device &device = status.device;
    if (isAbsent(device))
        return {"absent", device.block + " is not present"};
    if (device.isMountMissing)
        return {"not mounted", device.block + " is not mounted; the location is on the root file system"};
    if (!status.contents)
        return {"unreadable", status.failure};
    if (!status.problems.isEmpty())
        return {"damaged", status.problems.first()};
    if (device.isReadOnly)
        return {"read-only", "the file system is mounted read-only"};
    const Contents &contents = *status.contents;
    const Room &room = *status.room;
    const QString reason =
        whyFull(room.free, room.isEnough, contents.objects.value_or(ObjectSummary()).largest,
                contents.numbering.left());
    return {reason.isEmpty() ? "ok" : "full", reason};
}

Status statusOf(const Storage &storage)
{
    Status status;
    status.storage = storage;
    status.exists = QFileInfo(storage.location).isDir();
    status.device = deviceOf(storage);
    status.capacity = capacityOf(storage, status.device);
    status.wear = wearOf(status.device.block);
    status.problems = allProblems(storage);
    status.failure = readingFailure(storage, status.device);
    if (status.failure.isEmpty())
        status.contents = contentsOf(storage, status.device, status.problems);
    if (status.contents && isThere(status.device))
        status.room = roomOn(storage, status.capacity, *status.contents);
    status.verdict = verdictOn(status);
    return status;
}

QJsonValue textOrNull(const QString &text)
{
    return text.isEmpty() ? QJsonValue() : QJsonValue(text);
}

QJsonValue numberOrNull(const std::optional<qint64> &number)
{
    return number ? QJsonValue(*number) : QJsonValue();
}

QJsonValue toJson(const Wear &wear)
{
    const auto ifKnown = [](int percent) { return percent > 0 ? QJsonValue(percent) : QJsonValue(); };
    return wear.isKnown() ? QJsonValue(QJsonObject{{"lifeUsedA", ifKnown(wear.lifeUsedA)},
                                                   {"lifeUsedB", ifKnown(wear.lifeUsedB)},
                                                   {"spareBlocks", textOrNull(wear.spareBlocks)}})
                          : QJsonValue();
}

QJsonArray toJson(const QList<Finding> &findings)
{
    QJsonArray array;
    for (const Finding &finding : findings)
        array.append(finding.toJson());
    return array;
}

/// The values that are null if a folder cannot be read.
QJsonObject toJson(const std::optional<Contents> &contents)
{
    QJsonObject object;
    for (const char *key : {"created", "currentFolder", "nextPath", "mediaCount", "objects",
                            "protectedObjects", "numbersLeft", "repairable"})
        object[key] = QJsonValue();
    if (!contents)
        return object;
    const Numbering &numbering = contents->numbering;
    object["created"] = numbering.isCreated;
    object["currentFolder"] = numbering.isCreated ? numbering.folderPath : QJsonValue();
    object["nextPath"] = contents->nextPhoto;
    object["mediaCount"] = contents->mediaCount;
    object["numbersLeft"] = numbering.left();
    object["repairable"] = toJson(contents->repairable);
    if (contents->objects) {
        object["objects"] = contents->objects->count;
        object["protectedObjects"] = contents->objects->protectedCount;
    }
    return object;
}

QJsonObject toJson(const Room &room)
{
    const Estimate &estimate = room.estimate;
    return {
        {"photosLeft", numberOrNull(estimate.objects[PHOTO])},
        {"videosLeft", numberOrNull(estimate.objects[VIDEO])},
        {"audioLeft", numberOrNull(estimate.objects[AUDIO])},
        {"videoMinutesLeft", numberOrNull(estimate.minutes)},
        {"videoBitrate", numberOrNull(estimate.bitrate)},
        {"largestFile", room.largestFile == UNLIMITED ? QJsonValue() : QJsonValue(room.largestFile)},
    };
}

QJsonObject joined(QJsonObject object, const QJsonObject &other)
{
    for (auto member = other.begin(); member != other.end(); ++member)
        object[member.key()] = member.value();
    return object;
}

QJsonObject toJson(const Status &status)
{
    const Device &device = status.device;
    const Capacity &capacity = status.capacity;
    const auto ifKnown = [&capacity](const QJsonValue &value) {
        return capacity.isKnown() ? value : QJsonValue();
    };
    const QJsonObject object = {
        {"storage", status.storage.name},
        {"location", status.storage.location},
        {"verdict", status.verdict.text},
        {"reason", textOrNull(status.verdict.reason)},
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
        {"used", ifKnown(capacity.used())},
        {"freePercent", ifKnown(capacity.freePercent())},
        {"wear", toJson(status.wear)},
        {"problems", QJsonArray::fromStringList(status.problems)},
    };
    return joined(joined(object, toJson(status.contents)),
                  toJson(status.room.value_or(Room{0, UNLIMITED, false, {}})));
}

QString blockText(const Device &device)
{
    if (device.block.isEmpty())
        return "unknown";
    if (!device.missingProgram.isEmpty())
        return device.block + ", presence unknown: " + notOnPath(device.missingProgram);
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
        .arg(humanSize(capacity.used()), humanSize(capacity.size), humanSize(capacity.free));
}

/// "10-20%"
QString lifeText(int percent)
{
    return percent > 100 ? "more than 100%" : QString("%1-%2%").arg(percent - 10).arg(percent);
}

QString wearText(const Wear &wear)
{
    QStringList parts;
    if (wear.lifeUsedA > 0)
        parts.append(lifeText(wear.lifeUsedA) + " of the expected life (type A)");
    if (wear.lifeUsedB > 0)
        parts.append(lifeText(wear.lifeUsedB) + " of the expected life (type B)");
    if (!wear.spareBlocks.isEmpty())
        parts.append("spare blocks " + wear.spareBlocks);
    return parts.join(", ");
}

void print(const QString &name, const QString &value)
{
    constexpr int WIDTH = 14;
    printField(name, value, WIDTH);
}

void print(const Contents &contents)
{
    const Numbering &numbering = contents.numbering;
    print("current folder", numbering.isCreated ? numbering.folderPath : QString("not created yet"));
    print("next photo", contents.nextPhoto);
    print("media files", QString::number(contents.mediaCount));
    if (contents.objects)
        print("objects",
              QString("%1, %2 protected").arg(contents.objects->count).arg(contents.objects->protectedCount));
    else
        print("objects", "unknown: a folder cannot be read");
    print("numbers left", QString::number(numbering.left()));
}

void printMinutes(const Estimate &estimate)
{
    if (estimate.minutes)
        print("minutes left",
              QString("about %1 of video, at %2").arg(*estimate.minutes).arg(bitrateText(*estimate.bitrate)));
    else if (!estimate.failure.isEmpty())
        print("minutes left", "unknown: " + estimate.failure);
}

void print(const Room &room, const std::optional<ObjectSummary> &objects)
{
    static const std::array<QString, AUDIO + 1> NAMES = {"photos left", "videos left", "audio left"};
    for (size_t kind = 0; kind < NAMES.size(); ++kind) {
        if (const auto left = room.estimate.objects[kind])
            print(NAMES[kind],
                  QString("about %1, of %2 each").arg(*left).arg(humanSize(objects->last[kind].mean())));
    }
    printMinutes(room.estimate);
    print("largest file", room.largestFile == UNLIMITED ? "no limit" : exactSize(room.largestFile));
}

void printHint(const QList<Finding> &repairable, const QString &storage)
{
    if (repairable.isEmpty())
        return;
    const QString count = repairable.size() == 1 ? "" : counted(repairable.size(), "file") + ", including ";
    print("to repair",
          count + printable(repairable.first().path) + "; try vornfh repair " + storage + " --dry-run");
}

void print(const Status &status)
{
    const Device &device = status.device;
    const Verdict &verdict = status.verdict;
    const QString fileSystem = QString::fromUtf8(device.fileSystem.fileSystemType());
    printLine(status.storage.name + ": " + printable(status.storage.location));
    print("verdict", verdict.reason.isEmpty() ? verdict.text : verdict.text + ": " + verdict.reason);
    print("block device", blockText(device));
    print("mounted", mountText(device));
    print("file system", fileSystem + (device.isReadOnly ? ", read-only" : ""));
    print("space", capacityText(status.capacity));
    if (status.capacity.isKnown() && status.capacity.isElsewhere)
        print("", QString("measured at %1, on a different file system from the location")
                      .arg(status.capacity.path));
    if (status.contents)
        print(*status.contents);
    if (status.room)
        print(*status.room, status.contents->objects);
    if (status.wear.isKnown())
        print("wear", wearText(status.wear));
    if (status.contents)
        printHint(status.contents->repairable, status.storage.name);
    for (const QString &problem : status.problems)
        print("problem", problem);
}

/// Shows every storage device.
ExitCode show(const QList<Storage> &storages, bool isJson)
{
    QJsonArray array;
    const int failures = forEachReporting(storages, [&](const Storage &storage) {
        const Status status = statusOf(storage);
        if (isJson)
            array.append(toJson(status));
        else
            print(status);
        if (!status.failure.isEmpty())
            throw Failure(status.failure);
    });
    if (isJson)
        printJson(QJsonDocument(array));
    return failures > 0 ? FAILED : DONE;
}

/// Prints a line on standard output or, if that contains JSON, on standard error.
void printConfigFile(const QString &path, bool isJson)
{
    const QString text = "config file: " + (path.isEmpty() ? QString("none") : printable(path));
    if (isJson)
        printError(text);
    else
        printLine(text);
}

} // namespace

void addStatus(CommandLine &line)
{
    struct Request {
        eStorageType storage = STORAGE_MMC;
        Option storageArgument;
        bool isJson = false;
        bool isVerbose = false;
    };
    const auto request = std::make_shared<Request>();
    const auto run = [&line, request] {
        if (request->isVerbose)
            printConfigFile(line.storages().configFile(), request->isJson);
        const bool isNamed = request->storageArgument.isGiven();
        return show(isNamed ? QList<Storage>{line.storages().require(request->storage)}
                            : line.storages().configured(),
                    request->isJson);
    };
    const Command command = line.add(
        "status",
        "Shows whether one storage device, or each configured one, is ready to record. Also shows how much\n"
        "more it can hold, and its block device, space, objects, next photo and wear",
        run);
    request->storageArgument = addStorageArgument(command, request->storage).required(false);
    command.flag("--json", request->isJson, "Print an array with an object for each storage device");
    command.flag("-v,--verbose", request->isVerbose, "Name the config file that is used");
    command.example("vornfh status sd");
}

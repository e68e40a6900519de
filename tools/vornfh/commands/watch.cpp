// SPDX-License-Identifier: MIT
#include "watching.h"

#include "commands.h"
#include "numbering.h"
#include "output.h"
#include "signals.h"
#include "text.h"

#include <QDateTime>
#include <QDir>
#include <QFileInfo>
#include <QJsonDocument>
#include <QJsonObject>

#include <cerrno>
#include <memory>
#include <vector>

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

using namespace VORN_FILE_HANDLER;

namespace {

QJsonValue isoTime(const QDateTime &time)
{
    return time.isValid() ? time.toOffsetFromUtc(time.offsetFromUtc()).toString(Qt::ISODateWithMs)
                          : QJsonValue();
}

/// A file of an object.
QJsonObject toJson(const WatchEvent &event)
{
    const QFileInfo info(event.path);
    const ObjectFile &file = event.file;
    const QDateTime modified =
        QDateTime::fromSecsSinceEpoch(file.modified).addMSecs(file.modifiedNanoseconds / 1000000);
    return {
        {"path", event.path},
        {"folder", info.dir().dirName()},
        {"number", objectNumber(basePath(file.name))},
        {"type", file.type->extension},
        {"size", file.size},
        {"created", isoTime(info.birthTime().isValid() ? info.birthTime() : info.metadataChangeTime())},
        {"modified", isoTime(modified)},
        {"thumbnail", event.thumbnail.isEmpty() ? QJsonValue() : event.thumbnail},
        {"protected", event.isProtected},
    };
}

void printJson(const WatchEvent &event)
{
    QJsonObject object = event.path.isEmpty() ? QJsonObject() : toJson(event);
    object["event"] = event.name;
    object["storage"] = event.storage.name;
    printLines(QJsonDocument(object).toJson(QJsonDocument::Compact) + '\n');
}

void print(const WatchEvent &event)
{
    printLine(event.name + " " + (event.path.isEmpty() ? event.storage.name : printable(event.path)));
}

/// Waits until there may be events. Throws Failure if nobody can read them any more.
void waitForEvents(const Descriptor &mounts, const std::vector<StorageWatch> &watches)
{
    constexpr int INTERVAL = 1000; // milliseconds; see StorageWatch::update()
    // Errors are reported even if no events are requested: poll(2).
    std::vector<pollfd> descriptors = {{STDOUT_FILENO, 0, 0}, {mounts.get(), POLLPRI, 0}};
    for (const StorageWatch &watch : watches)
        descriptors.push_back({watch.descriptor(), POLLIN, 0});
    ::poll(descriptors.data(), descriptors.size(), INTERVAL);
    if (descriptors.front().revents != 0)
        throw Failure("standard output: " + errorText(EPIPE));
}

ExitCode watch(const QList<Storage> &storages, bool isJson)
{
    catchStopSignals();
    const Descriptor mounts = openFile("/proc/self/mountinfo", O_RDONLY);
    std::vector<StorageWatch> watches;
    for (const Storage &storage : storages)
        watches.emplace_back(storage, isJson ? printJson : print);
    for (StorageWatch &watch : watches)
        watch.start();
    while (!isStopped() && !isOutputLost()) {
        waitForEvents(mounts, watches);
        for (StorageWatch &watch : watches)
            watch.update();
    }
    return isOutputLost() ? FAILED : DONE;
}

} // namespace

void addWatch(CommandLine &line)
{
    struct Request {
        eStorageType storage = STORAGE_MMC;
        CLI::Option *storageArgument = nullptr;
        bool isJson = false;
    };
    const auto request = std::make_shared<Request>();
    const auto run = [&line, request] {
        const bool isNamed = request->storageArgument->count() > 0;
        return watch(isNamed ? QList<Storage>{line.storages().require(request->storage)}
                             : line.storages().configured(),
                     request->isJson);
    };
    CLI::App &command = line.add(
        "watch",
        "Prints a line for each event on one storage device, or on each of them, until SIGINT or\n"
        "SIGTERM: added, finished, changed or removed PATH; watching, mounted, unmounted, read-only,\n"
        "writable, full, not-full, absent or present STORAGE",
        run);
    request->storageArgument = addStorageArgument(command, request->storage)->required(false);
    command.add_flag("--json", request->isJson, "Print an object in each line");
    command.footer("Example: vornfh --sd /mnt/sd/DCIM watch sd");
}

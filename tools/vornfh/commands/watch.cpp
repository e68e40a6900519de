// SPDX-License-Identifier: MIT
#include "watching.h"

#include "commands.h"
#include "output.h"
#include "report.h"
#include "signals.h"
#include "text.h"

#include <QJsonObject>

#include <algorithm>
#include <cerrno>
#include <memory>
#include <vector>

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

using namespace VORN_FILE_HANDLER;

namespace {

void printJson(const WatchEvent &event)
{
    const QJsonObject members = {{"event", event.name}, {"storage", event.storage.name}};
    if (event.path.isEmpty()) {
        printResult(members);
        return;
    }
    FileFacts file = fileAt(event.path);
    file.size = event.file.size;
    file.created = event.file.createdMsecs;
    file.modified = event.file.modifiedMsecs;
    file.thumbnail = event.thumbnail;
    file.isProtected = event.isProtected;
    printResult(toJson(file, members));
}

void print(const WatchEvent &event)
{
    printLine(event.name + " " + (event.path.isEmpty() ? event.storage.name : printable(event.path)));
}

/// Waits until there may be events. Throws Failure if the reader of standard output is gone.
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

ExitCode watch(const QList<Storage> &storages)
{
    catchStopSignals();
    const Descriptor mounts = openFile("/proc/self/mountinfo", O_RDONLY);
    std::vector<StorageWatch> watches;
    for (const Storage &storage : storages)
        watches.emplace_back(storage, isJson() ? printJson : print);
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
    const auto named = std::make_shared<std::vector<eStorageType>>();
    const auto run = [&line, named] {
        QList<Storage> storages;
        for (const eStorageType type : *named)
            storages.append(line.storages().require(type));
        return watch(named->empty() ? line.storages().configured() : storages);
    };
    const Command command = line.add(
        "watch",
        "Prints a line for each event on the storage devices, until SIGINT, SIGTERM or SIGHUP: the event,\n"
        "and what it concerns. Events with the path of a file: added, finished, changed, removed. Events\n"
        "with the name of a storage device: watching, mounted, unmounted, read-only, writable, full,\n"
        "not-full, absent, present",
        run);
    const auto parse = [named](const std::vector<std::string> &names) {
        for (const std::string &name : names) {
            const eStorageType type = parseStorage(name);
            if (std::find(named->begin(), named->end(), type) == named->end())
                named->push_back(type);
        }
    };
    command.option("STORAGE", parse, "mmc, sd or usb; by default all").type("");
    for (const char *name : {"--json", "--jsonl"})
        command.flag(
            name, [] { setFormat(Format::JsonLines); }, "Print an object on each line");
    command.example("vornfh watch sd");
}

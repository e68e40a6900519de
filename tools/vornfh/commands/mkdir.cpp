// SPDX-License-Identifier: MIT
#include "commands.h"
#include "device.h"
#include "dryrun.h"
#include "durable.h"
#include "files.h"
#include "folders.h"
#include "paths.h"
#include "report.h"
#include "text.h"

#include <QFileInfo>

#include <memory>

namespace {

struct Request {
    VORN_FILE_HANDLER::eStorageType storage = VORN_FILE_HANDLER::STORAGE_MMC;
    std::string folder;
    bool isDryRun = false;
};

ExitCode makeFolder(const Storage &storage, const QString &name, bool isDryRun)
{
    requireNotRoot(storage);
    requireFolderName(name);
    const QString path = VornFileHandler::getDirPath(storage.type, name);
    requireWritable(storage);
    reportUnreadable(storage.location);
    if (isEntry(path))
        throw Failure(path + ": already exists");
    const auto created = [&path] { return toJson(folderAt(path), {{"action", "created"}}); };
    if (isDryRun) {
        requireCreatableFolder(path);
        reportDone(printable(path), created);
        return DONE;
    }
    createFolder(path);
    flushWithFolders({path});
    reportDone(printable(path), created);
    return DONE;
}

} // namespace

void addMkdir(CommandLine &line)
{
    const auto request = std::make_shared<Request>();
    const auto run = [&line, request] {
        return makeFolder(line.storages().require(request->storage),
                          fromCommandLine(request->folder, "FOLDER"), request->isDryRun);
    };
    const Command command = line.add("mkdir", "Creates a folder on a storage device", run);
    addStorageArgument(command, request->storage);
    addFolderArgument(command, request->folder);
    addSingleResultOption(command);
    addDryRun(command, request->isDryRun);
    command.example("vornfh mkdir sd kept");
}

// SPDX-License-Identifier: MIT
#include "commands.h"
#include "device.h"
#include "folders.h"
#include "output.h"
#include "paths.h"
#include "text.h"

#include <QFile>
#include <QFileInfo>

#include <cerrno>
#include <memory>

#include <sys/stat.h>

namespace {

struct Request {
    VORN_FILE_HANDLER::eStorageType storage = VORN_FILE_HANDLER::STORAGE_MMC;
    std::string folder;
};

ExitCode createFolder(const Storage &storage, const QString &name)
{
    requireNotRoot(storage);
    requireFolderName(name);
    const QString path = VornFileHandler::getDirPath(storage.type, name);
    requireWritable(storage);
    if (QFileInfo::exists(path) || QFileInfo(path).isSymLink())
        throw Failure(path + ": already exists");
    VornFileHandler::createFolder(storage.type, name);
    // The library does not report the reason for a failure; a second attempt does.
    if (!QFileInfo(path).isDir() && ::mkdir(QFile::encodeName(path).constData(), 0777) != 0)
        throw Failure(path + ": cannot be created: " + errorText(errno));
    printLine(printable(path));
    return DONE;
}

} // namespace

void addMkdir(CommandLine &line)
{
    const auto request = std::make_shared<Request>();
    const auto run = [&line, request] {
        return createFolder(line.storages().require(request->storage),
                            fromCommandLine(request->folder, "FOLDER"));
    };
    CLI::App &command = line.add("mkdir", "Creates a folder on a storage device", run);
    addStorageArgument(command, request->storage);
    addFolderArgument(command, request->folder);
}

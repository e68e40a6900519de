// SPDX-License-Identifier: MIT
#include "claim.h"
#include "commands.h"
#include "device.h"
#include "folders.h"
#include "media.h"
#include "output.h"
#include "report.h"

#include <memory>

namespace {

struct Request {
    VORN_FILE_HANDLER::eStorageType storage = VORN_FILE_HANDLER::STORAGE_MMC;
    std::string type;
};

ExitCode printNext(const Storage &storage, const MediaType &type)
{
    requireWritable(storage);
    requireReadable(storage.location);
    const QString created = createRecordingFolder(storage);
    const QString path = VornFileHandler::getNextFileName(storage.type, type.type);
    const QString folder = QFileInfo(path).path();
    requireFolder(folder);
    requireReadable(folder);
    if (isJson())
        printResult(toJson(fileAt(path)));
    else
        printLine(path);
    if (created.isEmpty())
        return DONE; // nothing was written, and checking every entry would take longer than all the rest
    reportUnreadable(storage.location);
    printIfLost({created});
    return DONE;
}

} // namespace

void addNext(CommandLine &line)
{
    const auto request = std::make_shared<Request>();
    const auto run = [&line, request] {
        return printNext(line.storages().require(request->storage),
                         typeOf(QString::fromStdString(request->type)));
    };
    const Command command = line.add("next",
                                     "Prints the path of the next recording. Creates a folder if there is no "
                                     "numbered folder or the\n"
                                     "last one is full. The file is not created",
                                     run);
    addStorageArgument(command, request->storage);
    command.option("TYPE", request->type, "avi, mkv, jpg, png, wav or thumb")
        .required()
        .oneOf({"avi", "mkv", "jpg", "png", "wav", "thumb"})
        .type("");
    addSingleResultOption(command);
    command.example("vornfh next sd avi");
}

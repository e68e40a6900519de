// SPDX-License-Identifier: MIT
#include "commands.h"
#include "copying.h"
#include "device.h"
#include "folders.h"
#include "output.h"
#include "paths.h"
#include "signals.h"
#include "text.h"

#include <QFileInfo>

#include <memory>
#include <optional>

namespace {

enum class Mode { Copy, Move };

struct Request {
    std::vector<std::string> files;
    Storage storage;
    QString folder;
    Mode mode;
};

qint64 sizeOf(const std::string &file)
{
    struct stat status = {};
    return ::stat(file.c_str(), &status) == 0 && S_ISREG(status.st_mode) ? status.st_size : 0;
}

/// Copies or moves one file and prints its line. The target folder is created for the first file that can be
/// opened.
void transfer(const std::string &file, const Request &request, std::optional<TargetFolder> &target,
              Progress &progress)
{
    const Source source(fileArgument(file));
    if (!target)
        target.emplace(request.storage, request.folder);
    const QString copy = target->take(source, progress);
    if (request.mode == Mode::Move)
        source.remove(copy);
    progress.erase();
    printLine(printable(source.path()) + " -> " + printable(copy));
}

ExitCode transferAll(const Request &request)
{
    requireFolderName(request.folder);
    requireWritable(request.storage);
    requireReadableFolder(request.storage.location);
    qint64 bytes = 0;
    for (const std::string &file : request.files)
        bytes += sizeOf(file);
    catchStopSignals();
    Progress progress(static_cast<int>(request.files.size()), bytes);
    std::optional<TargetFolder> target;
    size_t done = 0;
    for (size_t i = 0; i < request.files.size() && !isStopped(); ++i) {
        const qint64 size = sizeOf(request.files[i]);
        try {
            transfer(request.files[i], request, target, progress);
            ++done;
        } catch (const FileFailure &failure) {
            progress.erase();
            printError(failure.what());
        }
        progress.finishFile(size);
    }
    if (done < request.files.size())
        throw Failure(QString("%1%2 of %3 files not %4")
                          .arg(isStopped() ? "interrupted: " : "")
                          .arg(request.files.size() - done)
                          .arg(request.files.size())
                          .arg(request.mode == Mode::Move ? "moved" : "copied"));
    return DONE;
}

void addCommand(CommandLine &line, Mode mode, const std::string &name, const std::string &description)
{
    const auto arguments = std::make_shared<CLI::Option *>(nullptr);
    const auto run = [&line, mode, name, arguments] {
        std::vector<std::string> words = (*arguments)->results();
        if (words.size() < 3)
            throw UsageError(
                QString("%1 needs FILE..., STORAGE and FOLDER").arg(QString::fromStdString(name)));
        const QString folder = fromCommandLine(words.back(), "FOLDER");
        words.pop_back();
        const Storage storage = line.storages().require(parseStorage(words.back()));
        words.pop_back();
        return transferAll({words, storage, folder, mode});
    };
    CLI::App &command = line.add(name, description, run);
    *arguments =
        addNames(command, "FILE... STORAGE FOLDER",
                 "Files, a storage device (mmc, sd or usb), and a folder directly in its DCIM folder");
}

} // namespace

void addTransfer(CommandLine &line)
{
    addCommand(
        line, Mode::Copy, "copy",
        "Copies files into a folder of a storage device. Each copy is flushed to the device and compared\n"
        "byte for byte. The folder is created if it is missing; a counter is added to a name that is taken");
    addCommand(
        line, Mode::Move, "move",
        "Copies files as copy does, then deletes each file whose copy is safe. If a source is a symbolic\n"
        "link, only the link is deleted");
}

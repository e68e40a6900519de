// SPDX-License-Identifier: MIT
#include "commands.h"
#include "copying.h"
#include "device.h"
#include "folders.h"
#include "objects.h"
#include "output.h"
#include "paths.h"
#include "signals.h"
#include "text.h"

#include <QSet>

#include <memory>
#include <optional>
#include <vector>

namespace {

struct Request {
    std::vector<std::string> files;
    Storage storage;
    QString folder;
    Mode mode;
    QList<Storage> protecting; // the storage devices whose protected objects stay
};

qint64 sizeOf(const std::string &file)
{
    struct stat status = {};
    return ::stat(file.c_str(), &status) == 0 && S_ISREG(status.st_mode) ? status.st_size : 0;
}

ExitCode transferAll(const Request &request)
{
    requireFolderName(request.folder);
    requireWritable(request.storage);
    requireReadableFolder(request.storage.location);
    const int count = static_cast<int>(request.files.size());
    std::vector<qint64> ends; // where each file ends, counted in bytes over all files
    qint64 bytes = 0;
    for (const std::string &file : request.files)
        ends.push_back(bytes += sizeOf(file));
    catchStopSignals();
    Progress progress(count, bytes);
    ProtectionCheck protection;
    QSet<QString> given;              // resolved paths
    std::optional<Transfer> transfer; // created, with its folder, once the first file has been opened
    for (size_t i = 0; i < ends.size() && !isStopped(); ++i) {
        try {
            const QString path = pathArgument(request.files[i]);
            const QString resolved = withResolvedFolder(path);
            if (storageOf(resolved, request.protecting))
                protection.requireUnprotected(path, resolved);
            // A file can stay in its folder for a while: one that is given twice would be copied twice.
            if (request.mode == Mode::Move && given.contains(resolved))
                throw FileFailure(path, "is given twice; a file can be moved only once");
            auto source = std::make_unique<Source>(path);
            given.insert(resolved);
            if (!transfer)
                transfer.emplace(VornFileHandler::getDirPath(request.storage.type, request.folder),
                                 request.mode, progress);
            transfer->add(std::move(source));
        } catch (const FileFailure &failure) {
            progress.print([&failure] { printError(QString::fromUtf8(failure.what())); });
            progress.finishFiles(1);
        }
        progress.setBytes(ends[i]); // not all are copied: holes, files that are renamed or already there
    }
    const int done = transfer ? transfer->finish() : 0;
    if (done < count)
        throw Failure(QString("%1%2 of %3 files not %4")
                          .arg(isStopped() ? "interrupted: " : "")
                          .arg(count - done)
                          .arg(count)
                          .arg(request.mode == Mode::Move ? "moved" : "copied"));
    return DONE;
}

void addCommand(CommandLine &line, Mode mode, const std::string &name, const std::string &description)
{
    struct Arguments {
        CLI::Option *words = nullptr;
        bool isForced = false;
    };
    const auto arguments = std::make_shared<Arguments>();
    const auto run = [&line, mode, name, arguments] {
        std::vector<std::string> words = arguments->words->results();
        if (words.size() < 3)
            throw UsageError(
                QString("%1 needs FILE..., STORAGE and FOLDER").arg(QString::fromStdString(name)));
        const QString folder = fromCommandLine(words.back(), "FOLDER");
        words.pop_back();
        const Storage storage = line.storages().require(parseStorage(words.back()));
        words.pop_back();
        const bool isProtecting = mode == Mode::Move && !arguments->isForced;
        return transferAll(
            {words, storage, folder, mode, isProtecting ? line.storages().configured() : QList<Storage>()});
    };
    CLI::App &command = line.add(name, description, run);
    arguments->words =
        addNames(command, "FILE... STORAGE FOLDER",
                 "Files, a storage device (mmc, sd or usb), and a folder directly in its DCIM folder");
    if (mode == Mode::Move)
        command.add_flag("--force", arguments->isForced, "Move protected objects too");
    command.footer("Example: vornfh --sd /mnt/sd/DCIM --usb /mnt/usb/DCIM " + name
                   + " /mnt/sd/DCIM/100VORN/* usb 100VORN");
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
        "Moves files into a folder of a storage device. Within a file system, files are renamed. Between\n"
        "file systems, and on FAT, exFAT and file systems in user space, they are copied as by the copy "
        "command, and\n"
        "each file whose copy is safe is deleted. If a source is a symbolic link, its target is copied, and\n"
        "only the link is deleted");
}

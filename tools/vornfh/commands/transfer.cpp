// SPDX-License-Identifier: MIT
#include "commands.h"
#include "copying.h"
#include "device.h"
#include "filelist.h"
#include "files.h"
#include "folders.h"
#include "media.h"
#include "objects.h"
#include "output.h"
#include "paths.h"
#include "signals.h"
#include "text.h"

#include <QFile>
#include <QSet>

#include <algorithm>
#include <memory>
#include <optional>
#include <vector>

namespace {

struct Request {
    std::vector<std::string> files;
    Storage storage;
    QString folder;
    Mode mode;
    bool isOnly;
    QList<Storage> protecting; // the storage devices whose protected objects stay
    bool isDryRun;
};

/// A file that is named, and the thumbnail that goes with it.
struct Entry {
    std::string file;
    QString resolved;      // without symbolic links in the folder; empty if the argument is not a file name
    QString thumbnail;     // as it is reported; empty if none goes with it
    bool isShared = false; // with a recording that is not named

    int files() const { return thumbnail.isEmpty() ? 1 : 2; }
};

/// Empty for an argument that is not a file name; that is reported when its turn comes.
QString resolvedPath(const std::string &file)
{
    try {
        return withResolvedFolder(pathArgument(file));
    } catch (const FileFailure &) {
        return QString();
    }
}

/// The files to be transferred. A thumbnail goes with the first of its recordings, even if it is named too.
std::vector<Entry> entriesOf(const Request &request)
{
    std::vector<Entry> entries;
    QSet<QString> named;
    for (const std::string &file : request.files) {
        entries.push_back({file, resolvedPath(file), QString()});
        named.insert(entries.back().resolved);
    }
    if (request.isOnly)
        return entries;
    const auto isNamed = [&named](const QString &path) { return named.contains(path); };
    QSet<QString> taken; // thumbnails
    for (Entry &entry : entries) {
        const QString thumbnail = isEntry(entry.resolved) ? thumbnailBeside(entry.resolved) : QString();
        if (thumbnail.isEmpty() || taken.contains(thumbnail))
            continue;
        taken.insert(thumbnail);
        const QStringList others = recordingsBeside(entry.resolved);
        entry.thumbnail = thumbnailOf(pathArgument(entry.file));
        entry.isShared = !std::all_of(others.begin(), others.end(), isNamed);
    }
    const auto isTaken = [&taken](const Entry &entry) { return taken.contains(entry.resolved); };
    entries.erase(std::remove_if(entries.begin(), entries.end(), isTaken), entries.end());
    return entries;
}

qint64 sizeOf(const char *file)
{
    struct stat status = {};
    return ::stat(file, &status) == 0 && S_ISREG(status.st_mode) ? status.st_size : 0;
}

qint64 sizeOf(const Entry &entry)
{
    return sizeOf(entry.file.c_str()) + sizeOf(QFile::encodeName(entry.thumbnail).constData());
}

ExitCode transferAll(const Request &request)
{
    requireFolderName(request.folder);
    requireWritable(request.storage);
    requireReadableFolder(request.storage.location);
    const std::vector<Entry> entries = entriesOf(request);
    int count = 0;
    std::vector<qint64> ends; // where each entry ends, counted in bytes over all of them
    qint64 bytes = 0;
    for (const Entry &entry : entries) {
        count += entry.files();
        ends.push_back(bytes += sizeOf(entry));
    }
    catchStopSignals();
    Progress progress(count, bytes);
    ProtectionCheck protection;
    QSet<QString> given;              // resolved paths
    std::optional<Transfer> transfer; // created, with its folder, once the first file has been opened
    for (size_t i = 0; i < ends.size() && !isStopped(); ++i) {
        const Entry &entry = entries[i];
        try {
            const QString path = pathArgument(entry.file);
            if (storageOf(entry.resolved, request.protecting))
                protection.requireUnprotected(path, entry.resolved);
            // Sources that are copied are deleted later, so one that is given twice would be copied twice.
            if (request.mode == Mode::Move && given.contains(entry.resolved))
                throw FileFailure(path, "is given twice; a file can be moved only once");
            Transfer::Sources sources;
            sources.push_back(std::make_unique<Source>(path));
            if (!entry.thumbnail.isEmpty())
                sources.push_back(std::make_unique<Source>(entry.thumbnail));
            given.insert(entry.resolved);
            if (!transfer)
                transfer.emplace(VornFileHandler::getDirPath(request.storage.type, request.folder),
                                 request.mode, progress, request.isDryRun);
            transfer->add(std::move(sources), Transfer::Conflict::Fail, entry.isShared);
        } catch (const FileFailure &failure) {
            progress.print([&failure] { printFailure(failure); });
            progress.finishFiles(entry.files());
        }
        // Not every byte was copied: holes were not, nor were files that were renamed or already there.
        progress.setBytes(ends[i]);
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
        Option words;
        FileList list;
        bool isForced = false;
        bool isOnly = false;
        bool isDryRun = false;
    };
    const auto arguments = std::make_shared<Arguments>();
    const auto run = [&line, mode, name, arguments] {
        std::vector<std::string> words = arguments->words.values();
        const size_t least = arguments->list.isGiven() ? 2 : 3;
        if (words.size() < least)
            throw UsageError(
                QString("%1 needs FILE..., STORAGE and FOLDER").arg(QString::fromStdString(name)));
        const QString folder = fromCommandLine(words.back(), "FOLDER");
        words.pop_back();
        const Storage storage = line.storages().require(parseStorage(words.back()));
        words.pop_back();
        for (const std::string &file : arguments->list.names())
            words.push_back(file);
        const bool isProtecting = mode == Mode::Move && !arguments->isForced;
        return transferAll({words, storage, folder, mode, arguments->isOnly,
                            isProtecting ? line.storages().configured() : QList<Storage>(),
                            arguments->isDryRun});
    };
    const Command command = line.add(name, description, run);
    arguments->words =
        addNames(command, "FILE... STORAGE FOLDER",
                 "Files, a storage device (mmc, sd or usb), and a folder directly in its DCIM folder");
    arguments->list.addOptions(command);
    command.flag("--only", arguments->isOnly,
                 "Only the files that are named, not the thumbnails of the recordings");
    if (mode == Mode::Move)
        command.flag("--force", arguments->isForced, "Move protected objects too");
    addResultOptions(command);
    addDryRun(command, arguments->isDryRun);
    command.example("vornfh " + name + " /mnt/sd/DCIM/100VORN/* usb 100VORN");
}

} // namespace

void addTransfer(CommandLine &line)
{
    addCommand(
        line, Mode::Copy, "copy",
        "Copies files into a folder on a storage device. Each copy is flushed to the device and compared\n"
        "byte for byte. The thumbnail of a photo or video is copied with it. The folder is created if it\n"
        "is missing. A file that is there already, with the same content, is not copied again; if another\n"
        "file has the name, a counter is added to the name of the copy");
    addCommand(
        line, Mode::Move, "move",
        "Moves files into a folder on a storage device. Within a file system, files are renamed. Between\n"
        "file systems, and on FAT, exFAT and file systems in user space, they are copied as with the copy\n"
        "command, and each file whose copy is safe is deleted. The thumbnail of a photo or video is moved\n"
        "with it. If a source is a symbolic link, its target is copied, and only the link is deleted");
}

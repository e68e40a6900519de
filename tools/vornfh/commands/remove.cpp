// SPDX-License-Identifier: MIT
#include "commands.h"
#include "device.h"
#include "durable.h"
#include "files.h"
#include "folders.h"
#include "media.h"
#include "mounts.h"
#include "output.h"
#include "paths.h"
#include "text.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <iostream>
#include <memory>
#include <set>
#include <utility>

#include <fts.h>
#include <pwd.h>
#include <unistd.h>

using namespace VORN_FILE_HANDLER;

namespace {

// delete

/// @p path with symbolic links resolved in all but the last component: if that is a link, the link is
/// deleted.
QString withResolvedFolder(const QString &path)
{
    const int slash = path.lastIndexOf('/');
    const QString folder = QFileInfo(path.left(slash + 1)).canonicalFilePath();
    return folder.isEmpty() ? path : QDir(folder).filePath(path.mid(slash + 1));
}

/// Returns the storage device whose location contains @p path; nullptr if none does.
const Storage *storageOf(const QString &path, const QList<Storage> &storages)
{
    const auto found = std::find_if(storages.begin(), storages.end(), [&path](const Storage &storage) {
        const QString location = QFileInfo(storage.location).canonicalFilePath();
        return !location.isEmpty() && location != "/" && isInside(path, location);
    });
    return found == storages.end() ? nullptr : &*found;
}

/// Deletes a file and returns the folder that it was in. Before the first file in @p seen, reports what is
/// wrong with its storage device, and removes what interrupted commands have left in its folder.
QString deleteFile(const QString &path, const QList<Storage> &storages, std::set<QString> &seen)
{
    struct stat status = {};
    if (!readLinkStatus(path, status))
        throw FileFailure(path, errorText(errno));
    if (S_ISDIR(status.st_mode))
        throw FileFailure(path, "is a folder");
    if (!S_ISREG(status.st_mode) && !S_ISLNK(status.st_mode))
        throw FileFailure(path, "is not a regular file");
    const QString resolved = withResolvedFolder(path);
    const Storage *storage = storageOf(resolved, storages);
    if (!storage)
        throw FileFailure(path, "is not in the location of a configured storage device");
    const QString folder = QFileInfo(resolved).path();
    if (seen.insert(storage->location).second)
        reportProblems(storage->location);
    if (seen.insert(folder).second)
        removeLeftovers(folder);
    VornFileHandler::deleteFile(resolved);
    // The library does not report the reason for a failure; a second attempt does.
    if (readLinkStatus(resolved, status) && ::unlink(QFile::encodeName(resolved).constData()) != 0)
        throw FileFailure(path, "cannot be deleted: " + errorText(errno));
    return folder;
}

/// Files that are deleted, and the folders that they were in.
struct Deleted {
    QStringList paths;
    std::set<QString> folders;
};

/// Flushes the folders and reports the files. Returns the number of failures.
int report(Deleted &deleted)
{
    const Deleted batch = std::exchange(deleted, {});
    const int failures = forEachReporting(batch.folders, flushFolder);
    if (failures > 0)
        return batch.paths.size();
    for (const QString &path : batch.paths)
        printDone(printable(path));
    return 0;
}

ExitCode deleteFiles(const std::vector<std::string> &files, const QList<Storage> &storages)
{
    constexpr auto INTERVAL = std::chrono::seconds(1);
    auto lastReport = std::chrono::steady_clock::now();
    Deleted deleted;
    std::set<QString> seen; // storage devices and folders
    int failures = 0;
    failures += forEachReporting(files, [&](const std::string &file) {
        const QString path = pathArgument(file);
        deleted.folders.insert(deleteFile(path, storages, seen));
        deleted.paths.append(path);
        if (std::chrono::steady_clock::now() - lastReport < INTERVAL)
            return;
        failures += report(deleted);
        lastReport = std::chrono::steady_clock::now();
    });
    failures += report(deleted);
    if (failures > 0)
        throw Failure(QString("%1 of %2 files not deleted").arg(failures).arg(files.size()));
    return DONE;
}

// rmdir and wipe

/// Everything in a folder, at all depths.
struct Content {
    int files = 0;
    int folders = 0;
    qint64 bytes = 0;
    QStringList names;  // of files and folders
    QStringList others; // files that are not media files
    QString mountPoint; // of another file system in it
    QByteArray first;   // the path of the first name, which can be deleted before the others
};

bool isMedia(const QByteArray &name)
{
    return findType(QString::fromUtf8(name), Qt::CaseInsensitive) != nullptr;
}

void count(const FTSENT &entry, int prefixLength, dev_t device, Content &content)
{
    const QByteArray path = entry.fts_path;
    const QString shown = printable(path.mid(prefixLength));
    if (entry.fts_info == FTS_D) {
        content.folders += entry.fts_level > 0 ? 1 : 0;
        if (entry.fts_statp->st_dev != device && content.mountPoint.isEmpty())
            content.mountPoint = printable(path);
        return;
    }
    if (entry.fts_level > 0) {
        if (content.names.isEmpty())
            content.first = path;
        content.names.append(shown);
    }
    if (entry.fts_info == FTS_DP)
        return;
    ++content.files;
    if (entry.fts_info == FTS_F && entry.fts_statp->st_dev != device && content.mountPoint.isEmpty())
        content.mountPoint = printable(path);
    content.bytes += entry.fts_info == FTS_F ? entry.fts_statp->st_size : 0;
    if (entry.fts_info != FTS_F || !isMedia(entry.fts_name))
        content.others.append(shown);
}

/// Throws Failure if @p folder or a folder in it cannot be read.
Content contentOf(const QString &folder)
{
    Content content;
    QByteArray path = QFile::encodeName(folder);
    struct stat status = {};
    if (::lstat(path.constData(), &status) != 0)
        return content;
    char *const roots[] = {path.data(), nullptr};
    const std::unique_ptr<FTS, int (*)(FTS *)> walk(::fts_open(roots, FTS_PHYSICAL | FTS_NOCHDIR, nullptr),
                                                    ::fts_close);
    if (!walk)
        throw Failure(folder + ": " + errorText(errno));
    while (const FTSENT *entry = ::fts_read(walk.get())) {
        if (entry->fts_info == FTS_DNR || entry->fts_info == FTS_ERR || entry->fts_info == FTS_NS)
            throw Failure(printable(QByteArray(entry->fts_path)) + ": " + errorText(entry->fts_errno));
        count(*entry, path.size() + 1, status.st_dev, content);
    }
    return content;
}

QString listed(const QStringList &names)
{
    constexpr int SHOWN = 5;
    const QString list = QStringList(names.mid(0, SHOWN)).join(", ");
    return names.size() > SHOWN ? QString("%1 and %2 more").arg(list).arg(names.size() - SHOWN) : list;
}

QString summary(const Content &content)
{
    const QString folders = content.folders > 0 ? " and " + counted(content.folders, "folder") : QString();
    return QString("%1%2, %3").arg(counted(content.files, "file"), folders, humanSize(content.bytes));
}

/// Reports what will be deleted, and returns only if the user agrees.
void confirm(const QString &folder, const Content &content, bool isConfirmed)
{
    if (!content.mountPoint.isEmpty())
        throw Failure(QString("%1: another file system is mounted at %2").arg(folder, content.mountPoint));
    printError(QString("%1: will delete %2").arg(folder, summary(content)));
    if (!content.others.isEmpty())
        printError(
            QString("%1: including files that are not media files: %2").arg(folder, listed(content.others)));
    if (isConfirmed)
        return;
    if (!::isatty(STDIN_FILENO))
        throw UsageError(folder + ": standard input is not a terminal; use --yes to delete without asking");
    std::fputs("Delete all of it? [y/N] ", stderr);
    std::string answer;
    std::getline(std::cin, answer);
    if (answer != "y" && answer != "Y" && answer != "yes")
        throw Failure(folder + ": not deleted");
}

/// Deletes an entry that the library has not deleted. Returns the reason for a failure; empty on success.
QString deleteEntry(const QByteArray &path, bool isNew)
{
    if (QFile::encodeName(QFile::decodeName(path)) != path)
        return "files whose names are not valid UTF-8 cannot be deleted";
    if (isNew)
        return "they were created in the meantime";
    return ::remove(path.constData()) == 0 ? QString() : errorText(errno);
}

/// Deletes what the library has not deleted in @p folder. The library does not report the reason for a
/// failure; another attempt does. Throws Failure.
void deleteRest(const QString &folder, const Content &before)
{
    for (Content left = contentOf(folder); !left.names.isEmpty(); left = contentOf(folder)) {
        const QString reason = deleteEntry(left.first, !before.names.contains(left.names.first()));
        if (!reason.isEmpty())
            throw Failure(
                QString("%1: could not be deleted: %2: %3").arg(folder, listed(left.names), reason));
    }
}

/// Reports what was deleted. Throws Failure if something is left.
void requireGone(const QString &folder, const Content &before)
{
    QString rest;
    struct stat status = {};
    if (readLinkStatus(folder, status)) {
        deleteRest(folder, before);
        const int error = ::rmdir(QFile::encodeName(folder).constData()) == 0 ? 0 : errno;
        if (error != 0 && error != EBUSY)
            throw Failure(folder
                          + ": is now empty, but the folder itself cannot be deleted: " + errorText(error));
        rest = error == EBUSY ? "; the folder itself remains because a file system is mounted on it" : "";
    }
    flushFolder(QFileInfo(folder).isDir() ? folder : QFileInfo(folder).path());
    printDone(QString("%1: deleted %2%3").arg(printable(folder), summary(before), rest));
}

void requireRealFolder(const QString &path, const QString &ifMissing)
{
    struct stat status = {};
    if (!readLinkStatus(path, status))
        throw Failure(path + ": " + (errno == ENOENT ? ifMissing : errorText(errno)));
    if (S_ISLNK(status.st_mode))
        throw Failure(path + ": is a symbolic link; nothing was deleted");
    if (!S_ISDIR(status.st_mode))
        throw Failure(path + ": is not a folder");
}

ExitCode removeFolder(const Storage &storage, const QString &name, bool isConfirmed)
{
    requireNotRoot(storage);
    requireFolderName(name);
    const QString path = VornFileHandler::getDirPath(storage.type, name);
    requireRealFolder(path, "does not exist");
    requireWritable(storage);
    Content content = contentOf(path);
    if (!areOnOneFileSystem(path, storage.location))
        content.mountPoint = path;
    confirm(path, content, isConfirmed);
    VornFileHandler::deleteFolder(storage.type, name);
    requireGone(path, content);
    return DONE;
}

QStringList homeFolders()
{
    QStringList paths{QDir::homePath()};
    if (const passwd *user = ::getpwuid(::getuid()))
        paths.append(QFile::decodeName(user->pw_dir));
    return paths;
}

/// Throws UsageError if the user's home folder or another storage device would be deleted as well.
void requireNothingElseInside(const Storage &storage, const QList<Storage> &all)
{
    const QString location = QFileInfo(storage.location).canonicalFilePath();
    const auto contains = [&location](const QString &path) {
        const QString resolved = QFileInfo(nearestExisting(path)).canonicalFilePath();
        return resolved == location || isInside(resolved, location);
    };
    for (const QString &home : homeFolders()) {
        if (contains(home))
            throw UsageError(QString("%1: is or contains the home folder %2").arg(location, home));
    }
    for (const Storage &other : all) {
        if (other.type != storage.type && contains(other.location))
            throw UsageError(QString("%1: is or contains the location of storage %2, %3")
                                 .arg(location, other.name, other.location));
    }
}

ExitCode wipe(const Storage &storage, const QList<Storage> &all, bool isConfirmed)
{
    requireNotRoot(storage);
    requireRealFolder(storage.location, "does not exist; there is nothing to delete");
    requireNothingElseInside(storage, all);
    requireWritable(storage);
    const Content content = contentOf(storage.location);
    confirm(storage.location, content, isConfirmed);
    VornFileHandler::deleteAllFiles(storage.type);
    requireGone(storage.location, content);
    return DONE;
}

struct Request {
    eStorageType storage = STORAGE_MMC;
    std::string folder;
    CLI::Option *paths = nullptr;
    bool isConfirmed = false;
};

} // namespace

void addRemove(CommandLine &line)
{
    const auto request = std::make_shared<Request>();
    const auto addConfirmation = [request](CLI::App &command) {
        command.add_flag("--yes", request->isConfirmed, "Delete without asking");
    };

    CLI::App &files = line.add("delete", "Deletes files from the storage devices", [&line, request] {
        return deleteFiles(request->paths->results(), line.storages().configured());
    });
    request->paths = addNames(files, "PATH...", "Files");

    CLI::App &folder = line.add(
        "rmdir", "Deletes a folder of a storage device and everything in it, after asking for confirmation",
        [&line, request] {
            return removeFolder(line.storages().require(request->storage),
                                fromCommandLine(request->folder, "FOLDER"), request->isConfirmed);
        });
    addStorageArgument(folder, request->storage);
    addFolderArgument(folder, request->folder);
    addConfirmation(folder);

    CLI::App &all = line.add(
        "wipe",
        "Deletes the DCIM folder of a storage device and everything in it, after asking for confirmation",
        [&line, request] {
            return wipe(line.storages().require(request->storage), line.storages().configured(),
                        request->isConfirmed);
        });
    addStorageArgument(all, request->storage);
    addConfirmation(all);
}

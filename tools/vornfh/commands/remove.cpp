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

#include <fcntl.h>
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

bool isInStorage(const QString &path, const QList<Storage> &storages)
{
    return std::any_of(storages.begin(), storages.end(), [&path](const Storage &storage) {
        const QString location = QFileInfo(storage.location).canonicalFilePath();
        return !location.isEmpty() && location != "/" && isInside(path, location);
    });
}

/// Deletes a file and returns the folder that it was in.
QString deleteFile(const QString &path, const QList<Storage> &storages)
{
    struct stat status = {};
    if (!readLinkStatus(path, status))
        throw FileFailure(path, errorText(errno));
    if (S_ISDIR(status.st_mode))
        throw FileFailure(path, "is a folder");
    if (!S_ISREG(status.st_mode) && !S_ISLNK(status.st_mode))
        throw FileFailure(path, "is not a regular file");
    const QString resolved = withResolvedFolder(path);
    if (!isInStorage(resolved, storages))
        throw FileFailure(path, "is not in the location of a configured storage device");
    VornFileHandler::deleteFile(resolved);
    // The library does not report the reason for a failure; a second attempt does.
    if (readLinkStatus(resolved, status) && ::unlink(QFile::encodeName(resolved).constData()) != 0)
        throw FileFailure(path, "cannot be deleted: " + errorText(errno));
    return QFileInfo(resolved).path();
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
    int failures = 0;
    failures += forEachReporting(files, [&](const std::string &file) {
        const QString path = pathArgument(file);
        deleted.folders.insert(deleteFile(path, storages));
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
    QByteArrayList files;
    QByteArrayList folders; // each after those in it
    QByteArrayList others;  // files that are not media files
    qint64 bytes = 0;
    QString mountPoint; // of another file system in it

    QByteArrayList names() const { return files + folders; }
};

bool isMedia(const QByteArray &name)
{
    return findType(QString::fromUtf8(name), Qt::CaseInsensitive) != nullptr;
}

/// Adds an entry of a folder. Each folder is visited twice, before and after the entries in it.
void add(const FTSENT &entry, int prefixLength, dev_t device, Content &content)
{
    const bool isFile = entry.fts_info == FTS_F;
    if ((entry.fts_info == FTS_D || isFile) && entry.fts_statp->st_dev != device
        && content.mountPoint.isEmpty())
        content.mountPoint = printable(QByteArray(entry.fts_path));
    if (entry.fts_info == FTS_D || entry.fts_level == 0)
        return;
    const QByteArray name = entry.fts_path + prefixLength;
    (entry.fts_info == FTS_DP ? content.folders : content.files).append(name);
    content.bytes += isFile ? entry.fts_statp->st_size : 0;
    if (entry.fts_info != FTS_DP && !(isFile && isMedia(entry.fts_name)))
        content.others.append(name);
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
        add(*entry, path.size() + 1, status.st_dev, content);
    }
    return content;
}

QString listed(const QByteArrayList &names)
{
    constexpr int SHOWN = 5;
    QStringList shown;
    for (const QByteArray &name : names.mid(0, SHOWN))
        shown.append(printable(name));
    const QString list = shown.join(", ");
    return names.size() > SHOWN ? QString("%1 and %2 more").arg(list).arg(names.size() - SHOWN) : list;
}

QString summary(const Content &content)
{
    const QString folders =
        content.folders.isEmpty() ? QString() : " and " + counted(content.folders.size(), "folder");
    return QString("%1%2, %3").arg(counted(content.files.size(), "file"), folders, humanSize(content.bytes));
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

/// Returns whether the library can delete the file @p name.
bool isVisible(const QByteArray &name)
{
    return QFile::encodeName(QFile::decodeName(name)) == name;
}

/// Deletes what was counted, in half the time of the library, which reads all folders again and resolves each
/// path from the root. The library deletes the rest.
void deleteCounted(const QString &folder, const Content &content)
{
    const Descriptor location = openFolder(folder);
    const auto remove = [&location](const QByteArrayList &names, int flags) {
        for (const QByteArray &name : names) {
            if (isVisible(name))
                ::unlinkat(location.get(), name.constData(), flags);
        }
    };
    remove(content.files, 0);
    remove(content.folders, AT_REMOVEDIR);
}

/// Deletes an entry that the library has left. Returns the reason for a failure; empty on success.
QString deleteEntry(const QByteArray &path, bool isNew)
{
    if (!isVisible(path))
        return "files whose names are not valid UTF-8 cannot be deleted";
    if (isNew)
        return "they were created in the meantime";
    return ::remove(path.constData()) == 0 ? QString() : errorText(errno);
}

/// Deletes what the library has left in @p folder. The library does not report the reason for a failure;
/// another attempt does. Throws Failure.
void deleteRest(const QString &folder, const Content &before)
{
    const QByteArrayList known = before.names();
    QByteArrayList left;
    while (!(left = contentOf(folder).names()).isEmpty()) {
        const QByteArray path = QFile::encodeName(folder) + "/" + left.first();
        const QString reason = deleteEntry(path, !known.contains(left.first()));
        if (!reason.isEmpty())
            throw Failure(QString("%1: could not be deleted: %2: %3").arg(folder, listed(left), reason));
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
    deleteCounted(path, content);
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
    deleteCounted(storage.location, content);
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

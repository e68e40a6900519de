// SPDX-License-Identifier: MIT
#include "commands.h"
#include "device.h"
#include "dryrun.h"
#include "durable.h"
#include "filelist.h"
#include "files.h"
#include "folders.h"
#include "media.h"
#include "mounts.h"
#include "objects.h"
#include "output.h"
#include "paths.h"
#include "report.h"
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
#include <optional>
#include <set>
#include <utility>

#include <fcntl.h>
#include <fts.h>
#include <pwd.h>
#include <sys/sysmacros.h>
#include <unistd.h>

using namespace VORN_FILE_HANDLER;

namespace {

// delete

struct Request {
    eStorageType storage = STORAGE_MMC;
    std::string folder;
    Option paths;
    FileList list;
    bool isConfirmed = false;
    bool isForced = false;
    bool isOnly = false;
    bool isDryRun = false;
};

/// A file to be deleted.
struct Target {
    QString path;                 // as it is reported
    QString resolved;             // without symbolic links in the folder
    QString thumbnail;            // that goes with it, as it is reported; empty if none does
    std::vector<FileFacts> facts; // of the file and the thumbnail

    QString folder() const { return QFileInfo(resolved).path(); }
};

/// What has been examined since the start.
struct Seen {
    std::set<QString> locations;
    std::set<QString> folders;
    ProtectionCheck protection;
    std::set<QString> planned; // files that a dry run has printed
};

/// Returns whether the thumbnail of @p recording would be alone without it and the files in @p planned.
bool isThumbnailFreed(const QString &recording, const std::set<QString> &planned)
{
    const QString thumbnail = thumbnailBeside(recording);
    if (thumbnail.isEmpty() || planned.count(thumbnail) > 0)
        return false;
    const QStringList others = recordingsBeside(recording);
    return std::all_of(others.begin(), others.end(),
                       [&planned](const QString &path) { return planned.count(path) > 0; });
}

/// Returns the file @p path if it may be deleted. For the first file on a storage device, reports what is
/// wrong with the device; for the first in a folder, removes what interrupted commands have left there. @p
/// seen records both.
Target targetOf(const QString &path, const QList<Storage> &storages, const Request &request, Seen &seen)
{
    struct stat status = {};
    if (!readLinkStatus(path, status))
        throw FileFailure(path, errorText(errno));
    if (seen.planned.count(withResolvedFolder(path)) > 0)
        throw FileFailure(path, errorText(ENOENT));
    if (S_ISDIR(status.st_mode))
        throw FileFailure(path, "is a folder");
    if (!S_ISREG(status.st_mode) && !S_ISLNK(status.st_mode))
        throw FileFailure(path, "is not a regular file");
    const QString resolved = withResolvedFolder(path);
    const Storage *storage = storageOf(resolved, storages);
    if (!storage)
        throw FileFailure(path, "is not in the location of a configured storage device");
    const QString folder = QFileInfo(resolved).path();
    if (seen.locations.insert(storage->location).second)
        reportProblems(storage->location);
    if (seen.folders.insert(folder).second) {
        if (!request.isDryRun)
            removeLeftovers(folder);
        reportUnreadable(folder);
    }
    if (!request.isForced) {
        seen.protection.requireUnprotected(path, resolved);
        seen.protection.requireNotBeingWritten(path, resolved);
    }
    const bool hasThumbnail = !request.isOnly && isThumbnailFreed(resolved, seen.planned);
    const QString thumbnail = hasThumbnail ? thumbnailOf(path) : QString();
    return {path, resolved, thumbnail,
            factsOfObject(hasThumbnail ? QStringList{path, thumbnail} : QStringList{path})};
}

void deleteFile(const QString &resolved, const QString &path)
{
    VornFileHandler::deleteFile(resolved);
    // The library does not report the reason for a failure; a second attempt does.
    if (isEntry(resolved) && ::unlink(QFile::encodeName(resolved).constData()) != 0)
        throw FileFailure(path, "cannot be deleted: " + errorText(errno));
}

/// Deletes files, and reports them once the deletion is on the device. A recording is deleted after its
/// thumbnail, so that no thumbnail is ever alone.
class Deletion
{
public:
    explicit Deletion(bool isDryRun) : mIsDryRun(isDryRun) {}

    void add(const Target &target, Seen &seen)
    {
        if (mIsDryRun) {
            plan(target, seen);
            return;
        }
        if (target.thumbnail.isEmpty()) {
            deleteFile(target.resolved, target.path);
            mDeleted.append(target.facts.front());
        } else {
            deleteFile(thumbnailOf(target.resolved), target.thumbnail);
            mRecordings.append(target);
            mTaken.insert({target.resolved, thumbnailOf(target.resolved)});
        }
        mFolders.insert(target.folder());
        ++mNamed;
    }

    /// Returns whether @p path is a recording that was added together with its thumbnail, or that thumbnail.
    bool isTaken(const QString &path) const { return mTaken.find(withResolvedFolder(path)) != mTaken.end(); }

    /// Deletes the recordings whose thumbnails have been deleted, flushes the folders, and reports the files.
    /// Returns the number of failures.
    int finish()
    {
        const QList<Target> recordings = std::exchange(mRecordings, {});
        const std::set<QString> folders = std::exchange(mFolders, {});
        const int named = std::exchange(mNamed, 0);
        if (!recordings.isEmpty() && forEachReporting(folders, flushFolder) > 0)
            return named;
        const int failures = forEachReporting(recordings, [this](const Target &target) {
            mDeleted.append(target.facts.back());
            deleteFile(target.resolved, target.path);
            mDeleted.insert(mDeleted.size() - 1, target.facts.front());
        });
        const QList<FileFacts> deleted = std::exchange(mDeleted, {});
        if (forEachReporting(folders, flushFolder) > 0)
            return named;
        std::for_each(deleted.begin(), deleted.end(), report);
        return failures;
    }

private:
    /// Reports what add() would delete.
    void plan(const Target &target, Seen &seen)
    {
        requireDeletable(target.path);
        for (const FileFacts &file : target.facts)
            report(file);
        seen.planned.insert(target.resolved);
        if (target.thumbnail.isEmpty())
            return;
        seen.planned.insert(thumbnailOf(target.resolved));
        mTaken.insert({target.resolved, thumbnailOf(target.resolved)});
    }

    static void report(const FileFacts &file)
    {
        reportDone(printable(file.path), [&file] { return toJson(file, {{"action", "deleted"}}); });
    }

    const bool mIsDryRun;
    QList<FileFacts> mDeleted;  // not yet reported
    QList<Target> mRecordings;  // whose thumbnails are deleted
    std::set<QString> mTaken;   // since the start
    std::set<QString> mFolders; // to be flushed
    int mNamed = 0;
};

ExitCode deleteFiles(const Request &request, const QList<Storage> &storages)
{
    constexpr auto INTERVAL = std::chrono::seconds(1);
    const std::vector<std::string> files = namesIn(request.paths, request.list);
    auto lastReport = std::chrono::steady_clock::now();
    Deletion deletion(request.isDryRun);
    Seen seen;
    int failures = 0;
    failures += forEachReporting(files, [&](const std::string &file) {
        const QString path = pathArgument(file);
        if (deletion.isTaken(path))
            return;
        deletion.add(targetOf(path, storages, request, seen), seen);
        if (std::chrono::steady_clock::now() - lastReport < INTERVAL)
            return;
        failures += deletion.finish();
        lastReport = std::chrono::steady_clock::now();
    });
    failures += deletion.finish();
    if (failures > 0)
        throw Failure(QString("%1 of %2 files not deleted").arg(failures).arg(files.size()));
    return DONE;
}

// rmdir and wipe

/// The paths, without the extension, of the files that are left alone.
using Kept = std::set<QByteArray>;

bool isKept(const FTSENT &entry, const Kept &kept)
{
    if (kept.empty())
        return false;
    const QByteArray path = entry.fts_path;
    if (entry.fts_info != FTS_D && entry.fts_info != FTS_DP)
        return kept.find(basePath(path)) != kept.end();
    const auto next = kept.lower_bound(path + "/");
    return next != kept.end() && next->startsWith(path + "/");
}

/// Everything in a folder, at all depths, that is to be deleted.
struct Content {
    QByteArrayList files;
    QByteArrayList folders; // each after those in it
    QByteArrayList others;  // files that are not media files
    qint64 bytes = 0;
    QString mountPoint; // of another file system in it
    Kept objects;       // that are protected or being written
    int keptFiles = 0;

    QByteArrayList names() const { return files + folders; }
};

bool isMedia(const QByteArray &name)
{
    return findType(QString::fromUtf8(name), Qt::CaseInsensitive) != nullptr;
}

/// The files on the file system @p device that a process has open. No value if that is not known of every
/// process: only root in the initial PID namespace sees the files of all of them.
std::optional<std::set<ino_t>> openFilesOn(dev_t device)
{
    if (::geteuid() != 0 || !QFile::symLinkTarget("/proc/self/ns/pid").endsWith("/pid:[4026531836]"))
        return std::nullopt;
    std::set<ino_t> files;
    const auto addFile = [&files, device](int folder, const dirent &entry) {
        // Without synchronising, this does not wait for the file systems of other files, which may hang.
        struct statx status = {};
        const bool isRead = ::statx(folder, entry.d_name, AT_STATX_DONT_SYNC, STATX_INO, &status) == 0;
        if (isRead && ::makedev(status.stx_dev_major, status.stx_dev_minor) == device)
            files.insert(status.stx_ino);
    };
    bool isComplete = true;
    const auto addProcess = [&](int, const dirent &process) {
        const bool isProcess = process.d_name[0] >= '0' && process.d_name[0] <= '9';
        if (isProcess && !forEachEntry(QString("/proc/%1/fd").arg(process.d_name), addFile))
            isComplete = isComplete && (errno == ENOENT || errno == ESRCH); // it has ended
    };
    isComplete = forEachEntry("/proc", addProcess) && isComplete;
    return isComplete ? std::make_optional(files) : std::nullopt;
}

/// What is known about a folder before its entries are added.
struct Root {
    int prefixLength;
    dev_t device;
    bool isForced; // to delete protected objects, and those that are being written, too
    std::optional<std::set<ino_t>> openFiles;

    /// Probing each file would take almost as long as deleting it, so only those that are open are probed.
    bool isBeingWritten(const FTSENT &file) const
    {
        return (!openFiles || openFiles->count(file.fts_statp->st_ino) > 0)
               && ::isBeingWritten(QFile::decodeName(file.fts_path));
    }
};

/// Adds an entry of a folder. Each folder is visited twice, before and after the entries in it.
void add(const FTSENT &entry, const Root &root, const Kept &kept, Content &content)
{
    const bool isFile = entry.fts_info == FTS_F;
    const bool isFolder = entry.fts_info == FTS_D || entry.fts_info == FTS_DP;
    const bool isLeft = isKept(entry, kept);
    if ((entry.fts_info == FTS_D || isFile) && entry.fts_statp->st_dev != root.device
        && content.mountPoint.isEmpty() && !(isFile && isLeft))
        content.mountPoint = printable(QByteArray(entry.fts_path));
    if (isLeft)
        content.keptFiles += isFolder ? 0 : 1;
    if (entry.fts_info == FTS_D || entry.fts_level == 0 || isLeft)
        return;
    const QByteArray name = entry.fts_path + root.prefixLength;
    (isFolder ? content.folders : content.files).append(name);
    const bool isMediaFile = isFile && isMedia(entry.fts_name);
    const auto isToBeKept = [&] {
        return isProtectedMode(entry.fts_statp->st_mode) || (isMediaFile && root.isBeingWritten(entry));
    };
    if (isFile && !root.isForced && isToBeKept())
        content.objects.insert(basePath(entry.fts_path));
    content.bytes += isFile ? entry.fts_statp->st_size : 0;
    if (!isFolder && !isMediaFile)
        content.others.append(name);
}

/// Calls work(entry) for everything in @p folder, and for the folder itself, as fts(3) walks through it.
/// Throws Failure if @p folder or a folder in it cannot be read.
template <typename Work>
void walk(const QByteArray &folder, Work work)
{
    QByteArray path = folder;
    char *const roots[] = {path.data(), nullptr};
    const std::unique_ptr<FTS, int (*)(FTS *)> entries(::fts_open(roots, FTS_PHYSICAL | FTS_NOCHDIR, nullptr),
                                                       ::fts_close);
    if (!entries)
        throw Failure(printable(folder) + ": " + errorText(errno));
    while (const FTSENT *entry = ::fts_read(entries.get())) {
        if (entry->fts_info == FTS_DNR || entry->fts_info == FTS_ERR || entry->fts_info == FTS_NS)
            throw Failure(printable(QByteArray(entry->fts_path)) + ": " + errorText(entry->fts_errno));
        work(*entry);
    }
}

/// What is in @p folder, without what is kept. If @p isForced, Content::objects stays empty. Throws Failure
/// if a folder cannot be read.
Content contentOf(const QString &folder, const Kept &kept, bool isForced)
{
    Content content;
    const QByteArray path = QFile::encodeName(folder);
    struct stat status = {};
    if (::lstat(path.constData(), &status) != 0)
        return content;
    const auto openFiles = isForced ? std::nullopt : openFilesOn(status.st_dev);
    const Root root = {path.size() + 1, status.st_dev, isForced, openFiles};
    walk(path, [&](const FTSENT &entry) { add(entry, root, kept, content); });
    return content;
}

/// What may be deleted in @p folder: everything but the objects that are protected or being written or, if
/// @p isForced, everything.
Content deletableContent(const QString &folder, bool isForced)
{
    Kept kept;
    Content content = contentOf(folder, kept, isForced);
    while (!content.objects.empty()) {
        kept.merge(content.objects);
        content = contentOf(folder, kept, isForced);
    }
    content.objects = kept;
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

/// Reports what will be deleted. Returns only if the user agrees, and no further file has been protected or
/// opened for writing in the meantime.
void confirm(const QString &folder, const Content &content, const Request &request)
{
    if (!content.mountPoint.isEmpty())
        throw Failure(QString("%1: another file system is mounted at %2").arg(folder, content.mountPoint));
    const QString verb = request.isDryRun ? "would delete" : "will delete";
    printError(QString("%1: %2 %3").arg(folder, verb, summary(content)));
    if (!content.others.isEmpty())
        printError(
            QString("%1: including files that are not media files: %2").arg(folder, listed(content.others)));
    if (content.keptFiles > 0)
        printError(QString("%1: keeps %2 of objects that are protected or being written; use --force to "
                           "delete them too")
                       .arg(folder, counted(content.keptFiles, "file")));
    if (request.isConfirmed || request.isDryRun)
        return;
    if (!::isatty(STDIN_FILENO))
        throw UsageError(folder + ": standard input is not a terminal; use --yes to delete without asking");
    std::fputs("Delete all of it? [y/N] ", stderr);
    std::string answer;
    std::getline(std::cin, answer);
    if (answer != "y" && answer != "Y" && answer != "yes")
        throw Failure(folder + ": not deleted");
    const Kept now = deletableContent(folder, request.isForced).objects;
    if (!std::includes(content.objects.begin(), content.objects.end(), now.begin(), now.end()))
        throw Failure(folder
                      + ": nothing was deleted, because in the meantime a file has been protected or opened "
                        "for writing");
}

/// Returns whether the library can delete the file @p name.
bool isVisible(const QByteArray &name)
{
    return QFile::encodeName(QFile::decodeName(name)) == name;
}

/// Deletes what was counted. The library would take twice as long, because it reads all folders again and
/// resolves each path from the root, and it would delete a recording that has begun in the meantime. What is
/// left is for deleteRest() to delete.
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

const QString NOT_UTF8 = "files whose names are not valid UTF-8 cannot be deleted";

/// Deletes an entry that the library has not deleted. Returns the reason for a failure; empty on success.
QString deleteEntry(const QByteArray &path, bool isNew)
{
    if (!isVisible(path))
        return NOT_UTF8;
    if (isNew)
        return "created in the meantime";
    return ::remove(path.constData()) == 0 ? QString() : errorText(errno);
}

/// Deletes what the library has not deleted in @p folder. The library does not report the reason for a
/// failure; another attempt does. Throws Failure.
void deleteRest(const QString &folder, const Content &before)
{
    const QByteArrayList known = before.names();
    QByteArrayList left;
    while (!(left = contentOf(folder, before.objects, true).names()).isEmpty()) {
        const QByteArray path = QFile::encodeName(folder) + "/" + left.first();
        const QString reason = deleteEntry(path, !known.contains(left.first()));
        if (!reason.isEmpty())
            throw Failure(QString("%1: could not be deleted: %2: %3").arg(folder, listed(left), reason));
    }
}

void reportDeleted(const QString &folder, const Content &content, const QString &rest)
{
    const auto object = [&] {
        return toJson(folderAt(folder), {{"action", "deleted"},
                                         {"files", content.files.size()},
                                         {"folders", content.folders.size()},
                                         {"bytes", content.bytes},
                                         {"kept", content.keptFiles}});
    };
    reportDone(QString("%1: deleted %2%3").arg(printable(folder), summary(content), rest), object);
}

/// Reports what was deleted. Throws Failure if something is left.
void requireGone(const QString &folder, const Content &before)
{
    QString rest;
    if (isEntry(folder)) {
        deleteRest(folder, before);
        const int error = ::rmdir(QFile::encodeName(folder).constData()) == 0 ? 0 : errno;
        if (error != 0 && error != EBUSY)
            throw Failure(folder
                          + ": is now empty, but the folder itself cannot be deleted: " + errorText(error));
        rest = error == EBUSY ? "; the folder itself remains because a file system is mounted on it" : "";
    }
    flushFolder(QFileInfo(folder).isDir() ? folder : QFileInfo(folder).path());
    reportDeleted(folder, before, rest);
}

/// Deletes @p content, and @p folder itself if nothing is kept, and reports it. Throws Failure if anything
/// else remains.
ExitCode deleteContent(const QString &folder, const Content &content)
{
    deleteCounted(folder, content);
    if (content.keptFiles == 0) {
        requireGone(folder, content);
        return DONE;
    }
    deleteRest(folder, content);
    flushFileSystem(folder);
    reportDeleted(folder, content, "; kept " + counted(content.keptFiles, "file"));
    return FAILED;
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

/// Throws Failure if a leftover in @p folder is not safe to delete: it may be the only copy of a file, or
/// share its content with a file in another folder.
void requireNoSharedContent(const QString &folder)
{
    const Leftovers leftovers = leftoversIn(folder);
    if (!leftovers.paths.isEmpty() && !leftovers.areSafeToDelete())
        throw Failure(leftovers.paths.first() + ": was left by an interrupted command; " + MAY_SHARE_CONTENT);
}

/// Prints what would be deleted in @p folder, and the folder itself if it would be. Throws Failure if
/// something would be left that is not kept.
ExitCode printPlan(const QString &folder, const Content &content)
{
    const QByteArray path = QFile::encodeName(folder);
    QByteArrayList left;
    QString reason;
    for (const QByteArray &name : content.names()) {
        const QByteArray entry = path + "/" + name;
        const QString why = isVisible(name) ? whyNotDeletable(QFile::decodeName(entry)) : NOT_UTF8;
        if (!why.isEmpty())
            left.append(name);
        else if (!isJson())
            printLine(printable(entry));
        if (reason.isEmpty())
            reason = why;
    }
    if (!left.isEmpty())
        throw Failure(QString("%1: could not be deleted: %2: %3").arg(folder, listed(left), reason));
    if (content.keptFiles > 0) {
        if (isJson())
            reportDeleted(folder, content, QString());
        return FAILED;
    }
    reason = whyNotDeletable(folder);
    if (!reason.isEmpty())
        throw Failure(folder + ": the folder itself cannot be deleted: " + reason);
    if (isJson())
        reportDeleted(folder, content, QString());
    else
        printLine(printable(folder));
    return DONE;
}

ExitCode removeFolder(const Storage &storage, const QString &name, const Request &request)
{
    requireNotRoot(storage);
    requireFolderName(name);
    const QString path = VornFileHandler::getDirPath(storage.type, name);
    requireWritable(storage);
    requireRealFolder(path, "does not exist");
    requireNoSharedContent(path);
    Content content = deletableContent(path, request.isForced);
    if (!areOnOneFileSystem(path, storage.location))
        content.mountPoint = path;
    confirm(path, content, request);
    if (request.isDryRun)
        return printPlan(path, content);
    return deleteContent(path, content);
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

ExitCode wipe(const Storage &storage, const QList<Storage> &all, const Request &request)
{
    requireNotRoot(storage);
    requireWritable(storage);
    requireRealFolder(storage.location, "does not exist; there is nothing to delete");
    requireNothingElseInside(storage, all);
    const Content content = deletableContent(storage.location, request.isForced);
    confirm(storage.location, content, request);
    if (request.isDryRun)
        return printPlan(storage.location, content);
    return deleteContent(storage.location, content);
}

} // namespace

void addRemove(CommandLine &line)
{
    const auto request = std::make_shared<Request>();
    const auto addForce = [request](const Command &command) {
        command.flag("--force", request->isForced, "Delete what is protected or being written, too");
        addDryRun(command, request->isDryRun);
    };
    const auto addConfirmation = [request, addForce](const Command &command) {
        command.flag("--yes", request->isConfirmed, "Delete without asking");
        addForce(command);
    };

    const Command files = line.add(
        "delete", "Deletes files from the storage devices. The thumbnail of a recording goes with it",
        [&line, request] { return deleteFiles(*request, line.storages().configured()); });
    request->paths = addNames(files, "PATH...", "Files").required(false);
    request->list.addOptions(files);
    addForce(files);
    files.flag("--only", request->isOnly, "Delete only the files that are named, not their thumbnails");
    addResultOptions(files);
    files.example("vornfh delete /mnt/sd/DCIM/100VORN/DCF_0001.jpg");

    const Command folder = line.add(
        "rmdir", "Deletes a folder on a storage device and everything in it, after asking for confirmation",
        [&line, request] {
            return removeFolder(line.storages().require(request->storage),
                                fromCommandLine(request->folder, "FOLDER"), *request);
        });
    addStorageArgument(folder, request->storage);
    addFolderArgument(folder, request->folder);
    addConfirmation(folder);
    addSingleResultOption(folder);
    folder.example("vornfh rmdir sd 100VORN");

    const Command all = line.add(
        "wipe", "Deletes the DCIM folder and everything in it, after asking for confirmation",
        [&line, request] {
            return wipe(line.storages().require(request->storage), line.storages().configured(), *request);
        });
    addStorageArgument(all, request->storage);
    addConfirmation(all);
    addSingleResultOption(all);
    all.example("vornfh wipe sd --dry-run");
}

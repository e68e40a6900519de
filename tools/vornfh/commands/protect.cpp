// SPDX-License-Identifier: MIT
#include "commands.h"
#include "device.h"
#include "durable.h"
#include "filelist.h"
#include "files.h"
#include "folders.h"
#include "mounts.h"
#include "numbering.h"
#include "objects.h"
#include "output.h"
#include "paths.h"
#include "report.h"
#include "temporary.h"
#include "text.h"

#include <QFile>
#include <QFileInfo>

#include <algorithm>
#include <cerrno>
#include <map>
#include <memory>
#include <set>
#include <vector>

#include <fcntl.h>
#include <linux/msdos_fs.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

struct Request {
    Option paths;
    FileList list;
    bool isProtecting;
    bool isDryRun = false;
};

/// The objects of the numbered folders of storage devices. Each folder is read once.
class Objects
{
public:
    Objects(const QList<Storage> &storages, bool isDryRun) : mStorages(storages), mIsDryRun(isDryRun) {}

    /// What @p path names: all objects in a numbered folder, or the object of a file in such a folder. Throws
    /// Failure if it names neither.
    NumberedFolder at(const QString &path)
    {
        const bool isFolder = QFileInfo(path).isDir();
        const QString resolved = isFolder ? QFileInfo(path).canonicalFilePath() : withResolvedFolder(path);
        const QFileInfo parent(QFileInfo(resolved).path());
        // read() restores a file that an interrupted command has left without its name.
        const bool isRestorable = parent.isDir() && isNumberedName(parent.fileName());
        if (!isEntry(resolved) && !isRestorable)
            throw FileFailure(path, errorText(errno));
        const NumberedFolder &folder = read(isFolder ? resolved : parent.filePath(), path);
        if (isFolder)
            return folder;
        if (!isEntry(resolved))
            throw FileFailure(path, errorText(errno));
        const QByteArray base = QFile::encodeName(QFileInfo(resolved).completeBaseName());
        const auto object =
            std::lower_bound(folder.objects.begin(), folder.objects.end(), base,
                             [](const Object &one, const QByteArray &name) { return one.base < name; });
        if (object == folder.objects.end() || object->base != base || !findType(path, Qt::CaseInsensitive))
            throw FileFailure(path, "does not belong to an object");
        return {folder.path, {*object}};
    }

private:
    const NumberedFolder &read(const QString &folder, const QString &path)
    {
        const auto found = mFolders.find(folder);
        if (found != mFolders.end())
            return found->second;
        const QString location = storageOfNumberedFolder(folder, path, mStorages).location;
        if (mReported.insert(location).second)
            reportProblems(location);
        if (!mIsDryRun)
            removeLeftovers(folder);
        reportUnreadable(folder);
        return mFolders.emplace(folder, readNumberedFolder(folder)).first->second;
    }

    const QList<Storage> mStorages;
    const bool mIsDryRun;
    std::set<QString> mReported; // locations
    std::map<QString, NumberedFolder> mFolders;
};

/// Clears the read-only attribute of a file on exFAT. Returns false if the driver has no ioctl() for
/// this; it has had one since Linux 6.8.
bool clearAttribute(int file)
{
    __u32 attributes = 0;
    if (::ioctl(file, FAT_IOCTL_GET_ATTRIBUTES, &attributes) != 0)
        return false;
    attributes &= ~static_cast<__u32>(ATTR_RO);
    return ::ioctl(file, FAT_IOCTL_SET_ATTRIBUTES, &attributes) == 0;
}

/// Replaces a file with an unprotected copy. Older exFAT drivers write back a read-only attribute that they
/// have read from the device, regardless of the current permissions.
void replaceByCopy(const QString &path, int file, const struct stat &before)
{
    TemporaryFile copy(QFileInfo(path).path(), path);
    if (!copyContent(file, copy.descriptor()))
        throw FileFailure(path, "an unprotected copy cannot be written: " + errorText(errno));
    struct stat attributes = before;
    attributes.st_mode |= defaultMode(ANY_WRITE);
    setAttributes(copy.descriptor(), attributes); // exFAT stores no owner
    if (::fsync(copy.descriptor()) != 0)
        throw FileFailure(path, "the unprotected copy cannot be flushed to the device: " + errorText(errno));
    if (!hasSameContent(file, copy.descriptor(), path))
        throw FileFailure(path, "the unprotected copy differs");
    struct stat now = {};
    if (!readLinkStatus(path, now) || !isSameState(before, now) || isBeingWritten(path))
        throw FileFailure(path, "was changed by another program in the meantime");
    replaceFile(copy, path);
}

/// The error that changing the mode of a file would cause, as far as it can be known in advance; 0 if none.
int modeError(const QString &path, const struct stat &status)
{
    if (isOnReadOnlyFileSystem(path))
        return EROFS;
    return ::geteuid() == 0 || ::geteuid() == status.st_uid ? 0 : EPERM;
}

/// Protects or unprotects a file.
void mark(const QString &path, const Request &request)
{
    const bool isProtecting = request.isProtecting;
    const Descriptor file = openFile(path, O_RDONLY | O_NOFOLLOW | O_NONBLOCK);
    struct stat status = {};
    const auto require = [&](bool isDone) {
        if (!isDone)
            throw FileFailure(path, QString("cannot be %1: ").arg(isProtecting ? "protected" : "unprotected")
                                        + errorText(errno));
    };
    require(::fstat(file.get(), &status) == 0);
    if (isProtectedMode(status.st_mode) == isProtecting)
        return;
    if (request.isDryRun) {
        errno = modeError(path, status);
        require(errno == 0);
        return;
    }
    const mode_t permissions = status.st_mode & 07777 & ~ANY_WRITE;
    if (isProtecting)
        require(::fchmod(file.get(), permissions) == 0);
    else if (fileSystemOf(path) == FileSystem::Exfat && !clearAttribute(file.get()))
        replaceByCopy(path, file.get(), status);
    else // FAT accepts exactly the write permissions that its mount options allow, or none
        require(::fchmod(file.get(), permissions | defaultMode(ANY_WRITE)) == 0
                || ::fchmod(file.get(), permissions | ANY_WRITE) == 0);
    require(readLinkStatus(path, status));
    if (isProtectedMode(status.st_mode) != isProtecting)
        throw FileFailure(path, "the file system does not support the protection of files");
}

ExitCode markAll(const Request &request, const QList<Storage> &storages)
{
    const std::vector<std::string> arguments = namesIn(request.paths, request.list);
    Objects objects(storages, request.isDryRun);
    std::vector<FileFacts> marked;
    std::set<QString> seen;
    std::set<QString> folders;
    int incomplete = 0;
    const int refused = forEachReporting(arguments, [&](const std::string &argument) {
        const QString path = pathArgument(argument);
        const NumberedFolder folder = objects.at(path);
        std::vector<FileFacts> files;
        for (const Object &object : folder.objects) {
            for (const ObjectFile &file : object.files)
                files.push_back(factsOf(folder, object, file));
        }
        folders.insert(folder.path);
        const int failed = forEachReporting(files, [&](FileFacts file) {
            if (!seen.insert(file.path).second)
                return;
            mark(file.path, request);
            file.isProtected = request.isProtecting;
            marked.push_back(file);
        });
        incomplete += failed > 0 ? 1 : 0;
    });
    for (const QString &folder : folders) {
        if (!request.isDryRun)
            flushFileSystem(folder);
    }
    const QString action = request.isProtecting ? "protected" : "unprotected";
    for (const FileFacts &file : marked)
        reportDone(printable(file.path), [&] { return toJson(file, {{"action", action}}); });
    if (refused + incomplete > 0)
        throw Failure(
            QString("%1 of %2 paths not %3").arg(refused + incomplete).arg(arguments.size()).arg(action));
    return DONE;
}

void addCommand(CommandLine &line, bool isProtecting, const char *name, const char *description)
{
    const auto request = std::make_shared<Request>();
    request->isProtecting = isProtecting;
    const Command command = line.add(
        name, description, [&line, request] { return markAll(*request, line.storages().configured()); });
    request->paths =
        addNames(command, "PATH...", "Files of objects, or numbered folders for all objects in them")
            .required(false);
    request->list.addOptions(command);
    addResultOptions(command);
    addDryRun(command, request->isDryRun);
    command.example(std::string("vornfh ") + name + " /mnt/sd/DCIM/100VORN/DCF_0001.jpg");
}

} // namespace

void addProtect(CommandLine &line)
{
    addCommand(
        line, true, "protect",
        "Protects objects from delete, rmdir, wipe, prune and move. An object is all files of one number in\n"
        "one folder, such as a recording and its thumbnail. Its files lose their write permission, which\n"
        "unprotect restores. On FAT and exFAT, they get the read-only attribute, which cameras use");
    addCommand(
        line, false, "unprotect",
        "Removes the protection of objects. On exFAT before Linux 6.8, the kernel cannot clear the\n"
        "read-only attribute: each file is then replaced with a copy, which takes time and free space");
}

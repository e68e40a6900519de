// SPDX-License-Identifier: MIT
#include "copying.h"

#include "durable.h"
#include "errors.h"
#include "paths.h"
#include "signals.h"
#include "text.h"

#include <QFile>
#include <QFileInfo>

#include <cerrno>
#include <vector>

#include <fcntl.h>
#include <linux/magic.h>
#include <sys/file.h>
#include <sys/statvfs.h>
#include <sys/vfs.h>
#include <unistd.h>

namespace {

QString cpFailure()
{
    return missingProgram({"cp"}).isEmpty() ? "cp failed" : "cp is not on PATH";
}

/// Appends to the file as cp did, and returns the reason that the system gives. The file is then removed.
QString whyNotWritten(const QString &copy)
{
    const Descriptor file = openFile(copy, O_WRONLY | O_CREAT | O_APPEND | O_NOFOLLOW, 0600);
    if (!file.isOpen())
        return errorText(errno);
    const std::vector<char> block(1 << 16);
    ssize_t count = ::write(file.get(), block.data(), block.size());
    if (count == static_cast<ssize_t>(block.size())) // a device may report only now that it is full
        count = ::fsync(file.get()) == 0 ? count : -1;
    else if (count >= 0)
        errno = ENOSPC;
    const QString reason = count == static_cast<ssize_t>(block.size()) ? cpFailure() : errorText(errno);
    ::unlink(QFile::encodeName(copy).constData());
    return reason;
}

} // namespace

Source::Source(const QString &path) : mPath(fromRoot(path))
{
    if (path.isEmpty())
        throw FileFailure("''", "is not a file name");
    if (!readLinkStatus(mPath, mEntry))
        throw FileFailure(mPath, errorText(errno));
    if (!readStatus(mPath, mFile))
        throw FileFailure(mPath, errno == ENOENT ? QString("is a dangling symbolic link") : errorText(errno));
    if (S_ISDIR(mFile.st_mode))
        throw FileFailure(mPath, "is a folder");
    if (!S_ISREG(mFile.st_mode))
        throw FileFailure(mPath, "is not a regular file");
    mDescriptor = openFile(mPath, O_RDONLY | O_NONBLOCK);
    if (!mDescriptor.isOpen())
        throw FileFailure(mPath, errorText(errno));
    requireUnchanged();
}

void Source::requireUnchanged() const
{
    struct stat entry = {};
    struct stat file = {};
    const bool readable = readLinkStatus(mPath, entry) && ::fstat(mDescriptor.get(), &file) == 0;
    if (!readable || !isSameState(mEntry, entry) || !isSameState(mFile, file))
        throw FileFailure(mPath, "has changed since it was opened");
}

bool Source::hasName() const
{
    struct stat file = {};
    return ::fstat(mDescriptor.get(), &file) == 0 && file.st_nlink > 0;
}

void Source::remove(const QString &copy) const
{
    requireUnchanged();
    if (::unlink(QFile::encodeName(mPath).constData()) != 0)
        throw FileFailure(mPath,
                          QString("was copied to %1 but cannot be deleted: ").arg(copy) + errorText(errno));
    if (!flushFolder(folder()))
        throw FileFailure(mPath, QString("was moved to %1, but its folder cannot be flushed: ").arg(copy)
                                     + errorText(errno));
}

TargetFolder::TargetFolder(const Storage &storage, const QString &name)
    : mStorage(storage), mName(name), mPath(VornFileHandler::getDirPath(storage.type, name))
{
    create();
    lock();
}

void TargetFolder::create() const
{
    VornFileHandler::createFolder(mStorage.type, mName);
    const QFileInfo folder(mPath);
    if (folder.isDir())
        return;
    if (folder.exists() || folder.isSymLink())
        throw Failure(mPath + ": is not a folder");
    if (::mkdir(QFile::encodeName(mPath).constData(), 0777) != 0) // the library does not report the reason
        throw Failure(mPath + ": cannot be created: " + errorText(errno));
}

void TargetFolder::lock()
{
    // Inherited by cp: a cp that outlives vornfh keeps the lock while it writes.
    mDescriptor = Descriptor(::open(QFile::encodeName(mPath).constData(), O_RDONLY | O_DIRECTORY)); // NOLINT
    if (!mDescriptor.isOpen() || ::fstat(mDescriptor.get(), &mStatus) != 0)
        throw Failure(mPath + ": " + errorText(errno));
    if (::flock(mDescriptor.get(), LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK)
        throw Failure(mPath + ": another vornfh is copying into this folder");
}

/// The path that the library will choose but does not return.
QString TargetFolder::freePath(const QString &name) const
{
    constexpr int LAST_COUNTER = 999;
    QString path = QString("%1/%2").arg(mPath).arg(name);
    const QStringList pieces = name.split('.');
    for (int counter = 1; QFile::exists(path); ++counter) {
        if (counter > LAST_COUNTER) // the library would overwrite it
            throw FileFailure(
                path, QString("exists, and so do the other %1 names with a counter").arg(LAST_COUNTER - 1));
        path = QString("%1/%2_%3.%4").arg(mPath).arg(pieces.first()).arg(counter).arg(pieces.last());
    }
    struct stat status = {};
    if (readLinkStatus(path, status))
        throw FileFailure(path, "is a dangling symbolic link");
    return path;
}

void TargetFolder::requireRoom(const Source &source) const
{
    constexpr qint64 FAT_LIMIT = 0xFFFFFFFF;
    struct statfs type = {};
    if (::fstatfs(mDescriptor.get(), &type) == 0 && type.f_type == MSDOS_SUPER_MAGIC
        && source.size() > FAT_LIMIT)
        throw FileFailure(source.path(), "is too large for the FAT file system of " + mPath);
    struct statvfs space = {};
    if (::fstatvfs(mDescriptor.get(), &space) != 0 || space.f_blocks == 0)
        return;
    const bool isRoot = ::geteuid() == 0;
    const auto free =
        static_cast<qint64>(isRoot ? space.f_bfree : space.f_bavail) * static_cast<qint64>(space.f_frsize);
    if (free < source.room())
        throw FileFailure(source.path(), QString("not enough space in %1: %2 needed, %3 free")
                                             .arg(mPath, humanSize(source.room()), humanSize(free)));
}

QString TargetFolder::take(const Source &source, Progress &progress) const
{
    struct stat sourceFolder = {};
    if (readStatus(source.folder(), sourceFolder) && isSameFile(sourceFolder, mStatus))
        throw FileFailure(source.path(), "is already in that folder");
    requireRoom(source);
    const QString copy = freePath(source.name());
    progress.startFile(copy);
    VornFileHandler::copyToFolder({source.path()}, mStorage.type, mName);
    try {
        check(source, copy);
        source.requireUnchanged();
    } catch (const FileFailure &) {
        struct stat status = {};
        const bool isFile = readLinkStatus(copy, status) && S_ISREG(status.st_mode);
        if (isFile && !source.isSameFileAs(status)
            && source.hasName()) // otherwise it may be the only copy left
            ::unlink(QFile::encodeName(copy).constData());
        throw;
    }
    return copy;
}

void TargetFolder::check(const Source &source, const QString &copy) const
{
    const Descriptor descriptor = openFile(copy, O_RDONLY | O_NOFOLLOW | O_NONBLOCK);
    if (!descriptor.isOpen())
        throw FileFailure(source.path(), "cannot be copied: " + whyNotWritten(copy));
    struct stat status = {};
    if (::fstat(descriptor.get(), &status) != 0 || !S_ISREG(status.st_mode) || source.isSameFileAs(status))
        throw FileFailure(copy, "is not a copy of " + source.path());
    // The folder may be new, so its entry in the location is flushed too.
    if (!flush(descriptor.get()) || !flush(mDescriptor.get()) || !flushFolder(mStorage.location))
        throw FileFailure(copy, "cannot be flushed to the device: " + errorText(errno));
    if (!hasSameContent(source.descriptor(), descriptor.get(), source.path())) {
        if (isStopped())
            throw FileFailure(source.path(), "interrupted");
        const QString reason = status.st_size < source.size() ? whyNotWritten(copy) : cpFailure();
        throw FileFailure(source.path(), "its copy differs: " + reason);
    }
}

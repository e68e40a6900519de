// SPDX-License-Identifier: MIT
#include "durable.h"

#include "errors.h"
#include "files.h"
#include "mounts.h"

#include <QCryptographicHash>
#include <QFile>
#include <QFileInfo>

#include <cerrno>

#include <fcntl.h>
#include <unistd.h>

namespace {

const QString CANNOT_FLUSH = "cannot be flushed to the device: ";
const QString CANNOT_REPLACE = "cannot be replaced: ";

/// Waits until the content of an open file, and the metadata needed to find it, are on the device.
void flushFile(int descriptor, const QString &path)
{
    // Some file systems cannot flush a folder and return EINVAL.
    if (descriptor < 0 || (::fsync(descriptor) != 0 && errno != EINVAL))
        throw FileFailure(path, CANNOT_FLUSH + errorText(errno));
}

/// If the power fails while exFAT renames a file, the file can lose both names. So the old file is
/// kept as a backup until the new one has its name on the device, and the mark records which file gets that
/// name after an interruption.
void replaceOnExfat(TemporaryFile &file, const QString &path, RenameMark &mark)
{
    const QString folder = QFileInfo(path).path();
    TemporaryFile backup(folder, path);
    // This flushes the entry of the backup too: on exFAT, fsync() flushes everything.
    mark.setReplacement(path, {file.path(), backup.path()});
    if (!backup.takePlaceOf(path))
        throw FileFailure(path, CANNOT_REPLACE + errorText(errno));
    try {
        flushFileSystem(folder);
        if (!file.rename(path, false))
            throw FileFailure(path, CANNOT_REPLACE + errorText(errno));
        flushFileSystem(folder);
    } catch (const FileFailure &) {
        const bool hasName = isEntry(path) || backup.rename(path, false);
        if (isEntry(path) && file.path().isEmpty())
            backup.release(); // the new file may not be on the device
        if (!hasName) {
            backup.release();
            file.release();
        }
        throw;
    }
}

/// Creates @p folder, which is @p wanted or a folder above it.
void createOneFolder(const QString &folder, const QString &wanted)
{
    const QString above = QFileInfo(folder).path();
    removeLeftovers(above);
    RenameMark mark(above);
    TemporaryFolder hidden(above);
    if (hidden.isCreated())
        flushFile(openFolder(above).get(), wanted);
    const bool isDone =
        hidden.isCreated() && (hidden.rename(folder) || (errno == EEXIST && QFileInfo(folder).isDir()));
    if (!isDone)
        throw Failure(wanted + ": cannot be created: " + errorText(errno));
    if (mark.isNeeded()) {
        // Only when the folder is flushed does FAT record the location of its content under the new name,
        // and that record must be on the device before the new name is.
        flushFolder(folder);
        flushFolder(above);
    }
    mark.remove();
}

} // namespace

void flushWithFolders(const QStringList &paths)
{
    for (const QString &path : paths)
        flushFile(openFile(path, O_RDONLY | O_NONBLOCK).get(), path);
    QString folder = paths.first();
    do {
        folder = QFileInfo(folder).path();
        const Descriptor descriptor = openFolder(folder);
        // A folder that this user may not read was not created by this user.
        if (descriptor.isOpen() || errno != EACCES)
            flushFile(descriptor.get(), folder);
    } while (folder != "/" && areOnOneFileSystem(folder, QFileInfo(folder).path()));
}

void flushFolder(const QString &folder)
{
    flushFile(openFolder(folder).get(), folder);
}

void flushFileSystem(const QString &folder)
{
    const Descriptor descriptor = openFolder(folder);
    if (!descriptor.isOpen() || ::syncfs(descriptor.get()) != 0)
        throw FileFailure(folder, CANNOT_FLUSH + errorText(errno));
    flushFile(descriptor.get(), folder); // on vfat, syncfs() does not make the device write its cache
}

void replaceFile(TemporaryFile &file, const QString &path)
{
    const QString folder = QFileInfo(path).path();
    RenameMark mark(folder);
    flushFile(file.descriptor(), path);
    if (mark.isNeeded())
        flushFolder(folder);
    // vfat frees the old content when the last user closes it, so it stays open until the new one is in
    // place.
    const Descriptor old = openFile(path, O_RDONLY | O_NONBLOCK);
    if (fileSystemOf(folder) == FileSystem::Exfat && isEntry(path)) {
        replaceOnExfat(file, path, mark);
    } else {
        if (!file.rename(path, true))
            throw FileFailure(path, CANNOT_REPLACE + errorText(errno));
        // vfat records the location of the content only when the file is flushed under its new name.
        flushFile(openFile(path, O_RDONLY | O_NONBLOCK).get(), path);
        flushFolder(folder);
    }
    mark.remove();
}

void createFolder(const QString &path)
{
    if (QFileInfo(path).isDir())
        return;
    if (isEntry(path))
        throw Failure(path + ": is not a folder");
    QStringList missing;
    for (QString folder = path; !QFileInfo::exists(folder); folder = QFileInfo(folder).path())
        missing.prepend(folder);
    for (const QString &folder : missing)
        createOneFolder(folder, path);
}

bool createExclusively(const QString &path)
{
    if (openFile(path, O_CREAT | O_EXCL | O_WRONLY, 0666).isOpen())
        return true;
    if (errno == EEXIST)
        return false;
    throw FileFailure(path, "cannot be created: " + errorText(errno));
}

bool hasSameContent(int one, int other, const QString &path, QCryptographicHash *hash)
{
    constexpr int BLOCK = 1 << 20;
    ::posix_fadvise(other, 0, 0, POSIX_FADV_DONTNEED); // drops cached pages that are already on the device
    QByteArray expected(BLOCK, Qt::Uninitialized);
    QByteArray found(BLOCK, Qt::Uninitialized);
    for (off_t offset = 0;; offset += BLOCK) {
        if (!readAt(one, offset, expected))
            throw FileFailure(path, errorText(errno));
        if (!readAt(other, offset, found))
            throw FileFailure(path, "its copy cannot be read: " + errorText(errno));
        if (expected != found)
            return false;
        if (hash)
            hash->addData(found);
        if (found.size() < BLOCK)
            return true;
    }
}

// SPDX-License-Identifier: MIT
#include "copier.h"

#include "files.h"
#include "storagedevice.h"

#include <QFile>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <memory>
#include <vector>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

using namespace VORN_FILE_HANDLER;

namespace {

/// Ends a copy. The reason is in the language of the interface.
struct Failure {
    QString reason;
};

struct Cancelled {
};

void require(bool isDone)
{
    if (!isDone)
        throw Failure{reasonOf(errno)};
}

/// A new file with a hidden name, which is deleted unless it has been renamed.
class HiddenFile
{
public:
    HiddenFile(const QString &folder, const QString &extension)
        : mExtension(extension),
          mPath(
              QString("%1/.copy-%2.%3").arg(folder).arg(QDateTime::currentMSecsSinceEpoch()).arg(extension)),
          mFile(mPath, O_RDWR | O_CREAT | O_EXCL, 0600)
    {
        require(mFile.isOpen());
    }
    ~HiddenFile()
    {
        if (!mPath.isEmpty())
            ::unlink(QFile::encodeName(mPath).constData());
    }
    Q_DISABLE_COPY(HiddenFile)

    const QString &extension() const { return mExtension; }
    int descriptor() const { return mFile.get(); }

    /// Gives the file its name, which must not be taken.
    void rename(const QString &path)
    {
        const QByteArray from = QFile::encodeName(mPath);
        const QByteArray to = QFile::encodeName(path);
        int result = ::renameat2(AT_FDCWD, from.constData(), AT_FDCWD, to.constData(), RENAME_NOREPLACE);
        if (result != 0 && errno == EINVAL) // a file system in user space
            result = ::rename(from.constData(), to.constData());
        require(result == 0);
        mPath.clear();
        require(::fsync(mFile.get()) == 0); // only now does vfat record the location of the content
    }

private:
    const QString mExtension;
    QString mPath;
    const Descriptor mFile;
};

QString extensionOf(const QString &file)
{
    return file.mid(file.lastIndexOf('.') + 1);
}

/// The path of the next recording up to and including the dot before its extension. The number is free for
/// every extension. Requires the lock of the location.
QString nextBasePath(eStorageType target)
{
    constexpr int LAST_NUMBER = 9999;
    const QStringList extensions = {JPEG_FILE_EXT, PNG_FILE_EXT, AVI_FILE_EXT,
                                    MKV_FILE_EXT,  WAV_FILE_EXT, THUMB_FILE_EXT};
    int number = VornFileHandler::getNextFileNum(target);
    const int folder = VornFileHandler::getLastDirectoryNum(target);
    // The number can be taken: the numbering ignores a thumbnail without a recording, and starts again at 1
    // after number 9999 of folder 999.
    for (; number <= LAST_NUMBER; ++number) {
        const QString path = VornFileHandler::getFilePath(target, folder, number, QString());
        if (std::none_of(extensions.begin(), extensions.end(),
                         [&](const QString &extension) { return QFileInfo::exists(path + extension); }))
            return path;
    }
    throw Failure{Copier::tr("The storage device has no numbers left")};
}

/// The current folder, which is created if it is missing.
QString folderOf(eStorageType target)
{
    const QString folder = VornFileHandler::getDirPath(target, VornFileHandler::getLastDirectoryNum(target));
    VornFileHandler::createFolder(folder);
    return folder;
}

} // namespace

void Copier::copy(const QString &folder, const QStringList &bases, int target)
{
    const MediaObjects objects = objectsIn(folder, bases);
    mIsCancelled = false;
    mDone = 0;
    mTotal = 1; // avoids a division by zero
    for (const MediaObject &object : objects)
        mTotal += object.size;
    mReported.start();
    int copied = 0;
    QString reason;
    try {
        for (const MediaObject &object : objects) {
            copyObject(object, target);
            ++copied;
        }
    } catch (const Failure &failure) {
        reason = failure.reason;
    } catch (const Cancelled &) {
        reason = tr("Cancelled");
    }
    const QString text = tr("%n recording(s) copied", nullptr, copied);
    emit finished(reason.isEmpty() ? text : reason + " · " + text);
}

void Copier::copyObject(const MediaObject &object, int target)
{
    const auto type = static_cast<eStorageType>(target);
    const StorageDevice device = readStorageDevice(type);
    if (!device.isPresent) // otherwise the library would create the location
        throw Failure{tr("%1 has been removed").arg(titleOf(type))};
    if (device.free < object.size)
        throw Failure{reasonOf(ENOSPC)};
    const QString folder = folderOf(type);
    std::vector<std::unique_ptr<HiddenFile>> copies;
    for (const QString &file : object.files) {
        const Descriptor source(object.path(file), O_RDONLY | O_NOFOLLOW);
        struct stat status = {};
        require(source.isOpen() && ::fstat(source.get(), &status) == 0);
        copies.push_back(std::make_unique<HiddenFile>(folder, extensionOf(file)));
        const int copy = copies.back()->descriptor();
        write(source.get(), copy);
        const timespec times[] = {status.st_atim, status.st_mtim};
        ::futimens(copy, times); // FAT stores what it can of these
        ::fchmod(copy, status.st_mode & 0777);
        require(::fsync(copy) == 0);
    }
    const QString location = VornFileHandler::getStorageDir(type).absolutePath();
    const Descriptor lock(location, O_RDONLY | O_DIRECTORY); // which vornfh uses too
    require(lock.isOpen() && ::flock(lock.get(), LOCK_EX) == 0);
    const QString basePath = nextBasePath(type);
    for (const auto &copy : copies)
        copy->rename(basePath + copy->extension());
    for (const QString &path : {QFileInfo(basePath).path(), location, QFileInfo(location).path()})
        require(flush(path) == 0);
}

void Copier::write(int from, int to)
{
    constexpr size_t PART = 1 << 20;
    constexpr qint64 REPORT_INTERVAL = 100; // ms
    std::vector<char> part(PART);
    while (true) {
        const ssize_t size = ::read(from, part.data(), part.size());
        require(size >= 0);
        if (size == 0)
            return;
        for (ssize_t written = 0; written < size;) {
            const ssize_t step = ::write(to, part.data() + written, static_cast<size_t>(size - written));
            require(step >= 0);
            written += step;
        }
        // Waits until the previous part is written, so that the progress is that of the storage device.
        ::sync_file_range(to, 0, 0, SYNC_FILE_RANGE_WAIT_BEFORE | SYNC_FILE_RANGE_WRITE);
        if (mIsCancelled)
            throw Cancelled();
        mDone += size;
        if (mReported.elapsed() >= REPORT_INTERVAL) {
            mReported.restart();
            emit progressed(static_cast<double>(mDone) / static_cast<double>(mTotal));
        }
    }
}

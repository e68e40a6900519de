// SPDX-License-Identifier: MIT
#include "files.h"

#include <QFile>

#include <algorithm>
#include <cerrno>
#include <memory>
#include <utility>

#include <fcntl.h>
#include <sys/sendfile.h>
#include <unistd.h>

Descriptor::Descriptor(Descriptor &&other) noexcept : mDescriptor(std::exchange(other.mDescriptor, -1)) {}

Descriptor &Descriptor::operator=(Descriptor &&other) noexcept
{
    std::swap(mDescriptor, other.mDescriptor);
    return *this;
}

Descriptor::~Descriptor()
{
    if (isOpen())
        ::close(mDescriptor);
}

bool Descriptor::close()
{
    return ::close(std::exchange(mDescriptor, -1)) == 0;
}

Descriptor openFile(const QString &path, int flags, mode_t mode)
{
    return Descriptor(::open(QFile::encodeName(path).constData(), flags | O_CLOEXEC, mode));
}

Descriptor openFolder(const QString &path)
{
    return openFile(path, O_RDONLY | O_DIRECTORY);
}

bool readStatus(const QString &path, struct stat &status)
{
    return ::stat(QFile::encodeName(path).constData(), &status) == 0;
}

bool readLinkStatus(const QString &path, struct stat &status)
{
    return ::lstat(QFile::encodeName(path).constData(), &status) == 0;
}

qint64 toMsecs(const statx_timestamp &time)
{
    return time.tv_sec * 1000 + time.tv_nsec / 1000000;
}

qint64 creationTime(const struct statx &status)
{
    const qint64 birth = status.stx_mask & STATX_BTIME ? toMsecs(status.stx_btime) : 0;
    return birth != 0 ? birth : toMsecs(status.stx_ctime);
}

bool isEntry(const QString &path)
{
    struct stat status = {};
    return readLinkStatus(path, status);
}

bool forEachEntry(const QString &folder, const std::function<void(int folder, const dirent &entry)> &work)
{
    const std::unique_ptr<DIR, int (*)(DIR *)> stream(::opendir(QFile::encodeName(folder).constData()),
                                                      ::closedir);
    const dirent *entry = nullptr;
    while (stream && (errno = 0, entry = ::readdir(stream.get()))) {
        if (qstrcmp(entry->d_name, ".") != 0 && qstrcmp(entry->d_name, "..") != 0)
            work(::dirfd(stream.get()), *entry);
    }
    return errno == 0;
}

bool readAt(int descriptor, off_t offset, QByteArray &bytes)
{
    int filled = 0;
    ssize_t count = 1;
    while (filled < bytes.size() && count != 0) {
        count = ::pread(descriptor, bytes.data() + filled, static_cast<size_t>(bytes.size() - filled),
                        offset + filled);
        if (count < 0 && errno != EINTR)
            break;
        filled += static_cast<int>(std::max<ssize_t>(count, 0));
    }
    bytes.truncate(filled);
    return count >= 0;
}

QByteArray beginningOf(const QString &path, int length)
{
    QByteArray bytes(length, '\0');
    const Descriptor file = openFile(path, O_RDONLY | O_NONBLOCK);
    return file.isOpen() && readAt(file.get(), 0, bytes) ? bytes : QByteArray();
}

bool copyContent(int from, int to)
{
    constexpr size_t AT_ONCE = 1 << 24;
    off_t offset = 0;
    ssize_t count = 0;
    do {
        count = ::sendfile(to, from, &offset, AT_ONCE);
    } while (count > 0 || (count < 0 && errno == EINTR));
    return count == 0;
}

bool isSameFile(const struct stat &one, const struct stat &other)
{
    return one.st_dev == other.st_dev && one.st_ino == other.st_ino;
}

bool isSameState(const struct stat &before, const struct stat &after)
{
    const auto isSameTime = [](const timespec &one, const timespec &other) {
        return one.tv_sec == other.tv_sec && one.tv_nsec == other.tv_nsec;
    };
    return isSameFile(before, after) && before.st_mode == after.st_mode && before.st_size == after.st_size
           && isSameTime(before.st_mtim, after.st_mtim) && isSameTime(before.st_ctim, after.st_ctim);
}

mode_t defaultMode(mode_t mode)
{
    const mode_t mask = ::umask(0);
    ::umask(mask);
    return mode & ~mask;
}

void setModeFrom(const QString &path, int target)
{
    struct stat status = {};
    ::fchmod(target, readStatus(path, status) ? status.st_mode & 07777 : defaultMode(0666));
}

bool setAttributes(int target, const struct stat &status)
{
    struct stat before = {};
    const timespec times[2] = {status.st_atim, status.st_mtim};
    const bool isOwned = ::fstat(target, &before) == 0
                         && ((before.st_uid == status.st_uid && before.st_gid == status.st_gid)
                             || ::fchown(target, status.st_uid, status.st_gid) == 0);
    const int ownerError = errno;
    const bool hasMode = ::fchmod(target, status.st_mode & 07777) == 0;
    const bool hasTimes = ::futimens(target, times) == 0;
    if (!isOwned)
        errno = ownerError;
    return isOwned && hasMode && hasTimes;
}

// SPDX-License-Identifier: MIT
#include "filecheck.h"

#include <QDir>
#include <QFile>
#include <QStandardPaths>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include <fcntl.h>
#include <unistd.h>

Descriptor::~Descriptor()
{
    if (isOpen())
        ::close(mDescriptor);
}

QString errorText(int error)
{
    return QString::fromLocal8Bit(std::strerror(error));
}

QString missingProgram(const QStringList &programs)
{
    const auto isMissing = [](const QString &program) {
        return QStandardPaths::findExecutable(program).isEmpty();
    };
    const auto found = std::find_if(programs.begin(), programs.end(), isMissing);
    return found == programs.end() ? QString() : *found;
}

QString fromRoot(const QString &path)
{
    return path.startsWith('/') ? path : QDir::currentPath() + "/" + path;
}

bool readStatus(const QString &path, struct stat &status)
{
    return ::stat(QFile::encodeName(path).constData(), &status) == 0;
}

bool readLinkStatus(const QString &path, struct stat &status)
{
    return ::lstat(QFile::encodeName(path).constData(), &status) == 0;
}

bool isSameFile(const struct stat &one, const struct stat &other)
{
    return one.st_dev == other.st_dev && one.st_ino == other.st_ino;
}

bool isSameState(const struct stat &before, const struct stat &after)
{
    const auto sameTime = [](const timespec &one, const timespec &other) {
        return one.tv_sec == other.tv_sec && one.tv_nsec == other.tv_nsec;
    };
    return isSameFile(before, after) && before.st_mode == after.st_mode && before.st_size == after.st_size
           && sameTime(before.st_mtim, after.st_mtim) && sameTime(before.st_ctim, after.st_ctim);
}

bool flush(int descriptor)
{
    // Some file systems cannot flush a folder and say EINVAL.
    return ::fsync(descriptor) == 0 || errno == EINVAL;
}

bool flushFolder(const QString &path)
{
    const Descriptor folder(::open(QFile::encodeName(path).constData(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    return folder.isOpen() && flush(folder.get());
}

namespace {

/// Fills @p buffer from @p offset on, less only at the end of the file; -1 with errno set.
ssize_t readAt(int descriptor, std::vector<char> &buffer, off_t offset)
{
    size_t filled = 0;
    while (filled < buffer.size()) {
        const ssize_t count = ::pread(descriptor, buffer.data() + filled, buffer.size() - filled,
                                      offset + static_cast<off_t>(filled));
        if (count < 0 && errno == EINTR)
            continue;
        if (count < 0)
            return -1;
        if (count == 0)
            break;
        filled += static_cast<size_t>(count);
    }
    return static_cast<ssize_t>(filled);
}

} // namespace

bool hasSameContent(int one, int other, const QString &path, bool (*isStopped)())
{
    constexpr size_t BLOCK = 1 << 20;
    ::posix_fadvise(other, 0, 0, POSIX_FADV_DONTNEED);
    std::vector<char> expected(BLOCK);
    std::vector<char> found(BLOCK);
    for (off_t offset = 0; !isStopped(); offset += static_cast<off_t>(BLOCK)) {
        const ssize_t count = readAt(one, expected, offset);
        if (count < 0)
            throw FileFailure(path, errorText(errno));
        const ssize_t foundCount = readAt(other, found, offset);
        if (foundCount < 0)
            throw FileFailure(path, "its copy cannot be read: " + errorText(errno));
        if (count != foundCount || !std::equal(expected.begin(), expected.begin() + count, found.begin()))
            return false;
        if (count < static_cast<ssize_t>(BLOCK))
            return true;
    }
    return false;
}

// SPDX-License-Identifier: MIT
#include "files.h"

#include <QFile>

#include <utility>

#include <fcntl.h>
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

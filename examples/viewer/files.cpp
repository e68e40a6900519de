// SPDX-License-Identifier: MIT
#include "files.h"

#include <QCoreApplication>
#include <QFile>

#include <cerrno>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

Descriptor::Descriptor(const QString &path, int flags, mode_t mode)
    : mDescriptor(::open(QFile::encodeName(path).constData(), flags | O_CLOEXEC, mode))
{
}

Descriptor::~Descriptor()
{
    if (isOpen())
        ::close(mDescriptor);
}

QString reasonOf(int error)
{
    switch (error) {
    case ENOSPC: return QCoreApplication::translate("reason", "The storage device is full");
    case EROFS: return QCoreApplication::translate("reason", "The storage device is write-protected");
    case ENOENT: return QCoreApplication::translate("reason", "The recording no longer exists");
    case EIO:
    case ENODEV:
    case ENXIO: return QCoreApplication::translate("reason", "The storage device is not responding");
    default: return qt_error_string(error);
    }
}

bool isProtectedMode(mode_t mode)
{
    return (mode & (S_IWUSR | S_IWGRP | S_IWOTH)) == 0;
}

int setProtected(const QString &path, bool isProtected)
{
    const Descriptor file(path, O_RDONLY | O_NOFOLLOW | O_NONBLOCK);
    struct stat status = {};
    if (!file.isOpen() || ::fstat(file.get(), &status) != 0)
        return errno;
    if (isProtectedMode(status.st_mode) == isProtected)
        return 0;
    const mode_t readable = status.st_mode & 0555;
    if (isProtected)
        return ::fchmod(file.get(), readable) == 0 ? 0 : errno;
    // FAT accepts exactly the write permissions that its mount options allow.
    for (const mode_t writable : {0200, 0220, 0222}) {
        if (::fchmod(file.get(), readable | writable) == 0)
            return 0;
    }
    return errno;
}

int flush(const QString &path)
{
    const Descriptor descriptor(path, O_RDONLY);
    return descriptor.isOpen() && ::fsync(descriptor.get()) == 0 ? 0 : errno;
}

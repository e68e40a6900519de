// SPDX-License-Identifier: MIT
#include "photo.h"

#include "durable.h"
#include "errors.h"

#include <QFile>
#include <QFileInfo>

#include <algorithm>
#include <cerrno>
#include <cstdlib>

#include <fcntl.h>
#include <sys/sendfile.h>
#include <sys/xattr.h>
#include <unistd.h>

WorkingCopy::WorkingCopy(const QString &photo)
    : mPhoto(photo), mSource(openFile(photo, O_RDONLY | O_NONBLOCK)),
      mPath(QFile::encodeName(QFileInfo(photo).path() + "/.vornfh-XXXXXX"))
{
    if (!mSource.isOpen() || ::fstat(mSource.get(), &mStatus) != 0)
        throw FileFailure(photo, errorText(errno));
    if (!S_ISREG(mStatus.st_mode))
        throw FileFailure(photo, "is not a regular file");
    const Descriptor target(::mkostemp(mPath.data(), O_CLOEXEC));
    if (!target.isOpen())
        throw FileFailure(photo, "a copy of it cannot be created in its folder: " + errorText(errno));
    try {
        copyContent(target.get());
    } catch (...) {
        ::unlink(mPath.constData());
        throw;
    }
}

WorkingCopy::~WorkingCopy()
{
    if (!mPath.isEmpty())
        ::unlink(mPath.constData());
}

QString WorkingCopy::path() const
{
    return QFile::decodeName(mPath);
}

void WorkingCopy::copyContent(int target)
{
    constexpr size_t AT_ONCE = 1 << 24;
    ssize_t count = 0;
    do {
        count = ::sendfile(target, mSource.get(), nullptr, AT_ONCE);
    } while (count > 0 || (count < 0 && errno == EINTR));
    if (count < 0)
        throw FileFailure(mPhoto, "a copy of it cannot be created in its folder: " + errorText(errno));
}

void WorkingCopy::copyAttributes(int target)
{
    struct stat copy = {};
    const bool owned = ::fstat(target, &copy) == 0
                       && ((copy.st_uid == mStatus.st_uid && copy.st_gid == mStatus.st_gid)
                           || ::fchown(target, mStatus.st_uid, mStatus.st_gid) == 0);
    const timespec times[2] = {mStatus.st_atim, {0, UTIME_OMIT}};
    if (!owned || ::fchmod(target, mStatus.st_mode & 07777) != 0 || ::futimens(target, times) != 0)
        throw FileFailure(mPhoto, "its owner, mode and access time cannot be kept: " + errorText(errno));

    // Extended attributes that the file system or this user's permissions do not allow are left out.
    QByteArray names(XATTR_LIST_MAX, '\0');
    names.truncate(static_cast<int>(
        std::max<ssize_t>(0, ::flistxattr(mSource.get(), names.data(), static_cast<size_t>(names.size())))));
    for (const QByteArray &name : names.split('\0')) {
        QByteArray value(XATTR_SIZE_MAX, '\0');
        const ssize_t size =
            ::fgetxattr(mSource.get(), name.constData(), value.data(), static_cast<size_t>(value.size()));
        if (size >= 0)
            static_cast<void>(
                ::fsetxattr(target, name.constData(), value.constData(), static_cast<size_t>(size), 0));
    }
}

void WorkingCopy::replacePhoto()
{
    // Opened here because Exiv2 may have replaced the copy with another file.
    const Descriptor target = openFile(path(), O_RDONLY);
    if (!target.isOpen())
        throw FileFailure(mPhoto, "its copy cannot be opened: " + errorText(errno));
    copyAttributes(target.get());
    if (!flush(target.get()))
        throw FileFailure(mPhoto, "its copy cannot be written: " + errorText(errno));
    struct stat now = {};
    if (!readLinkStatus(mPhoto, now) || !isSameState(mStatus, now))
        throw FileFailure(mPhoto, "was changed by another program in the meantime");
    if (::rename(mPath.constData(), QFile::encodeName(mPhoto).constData()) != 0)
        throw FileFailure(mPhoto, "cannot be replaced: " + errorText(errno));
    mPath.clear();
    flushFolder(QFileInfo(mPhoto).path());
}

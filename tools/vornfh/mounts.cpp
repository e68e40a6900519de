// SPDX-License-Identifier: MIT
#include "mounts.h"

#include "files.h"

#include <QFile>
#include <QFileInfo>

#include <algorithm>

#include <sys/statvfs.h>
#include <sys/sysmacros.h>

namespace {

bool isInPartitions(const QString &name)
{
    QFile partitions("/proc/partitions");
    if (name.isEmpty() || !partitions.open(QIODevice::ReadOnly))
        return false;
    const QList<QByteArray> lines = partitions.readAll().split('\n');
    return std::any_of(lines.begin(), lines.end(), [&name](const QByteArray &line) {
        return line.simplified().split(' ').last() == name.toUtf8();
    });
}

} // namespace

QString blockDeviceOf(const QString &path)
{
    struct stat status = {};
    if (!readStatus(path, status))
        return QString();
    const QString device =
        QString("/sys/dev/block/%1:%2").arg(major(status.st_dev)).arg(minor(status.st_dev));
    const QString name = QFileInfo(QFileInfo(device).canonicalFilePath()).fileName();
    return isInPartitions(name) ? name : QString();
}

bool isOnRootFileSystem(const QString &path)
{
    return areOnOneFileSystem("/", path);
}

bool isOnReadOnlyFileSystem(const QString &path)
{
    struct statvfs fileSystem = {};
    return ::statvfs(QFile::encodeName(path).constData(), &fileSystem) == 0
           && (fileSystem.f_flag & ST_RDONLY) != 0;
}

bool areOnOneFileSystem(const QString &one, const QString &other)
{
    struct stat first = {};
    struct stat second = {};
    return readStatus(one, first) && readStatus(other, second) && first.st_dev == second.st_dev;
}

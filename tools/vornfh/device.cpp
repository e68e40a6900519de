// SPDX-License-Identifier: MIT
#include "device.h"

#include "filecheck.h"

#include <QFile>
#include <QFileInfo>

#include <algorithm>

#include <sys/statvfs.h>
#include <sys/sysmacros.h>

using namespace VORN_FILE_HANDLER;

namespace {

bool isInPartitions(const QString &name)
{
    QFile partitions("/proc/partitions");
    if (!partitions.open(QIODevice::ReadOnly))
        return false;
    const QList<QByteArray> lines = partitions.readAll().split('\n');
    return std::any_of(lines.begin(), lines.end(), [&name](const QByteArray &line) {
        return !name.isEmpty() && line.simplified().split(' ').last() == name.toUtf8();
    });
}

} // namespace

QString locationOf(eStorageType storage)
{
    return VornFileHandler::getStorageDir(storage).absolutePath();
}

QString nearestExisting(const QString &path)
{
    QString existing = path;
    while (existing != "/" && !QFileInfo::exists(existing))
        existing = QFileInfo(existing).path();
    return existing;
}

bool isOnRootFileSystem(const QString &path)
{
    struct stat root = {};
    struct stat status = {};
    return readStatus("/", root) && readStatus(path, status) && root.st_dev == status.st_dev;
}

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

QString missingForPresence()
{
    return missingProgram({"sh", "cat", "grep"});
}

bool isMountMissing(eStorageType storage)
{
    const QString existing = nearestExisting(locationOf(storage));
    const QString block = VornFileHandler::typeToMmcBlk(storage);
    const QString holder = blockDeviceOf(existing);
    return !block.isEmpty() && !holder.isEmpty() && !holder.contains(block) && isOnRootFileSystem(existing);
}

void requireWritable(eStorageType storage)
{
    const QString location = locationOf(storage);
    const QString block = VornFileHandler::typeToMmcBlk(storage);
    if (!block.isEmpty() && !VornFileHandler::isMounted(storage)) {
        const QString missing = missingForPresence();
        if (!missing.isEmpty())
            throw Failure(QString("%1: cannot tell whether %2 is present: %3 is not on the search path")
                              .arg(location, block, missing));
        throw Failure(QString("%1: the block device %2 of storage %3 is not present")
                          .arg(location, block, storageName(storage)));
    }
    if (isMountMissing(storage))
        throw Failure(
            QString("%1: lies on the root file system: %2 is not mounted there").arg(location, block));
    struct statvfs fileSystem = {};
    const QByteArray existing = QFile::encodeName(nearestExisting(location));
    if (::statvfs(existing.constData(), &fileSystem) == 0 && (fileSystem.f_flag & ST_RDONLY) != 0)
        throw Failure(location + ": is on a read-only file system");
}

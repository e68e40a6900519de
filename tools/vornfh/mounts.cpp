// SPDX-License-Identifier: MIT
#include "mounts.h"

#include "files.h"

#include <QFile>
#include <QFileInfo>

#include <algorithm>
#include <array>
#include <cerrno>

#include <fcntl.h>
#include <linux/magic.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/sysmacros.h>
#include <sys/vfs.h>
#include <unistd.h>

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

/// The sysfs folder of the device that @p path is on; it exists only for a block device. Empty if @p path
/// does not exist.
QString deviceFolderOf(const QString &path)
{
    struct stat status = {};
    if (!readStatus(path, status))
        return QString();
    return QString("/sys/dev/block/%1:%2").arg(major(status.st_dev)).arg(minor(status.st_dev));
}

} // namespace

QString blockDeviceOf(const QString &path)
{
    const QString name = QFileInfo(QFileInfo(deviceFolderOf(path)).canonicalFilePath()).fileName();
    return isInPartitions(name) ? name : QString();
}

FileSystem fileSystemOf(const QString &path)
{
    constexpr unsigned EXFAT_MAGIC = 0x2011BAB0;
    struct statfs status = {};
    if (::statfs(QFile::encodeName(path).constData(), &status) != 0)
        return FileSystem::Other;
    switch (static_cast<unsigned>(status.f_type)) {
    case MSDOS_SUPER_MAGIC: return FileSystem::Fat;
    case EXFAT_MAGIC: return FileSystem::Exfat;
    case FUSE_SUPER_MAGIC: return FileSystem::UserSpace;
    default: return FileSystem::Other;
    }
}

bool isOnRootFileSystem(const QString &path)
{
    return areOnOneFileSystem("/", path);
}

quint64 mountOf(const QString &path)
{
    struct statx status = {};
    const bool isKnown =
        ::statx(AT_FDCWD, QFile::encodeName(path).constData(), 0, STATX_MNT_ID, &status) == 0;
    return isKnown ? status.stx_mnt_id : 0;
}

QByteArray sessionOf(const QString &path)
{
    const auto contentOf = [](const QString &name) {
        QFile file(name);
        return file.open(QIODevice::ReadOnly) ? file.readAll().trimmed() : QByteArray();
    };
    const QString device = deviceFolderOf(path);
    if (device.isEmpty())
        return QByteArray();
    // Since Linux 5.15, each device that appears gets a new number. A partition has the number of its disk.
    QByteArray number = contentOf(device + "/diskseq");
    if (number.isEmpty())
        number = contentOf(QFileInfo(device).canonicalFilePath() + "/../diskseq");
    const QByteArray boot = contentOf("/proc/sys/kernel/random/boot_id");
    return boot.isEmpty() || number.isEmpty() ? QByteArray() : boot + " " + number + "\n";
}

bool isReadOnlyAfterError(const QString &path)
{
    const QByteArray id = QByteArray::number(mountOf(path)) + " ";
    QFile mounts("/proc/self/mountinfo");
    if (!mounts.open(QIODevice::ReadOnly))
        return false;
    const QList<QByteArray> lines = mounts.readAll().split('\n');
    return std::any_of(lines.begin(), lines.end(), [&id](const QByteArray &line) {
        // The mount is writable, but the file system is not: see proc(5), "mountinfo". Even then, Linux 6.18
        // reports "rw" for ext4, together with "emergency_ro".
        const QByteArrayList options = line.split(' ').value(5).split(',');
        const QByteArrayList ofFileSystem = line.mid(line.indexOf(" - ")).split(' ').last().split(',');
        return line.startsWith(id) && options.contains("rw")
               && (ofFileSystem.contains("ro") || ofFileSystem.contains("emergency_ro"));
    });
}

bool isOnReadOnlyFileSystem(const QString &path)
{
    struct statvfs fileSystem = {};
    const bool isMountedReadOnly = ::statvfs(QFile::encodeName(path).constData(), &fileSystem) == 0
                                   && (fileSystem.f_flag & ST_RDONLY) != 0;
    return isMountedReadOnly || isReadOnlyAfterError(path);
}

bool wasNotUnmounted(const QString &path)
{
    const FileSystem fileSystem = fileSystemOf(path);
    if (fileSystem != FileSystem::Fat && fileSystem != FileSystem::Exfat)
        return false;
    const QByteArray text = "-fs (" + blockDeviceOf(path).toUtf8() + "): Volume was not properly unmounted";
    const Descriptor log = openFile("/dev/kmsg", O_RDONLY | O_NONBLOCK);
    std::array<char, 8192> record = {}; // longer than any record
    while (true) {
        const ssize_t length = ::read(log.get(), record.data(), record.size());
        if (length < 0 && errno == EPIPE) // the record was overwritten
            continue;
        if (length <= 0)
            return false;
        if (QByteArray::fromRawData(record.data(), static_cast<int>(length)).contains(text))
            return true;
    }
}

qint64 largestFile(const QString &path)
{
    return fileSystemOf(path) == FileSystem::Fat ? 0xFFFFFFFF : UNLIMITED;
}

qint64 freeBytes(const QString &path)
{
    struct statfs fileSystem = {};
    if (::statfs(QFile::encodeName(path).constData(), &fileSystem) != 0 || fileSystem.f_blocks == 0)
        return UNLIMITED;
    auto blocks = static_cast<qint64>(fileSystem.f_bavail);
    if (fileSystem.f_type == EXT4_SUPER_MAGIC && ::geteuid() == 0) {
        // Root may use the reserved blocks, but not those that ext4 keeps for its own data.
        constexpr qint64 LARGEST_SHARE = 50; // of all blocks: 2 %
        constexpr qint64 MOST = 4096;
        const qint64 kept = std::min(static_cast<qint64>(fileSystem.f_blocks) / LARGEST_SHARE, MOST);
        blocks = std::max(blocks, static_cast<qint64>(fileSystem.f_bfree) - kept);
    }
    return blocks * static_cast<qint64>(fileSystem.f_frsize);
}

qint64 sizeOfFileSystem(const QString &path)
{
    struct statvfs fileSystem = {};
    ::statvfs(QFile::encodeName(path).constData(), &fileSystem);
    return static_cast<qint64>(fileSystem.f_blocks) * static_cast<qint64>(fileSystem.f_frsize);
}

bool areOnOneFileSystem(const QString &one, const QString &other)
{
    struct stat first = {};
    struct stat second = {};
    return readStatus(one, first) && readStatus(other, second) && first.st_dev == second.st_dev;
}

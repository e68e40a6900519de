// SPDX-License-Identifier: MIT
#ifndef MOUNTS_H
#define MOUNTS_H

#include <QByteArray>
#include <QString>

#include <limits>

/// The kernel's name for the block device that holds @p path, for example "mmcblk1p1"; empty if the path does
/// not exist, if it is not on a single block device, or if /proc/partitions does not list that device.
QString blockDeviceOf(const QString &path);

enum class FileSystem { Fat, Exfat, UserSpace, Other };

FileSystem fileSystemOf(const QString &path);

/// The number of the mount that @p path is on; 0 if it cannot be determined.
quint64 mountOf(const QString &path);

/// Identifies the period that began when the system found the block device of @p path. Within it, no power
/// failure can have lost cached data that was not yet on the device. Empty if it is unknown.
QByteArray sessionOf(const QString &path);

bool isOnRootFileSystem(const QString &path);

bool isOnReadOnlyFileSystem(const QString &path);

/// Returns whether the kernel has made the file system of @p path read-only after an error (mount
/// option errors=remount-ro).
bool isReadOnlyAfterError(const QString &path);

/// Returns whether, since the system started, the kernel has reported that the FAT or exFAT file system of
/// @p path was not unmounted properly. Only root can tell on most systems.
bool wasNotUnmounted(const QString &path);

/// A size that is not known, or that no recording can reach.
constexpr qint64 UNLIMITED = std::numeric_limits<qint64>::max();

/// The size of the largest file that the file system of @p path can hold; UNLIMITED if no recording can reach
/// it.
qint64 largestFile(const QString &path);

/// Bytes that this user can still write to the file system of @p path; UNLIMITED if that is not known.
qint64 freeBytes(const QString &path);

/// The size of the file system of @p path in bytes; 0 if it is not known.
qint64 sizeOfFileSystem(const QString &path);

/// Returns whether both paths exist and are on the same file system.
bool areOnOneFileSystem(const QString &one, const QString &other);

#endif // MOUNTS_H

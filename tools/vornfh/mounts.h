// SPDX-License-Identifier: MIT
#ifndef MOUNTS_H
#define MOUNTS_H

#include <QString>

/// The kernel's name of the block device that holds the existing path @p path, "mmcblk1p1"; empty if that is
/// not a single block device, or not one that /proc/partitions lists.
QString blockDeviceOf(const QString &path);

bool isOnRootFileSystem(const QString &path);

bool isOnReadOnlyFileSystem(const QString &path);

/// Returns whether both paths exist and are on one file system.
bool areOnOneFileSystem(const QString &one, const QString &other);

#endif // MOUNTS_H

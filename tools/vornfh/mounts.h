// SPDX-License-Identifier: MIT
#ifndef MOUNTS_H
#define MOUNTS_H

#include <QString>

/// The kernel's name for the block device that holds @p path, for example "mmcblk1p1"; empty if the path does
/// not exist, if it is not on a single block device, or if /proc/partitions does not list that device.
QString blockDeviceOf(const QString &path);

bool isOnRootFileSystem(const QString &path);

bool isOnReadOnlyFileSystem(const QString &path);

/// Returns whether both paths exist and are on the same file system.
bool areOnOneFileSystem(const QString &one, const QString &other);

#endif // MOUNTS_H

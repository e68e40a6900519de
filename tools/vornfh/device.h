// SPDX-License-Identifier: MIT
#ifndef DEVICE_H
#define DEVICE_H

#include "vornfilehandler.h"

#include <QString>

/// The location of a storage from the root on.
QString locationOf(VORN_FILE_HANDLER::eStorageType storage);

/// @p path or the nearest folder above it that exists.
QString nearestExisting(const QString &path);

bool isOnRootFileSystem(const QString &path);

/// The kernel's name of the block device that holds an existing @p path, "mmcblk1p1"; empty where that is no
/// single block device, or none that /proc/partitions lists.
QString blockDeviceOf(const QString &path);

/// The program without which the library takes every block device for not present; empty if there is none.
QString missingForPresence();

/// Whether the storage's folder lies on the root file system although its block device is another one: the
/// card is not mounted, and what is written does not get to it.
bool isMountMissing(VORN_FILE_HANDLER::eStorageType storage);

/// Throws Failure if nothing should be written to the storage: its block device is not there, is not
/// mounted, or can only be read.
void requireWritable(VORN_FILE_HANDLER::eStorageType storage);

#endif // DEVICE_H

// SPDX-License-Identifier: MIT
#ifndef DEVICE_H
#define DEVICE_H

#include "storages.h"

#include <QStorageInfo>
#include <QString>
#include <QStringList>

/// The block device of a storage device, and where it is mounted.
struct Device {
    QString block; // as configured, or else the one that the location is on; empty if unknown
    bool isPresent = false;
    QString missingProgram;      // without which the library cannot tell whether the device is present
    bool isMounted = false;      // the location is not on the root file system
    bool isMountMissing = false; // see isMountMissing()
    QStorageInfo fileSystem;     // that the location is on
    bool isReadOnly = false;     // that file system cannot be written to

    bool isPresenceKnown() const { return !block.isEmpty() && missingProgram.isEmpty(); }
};

Device deviceOf(const Storage &storage);

/// Size and free space as the library reports them, in bytes. The rest is derived from them: each question to
/// the library starts five programs, and the answers would belong to different moments.
struct Capacity {
    qint64 size = 0; // 0 if unknown
    qint64 free = 0;
    QString path;             // that was measured
    bool isElsewhere = false; // the path is not on the file system of the location
    QString unknownBecause;

    bool isKnown() const { return size > 0; }
    qint64 used() const { return qMax<qint64>(0, size - free); }
    int freePercent() const { return isKnown() ? qRound(100.0 * double(size - used()) / double(size)) : 0; }
    int usedPercent() const { return 100 - freePercent(); }
};

Capacity capacityOf(const Storage &storage, const Device &device);

/// The wear that an eMMC reports about itself: JESD84-B51, "DEVICE_LIFE_TIME_EST" and "PRE_EOL_INFO". Vendors
/// use types A and B for different kinds of memory cells.
struct Wear {
    int lifeUsedA = 0;   // at most this percentage of the expected life; 110 if it is exceeded, 0 if unknown
    int lifeUsedB = 0;   // the same
    QString spareBlocks; // "normal", "warning", "urgent"; empty if unknown

    bool isKnown() const { return lifeUsedA > 0 || lifeUsedB > 0 || !spareBlocks.isEmpty(); }
};

/// The wear of the block device @p block or, if that is a partition, of the disk that it is on.
Wear wearOf(const QString &block);

/// Returns whether the location is on the root file system although another block device is configured: the
/// card is not mounted, and what is written does not reach it.
bool isMountMissing(const Storage &storage);

/// Throws Failure if isMountMissing(), or if the configured block device is not present.
void requireMounted(const Storage &storage);

/// What is known to be wrong with the file system of @p path, or of the folder that it would be created in,
/// with each problem as a clause; empty if nothing is wrong.
QStringList problemsOf(const QString &path);

/// Prints problemsOf(@p path) on standard error. They are not failures: a camera must keep recording.
void reportProblems(const QString &path);

/// Throws Failure if the file system of @p path, or of the folder that it would be created in, is read-only.
/// Calls reportProblems().
void requireWritable(const QString &path);
/// The same for the location of @p storage. Also throws Failure if requireMounted() does.
void requireWritable(const Storage &storage);

#endif // DEVICE_H

// SPDX-License-Identifier: MIT
#include "device.h"

#include "errors.h"
#include "mounts.h"
#include "output.h"
#include "paths.h"

#include <QFile>
#include <QFileInfo>
#include <QVector>

namespace {

/// A program that is not on PATH and without which the library reports every block device as absent.
QString missingForPresence()
{
    return missingProgram({"sh", "cat", "grep"});
}

QString whyUnknown(const Device &device, const QString &path)
{
    if (device.block.isEmpty())
        return "the block device is not known";
    const QString missing =
        device.missingProgram.isEmpty() ? missingProgram({"df", "awk"}) : device.missingProgram;
    if (!missing.isEmpty())
        return notOnPath(missing);
    return device.isPresent ? QString("df reports no size for %1").arg(path)
                            : QString("%1 is not present").arg(device.block);
}

/// The sysfs folder with the attributes of the card that holds the block device @p block.
QString attributesOf(QString block)
{
    const QString device = "/sys/class/block/" + block.replace('/', '!');
    const bool isPartition = QFile::exists(device + "/partition"); // its folder is in that of the disk
    return device + (isPartition ? "/../device" : "/device");
}

/// The numbers of an attribute such as "0x01 0x02"; 0 for what is not a number.
QVector<int> numbersIn(const QString &attribute)
{
    QFile file(attribute);
    if (!file.open(QIODevice::ReadOnly))
        return {};
    QVector<int> numbers;
    for (const QByteArray &text : file.readAll().simplified().split(' '))
        numbers.append(text.toInt(nullptr, 16));
    return numbers;
}

/// The percentage for a value of DEVICE_LIFE_TIME_EST, which counts in steps of 10 %; 11 is more than 100 %.
int lifeUsed(int value)
{
    return value >= 1 && value <= 11 ? value * 10 : 0;
}

} // namespace

Device deviceOf(const Storage &storage)
{
    const QString existing = nearestExisting(storage.location);
    Device device;
    device.block = VornFileHandler::typeToMmcBlk(storage.type);
    device.isPresent = !device.block.isEmpty() && VornFileHandler::isMounted(storage.type);
    device.missingProgram = device.isPresent ? QString() : missingForPresence();
    device.isMounted = !isOnRootFileSystem(existing);
    device.isMountMissing = isMountMissing(storage);
    device.fileSystem = QStorageInfo(existing);
    device.isReadOnly = isOnReadOnlyFileSystem(existing);
    return device;
}

Capacity capacityOf(const Storage &storage, const Device &device)
{
    Capacity capacity;
    capacity.path = VornFileHandler::typeToMountPath(storage.type);
    if (device.isPresent) {
        capacity.size = VornFileHandler::getStorageSize(storage.type);
        capacity.free = VornFileHandler::getRemainingBytes(storage.type);
        capacity.isElsewhere = !areOnOneFileSystem(capacity.path, nearestExisting(storage.location));
    }
    if (!capacity.isKnown())
        capacity.unknownBecause = whyUnknown(device, capacity.path);
    return capacity;
}

Wear wearOf(const QString &block)
{
    static const QStringList SPARE_BLOCKS = {QString(), "normal", "warning", "urgent"};
    // Documentation/driver-api/mmc/mmc-dev-attrs.rst; since Linux 4.14, and only for an eMMC of version 5.0
    // or later
    const QString attributes = attributesOf(block);
    const QVector<int> lives = numbersIn(attributes + "/life_time");
    const QVector<int> spare = numbersIn(attributes + "/pre_eol_info");
    return {lifeUsed(lives.value(0)), lifeUsed(lives.value(1)), SPARE_BLOCKS.value(spare.value(0))};
}

bool isMountMissing(const Storage &storage)
{
    const QString existing = nearestExisting(storage.location);
    const QString holder = blockDeviceOf(existing);
    return !storage.block.isEmpty() && !holder.isEmpty() && !holder.contains(storage.block)
           && isOnRootFileSystem(existing);
}

void requireMounted(const Storage &storage)
{
    if (!storage.block.isEmpty() && !VornFileHandler::isMounted(storage.type)) {
        const QString missing = missingForPresence();
        if (!missing.isEmpty())
            throw Failure(QString("%1: cannot check whether %2 is present: %3")
                              .arg(storage.location, storage.block, notOnPath(missing)));
        throw Failure(QString("%1: the block device %2 of storage %3 is not present")
                          .arg(storage.location, storage.block, storage.name));
    }
    if (isMountMissing(storage))
        throw Failure(QString("%1: %2 is not mounted there; the folder is on the root file system")
                          .arg(storage.location, storage.block));
}

QStringList problemsOf(const QString &path)
{
    QStringList problems;
    const QString existing = nearestExisting(path);
    if (isReadOnlyAfterError(existing))
        problems.append("the kernel has made the file system read-only after an error; unmount and check it");
    if (wasNotUnmounted(existing))
        problems.append(
            "since the system started, the kernel has reported that the file system was not unmounted "
            "properly; unmount and check it");
    return problems;
}

void reportProblems(const QString &path)
{
    for (const QString &problem : problemsOf(path))
        printError(path + ": " + problem);
}

void requireWritable(const Storage &storage)
{
    requireMounted(storage);
    requireWritable(storage.location);
}

void requireWritable(const QString &path)
{
    reportProblems(path);
    if (isOnReadOnlyFileSystem(nearestExisting(path)))
        throw Failure(path + ": is on a read-only file system");
}

// SPDX-License-Identifier: MIT
#include "storagedevice.h"

#include <QCoreApplication>
#include <QStorageInfo>

#include <tuple>

using namespace VORN_FILE_HANDLER;

bool StorageDevice::operator==(const StorageDevice &other) const
{
    const auto fields = [](const StorageDevice &device) {
        return std::tie(device.type, device.isPresent, device.isReadOnly, device.size, device.free);
    };
    return fields(*this) == fields(other);
}

StorageDevice readStorageDevice(eStorageType type)
{
    const QDir location = VornFileHandler::getStorageDir(type);
    const QString mountPoint = QFileInfo(location.absolutePath()).path();
    const QStorageInfo fileSystem(mountPoint);
    StorageDevice device;
    device.type = type;
    // A new card has no location yet, but it is mounted.
    device.isPresent = location.exists() || fileSystem.rootPath() == mountPoint;
    if (device.isPresent) {
        device.isReadOnly = fileSystem.isReadOnly();
        device.size = fileSystem.bytesTotal();
        device.free = fileSystem.bytesAvailable();
    }
    return device;
}

QString titleOf(eStorageType type)
{
    switch (type) {
    case STORAGE_MMC: return QCoreApplication::translate("storage", "Internal memory");
    case STORAGE_SD: return QCoreApplication::translate("storage", "SD card");
    case STORAGE_USB: return QCoreApplication::translate("storage", "USB storage");
    }
    return QString();
}

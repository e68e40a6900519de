// SPDX-License-Identifier: MIT
#ifndef STORAGEDEVICE_H
#define STORAGEDEVICE_H

#include "vornfilehandler.h"

#include <QMetaType>
#include <QVector>

/// The state of a storage device.
struct StorageDevice {
    VORN_FILE_HANDLER::eStorageType type = VORN_FILE_HANDLER::STORAGE_MMC;
    bool isPresent = false;
    bool isReadOnly = false;
    qint64 size = 0;
    qint64 free = 0;

    int key() const { return type; }
    bool operator==(const StorageDevice &other) const;
};
using StorageDevices = QVector<StorageDevice>;
Q_DECLARE_METATYPE(StorageDevices)

/// The capacity comes from statvfs(): one system call, whereas each of the library's queries starts
/// processes.
StorageDevice readStorageDevice(VORN_FILE_HANDLER::eStorageType type);

/// The name of the storage device in the language of the interface.
QString titleOf(VORN_FILE_HANDLER::eStorageType type);

#endif // STORAGEDEVICE_H

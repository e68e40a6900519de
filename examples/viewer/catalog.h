// SPDX-License-Identifier: MIT
#ifndef CATALOG_H
#define CATALOG_H

#include "mediaobject.h"
#include "storagedevice.h"

#include <QFileSystemWatcher>
#include <QTimer>
#include <QVariantMap>

/// A folder in a list.
struct Folder {
    QString name;
    int count = 0;     // of its objects
    MediaObject cover; // its last object, if it has one

    const QString &key() const { return name; }
    bool operator==(const Folder &other) const;
};
using Folders = QVector<Folder>;
Q_DECLARE_METATYPE(Folders)

/// Reads, protects and deletes what is on the storage devices. Runs in its own thread, because every
/// operation waits for a storage device. When a storage device comes or goes, or a folder changes, it
/// re-reads what is shown.
class Catalog : public QObject
{
    Q_OBJECT

public:
    explicit Catalog(const QVector<VORN_FILE_HANDLER::eStorageType> &storages);

public slots:
    void start();
    /// Reads the state of the storage devices and what show() has selected.
    void read();
    /// Selects the storage device whose folders are read and the folder whose objects are read. If @p folder
    /// is empty, no objects are read.
    void show(int storage, const QString &folder);
    /// Reads the metadata of an object.
    void describe(const MediaObject &object);
    void setProtected(const QStringList &bases, bool isProtected);
    /// Deletes the files of the objects that are not protected.
    void remove(const QStringList &bases);

signals:
    void devicesRead(const StorageDevices &devices);
    void foldersRead(int storage, const Folders &folders);
    void objectsRead(int storage, const QString &folder, const MediaObjects &objects);
    void described(const QVariantMap &details);
    void reported(const QString &text);

private:
    void readSoon();
    void readDevices();
    void readFolders();
    void readObjects();
    void watch();
    bool isLocationPresent() const;
    QString folderPath() const;

    const QVector<VORN_FILE_HANDLER::eStorageType> mStorages;
    VORN_FILE_HANDLER::eStorageType mStorage = VORN_FILE_HANDLER::STORAGE_MMC;
    QString mFolder;
    QFileSystemWatcher *mWatcher = nullptr;
    QTimer *mDelay = nullptr;
    QTimer *mLastRead = nullptr;
};

#endif // CATALOG_H

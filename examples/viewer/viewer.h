// SPDX-License-Identifier: MIT
#ifndef VIEWER_H
#define VIEWER_H

#include "catalog.h"
#include "copier.h"
#include "models.h"

#include <QThread>

/// The interface between QML and the threads. Nothing here waits for a storage device: requests go to the
/// threads of the catalog and the copier, and their results return as signals.
class Viewer : public QObject
{
    Q_OBJECT
    Q_PROPERTY(QObject *devices READ devices CONSTANT)
    Q_PROPERTY(QObject *folders READ folders CONSTANT)
    Q_PROPERTY(QObject *objects READ objects CONSTANT)
    /// The type of the storage device whose folders are listed.
    Q_PROPERTY(int storage READ storage NOTIFY storageChanged)
    /// The row of that storage device in devices.
    Q_PROPERTY(int storageRow READ storageRow NOTIFY devicesChanged)
    Q_PROPERTY(QString storageTitle READ storageTitle NOTIFY storageChanged)
    Q_PROPERTY(bool isStoragePresent READ isStoragePresent NOTIFY devicesChanged)
    Q_PROPERTY(bool isStorageReadOnly READ isStorageReadOnly NOTIFY devicesChanged)
    /// The name of the folder whose objects are listed; empty if none is.
    Q_PROPERTY(QString folder READ folder NOTIFY folderChanged)
    Q_PROPERTY(bool isLoading READ isLoading NOTIFY isLoadingChanged)
    /// The data of the object for which describe() was last called.
    Q_PROPERTY(QVariantMap details READ details NOTIFY detailsChanged)
    Q_PROPERTY(bool isCopying READ isCopying NOTIFY copyChanged)
    Q_PROPERTY(double copyProgress READ copyProgress NOTIFY copyChanged)

public:
    explicit Viewer(const QVector<VORN_FILE_HANDLER::eStorageType> &storages);
    ~Viewer() override;

    QObject *devices() { return &mDevices; }
    QObject *folders() { return &mFolders; }
    QObject *objects() { return &mObjects; }
    int storage() const { return mStorage; }
    int storageRow() const;
    QString storageTitle() const;
    bool isStoragePresent() const;
    bool isStorageReadOnly() const;
    QString folder() const { return mFolder; }
    bool isLoading() const { return mIsLoading; }
    QVariantMap details() const { return mDetails; }
    bool isCopying() const { return mIsCopying; }
    double copyProgress() const { return mCopyProgress; }

    Q_INVOKABLE void showStorage(int storage);
    /// An empty name closes the folder.
    Q_INVOKABLE void showFolder(const QString &name);
    Q_INVOKABLE void describe(const QString &base);
    Q_INVOKABLE void setProtected(const QStringList &bases, bool isProtected);
    Q_INVOKABLE void remove(const QStringList &bases);
    Q_INVOKABLE void copy(const QStringList &bases, int target);
    Q_INVOKABLE void cancelCopy() { mCopier->cancel(); }

signals:
    void storageChanged();
    void devicesChanged();
    void folderChanged();
    void isLoadingChanged();
    void detailsChanged();
    void copyChanged();
    /// A message for the user.
    void reported(const QString &text);

private:
    void setDevices(const StorageDevices &devices);
    void setFolders(int storage, const Folders &folders);
    void setObjects(int storage, const QString &folder, const MediaObjects &objects);
    void setLoading(bool isLoading);
    void setDetails(const QVariantMap &details);
    void setCopy(bool isCopying, double progress);
    void requestLists();
    void showFirstPresent();
    void reportChanges(const StorageDevices &devices);

    template <typename... Parameters, typename... Values>
    void request(void (Catalog::*operation)(Parameters...), const Values &...values)
    {
        QMetaObject::invokeMethod(mCatalog, [=] { (mCatalog->*operation)(values...); });
    }

    QThread mCatalogThread;
    QThread mCopierThread;
    Catalog *mCatalog;
    Copier *mCopier;
    DeviceModel mDevices;
    FolderModel mFolders;
    ObjectModel mObjects;
    int mStorage;
    QString mFolder;
    bool mIsLoading = true;
    QVariantMap mDetails;
    bool mIsCopying = false;
    double mCopyProgress = 0;
};

#endif // VIEWER_H

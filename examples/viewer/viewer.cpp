// SPDX-License-Identifier: MIT
#include "viewer.h"

#include <algorithm>

using namespace VORN_FILE_HANDLER;

namespace {

template <typename Entry, typename Key>
auto find(const QVector<Entry> &entries, const Key &key)
{
    return std::find_if(entries.begin(), entries.end(),
                        [&key](const Entry &entry) { return entry.key() == key; });
}

bool isPresentIn(const StorageDevices &devices, int type)
{
    const auto *const device = find(devices, type);
    return device != devices.end() && device->isPresent;
}

} // namespace

Viewer::Viewer(const QVector<eStorageType> &storages)
    : mCatalog(new Catalog(storages)), mCopier(new Copier), mStorage(storages.first())
{
    qRegisterMetaType<StorageDevices>("StorageDevices");
    qRegisterMetaType<Folders>("Folders");
    qRegisterMetaType<MediaObjects>("MediaObjects");
    mCatalog->moveToThread(&mCatalogThread);
    mCopier->moveToThread(&mCopierThread);
    connect(&mCatalogThread, &QThread::started, mCatalog, &Catalog::start);
    connect(&mCatalogThread, &QThread::finished, mCatalog, &QObject::deleteLater);
    connect(&mCopierThread, &QThread::finished, mCopier, &QObject::deleteLater);
    connect(mCatalog, &Catalog::devicesRead, this, &Viewer::setDevices);
    connect(mCatalog, &Catalog::foldersRead, this, &Viewer::setFolders);
    connect(mCatalog, &Catalog::objectsRead, this, &Viewer::setObjects);
    connect(mCatalog, &Catalog::described, this, &Viewer::setDetails);
    connect(mCatalog, &Catalog::reported, this, &Viewer::reported);
    connect(mCopier, &Copier::progressed, this, [this](double progress) { setCopy(true, progress); });
    connect(mCopier, &Copier::finished, this, [this](const QString &text) {
        setCopy(false, 0);
        request(&Catalog::read);
        request(&Catalog::reported, text); // after read(), so that its reports do not hide this one
    });
    mCatalogThread.start();
    mCopierThread.start();
    requestLists();
}

Viewer::~Viewer()
{
    mCopier->cancel();
    for (QThread *thread : {&mCatalogThread, &mCopierThread}) {
        thread->quit();
        thread->wait();
    }
}

int Viewer::storageRow() const
{
    const StorageDevices &devices = mDevices.entries();
    return static_cast<int>(find(devices, mStorage) - devices.begin());
}

QString Viewer::storageTitle() const
{
    return titleOf(static_cast<eStorageType>(mStorage));
}

bool Viewer::isStoragePresent() const
{
    return isPresentIn(mDevices.entries(), mStorage);
}

bool Viewer::isStorageReadOnly() const
{
    const StorageDevices &devices = mDevices.entries();
    const auto *const device = find(devices, mStorage);
    return device != devices.end() && device->isReadOnly;
}

void Viewer::showStorage(int storage)
{
    if (storage == mStorage)
        return;
    mStorage = storage;
    mFolders.setEntries({});
    emit storageChanged();
    emit devicesChanged();
    requestLists();
}

void Viewer::showFolder(const QString &name)
{
    if (name == mFolder)
        return;
    mFolder = name;
    mObjects.clearSelection();
    mObjects.setObjects({});
    emit folderChanged();
    requestLists();
}

void Viewer::describe(const QString &base)
{
    const auto *const object = find(mObjects.entries(), base);
    if (object != mObjects.entries().end())
        request(&Catalog::describe, *object);
}

void Viewer::setProtected(const QStringList &bases, bool isProtected)
{
    request(&Catalog::setProtected, bases, isProtected);
}

void Viewer::remove(const QStringList &bases)
{
    request(&Catalog::remove, bases);
}

void Viewer::copy(const QStringList &bases, int target)
{
    if (mIsCopying)
        return;
    setCopy(true, 0);
    const QString folder = VornFileHandler::getDirPath(static_cast<eStorageType>(mStorage), mFolder);
    QMetaObject::invokeMethod(mCopier, [=] { mCopier->copy(folder, bases, target); });
}

void Viewer::setDevices(const StorageDevices &devices)
{
    const bool isFirstTime = mDevices.entries().isEmpty();
    reportChanges(devices);
    mDevices.setEntries(devices);
    emit devicesChanged();
    if (!isStoragePresent())
        showFolder(QString());
    if (isFirstTime)
        showFirstPresent();
}

void Viewer::showFirstPresent()
{
    for (const StorageDevice &device : mDevices.entries()) {
        if (device.isPresent)
            return showStorage(device.type);
    }
}

void Viewer::setFolders(int storage, const Folders &folders)
{
    if (storage != mStorage)
        return;
    mFolders.setEntries(folders);
    if (find(folders, mFolder) == folders.end())
        showFolder(QString());
    if (mFolder.isEmpty())
        setLoading(false);
}

void Viewer::setObjects(int storage, const QString &folder, const MediaObjects &objects)
{
    if (storage != mStorage || folder != mFolder)
        return;
    mObjects.setObjects(objects);
    setLoading(false);
}

void Viewer::setLoading(bool isLoading)
{
    if (isLoading == mIsLoading)
        return;
    mIsLoading = isLoading;
    emit isLoadingChanged();
}

void Viewer::setDetails(const QVariantMap &details)
{
    mDetails = details;
    emit detailsChanged();
}

void Viewer::setCopy(bool isCopying, double progress)
{
    mIsCopying = isCopying;
    mCopyProgress = progress;
    emit copyChanged();
}

void Viewer::requestLists()
{
    setLoading(true);
    request(&Catalog::show, mStorage, mFolder);
}

void Viewer::reportChanges(const StorageDevices &devices)
{
    for (const StorageDevice &before : mDevices.entries()) {
        const bool isPresent = isPresentIn(devices, before.type);
        if (isPresent && !before.isPresent)
            emit reported(tr("%1 is ready").arg(titleOf(before.type)));
        if (!isPresent && before.isPresent)
            emit reported(tr("%1 has been removed").arg(titleOf(before.type)));
    }
}

// SPDX-License-Identifier: MIT
#include "catalog.h"

#include "files.h"
#include "mountwatcher.h"

#include <QLocale>
#include <QRegularExpression>

#include <algorithm>
#include <tuple>

using namespace VORN_FILE_HANDLER;

namespace {

// getFolders() with this filter returns every folder, and never creates folder 100.
constexpr auto EVERY_FOLDER =
    static_cast<eDIRECTORY_FILTER>(DIRECTORY_FILTER_DCIM | DIRECTORY_FILTER_NON_DCIM);

Folder readFolder(const QFileInfo &info)
{
    const MediaObjects objects = objectsIn(info.absoluteFilePath());
    Folder folder;
    folder.name = info.fileName();
    folder.count = objects.size();
    if (!objects.isEmpty()) {
        folder.cover = objects.first();
        readStatus(folder.cover);
    }
    return folder;
}

/// The library passes the path of a video to a shell unquoted.
bool isSafeInShell(const QString &path)
{
    static const QRegularExpression SAFE("\\A[A-Za-z0-9/._-]*\\z");
    return SAFE.match(path).hasMatch();
}

Metadata metadataOf(const MediaObject &object)
{
    const QFileInfo recording(object.recording());
    Metadata metadata;
    if (object.kind != MediaObject::Video || isSafeInShell(object.recording()))
        VornFileHandler::getMetadata(recording, metadata);
    else
        metadata.set(FILE_TYPE_UNKNOWN, recording); // reads no resolution
    return metadata;
}

} // namespace

bool Folder::operator==(const Folder &other) const
{
    return std::tie(name, count, cover) == std::tie(other.name, other.count, other.cover);
}

Catalog::Catalog(const QVector<eStorageType> &storages) : mStorages(storages) {}

void Catalog::start()
{
    constexpr int DELAY = 300; // ms; a recorder changes a folder many times a second
    mDelay = new QTimer(this);
    mDelay->setInterval(DELAY);
    mDelay->setSingleShot(true);
    connect(mDelay, &QTimer::timeout, this, &Catalog::read);
    // The content of a file, such as the thumbnail of the newest recording, is written after its entry, and
    // the watcher does not report that.
    constexpr int LAST = 2000; // ms after the last change
    mLastRead = new QTimer(this);
    mLastRead->setInterval(LAST);
    mLastRead->setSingleShot(true);
    connect(mLastRead, &QTimer::timeout, this, &Catalog::read);
    mWatcher = new QFileSystemWatcher(this);
    connect(mWatcher, &QFileSystemWatcher::directoryChanged, this, &Catalog::readSoon);
    connect(new MountWatcher(this), &MountWatcher::changed, this, &Catalog::readSoon);
    readDevices();
}

void Catalog::read()
{
    watch();
    readDevices();
    readFolders();
    if (!mFolder.isEmpty())
        readObjects();
}

void Catalog::show(int storage, const QString &folder)
{
    const bool isOther = storage != mStorage;
    mStorage = static_cast<eStorageType>(storage);
    mFolder = folder;
    watch(); // before reading, so that no change is missed
    if (isOther || folder.isEmpty())
        readFolders();
    if (!folder.isEmpty())
        readObjects();
}

void Catalog::describe(const MediaObject &object)
{
    const Metadata metadata = metadataOf(object);
    QVariantMap details;
    details["base"] = object.base;
    details["files"] = object.files.join("\n");
    details["size"] = QLocale().formattedDataSize(object.size, 1, QLocale::DataSizeSIFormat);
    details["created"] = QLocale().toString(metadata.mCreated, QLocale::ShortFormat);
    details["modified"] = QLocale().toString(metadata.mLastModified, QLocale::ShortFormat);
    if (metadata.mWidth > 0 && metadata.mHeight > 0)
        details["resolution"] = QString("%1 × %2").arg(metadata.mWidth).arg(metadata.mHeight);
    emit described(details);
}

void Catalog::setProtected(const QStringList &bases, bool isProtected)
{
    for (const MediaObject &object : objectsIn(folderPath(), bases)) {
        for (const QString &file : object.files) {
            const int error = ::setProtected(object.path(file), isProtected);
            if (error != 0)
                emit reported(reasonOf(error));
        }
    }
    flush(folderPath());
    read();
}

void Catalog::remove(const QStringList &bases)
{
    int removed = 0;
    int kept = 0;
    for (const MediaObject &object : objectsIn(folderPath(), bases)) {
        bool isRemoved = !object.isProtected;
        // The thumbnail comes last: it remains if the recording cannot be deleted.
        for (const QString &file : object.files) {
            if (isRemoved)
                VornFileHandler::deleteFile(object.path(file));
            isRemoved = isRemoved && !QFileInfo::exists(object.path(file));
        }
        ++(isRemoved ? removed : kept);
    }
    flush(folderPath());
    emit reported(kept == 0 ? tr("%n recording(s) deleted", nullptr, removed)
                            : tr("%n recording(s) cannot be deleted", nullptr, kept));
    read();
}

void Catalog::readSoon()
{
    mLastRead->start();
    if (!mDelay->isActive())
        mDelay->start();
}

void Catalog::readDevices()
{
    StorageDevices devices;
    for (const eStorageType type : mStorages)
        devices.append(readStorageDevice(type));
    emit devicesRead(devices);
}

void Catalog::readFolders()
{
    Folders folders;
    if (isLocationPresent()) { // otherwise getFolders() would create it
        const QFileInfoList infos = VornFileHandler::getFolders(mStorage, EVERY_FOLDER);
        for (const QFileInfo &info : infos)
            mWatcher->addPath(info.absoluteFilePath());
        std::transform(infos.rbegin(), infos.rend(), std::back_inserter(folders), readFolder);
    }
    emit foldersRead(mStorage, folders);
}

void Catalog::readObjects()
{
    MediaObjects objects;
    if (QFileInfo(folderPath()).isDir()) // otherwise the library would print a diagnostic line
        objects = objectsIn(folderPath());
    std::for_each(objects.begin(), objects.end(), readStatus);
    emit objectsRead(mStorage, mFolder, objects);
}

void Catalog::watch()
{
    QStringList paths;
    for (const eStorageType type : mStorages) {
        const QString location = VornFileHandler::getStorageDir(type).absolutePath();
        paths << QFileInfo(location).path() << location;
    }
    if (!mFolder.isEmpty())
        paths.append(folderPath());
    if (!mWatcher->directories().isEmpty())
        mWatcher->removePaths(mWatcher->directories());
    mWatcher->addPaths(paths); // those that exist
}

bool Catalog::isLocationPresent() const
{
    return mStorages.contains(mStorage) && VornFileHandler::getStorageDir(mStorage).exists();
}

QString Catalog::folderPath() const
{
    return VornFileHandler::getDirPath(mStorage, mFolder);
}

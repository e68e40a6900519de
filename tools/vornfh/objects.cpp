// SPDX-License-Identifier: MIT
#include "objects.h"

#include "errors.h"
#include "folders.h"
#include "mounts.h"
#include "numbering.h"

#include <QFile>
#include <QFileInfo>
#include <QHash>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <numeric>

#include <fcntl.h>
#include <sys/file.h>

using namespace VORN_FILE_HANDLER;

namespace {

/// Reads the status of a file. Returns false if the entry is not a regular file or no longer exists.
bool readFile(int folder, ObjectFile &file)
{
    constexpr unsigned WANTED = STATX_BASIC_STATS | STATX_BTIME;
    constexpr qint64 BLOCK = 512;
    struct statx status = {};
    if (::statx(folder, file.name.constData(), AT_SYMLINK_NOFOLLOW, WANTED, &status) != 0) {
        file.error = errno;
        return errno != ENOENT;
    }
    file.mode = status.stx_mode;
    file.size = static_cast<qint64>(status.stx_size);
    file.allocated = static_cast<qint64>(status.stx_blocks) * BLOCK;
    file.modified = status.stx_mtime.tv_sec;
    file.modifiedMsecs = toMsecs(status.stx_mtime);
    file.createdMsecs = creationTime(status);
    return S_ISREG(status.stx_mode);
}

bool comesBefore(const ObjectFile &one, const ObjectFile &other)
{
    return one.isThumbnail() != other.isThumbnail() ? other.isThumbnail() : one.name < other.name;
}

/// The paths with the base name of @p path that a photo or video can have. Cameras write extensions in upper
/// case; FAT, exFAT and file systems in user space find such a file by its name in lower case too.
QStringList recordingPathsOf(const QString &path)
{
    const QFileInfo file(path);
    const QString start = file.path() + "/" + file.completeBaseName() + ".";
    const bool isCaseSensitive = fileSystemOf(file.path()) == FileSystem::Other;
    QStringList paths;
    for (const MediaType &type : mediaTypes()) {
        if (type.kind != PHOTO && type.kind != VIDEO)
            continue;
        paths.append(start + type.extension);
        if (isCaseSensitive)
            paths.append(start + type.extension.toUpper());
    }
    return paths;
}

bool isFile(const QString &path)
{
    struct stat status = {};
    return readLinkStatus(path, status) && S_ISREG(status.st_mode);
}

bool hasMark(const QString &path)
{
    struct stat status = {};
    return readLinkStatus(path, status) && isProtectedMode(status.st_mode);
}

/// Calls work(descriptor of the folder, name, type) for each media file that is not hidden. Throws
/// FileFailure if the folder cannot be read.
template <typename Work>
void forEachMediaName(const QString &folder, Work work)
{
    const bool isRead = forEachEntry(folder, [&work](int descriptor, const dirent &entry) {
        const MediaType *type = findType(QString::fromUtf8(entry.d_name), Qt::CaseInsensitive);
        if (type && entry.d_name[0] != '.')
            work(descriptor, entry.d_name, type);
    });
    if (!isRead)
        throw FileFailure(folder, errorText(errno));
}

/// The objects of a folder, in the order of their base names. Other files, links and hidden files are left
/// out.
std::vector<Object> objectsIn(const QString &folder)
{
    std::vector<Object> objects;
    QHash<QByteArray, size_t> places;
    forEachMediaName(folder, [&](int descriptor, const QByteArray &name, const MediaType *type) {
        ObjectFile file;
        file.name = name;
        file.type = type;
        if (!readFile(descriptor, file))
            return;
        const QByteArray base = basePath(name);
        const auto place = places.insert(base, places.value(base, objects.size()));
        if (*place == objects.size())
            objects.push_back({base, {}});
        objects[*place].files.push_back(file);
    });
    for (Object &object : objects)
        sortFiles(object);
    std::sort(objects.begin(), objects.end(),
              [](const Object &one, const Object &other) { return one.base < other.base; });
    return objects;
}

/// Returns whether the resolved path @p path is one of the folders that numberedObjects() reads.
bool isNumberedFolder(const QString &path, const Storage &storage)
{
    const QFileInfo folder(path);
    const bool isListed = numberedFolders(storage).contains(folder.fileName());
    requireReadToEnd(storage.location);
    return folder.path() == QFileInfo(storage.location).canonicalFilePath()
           && isNumberedName(folder.fileName()) && isListed;
}

} // namespace

QByteArray basePath(const QByteArray &path)
{
    const int dot = path.lastIndexOf('.');
    return dot > path.lastIndexOf('/') ? path.left(dot) : path;
}

bool Object::isReadable() const
{
    return std::all_of(files.begin(), files.end(), [](const ObjectFile &file) { return file.error == 0; });
}

bool Object::hasRecording() const
{
    return !files.front().isThumbnail();
}

bool Object::isProtected() const
{
    return std::any_of(files.begin(), files.end(),
                       [](const ObjectFile &file) { return isProtectedMode(file.mode); });
}

qint64 Object::size() const
{
    return std::accumulate(files.begin(), files.end(), qint64(0),
                           [](qint64 sum, const ObjectFile &file) { return sum + file.size; });
}

qint64 Object::allocated() const
{
    return std::accumulate(files.begin(), files.end(), qint64(0),
                           [](qint64 sum, const ObjectFile &file) { return sum + file.allocated; });
}

std::time_t Object::modified() const
{
    return std::accumulate(
        files.begin(), files.end(), files.front().modified,
        [](std::time_t last, const ObjectFile &file) { return std::max(last, file.modified); });
}

void sortFiles(Object &object)
{
    std::sort(object.files.begin(), object.files.end(), comesBefore);
}

QString NumberedFolder::pathOf(const ObjectFile &file) const
{
    return path + "/" + QFile::decodeName(file.name);
}

NumberedFolder readNumberedFolder(const QString &path)
{
    NumberedFolder folder = {path, objectsIn(path)};
    const auto isOther = [](const Object &object) { return objectNumber(object.base) == 0; };
    folder.objects.erase(std::remove_if(folder.objects.begin(), folder.objects.end(), isOther),
                         folder.objects.end());
    return folder;
}

std::optional<ObjectFile> readObjectFile(const QString &folder, const QByteArray &name)
{
    ObjectFile file;
    file.name = name;
    file.type = findType(QString::fromUtf8(name), Qt::CaseInsensitive);
    if (!file.type || objectNumber(basePath(name)) == 0)
        return std::nullopt;
    const Descriptor directory = openFolder(folder);
    return readFile(directory.get(), file) ? std::optional(file) : std::nullopt;
}

QStringList objectFolders(const Storage &storage)
{
    QStringList paths;
    for (const QString &name : numberedFolders(storage)) {
        if (isNumberedName(name))
            paths.append(storage.location + "/" + name);
    }
    return paths;
}

std::vector<NumberedFolder> numberedObjects(const Storage &storage)
{
    std::vector<NumberedFolder> folders;
    for (const QString &path : objectFolders(storage))
        folders.push_back(readNumberedFolder(path));
    requireReadToEnd(storage.location);
    return folders;
}

const Storage &storageOfNumberedFolder(const QString &folder, const QString &path,
                                       const QList<Storage> &storages)
{
    const Storage *storage = storageOf(folder, storages);
    if (!storage || !isNumberedFolder(folder, *storage))
        throw FileFailure(path, "is not in a numbered folder of a configured storage device");
    return *storage;
}

bool isProtectedMode(mode_t mode)
{
    return S_ISREG(mode) && (mode & ANY_WRITE) == 0;
}

bool isProtected(const NumberedFolder &folder, const Object &object)
{
    return std::any_of(object.files.begin(), object.files.end(),
                       [&folder](const ObjectFile &file) { return hasMark(folder.pathOf(file)); });
}

ProtectedObjects::ProtectedObjects(const QList<QFileInfo> &files)
{
    for (const QFileInfo &file : files) {
        // QFileInfo knows these permissions from the listing; permissions() would call access() three times.
        if (!file.permission(QFile::WriteOwner) && !file.permission(QFile::WriteGroup)
            && !file.permission(QFile::WriteOther))
            add(QFile::encodeName(file.fileName()));
    }
}

void ProtectedObjects::add(const QByteArray &name)
{
    mNames.insert(name);
    if (findType(QString::fromUtf8(name), Qt::CaseInsensitive))
        mBases.insert(basePath(name));
}

bool ProtectedObjects::contains(const QByteArray &name) const
{
    return mNames.contains(name) || mBases.contains(basePath(name));
}

QStringList ProtectionCheck::filesOfObject(const QString &resolved)
{
    const QString folder = resolved.left(resolved.lastIndexOf('/') + 1);
    if (!mFolders.contains(folder) && QFileInfo(folder).isDir())
        mFolders.insert(folder, namesIn(folder));
    const QByteArray name = QFile::encodeName(resolved.mid(folder.size()));
    const Names &found = mFolders[folder];
    QStringList files;
    for (const QByteArray &other : found.byBase.value(found.key(name)))
        files.append(folder + QFile::decodeName(other));
    return files;
}

bool ProtectionCheck::isProtected(const QString &resolved)
{
    if (hasMark(resolved))
        return true;
    const QStringList files = filesOfObject(resolved);
    return std::any_of(files.begin(), files.end(), hasMark);
}

void ProtectionCheck::requireUnprotected(const QString &path, const QString &resolved)
{
    if (isProtected(resolved))
        throw FileFailure(path, "is protected; use --force");
}

void ProtectionCheck::requireNotBeingWritten(const QString &path, const QString &resolved)
{
    const QStringList files = filesOfObject(resolved);
    if (std::any_of(files.begin(), files.end(), [](const QString &file) { return isBeingWritten(file); }))
        throw FileFailure(path, "is being written; use --force");
}

ProtectionCheck::Names ProtectionCheck::namesIn(const QString &folder)
{
    const FileSystem fileSystem = fileSystemOf(folder);
    Names names;
    names.isCaseless = fileSystem == FileSystem::Fat || fileSystem == FileSystem::Exfat;
    forEachMediaName(folder, [&names](int, const QByteArray &name, const MediaType *) {
        names.byBase[names.key(name)].append(name);
    });
    return names;
}

QByteArray ProtectionCheck::Names::key(const QByteArray &name) const
{
    return isCaseless ? basePath(name).toLower() : basePath(name);
}

QString thumbnailBeside(const QString &path)
{
    const MediaType *type = findType(path, Qt::CaseInsensitive);
    const QString thumbnail = thumbnailOf(path);
    const bool hasThumbnail = type && (type->kind == PHOTO || type->kind == VIDEO) && isFile(thumbnail);
    return hasThumbnail ? thumbnail : QString();
}

QStringList recordingsBeside(const QString &path)
{
    struct stat own = {};
    struct stat other = {};
    const bool isReadable = readLinkStatus(path, own);
    QStringList others;
    for (const QString &sibling : recordingPathsOf(path)) {
        // On FAT, a name in another case is the same file.
        const bool hasSameName =
            QFileInfo(path).fileName().compare(QFileInfo(sibling).fileName(), Qt::CaseInsensitive) == 0;
        const bool isOther =
            !hasSameName || !isReadable || !readLinkStatus(sibling, other) || !isSameFile(own, other);
        if (isOther && isFile(sibling))
            others.append(sibling);
    }
    return others;
}

QString thumbnailFreedBy(const QString &path)
{
    const QString thumbnail = thumbnailBeside(path);
    return thumbnail.isEmpty() || !recordingsBeside(path).isEmpty() ? QString() : thumbnail;
}

bool isThumbnailAlone(const QString &path)
{
    const QStringList recordings = recordingPathsOf(path);
    return std::none_of(recordings.begin(), recordings.end(), isFile);
}

Descriptor holdForWriting(const QString &path)
{
    Descriptor file = openFile(path, O_WRONLY | O_NOFOLLOW);
    ::flock(file.get(), LOCK_EX | LOCK_NB);
    return file;
}

bool isBeingWritten(const QString &path)
{
    const Descriptor file = openFile(path, O_RDONLY | O_NOFOLLOW | O_NONBLOCK);
    if (file.isOpen() && ::flock(file.get(), LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK)
        return true;
    // The kernel grants a read lease only if nobody has the file open for writing, and only to its owner or
    // root: fcntl(2), "Leases". It sends SIGIO to the holder of a lease that is in the way.
    std::signal(SIGIO, SIG_IGN);
    if (!file.isOpen() || ::fcntl(file.get(), F_SETLEASE, F_RDLCK) == 0)
        return false;
    return errno == EAGAIN;
}

bool isBeingWritten(const NumberedFolder &folder, const Object &object)
{
    return std::any_of(object.files.begin(), object.files.end(),
                       [&folder](const ObjectFile &file) { return isBeingWritten(folder.pathOf(file)); });
}

// SPDX-License-Identifier: MIT
#ifndef OBJECTS_H
#define OBJECTS_H

#include "files.h"
#include "media.h"
#include "storages.h"

#include <QByteArray>
#include <QByteArrayList>
#include <QFileInfo>
#include <QHash>
#include <QList>
#include <QSet>
#include <QString>
#include <QStringList>

#include <ctime>
#include <optional>
#include <vector>

// An object is what a camera shows and deletes as one: all files in a folder that share a base name, such as
// a photo and its thumbnail, or the two formats of one shot. Its position in the numbering is its number.

/// The path or name of a file without its extension: the part that all files of an object share.
QByteArray basePath(const QByteArray &path);

/// A file of an object.
struct ObjectFile {
    QByteArray name;
    const MediaType *type = nullptr;
    mode_t mode = 0;
    qint64 size = 0;
    qint64 allocated = 0; // the bytes that become free when it is deleted
    std::time_t modified = 0;
    qint64 modifiedMsecs = 0; // since 1970
    qint64 createdMsecs = 0;  // see creationTime()
    int error = 0;            // why the status cannot be read

    bool isThumbnail() const { return type->kind == THUMBNAIL; }
};

struct Object {
    QByteArray base;               // "DCF_0001"
    std::vector<ObjectFile> files; // the recordings by name, then the thumbnail

    bool isReadable() const;
    /// False for a thumbnail that is alone.
    bool hasRecording() const;
    bool isProtected() const;
    qint64 size() const;
    qint64 allocated() const;
    /// The latest modification time of its files.
    std::time_t modified() const;
};

/// Sorts the files of an object: the recordings by name, then the thumbnail.
void sortFiles(Object &object);

/// A numbered folder, and the objects in it whose base names the numbering uses.
struct NumberedFolder {
    QString path;
    std::vector<Object> objects;

    QString pathOf(const ObjectFile &file) const;
};

/// Reads a folder that is one of objectFolders(). Throws Failure if it cannot be read.
NumberedFolder readNumberedFolder(const QString &path);

/// Reads a file in such a folder; nullopt if it does not exist or readNumberedFolder() would leave it out.
std::optional<ObjectFile> readObjectFile(const QString &folder, const QByteArray &name);

/// The paths of the numbered folders in the order of the numbering, so that the last object of the last
/// folder is the newest. Folders whose names the numbering does not use are left out.
QStringList objectFolders(const Storage &storage);

/// These folders with their objects. Throws Failure if one cannot be read.
std::vector<NumberedFolder> numberedObjects(const Storage &storage);

/// The storage device in @p storages that contains the numbered folder @p folder, a resolved path. Throws
/// FileFailure: for @p path, which is the folder or a file in it, if no storage device contains the folder;
/// for the location if that cannot be read.
const Storage &storageOfNumberedFolder(const QString &folder, const QString &path,
                                       const QList<Storage> &storages);

constexpr mode_t ANY_WRITE = S_IWUSR | S_IWGRP | S_IWOTH;

/// Returns whether a file with @p mode is protected: nobody may write to it. On FAT and exFAT this is the
/// attribute "read-only", which cameras use. access() would not do: root may write to any file.
bool isProtectedMode(mode_t mode);

/// Returns whether a file of @p object, which is in @p folder, is protected.
bool isProtected(const NumberedFolder &folder, const Object &object);

/// The protected objects of a folder, collected while its files are listed.
class ProtectedObjects
{
public:
    ProtectedObjects() = default;
    /// @p files are all files of the folder.
    explicit ProtectedObjects(const QList<QFileInfo> &files);

    /// Adds a protected file.
    void add(const QByteArray &name);

    bool isEmpty() const { return mNames.isEmpty(); }
    /// Returns whether the file @p name, or another file of its object, is protected.
    bool contains(const QByteArray &name) const;

private:
    QSet<QByteArray> mNames;
    QSet<QByteArray> mBases; // of media files
};

/// Recognises objects that are protected or being written. Reads the names in each folder once: FAT and ext4
/// search the whole folder for a name that is not there, and most of the names that an object could have do
/// not exist.
class ProtectionCheck
{
public:
    /// Returns whether the file @p resolved, or another file of its object, is protected. The extensions of
    /// an object's files may be in upper or lower case, as they may for the numbering of the library. Throws
    /// FileFailure if the file itself is not protected and its folder cannot be read.
    bool isProtected(const QString &resolved);

    /// Throws FileFailure if the file @p resolved, or another file of its object, is protected; the message
    /// names the path @p path.
    void requireUnprotected(const QString &path, const QString &resolved);

    /// The same if it is being written.
    void requireNotBeingWritten(const QString &path, const QString &resolved);

private:
    /// The names of the media files in a folder, by their base names, which are in lower case if @p
    /// isCaseless.
    struct Names {
        QHash<QByteArray, QByteArrayList> byBase;
        bool isCaseless = false;

        QByteArray key(const QByteArray &name) const;
    };

    static Names namesIn(const QString &folder);
    /// The media files of the object to which the file @p resolved belongs.
    QStringList filesOfObject(const QString &resolved);

    QHash<QString, Names> mFolders;
};

/// The thumbnail of the photo or video @p path; empty if there is none.
QString thumbnailBeside(const QString &path);

/// The other photos and videos with the base name of @p path, which share its thumbnail.
QStringList recordingsBeside(const QString &path);

/// The thumbnail that would be alone without the recording @p path; empty if there is none, or if another
/// photo or video shares it.
QString thumbnailFreedBy(const QString &path);

/// Returns whether there is no photo or video with the base name of the thumbnail @p path.
bool isThumbnailAlone(const QString &path);

/// As long as the result is open, isBeingWritten() returns true for @p path.
Descriptor holdForWriting(const QString &path);

/// Returns whether a process has the file @p path open for writing or locked.
bool isBeingWritten(const QString &path);
/// The same for any file of @p object, which is in @p folder.
bool isBeingWritten(const NumberedFolder &folder, const Object &object);

#endif // OBJECTS_H

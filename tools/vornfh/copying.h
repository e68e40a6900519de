// SPDX-License-Identifier: MIT
#ifndef COPYING_H
#define COPYING_H

#include "files.h"
#include "progress.h"
#include "storages.h"

#include <QString>

#include <algorithm>

/// A file to be copied; kept open from the first check to the last.
class Source
{
public:
    /// Throws FileFailure for anything but a regular file or a link to one.
    explicit Source(const QString &path);

    const QString &path() const { return mPath; }
    QString name() const { return mPath.mid(mPath.lastIndexOf('/') + 1); }
    QString folder() const { return mPath.left(mPath.lastIndexOf('/') + 1); }
    qint64 size() const { return mFile.st_size; }
    int descriptor() const { return mDescriptor.get(); }
    bool isSameFileAs(const struct stat &other) const { return isSameFile(mFile, other); }

    /// The minimum number of bytes that a copy needs: a file with holes needs less than its size.
    qint64 room() const { return std::min<qint64>(mFile.st_size, mFile.st_blocks * 512); }

    /// Throws FileFailure if the file, or the link to it, has changed since it was opened.
    void requireUnchanged() const;

    /// Returns whether the file still has a name, possibly a different one.
    bool hasName() const;

    /// Deletes the file (if it is a symbolic link, only the link) now that @p copy is safe. Throws
    /// FileFailure.
    void remove(const QString &copy) const;

private:
    QString mPath;
    struct stat mEntry = {}; // of the link, if it is one
    struct stat mFile = {};
    Descriptor mDescriptor;
};

/// The folder of a storage device that files are copied into, locked against other vornfh processes.
class TargetFolder
{
public:
    /// Creates the folder if it is missing. Throws Failure.
    TargetFolder(const Storage &storage, const QString &name);

    /// Copies a file and returns the path of the copy, which is on the device and has the same content.
    /// On failure, removes the copy, unless it may be the only one left, and throws FileFailure.
    QString take(const Source &source, Progress &progress) const;

private:
    void create() const;
    void lock();
    QString freePath(const QString &name) const;
    void requireRoom(const Source &source) const;
    void check(const Source &source, const QString &copy) const;

    Storage mStorage;
    QString mName;
    QString mPath;
    Descriptor mDescriptor;
    struct stat mStatus = {};
};

#endif // COPYING_H

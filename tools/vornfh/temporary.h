// SPDX-License-Identifier: MIT
#ifndef TEMPORARY_H
#define TEMPORARY_H

#include "files.h"

#include <QByteArray>
#include <QString>
#include <QStringList>

/// A hidden file that is written before it gets its name. Neither the numbering nor the library's listings
/// see it, and it is removed on destruction. leftoversIn() finds what a killed command leaves behind.
class TemporaryFile
{
public:
    /// Creates the file in @p folder. On failure, throws a FileFailure that names the path @p concerning.
    TemporaryFile(const QString &folder, const QString &concerning);
    ~TemporaryFile();
    TemporaryFile(TemporaryFile &&other) noexcept;
    TemporaryFile(const TemporaryFile &) = delete;
    TemporaryFile &operator=(const TemporaryFile &) = delete;

    QString path() const { return mPath; }
    int descriptor() const { return mFile.get(); }

    /// Closes the file and renames it to @p path, replacing an existing file only if @p isReplacing is true.
    /// Returns false with errno set, EEXIST if a file that is not to be replaced exists.
    bool rename(const QString &path, bool isReplacing);

private:
    QString mPath; // empty once the file has its name
    Descriptor mFile;
};

/// The same for an empty folder.
class TemporaryFolder
{
public:
    /// Creates the folder in @p folder. Check isCreated(); on failure, errno is set.
    explicit TemporaryFolder(const QString &folder);
    ~TemporaryFolder();
    TemporaryFolder(const TemporaryFolder &) = delete;
    TemporaryFolder &operator=(const TemporaryFolder &) = delete;

    bool isCreated() const { return !mPath.isEmpty(); }
    QString path() const { return mPath; }

    /// Renames the folder to @p path, which must not exist. Returns false with errno set.
    bool rename(const QString &path);

private:
    QString mPath; // empty once the folder has its name
};

/// The hidden files and folders in @p folder that an interrupted command has left.
QStringList leftoversIn(const QString &folder);

/// Deletes leftoversIn() and prints a line on standard error for each. One that may share its content with
/// another file is kept: if the power fails while FAT renames a file, both names can remain, and deleting one
/// would free the content of the other.
void removeLeftovers(const QString &folder);

/// rename() that fails with EEXIST instead of replacing a file.
bool renameToNew(const QString &from, const QString &to);

#endif // TEMPORARY_H

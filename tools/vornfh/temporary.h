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
    /// Returns false with errno set, EEXIST if @p path exists and is not to be replaced.
    bool rename(const QString &path, bool isReplacing);

    /// Renames the file @p path to the name of this one, whose content is lost. Returns false with errno set.
    bool takePlaceOf(const QString &path);

    /// Leaves the file where it is.
    void release() { mPath.clear(); }

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

/// A hidden file that records, for as long as it exists, that temporary files in its folder are being
/// renamed. FAT, exFAT and file systems in user space need it: a power failure can leave both names of such a
/// file, and deleting one would free the content of the other. On other file systems no file is created. The
/// mark contains the result of sessionOf() for its folder: if that is still the same, the command was
/// killed but the power did not fail. Any further lines are the file names passed to setReplacement().
class RenameMark
{
public:
    /// The mark must be on the device before a file is renamed. Throws FileFailure.
    explicit RenameMark(const QString &folder);

    /// Records a replacement on the device: if @p path is missing after an interruption, removeLeftovers()
    /// gives its name to a copy of the first of @p files that exists. All of them are in one folder.
    void setReplacement(const QString &path, const QStringList &files);

    /// Returns whether the file system needs a mark.
    bool isNeeded() const { return !mPath.isEmpty(); }

    /// Deletes the mark. Call this only when the renamed files are on the device.
    void remove();

private:
    /// Returns false, with errno set, if the content cannot be written.
    bool write(const QByteArray &content);

    QString mPath;
    Descriptor mFile;
};

/// Why a leftover is kept.
inline const QString MAY_SHARE_CONTENT = "it may share its content with another file, or be the only copy of "
                                         "a file; unmount the storage device and check it "
                                         "with fsck before you delete the leftover";

/// What interrupted commands have left behind in a folder.
struct Leftovers {
    QStringList paths;            // of temporary files and folders
    QStringList marks;            // see RenameMark
    QStringList missing;          // files whose replacement was interrupted: removeLeftovers() restores them
    bool mayShareContent = false; // with other files, because the power may have failed during a rename

    bool areSafeToDelete() const { return !mayShareContent && missing.isEmpty(); }
};

Leftovers leftoversIn(const QString &folder);

/// Deletes leftoversIn() if that is safe, and finishes an interrupted replacement of a file. Prints a line on
/// standard error for each.
void removeLeftovers(const QString &folder);

/// rename() that fails with EEXIST instead of replacing a file.
bool renameToNew(const QString &from, const QString &to);

#endif // TEMPORARY_H

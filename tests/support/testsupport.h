// SPDX-License-Identifier: MIT
#ifndef TESTSUPPORT_H
#define TESTSUPPORT_H

#include "vornfilehandler.h"

#include <QByteArray>
#include <QStringList>
#include <QTemporaryDir>
#include <QTemporaryFile>

#include <functional>
#include <optional>

/// What the library and Qt write to standard error, byte for byte, from construction to take().
class StandardErrorCapture
{
public:
    StandardErrorCapture();
    ~StandardErrorCapture();
    StandardErrorCapture(const StandardErrorCapture &) = delete;
    StandardErrorCapture &operator=(const StandardErrorCapture &) = delete;

    /// What was written since the construction or the last take().
    QByteArray take();

private:
    QTemporaryFile mFile;
    QtMessageHandler mSavedHandler; // that of Qt Test keeps Qt's messages from standard error
    int mSavedDescriptor = -1;
    qint64 mTaken = 0;
};

/// A diagnostic line as the library prints it, colours and line feed included.
QByteArray diagnosticLine(const QByteArray &text);

/// A tree on disk, one entry each for a folder, a file or a symbolic link:
///   "a/"         a folder
///   "a"          an empty file
///   "a = text"   a file with this content
///   "a -> b"     a symbolic link to b
/// A file may also be given a size and a modification time in seconds since 1970, in this order and before
/// the content: "a size 4096 at 60". Names are raw bytes.
using Tree = QByteArrayList;

/// Makes @p entries below @p path, with all missing parents.
void makeTree(const QString &path, const Tree &entries);

/// Everything below @p path, sorted, without sizes, times and contents.
Tree tree(const QString &path);

/// Everything below @p path, sorted, with the contents of files.
Tree treeWithContents(const QString &path);

/// A file with content, its folder created if missing. The name may be any bytes.
void writeFile(const QByteArray &path, const QByteArray &content = QByteArray());
void writeFile(const QString &path, const QByteArray &content = QByteArray());

/// Deletes all that lies below @p path, names that Qt does not see too.
void clearTree(const QString &path);

/// Sets a file's modification time, in milliseconds since 1970 in UTC.
void setModified(const QByteArray &path, qint64 msecs);

/// The bare names of a listing, in its order.
QStringList fileNames(const QList<QFileInfo> &files);

/// Three storages in a fresh temporary directory, with which the library has been initialised. The
/// locations are <directory>/mmc/DCIM, <directory>/sd/DCIM and <directory>/usb/DCIM; none exists yet.
/// The start banner is swallowed. At the end the library is back at its state before init().
class Storages
{
public:
    explicit Storages(const QString &suffix = QStringLiteral("ABC"));
    ~Storages();
    Storages(const Storages &) = delete;
    Storages &operator=(const Storages &) = delete;

    QString path() const { return mDirectory.path(); }
    QString location(VORN_FILE_HANDLER::eStorageType storage) const;
    QString sd() const { return location(VORN_FILE_HANDLER::STORAGE_SD); }

private:
    QTemporaryDir mDirectory;
};

/// Changes the current directory until the end of the scope.
class CurrentDirectory
{
public:
    explicit CurrentDirectory(const QString &path);
    ~CurrentDirectory();
    CurrentDirectory(const CurrentDirectory &) = delete;
    CurrentDirectory &operator=(const CurrentDirectory &) = delete;

private:
    QString mSaved;
};

/// What @p work answers in a child process in which the file systems below @p folder are read-only; nothing
/// where the system does not let this user do that. Standard error is the caller's.
std::optional<QByteArray> onReadOnlyMedium(const QString &folder, const std::function<QByteArray()> &work);

/// What @p work answers in a child process in which @p folder, empty, is a file system of @p bytes; nothing
/// as above.
std::optional<QByteArray> onSmallMedium(const QString &folder, int bytes,
                                        const std::function<QByteArray()> &work);

/// What @p work answers in a child process whose /tmp is another one, and empty; nothing as above.
std::optional<QByteArray> withEmptyTmp(const std::function<QByteArray()> &work);

/// For the edges of the contract: a storage, file type or folder filter with any value.
inline VORN_FILE_HANDLER::eStorageType anyStorage(int value)
{
    return static_cast<VORN_FILE_HANDLER::eStorageType>(value);
}

#endif // TESTSUPPORT_H

// SPDX-License-Identifier: MIT
#ifndef TESTSUPPORT_H
#define TESTSUPPORT_H

#include "vornfilehandler.h"

#include <QByteArrayList>
#include <QRandomGenerator>
#include <QStringList>
#include <QTemporaryDir>
#include <QTest>
#include <QVariant>

#include <functional>
#include <optional>
#include <type_traits>

// In a program that is linked with this library, names on disk are UTF-8, regardless of the locale.

/// A value as the table of a test stores it: an enumerator as an int.
template <typename Value>
decltype(auto) inTable(const Value &value)
{
    if constexpr (std::is_enum_v<Value>)
        return static_cast<int>(value);
    else
        return value;
}

/// A row of the table of a test. A table whose values require a conversion has its own row(), with typed
/// parameters.
template <typename... Values>
void row(const char *name, const Values &...values)
{
    (QTest::newRow(name) << ... << inTable(values));
}

/// A random element of @p list.
template <typename List>
auto oneOf(QRandomGenerator &random, const List &list)
{
    return list.at(random.bounded(list.size()));
}

/// Throws an exception that names @p what unless @p condition holds.
void require(bool condition, const QByteArray &what);

/// The null character, which ends a path for the system but not for Qt.
inline const QString NUL{QChar(QChar::Null)};

// Any value of the interface's enumerations, defined or not

inline VORN_FILE_HANDLER::eStorageType anyStorage(int value)
{
    return static_cast<VORN_FILE_HANDLER::eStorageType>(value);
}

inline VORN_FILE_HANDLER::eFileTypes anyType(int value)
{
    return static_cast<VORN_FILE_HANDLER::eFileTypes>(value);
}

inline VORN_FILE_HANDLER::eDIRECTORY_FILTER anyFilter(int value)
{
    return static_cast<VORN_FILE_HANDLER::eDIRECTORY_FILTER>(value);
}

// Standard error

/// Captures standard error, byte for byte, until the end of the scope.
class StandardErrorCapture
{
public:
    StandardErrorCapture();
    ~StandardErrorCapture();
    Q_DISABLE_COPY(StandardErrorCapture)

    /// Everything written since the construction or the last take().
    QByteArray take();

private:
    int mFile;
    int mSavedDescriptor;
    QtMessageHandler mSavedHandler; // Qt Test's handler would keep Qt's messages off standard error
    qint64 mTaken = 0;
};

/// What the library prints when it is initialised.
inline const QByteArray START_BANNER = "\x1b[31m-----------------------------------\n"
                                       "----- VORN_FILE_HANDLER v25.02.25 -------\n"
                                       "-----------------------------------\x1b[0m\n";

/// A diagnostic line of the library, with its colours and line feed.
QByteArray diagnosticLine(const QByteArray &text);

QByteArray missingLocationLine(const QString &location);
QByteArray missingDirectoryLine(const QString &path);
QByteArray noFolderNumberLine(); ///< for a folder whose name is not a number
QByteArray noFileNumberLine();   ///< for a file whose name has no number

// Files

/// A tree on disk, one entry each for a folder, a file or a symbolic link:
///   "a/"         a folder
///   "a"          an empty file
///   "a = text"   a file with this content
///   "a -> b"     a symbolic link to b
/// A file may also be given a size and a modification time in seconds since 1970, in this order and before
/// the content: "a size 4096 at 60.5". Names are raw bytes.
using Tree = QByteArrayList;

/// Creates @p entries and all missing parents below @p path.
void makeTree(const QString &path, const Tree &entries);

/// Everything below @p path, sorted, without sizes, times and contents.
Tree tree(const QString &path);

/// Everything below @p path, sorted, with the contents of files.
Tree treeWithContents(const QString &path);

/// @p entries, each below @p folder, which ends in "/", and the folder itself.
Tree inFolder(const QByteArray &folder, const Tree &entries);

Tree sorted(Tree entries);

/// Creates a file and its missing parents. The name may be any bytes.
void writeFile(const QByteArray &path, const QByteArray &content = QByteArray());
void writeFile(const QString &path, const QByteArray &content = QByteArray());

/// The content of a file; "unreadable" if it cannot be read.
QByteArray contentOf(const QString &path);

/// Deletes everything below @p path, including names that Qt cannot see.
void clearTree(const QString &path);

/// Sets a file's modification time, in milliseconds since 1970 in UTC.
void setModified(const QByteArray &path, qint64 msecs);

/// When a file was created, in milliseconds since 1970: its birth time, or the last status change if the file
/// system keeps no birth time.
qint64 creationTime(const QByteArray &path);

/// The names of @p files.
QStringList fileNames(const QFileInfoList &files);

/// The paths of @p files relative to @p folder.
QByteArrayList relativePaths(const QFileInfoList &files, const QString &folder);

// Records

/// Sets every field to a value that is not its default and that no other field has.
void fillRecord(Metadata &record, int base = 0);

/// The fields of @p record in the order of their declaration.
QVariantList fieldsOf(const Metadata &record);

// Environment, restored at the end of the scope

/// Three storage devices in a fresh temporary directory, with which the library is initialised. The locations
/// are <directory>/mmc/DCIM, <directory>/sd/DCIM and <directory>/usb/DCIM; none exists yet. Nothing is
/// printed. The destructor restores the library's state before init().
class Storages
{
public:
    explicit Storages(const QString &suffix = QStringLiteral("ABC"));
    ~Storages();
    Q_DISABLE_COPY(Storages)

    QString path() const { return mDirectory.path(); }
    QString location(VORN_FILE_HANDLER::eStorageType storage) const;
    QString sd() const { return location(VORN_FILE_HANDLER::STORAGE_SD); }

private:
    QTemporaryDir mDirectory;
};

class CurrentDirectory
{
public:
    explicit CurrentDirectory(const QString &path);
    ~CurrentDirectory();
    Q_DISABLE_COPY(CurrentDirectory)

private:
    QString mSaved;
};

class EnvironmentVariable
{
public:
    /// A null @p value unsets the variable.
    EnvironmentVariable(const char *name, const QByteArray &value);
    ~EnvironmentVariable();
    Q_DISABLE_COPY(EnvironmentVariable)

private:
    static void set(const char *name, const QByteArray &value);

    const char *mName;
    QByteArray mSaved;
};

// Each of these returns the result of @p work, run in a child process with its own mounts; nullopt if this
// user may not mount. The child shares standard error with its parent.

/// The file systems below @p folder are read-only.
std::optional<QByteArray> onReadOnlyFileSystem(const QString &folder,
                                               const std::function<QByteArray()> &work);

/// @p folder is an empty file system of @p bytes.
std::optional<QByteArray> onSmallFileSystem(const QString &folder, int bytes,
                                            const std::function<QByteArray()> &work);

/// /tmp is a separate file system, and empty.
std::optional<QByteArray> withEmptyTmp(const std::function<QByteArray()> &work);

#endif // TESTSUPPORT_H

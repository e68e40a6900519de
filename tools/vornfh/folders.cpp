// SPDX-License-Identifier: MIT
#include "folders.h"

#include "errors.h"
#include "files.h"
#include "output.h"
#include "paths.h"
#include "text.h"

#include <QDir>
#include <QFile>
#include <QHash>
#include <QRegularExpression>

#include <algorithm>
#include <cerrno>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

using namespace VORN_FILE_HANDLER;

namespace {

/// @p folder without symbolic links; empty if it does not exist. Each folder is resolved once: a command with
/// thousands of files would otherwise spend most of its time here.
QString resolvedFolder(const QString &folder)
{
    static thread_local QHash<QString, QString> resolved;
    QString &path = resolved[folder];
    if (path.isEmpty())
        path = QFileInfo(folder).canonicalFilePath();
    return path;
}

} // namespace

QStringList numberedFolders(const Storage &storage)
{
    const QString pattern = "*" + VornFileHandler::mFolderSuffix;
    // With an invalid pattern, QDir would print a warning for each name.
    if (!QRegularExpression(QRegularExpression::wildcardToRegularExpression(pattern)).isValid())
        return {};
    return QDir(storage.location)
        .entryList({pattern}, QDir::Dirs | QDir::NoSymLinks | QDir::NoDotAndDotDot, QDir::Name);
}

bool hasNumberedFolders(const Storage &storage)
{
    // With an empty suffix the library lists "." and "..".
    const bool isAlwaysListed = VornFileHandler::mFolderSuffix.isEmpty();
    return QFileInfo(storage.location).isDir() && (isAlwaysListed || !numberedFolders(storage).isEmpty());
}

QList<QFileInfo> selectedFolders(const Storage &storage, eDIRECTORY_FILTER filter)
{
    requireReadableFolder(storage.location);
    const bool isListed = filter != DIRECTORY_FILTER_DCIM || hasNumberedFolders(storage);
    const QList<QFileInfo> folders =
        isListed ? VornFileHandler::getFolders(storage.type, filter) : QList<QFileInfo>();
    requireReadToEnd(storage.location);
    for (const QFileInfo &folder : folders)
        requireReadable(folder.absoluteFilePath());
    return folders;
}

void requireNotRoot(const Storage &storage)
{
    if (storage.location == "/" || QFileInfo(storage.location).canonicalFilePath() == "/")
        throw UsageError(storage.location + ": the root folder cannot be used as a location");
}

void requireFolder(const QString &path)
{
    if (QFileInfo(path).isDir())
        return;
    if (QFileInfo::exists(path))
        throw Failure(path + ": is not a folder");
    const QString above = nearestExisting(path);
    if (!QFileInfo(above).isDir())
        throw Failure(QString("%1: cannot be created: %2 is not a folder").arg(path, above));
    const bool isWritable = ::access(QFile::encodeName(above), W_OK | X_OK) == 0;
    throw Failure(path + ": cannot be created" + (isWritable ? QString() : ": " + errorText(errno)));
}

void requireReadable(const QString &path)
{
    const Descriptor folder = openFolder(path);
    const bool isReadable = folder.isOpen() && ::faccessat(folder.get(), ".", X_OK, 0) == 0;
    if (!isReadable && errno != ENOENT && errno != ENOTDIR)
        throw Failure(path + ": " + errorText(errno));
}

void requireReadableFolder(const QString &path)
{
    struct stat status = {};
    if (!readStatus(path, status))
        throw Failure(path + ": " + (errno == ENOENT ? "does not exist" : errorText(errno)));
    if (!S_ISDIR(status.st_mode))
        throw Failure(path + ": is not a folder");
    requireReadable(path);
}

void requireReadToEnd(const QString &folder)
{
    if (!forEachEntry(folder, [](int, const dirent &) {}) && errno != ENOENT && errno != ENOTDIR)
        throw FileFailure(folder, errorText(errno));
}

QStringList unreadableEntries(const QString &folder)
{
    QStringList problems;
    const auto add = [&problems](const QString &path) {
        // Missing permissions do not mean that the medium is faulty.
        if (errno != ENOENT && errno != ENOTDIR && errno != EACCES)
            problems.append(QString("%1: cannot be read: %2").arg(path, errorText(errno)));
    };
    const bool isRead = forEachEntry(folder, [&](int descriptor, const dirent &entry) {
        struct stat status = {};
        if (::fstatat(descriptor, entry.d_name, &status, AT_SYMLINK_NOFOLLOW) != 0)
            add(folder + "/" + printable(QByteArray(entry.d_name)));
    });
    if (!isRead)
        add(folder);
    return problems;
}

void reportUnreadable(const QString &folder)
{
    for (const QString &problem : unreadableEntries(folder))
        printError(problem);
}

void requireReadableFolders(const Storage &storage)
{
    requireReadable(storage.location);
    for (const QString &folder : numberedFolders(storage))
        requireReadable(storage.location + "/" + folder);
}

QString withResolvedFolder(const QString &path)
{
    const int slash = path.lastIndexOf('/');
    const QString folder = resolvedFolder(path.left(slash + 1));
    return folder.isEmpty() ? path : QDir(folder).filePath(path.mid(slash + 1));
}

const Storage *storageOf(const QString &path, const QList<Storage> &storages)
{
    const auto found = std::find_if(storages.begin(), storages.end(), [&path](const Storage &storage) {
        const QString location = resolvedFolder(storage.location);
        return !location.isEmpty() && location != "/" && isInside(path, location);
    });
    return found == storages.end() ? nullptr : &*found;
}

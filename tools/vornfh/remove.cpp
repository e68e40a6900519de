// SPDX-License-Identifier: MIT
#include "device.h"
#include "filecheck.h"
#include "names.h"
#include "table.h"
#include "vornfh.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <iostream>
#include <memory>

#include <fts.h>
#include <pwd.h>
#include <unistd.h>

using namespace VORN_FILE_HANDLER;

namespace {

constexpr eStorageType STORAGES[] = {STORAGE_MMC, STORAGE_SD, STORAGE_USB};

bool isInside(const QString &path, const QString &folder)
{
    return path.startsWith(folder.endsWith('/') ? folder : folder + "/");
}

// delete

/// The path with all links in its folders resolved, but not the last name: a link itself is what goes.
QString resolvedPath(const QString &path)
{
    const int slash = path.lastIndexOf('/');
    const QString folder = QFileInfo(path.left(slash + 1)).canonicalFilePath();
    return folder.isEmpty() ? path : QDir(folder).filePath(path.mid(slash + 1));
}

void requireInsideStorage(const QString &path, const QString &shownPath, const StorageOptions &storages)
{
    const bool inside = std::any_of(std::begin(STORAGES), std::end(STORAGES), [&](eStorageType storage) {
        const QString location = QFileInfo(locationOf(storage)).canonicalFilePath();
        return storages.isConfigured(storage) && !location.isEmpty() && location != "/"
               && isInside(path, location);
    });
    if (!inside)
        throw FileFailure(shownPath, "is not inside the location of a configured storage");
}

void deleteFile(const QString &given, const StorageOptions &storages)
{
    if (given.isEmpty())
        throw FileFailure("''", "is no file name");
    const QString path = fromRoot(given);
    struct stat status = {};
    if (!readLinkStatus(path, status))
        throw FileFailure(path, errorText(errno));
    if (S_ISDIR(status.st_mode))
        throw FileFailure(path, "is a folder");
    if (!S_ISREG(status.st_mode) && !S_ISLNK(status.st_mode))
        throw FileFailure(path, "is no regular file");
    const QString resolved = resolvedPath(path);
    requireInsideStorage(resolved, path, storages);
    VornFileHandler::deleteFile(resolved);
    // The library does not say what was wrong: a second attempt does.
    if (readLinkStatus(resolved, status) && ::unlink(QFile::encodeName(resolved).constData()) != 0)
        throw FileFailure(path, "cannot be deleted: " + errorText(errno));
    printLine(printable(path));
}

void deleteFiles(const std::vector<std::string> &files, const StorageOptions &storages)
{
    int failures = 0;
    for (const std::string &file : files) {
        try {
            deleteFile(fromCommandLine(file, "PATH"), storages);
        } catch (const std::runtime_error &error) {
            printError(error.what());
            ++failures;
        }
    }
    if (failures > 0)
        throw Failure(QString("%1 of %2 files not deleted").arg(failures).arg(files.size()));
}

// mkdir

void createFolder(eStorageType storage, const QString &name)
{
    const QString path = VornFileHandler::getDirPath(storage, name);
    requireWritable(storage);
    if (QFileInfo::exists(path) || QFileInfo(path).isSymLink())
        throw Failure(path + ": exists already");
    VornFileHandler::createFolder(storage, name);
    // The library does not say what was wrong: a second attempt does.
    if (!QFileInfo(path).isDir() && ::mkdir(QFile::encodeName(path).constData(), 0777) != 0)
        throw Failure(path + ": cannot be created: " + errorText(errno));
    printLine(printable(path));
}

// rmdir and wipe

/// What lies in a folder, at all depths.
struct Content {
    int files = 0;
    int folders = 0;
    qint64 bytes = 0;
    QStringList names;  // of files and folders
    QStringList others; // of the files that are no media
    QString mountPoint; // of another file system in it
    QByteArray deepest; // something that could be deleted by itself; empty in an empty folder
};

bool isMedia(const QByteArray &name)
{
    const QString *const extensions[] = {&JPEG_FILE_EXT, &PNG_FILE_EXT, &THUMB_FILE_EXT,
                                         &AVI_FILE_EXT,  &MKV_FILE_EXT, &WAV_FILE_EXT};
    const QByteArray extension = name.mid(name.lastIndexOf('.') + 1).toLower();
    return name.contains('.')
           && std::any_of(std::begin(extensions), std::end(extensions),
                          [&extension](const QString *known) { return known->toUtf8() == extension; });
}

void count(const FTSENT &entry, int prefixLength, dev_t device, Content &content)
{
    const QByteArray path = entry.fts_path;
    const QString shown = printable(path.mid(prefixLength));
    if (entry.fts_info == FTS_D) {
        content.folders += entry.fts_level > 0 ? 1 : 0;
        if (entry.fts_statp->st_dev != device && content.mountPoint.isEmpty())
            content.mountPoint = printable(path);
        return;
    }
    if (entry.fts_level > 0) {
        content.names.append(shown);
        content.deepest = path;
    }
    if (entry.fts_info == FTS_DP)
        return;
    ++content.files;
    if (entry.fts_info == FTS_F && entry.fts_statp->st_dev != device && content.mountPoint.isEmpty())
        content.mountPoint = printable(path);
    content.bytes += entry.fts_info == FTS_F ? entry.fts_statp->st_size : 0;
    if (entry.fts_info != FTS_F || !isMedia(entry.fts_name))
        content.others.append(shown);
}

/// Throws Failure if a folder in @p folder, or that itself, cannot be read.
Content contentOf(const QString &folder)
{
    Content content;
    QByteArray path = QFile::encodeName(folder);
    struct stat status = {};
    if (::lstat(path.constData(), &status) != 0)
        return content;
    char *const roots[] = {path.data(), nullptr};
    const std::unique_ptr<FTS, int (*)(FTS *)> walk(::fts_open(roots, FTS_PHYSICAL | FTS_NOCHDIR, nullptr),
                                                    ::fts_close);
    if (!walk)
        throw Failure(folder + ": " + errorText(errno));
    while (const FTSENT *entry = ::fts_read(walk.get())) {
        if (entry->fts_info == FTS_DNR || entry->fts_info == FTS_ERR || entry->fts_info == FTS_NS)
            throw Failure(printable(QByteArray(entry->fts_path)) + ": " + errorText(entry->fts_errno));
        count(*entry, path.size() + 1, status.st_dev, content);
    }
    return content;
}

QString withNames(const QStringList &names)
{
    constexpr int SHOWN = 5;
    const QString list = QStringList(names.mid(0, SHOWN)).join(", ");
    return names.size() > SHOWN ? QString("%1 and %2 more").arg(list).arg(names.size() - SHOWN) : list;
}

QString counted(int count, const QString &what)
{
    return QString("%1 %2%3").arg(count).arg(what, count == 1 ? "" : "s");
}

QString summary(const Content &content)
{
    const QString folders = content.folders > 0 ? " and " + counted(content.folders, "folder") : QString();
    return QString("%1%2, %3").arg(counted(content.files, "file"), folders, humanSize(content.bytes));
}

/// Says what will go and returns only if it may.
void confirm(const QString &folder, const Content &content, bool isConfirmed)
{
    if (!content.mountPoint.isEmpty())
        throw Failure(QString("%1: another file system is mounted at %2").arg(folder, content.mountPoint));
    printError(QString("%1: %2 will be deleted").arg(folder, summary(content)));
    if (!content.others.isEmpty())
        printError(QString("%1: not media among them: %2").arg(folder, withNames(content.others)));
    if (isConfirmed)
        return;
    if (!::isatty(STDIN_FILENO))
        throw UsageError(folder + ": nobody can be asked, standard input is no terminal: needs --yes");
    std::fputs("Delete all of it? [y/N] ", stderr);
    std::string answer;
    std::getline(std::cin, answer);
    if (answer != "y" && answer != "Y" && answer != "yes")
        throw Failure(folder + ": not deleted");
}

/// The library does not say what was wrong: another attempt at one of the things that are left does.
QString whyNotDeleted(const QByteArray &path)
{
    if (QFile::encodeName(QFile::decodeName(path)) != path)
        return "names that are not valid UTF-8 cannot be handled";
    return ::remove(path.constData()) == 0 ? QString("they came in the meantime") : errorText(errno);
}

void requireGone(const QString &folder, const Content &before)
{
    QString rest;
    struct stat status = {};
    if (readLinkStatus(folder, status)) {
        const Content left = contentOf(folder);
        if (!left.names.isEmpty())
            throw Failure(QString("%1: could not be deleted: %2: %3")
                              .arg(folder, withNames(left.names), whyNotDeleted(left.deepest)));
        const int error = ::rmdir(QFile::encodeName(folder).constData()) == 0 ? 0 : errno;
        if (error != 0 && error != EBUSY)
            throw Failure(folder + ": is empty, but cannot be deleted itself: " + errorText(error));
        rest = error == EBUSY ? "; the folder itself stays, a file system is mounted on it" : "";
    }
    printLine(QString("%1: deleted %2%3").arg(printable(folder), summary(before), rest));
}

void requireRealFolder(const QString &path, const QString &ifMissing)
{
    struct stat status = {};
    if (!readLinkStatus(path, status))
        throw Failure(path + ": " + (errno == ENOENT ? ifMissing : errorText(errno)));
    if (S_ISLNK(status.st_mode))
        throw Failure(path + ": is a symbolic link, what it leads to is not deleted");
    if (!S_ISDIR(status.st_mode))
        throw Failure(path + ": is not a folder");
}

void requireUsableLocation(eStorageType storage, const StorageOptions &storages)
{
    storages.require(storage);
    const QString location = locationOf(storage);
    if (location == "/" || QFileInfo(location).canonicalFilePath() == "/")
        throw UsageError(location + ": the root folder is no location to delete in");
}

void removeFolder(eStorageType storage, const QString &name, bool isConfirmed)
{
    const QString path = VornFileHandler::getDirPath(storage, name);
    requireRealFolder(path, "does not exist");
    requireWritable(storage);
    Content content = contentOf(path);
    struct stat folder = {};
    struct stat location = {};
    if (readStatus(path, folder) && readStatus(locationOf(storage), location)
        && folder.st_dev != location.st_dev)
        content.mountPoint = path;
    confirm(path, content, isConfirmed);
    VornFileHandler::deleteFolder(storage, name);
    requireGone(path, content);
}

QStringList homes()
{
    QStringList paths{QDir::homePath()};
    if (const passwd *user = ::getpwuid(::getuid()))
        paths.append(QFile::decodeName(user->pw_dir));
    return paths;
}

/// Throws UsageError if the user's home or another storage would go as well.
void requireNothingElseInside(eStorageType storage, const StorageOptions &storages)
{
    const QString location = QFileInfo(locationOf(storage)).canonicalFilePath();
    const auto holds = [&location](const QString &path) {
        const QString resolved = QFileInfo(nearestExisting(path)).canonicalFilePath();
        return resolved == location || isInside(resolved, location);
    };
    for (const QString &home : homes()) {
        if (holds(home))
            throw UsageError(QString("%1: holds the home folder %2").arg(location, home));
    }
    for (const eStorageType other : STORAGES) {
        if (other != storage && storages.isConfigured(other) && holds(locationOf(other)))
            throw UsageError(QString("%1: is or holds the location of storage %2, %3")
                                 .arg(location, storageName(other), locationOf(other)));
    }
}

void wipe(eStorageType storage, const StorageOptions &storages, bool isConfirmed)
{
    const QString location = locationOf(storage);
    requireRealFolder(location, "does not exist, there is nothing to wipe");
    requireNothingElseInside(storage, storages);
    requireWritable(storage);
    const Content content = contentOf(location);
    confirm(location, content, isConfirmed);
    VornFileHandler::deleteAllFiles(storage);
    requireGone(location, content);
}

/// The arguments of mkdir, rmdir and wipe. They live as long as the command.
struct Arguments {
    eStorageType storage = STORAGE_MMC;
    std::string folder;
    bool isConfirmed = false;

    QString folderName() const
    {
        const QString name = fromCommandLine(folder, "FOLDER");
        checkFolderName(name);
        return name;
    }
};

void addFolderArgument(CLI::App &command, Arguments &arguments)
{
    command.add_option("FOLDER", arguments.folder, "Name of a folder directly in the storage's location")
        ->required()
        ->type_name("");
}

void addConfirmation(CLI::App &command, Arguments &arguments)
{
    command.add_flag("--yes", arguments.isConfirmed, "Delete without being asked");
}

void addDelete(CLI::App &app, StorageOptions &storages)
{
    CLI::App *command = app.add_subcommand("delete", "Deletes files that lie in a storage");
    CLI::Option *paths = addNames(*command, "PATH...", "Files");
    command->callback([paths, &storages] { deleteFiles(paths->results(), storages); });
}

void addMkdir(CLI::App &app, StorageOptions &storages)
{
    const auto arguments = std::make_shared<Arguments>();
    CLI::App *command = app.add_subcommand("mkdir", "Creates a folder in a storage");
    addStorageArgument(*command, arguments->storage);
    addFolderArgument(*command, *arguments);
    command->callback([arguments, &storages] {
        requireUsableLocation(arguments->storage, storages);
        createFolder(arguments->storage, arguments->folderName());
    });
}

void addRmdir(CLI::App &app, StorageOptions &storages)
{
    const auto arguments = std::make_shared<Arguments>();
    CLI::App *command = app.add_subcommand("rmdir", "Deletes a folder of a storage with everything in it");
    addStorageArgument(*command, arguments->storage);
    addFolderArgument(*command, *arguments);
    addConfirmation(*command, *arguments);
    command->callback([arguments, &storages] {
        requireUsableLocation(arguments->storage, storages);
        removeFolder(arguments->storage, arguments->folderName(), arguments->isConfirmed);
    });
}

void addWipe(CLI::App &app, StorageOptions &storages)
{
    const auto arguments = std::make_shared<Arguments>();
    CLI::App *command = app.add_subcommand("wipe", "Deletes everything in a storage, its location as well");
    addStorageArgument(*command, arguments->storage);
    addConfirmation(*command, *arguments);
    command->callback([arguments, &storages] {
        requireUsableLocation(arguments->storage, storages);
        wipe(arguments->storage, storages, arguments->isConfirmed);
    });
}

} // namespace

void addRemoveCommands(CLI::App &app, StorageOptions &storages, ExitCode &)
{
    addDelete(app, storages);
    addMkdir(app, storages);
    addRmdir(app, storages);
    addWipe(app, storages);
}

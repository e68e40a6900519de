// SPDX-License-Identifier: MIT
#include "device.h"
#include "filecheck.h"
#include "names.h"
#include "progress.h"
#include "table.h"
#include "vornfh.h"

#include <QFile>
#include <QFileInfo>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <memory>
#include <utility>

#include <fcntl.h>
#include <linux/magic.h>
#include <sys/file.h>
#include <sys/statvfs.h>
#include <sys/vfs.h>
#include <unistd.h>

using namespace VORN_FILE_HANDLER;

namespace {

volatile std::sig_atomic_t stopSignal = 0;

void rememberStop(int signal)
{
    stopSignal = signal;
}

bool isStopped()
{
    return stopSignal != 0;
}

/// From here on these signals end the work behind the file at hand, so that no half copy stays.
void catchStopSignals()
{
    struct sigaction action = {};
    action.sa_handler = rememberStop;
    action.sa_flags = SA_RESTART;
    for (const int signal : {SIGINT, SIGTERM, SIGHUP})
        ::sigaction(signal, &action, nullptr);
}

/// A file to be copied, open from the first look at it to the last.
class Source
{
public:
    /// Throws FileFailure for anything but a regular file or a link to one.
    explicit Source(const QString &path);

    const QString &path() const { return mPath; }
    QString name() const { return mPath.mid(mPath.lastIndexOf('/') + 1); }
    QString folder() const { return mPath.left(mPath.lastIndexOf('/') + 1); }
    qint64 size() const { return mFile.st_size; }
    int descriptor() const { return mDescriptor->get(); }
    bool isSameFileAs(const struct stat &other) const { return isSameFile(mFile, other); }

    /// Bytes that a copy takes up at least: a file with holes needs less than its size.
    qint64 room() const { return std::min<qint64>(mFile.st_size, mFile.st_blocks * 512); }

    /// Throws FileFailure if the file, or the link to it, is no longer what it was at first.
    void requireUnchanged() const;

    /// Whether some folder still has the file, be it under another name.
    bool isOnDisk() const;

    /// Deletes the file, of a link the link alone, now that @p copy is safe. Throws FileFailure.
    void remove(const QString &copy) const;

private:
    QString mPath;
    struct stat mEntry = {}; // of the link itself, where it is one
    struct stat mFile = {};
    std::unique_ptr<Descriptor> mDescriptor;
};

Source::Source(const QString &path) : mPath(fromRoot(path))
{
    if (path.isEmpty())
        throw FileFailure("''", "is no file name");
    if (!readLinkStatus(mPath, mEntry))
        throw FileFailure(mPath, errorText(errno));
    if (!readStatus(mPath, mFile))
        throw FileFailure(mPath, errno == ENOENT ? QString("is a dangling symbolic link") : errorText(errno));
    if (S_ISDIR(mFile.st_mode))
        throw FileFailure(mPath, "is a folder");
    if (!S_ISREG(mFile.st_mode))
        throw FileFailure(mPath, "is no regular file");
    mDescriptor = std::make_unique<Descriptor>(
        ::open(QFile::encodeName(mPath).constData(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
    if (!mDescriptor->isOpen())
        throw FileFailure(mPath, errorText(errno));
    requireUnchanged();
}

void Source::requireUnchanged() const
{
    struct stat entry = {};
    struct stat file = {};
    const bool readable = readLinkStatus(mPath, entry) && ::fstat(mDescriptor->get(), &file) == 0;
    if (!readable || !isSameState(mEntry, entry) || !isSameState(mFile, file))
        throw FileFailure(mPath, "changed while it was copied");
}

bool Source::isOnDisk() const
{
    struct stat file = {};
    return ::fstat(mDescriptor->get(), &file) == 0 && file.st_nlink > 0;
}

void Source::remove(const QString &copy) const
{
    requireUnchanged();
    if (::unlink(QFile::encodeName(mPath).constData()) != 0)
        throw FileFailure(mPath,
                          QString("is copied to %1 but cannot be deleted: ").arg(copy) + errorText(errno));
    if (!flushFolder(folder()))
        throw FileFailure(mPath, QString("is moved to %1, but its folder cannot be flushed: ").arg(copy)
                                     + errorText(errno));
}

/// The folder of a storage into which files are copied; no other vornfh works in it at the same time.
class TargetFolder
{
public:
    /// Creates the folder if it is missing. Throws Failure.
    TargetFolder(eStorageType storage, const QString &name);

    /// Copies one file and returns the path of the copy, which has reached the device and is the same byte
    /// for byte. Throws FileFailure; then no copy is left.
    QString take(const Source &source, Progress &progress) const;

private:
    void create() const;
    void lock();
    QString freePath(const QString &name) const;
    void requireRoom(const Source &source) const;
    void check(const Source &source, const QString &copy) const;
    QString whyNotWritten(const QString &copy) const;

    eStorageType mStorage;
    QString mName;
    QString mPath;
    std::unique_ptr<Descriptor> mDescriptor;
    struct stat mStatus = {};
};

TargetFolder::TargetFolder(eStorageType storage, const QString &name)
    : mStorage(storage), mName(name), mPath(VornFileHandler::getDirPath(storage, name))
{
    create();
    lock();
}

void TargetFolder::create() const
{
    VornFileHandler::createFolder(mStorage, mName);
    const QFileInfo folder(mPath);
    if (folder.isDir())
        return;
    if (folder.exists() || folder.isSymLink())
        throw Failure(mPath + ": is not a folder");
    if (::mkdir(QFile::encodeName(mPath).constData(), 0777) != 0) // the library did not say what was wrong
        throw Failure(mPath + ": cannot be created: " + errorText(errno));
}

void TargetFolder::lock()
{
    // Inherited by cp, so that the lock holds as long as a cp writes that has outlived its vornfh.
    mDescriptor = std::make_unique<Descriptor>(
        ::open(QFile::encodeName(mPath).constData(), O_RDONLY | O_DIRECTORY)); // NOLINT: no O_CLOEXEC
    if (!mDescriptor->isOpen() || ::fstat(mDescriptor->get(), &mStatus) != 0)
        throw Failure(mPath + ": " + errorText(errno));
    if (::flock(mDescriptor->get(), LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK)
        throw Failure(mPath + ": another vornfh is copying into this folder");
}

/// The path that the library will choose, which it does not tell: built here in the same way.
QString TargetFolder::freePath(const QString &name) const
{
    constexpr int LAST_COUNTER = 999;
    QString path = QString("%1/%2").arg(mPath).arg(name);
    const QStringList pieces = name.split('.');
    for (int counter = 1; QFile::exists(path); ++counter) {
        if (counter > LAST_COUNTER) // the library would overwrite the last of them
            throw FileFailure(path, QString("exists, and so do its %1 copies").arg(LAST_COUNTER));
        path = QString("%1/%2_%3.%4").arg(mPath).arg(pieces.first()).arg(counter).arg(pieces.last());
    }
    struct stat status = {};
    if (readLinkStatus(path, status))
        throw FileFailure(path, "is a dangling symbolic link");
    return path;
}

void TargetFolder::requireRoom(const Source &source) const
{
    constexpr qint64 FAT_LIMIT = 0xFFFFFFFF;
    struct statfs type = {};
    if (::fstatfs(mDescriptor->get(), &type) == 0 && type.f_type == MSDOS_SUPER_MAGIC
        && source.size() > FAT_LIMIT)
        throw FileFailure(source.path(), "is too big for the FAT file system of " + mPath);
    struct statvfs space = {};
    if (::fstatvfs(mDescriptor->get(), &space) != 0 || space.f_blocks == 0)
        return;
    const bool isRoot = ::geteuid() == 0;
    const auto free =
        static_cast<qint64>(isRoot ? space.f_bfree : space.f_bavail) * static_cast<qint64>(space.f_frsize);
    if (free < source.room())
        throw FileFailure(source.path(), QString("no space left in %1: %2 needed, %3 free")
                                             .arg(mPath, humanSize(source.room()), humanSize(free)));
}

QString TargetFolder::take(const Source &source, Progress &progress) const
{
    struct stat sourceFolder = {};
    if (readStatus(source.folder(), sourceFolder) && isSameFile(sourceFolder, mStatus))
        throw FileFailure(source.path(), "is already in that folder");
    requireRoom(source);
    const QString copy = freePath(source.name());
    progress.startFile(copy);
    VornFileHandler::copyToFolder({source.path()}, mStorage, mName);
    try {
        check(source, copy);
        source.requireUnchanged();
    } catch (const FileFailure &) {
        struct stat status = {};
        const bool isFile = readLinkStatus(copy, status) && S_ISREG(status.st_mode);
        if (isFile && !source.isSameFileAs(status) && source.isOnDisk()) // else it may be all that is left
            ::unlink(QFile::encodeName(copy).constData());
        throw;
    }
    return copy;
}

QString cpFailure()
{
    return missingProgram({"cp"}).isEmpty() ? "cp failed" : "cp is not on the search path";
}

void TargetFolder::check(const Source &source, const QString &copy) const
{
    const Descriptor descriptor(
        ::open(QFile::encodeName(copy).constData(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    if (!descriptor.isOpen())
        throw FileFailure(source.path(), "cannot be copied: " + whyNotWritten(copy));
    struct stat status = {};
    if (::fstat(descriptor.get(), &status) != 0 || !S_ISREG(status.st_mode) || source.isSameFileAs(status))
        throw FileFailure(copy, "is no copy of " + source.path());
    // The folder's own entry lies in the location, which may be new there.
    if (!flush(descriptor.get()) || !flush(mDescriptor->get()) || !flushFolder(locationOf(mStorage)))
        throw FileFailure(copy, "cannot be flushed to the device: " + errorText(errno));
    if (!hasSameContent(source.descriptor(), descriptor.get(), source.path(), isStopped)) {
        if (isStopped())
            throw FileFailure(source.path(), "interrupted");
        const QString reason = status.st_size < source.size() ? whyNotWritten(copy) : cpFailure();
        throw FileFailure(source.path(), "its copy is not the same: " + reason);
    }
}

/// What the system says to a second attempt to write where cp failed. The file is removed again.
QString TargetFolder::whyNotWritten(const QString &copy) const
{
    const QByteArray path = QFile::encodeName(copy);
    const Descriptor file(
        ::open(path.constData(), O_WRONLY | O_CREAT | O_APPEND | O_NOFOLLOW | O_CLOEXEC, 0600));
    if (!file.isOpen())
        return errorText(errno);
    const std::vector<char> block(1 << 16);
    ssize_t count = ::write(file.get(), block.data(), block.size());
    if (count == static_cast<ssize_t>(block.size())) // a device may say only now that it is full
        count = ::fsync(file.get()) == 0 ? count : -1;
    else if (count >= 0)
        errno = ENOSPC;
    const QString reason = count == static_cast<ssize_t>(block.size()) ? cpFailure() : errorText(errno);
    ::unlink(path.constData());
    return reason;
}

/// One call of copy or move.
class Transfer
{
public:
    Transfer(eStorageType storage, QString folder, bool isMove)
        : mStorage(storage), mFolderName(std::move(folder)), mIsMove(isMove)
    {
    }

    /// Throws Failure at the end if a file failed, and at once if the target folder cannot be used.
    void run(const std::vector<std::string> &files);

private:
    void transfer(const std::string &file, Progress &progress);

    eStorageType mStorage;
    QString mFolderName;
    bool mIsMove;
    std::unique_ptr<TargetFolder> mFolder;
};

QString fileName(const std::string &text)
{
    try {
        return fromCommandLine(text, "the file name");
    } catch (const UsageError &error) { // of one file only, so no reason to leave the others
        throw FileFailure(printable(QByteArray::fromStdString(text)), "is not valid UTF-8");
    }
}

void Transfer::transfer(const std::string &file, Progress &progress)
{
    const Source source(fileName(file));
    if (!mFolder)
        mFolder = std::make_unique<TargetFolder>(mStorage, mFolderName);
    const QString copy = mFolder->take(source, progress);
    if (mIsMove)
        source.remove(copy);
    progress.erase();
    printLine(printable(source.path()) + " -> " + printable(copy));
}

qint64 sizeOf(const std::string &file)
{
    struct stat status = {};
    return ::stat(file.c_str(), &status) == 0 && S_ISREG(status.st_mode) ? status.st_size : 0;
}

void Transfer::run(const std::vector<std::string> &files)
{
    qint64 bytes = 0;
    for (const std::string &file : files)
        bytes += sizeOf(file);
    catchStopSignals();
    Progress progress(static_cast<int>(files.size()), bytes);
    size_t done = 0;
    for (size_t i = 0; i < files.size() && !isStopped(); ++i) {
        const qint64 size = sizeOf(files[i]);
        try {
            transfer(files[i], progress);
            ++done;
        } catch (const FileFailure &failure) {
            progress.erase();
            printError(failure.what());
        }
        progress.finishFile(size);
    }
    if (done < files.size())
        throw Failure(QString("%1%2 of %3 files not %4")
                          .arg(isStopped() ? "interrupted: " : "")
                          .arg(files.size() - done)
                          .arg(files.size())
                          .arg(mIsMove ? "moved" : "copied"));
}

eStorageType storageFrom(const std::string &text)
{
    const QString name = fromCommandLine(text, "STORAGE");
    for (const eStorageType storage : {STORAGE_MMC, STORAGE_SD, STORAGE_USB}) {
        if (name.compare(storageName(storage), Qt::CaseInsensitive) == 0)
            return storage;
    }
    throw UsageError(QString("STORAGE: '%1' is not one of mmc, sd, usb").arg(name));
}

void runTransfer(std::vector<std::string> arguments, const StorageOptions &storages, bool isMove)
{
    if (arguments.size() < 3)
        throw UsageError(QString("%1 needs FILES, STORAGE and FOLDER").arg(isMove ? "move" : "copy"));
    const QString folder = fromCommandLine(arguments.back(), "FOLDER");
    arguments.pop_back();
    const eStorageType storage = storageFrom(arguments.back());
    arguments.pop_back();
    storages.require(storage);
    checkFolderName(folder);
    requireWritable(storage);
    const QFileInfo location(locationOf(storage));
    if (!location.isDir())
        throw Failure(location.filePath() + (location.exists() ? ": is not a folder" : ": does not exist"));
    Transfer(storage, folder, isMove).run(arguments);
}

void addCommand(CLI::App &app, StorageOptions &storages, bool isMove, const std::string &description)
{
    CLI::App *command = app.add_subcommand(isMove ? "move" : "copy", description);
    CLI::Option *arguments = addNames(*command, "FILE... STORAGE FOLDER",
                                      "Files, a storage (mmc, sd or usb), a folder directly in its location");
    command->callback(
        [arguments, &storages, isMove] { runTransfer(arguments->results(), storages, isMove); });
}

} // namespace

void addTransferCommands(CLI::App &app, StorageOptions &storages, ExitCode &)
{
    addCommand(
        app, storages, false,
        "Copies files into a folder of a storage. Each copy is flushed to the device and compared byte for\n"
        "byte. The folder is created if missing; a name that is taken gets a counter");
    addCommand(app, storages, true,
               "Copies files as copy does, then deletes each one whose copy is safe. Where a symbolic link "
               "is named,\n"
               "the link is deleted, and the file that it leads to stays");
}

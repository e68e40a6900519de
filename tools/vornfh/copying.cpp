// SPDX-License-Identifier: MIT
#include "copying.h"

#include "durable.h"
#include "errors.h"
#include "folders.h"
#include "mounts.h"
#include "objects.h"
#include "output.h"
#include "signals.h"
#include "text.h"

#include <QCryptographicHash>
#include <QFile>

#include <algorithm>
#include <cerrno>
#include <set>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/resource.h>
#include <unistd.h>

namespace {

// A batch ends at the first of these limits, so that results are reported steadily.
constexpr qint64 BATCH_BYTES = 256 << 20;
constexpr auto BATCH_TIME = std::chrono::seconds(1);

constexpr int LAST_COUNTER = 999; // in the name of a copy

/// The largest number of files in a batch. Each file needs two descriptors, and three batches are open at a
/// time: one is written, one waits, and one is completed.
size_t batchFiles()
{
    constexpr rlim_t WANTED = 4096;
    constexpr rlim_t OTHERS = 128;
    rlimit limit = {};
    ::getrlimit(RLIMIT_NOFILE, &limit);
    if (limit.rlim_cur < WANTED) {
        limit.rlim_cur = std::min(WANTED, limit.rlim_max);
        ::setrlimit(RLIMIT_NOFILE, &limit);
    }
    return std::max<rlim_t>(1, (std::min(limit.rlim_cur, WANTED) - std::min(OTHERS, limit.rlim_cur / 2)) / 6);
}

/// Copies up to @p length bytes at @p offset within the kernel, or through memory if the file systems cannot
/// do that. Returns the number of bytes; -1 with errno set.
ssize_t copyPart(int from, int to, off_t offset, size_t length)
{
    off_t source = offset;
    off_t target = offset;
    const ssize_t count = ::copy_file_range(from, &source, to, &target, length, 0);
    const bool isRefused =
        count < 0
        && (errno == EXDEV || errno == EINVAL || errno == ENOSYS || errno == EOPNOTSUPP || errno == EPERM);
    if (!isRefused)
        return count;
    constexpr size_t BLOCK = 1 << 20;
    static thread_local QByteArray buffer;
    buffer.resize(static_cast<int>(std::min(length, BLOCK)));
    if (!readAt(from, offset, buffer))
        return -1;
    int written = 0;
    while (written < buffer.size()) {
        const ssize_t part = ::pwrite(to, buffer.constData() + written,
                                      static_cast<size_t>(buffer.size() - written), offset + written);
        if (part < 0 && errno != EINTR)
            return -1;
        written += static_cast<int>(std::max<ssize_t>(0, part));
    }
    return written;
}

} // namespace

// Source

Source::Source(const QString &path) : mPath(path)
{
    if (!readLinkStatus(mPath, mEntry))
        throw FileFailure(mPath, errorText(errno));
    mFile = mEntry;
    if (isLink() && !readStatus(mPath, mFile))
        throw FileFailure(mPath, errno == ENOENT ? QString("is a dangling symbolic link") : errorText(errno));
    if (S_ISDIR(mFile.st_mode))
        throw FileFailure(mPath, "is a folder");
    if (!S_ISREG(mFile.st_mode))
        throw FileFailure(mPath, "is not a regular file");
    mDescriptor = openFile(mPath, O_RDONLY | O_NONBLOCK);
    if (!mDescriptor.isOpen())
        throw FileFailure(mPath, errorText(errno));
    requireUnchanged();
}

qint64 Source::room() const
{
    return std::min<qint64>(mFile.st_size, mFile.st_blocks * 512);
}

void Source::requireUnchanged() const
{
    struct stat entry = {};
    struct stat file = {};
    const bool isReadable = readLinkStatus(mPath, entry) && ::fstat(descriptor(), &file) == 0;
    if (!isReadable || !isSameState(mEntry, entry) || !isSameState(mFile, file))
        throw FileFailure(mPath, "has changed since it was opened");
}

// The folder

Transfer::Transfer(const QString &path, Mode mode, Progress &progress, Completion completion)
    : mPath(path), mMode(mode), mProgress(progress), mCompletion(std::move(completion))
{
    mProgress.print([this] { // each of these can print messages
        createFolder(mPath);
        lock();
        removeLeftovers(mPath);
        reportUnreadable(mPath);
    });
    mThread = std::thread([this] { work(); });
}

void Transfer::lock()
{
    mFolder = openFolder(mPath);
    if (!mFolder.isOpen() || ::fstat(mFolder.get(), &mStatus) != 0)
        throw Failure(mPath + ": " + errorText(errno));
    if (::flock(mFolder.get(), LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK)
        throw Failure(mPath + ": another vornfh is copying into this folder");
    mFileSystem = fileSystemOf(mPath);
    mMount = mountOf(mPath);
}

/// The path that the library tries first for a copy of a file with that name (@p counter is 0), and those it
/// tries if it is taken.
QString Transfer::candidate(const QString &name, int counter) const
{
    if (counter == 0)
        return QString("%1/%2").arg(mPath).arg(name);
    const QStringList pieces = name.split('.');
    return QString("%1/%2_%3.%4").arg(mPath).arg(pieces.first()).arg(counter).arg(pieces.last());
}

/// The path that the library would give a copy. Throws FileFailure if every name is taken: the library would
/// overwrite an existing file.
QString Transfer::freePath(const QString &name) const
{
    bool isThere = false;
    const auto isTaken = [this, &isThere](const QString &one) {
        isThere = isEntry(one);
        return mTaken.contains(one) || (isThere && QFile::exists(one));
    };
    int counter = 0;
    QString path = candidate(name, counter);
    while (isTaken(path)) {
        if (counter == LAST_COUNTER)
            throw FileFailure(
                path, QString("exists, and so do the other %1 names with a counter").arg(LAST_COUNTER - 1));
        path = candidate(name, ++counter);
    }
    if (isThere)
        throw FileFailure(path, "is a dangling symbolic link");
    return path;
}

/// Finds a file that an earlier run copied: one that has the same content and one of the names that a copy
/// would get.
bool Transfer::findExisting(Item &item) const
{
    const auto isTaken = [this](const QString &one) {
        const std::lock_guard<std::mutex> lock(mMutex);
        return mTaken.contains(one);
    };
    for (int counter = 0; counter <= LAST_COUNTER; ++counter) {
        const QString path = candidate(item.source->name(), counter);
        if (!QFile::exists(path) || isTaken(path))
            return false;
        Descriptor file = openFile(path, O_RDONLY | O_NOFOLLOW | O_NONBLOCK);
        struct stat status = {};
        const bool isCandidate = file.isOpen() && ::fstat(file.get(), &status) == 0 && S_ISREG(status.st_mode)
                                 && status.st_size == item.source->size()
                                 && !isSameFile(status, item.source->status());
        if (!isCandidate)
            continue;
        mProgress.setStage("comparing");
        if (hasSameContent(item.source->descriptor(), file.get(), item.source->path())) {
            item.existing = std::move(file);
            item.target = path;
            return true;
        }
    }
    return false;
}

/// Returns whether renaming the file is as safe as copying it. If the power fails meanwhile, FAT can keep
/// both names, and deleting one then frees the content of the other; exFAT and file systems in user space can
/// lose both.
bool Transfer::canRename(const Source &source) const
{
    return mMode == Mode::Move && !source.isLink() && mFileSystem == FileSystem::Other
           && source.status().st_dev == mStatus.st_dev && mountOf(source.path()) == mMount;
}

void Transfer::requireRoom(const Source &source) const
{
    if (source.size() > largestFile(mPath))
        throw FileFailure(source.path(), "is too large for the FAT file system of " + mPath);
    const qint64 free = freeBytes(mPath);
    if (free < source.room())
        throw FileFailure(source.path(), QString("not enough space in %1: %2 needed, %3 free")
                                             .arg(mPath, humanSize(source.room()), humanSize(free)));
}

// Writing

void Transfer::add(std::unique_ptr<Source> source, bool mayEndBatch)
{
    struct stat folder = {};
    if (readStatus(source->folder(), folder) && isSameFile(folder, mStatus))
        throw FileFailure(source->path(), "is already in that folder");
    if (mMayEndBatch && !mBatch.empty() && source->size() >= BATCH_BYTES)
        endBatch(); // the files in it would be reported only after this one
    Item item;
    item.source = std::move(source);
    if (!findExisting(item)) {
        const bool isRenamed = canRename(*item.source);
        mProgress.setStage(isRenamed ? "moving" : "copying");
        if (!isRenamed)
            write(item);
        chooseName(item);
        if (isRenamed) // not in the second thread, which would compete for the locks of the folders
            name(item);
    }
    if (!mBatch.empty() && mBatch.front().isRenamed() != item.isRenamed())
        endBatch();
    mBatchBytes += item.source->size();
    if (mBatch.empty())
        mBatchStart = std::chrono::steady_clock::now();
    mBatch.push_back(std::move(item));
    mMayEndBatch = mayEndBatch;
    static const size_t LIMIT = batchFiles();
    if (mayEndBatch && (mBatch.size() >= LIMIT || mBatchBytes >= BATCH_BYTES || isBatchOld()))
        endBatch();
}

/// Writes a copy under a hidden name. Holes stay holes.
void Transfer::write(Item &item)
{
    constexpr size_t PART = 8 << 20;
    const Source &source = *item.source;
    if (mMode == Mode::Move && isBeingWritten(source.path()))
        throw FileFailure(source.path(), "is being written");
    requireRoom(source);
    item.copy.emplace(mPath, source.path());
    const int target = item.copy->descriptor();
    const auto require = [&source](bool isDone) {
        if (!isDone)
            throw FileFailure(source.path(), "cannot be copied: " + errorText(errno));
    };
    require(::ftruncate(target, source.size()) == 0);
    for (off_t offset = 0; offset < source.size();) {
        if (isStopped())
            throw FileFailure(source.path(), "interrupted");
        const off_t start = ::lseek(source.descriptor(), offset, SEEK_DATA);
        if (start < 0 && errno == ENXIO)
            break; // the rest is a hole
        const off_t end = ::lseek(source.descriptor(), std::max(start, offset), SEEK_HOLE);
        offset = start < 0 ? offset : start; // if the file system cannot report holes, there are none
        const auto length = static_cast<size_t>((end < 0 ? source.size() : end) - offset);
        const ssize_t count = copyPart(source.descriptor(), target, offset, std::min(length, PART));
        require(count >= 0);
        if (count == 0)
            break; // the file has shrunk, which requireUnchanged() reports
        ::sync_file_range(target, offset, count, SYNC_FILE_RANGE_WRITE); // starts writing without waiting
        offset += count;
        mProgress.addBytes(count);
        if (mMayEndBatch && isBatchOld())
            endBatch(); // with the files before this one
    }
    setAttributes(target, source.status()); // FAT keeps neither owner nor exact times
    source.requireUnchanged();
}

/// Returns whether results of the batch are due.
bool Transfer::isBatchOld() const
{
    return !mBatch.empty() && std::chrono::steady_clock::now() - mBatchStart >= BATCH_TIME;
}

void Transfer::endBatch()
{
    std::unique_lock<std::mutex> lock(mMutex);
    mChanged.wait(lock, [this] { return mQueue.empty(); });
    mQueue.push_back(std::move(mBatch));
    mBatch.clear();
    mBatchBytes = 0;
    mChanged.notify_all();
}

int Transfer::finish()
{
    if (!mBatch.empty())
        endBatch();
    {
        const std::lock_guard<std::mutex> lock(mMutex);
        mIsEnding = true;
    }
    mChanged.notify_all();
    if (mThread.joinable())
        mThread.join();
    return mDone;
}

Transfer::~Transfer()
{
    finish();
}

// Completing, in the second thread

void Transfer::work()
{
    std::unique_lock<std::mutex> lock(mMutex);
    while (true) {
        mChanged.wait(lock, [this] { return mIsEnding || !mQueue.empty(); });
        if (mQueue.empty())
            return;
        Batch batch = std::move(mQueue.front());
        mQueue.pop_front();
        mChanged.notify_all();
        lock.unlock();
        complete(std::move(batch));
        lock.lock();
    }
}

void Transfer::complete(Batch batch)
{
    mProgress.setBatchStage("flushing");
    try {
        const bool areRenamed = batch.front().isRenamed();
        std::optional<RenameMark> mark;
        if (!areRenamed) {
            mark.emplace(mPath);
            flushFileSystem(mPath);
            mProgress.setBatchStage("comparing");
            forEach(batch, [this](Item &item) { compare(item); });
        }
        forEach(batch, [this](Item &item) { name(item); });
        mProgress.setBatchStage("flushing");
        flushFileSystem(mPath);
        if (mark)
            mark->remove();
        if (mMode == Mode::Move) {
            removeSources(batch);
            flushSources(batch);
        }
        if (mCompletion && !batch.empty())
            callCompletion(batch);
        report(batch);
    } catch (const FileFailure &failure) {
        fail(batch, failure);
    }
    mProgress.setBatchStage(nullptr);
}

/// Calls step(item) for each item of @p batch. Reports those that fail and takes them out.
void Transfer::forEach(Batch &batch, const std::function<void(Item &)> &step)
{
    Batch rest;
    for (Item &item : batch) {
        try {
            step(item);
            rest.push_back(std::move(item));
        } catch (const FileFailure &failure) {
            mProgress.print([&failure] { printError(QString::fromUtf8(failure.what())); });
            mProgress.finishFiles(1);
        }
    }
    batch = std::move(rest);
}

/// Reports every file of @p batch as failed, because none is known to be on the device. Those that were
/// renamed get their old names back.
void Transfer::fail(Batch &batch, const Failure &failure)
{
    forEach(batch, [&failure](Item &item) {
        const bool isElsewhere =
            item.isRenamed() && item.isNamed && !renameToNew(item.target, item.source->path());
        throw FileFailure(item.source->path(), QString::fromUtf8(failure.what())
                                                   + (isElsewhere ? "; it is now " + item.target : ""));
    });
}

void Transfer::compare(Item &item) const
{
    const int copy = item.copy ? item.copy->descriptor() : item.existing.get();
    QCryptographicHash sum(QCryptographicHash::Sha256);
    const bool isSame =
        hasSameContent(item.source->descriptor(), copy, item.source->path(), mCompletion ? &sum : nullptr);
    item.source->requireUnchanged();
    if (!isSame)
        throw FileFailure(item.source->path(), "the copy on the device differs");
    item.sum = sum.result().toHex();
}

void Transfer::chooseName(Item &item)
{
    const std::lock_guard<std::mutex> lock(mMutex);
    item.target = freePath(item.source->name());
    mTaken.insert(item.target);
}

/// Gives a copy, or the source itself, its name in the folder. A copy that was there before has its name, but
/// not the attributes of a source that is to be deleted.
void Transfer::name(Item &item)
{
    if (item.existing.isOpen() && mMode == Mode::Move) {
        struct stat status = item.source->status();
        struct stat existing = {};
        if (::fstat(item.existing.get(), &existing) == 0 && isProtectedMode(existing.st_mode))
            status.st_mode &= ~ANY_WRITE; // it stays protected
        setAttributes(item.existing.get(), status);
    }
    if (item.existing.isOpen() || item.isNamed)
        return;
    const auto rename = [&item] {
        return item.copy ? item.copy->rename(item.target, false)
                         : renameToNew(item.source->path(), item.target);
    };
    while (!rename()) {
        if (errno != EEXIST)
            throw FileFailure(item.source->path(),
                              QString("cannot be named %1: ").arg(item.target) + errorText(errno));
        // Another program has taken the name, or it differs from another one only in case.
        chooseName(item);
    }
    item.isNamed = true;
}

FileFailure Transfer::Item::wasCopied(const QString &problem) const
{
    return {source->path(), QString("was copied to %1 ").arg(target) + problem};
}

/// Deletes the sources of copies; a source that was renamed is already gone.
void Transfer::removeSources(Batch &batch)
{
    forEach(batch, [](Item &item) {
        if (item.isRenamed())
            return;
        item.source->requireUnchanged();
        if (isBeingWritten(item.source->path()))
            throw item.wasCopied("but is being written");
        if (::unlink(QFile::encodeName(item.source->path()).constData()) != 0)
            throw item.wasCopied("but cannot be deleted: " + errorText(errno));
    });
}

/// Flushes the folders that the sources have left. A file that was renamed can still go back, a source that
/// was deleted cannot.
void Transfer::flushSources(Batch &batch)
{
    const bool areRenamed = !batch.empty() && batch.front().isRenamed();
    std::set<QString> folders;
    for (const Item &item : batch)
        folders.insert(item.source->folder());
    for (const QString &folder : folders) {
        try {
            flushFolder(folder);
        } catch (const FileFailure &failure) {
            if (areRenamed)
                throw;
            forEach(batch, [&folder, &failure](const Item &item) {
                if (item.source->folder() == folder)
                    throw item.wasCopied("and deleted; " + QString::fromUtf8(failure.what()));
            });
        }
    }
}

/// Takes out the copies that have failed.
void Transfer::callCompletion(Batch &batch)
{
    std::vector<Copy> copies;
    for (const Item &item : batch)
        copies.push_back({item.source.get(), item.target, item.sum, false});
    mCompletion(copies);
    Batch rest;
    for (size_t i = 0; i < batch.size(); ++i) {
        if (!copies[i].hasFailed)
            rest.push_back(std::move(batch[i]));
    }
    mProgress.finishFiles(static_cast<int>(batch.size() - rest.size()));
    batch = std::move(rest);
}

void Transfer::report(const Batch &batch)
{
    mProgress.print([&batch] {
        for (const Item &item : batch)
            printDone(printable(item.source->path()) + " -> " + printable(item.target));
    });
    mProgress.finishFiles(static_cast<int>(batch.size()));
    mDone += static_cast<int>(batch.size());
}

// SPDX-License-Identifier: MIT
#include "copying.h"

#include "dryrun.h"
#include "durable.h"
#include "errors.h"
#include "folders.h"
#include "media.h"
#include "mounts.h"
#include "objects.h"
#include "output.h"
#include "paths.h"
#include "report.h"
#include "signals.h"
#include "text.h"

#include <QCryptographicHash>
#include <QFile>

#include <algorithm>
#include <cerrno>
#include <numeric>
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
/// time: one is being written, one is waiting, and one is being completed.
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

/// Copies up to @p length bytes at @p offset. The kernel copies them or, if the file systems do not support
/// that, this process does. Returns the number of bytes; -1, with errno set, on failure.
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
            return part;
        written += static_cast<int>(std::max<ssize_t>(0, part));
    }
    return written;
}

/// The path of a file of an object whose first file has the path @p first.
QString besideFirst(const QString &first, const Source &source)
{
    const QString name = source.name();
    return first.left(first.lastIndexOf('.')) + name.mid(name.lastIndexOf('.'));
}

} // namespace

// Source

Source::Source(QString path) : mPath(std::move(path))
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

Transfer::Transfer(QString path, Mode mode, Progress &progress, bool isDryRun, Completion completion)
    : mPath(std::move(path)), mMode(mode), mProgress(progress), mIsDryRun(isDryRun),
      mCompletion(std::move(completion))
{
    if (mIsDryRun) {
        mProgress.print([this] { anticipateFolder(); });
        return;
    }
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

/// Reads what is known about the folder, which may be missing.
void Transfer::anticipateFolder()
{
    requireCreatableFolder(mPath);
    if (QFileInfo(mPath).isDir()) {
        lock();
        reportUnreadable(mPath);
        return;
    }
    const QString existing = nearestExisting(mPath);
    readStatus(existing, mStatus);
    mStatus.st_ino = 0; // no file is in the folder
    mFileSystem = fileSystemOf(existing);
    mMount = mountOf(existing);
}

/// The path that the library tries for a copy of a file called @p name once the first @p counter paths have
/// turned out to be taken.
QString Transfer::candidate(const QString &name, int counter) const
{
    if (counter == 0)
        return QString("%1/%2").arg(mPath).arg(name);
    const QStringList pieces = name.split('.');
    return QString("%1/%2_%3.%4").arg(mPath).arg(pieces.first()).arg(counter).arg(pieces.last());
}

bool Transfer::isGiven(const QString &path) const
{
    const std::lock_guard<std::mutex> lock(mMutex);
    return mTaken.contains(path);
}

/// Of the paths that the library would try for a copy of the first file, the first one that is free and
/// beside which the paths for the other files are free too. Throws FileFailure if every name is taken: the
/// library would overwrite an existing file.
QString Transfer::freePath(const Group &group) const
{
    const auto isTaken = [this](const QString &one) {
        return mTaken.contains(one) || (isEntry(one) && QFile::exists(one));
    };
    const auto isAnyTaken = [&](const QString &first) {
        return isTaken(first) || std::any_of(group.begin() + 1, group.end(), [&](const Item &item) {
                   return isTaken(besideFirst(first, *item.source));
               });
    };
    const QString name = group.front().source->name();
    int counter = 0;
    QString path = candidate(name, counter);
    while (isAnyTaken(path)) {
        if (counter == LAST_COUNTER)
            throw FileFailure(
                path, QString("exists, and so do the other %1 names with a counter").arg(LAST_COUNTER - 1));
        path = candidate(name, ++counter);
    }
    if (isEntry(path))
        throw FileFailure(path, "is a dangling symbolic link");
    return path;
}

/// Opens the file @p path if it is a copy of @p source: another file with the same content or, if files are
/// moved, another name of the same file, to which a killed command had linked it.
Descriptor Transfer::openCopy(const Source &source, const QString &path) const
{
    Descriptor file = openFile(path, O_RDONLY | O_NOFOLLOW | O_NONBLOCK);
    struct stat status = {};
    const bool isLinked = mMode == Mode::Move && !source.isLink() && source.status().st_nlink > 1;
    const bool isCandidate = file.isOpen() && ::fstat(file.get(), &status) == 0 && S_ISREG(status.st_mode)
                             && status.st_size == source.size()
                             && (isLinked || !isSameFile(status, source.status()));
    if (!isCandidate)
        return Descriptor();
    mProgress.setStage("comparing");
    return hasSameContent(source.descriptor(), file.get(), source.path()) ? std::move(file) : Descriptor();
}

/// Returns whether @p path is free for @p item or is already a copy of it, which is then opened. Sets @p
/// isThere if the path exists.
bool Transfer::isThereOrFree(Item &item, const QString &path, bool &isThere) const
{
    isThere = QFile::exists(path);
    if (isGiven(path))
        return false;
    if (isThere)
        item.existing = openCopy(*item.source, path);
    return !isThere || item.existing.isOpen();
}

/// Finds what an earlier run copied: files that have the same content and one of the names that copies would
/// get. Missing files of an object can still join the others. With Conflict::Fail, throws FileFailure if a
/// copy of the first file is there but another file of the object differs from what is there.
void Transfer::findExisting(Group &group, Conflict conflict)
{
    for (int counter = 0; counter <= LAST_COUNTER; ++counter) {
        const QString path = candidate(group.front().source->name(), counter);
        bool isFirstThere = false;
        bool isAnyThere = false;
        const Item *other = nullptr; // differs from what is there
        for (Item &item : group) {
            bool isThere = false;
            const bool isFirst = &item == &group.front();
            if (!isThereOrFree(item, isFirst ? path : besideFirst(path, *item.source), isThere))
                other = other ? other : &item;
            isFirstThere = isFirstThere || (isFirst && isThere);
            isAnyThere = isAnyThere || isThere;
        }
        if (isGiven(path) || (!other && !isAnyThere))
            return;
        if (!other) {
            const std::lock_guard<std::mutex> lock(mMutex);
            setTarget(group, path);
            return;
        }
        for (Item &item : group)
            item.existing = Descriptor();
        if (isFirstThere && other != &group.front() && conflict == Conflict::Fail)
            throw FileFailure(other->source->path(), "cannot be copied: " + besideFirst(path, *other->source)
                                                         + " exists and differs");
    }
}

/// Returns whether renaming the file is as safe as copying it. If the power fails meanwhile, FAT can keep
/// both names, and deleting one then frees the content of the other; exFAT and file systems in user space can
/// lose both.
bool Transfer::canRename(const Item &item) const
{
    const Source &source = *item.source;
    return mMode == Mode::Move && !item.isKept && !item.existing.isOpen() && !source.isLink()
           && mFileSystem == FileSystem::Other && source.status().st_dev == mStatus.st_dev
           && mountOf(source.path()) == mMount;
}

void Transfer::requireRoom(const Source &source) const
{
    const QString place = mIsDryRun ? nearestExisting(mPath) : mPath;
    if (source.size() > largestFile(place))
        throw FileFailure(source.path(), "is too large for the FAT file system of " + mPath);
    const qint64 free = freeBytes(place) - mPlannedBytes;
    if (free < source.room())
        throw FileFailure(source.path(), QString("not enough space in %1: %2 needed, %3 free")
                                             .arg(mPath, humanSize(source.room()), humanSize(free)));
}

void Transfer::requireCopyable(const Source &source) const
{
    if (mMode == Mode::Move && isBeingWritten(source.path()))
        throw FileFailure(source.path(), "is being written");
    requireRoom(source);
}

// Writing

void Transfer::add(Sources sources, Conflict conflict, bool isShared)
{
    Group group;
    for (auto &source : sources)
        group.emplace_back().source = std::move(source);
    group.back().isKept = isShared;
    const Source &first = *group.front().source;
    struct stat folder = {};
    if (readStatus(first.folder(), folder) && isSameFile(folder, mStatus))
        throw FileFailure(first.path(), "is already in that folder");
    if (!mBatch.empty() && first.size() >= BATCH_BYTES)
        endBatch(); // otherwise, the files in it would be reported only after this one
    findExisting(group, conflict);
    const bool isRenamed =
        std::all_of(group.begin(), group.end(), [this](const Item &item) { return canRename(item); });
    if (mIsDryRun) {
        plan(std::move(group), isRenamed);
        return;
    }
    for (Item &item : group) {
        if (item.existing.isOpen())
            continue;
        mProgress.setStage(isRenamed ? "moving" : "copying");
        if (!isRenamed)
            write(item, !isFollower(group, item)); // writing a thumbnail takes little time
    }
    if (group.front().target.isEmpty())
        chooseName(group);
    if (isRenamed) // not in the second thread, which would compete for the locks of the folders
        rename(group);
    if (!mBatch.empty() && areRenamed(mBatch) != isRenamed)
        endBatch();
    if (mBatch.empty())
        mBatchStart = std::chrono::steady_clock::now();
    for (const Item &item : group)
        mBatchBytes += item.source->size();
    mBatchFiles += group.size();
    mBatch.push_back(std::move(group));
    static const size_t LIMIT = batchFiles();
    if (mBatchFiles >= LIMIT || mBatchBytes >= BATCH_BYTES || isBatchOld())
        endBatch();
}

/// Reports what add() would do with the files.
void Transfer::plan(Group group, bool isRenamed)
{
    if (group.front().target.isEmpty())
        chooseName(group);
    for (auto item = group.rbegin(); item != group.rend(); ++item) { // as rename() does
        const QString path = item->source->path();
        const QString reason = mMode == Mode::Move && !item->isKept ? whyNotDeletable(path) : QString();
        if (!reason.isEmpty() && isRenamed)
            throw FileFailure(path, QString("cannot be named %1: ").arg(item->target) + reason);
        if (!item->existing.isOpen() && !isRenamed) {
            requireCopyable(*item->source);
            requireTemporaryFile(nearestExisting(mPath), path);
        }
        if (!reason.isEmpty())
            throw FileFailure(path, "cannot be deleted: " + reason);
    }
    for (const Item &item : group)
        mPlannedBytes += item.existing.isOpen() || isRenamed ? 0 : item.source->room();
    Batch batch;
    batch.push_back(std::move(group));
    report(batch);
}

/// Writes a copy under a hidden name. Holes stay holes.
void Transfer::write(Item &item, bool mayStop)
{
    constexpr size_t PART = 8 << 20;
    const Source &source = *item.source;
    requireCopyable(source);
    item.copy.emplace(mPath, source.path());
    const int target = item.copy->descriptor();
    const auto require = [&source](bool isDone) {
        if (!isDone)
            throw FileFailure(source.path(), "cannot be copied: " + errorText(errno));
    };
    require(::ftruncate(target, source.size()) == 0);
    for (off_t offset = 0; offset < source.size();) {
        if (mayStop && isStopped())
            throw FileFailure(source.path(), "interrupted");
        const off_t start = ::lseek(source.descriptor(), offset, SEEK_DATA);
        if (start < 0 && errno == ENXIO)
            break; // the rest is a hole
        const off_t end = ::lseek(source.descriptor(), std::max(start, offset), SEEK_HOLE);
        offset = start < 0 ? offset : start; // if the file system cannot report holes, all of it is copied
        const auto length = static_cast<size_t>((end < 0 ? source.size() : end) - offset);
        const ssize_t count = copyPart(source.descriptor(), target, offset, std::min(length, PART));
        require(count >= 0);
        if (count == 0)
            break; // the file has shrunk, which requireUnchanged() reports
        ::sync_file_range(target, offset, count, SYNC_FILE_RANGE_WRITE); // starts writing without waiting
        offset += count;
        mProgress.addBytes(count);
        if (isBatchOld())
            endBatch(); // with the files before this one
    }
    setAttributes(target, source.status()); // FAT keeps neither owner nor exact times
    source.requireUnchanged();
}

/// Returns whether the results of the batch are due.
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
    mBatchFiles = 0;
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
        std::optional<RenameMark> mark;
        if (!areRenamed(batch)) {
            mark.emplace(mPath);
            flushFileSystem(mPath);
            mProgress.setBatchStage("comparing");
            forEach(batch, [this](Group &group) {
                for (Item &item : group)
                    compare(item);
            });
            nameAll(batch);
        }
        mProgress.setBatchStage("flushing");
        flushFileSystem(mPath);
        if (mark)
            mark->remove();
        if (mMode == Mode::Move) {
            removeSources(batch);
            flushSources(batch, false);
        }
        if (mCompletion && !batch.empty())
            callCompletion(batch);
        report(batch);
    } catch (const FileFailure &failure) {
        fail(batch, failure);
    }
    mProgress.setBatchStage(nullptr);
}

/// Calls step(group) for each group of @p batch. Reports the groups that fail, and removes them from @p
/// batch.
void Transfer::forEach(Batch &batch, const std::function<void(Group &)> &step)
{
    Batch rest;
    for (Group &group : batch) {
        try {
            step(group);
            rest.push_back(std::move(group));
        } catch (const FileFailure &failure) {
            mProgress.print([&failure] { printFailure(failure); });
            mProgress.finishFiles(static_cast<int>(group.size()));
        }
    }
    batch = std::move(rest);
}

/// Reports every file of @p batch as failed. Those that were renamed get their old names back.
void Transfer::fail(const Batch &batch, const Failure &failure)
{
    for (const Group &group : batch) {
        for (const Item &item : group) {
            const QString place = item.putBack() ? QString() : "; the file is now " + item.target;
            const FileFailure one(item.source->path(), QString::fromUtf8(failure.what()) + place);
            mProgress.print([&one] { printFailure(one); });
        }
    }
    mProgress.finishFiles(filesIn(batch));
}

bool Transfer::areRenamed(const Batch &batch)
{
    return !batch.empty() && batch.front().front().isRenamed();
}

int Transfer::filesIn(const Batch &batch)
{
    return std::accumulate(batch.begin(), batch.end(), 0, [](int count, const Group &group) {
        return count + static_cast<int>(group.size());
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

void Transfer::chooseName(Group &group)
{
    const std::lock_guard<std::mutex> lock(mMutex);
    setTarget(group, freePath(group));
}

/// Reserves @p path for the first file of @p group, and the paths beside it for the others. Call this with
/// the mutex locked.
void Transfer::setTarget(Group &group, const QString &path)
{
    for (Item &item : group) {
        item.target = &item == &group.front() ? path : besideFirst(path, *item.source);
        if (!item.existing.isOpen())
            mTaken.insert(item.target);
    }
}

/// Returns whether @p item is the thumbnail of a recording in @p group.
bool Transfer::isFollower(const Group &group, const Item &item)
{
    return &item != &group.front() && kindOf(item.source->name().toLower()) == THUMBNAIL;
}

bool Transfer::hasFollower(const Group &group)
{
    return isFollower(group, group.back());
}

/// Gives the copies their names: all recordings before any thumbnail, so that no thumbnail is ever alone.
void Transfer::nameAll(Batch &batch)
{
    const auto nameSome = [this](Group &group, bool areFollowers) {
        for (Item &item : group) {
            if (isFollower(group, item) == areFollowers)
                name(group, item);
        }
    };
    forEach(batch, [&](Group &group) { nameSome(group, false); });
    if (std::none_of(batch.begin(), batch.end(), hasFollower))
        return;
    // flushFolder() is not enough: vfat would flush the entries of the folder without the location of the
    // content.
    flushFileSystem(mPath);
    forEach(batch, [&](Group &group) { nameSome(group, true); });
}

/// Renames the sources in @p group. A recording has both names until its thumbnail has the new one, so that
/// the thumbnail is never alone.
void Transfer::rename(Group &group)
{
    Item &recording = group.front();
    const QByteArray from = QFile::encodeName(recording.source->path());
    const bool isLinked =
        hasFollower(group) && ::link(from.constData(), QFile::encodeName(recording.target).constData()) == 0;
    recording.isNamed = isLinked; // so that the thumbnail cannot get another counter
    try {
        for (auto item = group.rbegin(); item != group.rend(); ++item) {
            if (!isLinked || &*item != &recording)
                name(group, *item);
        }
    } catch (const FileFailure &failure) {
        if (isLinked)
            ::unlink(QFile::encodeName(recording.target).constData());
        const Item &thumbnail = group.back();
        if (!thumbnail.putBack())
            throw FileFailure(thumbnail.source->path(),
                              QString::fromUtf8(failure.what()) + "; the file is now " + thumbnail.target);
        throw;
    }
    if (isLinked)
        recording.isNamed = ::unlink(from.constData()) == 0;
    if (isLinked && !recording.isNamed)
        throw FileFailure(
            recording.source->path(),
            QString("now also has the name %1, but its old name cannot be deleted: ").arg(recording.target)
                + errorText(errno));
}

/// Gives a copy, or the source itself, its name in the folder. A copy that was there before already has its
/// name, but not yet the attributes of a source that is to be deleted.
void Transfer::name(Group &group, Item &item)
{
    if (item.existing.isOpen() && mMode == Mode::Move && !item.isKept) {
        struct stat status = item.source->status();
        struct stat existing = {};
        const bool isRead = ::fstat(item.existing.get(), &existing) == 0;
        if (isRead && isProtectedMode(existing.st_mode))
            status.st_mode &= ~ANY_WRITE; // it stays protected
        if (!isRead || !isSameFile(existing, status))
            setAttributes(item.existing.get(), status);
    }
    if (item.existing.isOpen())
        return;
    const auto rename = [&item] {
        return item.copy ? item.copy->rename(item.target, false)
                         : renameToNew(item.source->path(), item.target);
    };
    const auto hasName = [](const Item &one) { return one.isNamed || one.existing.isOpen(); };
    while (!rename()) {
        // Files of the group that already have their names would need new ones too.
        const bool canChange = std::none_of(group.begin(), group.end(), hasName);
        if (errno != EEXIST || !canChange)
            throw FileFailure(item.source->path(),
                              QString("cannot be named %1: ").arg(item.target) + errorText(errno));
        // Another program has taken the name, or it differs from another one only in case.
        chooseName(group);
    }
    item.isNamed = true;
}

/// Gives a source that was renamed its old path back. Returns false on failure.
bool Transfer::Item::putBack() const
{
    return !isRenamed() || !isNamed || renameToNew(target, source->path());
}

FileFailure Transfer::Item::wasCopied(const QString &problem) const
{
    return {source->path(), QString("was copied to %1 ").arg(target) + problem};
}

/// Throws FileFailure if the source cannot be deleted now.
void Transfer::Item::requireRemovable() const
{
    source->requireUnchanged();
    if (isBeingWritten(source->path()))
        throw wasCopied("but is being written");
}

void Transfer::Item::removeSource() const
{
    requireRemovable();
    if (::unlink(QFile::encodeName(source->path()).constData()) != 0)
        throw wasCopied("but cannot be deleted: " + errorText(errno));
}

/// Deletes the sources of copies, all thumbnails before any recording, so that no thumbnail is ever alone. A
/// source that was renamed is already gone.
void Transfer::removeSources(Batch &batch)
{
    if (areRenamed(batch))
        return;
    if (std::any_of(batch.begin(), batch.end(), hasMovedThumbnail)) {
        forEach(batch, [](Group &group) {
            if (!hasMovedThumbnail(group))
                return;
            group.front().requireRemovable();
            group.back().removeSource();
        });
        flushSources(batch, true);
    }
    forEach(batch, [](Group &group) { group.front().removeSource(); });
}

bool Transfer::hasMovedThumbnail(const Group &group)
{
    return hasFollower(group) && !group.back().isKept;
}

/// Flushes the folders that the sources have left; if @p areThumbnails, only those that thumbnails have left.
/// If that fails, a file that was renamed can still go back; a source that was deleted cannot.
void Transfer::flushSources(Batch &batch, bool areThumbnails)
{
    const auto hasLeft = [areThumbnails](const Group &group) {
        return !areThumbnails || hasMovedThumbnail(group);
    };
    std::set<QString> folders;
    for (const Group &group : batch) {
        if (hasLeft(group))
            folders.insert(group.front().source->folder());
    }
    for (const QString &folder : folders) {
        try {
            flushFolder(folder);
        } catch (const FileFailure &failure) {
            if (areRenamed(batch))
                throw;
            forEach(batch, [&](const Group &group) {
                const Item &item = areThumbnails ? group.back() : group.front();
                if (hasLeft(group) && item.source->folder() == folder)
                    throw item.wasCopied("and deleted; " + QString::fromUtf8(failure.what()));
            });
        }
    }
}

/// Calls the completion, and removes from @p batch the groups in which a copy has failed.
void Transfer::callCompletion(Batch &batch)
{
    std::vector<Copy> copies;
    for (const Group &group : batch) {
        for (const Item &item : group)
            copies.push_back({item.source.get(), item.target, item.sum, false});
    }
    mCompletion(copies);
    const int count = static_cast<int>(copies.size());
    Batch rest;
    auto copy = copies.cbegin();
    for (Group &group : batch) {
        const auto end = copy + static_cast<std::ptrdiff_t>(group.size());
        if (std::none_of(copy, end, [](const Copy &one) { return one.hasFailed; }))
            rest.push_back(std::move(group));
        copy = end;
    }
    batch = std::move(rest);
    mProgress.finishFiles(count - filesIn(batch));
}

void Transfer::report(const Group &group) const
{
    QStringList targets;
    for (const Item &item : group)
        targets.append(item.target);
    const std::vector<FileFacts> files = factsOfObject(targets);
    auto facts = files.begin();
    for (const Item &item : group) {
        const bool isMoved = mMode == Mode::Move && !item.isKept;
        const auto object = [&] {
            return toJson(*facts,
                          {{"action", isMoved ? "moved" : "copied"}, {"source", item.source->path()}});
        };
        reportDone(printable(item.source->path()) + " -> " + printable(item.target), object);
        ++facts;
    }
}

void Transfer::report(const Batch &batch)
{
    mProgress.print([this, &batch] {
        for (const Group &group : batch)
            report(group);
    });
    mProgress.finishFiles(filesIn(batch));
    mDone += filesIn(batch);
}

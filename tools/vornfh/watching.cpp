// SPDX-License-Identifier: MIT
#include "watching.h"

#include "device.h"
#include "errors.h"
#include "estimates.h"
#include "folders.h"
#include "mounts.h"
#include "numbering.h"
#include "output.h"
#include "paths.h"
#include "recorder.h"

#include <QFile>
#include <QStorageInfo>
#include <QVector>

#include <algorithm>
#include <array>
#include <cerrno>
#include <utility>

#include <sys/inotify.h>
#include <unistd.h>

namespace {

constexpr std::uint32_t FOLDER_EVENTS =
    IN_CREATE | IN_CLOSE_WRITE | IN_MOVED_TO | IN_ATTRIB | IN_DELETE | IN_MOVED_FROM;
constexpr std::uint32_t LOCATION_EVENTS =
    IN_CREATE | IN_MOVED_TO | IN_DELETE | IN_MOVED_FROM | IN_DELETE_SELF | IN_MOVE_SELF;

/// inotify_init1(2) and inotify_add_watch(2) report system limits with these two numbers.
QString watchFailure(int error)
{
    switch (error) {
    case EMFILE: return "the limit fs.inotify.max_user_instances has been reached";
    case ENOSPC: return "the limit fs.inotify.max_user_watches has been reached";
    default: return errorText(error);
    }
}

std::pair<dev_t, ino_t> identityOf(const QString &folder)
{
    struct stat status = {};
    const bool isFolder = readStatus(folder, status) && S_ISDIR(status.st_mode);
    return isFolder ? std::pair(status.st_dev, status.st_ino) : std::pair<dev_t, ino_t>();
}

bool hasSameContent(const ObjectFile &one, const ObjectFile &other)
{
    return one.size == other.size && one.modifiedMsecs == other.modifiedMsecs;
}

/// The position of the object with the base name @p base, or where it would be inserted.
template <typename Objects>
auto placeOf(Objects &objects, const QByteArray &base)
{
    return std::lower_bound(objects.begin(), objects.end(), base,
                            [](const Object &object, const QByteArray &name) { return object.base < name; });
}

template <typename Files>
auto fileNamed(Files &files, const QByteArray &name)
{
    return std::find_if(files.begin(), files.end(),
                        [&name](const ObjectFile &file) { return file.name == name; });
}

/// The known state of the file @p name; null if it is unknown.
ObjectFile *knownFile(NumberedFolder &folder, const QByteArray &name)
{
    const QByteArray base = basePath(name);
    const auto object = placeOf(folder.objects, base);
    if (object == folder.objects.end() || object->base != base)
        return nullptr;
    const auto file = fileNamed(object->files, name);
    return file == object->files.end() ? nullptr : &*file;
}

void insert(NumberedFolder &folder, const ObjectFile &file)
{
    const QByteArray base = basePath(file.name);
    auto object = placeOf(folder.objects, base);
    if (object == folder.objects.end() || object->base != base)
        object = folder.objects.insert(object, Object{base, {}});
    object->files.push_back(file);
    sortFiles(*object);
}

void remove(NumberedFolder &folder, const QByteArray &name)
{
    const auto object = placeOf(folder.objects, basePath(name));
    object->files.erase(fileNamed(object->files, name));
    if (object->files.empty())
        folder.objects.erase(object);
}

QByteArrayList namesIn(const NumberedFolder &folder)
{
    QByteArrayList names;
    for (const Object &object : folder.objects) {
        for (const ObjectFile &file : object.files)
            names.append(file.name);
    }
    return names;
}

/// Returns whether the last object on the storage device has the last number of its folder. Only then can the
/// numbers be used up.
bool isLastNumberUsed(const std::vector<NumberedFolder> &folders)
{
    return !folders.empty() && !folders.back().objects.empty()
           && objectNumber(folders.back().objects.back().base) == LAST_FILE;
}

} // namespace

StorageWatch::Mount StorageWatch::Mount::of(const QString &location)
{
    const QString existing = nearestExisting(location);
    struct stat status = {};
    readStatus(existing, status);
    return {mountOf(existing), status.st_dev, QStorageInfo(existing).rootPath().size()};
}

StorageWatch::StorageWatch(Storage storage, Report report)
    : mStorage(std::move(storage)), mReport(std::move(report))
{
}

void StorageWatch::start()
{
    beginOn(currentMount());
    report("watching");
    compareState();
}

void StorageWatch::update()
{
    try {
        readEvents();
        const Mount mount = currentMount();
        if (mIsUnmounted || !(mount == mMount))
            changeTo(mount);
        if (mIsStale || identityOf(mStorage.location) != mLocation)
            compareFolders();
        finishReleased();
        compareState();
        mFailure.clear();
    } catch (const Failure &failure) { // such as a card that is being pulled out; the next call tries again
        const QString message = QString::fromUtf8(failure.what());
        if (std::exchange(mFailure, message) != message)
            printError(message);
    }
}

/// A mount that differs from the known one is read again until two successive results agree: while a folder
/// above the location is deleted and created again, one result can mix the two states.
StorageWatch::Mount StorageWatch::currentMount() const
{
    Mount mount = Mount::of(mStorage.location);
    while (!(mount == mMount)) {
        const Mount before = std::exchange(mount, Mount::of(mStorage.location));
        if (mount == before)
            break;
    }
    return mount;
}

/// Reads one part of the queue, so that a stop signal is noticed however many events there are.
void StorageWatch::readEvents()
{
    constexpr size_t SIZE = 1 << 16;
    alignas(inotify_event) std::array<char, SIZE> buffer;
    const ssize_t length = ::read(mEvents.get(), buffer.data(), buffer.size());
    for (ssize_t i = 0; i < length;) {
        const auto *const event = reinterpret_cast<const inotify_event *>(&buffer.at(static_cast<size_t>(i)));
        handle(event->wd, event->mask, event->len > 0 ? event->name : "");
        i += static_cast<ssize_t>(sizeof(inotify_event) + event->len);
    }
}

void StorageWatch::handle(int watch, std::uint32_t mask, const char *name)
{
    const bool isFolder = (mask & IN_ISDIR) != 0;
    mIsUnmounted |= (mask & IN_UNMOUNT) != 0;
    mIsStale |= (mask & (IN_UNMOUNT | IN_Q_OVERFLOW)) != 0;
    if (watch == mLocationWatch)
        mIsStale |= (mask & (IN_DELETE_SELF | IN_MOVE_SELF)) != 0
                    || (isFolder && isNumberedName(QFile::decodeName(name)));
    const auto index = mFolderWatches.constFind(watch);
    if (mIsStale || isFolder || *name == '\0' || index == mFolderWatches.constEnd())
        return;
    NumberedFolder &folder = mFolders[*index];
    if ((mask & (IN_DELETE | IN_MOVED_FROM)) != 0)
        forget(folder, name);
    else
        examine(folder, name, (mask & IN_CLOSE_WRITE) != 0 ? Cause::Closed : Cause::Event);
}

/// Begins with the files on @p mount as they are now, without reporting them.
void StorageWatch::beginOn(const Mount &mount)
{
    mMount = mount;
    mIsUnmounted = false;
    mBlock = blockDeviceOf(nearestExisting(mStorage.location));
    mState = State();
    mFolders.clear();
    mUnfinished.clear();
    mAreNewObjects = true;
    watchFolders();
    for (NumberedFolder &folder : mFolders) {
        folder = readNumberedFolder(folder.path);
        for (const Object &object : folder.objects) {
            for (const ObjectFile &file : object.files) {
                if (file.size == 0)
                    mUnfinished.insert(folder.pathOf(file), false);
            }
        }
    }
    if (mFolders.empty() || mFolders.back().objects.empty())
        return;
    // The newest object may be a recording that is in progress.
    for (const ObjectFile &file : mFolders.back().objects.back().files) {
        const QString path = mFolders.back().pathOf(file);
        if (isBeingWritten(path))
            mUnfinished.insert(path, true);
    }
}

void StorageWatch::changeTo(const Mount &mount)
{
    // If the mount point is further down the path now, the known file system is still mounted above it.
    const bool isUnmounted = mIsUnmounted || mount.depth <= mMount.depth;
    const bool isMounted = mount.depth >= mMount.depth;
    // The change is reported only after beginOn(), so that a reader who then lists the files misses no later
    // event.
    const auto reportChange = [&] {
        if (isUnmounted)
            report("unmounted");
        if (isMounted)
            report("mounted");
    };
    try {
        beginOn(mount);
    } catch (const Failure &) {
        reportChange();
        throw;
    }
    reportChange();
}

/// Returns -1 if there is no such folder.
int StorageWatch::addWatch(const QString &path, std::uint32_t mask) const
{
    const int watch =
        ::inotify_add_watch(mEvents.get(), QFile::encodeName(path).constData(), mask | IN_ONLYDIR);
    if (watch < 0 && errno != ENOENT && errno != ENOTDIR)
        throw FileFailure(path, "cannot be watched: " + watchFailure(errno));
    return watch;
}

/// Watches the location and its numbered folders from now on; mFolders then contains these folders with the
/// known files. Throws Failure if one of them cannot be watched; mFolders is then unchanged.
void StorageWatch::watchFolders()
{
    mIsStale = true;
    mFolderWatches.clear();
    mLocation = {};
    mEvents = Descriptor(::inotify_init1(IN_NONBLOCK | IN_CLOEXEC));
    if (!mEvents.isOpen())
        throw FileFailure(mStorage.location, "cannot be watched: " + watchFailure(errno));
    const auto location = identityOf(mStorage.location);
    mLocationWatch = addWatch(mStorage.location, LOCATION_EVENTS);
    if (mLocationWatch >= 0) // otherwise it is gone, and a new one may get its inode number
        mLocation = location;
    const QStringList paths = objectFolders(mStorage);
    requireReadToEnd(mStorage.location);

    QVector<int> watches;
    for (const QString &path : paths)
        watches.append(addWatch(path, FOLDER_EVENTS));

    std::vector<NumberedFolder> folders;
    for (int i = 0; i < paths.size(); ++i) {
        if (watches[i] < 0)
            continue;
        mFolderWatches.insert(watches[i], folders.size());
        const auto known =
            std::find_if(mFolders.begin(), mFolders.end(),
                         [&paths, i](const NumberedFolder &folder) { return folder.path == paths[i]; });
        folders.push_back(known == mFolders.end() ? NumberedFolder{paths[i], {}}
                                                  : std::exchange(*known, NumberedFolder()));
    }
    mFolders.swap(folders);
    for (NumberedFolder &gone : folders) {
        for (const QByteArray &name : namesIn(gone))
            forget(gone, name);
    }
    mIsStale = false;
}

void StorageWatch::compareFolders()
{
    watchFolders();
    for (NumberedFolder &folder : mFolders) {
        try {
            compareFolder(folder);
        } catch (const Failure &failure) {
            printError(QString::fromUtf8(failure.what()));
        }
    }
}

void StorageWatch::compareFolder(NumberedFolder &folder)
{
    const NumberedFolder now = readNumberedFolder(folder.path);
    for (const QByteArray &name : namesIn(folder)) {
        const auto object = placeOf(now.objects, basePath(name));
        const bool isThere = object != now.objects.end() && object->base == basePath(name)
                             && fileNamed(object->files, name) != object->files.end();
        if (!isThere)
            forget(folder, name);
    }
    for (const Object &object : now.objects) {
        for (const ObjectFile &file : object.files)
            examine(folder, file, Cause::Closed); // it may have been closed meanwhile
    }
}

void StorageWatch::examine(NumberedFolder &folder, const QByteArray &name, Cause cause)
{
    const auto file = readObjectFile(folder.path, name);
    if (file)
        examine(folder, *file, cause);
    else
        forget(folder, name);
}

void StorageWatch::examine(NumberedFolder &folder, const ObjectFile &file, Cause cause)
{
    if (file.error != 0)
        return;
    const QString path = folder.pathOf(file);
    ObjectFile *const known = knownFile(folder, file.name);
    const bool hasOtherContent = !known || !hasSameContent(*known, file);
    const bool isDifferent = hasOtherContent || known->mode != file.mode;
    mAreNewObjects |= isDifferent;
    if (known) {
        *known = file;
    } else {
        insert(folder, file);
        mUnfinished.insert(path, false);
        report("added", folder, file);
    }
    if (mUnfinished.contains(path) || (hasOtherContent && cause == Cause::Closed))
        finish(folder, file, cause);
    else if (isDifferent)
        report("changed", folder, file);
}

void StorageWatch::finish(const NumberedFolder &folder, const ObjectFile &file, Cause cause)
{
    const QString path = folder.pathOf(file);
    const bool isOpen = isBeingWritten(path);
    if (file.size > 0 && !isOpen) {
        mUnfinished.remove(path);
        report("finished", folder, file);
    } else {
        mUnfinished[path] |= isOpen && cause == Cause::Closed;
    }
}

/// Finishes files that another process still had open or locked, if only for a moment, when their writer
/// closed them.
void StorageWatch::finishReleased()
{
    for (const QString &path : mUnfinished.keys(true)) {
        const int slash = path.lastIndexOf('/');
        const auto folder =
            std::find_if(mFolders.begin(), mFolders.end(), [&path, slash](const NumberedFolder &candidate) {
                return candidate.path == path.left(slash);
            });
        if (folder != mFolders.end())
            examine(*folder, QFile::encodeName(path.mid(slash + 1)), Cause::Closed);
    }
}

void StorageWatch::forget(NumberedFolder &folder, const QByteArray &name)
{
    const ObjectFile *const known = knownFile(folder, name);
    if (!known)
        return;
    const ObjectFile file = *known;
    mUnfinished.remove(folder.pathOf(file));
    mAreNewObjects = true;
    report("removed", folder, file);
    remove(folder, name);
}

void StorageWatch::compareState()
{
    const QString existing = nearestExisting(mStorage.location);
    const bool isAbsent = !mBlock.isEmpty() && blockDeviceOf(existing) != mBlock;
    const bool isKnown = !isAbsent && !isMountMissing(mStorage);
    const bool isReadOnly = isKnown && isOnReadOnlyFileSystem(existing);
    const bool isNowFull = isKnown && isFull();
    readEvents();
    if (mIsUnmounted || !(currentMount() == mMount))
        return; // this may be the state of another mount
    reportIf(isAbsent, mState.isAbsent, "absent", "present");
    if (!isKnown)
        return;
    reportIf(isReadOnly, mState.isReadOnly, "read-only", "writable");
    reportIf(isNowFull, mState.isFull, "full", "not-full");
}

bool StorageWatch::isFull()
{
    if (std::exchange(mAreNewObjects, false)) {
        mLargest = summaryOf(mFolders).largest;
        mNumbersLeft = isLastNumberUsed(mFolders) ? numberingOf(mStorage).left() : LAST_FILE;
    }
    const QString existing = nearestExisting(mStorage.location);
    const qint64 free = freeBytes(existing);
    return !whyFull(free, sizeLimit(existing, VIDEO).bytes > 0, mLargest, mNumbersLeft).isEmpty();
}

void StorageWatch::report(const QString &event, const NumberedFolder &folder, const ObjectFile &file) const
{
    const auto object = placeOf(folder.objects, basePath(file.name));
    const ObjectFile &last = object->files.back();
    mReport({event, mStorage, folder.pathOf(file), file, last.isThumbnail() ? folder.pathOf(last) : QString(),
             object->isProtected()});
}

void StorageWatch::report(const QString &event) const
{
    mReport({event, mStorage, QString(), ObjectFile(), QString()});
}

void StorageWatch::reportIf(bool isNow, bool &state, const char *set, const char *cleared) const
{
    if (std::exchange(state, isNow) != isNow)
        report(isNow ? set : cleared);
}

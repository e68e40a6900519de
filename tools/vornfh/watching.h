// SPDX-License-Identifier: MIT
#ifndef WATCHING_H
#define WATCHING_H

#include "files.h"
#include "objects.h"
#include "storages.h"

#include <QHash>
#include <QString>

#include <cstdint>
#include <functional>
#include <utility>
#include <vector>

/// An event that concerns a storage device, or a file of an object.
struct WatchEvent {
    QString name; // "finished"
    Storage storage;
    QString path;      // of the file; empty for an event of the storage device
    ObjectFile file;   // its last known state
    QString thumbnail; // path of the thumbnail of its object; empty if there is none
    bool isProtected = false;
};

/// Reports the events of one storage device. Files are those of the objects in its numbered folders. The
/// state of each is kept, so that a comparison with the storage device makes up for events that the kernel
/// has dropped.
///
/// Events of a file:
///   added     its name has appeared
///   finished  it has content, and nobody has it open for writing; added precedes this for a new file
///   changed   a finished file has been replaced, or its attributes have changed
///   removed   its name has disappeared
/// Events of the storage device:
///   watching              all later events are reported
///   mounted, unmounted    the file system of the location; its files are not reported one by one
///   read-only, writable   see isOnReadOnlyFileSystem(); writable at first
///   full, not-full        see whyFull(); not full at first
///   absent, present       the block device of the location; present at first
class StorageWatch
{
public:
    using Report = std::function<void(const WatchEvent &event)>;

    StorageWatch(Storage storage, Report report);

    /// Throws Failure if the location exists but cannot be watched.
    void start();

    /// Readable when there are events.
    int descriptor() const { return mEvents.get(); }

    /// Reports the events since the last call. Call this when descriptor() is readable, when something has
    /// been mounted or unmounted, and every second: inotify(7) reports neither a change of the free space nor
    /// the creation of a location.
    void update();

private:
    /// The mount that the location is on.
    struct Mount {
        quint64 number = 0;
        dev_t device = 0;
        int depth = 0; // length of its mount point

        static Mount of(const QString &location);
        bool operator==(const Mount &other) const
        {
            return number == other.number && device == other.device && depth == other.depth;
        }
    };

    struct State {
        bool isAbsent = false;
        bool isReadOnly = false;
        bool isFull = false;
    };

    /// Why a file is compared with its known state.
    enum class Cause { Event, Closed };

    Mount currentMount() const;
    void readEvents();
    void handle(int watch, std::uint32_t mask, const char *name);
    void beginOn(const Mount &mount);
    void changeTo(const Mount &mount);
    int addWatch(const QString &path, std::uint32_t mask) const;
    void watchFolders();
    void compareFolders();
    void compareFolder(NumberedFolder &folder);
    void examine(NumberedFolder &folder, const QByteArray &name, Cause cause);
    void examine(NumberedFolder &folder, const ObjectFile &file, Cause cause);
    void finish(const NumberedFolder &folder, const ObjectFile &file, Cause cause);
    void finishReleased();
    void forget(NumberedFolder &folder, const QByteArray &name);
    void compareState();
    bool isFull();
    void report(const QString &event, const NumberedFolder &folder, const ObjectFile &file) const;
    void report(const QString &event) const;
    void reportIf(bool isNow, bool &state, const char *set, const char *cleared) const;

    const Storage mStorage;
    const Report mReport;

    Descriptor mEvents;
    bool mIsStale = true;      // events are missing, or the folders to be watched have changed
    QString mFailure;          // of the last update(); empty if it succeeded
    bool mIsUnmounted = false; // the kernel has reported that the watched file system is gone
    int mLocationWatch = -1;
    std::pair<dev_t, ino_t> mLocation = {}; // what is watched; zeros if there is no location
    QHash<int, size_t> mFolderWatches;      // indices in mFolders
    std::vector<NumberedFolder> mFolders;
    QHash<QString, bool> mUnfinished; // paths; true if the file is still open and is checked regularly

    Mount mMount;
    QString mBlock; // the block device of the mount; empty if it is unknown
    State mState;
    bool mAreNewObjects = true; // since mLargest and mNumbersLeft were determined
    qint64 mLargest = 0;
    qint64 mNumbersLeft = 0;
};

#endif // WATCHING_H

// SPDX-License-Identifier: MIT
#ifndef COPYING_H
#define COPYING_H

#include "errors.h"
#include "files.h"
#include "mounts.h"
#include "progress.h"
#include "temporary.h"

#include <QByteArray>
#include <QFileInfo>
#include <QSet>
#include <QString>

#include <chrono>
#include <condition_variable>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <thread>
#include <vector>

enum class Mode { Copy, Move };

/// A file to be copied; kept open from the first check to the last.
class Source
{
public:
    /// Throws FileFailure for anything but a regular file or a link to one.
    explicit Source(QString path);

    const QString &path() const { return mPath; }
    QString name() const { return mPath.mid(mPath.lastIndexOf('/') + 1); }
    QString folder() const { return QFileInfo(mPath).path(); }
    qint64 size() const { return mFile.st_size; }
    int descriptor() const { return mDescriptor.get(); }
    const struct stat &status() const { return mFile; }
    bool isLink() const { return S_ISLNK(mEntry.st_mode); }

    /// The minimum number of bytes that a copy needs: a file with holes needs less than its size.
    qint64 room() const;

    /// Throws FileFailure if the file, or the link to it, has changed since it was opened.
    void requireUnchanged() const;

private:
    QString mPath;
    struct stat mEntry = {}; // of the link, if it is one
    struct stat mFile = {};
    Descriptor mDescriptor;
};

/// A copy that is on the device under its name.
struct Copy {
    const Source *source;
    QString target;
    QByteArray sum; // SHA-256 of what was read back from the device, hexadecimal
    bool hasFailed; // set by the completion if the copy must not be reported
};

/// Copies or moves files into a folder, which is locked against other vornfh processes. The files are written
/// under hidden names in batches. A second thread flushes a batch, reads it back from the device and compares
/// it with the sources, gives the copies their names, flushes again, deletes the sources if they are being
/// moved, and then reports the files, while the next batch is written.
///
/// The files of an object fail together. A power failure or a killed command leaves no thumbnail without its
/// recording in either folder.
class Transfer
{
public:
    /// Called by the second thread with the copies of a batch before they are reported. If it throws
    /// FileFailure, all of them have failed.
    using Completion = std::function<void(std::vector<Copy> &copies)>;

    /// Creates the folder @p path if it is missing. Throws Failure. If @p isDryRun, changes nothing; each
    /// file is reported when it is added.
    Transfer(QString path, Mode mode, Progress &progress, bool isDryRun, Completion completion = {});
    ~Transfer();
    Transfer(const Transfer &) = delete;
    Transfer &operator=(const Transfer &) = delete;

    using Sources = std::vector<std::unique_ptr<Source>>;

    /// What to do if the first file of an object was copied by an earlier run, but the name of another of its
    /// files is taken by a different file.
    enum class Conflict {
        Fail,    ///< the object fails
        Counter, ///< the whole object gets a counter
    };

    /// Writes copies of @p sources, unless an earlier run has copied them or the files can be renamed. The
    /// sources are one file, or the files of an object in the order of Object::files; their copies get names
    /// that differ only in the extension. Throws FileFailure; the sources are then unchanged, unless the
    /// message says otherwise. The result is reported later. If @p isShared, the last source stays where it
    /// is, even if files are moved: it belongs to another recording too.
    void add(Sources sources, Conflict conflict, bool isShared = false);

    /// Waits until everything is reported. Returns the number of files that were copied or moved.
    int finish();

private:
    /// A file in the transfer. If it is to be renamed, neither copy nor existing is set.
    struct Item {
        std::unique_ptr<Source> source;
        std::optional<TemporaryFile> copy;
        Descriptor existing; // a copy that was there before

        QString target;
        bool isNamed = false;
        bool isKept = false; // its source stays
        QByteArray sum;      // see Copy

        bool isRenamed() const { return !copy && !existing.isOpen(); }
        /// The failure for a source that has @p problem although its copy is safe.
        FileFailure wasCopied(const QString &problem) const;
        void requireRemovable() const;
        void removeSource() const;
        bool putBack() const;
    };
    using Group = std::vector<Item>;  // one file, or the files of an object
    using Batch = std::vector<Group>; // either all files are renamed, or none

    static bool isFollower(const Group &group, const Item &item);
    static bool hasFollower(const Group &group);
    static bool hasMovedThumbnail(const Group &group);
    static bool areRenamed(const Batch &batch);
    static int filesIn(const Batch &batch);

    void lock();
    void anticipateFolder();
    QString candidate(const QString &name, int counter) const;
    bool isGiven(const QString &path) const;
    QString freePath(const Group &group) const;
    Descriptor openCopy(const Source &source, const QString &path) const;
    bool isThereOrFree(Item &item, const QString &path, bool &isThere) const;
    void findExisting(Group &group, Conflict conflict);
    void fail(const Batch &batch, const Failure &failure);
    void forEach(Batch &batch, const std::function<void(Group &)> &step);
    bool canRename(const Item &item) const;
    void requireRoom(const Source &source) const;
    void requireCopyable(const Source &source) const;
    void plan(Group group, bool isRenamed);
    void write(Item &item, bool mayStop);
    void setTarget(Group &group, const QString &path);
    void chooseName(Group &group);
    bool isBatchOld() const;
    void endBatch();
    void work();
    void complete(Batch batch);
    void compare(Item &item) const;
    void nameAll(Batch &batch);
    void name(Group &group, Item &item);
    void rename(Group &group);
    void removeSources(Batch &batch);
    void flushSources(Batch &batch, bool areThumbnails);
    void callCompletion(Batch &batch);
    void report(const Group &group) const;
    void report(const Batch &batch);

    const QString mPath;
    const Mode mMode;
    Progress &mProgress;
    const bool mIsDryRun;
    const Completion mCompletion;
    Descriptor mFolder;
    struct stat mStatus = {};
    quint64 mMount = 0;
    FileSystem mFileSystem = FileSystem::Other;
    QSet<QString> mTaken;     // names given since the start
    qint64 mPlannedBytes = 0; // in a dry run, what would have been written so far

    Batch mBatch;
    size_t mBatchFiles = 0;
    qint64 mBatchBytes = 0;
    std::chrono::steady_clock::time_point mBatchStart;

    mutable std::mutex mMutex;
    std::condition_variable mChanged;
    std::deque<Batch> mQueue;
    bool mIsEnding = false;
    int mDone = 0;
    std::thread mThread;
};

#endif // COPYING_H

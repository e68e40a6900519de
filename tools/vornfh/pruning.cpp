// SPDX-License-Identifier: MIT
#include "pruning.h"

#include "deletion.h"
#include "dryrun.h"
#include "durable.h"
#include "errors.h"
#include "files.h"
#include "mounts.h"
#include "output.h"
#include "signals.h"
#include "temporary.h"
#include "text.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSet>

#include <algorithm>
#include <cerrno>
#include <ctime>

#include <unistd.h>

namespace {

/// An object that may be deleted.
struct Candidate {
    const NumberedFolder *folder;
    const Object *object;
};

bool mayBeDeleted(const Object &object, const PrunePolicy &policy, std::time_t now)
{
    const bool isRecent = policy.keepWithin > 0 && object.modified() > now - policy.keepWithin;
    return object.hasRecording() && object.isReadable() && !object.isProtected() && !isRecent;
}

/// The objects that may be deleted, oldest first.
std::vector<Candidate> candidatesIn(const std::vector<NumberedFolder> &folders, const PrunePolicy &policy)
{
    const qint64 keepLast = std::max<qint64>(1, policy.keepLast); // the numbering continues from the newest
    const std::time_t now = std::time(nullptr);
    std::vector<Candidate> candidates;
    qint64 newer = 0;
    for (auto folder = folders.rbegin(); folder != folders.rend(); ++folder) {
        for (auto object = folder->objects.rbegin(); object != folder->objects.rend(); ++object) {
            newer += object->hasRecording() ? 1 : 0;
            if (newer > keepLast && mayBeDeleted(*object, policy, now))
                candidates.push_back({&*folder, &*object});
        }
    }
    std::reverse(candidates.begin(), candidates.end());
    return candidates;
}

qint64 sizeOf(const std::vector<NumberedFolder> &folders)
{
    qint64 size = 0;
    for (const NumberedFolder &folder : folders) {
        for (const Object &object : folder.objects)
            size += object.size();
    }
    return size;
}

void printUnreadable(const std::vector<NumberedFolder> &folders)
{
    for (const NumberedFolder &folder : folders) {
        for (const Object &object : folder.objects) {
            for (const ObjectFile &file : object.files) {
                if (file.error != 0)
                    printError(QString("%1: cannot be read, so its object is kept: %2")
                                   .arg(folder.pathOf(file), errorText(file.error)));
            }
        }
    }
}

/// What must still be deleted. Negative if a policy holds with room to spare.
struct Excess {
    qint64 allocated; // bytes on the file system
    qint64 size;      // of the objects

    bool isOver() const { return allocated > 0 || size > 0; }
};

class Pruning
{
public:
    Pruning(const Storage &storage, const PrunePolicy &policy, const PruneReport &report, bool isDryRun)
        : mStorage(storage), mPolicy(policy), mReport(report), mIsDryRun(isDryRun)
    {
    }

    PruneResult run()
    {
        const std::vector<NumberedFolder> folders = numberedObjects(mStorage);
        printUnreadable(folders);
        mResult.left = sizeOf(folders);
        const std::vector<Candidate> candidates = candidatesIn(folders, mPolicy);
        auto next = candidates.begin();
        const auto isMore = [&] {
            return next != candidates.end() && (!mPolicy.hasSpacePolicy() || excess().isOver());
        };
        while (isMore() && !isStopped())
            deleteBatch(next, candidates.end());
        mResult.isInterrupted = isMore();
        for (size_t i = 0; i + 1 < folders.size() && !mResult.isInterrupted; ++i)
            deleteIfEmpty(folders[i].path);
        mResult.free = free();
        mResult.isMet = !mResult.isInterrupted && !excess().isOver();
        return mResult;
    }

private:
    using Position = std::vector<Candidate>::const_iterator;

    qint64 free() const
    {
        return std::min(freeBytes(mStorage.location), UNLIMITED - mPlannedBytes) + mPlannedBytes;
    }

    Excess excess() const
    {
        return {mPolicy.keepFree ? *mPolicy.keepFree - free() : 0,
                mPolicy.maxSize ? mResult.left - *mPolicy.maxSize : 0};
    }

    /// Returns whether the object may still be deleted: it may have been protected in the meantime.
    static bool isFree(const Candidate &candidate)
    {
        const Object &object = *candidate.object;
        return !isProtected(*candidate.folder, object) && !isBeingWritten(*candidate.folder, object);
    }

    /// Deletes the next objects of one folder, but no more than have to go.
    void deleteBatch(Position &next, Position end)
    {
        constexpr size_t LIMIT = 1000; // so that results are reported steadily
        const NumberedFolder &folder = *next->folder;
        Excess rest = excess();
        std::vector<const Object *> batch;
        for (; next != end && next->folder == &folder && batch.size() < LIMIT; ++next) {
            if (mPolicy.hasSpacePolicy() && !rest.isOver())
                break;
            if (!isFree(*next))
                continue;
            batch.push_back(next->object);
            rest.allocated -= next->object->allocated();
            rest.size -= next->object->size();
        }
        if (folder.path != mLastFolder && mIsDryRun)
            planLeftovers(folder.path);
        else if (folder.path != mLastFolder)
            removeLeftovers(folder.path);
        mLastFolder = folder.path;
        if (!batch.empty())
            deleteAndReport(folder, batch);
    }

    void deleteAndReport(const NumberedFolder &folder, const std::vector<const Object *> &batch)
    {
        const Deletion deletion = mIsDryRun ? plan(folder, batch) : deleteObjects(folder, batch);
        for (const Object *object : deletion.objects) {
            mResult.bytes += object->size();
            mResult.left -= object->size();
        }
        mResult.objects += static_cast<int>(deletion.objects.size());
        mResult.failures += static_cast<int>(batch.size() - deletion.objects.size());
        mReport(deletion.files);
    }

    /// Adds what removeLeftovers() would delete.
    void planLeftovers(const QString &folder)
    {
        const Leftovers leftovers = leftoversIn(folder);
        const QStringList paths = leftovers.paths + leftovers.marks;
        if (leftovers.areSafeToDelete())
            mPlanned += QSet<QString>(paths.begin(), paths.end());
    }

    /// What deleteObjects() would delete.
    Deletion plan(const NumberedFolder &folder, const std::vector<const Object *> &objects)
    {
        Deletion deletion;
        forEachReporting(objects, [&](const Object *object) {
            const bool hasThumbnail = object->files.back().isThumbnail(); // it would be deleted first
            requireDeletable(folder.pathOf(hasThumbnail ? object->files.back() : object->files.front()));
            deletion.objects.push_back(object);
            for (const ObjectFile &file : object->files) {
                deletion.files.push_back(factsOf(folder, *object, file));
                mPlanned.insert(folder.pathOf(file));
            }
            mPlannedBytes += object->allocated();
        });
        return deletion;
    }

    /// Returns whether nothing is left in @p folder.
    bool isEmpty(const QString &folder) const
    {
        constexpr auto ANYTHING = QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot;
        if (!mIsDryRun)
            return QDir(folder).isEmpty(ANYTHING);
        bool areAllPlanned = true;
        const bool isRead = forEachEntry(folder, [&](int /*folder*/, const dirent &entry) {
            areAllPlanned =
                areAllPlanned && mPlanned.contains(folder + "/" + QFile::decodeName(entry.d_name));
        });
        return isRead && areAllPlanned;
    }

    void deleteIfEmpty(const QString &folder)
    {
        if (!isEmpty(folder))
            return;
        if (mIsDryRun) {
            requireDeletable(folder);
            mReport({folderAt(folder)});
            return;
        }
        const bool isDeleted = ::rmdir(QFile::encodeName(folder).constData()) == 0;
        // ENOTEMPTY: a name that is not valid UTF-8; EBUSY: a mount point
        if (!isDeleted && (errno == ENOTEMPTY || errno == EBUSY))
            return;
        if (!isDeleted)
            throw FileFailure(folder, "cannot be deleted: " + errorText(errno));
        flushFolder(mStorage.location);
        mReport({folderAt(folder)});
    }

    const Storage &mStorage;
    const PrunePolicy &mPolicy;
    const PruneReport &mReport;
    const bool mIsDryRun;
    PruneResult mResult;
    QString mLastFolder;      // whose leftovers were removed last
    QSet<QString> mPlanned;   // files that would be deleted
    qint64 mPlannedBytes = 0; // that would become free
};

} // namespace

KeepFree KeepFree::parsed(const QString &text)
{
    constexpr qint64 WHOLE = 100;
    const bool isPercent = text.endsWith('%');
    const auto value = isPercent ? parsedSize(text.chopped(1)) : parsedSize(text);
    if (!value || *value <= 0 || (isPercent && *value >= WHOLE))
        throw wrongValue("--keep-free", text, "a size such as 2G or a percentage from 1% to 99%");
    return isPercent ? KeepFree{0, static_cast<int>(*value)} : KeepFree{*value, 0};
}

qint64 KeepFree::bytesOn(const QString &path) const
{
    constexpr int WHOLE = 100;
    const qint64 size = sizeOfFileSystem(path);
    const qint64 wanted = percent > 0 ? size / WHOLE * percent : bytes;
    if (size > 0 && wanted >= size)
        throw UsageError(QString("--keep-free: %1 is not less than the size of the file system, %2")
                             .arg(humanSize(wanted), humanSize(size)));
    return wanted;
}

PruneResult prune(const Storage &storage, const PrunePolicy &policy, const PruneReport &report, bool isDryRun)
{
    return Pruning(storage, policy, report, isDryRun).run();
}

QString unmetPolicies(const Storage &storage, const PrunePolicy &policy, const PruneResult &result)
{
    QStringList parts;
    if (policy.keepFree && result.free < *policy.keepFree)
        parts.append(
            QString("%1 free instead of %2").arg(humanSize(result.free), humanSize(*policy.keepFree)));
    if (policy.maxSize && result.left > *policy.maxSize)
        parts.append(QString("the objects take up %1 instead of at most %2")
                         .arg(humanSize(result.left), humanSize(*policy.maxSize)));
    return QString("%1: %2; nothing more can be deleted").arg(storage.location, parts.join(", "));
}

// SPDX-License-Identifier: MIT
#ifndef PRUNING_H
#define PRUNING_H

#include "report.h"
#include "storages.h"

#include <QString>

#include <functional>
#include <optional>
#include <vector>

/// The value of the option --keep-free: a size or a percentage of the file system.
struct KeepFree {
    qint64 bytes = 0;
    int percent = 0; // 0 if bytes is set

    /// Throws UsageError if @p text is neither.
    static KeepFree parsed(const QString &text);

    /// The value in bytes on the file system of @p path. Throws UsageError if this is not less than the
    /// size of the file system.
    qint64 bytesOn(const QString &path) const;
};

/// Which objects must go and which must stay.
struct PrunePolicy {
    std::optional<qint64> keepFree; // bytes on the file system
    std::optional<qint64> maxSize;  // of all objects together, in bytes
    qint64 keepLast = 0;            // this many of the newest objects stay
    qint64 keepWithin = 0;          // objects that were modified within this many seconds stay

    /// If there is none, every object that may be deleted is deleted.
    bool hasSpacePolicy() const { return keepFree || maxSize; }
};

struct PruneResult {
    int objects = 0;            // that were deleted
    qint64 bytes = 0;           // their size
    int failures = 0;           // objects that could not be deleted
    qint64 left = 0;            // the size of all objects that are left
    qint64 free = 0;            // bytes on the file system
    bool isInterrupted = false; // by a signal, before everything was deleted
    bool isMet = true;          // the policies are met
};

/// Called with what was deleted, once the deletion is on the device.
using PruneReport = std::function<void(const std::vector<FileFacts> &deleted)>;

/// Deletes the oldest objects in the order of the numbering until the space policies are met, and then the
/// empty numbered folders before the last one. Protected objects, the newest object, objects that are
/// being written, thumbnails without a recording and all other files are left alone. At whatever moment the
/// power fails, no thumbnail is left without its recording. Stops early if isStopped(). Throws Failure. If @p
/// isDryRun, deletes nothing, but returns and reports the same as if it had.
PruneResult prune(const Storage &storage, const PrunePolicy &policy, const PruneReport &report,
                  bool isDryRun = false);

/// The message about space policies that do not hold.
QString unmetPolicies(const Storage &storage, const PrunePolicy &policy, const PruneResult &result);

#endif // PRUNING_H

// SPDX-License-Identifier: MIT
#ifndef DRYRUN_H
#define DRYRUN_H

#include <QString>

// What a command with --dry-run checks and prints instead of changing anything. A check fails with the error
// that the operation would cause, as far as that can be known in advance.

/// Used in place of createFolder(). Throws Failure.
void requireCreatableFolder(const QString &path);

/// Used in place of createExclusively(). Checks nothing if the folder of @p path does not exist yet. Throws
/// FileFailure.
void requireCreatableFile(const QString &path);

/// Used in place of a TemporaryFile in the existing folder @p folder. Throws FileFailure for @p concerning.
void requireTemporaryFile(const QString &folder, const QString &concerning);

/// Returns why the entry @p path cannot be deleted; empty if it can.
QString whyNotDeletable(const QString &path);

/// Used in place of deleting @p path. Throws FileFailure.
void requireDeletable(const QString &path);

/// Prints that @p path would be deleted, for commands that do not print what they delete.
void printWouldBeDeleted(const QString &path);

#endif // DRYRUN_H

// SPDX-License-Identifier: MIT
#ifndef FOLDERS_H
#define FOLDERS_H

#include "storages.h"

#include <QFileInfo>
#include <QList>
#include <QStringList>

// The library creates a missing location, and folder 100 if there is no numbered folder. The functions here
// create nothing.

/// The names of the folders that the library lists as numbered, in its order, without "." and "..".
QStringList numberedFolders(const Storage &storage);

/// Returns whether the library would list numbered folders without creating one.
bool hasNumberedFolders(const Storage &storage);

/// The folders that @p filter selects. Throws Failure if the location is missing or a folder cannot be read.
QList<QFileInfo> selectedFolders(const Storage &storage, VORN_FILE_HANDLER::eDIRECTORY_FILTER filter);

/// Throws UsageError if the location is the root folder.
void requireNotRoot(const Storage &storage);

/// Throws Failure unless @p path is a folder; the message says why it could not be created. Call this after
/// the library has had the chance to create it.
void requireFolder(const QString &path);

/// Throws Failure, "<path>: Permission denied", if @p path is a folder that cannot be read: Qt and the
/// library treat it as empty. A missing path, or one that is not a folder, is left to the caller.
void requireReadable(const QString &path);

/// Throws Failure unless @p path is a folder that can be read.
void requireReadableFolder(const QString &path);

/// Throws FileFailure if an entry of @p folder cannot be read: Qt and the library treat an error as the end
/// of the folder. Call this after they have listed it. A missing folder is left to the caller.
void requireReadToEnd(const QString &folder);

/// The entries of @p folder that cannot be read, other than for lack of permission, each with the reason.
QStringList unreadableEntries(const QString &folder);

/// Prints unreadableEntries() on standard error. They are not failures: a camera must keep recording.
void reportUnreadable(const QString &folder);

/// requireReadable() for the location of @p storage and its numbered folders.
void requireReadableFolders(const Storage &storage);

/// @p path with symbolic links resolved in all but the last component.
QString withResolvedFolder(const QString &path);

/// Returns the storage device whose location contains the resolved path @p path; null if none does.
const Storage *storageOf(const QString &path, const QList<Storage> &storages);

#endif // FOLDERS_H

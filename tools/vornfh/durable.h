// SPDX-License-Identifier: MIT
#ifndef DURABLE_H
#define DURABLE_H

#include "temporary.h"

#include <QString>
#include <QStringList>

class QCryptographicHash;

// Whatever a command has reported must be on the device, even if the power fails at that moment. Unless
// stated otherwise, functions throw FileFailure for the path that an error concerns.

/// Waits until @p paths (files or folders that share a parent folder) are on the device, together with all
/// folders above them on the same file system, any of which may be new.
void flushWithFolders(const QStringList &paths);

/// Waits until the entries of @p folder are on the device.
void flushFolder(const QString &folder);

/// Waits until everything that was written to the file system of @p folder is on the device.
void flushFileSystem(const QString &folder);

/// Replaces @p path with @p file, so that @p path has its old or its new content whenever the power fails. On
/// exFAT, removeLeftovers() may have to restore it.
void replaceFile(TemporaryFile &file, const QString &path);

/// Creates the folder @p path, and those above it, unless they exist. Until the folder is on the device it
/// has a hidden name: on FAT, a folder whose creation is interrupted by a power failure can be neither used
/// nor deleted. Throws Failure.
void createFolder(const QString &path);

/// Creates @p path as an empty file. Returns false if something with that name exists.
bool createExclusively(const QString &path);

/// Compares two files byte by byte. The second is read from the device, not from memory, if it has been
/// flushed. If the two are the same, the content of the second has been added to @p hash.
bool hasSameContent(int one, int other, const QString &path, QCryptographicHash *hash = nullptr);

#endif // DURABLE_H

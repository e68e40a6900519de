// SPDX-License-Identifier: MIT
#ifndef DURABLE_H
#define DURABLE_H

#include <QString>

/// Waits until a file or folder is on the device. Returns false and sets errno on failure.
bool flush(int descriptor);
bool flushFolder(const QString &path);

/// Creates @p path as an empty file. Returns false if something with that name exists; throws Failure if it
/// cannot be created.
bool createExclusively(const QString &path);

/// Compares two files byte by byte. The second is read from the device, not from memory, if it has been
/// flushed. Returns false if isStopped(). Throws FileFailure for @p path if one of the files cannot be read.
bool hasSameContent(int one, int other, const QString &path);

#endif // DURABLE_H

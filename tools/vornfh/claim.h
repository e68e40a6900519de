// SPDX-License-Identifier: MIT
#ifndef CLAIM_H
#define CLAIM_H

#include "storages.h"

#include <QString>

/// Reserves the next number on the storage device by creating an empty file, and returns its path. Skips
/// numbers that are taken by something that the numbering does not see: a name in another case, a folder,
/// a link, or a thumbnail without its recording. Throws Failure.
QString claimPath(const Storage &storage, VORN_FILE_HANDLER::eFileTypes type);

/// The path that claimPath() would return. Creates nothing. Throws Failure.
QString freePath(const Storage &storage, VORN_FILE_HANDLER::eFileTypes type);

/// Creates the folder of the next recording unless it exists, and waits until it is on the device. Returns
/// the path of the folder; an empty string if it already existed. Throws Failure.
QString createRecordingFolder(const Storage &storage);

#endif // CLAIM_H

// SPDX-License-Identifier: MIT
#ifndef CLAIM_H
#define CLAIM_H

#include "storages.h"

#include <QString>

/// Reserves the next number of the storage by creating the file, empty, and returns its path. Numbers that
/// are taken by something that the numbering does not see are skipped: by a name in another case on FAT, by a
/// folder or a link, or by a thumbnail alone, which would not match the recording. Throws Failure.
QString claimPath(const Storage &storage, VORN_FILE_HANDLER::eFileTypes type);

/// The number in a file name that the library built.
int fileNumber(const QString &path);

#endif // CLAIM_H

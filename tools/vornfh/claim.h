// SPDX-License-Identifier: MIT
#ifndef CLAIM_H
#define CLAIM_H

#include "storages.h"

#include <QString>

/// Reserves the next number of the storage by creating the file, empty, and returns its path. A number whose
/// thumbnail exists without a recording is skipped: it would show another picture than that of the recording.
/// Throws Failure.
QString claimPath(const Storage &storage, VORN_FILE_HANDLER::eFileTypes type);

/// The number in the name of a file with a path of the library.
int fileNumber(const QString &path);

#endif // CLAIM_H

// SPDX-License-Identifier: MIT
#ifndef DELETION_H
#define DELETION_H

#include "objects.h"
#include "report.h"

#include <vector>

struct Deletion {
    std::vector<const Object *> objects; // all of whose files are gone
    std::vector<FileFacts> files;        // that are gone, including those of objects deleted only in part
};

/// Deletes the files of @p objects, which are in @p folder: all thumbnails before any recording, so that a
/// power failure at any moment leaves no thumbnail without its recording. For each object that cannot be
/// deleted, prints a message and continues. Throws FileFailure if the folder cannot be flushed.
Deletion deleteObjects(const NumberedFolder &folder, const std::vector<const Object *> &objects);

#endif // DELETION_H

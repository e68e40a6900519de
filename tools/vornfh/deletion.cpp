// SPDX-License-Identifier: MIT
#include "deletion.h"

#include "durable.h"
#include "errors.h"
#include "output.h"

#include <QFile>

#include <algorithm>
#include <cerrno>

#include <unistd.h>

namespace {

/// Deletes the thumbnails or the recordings of @p objects. Returns the objects for which it succeeds.
std::vector<const Object *> deleteFiles(const NumberedFolder &folder,
                                        const std::vector<const Object *> &objects, bool areThumbnails)
{
    std::vector<const Object *> rest;
    forEachReporting(objects, [&](const Object *object) {
        for (const ObjectFile &file : object->files) {
            const QString path = folder.pathOf(file);
            if (file.isThumbnail() == areThumbnails && ::unlink(QFile::encodeName(path).constData()) != 0
                && errno != ENOENT)
                throw FileFailure(path, "cannot be deleted: " + errorText(errno));
        }
        rest.push_back(object);
    });
    return rest;
}

} // namespace

std::vector<const Object *> deleteObjects(const NumberedFolder &folder,
                                          const std::vector<const Object *> &objects)
{
    const bool hasThumbnails = std::any_of(objects.begin(), objects.end(), [](const Object *object) {
        return object->files.back().isThumbnail();
    });
    std::vector<const Object *> rest = deleteFiles(folder, objects, true);
    if (hasThumbnails)
        flushFolder(folder.path); // before any recording goes
    rest = deleteFiles(folder, rest, false);
    flushFolder(folder.path);
    return rest;
}

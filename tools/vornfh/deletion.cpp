// SPDX-License-Identifier: MIT
#include "deletion.h"

#include "durable.h"
#include "errors.h"
#include "output.h"

#include <QFile>
#include <QSet>

#include <algorithm>
#include <cerrno>

#include <unistd.h>

namespace {

/// Deletes the thumbnails or the recordings of @p objects, and adds them to @p gone. Returns the objects for
/// which it succeeds.
std::vector<const Object *> deleteFiles(const NumberedFolder &folder,
                                        const std::vector<const Object *> &objects, bool areThumbnails,
                                        QSet<QString> &gone)
{
    std::vector<const Object *> rest;
    forEachReporting(objects, [&](const Object *object) {
        for (const ObjectFile &file : object->files) {
            const QString path = folder.pathOf(file);
            if (file.isThumbnail() != areThumbnails)
                continue;
            if (::unlink(QFile::encodeName(path).constData()) != 0 && errno != ENOENT)
                throw FileFailure(path, "cannot be deleted: " + errorText(errno));
            gone.insert(path);
        }
        rest.push_back(object);
    });
    return rest;
}

} // namespace

Deletion deleteObjects(const NumberedFolder &folder, const std::vector<const Object *> &objects)
{
    const bool hasThumbnails = std::any_of(objects.begin(), objects.end(), [](const Object *object) {
        return object->files.back().isThumbnail();
    });
    QSet<QString> gone;
    Deletion deletion;
    deletion.objects = deleteFiles(folder, objects, true, gone);
    if (hasThumbnails)
        flushFolder(folder.path); // before any recording goes
    deletion.objects = deleteFiles(folder, deletion.objects, false, gone);
    flushFolder(folder.path);
    for (const Object *object : objects) {
        for (const ObjectFile &file : object->files) {
            if (gone.contains(folder.pathOf(file)))
                deletion.files.push_back(factsOf(folder, *object, file));
        }
    }
    return deletion;
}

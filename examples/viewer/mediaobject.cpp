// SPDX-License-Identifier: MIT
#include "mediaobject.h"

#include "files.h"
#include "vornfilehandler.h"

#include <QFile>
#include <QHash>
#include <QSet>

#include <algorithm>
#include <tuple>

#include <sys/stat.h>

using namespace VORN_FILE_HANDLER;

namespace {

/// The extensions and what they contain, in the order of the files of an object.
const QVector<QPair<QString, MediaObject::Kind>> &extensions()
{
    static const QVector<QPair<QString, MediaObject::Kind>> ALL = {
        {JPEG_FILE_EXT, MediaObject::Photo}, {PNG_FILE_EXT, MediaObject::Photo},
        {AVI_FILE_EXT, MediaObject::Video},  {MKV_FILE_EXT, MediaObject::Video},
        {WAV_FILE_EXT, MediaObject::Audio},  {THUMB_FILE_EXT, MediaObject::Other},
    };
    return ALL;
}

int placeOf(const QString &file)
{
    const QStringRef extension = file.midRef(file.lastIndexOf('.') + 1);
    const auto *const found = std::find_if(extensions().begin(), extensions().end(), [&](const auto &known) {
        return extension.compare(known.first, Qt::CaseInsensitive) == 0;
    });
    return static_cast<int>(found - extensions().begin());
}

QStringList nameFilters()
{
    QStringList filters;
    for (const auto &[extension, kind] : extensions())
        filters.append("*." + extension);
    return filters;
}

} // namespace

bool MediaObject::operator==(const MediaObject &other) const
{
    const auto fields = [](const MediaObject &object) {
        return std::tie(object.folder, object.base, object.files, object.size, object.modified,
                        object.isProtected);
    };
    return fields(*this) == fields(other);
}

QString MediaObject::picture() const
{
    const bool hasThumbnail = files.last().endsWith("." + THUMB_FILE_EXT, Qt::CaseInsensitive);
    return hasThumbnail ? path(files.last()) : kind == Photo ? recording() : QString();
}

MediaObjects objectsIn(const QString &folder)
{
    MediaObjects objects;
    // The files of an object need not be adjacent: DCF_0001.jpg, DCF_0001.k.jpg, DCF_0001.thumb
    QHash<QString, int> places;
    const QFileInfoList files =
        VornFileHandler::getDirectoryContents(folder, nameFilters(), QDir::Name | QDir::Reversed);
    for (const QFileInfo &file : files) {
        const QString base = file.completeBaseName();
        const int place = *places.insert(base, places.value(base, objects.size()));
        if (place == objects.size()) {
            objects.append(MediaObject());
            objects.last().folder = folder;
            objects.last().base = base;
        }
        objects[place].files.append(file.fileName());
    }
    for (MediaObject &object : objects) {
        std::sort(object.files.begin(), object.files.end(),
                  [](const QString &one, const QString &other) { return placeOf(one) < placeOf(other); });
        object.kind = extensions().at(placeOf(object.files.first())).second;
    }
    return objects;
}

MediaObjects objectsIn(const QString &folder, const QStringList &bases)
{
    MediaObjects objects = objectsIn(folder);
    const QSet<QString> wanted(bases.begin(), bases.end());
    objects.erase(std::remove_if(objects.begin(), objects.end(),
                                 [&](const MediaObject &object) { return !wanted.contains(object.base); }),
                  objects.end());
    for (MediaObject &object : objects)
        readStatus(object);
    return objects;
}

void readStatus(MediaObject &object)
{
    constexpr qint64 MSECS = 1000;
    for (const QString &file : qAsConst(object.files)) {
        struct stat status = {};
        if (::lstat(QFile::encodeName(object.path(file)).constData(), &status) != 0)
            continue;
        object.size += status.st_size;
        object.modified = std::max(object.modified, status.st_mtim.tv_sec * MSECS);
        object.isProtected = object.isProtected || isProtectedMode(status.st_mode);
    }
}

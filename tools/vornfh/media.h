// SPDX-License-Identifier: MIT
#ifndef MEDIA_H
#define MEDIA_H

#include "vornfilehandler.h"

#include <QByteArray>
#include <QList>
#include <QString>
#include <QStringList>

enum Kind { PHOTO, VIDEO, AUDIO, THUMBNAIL, OTHER };

/// A type of file that the library knows.
struct MediaType {
    QString extension; // without a dot
    VORN_FILE_HANDLER::eFileTypes type;
    Kind kind;
    const char *label; // "avi"
    const char *name;  // "AVI video"
};

/// All types; the thumbnail type comes last.
const QList<MediaType> &mediaTypes();

/// The type for the extension of @p name; null if there is none. The library's extensions are case-sensitive.
const MediaType *findType(const QString &name, Qt::CaseSensitivity sensitivity = Qt::CaseSensitive);

/// The type for @p extension, which must be one of extensions().
const MediaType &typeOf(const QString &extension);

Kind kindOf(const QString &name);

/// Returns whether a file with this name can have a thumbnail: a photo or video.
bool hasThumbnails(const QString &name);

/// "jpg", "png" and so on.
QStringList extensions();

/// The path of the thumbnail that belongs to the photo or video @p path.
QString thumbnailOf(const QString &path);

enum class ImageFormat { Jpeg, Png, Tiff, Other };

/// The format of a file that begins with @p start, of which eight bytes are enough. Raw photos in a TIFF
/// container count as TIFF.
ImageFormat imageFormat(const QByteArray &start);

/// Returns whether an entry with the extension of a photo, video or audio file has the number of @p path:
/// DCF_0001.avi and DCF_0001.jpg share a number.
bool isNumberTaken(const QString &path);

#endif // MEDIA_H

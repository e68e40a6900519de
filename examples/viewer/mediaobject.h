// SPDX-License-Identifier: MIT
#ifndef MEDIAOBJECT_H
#define MEDIAOBJECT_H

#include <QMetaType>
#include <QStringList>
#include <QVector>

/// All files in a folder that share a base name, such as a photo and its thumbnail, or the two formats of one
/// shot. The interface shows, protects, copies and deletes them as one.
struct MediaObject {
    enum Kind { Photo, Video, Audio, Other }; // Other: a thumbnail that is alone

    QString folder;    // path
    QString base;      // "DCF_0001"
    QStringList files; // names: the recordings, then the thumbnail
    Kind kind = Other;
    qint64 size = 0;     // of all files
    qint64 modified = 0; // of the file that was changed last, in milliseconds since 1970
    bool isProtected = false;

    const QString &key() const { return base; }
    bool operator==(const MediaObject &other) const;

    QString path(const QString &file) const { return folder + "/" + file; }
    /// The path of its first recording.
    QString recording() const { return path(files.first()); }
    /// The path of the picture that stands for it in a list: its thumbnail, or else the photo; empty if it
    /// has neither.
    QString picture() const;
};
using MediaObjects = QVector<MediaObject>;
Q_DECLARE_METATYPE(MediaObjects)

/// The objects of a folder, the one with the highest number first. Reads only the names: the size, the time
/// and the protection are not filled in.
MediaObjects objectsIn(const QString &folder);

/// The objects of a folder whose base names are in @p bases, with the state of their files.
MediaObjects objectsIn(const QString &folder, const QStringList &bases);

/// Fills in the size, the time and the protection.
void readStatus(MediaObject &object);

#endif // MEDIAOBJECT_H

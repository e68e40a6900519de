// SPDX-License-Identifier: MIT
#ifndef GALLERYPAGE_H
#define GALLERYPAGE_H

#include "device.h"
#include "media.h"
#include "playback.h"

#include <QByteArray>
#include <QDateTime>
#include <QSize>
#include <QString>

/// A file as a page shows it.
struct GalleryItem {
    Kind kind = OTHER; // never THUMBNAIL
    QString name;
    qint64 size = 0;
    QDateTime created;         // local time
    qint64 thumbnailSize = -1; // -1 if it has no thumbnail
    bool isProtected = false;
};

/// The details of an item that can be found only by reading its files, as a page shows them.
struct GalleryPicture {
    QByteArray uri;   // empty if an icon is shown
    QSize resolution; // empty if unknown
    Playback playback;
};

/// The number, size and dates of some files.
class GalleryTotals
{
public:
    void add(const GalleryItem &item);
    void add(const GalleryTotals &others);

    int count() const;
    int count(Kind kind) const { return mCounts[kind]; }
    qint64 size() const;
    qint64 size(Kind kind) const { return mSizes[kind]; }

    /// "1 Feb 2025 - 3 Mar 2025", or one date if all files are from the same day.
    QString period() const;

private:
    void addDate(const QDate &date);

    int mCounts[OTHER + 1] = {};
    qint64 mSizes[OTHER + 1] = {};
    QDate mFirst;
    QDate mLast;
};

/// The links of a page to others of the same gallery; empty if there is no such page.
struct GalleryLinks {
    QString index;
    QString previous;
    QString next;
};

/// What is at the top of a page.
struct GalleryHeader {
    QString title;
    QString location;
    Capacity capacity;
    GalleryTotals totals;
    GalleryLinks links;
};

/// A page as the index shows it.
struct GalleryCard {
    QString title;
    QString link;
    GalleryTotals totals;
    GalleryItem first; // whose picture is shown
};

/// Returns whether the file @p path is a page of a gallery.
bool isGalleryPage(const QString &path);

/// Returns whether the file @p path is a page whose link to the index is @p index.
bool isPartOfGallery(const QString &path, const QString &index);

/// Encodes a path for a link.
QString encodedLink(const QString &path);

// The pieces of a page, in order. A page is written in pieces so that only a few pictures are in memory at a
// time. A page is both HTML and XML: only void elements of HTML, and empty elements of SVG, have no end tag.

QByteArray galleryBeginning(const GalleryHeader &header);
QByteArray galleryFilter(const GalleryTotals &totals);

QByteArray folderBeginning(const QString &name, const GalleryTotals &totals);
QByteArray gridBeginning(int count);
/// @p link leads to the file.
QByteArray itemFigure(const GalleryItem &item, const GalleryPicture &picture, const QString &link);
QByteArray gridEnd();
QByteArray folderEnd();

/// Goes between gridBeginning() and gridEnd(), in an index.
QByteArray cardFigure(const GalleryCard &card, const QByteArray &uri);

QByteArray galleryEnd();

#endif // GALLERYPAGE_H

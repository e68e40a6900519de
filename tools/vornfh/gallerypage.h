// SPDX-License-Identifier: MIT
#ifndef GALLERYPAGE_H
#define GALLERYPAGE_H

#include "device.h"
#include "media.h"

#include <QDateTime>
#include <QMap>
#include <QSize>
#include <QString>
#include <QXmlStreamWriter>

#include <functional>

/// A file as the page shows it.
struct GalleryItem {
    Kind kind = OTHER; // never THUMBNAIL
    QString path;
    QString thumbnail; // path of its thumbnail; empty if there is none
    qint64 size = 0;
    QDateTime created; // local time
};

/// What the page shows of an item and can get only by reading its file.
struct GalleryPicture {
    QString uri;      // of the picture; empty for an icon
    QSize resolution; // invalid if unknown
};

struct Gallery {
    QString title;
    QString location;
    Capacity capacity;
    QString folder;                            // of the page: links are relative to it
    QMap<QString, QList<GalleryItem>> folders; // by name
};

/// Returns whether the file @p path is such a page.
bool isGalleryPage(const QString &path);

/// Writes a page that is both HTML and XML: only void elements of HTML, and elements of SVG, are empty.
class GalleryPage
{
public:
    /// @p pictureOf is called for each item when it is written, so that only one picture is in memory at a
    /// time.
    GalleryPage(QIODevice *device, const Gallery &gallery,
                std::function<GalleryPicture(const GalleryItem &)> pictureOf);

    /// Returns false if the device cannot be written.
    bool write();

private:
    using Attributes = QList<QPair<QString, QString>>;

    void open(const QString &element, const QString &style = QString(), const Attributes &attributes = {});
    void close() { mXml.writeEndElement(); }
    void empty(const QString &element, const Attributes &attributes);
    void text(const QString &element, const QString &text, const QString &style = QString());
    void writeHead();
    void writeHeader(const QList<GalleryItem> &items);
    void writeCapacity();
    void writeFilter(const QList<GalleryItem> &items);
    void writeChoice(const QString &id, const QString &title, int count);
    void writeFolder(const QString &name, const QList<GalleryItem> &items);
    void writeItem(const GalleryItem &item);
    void writePicture(const GalleryItem &item, const QString &uri);
    void writeCaption(const GalleryItem &item, QSize resolution);
    void writeIcon(Kind kind);

    QXmlStreamWriter mXml;
    const Gallery &mGallery;
    std::function<GalleryPicture(const GalleryItem &)> mPictureOf;
};

#endif // GALLERYPAGE_H

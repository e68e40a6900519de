// SPDX-License-Identifier: MIT
#include "gallerypage.h"

#include "gallerystyle.h"
#include "text.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QLocale>
#include <QUrl>

#include <algorithm>

namespace {

constexpr char GENERATOR[] = "vornfh gallery";

struct KindRow {
    Kind kind;
    const char *id;
    const char *noun;
    const char *title;
    const char *plural;
    const char *icon; // SVG path on a 24 x 24 grid
};

constexpr KindRow KINDS[] = {
    {PHOTO, "photo", "photo", "Photo", "Photos",
     "M5 4h14a2 2 0 0 1 2 2v12a2 2 0 0 1-2 2H5a2 2 0 0 1-2-2V6a2 2 0 0 1 2-2Zm-2 12 5-5 4.5 4.5M11 14l4-4 6 "
     "6M15.5 7.5h.01"},
    {VIDEO, "video", "video", "Video", "Videos", "M8 5.5v13l10.5-6.5Z"},
    {AUDIO, "audio", "audio file", "Audio", "Audio", "M4 10v4M8 7v10M12 4v16M16 8v8M20 10.5v3"},
    {OTHER, "other", "other file", "Other", "Other",
     "M13.5 3H7a2 2 0 0 0-2 2v14a2 2 0 0 0 2 2h10a2 2 0 0 0 2-2V8.5Zm0 0v5.5H19"},
};

const KindRow &rowOf(Kind kind)
{
    return *std::find_if(std::begin(KINDS), std::end(KINDS),
                         [kind](const KindRow &row) { return row.kind == kind; });
}

QString dateText(const QDate &date)
{
    return QLocale::c().toString(date, "d MMM yyyy");
}

/// "1 Feb 2025 - 3 Mar 2025", or one date if all items are from the same day.
QString periodOf(const QList<GalleryItem> &items)
{
    QDate first;
    QDate last;
    for (const GalleryItem &item : items) {
        const QDate date = item.created.date();
        first = !first.isValid() || date < first ? date : first;
        last = !last.isValid() || last < date ? date : last;
    }
    return first == last ? dateText(first) : dateText(first) + " " + QChar(0x2013) + " " + dateText(last);
}

QString sizeOf(const QList<GalleryItem> &items)
{
    qint64 size = 0;
    for (const GalleryItem &item : items)
        size += item.size;
    return humanSize(size);
}

int countOf(const QList<GalleryItem> &items, Kind kind)
{
    return static_cast<int>(std::count_if(items.begin(), items.end(),
                                          [kind](const GalleryItem &item) { return item.kind == kind; }));
}

} // namespace

bool isGalleryPage(const QString &path)
{
    constexpr int BEGINNING = 512;
    QFile file(path);
    return file.open(QIODevice::ReadOnly)
           && file.read(BEGINNING).contains(QByteArray(R"(name="generator" content=")") + GENERATOR);
}

GalleryPage::GalleryPage(QIODevice *device, const Gallery &gallery,
                         std::function<GalleryPicture(const GalleryItem &)> pictureOf)
    : mXml(device), mGallery(gallery), mPictureOf(std::move(pictureOf))
{
    mXml.setCodec("UTF-8");
    mXml.writeDTD("<!DOCTYPE html>\n");
}

void GalleryPage::open(const QString &element, const QString &style, const Attributes &attributes)
{
    mXml.writeStartElement(element);
    if (!style.isEmpty())
        mXml.writeAttribute("class", style);
    for (const auto &attribute : attributes)
        mXml.writeAttribute(attribute.first, attribute.second);
}

void GalleryPage::empty(const QString &element, const Attributes &attributes)
{
    mXml.writeEmptyElement(element);
    for (const auto &attribute : attributes)
        mXml.writeAttribute(attribute.first, attribute.second);
}

void GalleryPage::text(const QString &element, const QString &text, const QString &style)
{
    open(element, style);
    mXml.writeCharacters(text);
    close();
}

bool GalleryPage::write()
{
    QList<GalleryItem> items;
    for (const QList<GalleryItem> &folder : mGallery.folders)
        items += folder;
    open("html", QString(), {{"lang", "en"}, {"xmlns", "http://www.w3.org/1999/xhtml"}});
    writeHead();
    open("body");
    writeHeader(items);
    open("main");
    if (items.isEmpty())
        text("p", "There are no files in the numbered folders of this storage device.", "empty");
    else
        writeFilter(items);
    for (auto folder = mGallery.folders.begin(); folder != mGallery.folders.end(); ++folder)
        writeFolder(folder.key(), *folder);
    close();
    text("footer", QString("Made by vornfh %1 on %2").arg(VORNFH_VERSION, dateText(QDate::currentDate())));
    mXml.writeEndDocument();
    return !mXml.hasError();
}

void GalleryPage::writeHead()
{
    open("head");
    empty("meta", {{"charset", "utf-8"}});
    empty("meta", {{"name", "generator"}, {"content", QString(GENERATOR) + " " VORNFH_VERSION}});
    empty("meta", {{"name", "viewport"}, {"content", "width=device-width, initial-scale=1"}});
    empty("meta", {{"name", "color-scheme"}, {"content", "light dark"}});
    // No browser fetches anything for the page, whatever was injected into it.
    empty("meta", {{"http-equiv", "Content-Security-Policy"},
                   {"content", "default-src 'none'; img-src data:; style-src 'unsafe-inline'"}});
    empty("link", {{"rel", "icon"}, {"href", "data:,"}});
    text("title", mGallery.title);
    text("style", GALLERY_STYLE);
    close();
}

void GalleryPage::writeHeader(const QList<GalleryItem> &items)
{
    open("header");
    open("div", "title");
    text("h1", mGallery.title);
    text("p", printable(mGallery.location), "place");
    open("p", "facts");
    QStringList facts;
    for (const KindRow &row : KINDS) {
        if (const int count = countOf(items, row.kind))
            facts.append(counted(count, row.noun));
    }
    facts.append(sizeOf(items));
    if (!items.isEmpty())
        facts.append(periodOf(items));
    for (const QString &fact : facts) {
        text("span", fact);
        mXml.writeCharacters(" "); // for screen readers
    }
    close();
    close();
    writeCapacity();
    close();
}

void GalleryPage::writeCapacity()
{
    const Capacity &capacity = mGallery.capacity;
    if (!capacity.isKnown() || capacity.isElsewhere)
        return;
    const int percent = capacity.usedPercent();
    open("div", "capacity");
    open("div", "bar", {{"aria-hidden", "true"}});
    open("span", QString(), {{"style", QString("width:%1%").arg(percent)}});
    mXml.writeCharacters(QString("%1 %").arg(percent));
    close();
    close();
    open("p");
    text("strong", humanSize(capacity.free) + " free");
    mXml.writeCharacters(QString(" of %1, %2% used").arg(humanSize(capacity.size)).arg(percent));
    close();
    close();
}

void GalleryPage::writeFilter(const QList<GalleryItem> &items)
{
    open("fieldset", "filter");
    text("legend", "Show");
    writeChoice("all", "All", items.size());
    for (const KindRow &row : KINDS) {
        const int count = countOf(items, row.kind);
        if (count > 0)
            writeChoice(row.id, row.plural, count);
    }
    close();
}

void GalleryPage::writeChoice(const QString &id, const QString &title, int count)
{
    Attributes attributes = {{"type", "radio"}, {"name", "only"}, {"id", "only-" + id}};
    if (id == "all")
        attributes.append(qMakePair(QString("checked"), QString("checked")));
    open("label");
    empty("input", attributes);
    mXml.writeCharacters(title + " ");
    text("span", QString::number(count));
    close();
}

void GalleryPage::writeFolder(const QString &name, const QList<GalleryItem> &items)
{
    open("section", QString(), {{"aria-label", "Folder " + printable(name)}});
    open("div", "heading");
    text("h2", printable(name));
    text("p", counted(items.size(), "file") + QString(" %1 ").arg(QChar(0xb7)) + sizeOf(items));
    close();
    open("div", "grid");
    for (const GalleryItem &item : items)
        writeItem(item);
    close();
    close();
}

void GalleryPage::writeItem(const GalleryItem &item)
{
    const QString link = QDir(mGallery.folder).relativeFilePath(item.path);
    const GalleryPicture picture = mPictureOf(item);
    mXml.writeCharacters("\n");
    open("figure", rowOf(item.kind).id);
    open("a", QString(), {{"href", QUrl::toPercentEncoding(link, "/")}});
    writePicture(item, picture.uri);
    writeCaption(item, picture.resolution);
    close();
    close();
}

void GalleryPage::writePicture(const GalleryItem &item, const QString &uri)
{
    open("div", "picture");
    if (!uri.isEmpty())
        empty("img",
              {{"src", uri},
               {"alt", QString(rowOf(item.kind).title) + " " + printable(QFileInfo(item.path).fileName())},
               {"loading", "lazy"},
               {"decoding", "async"}});
    if (uri.isEmpty())
        writeIcon(item.kind);
    else if (item.kind == VIDEO) {
        open("span", "badge");
        writeIcon(item.kind);
        close();
    }
    close();
}

void GalleryPage::writeIcon(Kind kind)
{
    open("svg", QString(),
         {{"xmlns", "http://www.w3.org/2000/svg"},
          {"viewBox", "0 0 24 24"},
          {"role", "img"},
          {"aria-label", rowOf(kind).title},
          {"fill", kind == VIDEO ? "currentColor" : "none"},
          {"stroke", "currentColor"},
          {"stroke-width", "1.5"},
          {"stroke-linecap", "round"},
          {"stroke-linejoin", "round"}});
    empty("path", {{"d", rowOf(kind).icon}});
    close();
}

void GalleryPage::writeCaption(const GalleryItem &item, QSize resolution)
{
    open("figcaption");
    text("span", printable(QFileInfo(item.path).fileName()), "name");
    if (item.created.isValid()) {
        open("time", QString(), {{"datetime", item.created.toString(Qt::ISODate)}});
        mXml.writeCharacters(dateText(item.created.date()) + ", " + item.created.toString("HH:mm"));
        close();
    }
    open("span", "size");
    text("span", humanSize(item.size));
    if (!resolution.isEmpty()) {
        mXml.writeCharacters(" ");
        text("span", QString("%1\u00a0\u00d7\u00a0%2").arg(resolution.width()).arg(resolution.height()));
    }
    close();
    close();
}

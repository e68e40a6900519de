// SPDX-License-Identifier: MIT
#include "gallerypage.h"

#include "files.h"
#include "gallerystyle.h"
#include "text.h"

#include <QList>
#include <QLocale>
#include <QPair>
#include <QStringList>
#include <QUrl>

#include <algorithm>
#include <numeric>

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

/// A closed padlock.
constexpr char LOCK[] =
    "M8 11V8a4 4 0 0 1 8 0v3M7 11h10a1 1 0 0 1 1 1v7a1 1 0 0 1-1 1H7a1 1 0 0 1-1-1v-7a1 1 0 0 1 1-1Z";

const KindRow &rowOf(Kind kind)
{
    return *std::find_if(std::begin(KINDS), std::end(KINDS),
                         [kind](const KindRow &row) { return row.kind == kind; });
}

QString dateText(const QDate &date)
{
    return QLocale::c().toString(date, "d MMM yyyy");
}

// HTML

using Attributes = QList<QPair<const char *, QString>>;

QByteArray escaped(const QString &text)
{
    return text.toHtmlEscaped().toUtf8();
}

QByteArray startOf(const char *element, const QString &style, const Attributes &attributes)
{
    QByteArray html = QByteArray("<") + element;
    if (!style.isEmpty())
        html += " class=\"" + escaped(style) + "\"";
    for (const auto &attribute : attributes)
        html += QByteArray(" ") + attribute.first + "=\"" + escaped(attribute.second) + "\"";
    return html;
}

QByteArray opening(const char *element, const QString &style = QString(), const Attributes &attributes = {})
{
    return startOf(element, style, attributes) + ">";
}

QByteArray closing(const char *element)
{
    return QByteArray("</") + element + ">";
}

QByteArray empty(const char *element, const Attributes &attributes)
{
    return startOf(element, QString(), attributes) + "/>";
}

/// An element with @p content, which is HTML.
QByteArray element(const char *element, const QByteArray &content, const QString &style = QString(),
                   const Attributes &attributes = {})
{
    return opening(element, style, attributes) + content + closing(element);
}

QByteArray text(const char *element, const QString &text, const QString &style = QString())
{
    return ::element(element, escaped(text), style);
}

QByteArray linkToIndex(const QString &link)
{
    return empty("link", {{"rel", "up"}, {"href", link}});
}

// The parts of a page

QByteArray headHtml(const GalleryHeader &header)
{
    QByteArray html = empty("meta", {{"charset", "utf-8"}});
    html += empty("meta", {{"name", "generator"}, {"content", QString(GENERATOR) + " " VORNFH_VERSION}});
    if (!header.links.index.isEmpty())
        html += linkToIndex(header.links.index);
    html += empty("meta", {{"name", "viewport"}, {"content", "width=device-width, initial-scale=1"}});
    html += empty("meta", {{"name", "color-scheme"}, {"content", "light dark"}});
    // With this policy, a browser fetches only media, and only from where the page is, whatever has been
    // injected into the page. 'self' does not match "file:" URLs.
    html += empty("meta", {{"http-equiv", "Content-Security-Policy"},
                           {"content", "default-src 'none'; img-src data: 'self' file:; "
                                       "media-src 'self' file:; style-src 'unsafe-inline'"}});
    html += empty("link", {{"rel", "icon"}, {"href", "data:,"}});
    return element("head", html + text("title", header.title) + text("style", GALLERY_STYLE));
}

QByteArray factsHtml(const GalleryTotals &totals)
{
    QStringList facts;
    for (const KindRow &row : KINDS) {
        if (const int count = totals.count(row.kind))
            facts.append(counted(count, row.noun));
    }
    facts.append(humanSize(totals.size()));
    if (totals.count() > 0)
        facts.append(totals.period());
    QByteArray html;
    for (const QString &fact : facts)
        html += text("span", fact) + " "; // for screen readers
    return element("p", html, "facts");
}

QByteArray capacityHtml(const Capacity &capacity)
{
    if (!capacity.isKnown() || capacity.isElsewhere)
        return QByteArray();
    const int percent = capacity.usedPercent();
    const QByteArray used = element("span", escaped(QString("%1%").arg(percent)), QString(),
                                    {{"style", QString("width:%1%").arg(percent)}});
    const QString rest = QString(" of %1, %2% used").arg(humanSize(capacity.size)).arg(percent);
    return element("div",
                   element("div", used, "bar", {{"aria-hidden", "true"}})
                       + element("p", text("strong", humanSize(capacity.free) + " free") + escaped(rest)),
                   "capacity");
}

QByteArray linksHtml(const GalleryLinks &links)
{
    QByteArray html;
    const auto add = [&html](const QString &link, const char *title) {
        if (!link.isEmpty())
            html += element("a", title, QString(), {{"href", link}}) + " ";
    };
    add(links.index, "All pages");
    add(links.previous, "Previous page");
    add(links.next, "Next page");
    return html.isEmpty() ? html : element("nav", html);
}

QByteArray choiceHtml(const QString &id, const QString &title, int count)
{
    Attributes attributes = {{"type", "radio"}, {"name", "only"}, {"id", "only-" + id}};
    if (id == "all")
        attributes += Attributes{{"checked", "checked"}};
    return element("label",
                   empty("input", attributes) + escaped(title + " ") + text("span", QString::number(count)));
}

QByteArray iconHtml(const char *path, const char *title, const char *fill = "none")
{
    return element("svg", empty("path", {{"d", path}}), QString(),
                   {{"xmlns", "http://www.w3.org/2000/svg"},
                    {"viewBox", "0 0 24 24"},
                    {"role", "img"},
                    {"aria-label", title},
                    {"fill", fill},
                    {"stroke", "currentColor"},
                    {"stroke-width", "1.5"},
                    {"stroke-linecap", "round"},
                    {"stroke-linejoin", "round"}});
}

QByteArray iconHtml(Kind kind)
{
    return iconHtml(rowOf(kind).icon, rowOf(kind).title, kind == VIDEO ? "currentColor" : "none");
}

/// "Photo DCF_0001.jpg"
QString titleOf(const GalleryItem &item)
{
    return QString(rowOf(item.kind).title) + " " + printable(item.name);
}

/// The picture @p uri of @p item; an icon if that is empty.
QByteArray stillHtml(const GalleryItem &item, const QByteArray &uri)
{
    if (uri.isEmpty())
        return iconHtml(item.kind);
    const QByteArray html = R"(<img src=")" + uri + R"(" alt=")" + escaped(titleOf(item))
                            + R"(" loading="lazy" decoding="async"/>)";
    return item.kind == VIDEO ? html + element("span", iconHtml(VIDEO), "badge") : html;
}

/// A player for the file @p link. Browsers read none of the file until it is played.
QByteArray playerHtml(const GalleryItem &item, const QByteArray &uri, const QString &link)
{
    Attributes attributes = {
        {"src", link}, {"controls", "controls"}, {"preload", "none"}, {"aria-label", titleOf(item)}};
    if (item.kind == AUDIO)
        return iconHtml(AUDIO) + element("audio", QByteArray(), QString(), attributes);
    if (!uri.isEmpty())
        attributes.append({"poster", QString::fromLatin1(uri)});
    return element("video", QByteArray(), QString(), attributes);
}

/// @p html in a frame, marked if @p item is protected.
QByteArray pictureHtml(const GalleryItem &item, QByteArray html)
{
    if (item.isProtected)
        html += element("span", iconHtml(LOCK, "Protected"), "badge lock");
    return element("div", html, "picture");
}

QByteArray captionHtml(const GalleryItem &item, const GalleryPicture &picture)
{
    const QSize resolution = picture.resolution;
    QByteArray html = text("span", printable(item.name), "name");
    if (item.created.isValid())
        html +=
            element("time", escaped(dateText(item.created.date()) + ", " + item.created.toString("HH:mm")),
                    QString(), {{"datetime", item.created.toString(Qt::ISODate)}});
    if (!picture.playback.obstacle.isEmpty())
        html +=
            text("span", "Browsers do not play " + picture.playback.obstacle + "; download the file", "note");
    QByteArray size = text("span", humanSize(item.size));
    if (!resolution.isEmpty())
        size += " "
                + text("span",
                       QString("%1\u00a0\u00d7\u00a0%2").arg(resolution.width()).arg(resolution.height()));
    return element("figcaption", html + element("span", size, "size"));
}

QByteArray figureHtml(const QString &style, const QString &link, const QByteArray &content)
{
    return "\n" + element("figure", element("a", content, "card", {{"href", link}}), style);
}

/// "500 files · 2.0 GiB"
QString sizeText(int count, const QString &noun, qint64 size)
{
    return counted(count, noun) + QString(" %1 ").arg(QChar(0xb7)) + humanSize(size);
}

constexpr int HEAD_SIZE = 2048; // the link to the index may be long

} // namespace

void GalleryTotals::add(const GalleryItem &item)
{
    ++mCounts[item.kind];
    mSizes[item.kind] += item.size;
    addDate(item.created.date());
}

void GalleryTotals::add(const GalleryTotals &others)
{
    for (const KindRow &row : KINDS) {
        mCounts[row.kind] += others.mCounts[row.kind];
        mSizes[row.kind] += others.mSizes[row.kind];
    }
    addDate(others.mFirst);
    addDate(others.mLast);
}

void GalleryTotals::addDate(const QDate &date)
{
    if (!date.isValid())
        return;
    mFirst = mFirst.isValid() ? std::min(mFirst, date) : date;
    mLast = mLast.isValid() ? std::max(mLast, date) : date;
}

int GalleryTotals::count() const
{
    return std::accumulate(std::begin(mCounts), std::end(mCounts), 0);
}

qint64 GalleryTotals::size() const
{
    return std::accumulate(std::begin(mSizes), std::end(mSizes), qint64(0));
}

QString GalleryTotals::period() const
{
    return mFirst == mLast ? dateText(mFirst)
                           : dateText(mFirst) + " " + QChar(0x2013) + " " + dateText(mLast);
}

bool isGalleryPage(const QString &path)
{
    return beginningOf(path, HEAD_SIZE).contains(QByteArray(R"(name="generator" content=")") + GENERATOR);
}

bool isPartOfGallery(const QString &path, const QString &index)
{
    return isGalleryPage(path) && beginningOf(path, HEAD_SIZE).contains(linkToIndex(index));
}

QString encodedLink(const QString &path)
{
    return QUrl::toPercentEncoding(path, "/");
}

QByteArray galleryBeginning(const GalleryHeader &header)
{
    const QByteArray title = element("div",
                                     text("h1", header.title) + text("p", printable(header.location), "place")
                                         + factsHtml(header.totals) + linksHtml(header.links),
                                     "title");
    QByteArray html =
        "<!DOCTYPE html>\n"
        + opening("html", QString(), {{"lang", "en"}, {"xmlns", "http://www.w3.org/1999/xhtml"}})
        + headHtml(header) + opening("body") + element("header", title + capacityHtml(header.capacity))
        + opening("main");
    if (header.totals.count() == 0)
        html += text("p", "There are no files in the numbered folders of this storage device.", "empty");
    return html;
}

QByteArray galleryFilter(const GalleryTotals &totals)
{
    if (totals.count() == 0)
        return QByteArray();
    QByteArray html = text("legend", "Show") + choiceHtml("all", "All", totals.count());
    for (const KindRow &row : KINDS) {
        if (const int count = totals.count(row.kind))
            html += choiceHtml(row.id, row.plural, count);
    }
    return element("fieldset", html, "filter");
}

QByteArray folderBeginning(const QString &name, const GalleryTotals &totals)
{
    QStringList kinds;
    QByteArray heading =
        text("h2", printable(name)) + text("p", sizeText(totals.count(), "file", totals.size()), "all");
    for (const KindRow &row : KINDS) {
        if (const int count = totals.count(row.kind)) {
            kinds.append(row.id);
            heading += text("p", sizeText(count, row.noun, totals.size(row.kind)), row.id);
        }
    }
    return opening("section", kinds.join(' '), {{"aria-label", "Folder " + printable(name)}})
           + element("div", heading, "heading");
}

QByteArray gridBeginning(int count)
{
    return opening("div", "grid", {{"style", QString("--files:%1").arg(count)}});
}

QByteArray itemFigure(const GalleryItem &item, const GalleryPicture &picture, const QString &link)
{
    const char *style = rowOf(item.kind).id;
    const QByteArray caption = captionHtml(item, picture);
    if (!picture.playback.isPlayed)
        return figureHtml(style, link, pictureHtml(item, stillHtml(item, picture.uri)) + caption);
    // Players do not work within a link.
    const QByteArray card = pictureHtml(item, playerHtml(item, picture.uri, link))
                            + element("a", caption, QString(), {{"href", link}});
    return "\n" + element("figure", element("div", card, "card"), style);
}

QByteArray cardFigure(const GalleryCard &card, const QByteArray &uri)
{
    GalleryItem cover = card.first;
    cover.isProtected = false; // the card represents all items of the page
    const QByteArray caption =
        text("span", printable(card.title), "name") + text("span", card.totals.period())
        + text("span", sizeText(card.totals.count(), "file", card.totals.size()), "size");
    return figureHtml("page", card.link,
                      pictureHtml(cover, stillHtml(cover, uri)) + element("figcaption", caption));
}

QByteArray gridEnd()
{
    return closing("div");
}

QByteArray folderEnd()
{
    return closing("section");
}

QByteArray galleryEnd()
{
    const QString made = QString("Made by vornfh %1 on %2");
    return closing("main") + text("footer", made.arg(VORNFH_VERSION, dateText(QDate::currentDate())))
           + closing("body") + closing("html");
}

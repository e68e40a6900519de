// SPDX-License-Identifier: MIT
#include "device.h"
#include "filecheck.h"
#include "gallerystyle.h"
#include "table.h"
#include "vornfh.h"

#include <QFile>
#include <QJsonArray>
#include <QJsonObject>
#include <QLocale>
#include <QMap>
#include <QSaveFile>
#include <QUrl>
#include <QXmlStreamWriter>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <memory>

using namespace VORN_FILE_HANDLER;

namespace {

constexpr char GENERATOR[] = "vornfh gallery";

/// A picture of more bytes is not made part of the page.
constexpr qint64 LARGEST_PICTURE = 300 << 10;

enum Kind { PHOTO, VIDEO, SOUND, OTHER };
constexpr int KIND_COUNT = 4;
constexpr const char *KIND_IDS[KIND_COUNT] = {"photo", "video", "sound", "other"};
constexpr const char *KIND_TITLES[KIND_COUNT] = {"Photo", "Video", "Sound", "Other"};

/// Paths of SVG in a square of 24.
constexpr const char *KIND_ICONS[KIND_COUNT] = {
    ("M5 4h14a2 2 0 0 1 2 2v12a2 2 0 0 1-2 2H5a2 2 0 0 1-2-2V6a2 2 0 0 1 2-2Zm-2 12 5-5 4.5 4.5M11 14l4-4 6 "
     "6M15.5 7.5h.01"),
    "M8 5.5v13l10.5-6.5Z",
    "M4 10v4M8 7v10M12 4v16M16 8v8M20 10.5v3",
    "M13.5 3H7a2 2 0 0 0-2 2v14a2 2 0 0 0 2 2h10a2 2 0 0 0 2-2V8.5Zm0 0v5.5H19",
};

struct Item {
    Kind kind = PHOTO;
    QString path;
    QString thumbnail; // empty if there is none
    qint64 size = 0;
    QDateTime created; // local time
};

/// What there is to show, by the names of the folders.
using Folders = QMap<QString, QList<Item>>;

struct Request {
    eStorageType storage = STORAGE_MMC;
    std::string output;
    bool isForced = false;
    bool isProbing = false;
};

volatile std::sig_atomic_t stopRequested = 0;

/// Lets the page in the making go when the tool is interrupted.
void catchStopSignals()
{
    struct sigaction action = {};
    action.sa_handler = [](int) { stopRequested = 1; };
    for (const int number : {SIGINT, SIGTERM, SIGHUP})
        ::sigaction(number, &action, nullptr);
}

// What there is to show

/// The files of the storage. The library's listing would create a folder where there is none.
QJsonArray filesOf(eStorageType storage)
{
    const QString location = locationOf(storage);
    struct stat status = {};
    if (!readStatus(location, status))
        throw Failure(QString("%1: %2").arg(location, errorText(errno)));
    if (!S_ISDIR(status.st_mode))
        throw Failure(QString("%1: %2").arg(location, errorText(ENOTDIR)));
    requireReadableFolders(storage);
    return listedFolders(storage).isEmpty() ? QJsonArray()
                                            : VornFileHandler::getJSONDirectoryContents(storage);
}

QString withoutExtension(const QString &path)
{
    return path.left(path.lastIndexOf('.'));
}

Kind kindOf(int type)
{
    switch (type) {
    case FILE_TYPE_IMAGE: return PHOTO;
    case FILE_TYPE_VIDEO:
    case FILE_TYPE_VIDEO_MKV: return VIDEO;
    case FILE_TYPE_AUDIO: return SOUND;
    default: return OTHER;
    }
}

Item toItem(const QJsonObject &file, const QString &location)
{
    Item item;
    item.path = location + "/" + file["filename"].toString();
    item.size = file["size"].toString().toLongLong(nullptr, 16);
    item.created = QDateTime(QDate::fromString(file["moddate"].toString(), Qt::ISODate),
                             QTime::fromString(file["modtime"].toString(), Qt::ISODate));
    item.kind = kindOf(file["type"].toInt());
    return item;
}

bool isThumbnail(const QJsonValue &file)
{
    return file["type"].toInt() == FILE_TYPE_THUMB;
}

/// The names of the thumbnails by their files' names without the extension. A sound has none.
QMap<QString, QString> thumbnailsIn(const QJsonArray &files)
{
    QMap<QString, QString> all;
    for (const QJsonValue &file : files) {
        if (isThumbnail(file))
            all.insert(withoutExtension(file["filename"].toString()), file["filename"].toString());
    }
    QMap<QString, QString> used;
    for (const QJsonValue &file : files) {
        const QString base = withoutExtension(file["filename"].toString());
        if (!isThumbnail(file) && kindOf(file["type"].toInt()) != SOUND && all.contains(base))
            used.insert(base, all[base]);
    }
    return used;
}

/// Every file of the storage. A thumbnail is the picture of its photo or video, and a file of its own only
/// where there is neither.
Folders foldersOf(eStorageType storage)
{
    const QJsonArray files = filesOf(storage);
    const QString location = locationOf(storage);
    const QMap<QString, QString> thumbnails = thumbnailsIn(files);
    Folders folders;
    for (const QJsonValue &file : files) {
        const QString name = file["filename"].toString();
        const QString folder = name.section('/', 0, -2);
        const QString thumbnail = thumbnails.value(withoutExtension(name));
        // With an empty suffix the location and the folder above it are listed as numbered folders, too.
        if (folder.isEmpty() || folder.contains('/') || name == thumbnail)
            continue;
        Item item = toItem(file.toObject(), location);
        if (item.kind != SOUND && !thumbnail.isEmpty())
            item.thumbnail = location + "/" + thumbnail;
        folders[folder].append(item);
    }
    return folders;
}

/// The picture at @p path as a data: URI; empty if it is none of JPEG or PNG, or a big one.
QString dataUri(const QString &path)
{
    QFile file(path);
    if (path.isEmpty() || !file.open(QIODevice::ReadOnly) || file.size() > LARGEST_PICTURE)
        return QString();
    const QByteArray data = file.read(LARGEST_PICTURE);
    const char *type = data.startsWith("\xff\xd8\xff") ? "jpeg"
                       : data.startsWith("\x89PNG")    ? "png"
                                                       : nullptr;
    return type ? QString("data:image/%1;base64,%2").arg(type, QString(data.toBase64())) : QString();
}

QString pictureOf(const Item &item)
{
    const QString uri = dataUri(item.thumbnail);
    return uri.isEmpty() && item.kind == PHOTO ? dataUri(item.path) : uri;
}

/// "640 \u00d7 480" in one piece; empty if it is not known. The path of a video reaches a shell.
QString resolutionOf(const Item &item, bool isProbing)
{
    const bool isAsked =
        item.kind == PHOTO || (item.kind == VIDEO && isProbing && unsafeCharacter(item.path) < 0);
    if (!isAsked)
        return QString();
    Metadata record;
    VornFileHandler::getMetadata(QFileInfo(item.path), record);
    return record.mWidth > 0 && record.mHeight > 0
               ? QString("%1\u00a0\u00d7\u00a0%2").arg(record.mWidth).arg(record.mHeight)
               : QString();
}

// The page

QString counted(int count, const QString &what)
{
    return QString("%1 %2%3").arg(count).arg(what, count == 1 ? "" : "s");
}

QString dateText(const QDate &date)
{
    return QLocale::c().toString(date, "d MMM yyyy");
}

/// "1 Feb 2025 - 3 Mar 2025", of one day that day.
QString periodOf(const QList<Item> &items)
{
    QDate first;
    QDate last;
    for (const Item &item : items) {
        const QDate date = item.created.date();
        first = !first.isValid() || date < first ? date : first;
        last = !last.isValid() || last < date ? date : last;
    }
    return first == last ? dateText(first) : dateText(first) + " " + QChar(0x2013) + " " + dateText(last);
}

QString sizeOf(const QList<Item> &items)
{
    qint64 size = 0;
    for (const Item &item : items)
        size += item.size;
    return humanSize(size);
}

int countOf(const QList<Item> &items, Kind kind)
{
    return static_cast<int>(
        std::count_if(items.begin(), items.end(), [kind](const Item &item) { return item.kind == kind; }));
}

/// HTML that is XML as well. Only elements that HTML never closes may be left empty.
class Page
{
public:
    Page(QIODevice *device, const Request &request) : mXml(device), mRequest(request)
    {
        mXml.setCodec("UTF-8");
        mXml.writeDTD("<!DOCTYPE html>\n");
    }

    /// Throws Failure if the tool is interrupted.
    void write(const Folders &folders);

private:
    using Attributes = QList<QPair<QString, QString>>;

    void open(const QString &element, const QString &style = QString(), const Attributes &attributes = {});
    void close() { mXml.writeEndElement(); }
    void empty(const QString &element, const Attributes &attributes);
    void text(const QString &element, const QString &text, const QString &style = QString());
    void writeHead(const QString &title);
    void writeHeader(const QList<Item> &items);
    void writeCapacity();
    void writeFilter(const QList<Item> &items);
    void writeChoice(const QString &id, const QString &title, int count);
    void writeFolder(const QString &name, const QList<Item> &items);
    void writeItem(const Item &item);
    void writePicture(const Item &item);
    void writeCaption(const Item &item);
    void writeIcon(Kind kind);
    QString title() const;

    QXmlStreamWriter mXml;
    const Request &mRequest;
};

void Page::open(const QString &element, const QString &style, const Attributes &attributes)
{
    mXml.writeStartElement(element);
    if (!style.isEmpty())
        mXml.writeAttribute("class", style);
    for (const auto &attribute : attributes)
        mXml.writeAttribute(attribute.first, attribute.second);
}

void Page::empty(const QString &element, const Attributes &attributes)
{
    mXml.writeEmptyElement(element);
    for (const auto &attribute : attributes)
        mXml.writeAttribute(attribute.first, attribute.second);
}

void Page::text(const QString &element, const QString &text, const QString &style)
{
    open(element, style);
    mXml.writeCharacters(text);
    close();
}

QString Page::title() const
{
    static const QString TITLES[] = {"Internal memory", "SD card", "USB storage"};
    return TITLES[mRequest.storage];
}

void Page::write(const Folders &folders)
{
    QList<Item> items;
    for (const QList<Item> &folder : folders)
        items += folder;
    open("html", QString(), {{"lang", "en"}, {"xmlns", "http://www.w3.org/1999/xhtml"}});
    writeHead(title());
    open("body");
    writeHeader(items);
    open("main");
    if (items.isEmpty())
        text("p", "There are no files in the numbered folders of this storage.", "empty");
    else
        writeFilter(items);
    for (auto folder = folders.begin(); folder != folders.end(); ++folder)
        writeFolder(folder.key(), *folder);
    close();
    text("footer", QString("Made by vornfh %1 on %2").arg(VORNFH_VERSION, dateText(QDate::currentDate())));
    mXml.writeEndDocument();
}

void Page::writeHead(const QString &title)
{
    open("head");
    empty("meta", {{"charset", "utf-8"}});
    empty("meta", {{"name", "generator"}, {"content", QString(GENERATOR) + " " VORNFH_VERSION}});
    empty("meta", {{"name", "viewport"}, {"content", "width=device-width, initial-scale=1"}});
    empty("meta", {{"name", "color-scheme"}, {"content", "light dark"}});
    // No browser fetches anything for the page, whatever may have got into it.
    empty("meta", {{"http-equiv", "Content-Security-Policy"},
                   {"content", "default-src 'none'; img-src data:; style-src 'unsafe-inline'"}});
    empty("link", {{"rel", "icon"}, {"href", "data:,"}});
    text("title", title);
    text("style", GALLERY_STYLE);
    close();
}

void Page::writeHeader(const QList<Item> &items)
{
    open("header");
    open("div", "title");
    text("h1", title());
    text("p", printable(locationOf(mRequest.storage)), "place");
    open("p", "facts");
    QStringList facts;
    for (int kind = 0; kind < KIND_COUNT; ++kind) {
        if (const int count = countOf(items, static_cast<Kind>(kind)))
            facts.append(counted(count, KIND_IDS[kind]));
    }
    facts.append(sizeOf(items));
    if (!items.isEmpty())
        facts.append(periodOf(items));
    for (const QString &fact : facts) {
        text("span", fact);
        mXml.writeCharacters(" "); // for who listens to the page
    }
    close();
    close();
    writeCapacity();
    close();
}

/// Of a device that the library knows, if the location lies on it.
void Page::writeCapacity()
{
    const eStorageType storage = mRequest.storage;
    QString *const blocks[] = {&VornFileHandler::mMmcBlk, &VornFileHandler::mSdBlk,
                               &VornFileHandler::mUsbBlk};
    if (blocks[storage]->isEmpty())
        *blocks[storage] = blockDeviceOf(locationOf(storage));
    struct stat asked = {};
    struct stat holder = {};
    const bool isKnown = !blocks[storage]->isEmpty() && VornFileHandler::isMounted(storage)
                         && readStatus(VornFileHandler::typeToMountPath(storage), asked)
                         && readStatus(locationOf(storage), holder) && asked.st_dev == holder.st_dev;
    const qint64 size = isKnown ? VornFileHandler::getStorageSize(storage) : 0;
    if (size <= 0)
        return;
    const int percent = 100 - VornFileHandler::getRemainingPercent(storage);
    open("div", "capacity");
    open("div", "bar", {{"aria-hidden", "true"}});
    open("span", QString(), {{"style", QString("width:%1%").arg(percent)}});
    mXml.writeCharacters(QString("%1 %").arg(percent));
    close();
    close();
    open("p");
    text("strong", humanSize(VornFileHandler::getRemainingBytes(storage)) + " free");
    mXml.writeCharacters(QString(" of %1, %2 % used").arg(humanSize(size)).arg(percent));
    close();
    close();
}

void Page::writeFilter(const QList<Item> &items)
{
    open("fieldset", "filter");
    text("legend", "Show");
    writeChoice("all", "All", items.size());
    for (int kind = 0; kind < KIND_COUNT; ++kind) {
        const int count = countOf(items, static_cast<Kind>(kind));
        if (count > 0)
            writeChoice(KIND_IDS[kind], QString(KIND_TITLES[kind]) + "s", count);
    }
    close();
}

void Page::writeChoice(const QString &id, const QString &title, int count)
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

void Page::writeFolder(const QString &name, const QList<Item> &items)
{
    open("section", QString(), {{"aria-label", "Folder " + printable(name)}});
    open("div", "heading");
    text("h2", printable(name));
    text("p", counted(items.size(), "file") + QString(" %1 ").arg(QChar(0xb7)) + sizeOf(items));
    close();
    open("div", "grid");
    for (const Item &item : items) {
        writeItem(item);
        if (stopRequested)
            throw Failure("interrupted, no page was written");
    }
    close();
    close();
}

void Page::writeItem(const Item &item)
{
    const QString folder = QFileInfo(absolutePath(QString::fromStdString(mRequest.output))).path();
    const QString link = QDir(folder).relativeFilePath(item.path);
    mXml.writeCharacters("\n");
    open("figure", KIND_IDS[item.kind]);
    open("a", QString(), {{"href", QUrl::toPercentEncoding(link, "/")}});
    writePicture(item);
    writeCaption(item);
    close();
    close();
}

void Page::writePicture(const Item &item)
{
    const QString picture = pictureOf(item);
    open("div", "picture");
    if (!picture.isEmpty())
        empty("img",
              {{"src", picture},
               {"alt", QString(KIND_TITLES[item.kind]) + " " + printable(QFileInfo(item.path).fileName())},
               {"loading", "lazy"},
               {"decoding", "async"}});
    if (picture.isEmpty())
        writeIcon(item.kind);
    else if (item.kind == VIDEO) {
        open("span", "badge");
        writeIcon(item.kind);
        close();
    }
    close();
}

void Page::writeIcon(Kind kind)
{
    open("svg", QString(),
         {{"xmlns", "http://www.w3.org/2000/svg"},
          {"viewBox", "0 0 24 24"},
          {"role", "img"},
          {"aria-label", KIND_TITLES[kind]},
          {"fill", kind == VIDEO ? "currentColor" : "none"},
          {"stroke", "currentColor"},
          {"stroke-width", "1.5"},
          {"stroke-linecap", "round"},
          {"stroke-linejoin", "round"}});
    empty("path", {{"d", KIND_ICONS[kind]}});
    close();
}

void Page::writeCaption(const Item &item)
{
    open("figcaption");
    text("span", printable(QFileInfo(item.path).fileName()), "name");
    if (item.created.isValid()) {
        open("time", QString(), {{"datetime", item.created.toString(Qt::ISODate)}});
        mXml.writeCharacters(dateText(item.created.date()) + ", " + item.created.toString("HH:mm"));
        close();
    }
    const QString resolution = resolutionOf(item, mRequest.isProbing);
    open("span", "size");
    text("span", humanSize(item.size));
    if (!resolution.isEmpty()) {
        mXml.writeCharacters(" ");
        text("span", resolution);
    }
    close();
    close();
}

// The file

bool isGallery(const QString &path)
{
    constexpr int BEGINNING = 512;
    QFile file(path);
    return file.open(QIODevice::ReadOnly)
           && file.read(BEGINNING).contains(QByteArray(R"(name="generator" content=")") + GENERATOR);
}

QString outputPath(const Request &request)
{
    const QString path = absolutePath(fromCommandLine(request.output, "--output"));
    if (!path.endsWith(".html") && !path.endsWith(".htm"))
        throw UsageError(QString("--output: '%1' does not end in .html").arg(path));
    struct stat status = {};
    if (!readStatus(path, status)) {
        if (errno == ENOENT)
            return path;
        throw Failure(QString("%1: %2").arg(path, errorText(errno)));
    }
    if (!S_ISREG(status.st_mode))
        throw Failure(path + ": exists and is no regular file");
    if (!request.isForced && !isGallery(path))
        throw Failure(path + ": exists and is no gallery: only --force replaces it");
    return path;
}

void writeGallery(const Request &request)
{
    const QString path = outputPath(request);
    const Folders folders = foldersOf(request.storage);
    catchStopSignals();
    QSaveFile file(path);
    if (!file.open(QIODevice::WriteOnly))
        throw Failure(QString("%1: cannot be written: %2").arg(path, file.errorString()));
    Page(&file, request).write(folders);
    if (!file.commit())
        throw Failure(QString("%1: cannot be written: %2").arg(path, file.errorString()));
    printLine(printable(path));
}

} // namespace

void addGalleryCommand(CLI::App &app, StorageOptions &storages, ExitCode &)
{
    const auto request = std::make_shared<Request>();
    CLI::App *command = app.add_subcommand(
        "gallery",
        "Writes a page of HTML with the files in the numbered folders of a storage, complete in one file.\n"
        "Nothing is created on the storage");
    addStorageArgument(*command, request->storage);
    command->add_option("-o,--output", request->output, "The page; a gallery of that name is replaced")
        ->type_name("FILE")
        ->required();
    command->add_flag("--force", request->isForced, "Replace a file that is no gallery");
    command->add_flag(
        "--probe", request->isProbing,
        "Show the size of the picture for videos too: one run of ffprobe for each, but not for\n"
        "those whose path a shell would take apart");
    command->callback([request, &storages] {
        storages.require(request->storage);
        writeGallery(*request);
    });
}

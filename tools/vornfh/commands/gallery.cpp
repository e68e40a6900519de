// SPDX-License-Identifier: MIT
#include "commands.h"
#include "device.h"
#include "durable.h"
#include "files.h"
#include "folders.h"
#include "gallerypage.h"
#include "media.h"
#include "output.h"
#include "paths.h"
#include "signals.h"
#include "text.h"

#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonObject>

#include <cerrno>
#include <memory>

using namespace VORN_FILE_HANDLER;

namespace {

/// A larger picture is not embedded in the page.
constexpr qint64 LARGEST_PICTURE = 300 << 10;

struct Request {
    eStorageType storage = STORAGE_MMC;
    std::string output;
    bool isForced = false;
    bool isProbing = false;
};

QString withoutExtension(const QString &path)
{
    return path.left(path.lastIndexOf('.'));
}

GalleryItem toItem(const QJsonObject &file, const QString &location)
{
    GalleryItem item;
    item.path = location + "/" + file["filename"].toString();
    item.size = file["size"].toString().toLongLong(nullptr, 16);
    item.created = QDateTime(QDate::fromString(file["moddate"].toString(), Qt::ISODate),
                             QTime::fromString(file["modtime"].toString(), Qt::ISODate));
    item.kind = kindOf(item.path);
    if (item.kind == THUMBNAIL) // one without its photo or video
        item.kind = OTHER;
    return item;
}

/// Maps the name of each photo or video, without its extension, to the name of its thumbnail.
QMap<QString, QString> thumbnailsIn(const QJsonArray &files)
{
    QMap<QString, QString> all;
    QMap<QString, QString> used;
    for (const QJsonValue &file : files) {
        const QString name = file["filename"].toString();
        if (kindOf(name) == THUMBNAIL)
            all.insert(withoutExtension(name), name);
    }
    for (const QJsonValue &file : files) {
        const QString name = file["filename"].toString();
        const QString base = withoutExtension(name);
        if (kindOf(name) != THUMBNAIL && kindOf(name) != AUDIO && all.contains(base))
            used.insert(base, all[base]);
    }
    return used;
}

/// Every file in the numbered folders. A thumbnail is the picture of its photo or video, and an item only if
/// it has neither.
QMap<QString, QList<GalleryItem>> itemsOf(const Storage &storage)
{
    if (selectedFolders(storage, DIRECTORY_FILTER_DCIM).isEmpty())
        return {};
    const QJsonArray files = VornFileHandler::getJSONDirectoryContents(storage.type);
    const QMap<QString, QString> thumbnails = thumbnailsIn(files);
    QMap<QString, QList<GalleryItem>> folders;
    for (const QJsonValue &file : files) {
        const QString name = file["filename"].toString();
        const QString folder = name.section('/', 0, -2);
        const QString thumbnail = thumbnails.value(withoutExtension(name));
        // With an empty suffix, the location and the folder above it are listed as numbered folders too.
        if (folder.isEmpty() || folder.contains('/') || name == thumbnail)
            continue;
        GalleryItem item = toItem(file.toObject(), storage.location);
        if (item.kind != AUDIO && !thumbnail.isEmpty())
            item.thumbnail = storage.location + "/" + thumbnail;
        folders[folder].append(item);
    }
    return folders;
}

/// The picture @p path as a data: URI; empty if it is neither JPEG nor PNG, or too large.
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

/// Invalid if it is not known. A video whose path is not safe in a shell is skipped: the library passes it to
/// one.
QSize resolutionOf(const GalleryItem &item, bool isProbing)
{
    const bool isRead =
        item.kind == PHOTO || (item.kind == VIDEO && isProbing && unsafeCharacter(item.path) < 0);
    if (!isRead)
        return QSize();
    Metadata record;
    VornFileHandler::getMetadata(QFileInfo(item.path), record);
    return {record.mWidth, record.mHeight};
}

GalleryPicture pictureOf(const GalleryItem &item, bool isProbing)
{
    if (isStopped())
        throw Failure("interrupted; no page was written");
    const QString thumbnail = dataUri(item.thumbnail);
    return {thumbnail.isEmpty() && item.kind == PHOTO ? dataUri(item.path) : thumbnail,
            resolutionOf(item, isProbing)};
}

QString outputPath(const Request &request)
{
    const QString path = absolutePath(fromCommandLine(request.output, "--output"));
    if (!path.endsWith(".html") && !path.endsWith(".htm"))
        throw UsageError(QString("--output: '%1' does not end in .html or .htm").arg(path));
    struct stat status = {};
    if (!readStatus(path, status)) {
        if (errno == ENOENT)
            return path;
        throw Failure(QString("%1: %2").arg(path, errorText(errno)));
    }
    if (!S_ISREG(status.st_mode))
        throw Failure(path + ": exists and is not a regular file");
    if (!request.isForced && !isGalleryPage(path))
        throw Failure(path + ": exists and is not a vornfh gallery; use --force to replace it");
    return path;
}

Gallery collect(const Storage &storage, const QString &path)
{
    static const QString TITLES[] = {"Internal memory", "SD card", "USB storage"};
    Gallery gallery;
    gallery.title = TITLES[storage.type];
    gallery.location = storage.location;
    gallery.folders = itemsOf(storage);
    gallery.capacity = capacityOf(storage, deviceOf(storage));
    gallery.folder = QFileInfo(path).path();
    return gallery;
}

/// The path that a symbolic link leads to; @p path if it is not a link.
QString linkTarget(const QString &path)
{
    const QFileInfo file(path);
    return file.isSymLink() ? linkTarget(file.symLinkTarget()) : path;
}

void writePage(int descriptor, const Gallery &gallery, const QString &path, bool isProbing)
{
    QFile file;
    const bool isWritten =
        file.open(descriptor, QIODevice::WriteOnly)
        && GalleryPage(&file, gallery,
                       [isProbing](const GalleryItem &item) { return pictureOf(item, isProbing); })
               .write()
        && file.flush();
    if (!isWritten)
        throw Failure(QString("%1: cannot be written: %2").arg(path, file.errorString()));
}

/// Gives the file @p page the mode of @p target, or of a new file if there is none.
void setMode(int page, const QString &target)
{
    struct stat status = {};
    ::fchmod(page, readStatus(target, status) ? status.st_mode & 07777 : defaultMode(0666));
}

ExitCode writeGallery(const Storage &storage, const Request &request)
{
    const QString path = outputPath(request);
    const Gallery gallery = collect(storage, path);
    catchStopSignals();
    const QString target = linkTarget(path);
    const QString folder = QFileInfo(target).path();
    removeLeftovers(folder);
    TemporaryFile page(folder, path);
    writePage(page.descriptor(), gallery, path, request.isProbing);
    setMode(page.descriptor(), target);
    replaceFile(page, target);
    printDone(printable(path));
    return DONE;
}

} // namespace

void addGallery(CommandLine &line)
{
    const auto request = std::make_shared<Request>();
    const auto run = [&line, request] {
        return writeGallery(line.storages().require(request->storage), *request);
    };
    CLI::App &command = line.add("gallery",
                                 "Writes a self-contained HTML page that shows the files in the numbered "
                                 "folders of a storage device.\n"
                                 "Apart from the page, nothing is created on the storage device",
                                 run);
    addStorageArgument(command, request->storage);
    command.add_option("-o,--output", request->output, "The page; an existing gallery is replaced")
        ->type_name("FILE")
        ->required();
    command.add_flag("--force", request->isForced, "Replace a file that is not a gallery");
    command.add_flag(
        "--probe", request->isProbing,
        "Show the frame size of videos too: starts ffprobe for each video whose path is safe in a\n"
        "shell");
}

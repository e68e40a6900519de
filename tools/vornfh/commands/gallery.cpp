// SPDX-License-Identifier: MIT
#include "commands.h"
#include "device.h"
#include "dryrun.h"
#include "durable.h"
#include "files.h"
#include "folders.h"
#include "galleryfiles.h"
#include "gallerypage.h"
#include "jpegsize.h"
#include "media.h"
#include "objects.h"
#include "output.h"
#include "paths.h"
#include "playback.h"
#include "report.h"
#include "signals.h"
#include "text.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QHash>
#include <QSet>
#include <QVector>

#include <algorithm>
#include <cerrno>
#include <memory>
#include <numeric>

#include <fcntl.h>

using namespace VORN_FILE_HANDLER;

namespace {

/// A larger picture is not embedded in a page.
constexpr qint64 LARGEST_PICTURE = 300 << 10;
/// The same for the index of the pages, which shows one picture for each page.
constexpr qint64 LARGEST_COVER = 32 << 10;
/// The largest number of files on one page.
constexpr int LARGEST_COUNT = 10000;
/// The number of files in one grid. Browsers lay out a grid when it comes into view. Every number of
/// columns in the style sheet divides this number, so that each row is full.
constexpr int GRID = 240;

struct Request {
    eStorageType storage = STORAGE_MMC;
    std::string output;
    int pageSize = 128; // MiB
    bool isForced = false;
    bool isProbing = false;
    bool isDryRun = false;
};

// What is on the storage device

using Items = QVector<GalleryItem>;

/// A numbered folder with files.
struct Folder {
    QString path;
    GalleryTotals totals;
    qint64 length; // of its part of a page
};

/// The length of @p item on a page, estimated from the sizes of its files.
qint64 lengthOf(const GalleryItem &item)
{
    constexpr qint64 MARKUP = 1 << 10;
    qint64 picture = 0;
    if (item.thumbnailSize >= 0 && item.thumbnailSize <= LARGEST_PICTURE)
        picture = item.thumbnailSize;
    else if (item.kind == PHOTO && item.size <= LARGEST_PICTURE)
        picture = item.size;
    return MARKUP + picture * 4 / 3;
}

GalleryItem toItem(const QFileInfo &file)
{
    GalleryItem item;
    item.name = file.fileName();
    item.size = file.size();
    item.created = file.birthTime().isValid() ? file.birthTime() : file.metadataChangeTime();
    item.kind = kindOf(item.name);
    return item;
}

/// The files in @p folder, oldest first. A thumbnail is the picture of the files that share its base name,
/// except audio files. It is an item of its own only if there are no such files.
Items itemsIn(const QString &folder)
{
    const QList<QFileInfo> files =
        VornFileHandler::getDirectoryContents(folder, QStringList(), QDir::Time | QDir::Reversed);
    requireReadToEnd(folder);
    const ProtectedObjects marked(files);
    QHash<QString, qint64> thumbnails; // the sizes, by the name without the extension
    QSet<QString> illustrated;
    for (const QFileInfo &file : files) {
        const Kind kind = kindOf(file.fileName());
        if (kind == THUMBNAIL)
            thumbnails.insert(file.completeBaseName(), file.size());
        else if (kind != AUDIO)
            illustrated.insert(file.completeBaseName());
    }
    Items items;
    for (const QFileInfo &file : files) {
        GalleryItem item = toItem(file);
        const QString base = file.completeBaseName();
        if (item.kind == THUMBNAIL && illustrated.contains(base))
            continue;
        if (item.kind == THUMBNAIL)
            item.kind = OTHER;
        else if (item.kind != AUDIO)
            item.thumbnailSize = thumbnails.value(base, -1);
        item.isProtected = marked.contains(QFile::encodeName(item.name));
        items.append(item);
    }
    return items;
}

QVector<Folder> foldersOf(const Storage &storage)
{
    QVector<Folder> folders;
    for (const QFileInfo &info : selectedFolders(storage, DIRECTORY_FILTER_DCIM)) {
        // With an empty suffix, the location and the folder above it are listed as numbered folders too.
        if (info.fileName() == "." || info.fileName() == "..")
            continue;
        Folder folder = {storage.location + "/" + info.fileName(), {}, 0};
        for (const GalleryItem &item : itemsIn(folder.path)) {
            folder.totals.add(item);
            folder.length += lengthOf(item);
        }
        if (folder.totals.count() > 0)
            folders.append(folder);
    }
    return folders;
}

// The pictures

/// The picture @p path as a data: URI; empty if it is neither JPEG nor PNG, or larger than @p limit.
QByteArray dataUri(const QString &path, qint64 limit)
{
    struct stat status = {};
    const Descriptor file = openFile(path, O_RDONLY | O_NONBLOCK);
    if (!file.isOpen() || ::fstat(file.get(), &status) != 0 || status.st_size > limit)
        return QByteArray();
    QByteArray data(static_cast<int>(status.st_size), Qt::Uninitialized);
    readAt(file.get(), 0, data);
    switch (imageFormat(data)) {
    case ImageFormat::Jpeg: return "data:image/jpeg;base64," + data.toBase64();
    case ImageFormat::Png: return "data:image/png;base64," + data.toBase64();
    default: return QByteArray();
    }
}

/// Returns whether browsers show the file @p path as a picture.
bool isPicture(const QString &path)
{
    const Descriptor file = openFile(path, O_RDONLY | O_NONBLOCK);
    QByteArray start(8, '\0');
    if (!file.isOpen() || !readAt(file.get(), 0, start))
        return false;
    const ImageFormat format = imageFormat(start);
    return format == ImageFormat::Jpeg || format == ImageFormat::Png;
}

/// The picture of @p item, which is the file @p path: its thumbnail or, for a photo without a usable one, the
/// photo itself. A photo larger than @p limit is not embedded; the page loads it from @p link.
QByteArray uriOf(const GalleryItem &item, const QString &path, const QString &link, qint64 limit)
{
    const QByteArray thumbnail = item.thumbnailSize < 0 ? QByteArray() : dataUri(thumbnailOf(path), limit);
    if (!thumbnail.isEmpty() || item.kind != PHOTO)
        return thumbnail;
    const QByteArray photo = dataUri(path, limit);
    return photo.isEmpty() && isPicture(path) ? link.toUtf8() : photo;
}

/// Empty if the resolution is not known. A video whose path is not safe in a shell is skipped: the library
/// passes the path to a shell.
QSize resolutionOf(Kind kind, const QString &path, bool isProbing)
{
    const bool isRead = kind == PHOTO || (kind == VIDEO && isProbing && unsafeCharacter(path) < 0);
    if (!isRead)
        return QSize();
    const auto size = kind == PHOTO ? plainJpegSize(path) : std::nullopt;
    if (size)
        return *size;
    Metadata record;
    VornFileHandler::getMetadata(QFileInfo(path), record);
    return {record.mWidth, record.mHeight};
}

QString outputPath(const Request &request)
{
    const QString path = absolutePath(requiredPath(request.output, "--output: "));
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

// The pages

/// Files of one folder that are shown on one page.
struct Section {
    QString folder; // path
    QString link;   // from the page to the folder; ends in "/" unless it is empty
    Items items;
    bool isProbing;
};

GalleryTotals totalsOf(const Items &items)
{
    GalleryTotals totals;
    for (const GalleryItem &item : items)
        totals.add(item);
    return totals;
}

/// The link from the page @p page to the files in @p folder, without their names.
QString linkTo(const QString &folder, const QString &page)
{
    return encodedLink(QDir(QFileInfo(page).path()).relativeFilePath(folder + "/x")).chopped(1);
}

QByteArray figureOf(const GalleryItem &item, const Section &section)
{
    const QString path = section.folder + "/" + item.name;
    const QString link = section.link + encodedLink(item.name);
    return itemFigure(item,
                      {uriOf(item, path, link, LARGEST_PICTURE),
                       resolutionOf(item.kind, path, section.isProbing), playbackOf(path)},
                      link);
}

void writeSection(PageFile &page, const Section &section)
{
    const int count = section.items.size();
    page.write(folderBeginning(QFileInfo(section.folder).fileName(), totalsOf(section.items)));
    for (int begin = 0; begin < count; begin += GRID) {
        const int end = std::min(begin + GRID, count);
        page.write(gridBeginning(end - begin));
        for (int i = begin; i < end; ++i)
            page.write(figureOf(section.items.at(i), section));
        page.write(gridEnd());
    }
    page.write(folderEnd());
}

/// A gallery to be written.
struct Job {
    QString path; // of the page or index
    GalleryHeader header;
    QVector<Folder> folders;
    qint64 pageSize; // bytes
    bool isProbing;

    bool isOnePage() const
    {
        const auto add = [](qint64 sum, const Folder &folder) { return sum + folder.length; };
        return header.totals.count() <= LARGEST_COUNT
               && std::accumulate(folders.begin(), folders.end(), qint64(0), add) <= pageSize;
    }
};

void writeOnePage(const Job &job)
{
    PageFile page(job.path);
    page.write(galleryBeginning(job.header) + galleryFilter(job.header.totals));
    for (const Folder &folder : job.folders)
        writeSection(page, {folder.path, linkTo(folder.path, job.path), itemsIn(folder.path), job.isProbing});
    page.write(galleryEnd());
    page.finish();
}

/// Divides the items of a folder into those of its pages.
QVector<Items> divided(const Items &items, qint64 pageSize)
{
    QVector<Items> parts;
    for (int begin = 0, end = 0; begin < items.size(); begin = end) {
        qint64 length = lengthOf(items.at(end++));
        while (end < items.size() && end - begin < LARGEST_COUNT
               && (length += lengthOf(items.at(end))) <= pageSize)
            ++end;
        parts.append(items.mid(begin, end - begin));
    }
    return parts;
}

/// A page, as the index shows it and as it is written.
struct Part {
    GalleryCard card;
    QString folder; // path
};

void writePart(const Job &job, const PageFolder &pages, int number, bool isLast, const Part &part,
               const Items &items)
{
    GalleryHeader header = {job.header.title + ", folder " + printable(part.card.title),
                            part.folder,
                            Capacity(),
                            part.card.totals,
                            {}};
    header.links.index = encodedLink(pages.linkToIndex());
    header.links.previous = number > 1 ? PageFolder::pageName(number - 1) : QString();
    header.links.next = isLast ? QString() : PageFolder::pageName(number + 1);
    PageFile page(pages.pagePath(number));
    page.write(galleryBeginning(header) + galleryFilter(header.totals));
    writeSection(page, {part.folder, linkTo(part.folder, pages.pagePath(number)), items, job.isProbing});
    page.write(galleryEnd());
    page.finish();
}

QVector<Part> writeParts(const Job &job, const PageFolder &pages)
{
    QVector<Part> written;
    for (int f = 0; f < job.folders.size(); ++f) {
        const QString &folder = job.folders.at(f).path;
        const QVector<Items> parts = divided(itemsIn(folder), job.pageSize);
        for (int i = 0; i < parts.size(); ++i) {
            const int number = written.size() + 1;
            const bool isLast = f == job.folders.size() - 1 && i == parts.size() - 1;
            QString title = QFileInfo(folder).fileName();
            if (parts.size() > 1)
                title += QString(" (%1 of %2)").arg(i + 1).arg(parts.size());
            const Items &items = parts.at(i);
            written.append(
                {{title, encodedLink(pages.linkTo(number)), totalsOf(items), items.first()}, folder});
            writePart(job, pages, number, isLast, written.last(), items);
        }
    }
    return written;
}

void writeIndex(const Job &job, const QVector<Part> &parts)
{
    PageFile page(job.path);
    page.write(galleryBeginning(job.header) + gridBeginning(parts.size()));
    for (const Part &part : parts) {
        const QString &name = part.card.first.name;
        const QString link = linkTo(part.folder, job.path) + encodedLink(name);
        page.write(
            cardFigure(part.card, uriOf(part.card.first, part.folder + "/" + name, link, LARGEST_COVER)));
    }
    page.write(gridEnd() + galleryEnd());
    page.finish();
}

Job jobOf(const Storage &storage, const Request &request)
{
    constexpr qint64 MIB = 1 << 20;
    Job job = {outputPath(request), {}, foldersOf(storage), request.pageSize * MIB, request.isProbing};
    job.header = {storage.title, storage.location, capacityOf(storage, deviceOf(storage)), {}, {}};
    for (const Folder &folder : job.folders)
        job.header.totals.add(folder.totals);
    return job;
}

int countParts(const Job &job)
{
    const auto add = [&job](int count, const Folder &folder) {
        return count + divided(itemsIn(folder.path), job.pageSize).size();
    };
    return std::accumulate(job.folders.begin(), job.folders.end(), 0, add);
}

/// Prints the path of the gallery, and the pages of an earlier one that would be deleted.
void printPlan(const Job &job, const PageFolder &pages)
{
    requireTemporaryFile(QFileInfo(job.path).path(), job.path);
    if (!job.isOnePage())
        requireCreatableFolder(pages.path());
    const QStringList old = pages.pagesFrom(job.isOnePage() ? 1 : countParts(job) + 1);
    if (isJson()) {
        printResult(
            toJson(factsOf(job.path), {{"action", "written"}, {"deleted", QJsonArray::fromStringList(old)}}));
        return;
    }
    printLine(printable(job.path));
    std::for_each(old.begin(), old.end(), printWouldBeDeleted);
}

/// Sets TZ to the time zone that is used anyway. If TZ is unset, glibc calls stat() on the time zone
/// file each time it converts a time, which happens 15 times for each photo.
void nameTimeZone()
{
    if (!qEnvironmentVariableIsSet("TZ"))
        qputenv("TZ", ":/etc/localtime");
}

ExitCode writeGallery(const Storage &storage, const Request &request)
{
    nameTimeZone();
    requireMounted(storage);
    const Job job = jobOf(storage, request);
    const PageFolder pages(job.path);
    reportProblems(QFileInfo(job.path).path());
    reportUnreadable(QFileInfo(job.path).path());
    catchStopSignals();
    if (!job.isOnePage() && !request.isForced)
        pages.requireOwn();
    if (request.isDryRun) {
        printPlan(job, pages);
        return DONE;
    }
    int count = 0;
    if (job.isOnePage()) {
        writeOnePage(job);
    } else {
        createFolder(pages.path());
        const QVector<Part> parts = writeParts(job, pages);
        writeIndex(job, parts);
        count = parts.size();
    }
    pages.removePages(count + 1);
    flushWithFolders({QFileInfo(job.path).canonicalFilePath()});
    reportDone(printable(job.path), [&job] { return toJson(factsOf(job.path), {{"action", "written"}}); });
    return DONE;
}

} // namespace

void addGallery(CommandLine &line)
{
    const auto request = std::make_shared<Request>();
    const auto run = [&line, request] {
        return writeGallery(line.storages().require(request->storage), *request);
    };
    const Command command = line.add(
        "gallery",
        "Writes an HTML page that shows the files in the numbered folders of a storage device. Those that\n"
        "browsers can play can be played there. If there are more than 10,000 files, or if the page would\n"
        "be larger than --page-size, there are several pages, at least one for each folder. FILE then\n"
        "becomes their index, and they are in a folder next to it, sd-pages for sd.html. Nothing else is\n"
        "created",
        run);
    addStorageArgument(command, request->storage);
    command.option("-o,--output", request->output, "The page; an existing gallery is replaced")
        .type("FILE")
        .required();
    command
        .option("--page-size", request->pageSize,
                "The largest size of a page, estimated from the sizes of the pictures in it")
        .between(1, 1024)
        .type("MIB")
        .showDefault();
    command.flag(
        "--force", request->isForced,
        "Replace a file that is not a gallery, and write pages into a folder that contains other files");
    addDryRun(command, request->isDryRun);
    command.flag("--probe", request->isProbing,
                 "Show the frame size of videos too; this starts ffprobe for each video whose path is\n"
                 "safe in a shell");
    addSingleResultOption(command);
    command.example("vornfh gallery sd --output sd.html");
}

// SPDX-License-Identifier: MIT
#include "commands.h"
#include "device.h"
#include "folders.h"
#include "listing.h"
#include "media.h"
#include "numbering.h"
#include "objects.h"
#include "output.h"
#include "paths.h"
#include "report.h"
#include "text.h"

#include <QJsonArray>
#include <QJsonObject>
#include <QRegularExpression>

#include <algorithm>
#include <limits>
#include <map>
#include <memory>
#include <optional>
#include <tuple>
#include <utility>

using namespace VORN_FILE_HANDLER;

namespace {

const std::map<std::string, eDIRECTORY_FILTER> FILTERS = {
    {"dcim", DIRECTORY_FILTER_DCIM},
    {"other", DIRECTORY_FILTER_NON_DCIM},
    {"all", static_cast<eDIRECTORY_FILTER>(0)}, // any other value selects every folder
};

/// A range of file numbers, both ends included.
struct NumberRange {
    int first = 0;
    int last = 0;
};

struct Request {
    eStorageType storage = STORAGE_MMC;
    std::string filter = "dcim";
    bool images = false;
    bool videos = false;
    bool audio = false;
    bool thumbnails = false;
    bool json = false;
    bool libraryJson = false;
    DayRange days;
    std::optional<NumberRange> numbers;
    std::string order; // empty for that of the library

    eDIRECTORY_FILTER folders() const { return FILTERS.at(filter); }
};

QList<QFileInfo> foldersOf(const Storage &storage, eDIRECTORY_FILTER filter)
{
    requireMounted(storage);
    return selectedFolders(storage, filter);
}

// list

/// Each pass over the folders selects files by their extensions. A list takes one pass; images need two,
/// because the library lists all JPEG files before all PNG files.
using Passes = QVector<QStringList>;

Passes passesOf(const Request &request)
{
    if (request.images && request.thumbnails)
        return {{JPEG_FILE_EXT, THUMB_FILE_EXT}, {PNG_FILE_EXT}};
    if (request.images)
        return {{JPEG_FILE_EXT}, {PNG_FILE_EXT}};
    if (request.videos)
        return {{AVI_FILE_EXT, MKV_FILE_EXT}};
    if (request.audio)
        return {{WAV_FILE_EXT}};
    return {{}};
}

/// A file in a list.
struct ListedFile {
    PlainFile facts;
    bool hasThumbnail = false;
    std::optional<QFileInfo> info; // of a file that is listed by the library; facts.modified is then not set
};

/// The files that the library lists in @p folder. Throws FileFailure if the folder cannot be read.
QList<QFileInfo> libraryFiles(const QString &folder, const QStringList &extensions)
{
    QStringList filters;
    for (const QString &extension : extensions)
        filters.append("*." + extension);
    const QList<QFileInfo> files =
        VornFileHandler::getDirectoryContents(QDir(folder), filters, QDir::Time | QDir::Reversed);
    requireReadToEnd(folder);
    return files;
}

ListedFile listedFile(const QFileInfo &info, const ProtectedObjects &marked)
{
    ListedFile file;
    file.info = info;
    file.facts.name = info.fileName().toStdString();
    file.facts.size = info.size();
    file.facts.modifiedMsecs = info.lastModified().toMSecsSinceEpoch();
    const QDateTime birth = info.birthTime();
    file.facts.createdMsecs = (birth.isValid() ? birth : info.metadataChangeTime()).toMSecsSinceEpoch();
    file.facts.isProtected = marked.contains(QFile::encodeName(info.fileName()));
    return file;
}

/// The files in @p folder, in the order of the library.
std::vector<ListedFile> filesIn(const QString &folder, const QStringList &extensions)
{
    QSet<QByteArray> thumbnails; // base names
    std::vector<ListedFile> files;
    if (const auto plain = listPlainFiles(folder, extensions, isJson() ? &thumbnails : nullptr)) {
        files.reserve(plain->size());
        for (const PlainFile &file : *plain)
            files.push_back({file, false, std::nullopt});
    } else {
        const QList<QFileInfo> infos = libraryFiles(folder, extensions);
        const bool hasAll = infos.isEmpty() || extensions.isEmpty();
        const QList<QFileInfo> all = hasAll ? infos : libraryFiles(folder, {});
        const ProtectedObjects marked(all);
        for (const QFileInfo &info : all) {
            if (info.suffix() == THUMB_FILE_EXT)
                thumbnails.insert(basePath(info.fileName().toUtf8()));
        }
        for (const QFileInfo &info : infos)
            files.push_back(listedFile(info, marked));
    }
    if (thumbnails.isEmpty())
        return files;
    for (ListedFile &file : files)
        file.hasThumbnail = hasThumbnails(QString::fromStdString(file.facts.name))
                            && thumbnails.contains(basePath(QByteArray::fromStdString(file.facts.name)));
    return files;
}

int numberOf(const ListedFile &file)
{
    return objectNumber(basePath(QByteArray::fromStdString(file.facts.name)));
}

bool isSelected(const ListedFile &file, const Request &request)
{
    constexpr qint64 SECOND = 1000;
    const int number = request.numbers ? numberOf(file) : 0;
    return (!request.numbers || (number >= request.numbers->first && number <= request.numbers->last))
           && (request.days.isAll() || request.days.contains(file.facts.modifiedMsecs / SECOND));
}

/// Prints a list, one file after the other.
class ListPrinter
{
public:
    virtual ~ListPrinter() = default;
    virtual void add(const QString &folder, const ListedFile &file) = 0;
    /// Prints the files that were added since the last call.
    virtual void print() = 0;
    virtual void finish() {}
};

class TablePrinter : public ListPrinter
{
public:
    explicit TablePrinter(const Storage &storage) : mPrefix(storage.location + "/") {}

    void add(const QString &folder, const ListedFile &file) override
    {
        const QString name = QString::fromStdString(file.facts.name);
        const MediaType *type = findType(name);
        const QString time = file.info ? timeText(file.info->lastModified())
                                       : dateText(file.facts.modified) + " " + clockText(file.facts.modified);
        mTable.add({shortPath(folder + "/") + name, type ? type->label : "other", humanSize(file.facts.size),
                    file.facts.isProtected ? time + "  protected" : time});
    }

    void print() override { mTable.print(); }

private:
    /// The path relative to the location; the whole path of a file elsewhere.
    QString shortPath(const QString &path) const
    {
        return path.startsWith(mPrefix) ? path.mid(mPrefix.size()) : path;
    }

    const QString mPrefix;
    Table mTable{{"FILE", "TYPE", "SIZE", "MODIFIED"}, {2}};
};

/// Prints the objects of report.h.
class ResultPrinter : public ListPrinter
{
public:
    void add(const QString &folder, const ListedFile &file) override
    {
        FileFacts facts;
        facts.path = folder + "/" + QString::fromStdString(file.facts.name);
        facts.size = file.facts.size;
        facts.created = file.facts.createdMsecs;
        facts.modified = file.facts.modifiedMsecs;
        facts.thumbnail = file.hasThumbnail ? thumbnailOf(facts.path) : QString();
        facts.isProtected = file.facts.isProtected;
        mText += nextResult(toJson(facts));
    }

    void print() override { printLines(std::exchange(mText, {})); }

private:
    QByteArray mText;
};

/// Prints the array of VornFileHandler::getJsonFileList() as QJsonDocument formats it.
class LibraryJsonPrinter : public ListPrinter
{
public:
    explicit LibraryJsonPrinter(Storage storage) : mStorage(std::move(storage))
    {
        mTypes[nullptr] = typeNumber("/dev/null/file");
        for (const MediaType &type : mediaTypes())
            mTypes[&type] = typeNumber("/dev/null/file." + type.extension);
    }

    void add(const QString &folder, const ListedFile &file) override
    {
        mText += mSeparator + (file.info ? libraryObject(file) : object(folder, file.facts));
        mSeparator = ",\n";
    }

    void print() override { printLines(std::exchange(mText, {})); }

    void finish() override { printLines(mSeparator == "[\n" ? "[\n]\n" : "\n]\n"); }

private:
    QByteArray object(const QString &folder, const PlainFile &file) const
    {
        const QString name = QString::fromStdString(file.name);
        const QByteArray shown = jsonText(QString(folder + "/").remove(mStorage.location + "/"));
        return "    {\n" + member("filename", shown + jsonText(name))
               + member("moddate", dateText(file.created)) + member("modtime", clockText(file.created))
               + member("size", "0x" + QByteArray::number(file.size, 16))
               + "        \"type\": " + mTypes.at(findType(name)) + "\n    }";
    }

    QByteArray libraryObject(const ListedFile &file) const
    {
        const QByteArray text =
            QJsonDocument(VornFileHandler::getJsonFileList(mStorage.type, {*file.info})).toJson();
        return text.mid(2, text.size() - 5); // without the lines [ and ]
    }

    static QByteArray member(const char *key, const QByteArray &value)
    {
        return QByteArray("        \"") + key + "\": \"" + value + "\",\n";
    }

    /// The library's number for the type of a file.
    QByteArray typeNumber(const QString &name) const
    {
        const QJsonArray array = VornFileHandler::getJsonFileList(mStorage.type, {QFileInfo(name)});
        return QByteArray::number(array.first().toObject()["type"].toInt());
    }

    const Storage mStorage;
    std::map<const MediaType *, QByteArray> mTypes;
    QByteArray mText;
    QByteArray mSeparator = "[\n";
};

std::unique_ptr<ListPrinter> printerFor(const Storage &storage, const Request &request)
{
    if (request.libraryJson)
        return std::make_unique<LibraryJsonPrinter>(storage);
    if (isJson())
        return std::make_unique<ResultPrinter>();
    return std::make_unique<TablePrinter>(storage);
}

/// Calls work(folder, files) for each folder with those of its files that are to be listed; for a list of
/// images, twice. Ends early if the output is lost, for example because the reader of a pipe has exited.
template <typename Work>
void forEachFolder(const Storage &storage, const Request &request, Work work)
{
    const QList<QFileInfo> folders = foldersOf(storage, request.folders());
    for (const QStringList &extensions : passesOf(request)) {
        for (const QFileInfo &info : folders) {
            if (isOutputLost())
                return;
            const QString folder = info.absoluteFilePath();
            std::vector<ListedFile> files = filesIn(folder, extensions);
            const auto isOther = [&](const ListedFile &file) { return !isSelected(file, request); };
            files.erase(std::remove_if(files.begin(), files.end(), isOther), files.end());
            work(folder, files);
        }
    }
}

/// A file in a list that is sorted as a whole. Files with the same keys are in the order of their paths.
struct SortedFile {
    qint64 firstKey;
    qint64 secondKey;
    QString folder;
    ListedFile file;

    bool operator<(const SortedFile &other) const
    {
        return std::tie(firstKey, secondKey, folder, file.facts.name)
               < std::tie(other.firstKey, other.secondKey, other.folder, other.file.facts.name);
    }
};

constexpr int NO_NUMBER = std::numeric_limits<int>::max(); // comes last

int numberOfFolder(const QString &folder)
{
    const QString name = folder.mid(folder.lastIndexOf('/') + 1);
    return isNumberedName(name) ? folderNumber(name).value_or(NO_NUMBER) : NO_NUMBER;
}

SortedFile sortedFile(const QString &folder, int folderNumber, const ListedFile &file,
                      const std::string &order)
{
    if (order == "time")
        return {file.facts.modifiedMsecs, 0, folder, file};
    if (order == "size")
        return {file.facts.size, 0, folder, file};
    if (order == "name")
        return {0, 0, folder, file};
    const int number = numberOf(file);
    return {folderNumber, number > 0 ? number : NO_NUMBER, folder, file};
}

void printSorted(const Storage &storage, const Request &request, ListPrinter &printer)
{
    std::vector<SortedFile> all;
    forEachFolder(storage, request, [&](const QString &folder, const std::vector<ListedFile> &files) {
        const int number = numberOfFolder(folder);
        for (const ListedFile &file : files)
            all.push_back(sortedFile(folder, number, file, request.order));
    });
    std::sort(all.begin(), all.end());
    for (const SortedFile &one : all)
        printer.add(one.folder, one.file);
    printer.print();
}

ExitCode list(const Storage &storage, const Request &request)
{
    const std::unique_ptr<ListPrinter> printer = printerFor(storage, request);
    if (!request.order.empty())
        printSorted(storage, request, *printer);
    else
        forEachFolder(storage, request, [&](const QString &folder, const std::vector<ListedFile> &files) {
            for (const ListedFile &file : files)
                printer->add(folder, file);
            if (!files.empty())
                printer->print();
        });
    printer->print(); // the heading of an empty table
    printer->finish();
    return DONE;
}

// folders

/// A folder, with the files directly in it.
struct Folder {
    QFileInfo info;
    int files = 0;
    qint64 size = 0;
    int mediaCount = 0;
};

Folder readFolder(const QFileInfo &info)
{
    const QString path = info.absoluteFilePath();
    Folder folder = {info, 0, 0, VornFileHandler::getMediaFileCount(QDir(path))};
    for (const QFileInfo &file : VornFileHandler::getDirectoryContents(path, QStringList(), QDir::Unsorted)) {
        ++folder.files;
        folder.size += file.size();
    }
    requireReadToEnd(path);
    return folder;
}

QJsonObject toJson(const Folder &folder)
{
    return {
        {"name", folder.info.fileName()},  {"path", folder.info.absoluteFilePath()},
        {"files", folder.files},           {"size", folder.size},
        {"mediaCount", folder.mediaCount},
    };
}

ExitCode listFolders(const Storage &storage, const Request &request)
{
    QJsonArray array;
    Table table({"FOLDER", "FILES", "SIZE"}, {1, 2});
    for (const QFileInfo &info : foldersOf(storage, request.folders())) {
        const Folder folder = readFolder(info);
        array.append(toJson(folder));
        table.add({info.fileName(), QString::number(folder.files), humanSize(folder.size)});
    }
    if (request.json)
        printJson(QJsonDocument(array));
    else
        table.print();
    return DONE;
}

// count

QJsonObject countByType(eStorageType storage, int total)
{
    return {
        {"images", VornFileHandler::getImageList(storage, false, DIRECTORY_FILTER_DCIM).size()},
        {"videos", VornFileHandler::getVideoList(storage, DIRECTORY_FILTER_DCIM).size()},
        {"sounds", VornFileHandler::getAudioList(storage, DIRECTORY_FILTER_DCIM).size()},
        {"total", total},
    };
}

ExitCode count(const Storage &storage, const Request &request)
{
    const QList<QFileInfo> folders = foldersOf(storage, DIRECTORY_FILTER_DCIM);
    const bool isEmpty = folders.isEmpty();
    const int total = isEmpty ? 0 : VornFileHandler::getMediaFileCount(storage.type);
    QJsonObject counts{{"images", 0}, {"videos", 0}, {"sounds", 0}, {"total", 0}};
    if (request.json && !isEmpty)
        counts = countByType(storage.type, total);
    for (const QFileInfo &folder : folders)
        requireReadToEnd(folder.absoluteFilePath());
    if (request.json)
        printJson(QJsonDocument(counts));
    else
        printLine(QString::number(total));
    return DONE;
}

// The command line

void addFilterOption(const Command &command, Request &request)
{
    command.option("--filter", request.filter, "Folders to list: the numbered ones, the others, or all")
        .oneOf({"dcim", "other", "all"})
        .showDefault();
}

void addTypeFlags(const Command &command, Request &request)
{
    const Option images = command.flag("--images", request.images, "Only JPEG and PNG images");
    const Option videos = command.flag("--videos", request.videos, "Only AVI and Matroska videos");
    const Option audio = command.flag("--audio", request.audio, "Only WAV audio files");
    images.excludes(videos).excludes(audio);
    videos.excludes(audio);
    command
        .flag("--thumbs", request.thumbnails,
              "With --images, list thumbnails too (a list of all files always includes them)")
        .needs(images);
}

void setNumbers(Request &request, const std::string &argument)
{
    const QString text = fromCommandLine(argument, "--number");
    static const QRegularExpression RANGE(
        QRegularExpression::anchoredPattern("([0-9]{1,4})(-([0-9]{1,4})?)?"));
    const auto match = RANGE.match(text);
    const int first = match.captured(1).toInt();
    const int last = match.captured(2).isEmpty()   ? first
                     : match.captured(3).isEmpty() ? LAST_FILE
                                                   : match.captured(3).toInt();
    if (!match.hasMatch() || first < 1 || last < first)
        throw wrongValue("--number", text, "a number from 1 to 9999 or a range such as 5-20 or 5-");
    request.numbers = NumberRange{first, last};
}

void addSelection(const Command &command, const std::shared_ptr<Request> &request)
{
    command
        .option("--sort", request->order,
                "Sort the whole list: by folder and number, modification time, size, or folder\n"
                "and name; the oldest or smallest first")
        .oneOf({"number", "time", "size", "name"});
    addDayOptions(command, request->days, "files");
    command
        .option(
            "--number", [request](const std::string &text) { setNumbers(*request, text); },
            "Only files with this number, or a number in this range: 7, 5-20 or 5-")
        .type("N|N-M");
}

} // namespace

void addList(CommandLine &line)
{
    const auto request = std::make_shared<Request>();
    const auto run = [&line, request](auto work) {
        return [&line, request, work] { return work(line.storages().require(request->storage), *request); };
    };

    const Command folders = line.add("folders", "Lists the folders of a storage device", run(listFolders));
    addStorageArgument(folders, request->storage);
    addFilterOption(folders, *request);
    folders.flag("--json", request->json,
                 "Print an array of objects, which also contain the number of media files");
    folders.example("vornfh folders sd --filter all");

    const Command files = line.add(
        "list",
        "Lists the files of a storage device, oldest first in each folder. With --images, all JPEG files\n"
        "come before all PNG files. Files of protected objects are marked. Names are relative to the DCIM\n"
        "folder; --json prints absolute paths",
        run(list));
    addStorageArgument(files, request->storage);
    addTypeFlags(files, *request);
    addFilterOption(files, *request);
    addSelection(files, request);
    addResultOptions(files);
    files
        .flag("--library-json", request->libraryJson,
              "Print the library's own JSON list, in which dates are creation dates")
        .excludes("--json")
        .excludes("--jsonl");
    files.example("vornfh list sd --videos");

    const Command counter = line.add(
        "count", "Counts the image, video and audio files in the numbered folders of a storage device",
        run(count));
    addStorageArgument(counter, request->storage);
    counter.flag("--json", request->json, "Print an object with the number of each type and the total");
    counter.example("vornfh count sd");
}

// SPDX-License-Identifier: MIT
#include "commands.h"
#include "device.h"
#include "folders.h"
#include "listing.h"
#include "media.h"
#include "objects.h"
#include "output.h"
#include "text.h"

#include <QJsonArray>
#include <QJsonObject>

#include <algorithm>
#include <map>
#include <memory>
#include <utility>

using namespace VORN_FILE_HANDLER;

namespace {

const std::map<std::string, eDIRECTORY_FILTER> FILTERS = {
    {"dcim", DIRECTORY_FILTER_DCIM},
    {"other", DIRECTORY_FILTER_NON_DCIM},
    {"all", static_cast<eDIRECTORY_FILTER>(0)}, // any other value selects every folder
};

struct Request {
    eStorageType storage = STORAGE_MMC;
    std::string filter = "dcim";
    bool images = false;
    bool videos = false;
    bool audio = false;
    bool thumbnails = false;
    bool json = false;

    eDIRECTORY_FILTER folders() const { return FILTERS.at(filter); }
};

QList<QFileInfo> foldersOf(const Storage &storage, eDIRECTORY_FILTER filter)
{
    requireMounted(storage);
    return selectedFolders(storage, filter);
}

// list

/// The passes over the folders that make up a list, each given by the extensions that it selects: two for
/// images, as the library lists all JPEG files before all PNG files, and one for anything else.
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

/// Prints a list, one folder at a time. Folders without files are left out.
class ListPrinter
{
public:
    virtual ~ListPrinter() = default;
    virtual void print(const QString &folder, const std::vector<PlainFile> &files) = 0;
    virtual void print(const QList<QFileInfo> &files, const ProtectedObjects &marked) = 0;
    virtual void finish() = 0;
};

class TablePrinter : public ListPrinter
{
public:
    explicit TablePrinter(const Storage &storage) : mPrefix(storage.location + "/") {}

    void print(const QString &folder, const std::vector<PlainFile> &files) override
    {
        const QString shown = shortPath(folder + "/");
        for (const PlainFile &file : files) {
            const QString name = QString::fromStdString(file.name);
            add(shown + name, name, file.size, dateText(file.modified) + " " + clockText(file.modified),
                file.isProtected);
        }
        mTable.print();
    }

    void print(const QList<QFileInfo> &files, const ProtectedObjects &marked) override
    {
        for (const QFileInfo &file : files)
            add(shortPath(file.absoluteFilePath()), file.fileName(), file.size(),
                timeText(file.lastModified()), marked.contains(QFile::encodeName(file.fileName())));
        mTable.print();
    }

    void finish() override { mTable.print(); }

private:
    void add(const QString &path, const QString &name, qint64 size, const QString &time, bool isMarked)
    {
        const MediaType *type = findType(name);
        mTable.add(
            {path, type ? type->label : "other", humanSize(size), isMarked ? time + "  protected" : time});
    }

    /// The path relative to the location; the whole path of a file elsewhere.
    QString shortPath(const QString &path) const
    {
        return path.startsWith(mPrefix) ? path.mid(mPrefix.size()) : path;
    }

    const QString mPrefix;
    Table mTable{{"FILE", "TYPE", "SIZE", "MODIFIED"}, {2}};
};

/// @p text between the quotes of a JSON string.
QByteArray jsonText(const QString &text)
{
    const auto isPlain = [](QChar c) { return c >= ' ' && c <= '~' && c != '"' && c != '\\'; };
    if (std::all_of(text.begin(), text.end(), isPlain))
        return text.toLatin1();
    const QByteArray array = QJsonDocument(QJsonArray{text}).toJson(QJsonDocument::Compact);
    return array.mid(2, array.size() - 4); // without [" and "]
}

/// Prints the array of VornFileHandler::getJsonFileList() as QJsonDocument formats it. Protected files have
/// one more member.
class JsonPrinter : public ListPrinter
{
public:
    explicit JsonPrinter(Storage storage) : mStorage(std::move(storage))
    {
        mTypes[nullptr] = typeNumber("/dev/null/file");
        for (const MediaType &type : mediaTypes())
            mTypes[&type] = typeNumber("/dev/null/file." + type.extension);
    }

    void print(const QString &folder, const std::vector<PlainFile> &files) override
    {
        const QByteArray shown = jsonText(QString(folder + "/").remove(mStorage.location + "/"));
        QByteArray text;
        for (const PlainFile &file : files) {
            const QString name = QString::fromStdString(file.name);
            text += mSeparator + "    {\n" + member("filename", shown + jsonText(name))
                    + member("moddate", dateText(file.created)) + member("modtime", clockText(file.created))
                    + (file.isProtected ? "        \"protected\": true,\n" : "")
                    + member("size", "0x" + QByteArray::number(file.size, 16))
                    + "        \"type\": " + mTypes[findType(name)] + "\n    }";
            mSeparator = ",\n";
        }
        printLines(text);
    }

    void print(const QList<QFileInfo> &files, const ProtectedObjects &marked) override
    {
        QJsonArray array = VornFileHandler::getJsonFileList(mStorage.type, files);
        for (int i = 0; i < files.size(); ++i) {
            if (!marked.contains(QFile::encodeName(files[i].fileName())))
                continue;
            QJsonObject file = array[i].toObject();
            file["protected"] = true;
            array[i] = file;
        }
        const QByteArray text = QJsonDocument(array).toJson();
        printLines(mSeparator + text.mid(2, text.size() - 5)); // without the lines [ and ]
        mSeparator = ",\n";
    }

    void finish() override { printLines(mSeparator == "[\n" ? "[\n]\n" : "\n]\n"); }

private:
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
    QByteArray mSeparator = "[\n";
};

ExitCode list(const Storage &storage, const Request &request)
{
    const QList<QFileInfo> folders = foldersOf(storage, request.folders());
    const std::unique_ptr<ListPrinter> printer = request.json
                                                     ? std::unique_ptr<ListPrinter>(new JsonPrinter(storage))
                                                     : std::make_unique<TablePrinter>(storage);
    for (const QStringList &extensions : passesOf(request)) {
        for (const QFileInfo &info : folders) {
            if (isOutputLost()) // such as a pipe whose reader has ended
                return FAILED;
            const QString folder = info.absoluteFilePath();
            const auto plain = listPlainFiles(folder, extensions);
            const QList<QFileInfo> others = plain ? QList<QFileInfo>() : libraryFiles(folder, extensions);
            if (plain && !plain->empty())
                printer->print(folder, *plain);
            if (!others.isEmpty())
                printer->print(others,
                               ProtectedObjects(extensions.isEmpty() ? others : libraryFiles(folder, {})));
        }
    }
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

void addFilterOption(CLI::App &command, Request &request)
{
    command.add_option("--filter", request.filter, "Folders to list: the numbered ones, the others, or all")
        ->check(CLI::IsMember({"dcim", "other", "all"}).description(""))
        ->type_name("dcim|other|all")
        ->capture_default_str();
}

void addTypeFlags(CLI::App &command, Request &request)
{
    CLI::Option *images = command.add_flag("--images", request.images, "Only JPEG and PNG images");
    CLI::Option *videos = command.add_flag("--videos", request.videos, "Only AVI and Matroska videos");
    CLI::Option *audio = command.add_flag("--audio", request.audio, "Only WAV audio files");
    images->excludes(videos)->excludes(audio);
    videos->excludes(audio);
    command
        .add_flag("--thumbs", request.thumbnails,
                  "With --images: thumbnails too (a list of all files always includes them)")
        ->needs(images);
}

} // namespace

void addList(CommandLine &line)
{
    const auto request = std::make_shared<Request>();
    const auto run = [&line, request](auto work) {
        return [&line, request, work] { return work(line.storages().require(request->storage), *request); };
    };

    CLI::App &folders = line.add("folders", "Lists the folders of a storage device", run(listFolders));
    addStorageArgument(folders, request->storage);
    addFilterOption(folders, *request);
    folders.add_flag("--json", request->json,
                     "Print an array of objects, which also contain the number of media files");
    folders.footer("Example: vornfh folders sd --filter all");

    CLI::App &files =
        line.add("list",
                 "Lists the files of a storage device, oldest first in each folder; images: all\n"
                 "JPEG files, then all PNG files. Files of protected objects are marked",
                 run(list));
    addStorageArgument(files, request->storage);
    addTypeFlags(files, *request);
    addFilterOption(files, *request);
    files.add_flag("--json", request->json,
                   "Print the library's JSON list, in which dates are creation dates");
    files.footer("Example: vornfh list sd --videos");

    CLI::App &counter = line.add(
        "count", "Counts the image, video and audio files in the numbered folders of a storage device",
        run(count));
    addStorageArgument(counter, request->storage);
    counter.add_flag("--json", request->json, "Print an object with the number of each type and the total");
    counter.footer("Example: vornfh count sd");
}

// SPDX-License-Identifier: MIT
#include "commands.h"
#include "device.h"
#include "folders.h"
#include "media.h"
#include "output.h"
#include "text.h"

#include <QJsonArray>
#include <QJsonObject>

#include <map>
#include <memory>

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

QList<QFileInfo> filesOf(const Storage &storage, const Request &request)
{
    if (foldersOf(storage, request.folders()).isEmpty())
        return {};
    if (request.images)
        return VornFileHandler::getImageList(storage.type, request.thumbnails, request.folders());
    if (request.videos)
        return VornFileHandler::getVideoList(storage.type, request.folders());
    if (request.audio)
        return VornFileHandler::getAudioList(storage.type, request.folders());
    return VornFileHandler::getDirectoryContents(storage.type, request.folders());
}

/// The path relative to the location; the whole path of a file elsewhere.
QString shortPath(const QFileInfo &file, const Storage &storage)
{
    const QString path = file.absoluteFilePath();
    const QString location = storage.location + "/";
    return path.startsWith(location) ? path.mid(location.size()) : path;
}

void printFiles(const QList<QFileInfo> &files, const Storage &storage)
{
    Table table({"FILE", "TYPE", "SIZE", "MODIFIED"}, {2});
    for (const QFileInfo &file : files) {
        const MediaType *type = findType(file.fileName());
        table.add({shortPath(file, storage), type ? type->label : "other", humanSize(file.size()),
                   timeText(file.lastModified())});
    }
    table.print();
}

ExitCode list(const Storage &storage, const Request &request)
{
    const QList<QFileInfo> files = filesOf(storage, request);
    if (request.json)
        printJson(QJsonDocument(VornFileHandler::getJsonFileList(storage.type, files)));
    else
        printFiles(files, storage);
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
    const bool isEmpty = foldersOf(storage, DIRECTORY_FILTER_DCIM).isEmpty();
    const int total = isEmpty ? 0 : VornFileHandler::getMediaFileCount(storage.type);
    if (!request.json)
        printLine(QString::number(total));
    else if (isEmpty)
        printJson(QJsonDocument(QJsonObject{{"images", 0}, {"videos", 0}, {"sounds", 0}, {"total", 0}}));
    else
        printJson(QJsonDocument(countByType(storage.type, total)));
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

    CLI::App &files = line.add("list",
                               "Lists the files of a storage device, oldest first in each folder; images: "
                               "all JPEG files, then all PNG\n"
                               "files",
                               run(list));
    addStorageArgument(files, request->storage);
    addTypeFlags(files, *request);
    addFilterOption(files, *request);
    files.add_flag("--json", request->json,
                   "Print the library's JSON list, in which dates are creation dates");

    CLI::App &counter = line.add(
        "count", "Counts the image, video and audio files in the numbered folders of a storage device",
        run(count));
    addStorageArgument(counter, request->storage);
    counter.add_flag("--json", request->json, "Print an object with the number of each type and the total");
}

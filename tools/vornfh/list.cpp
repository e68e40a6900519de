// SPDX-License-Identifier: MIT
#include "device.h"
#include "table.h"
#include "vornfh.h"

#include <QDateTime>
#include <QJsonArray>
#include <QJsonObject>

#include <map>
#include <memory>

using namespace VORN_FILE_HANDLER;

namespace {

const std::map<std::string, eDIRECTORY_FILTER> FILTERS = {
    {"dcim", DIRECTORY_FILTER_DCIM},
    {"other", DIRECTORY_FILTER_NON_DCIM},
    {"all", static_cast<eDIRECTORY_FILTER>(0)}, // any other value takes every folder
};

struct Selection {
    eStorageType storage = STORAGE_MMC;
    std::string filter = "dcim";
    bool images = false;
    bool videos = false;
    bool audio = false;
    bool thumbnails = false;
    bool json = false;

    eDIRECTORY_FILTER folders() const { return FILTERS.at(filter); }
};

void addFilterOption(CLI::App &command, Selection &selection)
{
    command.add_option("--filter", selection.filter, "Which folders: the numbered ones, the others, or all")
        ->check(CLI::IsMember({"dcim", "other", "all"}).description(""))
        ->type_name("dcim|other|all")
        ->capture_default_str();
}

/// The folders that @p filter takes; the library creates what is missing. Throws Failure where it cannot, and
/// where a folder cannot be read.
QList<QFileInfo> readableFolders(eStorageType storage, eDIRECTORY_FILTER filter)
{
    requireReadable(locationOf(storage));
    const QList<QFileInfo> folders = VornFileHandler::getFolders(storage, filter);
    requireLocation(storage);
    for (const QFileInfo &folder : folders)
        requireReadable(folder.absoluteFilePath());
    return folders;
}

QList<QFileInfo> selectedFiles(const Selection &selection)
{
    if (selection.images)
        return VornFileHandler::getImageList(selection.storage, selection.thumbnails, selection.folders());
    if (selection.videos)
        return VornFileHandler::getVideoList(selection.storage, selection.folders());
    if (selection.audio)
        return VornFileHandler::getAudioList(selection.storage, selection.folders());
    return VornFileHandler::getDirectoryContents(selection.storage, selection.folders());
}

/// The path from the location on; the whole path of a file that lies elsewhere.
QString shortPath(const QFileInfo &file, eStorageType storage)
{
    const QString path = file.absoluteFilePath();
    const QString location = locationOf(storage) + "/";
    return path.startsWith(location) ? path.mid(location.size()) : path;
}

QString typeName(int type)
{
    switch (type) {
    case FILE_TYPE_IMAGE: return "image";
    case FILE_TYPE_THUMB: return "thumb";
    case FILE_TYPE_VIDEO: return "avi";
    case FILE_TYPE_VIDEO_MKV: return "mkv";
    case FILE_TYPE_AUDIO: return "wav";
    default: return "other";
    }
}

void printFiles(const QList<QFileInfo> &files, const QJsonArray &array, eStorageType storage)
{
    Table table({"FILE", "TYPE", "SIZE", "MODIFIED"}, {2});
    for (int i = 0; i < files.size(); ++i)
        table.add({shortPath(files[i], storage), typeName(array[i].toObject()["type"].toInt()),
                   humanSize(files[i].size()), files[i].lastModified().toString("yyyy-MM-dd HH:mm:ss")});
    table.print();
}

void list(const Selection &selection)
{
    readableFolders(selection.storage, selection.folders());
    const QList<QFileInfo> files = selectedFiles(selection);
    const QJsonArray array = VornFileHandler::getJsonFileList(selection.storage, files);
    if (selection.json)
        printJson(QJsonDocument(array));
    else
        printFiles(files, array, selection.storage);
}

/// A folder with what lies directly in it.
struct Folder {
    QFileInfo info;
    int files = 0;
    qint64 size = 0;
};

Folder lookInto(const QFileInfo &info)
{
    const QList<QFileInfo> files =
        VornFileHandler::getDirectoryContents(info.absoluteFilePath(), QStringList(), QDir::Unsorted);
    qint64 size = 0;
    for (const QFileInfo &file : files)
        size += file.size();
    return {info, files.size(), size};
}

QJsonObject toJson(const Folder &folder)
{
    const QString path = folder.info.absoluteFilePath();
    return {
        {"name", folder.info.fileName()},
        {"path", path},
        {"files", folder.files},
        {"size", folder.size},
        {"mediaCount", VornFileHandler::getMediaFileCount(QDir(path))},
    };
}

void listFolders(const Selection &selection)
{
    QJsonArray array;
    Table table({"FOLDER", "FILES", "SIZE"}, {1, 2});
    for (const QFileInfo &info : readableFolders(selection.storage, selection.folders())) {
        const Folder folder = lookInto(info);
        if (selection.json)
            array.append(toJson(folder));
        else
            table.add({info.fileName(), QString::number(folder.files), humanSize(folder.size)});
    }
    if (selection.json)
        printJson(QJsonDocument(array));
    else
        table.print();
}

void count(const Selection &selection)
{
    const eStorageType storage = selection.storage;
    readableFolders(storage, DIRECTORY_FILTER_DCIM);
    const int total = VornFileHandler::getMediaFileCount(storage);
    if (!selection.json) {
        printLine(QString::number(total));
        return;
    }
    printJson(QJsonDocument(QJsonObject{
        {"images", VornFileHandler::getImageList(storage, false, DIRECTORY_FILTER_DCIM).size()},
        {"videos", VornFileHandler::getVideoList(storage, DIRECTORY_FILTER_DCIM).size()},
        {"sounds", VornFileHandler::getAudioList(storage, DIRECTORY_FILTER_DCIM).size()},
        {"total", total},
    }));
}

void addList(CLI::App &app, StorageOptions &storages)
{
    const auto selection = std::make_shared<Selection>();
    CLI::App *command = app.add_subcommand("list", "Lists the files of a storage, the oldest of each folder "
                                                   "first");
    addStorageArgument(*command, selection->storage);
    CLI::Option *images = command->add_flag("--images", selection->images, "Only JPEG and PNG images");
    CLI::Option *videos = command->add_flag("--videos", selection->videos, "Only AVI and Matroska videos");
    CLI::Option *audio = command->add_flag("--audio", selection->audio, "Only WAV sounds");
    images->excludes(videos)->excludes(audio);
    videos->excludes(audio);
    command
        ->add_flag("--thumbs", selection->thumbnails,
                   "With --images: the thumbnails as well, which a list of everything has anyway")
        ->needs(images);
    addFilterOption(*command, *selection);
    command->add_flag("--json", selection->json,
                      "Print the library's JSON list: dates in it are those of the creation");
    command->callback([selection, &storages] {
        storages.require(selection->storage);
        list(*selection);
    });
}

} // namespace

void addListCommands(CLI::App &app, StorageOptions &storages, ExitCode &)
{
    const auto selection = std::make_shared<Selection>();
    CLI::App *folders = app.add_subcommand("folders", "Lists the folders of a storage");
    addStorageArgument(*folders, selection->storage);
    addFilterOption(*folders, *selection);
    folders->add_flag("--json", selection->json,
                      "Print an array of objects, with the number of photos, videos and sounds as well");
    folders->callback([selection, &storages] {
        storages.require(selection->storage);
        listFolders(*selection);
    });

    addList(app, storages);

    CLI::App *counter = app.add_subcommand(
        "count", "Counts the images, videos and sounds in the numbered folders of a storage");
    addStorageArgument(*counter, selection->storage);
    counter->add_flag("--json", selection->json,
                      "Print an object with the number of each type and the total");
    counter->callback([selection, &storages] {
        storages.require(selection->storage);
        count(*selection);
    });
}

// SPDX-License-Identifier: MIT
#include "benchmarks.h"
#include "dataset.h"
#include "ratios.h"
#include "vornfilehandler.h"

#include <QJsonObject>

#include <malloc.h>

using namespace VORN_FILE_HANDLER;

static constexpr int FOLDERS = 20;
static constexpr int FILES_EACH = 5000;

static QString storage()
{
    return useStorage("json", std::vector<int>(FOLDERS, FILES_EACH));
}

static void bareList()
{
    const std::string location = storage().toStdString();
    for (int number = 100; number < 100 + FOLDERS; ++number)
        benchmark::DoNotOptimize(bareListing(location + '/' + std::to_string(number) + SUFFIX));
}

static QJsonArray qtJson(const QFileInfoList &files)
{
    QJsonArray array;
    const QString prefix = storage() + '/';
    for (const QFileInfo &file : files) {
        QJsonObject object;
        object["moddate"] = file.birthTime().date().toString("yyyy-MM-dd");
        object["modtime"] = file.birthTime().time().toString(Qt::TextDate);
        object["type"] = file.suffix() == "jpg" ? FILE_TYPE_IMAGE : FILE_TYPE_UNKNOWN;
        object["filename"] = file.absoluteFilePath().remove(prefix);
        object["size"] = "0x" + QString::number(file.size(), 16);
        array.append(object);
    }
    return array;
}

static void qtListAndJson()
{
    QFileInfoList files;
    for (const QFileInfo &folder : qtFolders(storage()))
        files += qtListing(folder.absoluteFilePath());
    benchmark::DoNotOptimize(qtJson(files));
}

static QFileInfoList listedFiles;

/// Bytes on the heap, those of mapped blocks included.
static double heapBytes()
{
    const struct mallinfo2 info = ::mallinfo2();
    return static_cast<double>(info.uordblks + info.hblkhd);
}

static double listBytesPerFile()
{
    storage();
    const double before = heapBytes();
    const auto files = VornFileHandler::getDirectoryContents(STORAGE_SD, DIRECTORY_FILTER_DCIM);
    return (heapBytes() - before) / files.size();
}

static double listAndJsonBytesPerFile()
{
    storage();
    const double before = heapBytes();
    const auto files = VornFileHandler::getDirectoryContents(STORAGE_SD, DIRECTORY_FILTER_DCIM);
    const QJsonArray array = VornFileHandler::getJsonFileList(STORAGE_SD, files);
    return (heapBytes() - before) / array.size();
}

void addJson()
{
    const Way bare = {"bare", bareList};
    const Way all = {"library",
                     [] { benchmark::DoNotOptimize(VornFileHandler::getJSONDirectoryContents(STORAGE_SD)); }};
    compareInZones(
        {"JSON, 20 folders of 5,000 files", 5, {bare, all, {"Qt", qtListAndJson, 1}}, [] { storage(); }});
    const Way alone = {
        "library",
        [] { benchmark::DoNotOptimize(VornFileHandler::getJsonFileList(STORAGE_SD, listedFiles)); }, 3};
    compareInZones({"JSON of 100,000 files already listed",
                    0,
                    {bare, alone, {"Qt", [] { benchmark::DoNotOptimize(qtJson(listedFiles)); }, 1}},
                    [] {
                        storage();
                        listedFiles =
                            VornFileHandler::getDirectoryContents(STORAGE_SD, DIRECTORY_FILTER_DCIM);
                    },
                    [] { listedFiles.clear(); }});
    report({"memory of a list of 100,000 files", "bytes per file", 1536, listBytesPerFile});
    report({"memory of such a list and its JSON", "bytes per file", 0, listAndJsonBytesPerFile});
}

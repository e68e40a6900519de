// SPDX-License-Identifier: MIT
#include "benchmarks.h"
#include "dataset.h"
#include "literal.h"
#include "ratios.h"

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

static void qtListAndJson()
{
    const QFileInfoList files = literal::files(STORAGE_SD, {}, DIRECTORY_FILTER_DCIM);
    benchmark::DoNotOptimize(literal::json(STORAGE_SD, files));
}

static QFileInfoList listedFiles;

/// Bytes on the heap, including mapped blocks.
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
    compareInZones(
        {"JSON of 100,000 files already listed",
         0,
         {bare, alone, {"Qt", [] { benchmark::DoNotOptimize(literal::json(STORAGE_SD, listedFiles)); }, 1}},
         [] {
             storage();
             listedFiles = VornFileHandler::getDirectoryContents(STORAGE_SD, DIRECTORY_FILTER_DCIM);
         },
         [] { listedFiles.clear(); }});
    report({"memory of a list of 100,000 files", "bytes per file", 1536, listBytesPerFile});
    report({"memory of such a list and its JSON", "bytes per file", 0, listAndJsonBytesPerFile});
}

// SPDX-License-Identifier: MIT
#include "benchmarks.h"
#include "dataset.h"
#include "ratios.h"
#include "vornfilehandler.h"

using namespace VORN_FILE_HANDLER;

static constexpr int FOLDERS = 20;

static QString storage()
{
    return useStorage("json", std::vector<int>(FOLDERS, 5000));
}

static void bareCountAll()
{
    const std::string location = storage().toStdString();
    int count = bareCount(location);
    for (int number = 100; number < 100 + FOLDERS; ++number)
        count += bareCount(location + '/' + std::to_string(number) + SUFFIX);
    benchmark::DoNotOptimize(count);
}

static void qtCountAll()
{
    int count = 0;
    for (const QFileInfo &folder : qtFolders(storage())) {
        QDir directory(folder.absoluteFilePath());
        directory.setFilter(QDir::Files | QDir::NoSymLinks);
        directory.setNameFilters({"*.jpg", "*.png", "*.avi", "*.mkv", "*.wav"});
        count += static_cast<int>(directory.count());
    }
    benchmark::DoNotOptimize(count);
}

void addCount()
{
    const Way library = {"library",
                         [] { benchmark::DoNotOptimize(VornFileHandler::getMediaFileCount(STORAGE_SD)); }};
    compare(
        {"count, 20 folders of 5,000 files", 3, {{"bare", bareCountAll}, library, {"Qt", qtCountAll, 3}}, [] {
             storage();
         }});
}

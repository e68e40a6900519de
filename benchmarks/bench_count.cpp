// SPDX-License-Identifier: MIT
#include "benchmarks.h"
#include "dataset.h"
#include "literal.h"
#include "ratios.h"

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
    benchmark::DoNotOptimize(literal::mediaCount(STORAGE_SD));
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

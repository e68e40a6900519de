// SPDX-License-Identifier: MIT
#include "benchmarks.h"
#include "dataset.h"
#include "literal.h"
#include "ratios.h"

using namespace VORN_FILE_HANDLER;

static constexpr int FOLDERS = 900;

static QString storage()
{
    std::vector<int> files(FOLDERS, 0);
    files.back() = 9998;
    return useStorage("next", files);
}

static void bareNext()
{
    const std::string location = storage().toStdString();
    benchmark::DoNotOptimize(bareCount(location) + bareCount(location + "/999ABC") + bareCount(location));
}

static void qtNext()
{
    benchmark::DoNotOptimize(literal::nextName(STORAGE_SD, "jpg"));
}

void addNext()
{
    const Way bare = {"bare", bareNext};
    const Way library = {
        "library",
        [] { benchmark::DoNotOptimize(VornFileHandler::getNextFileName(STORAGE_SD, FILE_TYPE_IMAGE)); }};
    compare(
        {"next file name, 900 folders, 9,998 files", 3, {bare, library, {"Qt", qtNext}}, [] { storage(); }});
}

// SPDX-License-Identifier: MIT
#include "benchmarks.h"
#include "dataset.h"
#include "ratios.h"
#include "vornfilehandler.h"

using namespace VORN_FILE_HANDLER;

static constexpr int FILES = 9999;

static QString folder()
{
    return useStorage("listing", {FILES}) + "/100ABC";
}

/// The same folder with one more file, whose name is not ASCII.
static QString folderWithForeignName()
{
    const QString path = useStorage("foreign", {FILES}) + "/100ABC";
    const QString name = path + QString::fromUtf8("/Gru\xC3\x9F.jpg");
    if (!QFileInfo::exists(name))
        makeFile(name);
    return path;
}

static Comparison listing(const char *name, QString (*directory)(), const QStringList &nameFilters)
{
    const Way bare = {"bare", [=] { benchmark::DoNotOptimize(bareListing(directory().toStdString())); }};
    const Way library = {"library", [=] {
                             benchmark::DoNotOptimize(VornFileHandler::getDirectoryContents(
                                 directory(), nameFilters, QDir::Time | QDir::Reversed));
                         }};
    const Way qt = {"Qt", [=] { benchmark::DoNotOptimize(qtListing(directory(), nameFilters)); }, 1};
    return {name, 2.5, {bare, library, qt}, [directory] { directory(); }};
}

void addListing()
{
    compareInZones(listing("listing, 9,999 files", folder, {}));
    compareInZones(listing("listing, 9,999 files, name filters", folder, {"*.jpg", "*.thumb"}));
    Comparison foreign = listing("listing, 10,000 files, one not ASCII", folderWithForeignName, {});
    foreign.target = 0;
    compareInZones(foreign);
}

// SPDX-License-Identifier: MIT
#include "benchmarks.h"
#include "dataset.h"
#include "literal.h"
#include "ratios.h"

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
    const QString name = path + "/Gru\u00DF.jpg";
    if (!QFileInfo::exists(name))
        makeFile(name);
    return path;
}

static Comparison listing(const char *name, QString (*directory)(), const QStringList &nameFilters)
{
    const Way bare = {"bare", [=] { benchmark::DoNotOptimize(bareListing(directory().toStdString())); }};
    const Way library = {"library", [=] {
                             benchmark::DoNotOptimize(VornFileHandler::getDirectoryContents(
                                 directory(), nameFilters, literal::OLDEST_FIRST));
                         }};
    const Way qt = {"Qt",
                    [=] {
                        benchmark::DoNotOptimize(
                            literal::files(QDir(directory()), nameFilters, literal::OLDEST_FIRST));
                    },
                    1};
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

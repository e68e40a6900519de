// SPDX-License-Identifier: MIT
#include "benchmarks.h"
#include "dataset.h"
#include "literal.h"
#include "ratios.h"

using namespace VORN_FILE_HANDLER;

static constexpr int FILES = 9999;
static const QStringList NAME_FILTERS = {"*.jpg", "*.thumb"};

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

/// A folder in which no file has an ASCII name.
static QString folderOfForeignNames()
{
    const QString path = workDirectory("umlauts");
    const QString name = path + "/Gru\u00DF_%1.jpg";
    for (int i = FILES; !QFileInfo::exists(name.arg(1)); --i)
        makeFile(name.arg(i));
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
    const Way infos = {"infos", [=] { benchmark::DoNotOptimize(bareInfos(directory().toStdString())); }};
    Comparison comparison = {name, 2.5, {bare, library, qt}, [directory] { directory(); }};
    comparison.floor = infos;
    return comparison;
}

void addListing()
{
    compareInZones(listing("listing, 9,999 files", folder, {}));
    compareInZones(listing("listing, 9,999 files, name filters", folder, NAME_FILTERS));
    for (Comparison foreign :
         {listing("listing, 10,000 files, one not ASCII", folderWithForeignName, {}),
          listing("listing, 9,999 files, none ASCII, name filters", folderOfForeignNames, NAME_FILTERS)}) {
        foreign.target = 3;
        compareInZones(foreign);
    }
}

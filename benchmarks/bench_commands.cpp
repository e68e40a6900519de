// SPDX-License-Identifier: MIT
#include "benchmarks.h"
#include "dataset.h"
#include "process.h"
#include "ratios.h"
#include "vornfilehandler.h"

#include <QFile>
#include <QRegularExpression>

using namespace VORN_FILE_HANDLER;

static constexpr int COPIES = 100;

using Run = void (*)(const CommandLine &);

/// The name of the last block device that the kernel lists.
static QString blockName()
{
    QFile partitions("/proc/partitions");
    if (!partitions.open(QIODevice::ReadOnly))
        qFatal("cannot read /proc/partitions");
    return QString::fromLatin1(partitions.readAll()).trimmed().section(QRegularExpression("\\s"), -1);
}

static void useCommands()
{
    useStorage("commands/DCIM", {COPIES});
    static const QString name = blockName();
    VornFileHandler::mSdBlk = name;
}

static std::string mountPath()
{
    return VornFileHandler::typeToMountPath(STORAGE_SD).toStdString();
}

static void runIsMounted(Run run)
{
    run({"sh", "-c", "cat /proc/partitions | grep " + VornFileHandler::mSdBlk.toStdString()});
}

/// The programs that one query of the size or of the free space starts.
static void runColumn(Run run, char column)
{
    runIsMounted(run);
    run({"sh", "-c", "df " + mountPath() + " | awk '{ print $" + column + " }'"});
}

static void runBothColumns(Run run)
{
    runIsMounted(run);
    runColumn(run, '4');
    runColumn(run, '2');
}

static QString source(int number)
{
    return VornFileHandler::getFilePath(STORAGE_SD, 100, number, "jpg");
}

static QString target()
{
    return VornFileHandler::getDirPath(STORAGE_SD, "copies");
}

static void runCopies(Run run)
{
    QDir().mkpath(target());
    for (int i = 1; i <= COPIES; ++i) {
        const QFileInfo file(source(i));
        run({"cp", "-p", file.filePath().toStdString(), (target() + '/' + file.fileName()).toStdString()});
    }
}

static void libraryCopies()
{
    QStringList files;
    for (int i = 1; i <= COPIES; ++i)
        files.append(source(i));
    VornFileHandler::copyToFolder(files, STORAGE_SD, "copies");
}

/// Compares the library with the same programs started by QProcess and by posix_spawn().
static Comparison starts(const char *name, const std::function<void(Run)> &bare,
                         const std::function<void()> &library)
{
    return {name,
            1.05,
            {{"QProcess", [bare] { bare(runByQt); }},
             {"library", library},
             {"posix_spawn", [bare] { bare(runBySpawn); }}},
            useCommands};
}

template <typename Query>
static std::function<void()> query(Query function)
{
    return [function] { benchmark::DoNotOptimize(function(STORAGE_SD)); };
}

void addCommands()
{
    const auto column = [](char c) { return [c](Run run) { runColumn(run, c); }; };
    compare(starts("isMounted", runIsMounted, query(VornFileHandler::isMounted)));
    compare(starts("getStorageSize", column('2'), query(VornFileHandler::getStorageSize)));
    compare(starts("getRemainingBytes", column('4'), query(VornFileHandler::getRemainingBytes)));
    compare(starts("getRemainingPercent", runBothColumns, query(VornFileHandler::getRemainingPercent)));
    compare(starts("getUsedBytes", runBothColumns, query(VornFileHandler::getUsedBytes)));
    Comparison copies = starts("copyToFolder, 100 small files", runCopies, libraryCopies);
    copies.between = [] { QDir(target()).removeRecursively(); };
    compare(copies);
}

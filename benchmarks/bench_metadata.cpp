// SPDX-License-Identifier: MIT
#include "benchmarks.h"
#include "dataset.h"
#include "literal.h"
#include "process.h"
#include "ratios.h"

#include <QImage>
#include <QImageReader>
#include <QProcess>

using namespace VORN_FILE_HANDLER;

static QString folder()
{
    return useStorage("metadata", {5000}) + "/100ABC";
}

static QString photo()
{
    const QString path = workDirectory("media") + "/DCF_0001.jpg";
    if (!QFileInfo::exists(path)) {
        QImage image(1920, 1080, QImage::Format_RGB32);
        image.fill(Qt::gray);
        image.save(path);
    }
    return path;
}

static QString video()
{
    const QString path = workDirectory("media") + "/DCF_0002.avi";
    if (!QFileInfo::exists(path))
        QProcess::execute("ffmpeg", {"-v", "error", "-f", "lavfi", "-i", "color=s=640x480:d=1", path});
    return path;
}

static std::string probeLine()
{
    return "ffprobe -v error -select_streams v:0 -show_entries stream=width,height -of default=nw=1:nk=1 "
           + video().toStdString();
}

static void libraryMetadata(const QString &path)
{
    Metadata metadata;
    VornFileHandler::getMetadata(QFileInfo(path), metadata);
    benchmark::DoNotOptimize(metadata.mSize);
}

static void bareFolder()
{
    const std::string path = folder().toStdString();
    benchmark::DoNotOptimize(bareStatus(path));
    benchmark::DoNotOptimize(bareStatus(path));
}

static QFileInfoList qtListing()
{
    return literal::files(QDir(folder()), {}, literal::OLDEST_FIRST);
}

static void qtFolder()
{
    qint64 size = 0;
    for (const QFileInfo &file : qtListing())
        size += file.size();
    int images = 0;
    for (const QFileInfo &file : qtListing())
        images += !file.isDir() && file.suffix() == "jpg";
    benchmark::DoNotOptimize(size + images);
}

void addMetadata()
{
    compareInZones(
        {"metadata of a folder, 5,000 files",
         3,
         {{"bare", bareFolder}, {"library", [] { libraryMetadata(folder()); }}, {"Qt", qtFolder, 1}},
         [] { folder(); }});
    compare({"metadata of a photo",
             0,
             {{"QImageReader", [] { benchmark::DoNotOptimize(QImageReader(photo()).size()); }},
              {"library", [] { libraryMetadata(photo()); }}},
             [] { photo(); }});
    compare({"metadata of a video",
             1.05,
             {{"QProcess",
               [] {
                   runByQt({"sh", "-c", probeLine()});
               }},
              {"library", [] { libraryMetadata(video()); }},
              {"posix_spawn",
               [] {
                   runBySpawn({"sh", "-c", probeLine()});
               }}},
             [] { video(); }});
}

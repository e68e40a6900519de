// SPDX-License-Identifier: MIT
#include "commands.h"
#include "ffmpeg.h"
#include "filelist.h"
#include "files.h"
#include "folders.h"
#include "imagecomment.h"
#include "media.h"
#include "objects.h"
#include "output.h"
#include "paths.h"
#include "report.h"
#include "text.h"

#include <QFileInfo>
#include <QJsonObject>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <future>
#include <memory>
#include <optional>
#include <thread>
#include <vector>

using namespace VORN_FILE_HANDLER;

namespace {

/// What is shown about a file or folder. It is never copied: a copy of the record would lose its counts.
struct Reading {
    Metadata record;
    Measured measured; // of a video or audio file
};

/// Fills the record of a video as getMetadata() does, but with the picture size that ffprobe has measured
/// together with the other values: the library would start another ffprobe for it.
void readVideo(const QFileInfo &file, const MediaType &type, Reading &reading)
{
    reading.measured = measure(file.absoluteFilePath());
    Metadata &record = reading.record;
    QFileInfo source = file;
    record.set(FILE_TYPE_UNKNOWN, source); // name, size and times
    record.setType(type.type == FILE_TYPE_VIDEO_MKV ? FILE_TYPE_VIDEO_MKV : FILE_TYPE_VIDEO);
    record.setLength(source);
    record.setBitrate(source);
    record.setFramerate(source);
    record.mWidth = reading.measured.width;
    record.mHeight = reading.measured.height;
}

void read(const QString &path, Reading &reading)
{
    const QFileInfo file(fromRoot(path));
    struct stat status = {};
    if (!readStatus(file.filePath(), status))
        throw FileFailure(path, errorText(errno));
    if (!S_ISREG(status.st_mode) && !S_ISDIR(status.st_mode)) // reading a pipe would block
        throw FileFailure(path, "is neither a file nor a folder");
    if (S_ISDIR(status.st_mode))
        requireReadable(path);
    const MediaType *type = S_ISREG(status.st_mode) ? findType(file.fileName()) : nullptr;
    if (type && type->kind == VIDEO) {
        readVideo(file, *type, reading);
        return;
    }
    VornFileHandler::getMetadata(file, reading.record);
    if (type && type->kind == AUDIO)
        reading.measured = measure(file.absoluteFilePath());
}

/// Reads several files and folders, as many at a time as there are processors: reading a video or audio file
/// requires an ffprobe process.
class Reader
{
public:
    explicit Reader(const QStringList &paths) : mReadings(static_cast<size_t>(paths.size()))
    {
        auto reading = mReadings.begin();
        for (const QString &path : paths)
            mTasks.emplace_back([path, &into = *reading++] { read(path, into); });
        const size_t processors = std::max(std::thread::hardware_concurrency(), 1U);
        for (size_t i = 0; i < std::min(processors, mTasks.size()); ++i)
            mThreads.push_back(std::async(std::launch::async, [this] { readAll(); }));
    }
    ~Reader() { mNext = mTasks.size(); }
    Reader(const Reader &) = delete;
    Reader &operator=(const Reader &) = delete;

    /// Waits until path number @p index has been read, and returns the result. Call this once for each.
    /// Throws what read() throws.
    const Reading &reading(size_t index)
    {
        mTasks[index].get_future().get();
        return mReadings[index];
    }

private:
    void readAll()
    {
        for (size_t i = mNext++; i < mTasks.size(); i = mNext++)
            mTasks[i]();
    }

    std::vector<Reading> mReadings;
    std::vector<std::packaged_task<void()>> mTasks;
    std::atomic<size_t> mNext{0};
    std::vector<std::future<void>> mThreads; // last, because its destructor waits for the threads
};

std::optional<qint64> msecs(const QDateTime &time)
{
    return time.isValid() ? std::optional(time.toMSecsSinceEpoch()) : std::nullopt;
}

bool isTimed(Kind kind)
{
    return kind == VIDEO || kind == AUDIO;
}

QJsonValue ifMeasured(double value)
{
    return value > 0 ? QJsonValue(value) : QJsonValue();
}

QByteArray toJson(const QString &path, const Reading &reading, bool isMarked)
{
    const Metadata &record = reading.record;
    FileFacts file = fileAt(fromRoot(path));
    file.isFolder = record.mType == FILE_TYPE_DIRECTORY;
    file.size = record.mSize;
    file.created = msecs(record.mCreated);
    file.modified = msecs(record.mLastModified);
    file.thumbnail = !file.isFolder && hasThumbnails(file.path) ? thumbnailBeside(file.path) : QString();
    file.isProtected = isMarked;
    QJsonObject object = {
        {"name", record.mFileName}, {"width", record.mWidth},     {"height", record.mHeight},
        {"length", record.mLength}, {"bitrate", record.mBitrate}, {"framerate", record.mFramerate},
    };
    if (record.mType == FILE_TYPE_DIRECTORY) {
        object["imageCount"] = record.mImageCount;
        object["thumbCount"] = record.mThumbCount;
        object["videoCount"] = record.mVideoCount;
        object["audioCount"] = record.mAudioCount;
    } else if (isTimed(kindOf(record.mFileName))) {
        object["measuredLength"] = ifMeasured(reading.measured.seconds);
        object["measuredBitrate"] = ifMeasured(static_cast<double>(reading.measured.bitrate));
        object["measuredFramerate"] = ifMeasured(reading.measured.framerate);
    } else if (const QString comment = commentIn(file.path); !comment.isEmpty()) {
        object["comment"] = comment;
    }
    return toJson(file, object);
}

QString typeText(const Metadata &record)
{
    if (record.mType == FILE_TYPE_DIRECTORY)
        return "folder";
    const MediaType *type = findType(record.mFileName);
    return type ? type->name : "other";
}

QString pictureText(const Metadata &record)
{
    return record.mWidth > 0 && record.mHeight > 0
               ? QString("%1 x %2 pixels").arg(record.mWidth).arg(record.mHeight)
               : QString("unknown");
}

void print(const QString &name, const QString &value)
{
    constexpr int WIDTH = 8;
    printField(name, value, WIDTH);
}

void printMeasured(const Measured &measured, Kind kind)
{
    const QString unknown =
        "could not be measured" + (measured.failure.isEmpty() ? QString() : ": " + measured.failure);
    const QString length = QString("%1 (%2 s)")
                               .arg(durationText(static_cast<qint64>(measured.seconds)))
                               .arg(measured.seconds, 0, 'f', 1);
    print("length", measured.seconds > 0 ? length : unknown);
    print("bitrate", measured.bitrate > 0 ? bitrateText(measured.bitrate) : unknown);
    const QString frames = QString("%1 per second").arg(measured.framerate, 0, 'g', 5);
    if (kind == VIDEO)
        print("frames", measured.framerate > 0 ? frames : unknown);
}

void printFolder(const Metadata &record)
{
    print("images", QString::number(record.mImageCount));
    print("thumbs", QString::number(record.mThumbCount));
    print("videos", QString::number(record.mVideoCount));
    print("audio", QString::number(record.mAudioCount));
}

bool isMarked(const QString &path, ProtectionCheck &protection)
{
    try {
        return protection.isProtected(fromRoot(path));
    } catch (const FileFailure &) { // the folder of an unprotected file cannot be read
        return false;
    }
}

void print(const QString &path, const Reading &reading, bool isProtected)
{
    const Metadata &record = reading.record;
    const Kind kind = kindOf(record.mFileName);
    printLine(printable(path));
    print("type", typeText(record));
    print("size", exactSize(record.mSize));
    print("created", timeText(record.mCreated));
    print("modified", timeText(record.mLastModified));
    if (isProtected)
        print("mark", "protected");
    if (record.mType == FILE_TYPE_DIRECTORY) {
        printFolder(record);
        return;
    }
    if (kind != AUDIO && kind != OTHER)
        print("picture", pictureText(record));
    if (isTimed(kind))
        printMeasured(reading.measured, kind);
    else if (const QString comment = commentIn(fromRoot(path)); !comment.isEmpty())
        print("comment", comment);
}

ExitCode showInfo(const QStringList &paths)
{
    Reader reader(paths);
    ProtectionCheck protection;
    size_t index = 0;
    const int failures = forEachReporting(paths, [&](const QString &path) {
        const Reading &reading = reader.reading(index++);
        const bool isProtected = isMarked(path, protection);
        if (isJson())
            printResult(toJson(path, reading, isProtected));
        else
            print(path, reading, isProtected);
    });
    return failures > 0 ? FAILED : DONE;
}

} // namespace

void addInfo(CommandLine &line)
{
    struct Request {
        Option paths;
        FileList list;
    };
    const auto request = std::make_shared<Request>();
    const auto run = [request] {
        QStringList paths;
        for (const std::string &path : namesIn(request->paths, request->list))
            paths.append(requiredPath(path));
        return showInfo(paths);
    };
    const Command command = line.addIndependent(
        "info",
        "Shows what is known about files and folders: type, size, times, picture size, comment and\n"
        "protection; for videos and audio files also the length and bit rate, and for videos the frame\n"
        "rate, as measured by ffprobe",
        run);
    request->paths = addNames(command, "PATH...", "Files and folders").required(false);
    request->list.addOptions(command);
    addResultOptions(command);
    command.example("vornfh info /mnt/sd/DCIM/100VORN/*.avi");
}

// SPDX-License-Identifier: MIT
#include "claim.h"
#include "commands.h"
#include "device.h"
#include "durable.h"
#include "ffmpeg.h"
#include "files.h"
#include "media.h"
#include "mounts.h"
#include "numbering.h"
#include "objects.h"
#include "output.h"
#include "paths.h"
#include "recording.h"
#include "signals.h"
#include "text.h"

#include <QFile>
#include <QFileInfo>

#include <cerrno>
#include <chrono>
#include <memory>

#include <fcntl.h>
#include <unistd.h>

using namespace VORN_FILE_HANDLER;

namespace {

struct Request {
    eStorageType storage = STORAGE_MMC;
    std::string type = "avi";
    int count = 1;
    double duration = 2;
    std::string input;
};

struct Recording {
    Storage storage;
    MediaType type;
    double duration;
    QString input; // empty for the test picture and tone
};

/// A moving picture and a tone; a photo is tinted by its number, so that consecutive ones differ.
QString testSource(Kind kind, int number)
{
    const QString picture = "testsrc2=size=640x480:rate=25";
    const QString tone = "sine=frequency=440";
    if (kind == AUDIO)
        return tone;
    return kind == VIDEO ? picture + "[out0];" + tone + "[out1]"
                         : QString("%1,hue=h=%2").arg(picture).arg(number * 37 % 360);
}

QStringList inputArguments(const Recording &recording, const QString &path)
{
    if (recording.input.isEmpty())
        return {"-f", "lavfi", "-i", testSource(recording.type.kind, fileNumber(path))};
    if (recording.input.startsWith("/dev/video"))
        return {"-f", "v4l2", "-i", recording.input};
    return {"-i", recording.input};
}

QStringList outputArguments(const Recording &recording)
{
    static const QStringList PICTURE = {"-map", "0:v:0", "-frames:v", "1", "-update", "1", "-f", "image2"};
    static const QStringList VIDEO_STREAMS = {"-map", "0:v:0", "-map", "0:a:0?"};
    const QStringList end = {"-t", QString::number(recording.duration, 'f', 3), "-abort_on", "empty_output"};
    switch (recording.type.type) {
    case FILE_TYPE_IMAGE_JPEG:
        return PICTURE + QStringList{"-c:v", "mjpeg", "-pix_fmt", "yuvj420p", "-q:v", "3"};
    case FILE_TYPE_IMAGE_PNG: return PICTURE + QStringList{"-c:v", "png"};
    case FILE_TYPE_AUDIO_WAV:
        return QStringList{"-map", "0:a:0", "-c:a", "pcm_s16le"} + end + QStringList{"-f", "wav"};
    case FILE_TYPE_VIDEO_MKV:
        return VIDEO_STREAMS + QStringList{"-c:v", "mpeg4", "-pix_fmt", "yuv420p", "-q:v", "5", "-c:a", "aac"}
               + end + QStringList{"-f", "matroska"};
    default:
        return VIDEO_STREAMS
               + QStringList{"-c:v", "mjpeg", "-pix_fmt", "yuvj420p", "-q:v", "5", "-c:a", "pcm_s16le"} + end
               + QStringList{"-f", "avi"};
    }
}

const QString FULL = "the storage device is full";

/// Space left free for the index that ffmpeg writes at the end, and for the thumbnail.
constexpr qint64 RESERVE = 256 << 10;

/// The sizes in the header of a WAV file have 32 bits.
constexpr qint64 LARGEST_RIFF = 0xFFFFFFFF;

/// The size at which ffmpeg ends a recording, and why.
struct SizeLimit {
    qint64 bytes;
    QString reason;
};

/// The index of a recording takes less than a hundredth of its size. Throws Failure if nothing can be
/// recorded.
SizeLimit sizeLimit(const QString &folder, Kind kind)
{
    const auto withoutIndex = [](qint64 bytes) { return bytes - RESERVE - bytes / 64; };
    const qint64 free = freeBytes(folder);
    const qint64 largest = withoutIndex(kind == AUDIO ? LARGEST_RIFF : largestFile(folder));
    if (withoutIndex(free) <= 0)
        throw Failure(QString("%1: not enough space to record: %2 free").arg(folder, humanSize(free)));
    if (withoutIndex(free) <= largest)
        return {withoutIndex(free), FULL};
    return {largest, "the file has reached the largest size of its format or of the file system"};
}

/// Decides whether ffmpeg must stop while it is writing a recording.
class Watch
{
public:
    explicit Watch(const QString &path) : mPath(path) {}

    /// Returns why the recording must stop; empty while it need not.
    QString whyStop()
    {
        if (isStopped())
            return "interrupted";
        if (freeBytes(QFileInfo(mPath).path()) < RESERVE / 2)
            return FULL;
        const auto now = std::chrono::steady_clock::now();
        if (now - mLastFlush < INTERVAL)
            return QString();
        mLastFlush = now;
        // ffmpeg writes to the page cache: only a flush shows that the storage device has been pulled out.
        const Descriptor file = openFile(mPath, O_RDONLY | O_NONBLOCK);
        mHasLostData = !file.isOpen() || ::fdatasync(file.get()) != 0;
        return mHasLostData ? errorText(errno) : QString();
    }

    /// Returns whether a flush has failed. The kernel reports that only once: later flushes succeed although
    /// the data is not on the device.
    bool hasLostData() const { return mHasLostData; }

private:
    static constexpr auto INTERVAL = std::chrono::seconds(3);

    const QString mPath;
    std::chrono::steady_clock::time_point mLastFlush = std::chrono::steady_clock::now();
    bool mHasLostData = false;
};

/// Deletes a file that ffmpeg has failed to write. Returns text to append to the error message; empty on
/// success.
QString discard(const QString &path)
{
    return ::unlink(QFile::encodeName(path).constData()) == 0
               ? QString()
               : "; the incomplete file cannot be deleted: " + errorText(errno);
}

/// Puts a small picture beside the recording @p path. Returns the reason for a failure; empty on success.
QString makeThumbnail(const QString &path)
{
    const QString thumbnail = thumbnailOf(path);
    if (!createExclusively(thumbnail))
        return thumbnail + ": was created by another program and is left as it is";
    const QString reason = writeThumbnail(path, thumbnail);
    if (reason.isEmpty() && QFileInfo(thumbnail).size() > 0)
        return QString();
    return thumbnail + ": cannot be created" + (reason.isEmpty() ? QString() : ": " + reason)
           + discard(thumbnail);
}

/// Closes a recording that ended early. Returns the reason for a failure; empty on success.
QString keep(const QString &path)
{
    try {
        if (!isClosed(path))
            closeRecording(path);
        return QString();
    } catch (const FileFailure &failure) {
        if (isClosed(path)) // and perhaps not on the device
            throw;
        return QString::fromUtf8(failure.what()) + "; it is kept as it is";
    }
}

/// Runs ffmpeg and returns why the recording ended early; empty if it did not.
QString run(const Recording &recording, const QString &path, const SizeLimit &limit, Watch &watch)
{
    const QString problem = runFfmpeg(inputArguments(recording, path) + outputArguments(recording)
                                          + QStringList{"-fs", QString::number(limit.bytes)},
                                      path, [&watch] { return watch.whyStop(); });
    const qint64 size = QFileInfo(path).size();
    if (problem.isEmpty() && size == 0)
        return "ffmpeg wrote nothing";
    return problem.isEmpty() && size >= limit.bytes ? limit.reason : problem;
}

/// Makes one recording and prints its path when it is on the device. A recording with content is kept,
/// however it ended.
ExitCode recordOne(const Recording &recording)
{
    const SizeLimit limit = sizeLimit(nearestExisting(recording.storage.location), recording.type.kind);
    const QString path = claimPath(recording.storage, recording.type.type);
    const Descriptor held = holdForWriting(path); // so that prune leaves it alone
    removeLeftovers(QFileInfo(path).path());
    Watch watch(path);
    const QString problem = run(recording, path, limit, watch);
    if (!problem.isEmpty() && !hasContent(path))
        throw FileFailure(path, "recording failed: " + problem + discard(path));
    QStringList problems;
    if (!problem.isEmpty())
        problems << path + ": recording ended early: " + problem << keep(path);
    if (recording.type.kind != AUDIO)
        problems << makeThumbnail(path);
    problems.removeAll(QString());
    const QString thumbnail = thumbnailOf(path);
    flushWithFolders(QFile::exists(thumbnail) ? QStringList{path, thumbnail} : QStringList{path});
    if (!watch.hasLostData())
        printDone(printable(path));
    for (const QString &text : problems)
        printError(text);
    return problems.isEmpty() ? DONE : FAILED;
}

ExitCode record(const Recording &recording, int count)
{
    requireFfmpeg("recording");
    requireWritable(recording.storage);
    catchStopSignals();
    for (int i = 0; i < count; ++i) {
        if (isStopped())
            throw Failure(QString("interrupted after %1 of %2 recordings").arg(i).arg(count));
        if (recordOne(recording) != DONE)
            return FAILED;
    }
    return DONE;
}

} // namespace

void addRecord(CommandLine &line)
{
    const auto request = std::make_shared<Request>();
    const auto run = [&line, request] {
        const Storage storage = line.storages().require(request->storage);
        return record({storage, typeOf(QString::fromStdString(request->type)), request->duration,
                       fromCommandLine(request->input, "--input")},
                      request->count);
    };
    CLI::App &command = line.add(
        "record",
        "Makes the next recordings on a storage device with ffmpeg and prints their paths. Photos and "
        "videos\n"
        "get a thumbnail beside them. A recording that ends early, because it was interrupted (SIGINT, "
        "SIGTERM,\n"
        "SIGHUP), the storage device is full or ffmpeg failed, is closed and kept if it has content",
        run);
    addStorageArgument(command, request->storage);
    command.add_option("--type", request->type, "Type of the recordings")
        ->check(CLI::IsMember({"avi", "mkv", "jpg", "png", "wav"}).description(""))
        ->type_name("avi|mkv|jpg|png|wav")
        ->capture_default_str();
    command.add_option("--count", request->count, "Number of recordings, made one after the other")
        ->check(between(1, LAST_FILE))
        ->type_name("N")
        ->capture_default_str();
    command.add_option("--duration", request->duration, "Length of a video or audio recording")
        ->check(between(0.1, 86400))
        ->type_name("SECONDS")
        ->capture_default_str();
    command
        .add_option(
            "--input", request->input,
            "The source: /dev/video0 or any other ffmpeg input. Default: a moving test picture and a\n"
            "tone")
        ->type_name("INPUT");
}

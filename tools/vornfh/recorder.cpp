// SPDX-License-Identifier: MIT
#include "recorder.h"

#include "claim.h"
#include "dryrun.h"
#include "durable.h"
#include "ffmpeg.h"
#include "files.h"
#include "mounts.h"
#include "numbering.h"
#include "objects.h"
#include "output.h"
#include "paths.h"
#include "progress.h"
#include "pruning.h"
#include "recording.h"
#include "report.h"
#include "signals.h"
#include "text.h"

#include <QFile>
#include <QFileInfo>
#include <QMap>

#include <algorithm>
#include <cerrno>
#include <csignal>

#include <fcntl.h>
#include <unistd.h>

using namespace VORN_FILE_HANDLER;

namespace {

/// A moving picture and a tone; the tint of a photo depends on its number, so that consecutive photos differ.
QString testSource(Kind kind, int number)
{
    const QString picture = "testsrc2=size=640x480:rate=25";
    const QString tone = "sine=frequency=440";
    if (kind == AUDIO)
        return tone;
    return kind == VIDEO ? picture + "[out0];" + tone + "[out1]"
                         : QString("%1,hue=h=%2").arg(picture).arg(number * 37 % 360);
}

/// Space left free for the index that ffmpeg writes at the end, and for the thumbnail.
constexpr qint64 RESERVE = 256 << 10;

/// The sizes in the header of a WAV file have 32 bits.
constexpr qint64 LARGEST_RIFF = 0xFFFFFFFF;

/// The index of a recording takes less than a hundredth of its size.
qint64 withoutIndex(qint64 bytes)
{
    return bytes - RESERVE - bytes / 64;
}

/// Observes the input of an ffmpeg process that was started with the option "-progress".
class InputWatch
{
public:
    /// Reads what ffmpeg has reported since the last call.
    void read(const QByteArray &reports)
    {
        constexpr std::chrono::steady_clock::duration LONGEST_STEP = std::chrono::seconds(1);
        // While this process flushes to a slow device, it reads no reports, so at most one second of that
        // time counts.
        const auto now = std::chrono::steady_clock::now();
        mSilence += std::min(now - mLastRead, LONGEST_STEP);
        mLastRead = now;
        for (const QByteArray &line : reports.split('\n')) {
            const QByteArray name = line.left(line.indexOf('='));
            if ((name == "frame" || name == "out_time_us") && mPosition.value(name) != line) {
                mPosition[name] = line;
                mSilence = {};
            }
        }
    }

    bool isSilent(double seconds) const { return mSilence > std::chrono::duration<double>(seconds); }

private:
    QMap<QByteArray, QByteArray> mPosition;
    std::chrono::steady_clock::time_point mLastRead = std::chrono::steady_clock::now();
    std::chrono::steady_clock::duration mSilence = {};
};

/// Creates the thumbnail of the recording @p path. Returns what failed; nullopt on success.
std::optional<FileFailure> makeThumbnail(const QString &path)
{
    const QString thumbnail = thumbnailOf(path);
    try {
        if (!createExclusively(thumbnail))
            return FileFailure(thumbnail, "was created by another program and is left unchanged");
    } catch (const FileFailure &failure) {
        return failure;
    }
    const QString reason = writeThumbnail(path, thumbnail);
    if (reason.isEmpty() && QFileInfo(thumbnail).size() > 0)
        return std::nullopt;
    return FileFailure(thumbnail, "cannot be created" + (reason.isEmpty() ? QString() : ": " + reason)
                                      + discard(thumbnail));
}

/// Closes a recording that ended early. Returns what failed; nullopt on success.
std::optional<FileFailure> keep(const QString &path)
{
    try {
        if (!isClosed(path))
            closeRecording(path);
        return std::nullopt;
    } catch (const FileFailure &failure) {
        if (isClosed(path)) // but it may not be on the device
            throw;
        return FileFailure(failure.path(), failure.reason() + "; it is kept unchanged");
    }
}

/// Runs ffmpeg and returns why the recording was stopped or failed; empty if it ended as requested.
QString run(const RecorderSettings &settings, const QString &path, const SizeLimit &limit,
            DeviceWatch &device)
{
    InputWatch input;
    RecordingProgress progress(!settings.keepFree);
    const auto whyStop = [&](const QByteArray &reports) {
        input.read(reports);
        progress.set(QFileInfo(path).size(), freeBytes(QFileInfo(path).path()));
        if (isStopped())
            return INTERRUPTED;
        const QString problem = device.problem();
        return problem.isEmpty() && input.isSilent(settings.timeout) ? silenceText(settings) : problem;
    };
    Ffmpeg ffmpeg(QStringList{"-progress", "pipe:1"} + inputArguments(settings, path)
                  + codecArguments(settings)
                  + QStringList{"-f", containerOf(settings.type), "-fs", QString::number(limit.bytes)}
                  + fileOutput(path));
    const QString problem = ffmpeg.finish(whyStop);
    if (!problem.isEmpty())
        return problem;
    const qint64 size = QFileInfo(path).size();
    if (size == 0)
        return "ffmpeg wrote nothing";
    return size >= limit.bytes ? limit.reason : whyIncomplete(settings, ffmpeg);
}

} // namespace

void SpaceKeeper::makeRoom()
{
    if (!mSettings.keepFree)
        return;
    QString problem;
    try {
        PrunePolicy policy;
        policy.keepFree = mSettings.keepFree;
        const auto report = [this](const std::vector<FileFacts> &files) {
            for (const FileFacts &file : files) {
                if (mIsDryRun)
                    printWouldBeDeleted(file.path);
            }
        };
        const PruneResult result = prune(mSettings.storage, policy, report, mIsDryRun);
        if (!result.isMet && !result.isInterrupted)
            problem = unmetPolicies(mSettings.storage, policy, result);
    } catch (const Failure &failure) {
        problem = QString::fromUtf8(failure.what());
    }
    if (!problem.isEmpty() && !mHasReported)
        printError(problem);
    mHasReported = mHasReported || !problem.isEmpty();
}

ExitCode recordOne(const RecorderSettings &settings)
{
    const SizeLimit limit = requireSpace(settings);
    const QString path = claimPath(settings.storage, settings.type.type);
    const Descriptor held = holdForWriting(path); // so that prune leaves it alone
    removeLeftovers(QFileInfo(path).path());
    DeviceWatch device(path);
    const QString reason = run(settings, path, limit, device);
    const bool isNormal = reason == INTERRUPTED && isNormalEnd(settings);
    return finishRecording(settings, path, {reason, isNormal, device.hasLostData()}).report() ? DONE : FAILED;
}

QStringList inputArguments(const RecorderSettings &settings, const QString &path)
{
    const RecorderInput &input = settings.input;
    if (input.name.isEmpty()) {
        // Without a duration, the test picture is generated in real time.
        const QStringList speed = settings.duration > 0 ? QStringList() : QStringList{"-re"};
        const int number = fileNumber(QFileInfo(path).fileName()).value_or(0);
        return speed + QStringList{"-f", "lavfi", "-i", testSource(settings.type.kind, number)};
    }
    const bool isCamera = input.format.isEmpty() && input.name.startsWith("/dev/video");
    QStringList arguments;
    const auto add = [&arguments](const QString &name, const QString &value) {
        if (!value.isEmpty())
            arguments << name << value;
    };
    add("-f", isCamera ? "v4l2" : input.format);
    add("-video_size", input.size);
    add("-framerate", input.rate);
    add("-i", input.name);
    return arguments;
}

QStringList codecArguments(const RecorderSettings &settings)
{
    static const QStringList PICTURE = {"-map", "0:v:0", "-frames:v", "1", "-update", "1"};
    static const QStringList VIDEO_STREAMS = {"-map", "0:v:0", "-map", "0:a:0?"};
    const QStringList length =
        settings.duration > 0 ? QStringList{"-t", QString::number(settings.duration, 'f', 3)} : QStringList();
    const QStringList end = length + QStringList{"-abort_on", "empty_output"};
    switch (settings.type.type) {
    case FILE_TYPE_IMAGE_JPEG:
        return PICTURE + QStringList{"-c:v", "mjpeg", "-pix_fmt", "yuvj420p", "-q:v", "3"};
    case FILE_TYPE_IMAGE_PNG: return PICTURE + QStringList{"-c:v", "png"};
    case FILE_TYPE_AUDIO_WAV: return QStringList{"-map", "0:a:0", "-c:a", "pcm_s16le"} + end;
    case FILE_TYPE_VIDEO_MKV:
        // A segment begins with a key frame. Without -force_key_frames, those of a slow camera could be
        // minutes apart.
        return VIDEO_STREAMS + QStringList{"-c:v", "mpeg4", "-pix_fmt",          "yuv420p",
                                           "-q:v", "5",     "-force_key_frames", "expr:gte(t,n_forced)",
                                           "-c:a", "aac"}
               + end;
    default:
        return VIDEO_STREAMS
               + QStringList{"-c:v", "mjpeg", "-pix_fmt", "yuvj420p", "-q:v", "5", "-c:a", "pcm_s16le"} + end;
    }
}

QString ffmpegCommand(const RecorderSettings &settings, const QString &path)
{
    QStringList words = inputArguments(settings, path) + codecArguments(settings)
                        + QStringList{"-f", containerOf(settings.type)} + fileOutput(path);
    for (QString &word : words) {
        if (unsafeCharacter(word) >= 0)
            word = "'" + word.replace("'", "'\\''") + "'";
    }
    return "ffmpeg " + words.join(' ');
}

QString silenceText(const RecorderSettings &settings)
{
    return QString("the input has delivered no data for %1 s").arg(settings.timeout);
}

QString whyIncomplete(const RecorderSettings &settings, const Ffmpeg &ffmpeg)
{
    if (settings.type.kind == PHOTO)
        return QString();
    const QString error = ffmpeg.lastError();
    const QString end = "the input has ended";
    if (settings.duration <= 0)
        return error.isEmpty() ? end : end + ": " + error;
    // ffmpeg prints "INPUT: No such device" and exits with code 0 if a camera is disconnected.
    const QString &input = settings.input.name;
    return !input.isEmpty() && error.startsWith(printable(input) + ": ") ? end + ": " + error : QString();
}

bool isNormalEnd(const RecorderSettings &settings)
{
    return settings.duration <= 0 && (stopSignal() == SIGINT || stopSignal() == SIGTERM);
}

SizeLimit largestRecording(const QString &folder, Kind kind)
{
    return {withoutIndex(kind == AUDIO ? LARGEST_RIFF : largestFile(folder)),
            "the file has reached the largest size that its format or the file system allows"};
}

SizeLimit sizeLimit(const QString &folder, Kind kind)
{
    const SizeLimit largest = largestRecording(folder, kind);
    const qint64 free = withoutIndex(freeBytes(folder));
    return free <= largest.bytes ? SizeLimit{free, FULL} : largest;
}

SizeLimit requireSpace(const RecorderSettings &settings)
{
    const QString folder = nearestExisting(settings.storage.location);
    const SizeLimit limit = sizeLimit(folder, settings.type.kind);
    if (limit.bytes <= 0)
        throw Failure(
            QString("%1: not enough space to record: %2 free").arg(folder, humanSize(freeBytes(folder))));
    return limit;
}

QString DeviceWatch::problem()
{
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

bool FinishedRecording::report() const
{
    if (isReportable)
        reportDone(printable(path), [this] { return toJson(factsOf(path), {{"action", "recorded"}}); });
    for (const FileFailure &problem : problems)
        printFailure(problem);
    return problems.isEmpty();
}

FinishedRecording finishRecording(const RecorderSettings &settings, const QString &path, const Ending &ending)
{
    if (!ending.reason.isEmpty() && !hasContent(path))
        throw FileFailure(path, "recording failed: " + ending.reason + discard(path));
    QList<FileFailure> problems;
    const auto add = [&problems](const std::optional<FileFailure> &problem) {
        if (problem)
            problems.append(*problem);
    };
    if (!ending.reason.isEmpty()) {
        if (!ending.isNormal)
            add(FileFailure(path, "recording ended early: " + ending.reason));
        add(keep(path));
    }
    if (settings.type.kind != AUDIO)
        add(makeThumbnail(path));
    const QString thumbnail = thumbnailOf(path);
    flushWithFolders(QFile::exists(thumbnail) ? QStringList{path, thumbnail} : QStringList{path});
    return {path, !ending.hasLostData, problems};
}

QString discard(const QString &path)
{
    return ::unlink(QFile::encodeName(path).constData()) == 0
               ? QString()
               : "; the incomplete file cannot be deleted: " + errorText(errno);
}

// SPDX-License-Identifier: MIT
#include "claim.h"
#include "commands.h"
#include "device.h"
#include "ffmpeg.h"
#include "folders.h"
#include "media.h"
#include "mounts.h"
#include "numbering.h"
#include "output.h"
#include "paths.h"
#include "pruning.h"
#include "recorder.h"
#include "segments.h"
#include "signals.h"
#include "text.h"

#include <QRegularExpression>

#include <functional>
#include <memory>
#include <optional>

using namespace VORN_FILE_HANDLER;

namespace {

struct Request {
    eStorageType storage = STORAGE_MMC;
    std::string type = "avi";
    int count = 1;
    std::optional<double> duration;
    bool isLoop = false;
    bool isDryRun = false;
    KeepFree keepFree = {0, 10};
    RecorderSettings settings; // the others
};

void requireSensible(const RecorderSettings &settings, const Request &request)
{
    const bool isPhoto = settings.type.kind == PHOTO;
    if (settings.isSegmented() && isPhoto)
        throw UsageError("--segment requires a video or audio type: avi, mkv or wav");
    if (settings.isSegmented() && request.count > 1)
        throw UsageError("--segment excludes --count");
    if (settings.duration <= 0 && !isPhoto && request.count > 1)
        throw UsageError("--count requires a --duration of more than 0");
    if (request.isLoop && !settings.isSegmented() && request.count == 1)
        throw UsageError("--loop requires --segment or a --count of more than 1");
}

RecorderSettings settingsFor(const Storage &storage, const Request &request)
{
    constexpr double USUAL_DURATION = 2;
    RecorderSettings settings = request.settings;
    settings.storage = storage;
    settings.type = typeOf(QString::fromStdString(request.type));
    settings.duration = request.duration.value_or(settings.isSegmented() ? 0 : USUAL_DURATION);
    requireSensible(settings, request);
    if (request.isLoop)
        settings.keepFree = request.keepFree.bytesOn(nearestExisting(storage.location));
    return settings;
}

/// Prints a line if a file cannot become as large as was requested, or if a segment, or a recording without a
/// duration, can end early because its file has reached the largest size. The limit of the WAV format can
/// also end a segment early, but only after several hours; that is not reported.
void reportLargestSize(const RecorderSettings &settings)
{
    const QString folder = nearestExisting(settings.storage.location);
    const Kind kind = settings.type.kind;
    const qint64 largest = largestRecording(folder, kind).bytes;
    const bool isLimited = largestFile(folder) < UNLIMITED;
    const bool isEndless = settings.duration <= 0 && kind != PHOTO && !settings.isSegmented();
    if (settings.segmentBytes > largest)
        printError(QString("--segment: a file of this type on this file system cannot be as large as %1; "
                           "segments end at %2")
                       .arg(humanSize(settings.segmentBytes), humanSize(largest)));
    else if ((settings.segmentSeconds > 0 && isLimited) || (isEndless && (isLimited || kind == AUDIO)))
        printError(QString("a file of this type on this file system can be at most %1; %2 ends there")
                       .arg(humanSize(largest), isEndless ? "the recording" : "a segment"));
}

ExitCode recordSeveral(const RecorderSettings &settings, int count)
{
    SpaceKeeper space(settings);
    for (int i = 0; i < count; ++i) {
        if (isStopped())
            throw Failure(QString("interrupted after %1 of %2 recordings").arg(i).arg(count));
        space.makeRoom();
        if (recordOne(settings) != DONE)
            return FAILED;
    }
    return DONE;
}

/// Prints what would be deleted, the path of the first recording, and the command line of ffmpeg.
void printPlan(const RecorderSettings &settings)
{
    SpaceKeeper(settings, true).makeRoom();
    if (!settings.keepFree) // what would be deleted still takes up space
        requireSpace(settings);
    const QString path = freePath(settings.storage, settings.type.type);
    const QString command = ffmpegCommand(settings, path);
    reportDone(printable(path) + "\n" + printable(command), [&] {
        return toJson(fileAt(path), {{"action", "recorded"}, {"command", command}});
    });
}

ExitCode record(const RecorderSettings &settings, int count, bool isDryRun)
{
    if (settings.keepFree)
        requireNotRoot(settings.storage);
    requireFfmpeg("recording");
    requireWritable(settings.storage);
    catchStopSignals();
    reportLargestSize(settings);
    if (isDryRun) {
        printPlan(settings);
        return DONE;
    }
    return settings.isSegmented() ? recordSegments(settings) : recordSeveral(settings, count);
}

// The command line

void setSegment(RecorderSettings &settings, const QString &text)
{
    constexpr qint64 LONGEST = 86400;
    constexpr qint64 SMALLEST = 1 << 20;
    bool isNumber = false;
    const qint64 seconds = text.toLongLong(&isNumber);
    settings.segmentSeconds = isNumber ? seconds : parsedAge(text).value_or(0);
    settings.segmentBytes = isNumber ? 0 : parsedSize(text).value_or(0);
    const bool isTime = settings.segmentSeconds > 0 && settings.segmentSeconds <= LONGEST;
    if (!isTime && settings.segmentBytes < SMALLEST)
        throw wrongValue("--segment", text,
                         "a time of at most 24h, such as 60, 90s or 10m, or a size of at least 1M");
}

QString matching(const QString &text, const QString &pattern, const QString &option, const QString &wanted)
{
    if (!QRegularExpression(QRegularExpression::anchoredPattern(pattern)).match(text).hasMatch())
        throw wrongValue(option, text, wanted);
    return text;
}

void setFormat(RecorderSettings &settings, const QString &text)
{
    settings.input.format = matching(text, "[A-Za-z0-9_][A-Za-z0-9_,.-]*", "--input-format",
                                     "the name of an ffmpeg format, such as v4l2");
}

void setSize(RecorderSettings &settings, const QString &text)
{
    settings.input.size =
        matching(text, "[1-9][0-9]{0,4}x[1-9][0-9]{0,4}", "--size", "a size such as 1920x1080");
}

void setRate(RecorderSettings &settings, const QString &text)
{
    settings.input.rate = matching(text, "(?=[0.]*[1-9])[0-9]{1,9}(\\.[0-9]{1,9})?(/0*[1-9][0-9]{0,8})?",
                                   "--rate", "a positive number or fraction, such as 25 or 30000/1001");
}

/// Adds an option whose value @p set checks and stores.
Option addChecked(const Command &command, const char *name, const std::function<void(const QString &)> &set,
                  const char *type, const char *description)
{
    return command
        .option(
            name, [=](const std::string &text) { set(fromCommandLine(text, name)); }, description)
        .type(type);
}

void addInputOptions(const Command &command, const std::shared_ptr<Request> &request)
{
    const Option input = addChecked(
        command, "--input", [request](const QString &text) { request->settings.input.name = text; }, "INPUT",
        "The source: /dev/video0 or any other ffmpeg input. Default: a moving test picture and a\n"
        "tone, generated in real time with --duration 0");
    const auto add = [&](const char *name, void (*set)(RecorderSettings &, const QString &), const char *type,
                         const char *description) {
        addChecked(
            command, name, [=](const QString &text) { set(request->settings, text); }, type, description)
            .needs(input);
    };
    add("--input-format", setFormat, "FORMAT",
        "The ffmpeg name of the input format. Default: v4l2 for /dev/video*");
    add("--size", setSize, "WxH", "The picture size to request from the input");
    add("--rate", setRate, "N|N/M", "The frame rate to request from the input");
    command
        .option("--timeout", request->settings.timeout,
                "End the recording if the input delivers no data for this long")
        .between(0.1, 86400)
        .type("SECONDS")
        .showDefault();
}

void addSegmentOptions(const Command &command, const std::shared_ptr<Request> &request)
{
    addChecked(
        command, "--segment", [request](const QString &text) { setSegment(request->settings, text); },
        "SECONDS|SIZE",
        "Begin a new file after this time or size (60, 90s, 10m, 100M, 2G), without losing a frame");
    const Option loop =
        command.flag("--loop", request->isLoop,
                     "Delete the oldest objects before each recording or segment, as prune does");
    addChecked(
        command, "--keep-free",
        [request](const QString &text) { request->keepFree = KeepFree::parsed(text); }, "SIZE|PERCENT",
        "How much of the storage device --loop keeps free. Default: 10%")
        .needs(loop);
}

} // namespace

void addRecord(CommandLine &line)
{
    const auto request = std::make_shared<Request>();
    const auto run = [&line, request] {
        const RecorderSettings settings = settingsFor(line.storages().require(request->storage), *request);
        return record(settings, request->count, request->isDryRun);
    };
    const Command command = line.add(
        "record",
        "Makes the next recordings on a storage device with ffmpeg and prints their paths. Photos and\n"
        "videos get a thumbnail. A recording ends early if it is interrupted (SIGINT, SIGTERM, SIGHUP), the\n"
        "storage device is full, the input ends or delivers no data, or ffmpeg fails. It is then closed,\n"
        "and kept if it has content",
        run);
    addStorageArgument(command, request->storage);
    command.option("--type", request->type, "Type of the recordings")
        .oneOf({"avi", "mkv", "jpg", "png", "wav"})
        .showDefault();
    command.option("--count", request->count, "Number of recordings, made one after the other")
        .between(1, LAST_FILE)
        .type("N")
        .showDefault();
    command
        .option("--duration", request->duration,
                "Length of a video or audio recording; with 0, it ends on SIGINT or SIGTERM, or early\n"
                "if its input ends. Default: 2, or 0 with --segment")
        .zeroOrBetween(0.1, 86400)
        .type("SECONDS");
    addInputOptions(command, request);
    addSegmentOptions(command, request);
    addResultOptions(command);
    addDryRun(command, request->isDryRun);
    command.example("vornfh record sd --input /dev/video0 --segment 60 --loop");
}

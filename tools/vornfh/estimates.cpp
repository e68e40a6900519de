// SPDX-License-Identifier: MIT
#include "estimates.h"

#include "ffmpeg.h"
#include "text.h"

#include <algorithm>
#include <future>

namespace {

/// The number of objects, of each kind, from which the size of the next is estimated.
constexpr qint64 SAMPLE = 100;
/// The same for the bit rate of videos; ffprobe is started for each.
constexpr size_t MEASURED_VIDEOS = 3;

const ObjectFile *fileOf(const Object &object, Kind kind)
{
    const auto found = std::find_if(object.files.begin(), object.files.end(),
                                    [kind](const ObjectFile &file) { return file.type->kind == kind; });
    return found == object.files.end() ? nullptr : &*found;
}

Kind kindOf(const Object &object)
{
    for (const Kind kind : {VIDEO, PHOTO}) {
        if (fileOf(object, kind))
            return kind;
    }
    return AUDIO;
}

void add(ObjectSummary &summary, const NumberedFolder &folder, const Object &object)
{
    ++summary.count;
    summary.protectedCount += object.isProtected() ? 1 : 0;
    if (summary.count <= SAMPLE)
        summary.largest = std::max(summary.largest, object.size());
    const Kind kind = kindOf(object);
    ObjectSizes &last = summary.last[kind];
    if (last.count < SAMPLE && object.isReadable() && object.size() > 0) {
        ++last.count;
        last.sum += object.size();
    }
    const ObjectFile *video = kind == VIDEO ? fileOf(object, VIDEO) : nullptr;
    // One more than is measured, because the newest may still be open for writing.
    if (video && video->size > 0 && summary.videos.size() <= MEASURED_VIDEOS)
        summary.videos.push_back({folder.pathOf(*video), video->size});
}

void addMinutes(Estimate &estimate, const std::vector<LastVideo> &videos, qint64 free)
{
    std::vector<std::pair<qint64, std::future<Measured>>> measurements; // with the sizes
    for (const LastVideo &video : videos) {
        if (measurements.size() < MEASURED_VIDEOS && !isBeingWritten(video.path))
            measurements.emplace_back(video.size, std::async(std::launch::async, measure, video.path));
    }
    double size = 0;
    double seconds = 0;
    for (auto &measurement : measurements) {
        const Measured measured = measurement.second.get();
        if (measured.seconds > 0) {
            size += static_cast<double>(measurement.first);
            seconds += measured.seconds;
        }
        estimate.failure = measured.failure;
    }
    const auto bitrate = seconds > 0 ? static_cast<qint64>(size * 8 / seconds) : 0;
    if (bitrate > 0) {
        estimate.bitrate = bitrate;
        estimate.minutes = free / (60 * bitrate / 8);
    }
}

} // namespace

ObjectSummary summaryOf(const std::vector<NumberedFolder> &folders)
{
    ObjectSummary summary;
    for (auto folder = folders.rbegin(); folder != folders.rend(); ++folder) {
        for (auto object = folder->objects.rbegin(); object != folder->objects.rend(); ++object) {
            if (object->hasRecording())
                add(summary, *folder, *object);
        }
    }
    return summary;
}

Estimate estimateOf(const ObjectSummary &summary, qint64 free, qint64 numbersLeft)
{
    Estimate estimate;
    for (size_t kind = 0; kind < summary.last.size(); ++kind) {
        const qint64 mean = summary.last[kind].mean();
        if (mean > 0)
            estimate.objects[kind] = std::min(free / mean, numbersLeft);
    }
    addMinutes(estimate, summary.videos, free);
    return estimate;
}

QString whyFull(qint64 free, bool isEnough, qint64 largest, qint64 numbersLeft)
{
    if (numbersLeft == 0)
        return "no numbers are left";
    if (free == 0)
        return "no space is left";
    if (!isEnough)
        return humanSize(free) + " free, which is not enough to record";
    return free < largest ? QString("%1 free, but the largest of the last recordings is %2")
                                .arg(humanSize(free), humanSize(largest))
                          : QString();
}

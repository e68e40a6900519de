// SPDX-License-Identifier: MIT
#ifndef ESTIMATES_H
#define ESTIMATES_H

#include "objects.h"

#include <QString>

#include <array>
#include <optional>
#include <vector>

/// The sizes of objects that are not empty.
struct ObjectSizes {
    qint64 count = 0;
    qint64 sum = 0;

    /// 0 if there are none.
    qint64 mean() const { return count > 0 ? sum / count : 0; }
};

/// A video file of one of the last objects.
struct LastVideo {
    QString path;
    qint64 size = 0;
};

/// A summary of the objects on a storage device. Thumbnails without a recording are not counted.
struct ObjectSummary {
    qint64 count = 0;
    qint64 protectedCount = 0;
    qint64 largest = 0;                      // size of the largest of the last 100 objects
    std::array<ObjectSizes, AUDIO + 1> last; // of the last 100 of each kind
    std::vector<LastVideo> videos;           // the last ones that are not empty, newest first
};

/// @p folders are in the order of the numbering. An object with a video is of the kind VIDEO, even if it
/// contains other files; one with a photo and an audio file is of the kind PHOTO.
ObjectSummary summaryOf(const std::vector<NumberedFolder> &folders);

/// How much more can be recorded if the next recordings are like the last ones. A value is nullopt if nothing
/// of its kind has been recorded, or if it cannot be measured.
struct Estimate {
    std::array<std::optional<qint64>, AUDIO + 1> objects; // by PHOTO, VIDEO and AUDIO
    std::optional<qint64> bitrate;                        // of the last videos, bits per second
    std::optional<qint64> minutes;                        // of video
    QString failure;                                      // why the bit rate cannot be measured
};

/// @p free is in bytes; @p numbersLeft limits the objects. Starts ffprobe for the last videos, except for a
/// video that is still being written.
Estimate estimateOf(const ObjectSummary &summary, qint64 free, qint64 numbersLeft);

/// Why there is no room for the next recording; empty if there is. @p isEnough means that the command
/// "record" would begin a recording with @p free bytes; @p largest is that of an ObjectSummary.
QString whyFull(qint64 free, bool isEnough, qint64 largest, qint64 numbersLeft);

#endif // ESTIMATES_H

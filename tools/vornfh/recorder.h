// SPDX-License-Identifier: MIT
#ifndef RECORDER_H
#define RECORDER_H

#include "errors.h"
#include "media.h"
#include "storages.h"

#include <QByteArray>
#include <QList>
#include <QString>
#include <QStringList>

#include <chrono>
#include <optional>
#include <utility>

class Ffmpeg;

/// The input of ffmpeg. For an empty value, ffmpeg uses its default.
struct RecorderInput {
    QString name; // empty for a test picture and a tone
    QString format;
    QString size;
    QString rate;
};

struct RecorderSettings {
    Storage storage = {};
    MediaType type = {};
    RecorderInput input;
    double duration = 2; // in seconds; 0 for a recording that SIGINT or SIGTERM ends
    double timeout = 10; // in seconds, for an input that delivers no data
    qint64 segmentSeconds = 0;
    qint64 segmentBytes = 0;
    std::optional<qint64> keepFree; // the oldest objects are deleted until this much is free

    bool isSegmented() const { return segmentSeconds > 0 || segmentBytes > 0; }
};

/// Deletes the oldest objects of a storage device before a recording, if that is requested. A dry run deletes
/// nothing, and prints what would be deleted.
class SpaceKeeper
{
public:
    explicit SpaceKeeper(const RecorderSettings &settings, bool isDryRun = false)
        : mSettings(settings), mIsDryRun(isDryRun)
    {
    }

    /// Prints a line the first time that there are not enough objects that may be deleted.
    void makeRoom();

private:
    const RecorderSettings &mSettings;
    const bool mIsDryRun;
    bool mHasReported = false;
};

/// Makes one recording and prints its path once the recording is on the device. A recording with content is
/// kept, however it ended. Throws Failure.
ExitCode recordOne(const RecorderSettings &settings);

// Shared by recordOne() and recordSegments()

/// ffmpeg's arguments for the input of the recording @p path.
QStringList inputArguments(const RecorderSettings &settings, const QString &path);

/// ffmpeg's arguments for the codecs and the length of a recording.
QStringList codecArguments(const RecorderSettings &settings);

/// The ffmpeg command line for the recording @p path, quoted for a shell.
QString ffmpegCommand(const RecorderSettings &settings, const QString &path);

inline const QString INTERRUPTED = "interrupted";
inline const QString FULL = "the storage device is full";

QString silenceText(const RecorderSettings &settings);

/// Returns why the recording is incomplete although @p ffmpeg has ended without a failure: the input has
/// failed, or it has ended although no duration was set. Empty if the recording is complete.
QString whyIncomplete(const RecorderSettings &settings, const Ffmpeg &ffmpeg);

/// Returns whether the signal that interrupted the recording is its normal end.
bool isNormalEnd(const RecorderSettings &settings);

/// The size at which a recording ends, and why. It is less than the final size of the file, to which an index
/// is added.
struct SizeLimit {
    qint64 bytes; // not positive if there is no space
    QString reason;
};

/// The limit of the file system and of the format.
SizeLimit largestRecording(const QString &folder, Kind kind);

/// The same, but also limited by the free space.
SizeLimit sizeLimit(const QString &folder, Kind kind);

/// The same for the next recording. Throws Failure if there is no space for it.
SizeLimit requireSpace(const RecorderSettings &settings);

/// Observes the storage device while a recording is being written.
class DeviceWatch
{
public:
    explicit DeviceWatch(QString path) : mPath(std::move(path)) {}

    /// Returns why the recording must end; empty if it can continue. Flushes the file every few seconds.
    QString problem();

    /// Returns whether a flush has failed. The kernel reports that only once: later flushes succeed although
    /// the data is not on the device.
    bool hasLostData() const { return mHasLostData; }

private:
    static constexpr auto INTERVAL = std::chrono::seconds(3);

    const QString mPath;
    std::chrono::steady_clock::time_point mLastFlush = std::chrono::steady_clock::now();
    bool mHasLostData = false;
};

/// How a recording ended.
struct Ending {
    QString reason;        // why ffmpeg was stopped or failed; empty if it ended as requested
    bool isNormal = false; // the reason is the normal end
    bool hasLostData = false;
};

/// What finishRecording() has achieved.
struct FinishedRecording {
    QString path;
    bool isReportable;           // all of it is on the device
    QList<FileFailure> problems; // such as a thumbnail that could not be made

    /// Prints the path and the problems. Returns whether there are no problems.
    bool report() const;
};

/// Closes a recording that did not end by itself, makes the thumbnail, and flushes both. Throws Failure if
/// the recording has no content and was deleted, or if it cannot be flushed.
FinishedRecording finishRecording(const RecorderSettings &settings, const QString &path,
                                  const Ending &ending);

/// Deletes a file that ffmpeg has failed to write. Returns text to append to the error message; empty on
/// success.
QString discard(const QString &path);

#endif // RECORDER_H

// SPDX-License-Identifier: MIT
#include "segments.h"

#include "claim.h"
#include "ffmpeg.h"
#include "files.h"
#include "mounts.h"
#include "objects.h"
#include "output.h"
#include "packets.h"
#include "paths.h"
#include "progress.h"
#include "recording.h"
#include "signals.h"
#include "temporary.h"
#include "text.h"

#include <QFileInfo>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <functional>
#include <future>
#include <memory>
#include <optional>
#include <utility>

#include <fcntl.h>
#include <unistd.h>

using namespace VORN_FILE_HANDLER;

// One ffmpeg records without interruption and writes a stream of packets. For each segment, another ffmpeg
// writes the packets into a file without changing them. The segment muxer of ffmpeg cannot be used: it
// can neither limit the size of a segment nor skip numbers that are already taken.

namespace {

constexpr auto INTERVAL = std::chrono::milliseconds(100);

/// No segment but the first is begun with less room than this: otherwise, a loop would go on forever with
/// segments of a few frames, each of which would be deleted to make room for the next.
constexpr qint64 SMALLEST = 128 << 10;

struct Pipe {
    Descriptor output; // to read from
    Descriptor input;

    Pipe()
    {
        int ends[2] = {-1, -1};
        if (::pipe2(ends, O_CLOEXEC) != 0)
            throw Failure("a pipe cannot be created: " + errorText(errno));
        output = Descriptor(ends[0]);
        input = Descriptor(ends[1]);
    }
};

/// Returns false if the reader has closed the pipe.
bool writeAll(int descriptor, const QByteArray &bytes)
{
    int written = 0;
    while (written < bytes.size()) {
        const ssize_t count =
            ::write(descriptor, bytes.constData() + written, static_cast<size_t>(bytes.size() - written));
        if (count < 0 && errno != EINTR)
            return false;
        written += static_cast<int>(std::max<ssize_t>(count, 0));
    }
    return true;
}

/// One file of a recording in segments.
class Segment
{
public:
    enum End {
        StreamHasEnded,
        TimeIsUp,
        SizeIsReached,
        MuxerHasEnded, ///< the ffmpeg that writes the file
    };

    /// Claims the next number.
    Segment(const RecorderSettings &settings, SizeLimit limit)
        : mSettings(settings), mLimit(std::move(limit)),
          mPath(claimPath(settings.storage, settings.type.type)), mHeld(holdForWriting(mPath)), mDevice(mPath)
    {
        removeLeftovers(QFileInfo(mPath).path());
    }

    ~Segment()
    {
        if (mEnd.valid())
            mPackets->discard(); // so that the thread ends
    }
    Segment(const Segment &) = delete;
    Segment &operator=(const Segment &) = delete;

    /// Starts a thread that writes the packets up to the one that begins the next segment. @p isAfterGap:
    /// packets that came before these have been lost.
    void start(PacketBuffer &packets, bool isAfterGap = false)
    {
        mPackets = &packets;
        mMustBeginWithKey = isAfterGap;
        // The stream has times in milliseconds, and AVI has frames at a constant rate.
        const QString rate = mSettings.type.type == FILE_TYPE_VIDEO_AVI ? packets.frameRate() : QString();
        mMuxer.emplace(packetInput()
                           + QStringList{"-map", "0", "-c", "copy", "-copyinkf", "-copypriorss", "1"}
                           + (rate.isEmpty() ? QStringList() : QStringList{"-r", rate})
                           + QStringList{"-f", containerOf(mSettings.type)} + fileOutput(mPath),
                       mPipe.output.get());
        mPipe.output = Descriptor();
        mEnd = std::async(std::launch::async, [this] { return write(); });
    }

    /// Waits until the packets have been written, but not longer than @p time. Returns whether they have.
    bool waitForEnd(std::chrono::milliseconds time)
    {
        mMuxer->waitForEnd(0); // reads what it prints
        return mEnd.wait_for(time) == std::future_status::ready;
    }
    End end()
    {
        const End end = mEnd.get();
        mHasEndedEarly = end == MuxerHasEnded;
        return end;
    }

    /// Ends this segment before the next packet that can begin another.
    void endSoon() { mMustEnd = true; }

    /// Waits until the file has been written. Returns why that failed; empty on success.
    QString closingError()
    {
        while (!mMuxer->waitForEnd(static_cast<int>(INTERVAL.count())))
            continue;
        const QString failure = mMuxer->failure();
        return failure.isEmpty() && mHasEndedEarly ? "ffmpeg ended early" : failure;
    }

    const QString &path() const { return mPath; }
    const SizeLimit &limit() const { return mLimit; }
    DeviceWatch &device() { return mDevice; }
    qint64 bytes() const { return mBytes; }
    /// The size of the largest part that cannot be divided.
    qint64 largestGroup() const { return mLargestGroup; }

private:
    End write()
    {
        sigset_t signal;
        ::sigemptyset(&signal);
        ::sigaddset(&signal, SIGPIPE);
        ::pthread_sigmask(SIG_BLOCK, &signal, nullptr);
        const End end = writePackets();
        mPipe.input = Descriptor(); // the end of the file
        return end;
    }

    End writePackets()
    {
        bool isWritten = writeAll(mPipe.input.get(), mPackets->header());
        const Packet *packet = nullptr;
        while (isWritten && (packet = mPackets->first())) {
            if (mMustBeginWithKey && !packet->isKey) {
                mPackets->removeFirst();
                continue;
            }
            mMustBeginWithKey = false;
            const End end = packet->isKey ? endBefore(*packet) : StreamHasEnded;
            if (end != StreamHasEnded)
                return end;
            isWritten = writeAll(mPipe.input.get(), packet->bytes);
            mBytes += packet->bytes.size() + INDEX_ENTRY;
            mPackets->removeFirst();
        }
        return isWritten ? StreamHasEnded : MuxerHasEnded;
    }

    /// Returns the limit that would be exceeded if @p packet were written; StreamHasEnded if none would. Each
    /// segment has at least one packet that a segment can begin with.
    End endBefore(const Packet &packet)
    {
        constexpr qint64 MILLISECONDS = 1000;
        const bool isFirst = mStart < 0;
        mStart = isFirst ? packet.time : mStart;
        mLargestGroup = std::max<qint64>(mLargestGroup, mBytes - mGroupStart);
        mGroupStart = mBytes;
        if (!isFirst && mSettings.segmentSeconds > 0
            && packet.time - mStart >= mSettings.segmentSeconds * MILLISECONDS)
            return TimeIsUp;
        return !isFirst && (mMustEnd || mBytes + mLargestGroup > mLimit.bytes) ? SizeIsReached
                                                                               : StreamHasEnded;
    }

    /// An upper limit on what a packet adds to the file besides its content.
    static constexpr qint64 INDEX_ENTRY = 40;
    static constexpr qint64 HEADER = 16 << 10;

    const RecorderSettings &mSettings;
    const SizeLimit mLimit;
    Pipe mPipe;
    const QString mPath;
    const Descriptor mHeld; // so that prune leaves it alone
    DeviceWatch mDevice;
    PacketBuffer *mPackets = nullptr;
    qint64 mStart = -1; // the time of the first key packet
    qint64 mGroupStart = 0;
    std::atomic<qint64> mLargestGroup{0};
    std::atomic<qint64> mBytes{HEADER};
    std::atomic<bool> mMustEnd{false};
    bool mMustBeginWithKey = false;
    bool mHasEndedEarly = false; // whether the ffmpeg that writes the file has
    std::future<End> mEnd;
    std::optional<Ffmpeg> mMuxer; // declared after mEnd, so that it is killed before the thread is waited for
};

class SegmentedRecording
{
public:
    explicit SegmentedRecording(const RecorderSettings &settings)
        : mSettings(settings), mSpace(settings), mProgress(!settings.keepFree)
    {
    }

    ExitCode run()
    {
        std::unique_ptr<Segment> segment = begin();
        while (segment) {
            watch(*segment, [&segment] { return segment->waitForEnd(INTERVAL); });
            std::unique_ptr<Segment> next = follow(*segment, segment->end());
            mBytesBefore += segment->bytes();
            finish(*segment, !next);
            segment = std::move(next);
        }
        return mIsFailed ? FAILED : DONE;
    }

private:
    std::unique_ptr<Segment> begin()
    {
        Pipe pipe;
        std::unique_ptr<Segment> segment;
        mProgress.print([&] {
            mSpace.makeRoom();
            segment = std::make_unique<Segment>(mSettings, limited(requireSpace(mSettings)));
        });
        mCapture.emplace(inputArguments(mSettings, segment->path()) + codecArguments(mSettings)
                             + packetOutput(),
                         -1, pipe.input.get());
        pipe.input = Descriptor();
        mPackets.emplace(std::move(pipe.output));
        watch(*segment, [this] { return mPackets->waitForFirst(INTERVAL); });
        if (!mPackets->first()) {
            waitForCapture();
            const QString reason = mReason.isEmpty() ? mCapture->failure() : mReason;
            throw FileFailure(segment->path(),
                              "recording failed: " + (reason.isEmpty() ? "ffmpeg wrote nothing" : reason)
                                  + discard(segment->path()));
        }
        segment->start(*mPackets);
        return segment;
    }

    /// Begins the segment after @p segment, unless @p segment is the last one because of @p end or for lack
    /// of space.
    std::unique_ptr<Segment> follow(Segment &segment, Segment::End end)
    {
        const bool isFull = end == Segment::SizeIsReached && segment.limit().reason == FULL;
        // A loop goes on if another program has filled the storage device, as long as each segment has
        // content.
        const bool isOverrun = end == Segment::MuxerHasEnded && mSettings.keepFree
                               && segment.largestGroup() > 0 && segment.device().problem() == FULL;
        if ((end == Segment::MuxerHasEnded && !isOverrun) || (isFull && !mSettings.keepFree))
            abandon(isFull ? FULL : QString());
        if (end == Segment::StreamHasEnded || mIsAbandoned)
            return nullptr;
        mLargestGroup = std::max(mLargestGroup, segment.largestGroup());
        std::unique_ptr<Segment> next;
        mProgress.print([&] {
            try {
                mSpace.makeRoom();
                SizeLimit limit = limited(sizeLimit(QFileInfo(segment.path()).path(), mSettings.type.kind));
                if (limit.reason == FULL) // what the other ffmpeg has not written yet takes space too
                    limit.bytes -= std::max<qint64>(0, segment.bytes() - QFileInfo(segment.path()).size());
                if (limit.bytes <= 2 * std::max(mLargestGroup, SMALLEST / 2)) {
                    abandon(FULL);
                    return;
                }
                next = std::make_unique<Segment>(mSettings, limit);
                next->start(*mPackets, isOverrun);
            } catch (const Failure &failure) {
                printFailure(failure);
                mIsFailed = true;
                abandon(QString());
            }
        });
        return next;
    }

    SizeLimit limited(const SizeLimit &limit) const
    {
        const bool isSmaller = mSettings.segmentBytes > 0 && mSettings.segmentBytes < limit.bytes;
        return isSmaller ? SizeLimit{mSettings.segmentBytes, QString()} : limit;
    }

    /// Waits until @p isDone returns true. Ends the recording if there is a reason to end it.
    void watch(Segment &segment, const std::function<bool()> &isDone)
    {
        while (!isDone()) {
            mCapture->waitForEnd(0); // reads what it prints
            mProgress.set(mBytesBefore + segment.bytes(), freeBytes(QFileInfo(segment.path()).path()));
            if (!mReason.isEmpty())
                continue;
            if (isStopped()) {
                stop(INTERRUPTED);
                continue;
            }
            const QString problem = segment.device().problem();
            if (problem == FULL && mSettings.keepFree)
                segment.endSoon();
            else if (!problem.isEmpty())
                abandon(problem);
            else if (mPackets->silence() > std::chrono::duration<double>(mSettings.timeout))
                stop(silenceText(mSettings));
        }
    }

    /// Ends the recording. What has been recorded is still written.
    void stop(const QString &reason)
    {
        mReason = reason;
        mCapture->stop();
    }

    /// Ends the recording. Packets that have not been written are lost.
    void abandon(const QString &reason)
    {
        mIsAbandoned = true;
        mPackets->discard();
        stop(mReason.isEmpty() ? reason : mReason);
    }

    /// Waits until the ffmpeg that reads the input has ended. Its output is closed, so it should end soon.
    void waitForCapture()
    {
        constexpr double LONGEST_TIME = 10;
        const Stopwatch time;
        while (!mCapture->waitForEnd(static_cast<int>(INTERVAL.count()))) {
            if (isStopped())
                stop(INTERRUPTED);
            else if (time.seconds() > LONGEST_TIME)
                stop("ffmpeg has closed its output but has not exited");
        }
    }

    Ending endingOfStream()
    {
        waitForCapture();
        if (!mReason.isEmpty())
            return {mReason, mReason == INTERRUPTED && isNormalEnd(mSettings), false};
        if (mIsAbandoned)
            return {};
        const QString failure = mCapture->failure();
        return {failure.isEmpty() ? whyIncomplete(mSettings, *mCapture) : failure, false, false};
    }

    void finish(Segment &segment, bool isLast)
    {
        const QString error = segment.closingError();
        Ending ending = isLast ? endingOfStream() : Ending();
        if (!error.isEmpty() && (ending.reason.isEmpty() || ending.isNormal))
            ending = {error, false, false};
        ending.hasLostData = segment.device().hasLostData();
        try {
            const FinishedRecording recording = finishRecording(mSettings, segment.path(), ending);
            mProgress.print([&] { mIsFailed = !recording.report() || mIsFailed; });
        } catch (const Failure &failure) {
            mProgress.print([&] { printFailure(failure); });
            mIsFailed = true;
        }
    }

    const RecorderSettings &mSettings;
    SpaceKeeper mSpace;
    std::optional<PacketBuffer> mPackets;
    std::optional<Ffmpeg> mCapture; // declared after the buffer that it writes to
    QString mReason;                // why the recording was ended; empty if it was not
    bool mIsAbandoned = false;
    bool mIsFailed = false;
    qint64 mBytesBefore = 0; // in the segments before the current one
    qint64 mLargestGroup = 0;
    RecordingProgress mProgress;
};

} // namespace

ExitCode recordSegments(const RecorderSettings &settings)
{
    return SegmentedRecording(settings).run();
}

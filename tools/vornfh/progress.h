// SPDX-License-Identifier: MIT
#ifndef PROGRESS_H
#define PROGRESS_H

#include <QString>
#include <QStringList>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <thread>

/// A line on standard error that shows the progress of a command. Nothing is shown unless standard error is a
/// terminal. A separate thread draws the line, so its parts must be available in any thread.
class ProgressLine
{
public:
    /// Returns the parts of the line, the most important first; empty ones are left out.
    using Parts = std::function<QStringList()>;

    explicit ProgressLine(Parts parts);
    ~ProgressLine();
    ProgressLine(const ProgressLine &) = delete;
    ProgressLine &operator=(const ProgressLine &) = delete;

    /// Erases the progress line, then calls @p printLines, which may write to standard output and standard
    /// error.
    void print(const std::function<void()> &printLines);

private:
    void drawRepeatedly();
    QString line() const;
    void erase();

    const Parts mParts;
    bool mIsDrawn = false;
    bool mIsEnding = false;
    std::mutex mMutex;
    std::condition_variable mEnd;
    std::thread mThread;
};

/// The number of seconds since it was made.
class Stopwatch
{
public:
    double seconds() const;
    /// @p done per second.
    qint64 rate(qint64 done) const;

private:
    const std::chrono::steady_clock::time_point mStart = std::chrono::steady_clock::now();
};

/// The progress of a transfer.
class Progress
{
public:
    Progress(int files, qint64 bytes) : mFiles(files), mBytes(bytes) {}

    void addBytes(qint64 bytes) { mBytesDone += bytes; }
    /// Counts files as done, whether or not they were copied.
    void finishFiles(int files) { mFilesDone += files; }
    /// Sets the current stage, for example "flushing".
    void setStage(const char *stage) { mStage = stage; }

    /// As ProgressLine::print().
    void print(const std::function<void()> &printLines) { mLine.print(printLines); }

private:
    QStringList parts() const;

    const int mFiles;
    const qint64 mBytes;
    const Stopwatch mTime;
    std::atomic<int> mFilesDone{0};
    std::atomic<qint64> mBytesDone{0};
    std::atomic<const char *> mStage{"copying"};
    ProgressLine mLine{[this] { return parts(); }}; // last: its thread uses the others
};

/// The progress of a recording.
class RecordingProgress
{
public:
    /// @p hasEnd: it ends when the storage device is full, so the line shows when that will be.
    explicit RecordingProgress(bool hasEnd) : mHasEnd(hasEnd) {}

    /// @p free: bytes that are left on the storage device.
    void set(qint64 recorded, qint64 free);

    /// As ProgressLine::print().
    void print(const std::function<void()> &printLines) { mLine.print(printLines); }

private:
    QStringList parts() const;

    const bool mHasEnd;
    const Stopwatch mTime;
    std::atomic<qint64> mRecorded{0};
    std::atomic<qint64> mFree{0};
    ProgressLine mLine{[this] { return parts(); }}; // last: its thread uses the others
};

#endif // PROGRESS_H

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

/// How far a transfer has progressed.
struct ProgressState {
    int filesDone;
    int files;
    qint64 bytesDone;
    qint64 bytes;
    double seconds; // since the start
    QString stage;  // for example "flushing"
};

/// The line that shows @p state on a terminal of @p width columns, without wrapping: files, bytes, stage,
/// rate and time left, as many as fit, and a bar if there is room for it.
QString progressLine(const ProgressState &state, int width);

/// A line on standard error that shows the progress of a command. Nothing is shown unless standard error is a
/// terminal. A separate thread draws the line.
class ProgressLine
{
public:
    /// Returns the line for a terminal with @p width columns. May be called from any thread.
    using Line = std::function<QString(int width)>;

    explicit ProgressLine(Line line);
    ~ProgressLine();
    ProgressLine(const ProgressLine &) = delete;
    ProgressLine &operator=(const ProgressLine &) = delete;

    /// Erases the progress line, then calls @p printLines, which may write to standard output and standard
    /// error.
    void print(const std::function<void()> &printLines);

private:
    void drawRepeatedly();
    void erase();

    const Line mLine;
    bool mIsDrawn = false;
    bool mIsEnding = false;
    std::mutex mMutex;
    std::condition_variable mEnd;
    std::thread mThread;
};

/// Measures the time since its construction.
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
    /// Sets the number of bytes that are done.
    void setBytes(qint64 bytes) { mBytesDone = bytes; }
    /// Counts files as done, whether or not they were copied.
    void finishFiles(int files) { mFilesDone += files; }
    /// Sets what is happening to the current file, for example "copying".
    void setStage(const char *stage) { mStage = stage; }
    /// Sets what is happening to the files before it, for example "flushing"; nullptr for nothing. It is
    /// shown instead of what is happening to the current file.
    void setBatchStage(const char *stage) { mBatchStage = stage; }

    /// Like ProgressLine::print().
    void print(const std::function<void()> &printLines) { mLine.print(printLines); }

private:
    ProgressState state() const;

    const int mFiles;
    const qint64 mBytes;
    const Stopwatch mTime;
    std::atomic<int> mFilesDone{0};
    std::atomic<qint64> mBytesDone{0};
    std::atomic<const char *> mStage{"starting"};
    std::atomic<const char *> mBatchStage{nullptr};
    // This is the last member, because its thread uses the others.
    ProgressLine mLine{[this](int width) { return progressLine(state(), width); }};
};

/// The progress of a recording.
class RecordingProgress
{
public:
    /// @p hasEnd: the recording ends when the storage device is full, and the line shows the time until then.
    explicit RecordingProgress(bool hasEnd) : mHasEnd(hasEnd) {}

    /// @p free: bytes that are left on the storage device.
    void set(qint64 recorded, qint64 free);

    /// Like ProgressLine::print().
    void print(const std::function<void()> &printLines) { mLine.print(printLines); }

private:
    QString line(int width) const;

    const bool mHasEnd;
    const Stopwatch mTime;
    std::atomic<qint64> mRecorded{0};
    std::atomic<qint64> mFree{0};
    ProgressLine mLine{[this](int width) { return line(width); }}; // last: its thread uses the others
};

#endif // PROGRESS_H

// SPDX-License-Identifier: MIT
#ifndef PROGRESS_H
#define PROGRESS_H

#include <QString>

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

/// A line on standard error that shows the progress of a transfer. Nothing is shown unless standard error is
/// a terminal. A separate thread draws the line.
class Progress
{
public:
    Progress(int files, qint64 bytes);
    ~Progress();
    Progress(const Progress &) = delete;
    Progress &operator=(const Progress &) = delete;

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

    /// Erases the progress line, then calls @p printLines, which may write to standard output and standard
    /// error.
    void print(const std::function<void()> &printLines);

private:
    void drawRepeatedly();
    ProgressState state() const;
    void erase();

    const int mFiles;
    const qint64 mBytes;
    const std::chrono::steady_clock::time_point mStart = std::chrono::steady_clock::now();
    std::atomic<int> mFilesDone{0};
    std::atomic<qint64> mBytesDone{0};
    std::atomic<const char *> mStage{"starting"};
    std::atomic<const char *> mBatchStage{nullptr};
    bool mIsDrawn = false;
    bool mIsEnding = false;
    std::mutex mMutex;
    std::condition_variable mEnd;
    std::thread mThread;
};

#endif // PROGRESS_H

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
    /// Counts files as done, whether or not they were copied.
    void finishFiles(int files) { mFilesDone += files; }
    /// Sets the current stage, for example "flushing".
    void setStage(const char *stage) { mStage = stage; }

    /// Erases the progress line, then calls @p printLines, which may write to standard output and standard
    /// error.
    void print(const std::function<void()> &printLines);

private:
    void drawRepeatedly();
    QString line() const;
    void erase();

    const int mFiles;
    const qint64 mBytes;
    const std::chrono::steady_clock::time_point mStart = std::chrono::steady_clock::now();
    std::atomic<int> mFilesDone{0};
    std::atomic<qint64> mBytesDone{0};
    std::atomic<const char *> mStage{"copying"};
    bool mIsDrawn = false;
    bool mIsEnding = false;
    std::mutex mMutex;
    std::condition_variable mEnd;
    std::thread mThread;
};

#endif // PROGRESS_H

// SPDX-License-Identifier: MIT
#ifndef PROGRESS_H
#define PROGRESS_H

#include <QString>

#include <condition_variable>
#include <mutex>
#include <thread>

/// A line on standard error that shows the progress of a transfer. Nothing is shown unless standard error is
/// a terminal. Files grow while the caller waits for the library, so a separate thread draws the line.
class Progress
{
public:
    Progress(int files, qint64 bytes);
    ~Progress();
    Progress(const Progress &) = delete;
    Progress &operator=(const Progress &) = delete;

    /// Sets the file whose growth is shown from now on.
    void startFile(const QString &target);
    /// Counts the file, whether or not it was copied.
    void finishFile(qint64 bytes);
    /// Clears the line, so that another one can be printed in its place.
    void erase();

private:
    void drawRepeatedly();
    void draw();

    const int mFiles;
    const qint64 mBytes;
    int mFilesDone = 0;
    qint64 mBytesDone = 0;
    QString mTarget;
    bool mIsDrawn = false;
    bool mIsEnding = false;
    std::mutex mMutex;
    std::condition_variable mEnd;
    std::thread mThread;
};

#endif // PROGRESS_H

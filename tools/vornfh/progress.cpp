// SPDX-License-Identifier: MIT
#include "progress.h"

#include "text.h"

#include <QFileInfo>

#include <algorithm>
#include <chrono>
#include <cstdio>

#include <unistd.h>

Progress::Progress(int files, qint64 bytes) : mFiles(files), mBytes(bytes)
{
    if (::isatty(STDERR_FILENO))
        mThread = std::thread([this] { drawRepeatedly(); });
}

Progress::~Progress()
{
    {
        const std::lock_guard<std::mutex> lock(mMutex);
        mIsEnding = true;
    }
    mEnd.notify_one();
    if (mThread.joinable())
        mThread.join();
    erase();
}

void Progress::startFile(const QString &target)
{
    const std::lock_guard<std::mutex> lock(mMutex);
    mTarget = target;
}

void Progress::finishFile(qint64 bytes)
{
    const std::lock_guard<std::mutex> lock(mMutex);
    mTarget.clear();
    mBytesDone += bytes;
    ++mFilesDone;
}

void Progress::erase()
{
    const std::lock_guard<std::mutex> lock(mMutex);
    if (mIsDrawn)
        std::fputs("\r\x1b[K", stderr);
    mIsDrawn = false;
}

void Progress::drawRepeatedly()
{
    std::unique_lock<std::mutex> lock(mMutex);
    while (!mIsEnding) {
        draw();
        mEnd.wait_for(lock, std::chrono::milliseconds(200));
    }
}

void Progress::draw()
{
    const qint64 growing = mTarget.isEmpty() ? 0 : QFileInfo(mTarget).size();
    const qint64 done = std::min(mBytesDone + growing, mBytes);
    const QString line = QString("[%1] %2 of %3 files, %4 of %5")
                             .arg(bar(done, mBytes))
                             .arg(mFilesDone)
                             .arg(mFiles)
                             .arg(humanSize(done), humanSize(mBytes));
    std::fprintf(stderr, "\r%s\x1b[K", line.toUtf8().constData());
    mIsDrawn = true;
}

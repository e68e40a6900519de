// SPDX-License-Identifier: MIT
#include "progress.h"

#include "text.h"

#include <algorithm>
#include <cstdio>
#include <limits>
#include <utility>

#include <sys/ioctl.h>
#include <unistd.h>

namespace {

/// The number of columns of the terminal.
int terminalWidth()
{
    constexpr int USUAL = 80;
    winsize size = {};
    return ::ioctl(STDERR_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0 ? size.ws_col : USUAL;
}

} // namespace

ProgressLine::ProgressLine(Parts parts) : mParts(std::move(parts))
{
    if (::isatty(STDERR_FILENO))
        mThread = std::thread([this] { drawRepeatedly(); });
}

ProgressLine::~ProgressLine()
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

void ProgressLine::print(const std::function<void()> &printLines)
{
    const std::lock_guard<std::mutex> lock(mMutex);
    erase();
    printLines();
}

void ProgressLine::erase()
{
    if (mIsDrawn)
        std::fputs("\r\x1b[K", stderr);
    mIsDrawn = false;
}

void ProgressLine::drawRepeatedly()
{
    constexpr auto INTERVAL = std::chrono::milliseconds(200);
    std::unique_lock<std::mutex> lock(mMutex);
    while (!mIsEnding) {
        std::fprintf(stderr, "\r%s\x1b[K", line().toUtf8().constData());
        mIsDrawn = true;
        mEnd.wait_for(lock, INTERVAL);
    }
}

/// As many parts, in this order, as fit in the width of the terminal.
QString ProgressLine::line() const
{
    QString line;
    const int width = terminalWidth() - 1; // the last column would begin a new line
    for (const QString &part : mParts()) {
        const QString separator = line.isEmpty() ? "" : line.endsWith(']') ? " " : ", ";
        if (!part.isEmpty() && (line.isEmpty() || line.size() + separator.size() + part.size() <= width))
            line += separator + part;
    }
    return line.left(width);
}

double Stopwatch::seconds() const
{
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - mStart).count();
}

qint64 Stopwatch::rate(qint64 done) const
{
    return static_cast<qint64>(static_cast<double>(done) / std::max(seconds(), 0.001));
}

QStringList Progress::parts() const
{
    const qint64 done = std::min<qint64>(mBytesDone, mBytes);
    const qint64 rate = mTime.rate(done);
    return {"[" + bar(done, mBytes) + "]",
            QString("%1 of %2 files").arg(mFilesDone).arg(mFiles),
            QString("%1 of %2").arg(humanSize(done), humanSize(mBytes)),
            mStage.load(),
            humanSize(rate) + "/s",
            rate > 0 ? durationText((mBytes - done) / rate) + " left" : QString()};
}

void RecordingProgress::set(qint64 recorded, qint64 free)
{
    mRecorded = recorded;
    mFree = free;
}

QStringList RecordingProgress::parts() const
{
    const qint64 rate = mTime.rate(mRecorded);
    const bool isEndKnown = mHasEnd && rate > 0 && mFree < std::numeric_limits<qint64>::max();
    return {"recording " + durationText(static_cast<qint64>(mTime.seconds())), humanSize(mRecorded),
            humanSize(rate) + "/s",
            isEndKnown ? durationText(mFree / rate) + " left on the storage device" : QString()};
}

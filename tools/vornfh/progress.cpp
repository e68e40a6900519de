// SPDX-License-Identifier: MIT
#include "progress.h"

#include "text.h"

#include <QStringList>

#include <algorithm>
#include <cstdio>

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

void Progress::print(const std::function<void()> &printLines)
{
    const std::lock_guard<std::mutex> lock(mMutex);
    erase();
    printLines();
}

void Progress::erase()
{
    if (mIsDrawn)
        std::fputs("\r\x1b[K", stderr);
    mIsDrawn = false;
}

void Progress::drawRepeatedly()
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
QString Progress::line() const
{
    const qint64 done = std::min<qint64>(mBytesDone, mBytes);
    const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - mStart).count();
    const auto rate = static_cast<qint64>(static_cast<double>(done) / std::max(seconds, 0.001));
    const QString left = rate > 0 ? durationText((mBytes - done) / rate) + " left" : QString();
    const QStringList parts = {QString("%1 of %2 files").arg(mFilesDone).arg(mFiles),
                               QString("%1 of %2").arg(humanSize(done), humanSize(mBytes)), mStage.load(),
                               humanSize(rate) + "/s", left};
    QString line = "[" + bar(done, mBytes) + "]";
    const int width = terminalWidth() - 1; // the last column would begin a new line
    for (const QString &part : parts) {
        const QString longer = line + (line.endsWith(']') ? " " : ", ") + part;
        if (!part.isEmpty() && longer.size() <= width)
            line = longer;
    }
    return line.left(width);
}

// SPDX-License-Identifier: MIT
#include "progress.h"

#include "text.h"

#include <QStringList>

#include <algorithm>
#include <cmath>
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

/// Files, bytes, stage, rate and time left. More bytes than expected are done if a file has grown.
QStringList partsOf(const ProgressState &state, const QString &of)
{
    const qint64 done = std::min(state.bytesDone, state.bytes);
    const double rate = static_cast<double>(done) / std::max(state.seconds, 0.001);
    QStringList parts = {QString("%1%2%3 files").arg(state.filesDone).arg(of).arg(state.files),
                         humanSize(done) + of + humanSize(state.bytes), state.stage,
                         humanSize(static_cast<qint64>(rate)) + "/s"};
    // When all bytes are copied, it is not known how long the device takes to write them.
    if (done > 0 && done < state.bytes)
        parts.append(
            durationText(static_cast<qint64>(std::ceil(static_cast<double>(state.bytes - done) / rate)))
            + " left");
    return parts;
}

/// @p line with @p bar after it, as wide as the space allows.
QString withBar(const QString &line, const ProgressState &state, int width)
{
    constexpr int SMALLEST = 5;
    constexpr int LARGEST = 20;
    constexpr int FRAME = 3; // " []"
    const int size = std::min(LARGEST, width - line.size() - FRAME);
    if (size < SMALLEST)
        return line;
    const QString filled = state.bytes > 0 ? bar(std::min(state.bytesDone, state.bytes), state.bytes, size)
                                           : bar(state.filesDone, state.files, size);
    return line + " [" + filled + "]";
}

} // namespace

QString progressLine(const ProgressState &state, int width)
{
    const int room = width - 1; // a character in the last column would begin a new line
    const QString full = partsOf(state, " of ").join(", ");
    if (full.size() <= room)
        return withBar(full, state, room);
    QStringList fitting;
    for (const QString &part : partsOf(state, "/")) {
        if ((fitting + QStringList{part}).join(" ").size() <= room)
            fitting.append(part);
    }
    return withBar(fitting.join(" "), state, room);
}

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
        std::fprintf(stderr, "\r%s\x1b[K", progressLine(state(), terminalWidth()).toUtf8().constData());
        mIsDrawn = true;
        mEnd.wait_for(lock, INTERVAL);
    }
}

ProgressState Progress::state() const
{
    const char *batchStage = mBatchStage;
    return {mFilesDone,
            mFiles,
            mBytesDone,
            mBytes,
            std::chrono::duration<double>(std::chrono::steady_clock::now() - mStart).count(),
            batchStage ? batchStage : mStage.load()};
}

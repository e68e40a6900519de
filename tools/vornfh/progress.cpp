// SPDX-License-Identifier: MIT
#include "progress.h"

#include "cells.h"
#include "mounts.h"
#include "text.h"

#include <QStringList>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <utility>

#include <unistd.h>

namespace {

constexpr int USUAL_WIDTH = 80; // of a terminal that does not know its own

/// @p done per second.
double rateOf(qint64 done, double seconds)
{
    return static_cast<double>(done) / std::max(seconds, 0.001);
}

/// Files, bytes, stage, rate and time left. If a file has grown, more bytes than expected are copied.
QStringList partsOf(const ProgressState &state, const QString &of)
{
    const qint64 done = std::min(state.bytesDone, state.bytes);
    const double rate = rateOf(done, state.seconds);
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

/// As many of @p parts, in this order, as fit in @p width columns.
QString fitting(const QStringList &parts, const QString &separator, int width)
{
    QStringList found;
    for (const QString &part : parts) {
        if (!part.isEmpty() && (found + QStringList{part}).join(separator).size() <= width)
            found.append(part);
    }
    return found.join(separator);
}

/// @p line with a progress bar after it, as wide as the space allows.
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
    return withBar(fitting(partsOf(state, "/"), " ", room), state, room);
}

ProgressLine::ProgressLine(Line line) : mLine(std::move(line))
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
        std::fprintf(stderr, "\r%s\x1b[K",
                     mLine(terminalWidth(STDERR_FILENO).value_or(USUAL_WIDTH)).toUtf8().constData());
        mIsDrawn = true;
        mEnd.wait_for(lock, INTERVAL);
    }
}

double Stopwatch::seconds() const
{
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - mStart).count();
}

qint64 Stopwatch::rate(qint64 done) const
{
    return static_cast<qint64>(rateOf(done, seconds()));
}

ProgressState Progress::state() const
{
    const char *batchStage = mBatchStage;
    return {mFilesDone, mFiles, mBytesDone, mBytes, mTime.seconds(), batchStage ? batchStage : mStage.load()};
}

void RecordingProgress::set(qint64 recorded, qint64 free)
{
    mRecorded = recorded;
    mFree = free;
}

QString RecordingProgress::line(int width) const
{
    const qint64 rate = mTime.rate(mRecorded);
    const bool isEndKnown = mHasEnd && rate > 0 && mFree < UNLIMITED;
    return fitting({"recording " + durationText(static_cast<qint64>(mTime.seconds())), humanSize(mRecorded),
                    humanSize(rate) + "/s",
                    isEndKnown ? durationText(mFree / rate) + " left on the storage device" : QString()},
                   ", ", width - 1);
}

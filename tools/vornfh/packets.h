// SPDX-License-Identifier: MIT
#ifndef PACKETS_H
#define PACKETS_H

#include "files.h"

#include <QByteArray>
#include <QString>
#include <QStringList>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <deque>
#include <mutex>
#include <thread>
#include <vector>

// When recording in segments, ffmpeg writes a stream of packets instead of files. This process divides the
// stream: each packet goes to exactly one file, and none is lost between two files. The stream is Matroska,
// because it can hold any codec and the length of each packet is known.

/// A packet of the stream, as a Matroska cluster.
struct Packet {
    QByteArray bytes;
    qint64 time = 0;    // in milliseconds
    bool isKey = false; // a file can begin with it: the first stream can be decoded from here
};

/// ffmpeg's arguments to write such a stream, or to read one.
QStringList packetOutput();
QStringList packetInput();

/// The packets that an ffmpeg writes to a pipe. A separate thread reads them, so that a storage device that
/// is slow for some time does not make ffmpeg wait and the camera drop frames.
class PacketBuffer
{
public:
    explicit PacketBuffer(Descriptor stream);
    ~PacketBuffer();
    PacketBuffer(const PacketBuffer &) = delete;
    PacketBuffer &operator=(const PacketBuffer &) = delete;

    /// Waits until there is a packet or the stream has ended, but not longer than @p time. Returns false
    /// if the time has run out.
    bool waitForFirst(std::chrono::milliseconds time);

    /// Waits for the next packet and returns it; it stays in the buffer. Null at the end of the stream. Only
    /// one thread at a time may use the result.
    const Packet *first();
    void removeFirst();

    /// From now on first() returns null, and the pipe is closed.
    void discard();

    /// What precedes the packets. Call this only after waitForFirst() has returned true.
    QByteArray header() const { return mHeader; }

    /// The frame rate of the first stream, as ffmpeg's option "-r" accepts it; empty if it has none. Call
    /// this only after waitForFirst() has returned true.
    QString frameRate() const;

    /// For how long the input has delivered no data. Zero while the buffer is full.
    std::chrono::steady_clock::duration silence() const;

private:
    void readAll();
    bool readElement();
    void addToHeader(const QByteArray &start, const QByteArray &id, const QByteArray &content);
    bool add(std::vector<Packet> packets);
    bool take(QByteArray &bytes, qint64 count);
    bool readMore();

    Descriptor mStream;
    QByteArray mRead; // from the stream; take() continues at mTaken
    int mTaken = 0;
    QByteArray mHeader;
    qint64 mFrameDuration = 0; // in nanoseconds
    std::deque<Packet> mPackets;
    qint64 mSize = 0; // of the packets
    bool mHasHeader = false;
    bool mHasEnded = false;
    std::atomic<bool> mIsDiscarding{false};
    std::atomic<std::chrono::steady_clock::rep> mWaitingSince{0}; // 0 if it is not waiting for the input
    std::mutex mMutex;
    std::condition_variable mChange;
    std::thread mThread;
};

#endif // PACKETS_H

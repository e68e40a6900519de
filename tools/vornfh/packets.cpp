// SPDX-License-Identifier: MIT
#include "packets.h"

#include "ebml.h"

#include <QtEndian>

#include <algorithm>
#include <array>
#include <cerrno>
#include <utility>

#include <poll.h>
#include <unistd.h>

namespace {

using Clock = std::chrono::steady_clock;

// IDs of Matroska elements: RFC 9559, section 5
const QByteArray SEGMENT = QByteArray::fromHex("18538067");
const QByteArray TRACKS = QByteArray::fromHex("1654ae6b");
const QByteArray TRACK = QByteArray::fromHex("ae");
const QByteArray FRAME_DURATION = QByteArray::fromHex("23e383");
const QByteArray CLUSTER = QByteArray::fromHex("1f43b675");
const QByteArray TIME = QByteArray::fromHex("e7");
const QByteArray SIMPLE_BLOCK = QByteArray::fromHex("a3");
const QByteArray BLOCK_GROUP = QByteArray::fromHex("a0");
const QByteArray BLOCK = QByteArray::fromHex("a1");
const QByteArray REFERENCE = QByteArray::fromHex("fb");

constexpr qint64 NANOSECONDS = 1000000000;

/// An element whose size is encoded in eight bytes.
QByteArray element(const QByteArray &id, const QByteArray &content)
{
    constexpr quint64 LONGEST_SIZE = 1ULL << 56;
    const quint64 size = qToBigEndian(LONGEST_SIZE | static_cast<quint64>(content.size()));
    return id + QByteArray(reinterpret_cast<const char *>(&size), sizeof size) + content;
}

/// A packet as its own cluster. @p block is the content of an element with the ID @p id, @p clusterTime the
/// time of the cluster that contained it.
Packet packetOf(const QByteArray &id, const QByteArray &block, const QByteArray &clusterTime)
{
    constexpr quint8 KEY = 0x80; // in the flags of a simple block
    constexpr qint64 FIRST_TRACK = 1;
    constexpr int LONGEST_NUMBER = 8;
    bool isReferring = false;
    QByteArray header = block.left(16);
    if (id == BLOCK_GROUP) {
        forEachElement(block, [&](const QByteArray &part, const QByteArray &content) {
            isReferring = isReferring || part == REFERENCE;
            header = part == BLOCK ? content.left(16) : header;
        });
    }
    // A block begins with the number of its track, its time relative to that of the cluster, and flags.
    int length = 0;
    const qint64 track = ebmlSize(header.left(LONGEST_NUMBER), length);
    const auto time = static_cast<qint16>(ebmlNumber(header.mid(length, 2)));
    const bool isMarked = (ebmlNumber(header.mid(length + 2, 1)) & KEY) != 0;
    Packet packet;
    packet.bytes = element(CLUSTER, element(TIME, clusterTime) + element(id, block));
    packet.time = static_cast<qint64>(ebmlNumber(clusterTime)) + time;
    packet.isKey = track == FIRST_TRACK && (id == BLOCK_GROUP ? !isReferring : isMarked);
    return packet;
}

/// The packets in the content of a cluster.
std::vector<Packet> packetsIn(const QByteArray &cluster)
{
    std::vector<Packet> packets;
    QByteArray time;
    forEachElement(cluster, [&](const QByteArray &id, const QByteArray &content) {
        if (id == TIME)
            time = content;
        if (id == SIMPLE_BLOCK || id == BLOCK_GROUP)
            packets.push_back(packetOf(id, content, time));
    });
    return packets;
}

/// The duration of a frame of the first track, in nanoseconds; 0 if it is not known.
qint64 frameDurationIn(const QByteArray &tracks)
{
    qint64 duration = 0;
    bool isFirst = true;
    forEachElement(tracks, [&](const QByteArray &id, const QByteArray &track) {
        if (id != TRACK || !std::exchange(isFirst, false))
            return;
        forEachElement(track, [&](const QByteArray &part, const QByteArray &value) {
            if (part == FRAME_DURATION)
                duration = static_cast<qint64>(ebmlNumber(value));
        });
    });
    return duration;
}

} // namespace

QStringList packetOutput()
{
    // The clusters are small, and each is written at once, so that no packet waits for others.
    return {"-f",
            "matroska",
            "-cluster_size_limit",
            "0",
            "-cluster_time_limit",
            "0",
            "-write_crc32",
            "0",
            "-flush_packets",
            "1",
            "pipe:1"};
}

QStringList packetInput()
{
    return {"-f", "matroska", "-i", "pipe:0"};
}

PacketBuffer::PacketBuffer(Descriptor stream) : mStream(std::move(stream)), mThread([this] { readAll(); }) {}

PacketBuffer::~PacketBuffer()
{
    discard();
    mThread.join();
}

bool PacketBuffer::waitForFirst(std::chrono::milliseconds time)
{
    std::unique_lock<std::mutex> lock(mMutex);
    return mChange.wait_for(lock, time, [this] { return mHasEnded || !mPackets.empty(); });
}

const Packet *PacketBuffer::first()
{
    std::unique_lock<std::mutex> lock(mMutex);
    mChange.wait(lock, [this] { return mHasEnded || mIsDiscarding || !mPackets.empty(); });
    return mPackets.empty() || mIsDiscarding ? nullptr : &mPackets.front();
}

void PacketBuffer::removeFirst()
{
    const std::lock_guard<std::mutex> lock(mMutex);
    mSize -= mPackets.front().bytes.size();
    mPackets.pop_front();
    mChange.notify_all();
}

void PacketBuffer::discard()
{
    const std::lock_guard<std::mutex> lock(mMutex);
    mIsDiscarding = true; // a packet may be in use, so all of them stay
    mChange.notify_all();
}

QString PacketBuffer::frameRate() const
{
    if (mFrameDuration == 0)
        return QString();
    for (const qint64 scale : {1000, 1001}) { // 25 or 30000/1001: the duration is rounded to nanoseconds
        const qint64 frames = qRound64(double(NANOSECONDS * scale) / double(mFrameDuration) / 1000) * 1000;
        if (frames > 0 && qAbs(NANOSECONDS * scale / frames - mFrameDuration) <= 1)
            return QString("%1/%2").arg(frames).arg(scale);
    }
    return QString("%1/%2").arg(NANOSECONDS).arg(mFrameDuration);
}

Clock::duration PacketBuffer::silence() const
{
    const Clock::rep since = mWaitingSince;
    return since == 0 ? Clock::duration::zero() : Clock::now().time_since_epoch() - Clock::duration(since);
}

void PacketBuffer::readAll()
{
    while (readElement())
        continue;
    mWaitingSince = 0;
    const std::lock_guard<std::mutex> lock(mMutex);
    mStream = Descriptor(); // otherwise, ffmpeg would wait for a reader
    mHasEnded = true;
    mChange.notify_all();
}

/// Reads an element at the top level of the stream. Returns false at its end.
bool PacketBuffer::readElement()
{
    constexpr qint64 LARGEST_ELEMENT = 1 << 30;
    QByteArray id;
    QByteArray size;
    QByteArray rest;
    QByteArray content;
    if (!take(id, 1) || !take(rest, ebmlLength(id[0]) - 1))
        return false;
    id += rest;
    if (!take(size, 1) || !take(rest, ebmlLength(size[0]) - 1))
        return false;
    size += rest;
    int length = 0;
    const qint64 count = ebmlSize(size, length);
    if (id == SEGMENT) { // contains all that follows
        mHeader += id + size;
        return true;
    }
    if (count < 0 || count > LARGEST_ELEMENT || !take(content, count))
        return false;
    if (id == CLUSTER)
        return add(packetsIn(content));
    addToHeader(id + size, id, content);
    return true;
}

void PacketBuffer::addToHeader(const QByteArray &start, const QByteArray &id, const QByteArray &content)
{
    if (mHasHeader) // an index or the like
        return;
    mHeader += start + content;
    if (id == TRACKS)
        mFrameDuration = frameDurationIn(content);
}

/// Waits while the buffer is full. Returns false if the packets are to be discarded.
bool PacketBuffer::add(std::vector<Packet> packets)
{
    constexpr qint64 LARGEST_SIZE = 64 << 20;
    std::unique_lock<std::mutex> lock(mMutex);
    mChange.wait(lock, [this] { return mIsDiscarding || mSize < LARGEST_SIZE; });
    mHasHeader = true;
    for (Packet &packet : packets) {
        mSize += packet.bytes.size();
        mPackets.push_back(std::move(packet));
    }
    mChange.notify_all();
    return !mIsDiscarding;
}

/// Takes the next @p count bytes of the stream. Returns false if it ends too early.
bool PacketBuffer::take(QByteArray &bytes, qint64 count)
{
    while (mRead.size() - mTaken < count) {
        if (!readMore())
            return false;
    }
    bytes = mRead.mid(mTaken, static_cast<int>(count));
    mTaken += static_cast<int>(count);
    return true;
}

/// Waits for bytes of the stream. Returns false at its end, or if they are to be discarded.
bool PacketBuffer::readMore()
{
    constexpr int INTERVAL = 100; // milliseconds
    std::array<char, 1 << 16> block;
    mRead.remove(0, std::exchange(mTaken, 0));
    pollfd stream = {mStream.get(), POLLIN, 0};
    mWaitingSince = Clock::now().time_since_epoch().count();
    ssize_t count = -1;
    while (!mIsDiscarding && count < 0) {
        if (::poll(&stream, 1, INTERVAL) > 0)
            count = ::read(stream.fd, block.data(), block.size());
        if (count < 0 && stream.revents != 0 && errno != EINTR)
            break;
    }
    mWaitingSince = 0;
    mRead.append(block.data(), static_cast<int>(std::max<ssize_t>(count, 0)));
    return count > 0;
}

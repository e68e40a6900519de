// SPDX-License-Identifier: MIT
#include "content.h"

#include "ebml.h"
#include "errors.h"
#include "files.h"

#include <QByteArrayList>
#include <QtEndian>

#include <algorithm>
#include <cerrno>
#include <vector>

#include <fcntl.h>

using namespace VORN_FILE_HANDLER;

namespace {

using Verdict = std::optional<Damage>;

/// Reads parts of a file. Throws Failure if the file cannot be read.
class Reader
{
public:
    explicit Reader(const QString &path) : mFile(openFile(path, O_RDONLY | O_NOFOLLOW | O_NONBLOCK))
    {
        struct stat status = {};
        if (!mFile.isOpen() || ::fstat(mFile.get(), &status) != 0)
            throw Failure("cannot be read: " + errorText(errno));
        mSize = status.st_size;
    }

    qint64 size() const { return mSize; }

    /// The bytes at @p offset; fewer than @p count at the end of the file.
    QByteArray at(qint64 offset, int count) const
    {
        QByteArray bytes(count, Qt::Uninitialized);
        if (!readAt(mFile.get(), offset, bytes))
            throw Failure(
                QString("cannot be read at offset %1: %2").arg(offset + bytes.size()).arg(errorText(errno)));
        return bytes;
    }

    void dropCache() const { ::posix_fadvise(mFile.get(), 0, 0, POSIX_FADV_DONTNEED); }

private:
    const Descriptor mFile;
    qint64 mSize = 0;
};

// Findings

Damage wrongContent(const MediaType &type)
{
    return {"wrong-content", QString("does not begin like a file of type %1").arg(type.extension)};
}

Damage cutOff()
{
    return {"cut-off", "does not end like a file of its type: the end is missing or damaged"};
}

Damage zeroFilled(const QString &part, bool isClosable = false)
{
    return {"zero-filled", part + " with zeros: its content was lost, probably in a power failure",
            isClosable};
}

Damage notClosed()
{
    return {"file-not-closed",
            "is incomplete: it is still being recorded, or the recording was interrupted; a player may "
            "reject it",
            true};
}

bool isZero(const QByteArray &bytes)
{
    return bytes.count('\0') == bytes.size();
}

// JPEG and PNG

Verdict damageOfJpeg(const QByteArray &head, QByteArray tail, const MediaType &type)
{
    if (imageFormat(head) != ImageFormat::Jpeg)
        return wrongContent(type);
    while (tail.endsWith('\0')) // some cameras pad photos
        tail.chop(1);
    if (tail.isEmpty())
        return zeroFilled("ends");
    return tail.endsWith("\xff\xd9") ? Verdict() : cutOff();
}

/// Checks that the first chunks follow each other and that the last chunk is IEND.
Verdict damageOfPng(const Reader &file, const QByteArray &head, const QByteArray &tail, const MediaType &type)
{
    constexpr int SIGNATURE = 8;
    constexpr int HEADER = 8;
    constexpr int CHECKSUM = 4;
    constexpr int LIMIT = 32;
    const QByteArray end = QByteArray::fromHex("0000000049454e44ae426082");
    if (imageFormat(head) != ImageFormat::Png)
        return wrongContent(type);
    if (isZero(tail))
        return zeroFilled("ends");
    if (!tail.endsWith(end))
        return cutOff();
    const qint64 last = file.size() - end.size();
    qint64 offset = SIGNATURE;
    for (int i = 0; i < LIMIT && offset < last; ++i) {
        const QByteArray header = file.at(offset, HEADER);
        if ((i == 0) != (header.mid(4) == "IHDR") || header.contains("IEND") || isZero(header.mid(4)))
            offset = file.size();
        const qint64 size = qFromBigEndian<quint32>(header.constData());
        offset += HEADER + size + CHECKSUM;
    }
    return offset <= last ? Verdict() : Damage{"damaged", "its sequence of chunks is broken"};
}

// RIFF: AVI and WAV

constexpr int RIFF_HEADER = 8;
constexpr int RIFF_TYPE = 4;

/// Returns whether the RIFF chunks follow each other up to the end of the file, as in every AVI or WAV file
/// that has been closed. A long AVI file has several.
bool isRiffClosed(const Reader &file)
{
    qint64 offset = 0;
    qint64 padding = 0;
    while (offset < file.size()) {
        const QByteArray header = file.at(offset, RIFF_HEADER);
        if (header.size() < RIFF_HEADER || !header.startsWith("RIFF"))
            return false;
        const qint64 size = qFromLittleEndian<quint32>(header.constData() + 4);
        if (size == 0 || size == 0xFFFFFFFF)
            return false;
        padding = size % 2;
        offset += RIFF_HEADER + size + padding;
    }
    return offset <= file.size() + padding; // the padding may be missing at the end
}

/// A chunk in a RIFF file. The name of a list is its type.
struct Chunk {
    QByteArray name;
    qint64 start = 0; // of its content
    qint64 size = 0;

    qint64 end() const { return start + size; }
};

/// The first chunks of the first RIFF chunk.
class Chunks
{
public:
    explicit Chunks(const Reader &file)
    {
        constexpr size_t LIMIT = 32;
        const QByteArray riff = file.at(0, RIFF_HEADER);
        mEnd = RIFF_HEADER + qint64(qFromLittleEndian<quint32>(riff.constData() + 4));
        qint64 offset = RIFF_HEADER + RIFF_TYPE;
        while (offset + RIFF_HEADER <= mEnd && mChunks.size() < LIMIT) {
            const QByteArray header = file.at(offset, RIFF_HEADER + RIFF_TYPE);
            if (header.size() < RIFF_HEADER || isZero(header.left(4)))
                break;
            const qint64 size = qFromLittleEndian<quint32>(header.constData() + 4);
            const bool isList = header.startsWith("LIST");
            mChunks.push_back(
                {isList ? header.mid(RIFF_HEADER) : header.left(4), offset + RIFF_HEADER, size});
            offset += RIFF_HEADER + size + size % 2;
        }
    }

    /// The first chunk with this name; null if there is none.
    const Chunk *find(const QByteArray &name) const
    {
        const auto found = std::find_if(mChunks.begin(), mChunks.end(),
                                        [&name](const Chunk &chunk) { return chunk.name == name; });
        return found == mChunks.end() ? nullptr : &*found;
    }

    bool areComplete() const
    {
        return std::all_of(mChunks.begin(), mChunks.end(),
                           [this](const Chunk &chunk) { return chunk.end() <= mEnd; });
    }

private:
    qint64 mEnd;
    std::vector<Chunk> mChunks;
};

/// Returns whether the last entry of an index refers to a chunk of the movie data.
bool isIndexRight(const Reader &file, const Chunk &index, const Chunk &movie)
{
    constexpr int ENTRY = 16; // name, flags, offset, size
    if (index.size < ENTRY)
        return movie.size <= RIFF_TYPE;
    const QByteArray entry = file.at(index.end() - ENTRY, ENTRY);
    const qint64 offset = qFromLittleEndian<quint32>(entry.constData() + 8);
    const QByteArray header = entry.left(4) + entry.mid(12);
    // Offsets are relative to the list, or in some files to the start of the file.
    return file.at(movie.start + offset, RIFF_HEADER) == header || file.at(offset, RIFF_HEADER) == header;
}

Verdict damageOfAvi(const Reader &file)
{
    constexpr int LONGEST_HEADER = 64 << 10;
    const Chunks chunks(file);
    const Chunk *movie = chunks.find("movi");
    const Chunk *index = chunks.find("idx1");
    const Chunk *header = chunks.find("hdrl");
    if (!movie || !header)
        return Damage{"damaged", "has no header or no movie data"};
    if (!chunks.areComplete())
        return notClosed();
    const auto headerSize = static_cast<int>(std::min<qint64>(header->size, LONGEST_HEADER));
    if (!index && !file.at(header->start, headerSize).contains("indx")) // the index of a long file
        return Damage{"no-index", "has no index: a player may reject it or be unable to seek", true};
    if (index && !isIndexRight(file, *index, *movie))
        return Damage{"no-index", "its index does not match its content", true};
    return std::nullopt;
}

Verdict damageOfWav(const Reader &file)
{
    const Chunks chunks(file);
    if (!chunks.find("fmt ") || !chunks.find("data"))
        return Damage{"damaged", "has no format header or no audio data"};
    return chunks.areComplete() ? Verdict() : notClosed();
}

Verdict damageOfRiff(const Reader &file, const QByteArray &head, const MediaType &type)
{
    const bool isAvi = type.kind == VIDEO;
    if (!head.startsWith("RIFF") || head.mid(RIFF_HEADER, RIFF_TYPE) != (isAvi ? "AVI " : "WAVE"))
        return wrongContent(type);
    if (!isRiffClosed(file))
        return notClosed();
    return isAvi ? damageOfAvi(file) : damageOfWav(file);
}

// Matroska

/// A Matroska file consists of an EBML header and a segment, whose size is unknown until the file is closed.
bool isMatroskaClosed(const Reader &file)
{
    constexpr int ID = 4;
    constexpr int LONGEST_SIZE = 8;
    const QByteArray segmentId = QByteArray::fromHex("18538067");
    int length = 0;
    qint64 offset = 0;
    for (const bool isSegment : {false, true}) {
        const QByteArray start = file.at(offset, ID + LONGEST_SIZE);
        const qint64 size = ebmlSize(start.mid(ID), length);
        if (size < 0 || (isSegment && !start.startsWith(segmentId)))
            return false;
        offset += ID + length + size;
    }
    return offset == file.size();
}

Verdict damageOfMatroska(const Reader &file, const QByteArray &head, const QByteArray &tail,
                         const MediaType &type)
{
    if (!head.startsWith(QByteArray::fromHex("1a45dfa3")))
        return wrongContent(type);
    if (!isMatroskaClosed(file))
        return notClosed();
    if (!head.contains("matroska") && !head.contains("webm"))
        return wrongContent(type);
    return isZero(tail) ? zeroFilled("ends", true) : Verdict();
}

Verdict verdictOn(const Reader &file, const MediaType &type)
{
    constexpr int EDGE = 4096;
    const QByteArray head = file.at(0, EDGE);
    if (isZero(head.left(16))) // longer than any signature
        return zeroFilled("begins");
    const QByteArray tail = file.at(std::max<qint64>(0, file.size() - EDGE), EDGE);
    switch (type.type) {
    case FILE_TYPE_IMAGE_PNG: return damageOfPng(file, head, tail, type);
    case FILE_TYPE_VIDEO_AVI:
    case FILE_TYPE_AUDIO_WAV: return damageOfRiff(file, head, type);
    case FILE_TYPE_VIDEO_MKV: return damageOfMatroska(file, head, tail, type);
    default: return damageOfJpeg(head, tail, type);
    }
}

} // namespace

std::optional<Damage> damageOf(const QString &path, const MediaType &type)
{
    try {
        return verdictOn(Reader(path), type);
    } catch (const Failure &failure) {
        return Damage{"unreadable", QString::fromUtf8(failure.what())};
    }
}

std::optional<Damage> readingErrorOf(const QString &path)
{
    constexpr int BLOCK = 1 << 20;
    try {
        const Reader file(path);
        file.dropCache();
        for (qint64 offset = 0; !file.at(offset, BLOCK).isEmpty(); offset += BLOCK)
            continue;
        return std::nullopt;
    } catch (const Failure &failure) {
        return Damage{"unreadable", QString::fromUtf8(failure.what())};
    }
}

// SPDX-License-Identifier: MIT
#include "jpegsize.h"

#include "files.h"
#include "media.h"

#include <QByteArray>

#include <algorithm>

#include <fcntl.h>

namespace {

/// Markers of ITU-T T.81, table B.1.
enum Marker : uchar {
    SOF0 = 0xc0, // baseline
    SOF2 = 0xc2, // progressive
    DHT = 0xc4,
    SOS = 0xda,
    DQT = 0xdb,
    DRI = 0xdd,
    APP0 = 0xe0,
    APP15 = 0xef,
    COM = 0xfe,
};

uchar byteAt(const QByteArray &bytes, int index)
{
    return static_cast<uchar>(bytes[index]);
}

int numberAt(const QByteArray &bytes, int index)
{
    return byteAt(bytes, index) << 8 | byteAt(bytes, index + 1);
}

/// A file that is read in blocks, and only where it is needed.
class Blocks
{
public:
    explicit Blocks(const QString &path) : mFile(openFile(path, O_RDONLY)) {}

    /// The @p count bytes at @p offset; fewer at the end of the file, or if they cannot be read.
    QByteArray read(qint64 offset, int count)
    {
        constexpr int AT_ONCE = 4096;
        if (offset < mBegin || offset + count > mBegin + mBlock.size()) {
            mBlock.resize(std::max(count, AT_ONCE));
            readAt(mFile.get(), offset, mBlock);
            mBegin = offset;
        }
        return mBlock.mid(static_cast<int>(offset - mBegin), count);
    }

private:
    Descriptor mFile;
    QByteArray mBlock;
    qint64 mBegin = 0;
};

// The contents of segments, which are checked as libjpeg checks them when it reads a header.

bool areQuantizationTables(const QByteArray &content)
{
    int next = 0;
    while (next < content.size()) {
        const int precision = byteAt(content, next) >> 4;
        if (precision > 1 || (byteAt(content, next) & 15) > 3)
            return false;
        next += 1 + 64 * (precision + 1);
    }
    return next == content.size();
}

bool areHuffmanTables(const QByteArray &content)
{
    constexpr int COUNTS = 16;
    int next = 0;
    while (next + COUNTS < content.size()) {
        const int table = byteAt(content, next++);
        int codes = 0;
        for (const int end = next + COUNTS; next < end; ++next)
            codes += byteAt(content, next);
        if (table > 0x13 || (table & 15) > 3 || codes > 256)
            return false;
        next += codes;
    }
    return next == content.size();
}

bool isTable(uchar marker, const QByteArray &content)
{
    switch (marker) {
    case DQT: return areQuantizationTables(content);
    case DHT: return areHuffmanTables(content);
    case DRI: return content.size() == 2;
    default: return false;
    }
}

/// Returns whether a segment says nothing about the size.
bool hasNoEffect(uchar marker)
{
    return (marker >= APP0 && marker <= APP15) || marker == COM;
}

/// Returns whether the byte at @p first and every @p step-th byte after it are component numbers up to @p
/// largest, in ascending order.
bool areComponents(const QByteArray &content, int first, int step, int largest)
{
    for (int index = first, last = 0; index < content.size(); index += step) {
        const int component = byteAt(content, index);
        if (component <= last || component > largest)
            return false;
        last = component;
    }
    return true;
}

/// The size in the header of a frame with one or three components; invalid if libjpeg might refuse it.
QSize frameSize(const QByteArray &content)
{
    constexpr int COMPONENTS = 6;  // where they begin, 3 bytes each
    constexpr int LARGEST = 65500; // JPEG_MAX_DIMENSION
    const int count = (content.size() - COMPONENTS) / 3;
    if ((count != 1 && count != 3) || content.size() != COMPONENTS + 3 * count || byteAt(content, 0) != 8
        || byteAt(content, 5) != count || !areComponents(content, COMPONENTS, 3, count))
        return QSize();
    for (int index = COMPONENTS + 1; index < content.size(); index += 3) {
        const auto [least, most] = std::minmax({byteAt(content, index) >> 4, byteAt(content, index) & 15});
        if (least < 1 || most > 4) // sampling factors
            return QSize();
    }
    const QSize size(numberAt(content, 3), numberAt(content, 1));
    return std::max(size.width(), size.height()) <= LARGEST ? size : QSize();
}

/// Returns whether @p content is the header of a scan of components of @p frame.
bool isScan(const QByteArray &content, const QByteArray &frame)
{
    constexpr int OTHERS = 4; // bytes that do not describe components
    const int count = (content.size() - OTHERS) / 2;
    return count > 0 && content.size() == 2 * count + OTHERS && byteAt(content, 0) == count
           && !frame.isEmpty() && areComponents(content.left(2 * count), 1, 2, byteAt(frame, 5));
}

} // namespace

std::optional<QSize> plainJpegSize(const QString &path)
{
    constexpr int START = 4; // of a segment: the marker and the length, which includes itself
    Blocks file(path);
    if (imageFormat(file.read(0, 3)) != ImageFormat::Jpeg)
        return std::nullopt;
    QByteArray frame;
    for (qint64 offset = 2;;) {
        const QByteArray start = file.read(offset, START);
        if (start.size() < START || byteAt(start, 0) != 0xff || numberAt(start, 2) < 2)
            return std::nullopt;
        const uchar marker = byteAt(start, 1);
        const int length = numberAt(start, 2) - 2;
        const QByteArray content = hasNoEffect(marker) ? QByteArray() : file.read(offset + START, length);
        if (marker == SOS)
            return content.size() == length && isScan(content, frame) ? std::optional(frameSize(frame))
                                                                      : std::nullopt;
        const bool isFrame = marker >= SOF0 && marker <= SOF2;
        if (isFrame && frame.isEmpty() && !frameSize(content).isEmpty())
            frame = content;
        else if (isFrame || (!hasNoEffect(marker) && (content.size() != length || !isTable(marker, content))))
            return std::nullopt;
        offset += START + length;
    }
}

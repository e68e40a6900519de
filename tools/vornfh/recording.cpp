// SPDX-License-Identifier: MIT
#include "recording.h"

#include "durable.h"
#include "errors.h"
#include "ffmpeg.h"
#include "media.h"

#include <QFile>
#include <QFileInfo>
#include <QtEndian>

using namespace VORN_FILE_HANDLER;

namespace {

/// The RIFF chunks of an AVI or WAV file follow each other up to its end. A long AVI file has several.
bool isRiffClosed(QFile &file)
{
    constexpr int HEADER = 8;
    qint64 offset = 0;
    while (offset < file.size()) {
        const QByteArray header = file.seek(offset) ? file.read(HEADER) : QByteArray();
        if (header.size() < HEADER || !header.startsWith("RIFF"))
            return false;
        const auto size = qFromLittleEndian<quint32>(header.constData() + 4);
        if (size == 0 || size == 0xFFFFFFFF)
            return false;
        offset += HEADER + size + size % 2;
    }
    return offset > 0 && offset <= file.size() + 1; // the last byte of padding may be missing
}

/// Reads the size of an EBML element; -1 if it is unknown or @p bytes is too short.
qint64 ebmlSize(const QByteArray &bytes, int &length)
{
    const auto first = bytes.isEmpty() ? quint8(0) : static_cast<quint8>(bytes[0]);
    length = 1;
    while (length <= 8 && (first & (0x80 >> (length - 1))) == 0)
        ++length;
    if (length > 8 || bytes.size() < length)
        return -1;
    quint64 value = first & (0xFFU >> length);
    quint64 unknown = 0xFFU >> length;
    for (int i = 1; i < length; ++i) {
        value = value << 8 | static_cast<quint8>(bytes[i]);
        unknown = unknown << 8 | 0xFF;
    }
    return value == unknown ? -1 : static_cast<qint64>(value);
}

/// A Matroska file is an EBML header and a segment, whose size is unknown until it is closed.
bool isMatroskaClosed(QFile &file)
{
    constexpr int ID = 4;
    constexpr int LONGEST_SIZE = 8;
    const QByteArray segmentId = QByteArray::fromHex("18538067");
    int length = 0;
    qint64 offset = 0;
    for (const bool isSegment : {false, true}) {
        const QByteArray start = file.seek(offset) ? file.read(ID + LONGEST_SIZE) : QByteArray();
        const qint64 size = ebmlSize(start.mid(ID), length);
        if (size < 0 || (isSegment && !start.startsWith(segmentId)))
            return false;
        offset += ID + length + size;
    }
    return offset == file.size();
}

/// ffmpeg's name for the container format of @p path.
QString formatOf(const QString &path)
{
    const QString extension = QFileInfo(path).suffix();
    return extension == MKV_FILE_EXT ? "matroska" : extension;
}

} // namespace

bool isClosed(const QString &path)
{
    const Kind kind = kindOf(path);
    QFile file(path);
    if ((kind != VIDEO && kind != AUDIO) || !file.open(QIODevice::ReadOnly))
        return true;
    return path.endsWith("." + MKV_FILE_EXT) ? isMatroskaClosed(file) : isRiffClosed(file);
}

bool isUnfinished(const QString &path)
{
    constexpr int ID = 4;
    const QByteArrayList starts = {"RIFF", QByteArray::fromHex("1a45dfa3"), QByteArray(ID, '\0')};
    QFile file(path);
    return file.open(QIODevice::ReadOnly) && starts.contains(file.read(ID)) && !isClosed(path);
}

void closeRecording(const QString &path)
{
    TemporaryFile closed(QFileInfo(path).path(), path);
    const QString reason = runFfmpeg(
        fileInput(path) + QStringList{"-map", "0", "-c", "copy", "-f", formatOf(path)}, closed.path());
    if (!reason.isEmpty())
        throw FileFailure(path, "cannot be closed: " + reason);
    const qint64 packets = packetsIn(path);
    struct stat status = {};
    // ffprobe detects the container by its content, so the temporary file's name does not matter.
    if (packets < 0 || packetsIn(closed.path()) < packets)
        throw FileFailure(path, "cannot be closed: not all of it can be read");
    if (readStatus(path, status))
        setAttributes(closed.descriptor(), status);
    replaceFile(closed, path);
}

bool hasContent(const QString &path)
{
    return QFileInfo(path).size() > 0 && packetsIn(path, 1) != 0;
}

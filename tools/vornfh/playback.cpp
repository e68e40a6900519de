// SPDX-License-Identifier: MIT
#include "playback.h"

#include "ebml.h"
#include "files.h"
#include "media.h"

#include <QByteArray>

#include <algorithm>
#include <iterator>

using namespace VORN_FILE_HANDLER;

namespace {

/// A video codec as Matroska identifies it; an identifier in a file may be longer.
struct CodecRow {
    const char *id;
    const char *name;
    bool isPlayed;
};

/// The codecs that Chromium plays in a Matroska file, and some that it does not play.
constexpr CodecRow CODECS[] = {
    {"V_VP8", "VP8", true},
    {"V_VP9", "VP9", true},
    {"V_AV1", "AV1", true},
    {"V_MPEG4/ISO/AVC", "H.264", true},
    {"V_MPEG4/ISO/", "MPEG-4 Visual", false},
    {"V_MPEGH/ISO/HEVC", "H.265", false},
    {"V_MJPEG", "Motion JPEG", false},
};

/// The content of the element with @p id at the start of @p bytes, and whatever follows it; empty if another
/// element is there.
QByteArray contentOf(const QByteArray &bytes, const char *id)
{
    const QByteArray wanted = QByteArray::fromHex(id);
    if (!bytes.startsWith(wanted))
        return QByteArray();
    int length = 0;
    ebmlSize(bytes.mid(wanted.size()), length);
    return bytes.mid(wanted.size() + length);
}

/// The codec of the first video track; empty if there is none.
QByteArray videoCodecOf(const QByteArray &file)
{
    int length = 0;
    const QByteArray header = contentOf(file, "1a45dfa3");
    const qint64 headerSize = ebmlSize(file.mid(4), length);
    if (headerSize < 0 || headerSize > header.size())
        return QByteArray();
    QByteArray codec;
    const auto readTrack = [&codec](const QByteArray &id, const QByteArray &content) {
        if (id == QByteArray::fromHex("86") && codec.isEmpty() && content.startsWith("V_"))
            codec = content;
    };
    const auto readTracks = [&readTrack](const QByteArray &, const QByteArray &track) {
        forEachElement(track, readTrack);
    };
    const auto readSegment = [&readTracks](const QByteArray &id, const QByteArray &content) {
        if (id == QByteArray::fromHex("1654ae6b"))
            forEachElement(content, readTracks);
    };
    forEachElement(contentOf(header.mid(static_cast<int>(headerSize)), "18538067"), readSegment);
    return codec;
}

} // namespace

Playback playbackOf(const QString &path)
{
    const MediaType *type = findType(path);
    if (!type || type->kind == PHOTO || type->kind == THUMBNAIL)
        return {};
    if (type->type == FILE_TYPE_VIDEO_AVI)
        return {false, "AVI"};
    if (type->kind == AUDIO)
        return {true, QString()};
    constexpr int LENGTH = 16 << 10; // the tracks come first unless a file was edited
    const QByteArray codec = videoCodecOf(beginningOf(path, LENGTH));
    const auto *const row = std::find_if(std::begin(CODECS), std::end(CODECS),
                                         [&codec](const CodecRow &one) { return codec.startsWith(one.id); });
    return row == std::end(CODECS) ? Playback() : Playback{row->isPlayed, row->isPlayed ? "" : row->name};
}

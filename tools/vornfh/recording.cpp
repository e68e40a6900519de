// SPDX-License-Identifier: MIT
#include "recording.h"

#include "content.h"
#include "durable.h"
#include "errors.h"
#include "ffmpeg.h"
#include "mounts.h"
#include "text.h"

#include <QFileInfo>

using namespace VORN_FILE_HANDLER;

QString containerOf(const MediaType &type)
{
    switch (type.kind) {
    case PHOTO:
    case THUMBNAIL: return "image2";
    default: return type.type == FILE_TYPE_VIDEO_MKV ? "matroska" : type.extension;
    }
}

bool isClosed(const QString &path)
{
    const MediaType *type = findType(path);
    return !type || (type->kind != VIDEO && type->kind != AUDIO) || !damageOf(path, *type);
}

void closeRecording(const QString &path)
{
    const auto fail = [&path](const QString &reason) {
        throw FileFailure(path, "cannot be closed: " + reason);
    };
    const MediaType &type = *findType(path, Qt::CaseInsensitive);
    struct stat before = {};
    struct stat now = {};
    const bool isRead = readStatus(path, before);
    const qint64 free = freeBytes(QFileInfo(path).path());
    const QString room =
        free < before.st_size
            ? QString("; up to %1 needed, %2 free").arg(humanSize(before.st_size), humanSize(free))
            : QString();
    TemporaryFile closed(QFileInfo(path).path(), path);
    const QString reason = runFfmpeg(
        fileInput(path) + QStringList{"-map", "0", "-c", "copy", "-f", containerOf(type)}, closed.path());
    if (!reason.isEmpty())
        fail(reason + room);
    // ffprobe detects the container by its content, so the temporary file's name does not matter.
    const qint64 packets = packetsIn(path);
    if (packets < 0 || packetsIn(closed.path()) < packets)
        fail("not all of it can be read" + room);
    if (damageOf(closed.path(), type))
        fail("ffmpeg has not written all of it" + room);
    if (isRead && !(readStatus(path, now) && isSameState(before, now)))
        fail("it was changed by another program in the meantime");
    if (isRead)
        setAttributes(closed.descriptor(), before);
    replaceFile(closed, path);
}

bool hasContent(const QString &path)
{
    return QFileInfo(path).size() > 0 && packetsIn(path, 1) != 0;
}

QString writeThumbnail(const QString &recording, const QString &path)
{
    return runFfmpeg(fileInput(recording)
                         + QStringList{"-map", "0:v:0", "-frames:v", "1", "-vf", "scale=160:-2", "-c:v",
                                       "mjpeg", "-pix_fmt", "yuvj420p", "-update", "1", "-f", "image2"},
                     path);
}

// SPDX-License-Identifier: MIT
#include "media.h"

#include <QDir>
#include <QFileInfo>
#include <QPair>

#include <algorithm>

using namespace VORN_FILE_HANDLER;

namespace {

/// The characters after the last dot of a file name, like QFileInfo::suffix(), which takes ten times as long.
QStringRef suffixOf(const QString &name)
{
    const int dot = name.lastIndexOf('.');
    return dot > name.lastIndexOf('/') ? name.midRef(dot + 1) : QStringRef();
}

} // namespace

const QList<MediaType> &mediaTypes()
{
    static const QList<MediaType> TYPES = {
        {JPEG_FILE_EXT, FILE_TYPE_IMAGE_JPEG, PHOTO, "image", "image"},
        {PNG_FILE_EXT, FILE_TYPE_IMAGE_PNG, PHOTO, "image", "image"},
        {AVI_FILE_EXT, FILE_TYPE_VIDEO_AVI, VIDEO, "avi", "AVI video"},
        {MKV_FILE_EXT, FILE_TYPE_VIDEO_MKV, VIDEO, "mkv", "Matroska video"},
        {WAV_FILE_EXT, FILE_TYPE_AUDIO_WAV, AUDIO, "wav", "WAV audio"},
        {THUMB_FILE_EXT, FILE_TYPE_THUMB, THUMBNAIL, "thumb", "thumbnail"},
    };
    return TYPES;
}

const MediaType *findType(const QString &name, Qt::CaseSensitivity sensitivity)
{
    const QStringRef extension = suffixOf(name);
    const auto found = std::find_if(mediaTypes().begin(), mediaTypes().end(), [&](const MediaType &type) {
        return extension.compare(type.extension, sensitivity) == 0;
    });
    return found == mediaTypes().end() ? nullptr : &*found;
}

const MediaType &typeOf(const QString &extension)
{
    return *findType("." + extension);
}

Kind kindOf(const QString &name)
{
    const MediaType *type = findType(name);
    return type ? type->kind : OTHER;
}

bool hasThumbnails(const QString &name)
{
    const Kind kind = kindOf(name);
    return kind == PHOTO || kind == VIDEO;
}

QStringList extensions()
{
    QStringList list;
    for (const MediaType &type : mediaTypes())
        list.append(type.extension);
    return list;
}

QString thumbnailOf(const QString &path)
{
    const QFileInfo file(path);
    return file.path() + "/" + file.completeBaseName() + "." + THUMB_FILE_EXT;
}

ImageFormat imageFormat(const QByteArray &start)
{
    static const QPair<QByteArray, ImageFormat> SIGNATURES[] = {
        {"\xff\xd8\xff", ImageFormat::Jpeg},
        {"\x89PNG\r\n\x1a\n", ImageFormat::Png},
        {QByteArray("II*\0", 4), ImageFormat::Tiff},
        {QByteArray("MM\0*", 4), ImageFormat::Tiff},
    };
    for (const auto &[signature, format] : SIGNATURES) {
        if (start.startsWith(signature))
            return format;
    }
    return ImageFormat::Other;
}

bool isNumberTaken(const QString &path)
{
    const QFileInfo file(path);
    QStringList names;
    for (const MediaType &type : mediaTypes()) {
        if (type.kind != THUMBNAIL)
            names.append(file.completeBaseName() + "." + type.extension);
    }
    const auto everything = QDir::AllEntries | QDir::Hidden | QDir::System;
    return !file.dir().entryList(names, everything).isEmpty();
}

// SPDX-License-Identifier: MIT
#include "media.h"

#include <QDir>
#include <QFileInfo>

#include <algorithm>

using namespace VORN_FILE_HANDLER;

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

QStringRef suffixOf(const QString &name)
{
    const int dot = name.lastIndexOf('.');
    return dot > name.lastIndexOf('/') ? name.midRef(dot + 1) : QStringRef();
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

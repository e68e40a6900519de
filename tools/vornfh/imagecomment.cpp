// SPDX-License-Identifier: MIT
#include "imagecomment.h"

#include "files.h"
#include "media.h"

#include <exiv2/exiv2.hpp>

#include <exception>

#include <fcntl.h>

std::optional<std::string> readComment(const QString &path)
{
    const auto image = Exiv2::ImageFactory::open(path.toStdString());
    image->readMetadata();
    const Exiv2::ExifData &exif = image->exifData();
    const auto found = exif.findKey(Exiv2::ExifKey("Exif.Photo.UserComment"));
    if (found == exif.end())
        return std::nullopt;
    const auto *value = dynamic_cast<const Exiv2::CommentValue *>(&found->value());
    return value ? value->comment() : found->toString();
}

QString commentIn(const QString &path)
{
    QByteArray start(8, '\0');
    const Descriptor file = openFile(path, O_RDONLY | O_NONBLOCK);
    if (!file.isOpen() || !readAt(file.get(), 0, start) || imageFormat(start) == ImageFormat::Other)
        return QString();
    Exiv2::LogMsg::setLevel(Exiv2::LogMsg::mute);
    try {
        return QString::fromStdString(readComment(path).value_or(std::string()));
    } catch (const std::exception &) { // the image is damaged
        return QString();
    }
}

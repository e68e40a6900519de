// SPDX-License-Identifier: MIT
#include "imagecomment.h"

#include <exiv2/exiv2.hpp>

std::optional<std::string> readComment(const QString &path)
{
    Exiv2::LogMsg::setLevel(Exiv2::LogMsg::mute);
    const auto image = Exiv2::ImageFactory::open(path.toStdString());
    image->readMetadata();
    const Exiv2::ExifData &exif = image->exifData();
    const auto found = exif.findKey(Exiv2::ExifKey("Exif.Photo.UserComment"));
    if (found == exif.end())
        return std::nullopt;
    const auto *value = dynamic_cast<const Exiv2::CommentValue *>(&found->value());
    return value ? value->comment() : found->toString();
}

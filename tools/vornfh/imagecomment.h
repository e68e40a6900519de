// SPDX-License-Identifier: MIT
#ifndef IMAGECOMMENT_H
#define IMAGECOMMENT_H

#include <QString>

#include <optional>
#include <string>

/// The user comment in the EXIF data of the image @p path; nullopt if there is none. Throws what Exiv2 throws
/// if it cannot read the file, which must be a JPEG, PNG or TIFF image: Exiv2 may hang on a damaged AVI file.
std::optional<std::string> readComment(const QString &path);

/// The comment in the file @p path, which may be of any kind; empty if there is none, or if it cannot be
/// read.
QString commentIn(const QString &path);

#endif // IMAGECOMMENT_H

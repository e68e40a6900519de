// SPDX-License-Identifier: MIT
#ifndef JPEGSIZE_H
#define JPEGSIZE_H

#include <QSize>
#include <QString>

#include <optional>

/// The size of the JPEG image @p path, as Qt would report it, but found in a fraction of the time. Nullopt if
/// Qt must be asked, because something before the image data is unusual, damaged or unreadable.
std::optional<QSize> plainJpegSize(const QString &path);

#endif // JPEGSIZE_H

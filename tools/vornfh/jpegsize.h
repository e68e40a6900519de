// SPDX-License-Identifier: MIT
#ifndef JPEGSIZE_H
#define JPEGSIZE_H

#include <QSize>
#include <QString>

#include <optional>

/// The size of the JPEG image @p path, as Qt reads it, at a fraction of the time. Nullopt if Qt must be
/// asked, because anything before the image data is unusual, damaged or unreadable.
std::optional<QSize> plainJpegSize(const QString &path);

#endif // JPEGSIZE_H

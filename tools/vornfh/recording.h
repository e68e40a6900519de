// SPDX-License-Identifier: MIT
#ifndef RECORDING_H
#define RECORDING_H

#include "media.h"

#include <QString>

/// ffmpeg's name for the container format of a type.
QString containerOf(const MediaType &type);

/// Returns whether a video or audio file is complete. One whose writer was killed is not, and most players
/// refuse it. True for other types of files.
bool isClosed(const QString &path);

/// Writes the content of a file that is not closed into a new one, which replaces it if it contains all
/// packets of the old one. Throws FileFailure; the file is then unchanged, or has been replaced but may not
/// be on the device.
void closeRecording(const QString &path);

/// Returns whether @p path contains anything but a header. True if that cannot be determined.
bool hasContent(const QString &path);

/// Writes the thumbnail of a photo or video into the file @p path, which must exist. Returns the reason for
/// a failure; empty on success.
QString writeThumbnail(const QString &recording, const QString &path);

#endif // RECORDING_H

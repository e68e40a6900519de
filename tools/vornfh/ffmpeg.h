// SPDX-License-Identifier: MIT
#ifndef FFMPEG_H
#define FFMPEG_H

#include <QString>
#include <QStringList>

/// Throws Failure unless ffmpeg is on PATH.
void requireFfmpeg();

/// Runs ffmpeg to write @p path, which must exist and is overwritten, and waits for it; a stop signal ends
/// it. @p arguments are those before the output. Returns the reason for a failure; empty on success.
QString runFfmpeg(const QStringList &arguments, const QString &path);

/// Arguments that read the file @p path, whatever its name.
QStringList fileInput(const QString &path);

#endif // FFMPEG_H

// SPDX-License-Identifier: MIT
#ifndef PLAYBACK_H
#define PLAYBACK_H

#include <QString>

/// Whether browsers play a recording. If they do not, @p obstacle is the format that they do not play, for
/// example "AVI"; it is empty if nothing is known.
struct Playback {
    bool isPlayed = false;
    QString obstacle;
};

/// The playback of the recording @p path. Reads the beginning of a Matroska file.
Playback playbackOf(const QString &path);

#endif // PLAYBACK_H

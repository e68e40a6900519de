// SPDX-License-Identifier: MIT
#ifndef CONTENT_H
#define CONTENT_H

#include "media.h"

#include <QString>

#include <optional>

/// What is wrong with the content of a media file.
struct Damage {
    QString kind; // "zero-filled"
    QString text;
    bool isClosable = false; // writing its streams into a new file repairs it
};

/// Returns what is wrong with the content of the file @p path, which should be of @p type; nullopt if nothing
/// is wrong. Checks the start, the end and the structure with a few reads, regardless of the size of the
/// file.
std::optional<Damage> damageOf(const QString &path, const MediaType &type);

/// Reads every byte of the file @p path from the device. Returns the first error; nullopt if there is none.
std::optional<Damage> readingErrorOf(const QString &path);

#endif // CONTENT_H

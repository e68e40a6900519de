// SPDX-License-Identifier: MIT
#ifndef TEXT_H
#define TEXT_H

#include <QByteArray>
#include <QDateTime>
#include <QString>
#include <QStringList>

#include <optional>

/// Decodes @p bytes; nullopt if they are not valid UTF-8.
std::optional<QString> decoded(const QByteArray &bytes);

/// @p text in which each character that a terminal would interpret is replaced by an escape: "\x1b",
/// "\u202e".
QString printable(const QString &text);
/// The same for bytes; those that are not valid UTF-8 are escaped too.
QString printable(const QByteArray &bytes);

/// "1023 B", "1.5 KiB", "3.7 GiB".
QString humanSize(qint64 bytes);

/// The same, followed by the exact number of bytes: "1023 B", "1.5 KiB (1536 B)".
QString exactSize(qint64 bytes);

/// The number of bytes that "2G", "500M", "64K" or "1000" stand for, in powers of 1024; nullopt for anything
/// else.
std::optional<qint64> parsedSize(const QString &text);

/// The number of seconds that "90s", "30m", "12h", "7d" or "2w" stand for; nullopt for anything else.
std::optional<qint64> parsedAge(const QString &text);

/// "705.6 kbit/s".
QString bitrateText(qint64 bitsPerSecond);

/// The day that a string such as "2025-02-25" stands for; nullopt for anything else.
std::optional<QDate> parsedDay(const QString &text);

/// "1 file", "2 files".
QString counted(qint64 count, const QString &noun);

/// "2025-02-25 14:03:59"; "unknown" if there is no time.
QString timeText(const QDateTime &time);

/// "0:05", "1:02:03".
QString durationText(qint64 seconds);

/// A bar of @p width characters for @p part of @p whole, "#####---------------".
QString bar(qint64 part, qint64 whole, int width = 20);

#endif // TEXT_H

// SPDX-License-Identifier: MIT
#ifndef LISTING_H
#define LISTING_H

#include <QByteArray>
#include <QSet>
#include <QString>
#include <QStringList>

#include <optional>
#include <string>
#include <vector>

/// A local time as decimal digits: 20250225140359123 is 2025-02-25 14:03:59.123. Numbers compare as the times
/// do.
using ClockDigits = qint64;

/// A file with an ASCII name, and its status at the time when it was listed.
struct PlainFile {
    std::string name;
    qint64 size = 0;
    ClockDigits modified = 0;
    ClockDigits created = 0;  // see creationTime()
    qint64 modifiedMsecs = 0; // since 1970
    qint64 createdMsecs = 0;
    bool isProtected = false; // this file or another file of its object is protected
};

/// Lists the files of @p folder, an absolute path without a slash at the end, that have one of @p extensions
/// (any, if that is empty). The files and their order are those of VornFileHandler::getDirectoryContents()
/// with filters "*.<extension>", oldest first, but this takes only one status query per file and no
/// QFileInfo. Nullopt if the library must be used, for example for names that are not ASCII, times before
/// 1970 or after 2037, a folder that does not exist, and file systems that do not report the types of
/// entries. Throws FileFailure if the folder cannot be read to its end. @p thumbnails gets the base names of
/// all thumbnails in the folder.
std::optional<std::vector<PlainFile>> listPlainFiles(const QString &folder, const QStringList &extensions,
                                                     QSet<QByteArray> *thumbnails = nullptr);

/// "2025-02-25" and "14:03:59".
QByteArray dateText(ClockDigits time);
QByteArray clockText(ClockDigits time);

#endif // LISTING_H

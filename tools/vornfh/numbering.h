// SPDX-License-Identifier: MIT
#ifndef NUMBERING_H
#define NUMBERING_H

#include "storages.h"

#include <QByteArray>
#include <QString>

#include <optional>

/// The numbers that a player accepts and that the library assigns.
constexpr int FIRST_FOLDER = 100;
constexpr int LAST_FOLDER = 999;
constexpr int LAST_FILE = 9999;

/// The prefix of the names of numbered files.
constexpr QLatin1String FILE_PREFIX("DCF_", 4);

// The library and players can read different numbers from the same name. The functions that return an
// optional number return nullopt for a name without one.

/// The name of folder @p number.
QString folderName(int number);

/// The number that the library reads from the folder name @p name. With Qt::CaseInsensitive, the suffix may
/// differ in case, which the library does not accept.
std::optional<int> folderNumber(const QString &name, Qt::CaseSensitivity sensitivity = Qt::CaseSensitive);

/// The number that a player reads from a folder name.
std::optional<int> playersFolderNumber(const QString &name);

/// Returns whether the numbering can use the folder name @p name. It cannot use "0100ABC", for example: it
/// would look for the files in 100ABC.
bool isNumberedName(const QString &name);

/// The number that the library reads from a file name, whether or not a player accepts it: 1234 for
/// "DCF_12345.jpg".
std::optional<int> fileNumber(const QString &name);

/// The number that a player reads from the name of a media file, which consists of four characters, four
/// digits and an extension. This function also accepts a prefix other than FILE_PREFIX, and the number 0.
std::optional<int> playersFileNumber(const QString &name);

/// The number in the base name of a file that the library numbers and a player accepts: 7 for "DCF_0007"; 0
/// for any other name.
int objectNumber(const QByteArray &baseName);

/// The current position of the numbering on a storage device.
struct Numbering {
    int folder = FIRST_FOLDER; // the current folder
    QString folderPath;
    bool isCreated = false; // the library lists numbered folders
    bool folderExists = false;
    int lastFile = 0;             // the last number in the current folder
    int lastFolder = LAST_FOLDER; // the last folder that can become the current one

    /// How many more recordings can be numbered.
    qint64 left() const;
    /// The folder of the next recording.
    int nextFolder() const;
};

/// The current position of the numbering on @p storage. Creates nothing. The library prints a diagnostic line
/// for each name that it skips.
Numbering numberingOf(const Storage &storage);

/// The path that the library would return for the next recording; asking it could create a folder.
QString nextPath(const Storage &storage, const Numbering &numbering, VORN_FILE_HANDLER::eFileTypes type);

#endif // NUMBERING_H

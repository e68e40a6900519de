// SPDX-License-Identifier: MIT
#ifndef NUMBERING_H
#define NUMBERING_H

#include "storages.h"

#include <QByteArray>
#include <QString>

/// The numbers that a player accepts and that the library assigns.
constexpr int FIRST_FOLDER = 100;
constexpr int LAST_FOLDER = 999;
constexpr int LAST_FILE = 9999;

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
};

/// Creates nothing. The library prints a diagnostic line for each name that it skips.
Numbering numberingOf(const Storage &storage);

/// The path that the library would return for the next recording; asking it could create a folder.
QString nextPath(const Storage &storage, const Numbering &numbering, VORN_FILE_HANDLER::eFileTypes type);

/// The name of folder @p number.
QString folderName(int number);

/// The number in the base name of a file, if the library could have built it: 7 for "DCF_0007"; 0 for any
/// other name.
int numberIn(const QByteArray &baseName);

#endif // NUMBERING_H

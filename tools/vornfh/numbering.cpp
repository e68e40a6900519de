// SPDX-License-Identifier: MIT
#include "numbering.h"

#include "folders.h"

#include <algorithm>

using namespace VORN_FILE_HANDLER;

namespace {

/// The last folder that the numbering can reach from @p folder. The current folder is the last one in the
/// order of names, so the next one becomes current only if its name comes later: 1000 comes before 999.
int lastFolderFrom(int folder)
{
    if (folder < 0) // -9 comes after -10, but -8 comes before -9
        return QString::number(folder + 1) > QString::number(folder) ? folder + 1 : folder;
    qint64 last = 9;
    while (last < folder)
        last = last * 10 + 9;
    return static_cast<int>(qMin<qint64>(last, std::numeric_limits<int>::max()));
}

} // namespace

qint64 Numbering::left() const
{
    return LAST_FILE - lastFile + (qint64(lastFolder) - folder) * LAST_FILE;
}

Numbering numberingOf(const Storage &storage)
{
    Numbering numbering;
    numbering.isCreated = hasNumberedFolders(storage);
    if (numbering.isCreated)
        numbering.folder = VornFileHandler::getLastDirectoryNum(storage.type);
    numbering.folderPath = VornFileHandler::getDirPath(storage.type, numbering.folder);
    numbering.folderExists = QFileInfo(numbering.folderPath).isDir();
    if (numbering.folderExists)
        numbering.lastFile = VornFileHandler::getLastFileNum(storage.type, numbering.folder);
    numbering.lastFolder = lastFolderFrom(numbering.folder);
    return numbering;
}

QString nextPath(const Storage &storage, const Numbering &numbering, eFileTypes type)
{
    const bool isFull = numbering.lastFile == LAST_FILE;
    const bool isAdvancing = isFull && numbering.folder < numbering.lastFolder;
    return VornFileHandler::getFilePath(storage.type, numbering.folder + (isAdvancing ? 1 : 0),
                                        isFull ? 1 : numbering.lastFile + 1,
                                        VornFileHandler::getFileExtension(type));
}

QString folderName(int number)
{
    return QString::number(number) + VornFileHandler::mFolderSuffix;
}

int numberIn(const QByteArray &baseName)
{
    constexpr int DIGITS = 4;
    const QByteArray prefix = "DCF_";
    const QByteArray digits = baseName.mid(prefix.size());
    const bool isNumber =
        baseName.startsWith(prefix) && digits.size() == DIGITS
        && std::all_of(digits.begin(), digits.end(), [](char c) { return c >= '0' && c <= '9'; });
    return isNumber ? digits.toInt() : 0;
}

// SPDX-License-Identifier: MIT
#include "numbering.h"

#include "folders.h"

#include <QRegularExpression>

#include <algorithm>
#include <limits>

using namespace VORN_FILE_HANDLER;

namespace {

std::optional<int> toNumber(const QString &text)
{
    bool isNumber = false;
    const int number = text.toInt(&isNumber);
    return isNumber ? std::optional(number) : std::nullopt;
}

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

QString folderName(int number)
{
    return QString::number(number) + VornFileHandler::mFolderSuffix;
}

std::optional<int> folderNumber(const QString &name, Qt::CaseSensitivity sensitivity)
{
    return toNumber(QString(name).remove(VornFileHandler::mFolderSuffix, sensitivity));
}

std::optional<int> playersFolderNumber(const QString &name)
{
    static const QRegularExpression DIGITS("^([0-9]{3})(?![0-9])");
    const auto number = folderNumber(name, Qt::CaseInsensitive);
    return number ? number : toNumber(DIGITS.match(name).captured(1));
}

bool isNumberedName(const QString &name)
{
    const auto number = folderNumber(name);
    return number && folderName(*number) == name;
}

std::optional<int> fileNumber(const QString &name)
{
    return toNumber(name.left(8).remove(FILE_PREFIX));
}

std::optional<int> playersFileNumber(const QString &name)
{
    static const QRegularExpression NAME(QRegularExpression::anchoredPattern(".{4}([0-9]{4})\\.[^.]*"));
    return toNumber(NAME.match(name).captured(1));
}

int objectNumber(const QByteArray &baseName)
{
    constexpr int DIGITS = 4;
    const QByteArray digits = baseName.mid(FILE_PREFIX.size());
    const bool isNumber =
        baseName.startsWith(FILE_PREFIX.data()) && digits.size() == DIGITS
        && std::all_of(digits.begin(), digits.end(), [](char c) { return c >= '0' && c <= '9'; });
    return isNumber ? digits.toInt() : 0;
}

qint64 Numbering::left() const
{
    return LAST_FILE - lastFile + (qint64(lastFolder) - folder) * LAST_FILE;
}

int Numbering::nextFolder() const
{
    return lastFile == LAST_FILE && folder < lastFolder ? folder + 1 : folder;
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
    return VornFileHandler::getFilePath(storage.type, numbering.nextFolder(),
                                        numbering.lastFile == LAST_FILE ? 1 : numbering.lastFile + 1,
                                        VornFileHandler::getFileExtension(type));
}

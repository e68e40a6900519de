// SPDX-License-Identifier: MIT
#include "paths.h"

#include "errors.h"
#include "text.h"

#include <QDir>
#include <QFileInfo>
#include <QRegularExpression>
#include <QStandardPaths>

#include <algorithm>
#include <cstring>

QString fromCommandLine(const std::string &text, const QString &what)
{
    const QByteArray bytes = QByteArray::fromStdString(text);
    const auto result = decoded(bytes);
    if (!result)
        throw UsageError(what + " '" + printable(bytes) + "' is not valid UTF-8");
    return *result;
}

QString requiredPath(const std::string &text, const QString &start)
{
    if (text.empty())
        throw UsageError(start + "the path is empty");
    return fromCommandLine(text, start + "the path");
}

QString pathArgument(const std::string &text)
{
    if (text.empty())
        throw FileFailure("''", "is not a file name");
    const QByteArray bytes = QByteArray::fromStdString(text);
    const auto result = decoded(bytes);
    if (!result)
        throw FileFailure(printable(bytes), "the name is not valid UTF-8");
    return fromRoot(*result);
}

QString fromRoot(const QString &path)
{
    return path.startsWith('/') ? path : QDir::currentPath() + "/" + path;
}

QString absolutePath(const QString &path)
{
    return QDir::cleanPath(fromRoot(path));
}

QString nearestExisting(const QString &path)
{
    QString existing = path;
    while (existing != "/" && !QFileInfo::exists(existing))
        existing = QFileInfo(existing).path();
    return existing;
}

bool isInside(const QString &path, const QString &folder)
{
    return path.startsWith(folder.endsWith('/') ? folder : folder + "/");
}

int firstOther(const QString &text, const char *others)
{
    const auto isAllowed = [others](QChar c) {
        const bool isAscii = c.unicode() > 0 && c.unicode() < 0x80;
        return isAscii && (c.isLetterOrNumber() || std::strchr(others, c.toLatin1()));
    };
    const auto *const found = std::find_if_not(text.begin(), text.end(), isAllowed);
    return found == text.end() ? -1 : static_cast<int>(found - text.begin());
}

int unsafeCharacter(const QString &path)
{
    return firstOther(path, "/._+,@=:-");
}

bool hasPlaceMarker(const QString &text)
{
    return text.contains(QRegularExpression("%L?[0-9]"));
}

void requireFolderName(const QString &name)
{
    const auto isControl = [](QChar c) { return c.category() == QChar::Other_Control; };
    const auto refuse = [&name](const QString &reason) {
        throw UsageError(QString("the folder name '%1' ").arg(name) + reason);
    };
    if (name.isEmpty())
        refuse("is empty");
    if (name == "." || name == "..")
        refuse("is not the name of a folder in the location");
    if (name.contains('/'))
        refuse("contains '/'; it must be the name of a folder directly in the location");
    if (std::any_of(name.begin(), name.end(), isControl))
        refuse("contains a control character");
    if (hasPlaceMarker(name))
        refuse("contains a place marker such as '%1', which the library would replace");
}

QString missingProgram(const QStringList &programs)
{
    const auto isMissing = [](const QString &program) {
        return QStandardPaths::findExecutable(program).isEmpty();
    };
    const auto found = std::find_if(programs.begin(), programs.end(), isMissing);
    return found == programs.end() ? QString() : *found;
}

QString notOnPath(const QString &program)
{
    return program + " is not on PATH";
}

// SPDX-License-Identifier: MIT
#include "commands.h"
#include "files.h"
#include "folders.h"
#include "media.h"
#include "numbering.h"
#include "output.h"
#include "paths.h"
#include "recording.h"
#include "temporary.h"
#include "text.h"

#include <QFile>
#include <QJsonArray>
#include <QJsonObject>
#include <QMap>
#include <QRegularExpression>
#include <QSet>

#include <algorithm>
#include <cerrno>
#include <memory>
#include <optional>

#include <fcntl.h>
#include <sys/stat.h>

using namespace VORN_FILE_HANDLER;

namespace {

/// Something that a player would reject, or that the library skips or can no longer reach.
struct Finding {
    QByteArray path;
    QString kind;
    QString text;
};

struct Result {
    QList<Finding> findings;
    int folders = 0;
    int files = 0;
    Numbering numbering;

    void add(const QByteArray &path, const QString &kind, const QString &text)
    {
        findings.append({path, kind, text});
    }
};

// Reading folders

/// A directory entry as it is on the storage device.
struct Entry {
    QByteArray path;
    QByteArray bytes;
    std::optional<QString> name; // nullopt if the bytes are not valid UTF-8
    mode_t mode = 0;
    qint64 size = 0;
    int error = 0; // why the status cannot be read

    bool isHidden() const { return bytes.startsWith('.'); }
    bool isFolder() const { return S_ISDIR(mode); }
    bool isFile() const { return S_ISREG(mode); }
};

/// The entries of @p path, sorted by name; nullopt with errno set.
std::optional<std::vector<Entry>> readEntries(const QByteArray &path)
{
    std::vector<Entry> entries;
    bool isPermitted = true;
    const bool isRead = forEachEntry(QFile::decodeName(path), [&](int folder, const dirent &found) {
        const QByteArray name = found.d_name;
        struct stat status = {};
        const int error = ::fstatat(folder, name.constData(), &status, AT_SYMLINK_NOFOLLOW) == 0 ? 0 : errno;
        isPermitted = isPermitted && error != EACCES;
        entries.push_back({path + "/" + name, name, decoded(name), status.st_mode, status.st_size, error});
    });
    if (!isPermitted)
        errno = EACCES;
    if (!isRead || !isPermitted)
        return std::nullopt;
    std::sort(entries.begin(), entries.end(),
              [](const Entry &one, const Entry &other) { return one.bytes < other.bytes; });
    return entries;
}

// Names

std::optional<int> toNumber(const QString &text)
{
    bool isNumber = false;
    const int number = text.toInt(&isNumber);
    return isNumber ? std::optional(number) : std::nullopt;
}

/// The number that a player reads from the name of a folder.
std::optional<int> playersNumber(const QString &folder)
{
    static const QRegularExpression DIGITS("^([0-9]{3})(?![0-9])");
    if (const auto number =
            toNumber(QString(folder).remove(VornFileHandler::mFolderSuffix, Qt::CaseInsensitive)))
        return number;
    return toNumber(DIGITS.match(folder).captured(1));
}

/// The number of a media file whose name is four characters, four digits and an extension.
std::optional<int> objectNumber(const QString &name)
{
    static const QRegularExpression NAME(QRegularExpression::anchoredPattern(".{4}([0-9]{4})\\.[^.]*"));
    const auto match = NAME.match(name);
    return match.hasMatch() ? toNumber(match.captured(1)) : std::nullopt;
}

/// Returns whether the name can be examined further.
bool checkName(const Entry &entry, Result &result)
{
    if (!entry.name) {
        result.add(entry.path, "not-utf8", "the name is not valid UTF-8: the library never lists it");
        return false;
    }
    QString ascii; // other characters have no meaning in a shell
    std::copy_if(entry.name->begin(), entry.name->end(), std::back_inserter(ascii),
                 [](QChar c) { return c.unicode() < 0x80; });
    const int place = unsafeCharacter(ascii);
    if (place >= 0)
        result.add(
            entry.path, "shell-name",
            QString("the name contains '%1', which a shell might interpret: the library passes the names of "
                    "videos to a shell")
                .arg(ascii[place]));
    return true;
}

void checkFileNumber(const Entry &file, Result &result)
{
    const QString prefix = file.name->left(4);
    const auto number = objectNumber(*file.name);
    if (prefix.compare("DCF_", Qt::CaseInsensitive) != 0)
        result.add(file.path, "file-number", "does not begin with 'DCF_': the numbering ignores it");
    else if (number && *number == 0)
        result.add(file.path, "file-number", "has the number 0000: players accept 0001 to 9999");
    else if (number && prefix != "DCF_")
        result.add(
            file.path, "file-case",
            QString("begins with '%1' instead of 'DCF_': the numbering ignores it and assigns its number "
                    "again")
                .arg(prefix));
    else if (number)
        return;
    else if (const auto seen = toNumber(file.name->left(8).remove("DCF_")))
        result.add(
            file.path, "file-number",
            QString("does not have exactly four digits after 'DCF_': the numbering reads it as number %1, "
                    "and players ignore it")
                .arg(*seen));
    else
        result.add(file.path, "file-number",
                   "has no number after 'DCF_': the numbering and players ignore it");
}

// Files

void checkFile(const Entry &file, Result &result)
{
    const MediaType *type = findType(*file.name, Qt::CaseInsensitive);
    if (!type) {
        result.add(
            file.path, "file-type",
            QString("has none of the extensions %1: the media lists, the count and the numbering ignore "
                    "it")
                .arg(extensions().join(", ")));
        return;
    }
    if (file.size == 0)
        result.add(file.path, "empty-file",
                   "is empty: the recording was never written, or its data was lost");
    else if (isUnfinished(QFile::decodeName(file.path)))
        result.add(
            file.path, "file-not-closed",
            "is incomplete: it is still being recorded, or the recording was interrupted; a player may "
            "reject it");
    const QString extension = QFileInfo(*file.name).suffix();
    if (extension != type->extension)
        result.add(file.path, "file-case",
                   QString("ends in '.%1' instead of '.%2': the library lists it as a file of unknown type")
                       .arg(extension, type->extension));
    if (type->kind != THUMBNAIL)
        checkFileNumber(file, result);
}

/// Reports media files that share a number, and thumbnails without a photo or video.
void checkGroups(const std::vector<Entry> &files, Result &result)
{
    QMap<int, QByteArray> owners;
    QSet<QString> pictures;
    QList<const Entry *> thumbnails;
    for (const Entry &file : files) {
        const MediaType *type = findType(*file.name, Qt::CaseInsensitive);
        if (!type)
            continue;
        if (type->kind == THUMBNAIL) {
            thumbnails.append(&file);
            continue;
        }
        if (type->kind != AUDIO)
            pictures.insert(QFileInfo(*file.name).completeBaseName());
        const auto number = objectNumber(*file.name);
        if (number && owners.contains(*number))
            result.add(file.path, "file-duplicate",
                       QString("has the same number as %1: a player may show only one of them, or neither")
                           .arg(QString::fromUtf8(owners[*number])));
        else if (number)
            owners.insert(*number, file.bytes);
    }
    for (const Entry *file : thumbnails) {
        if (!pictures.contains(QFileInfo(*file->name).completeBaseName()))
            result.add(file->path, "thumb-alone", "the photo or video of this thumbnail is missing");
    }
}

/// Reports hidden media files. Other hidden files are ignored.
void checkHidden(const Entry &entry, Result &result)
{
    if (entry.isFile() && entry.name && findType(*entry.name, Qt::CaseInsensitive))
        result.add(entry.path, "hidden-file", "the name begins with '.': the library never lists it");
}

/// Returns whether the status of the entry could be read.
bool checkReadable(const Entry &entry, Result &result)
{
    if (entry.error != 0)
        result.add(entry.path, "unreadable", "cannot be read: " + errorText(entry.error));
    return entry.error == 0;
}

/// Reports what interrupted commands have left behind in @p folder.
void checkLeftovers(const QByteArray &folder, Result &result)
{
    const Leftovers leftovers = leftoversIn(QFile::decodeName(folder));
    const QString remedy = leftovers.areSafeToDelete()
                               ? "the next command that writes to this folder removes it"
                               : MAY_SHARE_CONTENT;
    for (const QString &path : leftovers.paths)
        result.add(QFile::encodeName(path), "leftover", "was left by an interrupted command; " + remedy);
}

/// Returns whether it is a file, as everything in a numbered folder should be.
bool checkKind(const Entry &entry, Result &result)
{
    if (!entry.isFile())
        result.add(entry.path, "not-a-file",
                   entry.isFolder() ? "is a folder in a numbered folder: the library lists nothing in it"
                                    : "is a link or a special file: the library never lists it");
    return entry.isFile();
}

void checkFiles(const QByteArray &folder, Result &result)
{
    const auto entries = readEntries(folder);
    if (!entries) {
        result.add(folder, "unreadable", "cannot be read: " + errorText(errno));
        return;
    }
    std::vector<Entry> files;
    for (const Entry &entry : *entries) {
        if (entry.isHidden())
            checkHidden(entry, result);
        else if (checkName(entry, result) && checkReadable(entry, result) && checkKind(entry, result))
            files.push_back(entry);
    }
    checkLeftovers(folder, result);
    result.files += static_cast<int>(files.size());
    for (const Entry &file : files)
        checkFile(file, result);
    checkGroups(files, result);
}

// Folders

/// Checks the name of a folder that the library lists as numbered.
void checkFolder(const Entry &folder, Result &result)
{
    const QString suffix = VornFileHandler::mFolderSuffix;
    const auto number = toNumber(QString(*folder.name).remove(suffix));
    const auto looseNumber = toNumber(QString(*folder.name).remove(suffix, Qt::CaseInsensitive));
    const int current = result.numbering.folder;
    if (!number && looseNumber)
        result.add(folder.path, "folder-case",
                   QString("its suffix differs from '%1' in case: the numbering ignores it").arg(suffix));
    else if (!number)
        result.add(folder.path, "folder-number", "has no number before the suffix: the numbering ignores it");
    else if (folderName(*number) != *folder.name)
        result.add(folder.path, "folder-number",
                   QString("the numbering reads it as folder %1 and looks for files in %2")
                       .arg(QString::number(*number), folderName(*number)));
    else if (*number > LAST_FOLDER && *number != current)
        result.add(
            folder.path, "folder-unreachable",
            QString("comes before %1 in name order: the numbering never reaches it, and players ignore it")
                .arg(folderName(current)));
    else if (*number < FIRST_FOLDER || *number > LAST_FOLDER)
        result.add(folder.path, "folder-digits", "the number is not between 100 and 999: players ignore it");
}

/// Checks an entry of the location that the library does not list as a numbered folder.
void checkOther(const Entry &entry, Result &result)
{
    const QString suffix = VornFileHandler::mFolderSuffix;
    const bool isNamedAsFolder =
        entry.name->endsWith(suffix) && toNumber(QString(*entry.name).remove(suffix)).has_value();
    if (entry.isFolder())
        checkLeftovers(entry.path, result);
    else if (isNamedAsFolder)
        result.add(entry.path, "not-a-folder",
                   "has the name of a numbered folder but is not a folder: the numbering cannot use it");
    else if (!suffix.isEmpty()) // with an empty suffix the library lists the location itself
        result.add(entry.path, "loose-file", "is not in a folder: the library never lists it");
}

void checkNumbering(Result &result)
{
    const Numbering &numbering = result.numbering;
    const QByteArray path = QFile::encodeName(numbering.folderPath);
    if (numbering.isCreated && !numbering.folderExists)
        result.add(path, "no-current-folder",
                   "the next recording belongs here, but the folder does not exist and the library does not "
                   "create it");
    if (numbering.left() == 0)
        result.add(path, "numbers-used-up", "no numbers are left: the library keeps returning DCF_0001 here");
}

Result check(const Storage &storage)
{
    requireReadableFolder(storage.location);
    const auto entries = readEntries(QFile::encodeName(storage.location));
    if (!entries)
        throw Failure(QString("%1: %2").arg(storage.location, errorText(errno)));
    Result result;
    result.numbering = numberingOf(storage);
    checkNumbering(result);
    for (const QString &folder : {QFileInfo(storage.location).path(), storage.location})
        checkLeftovers(QFile::encodeName(folder), result);
    const QStringList listed = numberedFolders(storage);
    QMap<int, QByteArray> owners;
    for (const Entry &entry : *entries) {
        if (entry.isHidden() || !checkName(entry, result) || !checkReadable(entry, result))
            continue;
        const auto number = entry.isFolder() ? playersNumber(*entry.name) : std::nullopt;
        if (number && owners.contains(*number))
            result.add(entry.path, "folder-duplicate",
                       QString("has the same number as %1: a player may show only one of them, or neither")
                           .arg(QString::fromUtf8(owners[*number])));
        else if (number)
            owners.insert(*number, entry.bytes);
        if (!listed.contains(*entry.name)) {
            checkOther(entry, result);
            continue;
        }
        ++result.folders;
        checkFolder(entry, result);
        checkFiles(entry.path, result);
    }
    return result;
}

// Report

void print(const Storage &storage, const Result &result)
{
    QByteArray lines;
    for (const Finding &finding : result.findings)
        lines += (printable(finding.path) + ": " + printable(finding.text) + "\n").toUtf8();
    printLines(lines);
    const QString found =
        result.findings.isEmpty() ? "no findings" : counted(result.findings.size(), "finding");
    printLine(
        QString("%1: %2 in %3 with %4")
            .arg(storage.name, found, counted(result.folders, "folder"), counted(result.files, "file")));
    printLine(QString("%1: numbers left for %2, up to %3/DCF_%4")
                  .arg(storage.name, counted(result.numbering.left(), "recording"),
                       printable(folderName(result.numbering.lastFolder)))
                  .arg(LAST_FILE));
}

QJsonObject toJson(const Storage &storage, const Result &result)
{
    QJsonArray findings;
    for (const Finding &finding : result.findings) {
        const auto path = decoded(finding.path);
        findings.append(QJsonObject{{"path", path ? *path : printable(finding.path)},
                                    {"kind", finding.kind},
                                    {"text", finding.text}});
    }
    return {
        {"storage", storage.name}, {"location", storage.location},
        {"findings", findings},    {"folders", result.folders},
        {"files", result.files},   {"recordingsLeft", result.numbering.left()},
    };
}

} // namespace

void addCheck(CommandLine &line)
{
    struct Request {
        eStorageType storage = STORAGE_MMC;
        bool isJson = false;
    };
    const auto request = std::make_shared<Request>();
    const auto run = [&line, request] {
        const Storage storage = line.storages().require(request->storage);
        const Result result = check(storage);
        if (request->isJson)
            printJson(QJsonDocument(toJson(storage, result)));
        else
            print(storage, result);
        return result.findings.isEmpty() ? DONE : FAILED;
    };
    CLI::App &command =
        line.add("check",
                 "Finds problems: names that a player (another device or program that reads the card) would\n"
                 "reject, files that the library skips or can no longer reach, and empty files. Changes\n"
                 "nothing. The exit code is 1 if there are findings",
                 run);
    addStorageArgument(command, request->storage);
    command.add_flag("--json", request->isJson, "Print an object with the findings");
}

// SPDX-License-Identifier: MIT
#include "checking.h"

#include "content.h"
#include "errors.h"
#include "ffmpeg.h"
#include "files.h"
#include "folders.h"
#include "media.h"
#include "objects.h"
#include "paths.h"
#include "report.h"
#include "temporary.h"
#include "text.h"

#include <QFile>
#include <QFileInfo>
#include <QMap>
#include <QRegularExpression>
#include <QSet>

#include <algorithm>
#include <cerrno>
#include <memory>
#include <optional>
#include <utility>

#include <fcntl.h>
#include <sys/stat.h>

using namespace VORN_FILE_HANDLER;

namespace {

/// The result, and what has to be checked.
struct Result : CheckResult {
    explicit Result(CheckOptions wanted) : options(std::move(wanted)) {}

    void add(const QByteArray &path, const QString &kind, const QString &text,
             Remedy remedy = Remedy::NotNeeded, const QString &recording = QString())
    {
        if (kind == "wrong-content" || (kind == "zero-filled" && remedy != Remedy::Close))
            unsuitable.insert(path);
        findings.append({path, kind, text, remedy, recording});
        if (options.report)
            options.report(findings.last());
    }

    /// Returns whether a thumbnail can be made from the photo or video, as far as is known.
    bool isSuitable(const QString &recording) const
    {
        return !recording.isEmpty() && !unsuitable.contains(QFile::encodeName(recording));
    }

    const CheckOptions options;
    QSet<QByteArray> unsuitable; // the paths of files without a usable picture
};

// Reading folders

/// A directory entry as it is on the storage device.
struct Entry {
    QByteArray path;
    QByteArray bytes;
    QString name; // null if the bytes are not valid UTF-8
    mode_t mode = 0;
    qint64 size = 0;
    int error = 0; // why the status cannot be read

    bool isHidden() const { return bytes.startsWith('.'); }
    bool isFolder() const { return S_ISDIR(mode); }
    bool isFile() const { return S_ISREG(mode); }
};

/// The entries of @p path, sorted by name; nullopt, with errno set, if they cannot be read.
std::optional<std::vector<Entry>> readEntries(const QByteArray &path)
{
    std::vector<Entry> entries;
    bool isPermitted = true;
    const bool isRead = forEachEntry(QFile::decodeName(path), [&](int folder, const dirent &found) {
        const QByteArray name = found.d_name;
        struct stat status = {};
        const int error = ::fstatat(folder, name.constData(), &status, AT_SYMLINK_NOFOLLOW) == 0 ? 0 : errno;
        isPermitted = isPermitted && error != EACCES;
        entries.push_back({path + "/" + name, name, decoded(name).value_or(QString()), status.st_mode,
                           status.st_size, error});
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

/// Returns whether the name can be examined further.
bool checkName(const Entry &entry, Result &result)
{
    if (entry.name.isNull()) {
        result.add(entry.path, "not-utf8", "the name is not valid UTF-8: the library never lists it");
        return false;
    }
    QString ascii; // other characters have no meaning in a shell
    std::copy_if(entry.name.begin(), entry.name.end(), std::back_inserter(ascii),
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
    const QString prefix = file.name.left(FILE_PREFIX.size());
    const auto number = playersFileNumber(file.name);
    if (prefix.compare(FILE_PREFIX, Qt::CaseInsensitive) != 0)
        result.add(file.path, "file-number", "does not begin with 'DCF_': the numbering ignores it");
    else if (number && *number == 0)
        result.add(file.path, "file-number", "has the number 0000: players accept 0001 to 9999");
    else if (number && prefix != FILE_PREFIX)
        result.add(
            file.path, "file-case",
            QString("begins with '%1' instead of 'DCF_': the numbering ignores it and assigns its number "
                    "again")
                .arg(prefix));
    else if (number)
        return;
    else if (const auto seen = fileNumber(file.name))
        result.add(file.path, "file-number",
                   QString("does not have exactly four digits between 'DCF_' and the extension: the "
                           "numbering reads it as number %1, "
                           "and players ignore it")
                       .arg(*seen));
    else
        result.add(file.path, "file-number",
                   "does not have four digits after 'DCF_': the numbering and players ignore it");
}

/// Reports a folder name that the camera standard (DCF) does not allow. Case is ignored, because short names
/// on FAT are in upper case.
void checkFolderByDcf(const Entry &folder, Result &result)
{
    static const QRegularExpression NAME("^[1-9][0-9]{2}[A-Z0-9_]{5}$");
    if (result.options.isDcf && !NAME.match(folder.name.toUpper()).hasMatch())
        result.add(folder.path, "dcf-folder",
                   "the name does not follow the camera standard (DCF), which requires a number from 100 to "
                   "999 and five characters A-Z 0-9 _");
}

void checkFileByDcf(const Entry &file, Result &result)
{
    static const QRegularExpression NAME("^[A-Z0-9_]{4}(?!0000)[0-9]{4}$");
    const QFileInfo name(file.name);
    const QString suffix = name.suffix().toUpper();
    if (!result.options.isDcf)
        return;
    if (!NAME.match(name.completeBaseName().toUpper()).hasMatch())
        result.add(file.path, "dcf-file",
                   "the name does not follow the camera standard (DCF), which requires four characters A-Z "
                   "0-9 _ and a number from 0001 to 9999");
    else if (suffix.size() > 3)
        result.add(file.path, "dcf-short-name",
                   QString("its short name on FAT, %1~1.%2, does not follow the camera standard (DCF)")
                       .arg(name.completeBaseName().toUpper().left(6), suffix.left(3)));
}

// Files

/// The files in a numbered folder.
struct Folder {
    std::vector<Entry> files;
    QSet<QString> pictures;            // the base names of photos and videos
    QMap<QString, QString> recordings; // by base name, the paths of those that are not empty
    bool hasThumbnails = false;
};

Folder folderOf(const std::vector<Entry> &files)
{
    Folder folder = {files, {}, {}, false};
    for (const Entry &file : files) {
        const MediaType *type = findType(file.name, Qt::CaseInsensitive);
        const QString base = QFileInfo(file.name).completeBaseName();
        folder.hasThumbnails |= type && type->kind == THUMBNAIL;
        if (!type || (type->kind != PHOTO && type->kind != VIDEO))
            continue;
        folder.pictures.insert(base);
        if (file.size > 0 && !folder.recordings.contains(base))
            folder.recordings.insert(base, QFile::decodeName(file.path));
    }
    return folder;
}

/// Reads the whole file and decodes it. Returns what is wrong; nullopt if nothing is wrong.
std::optional<Damage> damageInDepth(const QString &path)
{
    if (const auto error = readingErrorOf(path))
        return error;
    const QString reason = decodingErrorOf(path);
    return reason.isEmpty() ? std::nullopt
                            : std::optional(Damage{"not-decodable", "cannot be decoded: " + reason});
}

void checkContent(const Entry &file, const MediaType &type, const QString &recording, Result &result)
{
    const QString path = QFile::decodeName(file.path);
    std::optional<Damage> damage = damageOf(path, type);
    if (!damage && result.options.isReadingAll)
        damage = damageInDepth(path);
    if (!damage || isBeingWritten(path))
        return;
    const Remedy ofThumbnail = result.isSuitable(recording) ? Remedy::MakeThumbnail : Remedy::None;
    const Remedy ofRecording = damage->isClosable ? Remedy::Close : Remedy::None;
    result.add(file.path, damage->kind, damage->text, type.kind == THUMBNAIL ? ofThumbnail : ofRecording,
               recording);
}

void checkFile(const Entry &file, const Folder &folder, Result &result)
{
    const MediaType *type = findType(file.name, Qt::CaseInsensitive);
    if (!type) {
        result.add(
            file.path, "file-type",
            QString("has none of the extensions %1: the media lists, the count and the numbering ignore "
                    "it")
                .arg(extensions().join(", ")));
        return;
    }
    const QString base = QFileInfo(file.name).completeBaseName();
    const bool isThumbnail = type->kind == THUMBNAIL;
    const QString recording = isThumbnail ? folder.recordings.value(base) : QString();
    const bool isAlone = isThumbnail && !folder.pictures.contains(base); // reported by checkGroups()
    if (file.size == 0 && !(result.options.hasContents && isBeingWritten(QFile::decodeName(file.path))))
        result.add(file.path, "empty-file", "is empty: it was never written, or its content was lost",
                   result.isSuitable(recording) ? Remedy::MakeThumbnail : Remedy::Delete, recording);
    else if (file.size > 0 && result.options.hasContents && !isAlone)
        checkContent(file, *type, recording, result);
    const QString extension = QFileInfo(file.name).suffix();
    if (extension != type->extension)
        result.add(file.path, "file-case",
                   QString("ends in '.%1' instead of '.%2': the library lists it as a file of unknown type")
                       .arg(extension, type->extension));
    if (!isThumbnail)
        checkFileNumber(file, result);
    checkFileByDcf(file, result);
}

/// Reports media files that share a number, and thumbnails without a photo or video.
void checkGroups(const Folder &folder, Result &result)
{
    QMap<int, QByteArray> owners;
    QList<const Entry *> thumbnails;
    for (const Entry &file : folder.files) {
        const MediaType *type = findType(file.name, Qt::CaseInsensitive);
        if (!type)
            continue;
        if (type->kind == THUMBNAIL) {
            thumbnails.append(&file);
            continue;
        }
        const auto number = playersFileNumber(file.name);
        if (number && owners.contains(*number))
            result.add(file.path, "file-duplicate",
                       QString("has the same number as %1: a player may show only one of them, or neither")
                           .arg(QString::fromUtf8(owners[*number])));
        else if (number)
            owners.insert(*number, file.bytes);
    }
    for (const Entry *file : thumbnails) {
        if (!folder.pictures.contains(QFileInfo(file->name).completeBaseName()))
            result.add(file->path, "thumb-alone", "the photo or video of this thumbnail is missing",
                       Remedy::Delete);
    }
}

/// Reports photos and videos that have no thumbnail although others in the folder have one.
void checkThumbnails(const Folder &folder, Result &result)
{
    QSet<QString> missing = QSet<QString>(folder.recordings.keyBegin(), folder.recordings.keyEnd());
    for (const Entry &file : folder.files) {
        if (kindOf(file.name.toLower()) == THUMBNAIL)
            missing.remove(QFileInfo(file.name).completeBaseName());
    }
    for (auto recording = folder.recordings.begin(); recording != folder.recordings.end(); ++recording) {
        const QString &path = recording.value();
        if (folder.hasThumbnails && missing.contains(recording.key()) && result.isSuitable(path)
            && !isBeingWritten(path))
            result.add(QFile::encodeName(path), "thumb-missing",
                       "has no thumbnail, unlike others in this folder", Remedy::MakeThumbnail, path);
    }
}

/// Reports hidden media files. Other hidden files are ignored.
void checkHidden(const Entry &entry, Result &result)
{
    if (entry.isFile() && !entry.name.isNull() && findType(entry.name, Qt::CaseInsensitive))
        result.add(entry.path, "hidden-file", "the name begins with '.': the library never lists it");
}

/// Returns whether the status of the entry could be read.
bool checkReadable(const Entry &entry, Result &result)
{
    if (entry.error != 0)
        result.add(entry.path, "unreadable", "cannot be read: " + errorText(entry.error), Remedy::None);
    return entry.error == 0;
}

/// Reports what interrupted commands have left behind in @p folder.
void checkLeftovers(const QByteArray &folder, Result &result)
{
    const Leftovers leftovers = leftoversIn(QFile::decodeName(folder));
    for (const QString &path : leftovers.missing)
        result.add(QFile::encodeName(path), "interrupted-replacement",
                   "an interrupted command was replacing it; the next command that writes to this folder "
                   "restores it",
                   Remedy::Restore);
    const QString remedy = leftovers.mayShareContent
                               ? MAY_SHARE_CONTENT
                               : "the next command that writes to this folder removes it";
    for (const QString &path : leftovers.paths)
        result.add(QFile::encodeName(path), "leftover", "was left by an interrupted command; " + remedy,
                   leftovers.mayShareContent ? Remedy::None : Remedy::Delete);
}

/// Reports the entry unless it is a file, as everything in a numbered folder should be. Returns whether it is
/// a file.
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
        result.add(folder, "unreadable", "cannot be read: " + errorText(errno), Remedy::None);
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
    const Folder content = folderOf(files);
    for (const Entry &file : files)
        checkFile(file, content, result);
    checkGroups(content, result);
    if (result.options.hasContents)
        checkThumbnails(content, result);
}

/// Checks the files of one object without reading the rest of its folder.
void checkObject(const NumberedFolder &folder, const Object &object, Result &result)
{
    const QByteArray path = QFile::encodeName(folder.path);
    std::vector<Entry> files;
    for (const ObjectFile &file : object.files)
        files.push_back({path + "/" + file.name, file.name, decoded(file.name).value_or(QString()), file.mode,
                         file.size, file.error});
    const Folder content = folderOf(files);
    for (const Entry &file : files) {
        if (checkReadable(file, result))
            checkFile(file, content, result);
    }
}

// Folders

/// Checks the name of a folder that the library lists as numbered.
void checkFolderName(const Entry &folder, Result &result)
{
    const QString suffix = VornFileHandler::mFolderSuffix;
    const auto number = folderNumber(folder.name);
    const int current = result.numbering.folder;
    if (!number && folderNumber(folder.name, Qt::CaseInsensitive))
        result.add(folder.path, "folder-case",
                   QString("its suffix differs from '%1' in case: the numbering ignores it").arg(suffix));
    else if (!number)
        result.add(folder.path, "folder-number", "has no number before the suffix: the numbering ignores it");
    else if (!isNumberedName(folder.name))
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
    const bool isNamedAsFolder = entry.name.endsWith(suffix) && folderNumber(entry.name);
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

} // namespace

QString Finding::file() const
{
    const auto name = decoded(path);
    return name ? *name : printable(path);
}

QJsonObject Finding::toJson() const
{
    QJsonObject object = identityOf(fileAt(file()));
    object["kind"] = kind;
    object["text"] = text;
    object["repairable"] = isRepairable();
    return object;
}

CheckResult checkStorage(const Storage &storage, const CheckOptions &options)
{
    requireReadableFolder(storage.location);
    const auto entries = readEntries(QFile::encodeName(storage.location));
    if (!entries)
        throw Failure(QString("%1: %2").arg(storage.location, errorText(errno)));
    Result result(options);
    result.numbering = numberingOf(storage);
    checkNumbering(result);
    for (const QString &folder : {QFileInfo(storage.location).path(), storage.location})
        checkLeftovers(QFile::encodeName(folder), result);
    const QStringList listed = numberedFolders(storage);
    QMap<int, QByteArray> owners;
    for (const Entry &entry : *entries) {
        if (entry.isHidden() || !checkName(entry, result) || !checkReadable(entry, result))
            continue;
        const auto number = entry.isFolder() ? playersFolderNumber(entry.name) : std::nullopt;
        if (number && owners.contains(*number))
            result.add(entry.path, "folder-duplicate",
                       QString("has the same number as %1: a player may show only one of them, or neither")
                           .arg(QString::fromUtf8(owners[*number])));
        else if (number)
            owners.insert(*number, entry.bytes);
        if (!listed.contains(entry.name)) {
            checkOther(entry, result);
            continue;
        }
        ++result.folders;
        checkFolderName(entry, result);
        checkFolderByDcf(entry, result);
        checkFiles(entry.path, result);
    }
    return result;
}

CheckResult checkFolder(const QString &path, const CheckOptions &options)
{
    Result result(options);
    checkFiles(QFile::encodeName(path), result);
    return result;
}

QList<Finding> quickFindings(const Storage &storage, const std::vector<NumberedFolder> &folders)
{
    Result result{CheckOptions()};
    QStringList places = {QFileInfo(storage.location).path(), storage.location};
    for (const QString &name : numberedFolders(storage))
        places.append(storage.location + "/" + name);
    for (const QString &folder : places)
        checkLeftovers(QFile::encodeName(folder), result);
    const auto last = std::find_if(folders.rbegin(), folders.rend(),
                                   [](const NumberedFolder &folder) { return !folder.objects.empty(); });
    if (last != folders.rend())
        checkObject(*last, last->objects.back(), result);
    const auto isOther = [](const Finding &finding) { return !finding.isRepairable(); };
    result.findings.erase(std::remove_if(result.findings.begin(), result.findings.end(), isOther),
                          result.findings.end());
    return result.findings;
}

// SPDX-License-Identifier: MIT
#include "device.h"
#include "filecheck.h"
#include "names.h"
#include "table.h"
#include "vornfh.h"

#include <QFile>
#include <QJsonArray>
#include <QJsonObject>
#include <QMap>
#include <QRegularExpression>
#include <QSet>
#include <QTextCodec>

#include <algorithm>
#include <cerrno>
#include <memory>
#include <optional>

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>

using namespace VORN_FILE_HANDLER;

namespace {

/// Something that a player would reject, or that the library passes over or never reaches again.
struct Finding {
    QByteArray path;
    QString kind;
    QString text;
};

struct Result {
    QString location;
    QList<Finding> findings;
    int folders = 0;
    int files = 0;
    qint64 recordingsLeft = 0;
    QString lastFolder; // in which the numbers end

    void add(const QByteArray &path, const QString &kind, const QString &text)
    {
        findings.append({path, kind, text});
    }
};

// Reading folders

/// A name as it stands on the storage. The library and Qt never list one that is not valid UTF-8.
struct Entry {
    QByteArray path;
    QByteArray bytes;
    std::optional<QString> name; // none if the bytes are not valid UTF-8
    mode_t mode = 0;             // 0 if the entry cannot be looked at
    qint64 size = 0;

    bool isHidden() const { return bytes.startsWith('.'); }
    bool isFolder() const { return S_ISDIR(mode); }
    bool isFile() const { return S_ISREG(mode); }
};

std::optional<QString> decoded(const QByteArray &bytes)
{
    QTextCodec::ConverterState state(QTextCodec::IgnoreHeader);
    const QString text =
        QTextCodec::codecForName("UTF-8")->toUnicode(bytes.constData(), bytes.size(), &state);
    return state.invalidChars == 0 && state.remainingChars == 0 ? std::optional(text) : std::nullopt;
}

/// What lies in @p path, in the order of the names; nothing with errno set.
std::optional<std::vector<Entry>> readEntries(const QByteArray &path)
{
    const std::unique_ptr<DIR, int (*)(DIR *)> stream(::opendir(path.constData()), ::closedir);
    if (!stream)
        return std::nullopt;
    std::vector<Entry> entries;
    while (const dirent *found = ::readdir(stream.get())) {
        const QByteArray name = found->d_name;
        if (name == "." || name == "..")
            continue;
        struct stat status = {};
        if (::fstatat(::dirfd(stream.get()), name.constData(), &status, AT_SYMLINK_NOFOLLOW) != 0
            && errno == EACCES)
            return std::nullopt;
        entries.push_back({path + "/" + name, name, decoded(name), status.st_mode, status.st_size});
    }
    std::sort(entries.begin(), entries.end(),
              [](const Entry &one, const Entry &other) { return one.bytes < other.bytes; });
    return entries;
}

// Names

std::optional<int> toNumber(const QString &text)
{
    bool ok = false;
    const int number = text.toInt(&ok);
    return ok ? std::optional(number) : std::nullopt;
}

/// The number that a player takes two folders' names for.
std::optional<int> playersNumber(const QString &folder)
{
    static const QRegularExpression DIGITS("^([0-9]{3})(?![0-9])");
    if (const auto number =
            toNumber(QString(folder).remove(VornFileHandler::mFolderSuffix, Qt::CaseInsensitive)))
        return number;
    return toNumber(DIGITS.match(folder).captured(1));
}

/// Whether the name may be used. Characters outside ASCII are nothing to a shell.
bool checkName(const Entry &entry, Result &result)
{
    if (!entry.name) {
        result.add(entry.path, "not-utf8", "the name is not valid UTF-8: the library never lists it");
        return false;
    }
    QString ascii;
    std::copy_if(entry.name->begin(), entry.name->end(), std::back_inserter(ascii),
                 [](QChar c) { return c.unicode() < 0x80; });
    const int place = unsafeCharacter(ascii);
    if (place >= 0)
        result.add(entry.path, "shell-name",
                   QString("the name holds '%1', at which a shell takes it apart: the library hands names of "
                           "videos to one")
                       .arg(ascii[place]));
    return true;
}

// Files

const QStringList &extensions()
{
    static const QStringList EXTENSIONS = {JPEG_FILE_EXT, PNG_FILE_EXT, AVI_FILE_EXT,
                                           MKV_FILE_EXT,  WAV_FILE_EXT, THUMB_FILE_EXT};
    return EXTENSIONS;
}

/// The extension that makes a file one of the library's, in small letters; empty if it has none of them.
QString typeOf(const QString &name)
{
    const QString extension = QFileInfo(name).suffix().toLower();
    return extensions().contains(extension) ? extension : QString();
}

/// The number of a medium whose name is four characters, four digits and the extension.
std::optional<int> objectNumber(const QString &name)
{
    static const QRegularExpression NAME(QRegularExpression::anchoredPattern(".{4}([0-9]{4})\\.[^.]*"));
    const auto match = NAME.match(name);
    return match.hasMatch() ? toNumber(match.captured(1)) : std::nullopt;
}

void checkNumber(const Entry &file, Result &result)
{
    const QString prefix = file.name->left(4);
    const auto number = objectNumber(*file.name);
    if (prefix.compare("DCF_", Qt::CaseInsensitive) != 0)
        result.add(file.path, "file-number", "does not begin with 'DCF_': the numbering passes it over");
    else if (number && *number == 0)
        result.add(file.path, "file-number", "the number is 0000: a player takes 0001 to 9999");
    else if (number && prefix != "DCF_")
        result.add(file.path, "file-case",
                   QString("begins with '%1' instead of 'DCF_': the numbering passes it over and names its "
                           "number again")
                       .arg(prefix));
    else if (number)
        return;
    else if (const auto seen = toNumber(file.name->left(8).remove("DCF_")))
        result.add(file.path, "file-number",
                   QString("has not four digits between 'DCF_' and the extension: the numbering takes it for "
                           "number %1, a player passes it over")
                       .arg(*seen));
    else
        result.add(file.path, "file-number",
                   "has no number behind 'DCF_': numbering and players pass it over");
}

void checkFile(const Entry &file, Result &result)
{
    const QString extension = QFileInfo(*file.name).suffix();
    const QString type = typeOf(*file.name);
    if (type.isEmpty()) {
        result.add(file.path, "file-type",
                   QString("has none of the extensions %1: the media lists, the count and the numbering pass "
                           "it over")
                       .arg(extensions().join(", ")));
        return;
    }
    if (file.size == 0)
        result.add(file.path, "empty-file", "is empty: a recording that was never written, or was lost");
    if (extension != type)
        result.add(file.path, "file-case",
                   QString("ends in '.%1' instead of '.%2': the library lists it, but as of no known type")
                       .arg(extension, type));
    if (type != THUMB_FILE_EXT)
        checkNumber(file, result);
}

/// Several media with one number, and thumbnails of nothing.
void checkCompany(const std::vector<Entry> &files, Result &result)
{
    QMap<int, QByteArray> owners;
    QSet<QString> pictures;
    for (const Entry &file : files) {
        const QString type = typeOf(*file.name);
        if (type.isEmpty() || type == THUMB_FILE_EXT)
            continue;
        if (type != WAV_FILE_EXT)
            pictures.insert(QFileInfo(*file.name).completeBaseName());
        const auto number = objectNumber(*file.name);
        if (number && owners.contains(*number))
            result.add(file.path, "file-duplicate",
                       QString("has the number of %1: a player shows only one of them, or none")
                           .arg(QString::fromUtf8(owners[*number])));
        else if (number)
            owners.insert(*number, file.bytes);
    }
    for (const Entry &file : files) {
        if (typeOf(*file.name) == THUMB_FILE_EXT
            && !pictures.contains(QFileInfo(*file.name).completeBaseName()))
            result.add(file.path, "thumb-alone", "the thumbnail's photo or video is missing");
    }
}

/// Hidden media. Other hidden files are none of the storage's.
void checkHidden(const Entry &entry, Result &result)
{
    if (entry.isFile() && entry.name && !typeOf(*entry.name).isEmpty())
        result.add(entry.path, "hidden-file", "the name begins with '.': the library never lists it");
}

/// Whether it is a file, as all that lies in a numbered folder should be.
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
        else if (checkName(entry, result) && checkKind(entry, result))
            files.push_back(entry);
    }
    result.files += static_cast<int>(files.size());
    for (const Entry &file : files)
        checkFile(file, result);
    checkCompany(files, result);
}

// Folders

/// A folder that the library lists. @p current is where recordings go.
void checkFolder(const Entry &folder, int current, Result &result)
{
    const QString suffix = VornFileHandler::mFolderSuffix;
    const auto number = toNumber(QString(*folder.name).remove(suffix));
    const auto looseNumber = toNumber(QString(*folder.name).remove(suffix, Qt::CaseInsensitive));
    if (!number && looseNumber)
        result.add(folder.path, "folder-case",
                   QString("does not end in '%1' with these capital and small letters: the numbering passes "
                           "it over")
                       .arg(suffix));
    else if (!number)
        result.add(folder.path, "folder-number",
                   "has no number in front of the suffix: numbering and players pass it over");
    else if (const QString path = QString::number(*number) + suffix; path != *folder.name)
        result.add(
            folder.path, "folder-number",
            QString("the numbering takes it for folder %1 and looks for files in %2").arg(*number).arg(path));
    else if (*number > LAST_FOLDER && *number != current)
        result.add(folder.path, "folder-unreachable",
                   QString("comes before %1%2 in the order of names: the numbering never gets to it, and "
                           "players pass it over")
                       .arg(current)
                       .arg(suffix));
    else if (*number < FIRST_FOLDER || *number > LAST_FOLDER)
        result.add(folder.path, "folder-digits",
                   "the number has not three digits from 100 to 999: players pass it over");
}

/// What is no folder but stands where the numbering wants one, or beside the folders. With an empty suffix
/// the library takes the location itself for a numbered folder.
void checkOther(const Entry &entry, Result &result)
{
    const QString suffix = VornFileHandler::mFolderSuffix;
    const bool isNamedLikeOne =
        entry.name->endsWith(suffix) && toNumber(QString(*entry.name).remove(suffix)).has_value();
    if (entry.isFolder())
        return;
    if (isNamedLikeOne)
        result.add(entry.path, "not-a-folder",
                   "is named like a numbered folder but is none: the numbering cannot use it");
    else if (!suffix.isEmpty())
        result.add(entry.path, "loose-file",
                   "lies beside the folders: the library lists only what lies in one");
}

/// Where recordings go and how many there can be. Unless folders are listed, the library would create one.
int checkCurrent(eStorageType storage, bool isListed, Result &result)
{
    const int current = isListed ? VornFileHandler::getLastDirectoryNum(storage) : FIRST_FOLDER;
    const QString path = VornFileHandler::getDirPath(storage, current);
    const bool exists = QFileInfo(path).isDir();
    if (isListed && !exists)
        result.add(
            QFile::encodeName(path), "no-current-folder",
            "recordings belong here, but the folder does not exist and the library does not create it");
    const int last = exists ? VornFileHandler::getLastFileNum(storage, current) : 0;
    // Only a number of as many digits comes behind another in the order of names.
    qint64 lastFolder = LAST_FOLDER;
    if (current < FIRST_FOLDER || current > LAST_FOLDER)
        for (lastFolder = current < 0 ? current : 9; lastFolder < current;)
            lastFolder = lastFolder * 10 + 9;
    result.lastFolder = QString::number(lastFolder) + VornFileHandler::mFolderSuffix;
    result.recordingsLeft = LAST_FILE - last + (lastFolder - current) * LAST_FILE;
    if (result.recordingsLeft == 0)
        result.add(QFile::encodeName(path), "numbers-used-up",
                   "no number is left: the library names DCF_0001 in this folder for ever");
    return current;
}

Result check(eStorageType storage)
{
    Result result;
    result.location = locationOf(storage);
    const auto entries = readEntries(QFile::encodeName(result.location));
    if (!entries)
        throw Failure(QString("%1: %2").arg(result.location, errorText(errno)));
    const QStringList listed = listedFolders(storage);
    // With an empty suffix the location itself is listed, so that the library creates no folder.
    const bool isListed = !listed.isEmpty() || VornFileHandler::mFolderSuffix.isEmpty();
    const int current = checkCurrent(storage, isListed, result);
    QMap<int, QByteArray> owners;
    for (const Entry &entry : *entries) {
        if (entry.isHidden() || !checkName(entry, result))
            continue;
        const auto number = entry.isFolder() ? playersNumber(*entry.name) : std::nullopt;
        if (number && owners.contains(*number))
            result.add(entry.path, "folder-duplicate",
                       QString("has the number of %1: a player shows only one of them, or none")
                           .arg(QString::fromUtf8(owners[*number])));
        else if (number)
            owners.insert(*number, entry.bytes);
        if (!listed.contains(*entry.name)) {
            checkOther(entry, result);
            continue;
        }
        ++result.folders;
        checkFolder(entry, current, result);
        checkFiles(entry.path, result);
    }
    return result;
}

// Output

QString counted(qint64 count, const QString &what)
{
    return QString("%1 %2%3").arg(count).arg(what, count == 1 ? "" : "s");
}

void print(eStorageType storage, const Result &result)
{
    for (const Finding &finding : result.findings)
        printLine(printable(finding.path) + ": " + printable(finding.text));
    const QString found =
        result.findings.isEmpty() ? "no findings" : counted(result.findings.size(), "finding");
    printLine(QString("%1: %2 in %3 with %4")
                  .arg(storageName(storage), found, counted(result.folders, "folder"),
                       counted(result.files, "file")));
    printLine(QString("%1: %2 until %3/DCF_%4")
                  .arg(storageName(storage), counted(result.recordingsLeft, "recording"),
                       printable(result.lastFolder))
                  .arg(LAST_FILE));
}

void printJson(eStorageType storage, const Result &result)
{
    QJsonArray findings;
    for (const Finding &finding : result.findings) {
        const auto path = decoded(finding.path);
        findings.append(QJsonObject{{"path", path ? *path : printable(finding.path)},
                                    {"kind", finding.kind},
                                    {"text", finding.text}});
    }
    const QJsonObject object = {
        {"storage", storageName(storage)},
        {"location", result.location},
        {"findings", findings},
        {"folders", result.folders},
        {"files", result.files},
        {"recordingsLeft", result.recordingsLeft},
    };
    printJson(QJsonDocument(object));
}

} // namespace

QStringList listedFolders(eStorageType storage)
{
    const QString pattern = "*" + VornFileHandler::mFolderSuffix;
    if (!QRegularExpression(QRegularExpression::wildcardToRegularExpression(pattern)).isValid())
        return {};
    return VornFileHandler::getStorageDir(storage).entryList({pattern}, QDir::Dirs | QDir::NoSymLinks
                                                                            | QDir::NoDotAndDotDot);
}

void addCheckCommand(CLI::App &app, StorageOptions &storages, ExitCode &exitCode)
{
    struct Arguments {
        eStorageType storage = STORAGE_MMC;
        bool isJson = false;
    };
    const auto arguments = std::make_shared<Arguments>();
    CLI::App *command = app.add_subcommand(
        "check",
        "Looks for names on a storage that a player would reject, or that the library passes over or\n"
        "never reaches again, and for empty files. Changes nothing. Exit code 1 if there are any");
    addStorageArgument(*command, arguments->storage);
    command->add_flag("--json", arguments->isJson, "Print an object with the findings");
    command->callback([arguments, &storages, &exitCode] {
        storages.require(arguments->storage);
        const Result result = check(arguments->storage);
        arguments->isJson ? printJson(arguments->storage, result) : print(arguments->storage, result);
        exitCode = result.findings.isEmpty() ? 0 : 1;
    });
}

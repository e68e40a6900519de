// SPDX-License-Identifier: MIT
//
// The sections of this file are in the order of the header: constants and configuration, paths and names,
// folder numbering, file numbering, listings, media lists, JSON, devices and capacity, transfer, metadata.
// "Reading directories" serves the four sections after it and has no public members. A section consists of
// its constants or table, pure helpers and thin I/O, all in one unnamed namespace, and then the public
// members.
//
// Numbering, getMediaFileCount(), JSON lists and listings sorted oldest first use readdir(). QDir is used
// instead if a name filter is anything but head*tail in plain ASCII, if a name is not plain ASCII and names
// are not encoded in UTF-8, if the path may be a Qt resource or search path, if the file system does not
// report the types of its entries, and for sorting by time if a file has no time. Everything else uses QDir.

// Without this, readdir() on a 32-bit system stops at the first entry with a large inode number.
#define _FILE_OFFSET_BITS 64 // NOLINT(bugprone-reserved-identifier): the C library defines the name

#include "vornfilehandler.h"

#include <QFile>
#include <QImageReader>
#include <QJsonObject>
#include <QMetaMethod>
#include <QMutex>
#include <QProcess>
#include <QRegularExpression>
#include <QTextCodec>

#include <exiv2/exiv2.hpp>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <iostream>
#include <iterator>
#include <memory>
#include <optional>
#include <vector>

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

using namespace VORN_FILE_HANDLER;

// Constants and configuration
//
// Everything here is constructed in the order of this file when the library is loaded.

const QString VORN_FILE_HANDLER::JPEG_FILE_EXT = QStringLiteral("jpg");
const QString VORN_FILE_HANDLER::PNG_FILE_EXT = QStringLiteral("png");
const QString VORN_FILE_HANDLER::THUMB_FILE_EXT = QStringLiteral("thumb");
const QString VORN_FILE_HANDLER::AVI_FILE_EXT = QStringLiteral("avi");
const QString VORN_FILE_HANDLER::MKV_FILE_EXT = QStringLiteral("mkv");
const QString VORN_FILE_HANDLER::WAV_FILE_EXT = QStringLiteral("wav");

constexpr char FALLBACK_LOCATION[] = "/tmp";

QString VornFileHandler::mFolderSuffix;
QDir VornFileHandler::mMMCLocation(FALLBACK_LOCATION);
QDir VornFileHandler::mSDLocation(FALLBACK_LOCATION);
QDir VornFileHandler::mUSBLocation(FALLBACK_LOCATION);
QString VornFileHandler::mMmcBlk;
QString VornFileHandler::mSdBlk;
QString VornFileHandler::mUsbBlk;
bool VornFileHandler::mbIsLibInitialized = false;

namespace {

const QString DCF_FILE_PREFIX = QStringLiteral("DCF_");
const QString JPEG_FILE_EXT_FILTER = "*." + JPEG_FILE_EXT;
const QString PNG_FILE_EXT_FILTER = "*." + PNG_FILE_EXT;
const QString AVI_FILE_EXT_FILTER = "*." + AVI_FILE_EXT;
const QString MKV_FILE_EXT_FILTER = "*." + MKV_FILE_EXT;
const QString THUMB_FILE_EXT_FILTER = "*." + THUMB_FILE_EXT;
const QString WAV_FILE_EXT_FILTER = "*." + WAV_FILE_EXT;

/// The media files that are counted and numbered. A thumbnail belongs to its photo or video.
const QStringList MEDIA_FILTERS = {JPEG_FILE_EXT_FILTER, PNG_FILE_EXT_FILTER, AVI_FILE_EXT_FILTER,
                                   MKV_FILE_EXT_FILTER, WAV_FILE_EXT_FILTER};

constexpr char VERSION_TEXT[] = "25.02.25";
constexpr char RED[] = "\x1b[31m";
constexpr char CYAN[] = "\x1b[36m";
constexpr char RESET[] = "\x1b[0m";

constexpr int FIRST_FOLDER = 100;
constexpr int LAST_FILE = 9999;

/// Prints a diagnostic line. Nothing else does.
void diagnose(const QByteArray &text)
{
    std::fprintf(stderr, "%s %s %s\n", CYAN, text.constData(), RESET);
}

/// Returns whether Qt accepts @p path. Qt prints a warning for a path that it does not accept, so every path
/// from the host is checked here first.
bool isUsablePath(const QString &path)
{
    return !path.isEmpty() && !path.contains(QChar::Null);
}

bool pathExists(const QString &path)
{
    return isUsablePath(path) && QFile::exists(path);
}

/// @p file; if Qt would warn about its path on every query, an empty QFileInfo instead.
QFileInfo withUsablePath(const QFileInfo &file)
{
    return isUsablePath(file.filePath()) ? file : QFileInfo();
}

QString absolutePath(const QFileInfo &file)
{
    return isUsablePath(file.filePath()) ? file.absoluteFilePath() : file.filePath();
}

bool exists(const QDir &directory)
{
    return isUsablePath(directory.path()) && directory.exists();
}

QString absolutePath(const QDir &directory)
{
    return isUsablePath(directory.path()) ? directory.absolutePath() : directory.path();
}

/// The path as a diagnostic line shows it: up to its first null character, if it has one.
QByteArray pathText(const QDir &directory)
{
    const int end = directory.path().indexOf(QChar::Null);
    const QDir shown = end < 0 ? directory : QDir(directory.path().left(end));
    return shown.absolutePath().toUtf8();
}

bool existsOrDiagnose(const QDir &directory)
{
    if (exists(directory))
        return true;
    diagnose("directory " + pathText(directory) + " doesn't exist");
    return false;
}

/// The location of @p type; null for an unsupported storage type.
const QDir *findLocation(eStorageType type)
{
    switch (type) {
    case STORAGE_MMC: return &VornFileHandler::mMMCLocation;
    case STORAGE_SD: return &VornFileHandler::mSDLocation;
    case STORAGE_USB: return &VornFileHandler::mUSBLocation;
    }
    return nullptr;
}

/// Prints the diagnostic for an unsupported storage type and returns an empty string.
QString unsupportedStorage()
{
    diagnose("Unsupported storage type");
    return QString();
}

} // namespace

void VornFileHandler::init(QString folderSuffix, QString mmcLocation, QString mmcBlk, QString sdLocation,
                           QString sdBlk, QString usbLocation, QString usbBlk)
{
    std::fprintf(stderr,
                 "%s-----------------------------------\n"
                 "----- VORN_FILE_HANDLER v%s -------\n"
                 "-----------------------------------%s\n",
                 RED, VERSION_TEXT, RESET);
    mFolderSuffix = folderSuffix;
    mMMCLocation = QDir(mmcLocation);
    mSDLocation = QDir(sdLocation);
    mUSBLocation = QDir(usbLocation);
    mMmcBlk = mmcBlk;
    mSdBlk = sdBlk;
    mUsbBlk = usbBlk;
    mbIsLibInitialized = true;
}

QString VornFileHandler::typeToMmcBlk(eStorageType type)
{
    switch (type) {
    case STORAGE_MMC: return mMmcBlk;
    case STORAGE_SD: return mSdBlk;
    case STORAGE_USB: return mUsbBlk;
    }
    return unsupportedStorage();
}

QString VornFileHandler::typeToMountPath(eStorageType type)
{
    return findLocation(type) ? absolutePath(getStorageDir(type)).remove("DCIM") : unsupportedStorage();
}

QDir VornFileHandler::getStorageDir(eStorageType type)
{
    const QDir *location = findLocation(type);
    if (!location)
        return QDir(FALLBACK_LOCATION);
    // Copies of a QDir share its lazily computed data without a lock. Setting the path detaches this copy
    // from the configuration, so that operations on several threads never share that data.
    QDir copy = *location;
    // setPath() removes one trailing slash; one is added so that a path with a trailing slash keeps it.
    const QString path = location->path();
    copy.setPath(path.size() > 1 && path.endsWith('/') ? path + '/' : path);
    return copy;
}

// Paths and names

namespace {

/// @p path with everything but its last component resolved; empty if the parent does not exist. A link in
/// the last component is not followed. If the last component is "." or "..", the whole path is resolved.
QString withResolvedParent(QString path)
{
    while (path.endsWith('/') || path.endsWith("/."))
        path.chop(1);
    const QString name = path.section('/', -1);
    if (name == "." || name == "..")
        return QFileInfo(path).canonicalFilePath();
    const QString parent = QFileInfo(path.left(path.size() - name.size())).canonicalFilePath();
    return parent.isEmpty() ? QString() : parent + "/" + name;
}

/// Returns whether the current directory has been deleted. Qt prints a warning if it then needs an absolute
/// path.
bool isCurrentDirectoryGone()
{
    const std::unique_ptr<char, void (*)(void *)> path(::getcwd(nullptr, 0), std::free);
    return !path;
}

} // namespace

QString VornFileHandler::getDirPath(eStorageType storage, int folderNumber)
{
    return QString("%1/%2%3").arg(absolutePath(getStorageDir(storage))).arg(folderNumber).arg(mFolderSuffix);
}

QString VornFileHandler::getFilePath(eStorageType storage, int folderNumber, int fileNumber,
                                     QString extension)
{
    return QString("%1/%2%3.%4")
        .arg(getDirPath(storage, folderNumber))
        .arg(DCF_FILE_PREFIX)
        .arg(fileNumber, 4, 10, QChar('0'))
        .arg(extension);
}

QString VornFileHandler::getDirPath(eStorageType storage, QString folderName)
{
    return QString("%1/%2").arg(absolutePath(getStorageDir(storage))).arg(folderName);
}

QString VornFileHandler::getFileExtension(eFileTypes fileType)
{
    switch (fileType) {
    case FILE_TYPE_IMAGE:
    case FILE_TYPE_IMAGE_JPEG: return JPEG_FILE_EXT;
    case FILE_TYPE_IMAGE_PNG: return PNG_FILE_EXT;
    case FILE_TYPE_THUMB: return THUMB_FILE_EXT;
    case FILE_TYPE_VIDEO:
    case FILE_TYPE_VIDEO_AVI: return AVI_FILE_EXT;
    case FILE_TYPE_VIDEO_MKV: return MKV_FILE_EXT;
    case FILE_TYPE_AUDIO: return AVI_FILE_EXT; // hosts record audio into an AVI container
    case FILE_TYPE_AUDIO_WAV: return WAV_FILE_EXT;
    case FILE_TYPE_DIRECTORY:
    case FILE_TYPE_UNKNOWN: break;
    }
    return QString();
}

void VornFileHandler::createFolder(QString path)
{
    if (isUsablePath(path))
        QDir().mkpath(path);
}

void VornFileHandler::createDCIMFolder(QString path)
{
    createFolder(path);
}

void VornFileHandler::deleteFolder(QString path)
{
    QDir directory(path); // an empty path becomes ".", the current directory
    if (!isUsablePath(directory.path()) || (directory.isRelative() && isCurrentDirectoryGone()))
        return;
    // A path through ".." stops resolving once the folder before the ".." is deleted.
    if (path.split('/').contains(".."))
        directory.setPath(withResolvedParent(path));
    if (exists(directory))
        directory.removeRecursively();
}

void VornFileHandler::deleteDCIMFolder(QString path)
{
    deleteFolder(path);
}

void VornFileHandler::createDCIMFolder(eStorageType storage, int folderNumber)
{
    createDCIMFolder(getDirPath(storage, folderNumber));
}

void VornFileHandler::deleteDCIMFolder(eStorageType storage, int folderNumber)
{
    deleteDCIMFolder(getDirPath(storage, folderNumber));
}

void VornFileHandler::createFolder(eStorageType storage, QString folderName)
{
    createFolder(getDirPath(storage, folderName));
}

void VornFileHandler::deleteFolder(eStorageType storage, QString folderName)
{
    deleteFolder(getDirPath(storage, folderName));
}

QString VornFileHandler::getDosBaseName(QString path)
{
    // The last "/", if there is one, is kept and counts as one of the eight characters.
    return path.right(path.length() - path.lastIndexOf('/')).left(8);
}

// Reading directories
//
// QDir creates a QFileInfo for every entry and matches every name with a pattern engine, which costs about
// ten times as much as reading the directory. Plain ASCII names and the library's own filters need neither.
// Any other name is decoded and matched by the same Qt functions that QDir calls, and everything else is
// left to QDir. So Qt remains the only authority on how such names are decoded and case-folded, and on which
// of them are never listed.

namespace {

bool isPlain(const char *name, int length)
{
    return std::all_of(name, name + length, [](char c) { return static_cast<signed char>(c) > 0; });
}

/// The name of a directory entry.
struct EntryName {
    const char *bytes;
    int length;
    QString decoded; // null if the name is plain ASCII

    QString text() const { return decoded.isNull() ? QString::fromLatin1(bytes, length) : decoded; }
};

/// Decodes @p name, which is not plain ASCII, as QDir does. Returns a null string if it is not valid UTF-8:
/// QDir does not list such a name.
QString decode(const char *name)
{
    // QDir decodes the whole path. Without the slash, a byte order mark would be lost.
    const QByteArray path = QByteArray("/").append(name);
    const QString decoded = QFile::decodeName(path);
    return QFile::encodeName(decoded) == path ? decoded.mid(1) : QString();
}

/// Returns whether names are encoded in UTF-8. In other encodings, only QDir knows which names it lists.
bool areNamesUtf8()
{
    constexpr int UTF8 = 106; // in the IANA's list of character sets
    return QTextCodec::codecForLocale()->mibEnum() == UTF8;
}

/// A name filter of the form head*tail in plain ASCII.
struct PlainFilter {
    QByteArray head;
    QByteArray tail;
    QRegularExpression pattern; // the one that QDir uses; compiled when it is first used

    bool matches(const EntryName &name) const
    {
        if (!name.decoded.isNull())
            return pattern.match(name.decoded).hasMatch();
        return name.length >= head.size() + tail.size() && isAlike(name.bytes, head)
               && isAlike(name.bytes + name.length - tail.size(), tail);
    }

private:
    static bool isAlike(const char *text, const QByteArray &part)
    {
        return qstrnicmp(text, part.constData(), static_cast<uint>(part.size())) == 0;
    }
};

std::optional<PlainFilter> plainFilter(const QString &filter)
{
    const QByteArray text = filter.toUtf8();
    const int star = text.indexOf('*');
    const auto isSpecial = [](char c) { return c == '?' || c == '[' || c == ']' || c == '\\'; };
    if (star < 0 || star != text.lastIndexOf('*') || !isPlain(text.constData(), text.size())
        || std::any_of(text.begin(), text.end(), isSpecial))
        return std::nullopt;
    return PlainFilter{text.left(star), text.mid(star + 1),
                       QRegularExpression(QRegularExpression::wildcardToRegularExpression(filter),
                                          QRegularExpression::CaseInsensitiveOption)};
}

/// The name filters of @p directory in plain form; nullopt if one of them has no such form.
std::optional<QVector<PlainFilter>> plainFilters(const QDir &directory)
{
    QVector<PlainFilter> plain;
    for (const QString &filter : directory.nameFilters()) {
        const auto one = plainFilter(filter);
        if (!one)
            return std::nullopt;
        plain.append(*one);
    }
    return plain;
}

bool isDots(const char *name)
{
    return qstrcmp(name, ".") == 0 || qstrcmp(name, "..") == 0;
}

/// Calls visit(descriptor of the directory, EntryName) for each entry of @p type (DT_REG or DT_DIR) that is
/// not hidden and matches the directory's name filters, in directory order. Returns false if QDir must be
/// used instead; the caller then discards what it has been given so far.
template <typename Visit>
bool scan(const QDir &directory, unsigned char type, Visit visit)
{
    const auto filters = plainFilters(directory);
    // A ":" marks a Qt resource path (":/x") or ends the prefix of a search path that the host has set.
    if (!filters || directory.path().contains(':'))
        return false;
    const std::unique_ptr<DIR, int (*)(DIR *)> stream(::opendir(QFile::encodeName(directory.path())),
                                                      ::closedir);
    if (!stream)
        return false; // QDir lists it as empty
    while (const dirent *entry = ::readdir(stream.get())) {
        // Some file systems in user space report DT_UNKNOWN even for "." and "..".
        const bool dots = isDots(entry->d_name);
        const int entryType = dots ? int{DT_DIR} : int{entry->d_type};
        if (entryType == DT_UNKNOWN)
            return false;
        if (entryType != type || (entry->d_name[0] == '.' && !dots)) // QDir hides names with a leading dot
            continue;
        EntryName name = {entry->d_name, static_cast<int>(qstrlen(entry->d_name)), QString()};
        if (!isPlain(name.bytes, name.length)) {
            if (!areNamesUtf8())
                return false;
            name.decoded = decode(name.bytes);
            if (name.decoded.isNull())
                continue;
        }
        const auto matches = [&name](const PlainFilter &filter) { return filter.matches(name); };
        if (filters->isEmpty() || std::any_of(filters->begin(), filters->end(), matches))
            visit(::dirfd(stream.get()), name);
    }
    return true;
}

/// Returns whether QDir can match names with @p filter. If not, QDir would print a warning for every entry.
bool isValidFilter(const QString &filter)
{
    return plainFilter(filter)
           || QRegularExpression(QRegularExpression::wildcardToRegularExpression(filter)).isValid();
}

/// Removes from @p directory the name filters that are not valid patterns; they match nothing. Returns false
/// if there were filters and none of them is valid, in which case nothing must be listed.
bool dropInvalidFilters(QDir &directory)
{
    const QStringList filters = directory.nameFilters();
    QStringList valid;
    std::copy_if(filters.begin(), filters.end(), std::back_inserter(valid), isValidFilter);
    directory.setNameFilters(valid); // also clears what the QDir has cached
    return filters.isEmpty() || !valid.isEmpty();
}

QFileInfoList entryInfoList(QDir directory)
{
    return dropInvalidFilters(directory) ? directory.entryInfoList() : QFileInfoList();
}

QStringList entryList(QDir directory)
{
    return dropInvalidFilters(directory) ? directory.entryList() : QStringList();
}

/// Sets up @p directory to list the files that match @p nameFilters or, if that is empty, its own filters.
void setFileListing(QDir &directory, const QStringList &nameFilters, QDir::SortFlags sort)
{
    directory.setFilter(QDir::Files | QDir::NoSymLinks);
    directory.setSorting(sort);
    if (!nameFilters.isEmpty())
        directory.setNameFilters(nameFilters);
}

} // namespace

// Folder numbering

namespace {

/// The location of @p storage, created first if it is missing.
QDir existingLocation(eStorageType storage)
{
    const QDir location = VornFileHandler::getStorageDir(storage);
    if (!exists(location)) {
        diagnose("root dir " + pathText(location) + " doesn't exist. Create it");
        VornFileHandler::createDCIMFolder(absolutePath(location));
    }
    return location;
}

/// Returns list(location), with the location restricted to the numbered folders. If that is empty, creates
/// folder 100 and lists again.
template <typename List>
auto listNumberedFolders(eStorageType storage, List list)
{
    QDir location = existingLocation(storage);
    location.setFilter(QDir::Dirs | QDir::NoSymLinks); // keeps "." and "..", which an empty suffix matches
    location.setSorting(QDir::Name);
    location.setNameFilters({"*" + VornFileHandler::mFolderSuffix});
    auto folders = list(location);
    if (folders.empty()) {
        VornFileHandler::createDCIMFolder(VornFileHandler::getDirPath(storage, FIRST_FOLDER));
        folders = list(location);
    }
    return folders;
}

/// The names that QDir::entryList() returns for @p directory, as a heap in QDir::Name order: a caller that
/// wants the last name rarely needs another, and building a heap costs far less than sorting.
std::vector<QString> nameHeap(const QDir &directory, unsigned char type)
{
    std::vector<QString> names;
    const auto add = [&names](int, const EntryName &name) { names.push_back(name.text()); };
    if (!scan(directory, type, add)) {
        const QStringList list = entryList(directory);
        names.assign(list.begin(), list.end());
    }
    std::make_heap(names.begin(), names.end());
    return names;
}

/// The number in the last name of @p names, in name order, for which number(name, &ok) succeeds; nullopt if
/// there is no such name. Prints @p complaint for each name skipped.
template <typename Number>
std::optional<int> lastNumber(std::vector<QString> names, Number number, const char *complaint)
{
    for (; !names.empty(); names.pop_back()) {
        std::pop_heap(names.begin(), names.end());
        bool ok = false;
        const int value = number(names.back(), &ok);
        if (ok)
            return value;
        diagnose(complaint);
    }
    return std::nullopt;
}

} // namespace

QList<QFileInfo> VornFileHandler::getDCIMFolders(eStorageType storage)
{
    return listNumberedFolders(storage, entryInfoList);
}

int VornFileHandler::getLastDirectoryNum(eStorageType storage)
{
    const auto names = [](const QDir &location) { return nameHeap(location, DT_DIR); };
    const auto number = [](QString name, bool *ok) { return name.remove(mFolderSuffix).toInt(ok); };
    return lastNumber(listNumberedFolders(storage, names), number,
                      "directory is not a number, continue to check remaining directories")
        .value_or(FIRST_FOLDER);
}

// File numbering

int VornFileHandler::getLastFileNum(eStorageType storage, int folderNumber)
{
    QDir folder(getDirPath(storage, folderNumber));
    if (!existsOrDiagnose(folder))
        return 0;
    QStringList filters = MEDIA_FILTERS;
    for (QString &filter : filters)
        filter.prepend(DCF_FILE_PREFIX);
    setFileListing(folder, filters, QDir::Name);
    const auto number = [](const QString &name, bool *ok) {
        return name.left(8).remove(DCF_FILE_PREFIX).toInt(ok);
    };
    return lastNumber(nameHeap(folder, DT_REG), number,
                      "problem finding the file number in this filename, continue to the next file")
        .value_or(0);
}

int VornFileHandler::getNextFileNum(eStorageType storage)
{
    const int folder = getLastDirectoryNum(storage);
    const int last = getLastFileNum(storage, folder);
    if (last != LAST_FILE)
        return last + 1;
    // Added as unsigned: the name of a folder may contain the largest int.
    createDCIMFolder(storage, static_cast<int>(static_cast<unsigned>(folder) + 1));
    return 1;
}

QString VornFileHandler::getNextFileName(eStorageType storage, eFileTypes fileType)
{
    const int number = getNextFileNum(storage);
    // Must come second: the line above may have created the folder to record into.
    const int folder = getLastDirectoryNum(storage);
    return getFilePath(storage, folder, number, getFileExtension(fileType));
}

// Listings

namespace {

constexpr QDir::SortFlags OLDEST_FIRST = QDir::Time | QDir::Reversed;

/// A point in time as the local clock shows it: milliseconds since 1970 as if the clock ran in UTC.
/// QDir::Time orders by it, so in the hour that repeats when summer time ends, a later file may come first.
/// Nullopt if there is no time.
using WallClock = std::optional<qint64>;

WallClock wallClock(QDateTime time)
{
    time.setTimeSpec(Qt::UTC);
    return time.isValid() ? std::make_optional(time.toMSecsSinceEpoch()) : std::nullopt;
}

/// The same for @p msecs since 1970 in UTC, where 0 means that there is no time, as it does for QFileInfo.
/// localtime_r() is used where it agrees with QDateTime: from 1970 to 2037, except in leap seconds. QDateTime
/// looks up the time zone at every conversion, which costs three stat() calls on /etc/localtime if TZ is
/// unset; for localtime_r() the caller calls tzset() once per listing.
WallClock wallClock(qint64 msecs)
{
    constexpr qint64 END_OF_2037 = 2145916799;
    constexpr qint64 EPOCH = 2440588; // the Julian day of 1970-01-01
    const std::time_t seconds = msecs / 1000;
    std::tm local = {};
    if (msecs <= 0 || seconds >= END_OF_2037 || !::localtime_r(&seconds, &local) || local.tm_sec > 59)
        return wallClock(msecs == 0 ? QDateTime() : QDateTime::fromMSecsSinceEpoch(msecs));
    const qint64 day = QDate(local.tm_year + 1900, local.tm_mon + 1, local.tm_mday).toJulianDay() - EPOCH;
    const qint64 second = (local.tm_hour * 60 + local.tm_min) * 60 + local.tm_sec;
    return (day * 86400 + second) * 1000 + msecs % 1000;
}

/// Equivalent of QFileInfo::created(), which is deprecated: the birth time, or the last status change if the
/// file system keeps no birth time.
QDateTime createdTime(const QFileInfo &file)
{
    const QDateTime birth = file.birthTime();
    return birth.isValid() ? birth : file.metadataChangeTime();
}

qint64 toMsecs(const statx_timestamp &time)
{
    return time.tv_sec * 1000 + time.tv_nsec / 1000000;
}

/// createdTime() in milliseconds since 1970, from the result of statx().
qint64 createdMsecs(const struct statx &status)
{
    const qint64 birth = status.stx_mask & STATX_BTIME ? toMsecs(status.stx_btime) : 0;
    return birth ? birth : toMsecs(status.stx_ctime);
}

/// What a listing knows about a file, read once.
struct FileFacts {
    QString path;
    qint64 size;
    qint64 created;      // milliseconds since 1970 in UTC, 0 if there is no time
    WallClock wallClock; // of the last modification
    int info = 0;        // index of its QFileInfo, see infosByTime()
};

/// Reads the status of the file @p path, which is @p name relative to @p descriptor.
FileFacts readFacts(const QString &path, int descriptor, const char *name)
{
    struct statx status = {};
    if (::statx(descriptor, name, 0, STATX_BASIC_STATS | STATX_BTIME, &status) == 0)
        return {path, static_cast<qint64>(status.stx_size), createdMsecs(status),
                wallClock(toMsecs(status.stx_mtime))};
    const QFileInfo file(path); // for systems without statx()
    const QDateTime created = createdTime(file);
    return {path, file.size(), created.isValid() ? created.toMSecsSinceEpoch() : 0,
            wallClock(file.lastModified())};
}

using Files = std::vector<FileFacts>;

/// The files that QDir lists in @p directory, in its order. Calls seen(facts) for each.
template <typename Seen>
Files filesByQDir(const QDir &directory, Seen seen)
{
    Files files;
    for (const QFileInfo &file : entryInfoList(directory)) {
        files.push_back(readFacts(file.filePath(), AT_FDCWD, QFile::encodeName(file.filePath())));
        seen(files.back());
    }
    return files;
}

/// The files in @p directory, in any order. Calls seen(facts) for each, and possibly a second time.
template <typename Seen>
Files unsortedFiles(QDir directory, Seen seen)
{
    Files files;
    const QString prefix = directory.path() + (directory.path().endsWith('/') ? "" : "/");
    const bool isScanned = scan(directory, DT_REG, [&](int descriptor, const EntryName &name) {
        files.push_back(readFacts(prefix + name.text(), descriptor, name.bytes));
        seen(files.back());
    });
    if (isScanned)
        return files;
    directory.setSorting(QDir::Unsorted);
    return filesByQDir(directory, seen);
}

/// The files in @p directory in the order OLDEST_FIRST, which @p directory must already have. Sorting takes a
/// fiftieth of the time that QDir takes, because QDir converts times in every comparison. A file without a
/// time compares equal to every other in QDir's order, which is then not transitive, so that only QDir itself
/// can reproduce it. Calls seen(facts) for each file as soon as it has been read, and possibly again.
template <typename Seen>
Files filesByTime(const QDir &directory, Seen seen)
{
    ::tzset();
    Files files = unsortedFiles(directory, seen);
    if (!std::all_of(files.begin(), files.end(), [](const FileFacts &file) { return file.wallClock; }))
        return filesByQDir(directory, seen);
    std::sort(files.begin(), files.end(), [](const FileFacts &a, const FileFacts &b) {
        return *a.wallClock != *b.wallClock ? *a.wallClock < *b.wallClock : a.path > b.path;
    });
    return files;
}

/// The files of filesByTime(), as the host gets them. Each entry keeps what it reads here: it describes the
/// file as it was when it was listed. The status is read directly after readFacts(), when the kernel's data
/// is still in the processor's cache; reading it after sorting makes a listing 6 % slower.
QFileInfoList infosByTime(const QDir &directory)
{
    QFileInfoList unsorted;
    const auto addInfo = [&unsorted](FileFacts &file) {
        file.info = unsorted.size();
        unsorted.append(QFileInfo(file.path));
        static_cast<void>(unsorted.last().isSymLink()); // the one query that makes QFileInfo read everything
    };
    const Files files = filesByTime(directory, addInfo);
    QFileInfoList infos;
    infos.reserve(static_cast<int>(files.size()));
    for (const FileFacts &file : files)
        infos.append(unsorted.at(file.info));
    return infos;
}

/// The passes over a storage device that make up a list of files, each given by its name filters: two for
/// images, the JPEG files of all folders and then the PNG files of all folders, and one for anything else.
using Passes = QVector<QStringList>;

/// Calls visit(folder) for each existing folder of each pass. The folder is set up to list its files oldest
/// first.
template <typename Visit>
void forEachFolder(eStorageType storage, const Passes &passes, eDIRECTORY_FILTER filter, Visit visit)
{
    for (const QStringList &nameFilters : passes) {
        for (const QFileInfo &folder : VornFileHandler::getFolders(storage, filter)) {
            QDir directory(folder.absoluteFilePath());
            setFileListing(directory, nameFilters, OLDEST_FIRST);
            if (existsOrDiagnose(directory))
                visit(directory);
        }
    }
}

QFileInfoList listStorage(eStorageType storage, const Passes &passes, eDIRECTORY_FILTER filter)
{
    QFileInfoList infos;
    forEachFolder(storage, passes, filter, [&infos](const QDir &folder) { infos += infosByTime(folder); });
    return infos;
}

} // namespace

QList<QFileInfo> VornFileHandler::getDirectoryContents(QDir directory, QStringList nameFilters,
                                                       QFlags<QDir::SortFlag> sort)
{
    if (!existsOrDiagnose(directory))
        return {};
    setFileListing(directory, nameFilters, sort);
    return sort == OLDEST_FIRST ? infosByTime(directory) : entryInfoList(directory);
}

QList<QFileInfo> VornFileHandler::getDirectoryContents(QString path, QStringList nameFilters,
                                                       QFlags<QDir::SortFlag> sort)
{
    return getDirectoryContents(QDir(path), nameFilters, sort);
}

QList<QFileInfo> VornFileHandler::getFolders(eStorageType storage, eDIRECTORY_FILTER filter)
{
    if (filter == DIRECTORY_FILTER_DCIM)
        return getDCIMFolders(storage);
    QDir location = existingLocation(storage);
    location.setFilter(QDir::Dirs | QDir::NoSymLinks | QDir::NoDotAndDotDot);
    location.setSorting(QDir::Name);
    QFileInfoList folders = entryInfoList(location);
    if (filter != DIRECTORY_FILTER_NON_DCIM)
        return folders;
    const QRegularExpression numbered(QString("^[0-9]{3}%1$").arg(mFolderSuffix));
    if (!numbered.isValid()) // it matches nothing, and matching would print a warning for each name
        return folders;
    const auto isNumbered = [&numbered](const QFileInfo &folder) {
        return numbered.match(folder.fileName()).hasMatch();
    };
    folders.erase(std::remove_if(folders.begin(), folders.end(), isNumbered), folders.end());
    return folders;
}

QList<QFileInfo> VornFileHandler::getDirectoryContents(eStorageType storage, QStringList nameFilters,
                                                       eDIRECTORY_FILTER filter)
{
    return listStorage(storage, {nameFilters}, filter);
}

QList<QFileInfo> VornFileHandler::getDirectoryContents(eStorageType storage, eDIRECTORY_FILTER filter)
{
    return getDirectoryContents(storage, QStringList(), filter);
}

// Media lists

namespace {

Passes imagePasses(bool thumbnails)
{
    QStringList first = {JPEG_FILE_EXT_FILTER};
    if (thumbnails)
        first.append(THUMB_FILE_EXT_FILTER);
    return {first, {PNG_FILE_EXT_FILTER}};
}

const Passes VIDEO_PASSES = {{AVI_FILE_EXT_FILTER, MKV_FILE_EXT_FILTER}};
const Passes AUDIO_PASSES = {{WAV_FILE_EXT_FILTER}};

} // namespace

QList<QFileInfo> VornFileHandler::getImageList(eStorageType storage, bool thumbnails,
                                               eDIRECTORY_FILTER filter)
{
    return listStorage(storage, imagePasses(thumbnails), filter);
}

QList<QFileInfo> VornFileHandler::getVideoList(eStorageType storage, eDIRECTORY_FILTER filter)
{
    return listStorage(storage, VIDEO_PASSES, filter);
}

QList<QFileInfo> VornFileHandler::getAudioList(eStorageType storage, eDIRECTORY_FILTER filter)
{
    return listStorage(storage, AUDIO_PASSES, filter);
}

int VornFileHandler::getMediaFileCount(QDir directory)
{
    if (!exists(directory)) {
        diagnose(pathText(directory) + " doesn't exist");
        return 0;
    }
    setFileListing(directory, MEDIA_FILTERS, QDir::Unsorted);
    int count = 0;
    const bool isScanned = scan(directory, DT_REG, [&count](int, const EntryName &) { ++count; });
    return isScanned ? count : static_cast<int>(directory.count());
}

int VornFileHandler::getMediaFileCount(eStorageType storage)
{
    int count = 0;
    for (const QFileInfo &folder : getDCIMFolders(storage))
        count += getMediaFileCount(QDir(folder.absoluteFilePath()));
    return count;
}

void VornFileHandler::deleteAllFiles(eStorageType storage)
{
    // The folders are listed although the whole location is about to be deleted: that creates what is
    // missing, and if it neither finds nor creates a folder, nothing is deleted. The location is named here
    // and not taken from the folders: with an empty suffix they include "." and "..", whose parents are above
    // the location.
    if (!getDCIMFolders(storage).isEmpty())
        deleteFolder(absolutePath(getStorageDir(storage)));
}

// JSON file list

namespace {

/// The type for an extension: that of its category, except that thumbnails and Matroska have their own.
eFileTypes typeOfSuffix(const QStringRef &suffix)
{
    struct Row {
        const QString &extension;
        eFileTypes type;
    };
    static const Row TABLE[] = {
        {JPEG_FILE_EXT, FILE_TYPE_IMAGE},    {PNG_FILE_EXT, FILE_TYPE_IMAGE},
        {THUMB_FILE_EXT, FILE_TYPE_THUMB},   {AVI_FILE_EXT, FILE_TYPE_VIDEO},
        {MKV_FILE_EXT, FILE_TYPE_VIDEO_MKV}, {WAV_FILE_EXT, FILE_TYPE_AUDIO},
    };
    for (const Row &row : TABLE) {
        if (row.extension == suffix)
            return row.type;
    }
    return FILE_TYPE_UNKNOWN;
}

eFileTypes typeOf(const QFileInfo &file)
{
    if (withUsablePath(file).isDir())
        return FILE_TYPE_DIRECTORY;
    const QString suffix = file.suffix();
    return typeOfSuffix(QStringRef(&suffix));
}

/// The same for a path that is known to be that of a file.
eFileTypes typeOfFile(const QString &path)
{
    const int dot = path.lastIndexOf('.');
    return typeOfSuffix(dot > path.lastIndexOf('/') ? path.midRef(dot + 1) : QStringRef());
}

/// Writes the last @p digits digits of @p number, ending just before @p end.
void putDigits(char *end, int number, int digits)
{
    for (; digits > 0; --digits, number /= 10)
        *--end = static_cast<char>('0' + number % 10);
}

/// "2025-02-25"; empty if there is no time.
QString dateText(WallClock clock)
{
    if (!clock)
        return QString();
    const QDate date = QDateTime::fromMSecsSinceEpoch(*clock, Qt::UTC).date();
    if (date.year() < 0 || date.year() > 9999)
        return date.toString("yyyy-MM-dd"); // five times as slow
    char text[] = "yyyy-MM-dd";
    putDigits(text + 4, date.year(), 4);
    putDigits(text + 7, date.month(), 2);
    putDigits(text + 10, date.day(), 2);
    return QLatin1String(text);
}

/// "14:03:59"; empty if there is no time.
QString timeText(WallClock clock)
{
    if (!clock)
        return QString();
    const QTime time = QDateTime::fromMSecsSinceEpoch(*clock, Qt::UTC).time();
    char text[] = "HH:mm:ss";
    putDigits(text + 2, time.hour(), 2);
    putDigits(text + 5, time.minute(), 2);
    putDigits(text + 8, time.second(), 2);
    return QLatin1String(text);
}

class JsonList
{
public:
    /// For paths below the location of @p storage.
    explicit JsonList(eStorageType storage)
        : mPrefix(absolutePath(VornFileHandler::getStorageDir(storage)) + "/")
    {
    }

    void append(QString path, qint64 size, WallClock created, eFileTypes type)
    {
        QJsonObject object = mBlank; // a third faster than inserting the keys one by one
        object[QLatin1String("filename")] = path.remove(mPrefix);
        object[QLatin1String("moddate")] = dateText(created);
        object[QLatin1String("modtime")] = timeText(created);
        object[QLatin1String("size")] = "0x" + QString::number(size, 16);
        object[QLatin1String("type")] = type;
        mArray.append(object);
    }

    QJsonArray array() const { return mArray; }

private:
    const QString mPrefix;
    const QJsonObject mBlank{{"filename", {}}, {"moddate", {}}, {"modtime", {}}, {"size", {}}, {"type", {}}};
    QJsonArray mArray;
};

QJsonArray jsonOfStorage(eStorageType storage, const Passes &passes)
{
    JsonList list(storage);
    forEachFolder(storage, passes, DIRECTORY_FILTER_DCIM, [&list](const QDir &folder) {
        for (const FileFacts &file : filesByTime(folder, [](const FileFacts &) {}))
            list.append(file.path, file.size, wallClock(file.created), typeOfFile(file.path));
    });
    return findLocation(storage) ? list.array() : QJsonArray();
}

} // namespace

QJsonArray VornFileHandler::getJsonFileList(eStorageType storage, QList<QFileInfo> files)
{
    if (!findLocation(storage))
        return {};
    JsonList list(storage);
    for (const QFileInfo &file : files) {
        const QFileInfo source = withUsablePath(file);
        list.append(absolutePath(file), source.size(), wallClock(createdTime(source)), typeOf(file));
    }
    return list.array();
}

QJsonArray VornFileHandler::getJSONImageList(eStorageType storage, bool thumbnails)
{
    return jsonOfStorage(storage, imagePasses(thumbnails));
}

QJsonArray VornFileHandler::getJSONVideoList(eStorageType storage)
{
    return jsonOfStorage(storage, VIDEO_PASSES);
}

QJsonArray VornFileHandler::getJSONAudioList(eStorageType storage)
{
    return jsonOfStorage(storage, AUDIO_PASSES);
}

QJsonArray VornFileHandler::getJSONDirectoryContents(eStorageType storage)
{
    return getJSONDirectoryContents(storage, QStringList());
}

QJsonArray VornFileHandler::getJSONDirectoryContents(eStorageType storage, QStringList nameFilters)
{
    return jsonOfStorage(storage, {nameFilters});
}

// Devices and capacity

namespace {

/// Returns whether the pipes of a process can be opened. If not, QProcess prints a warning.
bool canOpenPipes()
{
    constexpr size_t NEEDED = 4; // input, output, errors, and one that reports that the program has started
    std::array<std::array<int, 2>, NEEDED> pipes;
    size_t opened = 0;
    while (opened < NEEDED && ::pipe2(pipes[opened].data(), O_CLOEXEC) == 0)
        ++opened;
    for (size_t i = 0; i < opened; ++i) {
        ::close(pipes[i][0]);
        ::close(pipes[i][1]);
    }
    return opened == NEEDED;
}

using Process = std::unique_ptr<QProcess>;

/// Objects that must not be destroyed.
struct KeptProcesses {
    QMutex mutex;
    std::vector<Process> spare; // without a process, see keepSpare()
    std::vector<Process> stuck; // with a process that cannot be killed, see isKilled()
};

KeptProcesses &kept()
{
    static auto *const processes = new KeptProcesses; // never destroyed, and so neither are the objects in it
    return *processes;
}

/// Qt 5.15 does not notice that clone() failed: it would wait for a descriptor that it never received, close
/// it, and kill process -1, which means every process. A QProcess whose start failed in this way must not be
/// destroyed, and waitForFinished() must not be called on it. Its pipes have no writer: reading them to their
/// end closes them, and the next start of the object overwrites the rest of its state.
void keepSpare(Process process)
{
    // Children of other threads hold the pipes until they call exec.
    constexpr int MILLISECONDS = 100;
    process->waitForStarted(MILLISECONDS);
    process->closeWriteChannel();
    const QMetaObject &members = *process->metaObject();
    for (const char *slot : {"_q_canReadStandardOutput()", "_q_canReadStandardError()"})
        members.method(members.indexOfMethod(slot)).invoke(process.get(), Qt::DirectConnection);
    struct Access : QProcess {
        using QProcess::setProcessState;
    };
    (process.get()->*&Access::setProcessState)(QProcess::NotRunning);
    const QMutexLocker lock(&kept().mutex);
    kept().spare.push_back(std::move(process));
}

Process newProcess()
{
    const QMutexLocker lock(&kept().mutex);
    if (kept().spare.empty()) {
        auto process = std::make_unique<QProcess>();
        process->moveToThread(nullptr); // its events are handled here, never by the event loop of the host
        return process;
    }
    Process spare = std::move(kept().spare.back());
    kept().spare.pop_back();
    return spare;
}

/// Starts @p program with its standard input open. Returns null if no process could be created.
Process startProcess(const QString &program, const QStringList &arguments)
{
    if (program.isEmpty() || !canOpenPipes())
        return nullptr;
    Process process = newProcess();
    process->start(program, arguments, QIODevice::ReadWrite);
    if (process->processId() >= 0)
        return process;
    keepSpare(std::move(process));
    return nullptr;
}

/// Starts a command line, whose first word is the program. An unclosed quote extends to the end of the line.
Process startLine(const QString &line)
{
    QStringList words = QProcess::splitCommand(line);
    const QString program = words.isEmpty() ? QString() : words.takeFirst();
    return startProcess(program, words);
}

/// Everything that @p process wrote to @p channel, up to the first zero byte.
QString readText(QProcess &process, QProcess::ProcessChannel channel)
{
    process.setReadChannel(channel);
    return QString::fromUtf8(process.readAll().constData());
}

/// Kills a running process, as the destructor would, but without its warning. Returns false if the process is
/// still there after the time that the destructor waits: it is blocked in the kernel, for instance by a file
/// system that does not respond. waitForFinished() also returns false if the program could not be started.
bool isKilled(QProcess &process)
{
    constexpr int MILLISECONDS = 30000;
    process.kill();
    return process.waitForFinished(MILLISECONDS) || process.state() == QProcess::NotRunning;
}

/// Runs a command line in a shell. The double quote is left open; splitting the line closes it.
bool runShell(const QString &line, QString &output)
{
    QString errors;
    return VornFileHandler::execCmdLine("sh -c \"" + line, QStringList(), output, errors, -1) == 0;
}

/// Runs df on the mount path of @p type and returns the requested column as awk prints it, including its
/// header; an empty string on failure.
QString dfColumn(eStorageType type, const QString &column)
{
    if (!VornFileHandler::isMounted(type))
        return QString();
    QString output;
    const QString path = VornFileHandler::typeToMountPath(type);
    return runShell("df " + path + " | awk '{ print $" + column + " }'", output) ? output : QString();
}

/// Converts @p blocks, a number of 1024-byte blocks, to bytes; 0 if it is not a number or does not fit in an
/// int.
qint64 blocksToBytes(QString blocks)
{
    return qint64(blocks.remove('\n').toInt()) * 1024;
}

} // namespace

qint8 VornFileHandler::execCmdLine(QString command, QStringList arguments, QString &stdOut, QString &stdErr,
                                   int timeout)
{
    stdOut.clear();
    stdErr.clear();
    Process process = arguments.isEmpty() ? startLine(command) : startProcess(command, arguments);
    if (!process)
        return 0;
    process->waitForFinished(timeout);
    stdOut = readText(*process, QProcess::StandardOutput);
    stdErr = readText(*process, QProcess::StandardError);
    process->terminate();
    if (process->state() == QProcess::NotRunning) {
        // For a program that was not found, QProcess reports 255, from the child whose exec failed.
        const bool isStarted = process->error() != QProcess::FailedToStart;
        return isStarted ? static_cast<qint8>(process->exitCode()) : qint8(0);
    }
    if (!isKilled(*process)) {
        const QMutexLocker lock(&kept().mutex);
        kept().stuck.push_back(std::move(process));
    }
    return 0;
}

bool VornFileHandler::isMounted(eStorageType type)
{
    const QString name = typeToMmcBlk(type);
    QString output;
    const bool found = runShell("cat /proc/partitions | grep " + name, output);
    // Every string contains the empty string, but a storage device without a block name is never present,
    // whatever grep returns.
    return found && !name.isEmpty() && output.contains(name);
}

qint64 VornFileHandler::getRemainingBytes(eStorageType type)
{
    return blocksToBytes(dfColumn(type, "4").toLower().remove("available"));
}

qint64 VornFileHandler::getStorageSize(eStorageType type)
{
    return blocksToBytes(dfColumn(type, "2").remove("1K-blocks"));
}

int VornFileHandler::getRemainingPercent(eStorageType type)
{
    if (!isMounted(type))
        return 0;
    const auto free = static_cast<float>(getRemainingBytes(type));
    const auto size = static_cast<float>(getStorageSize(type));
    const float percent = std::round(free / size * 100.0F);
    const bool isInt = percent >= -2147483648.0F && percent < 2147483648.0F; // 0 / 0 is NaN
    return free <= size && isInt ? static_cast<int>(percent) : 0;
}

qint64 VornFileHandler::getUsedBytes(eStorageType type)
{
    if (!isMounted(type))
        return 0;
    const auto free = static_cast<float>(getRemainingBytes(type));
    const auto size = static_cast<float>(getStorageSize(type));
    return free > size ? 0 : static_cast<qint64>(size - free);
}

// Transfer

namespace {

/// The path of @p name in @p folder, with a counter added if the name is taken. The last counter is used even
/// if that name is taken too.
QString freePath(const QString &folder, const QString &name)
{
    constexpr int LAST_COUNTER = 999;
    QString path = QString("%1/%2").arg(folder).arg(name);
    if (!pathExists(path))
        return path;
    const QStringList pieces = name.split('.');
    for (int counter = 1; counter <= LAST_COUNTER; ++counter) {
        path = QString("%1/%2_%3.%4").arg(folder).arg(pieces.first()).arg(counter).arg(pieces.last());
        if (!pathExists(path))
            break;
    }
    return path;
}

} // namespace

void VornFileHandler::copyToFolder(QStringList files, eStorageType type, QString folder)
{
    createFolder(type, folder);
    for (const QString &file : files) {
        const QString target = freePath(getDirPath(type, folder), file.split('/').last());
        QString output;
        QString errors;
        execCmdLine("cp", {"-p", file, target}, output, errors, -1);
    }
}

void VornFileHandler::moveToFolder(QStringList files, eStorageType type, QString folder)
{
    copyToFolder(files, type, folder);
    for (const QString &file : files)
        deleteFile(file); // whether or not it was copied
}

void VornFileHandler::deleteFile(QString path)
{
    if (isUsablePath(path))
        QFile(path).remove();
}

// Metadata

namespace {

constexpr int CATEGORY_MASK = 0xF0;
constexpr int IMAGE = 0x10;
constexpr int VIDEO = 0x20;
constexpr int AUDIO = 0x40;
constexpr int FOLDER = 0x80;

/// The files directly in @p folder, unsorted: no total depends on the order, and sorting by time is the most
/// expensive part of a listing.
QFileInfoList filesOf(const QFileInfo &folder)
{
    return VornFileHandler::getDirectoryContents(absolutePath(folder), QStringList(), QDir::Unsorted);
}

} // namespace

void VornFileHandler::getMetadata(QFileInfo file, Metadata &metadata)
{
    metadata.set(typeOf(file), file);
}

Metadata::Metadata() = default;

Metadata::Metadata(eFileTypes type, QFileInfo file)
{
    set(type, file);
}

Metadata::Metadata(const Metadata &other)
{
    *this = other;
}

Metadata &Metadata::operator=(const Metadata &other)
{
    // The counts describe the folder that a record was filled from; they are not copied.
    mType = other.mType;
    mFileName = other.mFileName;
    mSize = other.mSize;
    mCreated = other.mCreated;
    mLastModified = other.mLastModified;
    mWidth = other.mWidth;
    mHeight = other.mHeight;
    mLength = other.mLength;
    mBitrate = other.mBitrate;
    mFramerate = other.mFramerate;
    return *this;
}

void Metadata::setType(eFileTypes type)
{
    mType = type;
}

int Metadata::getMediaCategory()
{
    return mType & CATEGORY_MASK;
}

void Metadata::set(eFileTypes type, QFileInfo file)
{
    setType(type);
    setFile(file);
}

void Metadata::setFile(QFileInfo file)
{
    const QFileInfo source = withUsablePath(file);
    mFileName = file.fileName();
    mCreated = createdTime(source);
    mLastModified = source.lastModified();
    if (getMediaCategory() == FOLDER) {
        setDirectorySize(file);
        setDirectoryContent(file);
        return;
    }
    mSize = source.size();
    setResolution(file);
    setLength(file);
    setBitrate(file);
    setFramerate(file);
}

void Metadata::setLength(QFileInfo & /*file*/)
{
    if (getMediaCategory() == VIDEO || getMediaCategory() == AUDIO)
        mLength = 60;
}

void Metadata::setBitrate(QFileInfo & /*file*/)
{
    if (getMediaCategory() == VIDEO || getMediaCategory() == AUDIO)
        mBitrate = 6000;
}

void Metadata::setFramerate(QFileInfo & /*file*/)
{
    if (getMediaCategory() == VIDEO)
        mFramerate = 30;
}

void Metadata::setResolution(QFileInfo &file)
{
    const QString path = absolutePath(file);
    if (getMediaCategory() == IMAGE) {
        const QSize size = isUsablePath(path) ? QImageReader(path, QByteArray()).size() : QSize();
        mWidth = size.width();
        mHeight = size.height();
    } else if (getMediaCategory() == VIDEO) {
        const QString line =
            QString("sh -c \"ffprobe -v error -select_streams v:0 -show_entries stream=width,height "
                    "-of default=nw=1:nk=1 %1\"")
                .arg(path);
        const auto process = startLine(line);
        if (!process)
            return;
        process->waitForFinished(-1);
        static const QRegularExpression TWO_LINES(R"((\d+)\s*\n\s*(\d+))");
        const auto match = TWO_LINES.match(readText(*process, QProcess::StandardOutput));
        if (match.hasMatch()) {
            mWidth = match.captured(1).toInt();
            mHeight = match.captured(2).toInt();
        }
    }
}

void Metadata::setDirectoryContent(QFileInfo &folder)
{
    if (getMediaCategory() != FOLDER)
        return;
    mImageCount = mThumbCount = mVideoCount = mAudioCount = 0;
    for (const QFileInfo &file : filesOf(folder)) {
        switch (typeOf(file)) {
        case FILE_TYPE_IMAGE: ++mImageCount; break;
        case FILE_TYPE_THUMB: ++mThumbCount; break;
        case FILE_TYPE_VIDEO:
        case FILE_TYPE_VIDEO_MKV: ++mVideoCount; break;
        case FILE_TYPE_AUDIO: ++mAudioCount; break;
        default: break;
        }
    }
}

void Metadata::setDirectorySize(QFileInfo &folder)
{
    mSize = 0;
    for (const QFileInfo &file : filesOf(folder))
        mSize += file.size();
}

int Metadata::setComment(QFileInfo file, QString comment)
{
    Exiv2::XmpParser::initialize();
    std::atexit(Exiv2::XmpParser::terminate);
    const QString name = absolutePath(file);
    const std::string path = name.toStdString();
    if (!pathExists(name)) {
        std::cerr << "Error: File does not exist: " << path << std::endl;
        return 1;
    }
    const auto image = Exiv2::ImageFactory::open(path, true); // auto_ptr up to 0.27, unique_ptr from 0.28
    if (!image.get()) {
        std::cerr << "Error: Cannot open input file " << path << std::endl;
        return 1;
    }
    image->readMetadata();
    Exiv2::ExifData exif = image->exifData();
    // Exiv2 converts the text itself, as the prefix requests.
    exif["Exif.Photo.UserComment"] = "charset=\"Unicode\" " + comment.toStdString();
    image->setExifData(exif);
    image->writeMetadata();
    return 0;
}

std::vector<uint8_t> Metadata::utf8ToUtf16LE(const std::string &text)
{
    std::vector<uint8_t> units = {0xFF, 0xFE};
    for (const char byte : text) {
        units.push_back(static_cast<uint8_t>(byte));
        units.push_back(0);
    }
    units.insert(units.end(), {0, 0});
    return units;
}

// SPDX-License-Identifier: MIT

// Without it, readdir() of a 32-bit system ends at the first entry with a large inode number.
#define _FILE_OFFSET_BITS 64 // NOLINT(bugprone-reserved-identifier): the name is the C library's

#include "vornfilehandler.h"

#include <QFile>
#include <QImageReader>
#include <QJsonObject>
#include <QMetaMethod>
#include <QMutex>
#include <QProcess>
#include <QRegularExpression>

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
// All of them are built in the order of this file when the library is loaded.

const QString VORN_FILE_HANDLER::JPEG_FILE_EXT = QStringLiteral("jpg");
const QString VORN_FILE_HANDLER::PNG_FILE_EXT = QStringLiteral("png");
const QString VORN_FILE_HANDLER::THUMB_FILE_EXT = QStringLiteral("thumb");
const QString VORN_FILE_HANDLER::AVI_FILE_EXT = QStringLiteral("avi");
const QString VORN_FILE_HANDLER::MKV_FILE_EXT = QStringLiteral("mkv");
const QString VORN_FILE_HANDLER::WAV_FILE_EXT = QStringLiteral("wav");

namespace {

constexpr char FALLBACK_LOCATION[] = "/tmp";

} // namespace

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

/// The media that are counted and numbered. Thumbnails belong to a photo or video and are neither.
const QStringList MEDIA_FILTERS = {JPEG_FILE_EXT_FILTER, PNG_FILE_EXT_FILTER, AVI_FILE_EXT_FILTER,
                                   MKV_FILE_EXT_FILTER, WAV_FILE_EXT_FILTER};

constexpr char VERSION_TEXT[] = "25.02.25";
constexpr char RED[] = "\x1b[31m";
constexpr char CYAN[] = "\x1b[36m";
constexpr char RESET[] = "\x1b[0m";

constexpr int FIRST_FOLDER = 100;
constexpr int LAST_FILE = 9999;

/// The one way of printing a diagnostic line.
void diagnose(const QByteArray &text)
{
    std::fprintf(stderr, "%s %s %s\n", CYAN, text.constData(), RESET);
}

/// Whether Qt takes @p path for a file name at all. It prints a warning of its own where it does not, so
/// whatever hands it a path of the host's looks here first.
bool isUsablePath(const QString &path)
{
    return !path.isEmpty() && !path.contains(QChar::Null);
}

bool pathExists(const QString &path)
{
    return isUsablePath(path) && QFile::exists(path);
}

/// @p file, or one that does not exist where Qt would warn about its path at every question.
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

/// The path as a diagnostic line shows it: up to a zero character, if it should hold one.
QByteArray pathText(const QDir &directory)
{
    const QString path = directory.path();
    return QDir(path.left(path.indexOf(QChar::Null))).absolutePath().toUtf8();
}

bool existsOrDiagnose(const QDir &directory)
{
    if (exists(directory))
        return true;
    diagnose("directory " + pathText(directory) + " doesn't exist");
    return false;
}

/// The location of @p type, none for an unsupported storage.
const QDir *findLocation(eStorageType type)
{
    switch (type) {
    case STORAGE_MMC: return &VornFileHandler::mMMCLocation;
    case STORAGE_SD: return &VornFileHandler::mSDLocation;
    case STORAGE_USB: return &VornFileHandler::mUSBLocation;
    }
    return nullptr;
}

/// The answer of the mappings to an unsupported storage.
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
    // Copies of a QDir share what it looks up lazily, without a lock. Setting the path parts this one from
    // the configuration, so that operations on several threads never look up through the same object.
    QDir copy = *location;
    copy.setPath(location->path());
    return copy;
}

// Paths and names

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
    case FILE_TYPE_AUDIO: return AVI_FILE_EXT; // hosts ask with it for the container they record sound into
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
    QDir directory(path); // that of an empty path is ".", the current directory
    if (!isUsablePath(directory.path()))
        return;
    // A path through ".." leads nowhere any more once the folder before it is deleted.
    if (path.split('/').contains(".."))
        directory.setPath(directory.canonicalPath());
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
    // The "/" stays in front of a name with a directory part: it takes one of the eight characters.
    return path.right(path.length() - path.lastIndexOf('/')).left(8);
}

// Reading directories
//
// QDir makes a QFileInfo of every entry and runs a pattern engine over every name, at about ten times the
// cost of reading the directory. Names of plain ASCII under the filters that the library itself uses need
// neither. Whatever is not plain goes to QDir, which so stays the one judge of how names outside ASCII
// decode, fold and sort, and which of them it never lists.

namespace {

bool isPlain(const char *name, int length)
{
    return std::all_of(name, name + length, [](char c) { return static_cast<signed char>(c) > 0; });
}

/// A name filter of the form head*tail in plain ASCII.
struct PlainFilter {
    QByteArray head;
    QByteArray tail;

    bool matches(const char *name, int length) const
    {
        return length >= head.size() + tail.size() && isAlike(name, head)
               && isAlike(name + length - tail.size(), tail);
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
    return PlainFilter{text.left(star), text.mid(star + 1)};
}

/// The name filters of @p directory in plain form; none if one of them has no such form.
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

/// Calls visit(descriptor of the directory, name, length) for each entry of @p type (DT_REG or DT_DIR) that
/// is not hidden and matches the directory's name filters, in the order of the directory.
/// False where QDir has to be asked instead: the caller drops what was visited by then.
template <typename Visit>
bool scan(const QDir &directory, unsigned char type, Visit visit)
{
    const auto filters = plainFilters(directory);
    // ":" begins a path into the program's resources, or a search path of the host's.
    if (!filters || directory.path().contains(':'))
        return false;
    const std::unique_ptr<DIR, int (*)(DIR *)> stream(::opendir(QFile::encodeName(directory.path())),
                                                      ::closedir);
    if (!stream)
        return false; // it is empty for QDir as well
    while (const dirent *entry = ::readdir(stream.get())) {
        // Of "." and ".." some file systems in user space do not tell even that they are folders.
        const bool dots = isDots(entry->d_name);
        const int entryType = dots ? int{DT_DIR} : int{entry->d_type};
        if (entryType == DT_UNKNOWN)
            return false;
        if (entryType != type || (entry->d_name[0] == '.' && !dots)) // QDir hides names with a dot in front
            continue;
        const int length = static_cast<int>(qstrlen(entry->d_name));
        if (!isPlain(entry->d_name, length))
            return false;
        const auto matches = [&](const PlainFilter &filter) { return filter.matches(entry->d_name, length); };
        if (filters->isEmpty() || std::any_of(filters->begin(), filters->end(), matches))
            visit(::dirfd(stream.get()), entry->d_name, length);
    }
    return true;
}

/// Whether QDir can match with @p filter. It warns at every entry of a directory where it can not.
bool isValidFilter(const QString &filter)
{
    return plainFilter(filter)
           || QRegularExpression(QRegularExpression::wildcardToRegularExpression(filter)).isValid();
}

/// Takes the name filters that are no valid patterns out of @p directory: they match nothing.
/// False if all that there were had to go, so that nothing is listed.
bool dropInvalidFilters(QDir &directory)
{
    const QStringList filters = directory.nameFilters();
    QStringList valid;
    std::copy_if(filters.begin(), filters.end(), std::back_inserter(valid), isValidFilter);
    directory.setNameFilters(valid); // and lets the QDir forget what it may have read before
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

/// Makes @p directory list its files under @p nameFilters; none leaves it the filters that it has.
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

/// The location of @p storage, which is created first if it is missing.
QDir existingLocation(eStorageType storage)
{
    const QDir location = VornFileHandler::getStorageDir(storage);
    if (!exists(location)) {
        diagnose("root dir " + pathText(location) + " doesn't exist. Create it");
        VornFileHandler::createDCIMFolder(absolutePath(location));
    }
    return location;
}

/// What list(location, restricted to the numbered folders) gives for a storage; folder 100 is created
/// first if there would be none.
template <typename List>
auto listNumberedFolders(eStorageType storage, List list)
{
    QDir location = existingLocation(storage);
    location.setFilter(QDir::Dirs | QDir::NoSymLinks); // "." and ".." stay: an empty suffix matches them
    location.setSorting(QDir::Name);
    location.setNameFilters({"*" + VornFileHandler::mFolderSuffix});
    auto folders = list(location);
    if (folders.empty()) {
        VornFileHandler::createDCIMFolder(VornFileHandler::getDirPath(storage, FIRST_FOLDER));
        folders = list(location);
    }
    return folders;
}

/// The names that QDir::entryList() gives for @p directory, sorted by QDir::Name, as a heap: what asks for
/// the last name seldom needs another, and a heap costs far less than the whole order.
std::vector<QString> nameHeap(const QDir &directory, unsigned char type)
{
    std::vector<QString> names;
    const bool plain = scan(directory, type, [&names](int, const char *name, int length) {
        names.emplace_back(QLatin1String(name, length));
    });
    if (!plain) {
        const QStringList list = entryList(directory);
        names.assign(list.begin(), list.end());
    }
    std::make_heap(names.begin(), names.end());
    return names;
}

/// The number in the last name of @p names, in name order, for which number(name, &ok) succeeds; none if
/// there is no such name. Prints @p complaint for each name passed over.
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
    // A name may hold the largest number of all.
    createDCIMFolder(storage, static_cast<int>(static_cast<unsigned>(folder) + 1));
    return 1;
}

QString VornFileHandler::getNextFileName(eStorageType storage, eFileTypes fileType)
{
    const int number = getNextFileNum(storage);
    // Asked for only now: a folder that the line above created is the one to record into.
    const int folder = getLastDirectoryNum(storage);
    return getFilePath(storage, folder, number, getFileExtension(fileType));
}

// Listings

namespace {

/// Local time at @p msecs since 1970, as QDateTime reckons it; none where QDateTime has rules of its own
/// (before 1970 and after 2037, the null time 0, leap seconds).
/// QDateTime asks for the time zone at each conversion, which without TZ in the environment are three looks
/// at /etc/localtime. localtime_r() does not look again: the caller calls tzset() once for a whole listing.
std::optional<std::tm> localTime(qint64 msecs)
{
    constexpr qint64 END_OF_2037 = 2145916799;
    const std::time_t seconds = msecs / 1000;
    std::tm local = {};
    if (msecs <= 0 || seconds >= END_OF_2037 || !::localtime_r(&seconds, &local) || local.tm_sec > 59)
        return std::nullopt;
    return local;
}

/// What QDir::Time orders by: the clock on the wall, as if it were UTC. In the hour that summer time gives
/// back, a later file may so come first. None for a file without a time.
std::optional<qint64> wallClock(const QFileInfo &file)
{
    QDateTime time = file.lastModified();
    time.setTimeSpec(Qt::UTC);
    if (!time.isValid())
        return std::nullopt;
    return time.date().toJulianDay() * 86400000 + time.time().msecsSinceStartOfDay();
}

/// The same from the time stamp, where that can be had without QDateTime.
std::optional<qint64> wallClock(qint64 modified)
{
    const auto local = localTime(modified);
    if (!local)
        return std::nullopt;
    const qint64 day = QDate(local->tm_year + 1900, local->tm_mon + 1, local->tm_mday).toJulianDay();
    const qint64 second = (local->tm_hour * 60 + local->tm_min) * 60 + local->tm_sec;
    return (day * 86400 + second) * 1000 + modified % 1000;
}

qint64 toMsecs(const statx_timestamp &time)
{
    return time.tv_sec * 1000 + time.tv_nsec / 1000000;
}

/// What QFileInfo takes for the time of creation: where the file system keeps no birth time, that of the last
/// change of status. 0 where there is none.
qint64 createdMsecs(const struct statx &status)
{
    const qint64 birth = status.stx_mask & STATX_BTIME ? toMsecs(status.stx_btime) : 0;
    return birth ? birth : toMsecs(status.stx_ctime);
}

/// A file of a listing by time. Where there is a QFileInfo, it has read the file, and what it says counts.
struct TimedFile {
    QString path;
    std::optional<QFileInfo> info;
    std::optional<qint64> wallClock;
    qint64 size;
    qint64 created; ///< milliseconds since 1970 in UTC
};

/// What a listing needs of each of its files: a JSON list can do without the QFileInfo, which takes a second
/// look at the file and two fifths of the time.
enum class Need { QFileInfo, Facts };

/// Looks at the file @p name, relative to @p descriptor. A system without statx() leaves all to QFileInfo.
TimedFile timedFile(const QString &path, std::optional<QFileInfo> info, int descriptor, const char *name)
{
    struct statx status = {};
    const bool known = ::statx(descriptor, name, 0, STATX_BASIC_STATS | STATX_BTIME, &status) == 0;
    auto clock = known ? wallClock(toMsecs(status.stx_mtime)) : std::nullopt;
    if (!clock) {
        if (!info)
            info.emplace(path);
        clock = wallClock(*info);
    }
    if (info)
        static_cast<void>(info->size()); // makes it read the file, once and for all
    return {path, info, clock, static_cast<qint64>(status.stx_size), createdMsecs(status)};
}

/// The files of @p directory in the order in which it gives them.
std::vector<TimedFile> timedFiles(QDir directory, Need need)
{
    ::tzset();
    std::vector<TimedFile> files;
    const QString prefix = directory.path() + (directory.path().endsWith('/') ? "" : "/");
    const bool plain = scan(directory, DT_REG, [&](int descriptor, const char *name, int length) {
        QString path;
        path.reserve(prefix.size() + length);
        path.append(prefix).append(QLatin1String(name, length));
        const auto info = need == Need::QFileInfo ? std::make_optional<QFileInfo>(path) : std::nullopt;
        files.push_back(timedFile(path, info, descriptor, name));
    });
    if (plain)
        return files;
    files.clear();
    directory.setSorting(QDir::Unsorted);
    for (const QFileInfo &info : entryInfoList(directory))
        files.push_back(timedFile(info.filePath(), info, AT_FDCWD, QFile::encodeName(info.filePath())));
    return files;
}

/// The files of @p directory in the order QDir::Time | QDir::Reversed, at a fiftieth of the time that QDir
/// takes with its conversions at each comparison. The comparison, the sort and the order that is sorted are
/// those of QDir, so that the result is the same even where files without a time, equal to all others, make
/// the order contradict itself.
std::vector<TimedFile> filesByTime(const QDir &directory, Need need)
{
    std::vector<TimedFile> files = timedFiles(directory, need);
    std::sort(files.begin(), files.end(), [](const TimedFile &a, const TimedFile &b) {
        if (a.wallClock && b.wallClock && *a.wallClock != *b.wallClock)
            return *a.wallClock < *b.wallClock;
        return a.path > b.path; // alike up to the names
    });
    return files;
}

QFileInfoList infosByTime(const QDir &directory)
{
    const std::vector<TimedFile> files = filesByTime(directory, Need::QFileInfo);
    QFileInfoList infos;
    infos.reserve(static_cast<int>(files.size()));
    for (const TimedFile &file : files)
        infos.append(*file.info);
    return infos;
}

constexpr QDir::SortFlags OLDEST_FIRST = QDir::Time | QDir::Reversed;

/// The listings that a list of files consists of, by their name filters: of images those of the JPEG files of
/// all folders and then those of the PNG files of all folders, of anything else one.
using Passes = QVector<QStringList>;

/// Calls visit(directory, ready to be listed) for each folder of each pass.
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
    QFileInfoList files;
    forEachFolder(storage, passes, filter, [&files](const QDir &folder) { files += infosByTime(folder); });
    return files;
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
    if (!numbered.isValid()) // it matches nothing, and QRegularExpression would warn at each name
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

/// Two passes: the PNG files of all folders follow the JPEG files of all folders.
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
    const bool plain = scan(directory, DT_REG, [&count](int, const char *, int) { ++count; });
    return plain ? count : static_cast<int>(directory.count());
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
    // Asked although the location is what goes: it creates what is missing, and where it finds and creates
    // nothing there is nothing to delete. Not the folders' parents are deleted: with an empty suffix "." and
    // ".." are among them, whose parents lie above the location.
    if (!getDCIMFolders(storage).isEmpty())
        deleteFolder(absolutePath(getStorageDir(storage)));
}

// JSON file list

namespace {

/// The type of a file by its suffix: the categories, but Matroska by itself.
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

/// The same for a path that is known to be a file's.
eFileTypes typeOfFile(const QString &path)
{
    const int dot = path.lastIndexOf('.');
    return typeOfSuffix(dot > path.lastIndexOf('/') ? path.midRef(dot + 1) : QStringRef());
}

/// What QFileInfo::created() was: the birth time, or the last change of status where none is kept.
QDateTime createdTime(const QFileInfo &file)
{
    const QDateTime birth = file.birthTime();
    return birth.isValid() ? birth : file.metadataChangeTime();
}

struct DateAndTime {
    QString date;
    QString time;
};

/// Writes the last @p digits digits of @p number to the place that ends before @p end.
void putDigits(char *end, int number, int digits)
{
    for (; digits > 0; --digits, number /= 10)
        *--end = static_cast<char>('0' + number % 10);
}

DateAndTime createdText(const QFileInfo &file)
{
    const QDateTime created = createdTime(file);
    return {created.date().toString("yyyy-MM-dd"), created.time().toString(Qt::TextDate)};
}

/// The same from the time stamp, where that can be had without QDateTime.
std::optional<DateAndTime> createdText(qint64 created)
{
    const auto local = localTime(created);
    if (!local)
        return std::nullopt;
    char date[] = "yyyy-MM-dd";
    putDigits(date + 4, local->tm_year + 1900, 4);
    putDigits(date + 7, local->tm_mon + 1, 2);
    putDigits(date + 10, local->tm_mday, 2);
    char time[] = "hh:mm:ss";
    putDigits(time + 2, local->tm_hour, 2);
    putDigits(time + 5, local->tm_min, 2);
    putDigits(time + 8, local->tm_sec, 2);
    return DateAndTime{QLatin1String(date), QLatin1String(time)};
}

class JsonList
{
public:
    /// For paths below the location of @p storage.
    explicit JsonList(eStorageType storage)
        : mPrefix(absolutePath(VornFileHandler::getStorageDir(storage)) + "/")
    {
    }

    void append(const QFileInfo &file)
    {
        const QFileInfo source = withUsablePath(file);
        append(absolutePath(file), createdText(source), source.size(), typeOf(file));
    }

    void append(const TimedFile &file)
    {
        const auto created = createdText(file.created);
        if (file.info || !created)
            append(file.info ? *file.info : QFileInfo(file.path));
        else
            append(file.path, *created, file.size, typeOfFile(file.path));
    }

    QJsonArray array() const { return mArray; }

private:
    void append(QString path, const DateAndTime &created, qint64 size, eFileTypes type)
    {
        QJsonObject object = mBlank; // which takes two thirds of the time of putting in the keys one by one
        object[QLatin1String("filename")] = path.remove(mPrefix);
        object[QLatin1String("moddate")] = created.date;
        object[QLatin1String("modtime")] = created.time;
        object[QLatin1String("size")] = "0x" + QString::number(size, 16);
        object[QLatin1String("type")] = type;
        mArray.append(object);
    }

    const QString mPrefix;
    const QJsonObject mBlank{{"filename", {}}, {"moddate", {}}, {"modtime", {}}, {"size", {}}, {"type", {}}};
    QJsonArray mArray;
};

QJsonArray jsonOfStorage(eStorageType storage, const Passes &passes)
{
    JsonList list(storage);
    forEachFolder(storage, passes, DIRECTORY_FILTER_DCIM, [&list](const QDir &folder) {
        for (const TimedFile &file : filesByTime(folder, Need::Facts))
            list.append(file);
    });
    return findLocation(storage) ? list.array() : QJsonArray();
}

} // namespace

QJsonArray VornFileHandler::getJsonFileList(eStorageType storage, QList<QFileInfo> files)
{
    if (!findLocation(storage))
        return {};
    JsonList list(storage);
    for (const QFileInfo &file : files)
        list.append(file);
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

/// Whether the pipes of a process can be opened. QProcess warns on standard error where it cannot.
bool canOpenPipes()
{
    constexpr size_t NEEDED = 4; // input, output, errors, and one that tells that the program has begun
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

/// Objects whose process was not made, see keepSpare().
struct Spares {
    QMutex mutex;
    std::vector<std::unique_ptr<QProcess>> processes;
};

Spares &spares()
{
    static auto *const kept = new Spares; // never destroyed, because it destroys no process
    return *kept;
}

/// Qt 5.15 overlooks that clone() failed. It would wait for whatever descriptor it took for the process's,
/// close that, and kill process -1, which is every process there is. Waiting and destroying are out of the
/// question for such an object. Its pipes are at their ends, for nobody writes; it closes them and waits for
/// the next start, which sets anew all that it took wrongly.
void keepSpare(std::unique_ptr<QProcess> process)
{
    constexpr int MILLISECONDS = 100; // for children of other threads, which hold the pipes until their exec
    process->waitForStarted(MILLISECONDS);
    process->closeWriteChannel();
    const QMetaObject &members = *process->metaObject();
    for (const char *slot : {"_q_canReadStandardOutput()", "_q_canReadStandardError()"})
        members.method(members.indexOfMethod(slot)).invoke(process.get(), Qt::DirectConnection);
    struct Access : QProcess {
        using QProcess::setProcessState;
    };
    (process.get()->*&Access::setProcessState)(QProcess::NotRunning);
    const QMutexLocker lock(&spares().mutex);
    spares().processes.push_back(std::move(process));
}

std::unique_ptr<QProcess> newProcess()
{
    const QMutexLocker lock(&spares().mutex);
    if (spares().processes.empty()) {
        auto process = std::make_unique<QProcess>();
        process->moveToThread(nullptr); // its events are awaited here, never by the host's event loop
        return process;
    }
    std::unique_ptr<QProcess> spare = std::move(spares().processes.back());
    spares().processes.pop_back();
    return spare;
}

/// Starts @p program with its standard input open. None if no process could be made.
std::unique_ptr<QProcess> startProcess(const QString &program, const QStringList &arguments)
{
    if (program.isEmpty() || !canOpenPipes())
        return nullptr;
    auto process = newProcess();
    process->start(program, arguments, QIODevice::ReadWrite);
    if (process->processId() >= 0)
        return process;
    keepSpare(std::move(process));
    return nullptr;
}

/// Starts a command line: its first word is the program. An unclosed quote reaches to the end of the line.
std::unique_ptr<QProcess> startLine(const QString &line)
{
    QStringList words = QProcess::splitCommand(line);
    const QString program = words.isEmpty() ? QString() : words.takeFirst();
    return startProcess(program, words);
}

/// All that @p process printed on @p channel, up to the first zero byte.
QString readText(QProcess &process, QProcess::ProcessChannel channel)
{
    process.setReadChannel(channel);
    return QString::fromUtf8(process.readAll().constData());
}

} // namespace

qint8 VornFileHandler::execCmdLine(QString command, QStringList arguments, QString &stdOut, QString &stdErr,
                                   int timeout)
{
    stdOut.clear();
    stdErr.clear();
    const auto process = arguments.isEmpty() ? startLine(command) : startProcess(command, arguments);
    if (!process)
        return 0;
    process->waitForFinished(timeout);
    stdOut = readText(*process, QProcess::StandardOutput);
    stdErr = readText(*process, QProcess::StandardError);
    const bool running = process->state() != QProcess::NotRunning;
    // A program that was not found has 255 in QProcess, from the child that failed to become it.
    const bool ended = !running && process->error() != QProcess::FailedToStart;
    process->terminate();
    if (running) { // the destructor would kill it just so, but say so on standard error
        process->kill();
        process->waitForFinished(-1);
    }
    return ended ? static_cast<qint8>(process->exitCode()) : qint8(0);
}

namespace {

/// Runs a command line in a shell. The double quote is not closed: the splitting of the line ends it.
bool runShell(const QString &line, QString &output)
{
    QString errors;
    return VornFileHandler::execCmdLine("sh -c \"" + line, QStringList(), output, errors, -1) == 0;
}

/// Runs "df" on the storage's mount path and gives the wanted column as awk prints it, its header included;
/// an empty text where that fails.
QString dfColumn(eStorageType type, const QString &column)
{
    if (!VornFileHandler::isMounted(type))
        return QString();
    QString output;
    const QString path = VornFileHandler::typeToMountPath(type);
    return runShell("df " + path + " | awk '{ print $" + column + " }'", output) ? output : QString();
}

/// Bytes in @p blocks, a number of 1024-byte blocks; 0 for anything else, and beyond 32 bits.
qint64 blocksToBytes(QString blocks)
{
    return qint64(blocks.remove('\n').toInt()) * 1024;
}

} // namespace

bool VornFileHandler::isMounted(eStorageType type)
{
    const QString name = typeToMmcBlk(type);
    QString output;
    const bool found = runShell("cat /proc/partitions | grep " + name, output);
    // Every text contains an empty name, but a storage without one is not there, whatever grep makes of it.
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
    // 0 / 0 is no number, and what df makes up may lie anywhere.
    return free <= size && std::abs(percent) < 2147483648.0F ? static_cast<int>(percent) : 0;
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

/// The path of @p name in @p folder, with a counter if that is taken. The last counter is handed out even
/// when it is taken as well.
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
    // The counts belong to the folder that a record was filled from, and stay with it.
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

namespace {

/// The files directly in @p folder. In no order: none of the sums over them depends on one, and the order
/// by time is what a listing costs most for.
QFileInfoList filesOf(const QFileInfo &folder)
{
    return VornFileHandler::getDirectoryContents(absolutePath(folder), QStringList(), QDir::Unsorted);
}

} // namespace

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
    // Exiv2 encodes the text itself, by the character set named in front of it.
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

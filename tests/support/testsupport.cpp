// SPDX-License-Identifier: MIT
#include "testsupport.h"

#include <QDir>
#include <QTemporaryFile>
#include <QTextCodec>

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstdio>
#include <stdexcept>

#include <dirent.h>
#include <fcntl.h>
#include <sched.h>
#include <sys/mman.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

using namespace VORN_FILE_HANDLER;

namespace {

[[maybe_unused]] const bool NAMES_ARE_UTF8 = [] {
    QTextCodec::setCodecForLocale(QTextCodec::codecForName("UTF-8"));
    return true;
}();

void collect(const QByteArray &path, const QByteArray &prefix, Tree &entries)
{
    DIR *stream = ::opendir(path.constData());
    if (!stream)
        return;
    while (const dirent *entry = ::readdir(stream)) {
        const QByteArray name = entry->d_name;
        if (name == "." || name == "..")
            continue;
        const QByteArray full = path + "/" + name;
        struct stat status = {};
        require(::lstat(full.constData(), &status) == 0, "lstat " + full);
        if (S_ISDIR(status.st_mode)) {
            entries.append(prefix + name + "/");
            collect(full, prefix + name + "/", entries);
        } else if (S_ISLNK(status.st_mode)) {
            char target[PATH_MAX];
            const ssize_t length = ::readlink(full.constData(), target, sizeof target);
            require(length >= 0, "readlink " + full);
            entries.append(prefix + name + " -> " + QByteArray(target, static_cast<int>(length)));
        } else {
            entries.append(prefix + name);
        }
    }
    ::closedir(stream);
}

/// Removes @p mark and the text after it from @p name and returns the text; nullopt without the mark.
std::optional<QByteArray> takeText(QByteArray &name, const char *mark)
{
    const int place = name.indexOf(mark);
    if (place < 0)
        return std::nullopt;
    const QByteArray text = name.mid(place + static_cast<int>(qstrlen(mark)));
    name.truncate(place);
    return text;
}

/// The same for the last @p mark if a number follows.
std::optional<double> takeNumber(QByteArray &name, const char *mark)
{
    const int place = name.lastIndexOf(mark);
    bool isNumber = false;
    const double number =
        place < 0 ? 0 : name.mid(place + static_cast<int>(qstrlen(mark))).toDouble(&isNumber);
    if (!isNumber)
        return std::nullopt;
    name.truncate(place);
    return number;
}

void makeParents(const QByteArray &path)
{
    for (int slash = path.indexOf('/', 1); slash > 0; slash = path.indexOf('/', slash + 1))
        ::mkdir(path.left(slash).constData(), 0755);
}

// Exit status of the child process
constexpr int DONE = 0;
constexpr int NOT_ALLOWED = 1;
constexpr int FAILED = 2;

[[noreturn]] void runInChild(const std::function<bool()> &mountAll, const std::function<QByteArray()> &work,
                             int result)
{
    // Mounts private to this process: they vanish with it, and other processes never see them.
    if (::unshare(CLONE_NEWNS) != 0 || ::mount("none", "/", "", MS_REC | MS_PRIVATE, nullptr) != 0
        || !mountAll())
        ::_exit(NOT_ALLOWED);
    try {
        const QByteArray bytes = work();
        const bool written =
            ::write(result, bytes.constData(), static_cast<size_t>(bytes.size())) == bytes.size();
        ::_exit(written ? DONE : FAILED);
    } catch (...) {
        ::_exit(FAILED);
    }
}

std::optional<QByteArray> runWithOwnMounts(const std::function<bool()> &mountAll,
                                           const std::function<QByteArray()> &work)
{
    QTemporaryFile result;
    require(result.open(), "temporary file");
    const pid_t child = ::fork();
    require(child >= 0, "fork");
    if (child == 0)
        runInChild(mountAll, work, result.handle());
    int status = 0;
    require(::waitpid(child, &status, 0) == child, "waitpid");
    if (WIFEXITED(status) && WEXITSTATUS(status) == NOT_ALLOWED)
        return std::nullopt;
    require(WIFEXITED(status) && WEXITSTATUS(status) == DONE, "child process");
    result.seek(0);
    return result.readAll();
}

} // namespace

void require(bool condition, const QByteArray &what)
{
    if (!condition)
        throw std::runtime_error(what.toStdString());
}

StandardErrorCapture::StandardErrorCapture()
    : mFile(::memfd_create("standard error", MFD_CLOEXEC)), mSavedDescriptor(::dup(STDERR_FILENO)),
      mSavedHandler(qInstallMessageHandler(nullptr))
{
    require(mFile >= 0 && mSavedDescriptor >= 0, "memfd_create");
    std::fflush(stderr);
    ::dup2(mFile, STDERR_FILENO);
}

StandardErrorCapture::~StandardErrorCapture()
{
    std::fflush(stderr);
    ::dup2(mSavedDescriptor, STDERR_FILENO);
    ::close(mSavedDescriptor);
    ::close(mFile);
    qInstallMessageHandler(mSavedHandler);
}

QByteArray StandardErrorCapture::take()
{
    std::fflush(stderr);
    struct stat status = {};
    require(::fstat(mFile, &status) == 0, "fstat");
    QByteArray text(static_cast<int>(status.st_size - mTaken), '\0');
    require(::pread(mFile, text.data(), static_cast<size_t>(text.size()), mTaken) == text.size(), "pread");
    mTaken = status.st_size;
    return text;
}

QByteArray diagnosticLine(const QByteArray &text)
{
    return "\x1b[36m " + text + " \x1b[0m\n";
}

QByteArray missingLocationLine(const QString &location)
{
    return diagnosticLine("root dir " + location.toUtf8() + " doesn't exist. Create it");
}

QByteArray missingDirectoryLine(const QString &path)
{
    return diagnosticLine("directory " + path.toUtf8() + " doesn't exist");
}

QByteArray noFolderNumberLine()
{
    return diagnosticLine("directory is not a number, continue to check remaining directories");
}

QByteArray noFileNumberLine()
{
    return diagnosticLine("problem finding the file number in this filename, continue to the next file");
}

Tree tree(const QString &path)
{
    Tree entries;
    collect(QFile::encodeName(path), QByteArray(), entries);
    return sorted(entries);
}

Tree treeWithContents(const QString &path)
{
    Tree entries = tree(path);
    for (QByteArray &entry : entries) {
        QFile file(path + "/" + QFile::decodeName(entry));
        if (!entry.endsWith('/') && !entry.contains(" -> ") && file.open(QIODevice::ReadOnly)
            && file.size() > 0)
            entry += " = " + file.readAll();
    }
    return entries;
}

Tree inFolder(const QByteArray &folder, const Tree &entries)
{
    Tree all = {folder};
    for (const QByteArray &entry : entries)
        all.append(folder + entry);
    return all;
}

Tree sorted(Tree entries)
{
    std::sort(entries.begin(), entries.end());
    return entries;
}

void writeFile(const QByteArray &path, const QByteArray &content)
{
    makeParents(path);
    const int descriptor = ::open(path.constData(), O_CREAT | O_TRUNC | O_WRONLY | O_CLOEXEC, 0644);
    require(descriptor >= 0, "open " + path);
    require(::write(descriptor, content.constData(), static_cast<size_t>(content.size())) == content.size(),
            "write");
    ::close(descriptor);
}

void writeFile(const QString &path, const QByteArray &content)
{
    writeFile(QFile::encodeName(path), content);
}

QByteArray contentOf(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray("unreadable");
}

void makeTree(const QString &path, const Tree &entries)
{
    const QByteArray root = QFile::encodeName(path) + "/";
    for (QByteArray name : entries) {
        const QByteArray content = takeText(name, " = ").value_or(QByteArray());
        const auto seconds = takeNumber(name, " at ");
        const auto size = takeNumber(name, " size ");
        const auto target = takeText(name, " -> ");
        const QByteArray full = root + name;
        makeParents(full);
        if (name.endsWith('/'))
            continue;
        if (target) {
            require(::symlink(target->constData(), full.constData()) == 0, "symlink " + full);
            continue;
        }
        writeFile(full, content);
        if (size)
            require(::truncate(full.constData(), static_cast<off_t>(*size)) == 0, "truncate " + full);
        if (seconds)
            setModified(full, std::llround(*seconds * 1000));
    }
}

void clearTree(const QString &path)
{
    Tree entries = tree(path);
    std::reverse(entries.begin(), entries.end()); // the content of a folder comes before the folder
    for (const QByteArray &entry : entries) {
        const int arrow = entry.indexOf(" -> ");
        ::remove((QFile::encodeName(path) + "/" + (arrow < 0 ? entry : entry.left(arrow))).constData());
    }
}

void setModified(const QByteArray &path, qint64 msecs)
{
    const qint64 seconds = msecs >= 0 ? msecs / 1000 : (msecs - 999) / 1000; // nanoseconds are never negative
    const timespec time = {static_cast<time_t>(seconds),
                           static_cast<long>((msecs - seconds * 1000) * 1000000)};
    const timespec times[] = {time, time};
    require(::utimensat(AT_FDCWD, path.constData(), times, 0) == 0, "utimensat " + path);
}

qint64 creationTime(const QByteArray &path)
{
    struct statx status = {};
    require(::statx(AT_FDCWD, path.constData(), 0, STATX_BASIC_STATS | STATX_BTIME, &status) == 0,
            "statx " + path);
    const statx_timestamp &time = status.stx_mask & STATX_BTIME ? status.stx_btime : status.stx_ctime;
    return time.tv_sec * 1000 + time.tv_nsec / 1000000;
}

QStringList fileNames(const QFileInfoList &files)
{
    QStringList names;
    for (const QFileInfo &file : files)
        names.append(file.fileName());
    return names;
}

QByteArrayList relativePaths(const QFileInfoList &files, const QString &folder)
{
    QByteArrayList paths;
    for (const QFileInfo &file : files)
        paths.append(QDir(folder).relativeFilePath(file.absoluteFilePath()).toUtf8());
    return paths;
}

void fillRecord(Metadata &record, int base)
{
    record.mType = FILE_TYPE_AUDIO_WAV;
    record.mFileName = "former" + QString::number(base);
    record.mSize = base + 77;
    record.mCreated = QDateTime::fromMSecsSinceEpoch(base + 1000);
    record.mLastModified = QDateTime::fromMSecsSinceEpoch(base + 2000);
    int value = base;
    for (int *field : {&record.mWidth, &record.mHeight, &record.mLength, &record.mBitrate, &record.mFramerate,
                       &record.mImageCount, &record.mThumbCount, &record.mVideoCount, &record.mAudioCount})
        *field = ++value;
}

QVariantList fieldsOf(const Metadata &record)
{
    return {int(record.mType),    record.mFileName,  record.mSize,       record.mCreated,
            record.mLastModified, record.mWidth,     record.mHeight,     record.mLength,
            record.mBitrate,      record.mFramerate, record.mImageCount, record.mThumbCount,
            record.mVideoCount,   record.mAudioCount};
}

Storages::Storages(const QString &suffix)
{
    require(mDirectory.isValid(), "temporary directory");
    const StandardErrorCapture banner;
    VornFileHandler::init(suffix, location(STORAGE_MMC), QString(), location(STORAGE_SD), QString(),
                          location(STORAGE_USB), QString());
}

Storages::~Storages()
{
    const StandardErrorCapture banner;
    VornFileHandler::init(QString(), "/tmp", QString(), "/tmp", QString(), "/tmp", QString());
    VornFileHandler::mbIsLibInitialized = false;
    clearTree(path()); // QTemporaryDir does not see names that are not UTF-8
}

QString Storages::location(eStorageType storage) const
{
    static const char *const NAMES[] = {"mmc", "sd", "usb"};
    return path() + "/" + NAMES[storage] + "/DCIM";
}

CurrentDirectory::CurrentDirectory(const QString &path) : mSaved(QDir::currentPath())
{
    require(QDir::setCurrent(path), "chdir");
}

CurrentDirectory::~CurrentDirectory()
{
    QDir::setCurrent(mSaved);
}

EnvironmentVariable::EnvironmentVariable(const char *name, const QByteArray &value)
    : mName(name), mSaved(qgetenv(name))
{
    set(name, value);
}

EnvironmentVariable::~EnvironmentVariable()
{
    set(mName, mSaved);
}

void EnvironmentVariable::set(const char *name, const QByteArray &value)
{
    if (value.isNull())
        qunsetenv(name);
    else
        qputenv(name, value);
}

std::optional<QByteArray> onReadOnlyFileSystem(const QString &folder, const std::function<QByteArray()> &work)
{
    const QByteArray path = QFile::encodeName(folder);
    const auto mountAll = [&path] {
        return ::mount(path.constData(), path.constData(), "", MS_BIND, nullptr) == 0
               && ::mount("none", path.constData(), "", MS_REMOUNT | MS_BIND | MS_RDONLY, nullptr) == 0;
    };
    return runWithOwnMounts(mountAll, work);
}

std::optional<QByteArray> onSmallFileSystem(const QString &folder, int bytes,
                                            const std::function<QByteArray()> &work)
{
    const auto mountAll = [path = QFile::encodeName(folder), size = "size=" + QByteArray::number(bytes)] {
        return ::mount("tmpfs", path.constData(), "tmpfs", 0, size.constData()) == 0;
    };
    return runWithOwnMounts(mountAll, work);
}

std::optional<QByteArray> withEmptyTmp(const std::function<QByteArray()> &work)
{
    const auto mountAll = [] {
        return ::mount("tmpfs", "/tmp", "tmpfs", 0, nullptr) == 0 && tree("/tmp").isEmpty();
    };
    return runWithOwnMounts(mountAll, work);
}

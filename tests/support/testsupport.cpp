// SPDX-License-Identifier: MIT
#include "testsupport.h"

#include <QDir>

#include <algorithm>
#include <climits>
#include <cstdio>
#include <stdexcept>

#include <dirent.h>
#include <fcntl.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

using namespace VORN_FILE_HANDLER;

namespace {

void require(bool condition, const QByteArray &what)
{
    if (!condition)
        throw std::runtime_error(what.toStdString());
}

void collect(const QByteArray &path, const QByteArray &prefix, QList<QByteArray> &entries)
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

/// Cuts @p name before @p mark and returns what follows the mark; nullopt if it has none.
std::optional<QByteArray> cutBehind(QByteArray &name, const char *mark)
{
    const int place = name.indexOf(mark);
    if (place < 0)
        return std::nullopt;
    const QByteArray rest = name.mid(place + static_cast<int>(qstrlen(mark)));
    name.truncate(place);
    return rest;
}

/// The same for a number at the end of @p name.
std::optional<qint64> cutNumber(QByteArray &name, const char *mark)
{
    const int place = name.lastIndexOf(mark);
    bool isNumber = false;
    const qint64 number =
        place < 0 ? 0 : name.mid(place + static_cast<int>(qstrlen(mark))).toLongLong(&isNumber);
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

/// With which the child process ends.
constexpr int DONE = 0;
constexpr int NOT_ALLOWED = 1;
constexpr int FAILED = 2;

[[noreturn]] void runInChild(const std::function<bool()> &mountAll, const std::function<QByteArray()> &work,
                             int answer)
{
    // Mounts of this process alone: they vanish with it, and others never see them.
    if (::unshare(CLONE_NEWNS) != 0 || ::mount("none", "/", "", MS_REC | MS_PRIVATE, nullptr) != 0
        || !mountAll())
        ::_exit(NOT_ALLOWED);
    try {
        const QByteArray text = work();
        const bool written =
            ::write(answer, text.constData(), static_cast<size_t>(text.size())) == text.size();
        ::_exit(written ? DONE : FAILED);
    } catch (...) {
        ::_exit(FAILED);
    }
}

std::optional<QByteArray> runApart(const std::function<bool()> &mountAll,
                                   const std::function<QByteArray()> &work)
{
    QTemporaryFile answer;
    require(answer.open(), "temporary file");
    const pid_t child = ::fork();
    require(child >= 0, "fork");
    if (child == 0)
        runInChild(mountAll, work, answer.handle());
    int status = 0;
    require(::waitpid(child, &status, 0) == child, "waitpid");
    if (WIFEXITED(status) && WEXITSTATUS(status) == NOT_ALLOWED)
        return std::nullopt;
    require(WIFEXITED(status) && WEXITSTATUS(status) == DONE, "child process");
    answer.seek(0);
    return answer.readAll();
}

} // namespace

StandardErrorCapture::StandardErrorCapture()
{
    require(mFile.open(), "temporary file");
    mSavedHandler = qInstallMessageHandler(nullptr);
    std::fflush(stderr);
    mSavedDescriptor = ::dup(STDERR_FILENO);
    ::dup2(mFile.handle(), STDERR_FILENO);
}

StandardErrorCapture::~StandardErrorCapture()
{
    std::fflush(stderr);
    ::dup2(mSavedDescriptor, STDERR_FILENO);
    ::close(mSavedDescriptor);
    qInstallMessageHandler(mSavedHandler);
}

QByteArray StandardErrorCapture::take()
{
    std::fflush(stderr);
    struct stat status = {};
    require(::fstat(mFile.handle(), &status) == 0, "fstat");
    QByteArray text(static_cast<int>(status.st_size - mTaken), '\0');
    require(::pread(mFile.handle(), text.data(), static_cast<size_t>(text.size()), mTaken) == text.size(),
            "pread");
    mTaken = status.st_size;
    return text;
}

QByteArray diagnosticLine(const QByteArray &text)
{
    return "\x1b[36m " + text + " \x1b[0m\n";
}

Tree tree(const QString &path)
{
    Tree entries;
    collect(QFile::encodeName(path), QByteArray(), entries);
    std::sort(entries.begin(), entries.end());
    return entries;
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

void makeTree(const QString &path, const Tree &entries)
{
    const QByteArray root = QFile::encodeName(path) + "/";
    for (QByteArray name : entries) {
        const QByteArray content = cutBehind(name, " = ").value_or(QByteArray());
        const auto time = cutNumber(name, " at ");
        const auto size = cutNumber(name, " size ");
        const auto target = cutBehind(name, " -> ");
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
            require(::truncate(full.constData(), *size) == 0, "truncate " + full);
        if (time)
            setModified(full, *time * 1000);
    }
}

void clearTree(const QString &path)
{
    QList<QByteArray> entries = tree(path);
    std::reverse(entries.begin(), entries.end()); // what a folder holds comes before the folder
    for (const QByteArray &entry : entries) {
        const int arrow = entry.indexOf(" -> ");
        ::remove((QFile::encodeName(path) + "/" + (arrow < 0 ? entry : entry.left(arrow))).constData());
    }
}

void setModified(const QByteArray &path, qint64 msecs)
{
    const qint64 seconds = msecs >= 0 ? msecs / 1000 : (msecs - 999) / 1000; // nanoseconds count up from it
    timespec times[2];
    times[0] =
        times[1] = {static_cast<time_t>(seconds), static_cast<long>((msecs - seconds * 1000) * 1000000)};
    require(::utimensat(AT_FDCWD, path.constData(), times, 0) == 0, "utimensat " + path);
}

QStringList fileNames(const QList<QFileInfo> &files)
{
    QStringList names;
    for (const QFileInfo &file : files)
        names.append(file.fileName());
    return names;
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
    clearTree(path()); // QTemporaryDir does not see every name
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

std::optional<QByteArray> onReadOnlyMedium(const QString &folder, const std::function<QByteArray()> &work)
{
    const QByteArray path = QFile::encodeName(folder);
    const auto mountAll = [&path] {
        return ::mount(path.constData(), path.constData(), "", MS_BIND, nullptr) == 0
               && ::mount("none", path.constData(), "", MS_REMOUNT | MS_BIND | MS_RDONLY, nullptr) == 0;
    };
    return runApart(mountAll, work);
}

std::optional<QByteArray> onSmallMedium(const QString &folder, int bytes,
                                        const std::function<QByteArray()> &work)
{
    const auto mountAll = [path = QFile::encodeName(folder), size = "size=" + QByteArray::number(bytes)] {
        return ::mount("tmpfs", path.constData(), "tmpfs", 0, size.constData()) == 0;
    };
    return runApart(mountAll, work);
}

std::optional<QByteArray> withEmptyTmp(const std::function<QByteArray()> &work)
{
    const auto mountAll = [] {
        return ::mount("tmpfs", "/tmp", "tmpfs", 0, nullptr) == 0 && tree("/tmp").isEmpty();
    };
    return runApart(mountAll, work);
}

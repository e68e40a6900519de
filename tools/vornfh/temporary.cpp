// SPDX-License-Identifier: MIT
#include "temporary.h"

#include "errors.h"
#include "files.h"
#include "mounts.h"
#include "output.h"
#include "text.h"

#include <QFile>
#include <QFileInfo>
#include <QRandomGenerator>
#include <QRegularExpression>
#include <QSet>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <utility>

#include <fcntl.h>
#include <linux/fs.h>
#include <sys/file.h>
#include <sys/ioctl.h>
#include <unistd.h>

namespace {

const QString MARK_EXTENSION = ".renaming";

/// The names of temporary files and marks, but not their short names on FAT, such as "VORNFH~1". A file has
/// only its short name if its long name was lost in a power failure or by a device that writes no long names.
/// It may then be one of the user's own files ("vornfh-notes"), or share its content with a renamed file
/// whose mark has lost its name too. It is therefore kept; if it is in a numbered folder, "check" reports it
/// as a file of another type.
const QRegularExpression &namePattern()
{
    static const QRegularExpression PATTERN(R"(^\.vornfh-([0-9]+)-[A-Za-z0-9]{6}(\.renaming)?$)");
    return PATTERN;
}

/// Returns whether another process with the ID @p number runs this tool.
bool isRunning(pid_t number)
{
    if (number == ::getpid() || ::kill(number, 0) != 0)
        return false;
    const auto programOf = [](const QString &process) {
        return QFile::symLinkTarget("/proc/" + process + "/exe");
    };
    return programOf(QString::number(number)) == programOf("self");
}

/// The names that this process has given to temporary files. An earlier process may have had the same process
/// ID.
class GivenNames
{
public:
    void add(const QString &path)
    {
        const std::lock_guard<std::mutex> lock(mMutex);
        mNames.insert(path.section('/', -1));
    }
    bool contains(const QString &name) const
    {
        const std::lock_guard<std::mutex> lock(mMutex);
        return mNames.contains(name);
    }

private:
    mutable std::mutex mMutex;
    QSet<QString> mNames;
};

GivenNames &givenNames()
{
    static GivenNames names;
    return names;
}

/// Returns whether no process uses the file @p path. The lock reveals a process in another container, whose
/// processes cannot be seen; the process ID reveals one that is renaming the file at that moment.
bool isLeftover(const QString &path)
{
    const QString name = path.section('/', -1);
    const auto match = namePattern().match(name);
    const Descriptor file = openFile(path, O_RDONLY | O_NOFOLLOW | O_NONBLOCK);
    return match.hasMatch() && !givenNames().contains(name) && !isRunning(match.captured(1).toInt())
           && file.isOpen() && ::flock(file.get(), LOCK_EX | LOCK_NB) == 0;
}

/// The names in @p folder that begin like those of temporary files, sorted. QDir would match each of
/// thousands of names with a regular expression.
QStringList temporaryNamesIn(const QString &folder)
{
    QStringList names;
    forEachEntry(folder, [&names](int, const dirent &entry) {
        if (qstrncmp(entry.d_name, ".vornfh-", 8) == 0)
            names.append(QFile::decodeName(entry.d_name));
    });
    names.sort();
    return names;
}

constexpr int RANDOM_LENGTH = 6;

QByteArray nameTemplate(const QString &folder)
{
    return QFile::encodeName(folder) + "/.vornfh-" + QByteArray::number(::getpid()) + "-XXXXXX";
}

/// Creates a file whose name ends in @p extension, and locks it. On failure, throws a FileFailure that names
/// the path @p concerning.
Descriptor createHidden(const QString &folder, const QString &extension, const QString &concerning,
                        QString &created)
{
    QByteArray path = nameTemplate(folder) + extension.toLatin1();
    Descriptor file(::mkostemps(path.data(), extension.size(), O_CLOEXEC));
    if (!file.isOpen())
        throw FileFailure(concerning,
                          QString("no file can be created in %1: %2").arg(folder, errorText(errno)));
    ::flock(file.get(), LOCK_EX | LOCK_NB);
    created = QFile::decodeName(path);
    givenNames().add(created);
    return file;
}

/// Returns whether the mark @p path was made after the device of its folder appeared.
bool isOfThisSession(const QString &path)
{
    QFile mark(path);
    const QByteArray session = sessionOf(path);
    return !session.isEmpty() && mark.open(QIODevice::ReadOnly) && mark.readAll().startsWith(session);
}

/// Flushes the file system of @p folder: as long as a deleted file can come back, its mark is needed.
bool isFlushed(const QString &folder)
{
    const Descriptor descriptor = openFolder(folder);
    return ::syncfs(descriptor.get()) == 0 && (::fsync(descriptor.get()) == 0 || errno == EINVAL);
}

/// What RenameMark::setReplacement() has recorded in a mark. Without a path, it has recorded nothing.
struct Replacement {
    QString path;
    QStringList files;
};

Replacement replacementIn(const QString &path)
{
    QFile mark(path);
    const QByteArrayList names =
        mark.open(QIODevice::ReadOnly) ? mark.readAll().split('\n') : QByteArrayList();
    const QString folder = QFileInfo(path).path() + "/";
    Replacement found;
    for (int i = 1; i + 1 < names.size(); ++i) { // the last one may be incomplete
        const QString file = folder + QFile::decodeName(names[i]);
        if (i == 1)
            found.path = names[i].contains('/') ? QString() : file;
        else if (namePattern().match(QFile::decodeName(names[i])).hasMatch())
            found.files.append(file);
    }
    return found;
}

bool isUnfinished(const Replacement &replacement)
{
    return !replacement.path.isEmpty() && !isEntry(replacement.path)
           && std::any_of(replacement.files.begin(), replacement.files.end(), isEntry);
}

/// Restores the missing name of a replacement from the first of its files that exists. The name is given to a
/// copy: if the power fails again, the file is still there.
void finish(const Replacement &replacement)
{
    const auto found = std::find_if(replacement.files.begin(), replacement.files.end(), isEntry);
    const QString folder = QFileInfo(replacement.path).path();
    const Descriptor whole = openFile(*found, O_RDONLY | O_NOFOLLOW | O_NONBLOCK);
    struct stat status = {};
    TemporaryFile copy(folder, replacement.path);
    const bool isCopied =
        whole.isOpen() && ::fstat(whole.get(), &status) == 0 && copyContent(whole.get(), copy.descriptor());
    if (isCopied)
        setAttributes(copy.descriptor(), status); // as far as possible: FAT keeps no owner
    if (!isCopied || ::fsync(copy.descriptor()) != 0 || !isFlushed(folder)
        || !copy.rename(replacement.path, false) || !isFlushed(folder))
        throw FileFailure(replacement.path, "was being replaced and cannot be restored: " + errorText(errno));
    printError(replacement.path + ": an interrupted command was replacing it; restored");
}

void removeLeftover(const QString &path)
{
    if (::remove(QFile::encodeName(path).constData()) == 0)
        printError(path + ": left by an interrupted command; removed");
    else
        printError(path + ": left by an interrupted command and cannot be removed: " + errorText(errno));
}

} // namespace

TemporaryFolder::TemporaryFolder(const QString &folder)
{
    QByteArray path = nameTemplate(folder);
    do {
        const QByteArray random = QByteArray::number(QRandomGenerator::global()->generate(), 36);
        path.replace(path.size() - RANDOM_LENGTH, RANDOM_LENGTH,
                     random.rightJustified(RANDOM_LENGTH, '0', true));
        mPath = ::mkdir(path.constData(), 0777) == 0 ? QFile::decodeName(path) : QString();
    } while (!isCreated() && errno == EEXIST);
    givenNames().add(mPath);
}

TemporaryFolder::~TemporaryFolder()
{
    if (isCreated())
        ::rmdir(QFile::encodeName(mPath).constData());
}

bool TemporaryFolder::rename(const QString &path)
{
    const bool isRenamed = renameToNew(mPath, path);
    if (isRenamed)
        mPath.clear();
    return isRenamed;
}

TemporaryFile::TemporaryFile(const QString &folder, const QString &concerning)
    : mFile(createHidden(folder, QString(), concerning, mPath))
{
}

TemporaryFile::TemporaryFile(TemporaryFile &&other) noexcept
    : mPath(std::exchange(other.mPath, QString())), mFile(std::move(other.mFile))
{
}

TemporaryFile::~TemporaryFile()
{
    if (!mPath.isEmpty())
        ::unlink(QFile::encodeName(mPath).constData());
}

bool TemporaryFile::takePlaceOf(const QString &path)
{
    return mFile.close()
           && ::rename(QFile::encodeName(path).constData(), QFile::encodeName(mPath).constData()) == 0;
}

bool TemporaryFile::rename(const QString &path, bool isReplacing)
{
    if (mFile.isOpen() && !mFile.close())
        return false;
    const bool isRenamed =
        isReplacing ? ::rename(QFile::encodeName(mPath).constData(), QFile::encodeName(path).constData()) == 0
                    : renameToNew(mPath, path);
    if (isRenamed)
        mPath.clear();
    return isRenamed;
}

RenameMark::RenameMark(const QString &folder)
{
    if (fileSystemOf(folder) == FileSystem::Other)
        return;
    mFile = createHidden(folder, MARK_EXTENSION, folder, mPath);
    write(sessionOf(folder)); // on a full device the mark stays empty and is later treated as an old one
}

void RenameMark::setReplacement(const QString &path, const QStringList &files)
{
    const QByteArray session = sessionOf(path);
    QByteArray content = session.isEmpty() ? "\n" : session;
    for (const QString &file : QStringList{path} + files)
        content += QFile::encodeName(QFileInfo(file).fileName()) + "\n";
    if (!write(content) || ::fsync(mFile.get()) != 0)
        throw FileFailure(path, "cannot be replaced safely: " + errorText(errno));
}

bool RenameMark::write(const QByteArray &content)
{
    return ::pwrite(mFile.get(), content.constData(), static_cast<size_t>(content.size()), 0)
           == content.size();
}

void RenameMark::remove()
{
    if (isNeeded())
        ::unlink(QFile::encodeName(mPath).constData());
}

Leftovers leftoversIn(const QString &folder)
{
    Leftovers found;
    for (const QString &name : temporaryNamesIn(folder)) {
        const QString path = folder + "/" + name;
        struct stat status = {};
        const bool isPossible =
            readLinkStatus(path, status) && (S_ISREG(status.st_mode) || S_ISDIR(status.st_mode));
        if (!isPossible || !isLeftover(path))
            continue;
        const bool isMark = name.endsWith(MARK_EXTENSION);
        (isMark ? found.marks : found.paths).append(path);
        const Replacement replacement = isMark ? replacementIn(path) : Replacement();
        if (isUnfinished(replacement))
            found.missing.append(replacement.path);
        found.mayShareContent |= isMark && !isOfThisSession(path);
    }
    return found;
}

void removeLeftovers(const QString &folder)
{
    for (const QString &mark : leftoversIn(folder).marks) {
        const Replacement replacement = replacementIn(mark);
        if (isUnfinished(replacement))
            finish(replacement);
    }
    const Leftovers leftovers = leftoversIn(folder);
    for (const QString &path : leftovers.paths) {
        if (leftovers.areSafeToDelete())
            removeLeftover(path);
        else
            printError(path + ": left by an interrupted command and kept: " + MAY_SHARE_CONTENT);
    }
    if (leftovers.marks.isEmpty())
        return;
    if (leftovers.paths.isEmpty() || (leftovers.areSafeToDelete() && isFlushed(folder))) {
        for (const QString &mark : leftovers.marks)
            ::unlink(QFile::encodeName(mark).constData());
    }
}

bool renameToNew(const QString &from, const QString &to)
{
    const QByteArray source = QFile::encodeName(from);
    const QByteArray target = QFile::encodeName(to);
    if (::renameat2(AT_FDCWD, source.constData(), AT_FDCWD, target.constData(), RENAME_NOREPLACE) == 0)
        return true;
    if (errno != EINVAL && errno != ENOSYS) // some file systems in user space cannot do that
        return false;
    if (isEntry(to)) {
        errno = EEXIST;
        return false;
    }
    return ::rename(source.constData(), target.constData()) == 0;
}

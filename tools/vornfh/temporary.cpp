// SPDX-License-Identifier: MIT
#include "temporary.h"

#include "errors.h"
#include "mounts.h"
#include "output.h"
#include "text.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QRandomGenerator>
#include <QRegularExpression>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <utility>

#include <fcntl.h>
#include <linux/fs.h>
#include <signal.h>
#include <sys/file.h>
#include <sys/ioctl.h>
#include <unistd.h>

namespace {

const QRegularExpression &namePattern()
{
    static const QRegularExpression PATTERN(R"(^\.vornfh-([0-9]+)-[A-Za-z0-9]{6}$)");
    return PATTERN;
}

/// Returns whether process @p number runs this tool.
bool isRunning(pid_t number)
{
    if (number == ::getpid() || ::kill(number, 0) != 0)
        return number == ::getpid();
    const auto programOf = [](const QString &process) {
        return QFile::symLinkTarget("/proc/" + process + "/exe");
    };
    return programOf(QString::number(number)) == programOf("self");
}

/// Returns whether no process uses the file @p path. The lock reveals a process in another container, whose
/// processes cannot be seen; the process number reveals one that is replacing the file at that moment.
bool isLeftover(const QString &path)
{
    const auto match = namePattern().match(path.mid(path.lastIndexOf('/') + 1));
    const Descriptor file = openFile(path, O_RDONLY | O_NOFOLLOW | O_NONBLOCK);
    return match.hasMatch() && !isRunning(match.captured(1).toInt()) && file.isOpen()
           && ::flock(file.get(), LOCK_EX | LOCK_NB) == 0;
}

constexpr int RANDOM_LENGTH = 6;

QByteArray nameTemplate(const QString &folder)
{
    return QFile::encodeName(folder) + "/.vornfh-" + QByteArray::number(::getpid()) + "-XXXXXX";
}

/// The first block of a file on its device; 0 if it has none or if it cannot be determined (that requires
/// root).
int firstBlock(const QString &path)
{
    int block = 0;
    const Descriptor file = openFile(path, O_RDONLY | O_NOFOLLOW | O_NONBLOCK);
    return file.isOpen() && ::ioctl(file.get(), FIBMAP, &block) == 0 ? block : 0;
}

bool mayShareContent(const QString &path)
{
    const QFileInfo file(path);
    const FileSystem fileSystem = fileSystemOf(path);
    if (fileSystem != FileSystem::Fat && fileSystem != FileSystem::Exfat)
        return false;
    if (file.isDir() || file.size() == 0)
        return file.isDir();
    const int block = firstBlock(path);
    const QStringList others = QDir(file.path()).entryList(QDir::Files | QDir::Hidden);
    return block == 0 || std::any_of(others.begin(), others.end(), [&](const QString &name) {
               return name != file.fileName() && firstBlock(file.path() + "/" + name) == block;
           });
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
{
    QByteArray path = nameTemplate(folder);
    mFile = Descriptor(::mkostemp(path.data(), O_CLOEXEC));
    if (!mFile.isOpen())
        throw FileFailure(concerning,
                          QString("no file can be created in %1: %2").arg(folder, errorText(errno)));
    mPath = QFile::decodeName(path);
    ::flock(mFile.get(), LOCK_EX | LOCK_NB);
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

QStringList leftoversIn(const QString &folder)
{
    QStringList found;
    for (const QString &name :
         QDir(folder).entryList({".vornfh-*"}, QDir::Files | QDir::Dirs | QDir::Hidden)) {
        const QString path = folder + "/" + name;
        if (isLeftover(path))
            found.append(path);
    }
    return found;
}

void removeLeftovers(const QString &folder)
{
    for (const QString &path : leftoversIn(folder)) {
        if (mayShareContent(path))
            printError(path
                       + ": left by an interrupted command and not removed, because another file may share "
                         "its content; check the file system");
        else if (::remove(QFile::encodeName(path).constData()) == 0)
            printError(path + ": removed; an interrupted command had left it");
        else
            printError(path + ": left by an interrupted command and cannot be removed: " + errorText(errno));
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
    struct stat status = {};
    if (readLinkStatus(to, status)) {
        errno = EEXIST;
        return false;
    }
    return ::rename(source.constData(), target.constData()) == 0;
}

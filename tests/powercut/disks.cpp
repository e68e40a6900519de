// SPDX-License-Identifier: MIT
#include "disks.h"

#include "blocklog.h"
#include "testsupport.h"

#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QThread>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <iterator>
#include <utility>

#include <fcntl.h>
#include <linux/fs.h>
#include <linux/loop.h>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

const QByteArray UNREADABLE = "unreadable";

Snapshot snapshotOf(const QString &folder)
{
    Snapshot found;
    QDirIterator entries(folder, QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot,
                         QDirIterator::Subdirectories);
    while (entries.hasNext()) {
        const QString path = entries.next();
        const QByteArray name = QFile::encodeName(path.mid(folder.size() + 1));
        QFile file(path);
        struct stat status = {};
        if (name.contains("lost+found"))
            continue;
        const bool isThere = ::lstat(QFile::encodeName(path).constData(), &status) == 0;
        if (isThere && S_ISDIR(status.st_mode))
            found[name + "/"] = QByteArray();
        else if (!isThere || !file.open(QIODevice::ReadOnly))
            found[name] = UNREADABLE;
        else
            found[name] = ((status.st_mode & 0222) == 0 ? "protected: " : "") + file.readAll();
        if (file.isOpen() && file.error() != QFile::NoError)
            found[name] = UNREADABLE;
    }
    return found;
}

QVector<QByteArrayList> filesThatShareContent(const QString &folder)
{
    QMap<std::pair<dev_t, int>, QByteArrayList> byBlock; // of a device
    QDirIterator entries(folder, QDir::Files | QDir::Hidden, QDirIterator::Subdirectories);
    while (entries.hasNext()) {
        const QString path = entries.next();
        QFile file(path);
        int block = 0;
        struct stat status = {};
        if (file.size() > 0 && file.open(QIODevice::ReadOnly) && ::fstat(file.handle(), &status) == 0
            && ::ioctl(file.handle(), FIBMAP, &block) == 0 && block > 0)
            byBlock[{status.st_dev, block}].append(QFile::encodeName(path.mid(folder.size() + 1)));
    }
    QVector<QByteArrayList> groups;
    std::copy_if(byBlock.begin(), byBlock.end(), std::back_inserter(groups),
                 [](const QByteArrayList &files) { return files.size() > 1; });
    return groups;
}

MappedFile::MappedFile(const QString &path) : mFile(path)
{
    mContent = mFile.open(QIODevice::ReadWrite) ? mFile.map(0, mFile.size()) : nullptr;
    require(mContent != nullptr, "map " + path.toUtf8());
}

void MappedFile::restore(const QByteArray &content, bool isWhole)
{
    constexpr qint64 BLOCK = 4096;
    require(content.size() == mFile.size(), "size of " + mFile.fileName().toUtf8());
    for (const Range &range : std::exchange(mReplaced, {}))
        std::memcpy(mContent + range.offset, content.constData() + range.offset, range.size);
    for (qint64 offset = 0; isWhole && offset < content.size(); offset += BLOCK) {
        const auto size = static_cast<size_t>(std::min(BLOCK, content.size() - offset));
        if (std::memcmp(mContent + offset, content.constData() + offset, size) != 0)
            std::memcpy(mContent + offset, content.constData() + offset, size);
    }
}

void MappedFile::replace(qint64 offset, const QByteArray &data)
{
    require(offset + data.size() <= mFile.size(), "a write beyond " + mFile.fileName().toUtf8());
    const auto size = static_cast<size_t>(data.size());
    std::memcpy(mContent + offset, data.constData(), size);
    mReplaced.push_back({offset, size});
}

LoopDevice::LoopDevice(const QString &file)
{
    const int image = ::open(QFile::encodeName(file).constData(), O_RDWR | O_CLOEXEC);
    require(image >= 0, "open " + file.toUtf8());
    const int control = ::open("/dev/loop-control", O_RDWR | O_CLOEXEC);
    loop_config config = {};
    config.fd = static_cast<__u32>(image);
    config.info.lo_flags = LO_FLAGS_AUTOCLEAR;
    do { // another program may take the free device first
        const int number = ::ioctl(control, LOOP_CTL_GET_FREE);
        mPath = "/dev/loop" + QByteArray::number(number);
        ::mknod(mPath.constData(), S_IFBLK | 0600, static_cast<dev_t>(7 << 8 | number)); // without udev
        ::close(mDescriptor);
        mDescriptor = ::open(mPath.constData(), O_RDWR | O_CLOEXEC);
        require(number >= 0 && mDescriptor >= 0, "loop device");
    } while (::ioctl(mDescriptor, LOOP_CONFIGURE, &config) != 0 && errno == EBUSY);
    ::close(control);
    ::close(image);
}

void LoopDevice::dropCache() const
{
    require(::ioctl(mDescriptor, BLKFLSBUF, 0) == 0, "BLKFLSBUF");
}

LoopDevice::~LoopDevice()
{
    ::close(mDescriptor);
}

Mount::Mount(const QByteArray &device, const QString &folder, const QByteArray &fileSystem, bool isReadOnly)
    : mFolder(QFile::encodeName(folder))
{
    QDir().mkpath(folder);
    const char *options = fileSystem == "vfat" ? "utf8=1" : nullptr;
    mIsMounted = ::mount(device.constData(), mFolder.constData(), fileSystem.constData(),
                         isReadOnly ? MS_RDONLY : 0, options)
                 == 0;
}

Mount::~Mount()
{
    while (mIsMounted && ::umount2(mFolder.constData(), 0) != 0) {
        if (errno != EBUSY)
            break;
        QThread::msleep(10);
    }
}

void makeFileSystem(const QString &file, const QByteArray &fileSystem, qint64 bytes)
{
    QFile image(file);
    // What is not written holds old data, as on a used card.
    const QByteArray old(static_cast<int>(bytes), '\xa5');
    require(image.open(QIODevice::ReadWrite | QIODevice::Truncate) && image.write(old) == bytes, "image");
    image.close();
    static const QMap<QByteArray, QStringList> ARGUMENTS = {
        {"ext4",
         {"-q", "-b", "1024", "-J", "size=1", "-O", "^resize_inode", "-m", "0", "-E",
          "lazy_itable_init=0,nodiscard"}},
        {"vfat", {}},
        {"exfat", {}}};
    QProcess program;
    program.start("/usr/sbin/mkfs." + fileSystem, ARGUMENTS[fileSystem] + QStringList{file});
    require(program.waitForFinished() && program.exitCode() == 0,
            "mkfs." + fileSystem + ": " + program.readAllStandardError());
}

Recorder::Recorder(const QString &folder, const QString &log, const QStringList &images)
    : mFolder(folder), mLog(log)
{
    QDir().mkpath(folder);
    mProcess.setProcessChannelMode(QProcess::ForwardedChannels);
    mProcess.start(BLOCKLOG_PATH, QStringList{folder, log} + images);
    while (!QFile::exists(reportFile())) {
        require(mProcess.state() != QProcess::NotRunning, "blocklog");
        QThread::msleep(5);
    }
}

Recorder::~Recorder()
{
    ::umount2(QFile::encodeName(mFolder).constData(), MNT_DETACH);
    mProcess.waitForFinished();
}

QVector<LoggedEvent> Recorder::stop()
{
    ::umount2(QFile::encodeName(mFolder).constData(), MNT_DETACH);
    require(mProcess.waitForFinished(), "blocklog does not end");
    QFile log(mLog);
    require(log.open(QIODevice::ReadOnly), "log");
    QVector<LoggedEvent> events;
    Event event;
    while (log.read(reinterpret_cast<char *>(&event), sizeof event) == sizeof event)
        events.append({static_cast<int>(event.kind), static_cast<int>(event.disk),
                       static_cast<qint64>(event.offset), log.read(static_cast<qint64>(event.size))});
    return events;
}

// SPDX-License-Identifier: MIT
#include "device.h"

#include <QDir>
#include <QFile>
#include <QStandardPaths>
#include <QThread>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <stdexcept>

#include <fcntl.h>
#include <linux/loop.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

constexpr char LOOP_CONTROL[] = "/dev/loop-control";
constexpr char FUSE_DEVICE[] = "/dev/fuse";
constexpr off_t MEBIBYTE = 1024 * 1024;

struct Programs {
    QString make;
    QStringList makeArguments;
    QString mount; ///< empty if the kernel supports the file system
    QStringList mountArguments;
};

/// Returns whether the kernel supports the file system @p name.
bool isInKernel(const QByteArray &name)
{
    QFile file("/proc/filesystems");
    return file.open(QIODevice::ReadOnly) && file.readAll().contains("\t" + name + "\n");
}

const char *kernelName(FileSystem fileSystem)
{
    return fileSystem == EXT4 ? "ext4" : fileSystem == EXFAT ? "exfat" : "vfat";
}

Programs userSpacePrograms(FileSystem fileSystem)
{
    switch (fileSystem) {
    case EXT4: return {"mkfs.ext4", {"-q", "-m", "1"}, {}, {}};
    // In the foreground, so that they end with this program.
    case EXFAT: return {"mkfs.exfat", {}, "mount.exfat-fuse", {"-d"}};
    case FAT16: return {"mkfs.vfat", {"-F", "16"}, "fusefat", {"-f", "-o", "rw+"}};
    case FAT32: return {"mkfs.vfat", {"-F", "32", "-s", "1"}, "fusefat", {"-f", "-o", "rw+"}};
    }
    throw std::logic_error("file system");
}

Programs programsFor(FileSystem fileSystem)
{
    Programs programs = userSpacePrograms(fileSystem);
    if (isInKernel(kernelName(fileSystem)))
        programs.mount.clear();
    return programs;
}

[[noreturn]] void fail(const QString &what)
{
    throw std::runtime_error((what + ": " + std::strerror(errno)).toStdString());
}

QString findProgram(const QString &name)
{
    const QString found = QStandardPaths::findExecutable(name);
    return found.isEmpty() ? QStandardPaths::findExecutable(name, {"/usr/sbin", "/sbin"}) : found;
}

dev_t deviceOf(const QString &path)
{
    struct stat status = {};
    return ::stat(QFile::encodeName(path).constData(), &status) == 0 ? status.st_dev : 0;
}

} // namespace

QString enterOwnMounts()
{
    if (::geteuid() != 0)
        return "not root";
    if (::access(LOOP_CONTROL, R_OK | W_OK) != 0)
        return QString("no loop devices (%1)").arg(LOOP_CONTROL);
    if (::unshare(CLONE_NEWNS) != 0 || ::mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0)
        return "no mount namespace of its own";
    return QString();
}

QString whyNot(FileSystem fileSystem)
{
    const Programs programs = programsFor(fileSystem);
    for (const QString &program : {programs.make, programs.mount}) {
        if (!program.isEmpty() && findProgram(program).isEmpty())
            return program + " is not installed";
    }
    if (!programs.mount.isEmpty() && ::access(FUSE_DEVICE, R_OK | W_OK) != 0)
        return QString("no %1").arg(FUSE_DEVICE);
    return QString();
}

bool isInUserSpace(FileSystem fileSystem)
{
    return !programsFor(fileSystem).mount.isEmpty();
}

void Companion::setupChildProcess()
{
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
}

Device::Device(FileSystem fileSystem, const QString &mountPoint)
    : mFileSystem(fileSystem), mMountPoint(mountPoint)
{
    if (!QDir().mkpath(mountPoint))
        fail("mount point");
    mImage = ::memfd_create("image", MFD_CLOEXEC);
    // FAT32 has at least 65525 clusters, here of 512 bytes.
    const off_t size = (mFileSystem == FAT32 ? 40 : 16) * MEBIBYTE;
    if (mImage < 0 || ::ftruncate(mImage, size) != 0)
        fail("image");
    attach();
    makeFileSystem();
    mount();
}

Device::~Device()
{
    unmount();
    ::close(mImage);
}

/// The image is anonymous memory and the device detaches itself when it is last closed, so neither can be
/// left behind.
void Device::attach()
{
    const int control = ::open(LOOP_CONTROL, O_RDWR | O_CLOEXEC);
    loop_config config = {};
    config.fd = static_cast<__u32>(mImage);
    config.info.lo_flags = LO_FLAGS_AUTOCLEAR;
    do { // another program may take the free device first
        const int number = ::ioctl(control, LOOP_CTL_GET_FREE);
        mBlock = QString("loop%1").arg(number);
        mDescriptor = ::open(QFile::encodeName("/dev/" + mBlock).constData(), O_RDWR | O_CLOEXEC);
        if (number < 0 || mDescriptor < 0)
            fail("loop device");
        if (::ioctl(mDescriptor, LOOP_CONFIGURE, &config) == 0)
            break;
        ::close(mDescriptor);
        mDescriptor = -1;
    } while (errno == EBUSY);
    ::close(control);
    if (mDescriptor < 0)
        fail("loop device");
}

void Device::makeFileSystem()
{
    const Programs programs = programsFor(mFileSystem);
    QProcess make;
    make.start(findProgram(programs.make), programs.makeArguments + QStringList("/dev/" + mBlock));
    if (!make.waitForFinished() || make.exitCode() != 0)
        fail(programs.make + " " + make.readAllStandardError());
}

void Device::mount()
{
    const QString device = "/dev/" + mBlock;
    const dev_t below = deviceOf(mMountPoint);
    if (programsFor(mFileSystem).mount.isEmpty()) {
        const char *options = mFileSystem == FAT16 || mFileSystem == FAT32 ? "utf8=1" : nullptr;
        if (::mount(QFile::encodeName(device).constData(), QFile::encodeName(mMountPoint).constData(),
                    kernelName(mFileSystem), 0, options)
            != 0)
            fail("mount");
    } else {
        const Programs programs = programsFor(mFileSystem);
        mDaemon.setProcessChannelMode(QProcess::MergedChannels);
        mDaemon.setStandardOutputFile("/dev/null");
        mDaemon.start(findProgram(programs.mount),
                      programs.mountArguments + QStringList{device, mMountPoint});
        while (deviceOf(mMountPoint) == below || deviceOf(mMountPoint) == 0) {
            if (mDaemon.waitForFinished(10) || mDaemon.state() == QProcess::NotRunning)
                fail(programs.mount);
        }
    }
    mMounted = true;
    ::close(mDescriptor); // the file system keeps the device open from here on
}

void Device::remountReadOnly()
{
    if (::mount(nullptr, QFile::encodeName(mMountPoint).constData(), nullptr,
                MS_REMOUNT | MS_BIND | MS_RDONLY, nullptr)
        != 0)
        fail("remount");
}

void Device::turnReadOnly()
{
    QFile trigger("/sys/fs/ext4/" + mBlock + "/trigger_fs_error");
    if (::mount(nullptr, QFile::encodeName(mMountPoint).constData(), nullptr, MS_REMOUNT, "errors=remount-ro")
            != 0
        || !trigger.open(QIODevice::WriteOnly | QIODevice::Unbuffered) || trigger.write("test") != 4)
        fail("error");
}

void Device::unmount()
{
    if (!mMounted)
        return;
    mMounted = false;
    ::umount2(QFile::encodeName(mMountPoint).constData(), MNT_DETACH);
    if (mDaemon.state() != QProcess::NotRunning && !mDaemon.waitForFinished(10000))
        mDaemon.kill();
    mDaemon.waitForFinished(10000);
}

bool Device::pullOut()
{
    if (isInUserSpace(mFileSystem)) {
        mDaemon.kill();
        mDaemon.waitForFinished(10000);
        return true;
    }
    if (mFileSystem != EXT4)
        return false;
    constexpr quint32 WITHOUT_WRITING_THE_JOURNAL = 2;
    const quint32 flags = WITHOUT_WRITING_THE_JOURNAL;
    const int descriptor =
        ::open(QFile::encodeName(mMountPoint).constData(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    const int result = ::ioctl(descriptor, _IOR('X', 125, quint32), &flags); // EXT4_IOC_SHUTDOWN
    ::close(descriptor);
    if (result != 0)
        fail("shutdown");
    return true;
}

void Device::insertAgain()
{
    unmount();
    attach();
    mount();
}

// SPDX-License-Identifier: MIT
#ifndef DEVICE_H
#define DEVICE_H

#include <QProcess>
#include <QString>

#include <memory>

enum FileSystem {
    EXT4,
    EXFAT, ///< by the FUSE program mount.exfat-fuse
    FAT16, ///< by the FUSE program fusefat, which keeps no modes and refuses names beyond ASCII
    FAT32, ///< the same; fusefat does not tell its size
};

/// Gives the program a mount namespace of its own, so that no mount outlives it whatever happens.
/// The reason why there can be no devices, in a few words; empty when there can.
QString enterOwnMounts();

/// The reason why a file system cannot be made or mounted here; empty when it can.
QString whyNot(FileSystem fileSystem);

/// A process that does not outlive this program.
class Companion : public QProcess
{
protected:
    void setupChildProcess() override;
};

/// A loop device in memory with a file system on it, mounted at a folder.
class Device
{
public:
    /// The mount point is created if it is missing.
    Device(FileSystem fileSystem, const QString &mountPoint);
    ~Device();
    Device(const Device &) = delete;
    Device &operator=(const Device &) = delete;

    /// As /proc/partitions lists it.
    QString block() const { return mBlock; }

    void remountReadOnly();
    void unmount();

    /// As if the card were pulled out: every access to the file system fails from now on.
    void pullOut();

private:
    void attach();
    void makeFileSystem();
    void mount();

    FileSystem mFileSystem;
    QString mMountPoint;
    QString mBlock;
    Companion mDaemon;
    int mDescriptor = -1;
    bool mMounted = false;
};

#endif // DEVICE_H

// SPDX-License-Identifier: MIT
#ifndef DEVICE_H
#define DEVICE_H

#include <QProcess>
#include <QString>

#include <memory>

enum FileSystem {
    EXT4,
    EXFAT, ///< mounted by the FUSE program mount.exfat-fuse if the kernel lacks exFAT
    FAT16, ///< mounted by fusefat if the kernel lacks vfat; fusefat stores no modes and rejects non-ASCII
           ///< names
    FAT32, ///< the same; fusefat does not report its size
};

/// Moves the program into its own mount namespace, so that no mount outlives it. Returns a short reason why
/// devices cannot be created; an empty string if they can.
QString enterOwnMounts();

/// Why @p fileSystem cannot be created or mounted here; an empty string if it can.
QString whyNot(FileSystem fileSystem);

/// Returns whether @p fileSystem is mounted by a program, because the kernel does not support it.
bool isInUserSpace(FileSystem fileSystem);

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
    Q_DISABLE_COPY(Device)

    /// The name in /proc/partitions.
    QString block() const { return mBlock; }

    void remountReadOnly();
    /// Makes the kernel report an error of the file system, which makes ext4 read-only at once, even for
    /// files that are open.
    void turnReadOnly();
    void unmount();

    /// Simulates the removal of the card: every access to the file system fails from now on. Returns false if
    /// that is not possible.
    bool pullOut();

    /// Unmounts the file system and mounts what has reached the device so far.
    void insertAgain();

private:
    void attach();
    void makeFileSystem();
    void mount();

    FileSystem mFileSystem;
    QString mMountPoint;
    QString mBlock;
    Companion mDaemon;
    int mImage = -1;
    int mDescriptor = -1;
    bool mMounted = false;
};

#endif // DEVICE_H

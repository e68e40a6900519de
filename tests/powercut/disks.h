// SPDX-License-Identifier: MIT
#ifndef DISKS_H
#define DISKS_H

#include <QByteArrayList>
#include <QFile>
#include <QMap>
#include <QProcess>
#include <QString>
#include <QVector>

#include <memory>
#include <vector>

/// The files and folders of a tree, by their paths relative to it; a folder's path ends in "/". The value is
/// the content of a file.
using Snapshot = QMap<QByteArray, QByteArray>;

/// What cannot be read has this content.
extern const QByteArray UNREADABLE;

/// Everything below @p folder, except "lost+found".
Snapshot snapshotOf(const QString &folder);

/// Groups of files below @p folder with the same content on the device, not only the same bytes: if one of
/// them were deleted, the others would lose theirs. Only FAT and exFAT allow that, and reveal it.
QVector<QByteArrayList> filesThatShareContent(const QString &folder);

/// A file that is changed in memory, so that only the parts that differ have to be written.
class MappedFile
{
public:
    explicit MappedFile(const QString &path);

    void replace(qint64 offset, const QByteArray &data);
    /// Makes @p content, which has the size of the file, its content again, where it was replaced. If @p
    /// isWhole, also where the kernel has written.
    void restore(const QByteArray &content, bool isWhole);

private:
    struct Range {
        qint64 offset;
        size_t size;
    };

    QFile mFile;
    uchar *mContent;
    std::vector<Range> mReplaced;
};

/// A file as a block device, until the end of the scope.
class LoopDevice
{
public:
    explicit LoopDevice(const QString &file);
    ~LoopDevice();
    Q_DISABLE_COPY(LoopDevice)

    const QByteArray &path() const { return mPath; }

    /// Makes the kernel read the file again, which must not be mounted.
    void dropCache() const;

private:
    QByteArray mPath;
    int mDescriptor = -1;
};

/// A file system that is mounted until the end of the scope.
class Mount
{
public:
    /// @p fileSystem is the kernel's name: "ext4", "vfat" or "exfat".
    Mount(const QByteArray &device, const QString &folder, const QByteArray &fileSystem, bool isReadOnly);
    ~Mount();
    Q_DISABLE_COPY(Mount)

    bool isMounted() const { return mIsMounted; }

private:
    QByteArray mFolder;
    bool mIsMounted;
};

/// Creates an empty file system in a new file of @p bytes.
void makeFileSystem(const QString &file, const QByteArray &fileSystem, qint64 bytes);

/// What happened to the disks, as blocklog has recorded it.
struct LoggedEvent {
    int kind; // of Event::Kind
    int disk;
    qint64 offset;
    QByteArray data;
};

/// Presents @p images as disks and records what is written to them, until stop(). The images are changed.
class Recorder
{
public:
    /// The disks appear in @p folder as disk0, disk1 and so on.
    Recorder(const QString &folder, const QString &log, const QStringList &images);
    ~Recorder();
    Q_DISABLE_COPY(Recorder)

    /// Text that is written to this file becomes part of the log.
    QString reportFile() const { return mFolder + "/report"; }
    QString disk(int number) const { return mFolder + "/disk" + QString::number(number); }

    /// The disks must not be in use.
    QVector<LoggedEvent> stop();

private:
    QString mFolder;
    QString mLog;
    QProcess mProcess;
};

#endif // DISKS_H

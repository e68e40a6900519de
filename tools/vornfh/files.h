// SPDX-License-Identifier: MIT
#ifndef FILES_H
#define FILES_H

#include <QByteArray>
#include <QString>

#include <functional>

#include <dirent.h>
#include <sys/stat.h>

/// A file descriptor that is closed on destruction.
class Descriptor
{
public:
    explicit Descriptor(int descriptor = -1) : mDescriptor(descriptor) {}
    ~Descriptor();
    Descriptor(Descriptor &&other) noexcept;
    Descriptor &operator=(Descriptor &&other) noexcept;
    Descriptor(const Descriptor &) = delete;
    Descriptor &operator=(const Descriptor &) = delete;

    bool isOpen() const { return mDescriptor >= 0; }
    int get() const { return mDescriptor; }

    /// Closes the file. Returns false and sets errno if something written to it may be lost.
    bool close();

private:
    int mDescriptor;
};

/// open() with O_CLOEXEC for a QString path.
Descriptor openFile(const QString &path, int flags, mode_t mode = 0);
Descriptor openFolder(const QString &path);

/// stat() and lstat() for a QString path. Return false and set errno on failure.
bool readStatus(const QString &path, struct stat &status);
bool readLinkStatus(const QString &path, struct stat &status);

/// @p time in milliseconds since 1970.
qint64 toMsecs(const statx_timestamp &time);

/// The time at which the file of @p status was created or, if the file system keeps no such time, at which
/// its status was last changed, in milliseconds since 1970. STATX_BTIME must have been requested.
qint64 creationTime(const struct statx &status);

/// Returns whether there is an entry with this path; symbolic links are not followed.
bool isEntry(const QString &path);

/// For each entry of @p folder except "." and "..", calls @p work with the open folder and the entry. Returns
/// false and sets errno if the folder cannot be read to its end.
bool forEachEntry(const QString &folder, const std::function<void(int folder, const dirent &entry)> &work);

/// Fills @p bytes from the file, beginning at @p offset, and truncates them if the file ends earlier. Returns
/// false and sets errno on failure; @p bytes then contain what was read before the error.
bool readAt(int descriptor, off_t offset, QByteArray &bytes);

/// The first @p length bytes of a file, or all if there are fewer; empty if it cannot be read.
QByteArray beginningOf(const QString &path, int length);

/// Copies a file. Returns false and sets errno on failure.
bool copyContent(int from, int to);

bool isSameFile(const struct stat &one, const struct stat &other);

/// Returns whether the two are the same file, with the same mode, size and times.
bool isSameState(const struct stat &before, const struct stat &after);

/// @p mode without the bits that the umask of this process clears.
mode_t defaultMode(mode_t mode);

/// Sets the mode of the file @p target to that of @p path, or of a new file if @p path does not exist.
void setModeFrom(const QString &path, int target);

/// Gives the file @p target the owner, mode and times of @p status. Returns false and sets errno on failure;
/// a file system may be unable to keep some of them.
bool setAttributes(int target, const struct stat &status);

#endif // FILES_H

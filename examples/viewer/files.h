// SPDX-License-Identifier: MIT
#ifndef FILES_H
#define FILES_H

#include <QString>

#include <sys/types.h>

// File operations that Qt does not provide. Those that return an int return an errno value, or 0 on success.

/// A file descriptor, which is closed at the end of the scope.
class Descriptor
{
public:
    Descriptor(const QString &path, int flags, mode_t mode = 0);
    ~Descriptor();
    Q_DISABLE_COPY(Descriptor)

    bool isOpen() const { return mDescriptor >= 0; }
    int get() const { return mDescriptor; }

private:
    int mDescriptor;
};

/// The reason for @p error on a storage device, in the language of the interface.
QString reasonOf(int error);

/// Returns whether nobody may write to a file with @p mode. On FAT and exFAT this is the attribute
/// "read-only", which cameras use.
bool isProtectedMode(mode_t mode);

/// Removes all write permissions from a file, or gives the owner write permission.
int setProtected(const QString &path, bool isProtected);

/// Waits until the file, or the entries of the folder, are on the storage device.
int flush(const QString &path);

#endif // FILES_H

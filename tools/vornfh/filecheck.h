// SPDX-License-Identifier: MIT
#ifndef FILECHECK_H
#define FILECHECK_H

#include "vornfh.h"

#include <QString>
#include <QStringList>

#include <sys/stat.h>

/// What is wrong with one file of several: the command says so and goes on with the next.
class FileFailure : public Failure
{
public:
    FileFailure(const QString &path, const QString &reason) : Failure(path + ": " + reason) {}
};

/// A file descriptor that is closed at the end.
class Descriptor
{
public:
    explicit Descriptor(int descriptor = -1) : mDescriptor(descriptor) {}
    ~Descriptor();
    Descriptor(const Descriptor &) = delete;
    Descriptor &operator=(const Descriptor &) = delete;

    bool isOpen() const { return mDescriptor >= 0; }
    int get() const { return mDescriptor; }

private:
    int mDescriptor;
};

/// The text of the system for an error number, "Permission denied".
QString errorText(int error);

/// The first of @p programs that is not on the search path; empty if all are.
QString missingProgram(const QStringList &programs);

/// From the root on and otherwise as it is: "a/../b" is not "b" where a is a symbolic link.
QString fromRoot(const QString &path);

/// stat() and lstat() for paths of Qt; false with errno set.
bool readStatus(const QString &path, struct stat &status);
bool readLinkStatus(const QString &path, struct stat &status);

/// Whether both are the same file with nothing written to it in between.
bool isSameState(const struct stat &before, const struct stat &after);

bool isSameFile(const struct stat &one, const struct stat &other);

/// Waits until file or folder has reached the device; false with errno set.
bool flush(int descriptor);
bool flushFolder(const QString &path);

/// Compares byte by byte. The second file is read from the device, not from memory, if it has been flushed.
/// @p isStopped is asked again and again; a comparison that was stopped is false. Throws FileFailure for
/// @p path if one of the files cannot be read.
bool hasSameContent(int one, int other, const QString &path, bool (*isStopped)());

#endif // FILECHECK_H

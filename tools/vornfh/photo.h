// SPDX-License-Identifier: MIT
#ifndef PHOTO_H
#define PHOTO_H

#include "files.h"

#include <QByteArray>
#include <QString>

/// A copy of a photo in the same folder, to be changed and then put in the photo's place. It is hidden, so
/// that neither the numbering nor the library's listings see it, and is removed on destruction.
class WorkingCopy
{
public:
    /// Throws FileFailure.
    explicit WorkingCopy(const QString &photo);
    ~WorkingCopy();
    WorkingCopy(const WorkingCopy &) = delete;
    WorkingCopy &operator=(const WorkingCopy &) = delete;

    QString path() const;

    /// Puts the copy in the photo's place, with the photo's owner, mode, access time and extended attributes.
    /// Throws FileFailure; the photo is then unchanged.
    void replacePhoto();

private:
    void copyContent(int target);
    void copyAttributes(int target);

    QString mPhoto;
    Descriptor mSource;
    struct stat mStatus = {};
    QByteArray mPath; // empty once the copy is the photo
};

#endif // PHOTO_H

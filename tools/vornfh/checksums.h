// SPDX-License-Identifier: MIT
#ifndef CHECKSUMS_H
#define CHECKSUMS_H

#include <QByteArray>
#include <QByteArrayList>
#include <QSet>
#include <QString>

#include <map>

/// The file SHA256SUMS in a folder, in the format of sha256sum(1).
class Checksums
{
public:
    /// Throws FileFailure if the file exists and cannot be read.
    explicit Checksums(const QString &folder);

    /// Sets the sum of the file @p path, which is in the folder or in one below it.
    void set(const QString &path, const QByteArray &sum);

    /// Replaces the file. Keeps the lines for other files that still exist, and lines in other formats.
    /// Throws FileFailure.
    void save();

private:
    /// What the file contains.
    struct Content {
        std::map<QByteArray, QByteArray> sums; // by the names relative to the folder
        QByteArrayList others;                 // lines in other formats
    };

    Content read() const;
    QByteArray merged(int folder);

    const QString mFolder;
    const QString mPath;
    std::map<QByteArray, QByteArray> mSums;
    QSet<QByteArray> mFound; // names of files that exist
};

#endif // CHECKSUMS_H

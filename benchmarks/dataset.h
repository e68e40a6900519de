// SPDX-License-Identifier: MIT
#ifndef DATASET_H
#define DATASET_H

#include <QFileInfo>

#include <string>
#include <vector>

#include <cstdint>

// Data sets, created in one temporary directory when they are first used

constexpr char SUFFIX[] = "ABC";

/// Creates the location @p name with the folders 100ABC, 101ABC and so on, and configures it as that of the
/// SD card. The folder with index i contains files[i] files of one byte with random times: DCF_0001.jpg and
/// so on.
QString useStorage(const QString &name, const std::vector<int> &files);

/// Path of the directory @p name, which is created if it is missing.
QString workDirectory(const QString &name);

void makeFile(const QString &path);
void removeDataSets();

// Lower bounds: the system calls that the result requires, without Qt and, except for bareInfos(), without an
// object per file

struct BareFile {
    std::string name;
    std::int64_t modified; ///< nanoseconds since 1970
    std::int64_t created;
    std::uint64_t size;
};

/// Number of entries, read and counted.
int bareCount(const std::string &directory);

/// All regular files.
std::vector<BareFile> bareStatus(const std::string &directory);

/// The same, oldest modification first.
std::vector<BareFile> bareListing(const std::string &directory);

/// bareListing(), and for each file a QFileInfo that has read the file's status: the least work for a list of
/// QFileInfo that describes the files as they were when they were listed. In directory order.
QFileInfoList bareInfos(const std::string &directory);

#endif // DATASET_H

// SPDX-License-Identifier: MIT
#ifndef DATASET_H
#define DATASET_H

#include <QFileInfo>
#include <QStringList>

#include <string>
#include <vector>

#include <cstdint>

// Data sets. Each is made when it is first asked for, in one temporary directory.

constexpr char SUFFIX[] = "ABC";

/// A location in the temporary directory under the name @p name, with folders 100ABC, 101ABC and so on.
/// Each holds as many files DCF_0001.jpg, ... of one byte and random times as @p files says for it.
/// The configuration is set to it, as the SD card's.
QString useStorage(const QString &name, const std::vector<int> &files);

/// Path of a directory in the temporary directory, which is made if it is missing.
QString workDirectory(const QString &name);

void makeFile(const QString &path);
void removeDataSets();

// Lower bounds: what the answer takes from the system, with no Qt and no object per file.

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

// The same by Qt alone, as its documentation has it.

/// The files of @p directory, oldest modification first.
QFileInfoList qtListing(const QString &directory, const QStringList &nameFilters = {});

/// The numbered folders of @p location in the order of their names.
QFileInfoList qtFolders(const QString &location);

#endif // DATASET_H

// SPDX-License-Identifier: MIT
// blocklog DIRECTORY SIZE LOG: a file system with the files disk0 and disk1, each of SIZE bytes, and report. What is
// written to a disk, each flush of it, and what is written to report is appended to LOG in the order in which it
// happens. Runs in the foreground until the file system is unmounted.
#define FUSE_USE_VERSION 31

#include "blocklog.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include <fuse3/fuse.h>
#include <sys/mman.h>
#include <unistd.h>

namespace {

constexpr int DISKS = 2;
constexpr int REPORT = DISKS;

std::array<int, DISKS> contents; // descriptors of files in memory
std::uint64_t diskSize = 0;
std::FILE *logFile = nullptr;

/// The number of the file @p path; -1 if there is none.
int fileOf(const char *path)
{
    for (int disk = 0; disk < DISKS; ++disk) {
        if (path == "/disk" + std::to_string(disk))
            return disk;
    }
    return std::strcmp(path, "/report") == 0 ? REPORT : -1;
}

void append(Event::Kind kind, int disk, std::uint64_t offset, const char *data, std::uint64_t size)
{
    const Event event = {kind, static_cast<std::uint32_t>(disk), offset, size};
    std::fwrite(&event, sizeof event, 1, logFile);
    if (size > 0)
        std::fwrite(data, 1, size, logFile);
    std::fflush(logFile);
}

int getAttributes(const char *path, struct stat *status, fuse_file_info *)
{
    *status = {};
    const int file = fileOf(path);
    const bool isRoot = std::strcmp(path, "/") == 0;
    if (file < 0 && !isRoot)
        return -ENOENT;
    status->st_mode = isRoot ? S_IFDIR | 0755U : S_IFREG | 0666U;
    status->st_nlink = 1;
    status->st_size = file >= 0 && file < DISKS ? static_cast<off_t>(diskSize) : 0;
    return 0;
}

int listDirectory(const char *, void *buffer, fuse_fill_dir_t fill, off_t, fuse_file_info *,
                  fuse_readdir_flags)
{
    for (const char *name : {".", "..", "disk0", "disk1", "report"})
        fill(buffer, name, nullptr, 0, fuse_fill_dir_flags{});
    return 0;
}

int openFile(const char *path, fuse_file_info *info)
{
    const int file = fileOf(path);
    if (file < 0)
        return -ENOENT;
    info->fh = static_cast<std::uint64_t>(file);
    info->direct_io = 1; // nothing is cached in front of the log
    return 0;
}

int truncate(const char *, off_t, fuse_file_info *)
{
    return 0; // report may be opened with O_TRUNC
}

int readFile(const char *, char *buffer, size_t size, off_t offset, fuse_file_info *info)
{
    if (info->fh == REPORT || offset >= static_cast<off_t>(diskSize))
        return 0;
    size = std::min<size_t>(size, diskSize - static_cast<std::uint64_t>(offset));
    return static_cast<int>(::pread(contents[info->fh], buffer, size, offset));
}

int writeFile(const char *, const char *buffer, size_t size, off_t offset, fuse_file_info *info)
{
    if (info->fh == REPORT) {
        append(Event::Report, 0, 0, buffer, size);
        return static_cast<int>(size);
    }
    append(Event::Write, static_cast<int>(info->fh), static_cast<std::uint64_t>(offset), buffer, size);
    return static_cast<int>(::pwrite(contents[info->fh], buffer, size, offset));
}

int flushFile(const char *, int, fuse_file_info *info)
{
    if (info->fh != REPORT)
        append(Event::Flush, static_cast<int>(info->fh), 0, nullptr, 0);
    return 0;
}

} // namespace

int main(int argc, char *argv[])
{
    if (argc != 4) {
        std::fprintf(stderr, "usage: blocklog DIRECTORY SIZE LOG\n");
        return 2;
    }
    diskSize = std::strtoull(argv[2], nullptr, 10);
    logFile = std::fopen(argv[3], "wbe");
    for (int &content : contents)
        content = ::memfd_create("disk", MFD_CLOEXEC);
    if (!logFile || std::any_of(contents.begin(), contents.end(), [](int content) {
            return content < 0 || ::ftruncate(content, static_cast<off_t>(diskSize)) != 0;
        })) {
        std::perror("blocklog");
        return 1;
    }
    fuse_operations operations = {};
    operations.getattr = getAttributes;
    operations.readdir = listDirectory;
    operations.open = openFile;
    operations.truncate = truncate;
    operations.read = readFile;
    operations.write = writeFile;
    operations.fsync = flushFile;
    char *arguments[] = {argv[0], argv[1], const_cast<char *>("-f"), const_cast<char *>("-s"), nullptr};
    return fuse_main(4, arguments, &operations, nullptr);
}

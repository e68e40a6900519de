// SPDX-License-Identifier: MIT
// blocklog DIRECTORY LOG IMAGE...: a file system with the files "disk0", "disk1", ..., one for each IMAGE,
// and the file "report". What is written to a disk, each flush of it, and what is written to "report" are
// appended to LOG in the order in which they happen. Runs in the foreground until the file system is
// unmounted.
#define FUSE_USE_VERSION 31

#include "blocklog.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include <fcntl.h>
#include <fuse3/fuse.h>
#include <unistd.h>

namespace {

constexpr int REPORT = 1000;

struct Disk {
    int image;
    off_t size;
};
std::vector<Disk> disks;
std::FILE *logFile = nullptr;

/// The number of the file @p path; -1 if there is none.
int fileOf(const std::string &path)
{
    for (size_t disk = 0; disk < disks.size(); ++disk) {
        if (path == "/disk" + std::to_string(disk))
            return static_cast<int>(disk);
    }
    return path == "/report" ? REPORT : -1;
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
    status->st_size = file >= 0 && file != REPORT ? disks[static_cast<size_t>(file)].size : 0;
    return 0;
}

int listDirectory(const char *, void *buffer, fuse_fill_dir_t fill, off_t, fuse_file_info *,
                  fuse_readdir_flags)
{
    for (const char *name : {".", "..", "report"})
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
    return info->fh == REPORT ? 0 : static_cast<int>(::pread(disks[info->fh].image, buffer, size, offset));
}

int writeFile(const char *, const char *buffer, size_t size, off_t offset, fuse_file_info *info)
{
    if (info->fh == REPORT) {
        append(Event::Report, 0, 0, buffer, size);
        return static_cast<int>(size);
    }
    append(Event::Write, static_cast<int>(info->fh), static_cast<std::uint64_t>(offset), buffer, size);
    return static_cast<int>(::pwrite(disks[info->fh].image, buffer, size, offset));
}

int flushFile(const char *, int, fuse_file_info *info)
{
    if (info->fh != REPORT)
        append(Event::Flush, static_cast<int>(info->fh), 0, nullptr, 0);
    return 0;
}

bool addDisk(const char *path)
{
    const int image = ::open(path, O_RDWR | O_CLOEXEC);
    if (image >= 0)
        disks.push_back({image, ::lseek(image, 0, SEEK_END)});
    return image >= 0;
}

} // namespace

int main(int argc, char *argv[])
{
    if (argc < 4) {
        std::fprintf(stderr, "usage: blocklog DIRECTORY LOG IMAGE...\n");
        return 2;
    }
    logFile = std::fopen(argv[2], "wbe");
    if (!logFile || !std::all_of(argv + 3, argv + argc, addDisk)) {
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

// SPDX-License-Identifier: MIT
// A device that fails. Preloaded into vornfh, this library makes calls of the C library fail for the files
// below a folder. The programs that vornfh starts are not affected. Environment variables:
// - FAULTY_CALL: what fails: read, write, ftruncate, fsync, syncfs, close, rename, unlink, mkdir, fstatat,
//   fchmod, readdir, lseek (for data and holes only); "any" of these but the last two; or "change", those
//   that change or flush something
// - FAULTY_NUMBER: which of these calls fails, counted from 1; none if it is 0
// - FAULTY_ONWARDS: if it is set, all later ones fail too
// - FAULTY_ERROR: the error number; with 0, fchmod reports success and changes nothing; with -1, the tool is
// killed
//   instead of making the call
// - FAULTY_FOLDER: the folder
// - FAULTY_LOG: a file to which the path of each failed call is written, one per line
// Each word stands for all functions with that effect. close() counts only for a descriptor to which the tool
// has written: no other can lose anything. Data is transferred in parts of at most 8 KiB, so that files of
// moderate size take several calls.

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include <dirent.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <stdio_ext.h>
#include <sys/sendfile.h>
#include <sys/stat.h>
#include <sys/uio.h>
#include <unistd.h>

namespace {

constexpr size_t PART = 8 << 10;

std::atomic<int> calls{0};
std::array<std::atomic<bool>, 4096> isWritten; // by descriptor

std::string variable(const char *name)
{
    const char *value = std::getenv(name);
    return value ? value : "";
}

int number(const char *name)
{
    return std::atoi(variable(name).c_str());
}

bool isTool()
{
    return std::strcmp(::program_invocation_short_name, "vornfh") == 0;
}

struct Fault {
    std::string call = isTool() ? variable("FAULTY_CALL") : "";
    int number = ::number("FAULTY_NUMBER");
    bool isLasting = !variable("FAULTY_ONWARDS").empty();
    int error = ::number("FAULTY_ERROR");
    std::string folder = variable("FAULTY_FOLDER") + "/";
    std::string log = variable("FAULTY_LOG");
};

/// Keeps the faults out of the programs that the tool starts.
__attribute__((constructor)) void keepToThisProgram()
{
    if (isTool())
        ::unsetenv("LD_PRELOAD");
}

template <typename Function>
Function *real(const char *name)
{
    return reinterpret_cast<Function *>(::dlsym(RTLD_NEXT, name));
}

std::string pathOf(int descriptor)
{
    std::array<char, PATH_MAX> path = {};
    const std::string link = "/proc/self/fd/" + std::to_string(descriptor);
    const ssize_t size = ::readlink(link.c_str(), path.data(), path.size());
    return {path.data(), static_cast<size_t>(std::max<ssize_t>(0, size))};
}

std::string pathOf(const char *path)
{
    return path;
}

std::string pathOf(FILE *file)
{
    return pathOf(::fileno(file));
}

/// Counts a call. Returns true, with errno set, if it has to fail.
template <typename File>
bool fails(const char *call, File file)
{
    static const Fault fault;
    const auto is = [call](const char *name) { return std::strcmp(call, name) == 0; };
    const bool isOfAny = !is("readdir") && !is("lseek");
    const bool isChange = isOfAny && !is("read") && !is("fstatat");
    if (fault.call != call && !(fault.call == "any" && isOfAny) && !(fault.call == "change" && isChange))
        return false;
    const std::string path = pathOf(file);
    if (path.compare(0, fault.folder.size(), fault.folder) != 0)
        return false;
    const int count = ++calls;
    if (fault.number == 0 || (fault.isLasting ? count < fault.number : count != fault.number))
        return false;
    const int log = ::open(fault.log.c_str(), O_CREAT | O_APPEND | O_WRONLY | O_CLOEXEC, 0666);
    ::dprintf(log, "%s\n", path.substr(0, path.find_last_not_of('/') + 1).c_str());
    ::close(log);
    if (fault.error < 0)
        ::kill(::getpid(), SIGKILL);
    errno = fault.error;
    return true;
}

template <typename Count>
Count markWritten(int descriptor, Count count)
{
    if (descriptor >= 0 && static_cast<size_t>(descriptor) < isWritten.size())
        isWritten[static_cast<size_t>(descriptor)] = true;
    return count;
}

/// Returns whether the close of @p descriptor has to fail.
bool closeFails(int descriptor)
{
    return descriptor >= 0 && static_cast<size_t>(descriptor) < isWritten.size()
           && isWritten[static_cast<size_t>(descriptor)].exchange(false) && fails("close", descriptor);
}

} // namespace

extern "C" {

ssize_t read(int descriptor, void *data, size_t size)
{
    static const auto next = real<ssize_t(int, void *, size_t)>("read");
    return fails("read", descriptor) ? -1 : next(descriptor, data, size);
}

ssize_t pread(int descriptor, void *data, size_t size, off_t offset)
{
    static const auto next = real<ssize_t(int, void *, size_t, off_t)>("pread");
    return fails("read", descriptor) ? -1 : next(descriptor, data, std::min(size, PART), offset);
}

ssize_t pread64(int descriptor, void *data, size_t size, off64_t offset)
{
    return ::pread(descriptor, data, size, offset);
}

ssize_t write(int descriptor, const void *data, size_t size)
{
    static const auto next = real<ssize_t(int, const void *, size_t)>("write");
    return fails("write", descriptor) ? -1 : markWritten(descriptor, next(descriptor, data, size));
}

ssize_t pwrite(int descriptor, const void *data, size_t size, off_t offset)
{
    static const auto next = real<ssize_t(int, const void *, size_t, off_t)>("pwrite");
    return fails("write", descriptor)
               ? -1
               : markWritten(descriptor, next(descriptor, data, std::min(size, PART), offset));
}

ssize_t pwrite64(int descriptor, const void *data, size_t size, off64_t offset)
{
    return ::pwrite(descriptor, data, size, offset);
}

ssize_t writev(int descriptor, const iovec *parts, int count)
{
    static const auto next = real<ssize_t(int, const iovec *, int)>("writev");
    return fails("write", descriptor) ? -1 : markWritten(descriptor, next(descriptor, parts, count));
}

off_t lseek(int descriptor, off_t offset, int whence) noexcept
{
    static const auto next = real<off_t(int, off_t, int)>("lseek");
    const bool isOfData = whence == SEEK_DATA || whence == SEEK_HOLE;
    return isOfData && fails("lseek", descriptor) ? -1 : next(descriptor, offset, whence);
}

ssize_t copy_file_range(int from, off64_t *source, int to, off64_t *target, size_t size, unsigned flags)
{
    static const auto next =
        real<ssize_t(int, off64_t *, int, off64_t *, size_t, unsigned)>("copy_file_range");
    return fails("read", from) || fails("write", to)
               ? -1
               : markWritten(to, next(from, source, to, target, std::min(size, PART), flags));
}

ssize_t sendfile(int to, int from, off_t *offset, size_t size) noexcept
{
    static const auto next = real<ssize_t(int, int, off_t *, size_t)>("sendfile");
    return fails("read", from) || fails("write", to)
               ? -1
               : markWritten(to, next(to, from, offset, std::min(size, PART)));
}

ssize_t sendfile64(int to, int from, off64_t *offset, size_t size) noexcept
{
    return ::sendfile(to, from, offset, size);
}

// Calls that the C library makes inside these functions are not intercepted.

size_t fwrite(const void *data, size_t size, size_t count, FILE *file)
{
    static const auto next = real<size_t(const void *, size_t, size_t, FILE *)>("fwrite");
    return fails("write", file) ? 0 : markWritten(::fileno(file), next(data, size, count, file));
}

int fclose(FILE *file)
{
    static const auto next = real<int(FILE *)>("fclose");
    const bool isLost = ::__fpending(file) > 0 && fails("write", file);
    if (isLost)
        ::__fpurge(file);
    const bool isFailing = isLost || closeFails(::fileno(file));
    const int error = errno;
    const int result = next(file);
    errno = isFailing ? error : errno;
    return isFailing ? EOF : result;
}

int close(int descriptor)
{
    static const auto next = real<int(int)>("close");
    const bool isFailing = closeFails(descriptor);
    const int error = errno;
    const int result = next(descriptor); // closes the file even if it fails
    errno = isFailing ? error : errno;
    return isFailing ? -1 : result;
}

int ftruncate(int descriptor, off_t size) noexcept
{
    static const auto next = real<int(int, off_t)>("ftruncate");
    return fails("ftruncate", descriptor) ? -1 : markWritten(descriptor, next(descriptor, size));
}

int ftruncate64(int descriptor, off64_t size) noexcept
{
    return ::ftruncate(descriptor, size);
}

int fchmod(int descriptor, mode_t mode) noexcept
{
    static const auto next = real<int(int, mode_t)>("fchmod");
    if (fails("fchmod", descriptor))
        return errno == 0 ? 0 : -1;
    return next(descriptor, mode);
}

int fsync(int descriptor)
{
    static const auto next = real<int(int)>("fsync");
    return fails("fsync", descriptor) ? -1 : next(descriptor);
}

int fdatasync(int descriptor)
{
    static const auto next = real<int(int)>("fdatasync");
    return fails("fsync", descriptor) ? -1 : next(descriptor);
}

int syncfs(int descriptor) noexcept
{
    static const auto next = real<int(int)>("syncfs");
    return fails("syncfs", descriptor) ? -1 : next(descriptor);
}

int rename(const char *from, const char *to) noexcept
{
    static const auto next = real<int(const char *, const char *)>("rename");
    return fails("rename", from) ? -1 : next(from, to);
}

int renameat2(int fromFolder, const char *from, int toFolder, const char *to, unsigned flags) noexcept
{
    static const auto next = real<int(int, const char *, int, const char *, unsigned)>("renameat2");
    return fails("rename", from) ? -1 : next(fromFolder, from, toFolder, to, flags);
}

int unlink(const char *path) noexcept
{
    static const auto next = real<int(const char *)>("unlink");
    return fails("unlink", path) ? -1 : next(path);
}

int unlinkat(int folder, const char *name, int flags) noexcept
{
    static const auto next = real<int(int, const char *, int)>("unlinkat");
    return fails("unlink", (pathOf(folder) + "/" + name).c_str()) ? -1 : next(folder, name, flags);
}

int rmdir(const char *path) noexcept
{
    static const auto next = real<int(const char *)>("rmdir");
    return fails("unlink", path) ? -1 : next(path);
}

int remove(const char *path) noexcept
{
    static const auto next = real<int(const char *)>("remove");
    return fails("unlink", path) ? -1 : next(path);
}

/// FAULTY_FOLDER may be the file itself.
int fstatat(int folder, const char *name, struct stat *status, int flags) noexcept
{
    static const auto next = real<int(int, const char *, struct stat *, int)>("fstatat");
    return fails("fstatat", (pathOf(folder) + "/" + name + "/").c_str()) ? -1
                                                                         : next(folder, name, status, flags);
}

// FAULTY_FOLDER may be the folder itself. Qt calls the second one.

dirent *readdir(DIR *folder)
{
    static const auto next = real<dirent *(DIR *)>("readdir");
    return fails("readdir", (pathOf(::dirfd(folder)) + "/").c_str()) ? nullptr : next(folder);
}

dirent64 *readdir64(DIR *folder)
{
    static const auto next = real<dirent64 *(DIR *)>("readdir64");
    return fails("readdir", (pathOf(::dirfd(folder)) + "/").c_str()) ? nullptr : next(folder);
}

int mkdir(const char *path, mode_t mode) noexcept
{
    static const auto next = real<int(const char *, mode_t)>("mkdir");
    return fails("mkdir", path) ? -1 : next(path, mode);
}
}

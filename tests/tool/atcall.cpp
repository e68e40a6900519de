// SPDX-License-Identifier: MIT
// Preloaded into the tool: makes something happen exactly between two steps of a command. Immediately before
// call number AT_CALL_COUNT of the function AT_CALL, or before each call if it is 0, a shell runs
// AT_CALL_SCRIPT. With PRETEND_FILE_SYSTEM, every file system looks like FAT or exFAT.
#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstdlib>
#include <cstring>

#include <dlfcn.h>
#include <fcntl.h>
#include <linux/magic.h>
#include <sys/eventfd.h>
#include <sys/file.h>
#include <sys/vfs.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

const char *valueOf(const char *name)
{
    const char *value = ::getenv(name);
    return value ? value : "";
}

void announce(const char *function)
{
    static std::atomic<int> calls{0};
    if (std::strcmp(valueOf("AT_CALL"), function) != 0)
        return;
    const int wanted = std::atoi(valueOf("AT_CALL_COUNT"));
    if (++calls != wanted && wanted != 0)
        return;
    const int error = errno;
    const pid_t shell = ::fork();
    if (shell == 0) {
        ::unsetenv("LD_PRELOAD");
        ::execl("/bin/sh", "sh", "-c", valueOf("AT_CALL_SCRIPT"), nullptr);
        ::_exit(127);
    }
    ::waitpid(shell, nullptr, 0);
    errno = error;
}

template <typename Function>
Function *real(const char *name)
{
    return reinterpret_cast<Function *>(::dlsym(RTLD_NEXT, name));
}

} // namespace

extern "C" {

ssize_t copy_file_range(int from, off64_t *fromOffset, int to, off64_t *toOffset, size_t length,
                        unsigned flags)
{
    static const auto next =
        real<ssize_t(int, off64_t *, int, off64_t *, size_t, unsigned)>("copy_file_range");
    announce("copy_file_range");
    return next(from, fromOffset, to, toOffset, length, flags);
}

int syncfs(int descriptor) noexcept
{
    static const auto next = real<int(int)>("syncfs");
    announce("syncfs");
    return next(descriptor);
}

int fsync(int descriptor)
{
    static const auto next = real<int(int)>("fsync");
    announce("fsync");
    return next(descriptor);
}

int flock(int descriptor, int operation) noexcept
{
    static const auto next = real<int(int, int)>("flock");
    announce("flock");
    return next(descriptor, operation);
}

/// Announced only if it does not wait, as for a file that may be a pipe.
int open(const char *path, int flags, ...)
{
    static const auto next = real<int(const char *, int, mode_t)>("open");
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = (flags & (O_CREAT | O_TMPFILE)) != 0 ? va_arg(arguments, mode_t) : 0;
    va_end(arguments);
    if ((flags & O_NONBLOCK) != 0)
        announce("open");
    return next(path, flags, mode);
}

/// A lease is announced when it has been granted.
int fcntl(int descriptor, int command, ...)
{
    static const auto next = real<int(int, int, long)>("fcntl");
    va_list arguments;
    va_start(arguments, command);
    const long argument = va_arg(arguments, long);
    va_end(arguments);
    const int result = next(descriptor, command, argument);
    if (command == F_SETLEASE && result == 0)
        announce("lease");
    return result;
}

int posix_fadvise64(int descriptor, off64_t offset, off64_t length, int advice) noexcept
{
    static const auto next = real<int(int, off64_t, off64_t, int)>("posix_fadvise64");
    announce("posix_fadvise");
    return next(descriptor, offset, length, advice);
}

int posix_fadvise(int descriptor, off_t offset, off_t length, int advice) noexcept
{
    return ::posix_fadvise64(descriptor, offset, length, advice);
}

int renameat2(int fromFolder, const char *from, int toFolder, const char *to, unsigned flags) noexcept
{
    static const auto next = real<int(int, const char *, int, const char *, unsigned)>("renameat2");
    announce("renameat2");
    return next(fromFolder, from, toFolder, to, flags);
}

int link(const char *from, const char *to) noexcept
{
    static const auto next = real<int(const char *, const char *)>("link");
    announce("link");
    return next(from, to);
}

int unlink(const char *path) noexcept
{
    static const auto next = real<int(const char *)>("unlink");
    announce("unlink");
    return next(path);
}

int eventfd_write(int file, eventfd_t value)
{
    static const auto next = real<int(int, eventfd_t)>("eventfd_write");
    announce("eventfd_write");
    return next(file, value);
}

ssize_t sendfile(int to, int from, off_t *offset, size_t length) noexcept
{
    static const auto next = real<ssize_t(int, int, off_t *, size_t)>("sendfile");
    announce("sendfile");
    return next(to, from, offset, length);
}

int statfs(const char *path, struct statfs *status) noexcept
{
    static const auto next = real<int(const char *, struct statfs *)>("statfs");
    const int result = next(path, status);
    if (std::strcmp(valueOf("PRETEND_FILE_SYSTEM"), "fat") == 0)
        status->f_type = MSDOS_SUPER_MAGIC;
    if (std::strcmp(valueOf("PRETEND_FILE_SYSTEM"), "exfat") == 0)
        status->f_type = 0x2011BAB0;
    return result;
}
}

// SPDX-License-Identifier: MIT
#include "shim.h"

#include <cerrno>
#include <csignal>
#include <cstdarg>
#include <cstring>
#include <ctime>
#include <map>
#include <utility>

#include <dirent.h>
#include <dlfcn.h>
#include <poll.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

Faults faults;

namespace {

std::map<DIR *, int> entriesRead;
std::time_t secondsAhead = 0;

template <typename Function>
Function *real(const char *name)
{
    return reinterpret_cast<Function *>(::dlsym(RTLD_NEXT, name));
}

bool concerns(const char *wanted, const char *path)
{
    const char *slash = std::strrchr(path, '/');
    return !wanted || std::strcmp(wanted, slash ? slash + 1 : path) == 0;
}

int fail(int error)
{
    errno = error;
    return -1;
}

/// The result of the next readdir() of @p stream, for both its forms.
template <typename Entry>
Entry *read(DIR *stream, Entry *(*realRead)(DIR *))
{
    const int count = entriesRead[stream]++;
    if (faults.whileReading && count == faults.afterEntries) {
        const auto change = faults.whileReading;
        faults.whileReading = nullptr;
        change();
    }
    if (faults.readError && count >= faults.readErrorAfter) {
        errno = faults.readError;
        return nullptr;
    }
    Entry *entry = realRead(stream);
    if (entry && faults.unknownTypes)
        entry->d_type = DT_UNKNOWN;
    return entry;
}

} // namespace

extern "C" {

DIR *opendir(const char *path)
{
    static const auto next = real<DIR *(const char *)>("opendir");
    if (faults.beforeOpening) {
        const auto before = std::exchange(faults.beforeOpening, nullptr);
        before(path);
        faults.beforeOpening = before;
    }
    if (faults.openError) {
        errno = faults.openError;
        return nullptr;
    }
    DIR *stream = next(path);
    entriesRead.erase(stream);
    return stream;
}

dirent *readdir(DIR *stream)
{
    static const auto next = real<dirent *(DIR *)>("readdir");
    return read(stream, next);
}

dirent64 *readdir64(DIR *stream)
{
    static const auto next = real<dirent64 *(DIR *)>("readdir64");
    return read(stream, next);
}

int statx(int directory, const char *path, int flags, unsigned mask, struct statx *status) noexcept
{
    static const auto next = real<int(int, const char *, int, unsigned, struct statx *)>("statx");
    ++faults.statxCalls;
    if (faults.statxError && concerns(faults.statxName, path))
        return fail(faults.statxError);
    const int result = next(directory, path, flags, mask, status);
    if (result == 0 && faults.birth)
        status->stx_btime = {faults.birth, 0, {}};
    return result;
}

void tzset() noexcept
{
    static const auto next = real<void()>("tzset");
    ++faults.tzsetCalls;
    next();
}

int mkdir(const char *path, mode_t mode) noexcept
{
    static const auto next = real<int(const char *, mode_t)>("mkdir");
    return faults.mkdirError ? fail(faults.mkdirError) : next(path, mode);
}

int unlink(const char *path) noexcept
{
    static const auto next = real<int(const char *)>("unlink");
    return faults.removeError && concerns(faults.removeName, path) ? fail(faults.removeError) : next(path);
}

int rmdir(const char *path) noexcept
{
    static const auto next = real<int(const char *)>("rmdir");
    return faults.removeError && concerns(faults.removeName, path) ? fail(faults.removeError) : next(path);
}

int kill(pid_t process, int number) noexcept
{
    static const auto next = real<int(pid_t, int)>("kill");
    faults.sentSignals.push_back(number);
    ::usleep(faults.killMicroseconds);
    if (faults.cannotBeKilled)
        return 0;
    if (process != -1)
        return next(process, number);
    faults.killedAll = true; // and the machine keeps running
    return 0;
}

int ppoll(pollfd *descriptors, nfds_t count, const timespec *limit, const sigset_t *signals)
{
    static const auto next = real<int(pollfd *, nfds_t, const timespec *, const sigset_t *)>("ppoll");
    if (!faults.timePasses || !limit || limit->tv_sec < 1)
        return next(descriptors, count, limit, signals);
    secondsAhead += limit->tv_sec + 1;
    return 0;
}

int clock_gettime(clockid_t clock, timespec *time) noexcept
{
    static const auto next = real<int(clockid_t, timespec *)>("clock_gettime");
    const int result = next(clock, time);
    if (clock == CLOCK_MONOTONIC)
        time->tv_sec += secondsAhead;
    return result;
}

pid_t fork() noexcept
{
    static const auto next = real<pid_t()>("fork");
    return faults.forkError ? fail(faults.forkError) : next();
}

// Qt starts its children with clone(), to obtain a descriptor, and with fork() if the system does not support
// that.
long syscall(long number, ...) noexcept
{
    static const auto next = real<long(long, ...)>("syscall");
    va_list list;
    va_start(list, number);
    long values[6];
    for (long &value : values)
        value = va_arg(list, long);
    va_end(list);
    if (faults.forkError && number == SYS_clone) {
        // Qt 5.15.8 continues with this as the child's descriptor, and with -1 as its process id.
        *reinterpret_cast<int *>(values[2]) = faults.unsetDescriptor;
        return fail(faults.forkError);
    }
    return next(number, values[0], values[1], values[2], values[3], values[4], values[5]);
}
}

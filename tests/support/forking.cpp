// SPDX-License-Identifier: MIT
// Without descriptors of processes (pidfd), Qt starts its children with fork() instead of clone().
// ThreadSanitizer and qemu's user emulation do not fully support that clone(): under ThreadSanitizer the
// child waits for a lock forever, and qemu fails a clone() that returns a descriptor. Linked into a program
// or preloaded.

#include <cerrno>
#include <cstdarg>
#include <cstdlib>

#include <dlfcn.h>
#include <sys/syscall.h>
#include <sys/wait.h>

/// Qt calls waitid() to find out whether the system supports such descriptors.
extern "C" long syscall(long number, ...) noexcept
{
    static const auto next = reinterpret_cast<long (*)(long, ...)>(::dlsym(RTLD_NEXT, "syscall"));
    va_list list;
    va_start(list, number);
    long values[6];
    for (long &value : values)
        value = va_arg(list, long);
    va_end(list);
    if (number == SYS_waitid && values[0] == P_PIDFD) {
        errno = EINVAL;
        return -1;
    }
    return next(number, values[0], values[1], values[2], values[3], values[4], values[5]);
}

/// Keeps this library out of the programs that this one starts: they run without the emulator.
__attribute__((constructor)) static void keepToThisProgram()
{
    ::unsetenv("LD_PRELOAD");
}

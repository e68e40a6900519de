// SPDX-License-Identifier: MIT
// Without descriptors of processes, Qt makes its children with fork() in place of a bare clone(), of which
// neither ThreadSanitizer nor qemu's user emulation knows enough: under the one the child waits for locks for
// ever, to the other a clone() that gives a descriptor is an error. Linked into a program or preloaded.

#include <cerrno>
#include <cstdarg>
#include <cstdlib>

#include <dlfcn.h>
#include <sys/syscall.h>
#include <sys/wait.h>

/// Qt asks by waitid() whether the system knows such descriptors.
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

/// What is preloaded into an emulated program is of no use to the programs that it starts.
__attribute__((constructor)) static void keepToThisProgram()
{
    ::unsetenv("LD_PRELOAD");
}

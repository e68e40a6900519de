// SPDX-License-Identifier: MIT
// Without descriptors of processes, Qt makes its children with fork() in place of a bare clone(), of which
// neither ThreadSanitizer nor qemu's user emulation knows enough: under the one the child waits for locks for
// ever, to the other a clone() that gives a descriptor is an error. Linked into a program or preloaded.

#include <cerrno>
#include <cstdlib>

#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

extern "C" int waitid(idtype_t type, id_t id, siginfo_t *info, int options)
{
    if (type != P_PIDFD)
        return static_cast<int>(::syscall(SYS_waitid, type, id, info, options, nullptr));
    errno = EINVAL;
    return -1;
}

/// What is preloaded into an emulated program is of no use to the programs that it starts.
__attribute__((constructor)) static void keepToThisProgram()
{
    ::unsetenv("LD_PRELOAD");
}

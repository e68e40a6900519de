// SPDX-License-Identifier: MIT
#ifndef SHIM_H
#define SHIM_H

#include <QtGlobal>

#include <cstdint>
#include <functional>
#include <vector>

#include <sys/types.h>

/// What the C library returns from now on, to Qt and to the library alike: the program's own definitions take
/// precedence over those of libc. An error of 0 is none; a name restricts the error to files with that name.
struct Faults {
    int openError = 0;                                   ///< opendir()
    std::function<void(const char *path)> beforeOpening; ///< called by each opendir(), never within itself
    int readError = 0; ///< readdir(), after this many entries of each directory:
    int readErrorAfter = 0;
    bool unknownTypes = false; ///< readdir() reports no types
    int statxCalls = 0;        ///< calls of statx() so far
    int tzsetCalls = 0;        ///< calls of tzset() so far
    std::int64_t birth = 0;    ///< birth time reported by statx(), in seconds since 1970; 0: the real one
    int statxError = 0;
    const char *statxName = nullptr;
    int mkdirError = 0;
    int removeError = 0; ///< unlink() and rmdir()
    const char *removeName = nullptr;
    int forkError = 0;             ///< fork() and clone()
    int unsetDescriptor = 1000;    ///< what a failed clone() leaves in place of the child's descriptor
    bool cannotBeKilled = false;   ///< kill() succeeds without effect
    unsigned killMicroseconds = 0; ///< kill() takes this long
    bool timePasses = false;       ///< a wait of a second or more ends at once, and the clock is advanced
    bool killedAll = false;        ///< kill() was called for every process of the system
    std::vector<int> sentSignals;  ///< by kill() so far
    int afterEntries = 0;
    std::function<void()> whileReading; ///< called once, after this many entries of a directory
};

extern Faults faults;

/// Sets the faults until the end of the scope.
class WithFaults
{
public:
    explicit WithFaults(const Faults &wanted) { faults = wanted; }
    ~WithFaults() { faults = Faults(); }
    Q_DISABLE_COPY(WithFaults)
};

#endif // SHIM_H

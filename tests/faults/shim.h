// SPDX-License-Identifier: MIT
#ifndef SHIM_H
#define SHIM_H

#include <cstdint>
#include <functional>
#include <vector>

#include <sys/types.h>

/// What the C library answers from now on, to Qt and to the library alike: the program's own definitions
/// stand before those of libc. An error of 0 is none; a name restricts the error to files of that name.
struct Faults {
    int openError = 0;                                   ///< opendir()
    std::function<void(const char *path)> beforeOpening; ///< called by each opendir(), never within itself
    int readError = 0; ///< readdir(), after so many entries of each directory:
    int readErrorAfter = 0;
    bool unknownTypes = false; ///< readdir() tells no types
    int looks = 0;             ///< calls of statx() so far
    int zoneReadings = 0;      ///< calls of tzset() so far
    std::int64_t birth = 0; ///< what statx() tells as the time of creation, in seconds since 1970, if not 0
    int statxError = 0;
    const char *statxName = nullptr;
    int mkdirError = 0;
    int removeError = 0; ///< unlink() and rmdir()
    const char *removeName = nullptr;
    int forkError = 0;           ///< fork() and clone()
    int unsetDescriptor = 1000;  ///< what clone() leaves where the child's descriptor belongs
    bool cannotBeKilled = false; ///< kill() succeeds, and nothing ends
    bool timePasses = false; ///< a wait of a second or more is over at once, and the clock shows that it was
    bool killedAll = false;  ///< whether kill() was asked to signal every process of the system
    std::vector<int> sentSignals; ///< what kill() sent so far
    int afterEntries = 0;
    std::function<void()> whileReading; ///< called once, when so many entries of a directory were read
};

extern Faults faults;

/// Sets the faults for a block.
class WithFaults
{
public:
    explicit WithFaults(const Faults &wanted) { faults = wanted; }
    ~WithFaults() { faults = Faults(); }
    WithFaults(const WithFaults &) = delete;
    WithFaults &operator=(const WithFaults &) = delete;
};

#endif // SHIM_H

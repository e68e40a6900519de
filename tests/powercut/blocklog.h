// SPDX-License-Identifier: MIT
#ifndef BLOCKLOG_H
#define BLOCKLOG_H

#include <cstdint>

/// What happened to the disks. A log is a sequence of these, each followed by size bytes: what was written,
/// or the text of a report.
struct Event {
    enum Kind : std::uint32_t { Write, Flush, Report };
    Kind kind;
    std::uint32_t disk;
    std::uint64_t offset;
    std::uint64_t size;
};

#endif // BLOCKLOG_H

// SPDX-License-Identifier: MIT
#ifndef BLOCKLOG_H
#define BLOCKLOG_H

#include <cstdint>
#include <fstream>
#include <string>
#include <vector>

/// What happened to the disks, in order. The log is a sequence of these headers, each followed by size bytes of
/// data: those written, or the text of a report.
struct Event {
    enum Kind : std::uint32_t { Write, Flush, Report };
    Kind kind;
    std::uint32_t disk;
    std::uint64_t offset;
    std::uint64_t size;
};

/// Reads a log into memory.
struct LoggedEvent {
    Event event;
    std::string data;
};

inline std::vector<LoggedEvent> readLog(const std::string &path)
{
    std::vector<LoggedEvent> events;
    std::ifstream file(path, std::ios::binary);
    LoggedEvent next;
    while (file.read(reinterpret_cast<char *>(&next.event), sizeof next.event)) {
        next.data.resize(next.event.size);
        if (next.event.size > 0 && !file.read(&next.data[0], static_cast<std::streamsize>(next.event.size)))
            break;
        events.push_back(next);
    }
    return events;
}

#endif // BLOCKLOG_H

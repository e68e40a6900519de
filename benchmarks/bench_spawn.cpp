// SPDX-License-Identifier: MIT
#include "benchmarks.h"
#include "process.h"
#include "ratios.h"
#include "vornfilehandler.h"

#include <cstring>
#include <memory>

#include <sys/mman.h>

/// Memory of a host, written to page by page.
struct Memory {
    std::size_t mebibytes;
    int advice;
    const char *name;
};

static constexpr Memory MEMORIES[] = {
    {0, MADV_NOHUGEPAGE, ""},
    {100, MADV_NOHUGEPAGE, ""},
    {500, MADV_NOHUGEPAGE, ""},
    {1000, MADV_NOHUGEPAGE, ""},
    {1000, MADV_HUGEPAGE, " in huge pages"},
    {1000, MADV_DONTFORK, " that are not inherited"},
};

static void *held = nullptr;

static void hold(const Memory &memory)
{
    const std::size_t bytes = memory.mebibytes << 20U;
    if (bytes == 0)
        return;
    held = ::mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (held == MAP_FAILED)
        qFatal("no memory");
    if (memory.advice == MADV_DONTFORK)
        ::madvise(held, bytes, MADV_NOHUGEPAGE);
    ::madvise(held, bytes, memory.advice);
    std::memset(held, 1, bytes);
}

static void release(const Memory &memory)
{
    if (held)
        ::munmap(held, memory.mebibytes << 20U);
    held = nullptr;
}

static void libraryTrue()
{
    QString output;
    QString errors;
    VornFileHandler::execCmdLine("true", {"x"}, output, errors);
}

void addSpawn()
{
    for (const Memory &memory : MEMORIES) {
        const std::string size = std::to_string(memory.mebibytes);
        compare({"start of a process, host with " + size + " MiB" + memory.name,
                 0,
                 {{"posix_spawn",
                   [] {
                       runBySpawn({"true", "x"});
                   }},
                  {"library", libraryTrue},
                  {"QProcess",
                   [] {
                       runByQt({"true", "x"});
                   }}},
                 [memory] { hold(memory); },
                 [memory] { release(memory); }});
    }
}

// SPDX-License-Identifier: MIT
#include "fuzz.h"

#include <cstdio>
#include <cstdlib>
#include <filesystem>

namespace fs = std::filesystem;

Scratch::Scratch()
{
    ::setenv("TZ", "UTC", 1); // before Qt reads it
    const fs::path memory = "/dev/shm";
    mPath = ((fs::is_directory(memory) ? memory : fs::temp_directory_path()) / "vornfuzzXXXXXX").string();
    if (!::mkdtemp(mPath.data()))
        std::abort();
}

Scratch::~Scratch()
{
    fs::remove_all(mPath);
}

void Scratch::clear() const
{
    for (const fs::directory_entry &entry : fs::directory_iterator(mPath))
        fs::remove_all(entry.path());
}

void requireEqual(const char *what, const QByteArray &library, const QByteArray &expected)
{
    if (library == expected)
        return;
    std::printf("%s differ\n--- library\n%s\n--- expected\n%s\n", what, library.constData(),
                expected.constData());
    std::fflush(stdout); // abort() does not
    std::abort();
}

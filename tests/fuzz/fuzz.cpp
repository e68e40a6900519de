// SPDX-License-Identifier: MIT
#include "fuzz.h"

#include <cstdio>
#include <cstdlib>
#include <filesystem>

#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

namespace fs = std::filesystem;

namespace {

int quietFile()
{
    static const int descriptor = ::memfd_create("standard error", MFD_CLOEXEC);
    return descriptor;
}

} // namespace

Scratch::Scratch()
{
    // Before Qt looks at them.
    ::setenv("LC_ALL", "C.UTF-8", 1);
    ::setenv("TZ", "UTC", 1);
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

Quiet::Quiet() : mSaved(::dup(STDERR_FILENO))
{
    std::fflush(stderr);
    ::dup2(quietFile(), STDERR_FILENO);
}

Quiet::~Quiet()
{
    take();
    ::dup2(mSaved, STDERR_FILENO);
    ::close(mSaved);
}

QByteArray Quiet::take()
{
    std::fflush(stderr);
    struct stat status = {};
    ::fstat(quietFile(), &status);
    QByteArray text(static_cast<int>(status.st_size), '\0');
    text.truncate(static_cast<int>(::pread(quietFile(), text.data(), static_cast<size_t>(text.size()), 0)));
    if (::ftruncate(quietFile(), 0) == 0)
        ::lseek(quietFile(), 0, SEEK_SET);
    return text;
}

void requireEqual(const char *what, const QByteArray &library, const QByteArray &expected)
{
    if (library == expected)
        return;
    std::printf("%s differ\n--- library\n%s\n--- expected\n%s\n", what, library.constData(),
                expected.constData());
    std::fflush(stdout); // standard error may be held back
    std::abort();
}

// SPDX-License-Identifier: MIT
#include "durable.h"

#include "errors.h"
#include "files.h"
#include "signals.h"

#include <algorithm>
#include <cerrno>
#include <vector>

#include <fcntl.h>
#include <unistd.h>

namespace {

/// Fills @p buffer from the file, beginning at @p offset. Returns the number of bytes, which is less only at
/// the end of the file; on failure, returns -1 and sets errno.
ssize_t readAt(int descriptor, std::vector<char> &buffer, off_t offset)
{
    size_t filled = 0;
    while (filled < buffer.size()) {
        const ssize_t count = ::pread(descriptor, buffer.data() + filled, buffer.size() - filled,
                                      offset + static_cast<off_t>(filled));
        if (count < 0 && errno == EINTR)
            continue;
        if (count < 0)
            return -1;
        if (count == 0)
            break;
        filled += static_cast<size_t>(count);
    }
    return static_cast<ssize_t>(filled);
}

} // namespace

bool flush(int descriptor)
{
    // Some file systems cannot flush a folder and return EINVAL.
    return ::fsync(descriptor) == 0 || errno == EINVAL;
}

bool flushFolder(const QString &path)
{
    const Descriptor folder = openFolder(path);
    return folder.isOpen() && flush(folder.get());
}

bool createExclusively(const QString &path)
{
    if (openFile(path, O_CREAT | O_EXCL | O_WRONLY, 0666).isOpen())
        return true;
    if (errno == EEXIST)
        return false;
    throw Failure(QString("%1: cannot be created: %2").arg(path, errorText(errno)));
}

bool hasSameContent(int one, int other, const QString &path)
{
    constexpr size_t BLOCK = 1 << 20;
    ::posix_fadvise(other, 0, 0, POSIX_FADV_DONTNEED);
    std::vector<char> expected(BLOCK);
    std::vector<char> found(BLOCK);
    for (off_t offset = 0; !isStopped(); offset += static_cast<off_t>(BLOCK)) {
        const ssize_t count = readAt(one, expected, offset);
        if (count < 0)
            throw FileFailure(path, errorText(errno));
        const ssize_t foundCount = readAt(other, found, offset);
        if (foundCount < 0)
            throw FileFailure(path, "its copy cannot be read: " + errorText(errno));
        if (count != foundCount || !std::equal(expected.begin(), expected.begin() + count, found.begin()))
            return false;
        if (count < static_cast<ssize_t>(BLOCK))
            return true;
    }
    return false;
}

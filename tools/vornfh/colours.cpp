// SPDX-License-Identifier: MIT
#include "colours.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include <unistd.h>

namespace {

constexpr char ESCAPE = '\x1b';

/// The write function of the stream. Nothing is buffered, so that nothing is lost if the tool is killed.
ssize_t writeFiltered(void *filter, const char *bytes, size_t size)
{
    const QByteArray rest =
        static_cast<ColourFilter *>(filter)->filtered(QByteArray::fromRawData(bytes, static_cast<int>(size)));
    for (int written = 0; written < rest.size();) {
        const ssize_t count =
            ::write(STDERR_FILENO, rest.constData() + written, static_cast<size_t>(rest.size() - written));
        if (count < 0 && errno != EINTR)
            return 0; // an error, see fopencookie(3)
        written += static_cast<int>(std::max<ssize_t>(count, 0));
    }
    return static_cast<ssize_t>(size);
}

} // namespace

QByteArray ColourFilter::filtered(const QByteArray &bytes)
{
    QByteArray result;
    const auto release = [this, &result] {
        result += mHeld;
        mHeld.clear();
    };
    for (const char byte : bytes) {
        if (byte == ESCAPE)
            release();
        mHeld += byte;
        if (isColour())
            mHeld.clear();
        else if (!canBecomeColour())
            release();
    }
    return result;
}

bool ColourFilter::canBecomeColour() const
{
    return mHeld[0] == ESCAPE && (mHeld.size() < 2 || mHeld[1] == '[')
           && (mHeld.size() < 3 || std::strchr("0123456789;:", mHeld.back()));
}

bool ColourFilter::isColour() const
{
    return mHeld.size() > 2 && mHeld.back() == 'm';
}

void removeUnwantedColours()
{
    if (::isatty(STDERR_FILENO) && qgetenv("NO_COLOR").isEmpty())
        return;
    cookie_io_functions_t functions = {};
    functions.write = writeFiltered;
    static auto *const filter = new ColourFilter; // never deleted: the stream is open until the tool ends
    if (FILE *stream = ::fopencookie(filter, "w", functions)) {
        std::setvbuf(stream, nullptr, _IONBF, 0);
        // In glibc, stderr is a variable ("Standard Streams" in its manual), which the library uses too.
        stderr = stream;
    }
}

// SPDX-License-Identifier: MIT
#ifndef FUZZ_H
#define FUZZ_H

#include <QByteArray>

#include <cstddef>
#include <cstdint>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);

/// A folder in memory for one run of a fuzzer. The constructor sets the time zone to UTC; the destructor
/// deletes the folder.
class Scratch
{
public:
    Scratch();
    ~Scratch();
    Q_DISABLE_COPY(Scratch)

    QByteArray path() const { return mPath.c_str(); }
    QByteArray path(const char *name) const { return path() + "/" + name; }
    void clear() const; ///< deletes everything in it

private:
    std::string mPath;
};

/// Aborts the program if the texts differ, after printing both on standard output.
void requireEqual(const char *what, const QByteArray &library, const QByteArray &expected);

#endif // FUZZ_H

// SPDX-License-Identifier: MIT
#ifndef FUZZ_H
#define FUZZ_H

#include <QByteArray>

#include <cstddef>
#include <cstdint>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);

/// A folder in memory for the run of one fuzzer, with names in UTF-8 and times in UTC. Gone at the end.
class Scratch
{
public:
    Scratch();
    ~Scratch();
    Scratch(const Scratch &) = delete;
    Scratch &operator=(const Scratch &) = delete;

    QByteArray path() const { return mPath.c_str(); }
    QByteArray path(const char *name) const { return path() + "/" + name; }
    void clear() const; ///< deletes all that lies in it

private:
    std::string mPath;
};

/// Holds standard error back while it lives, for a few microseconds.
class Quiet
{
public:
    Quiet();
    ~Quiet();
    Quiet(const Quiet &) = delete;
    Quiet &operator=(const Quiet &) = delete;

    static QByteArray take(); ///< what was written since the last call

private:
    int mSaved;
};

/// Ends the program with both texts on standard output if they differ.
void requireEqual(const char *what, const QByteArray &library, const QByteArray &expected);

#endif // FUZZ_H

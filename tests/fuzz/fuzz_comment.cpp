// SPDX-License-Identifier: MIT
// Input: the length of a comment, the comment, the bytes of an image file.
#include "fuzz.h"
#include "testsupport.h"

#include <exception>

namespace {

constexpr size_t LARGEST = 4096;

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    static const Scratch scratch;
    if (size < 1 || size > LARGEST)
        return -1;
    const QByteArray bytes(reinterpret_cast<const char *>(data) + 1, static_cast<int>(size) - 1);
    const QString path = scratch.path("DCF_0001.jpg");
    writeFile(path, bytes.mid(data[0]));
    int result = 0;
    try {
        const StandardErrorCapture capture; // Exiv2 prints many messages about damaged files
        result = Metadata().setComment(QFileInfo(path), QString::fromUtf8(bytes.left(data[0])));
    } catch (const std::exception &) {
        // Errors of Exiv2 and, for damaged files, exceptions of the C++ library that Exiv2 does not catch.
    }
    requireEqual("results", QByteArray::number(result), "0"); // the file exists
    return 0;
}

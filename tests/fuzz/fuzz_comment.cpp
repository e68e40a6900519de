// SPDX-License-Identifier: MIT
// Input: the length of a comment, the comment, the bytes of an image file.
#include "fuzz.h"
#include "vornfilehandler.h"

#include <QFile>

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
    const QString path = QString::fromUtf8(scratch.path("DCF_0001.jpg"));
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly))
        return -1;
    file.write(bytes.mid(data[0]));
    file.close();
    int result = 0;
    try {
        const Quiet quiet; // Exiv2 has much to say about damaged files
        result = Metadata().setComment(QFileInfo(path), QString::fromUtf8(bytes.left(data[0])));
    } catch (const std::exception &) {
        // Exiv2's own errors, and on damaged files those of the C++ library that it lets pass.
    }
    requireEqual("results", QByteArray::number(result), "0"); // the file exists
    return 0;
}

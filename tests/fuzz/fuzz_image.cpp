// SPDX-License-Identifier: MIT
// Input: the bytes of an image file.
#include "fuzz.h"
#include "testsupport.h"

#include <QImageReader>

using namespace VORN_FILE_HANDLER;

namespace {

constexpr size_t LARGEST = 16384;

QByteArray text(int width, int height)
{
    return QByteArray::number(width) + " x " + QByteArray::number(height);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    static const Scratch scratch;
    if (size > LARGEST)
        return -1;
    const QString path = scratch.path("DCF_0001.jpg");
    writeFile(path, QByteArray(reinterpret_cast<const char *>(data), static_cast<int>(size)));
    Metadata metadata;
    QSize expected;
    {
        const StandardErrorCapture capture; // Qt's readers print many messages about damaged files
        VornFileHandler::getMetadata(QFileInfo(path), metadata);
        expected = QImageReader(path, QByteArray()).size();
    }
    requireEqual("sizes", text(metadata.mWidth, metadata.mHeight), text(expected.width(), expected.height()));
    requireEqual("bytes", QByteArray::number(metadata.mSize), QByteArray::number(qint64(size)));
    return 0;
}

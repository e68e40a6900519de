// SPDX-License-Identifier: MIT
// Input: the bytes of an image file.
#include "fuzz.h"
#include "vornfilehandler.h"

#include <QFile>
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
    const QString path = QString::fromUtf8(scratch.path("DCF_0001.jpg"));
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly))
        return -1;
    file.write(reinterpret_cast<const char *>(data), static_cast<qint64>(size));
    file.close();
    Metadata metadata;
    QSize expected;
    {
        const Quiet quiet; // the readers of Qt have much to say about damaged files
        VornFileHandler::getMetadata(QFileInfo(path), metadata);
        expected = QImageReader(path, QByteArray()).size();
    }
    requireEqual("sizes", text(metadata.mWidth, metadata.mHeight), text(expected.width(), expected.height()));
    requireEqual("bytes", QByteArray::number(metadata.mSize), QByteArray::number(qint64(size)));
    return 0;
}

// SPDX-License-Identifier: MIT
// Input: which program prints, and what it prints.
#include "fuzz.h"
#include "testsupport.h"

#include <QRegularExpression>

#include <algorithm>
#include <cmath>
#include <cstdlib>

#include <sys/stat.h>
#include <unistd.h>

using namespace VORN_FILE_HANDLER;

namespace {

constexpr int LARGEST = 65536;

/// Programs that print the file with their own name.
class Programs
{
public:
    Programs()
    {
        ::mkdir(mScratch.path("bin"), 0755);
        for (const char *name : {"ffprobe", "df", "awk", "cat"})
            if (::symlink(EMIT_PROGRAM, mScratch.path("bin") + "/" + name) != 0)
                std::abort();
        ::setenv("PATH", mScratch.path("bin") + ":/usr/bin:/bin", 1);
        ::setenv("EMIT_FOLDER", mScratch.path(), 1);
        VornFileHandler::mSdBlk = "sda";
    }

    void print(const char *program, const QByteArray &text) const { writeFile(mScratch.path(program), text); }

private:
    Scratch mScratch;
};

/// The size in bytes in df's column without its header and line feeds.
qint64 bytesOf(QString column, const char *header)
{
    return qint64(column.replace(header, "").replace("\n", "").toInt()) * 1024;
}

void probe(const QString &text)
{
    Metadata metadata;
    metadata.mWidth = metadata.mHeight = -7;
    metadata.setType(FILE_TYPE_VIDEO);
    QFileInfo file("/nowhere.avi");
    metadata.setResolution(file);
    const auto match = QRegularExpression("([0-9]+)\\s*\\n\\s*([0-9]+)").match(text);
    const int width = match.hasMatch() ? match.captured(1).toInt() : -7;
    const int height = match.hasMatch() ? match.captured(2).toInt() : -7;
    requireEqual("widths", QByteArray::number(metadata.mWidth), QByteArray::number(width));
    requireEqual("heights", QByteArray::number(metadata.mHeight), QByteArray::number(height));
}

void partitions(const QByteArray &bytes)
{
    const bool mounted = VornFileHandler::isMounted(STORAGE_SD);
    // How grep treats bytes that are not text is not tested here.
    const auto isText = [](char c) { return (c >= ' ' && c <= '~') || c == '\n'; };
    if (std::all_of(bytes.begin(), bytes.end(), isText))
        requireEqual("mounts", QByteArray::number(mounted), QByteArray::number(bytes.contains("sda")));
}

void percent(qint64 size, qint64 free)
{
    const float quotient = std::round(static_cast<float>(free) / static_cast<float>(size) * 100.0F);
    const bool isInRange = static_cast<float>(free) <= static_cast<float>(size) && std::abs(quotient) < 2e9F;
    requireEqual("percentages", QByteArray::number(VornFileHandler::getRemainingPercent(STORAGE_SD)),
                 QByteArray::number(isInRange ? static_cast<int>(quotient) : 0));
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    static const Programs programs;
    if (size < 1 || size > LARGEST)
        return -1;
    const QByteArray bytes(reinterpret_cast<const char *>(data) + 1, static_cast<int>(size) - 1);
    const QString text = QString::fromUtf8(bytes.constData());
    const int mode = data[0] % 5;
    StandardErrorCapture capture;
    programs.print("cat", mode == 1 ? bytes : QByteArray("8 0 1000 sda\n"));
    programs.print("ffprobe", bytes);
    programs.print("awk", bytes);
    switch (mode) {
    case 0: probe(text); break;
    case 1: partitions(bytes); break;
    case 2:
        requireEqual("sizes", QByteArray::number(VornFileHandler::getStorageSize(STORAGE_SD)),
                     QByteArray::number(bytesOf(text, "1K-blocks")));
        break;
    case 3:
        requireEqual("free sizes", QByteArray::number(VornFileHandler::getRemainingBytes(STORAGE_SD)),
                     QByteArray::number(bytesOf(text.toLower(), "available")));
        break;
    default: percent(bytesOf(text, "1K-blocks"), bytesOf(text.toLower(), "available"));
    }
    requireEqual("lines on standard error", capture.take(), QByteArray());
    return 0;
}

// SPDX-License-Identifier: MIT
#include "ebml.h"

int ebmlLength(char first)
{
    int length = 1;
    while (length <= 8 && (static_cast<quint8>(first) & (0x80 >> (length - 1))) == 0)
        ++length;
    return length;
}

qint64 ebmlSize(const QByteArray &bytes, int &length)
{
    const auto first = bytes.isEmpty() ? quint8(0) : static_cast<quint8>(bytes[0]);
    length = ebmlLength(static_cast<char>(first));
    if (length > 8 || bytes.size() < length)
        return -1;
    quint64 value = first & (0xFFU >> length);
    quint64 unknown = 0xFFU >> length;
    for (int i = 1; i < length; ++i) {
        value = value << 8 | static_cast<quint8>(bytes[i]);
        unknown = unknown << 8 | 0xFF;
    }
    return value == unknown ? -1 : static_cast<qint64>(value);
}

void forEachElement(const QByteArray &bytes,
                    const std::function<void(const QByteArray &id, const QByteArray &content)> &work)
{
    constexpr int LONGEST_SIZE = 8;
    int offset = 0;
    while (offset < bytes.size()) {
        const int idLength = ebmlLength(bytes[offset]);
        int sizeLength = 0;
        const qint64 size = ebmlSize(bytes.mid(offset + idLength, LONGEST_SIZE), sizeLength);
        const int start = offset + idLength + sizeLength;
        if (size < 0 || size > bytes.size() - start)
            return;
        work(bytes.mid(offset, idLength), bytes.mid(start, static_cast<int>(size)));
        offset = start + static_cast<int>(size);
    }
}

quint64 ebmlNumber(const QByteArray &content)
{
    quint64 value = 0;
    for (const char byte : content)
        value = value << 8 | static_cast<quint8>(byte);
    return value;
}

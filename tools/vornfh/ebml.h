// SPDX-License-Identifier: MIT
#ifndef EBML_H
#define EBML_H

#include <QByteArray>

#include <functional>

// Matroska files consist of EBML elements (RFC 8794). An element has an ID, a size and content, which can
// itself consist of elements.

/// Reads the size of an EBML element; -1 if it is unknown or @p bytes is too short. Sets @p length to
/// the number of bytes of the size itself.
qint64 ebmlSize(const QByteArray &bytes, int &length);

/// The number of bytes of the ID or size that begins with @p first; more than 8 if there is no such ID or
/// size.
int ebmlLength(char first);

/// Calls @p work for each of the consecutive elements in @p bytes, up to the first incomplete one.
void forEachElement(const QByteArray &bytes,
                    const std::function<void(const QByteArray &id, const QByteArray &content)> &work);

/// The value of an unsigned integer element.
quint64 ebmlNumber(const QByteArray &content);

#endif // EBML_H

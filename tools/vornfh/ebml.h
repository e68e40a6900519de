// SPDX-License-Identifier: MIT
#ifndef EBML_H
#define EBML_H

#include <QByteArray>

#include <functional>

// EBML (RFC 8794) is the structure of Matroska files: elements of an ID, a size and a content, which can be
// elements again.

/// Reads the size of an EBML element; -1 if it is unknown or @p bytes is too short. @p length becomes the
/// number of bytes that it takes.
qint64 ebmlSize(const QByteArray &bytes, int &length);

/// The number of bytes of the ID or size that begins with @p first; more than 8 if there is none.
int ebmlLength(char first);

/// Calls @p work for the elements that follow each other in @p bytes, up to the first that is not complete.
void forEachElement(const QByteArray &bytes,
                    const std::function<void(const QByteArray &id, const QByteArray &content)> &work);

/// The value of an unsigned integer element.
quint64 ebmlNumber(const QByteArray &content);

#endif // EBML_H

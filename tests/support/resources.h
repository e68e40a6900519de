// SPDX-License-Identifier: MIT
#ifndef RESOURCES_H
#define RESOURCES_H

#include <QByteArrayList>

#include <functional>

/// The open descriptors, each with its target.
QByteArrayList openDescriptors();

/// Returns whether this process has a child, even a zombie.
bool hasChildren();

/// By how many bytes the heap grows in forty more runs of @p action; 0 under a sanitizer. If each run
/// leaks one byte, it is SMALLEST_LEAK.
constexpr qint64 SMALLEST_LEAK = 40 * 32;
qint64 heapGrowth(const std::function<void()> &action);

#endif // RESOURCES_H

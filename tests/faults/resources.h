// SPDX-License-Identifier: MIT
#ifndef RESOURCES_H
#define RESOURCES_H

#include <QByteArrayList>

#include <functional>

/// The open descriptors, each with what it leads to.
QByteArrayList openDescriptors();

/// Whether this process has a child, be it only a dead one that no one waited for.
bool hasChildren();

/// By how many bytes the heap grows when @p action runs forty times more; 0 where a sanitizer counts. If
/// each run leaks but one byte, it is SMALLEST_LEAK.
constexpr qint64 SMALLEST_LEAK = 40 * 32;
qint64 heapGrowth(const std::function<void()> &action);

#endif // RESOURCES_H

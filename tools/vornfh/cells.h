// SPDX-License-Identifier: MIT
#ifndef CELLS_H
#define CELLS_H

#include <QString>

#include <optional>

/// The number of cells that @p text takes on a terminal: two for a wide character, such as a Chinese one, and
/// for most emoji; none for a combining character. wcwidth() is not used: in the C locale, which may be the
/// only one on a device, it knows only ASCII.
int cellsOf(const QString &text);

/// @p text if it takes at most @p cells; otherwise, its beginning and "…", which take at most @p cells.
QString elided(const QString &text, int cells);

/// The number of columns of the terminal that is open as @p descriptor; the variable COLUMNS overrides it.
/// nullopt if it is not a terminal or does not know its width.
std::optional<int> terminalWidth(int descriptor);

#endif // CELLS_H

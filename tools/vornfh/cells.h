// SPDX-License-Identifier: MIT
#ifndef CELLS_H
#define CELLS_H

#include <QString>

/// The number of cells that @p text takes on a terminal: two for a wide character, such as a Chinese one, and
/// for most emoji; none for a combining character. wcwidth() is not used: in the C locale, which may be the
/// only one on a device, it knows only ASCII.
int cellsOf(const QString &text);

/// @p text if it takes at most @p cells; otherwise, its beginning and "…", which take at most @p cells.
QString elided(const QString &text, int cells);

#endif // CELLS_H

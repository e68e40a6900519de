// SPDX-License-Identifier: MIT
#ifndef COLOURS_H
#define COLOURS_H

#include <QByteArray>

/// Removes the escape sequences that select a colour: ESC, "[", parameters and "m".
class ColourFilter
{
public:
    /// @p bytes without colours. If they end within a sequence, its beginning is kept for the next call.
    QByteArray filtered(const QByteArray &bytes);

private:
    bool canBecomeColour() const;
    bool isColour() const;

    QByteArray mHeld;
};

/// Removes the colours from the library's diagnostic lines if standard error is not a terminal, or if
/// NO_COLOR is set and not empty. Must be called before anything is printed. The standard error of other
/// programs is not affected.
void removeUnwantedColours();

#endif // COLOURS_H

// SPDX-License-Identifier: MIT
#include "cells.h"

#include <QVector>

#include <algorithm>
#include <iterator>

#include <sys/ioctl.h>
#include <unistd.h>

namespace {

struct Range {
    uint first;
    uint last;
};

/// The characters for which wcwidth() of glibc 2.36 returns 2. Combining and unassigned characters between
/// them are included.
constexpr Range WIDE[] = {
    {0x1100, 0x115f},   {0x231a, 0x231b},   {0x2329, 0x232a},   {0x23e9, 0x23ec},   {0x23f0, 0x23f0},
    {0x23f3, 0x23f3},   {0x25fd, 0x25fe},   {0x2614, 0x2615},   {0x2648, 0x2653},   {0x267f, 0x267f},
    {0x2693, 0x2693},   {0x26a1, 0x26a1},   {0x26aa, 0x26ab},   {0x26bd, 0x26be},   {0x26c4, 0x26c5},
    {0x26ce, 0x26ce},   {0x26d4, 0x26d4},   {0x26ea, 0x26ea},   {0x26f2, 0x26f3},   {0x26f5, 0x26f5},
    {0x26fa, 0x26fa},   {0x26fd, 0x26fd},   {0x2705, 0x2705},   {0x270a, 0x270b},   {0x2728, 0x2728},
    {0x274c, 0x274c},   {0x274e, 0x274e},   {0x2753, 0x2755},   {0x2757, 0x2757},   {0x2795, 0x2797},
    {0x27b0, 0x27b0},   {0x27bf, 0x27bf},   {0x2b1b, 0x2b1c},   {0x2b50, 0x2b50},   {0x2b55, 0x2b55},
    {0x2e80, 0x303e},   {0x3041, 0xa4cf},   {0xa960, 0xa97c},   {0xac00, 0xd7a3},   {0xf900, 0xfaff},
    {0xfe10, 0xfe19},   {0xfe30, 0xfe6b},   {0xff01, 0xff60},   {0xffe0, 0xffe6},   {0x16fe0, 0x1b2ff},
    {0x1f004, 0x1f004}, {0x1f0cf, 0x1f0cf}, {0x1f18e, 0x1f18e}, {0x1f191, 0x1f19a}, {0x1f200, 0x1f320},
    {0x1f32d, 0x1f335}, {0x1f337, 0x1f37c}, {0x1f37e, 0x1f393}, {0x1f3a0, 0x1f3ca}, {0x1f3cf, 0x1f3d3},
    {0x1f3e0, 0x1f3f0}, {0x1f3f4, 0x1f3f4}, {0x1f3f8, 0x1f43e}, {0x1f440, 0x1f440}, {0x1f442, 0x1f4fc},
    {0x1f4ff, 0x1f53d}, {0x1f54b, 0x1f54e}, {0x1f550, 0x1f567}, {0x1f57a, 0x1f57a}, {0x1f595, 0x1f596},
    {0x1f5a4, 0x1f5a4}, {0x1f5fb, 0x1f64f}, {0x1f680, 0x1f6c5}, {0x1f6cc, 0x1f6cc}, {0x1f6d0, 0x1f6d2},
    {0x1f6d5, 0x1f6df}, {0x1f6eb, 0x1f6ec}, {0x1f6f4, 0x1f6fc}, {0x1f7e0, 0x1f7f0}, {0x1f90c, 0x1f93a},
    {0x1f93c, 0x1f945}, {0x1f947, 0x1f9ff}, {0x1fa70, 0x1faff}, {0x20000, 0x3fffd},
};

constexpr uint FIRST_COMBINING = 0x300;

int cellsOf(uint character)
{
    if (character < FIRST_COMBINING)
        return 1;
    const auto category = QChar::category(character);
    const bool isWithinSyllable =
        (character >= 0x1160 && character <= 0x11ff) || (character >= 0xd7b0 && character <= 0xd7ff);
    if (category == QChar::Mark_NonSpacing || category == QChar::Mark_Enclosing || isWithinSyllable)
        return 0;
    const auto *const range =
        std::lower_bound(std::begin(WIDE), std::end(WIDE), character,
                         [](const Range &one, uint wanted) { return one.last < wanted; });
    return range != std::end(WIDE) && range->first <= character ? 2 : 1;
}

} // namespace

int cellsOf(const QString &text)
{
    if (std::all_of(text.begin(), text.end(), [](QChar c) { return c < QChar(FIRST_COMBINING); }))
        return text.size();
    int cells = 0;
    for (const uint character : text.toUcs4())
        cells += cellsOf(character);
    return cells;
}

QString elided(const QString &text, int cells)
{
    if (cellsOf(text) <= cells)
        return text;
    const QString end = "…";
    QString beginning;
    int used = cellsOf(end);
    for (const uint character : text.toUcs4()) {
        used += cellsOf(character);
        if (used > cells)
            break;
        beginning += QString::fromUcs4(&character, 1);
    }
    return beginning + end;
}

std::optional<int> terminalWidth(int descriptor)
{
    if (!::isatty(descriptor))
        return std::nullopt;
    const int columns = qEnvironmentVariableIntValue("COLUMNS");
    if (columns > 0)
        return columns;
    winsize size = {};
    return ::ioctl(descriptor, TIOCGWINSZ, &size) == 0 && size.ws_col > 0 ? std::optional<int>(size.ws_col)
                                                                          : std::nullopt;
}

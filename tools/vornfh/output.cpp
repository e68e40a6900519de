// SPDX-License-Identifier: MIT
#include "output.h"

#include "cells.h"
#include "text.h"

#include <algorithm>
#include <cstdio>
#include <numeric>
#include <optional>

#include <unistd.h>

namespace {

constexpr int SPACING = 2; // between two columns

/// @p widths with the first column narrowed as far as needed for rows of @p room cells, but not below its
/// smallest useful width.
QVector<int> fitted(QVector<int> widths, int room)
{
    constexpr int SMALLEST = 8;
    const int all = std::accumulate(widths.begin(), widths.end(), SPACING * (widths.size() - 1));
    widths[0] -= std::clamp(all - room, 0, std::max(0, widths[0] - SMALLEST));
    return widths;
}

bool changesAreExpected = true;

std::function<void(const Failure &)> &failureObserver()
{
    static std::function<void(const Failure &)> observer;
    return observer;
}

} // namespace

void printLine(const QString &line)
{
    printLines(line.toUtf8() + '\n');
}

void printLines(const QByteArray &lines)
{
    std::fwrite(lines.constData(), 1, static_cast<size_t>(lines.size()), stdout);
    std::fflush(stdout); // so that a reader sees each result immediately
}

void printDone(const QString &line)
{
    printLine(line);
    printIfLost({line});
}

void printIfLost(const QStringList &lines)
{
    if (!changesAreExpected || !isOutputLost())
        return;
    for (const QString &line : lines)
        printError("done, but not written to standard output: " + line);
}

void expectNoChanges()
{
    changesAreExpected = false;
}

bool isOutputLost()
{
    return std::ferror(stdout) != 0;
}

void printJson(const QJsonDocument &document)
{
    printLine(QString::fromUtf8(document.toJson()).trimmed());
}

void printField(const QString &name, const QString &value, int width)
{
    printLine(QString("  %1  ").arg(name, -width) + printable(value));
}

void printError(const QString &message)
{
    std::fprintf(stderr, "vornfh: %s\n", printable(message).toUtf8().constData());
}

void printFailure(const Failure &failure)
{
    printError(QString::fromUtf8(failure.what()));
    if (failureObserver())
        failureObserver()(failure);
}

void setFailureObserver(const std::function<void(const Failure &)> &observer)
{
    failureObserver() = observer;
}

Table::Table(const QStringList &heading, const QVector<int> &rightAligned)
    : mRows({heading}), mWidths(heading.size()), mRightAligned(rightAligned)
{
}

void Table::add(const QStringList &row)
{
    mRows.append(row);
    for (QString &cell : mRows.last())
        cell = printable(cell);
}

void Table::print()
{
    for (const QStringList &row : mRows) {
        for (int column = 0; column < row.size(); ++column)
            mWidths[column] = std::max(mWidths[column], cellsOf(row[column]));
    }
    const std::optional<int> room = terminalWidth(STDOUT_FILENO);
    const QVector<int> widths = room ? fitted(mWidths, *room) : mWidths;
    QString text;
    for (const QStringList &row : mRows) {
        QString line;
        for (int column = 0; column < row.size(); ++column) {
            const QString cell = column == 0 ? elided(row[0], widths[0]) : row[column];
            const QString padding(widths[column] - cellsOf(cell), ' ');
            const bool right = mRightAligned.contains(column);
            const bool last = column == row.size() - 1;
            line += column > 0 ? QString(SPACING, ' ') : QString();
            line += right ? padding + cell : cell + (last ? QString() : padding);
        }
        text += (room ? elided(line, *room) : line) + '\n';
    }
    mRows.clear();
    printLines(text.toUtf8());
}

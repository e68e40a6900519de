// SPDX-License-Identifier: MIT
#include "output.h"

#include "text.h"

#include <algorithm>
#include <cstdio>

void printLine(const QString &line)
{
    std::printf("%s\n", line.toUtf8().constData());
    std::fflush(stdout); // so that a reader sees each result immediately
}

void printDone(const QString &line)
{
    printLine(line);
    if (std::ferror(stdout) != 0)
        printError("done, but not written to standard output: " + line);
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

Table::Table(const QStringList &heading, const QVector<int> &rightAligned)
    : mRows({heading}), mRightAligned(rightAligned)
{
}

void Table::add(const QStringList &row)
{
    QStringList cells;
    for (const QString &cell : row)
        cells.append(printable(cell));
    mRows.append(cells);
}

QVector<int> Table::widths() const
{
    QVector<int> widths(mRows.first().size(), 0);
    for (const QStringList &row : mRows) {
        for (int column = 0; column < row.size(); ++column)
            widths[column] = std::max(widths[column], row[column].toUcs4().size());
    }
    return widths;
}

void Table::print() const
{
    const QVector<int> columns = widths();
    for (const QStringList &row : mRows) {
        QString line;
        for (int column = 0; column < row.size(); ++column) {
            const QString padding(columns[column] - row[column].toUcs4().size(), ' ');
            const bool right = mRightAligned.contains(column);
            const bool last = column == row.size() - 1;
            line += column > 0 ? "  " : "";
            line += right ? padding + row[column] : row[column] + (last ? QString() : padding);
        }
        std::printf("%s\n", line.toUtf8().constData());
    }
}

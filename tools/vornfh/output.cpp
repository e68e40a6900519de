// SPDX-License-Identifier: MIT
#include "output.h"

#include "text.h"

#include <algorithm>
#include <cstdio>

namespace {

/// The number of characters of @p text, which has no unpaired surrogates.
int columnsOf(const QString &text)
{
    return static_cast<int>(
        std::count_if(text.begin(), text.end(), [](QChar c) { return !c.isLowSurrogate(); }));
}

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
    if (!isOutputLost())
        return;
    for (const QString &line : lines)
        printError("done, but not written to standard output: " + line);
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
            mWidths[column] = std::max(mWidths[column], columnsOf(row[column]));
    }
    QString text;
    for (const QStringList &row : mRows) {
        for (int column = 0; column < row.size(); ++column) {
            const QString padding(mWidths[column] - columnsOf(row[column]), ' ');
            const bool right = mRightAligned.contains(column);
            const bool last = column == row.size() - 1;
            text += column > 0 ? "  " : "";
            text += right ? padding + row[column] : row[column] + (last ? QString() : padding);
        }
        text += '\n';
    }
    mRows.clear();
    printLines(text.toUtf8());
}

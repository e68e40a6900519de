// SPDX-License-Identifier: MIT
#ifndef OUTPUT_H
#define OUTPUT_H

#include "errors.h"

#include <QJsonDocument>
#include <QString>
#include <QStringList>
#include <QVector>

#include <functional>

/// Prints one line of a result on standard output.
void printLine(const QString &line);

/// The same for several lines, each with its line feed.
void printLines(const QByteArray &lines);

/// Like printLine(), for something that was done on a storage device. If the line cannot be written to
/// standard output, prints it on standard error.
void printDone(const QString &line);

/// If isOutputLost(), prints @p lines, which say what was done on a storage device, on standard error.
void printIfLost(const QStringList &lines);

/// From now on, printIfLost() prints nothing, because this process changes nothing.
void expectNoChanges();

/// Returns whether something printed on standard output could not be written.
bool isOutputLost();

/// Prints a result as indented JSON on standard output.
void printJson(const QJsonDocument &document);

/// Prints "  name  value" on standard output, with the name padded to @p width.
void printField(const QString &name, const QString &value, int width);

/// Prints a line on standard error: an error or a notice.
void printError(const QString &message);

/// Prints the message of a failure on standard error. The failure is passed to the failure observer too.
void printFailure(const Failure &failure);

/// Sets the function that printFailure() calls from now on; if it is empty, nothing is called.
void setFailureObserver(const std::function<void(const Failure &)> &observer);

/// Calls work(item) for each of @p items. Prints each Failure, and goes on with the next item. Returns the
/// number of failures.
template <typename Items, typename Work>
int forEachReporting(const Items &items, Work work)
{
    int failures = 0;
    for (const auto &item : items) {
        try {
            work(item);
        } catch (const Failure &failure) {
            printFailure(failure);
            ++failures;
        }
    }
    return failures;
}

/// Rows of text, printed in columns under a heading. The columns @p rightAligned contain numbers. A long
/// table is printed in parts: a column is as wide as its widest cell so far. On a terminal, rows are cut to
/// its width; the first column, which contains names, becomes narrower first.
class Table
{
public:
    explicit Table(const QStringList &heading, const QVector<int> &rightAligned = {});

    void add(const QStringList &row);

    /// Prints, on standard output, the rows that have been added since the last call. Cells are made
    /// printable().
    void print();

private:
    QVector<QStringList> mRows;
    QVector<int> mWidths;
    QVector<int> mRightAligned;
};

#endif // OUTPUT_H

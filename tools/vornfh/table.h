// SPDX-License-Identifier: MIT
#ifndef TABLE_H
#define TABLE_H

#include <QJsonDocument>
#include <QString>
#include <QStringList>
#include <QVector>

/// @p text with everything that a terminal would act on as an escape: "\x1b", "\u202e".
QString printable(const QString &text);
/// The same for bytes, of which those that are not valid UTF-8 are escaped as well.
QString printable(const QByteArray &bytes);

/// "1023 B", "1.5 KiB", "3.7 GiB"; "-1 B" stays as it is.
QString humanSize(qint64 bytes);

/// One line of a result on standard output.
void printLine(const QString &line);

/// A result as indented JSON on standard output.
void printJson(const QJsonDocument &document);

/// One line about a failure on standard error, for a command that goes on with the rest.
void printError(const QString &message);

/// Rows of text, printed in columns under a heading. Columns named in @p rightAligned are for numbers.
class Table
{
public:
    explicit Table(const QStringList &heading, const QVector<int> &rightAligned = {});

    void add(const QStringList &row);

    /// Prints heading and rows on standard output; cells are made printable().
    void print() const;

private:
    QVector<int> widths() const;

    QVector<QStringList> mRows;
    QVector<int> mRightAligned;
};

#endif // TABLE_H

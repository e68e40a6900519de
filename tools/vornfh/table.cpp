// SPDX-License-Identifier: MIT
#include "table.h"

#include <QTextCodec>

#include <algorithm>
#include <cstdio>

namespace {

bool isActedOn(uint character)
{
    const auto category = QChar::category(character);
    return category == QChar::Other_Control || category == QChar::Other_Format
           || category == QChar::Other_Surrogate || category == QChar::Separator_Line
           || category == QChar::Separator_Paragraph;
}

QString escaped(uint character)
{
    return character < 0x100 ? QString("\\x%1").arg(character, 2, 16, QChar('0'))
                             : QString("\\u%1").arg(character, 4, 16, QChar('0'));
}

/// Length of the UTF-8 sequence that @p bytes begins with, 0 if that is none.
int sequenceLength(const QByteArray &bytes)
{
    for (int length = 1; length <= std::min(4, bytes.size()); ++length) {
        QTextCodec::ConverterState state(QTextCodec::IgnoreHeader);
        QTextCodec::codecForName("UTF-8")->toUnicode(bytes.constData(), length, &state);
        if (state.invalidChars == 0 && state.remainingChars == 0)
            return length;
    }
    return 0;
}

} // namespace

QString printable(const QString &text)
{
    QString result;
    for (const uint character : text.toUcs4())
        result += isActedOn(character) ? escaped(character) : QString::fromUcs4(&character, 1);
    return result;
}

QString printable(const QByteArray &bytes)
{
    QString result;
    for (int i = 0; i < bytes.size();) {
        const int length = sequenceLength(bytes.mid(i, 4));
        result += length == 0 ? escaped(static_cast<uchar>(bytes[i]))
                              : printable(QString::fromUtf8(bytes.constData() + i, length));
        i += std::max(1, length);
    }
    return result;
}

QString humanSize(qint64 bytes)
{
    static const char *const UNITS[] = {"KiB", "MiB", "GiB", "TiB", "PiB", "EiB"};
    if (bytes < 1024)
        return QString("%1 B").arg(bytes);
    double size = static_cast<double>(bytes) / 1024;
    int unit = 0;
    while (size >= 1023.95) { // what would be shown as 1024.0
        size /= 1024;
        ++unit;
    }
    return QString("%1 %2").arg(size, 0, 'f', 1).arg(UNITS[unit]);
}

void printLine(const QString &line)
{
    std::printf("%s\n", line.toUtf8().constData());
    std::fflush(stdout); // a reader sees each result as soon as it is there
}

void printJson(const QJsonDocument &document)
{
    printLine(QString::fromUtf8(document.toJson()).trimmed());
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

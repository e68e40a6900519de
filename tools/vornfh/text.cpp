// SPDX-License-Identifier: MIT
#include "text.h"

#include <QRegularExpression>
#include <QTextCodec>

#include <algorithm>

namespace {

bool isInterpreted(uint character)
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

/// Returns whether each byte or character of @p text is printable ASCII, as in most names.
template <typename Text>
bool isPlain(const Text &text)
{
    return std::all_of(text.begin(), text.end(), [](auto character) {
        const QChar c(character);
        return c >= ' ' && c <= '~';
    });
}

/// Length of the UTF-8 sequence at the start of @p bytes; 0 if it is not valid.
int sequenceLength(const QByteArray &bytes)
{
    for (int length = 1; length <= std::min(4, bytes.size()); ++length) {
        if (decoded(bytes.left(length)))
            return length;
    }
    return 0;
}

struct Unit {
    QChar letter;
    qint64 factor;
};

/// The value of a whole number that is followed by the letter of one of @p units; nullopt if it is anything
/// else or too large.
std::optional<qint64> parsedAmount(const QString &text, const std::initializer_list<Unit> &units)
{
    static const QRegularExpression AMOUNT(QRegularExpression::anchoredPattern("([0-9]{1,18})([A-Za-z]?)"));
    const auto match = AMOUNT.match(text);
    const auto *const unit = std::find_if(units.begin(), units.end(), [&match](const Unit &one) {
        return match.captured(2) == (one.letter.isNull() ? QString() : QString(one.letter));
    });
    qint64 value = match.captured(1).toLongLong();
    const bool isAmount =
        match.hasMatch() && unit != units.end() && !__builtin_mul_overflow(value, unit->factor, &value);
    return isAmount ? std::optional(value) : std::nullopt;
}

} // namespace

std::optional<QString> decoded(const QByteArray &bytes)
{
    static const QTextCodec *const UTF8 = QTextCodec::codecForName("UTF-8");
    QTextCodec::ConverterState state(QTextCodec::IgnoreHeader);
    const QString text = UTF8->toUnicode(bytes.constData(), bytes.size(), &state);
    return state.invalidChars == 0 && state.remainingChars == 0 ? std::optional(text) : std::nullopt;
}

QString printable(const QString &text)
{
    if (isPlain(text))
        return text;
    QString result;
    for (const uint character : text.toUcs4())
        result += isInterpreted(character) ? escaped(character) : QString::fromUcs4(&character, 1);
    return result;
}

QString printable(const QByteArray &bytes)
{
    if (isPlain(bytes))
        return QString::fromLatin1(bytes);
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
    while (size >= 1023.95) { // it would be shown as 1024.0
        size /= 1024;
        ++unit;
    }
    return QString("%1 %2").arg(size, 0, 'f', 1).arg(UNITS[unit]);
}

QString exactSize(qint64 bytes)
{
    return bytes < 1024 ? humanSize(bytes) : QString("%1 (%2 B)").arg(humanSize(bytes)).arg(bytes);
}

std::optional<qint64> parsedSize(const QString &text)
{
    return parsedAmount(
        text, {{QChar(), 1}, {'K', 1LL << 10}, {'M', 1LL << 20}, {'G', 1LL << 30}, {'T', 1LL << 40}});
}

std::optional<qint64> parsedAge(const QString &text)
{
    return parsedAmount(text, {{'s', 1}, {'m', 60}, {'h', 3600}, {'d', 86400}, {'w', 604800}});
}

QString bitrateText(qint64 bitsPerSecond)
{
    return QString("%1 kbit/s").arg(static_cast<double>(bitsPerSecond) / 1000, 0, 'f', 1);
}

std::optional<QDate> parsedDay(const QString &text)
{
    const QString format = "yyyy-MM-dd";
    const QDate day = QDate::fromString(text, format);
    // QDate also accepts other strings, for example with a sign.
    return day.isValid() && day.toString(format) == text ? std::optional(day) : std::nullopt;
}

QString counted(qint64 count, const QString &noun)
{
    return QString("%1 %2%3").arg(count).arg(noun, count == 1 ? "" : "s");
}

QString durationText(qint64 seconds)
{
    const QString minutes = QString::number(seconds / 60 % 60);
    const QString rest = QString("%1").arg(seconds % 60, 2, 10, QChar('0'));
    return seconds < 3600 ? minutes + ":" + rest
                          : QString("%1:%2:%3").arg(seconds / 3600).arg(minutes.rightJustified(2, '0'), rest);
}

QString bar(qint64 part, qint64 whole, int width)
{
    const int filled = whole > 0 ? static_cast<int>(part * width / whole) : 0;
    return QString(filled, '#') + QString(width - filled, '-');
}

QString timeText(const QDateTime &time)
{
    return time.isValid() ? time.toString("yyyy-MM-dd HH:mm:ss") : QString("unknown");
}

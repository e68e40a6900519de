// SPDX-License-Identifier: MIT
#ifndef SUGGESTION_H
#define SUGGESTION_H

#include <QString>
#include <QStringList>

/// The word in @p known that @p word is probably meant to be: the first of those that differ the least, by at
/// most two letters, or one if @p word is short. Empty if there is none. Leading dashes do not count.
QString similarWord(const QString &word, const QStringList &known);

#endif // SUGGESTION_H

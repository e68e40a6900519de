// SPDX-License-Identifier: MIT
#include "suggestion.h"

#include <algorithm>
#include <vector>

namespace {

QString withoutDashes(const QString &word)
{
    const auto *const start = std::find_if(word.begin(), word.end(), [](QChar c) { return c != '-'; });
    return word.mid(static_cast<int>(start - word.begin()));
}

/// The number of letters to insert, delete, replace or exchange with the next one to get from one word to the
/// other (optimal string alignment distance).
int distance(const QString &one, const QString &other)
{
    const auto width = static_cast<size_t>(other.size()) + 1;
    std::vector<std::vector<int>> costs(static_cast<size_t>(one.size()) + 1, std::vector<int>(width));
    for (int i = 0; i <= one.size(); ++i) {
        for (int j = 0; j <= other.size(); ++j) {
            int &cost = costs[i][j];
            cost = i + j; // if one of them is 0
            if (i == 0 || j == 0)
                continue;
            const int replaced = costs[i - 1][j - 1] + (one[i - 1] == other[j - 1] ? 0 : 1);
            cost = std::min({replaced, costs[i - 1][j] + 1, costs[i][j - 1] + 1});
            if (i > 1 && j > 1 && one[i - 1] == other[j - 2] && one[i - 2] == other[j - 1])
                cost = std::min(cost, costs[i - 2][j - 2] + 1);
        }
    }
    return costs[one.size()][other.size()];
}

} // namespace

QString similarWord(const QString &word, const QStringList &known)
{
    constexpr int SHORT = 4;
    const QString wanted = withoutDashes(word);
    int least = wanted.size() <= SHORT ? 1 : 2;
    QString similar;
    for (const QString &candidate : known) {
        const int differing = distance(wanted, withoutDashes(candidate));
        if (differing < least || (differing == least && similar.isEmpty())) {
            least = differing;
            similar = candidate;
        }
    }
    return similar;
}

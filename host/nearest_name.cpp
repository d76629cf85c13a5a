/// Suggestions for misspelt names, by edit distance.
#include "host/nearest_name.h"

#include <QtCore/QVector>

#include <algorithm>
#include <numeric>

namespace {

/// Longer names are compared by their beginnings, so that a hostile one costs no more.
constexpr qsizetype longestCompared = 64;

struct Distance {
    int whole;
    int beginning; ///< the smallest to any beginning of the known name
};

/// The number of insertions, removals, replacements and swaps of neighbours between two texts.
Distance editDistance(const QString& name, const QString& known) {
    QVector<int> beforeLast(known.size() + 1);
    QVector<int> last(known.size() + 1);
    QVector<int> row(known.size() + 1);
    std::iota(row.begin(), row.end(), 0);
    for (int i = 1; i <= name.size(); ++i) {
        beforeLast.swap(last);
        last.swap(row);
        row[0] = i;
        for (int j = 1; j <= known.size(); ++j) {
            const int replaced = last[j - 1] + (name[i - 1] == known[j - 1] ? 0 : 1);
            row[j] = std::min({replaced, last[j] + 1, row[j - 1] + 1});
            const bool swapped =
                i > 1 && j > 1 && name[i - 1] == known[j - 2] && name[i - 2] == known[j - 1];
            if (swapped)
                row[j] = std::min(row[j], beforeLast[j - 2] + 1);
        }
    }
    return {row.back(), *std::min_element(row.begin(), row.end())};
}

/// The smallest distance seen so far, below a limit, and whose it is.
struct Nearest {
    int limit;
    QString name;

    void offer(int distance, const QString& candidate) {
        if (distance < limit) {
            limit = distance;
            name = candidate;
        }
    }
};

} // namespace

QString nearestName(const QString& name, const QStringList& known) {
    const QString wanted = name.left(longestCompared).toLower();
    const int length = static_cast<int>(wanted.size());
    // At least one character must be left of a misspelt name.
    Nearest whole{std::min(length, std::max(length > 2 ? 2 : 1, length / 3) + 1), {}};
    Nearest beginning{length > 2 ? length / 4 + 1 : 0, {}};
    for (const QString& candidate : known) {
        const Distance distance = editDistance(wanted, candidate.left(longestCompared).toLower());
        whole.offer(distance.whole, candidate);
        beginning.offer(distance.beginning, candidate);
    }
    return whole.name.isNull() ? beginning.name : whole.name;
}

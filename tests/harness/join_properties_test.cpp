/// Join on random sorted tables beside what its modes mean: for each key, which of A's rows come
/// out with which of B's. All modes, sort types, meta types and circumstances.
#include "tests/harness/table_check.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>

using namespace velmorra;
using namespace velmorra::harness;

namespace {

/// How a key column is sorted and what stands in it.
struct KeyKind {
    QChar sortType;
    QChar metaType;

    bool byNumber() const { return sortType == u'0' || sortType == u'9'; }
    bool falls() const { return sortType == u'9' || sortType == u'Z'; }
};

/// Negative, 0 or positive, for keys as they stand in a typed table; null is the empty field.
int order(const KeyKind& kind, const QString& a, const QString& b) {
    int order = 0;
    if (kind.byNumber()) {
        const auto rank = [](const QString& key) {
            return key.isEmpty() ? 0 : key == QLatin1String("nan") ? 1 : 2;
        };
        const double difference = a.toDouble() - b.toDouble();
        order = rank(a) != rank(b) ? rank(a) - rank(b) : (difference > 0) - (difference < 0);
    } else {
        order = a.isEmpty() || b.isEmpty() ? int(!a.isEmpty()) - int(!b.isEmpty()) : a.compare(b);
    }
    return kind.falls() ? -order : order;
}

struct SomeRow {
    QString key;
    QString rest; ///< the other cells
};

/// A sorted table of three columns, its key in some place among them.
struct SomeTable {
    char name;
    KeyKind kind;
    int keyPlace;
    std::vector<SomeRow> rows;

    QString column(int place) const {
        return QLatin1Char(name) + QString::number(place) +
               (place == keyPlace ? QLatin1Char(':') + kind.metaType : QStringLiteral(":U"));
    }
    QString header(bool withOrder, bool withKey) const {
        QStringList columns;
        for (int place = 0; place < 3; ++place) {
            if (place != keyPlace)
                columns += column(place);
            else if (withKey)
                columns += column(place) +
                           (withOrder ? QLatin1Char(':') + kind.sortType + u'1' : QString());
        }
        return columns.join(QLatin1Char(','));
    }
    /// A row with this key; two cells for the others, which stand in `rest`.
    QString line(const QString& key, const QString& rest) const {
        QStringList cells = rest.split(QLatin1Char(','));
        cells.insert(keyPlace, key);
        return cells.join(QLatin1Char(','));
    }
    QString line(const SomeRow& row) const { return line(row.key, row.rest); }
    QStringList lines() const {
        QStringList all = {header(true, true)};
        for (const SomeRow& row : rows)
            all += line(row);
        return all;
    }
    std::vector<SomeRow> rowsOf(const QString& key) const {
        std::vector<SomeRow> found;
        std::copy_if(rows.begin(), rows.end(), std::back_inserter(found),
                     [&](const SomeRow& row) { return order(kind, row.key, key) == 0; });
        return found;
    }
};

class RandomTables {
public:
    explicit RandomTables(unsigned seed) : random_(seed) {}

    int below(int limit) { return static_cast<int>(random_() % static_cast<unsigned>(limit)); }

    SomeTable table(char name, const KeyKind& kind) {
        SomeTable table{name, kind, below(3), {}};
        for (int row = below(4) == 0 ? 0 : below(12); row > 0; --row)
            table.rows.push_back({key(kind), QLatin1Char(name) + QString::number(row) +
                                                 QLatin1String(below(3) == 0 ? "," : ",more")});
        std::stable_sort(table.rows.begin(), table.rows.end(), [&](const auto& a, const auto& b) {
            return order(kind, a.key, b.key) < 0;
        });
        return table;
    }

private:
    QString key(const KeyKind& kind) {
        const int value = below(9) + (below(4) == 0 ? 8 : 0);
        if (value == 0)
            return {};
        if (kind.metaType == u'K')
            return QString::number(value);
        if (kind.metaType == u'F')
            return value == 1 ? QStringLiteral("nan") : QString::number(value / 2.0 - 3);
        return QString::number(value) + QLatin1String(below(2) == 0 ? "" : ".0");
    }

    std::mt19937 random_;
};

const QString noCells = QStringLiteral(",");

/// What comes out for the rows of one key; `nulls` stand for a table without the key.
QStringList rowsOfKey(int mode, const SomeTable& a, const std::vector<SomeRow>& as,
                      const std::vector<SomeRow>& bs) {
    QStringList lines;
    const auto join = [&](const SomeRow& row, const QString& rest) {
        lines += a.line(row) + QLatin1Char(',') + rest;
    };
    const auto aloneFrom = [&](size_t first) {
        for (size_t i = first; i < bs.size(); ++i)
            lines += a.line(bs[i].key, noCells) + QLatin1Char(',') + bs[i].rest;
    };
    const bool isXor = mode == 4 || mode == 10;
    const bool dropsUnmatched = mode == 1 || mode == 7;
    for (const SomeRow& row : as) {
        if (mode == 3 || mode == 9) {
            if (bs.empty())
                lines += a.line(row);
        } else if (bs.empty()) {
            if (!dropsUnmatched)
                join(row, noCells);
        } else if (!isXor) {
            for (size_t i = 0; i < (mode < 6 ? 1 : bs.size()); ++i)
                join(row, bs[i].rest);
        }
    }
    // Of a key that A has too, a full join of unique keys passes over the first row alone.
    if (mode == 2)
        aloneFrom(as.empty() ? 0 : 1);
    if (as.empty() && (isXor || mode == 8))
        aloneFrom(0);
    return lines;
}

QStringList expectedByKey(int mode, const SomeTable& a, const SomeTable& b) {
    const bool keepsB = mode == 2 || mode == 4 || mode == 8 || mode == 10;
    if (a.rows.empty() && !b.rows.empty() && keepsB)
        return b.lines();
    QStringList lines = {a.header(true, true)};
    if (b.rows.empty()) {
        if (mode != 1 && mode != 7)
            lines = a.lines();
        return lines;
    }
    if (mode != 3 && mode != 9)
        lines[0] += QLatin1Char(',') + b.header(false, false);
    std::vector<SomeRow> all = a.rows;
    all.insert(all.end(), b.rows.begin(), b.rows.end());
    std::stable_sort(all.begin(), all.end(), [&](const SomeRow& x, const SomeRow& y) {
        return order(a.kind, x.key, y.key) < 0;
    });
    for (size_t i = 0; i < all.size(); ++i) {
        if (i == 0 || order(a.kind, all[i - 1].key, all[i].key) != 0)
            lines += rowsOfKey(mode, a, a.rowsOf(all[i].key), b.rowsOf(all[i].key));
    }
    return lines;
}

/// The left join of several tables, and the modes without a key.
QStringList expectedByRow(int mode, const SomeTable& a, const std::vector<SomeTable>& slaves) {
    QStringList lines = {a.header(true, true)};
    const bool hasKey = mode == 0;
    for (const SomeTable& b : slaves) {
        if (!b.rows.empty())
            lines[0] += QLatin1Char(',') + b.header(false, !hasKey);
    }
    for (const SomeRow& row : a.rows) {
        if (mode == 11) {
            for (const SomeRow& other : slaves[0].rows)
                lines += a.line(row) + QLatin1Char(',') + slaves[0].line(other);
            continue;
        }
        QString line = a.line(row);
        for (const SomeTable& b : slaves) {
            const std::vector<SomeRow> found = hasKey ? b.rowsOf(row.key) : b.rows;
            if (!b.rows.empty())
                line += QLatin1Char(',') + (!hasKey         ? b.line(found[0])
                                            : found.empty() ? noCells
                                                            : found[0].rest);
        }
        lines += line;
    }
    return lines;
}

void checkSample(int mode, const KeyKind& kind, unsigned seed) {
    RandomTables random(seed);
    const SomeTable a = random.table('a', kind);
    std::vector<SomeTable> slaves;
    const int count = mode == 0 || mode == 5 ? 1 + random.below(3) : 1;
    for (int i = 0; i < count; ++i)
        slaves.push_back(random.table(static_cast<char>('b' + i), kind));
    Case run;
    QString keys;
    QString prefixes = QStringLiteral("<s/>");
    run.inputs[{0, 0}] = tableOf(a.lines());
    for (int i = 0; i < count; ++i) {
        const SomeTable& slave = slaves[static_cast<size_t>(i)];
        run.inputs[{0, i + 1}] = tableOf(slave.lines());
        keys += QLatin1String("<s>") + QLatin1Char(slave.name) + QString::number(slave.keyPlace) +
                QLatin1String("</s>");
        prefixes += QLatin1String("<s/>");
    }
    run.elements = {QStringLiteral("<Join joinMode='%1' keyA='a%2' closeB='%3'>")
                        .arg(mode)
                        .arg(a.keyPlace)
                        .arg(random.below(2)) +
                    QLatin1String("<SlaveKeys>") + keys + QLatin1String("</SlaveKeys><Prefixes>") +
                    prefixes + QLatin1String("</Prefixes></Join>")};
    const bool byRow = mode == 0 || mode == 5 || mode == 11;
    expectTable(run, byRow ? expectedByRow(mode, a, slaves) : expectedByKey(mode, a, slaves[0]));
}

} // namespace

TEST(Join, GivesWhatItsModeMeansOnRandomTables) {
    constexpr unsigned samples = 12;
    for (int mode = 0; mode < 12; ++mode) {
        for (const QChar sortType : QStringLiteral("09AZ")) {
            for (const QChar metaType : QStringLiteral("KFU")) {
                const KeyKind kind{sortType, metaType};
                if (metaType == u'F' && !kind.byNumber())
                    continue;
                for (unsigned seed = 0; seed < samples; ++seed) {
                    SCOPED_TRACE(testing::Message()
                                 << "mode " << mode << " sort " << char(sortType.toLatin1())
                                 << " type " << char(metaType.toLatin1()) << " seed " << seed);
                    checkSample(mode, kind, seed);
                    if (testing::Test::HasFatalFailure())
                        return;
                }
            }
        }
    }
}

#include "engine/row_deal.h"

namespace velmorra {

namespace {

/// The same for equal values, in every process.
size_t hashOf(const QString& value) {
    quint64 hash = value.isNull() ? 1 : 14695981039346656037ull;
    for (const QChar unit : value)
        hash = (hash ^ unit.unicode()) * 1099511628211ull;
    return static_cast<size_t>(hash ^ (hash >> 32));
}

} // namespace

RowDeal dealBatches(size_t rows, size_t workers, size_t batch) {
    RowDeal deal;
    deal.rowsOf.resize(workers);
    deal.runOfRow.reserve(rows);
    for (size_t row = 0; row < rows; ++row) {
        deal.rowsOf[row / batch % workers].push_back(row);
        deal.runOfRow.push_back(row);
    }
    return deal;
}

RowDeal dealPartitions(const PackedTable& table, int column, size_t workers) {
    RowDeal deal;
    deal.rowsOf.resize(workers);
    OneRow row;
    row.setShape(table.shape);
    size_t first = 0;
    for (size_t place = 0; place < table.rows(); ++place) {
        table.read(place, row);
        const QString value = row.colForHash(column);
        const size_t hash = hashOf(value) % workers;
        if (place == 0)
            first = hash;
        if (deal.valueOfRun.empty() || !isSameValue(deal.valueOfRun.back(), value))
            deal.valueOfRun.push_back(detach(value));
        deal.rowsOf[(hash + workers - first) % workers].push_back(place);
        deal.runOfRow.push_back(deal.valueOfRun.size() - 1);
    }
    return deal;
}

} // namespace velmorra

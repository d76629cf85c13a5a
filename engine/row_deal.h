/// How the rows of a table are dealt out to the workers of a parallel section.
#pragma once

#include "engine/packed_table.h"

namespace velmorra {

/// Which rows go to which worker, and to which run of equal partition values each row belongs
/// (without a partition column every row is a run of its own).
struct RowDeal {
    std::vector<std::vector<size_t>> rowsOf; ///< by worker, in order
    std::vector<size_t> runOfRow;
    std::vector<QString> valueOfRun; ///< empty without a partition column
};

/// Batches of `batch` rows in turn, the first to worker 0.
RowDeal dealBatches(size_t rows, size_t workers, size_t batch);

/// Rows of one value in `column` to one worker, those of the first row's value to worker 0.
RowDeal dealPartitions(const PackedTable& table, int column, size_t workers);

/// Null and the empty text are two values, which Qt takes for one.
inline bool isSameValue(const QString& a, const QString& b) {
    return a.isNull() == b.isNull() && a == b;
}

} // namespace velmorra

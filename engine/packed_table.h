/// A table held in memory, its rows packed one behind the other.
///
/// Reading is safe from several threads at once when nobody appends.
#pragma once

#include "host/one_row.h"

#include <vector>

namespace velmorra {

class PackedTable {
public:
    PackedTable() = default;
    explicit PackedTable(PinOutMetaData columns) : shape(std::move(columns)) {}

    /// Columns and declared order of the rows.
    PinOutMetaData shape;

    /// Copies the cells of a row whose meta types are those of `shape`.
    void append(const OneRow& row) { rows_.push_back(row.storeInBuffer(bytes_)); }

    size_t rows() const { return rows_.size(); }

    /// Points the cells of `row` at the row with this place. `row` must have the shape of the
    /// table.
    void read(size_t place, OneRow& row) const { row.initFromBuffer(rows_[place], 0, -1); }

private:
    RowBuffer bytes_;
    std::vector<const uchar*> rows_;
};

/// The same columns in strings that nobody else shares.
inline PinOutMetaData detached(const PinOutMetaData& shape) {
    PinOutMetaData copy{{}, shape.types, shape.sort};
    for (const QString& name : shape.names)
        copy.names.push_back(detach(name));
    copy.types.detach();
    copy.sort.detach();
    return copy;
}

} // namespace velmorra

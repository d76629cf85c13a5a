/// The form in which a sort holds rows: the cells one behind the other, those of the sort columns
/// first and in their order, so that comparing two rows reads their beginnings.
///
///     a  b  c        by c, a       held
///     1  x  7        -->           7 1 x
#pragma once

#include "host/one_row.h"

#include <vector>

namespace velmorra {

class RowForm {
public:
    /// `order` names columns of `shape`, each at most once.
    RowForm(const PinOutMetaData& shape, const QVector<SortInfos>& order);

    /// Bytes that a row takes.
    qsizetype measure(const OneRow& row);

    /// Copies the cells of the row that was measured last.
    void store(const OneRow& row, uchar* to) const {
        for (const Column& column : columns_) {
            std::memcpy(to, row.cells[column.place], static_cast<size_t>(column.measured));
            to += column.measured;
        }
    }

    /// Bytes of a held row.
    qsizetype bytes(const uchar* held) const {
        const uchar* end = held;
        for (const Column& column : columns_)
            end += cell::bytes(end, column.metaType);
        return end - held;
    }

    /// Points the cells of `row`, which has the shape, at those of a held one.
    void load(const uchar* held, OneRow& row) const {
        for (const Column& column : columns_) {
            row.cells[column.place] = held;
            held += cell::bytes(held, column.metaType);
        }
    }

private:
    struct Column {
        int place;
        qint32 metaType;
        qsizetype measured;
    };
    std::vector<Column> columns_;
};

} // namespace velmorra

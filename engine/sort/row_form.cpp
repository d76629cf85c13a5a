#include "engine/sort/row_form.h"

namespace velmorra {

RowForm::RowForm(const PinOutMetaData& shape, const QVector<SortInfos>& order) {
    std::vector<bool> taken(static_cast<size_t>(shape.types.size()), false);
    const auto take = [&](int column) {
        columns_.push_back({column, shape.types[column].type, 0});
        taken[static_cast<size_t>(column)] = true;
    };
    for (const SortInfos& sort : order)
        take(sort.column);
    for (int column = 0; column < shape.types.size(); ++column) {
        if (!taken[static_cast<size_t>(column)])
            take(column);
    }
}

qsizetype RowForm::measure(const OneRow& row) {
    qsizetype sum = 0;
    for (Column& column : columns_) {
        column.measured = cell::bytes(row.cells[column.place], column.metaType);
        sum += column.measured;
    }
    return sum;
}

} // namespace velmorra

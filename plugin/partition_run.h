/// Tells where a partition changes: a run of consecutive rows whose cells in the partition column
/// have the same text. Null and the empty text differ; all null keys are alike, and so are all
/// values that aren't numbers.
#pragma once

#include "host/one_row.h"

#include <vector>

class PartitionRun {
public:
    /// Begins the first run with this row's cell.
    void begin(const OneRow& row, int column);

    /// Whether the row's cell differs from the current run's; a run of its own then begins.
    /// Requires: begun, on a row of the same columns.
    bool changesAt(const OneRow& row) {
        const uchar* const bytes = row.cells[column_];
        if (isSame_(*this, bytes))
            return false;
        keep(bytes);
        return true;
    }

private:
    void keep(const uchar* bytes);
    static bool isSameText(const PartitionRun& run, const uchar* bytes);
    static bool isSameKey(const PartitionRun& run, const uchar* bytes);
    static bool isSameFloat(const PartitionRun& run, const uchar* bytes);

    int column_ = -1;
    qint32 metaType_ = MetaTypeText;
    bool (*isSame_)(const PartitionRun&, const uchar*) = &isSameText;
    std::vector<uchar> cell_; ///< a copy of the run's first cell
};

/// Sorts rows of any number within a limit of memory.
///
/// Rows are held in memory as long as they fit. Beyond that they go, sorted, to runs in a temporary
/// file, which are merged when the rows are handed on; where there are more runs than can be read
/// at a time, some are merged to longer ones before.
#pragma once

#include "engine/sort/row_merge.h"

#include <optional>

namespace velmorra {

/// One thread at a time. A function that returns false has left a problem, or the run was stopped.
class RowSorter {
public:
    /// Sorts rows of a shape by its order, whose orders cellOrder knows. `memoryLimit` counts
    /// everything that grows with the rows, in bytes; a row is held whatever it takes. An empty
    /// folder is the system's one for temporary files. `status` must outlive the sorter.
    RowSorter(const PinOutMetaData& shape, qint64 memoryLimit, const QString& folder,
              const RunStatus& status);
    RowSorter(const RowSorter&) = delete;
    RowSorter& operator=(const RowSorter&) = delete;

    bool add(const OneRow& row);

    /// Behind the last row.
    bool finish();

    /// Points the cells of `row`, which has the shape, at those of the next row, valid until the
    /// next call. False also at the end.
    bool next(OneRow& row);

    /// A null string when there is none.
    const QString& problem() const { return problem_; }

private:
    bool isRunning() const { return status_ == RunStatus::Running; }
    bool spill();
    bool writeRun(RowMerge& merge, SortedRun* run);
    bool reduceRuns();
    void addRuns(RowMerge& merge, size_t first, size_t count, qint64 bufferBytes);

    RowForm form_;
    SortKey key_;
    const RunStatus& status_;
    qint64 limit_;
    qint64 bufferBytes_; ///< of a run that is written or, at least, read
    size_t mostRuns_;    ///< that are merged at a time

    HeldRows held_;
    TemporaryFile file_;
    qint64 fileEnd_ = 0;
    std::vector<SortedRun> runs_;
    std::optional<RowMerge> merge_;
    QString problem_;
};

} // namespace velmorra

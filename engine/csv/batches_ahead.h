/// Reads the batches of a CSV file ahead of their use.
///
/// As many batches are read ahead as were used, up to `mostAhead`, so that a run that ends early
/// has read little for nothing; and none where `mostBytes` of cells wait, so that of very long rows
/// two are in memory: the one in use, and the next.
#pragma once

#include "engine/csv/csv_reader.h"
#include "engine/side_work.h"

#include <array>
#include <exception>

namespace velmorra {

class BatchesAhead : private SideWork {
public:
    /// The reader must be open, and is nobody else's until the end of this object, but for `share`.
    /// `maxRows` is what a batch holds.
    BatchesAhead(SideThreads& threads, CsvReader& reader, int maxRows);
    /// Waits for the batch that is being read: the reader should be told to stop before.
    ~BatchesAhead() override;
    BatchesAhead(const BatchesAhead&) = delete;
    BatchesAhead& operator=(const BatchesAhead&) = delete;

    /// Exchanges a used batch for the next one; throws what reading it threw. Requires: the used
    /// one wasn't the last.
    void next(RowBatch& batch);

private:
    static constexpr size_t mostAhead = 3;
    static constexpr qsizetype mostBytes = 1 << 20;

    bool isDue() const override;
    void doUnit() noexcept override;
    void unitDone() override;

    SideThreads& threads_;
    CsvReader& reader_;
    const int maxRows_;
    std::array<RowBatch, mostAhead> ring_;
    size_t filled_ = 0; ///< batches so far
    size_t used_ = 0;
    qsizetype bytesWaiting_ = 0;
    bool ended_ = false;
    std::exception_ptr thrown_; ///< by the batch behind those that are filled
};

} // namespace velmorra

/// The part of a box that writes its table into one file: the file, which appears whole or not at
/// all, and the count of rows.
#pragma once

#include "engine/engine_box.h"
#include "engine/output_file.h"

#include <atomic>
#include <memory>
#include <mutex>

namespace velmorra {

class FileOutputBox : public OutputBox {
public:
    bool commitOutput() override;
    void discardOutput() override;
    qint64 rowsWritten() const override { return rows_.load(std::memory_order_relaxed); }

protected:
    using OutputBox::OutputBox;

    /// No rows yet; at most those that the run asks for, else `limit` (negative: all).
    void startCounting(qint64 limit);

    /// Opens a file; false when that failed, which the file's error says, or was stopped.
    bool openOutput(const QString& file, StopCheck stop);

    /// Counts a row that was taken; true when no further one is wanted.
    bool countRow() {
        const qint64 rows = rows_.load(std::memory_order_relaxed) + 1;
        rows_.store(rows, std::memory_order_relaxed);
        return rows == rowLimit_;
    }

    /// To be called in afterRun.
    void releaseOutput();

    /// Null where only the columns are wanted, and outside of a run.
    OutputFile* output() const { return output_.get(); }
    bool wantsRows() const { return rowLimit_ != 0; }

private:
    qint64 rowLimit_ = -1;
    std::unique_ptr<OutputFile> output_;
    std::atomic<qint64> rows_{0};
    std::mutex outputLock_; ///< guards the pointer against a discard from another thread
};

} // namespace velmorra

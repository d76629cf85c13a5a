/// Sorted runs of held rows in a temporary file.
///
/// A run is rows one behind the other, each behind its size: groups of seven bits, the lowest
/// first, with the highest bit set in all but the last byte.
#pragma once

#include "engine/sort/entry_sort.h"
#include "engine/temporary_file.h"

#include <memory>

namespace velmorra {

/// A part of the file.
struct SortedRun {
    qint64 place = 0;
    qint64 size = 0;
};

/// Writes a run through a buffer. Nobody else writes to the file meanwhile.
class SortedRunWriter {
public:
    SortedRunWriter(TemporaryFile& file, qint64 place, qint64 bufferBytes);

    /// False with `error` set.
    bool write(const uchar* row, qsizetype size, QString* error);
    bool finish(QString* error) { return flush(error); }

    /// What has been written.
    SortedRun run() const { return run_; }

private:
    bool flush(QString* error);

    TemporaryFile& file_;
    SortedRun run_;
    std::unique_ptr<uchar[]> buffer_;
    qint64 room_;
    qint64 used_ = 0;
};

/// Reads a run, some rows at a time.
class SortedRunReader {
public:
    /// `file` and `key` must outlive the reader.
    SortedRunReader(const TemporaryFile& file, SortedRun run, qint64 bufferBytes,
                    const SortKey& key);

    /// Memory that a reader takes with this size of its buffer, as long as no row is longer.
    static constexpr qint64 bytesFor(qint64 bufferBytes) {
        return bufferBytes + bufferBytes / bytesForEntry * qint64(sizeof(SortEntry));
    }

    /// Makes the next rows the current ones: none at the end of the run. The former ones are valid
    /// no longer. False with `error` set.
    bool fill(QString* error);

    const std::vector<SortEntry>& rows() const { return rows_; }

private:
    static constexpr qint64 bytesForEntry = 32;

    bool takeRow();
    bool load(QString* error);

    const TemporaryFile& file_;
    const SortKey& key_;
    SortedRun rest_; ///< not yet in the buffer
    qint64 room_;
    std::unique_ptr<uchar[]> buffer_;
    qint64 at_ = 0;
    qint64 end_ = 0;
    qint64 wanted_ = 0; ///< bytes that the row at `at_` takes, or more than are there
    std::vector<SortEntry> rows_;
};

} // namespace velmorra

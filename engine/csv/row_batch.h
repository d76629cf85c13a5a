/// A bounded number of rows, parsed ahead of their use.
#pragma once

#include "host/cell.h"

#include <QtCore/QString>

#include <memory>
#include <utility>
#include <vector>

namespace velmorra {

/// Memory for cells whose size is known only when they are written. What was committed stays where
/// it is until `clear`. One thread at a time.
class CellArena {
public:
    /// The next free byte, with room for `bytes` behind it. Throws std::bad_alloc.
    uchar* reserve(qsizetype bytes) {
        if (end_ - next_ < bytes)
            enterBlock(bytes);
        return next_;
    }

    /// As `reserve`, with the end of all the room that there is.
    std::pair<uchar*, uchar*> reserveRest(qsizetype bytes) {
        reserve(bytes);
        return {next_, end_};
    }

    /// Takes what was written from `reserve` up to and without `end`.
    void commit(uchar* end) {
        used_ += end - next_;
        next_ = end;
    }

    /// Bytes committed since the last `clear`.
    qsizetype used() const { return used_; }

    /// Frees everything for reuse and keeps one block of the usual size.
    void clear();

private:
    static constexpr qsizetype blockBytes = 384 << 10;

    void enterBlock(qsizetype bytes);

    struct Block {
        std::unique_ptr<uchar[]> bytes;
        qsizetype size;
    };
    std::vector<Block> blocks_;
    uchar* next_ = nullptr;
    uchar* end_ = nullptr;
    qsizetype used_ = 0;
};

/// What comes behind the rows of a batch.
enum class BatchEnd {
    More,    ///< another batch
    Table,   ///< nothing: the table ends
    Failed,  ///< nothing: `problem` says why
    Stopped, ///< nothing: the run was stopped
};

/// Rows whose cells lie in an arena of their own. Valid until it is filled again.
struct RowBatch {
    /// A batch is full with this many rows, cell pointers, or bytes of cells.
    static constexpr int maxRows = 1024;
    static constexpr int maxCells = 64 << 10;
    static constexpr qsizetype fullBytes = 256 << 10;

    CellArena arena;
    std::vector<const uchar*> cells; ///< rows x columns, and room for more
    int columns = 0;
    int rows = 0;
    qint64 firstLine = 0; ///< line of the file on which the first row begins, from 1
    BatchEnd end = BatchEnd::More;
    QString problem;

    const uchar* const* row(int index) const {
        return cells.data() + size_t(index) * size_t(columns);
    }
    const uchar** row(int index) { return cells.data() + size_t(index) * size_t(columns); }
    void clear();
};

} // namespace velmorra

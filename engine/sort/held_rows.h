/// The rows that a sort holds in memory: packed, in chunks that are sorted one by one as they fill.
///
/// A chunk and the memory to sort it in stay in the processor's caches, and sorting one is over
/// quickly, so that a stopped run never waits for a sort of all rows. The chunks are merged when
/// the rows are handed on.
#pragma once

#include "engine/sort/entry_sort.h"
#include "engine/sort/page_memory.h"

#include <vector>

namespace velmorra {

class HeldRows {
public:
    /// May take `limit` bytes in all.
    HeldRows(const SortKey& key, qint64 limit, const RunStatus& status);

    /// Whether a row of this size may be held beside the others.
    bool hasRoom(qsizetype bytes) const;

    /// Where the next row is to be written. Throws std::bad_alloc.
    uchar* place(qsizetype bytes) {
        if (end_ - next_ < bytes)
            enterBlock(bytes);
        return next_;
    }

    /// Takes the row that was written to `place`. False when the run was stopped.
    bool take(qsizetype bytes) {
        if (chunks_.empty() || chunks_.back().count == chunkRows_)
            addChunk();
        Chunk& chunk = chunks_.back();
        chunk.entries[chunk.count++] = {key_.firstPiece(next_), next_};
        next_ += bytes;
        return chunk.count < chunkRows_ || sortChunk(chunk);
    }

    /// Sorts what isn't yet. False when the run was stopped.
    bool finish();

    /// Rows in order.
    struct Chunk {
        PageMemory<SortEntry> entries;
        size_t count;
    };
    const std::vector<Chunk>& chunks() const { return chunks_; }

    bool isEmpty() const { return chunks_.empty(); }
    qint64 bytes() const { return bytes_; }

    /// Forgets the rows and keeps their memory for further ones.
    void clear();

    /// Gives back the memory in which no rows are.
    void releaseSpare();

private:
    struct Block {
        PageMemory<uchar> bytes;
        qsizetype size;
    };

    qint64 entryBytes() const { return qint64(chunkRows_ * sizeof(SortEntry)); }
    void enterBlock(qsizetype bytes);
    void addChunk();
    bool sortChunk(Chunk& chunk);

    const SortKey& key_;
    const RunStatus& status_;
    qint64 limit_;
    qsizetype blockBytes_;
    size_t chunkRows_;

    std::vector<Block> blocks_;
    size_t usedBlocks_ = 0;
    uchar* next_ = nullptr;
    uchar* end_ = nullptr;
    std::vector<Chunk> chunks_;
    std::vector<PageMemory<SortEntry>> spareEntries_;
    PageMemory<SortEntry> scratch_;
    qint64 bytes_ = 0; ///< of all memory above, used or not
};

} // namespace velmorra

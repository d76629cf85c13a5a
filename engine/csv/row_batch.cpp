#include "engine/csv/row_batch.h"

#include <algorithm>

namespace velmorra {

void CellArena::enterBlock(qsizetype bytes) {
    const qsizetype size = std::max(bytes, blockBytes);
    // Not zeroed: every byte is written before it is read.
    std::unique_ptr<uchar[]> block(new uchar[static_cast<size_t>(size)]);
    next_ = block.get();
    end_ = next_ + size;
    blocks_.push_back({std::move(block), size});
}

void CellArena::clear() {
    const auto usual = std::find_if(blocks_.begin(), blocks_.end(),
                                    [](const Block& block) { return block.size == blockBytes; });
    used_ = 0;
    if (usual == blocks_.end()) {
        blocks_.clear();
        next_ = end_ = nullptr;
        return;
    }
    std::swap(blocks_.front(), *usual);
    blocks_.resize(1);
    next_ = blocks_.front().bytes.get();
    end_ = next_ + blockBytes;
}

void RowBatch::clear() {
    arena.clear();
    rows = 0;
    firstLine = 0;
    end = BatchEnd::More;
    problem = {};
}

} // namespace velmorra

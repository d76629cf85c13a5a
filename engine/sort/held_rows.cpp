#include "engine/sort/held_rows.h"

#include <algorithm>

namespace velmorra {

namespace {

// As large as pays; smaller under a small limit, so that it holds rows rather than free room.
constexpr qint64 largestBlock = largePage;
constexpr qint64 smallestBlock = 64;
constexpr qint64 mostChunkRows = largePage / sizeof(SortEntry);
constexpr qint64 fewestChunkRows = 4;
constexpr qint64 shareOfLimit = 32;

} // namespace

HeldRows::HeldRows(const SortKey& key, qint64 limit, const RunStatus& status)
    : key_(key),
      status_(status),
      limit_(limit),
      blockBytes_(std::clamp(limit / shareOfLimit, smallestBlock, largestBlock)),
      chunkRows_(size_t(std::clamp(limit / shareOfLimit / qint64(sizeof(SortEntry)),
                                   fewestChunkRows, mostChunkRows))) {}

bool HeldRows::hasRoom(qsizetype bytes) const {
    if (chunks_.empty())
        return true;
    qint64 more = 0;
    if (end_ - next_ < bytes &&
        (usedBlocks_ == blocks_.size() || blocks_[usedBlocks_].size < bytes))
        more += std::max(bytes, blockBytes_);
    if (chunks_.back().count == chunkRows_ && spareEntries_.empty())
        more += entryBytes();
    return more == 0 || more <= limit_ - bytes_;
}

void HeldRows::enterBlock(qsizetype bytes) {
    if (usedBlocks_ == blocks_.size() || blocks_[usedBlocks_].size < bytes) {
        const qsizetype size = std::max(bytes, blockBytes_);
        Block block{makePageMemory<uchar>(size_t(size)), size};
        bytes_ += size;
        blocks_.insert(blocks_.begin() + ptrdiff_t(usedBlocks_), std::move(block));
    }
    const Block& block = blocks_[usedBlocks_++];
    next_ = block.bytes.get();
    end_ = next_ + block.size;
}

void HeldRows::addChunk() {
    if (spareEntries_.empty()) {
        spareEntries_.push_back(makePageMemory<SortEntry>(chunkRows_));
        bytes_ += entryBytes();
    }
    chunks_.push_back({std::move(spareEntries_.back()), 0});
    spareEntries_.pop_back();
}

bool HeldRows::sortChunk(Chunk& chunk) {
    if (!scratch_) {
        scratch_ = makePageMemory<SortEntry>(chunkRows_);
        bytes_ += entryBytes();
    }
    return sortEntries(chunk.entries.get(), chunk.count, scratch_.get(), key_, status_);
}

bool HeldRows::finish() {
    const bool isSorted = chunks_.empty() || chunks_.back().count == chunkRows_;
    return isSorted || sortChunk(chunks_.back());
}

void HeldRows::clear() {
    for (Chunk& chunk : chunks_)
        spareEntries_.push_back(std::move(chunk.entries));
    chunks_.clear();
    // A block that a single long row needed isn't kept.
    const auto large = std::remove_if(blocks_.begin(), blocks_.end(), [&](const Block& block) {
        bytes_ -= block.size > blockBytes_ ? block.size : 0;
        return block.size > blockBytes_;
    });
    blocks_.erase(large, blocks_.end());
    usedBlocks_ = 0;
    next_ = end_ = nullptr;
}

void HeldRows::releaseSpare() {
    for (size_t i = usedBlocks_; i < blocks_.size(); ++i)
        bytes_ -= blocks_[i].size;
    blocks_.resize(usedBlocks_);
    bytes_ -= entryBytes() * qint64(spareEntries_.size() + (scratch_ ? 1 : 0));
    spareEntries_.clear();
    scratch_.reset();
}

} // namespace velmorra

/// Blocks on their way into a gel file: one is filled while those before it are compressed.
///
/// The memory is that of a block for each worker and one more.
#pragma once

#include "host/gel/block_compressor.h"

#include <condition_variable>
#include <deque>
#include <mutex>
#include <thread>

namespace gel {

/// The calling thread is one and the same.
class CompressionQueue {
public:
    struct Block {
        Block(const QVector<MetaInfo>& types, quint32 mostRows) : cells(types, mostRows) {}

        BlockCells cells;
        std::shared_ptr<const BlockPlan> plan;
        BlockEntry entry = {};
        GrowingBytes stored;
        bool isDone = false;
        bool failed = false; ///< for want of memory
    };

    /// With no workers, or where no thread can be had, the calling thread compresses.
    CompressionQueue(const QVector<MetaInfo>& types, int workers, quint32 blockRows);
    ~CompressionQueue();
    CompressionQueue(const CompressionQueue&) = delete;
    CompressionQueue& operator=(const CompressionQueue&) = delete;

    /// The block to fill.
    BlockCells& filling() { return blocks_[filling_]->cells; }

    /// Has the filled block compressed. Requires: `pending() < room()`. Throws std::bad_alloc.
    void submit();

    /// Blocks submitted and not yet taken, and how many of them there may be.
    size_t pending() const { return pending_; }
    size_t room() const { return blocks_.size() - 1; }

    /// Waits for the oldest pending block, which belongs to the caller until the next call of
    /// anything here. Throws std::bad_alloc when it could not be compressed.
    const Block& take();

private:
    void work(BlockCompressor* compressor);
    static void compress(BlockCompressor* compressor, Block* block);

    std::vector<std::unique_ptr<Block>> blocks_; ///< used in turn
    size_t filling_ = 0;
    size_t pending_ = 0;
    BlockCompressor own_;
    std::vector<std::unique_ptr<BlockCompressor>> compressors_; ///< one for each thread
    std::shared_ptr<const BlockPlan> plan_;
    size_t submitted_ = 0;
    std::mutex lock_; ///< guards what follows, and isDone of the blocks
    std::condition_variable changed_;
    std::deque<Block*> waiting_;
    bool stops_ = false;
    std::vector<std::thread> threads_;
};

} // namespace gel

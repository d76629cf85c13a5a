#include "host/gel/compression_queue.h"

#include <new>
#include <system_error>

namespace gel {

namespace {
/// Blocks after which it is looked anew how they are best compressed: on the calling thread, so
/// that it doesn't depend on which block is ready when.
constexpr size_t blocksOfAPlan = 32;
} // namespace

CompressionQueue::CompressionQueue(const QVector<MetaInfo>& types, int workers, quint32 blockRows) {
    for (int i = 0; i < std::max(workers, 1) + 1; ++i)
        blocks_.push_back(std::make_unique<Block>(types, blockRows));
    for (int i = 0; i < workers; ++i)
        compressors_.push_back(std::make_unique<BlockCompressor>());
    threads_.reserve(compressors_.size());
    try {
        for (const auto& compressor : compressors_)
            threads_.emplace_back([this, &compressor] { work(compressor.get()); });
    } catch (const std::system_error&) {
        // Fewer do as well.
    }
}

CompressionQueue::~CompressionQueue() {
    {
        const std::lock_guard<std::mutex> guard(lock_);
        stops_ = true;
    }
    changed_.notify_all();
    for (std::thread& thread : threads_)
        thread.join();
}

void CompressionQueue::compress(BlockCompressor* compressor, Block* block) {
    try {
        block->entry = compressor->compress(block->cells, *block->plan, &block->stored);
    } catch (const std::bad_alloc&) {
        block->failed = true;
    }
}

void CompressionQueue::work(BlockCompressor* compressor) {
    std::unique_lock<std::mutex> guard(lock_);
    for (;;) {
        changed_.wait(guard, [this] { return stops_ || !waiting_.empty(); });
        if (stops_)
            return;
        Block* const block = waiting_.front();
        waiting_.pop_front();
        guard.unlock();
        compress(compressor, block);
        guard.lock();
        block->isDone = true;
        changed_.notify_all();
    }
}

void CompressionQueue::submit() {
    Block* const block = blocks_[filling_].get();
    if (submitted_++ % blocksOfAPlan == 0)
        plan_ = std::make_shared<const BlockPlan>(own_.plan(block->cells));
    block->plan = plan_;
    if (threads_.empty()) {
        compress(&own_, block);
        block->isDone = true;
    } else {
        const std::lock_guard<std::mutex> guard(lock_);
        waiting_.push_back(block);
        changed_.notify_all();
    }
    ++pending_;
    filling_ = (filling_ + 1) % blocks_.size();
}

const CompressionQueue::Block& CompressionQueue::take() {
    Block& block = *blocks_[(filling_ + blocks_.size() - pending_) % blocks_.size()];
    {
        std::unique_lock<std::mutex> guard(lock_);
        changed_.wait(guard, [&block] { return block.isDone; });
    }
    if (block.failed)
        throw std::bad_alloc();
    --pending_;
    block.isDone = false;
    block.cells.clear();
    return block;
}

} // namespace gel

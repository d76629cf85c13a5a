#include "host/gel/block_queue.h"

#include <new>
#include <system_error>

namespace gel {

BlockQueue::BlockQueue(const GelFile& file, bool readsAhead) : file_(file) {
    if (!readsAhead || file.blocks() < 2)
        return;
    try {
        thread_ = std::thread([this] { readAll(); });
    } catch (const std::system_error&) {
        // Without a thread each block is read when its turn comes.
    }
}

BlockQueue::~BlockQueue() {
    {
        const std::lock_guard<std::mutex> guard(lock_);
        stops_ = true;
    }
    changed_.notify_all();
    if (thread_.joinable())
        thread_.join();
}

/// What can't be held counts as damaged: the sizes are what the file says.
void BlockQueue::read(size_t block, BlockRows* rows) {
    try {
        if (file_.readBlock(block, &stored_))
            rows->decompress(file_.block(block), stored_.data(), file_.columns().types);
        else
            rows->clear();
    } catch (const std::bad_alloc&) {
        rows->clear();
    }
}

void BlockQueue::readAll() {
    for (size_t block = 0; block < file_.blocks(); ++block) {
        Slot& slot = slots_[block % 2];
        std::unique_lock<std::mutex> guard(lock_);
        changed_.wait(guard, [&] { return stops_ || !slot.isReady; });
        if (stops_)
            return;
        guard.unlock();
        read(block, &slot.rows);
        guard.lock();
        slot.isReady = true;
        changed_.notify_all();
    }
}

BlockRows* BlockQueue::next() {
    if (taken_ == file_.blocks())
        return nullptr;
    Slot& slot = slots_[taken_ % 2];
    if (!thread_.joinable()) {
        read(taken_++, &slot.rows);
        return &slot.rows;
    }
    std::unique_lock<std::mutex> guard(lock_);
    if (taken_ > 0) {
        slots_[(taken_ - 1) % 2].isReady = false;
        changed_.notify_all();
    }
    changed_.wait(guard, [&] { return slot.isReady; });
    ++taken_;
    return &slot.rows;
}

} // namespace gel

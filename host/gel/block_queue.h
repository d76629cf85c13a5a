/// The blocks of a gel file in turn, each decompressed when it is asked for, or ahead on a thread.
#pragma once

#include "host/gel/block_rows.h"
#include "host/gel/gel_file.h"

#include <condition_variable>
#include <mutex>
#include <thread>

namespace gel {

class BlockQueue {
public:
    /// `file` must outlive the queue.
    BlockQueue(const GelFile& file, bool readsAhead);
    ~BlockQueue();
    BlockQueue(const BlockQueue&) = delete;
    BlockQueue& operator=(const BlockQueue&) = delete;

    /// The rows of the next block, until the next call. One without rows is damaged. Null behind
    /// the last one.
    BlockRows* next();

private:
    /// A buffer that belongs to the reading thread or, while `isReady`, to the caller of `next`.
    struct Slot {
        BlockRows rows;
        bool isReady = false;
    };

    void read(size_t block, BlockRows* rows);
    void readAll();

    const GelFile& file_;
    GrowingBytes stored_; ///< used by the thread that reads
    Slot slots_[2];
    size_t taken_ = 0; ///< blocks that `next` has returned
    bool stops_ = false;
    std::mutex lock_; ///< guards isReady and stops_
    std::condition_variable changed_;
    std::thread thread_;
};

} // namespace gel

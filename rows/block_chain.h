/// Bytes that grow in blocks and never move: the memory behind indexes and stores.
///
/// One thread at a time.
#pragma once

#include "rows/big_malloc.h"

#include <vector>

class BlockChain {
public:
    /// Blocks grow up to `blockSize` bytes as the chain does; one has more where an allocation
    /// needs more.
    explicit BlockChain(qint64 blockSize) : blockSize_(blockSize) {}
    BlockChain(const BlockChain&) = delete;
    BlockChain& operator=(const BlockChain&) = delete;
    ~BlockChain() { release(); }

    /// `n` bytes at any address, valid until the chain is released; null when memory fails.
    uchar* alloc(qint64 n) {
        if ((n > end_ - next_ || next_ == nullptr) && !enterNewBlock(n))
            return nullptr;
        uchar* const bytes = next_;
        next_ += n;
        return bytes;
    }

    /// Bytes left in the block that is being filled.
    qint64 room() const { return end_ - next_; }
    qint64 blockSize() const { return blockSize_; }
    /// The next allocation stands at an even address.
    void alignToTwo() { next_ += next_ != end_ ? (reinterpret_cast<quintptr>(next_) & 1) : 0; }

    /// Gives all blocks back.
    void release();

    /// Bytes of all blocks.
    qint64 bytes() const { return bytes_; }

private:
    bool enterNewBlock(qint64 n);

    qint64 blockSize_;
    std::vector<uchar*> blocks_;
    uchar* next_ = nullptr;
    uchar* end_ = nullptr;
    qint64 bytes_ = 0;
};

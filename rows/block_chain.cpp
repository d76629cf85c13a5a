#include "rows/block_chain.h"

#include <algorithm>

namespace {

constexpr qint64 firstBlock = 64 << 10;

} // namespace

bool BlockChain::enterNewBlock(qint64 n) {
    const qint64 size =
        std::max(n, std::clamp(bytes_, std::min(firstBlock, blockSize_), blockSize_));
    uchar* const block = bigMalloc(size);
    if (block == nullptr)
        return false;
    blocks_.push_back(block);
    next_ = block;
    end_ = block + size;
    bytes_ += size;
    return true;
}

void BlockChain::release() {
    for (uchar* const block : blocks_)
        bigFree(block);
    blocks_.clear();
    next_ = end_ = nullptr;
    bytes_ = 0;
}

#include "engine/csv/batches_ahead.h"

#include <algorithm>
#include <utility>

namespace velmorra {

BatchesAhead::BatchesAhead(SideThreads& threads, CsvReader& reader, int maxRows)
    : threads_(threads),
      reader_(reader),
      maxRows_(maxRows) {
    threads_.add(*this);
}

BatchesAhead::~BatchesAhead() {
    threads_.remove(*this);
}

void BatchesAhead::next(RowBatch& batch) {
    batch.clear();
    bool isThere = false;
    threads_.workUntil(*this, [&] {
        isThere = filled_ != used_;
        return isThere || ended_;
    });
    if (!isThere)
        std::rethrow_exception(std::exchange(thrown_, nullptr));
    threads_.update([&] {
        std::swap(batch, ring_[used_++ % mostAhead]);
        bytesWaiting_ -= batch.arena.used();
    });
}

bool BatchesAhead::isDue() const {
    return !ended_ && filled_ - used_ < std::min(mostAhead, used_ + 1) && bytesWaiting_ < mostBytes;
}

void BatchesAhead::doUnit() noexcept {
    try {
        reader_.fill(ring_[filled_ % mostAhead], maxRows_);
    } catch (...) {
        thrown_ = std::current_exception();
    }
}

void BatchesAhead::unitDone() {
    const RowBatch& batch = ring_[filled_ % mostAhead];
    ended_ = thrown_ != nullptr || batch.end != BatchEnd::More;
    if (thrown_ != nullptr)
        return;
    bytesWaiting_ += batch.arena.used();
    ++filled_;
}

} // namespace velmorra

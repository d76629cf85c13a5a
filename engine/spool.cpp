#include "engine/spool.h"

#include <algorithm>

namespace velmorra {

Spool::~Spool() {
    for (const Block& block : blocks_) {
        if (block.charged)
            store_.release(block.size);
    }
}

std::unique_ptr<SpoolReader> Spool::addReader() {
    ++readers_;
    return std::make_unique<SpoolReader>(*this);
}

bool Spool::append(const OneRow& row, QString* error) {
    if (readers_ == 0)
        return true;
    if (!started_) {
        shape_ = row.shape();
        started_ = true;
    }
    const qint64 bytes = row.storedBytes();
    if ((blocks_.empty() || blocks_.back().size - blocks_.back().used < bytes) &&
        !openBlock(bytes, error))
        return false;
    Block& last = blocks_.back();
    row.storeAt(last.bytes.get() + last.used);
    last.used += bytes;
    ++last.rows;
    return true;
}

bool Spool::openBlock(qint64 rowBytes, QString* error) {
    if (!blocks_.empty() && !settle(blocks_.back(), error))
        return false;
    Block block;
    block.size = std::max({rowBytes, std::min(nextSize_, blockBytes_), qint64(1)});
    nextSize_ = std::min(2 * nextSize_, blockBytes_);
    block.bytes.reset(new uchar[static_cast<size_t>(block.size)]);
    block.toCome = readers_;
    blocks_.push_back(std::move(block));
    return true;
}

/// Decides where a block that takes no more rows waits. One with a reader inside can't be moved
/// away under its row: it is asked again when that reader leaves.
bool Spool::settle(Block& full, QString* error) {
    if (full.charged || full.place >= 0 || full.inside > 0 || full.used == 0)
        return true;
    full.charged = store_.reserve(full.size);
    if (full.charged)
        return true;
    full.place = store_.write(full.bytes.get(), full.used, full.size, error);
    if (full.place < 0)
        return false;
    full.bytes.reset();
    return true;
}

bool Spool::leave(qint64 number, QString* error) {
    Block& passed = block(number);
    if (passed.place < 0)
        --passed.inside;
    if (--passed.toCome > 0)
        return settle(passed, error);
    dropPassed();
    return true;
}

void Spool::dropPassed() {
    while (!blocks_.empty() && blocks_.front().toCome <= 0) {
        const Block& front = blocks_.front();
        if (front.charged)
            store_.release(front.size);
        if (front.place >= 0)
            store_.free(front.place, front.size);
        blocks_.pop_front();
        ++first_;
    }
}

const uchar* SpoolReader::enterBlock(QString* error) {
    Spool::Block& block = spool_.block(block_);
    if (block.place < 0) {
        ++block.inside;
        return block.bytes.get();
    }
    loaded_.reset(new uchar[static_cast<size_t>(block.used)]);
    return spool_.store_.read(block.place, loaded_.get(), block.used, error) ? loaded_.get()
                                                                             : nullptr;
}

const OneRow* SpoolReader::next(QString* error) {
    if (closed_)
        return nullptr;
    if (entered_ && rowInBlock_ == spool_.block(block_).rows && block_ + 1 < spool_.end()) {
        loaded_.reset();
        entered_ = false;
        rowInBlock_ = 0;
        if (!spool_.leave(block_++, error))
            return nullptr;
    }
    if (!entered_) {
        if (block_ >= spool_.end())
            return nullptr;
        position_ = enterBlock(error);
        if (position_ == nullptr)
            return nullptr;
        entered_ = true;
    }
    if (rowInBlock_ == spool_.block(block_).rows)
        return nullptr;
    if (row_.isFresh())
        row_.setShape(spool_.shape_);
    position_ = row_.initFromBuffer(position_, 0, -1);
    ++rowInBlock_;
    return &row_;
}

void SpoolReader::close() {
    if (closed_)
        return;
    closed_ = true;
    --spool_.readers_;
    if (entered_ && spool_.block(block_).place < 0)
        --spool_.block(block_).inside;
    for (qint64 number = block_; number < spool_.end(); ++number)
        --spool_.block(number).toCome;
    spool_.dropPassed();
}

} // namespace velmorra

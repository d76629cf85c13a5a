#include "host/row_buffer.h"

#include <algorithm>

namespace {
constexpr qsizetype smallestBlock = 4096;
// Blocks double up to this size, so that a buffer that holds a whole table is made of few blocks
// without ever asking for twice what it needs.
constexpr qsizetype largestGrowth = 16 << 20;
} // namespace

RowBuffer::RowBuffer(int size) {
    if (size > 0)
        allocInNewBlock(size);
    reset();
}

void RowBuffer::enter(size_t block) {
    current_ = block;
    next_ = blocks_[block].bytes.get();
    end_ = next_ + blocks_[block].size;
}

uchar* RowBuffer::allocInNewBlock(qsizetype n) {
    // After a reset the later blocks are there for reuse.
    size_t block = next_ == nullptr ? 0 : current_ + 1;
    while (block < blocks_.size() && blocks_[block].size < n)
        ++block;
    if (block >= blocks_.size()) {
        const qsizetype last = blocks_.empty() ? 0 : blocks_.back().size;
        const qsizetype size = std::max({n, smallestBlock, std::min(2 * last, largestGrowth)});
        blocks_.push_back({std::unique_ptr<uchar[]>(new uchar[static_cast<size_t>(size)]), size});
        block = blocks_.size() - 1;
    }
    enter(block);
    uchar* const bytes = next_;
    next_ += n;
    return bytes;
}

void RowBuffer::resetBlocks() {
    enter(0);
}

void RowBuffer::deepReset(int) {
    blocks_.clear();
    current_ = 0;
    next_ = end_ = nullptr;
}

qsizetype RowBuffer::capacity() const {
    qsizetype sum = 0;
    for (const Block& block : blocks_)
        sum += block.size;
    return sum;
}

uchar* bytesFromQString(uchar* cell, const QString& text) {
    if (text.isNull())
        *cell = cell::nullText;
    else
        cell::writeText(cell, text.constData(), static_cast<int>(text.size()));
    return cell;
}

uchar* bytesFromQString(RowBuffer& buffer, const QString& text) {
    return bytesFromQString(buffer.alloc(cell::textCellBytes(text.size())), text);
}

uchar* bytesFrombytes(RowBuffer& buffer, const uchar* cell) {
    const qsizetype size = cell::textBytes(cell);
    uchar* const copy = buffer.alloc(size);
    std::memcpy(copy, cell, static_cast<size_t>(size));
    return copy;
}

QString qStringFromBytes(const uchar* cell) {
    const cell::TextView view = cell::text(cell);
    if (view.isNull())
        return {};
    QString text(view.size(), Qt::Uninitialized);
    std::memcpy(text.data(), view.chars, 2 * size_t(view.size()));
    return text;
}

QString detach(const QString& text) {
    return text.isNull() ? QString() : QString(text.constData(), text.size());
}

#include "host/gel/block_cells.h"

namespace gel {

namespace {
// A block is large enough for compression to find repetitions, and small enough that it and what
// it becomes stay in the second-level cache.
constexpr quint64 blockBytes = 512 << 10;
// Rows of many columns: a column with few cells in a block compresses badly.
constexpr quint32 fewRows = 256;
constexpr quint64 largestBlockBytes = 8 << 20;
static_assert(largestBlockBytes + mostRowBytes <= mostCellBytes);
} // namespace

void TextCells::add(const uchar* cell) {
    const cell::TextView view = cell::text(cell);
    lengths.push_back(static_cast<quint32>(view.length));
    const size_t units = static_cast<size_t>(view.size());
    if (units == 0)
        return;
    const size_t before = low.size();
    const bool hasHigh = takeLowBytes(view.chars, units, low.add(units));
    if (hasHigh && high.isEmpty())
        std::memset(high.add(before), 0, before);
    if (hasHigh || !high.isEmpty())
        takeHighBytes(view.chars, units, high.add(units));
}

void TextCells::clear() {
    lengths.clear();
    low.clear();
    high.clear();
}

BlockCells::BlockCells(const QVector<MetaInfo>& types, quint32 mostRows) : mostRows_(mostRows) {
    size_t textColumns = 0;
    size_t numberColumns = 0;
    for (const MetaInfo& type : types) {
        const bool isNumber = type.type == MetaTypeKey || type.type == MetaTypeFloat;
        types_.push_back(type.type);
        place_.push_back(static_cast<quint32>(isNumber ? numberColumns++ : textColumns++));
    }
    texts_.resize(textColumns);
    numbers_.resize(numberColumns);
}

bool BlockCells::add(const uchar* const* cells) {
    quint64 bytes = 0;
    for (size_t i = 0; i < types_.size(); ++i) {
        if (types_[i] == MetaTypeKey)
            bytes += 4;
        else if (types_[i] == MetaTypeFloat)
            bytes += 8;
        else // not what the cell takes: its length field may be longer than it has to be
            bytes += static_cast<quint64>(cell::textCellBytes(cell::text(cells[i]).size()));
    }
    if (bytes > mostRowBytes)
        return false;
    cellBytes_ += bytes;
    for (size_t i = 0; i < types_.size(); ++i) {
        if (types_[i] == MetaTypeKey)
            numbers_[place_[i]].put(load<quint32>(cells[i]));
        else if (types_[i] == MetaTypeFloat)
            numbers_[place_[i]].put(load<quint64>(cells[i]));
        else
            texts_[place_[i]].add(cells[i]);
    }
    ++rows_;
    return true;
}

bool BlockCells::isFull() const {
    if (rows_ == mostRows_ || cellBytes_ >= largestBlockBytes)
        return true;
    return cellBytes_ >= blockBytes && rows_ >= fewRows;
}

void BlockCells::clear() {
    for (GrowingBytes& numbers : numbers_)
        numbers.clear();
    for (TextCells& texts : texts_)
        texts.clear();
    rows_ = 0;
    cellBytes_ = 0;
}

} // namespace gel

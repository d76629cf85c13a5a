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

namespace {

/// Adds a cell; the bytes that it takes with its length field in the shortest form.
qint64 addText(const uchar* cell, TextCells* texts) {
    const cell::TextView view = cell::text(cell);
    texts->lengths.put(static_cast<quint32>(view.length));
    const size_t units = static_cast<size_t>(view.size());
    if (units == 0)
        return 1;
    const size_t before = texts->low.size();
    const bool hasHigh = takeLowBytes(view.chars, units, texts->low.add(units));
    if (hasHigh && texts->high.isEmpty())
        std::memset(texts->high.add(before), 0, before);
    if (hasHigh || !texts->high.isEmpty())
        takeHighBytes(view.chars, units, texts->high.add(units));
    return cell::textCellBytes(view.size());
}

} // namespace

BlockCells::BlockCells(const QVector<MetaInfo>& types, quint32 mostRows) : mostRows_(mostRows) {
    for (const MetaInfo& type : types)
        columns_.push_back({type.type, {}, {}});
}

bool BlockCells::add(const uchar* const* cells) {
    quint64 bytes = 0;
    for (Column& column : columns_) {
        const uchar* const cell = *cells++;
        if (column.type == MetaTypeKey) {
            column.numbers.put(load<quint32>(cell));
            bytes += sizeof(quint32);
        } else if (column.type == MetaTypeFloat) {
            column.numbers.put(load<quint64>(cell));
            bytes += sizeof(quint64);
        } else {
            bytes += static_cast<quint64>(addText(cell, &column.texts));
            if (bytes > mostRowBytes)
                return false;
        }
    }
    cellBytes_ += bytes;
    ++rows_;
    return true;
}

bool BlockCells::isFull() const {
    if (rows_ == mostRows_ || cellBytes_ >= largestBlockBytes)
        return true;
    return cellBytes_ >= blockBytes && rows_ >= fewRows;
}

void BlockCells::clear() {
    for (Column& column : columns_) {
        column.numbers.clear();
        column.texts.lengths.clear();
        column.texts.low.clear();
        column.texts.high.clear();
    }
    rows_ = 0;
    cellBytes_ = 0;
}

} // namespace gel

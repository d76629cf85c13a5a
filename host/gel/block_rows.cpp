#include "host/gel/block_rows.h"

#include "host/gel/packed_numbers.h"

#include <new>
#include <zstd.h>

namespace gel {

BlockRows::BlockRows() : context_(ZSTD_createDCtx()) {
    if (context_ == nullptr)
        throw std::bad_alloc();
}

BlockRows::~BlockRows() {
    ZSTD_freeDCtx(context_);
}

bool BlockRows::decompress(const BlockEntry& entry, const uchar* stored,
                           const QVector<MetaInfo>& types) {
    rowsLeft_ = 0;
    columns_.clear();
    encoded_.clear();
    cells_.clear();
    uchar* const encoded = encoded_.add(entry.encodedBytes);
    cells_.reserve(entry.cellBytes); // the cells' place doesn't change from here on
    const size_t size =
        ZSTD_decompressDCtx(context_, encoded, entry.encodedBytes, stored, entry.storedBytes);
    if (size != entry.encodedBytes)
        return false;
    ByteTaker bytes(encoded, size);
    for (const MetaInfo& type : types) {
        if (!decodeColumn(&bytes, type.type, entry.rows, entry.cellBytes - cells_.size()))
            return false;
    }
    if (!bytes.ok() || bytes.left() != 0 || cells_.size() != entry.cellBytes)
        return false;
    rowsLeft_ = entry.rows;
    return true;
}

/// `cellBytes` is what is left of the room for cells.
bool BlockRows::decodeColumn(ByteTaker* bytes, qint32 type, quint32 rows, quint64 cellBytes) {
    uchar* const cells = cells_.data() + cells_.size();
    if (type != MetaTypeKey && type != MetaTypeFloat) {
        const qint64 size = texts_.decode(bytes, rows, cells, cellBytes);
        if (size < 0)
            return false;
        columns_.push_back({cells, 0});
        cells_.commit(static_cast<size_t>(size));
        return true;
    }
    const quint64 cellSize = type == MetaTypeKey ? 4 : 8;
    if (rows * cellSize > cellBytes)
        return false;
    columns_.push_back({cells, static_cast<qsizetype>(cellSize)});
    cells_.commit(rows * cellSize);
    return type == MetaTypeKey ? decodeKeys(bytes, rows, cells)
                               : floats_.decode(bytes, rows, cells);
}

bool BlockRows::decodeKeys(ByteTaker* bytes, quint32 rows, uchar* cells) {
    keys_.resize(rows);
    if (!unpackNumbers(bytes, rows, keys_.data()))
        return false;
    for (size_t i = 0; i < rows; ++i)
        store(cells + 4 * i, static_cast<quint32>(keys_[i] - 1));
    return true;
}

} // namespace gel

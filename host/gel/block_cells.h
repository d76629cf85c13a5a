/// The cells of some rows, gathered column by column on their way into a gel file.
#pragma once

#include "host/gel/byte_planes.h"
#include "host/gel/gel_format.h"
#include "host/gel/growing_bytes.h"
#include "host/one_row.h"

#include <vector>

namespace gel {

/// A text column: lengths as in the length field of a cell, and the texts' bytes.
struct TextCells {
    GrowingBytes lengths; ///< a quint32 for each cell
    GrowingBytes low;
    GrowingBytes high; ///< empty while no unit has a high byte

    size_t count() const { return lengths.size() / sizeof(quint32); }
    quint32 length(size_t cell) const {
        return load<quint32>(lengths.data() + sizeof(quint32) * cell);
    }
};

class BlockCells {
public:
    /// `mostRows` is from 1 to mostBlockRows.
    BlockCells(const QVector<MetaInfo>& types, quint32 mostRows);

    /// False when the row takes more than mostRowBytes: the block is of no use then.
    bool add(const uchar* const* cells);

    /// Whether it has as many rows as a block is to have.
    bool isFull() const;

    void clear();

    quint32 rows() const { return rows_; }
    quint32 cellBytes() const { return static_cast<quint32>(cellBytes_); }
    size_t columns() const { return columns_.size(); }
    qint32 type(size_t column) const { return columns_[column].type; }

    /// Key and Float cells as they are, one behind the other.
    const GrowingBytes& numbers(size_t column) const { return columns_[column].numbers; }
    const TextCells& texts(size_t column) const { return columns_[column].texts; }

private:
    struct Column {
        qint32 type;
        GrowingBytes numbers;
        TextCells texts;
    };

    std::vector<Column> columns_;
    quint32 mostRows_;
    quint32 rows_ = 0;
    quint64 cellBytes_ = 0;
};

} // namespace gel

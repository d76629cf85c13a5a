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
    std::vector<quint32> lengths;
    GrowingBytes low;
    GrowingBytes high; ///< empty while no unit has a high byte

    void add(const uchar* cell);
    void clear();
};

class BlockCells {
public:
    /// `mostRows` is from 1 to mostBlockRows.
    BlockCells(const QVector<MetaInfo>& types, quint32 mostRows);

    /// False, with nothing added, when the row takes more than mostRowBytes.
    bool add(const uchar* const* cells);

    /// Whether it has as many rows as a block is to have.
    bool isFull() const;

    void clear();

    quint32 rows() const { return rows_; }
    quint32 cellBytes() const { return static_cast<quint32>(cellBytes_); }
    size_t columns() const { return types_.size(); }
    qint32 type(size_t column) const { return types_[column]; }

    /// Key and Float cells as they are, one behind the other.
    const GrowingBytes& numbers(size_t column) const { return numbers_[place_[column]]; }
    const TextCells& texts(size_t column) const { return texts_[place_[column]]; }

private:
    std::vector<qint32> types_;
    std::vector<quint32> place_; ///< of each column among those of its kind
    std::vector<GrowingBytes> numbers_;
    std::vector<TextCells> texts_;
    quint32 mostRows_;
    quint32 rows_ = 0;
    quint64 cellBytes_ = 0;
};

} // namespace gel

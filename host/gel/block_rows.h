/// The rows of a block that was read from a gel file.
///
/// One thread at a time.
#pragma once

#include "host/export.h"
#include "host/gel/float_codec.h"
#include "host/gel/text_codec.h"

struct ZSTD_DCtx_s;

namespace gel {

class VELMORRA_CORE BlockRows {
public:
    BlockRows();
    ~BlockRows();
    BlockRows(const BlockRows&) = delete;
    BlockRows& operator=(const BlockRows&) = delete;

    /// Takes the rows of a block whose entry is within the limits. False when the bytes hold
    /// something else than the entry and the types say; there are no rows then. Throws
    /// std::bad_alloc.
    bool decompress(const BlockEntry& entry, const uchar* stored, const QVector<MetaInfo>& types);

    void clear() { rowsLeft_ = 0; }

    quint32 rowsLeft() const { return rowsLeft_; }

    /// Points the cells at the next row. Requires: rowsLeft. They stay until the next decompress.
    void takeRow(const uchar** cells) {
        --rowsLeft_;
        for (Column& column : columns_) {
            *cells++ = column.next;
            column.next += column.size != 0 ? column.size : cell::textBytes(column.next);
        }
    }

private:
    struct Column {
        const uchar* next;
        qsizetype size; ///< of each cell; 0: as its length field says
    };

    bool decodeColumn(ByteTaker* bytes, qint32 type, quint32 rows, quint64 cellBytes);
    bool decodeKeys(ByteTaker* bytes, quint32 rows, uchar* cells);

    ZSTD_DCtx_s* context_;
    GrowingBytes encoded_;
    GrowingBytes cells_;
    std::vector<Column> columns_;
    quint32 rowsLeft_ = 0;
    std::vector<quint64> keys_;
    FloatCodec floats_;
    TextCodec texts_;
};

} // namespace gel

/// RowGroup: rows of one table, packed, which are handed on in their order again and again.
///
/// One thread at a time.
#pragma once

#include "rows/packed_row.h"

class RowGroup {
public:
    /// What of a row is held, and where it is unpacked to. To be set while the group is empty.
    PackedRowDescriptor& descriptor() { return descriptor_; }

    void add(const uchar* const* cells);
    bool isEmpty() const { return first_ == nullptr; }

    void toFirst() { next_ = first_; }

    /// Points `out` at the cells of the next row, which are valid until the next clear. False when
    /// that row is the last one. Requires: there is a next row.
    bool unpackNext(const uchar** out);

    /// Drops the rows and keeps the memory.
    void clear();

    /// Drops the rows and the descriptor, and gives the memory back.
    void release();

private:
    PackedRowDescriptor descriptor_;
    RowBuffer rows_; ///< for each row the address of the next one, then the packed row
    uchar* first_ = nullptr;
    uchar* last_ = nullptr;
    const uchar* next_ = nullptr;
};

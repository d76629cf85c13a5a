/// The allocator of cell bytes: a bump allocator that is emptied once per row.
///
/// Not thread-safe: one thread at a time.
#pragma once

#include "host/cell.h"

#include <memory>
#include <vector>

class VELMORRA_CORE RowBuffer {
public:
    /// `size` is the number of bytes to have at hand from the start; 0 allocates on first use.
    explicit RowBuffer(int size = 0);
    RowBuffer(RowBuffer&&) noexcept = default;
    RowBuffer& operator=(RowBuffer&&) noexcept = default;
    RowBuffer(const RowBuffer&) = delete;
    RowBuffer& operator=(const RowBuffer&) = delete;

    /// `n` bytes at any address, which stay where they are until the next reset or deepReset,
    /// however many allocations follow. Throws std::bad_alloc; the engine turns that into a
    /// message.
    uchar* alloc(qsizetype n) {
        if (end_ - next_ < n)
            return allocInNewBlock(n);
        uchar* const bytes = next_;
        next_ += n;
        return bytes;
    }

    /// Gives back all bytes for reuse and keeps the memory.
    void reset() {
        if (current_ != 0)
            resetBlocks();
        else
            next_ = blocks_.empty() ? nullptr : blocks_.front().bytes.get();
    }

    /// Gives the memory back. The number is there for callers of the older form and isn't used.
    void deepReset(int);

    /// Bytes held, used or not.
    qsizetype capacity() const;

private:
    struct Block {
        std::unique_ptr<uchar[]> bytes;
        qsizetype size;
    };

    uchar* allocInNewBlock(qsizetype n);
    void resetBlocks();
    void enter(size_t block);

    std::vector<Block> blocks_;
    size_t current_ = 0;
    uchar* next_ = nullptr;
    uchar* end_ = nullptr;
};

/// Makes a String cell for `text` in the buffer and returns its address; a null string gives the
/// null cell. The text must have fewer than cell::maxLength code units.
VELMORRA_CORE uchar* bytesFromQString(RowBuffer& buffer, const QString& text);

/// The same at a given address, which must have room for cell::textCellBytes(text.size()).
VELMORRA_CORE uchar* bytesFromQString(uchar* cell, const QString& text);

/// Copies a String cell into the buffer and returns its address.
VELMORRA_CORE uchar* bytesFrombytes(RowBuffer& buffer, const uchar* cell);

/// The text of a String cell as a string of its own; null for a null cell.
VELMORRA_CORE QString qStringFromBytes(const uchar* cell);

/// A deep copy, for a string that may point into a cell or a scratch array; null stays null.
VELMORRA_CORE QString detach(const QString& text);

/// Texts of a column: their lengths, then the low bytes of all units, then the high bytes if there
/// are any.
///
/// Texts of one length, such as codes and dates, may be stored with the first units of all of them
/// in front, then the second ones, and so on.
#pragma once

#include "host/gel/block_cells.h"

namespace gel {

class TextCodec {
public:
    TextCodec() = default;

    /// The bytes in front of the texts themselves; `turned` only where canBeTurned.
    void encodeHead(const TextCells& texts, bool turned, GrowingBytes* out);

    /// Whether all texts have the same length, and at least two units.
    static bool canBeTurned(const TextCells& texts);

    /// Writes cells for `count` texts into the room of `cellBytes` at `cells`, with
    /// GrowingBytes::slack behind. Returns the bytes that they take; -1 when the bytes can't be
    /// that.
    qint64 decode(ByteTaker* bytes, size_t count, uchar* cells, quint64 cellBytes);

private:
    qint64 measure(size_t count, quint64* units) const;
    qint64 writeCells(size_t count, const uchar* low, const uchar* high, uchar* cells) const;

    std::vector<quint64> numbers_;
    GrowingBytes turned_;
};

} // namespace gel

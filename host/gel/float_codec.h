/// Float cells of a column, as decimal numbers where all of them are some.
///
/// 39.15 takes eight bytes that look like noise; 3915 and two places take twelve bits. A column is
/// stored so when dividing gives back every double bit by bit; else its bytes are stored, first the
/// first byte of each cell, then the second of each, and so on.
#pragma once

#include "host/gel/growing_bytes.h"

#include <vector>

namespace gel {

class FloatCodec {
public:
    /// Appends `count` cells, which must be at least one.
    void encode(const uchar* cells, size_t count, GrowingBytes* out);

    /// Writes `count` cells; false when the bytes can't be that.
    bool decode(ByteTaker* bytes, size_t count, uchar* cells);

private:
    bool toDecimals(const uchar* cells, size_t count, unsigned* places);

    std::vector<quint64> numbers_;
};

} // namespace gel

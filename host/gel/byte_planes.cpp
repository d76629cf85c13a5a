#include "host/gel/byte_planes.h"

namespace gel {

namespace {

constexpr size_t tile = 8;

/// Exchanges bits of `a`, `shift` places up, with bits of `b`.
void exchange(quint64& a, quint64& b, unsigned shift, quint64 mask) {
    const quint64 different = (a >> shift ^ b) & mask;
    b ^= different;
    a ^= different << shift;
}

/// Turns 8 by 8 bytes: exchanges quarters, then the quarters of these, and so on.
void transposeTile(const uchar* bytes, size_t width, size_t rows, uchar* out) {
    quint64 lines[tile];
    for (size_t i = 0; i < tile; ++i)
        std::memcpy(&lines[i], bytes + i * width, tile);
    for (size_t i = 0; i < 4; ++i)
        exchange(lines[i], lines[i + 4], 32, 0x00000000FFFFFFFFu);
    for (const size_t i : {0, 1, 4, 5})
        exchange(lines[i], lines[i + 2], 16, 0x0000FFFF0000FFFFu);
    for (const size_t i : {0, 2, 4, 6})
        exchange(lines[i], lines[i + 1], 8, 0x00FF00FF00FF00FFu);
    for (size_t i = 0; i < tile; ++i)
        std::memcpy(out + i * rows, &lines[i], tile);
}

} // namespace

void transpose(const uchar* bytes, size_t rows, size_t width, uchar* out) {
    const size_t tiledRows = rows / tile * tile;
    const size_t tiledWidth = width / tile * tile;
    for (size_t column = 0; column < tiledWidth; column += tile) {
        for (size_t row = 0; row < tiledRows; row += tile)
            transposeTile(bytes + row * width + column, width, rows, out + column * rows + row);
    }
    // What is left: the last columns of all rows, and the last rows of the others.
    for (size_t column = 0; column < width; ++column) {
        for (size_t row = column < tiledWidth ? tiledRows : 0; row < rows; ++row)
            out[column * rows + row] = bytes[row * width + column];
    }
}

} // namespace gel

/// Code units taken apart into their low and high bytes and put together again, at any address.
///
/// Most texts have no high bytes. Apart, both halves are smaller to work on and compress better.
#pragma once

#include <QtCore/QtGlobal>

#include <cstring>

namespace gel {

inline constexpr size_t planeSlack = 8;

// Compilers turn conversions between these into a few instructions of whatever the machine has.
using Units8 [[gnu::vector_size(16)]] = quint16;
using Bytes8 [[gnu::vector_size(8)]] = quint8;

inline Units8 loadUnits(const uchar* units) {
    Units8 block;
    std::memcpy(&block, units, sizeof block);
    return block;
}

inline void storeLow(Units8 block, uchar* low) {
    const Bytes8 bytes = __builtin_convertvector(block, Bytes8);
    std::memcpy(low, &bytes, sizeof bytes);
}

inline Units8 widen(const uchar* low) {
    Bytes8 bytes;
    std::memcpy(&bytes, low, sizeof bytes);
    return __builtin_convertvector(bytes, Units8);
}

/// Writes the low bytes of four units; returns the bits of the units.
inline quint64 takeLowOfFour(const uchar* units, uchar* low) {
    quint64 block;
    std::memcpy(&block, units, sizeof block);
    quint64 bytes = block & 0x00FF00FF00FF00FFu;
    bytes = (bytes | bytes >> 8) & 0x0000FFFF0000FFFFu;
    const quint32 narrow = static_cast<quint32>(bytes | bytes >> 16);
    std::memcpy(low, &narrow, sizeof narrow);
    return block;
}

/// Writes the low bytes of `count` units; returns whether one has a high byte.
inline bool takeLowBytes(const uchar* units, size_t count, uchar* low) {
    if (count >= 8) {
        // The last block overlaps the one in front of it.
        Units8 seen = loadUnits(units + 2 * (count - 8));
        storeLow(seen, low + count - 8);
        for (size_t i = 0; i + 8 < count; i += 8) {
            const Units8 block = loadUnits(units + 2 * i);
            storeLow(block, low + i);
            seen |= block;
        }
        quint64 halves[2];
        std::memcpy(halves, &seen, sizeof halves);
        return ((halves[0] | halves[1]) & 0xFF00FF00FF00FF00u) != 0;
    }
    quint64 seen = 0;
    if (count >= 4) {
        seen = takeLowOfFour(units, low) | takeLowOfFour(units + 2 * (count - 4), low + count - 4);
        return (seen & 0xFF00FF00FF00FF00u) != 0;
    }
    for (size_t i = 0; i < count; ++i) {
        low[i] = units[2 * i];
        seen |= units[2 * i + 1];
    }
    return seen != 0;
}

inline void takeHighBytes(const uchar* units, size_t count, uchar* high) {
    if (count >= 8) {
        storeLow(loadUnits(units + 2 * (count - 8)) >> 8, high + count - 8);
        for (size_t i = 0; i + 8 < count; i += 8)
            storeLow(loadUnits(units + 2 * i) >> 8, high + i);
        return;
    }
    for (size_t i = 0; i < count; ++i)
        high[i] = units[2 * i + 1];
}

/// Writes units from their low bytes, and high bytes unless that is null. May read planeSlack bytes
/// behind what it is asked for, and write twice as many.
inline void joinUnits(const uchar* low, const uchar* high, size_t count, uchar* units) {
    for (size_t i = 0; i < count; i += 8) {
        Units8 block = widen(low + i);
        if (high != nullptr)
            block |= widen(high + i) << 8;
        std::memcpy(units + 2 * i, &block, sizeof block);
    }
}

/// Turns `rows` rows of `width` bytes into `width` rows of `rows` bytes.
void transpose(const uchar* bytes, size_t rows, size_t width, uchar* out);

} // namespace gel

/// The bytes of a cell.
///
/// Key cell: 4 bytes, an unsigned integer in the machine's byte order. Float cell: 8 bytes, an IEEE
/// 754 double. String cell: a length field, then UTF-16 code units without a terminator. The length
/// field holds L: 0 is null, 1 the empty text, else the text has L - 1 code units. It takes one to
/// four bytes of 7 bits, least significant group first; a set high bit marks the last byte (in the
/// fourth it isn't looked at).
///
/// A cell may stand at any address, so everything here loads byte by byte or through memcpy.
#pragma once

#include "host/export.h"
#include "host/meta_info.h"

#include <bit>
#include <cstring>

namespace cell {

/// No value. 0xFFFFFFFE counts as null too in comparisons and in a key's text.
inline constexpr quint32 nullKey = 0xFFFFFFFFu;
inline constexpr quint32 firstNullKey = 0xFFFFFFFEu;
inline constexpr quint64 nullFloatBits = 0xFFFFFFFFFFFFFFFFull;
/// The quiet not-a-number: a value that isn't a number, unlike the null Float.
inline constexpr quint64 invalidFloatBits = 0xFFF8000000000000ull;
inline constexpr uchar nullText = 0x80;
inline constexpr uchar emptyText = 0x81;
/// Largest number a length field can hold.
inline constexpr int maxLength = (1 << 28) - 1;

inline quint32 loadKey(const uchar* cell) {
    quint32 value;
    std::memcpy(&value, cell, sizeof value);
    return value;
}

inline quint64 loadFloatBits(const uchar* cell) {
    quint64 bits;
    std::memcpy(&bits, cell, sizeof bits);
    return bits;
}

inline double loadFloat(const uchar* cell) {
    return std::bit_cast<double>(loadFloatBits(cell));
}
inline void storeKey(uchar* cell, quint32 value) {
    std::memcpy(cell, &value, sizeof value);
}
inline void storeFloat(uchar* cell, double value) {
    std::memcpy(cell, &value, sizeof value);
}
inline double invalidFloat() {
    return std::bit_cast<double>(invalidFloatBits);
}
inline double nullFloat() {
    return std::bit_cast<double>(nullFloatBits);
}

/// A not-a-number that arithmetic produced may have any bits, also those of the null Float; this is
/// the double to store for a computed value.
inline double storableFloat(double value) {
    return value != value ? invalidFloat() : value;
}

/// The code unit at place `index` of text that may be unaligned.
inline char16_t unitAt(const uchar* chars, qsizetype index) {
    char16_t unit;
    std::memcpy(&unit, chars + 2 * index, sizeof unit);
    return unit;
}

/// A String cell taken apart. `length` is the L of the length field.
struct TextView {
    const uchar* chars; ///< the code units, at any address; not to be read when length < 2
    int length;

    bool isNull() const { return length == 0; }
    int size() const { return length > 1 ? length - 1 : 0; } ///< code units
};

inline TextView text(const uchar* cell) {
    int length = cell[0];
    if (length >= 128)
        return {cell + 1, length - 128};
    length += (cell[1] & 0x7F) << 7;
    if (cell[1] >= 128)
        return {cell + 2, length};
    length += (cell[2] & 0x7F) << 14;
    if (cell[2] >= 128)
        return {cell + 3, length};
    return {cell + 4, length + ((cell[3] & 0x7F) << 21)};
}

/// Bytes of the length field that a writer makes for L. The threshold is 127, not 128: stores
/// compare text cells byte by byte, so every writer has to choose alike.
inline int lengthFieldBytes(int length) {
    if (length < 127)
        return 1;
    if (length / 128 < 127)
        return 2;
    return length / 16384 < 127 ? 3 : 4;
}

/// Writes the length field for L (0 to maxLength) and returns the place behind it.
inline uchar* writeLength(uchar* cell, int length) {
    const int bytes = lengthFieldBytes(length);
    for (int i = 0; i + 1 < bytes; ++i) {
        *cell++ = static_cast<uchar>(length & 0x7F);
        length >>= 7;
    }
    *cell++ = static_cast<uchar>((length & 0x7F) | 0x80);
    return cell;
}

/// Bytes of the String cell for a text of `units` code units.
inline qsizetype textCellBytes(qsizetype units) {
    return lengthFieldBytes(static_cast<int>(units) + 1) + 2 * units;
}

/// Bytes of a String cell, length field included.
inline qsizetype textBytes(const uchar* cell) {
    const TextView view = text(cell);
    return view.isNull() ? 1 : (view.chars - cell) + 2 * qsizetype(view.length - 1);
}

/// Bytes of a cell of a column with this meta type.
inline qsizetype bytes(const uchar* cell, qint32 metaType) {
    if (metaType == MetaTypeKey)
        return 4;
    return metaType == MetaTypeFloat ? 8 : textBytes(cell);
}

/// Writes a String cell for `units` code units at `chars` (any address) and returns the place
/// behind it. `cell` must have room for textCellBytes(units).
inline uchar* writeText(uchar* cell, const void* chars, int units) {
    cell = writeLength(cell, units + 1);
    std::memcpy(cell, chars, 2 * size_t(units));
    return cell + 2 * qsizetype(units);
}

/// The shared null cell of a column with this meta type; it lives as long as the process.
VELMORRA_CORE const uchar* nullCell(qint32 metaType);

/// Whether a cell is the null of its column's form.
inline bool isNull(const uchar* cell, qint32 metaType) {
    if (metaType == MetaTypeKey)
        return loadKey(cell) >= firstNullKey;
    if (metaType == MetaTypeFloat)
        return loadFloatBits(cell) == nullFloatBits;
    return text(cell).isNull();
}

} // namespace cell

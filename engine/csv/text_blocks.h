/// Blocks of text at a time: finding the bytes that separate fields, and widening and narrowing
/// ASCII runs. Each has a portable form and, on x86-64, one that uses SSE2.
#pragma once

#include <QtCore/QtGlobal>

#include <bit>
#include <cstring>

#if defined(__x86_64__) && defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace velmorra {

/// Bytes that findSpecials looks at; it reads them all.
inline constexpr int scanBlock = 64;
/// Bytes that widenBlock reads; it writes twice as many.
inline constexpr int widenBytes = 16;
/// Code units that narrowBlock reads; it writes as many bytes.
inline constexpr int narrowUnits = 8;

/// What a block of code units holds.
struct NarrowResult {
    int plain;    ///< units in front of the first that isn't ASCII
    bool special; ///< a delimiter, quote, carriage return or line feed is among them
};

namespace portable {

/// A bit for each of the 64 bytes that is the delimiter, the quote, CR, LF or NUL.
inline quint64 findSpecials(const uchar* bytes, uchar delimiter, uchar quote) {
    quint64 mask = 0;
    for (int i = 0; i < scanBlock; ++i) {
        const uchar c = bytes[i];
        const bool special = c == delimiter || c == quote || c == '\r' || c == '\n' || c == 0;
        mask |= quint64(special) << i;
    }
    return mask;
}

/// Widens 16 bytes to code units at any address. Returns a bit for each byte above 0x7F.
inline unsigned widenBlock(const uchar* bytes, uchar* units) {
    unsigned high = 0;
    for (int i = 0; i < widenBytes; ++i) {
        const char16_t unit = bytes[i];
        std::memcpy(units + 2 * i, &unit, sizeof unit);
        high |= unsigned(bytes[i] >> 7) << i;
    }
    return high;
}

/// Narrows 8 code units at any address. What is written is of use as far as they are plain.
inline NarrowResult narrowBlock(const uchar* units, char* bytes, char delimiter, char quote) {
    int plain = narrowUnits;
    bool special = false;
    for (int i = 0; i < narrowUnits; ++i) {
        char16_t unit;
        std::memcpy(&unit, units + 2 * i, sizeof unit);
        if (unit >= 0x80 && plain == narrowUnits)
            plain = i;
        special |=
            unit == uchar(delimiter) || unit == uchar(quote) || unit == u'\r' || unit == u'\n';
        bytes[i] = static_cast<char>(unit);
    }
    return {plain, special};
}

} // namespace portable

#if defined(__x86_64__) && defined(__SSE2__)

inline __m128i loadBlock(const void* bytes) {
    __m128i block;
    std::memcpy(&block, bytes, sizeof block);
    return block;
}

inline void storeBlock(void* bytes, __m128i block) {
    std::memcpy(bytes, &block, sizeof block);
}

inline quint64 findSpecials(const uchar* bytes, uchar delimiter, uchar quote) {
    const __m128i delimiters = _mm_set1_epi8(static_cast<char>(delimiter));
    const __m128i quotes = _mm_set1_epi8(static_cast<char>(quote));
    const __m128i returns = _mm_set1_epi8('\r');
    const __m128i feeds = _mm_set1_epi8('\n');
    quint64 mask = 0;
    for (int i = 0; i < scanBlock; i += 16) {
        const __m128i block = loadBlock(bytes + i);
        const __m128i marks = _mm_or_si128(
            _mm_or_si128(_mm_cmpeq_epi8(block, delimiters), _mm_cmpeq_epi8(block, quotes)),
            _mm_or_si128(_mm_or_si128(_mm_cmpeq_epi8(block, returns), _mm_cmpeq_epi8(block, feeds)),
                         _mm_cmpeq_epi8(block, _mm_setzero_si128())));
        mask |= quint64(static_cast<unsigned>(_mm_movemask_epi8(marks))) << i;
    }
    return mask;
}

inline unsigned widenBlock(const uchar* bytes, uchar* units) {
    const __m128i block = loadBlock(bytes);
    const __m128i zero = _mm_setzero_si128();
    storeBlock(units, _mm_unpacklo_epi8(block, zero));
    storeBlock(units + 16, _mm_unpackhi_epi8(block, zero));
    return static_cast<unsigned>(_mm_movemask_epi8(block));
}

inline NarrowResult narrowBlock(const uchar* units, char* bytes, char delimiter, char quote) {
    const __m128i block = loadBlock(units);
    const __m128i marks =
        _mm_or_si128(_mm_or_si128(_mm_cmpeq_epi16(block, _mm_set1_epi16(delimiter)),
                                  _mm_cmpeq_epi16(block, _mm_set1_epi16(quote))),
                     _mm_or_si128(_mm_cmpeq_epi16(block, _mm_set1_epi16('\r')),
                                  _mm_cmpeq_epi16(block, _mm_set1_epi16('\n'))));
    const __m128i high = _mm_and_si128(block, _mm_set1_epi16(static_cast<short>(0xFF80)));
    const long long narrow = _mm_cvtsi128_si64(_mm_packus_epi16(block, block));
    std::memcpy(bytes, &narrow, sizeof narrow);
    // Two bits a unit, set where it is ASCII.
    const auto ascii =
        static_cast<unsigned>(_mm_movemask_epi8(_mm_cmpeq_epi16(high, _mm_setzero_si128())));
    return {std::countr_one(ascii) / 2, _mm_movemask_epi8(marks) != 0};
}

#else

using portable::findSpecials;
using portable::narrowBlock;
using portable::widenBlock;

#endif

} // namespace velmorra

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

/// What the code units of a text are.
struct Narrowed {
    bool ascii;   ///< all are, and what was written is of use
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

/// The characters for which a field takes quotes, besides line ends.
struct Separators {
    char delimiter = ',';
    char quote = '"';
};

/// Narrows code units at any address to as many bytes.
inline Narrowed narrowText(const uchar* units, qsizetype count, char* bytes,
                           const Separators& separators) {
    Narrowed result = {true, false};
    for (qsizetype i = 0; i < count; ++i) {
        char16_t unit;
        std::memcpy(&unit, units + 2 * i, sizeof unit);
        result.ascii &= unit < 0x80;
        result.special |= unit == uchar(separators.delimiter) || unit == uchar(separators.quote) ||
                          unit == u'\r' || unit == u'\n';
        bytes[i] = static_cast<char>(unit);
    }
    return result;
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

struct Separators {
    Separators(char delimiter, char quote)
        : one{delimiter, quote},
          delimiters(_mm_set1_epi8(delimiter)),
          quotes(_mm_set1_epi8(quote)) {}

    portable::Separators one;
    __m128i delimiters;
    __m128i quotes;
};

/// Units narrowed so far: whether there was one that isn't ASCII, or a special one.
struct NarrowMarks {
    __m128i units = _mm_setzero_si128();
    __m128i specials = _mm_setzero_si128();

    __m128i narrow(__m128i low, __m128i high, const Separators& separators) {
        // What isn't ASCII becomes no special byte.
        const __m128i bytes = _mm_packus_epi16(low, high);
        units = _mm_or_si128(units, _mm_or_si128(low, high));
        const __m128i separates = _mm_or_si128(_mm_cmpeq_epi8(bytes, separators.delimiters),
                                               _mm_cmpeq_epi8(bytes, separators.quotes));
        const __m128i ends = _mm_or_si128(_mm_cmpeq_epi8(bytes, _mm_set1_epi8('\r')),
                                          _mm_cmpeq_epi8(bytes, _mm_set1_epi8('\n')));
        specials = _mm_or_si128(specials, _mm_or_si128(separates, ends));
        return bytes;
    }

    Narrowed result() const {
        const __m128i beyond = _mm_and_si128(units, _mm_set1_epi16(static_cast<short>(0xFF80)));
        return {_mm_movemask_epi8(_mm_cmpeq_epi16(beyond, _mm_setzero_si128())) == 0xFFFF,
                _mm_movemask_epi8(specials) != 0};
    }
};

/// The last block of a text reaches back into the one before.
inline Narrowed narrowText(const uchar* units, qsizetype count, char* bytes,
                           const Separators& separators) {
    NarrowMarks marks;
    if (count >= 16) {
        for (qsizetype at = 0; at < count; at += 16) {
            const qsizetype from = at <= count - 16 ? at : count - 16;
            const uchar* const block = units + 2 * from;
            storeBlock(bytes + from,
                       marks.narrow(loadBlock(block), loadBlock(block + 16), separators));
        }
    } else if (count >= 8) {
        const __m128i narrow =
            marks.narrow(loadBlock(units), loadBlock(units + 2 * (count - 8)), separators);
        _mm_storeu_si64(bytes, narrow);
        _mm_storeu_si64(bytes + count - 8, _mm_unpackhi_epi64(narrow, narrow));
    } else if (count >= 4) {
        const __m128i block =
            _mm_unpacklo_epi64(_mm_loadu_si64(units), _mm_loadu_si64(units + 2 * (count - 4)));
        const long long narrow = _mm_cvtsi128_si64(marks.narrow(block, block, separators));
        const auto low = static_cast<quint32>(narrow);
        const auto high = static_cast<quint32>(narrow >> 32);
        std::memcpy(bytes, &low, sizeof low);
        std::memcpy(bytes + count - 4, &high, sizeof high);
    } else {
        return portable::narrowText(units, count, bytes, separators.one);
    }
    return marks.result();
}

#else

using portable::findSpecials;
using portable::narrowText;
using portable::Separators;
using portable::widenBlock;

#endif

/// Widens ASCII bytes to code units at any address. False where there are others. Reads and writes
/// whole blocks.
inline bool widenText(const uchar* bytes, qsizetype size, uchar* units) {
    qsizetype at = 0;
    for (; size - at > widenBytes; at += widenBytes) {
        if (widenBlock(bytes + at, units + 2 * at) != 0)
            return false;
    }
    return (widenBlock(bytes + at, units + 2 * at) & ((1u << (size - at)) - 1)) == 0;
}

} // namespace velmorra

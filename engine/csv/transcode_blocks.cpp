#include "engine/csv/transcode_blocks.h"

#if defined(__x86_64__) && defined(__SSE2__)

#include <algorithm>
#include <array>
#include <tmmintrin.h>

namespace velmorra {

// What the processor must have, function by function: the program itself runs on any of them.
#define VELMORRA_SHUFFLES [[gnu::target("ssse3,popcnt")]]

bool hasTranscodeBlocks() {
    return __builtin_cpu_supports("ssse3") != 0 && __builtin_cpu_supports("popcnt") != 0;
}

namespace {

constexpr int blockBytes = 16;
constexpr int blockUnits = 8;
/// In a shuffle: a zero.
constexpr uchar droppedByte = 0x80;

/// For each mask of 8 bits a shuffle that moves the bytes that are kept together.
struct alignas(blockBytes) Shuffle {
    std::array<uchar, blockBytes> from;
};
using Shuffles = std::array<Shuffle, 256>;

/// `kept(mask, lane)` says how many bytes of a lane are kept: the first ones.
template <class Kept>
constexpr Shuffles makeShuffles(int laneBytes, Kept kept) {
    Shuffles shuffles = {};
    for (unsigned mask = 0; mask < shuffles.size(); ++mask) {
        size_t to = 0;
        for (int lane = 0; lane < blockBytes / laneBytes; ++lane) {
            for (int byte = 0; byte < kept(mask, lane); ++byte)
                shuffles[mask].from[to++] = static_cast<uchar>(lane * laneBytes + byte);
        }
        while (to < blockBytes)
            shuffles[mask].from[to++] = droppedByte;
    }
    return shuffles;
}

constexpr int bit(unsigned mask, int place) {
    return static_cast<int>(mask >> place & 1u);
}

/// Eight units, less those whose bit is set.
constexpr Shuffles withoutUnits =
    makeShuffles(2, [](unsigned mask, int lane) { return 2 - 2 * bit(mask, lane); });
/// Eight lanes of two bytes, one of those whose bit is set.
constexpr Shuffles oneOrTwoBytes =
    makeShuffles(2, [](unsigned mask, int lane) { return 2 - bit(mask, lane); });
/// Four lanes of three bytes, one less for each of two bits.
constexpr Shuffles oneToThreeBytes = makeShuffles(
    4, [](unsigned mask, int lane) { return 3 - bit(mask, lane) - bit(mask, lane + 4); });

/// Sixteen bytes that are set, and as many that aren't: read from `blockBytes - n` on, n are set.
constexpr std::array<uchar, 2 * blockBytes> firstBytes = {
    0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF};

/// A shuffle that, read from n on, moves a block down by n bytes.
constexpr auto moveDown = [] {
    std::array<uchar, 2 * blockBytes> from = {};
    for (size_t i = 0; i < from.size(); ++i)
        from[i] = i < blockBytes ? static_cast<uchar>(i) : droppedByte;
    return from;
}();

VELMORRA_SHUFFLES inline __m128i shuffled(__m128i bytes, const Shuffles& shuffles, unsigned mask) {
    return _mm_shuffle_epi8(bytes, loadBlock(shuffles[mask].from.data()));
}

inline unsigned bitsOf(__m128i bytes) {
    return static_cast<unsigned>(_mm_movemask_epi8(bytes));
}

inline __m128i choose(__m128i condition, __m128i yes, __m128i no) {
    return _mm_or_si128(_mm_and_si128(condition, yes), _mm_andnot_si128(condition, no));
}

/// Which bytes of a block begin a character of several and which go on one. All bits of a byte are
/// set, or none.
struct Sequences {
    __m128i following;
    __m128i longLead; ///< begins one of three bytes
    unsigned lead;    ///< begins one of two or three
    unsigned longLeads;
};

/// False where a block holds what isn't valid, or a character of four bytes.
inline bool findSequences(__m128i block, Sequences* found) {
    const __m128i three = _mm_set1_epi8(static_cast<char>(0xE0));
    const __m128i four = _mm_set1_epi8(static_cast<char>(0xF0));
    // Signed: 0x80 to 0xBF are the least.
    found->following = _mm_cmplt_epi8(block, _mm_set1_epi8(static_cast<char>(0xC0)));
    found->longLead = _mm_cmpeq_epi8(_mm_max_epu8(block, three), block);
    found->lead = bitsOf(_mm_andnot_si128(found->following, block));
    found->longLeads = bitsOf(found->longLead);
    const __m128i pair = _mm_and_si128(block, _mm_set1_epi8(static_cast<char>(0xFE)));
    __m128i refused = _mm_or_si128(_mm_cmpeq_epi8(pair, _mm_set1_epi8(static_cast<char>(0xC0))),
                                   _mm_cmpeq_epi8(_mm_max_epu8(block, four), block));
    if (found->longLeads != 0) {
        // Overlong, or half of a character beyond the first 64 K.
        const __m128i previous = _mm_slli_si128(block, 1);
        const __m128i low = _mm_cmplt_epi8(block, _mm_set1_epi8(static_cast<char>(0xA0)));
        const __m128i surrogate = _mm_cmpeq_epi8(previous, _mm_set1_epi8(static_cast<char>(0xED)));
        refused = _mm_or_si128(refused, _mm_and_si128(_mm_cmpeq_epi8(previous, three), low));
        refused = _mm_or_si128(refused, _mm_andnot_si128(low, surrogate));
    }
    const unsigned expected = (found->lead << 1 | found->longLeads << 2) & 0xFFFF;
    return bitsOf(refused) == 0 && expected == bitsOf(found->following);
}

/// For eight bytes, as the low halves of units: the units of the characters that end with them.
inline __m128i unitsOf(__m128i bytes, __m128i previous, __m128i following) {
    const __m128i sixBits = _mm_set1_epi16(0x3F);
    const __m128i low = _mm_and_si128(bytes, sixBits);
    const __m128i middle = _mm_slli_epi16(_mm_and_si128(previous, sixBits), 6);
    return choose(following, _mm_or_si128(low, middle), bytes);
}

/// Writes the units whose bit isn't set and returns the place behind them.
VELMORRA_SHUFFLES inline uchar* storeWithout(__m128i units, unsigned dropped, uchar* out) {
    storeBlock(out, shuffled(units, withoutUnits, dropped));
    return out + 2 * (blockUnits - std::popcount(dropped));
}

/// Decodes a block and returns the place behind its units. Requires: findSequences said yes.
VELMORRA_SHUFFLES inline uchar* decodeBlock(__m128i block, const Sequences& found, uchar* out) {
    const __m128i zero = _mm_setzero_si128();
    const __m128i previous = _mm_slli_si128(block, 1);
    __m128i low = unitsOf(_mm_unpacklo_epi8(block, zero), _mm_unpacklo_epi8(previous, zero),
                          _mm_unpacklo_epi8(found.following, found.following));
    __m128i high = unitsOf(_mm_unpackhi_epi8(block, zero), _mm_unpackhi_epi8(previous, zero),
                           _mm_unpackhi_epi8(found.following, found.following));
    if (found.longLeads != 0) {
        // The four bits of the first byte of three.
        const __m128i top = _mm_and_si128(_mm_slli_epi16(_mm_and_si128(block, found.longLead), 4),
                                          _mm_set1_epi8(static_cast<char>(0xF0)));
        const __m128i third = _mm_slli_si128(top, 2);
        low = _mm_or_si128(low, _mm_unpacklo_epi8(zero, third));
        high = _mm_or_si128(high, _mm_unpackhi_epi8(zero, third));
    }
    // Those in which no character ends.
    const unsigned dropped = found.lead | found.longLeads << 1;
    out = storeWithout(low, dropped & 0xFF, out);
    return storeWithout(high, dropped >> 8 & 0xFF, out);
}

/// Which of eight units take one byte, and which no more than two. All bits of a unit are set, or
/// none.
struct Widths {
    __m128i one;
    __m128i two;
};

inline Widths widthsOf(__m128i units) {
    const auto below = [units](int mask) {
        const __m128i above = _mm_and_si128(units, _mm_set1_epi16(static_cast<short>(mask)));
        return _mm_cmpeq_epi16(above, _mm_setzero_si128());
    };
    return {below(0xFF80), below(0xF800)};
}

/// Encodes eight units of which none is half a character.
VELMORRA_SHUFFLES inline char* encodeBlock(__m128i units, char* out) {
    const Widths widths = widthsOf(units);
    const unsigned ones = bitsOf(_mm_packs_epi16(widths.one, widths.one)) & 0xFF;
    const __m128i last =
        _mm_or_si128(_mm_and_si128(units, _mm_set1_epi16(0x3F)), _mm_set1_epi16(0x80));
    const __m128i two = _mm_or_si128(_mm_or_si128(_mm_srli_epi16(units, 6), _mm_set1_epi16(0xC0)),
                                     _mm_slli_epi16(last, 8));
    __m128i begin = choose(widths.one, units, two);
    if (bitsOf(widths.two) == 0xFFFF) {
        storeBlock(out, shuffled(begin, oneOrTwoBytes, ones));
        return out + 2 * blockUnits - std::popcount(ones);
    }
    const __m128i middle = _mm_and_si128(_mm_slli_epi16(units, 2), _mm_set1_epi16(0x3F00));
    const __m128i three = _mm_or_si128(_mm_or_si128(_mm_srli_epi16(units, 12), middle),
                                       _mm_set1_epi16(static_cast<short>(0x80E0)));
    begin = choose(widths.two, begin, three);
    const unsigned twos = bitsOf(_mm_packs_epi16(widths.two, widths.two)) & 0xFF;
    const unsigned low = (ones & 0xF) | (twos & 0xF) << 4;
    const unsigned high = ones >> 4 | (twos & 0xF0);
    storeBlock(out, shuffled(_mm_unpacklo_epi16(begin, last), oneToThreeBytes, low));
    out += bytesPerUnit * blockUnits / 2 - std::popcount(low);
    storeBlock(out, shuffled(_mm_unpackhi_epi16(begin, last), oneToThreeBytes, high));
    return out + bytesPerUnit * blockUnits / 2 - std::popcount(high);
}

/// The last units of a text, fewer than a block; those behind them are 0.
VELMORRA_SHUFFLES inline __m128i lastUnits(const uchar* units, qsizetype count, qsizetype left) {
    uchar padded[blockBytes] = {};
    if (count < blockUnits) {
        std::memcpy(padded, units + 2 * (count - left), 2 * size_t(left));
        return loadBlock(padded);
    }
    const __m128i block = loadBlock(units + 2 * (count - blockUnits));
    return _mm_shuffle_epi8(block, loadBlock(moveDown.data() + 2 * (blockUnits - left)));
}

} // namespace

VELMORRA_SHUFFLES Decoded blocks::decodeUtf8(const uchar* bytes, qsizetype size, uchar* units) {
    portable::DecodeStep step = {};
    step.out = units;
    while (step.at < size) {
        const qsizetype left = std::min<qsizetype>(size - step.at, blockBytes);
        __m128i block = loadBlock(bytes + step.at);
        // What stands behind the text is made ASCII, whose units are then given back.
        if (left < blockBytes)
            block = _mm_and_si128(block, loadBlock(firstBytes.data() + blockBytes - left));
        Sequences found;
        if (!findSequences(block, &found)) {
            step = portable::decodeSome(bytes, size, step.at, step.out);
            if (!step.valid)
                break;
            continue;
        }
        // A character that the block cuts off is left to the next one.
        const unsigned cut = (found.lead >> 15 & 1) + (found.longLeads >> 14 & 1) * 2;
        step.out = decodeBlock(block, found, step.out) - 2 * (blockBytes - left);
        step.at += left - cut;
    }
    return {(step.out - units) / 2, step.valid ? -1 : step.at};
}

VELMORRA_SHUFFLES Encoded blocks::encodeUtf8(const uchar* units, qsizetype count, char* bytes) {
    Encoded encoded = {};
    encoded.end = bytes;
    for (qsizetype at = 0; at < count;) {
        const qsizetype left = std::min<qsizetype>(count - at, blockUnits);
        const __m128i block =
            left == blockUnits ? loadBlock(units + 2 * at) : lastUnits(units, count, left);
        const __m128i half =
            _mm_cmpeq_epi16(_mm_and_si128(block, _mm_set1_epi16(static_cast<short>(0xF800))),
                            _mm_set1_epi16(static_cast<short>(0xD800)));
        if (bitsOf(half) == 0) {
            encoded.end = encodeBlock(block, encoded.end) - (blockUnits - left);
            at += left;
            continue;
        }
        for (const qsizetype end = at + left; at < end;)
            at = portable::encodeOne(units, count, at, &encoded);
    }
    return encoded;
}

} // namespace velmorra

#else

namespace velmorra {

bool hasTranscodeBlocks() {
    return false;
}

Decoded blocks::decodeUtf8(const uchar* bytes, qsizetype size, uchar* units) {
    return portable::decodeUtf8(bytes, size, units);
}

Encoded blocks::encodeUtf8(const uchar* units, qsizetype count, char* bytes) {
    return portable::encodeUtf8(units, count, bytes);
}

} // namespace velmorra

#endif

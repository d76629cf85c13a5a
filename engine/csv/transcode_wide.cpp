#include "engine/csv/transcode_wide.h"

#if defined(__x86_64__)

#include <algorithm>

// GCC 12 takes the undefined operands inside its own intrinsics for a fault of the caller.
#if defined(__GNUC__) && !defined(__clang__)
#pragma GCC diagnostic ignored "-Wmaybe-uninitialized"
#endif

#include <immintrin.h>

namespace velmorra {

// What the processor must have, function by function: the program itself runs on any of them.
#define VELMORRA_COMPRESS [[gnu::target("avx512f,avx512bw,avx512vl,avx512vbmi2,popcnt")]]

bool hasWideTranscode() {
    return __builtin_cpu_supports("avx512f") != 0 && __builtin_cpu_supports("avx512bw") != 0 &&
           __builtin_cpu_supports("avx512vl") != 0 && __builtin_cpu_supports("avx512vbmi2") != 0 &&
           __builtin_cpu_supports("popcnt") != 0;
}

namespace {

constexpr int blockSize = 32;

/// Which bytes of a block begin a character of several and which go on one.
struct Sequences {
    quint32 following;
    quint32 lead;     ///< of two or three
    quint32 longLead; ///< of three
};

VELMORRA_COMPRESS inline quint32 equal(__m256i bytes, int value) {
    return _mm256_cmpeq_epi8_mask(bytes, _mm256_set1_epi8(static_cast<char>(value)));
}

VELMORRA_COMPRESS inline quint32 atLeast(__m256i bytes, int value) {
    return _mm256_cmpge_epu8_mask(bytes, _mm256_set1_epi8(static_cast<char>(value)));
}

/// False where a block holds what isn't valid, or a character of four bytes.
VELMORRA_COMPRESS inline bool findSequences(__m256i block, Sequences* found) {
    const quint32 leads = atLeast(block, 0xC0);
    found->lead = leads;
    found->following = static_cast<quint32>(_mm256_movepi8_mask(block)) & ~leads;
    found->longLead = atLeast(block, 0xE0);
    // Overlong, or half of a character beyond the first 64 K.
    quint32 refused = (leads & ~atLeast(block, 0xC2)) | atLeast(block, 0xF0);
    if (found->longLead != 0) {
        const quint32 high = atLeast(block, 0xA0);
        refused |= (equal(block, 0xE0) << 1 & ~high & found->following);
        refused |= (equal(block, 0xED) << 1 & high & found->following);
    }
    return refused == 0 && (leads << 1 | found->longLead << 2) == found->following;
}

/// For each of 32 bytes the unit of the character that ends with it.
VELMORRA_COMPRESS inline __m512i unitsOf(__m256i block, const Sequences& found) {
    const __m512i bytes = _mm512_cvtepu8_epi16(block);
    const __m512i sixBits = _mm512_set1_epi16(0x3F);
    // Bytes and those in front of them; what comes from the far end isn't asked for.
    const __m512i previous = _mm512_cvtepu8_epi16(
        _mm256_alignr_epi8(block, _mm256_permute2x128_si256(block, block, 0x08), 15));
    const __m512i middle = _mm512_slli_epi16(_mm512_and_si512(previous, sixBits), 6);
    __m512i units = _mm512_mask_blend_epi16(
        found.following, bytes, _mm512_or_si512(_mm512_and_si512(bytes, sixBits), middle));
    if (found.longLead != 0) {
        const __m512i beforePrevious = _mm512_cvtepu8_epi16(
            _mm256_alignr_epi8(block, _mm256_permute2x128_si256(block, block, 0x08), 14));
        const __m512i top = _mm512_slli_epi16(beforePrevious, 12);
        units = _mm512_mask_blend_epi16(found.longLead << 2, units, _mm512_or_si512(units, top));
    }
    return units;
}

/// The bytes of up to 32 units below 0x800, and which of them are kept.
VELMORRA_COMPRESS inline char* encodeShort(__m512i units, quint32 present, char* out) {
    const __m512i last =
        _mm512_or_si512(_mm512_and_si512(units, _mm512_set1_epi16(0x3F)), _mm512_set1_epi16(0x80));
    const __m512i lead = _mm512_or_si512(_mm512_srli_epi16(units, 6), _mm512_set1_epi16(0xC0));
    const quint32 two = _mm512_cmpge_epu16_mask(units, _mm512_set1_epi16(0x80));
    const __m512i lanes =
        _mm512_mask_blend_epi16(two, units, _mm512_or_si512(lead, _mm512_slli_epi16(last, 8)));
    // The first byte of a lane is kept where there is a unit, the second where it takes two.
    const __m512i kept = _mm512_or_si512(_mm512_maskz_set1_epi16(present, 0xFF),
                                         _mm512_maskz_set1_epi16(two, static_cast<short>(0xFF00)));
    const __mmask64 bytes = _mm512_movepi8_mask(kept);
    _mm512_storeu_si512(out, _mm512_maskz_compress_epi8(bytes, lanes));
    return out + std::popcount(present) + std::popcount(two);
}

/// The bytes of up to 16 units of which none is half a character.
VELMORRA_COMPRESS inline char* encodeAny(__m256i units, quint32 present, char* out) {
    const __m512i lanes = _mm512_cvtepu16_epi32(units);
    const __m512i sixBits = _mm512_set1_epi32(0x3F);
    const __m512i last = _mm512_or_si512(_mm512_and_si512(lanes, sixBits), _mm512_set1_epi32(0x80));
    const __m512i middle = _mm512_or_si512(_mm512_and_si512(_mm512_srli_epi32(lanes, 6), sixBits),
                                           _mm512_set1_epi32(0x80));
    const __m512i lead2 = _mm512_or_si512(_mm512_srli_epi32(lanes, 6), _mm512_set1_epi32(0xC0));
    const __m512i lead3 = _mm512_or_si512(_mm512_srli_epi32(lanes, 12), _mm512_set1_epi32(0xE0));
    const __mmask16 two = _mm512_cmpge_epu32_mask(lanes, _mm512_set1_epi32(0x80));
    const __mmask16 three = _mm512_cmpge_epu32_mask(lanes, _mm512_set1_epi32(0x800));
    __m512i bytes = _mm512_mask_or_epi32(lanes, two, lead2, _mm512_slli_epi32(last, 8));
    const __m512i end = _mm512_or_si512(_mm512_slli_epi32(middle, 8), _mm512_slli_epi32(last, 16));
    bytes = _mm512_mask_or_epi32(bytes, three, lead3, end);
    const __m512i kept =
        _mm512_or_si512(_mm512_maskz_set1_epi32(static_cast<__mmask16>(present), 0xFF),
                        _mm512_or_si512(_mm512_maskz_set1_epi32(two, 0xFF00),
                                        _mm512_maskz_set1_epi32(three, 0xFF0000)));
    _mm512_storeu_si512(out, _mm512_maskz_compress_epi8(_mm512_movepi8_mask(kept), bytes));
    return out + std::popcount(present) + std::popcount(unsigned(two)) +
           std::popcount(unsigned(three));
}

} // namespace

VELMORRA_COMPRESS Decoded wide::decodeUtf8(const uchar* bytes, qsizetype size, uchar* units) {
    portable::DecodeStep step = {};
    step.out = units;
    while (step.at < size) {
        const qsizetype left = std::min<qsizetype>(size - step.at, blockSize);
        const quint32 present = ~quint32(0) >> (blockSize - left);
        const __m256i block = _mm256_maskz_loadu_epi8(present, bytes + step.at);
        Sequences found;
        if (!findSequences(block, &found)) {
            step = portable::decodeSome(bytes, size, step.at, step.out);
            if (!step.valid)
                break;
            continue;
        }
        // Those with which no character ends are dropped; one that the block cuts off is left to
        // the next block.
        const quint32 ends = present & ~(found.lead | found.longLead << 1);
        const quint32 cut = (found.lead >> 31) + (found.longLead >> 30 & 1) * 2;
        _mm512_storeu_si512(step.out, _mm512_maskz_compress_epi16(ends, unitsOf(block, found)));
        step.out += 2 * std::popcount(ends);
        step.at += left - cut;
    }
    return {(step.out - units) / 2, step.valid ? -1 : step.at};
}

VELMORRA_COMPRESS Encoded wide::encodeUtf8(const uchar* units, qsizetype count, char* bytes) {
    Encoded encoded = {};
    encoded.end = bytes;
    for (qsizetype at = 0; at < count;) {
        const qsizetype left = std::min<qsizetype>(count - at, blockSize);
        const quint32 present = ~quint32(0) >> (blockSize - left);
        const __m512i block = _mm512_maskz_loadu_epi16(present, units + 2 * at);
        const __m512i top = _mm512_and_si512(block, _mm512_set1_epi16(static_cast<short>(0xF800)));
        if (_mm512_test_epi16_mask(top, top) == 0) {
            encoded.end = encodeShort(block, present, encoded.end);
        } else if (_mm512_cmpeq_epi16_mask(top, _mm512_set1_epi16(short(0xD800))) == 0) {
            encoded.end = encodeAny(_mm512_castsi512_si256(block), present & 0xFFFF, encoded.end);
            encoded.end =
                encodeAny(_mm512_extracti64x4_epi64(block, 1), present >> 16, encoded.end);
        } else {
            for (const qsizetype end = at + left; at < end;)
                at = portable::encodeOne(units, count, at, &encoded);
            continue;
        }
        at += left;
    }
    return encoded;
}

} // namespace velmorra

#else

namespace velmorra {

bool hasWideTranscode() {
    return false;
}

Decoded wide::decodeUtf8(const uchar* bytes, qsizetype size, uchar* units) {
    return portable::decodeUtf8(bytes, size, units);
}

Encoded wide::encodeUtf8(const uchar* units, qsizetype count, char* bytes) {
    return portable::encodeUtf8(units, count, bytes);
}

} // namespace velmorra

#endif

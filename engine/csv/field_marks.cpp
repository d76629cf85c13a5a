#include "engine/csv/field_marks.h"

#if defined(__x86_64__)
#include <immintrin.h>
#endif

namespace velmorra {

void portable::findMarks(const uchar* bytes, qsizetype blocks, uchar delimiter, uchar quote,
                         quint64* marks) {
    for (qsizetype i = 0; i < blocks; ++i)
        marks[i] = velmorra::findSpecials(bytes + i * scanBlock, delimiter, quote);
}

#if defined(__x86_64__)

namespace {

[[gnu::target("avx2")]] inline quint64 marksOf(const uchar* bytes, __m256i delimiters,
                                               __m256i quotes) {
    const __m256i block = _mm256_loadu_si256(reinterpret_cast<const __m256i_u*>(bytes));
    const __m256i separators =
        _mm256_or_si256(_mm256_cmpeq_epi8(block, delimiters), _mm256_cmpeq_epi8(block, quotes));
    const __m256i ends = _mm256_or_si256(_mm256_cmpeq_epi8(block, _mm256_set1_epi8('\r')),
                                         _mm256_cmpeq_epi8(block, _mm256_set1_epi8('\n')));
    const __m256i zeros = _mm256_cmpeq_epi8(block, _mm256_setzero_si256());
    return static_cast<unsigned>(
        _mm256_movemask_epi8(_mm256_or_si256(_mm256_or_si256(separators, ends), zeros)));
}

[[gnu::target("avx2")]] void findMarksInWideBlocks(const uchar* bytes, qsizetype blocks,
                                                   uchar delimiter, uchar quote, quint64* marks) {
    const __m256i delimiters = _mm256_set1_epi8(static_cast<char>(delimiter));
    const __m256i quotes = _mm256_set1_epi8(static_cast<char>(quote));
    for (qsizetype i = 0; i < blocks; ++i, bytes += scanBlock)
        marks[i] = marksOf(bytes, delimiters, quotes) |
                   marksOf(bytes + scanBlock / 2, delimiters, quotes) << (scanBlock / 2);
}

} // namespace

void findMarks(const uchar* bytes, qsizetype blocks, uchar delimiter, uchar quote, quint64* marks) {
    static const auto find =
        __builtin_cpu_supports("avx2") != 0 ? findMarksInWideBlocks : portable::findMarks;
    find(bytes, blocks, delimiter, quote, marks);
}

#else

void findMarks(const uchar* bytes, qsizetype blocks, uchar delimiter, uchar quote, quint64* marks) {
    portable::findMarks(bytes, blocks, delimiter, quote, marks);
}

#endif

} // namespace velmorra

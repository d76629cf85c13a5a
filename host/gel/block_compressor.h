/// Turns gathered cells into a block of a gel file.
///
/// The bytes depend on the cells alone. One thread at a time.
#pragma once

#include "host/gel/float_codec.h"
#include "host/gel/text_codec.h"

struct ZSTD_CCtx_s;

namespace gel {

/// How the texts of a column are to be compressed.
struct TextPlan {
    bool turned = false;  ///< where all texts of a block have one length
    bool repeats = false; ///< stretches come again: it pays to look for them
};

/// By column; those of other types have one that isn't used.
using BlockPlan = std::vector<TextPlan>;

class BlockCompressor {
public:
    BlockCompressor();
    ~BlockCompressor();
    BlockCompressor(const BlockCompressor&) = delete;
    BlockCompressor& operator=(const BlockCompressor&) = delete;

    /// Tries on a few rows what suits them; it will suit the next blocks too.
    BlockPlan plan(const BlockCells& cells);

    /// Replaces `stored` by the block of these cells, of which there must be a row at least.
    /// Throws std::bad_alloc.
    BlockEntry compress(const BlockCells& cells, const BlockPlan& plan, GrowingBytes* stored);

private:
    /// What the bytes between two cuts are, which says how hard to look for repetitions.
    enum class Kind { Packed, Text, RepeatingText };

    TextPlan planFor(const TextCells& texts);
    size_t sampleSize(const uchar* bytes, size_t size, Kind kind);
    void encodeColumn(const BlockCells& cells, size_t column, TextPlan plan, GrowingBytes* stored);
    void encodeText(const TextCells& texts, TextPlan plan, GrowingBytes* stored);
    void put(const GrowingBytes& bytes, Kind kind, GrowingBytes* stored);
    void cut(Kind kind, GrowingBytes* stored);
    void compressFrame(const uchar* bytes, size_t size, Kind kind, GrowingBytes* out);

    ZSTD_CCtx_s* context_;
    GrowingBytes encoded_;    ///< what isn't compressed yet
    size_t encodedBytes_ = 0; ///< in all
    GrowingBytes turned_;
    GrowingBytes sampleFrame_;
    std::vector<quint64> keys_;
    FloatCodec floats_;
    TextCodec texts_;
};

} // namespace gel

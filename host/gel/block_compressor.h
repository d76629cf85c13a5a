/// Turns gathered cells into a block of a gel file.
///
/// The bytes depend on the cells alone. One thread at a time.
#pragma once

#include "host/gel/float_codec.h"
#include "host/gel/text_codec.h"

struct ZSTD_CCtx_s;

namespace gel {

class BlockCompressor {
public:
    BlockCompressor();
    ~BlockCompressor();
    BlockCompressor(const BlockCompressor&) = delete;
    BlockCompressor& operator=(const BlockCompressor&) = delete;

    /// Replaces `stored` by the block of these cells, of which there must be a row at least.
    /// Throws std::bad_alloc.
    BlockEntry compress(const BlockCells& cells, GrowingBytes* stored);

private:
    /// What the bytes between two cuts are, which says how hard to look for repetitions.
    enum class Kind { Packed, Text };

    void encodeColumn(const BlockCells& cells, size_t column, GrowingBytes* stored);
    void encodeText(const TextCells& texts, GrowingBytes* stored);
    bool isSmallerTurned(const TextCells& texts);
    void cut(Kind kind, size_t least, GrowingBytes* stored);
    void compressFrame(const uchar* bytes, size_t size, Kind kind, GrowingBytes* out);

    ZSTD_CCtx_s* context_;
    GrowingBytes encoded_;
    size_t cutAt_ = 0; ///< what of encoded_ is compressed already
    GrowingBytes sample_;
    GrowingBytes sampleFrame_;
    std::vector<quint64> keys_;
    FloatCodec floats_;
    TextCodec texts_;
};

} // namespace gel

// The columns of a block are cut into frames where the kind of bytes changes, so that each has
// tables of symbols of its own; a reader doesn't notice.
#include "host/gel/block_compressor.h"

#include "host/gel/checksum.h"
#include "host/gel/packed_numbers.h"

#include <new>
#include <zstd.h>

namespace gel {

namespace {
constexpr size_t leastFrame = 8 << 10;
constexpr size_t sampleBytes = 8 << 10;
} // namespace

BlockCompressor::BlockCompressor() : context_(ZSTD_createCCtx()) {
    if (context_ == nullptr)
        throw std::bad_alloc();
}

BlockCompressor::~BlockCompressor() {
    ZSTD_freeCCtx(context_);
}

BlockPlan BlockCompressor::plan(const BlockCells& cells) {
    BlockPlan plan(cells.columns());
    for (size_t i = 0; i < plan.size(); ++i) {
        if (cells.type(i) != MetaTypeKey && cells.type(i) != MetaTypeFloat)
            plan[i] = planFor(cells.texts(i));
    }
    return plan;
}

TextPlan BlockCompressor::planFor(const TextCells& texts) {
    const uchar* const low = texts.low.data();
    const size_t size = std::min(texts.low.size(), sampleBytes);
    if (size < leastFrame)
        return {};
    TextPlan plan;
    // That kind gains by repetitions alone; looking for them thoroughly takes several times as long
    // where there are none.
    plan.repeats = sampleSize(low, size, Kind::Packed) < size - size / 8;
    const Kind kind = plan.repeats ? Kind::RepeatingText : Kind::Text;
    const size_t width = texts.length(0) - 1;
    if (TextCodec::canBeTurned(texts) && width <= size / 2) {
        const size_t rows = size / width;
        turned_.clear();
        transpose(low, rows, width, turned_.add(rows * width));
        plan.turned = sampleSize(turned_.data(), turned_.size(), Kind::Text) <
                      sampleSize(low, rows * width, kind);
    }
    plan.repeats &= !plan.turned;
    return plan;
}

size_t BlockCompressor::sampleSize(const uchar* bytes, size_t size, Kind kind) {
    sampleFrame_.clear();
    compressFrame(bytes, size, kind, &sampleFrame_);
    return sampleFrame_.size();
}

BlockEntry BlockCompressor::compress(const BlockCells& cells, const BlockPlan& plan,
                                     GrowingBytes* stored) {
    encoded_.clear();
    stored->clear();
    encodedBytes_ = 0;
    for (size_t i = 0; i < cells.columns(); ++i)
        encodeColumn(cells, i, plan[i], stored);
    if (!encoded_.isEmpty() || stored->isEmpty())
        cut(Kind::Packed, stored);
    return {cells.rows(), cells.cellBytes(), static_cast<quint32>(encodedBytes_),
            static_cast<quint32>(stored->size()), checksum(stored->data(), stored->size())};
}

void BlockCompressor::encodeColumn(const BlockCells& cells, size_t column, TextPlan plan,
                                   GrowingBytes* stored) {
    const qint32 type = cells.type(column);
    const size_t rows = cells.rows();
    if (type == MetaTypeFloat) {
        floats_.encode(cells.numbers(column).data(), rows, &encoded_);
    } else if (type == MetaTypeKey) {
        const uchar* const bytes = cells.numbers(column).data();
        keys_.resize(rows);
        // One more, so that a null is 0 and not far from all others.
        for (size_t i = 0; i < rows; ++i)
            keys_[i] = load<quint32>(bytes + 4 * i) + 1;
        packNumbers(keys_.data(), rows, &encoded_);
    } else {
        encodeText(cells.texts(column), plan, stored);
    }
}

void BlockCompressor::encodeText(const TextCells& texts, TextPlan plan, GrowingBytes* stored) {
    const bool turned = plan.turned && TextCodec::canBeTurned(texts);
    texts_.encodeHead(texts, turned, &encoded_);
    if (turned) {
        const size_t rows = texts.count();
        turned_.clear();
        transpose(texts.low.data(), rows, texts.low.size() / rows, turned_.add(texts.low.size()));
        put(turned_, Kind::Text, stored);
        return;
    }
    const Kind kind = plan.repeats ? Kind::RepeatingText : Kind::Text;
    put(texts.low, kind, stored);
    put(texts.high, kind, stored);
}

/// Takes bytes of their own kind into the block.
void BlockCompressor::put(const GrowingBytes& bytes, Kind kind, GrowingBytes* stored) {
    if (bytes.size() < leastFrame) {
        encoded_.append(bytes.data(), bytes.size());
        if (encoded_.size() >= leastFrame)
            cut(kind, stored);
        return;
    }
    if (!encoded_.isEmpty())
        cut(Kind::Packed, stored);
    encodedBytes_ += bytes.size();
    compressFrame(bytes.data(), bytes.size(), kind, stored);
}

/// Compresses what has been encoded since the last cut.
void BlockCompressor::cut(Kind kind, GrowingBytes* stored) {
    encodedBytes_ += encoded_.size();
    compressFrame(encoded_.data(), encoded_.size(), kind, stored);
    encoded_.clear();
}

void BlockCompressor::compressFrame(const uchar* bytes, size_t size, Kind kind, GrowingBytes* out) {
    const auto set = [this](ZSTD_cParameter parameter, int value) {
        ZSTD_CCtx_setParameter(context_, parameter, value);
    };
    set(ZSTD_c_compressionLevel, 1);
    set(ZSTD_c_strategy, kind == Kind::RepeatingText ? ZSTD_dfast : ZSTD_fast);
    set(ZSTD_c_hashLog, 14);
    set(ZSTD_c_chainLog, 12);
    // Long matches only: repetitions of a few letters cost more time than they save.
    set(ZSTD_c_minMatch, 7);
    // Packed numbers rarely repeat; this gives up on them soon.
    set(ZSTD_c_targetLength, kind == Kind::Packed ? 16 : 0);
    const size_t room = ZSTD_compressBound(size);
    const size_t stored = ZSTD_compress2(context_, out->reserve(room), room, bytes, size);
    if (ZSTD_isError(stored) != 0)
        throw std::bad_alloc(); // nothing else can fail when there is room enough
    out->commit(stored);
}

} // namespace gel

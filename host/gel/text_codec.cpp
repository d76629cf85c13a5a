#include "host/gel/text_codec.h"

#include "host/gel/packed_numbers.h"

#include <algorithm>

namespace gel {

namespace {
constexpr uchar highFlag = 1;
constexpr uchar turnedFlag = 2;
} // namespace

bool TextCodec::canBeTurned(const TextCells& texts) {
    const quint32 length = texts.length(0);
    bool isSame = length > 2 && texts.high.isEmpty();
    for (size_t i = 1; isSame && i < texts.count(); ++i)
        isSame = texts.length(i) == length;
    return isSame;
}

void TextCodec::encodeHead(const TextCells& texts, bool turned, GrowingBytes* out) {
    numbers_.resize(texts.count());
    for (size_t i = 0; i < numbers_.size(); ++i)
        numbers_[i] = texts.length(i);
    packNumbers(numbers_.data(), numbers_.size(), out);
    out->put(static_cast<uchar>((texts.high.isEmpty() ? 0 : highFlag) | (turned ? turnedFlag : 0)));
}

/// Bytes of the cells and units in them; -1 when a length is too large.
qint64 TextCodec::measure(size_t count, quint64* units) const {
    quint64 bytes = 0;
    *units = 0;
    for (size_t i = 0; i < count; ++i) {
        if (numbers_[i] > static_cast<quint64>(cell::maxLength))
            return -1;
        const int length = static_cast<int>(numbers_[i]);
        const quint64 size = length > 1 ? static_cast<quint64>(length - 1) : 0;
        *units += size;
        bytes += static_cast<quint64>(cell::lengthFieldBytes(length)) + 2 * size;
    }
    return static_cast<qint64>(bytes);
}

qint64 TextCodec::writeCells(size_t count, const uchar* low, const uchar* high,
                             uchar* cells) const {
    uchar* out = cells;
    for (size_t i = 0; i < count; ++i) {
        const int length = static_cast<int>(numbers_[i]);
        out = cell::writeLength(out, length);
        const size_t units = length > 1 ? static_cast<size_t>(length - 1) : 0;
        joinUnits(low, high, units, out);
        low += units;
        high += high != nullptr ? units : 0;
        out += 2 * units;
    }
    return out - cells;
}

qint64 TextCodec::decode(ByteTaker* bytes, size_t count, uchar* cells, quint64 cellBytes) {
    numbers_.resize(count);
    if (!unpackNumbers(bytes, count, numbers_.data()))
        return -1;
    const uchar flags = bytes->take<uchar>();
    quint64 units = 0;
    const qint64 size = measure(count, &units);
    if (size < 0 || static_cast<quint64>(size) > cellBytes || (flags & ~3u) != 0)
        return -1;
    const uchar* low = bytes->takeBytes(units);
    const uchar* const high = (flags & highFlag) != 0 ? bytes->takeBytes(units) : nullptr;
    if (low == nullptr || ((flags & highFlag) != 0 && high == nullptr))
        return -1;
    if ((flags & turnedFlag) != 0) {
        const bool isOneLength = std::count(numbers_.begin(), numbers_.end(), numbers_[0]) ==
                                 static_cast<qsizetype>(count);
        if (high != nullptr || !isOneLength)
            return -1;
        turned_.clear();
        transpose(low, units / count, count, turned_.add(units));
        low = turned_.data();
    }
    return writeCells(count, low, high, cells);
}

} // namespace gel

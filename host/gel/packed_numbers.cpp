#include "host/gel/packed_numbers.h"

#include <algorithm>

namespace gel {

namespace {

// The first byte: the width in bits, and whether neighbours are subtracted.
constexpr unsigned differencesFlag = 0x80;
// A number of more bits may begin within a byte and end beyond the eighth one.
constexpr unsigned widestUnaligned = 56;
constexpr size_t sampleCount = 64;

unsigned widthOf(quint64 largest) {
    const unsigned bits = static_cast<unsigned>(std::bit_width(largest));
    return bits > widestUnaligned ? 64 : bits;
}

struct Span {
    qint64 least;
    unsigned width;
};

/// How differences between neighbours lie, as numbers with a sign. Requires: two numbers.
Span spanOfDifferences(const quint64* numbers, size_t count) {
    qint64 least = static_cast<qint64>(numbers[1] - numbers[0]);
    qint64 largest = least;
    for (size_t i = 2; i < count; ++i) {
        const qint64 difference = static_cast<qint64>(numbers[i] - numbers[i - 1]);
        least = std::min(least, difference);
        largest = std::max(largest, difference);
    }
    return {least, widthOf(static_cast<quint64>(largest) - static_cast<quint64>(least))};
}

class BitWriter {
public:
    BitWriter(uchar* out, unsigned width) : out_(out), width_(width) {}

    void put(quint64 number) {
        bits_ |= number << filled_;
        filled_ += width_;
        if (filled_ >= 64) {
            store(out_, bits_);
            out_ += 8;
            filled_ -= 64;
            const unsigned taken = width_ - filled_;
            bits_ = taken == 64 ? 0 : number >> taken;
        }
    }

    /// May write up to 8 bytes behind the last one that counts.
    void finish() { store(out_, bits_); }

private:
    uchar* out_;
    unsigned width_;
    quint64 bits_ = 0;
    unsigned filled_ = 0;
};

size_t packedBytes(size_t count, unsigned width) {
    return (count * width + 7) / 8;
}

} // namespace

void packNumbers(const quint64* numbers, size_t count, GrowingBytes* out) {
    quint64 base = numbers[0];
    quint64 largest = base;
    for (size_t i = 1; i < count; ++i) {
        base = std::min(base, numbers[i]);
        largest = std::max(largest, numbers[i]);
    }
    const unsigned width = widthOf(largest - base);
    Span differences = {0, width};
    // A few neighbours tell whether it is worth looking at all of them.
    if (count > 1 && width > 0)
        differences = spanOfDifferences(numbers, std::min(count, sampleCount));
    if (differences.width < width)
        differences = spanOfDifferences(numbers, count);
    if (differences.width >= width) {
        out->put(static_cast<uchar>(width));
        out->put(base);
        const size_t size = packedBytes(count, width);
        BitWriter bits(out->reserve(size), width);
        for (size_t i = 0; width > 0 && i < count; ++i)
            bits.put(numbers[i] - base);
        bits.finish();
        out->commit(size);
        return;
    }
    out->put(static_cast<uchar>(differences.width | differencesFlag));
    out->put(differences.least);
    out->put(numbers[0]);
    const size_t size = packedBytes(count - 1, differences.width);
    BitWriter bits(out->reserve(size), differences.width);
    const quint64 step = static_cast<quint64>(differences.least);
    for (size_t i = 1; differences.width > 0 && i < count; ++i)
        bits.put(numbers[i] - numbers[i - 1] - step);
    bits.finish();
    out->commit(size);
}

namespace {

void unpackBits(const uchar* bytes, unsigned width, size_t count, quint64 base, quint64* numbers) {
    if (width == 0) {
        std::fill_n(numbers, count, base);
        return;
    }
    if (width == 64) {
        for (size_t i = 0; i < count; ++i)
            numbers[i] = base + load<quint64>(bytes + 8 * i);
        return;
    }
    const quint64 mask = (quint64(1) << width) - 1;
    for (size_t i = 0, bit = 0; i < count; ++i, bit += width)
        numbers[i] = base + (load<quint64>(bytes + bit / 8) >> (bit % 8) & mask);
}

} // namespace

bool unpackNumbers(ByteTaker* bytes, size_t count, quint64* numbers) {
    const unsigned head = bytes->take<uchar>();
    const bool differences = (head & differencesFlag) != 0;
    const unsigned width = head & ~differencesFlag;
    const quint64 base = bytes->take<quint64>();
    if (width > widestUnaligned && width != 64)
        return false;
    if (!differences) {
        const uchar* const bits = bytes->takeBytes(packedBytes(count, width));
        if (bits == nullptr)
            return false;
        unpackBits(bits, width, count, base, numbers);
        return true;
    }
    numbers[0] = bytes->take<quint64>();
    const uchar* const bits = bytes->takeBytes(packedBytes(count - 1, width));
    if (bits == nullptr)
        return false;
    unpackBits(bits, width, count - 1, base, numbers + 1);
    for (size_t i = 1; i < count; ++i)
        numbers[i] += numbers[i - 1];
    return true;
}

} // namespace gel

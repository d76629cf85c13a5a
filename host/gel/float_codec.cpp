#include "host/gel/float_codec.h"

#include "host/cell.h"
#include "host/gel/byte_planes.h"
#include "host/gel/packed_numbers.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace gel {

namespace {

constexpr uchar plainBytes = 0xFF; ///< in place of a number of decimal places
constexpr unsigned mostPlaces = 9;
constexpr double powers[mostPlaces + 1] = {1e0, 1e1, 1e2, 1e3, 1e4, 1e5, 1e6, 1e7, 1e8, 1e9};
/// Up to here every whole number is a double of its own, also ten times as large.
constexpr double largestNumber = 1ll << 49;
/// Above every decimal; a null cell while the numbers are looked for.
constexpr qint64 nullMark = std::numeric_limits<qint64>::max();

/// Whether `number` with so many decimal places is the very double that the cell holds.
bool isDecimal(double value, unsigned places, qint64* number) {
    const double scaled = value * powers[places];
    if (!(std::abs(scaled) < largestNumber))
        return false;
    *number = std::llrint(scaled);
    const double back = static_cast<double>(*number) / powers[places];
    return std::bit_cast<quint64>(back) == std::bit_cast<quint64>(value);
}

} // namespace

/// Fills numbers_. What is a decimal with n places is one with more places too, as long as it isn't
/// too large, so that one walk finds the places that do for all.
bool FloatCodec::toDecimals(const uchar* cells, size_t count, unsigned* places) {
    *places = 0;
    for (size_t i = 0; i < count; ++i) {
        const quint64 bits = load<quint64>(cells + 8 * i);
        if (bits == cell::nullFloatBits) {
            numbers_[i] = nullMark;
            continue;
        }
        qint64 number = 0;
        const unsigned before = *places;
        while (!isDecimal(std::bit_cast<double>(bits), *places, &number)) {
            if (++*places > mostPlaces)
                return false;
        }
        if (*places != before && i > 0) {
            // From the start: what was a decimal may have grown too large.
            i = static_cast<size_t>(-1);
            continue;
        }
        numbers_[i] = static_cast<quint64>(number);
    }
    return true;
}

void FloatCodec::encode(const uchar* cells, size_t count, GrowingBytes* out) {
    numbers_.resize(count);
    unsigned places = 0;
    if (!toDecimals(cells, count, &places)) {
        out->put(plainBytes);
        transpose(cells, count, 8, out->add(8 * count));
        return;
    }
    qint64 least = nullMark;
    bool hasNull = false;
    for (const quint64 number : numbers_) {
        least = std::min(least, static_cast<qint64>(number));
        hasNull |= static_cast<qint64>(number) == nullMark;
    }
    // From here on a null is 0 and the least number 1.
    const quint64 shift = static_cast<quint64>(least) - (hasNull ? 1 : 0);
    for (quint64& number : numbers_)
        number = number == static_cast<quint64>(nullMark) ? 0 : number - shift;
    out->put(static_cast<uchar>(places));
    out->put(static_cast<uchar>(hasNull ? 1 : 0));
    out->put(shift);
    packNumbers(numbers_.data(), count, out);
}

bool FloatCodec::decode(ByteTaker* bytes, size_t count, uchar* cells) {
    const uchar places = bytes->take<uchar>();
    if (places == plainBytes) {
        const uchar* const planes = bytes->takeBytes(8 * count);
        if (planes == nullptr)
            return false;
        transpose(planes, 8, count, cells);
        return true;
    }
    const uchar hasNull = bytes->take<uchar>();
    const quint64 shift = bytes->take<quint64>();
    numbers_.resize(count);
    if (places > mostPlaces || hasNull > 1 || !unpackNumbers(bytes, count, numbers_.data()))
        return false;
    const double power = powers[places];
    for (size_t i = 0; i < count; ++i) {
        const double value = static_cast<double>(static_cast<qint64>(numbers_[i] + shift)) / power;
        const quint64 bits = std::bit_cast<quint64>(value);
        const bool isNull = hasNull != 0 && numbers_[i] == 0;
        store(cells + 8 * i, isNull ? cell::nullFloatBits : bits);
    }
    return true;
}

} // namespace gel

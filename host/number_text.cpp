#include "host/number_text.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cfloat>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <cstring>

namespace {

int put(const char* text, char* out) {
    const size_t length = std::strlen(text);
    std::memcpy(out, text, length);
    return static_cast<int>(length);
}

// Both are rounded to the nearest double, so that a value stands on the side of the limit on which
// its shortest digits stand.
constexpr double leastFixed = 1e-4;
constexpr double firstNotFixed = 1e16;

// Two different decimals of at most 15 digits are never the same double. So when a decimal of at
// most 15 digits is the value, it is the one with the shortest digits once its zeros are gone.
constexpr int safeDigits = 15;
constexpr double firstUnsafe = 1e15;

/// Powers of ten, all of them exact.
constexpr std::array<double, 23> powersOfTen = {1e0,  1e1,  1e2,  1e3,  1e4,  1e5,  1e6,  1e7,
                                                1e8,  1e9,  1e10, 1e11, 1e12, 1e13, 1e14, 1e15,
                                                1e16, 1e17, 1e18, 1e19, 1e20, 1e21, 1e22};

// The quotient below must be rounded to a double once.
static_assert(FLT_EVAL_METHOD == 0);

/// A value as whole / 10^places.
struct Decimal {
    std::uint64_t whole;
    int places;
};

/// Digits in front of the point, from 1e-4 (-3 of them) to below 1e15.
int digitsInFront(double size) {
    constexpr int exponentBias = 1023;
    constexpr int mantissaBits = 52;
    const int power =
        static_cast<int>(std::bit_cast<std::uint64_t>(size) >> mantissaBits) - exponentBias;
    // log10(2), near enough for these powers.
    const int digits = (power * 1233 >> 12) + 1;
    const bool more = digits >= 0 ? size >= powersOfTen[static_cast<size_t>(digits)]
                                  : size * powersOfTen[static_cast<size_t>(-digits)] >= 1;
    return digits + (more ? 1 : 0);
}

/// Sets the decimal with that many places which is the value. False when there is none of at most
/// safeDigits digits.
bool decimalWithPlaces(double size, int places, Decimal* decimal) {
    const double power = powersOfTen[static_cast<size_t>(places)];
    const double scaled = std::floor(size * power + 0.5);
    if (scaled >= firstUnsafe || scaled / power != size)
        return false;
    *decimal = {static_cast<std::uint64_t>(scaled), places};
    return true;
}

/// The decimal of at most safeDigits digits that is the value, without zeros at its end. False when
/// there is none.
bool shortDecimal(double size, Decimal* decimal) {
    const auto dropZeros = [decimal](int zeros, std::uint64_t divisor) {
        if (decimal->places >= zeros && decimal->whole % divisor == 0) {
            decimal->whole /= divisor;
            decimal->places -= zeros;
        }
    };
    // Most have few places, and then there are few zeros to drop.
    constexpr int usualPlaces = 4;
    if (!decimalWithPlaces(size, usualPlaces, decimal)) {
        if (!decimalWithPlaces(size, safeDigits - digitsInFront(size), decimal))
            return false;
        dropZeros(8, 100'000'000);
        dropZeros(4, 10'000);
    }
    dropZeros(2, 100);
    dropZeros(1, 10);
    return true;
}

/// Moves the digits behind the point by one place: always as many as there may be, which is faster
/// than to count.
void moveUp(char* digits) {
    std::array<char, safeDigits> kept;
    std::memcpy(kept.data(), digits, kept.size());
    std::memcpy(digits + 1, kept.data(), kept.size());
}

int putDecimal(const Decimal& decimal, char* out) {
    char* const end = std::to_chars(out, out + numberTextRoom, decimal.whole).ptr;
    const int digits = static_cast<int>(end - out);
    if (decimal.places == 0)
        return digits;
    const int inFront = digits - decimal.places;
    if (inFront > 0) {
        moveUp(out + inFront);
        out[inFront] = '.';
        return digits + 1;
    }
    const int lead = 2 - inFront;
    std::memmove(out + lead, out, static_cast<size_t>(digits));
    std::fill_n(out, lead, '0');
    out[1] = '.';
    return lead + digits;
}

} // namespace

int formatKey(quint32 key, char* out) {
    return static_cast<int>(std::to_chars(out, out + numberTextRoom, key).ptr - out);
}

int formatFloat(double value, char* out) {
    if (std::isnan(value))
        return put("nan", out);
    if (std::isinf(value))
        return put(value < 0 ? "-inf" : "inf", out);
    const double size = std::fabs(value);
    if (size >= leastFixed && size < firstUnsafe) {
        const int sign = value < 0 ? 1 : 0;
        Decimal decimal = {static_cast<std::uint64_t>(size), 0};
        if (static_cast<double>(decimal.whole) == size || shortDecimal(size, &decimal)) {
            *out = '-';
            return sign + putDecimal(decimal, out + sign);
        }
    }
    const bool fixed = size == 0 || (size >= leastFixed && size < firstNotFixed);
    const auto format = fixed ? std::chars_format::fixed : std::chars_format::scientific;
    return static_cast<int>(std::to_chars(out, out + numberTextRoom, value, format).ptr - out);
}

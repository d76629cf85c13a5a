#include "host/number_text.h"

#include <charconv>
#include <cmath>
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
    const bool fixed = size == 0 || (size >= leastFixed && size < firstNotFixed);
    const auto format = fixed ? std::chars_format::fixed : std::chars_format::scientific;
    return static_cast<int>(std::to_chars(out, out + numberTextRoom, value, format).ptr - out);
}

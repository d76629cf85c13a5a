// The text of the numbers in Key and Float cells.
#include "host/number_text.h"

#include "host/cell.h"

#include <gtest/gtest.h>

#include <charconv>
#include <cmath>
#include <cstdlib>
#include <limits>
#include <random>
#include <string>

namespace {

std::string textOf(double value) {
    char out[numberTextRoom];
    return std::string(out, static_cast<size_t>(formatFloat(value, out)));
}

std::string keyText(quint32 key) {
    char out[numberTextRoom];
    return std::string(out, static_cast<size_t>(formatKey(key, out)));
}

TEST(NumberText, Keys) {
    EXPECT_EQ(keyText(0), "0");
    EXPECT_EQ(keyText(70000), "70000");
    EXPECT_EQ(keyText(0xFFFFFFFDu), "4294967293");
}

TEST(NumberText, OfSomeFloats) {
    for (const QString& text :
         QString("0 -0 1 -125 100000 0.1 0.3333333333333333 0.30000000000000004 123456.789 0.0001 "
                 "-0.00012345 9.999999999999999e-05 1e-05 1000000000000000 9999999999999998 1e+16 "
                 "-1.5e+16 1e+100 5e-324 1.7976931348623157e+308 9007199254740992")
             .split(' '))
        EXPECT_EQ(textOf(std::strtod(qPrintable(text), nullptr)), text.toStdString());
}

TEST(NumberText, WordsForWhatHasNoDigits) {
    constexpr double infinity = std::numeric_limits<double>::infinity();
    EXPECT_EQ(textOf(infinity), "inf");
    EXPECT_EQ(textOf(-infinity), "-inf");
    // No sign, whichever bits the not-a-number has.
    EXPECT_EQ(textOf(cell::invalidFloat()), "nan");
    EXPECT_EQ(textOf(std::numeric_limits<double>::quiet_NaN()), "nan");
}

TEST(NumberText, EveryFloatReadsBackAndHasRoom) {
    std::mt19937_64 random(11);
    for (int round = 0; round < 50'000; ++round) {
        const double anywhere = std::bit_cast<double>(quint64(random()));
        const double nearOne = std::ldexp(static_cast<double>(random()), -60);
        for (const double value : {anywhere, nearOne}) {
            if (std::isnan(value))
                continue;
            const std::string text = textOf(value);
            EXPECT_LT(text.size(), size_t(numberTextRoom));
            EXPECT_EQ(std::strtod(text.c_str(), nullptr), value) << text;
            const bool fixed = std::fabs(value) >= 1e-4 && std::fabs(value) < 1e16;
            EXPECT_EQ(text.find('e') == std::string::npos, fixed || std::isinf(value)) << text;
        }
    }
}

/// The shortest digits as the language's library finds them.
std::string libraryText(double value) {
    const double size = std::fabs(value);
    const bool fixed = size == 0 || (size >= 1e-4 && size < 1e16);
    char out[numberTextRoom];
    const auto format = fixed ? std::chars_format::fixed : std::chars_format::scientific;
    return {out, std::to_chars(out, out + sizeof out, value, format).ptr};
}

TEST(NumberText, ShortDecimalsHaveTheSameDigitsAsTheLibraryGives) {
    std::mt19937_64 random(12);
    for (int round = 0; round < 60'000; ++round) {
        // Decimals of up to 18 digits with the point anywhere, and the doubles beside them, for
        // which the short way must not be taken.
        const auto digits =
            static_cast<double>(random() % quint64(std::pow(10, 1 + random() % 18)));
        const double value = digits / std::pow(10, static_cast<int>(random() % 20));
        for (const double number : {value, -value, std::nextafter(value, 1e300),
                                    std::nextafter(value, 0), std::floor(value)})
            ASSERT_EQ(textOf(number), libraryText(number));
    }
    for (double power = 1e-6; power < 1e18; power *= 10) {
        for (const double number : {power, power - 1, power + 1, std::nextafter(power, 0)})
            EXPECT_EQ(textOf(number), libraryText(number));
    }
}

} // namespace

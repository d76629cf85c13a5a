// The number syntax of text cells, in both forms of the parser.
#include "host/number_parser.h"

#include "host/cell.h"

#include <gtest/gtest.h>

#include <bit>
#include <charconv>
#include <cmath>
#include <cstdlib>
#include <limits>
#include <random>
#include <string>
#include <vector>

namespace {

struct Reading {
    double value;
    bool ok;
};

/// Reads through the cell form at an odd address, with nothing readable behind the text, so that a
/// read past its end or through a wider pointer is seen by the sanitizers.
Reading readCell(const QString& text) {
    const auto bytes = 2 * static_cast<size_t>(text.size());
    std::vector<uchar> odd(bytes + 1);
    odd.shrink_to_fit();
    std::memcpy(odd.data() + 1, text.constData(), bytes);
    Reading reading{0, true};
    reading.value = parseCellNumber(odd.data() + 1, text.size(), &reading.ok);
    return reading;
}

Reading readString(const QString& text) {
    Reading reading{0, true};
    reading.value = parseNumber(text, &reading.ok);
    return reading;
}

quint64 bitsOf(double value) {
    return std::bit_cast<quint64>(value);
}

constexpr double infinity = std::numeric_limits<double>::infinity();
constexpr double largest = 1.7976931348623157e+308;
constexpr double smallest = 2.2250738585072019e-308;

/// Both forms give exactly this double, the sign of a zero included.
void expectNumber(const QString& text, double value) {
    for (const Reading& reading : {readCell(text), readString(text)}) {
        EXPECT_TRUE(reading.ok) << text.toStdString();
        EXPECT_EQ(bitsOf(reading.value), bitsOf(value))
            << text.toStdString() << " gave " << reading.value << " instead of " << value;
    }
}

/// Texts and what they are, as `text=value|text=value`.
void expectNumbers(const char* examples) {
    for (const QString& example : QString::fromUtf8(examples).split('|')) {
        const QByteArray value = example.section('=', 1).toLatin1();
        expectNumber(example.section('=', 0, 0), std::strtod(value.constData(), nullptr));
    }
}

void expectRefused(const QString& text, double value) {
    for (const Reading& reading : {readCell(text), readString(text)}) {
        EXPECT_FALSE(reading.ok) << text.toStdString();
        EXPECT_EQ(reading.value, value) << text.toStdString();
    }
}

TEST(NumberParser, TextsWithNothingToRead) {
    expectRefused(QStringLiteral(""), 4294967294.0);
    expectRefused(QStringLiteral(" \t\r\n"), 4294967294.0);
    const Reading null = readString(QString());
    EXPECT_FALSE(null.ok);
    EXPECT_EQ(null.value, 4294967295.0);
}

TEST(NumberParser, TextsThatAreNoNumber) {
    for (const char* text :
         {"-",  "+",   " -",  "--1", "- 1", "a",  "x12",  "$5",       ",5",    "e5",
          ".x", ".e5", "-.,", "na",  "nul", "nu", "nanx", "Infinity", "nullx", "\v1"})
        expectRefused(QString::fromLatin1(text), 4294967295.0);
    // A no-break space and a digit of another script are neither blank nor digit.
    expectRefused(QStringLiteral("\u00A05"), 4294967295.0);
    expectRefused(QStringLiteral("\u0665"), 4294967295.0);
    // A code unit whose low byte is that of a digit or a letter is neither.
    expectRefused(QStringLiteral("\u0131\u0132\u0133"), 4294967295.0);
    expectRefused(QStringLiteral("\u014E\u0141\u014E"), 4294967295.0);
    for (const Reading& point : {readCell("."), readString("."), readCell("-."), readString("-.")})
        EXPECT_FALSE(point.ok);
}

TEST(NumberParser, SignsBlanksAndWhatFollows) {
    expectNumbers("0=0|-0=-0|+7=7|\u00AD7=-7| \r\n\t 42=42|007=7|12 34=12|12%=12|1-2=1|"
                  " -12.5e1abc=-125|1.5.7=1.5|1.5,7=1.5|2e3,5=2000");
}

TEST(NumberParser, Words) {
    for (const char* text : {"nan", "-NaN", "nan1", " nAn(1)"})
        expectNumber(text, cell::invalidFloat());
    for (const char* text : {"NULL", "null.", "-null", "null,"})
        expectNumber(text, cell::nullFloat());
    expectNumbers("inf=inf|INF=inf|-Inf =-inf|inf1nity=inf|inf\u00E9=inf"); // no ASCII letter
}

TEST(NumberParser, CommaBehindTheDigits) {
    for (const char* text : {"12,5", "12,", "-12,x", " 12,000"}) {
        const Reading inCell = readCell(text);
        EXPECT_FALSE(inCell.ok) << text;
        EXPECT_EQ(inCell.value, 4294967295.0);
        const Reading inString = readString(text);
        EXPECT_TRUE(inString.ok) << text;
        EXPECT_EQ(std::fabs(inString.value), 12) << text;
    }
}

TEST(NumberParser, Fractions) {
    // A zero that ends among the zeros of its fraction has no sign; one that doesn't, has.
    // With an integer part, the zeros behind the point are digits like any other.
    expectNumbers(".5=0.5|-.5=-0.5|5.=5|-5.x=-5|1.000=1|0.0625=0.0625|-.0=0|-0.000=0|-0.00x=-0|"
                  "0.00e5=0|1.00000000000000001e3=1");
    // 17 digits count, leading zeros come on top, and nothing behind them is looked at.
    expectNumber("0.12345678901234567899", 12345678901234567.0 / 1e17);
    expectNumber("0.00012345678901234567899", 12345678901234567.0 / 1e20);
    expectNumber("3.00000000000000000e5", 3);
    expectNumber("0.12345678901234567e5", 12345678901234567.0 / 1e17);
    expectNumber("0.1234567890123456e5", 1234567890123456.0 / 1e11);
}

TEST(NumberParser, Exponents) {
    expectNumbers("1e=1|1e+=1|1E-=1|1e000=1|1.5e-00=1.5|1e0x=1|1ex=1|1e-x=1|1e--5=1|5.e3=5000|"
                  ".00e3=0|1e0005=1e5|1e1234=1e123");
    expectNumber("1e-1234", 1 / 1e123);
}

TEST(NumberParser, ExponentsBeyondTheTable) {
    expectNumbers("1e308=1e308|1e309=1.7976931348623157e+308|-1e400=-1.7976931348623157e+308|"
                  "0e400=1.7976931348623157e+308|12e308=inf|1.25e309=inf|1e-308=1e-308|"
                  "1e-325=2.2250738585072019e-308|-1e-400=-2.2250738585072019e-308|"
                  "1.5e-324=2.2250738585072019e-308");
    expectNumber("123e-310", 123 / 1e2 / 1e308);
    expectNumber("1e-324", 1 / 1e16 / 1e308);
    for (int power = 0; power <= 308; ++power) {
        const std::string text = "1e" + std::to_string(power);
        expectNumber(QString::fromStdString(text), std::strtod(text.c_str(), nullptr));
    }
}

TEST(NumberParser, LongTexts) {
    const QString tiny = "0." + QString(310, '0') + '1';
    expectNumber(tiny, 1 / 1e3 / 1e308);
    expectNumber(tiny + 'x', 1 / 1e3 / 1e308);
    expectNumber(tiny + "e5", 1 / 1e306);
    expectNumber(tiny + "e400", 1e89);
    expectNumber(tiny + "e-1", 1 / 1e4 / 1e308);
    expectNumber(tiny + "e-99", smallest);

    const QString zeros(1'000'000, '0');
    expectNumber("0." + zeros, 0);
    expectNumber("-0." + zeros + '1', -0.0);
    expectNumber("0." + zeros + "1x", 0);
    expectNumber("-0." + zeros + "1e5", -smallest);
    expectNumber(zeros + '5', 5);
    expectNumber("1e" + zeros + '5', 1e5);
    const QString nines(400, '9');
    expectNumber(nines, infinity);
    expectNumber("-" + nines, -infinity);
    expectNumber("1e" + nines, largest);
    expectNumber("1e-" + nines, smallest);
    expectRefused(QString(1'000'000, ' '), 4294967294.0);
}

/// The digits of a text as the parser sums them.
double sumOf(const std::string& digits) {
    double sum = 0;
    for (const char digit : digits)
        sum = sum * 10 + (digit - '0');
    return sum;
}

TEST(NumberParser, FollowsTheArithmeticOfItsRules) {
    std::mt19937 random(20240607);
    const auto digits = [&](unsigned count) {
        std::string text(1, static_cast<char>('1' + random() % 9));
        while (text.size() < count)
            text += static_cast<char>('0' + random() % 10);
        return text;
    };
    for (int round = 0; round < 20'000; ++round) {
        const std::string whole = digits(1 + random() % 19);
        const std::string fraction = digits(1 + random() % 16);
        const int power = static_cast<int>(random() % 600) - 300;
        const double sign = random() % 2 == 0 ? 1 : -1;
        const double value = sumOf(whole + fraction) * sign;
        const auto places = static_cast<int>(fraction.size());
        const std::string text = (sign < 0 ? "-" : "") + whole + '.' + fraction;
        const auto tenTo = [](int exponent) {
            return std::strtod(("1e" + std::to_string(exponent)).c_str(), nullptr);
        };
        expectNumber(QString::fromStdString(text), value / tenTo(places));
        const int shift = power - places;
        const double scaled = shift >= 0      ? value * tenTo(shift)
                              : shift >= -308 ? value / tenTo(-shift)
                                              : value / tenTo(-shift - 308) / 1e308;
        expectNumber(QString::fromStdString(text + 'e' + std::to_string(power)), scaled);
    }
}

TEST(NumberParser, ReadsShortDecimalsAsTheNearestDouble) {
    std::mt19937_64 random(7);
    for (int round = 0; round < 20'000; ++round) {
        const auto number = static_cast<double>(static_cast<qint64>(random() % 2'000'000'000'000) -
                                                1'000'000'000'000);
        char text[64];
        const double places[] = {1, 10, 100, 1e3, 1e4, 1e9};
        const double value = number / places[random() % std::size(places)];
        const auto end = std::to_chars(text, text + sizeof text, value, std::chars_format::fixed);
        expectNumber(QString::fromLatin1(text, end.ptr - text), value);
    }
}

} // namespace

#include "host/number_parser.h"

#include "host/cell.h"

#include <algorithm>
#include <array>
#include <limits>

namespace {

// What a text that is no number gives, along with `ok` false: for a text without anything to read,
// and for any other.
constexpr double nothingToRead = 4294967294.0;
constexpr double notANumber = 4294967295.0;

constexpr double smallest = std::bit_cast<double>(0x0010000000000001ull);
constexpr double largest = std::numeric_limits<double>::max();

constexpr int largestPower = 308;
// Literals are rounded correctly, which products of smaller powers are not.
constexpr std::array<double, largestPower + 1> powersOfTen = {
    1e0,   1e1,   1e2,   1e3,   1e4,   1e5,   1e6,   1e7,   1e8,   1e9,   1e10,  1e11,  1e12,
    1e13,  1e14,  1e15,  1e16,  1e17,  1e18,  1e19,  1e20,  1e21,  1e22,  1e23,  1e24,  1e25,
    1e26,  1e27,  1e28,  1e29,  1e30,  1e31,  1e32,  1e33,  1e34,  1e35,  1e36,  1e37,  1e38,
    1e39,  1e40,  1e41,  1e42,  1e43,  1e44,  1e45,  1e46,  1e47,  1e48,  1e49,  1e50,  1e51,
    1e52,  1e53,  1e54,  1e55,  1e56,  1e57,  1e58,  1e59,  1e60,  1e61,  1e62,  1e63,  1e64,
    1e65,  1e66,  1e67,  1e68,  1e69,  1e70,  1e71,  1e72,  1e73,  1e74,  1e75,  1e76,  1e77,
    1e78,  1e79,  1e80,  1e81,  1e82,  1e83,  1e84,  1e85,  1e86,  1e87,  1e88,  1e89,  1e90,
    1e91,  1e92,  1e93,  1e94,  1e95,  1e96,  1e97,  1e98,  1e99,  1e100, 1e101, 1e102, 1e103,
    1e104, 1e105, 1e106, 1e107, 1e108, 1e109, 1e110, 1e111, 1e112, 1e113, 1e114, 1e115, 1e116,
    1e117, 1e118, 1e119, 1e120, 1e121, 1e122, 1e123, 1e124, 1e125, 1e126, 1e127, 1e128, 1e129,
    1e130, 1e131, 1e132, 1e133, 1e134, 1e135, 1e136, 1e137, 1e138, 1e139, 1e140, 1e141, 1e142,
    1e143, 1e144, 1e145, 1e146, 1e147, 1e148, 1e149, 1e150, 1e151, 1e152, 1e153, 1e154, 1e155,
    1e156, 1e157, 1e158, 1e159, 1e160, 1e161, 1e162, 1e163, 1e164, 1e165, 1e166, 1e167, 1e168,
    1e169, 1e170, 1e171, 1e172, 1e173, 1e174, 1e175, 1e176, 1e177, 1e178, 1e179, 1e180, 1e181,
    1e182, 1e183, 1e184, 1e185, 1e186, 1e187, 1e188, 1e189, 1e190, 1e191, 1e192, 1e193, 1e194,
    1e195, 1e196, 1e197, 1e198, 1e199, 1e200, 1e201, 1e202, 1e203, 1e204, 1e205, 1e206, 1e207,
    1e208, 1e209, 1e210, 1e211, 1e212, 1e213, 1e214, 1e215, 1e216, 1e217, 1e218, 1e219, 1e220,
    1e221, 1e222, 1e223, 1e224, 1e225, 1e226, 1e227, 1e228, 1e229, 1e230, 1e231, 1e232, 1e233,
    1e234, 1e235, 1e236, 1e237, 1e238, 1e239, 1e240, 1e241, 1e242, 1e243, 1e244, 1e245, 1e246,
    1e247, 1e248, 1e249, 1e250, 1e251, 1e252, 1e253, 1e254, 1e255, 1e256, 1e257, 1e258, 1e259,
    1e260, 1e261, 1e262, 1e263, 1e264, 1e265, 1e266, 1e267, 1e268, 1e269, 1e270, 1e271, 1e272,
    1e273, 1e274, 1e275, 1e276, 1e277, 1e278, 1e279, 1e280, 1e281, 1e282, 1e283, 1e284, 1e285,
    1e286, 1e287, 1e288, 1e289, 1e290, 1e291, 1e292, 1e293, 1e294, 1e295, 1e296, 1e297, 1e298,
    1e299, 1e300, 1e301, 1e302, 1e303, 1e304, 1e305, 1e306, 1e307, 1e308};

double powerOfTen(qsizetype exponent) {
    return powersOfTen[static_cast<size_t>(exponent)];
}

/// `value` / 10^`exponent` for an exponent from 0 on. A value of the few digits that reach an
/// exponent beyond two tables is 0 long before.
double dividedByPower(double value, qsizetype exponent) {
    if (exponent <= largestPower)
        return value / powerOfTen(exponent);
    const qsizetype rest = std::min<qsizetype>(exponent - largestPower, largestPower);
    return value / powerOfTen(rest) / powerOfTen(largestPower);
}

bool isDigit(char16_t unit) {
    return unit >= u'0' && unit <= u'9';
}

bool isBlank(char16_t unit) {
    return unit == u' ' || unit == u'\t' || unit == u'\r' || unit == u'\n';
}

char16_t lowerCase(char16_t unit) {
    return unit >= u'A' && unit <= u'Z' ? static_cast<char16_t>(unit + 32) : unit;
}

/// The sum v of v = v * 10 + digit in doubles. As long as every such sum is a whole number that a
/// double holds exactly, it is made in integers, which is the same and quicker.
class DigitSum {
public:
    void add(char16_t digit) {
        const unsigned number = static_cast<unsigned>(digit - u'0');
        if (whole_ < exactLimit) {
            whole_ = whole_ * 10 + number;
            return;
        }
        if (!beyondWhole_) {
            beyondWhole_ = true;
            rounded_ = static_cast<double>(whole_);
        }
        rounded_ = rounded_ * 10 + number;
    }

    bool isZero() const { return whole_ == 0; }
    double value() const { return beyondWhole_ ? rounded_ : static_cast<double>(whole_); }

private:
    static constexpr qint64 exactLimit = 100'000'000'000'000; // a digit more stays below 2^53

    qint64 whole_ = 0;
    double rounded_ = 0;
    bool beyondWhole_ = false;
};

/// What stands behind the digits in front of a comma.
enum class Comma { RefusesText, EndsNumber };

/// One reading of one text. The code units may stand at any address.
template <Comma CommaRule>
class NumberReader {
public:
    NumberReader(const uchar* chars, qsizetype units) : chars_(chars), end_(units) {}

    double read(bool* ok) {
        const double result = number();
        *ok = ok_;
        return result;
    }

private:
    static constexpr int mostFractionDigits = 17;
    static constexpr int mostExponentDigits = 3;

    bool atEnd() const { return at_ == end_; }
    char16_t unit() const { return cell::unitAt(chars_, at_); }
    bool isAt(char16_t wanted) const { return !atEnd() && unit() == wanted; }
    bool isAtDigit() const { return !atEnd() && isDigit(unit()); }
    double signedValue() const { return digits_.value() * sign_; }

    double refuse(double result) {
        ok_ = false;
        return result;
    }

    double number() {
        while (!atEnd() && isBlank(unit()))
            ++at_;
        if (atEnd())
            return refuse(nothingToRead);
        readSign();
        if (atEnd())
            return refuse(notANumber);
        if (unit() != u'.') {
            if (!isDigit(unit()))
                return word();
            ok_ = true;
            for (; isAtDigit(); ++at_)
                digits_.add(unit());
            if (atEnd())
                return signedValue();
        }
        if constexpr (CommaRule == Comma::RefusesText) {
            if (unit() == u',')
                return refuse(notANumber);
        }
        return unit() == u'.' ? fraction() : exponent();
    }

    void readSign() {
        constexpr char16_t softHyphen = 0x00AD;
        const char16_t sign = unit();
        if (sign == u'-' || sign == softHyphen)
            sign_ = -1;
        if (sign == u'+' || sign_ < 0)
            ++at_;
    }

    /// Whether the code units from here on are `letters`, in any case, and no letter follows.
    template <int Size>
    bool isAtWord(const char16_t (&letters)[Size]) const {
        constexpr int length = Size - 1;
        if (end_ - at_ < length)
            return false;
        for (int i = 0; i < length; ++i) {
            if (lowerCase(cell::unitAt(chars_, at_ + i)) != letters[i])
                return false;
        }
        if (end_ - at_ == length)
            return true;
        const char16_t behind = lowerCase(cell::unitAt(chars_, at_ + length));
        return behind < u'a' || behind > u'z';
    }

    double word() {
        ok_ = true;
        if (isAtWord(u"nan"))
            return cell::invalidFloat();
        if (isAtWord(u"inf"))
            return std::numeric_limits<double>::infinity() * sign_;
        if (isAtWord(u"null"))
            return cell::nullFloat();
        return refuse(notANumber);
    }

    /// From the point on.
    double fraction() {
        ++at_;
        if (atEnd())
            return signedValue();
        if (digits_.isZero()) {
            for (; isAt(u'0'); ++at_, ++scale_)
                ok_ = true;
            if (atEnd())
                return 0.0;
        }
        int count = 0;
        for (; count < mostFractionDigits && isAtDigit(); ++count, ++at_, ++scale_)
            digits_.add(unit());
        ok_ = ok_ || count > 0;
        if (!ok_)
            return refuse(notANumber);
        // Behind the last digit that counts nothing is looked at, an exponent included.
        return count == mostFractionDigits || atEnd() ? scaled() : exponent();
    }

    /// The number by its digits alone.
    double scaled() const { return dividedByPower(signedValue(), scale_); }

    /// From behind the digits on, where an exponent may stand.
    double exponent() {
        if (lowerCase(unit()) != u'e')
            return scaled();
        ++at_;
        const bool negative = isAt(u'-');
        if (negative || isAt(u'+'))
            ++at_;
        while (isAt(u'0'))
            ++at_;
        if (atEnd())
            return scaled();
        int power = 0;
        for (int i = 0; i < mostExponentDigits && isAtDigit(); ++i, ++at_)
            power = power * 10 + (unit() - u'0');
        return negative ? shrunk(scale_ + power) : grown(power - scale_);
    }

    double shrunk(qsizetype power) const {
        constexpr qsizetype tooSmall = 325;
        return power < tooSmall ? dividedByPower(signedValue(), power) : smallest * sign_;
    }

    double grown(qsizetype power) const {
        if (power < 0)
            return shrunk(-power);
        return power <= largestPower ? signedValue() * powerOfTen(power) : largest * sign_;
    }

    const uchar* chars_;
    qsizetype end_;
    qsizetype at_ = 0;
    qsizetype scale_ = 0; ///< fraction digits, with the zeros in front; as long as the text may be
    double sign_ = 1;
    bool ok_ = false;
    DigitSum digits_;
};

} // namespace

double parseCellNumber(const uchar* chars, qsizetype units, bool* ok) {
    return NumberReader<Comma::RefusesText>(chars, units).read(ok);
}

double parseNumber(const QString& text, bool* ok) {
    if (text.isNull()) {
        *ok = false;
        return notANumber;
    }
    const auto* const chars = reinterpret_cast<const uchar*>(text.constData());
    return NumberReader<Comma::EndsNumber>(chars, text.size()).read(ok);
}

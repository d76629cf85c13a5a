#include "engine/csv/field_value.h"

#include "host/cell.h"

#include <fast_float/fast_float.h>

#include <array>
#include <cfloat>
#include <cmath>

namespace velmorra {

namespace {

constexpr int shownCharacters = 40;

/// Digits that are exact in a double, and so is the power of ten that they are divided by.
constexpr int exactDigits = 15;
constexpr std::array<double, exactDigits + 1> powersOfTen = {
    1e0, 1e1, 1e2, 1e3, 1e4, 1e5, 1e6, 1e7, 1e8, 1e9, 1e10, 1e11, 1e12, 1e13, 1e14, 1e15};
// The quotient of the two must be rounded to a double once.
static_assert(FLT_EVAL_METHOD == 0);

/// Reads what most numbers are: a few digits, with a decimal sign among them or not. False where it
/// is anything else, which may still be a number.
inline bool readShortDecimal(const uchar* bytes, qsizetype size, char decimal, double* value) {
    const uchar* const end = bytes + size;
    const bool negative = size > 0 && *bytes == '-';
    bytes += negative ? 1 : 0;
    if (end - bytes > exactDigits + 1 || bytes == end)
        return false;
    qint64 digits = 0;
    const uchar* point = nullptr;
    const uchar* const first = bytes;
    for (; bytes != end; ++bytes) {
        const unsigned digit = *bytes - unsigned('0');
        if (digit <= 9)
            digits = 10 * digits + digit;
        else if (*bytes == uchar(decimal) && point == nullptr && bytes != first)
            point = bytes;
        else
            return false;
    }
    const qsizetype places = point == nullptr ? 0 : end - point - 1;
    if ((point == nullptr && end - first > exactDigits) || (point != nullptr && places == 0))
        return false;
    const double absolute = static_cast<double>(digits) / powersOfTen[size_t(places)];
    *value = negative ? -absolute : absolute;
    return true;
}

} // namespace

bool readKey(const uchar* bytes, qsizetype size, quint32 largest, quint32* value) {
    while (size > 1 && *bytes == '0') {
        ++bytes;
        --size;
    }
    constexpr int mostDigits = 10;
    if (size < 1 || size > mostDigits)
        return false;
    quint64 sum = 0;
    for (qsizetype i = 0; i < size; ++i) {
        const unsigned digit = bytes[i] - unsigned('0');
        if (digit > 9)
            return false;
        sum = 10 * sum + digit;
    }
    *value = static_cast<quint32>(sum);
    return sum <= largest;
}

bool readFloat(const uchar* bytes, qsizetype size, char decimal, double* value) {
    if (readShortDecimal(bytes, size, decimal, value))
        return true;
    const char* first = reinterpret_cast<const char*>(bytes);
    const char* const last = first + size;
    if (size > 1 && *first == '+' && first[1] != '-' && first[1] != '+')
        ++first;
    const fast_float::from_chars_result result = fast_float::from_chars_advanced(
        first, last, *value, fast_float::parse_options(fast_float::chars_format::general, decimal));
    if (result.ptr != last || first == last)
        return false;
    if (std::isnan(*value)) {
        *value = cell::invalidFloat();
        // "nan(text)" is a form of it that nobody means.
        return last[-1] != ')';
    }
    // Digits that end in infinity were too large; the word has a letter behind the sign.
    const char head = *first == '-' ? first[1] : *first;
    return !std::isinf(*value) || head == 'i' || head == 'I';
}

QString shownValue(const QString& value) {
    QString shown(1, u'\'');
    qsizetype i = 0;
    for (int count = 0; i < value.size() && count < shownCharacters; ++count) {
        const QChar unit = value[i++];
        if (unit == u'\n') {
            shown += QLatin1String("\\n");
        } else if (unit == u'\r') {
            shown += QLatin1String("\\r");
        } else if (unit == u'\t') {
            shown += QLatin1String("\\t");
        } else if (unit.category() == QChar::Other_Control ||
                   unit.category() == QChar::Other_Format) {
            shown += QStringLiteral("\\x%1").arg(unit.unicode(), 2, 16, QLatin1Char('0'));
        } else {
            shown += unit;
            if (unit.isHighSurrogate() && i < value.size() && value[i].isLowSurrogate())
                shown += value[i++];
        }
    }
    if (i < value.size())
        shown += QLatin1String("...");
    return shown + u'\'';
}

QString shownValue(const uchar* utf8, qsizetype size) {
    // A character has at most four bytes: the rest isn't shown anyway.
    const qsizetype enough = std::min<qsizetype>(size, 4 * shownCharacters + 4);
    return shownValue(QString::fromUtf8(reinterpret_cast<const char*>(utf8), enough));
}

} // namespace velmorra

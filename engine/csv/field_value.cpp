#include "engine/csv/field_value.h"

#include "host/cell.h"

#include <fast_float/fast_float.h>

#include <cmath>

namespace velmorra {

namespace {
constexpr int shownCharacters = 40;
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

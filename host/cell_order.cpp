#include "host/cell_order.h"

#include "host/number_parser.h"
#include "host/number_text.h"

#include <algorithm>

namespace {

template <class Value>
int sign(Value a, Value b) {
    return (a > b) - (a < b);
}

// Nulls come first: a null has a smaller rank than any value, and values are compared only where
// the ranks are the same.

int keysByNumber(const uchar* a, const uchar* b) {
    const quint32 keyA = cell::loadKey(a);
    const quint32 keyB = cell::loadKey(b);
    const bool valueA = keyA < cell::firstNullKey;
    const bool valueB = keyB < cell::firstNullKey;
    return valueA && valueB ? sign(keyA, keyB) : sign(valueA, valueB);
}

enum class Rank { NullCell, NullFloat, NoNumber, Number };

struct RankedNumber {
    Rank rank;
    double value;
};

RankedNumber rankedFloat(double value) {
    if (value == value)
        return {Rank::Number, value};
    const bool null = std::bit_cast<quint64>(value) == cell::nullFloatBits;
    return {null ? Rank::NullFloat : Rank::NoNumber, 0};
}

RankedNumber rankedText(const uchar* bytes) {
    const cell::TextView text = cell::text(bytes);
    if (text.isNull())
        return {Rank::NullCell, 0};
    bool ok = false;
    const double value = parseCellNumber(text.chars, text.size(), &ok);
    return ok ? rankedFloat(value) : RankedNumber{Rank::NoNumber, 0};
}

int compare(const RankedNumber& a, const RankedNumber& b) {
    return a.rank == b.rank ? sign(a.value, b.value) : sign(a.rank, b.rank);
}

int floatsByNumber(const uchar* a, const uchar* b) {
    return compare(rankedFloat(cell::loadFloat(a)), rankedFloat(cell::loadFloat(b)));
}

int textsByNumber(const uchar* a, const uchar* b) {
    return compare(rankedText(a), rankedText(b));
}

int keysByText(const uchar* a, const uchar* b) {
    const quint32 keyA = cell::loadKey(a);
    const quint32 keyB = cell::loadKey(b);
    if (keyA >= cell::firstNullKey || keyB >= cell::firstNullKey)
        return keysByNumber(a, b);
    char digitsA[numberTextRoom];
    char digitsB[numberTextRoom];
    const int lengthA = formatKey(keyA, digitsA);
    const int lengthB = formatKey(keyB, digitsB);
    const int order =
        std::memcmp(digitsA, digitsB, static_cast<size_t>(std::min(lengthA, lengthB)));
    return order != 0 ? sign(order, 0) : sign(lengthA, lengthB);
}

quint64 loadFourUnits(const uchar* chars, int index) {
    quint64 units;
    std::memcpy(&units, chars + 2 * qsizetype(index), sizeof units);
    return units;
}

int textsByText(const uchar* a, const uchar* b) {
    const cell::TextView textA = cell::text(a);
    const cell::TextView textB = cell::text(b);
    const int shared = std::min(textA.size(), textB.size());
    int i = 0;
    while (shared - i >= 4 && loadFourUnits(textA.chars, i) == loadFourUnits(textB.chars, i))
        i += 4;
    for (; i < shared; ++i) {
        const char16_t unitA = cell::unitAt(textA.chars, i);
        const char16_t unitB = cell::unitAt(textB.chars, i);
        if (unitA != unitB)
            return sign(unitA, unitB);
    }
    // By the length fields, in which null is shorter than the empty text.
    return sign(textA.length, textB.length);
}

template <CellOrder Rising>
int falling(const uchar* a, const uchar* b) {
    return -Rising(a, b);
}

/// The rising or the falling one of the same order.
template <CellOrder Rising>
CellOrder either(bool isFalling) {
    return isFalling ? &falling<Rising> : Rising;
}

} // namespace

CellOrder cellOrder(qint32 sortType, qint32 metaType) {
    const bool byNumber = sortType == SortNumberRising || sortType == SortNumberFalling;
    const bool byText = sortType == SortTextRising || sortType == SortTextFalling;
    if (!byNumber && !byText)
        return nullptr;
    const bool isFalling = sortType == SortNumberFalling || sortType == SortTextFalling;
    switch (metaType) {
    case MetaTypeKey:
        return byNumber ? either<keysByNumber>(isFalling) : either<keysByText>(isFalling);
    case MetaTypeFloat:
        return byNumber ? either<floatsByNumber>(isFalling) : nullptr;
    default:
        return byNumber ? either<textsByNumber>(isFalling) : either<textsByText>(isFalling);
    }
}

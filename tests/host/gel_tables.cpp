#include "gel_tables.h"

#include <cmath>
#include <limits>

namespace {

quint64 numberOf(std::mt19937_64& random, Pattern pattern, size_t row) {
    switch (pattern) {
    case Pattern::Constant:
        return 7;
    case Pattern::Counter:
        return 1000 + row;
    case Pattern::Few:
        return random() % 5;
    case Pattern::Wide:
        return random() % 1'000'000;
    default:
        return random();
    }
}

double floatOf(std::mt19937_64& random, Pattern pattern, size_t row) {
    using Limits = std::numeric_limits<double>;
    static const double odd[] = {-0.0,
                                 Limits::infinity(),
                                 -Limits::infinity(),
                                 Limits::max(),
                                 Limits::min(),
                                 Limits::denorm_min(),
                                 0x1p53,
                                 -0x1p53,
                                 cell::invalidFloat(),
                                 cell::nullFloat()};
    if (pattern == Pattern::Wild)
        return random() % 2 == 0 ? odd[random() % std::size(odd)] : std::bit_cast<double>(random());
    const double whole = static_cast<double>(numberOf(random, pattern, row));
    return (random() % 2 == 0 ? whole : -whole) / std::pow(10, row % 4);
}

std::u16string textOf(std::mt19937_64& random, Pattern pattern, size_t row) {
    const quint64 number = numberOf(random, pattern, row);
    if (pattern != Pattern::Wild) {
        const std::string digits = std::to_string(1'000'000 + number % 1'000'000);
        std::u16string text(digits.begin(), digits.end());
        return pattern == Pattern::Few ? text.substr(number % 7) : text;
    }
    // Lengths around the limits of the length field; any units, also half characters.
    static const size_t lengths[] = {1, 7, 8, 9, 15, 125, 126, 127, 16'255, 16'256};
    std::u16string text(lengths[random() % std::size(lengths)], u'\0');
    const char16_t mask = random() % 2 == 0 ? 0x7F : 0xFFFF;
    for (char16_t& unit : text)
        unit = static_cast<char16_t>(random()) & mask;
    return text;
}

} // namespace

std::vector<uchar> randomGelCell(std::mt19937_64& random, qint32 type, Pattern pattern,
                                 size_t row) {
    const bool isNull = pattern != Pattern::Constant && random() % 9 == 0;
    if (type == MetaTypeKey) {
        std::vector<uchar> bytes(4, 0xFF);
        if (!isNull)
            cell::storeKey(bytes.data(), static_cast<quint32>(numberOf(random, pattern, row)));
        return bytes;
    }
    if (type == MetaTypeFloat) {
        std::vector<uchar> bytes(8, 0xFF);
        if (!isNull)
            cell::storeFloat(bytes.data(), floatOf(random, pattern, row));
        return bytes;
    }
    if (isNull)
        return {random() % 2 == 0 ? cell::nullText : cell::emptyText};
    const std::u16string text = textOf(random, pattern, row);
    std::vector<uchar> bytes(
        static_cast<size_t>(cell::textCellBytes(static_cast<qsizetype>(text.size()))));
    cell::writeText(bytes.data(), text.data(), static_cast<int>(text.size()));
    return bytes;
}

PackedRows randomGelTable(std::mt19937_64& random, size_t columns, size_t rows) {
    PackedRows table;
    std::vector<Pattern> patterns;
    for (size_t i = 0; i < columns; ++i) {
        static const qint32 types[] = {MetaTypeKey, MetaTypeFloat, MetaTypeText, MetaTypeText, 'X'};
        table.columns.names.push_back(i % 5 == 4 ? QString() : QStringLiteral("c%1 é").arg(i / 2));
        table.columns.types.push_back(MetaInfo(types[random() % std::size(types)], -1));
        patterns.push_back(static_cast<Pattern>(random() % 5));
    }
    if (columns > 1)
        table.columns.sort = {{1, SortTextFalling}, {-1, SortTextRising}, {0, SortNumberRising}};
    for (size_t row = 0; row < rows; ++row) {
        std::vector<uchar> packed;
        for (size_t i = 0; i < columns; ++i) {
            const auto cell =
                randomGelCell(random, table.columns.types[qsizetype(i)].type, patterns[i], row);
            packed.insert(packed.end(), cell.begin(), cell.end());
        }
        table.rows.push_back(std::move(packed));
    }
    return table;
}

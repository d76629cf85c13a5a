// The orders of cells: every pair of a list that is written in rising order is compared.
#include "host/cell_order.h"

#include "tests/rows/random_cells.h"

#include <gtest/gtest.h>

#include <limits>

namespace {

int signOf(int value) {
    return (value > 0) - (value < 0);
}

/// A cell at an odd address; ~ is null, and for a number NaN one of other bits than the invalid
/// one.
Bytes oddCell(qint32 type, const QString& text) {
    Bytes bytes;
    if (type == MetaTypeKey)
        bytes = keyCell(text == "~" ? cell::nullKey : text.toUInt());
    else if (type == MetaTypeFloat)
        bytes = floatCell(text == "~"     ? cell::nullFloat()
                          : text == "nan" ? cell::invalidFloat()
                                          : std::strtod(qPrintable(text), nullptr));
    else
        bytes = text == "~" ? nullTextCell : textCell(text.toStdU16String());
    bytes.insert(bytes.begin(), 0);
    return bytes;
}

/// Compares every cell with every cell, rising and falling. Cells with a bar between them are
/// equal.
void expectRising(qint32 rising, qint32 falling, qint32 type, const QStringList& groups) {
    const CellOrder up = cellOrder(rising, type);
    const CellOrder down = cellOrder(falling, type);
    ASSERT_TRUE(up != nullptr && down != nullptr);
    std::vector<std::pair<Bytes, int>> cells;
    for (const QString& group : groups) {
        for (const QString& text : group.split('|'))
            cells.emplace_back(oddCell(type, text), groups.indexOf(group));
    }
    for (const auto& [a, rankA] : cells) {
        for (const auto& [b, rankB] : cells) {
            const int expected = signOf(rankA - rankB);
            EXPECT_EQ(signOf(up(a.data() + 1, b.data() + 1)), expected) << rankA << ", " << rankB;
            EXPECT_EQ(signOf(down(a.data() + 1, b.data() + 1)), -expected) << rankA << rankB;
        }
    }
}

TEST(CellOrder, Numbers) {
    expectRising('0', '9', MetaTypeKey,
                 {"~|4294967294", "0", "1", "9", "10", "2147483647", "2147483648", "4294967293"});
    expectRising('A', 'Z', MetaTypeKey,
                 {"~|4294967294", "0", "1", "10", "100", "11", "2", "4294967293", "9"});
    expectRising('0', '9', MetaTypeFloat,
                 {"~", "nan|NaN", "-inf", "-1e308", "-5e-324", "0|-0", "5e-324", "1e308", "inf"});
}

TEST(CellOrder, TextsByNumber) {
    expectRising('0', '9', MetaTypeText,
                 {"~", "null|NULL|-null.", "| |abc|nan|1,5|Infinity", "-inf", "-2|-2.0 EUR",
                  "0|-0|0.0", "9| 9|9e0|0.9e1", "10", "inf|+INF"});
}

TEST(CellOrder, TextsByCodeUnits) {
    // Code units, not code points: a surrogate stands in front of U+FFxx. Any unknown type is text.
    for (const qint32 type : {qint32(MetaTypeText), 12})
        expectRising('A', 'Z', type,
                     {"~", "", QString(QChar(0)), "10", "9", "A", "AB", "ABCD", "ABCDE", "ABCDF",
                      "a", "xxxxxxxxxxx", "xxxxxxxxxxx\u00FF", "xxxxxxxxxxx\u0100", "\U0001F600",
                      "\uFF21"});
    std::mt19937 random(3);
    const CellOrder order = cellOrder('A', MetaTypeText);
    for (int round = 0; round < 20'000; ++round) {
        std::u16string texts[2];
        for (std::u16string& text : texts) {
            text.assign(random() % 12, u'\u0141');
            if (!text.empty())
                text[random() % text.size()] = static_cast<char16_t>(random());
        }
        EXPECT_EQ(signOf(order(textCell(texts[0]).data(), textCell(texts[1]).data())),
                  signOf(texts[0].compare(texts[1])));
    }
}

TEST(CellOrder, NoneWhereThereIsNoComparison) {
    EXPECT_EQ(cellOrder('A', MetaTypeFloat), nullptr);
    EXPECT_EQ(cellOrder('Z', MetaTypeFloat), nullptr);
    for (const qint32 sortType : {qint32('I'), qint32('D'), 0, -1, qint32('a'), qint32('1')}) {
        for (const qint32 metaType : {MetaTypeKey, MetaTypeFloat, MetaTypeText})
            EXPECT_EQ(cellOrder(sortType, metaType), nullptr);
    }
}

} // namespace

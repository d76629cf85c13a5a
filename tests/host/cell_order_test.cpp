// The orders of cells: every pair of a list that is written in rising order is compared.
#include "host/cell_order.h"

#include "host/row_buffer.h"

#include <gtest/gtest.h>

#include <limits>
#include <random>
#include <vector>

namespace {

int signOf(int value) {
    return (value > 0) - (value < 0);
}

/// Cells at odd addresses, in groups: cells of one group are equal, groups rise.
class RisingCells {
public:
    void group(std::vector<quint32> keys) {
        for (const quint32 key : keys)
            cell::storeKey(place(4), key);
        ++rank_;
    }

    void group(std::vector<double> floats) {
        for (const double value : floats)
            cell::storeFloat(place(8), value);
        ++rank_;
    }

    void group(std::vector<QString> texts) {
        for (const QString& text : texts)
            bytesFromQString(place(cell::textCellBytes(text.size())), text);
        ++rank_;
    }

    /// Compares every cell with every cell, rising and falling.
    void check(qint32 rising, qint32 falling, qint32 metaType) const {
        const CellOrder up = cellOrder(rising, metaType);
        const CellOrder down = cellOrder(falling, metaType);
        ASSERT_NE(up, nullptr);
        ASSERT_NE(down, nullptr);
        for (size_t i = 0; i < cells_.size(); ++i) {
            for (size_t j = 0; j < cells_.size(); ++j) {
                const int expected = signOf(cells_[i].rank - cells_[j].rank);
                EXPECT_EQ(signOf(up(cells_[i].bytes, cells_[j].bytes)), expected) << i << ", " << j;
                EXPECT_EQ(signOf(down(cells_[i].bytes, cells_[j].bytes)), -expected)
                    << i << ", " << j;
            }
        }
    }

private:
    struct RankedCell {
        const uchar* bytes;
        int rank;
    };

    uchar* place(qsizetype size) {
        uchar* bytes = buffer_.alloc(size + 1);
        if (reinterpret_cast<quintptr>(bytes) % 2 == 0)
            ++bytes;
        cells_.push_back({bytes, rank_});
        return bytes;
    }

    RowBuffer buffer_;
    std::vector<RankedCell> cells_;
    int rank_ = 0;
};

TEST(CellOrder, KeysByNumber) {
    RisingCells cells;
    cells.group(std::vector<quint32>{cell::nullKey, cell::firstNullKey});
    for (const quint32 key : {0u, 1u, 9u, 10u, 0x7FFFFFFFu, 0x80000000u, 0xFFFFFFFDu})
        cells.group(std::vector<quint32>{key});
    cells.check('0', '9', MetaTypeKey);
}

TEST(CellOrder, KeysByTheirDecimalText) {
    RisingCells cells;
    cells.group(std::vector<quint32>{cell::nullKey, cell::firstNullKey});
    for (const quint32 key : {0u, 1u, 10u, 100u, 11u, 2u, 4294967293u, 9u})
        cells.group(std::vector<quint32>{key});
    cells.check('A', 'Z', MetaTypeKey);
}

TEST(CellOrder, FloatsByNumber) {
    constexpr double infinity = std::numeric_limits<double>::infinity();
    RisingCells cells;
    cells.group(std::vector<double>{cell::nullFloat()});
    // A not-a-number of other bits ranks with the invalid Float, so that the order stays one.
    cells.group(
        std::vector<double>{cell::invalidFloat(), std::numeric_limits<double>::quiet_NaN()});
    cells.group(std::vector<double>{-infinity, -infinity});
    cells.group(std::vector<double>{-1e308});
    cells.group(std::vector<double>{-5e-324});
    cells.group(std::vector<double>{0.0, -0.0});
    cells.group(std::vector<double>{5e-324});
    cells.group(std::vector<double>{1e308});
    cells.group(std::vector<double>{infinity, infinity});
    cells.check('0', '9', MetaTypeFloat);
}

TEST(CellOrder, TextsByNumber) {
    RisingCells cells;
    cells.group(std::vector<QString>{QString(), QString()});
    cells.group(std::vector<QString>{"null", "NULL", "-null."});
    cells.group(std::vector<QString>{"", " ", "abc", "nan", "1,5", "Infinity"});
    cells.group(std::vector<QString>{"-inf"});
    cells.group(std::vector<QString>{"-2", "-2.0 EUR"});
    cells.group(std::vector<QString>{"0", "-0", "0.0"});
    cells.group(std::vector<QString>{"9", " 9", "9e0", "0.9e1"});
    cells.group(std::vector<QString>{"10"});
    cells.group(std::vector<QString>{"inf", "+INF"});
    cells.check('0', '9', MetaTypeText);
}

TEST(CellOrder, TextsByCodeUnits) {
    RisingCells cells;
    const QString prefix(11, 'x');
    for (const QString& text :
         {QString(), QString(""), QString(QChar(0)), QString("10"), QString("9"), QString("A"),
          QString("AB"), QString("ABCD"), QString("ABCDE"), QString("ABCDF"), QString("a"), prefix,
          QString(prefix + QChar(0x00FF)), QString(prefix + QChar(0x0100)),
          // Code units, not code points: a surrogate stands in front of U+FFxx.
          QString(QStringLiteral("\U0001F600")), QString(QStringLiteral("\uFF21"))})
        cells.group(std::vector<QString>{text});
    cells.check('A', 'Z', MetaTypeText);
    cells.check('A', 'Z', 12); // any other meta type is text
}

TEST(CellOrder, TextsAgreeWithUnitByUnitComparison) {
    std::mt19937 random(3);
    const CellOrder order = cellOrder('A', MetaTypeText);
    RowBuffer buffer;
    for (int round = 0; round < 20'000; ++round) {
        buffer.reset();
        std::u16string texts[2];
        const uchar* bytes[2];
        for (int side = 0; side < 2; ++side) {
            texts[side].assign(random() % 12, u'\u0141');
            if (!texts[side].empty())
                texts[side][random() % texts[side].size()] = static_cast<char16_t>(random());
            buffer.alloc(static_cast<qsizetype>(random() % 2));
            bytes[side] = bytesFromQString(buffer, QString::fromStdU16String(texts[side]));
        }
        const int expected = signOf(texts[0].compare(texts[1]));
        EXPECT_EQ(signOf(order(bytes[0], bytes[1])), expected);
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

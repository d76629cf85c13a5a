// The bytes of a cell: length fields, sizes, and cells at odd addresses.
#include "host/cell.h"

#include "host/row_buffer.h"

#include <gtest/gtest.h>

#include <array>
#include <vector>

namespace {

/// The length field for L, as a writer makes it.
std::vector<int> fieldOf(int length) {
    std::array<uchar, 5> bytes{};
    const uchar* const end = cell::writeLength(bytes.data() + 1, length);
    return std::vector<int>(static_cast<const uchar*>(bytes.data() + 1), end);
}

TEST(Cell, LengthFieldGrowsAtItsThresholds) {
    EXPECT_EQ(fieldOf(0), (std::vector<int>{0x80}));
    EXPECT_EQ(fieldOf(1), (std::vector<int>{0x81}));
    EXPECT_EQ(fieldOf(126), (std::vector<int>{0xFE}));
    EXPECT_EQ(fieldOf(127), (std::vector<int>{0x7F, 0x80}));
    EXPECT_EQ(fieldOf(128), (std::vector<int>{0x00, 0x81}));
    EXPECT_EQ(fieldOf(127 * 128 - 1), (std::vector<int>{0x7F, 0xFE}));
    EXPECT_EQ(fieldOf(127 * 128), (std::vector<int>{0x00, 0x7F, 0x80}));
    EXPECT_EQ(fieldOf(16383), (std::vector<int>{0x7F, 0x7F, 0x80}));
    EXPECT_EQ(fieldOf(16384), (std::vector<int>{0x00, 0x00, 0x81}));
    EXPECT_EQ(fieldOf(127 * 16384 - 1), (std::vector<int>{0x7F, 0x7F, 0xFE}));
    EXPECT_EQ(fieldOf(127 * 16384), (std::vector<int>{0x00, 0x00, 0x7F, 0x80}));
    EXPECT_EQ(fieldOf(cell::maxLength), (std::vector<int>{0x7F, 0x7F, 0x7F, 0xFF}));
}

TEST(Cell, LengthFieldReadsBack) {
    std::array<uchar, 5> bytes{};
    uchar* const field = bytes.data() + 1;
    std::vector<int> lengths;
    for (int power = 1; power < cell::maxLength; power *= 2) {
        for (const int length : {power - 1, power, power + 1, power / 128 * 127})
            lengths.push_back(length);
    }
    lengths.push_back(cell::maxLength);
    for (const int length : lengths) {
        const uchar* const end = cell::writeLength(field, length);
        EXPECT_EQ(end - field, cell::lengthFieldBytes(length)) << length;
        const cell::TextView view = cell::text(field);
        EXPECT_EQ(view.length, length);
        EXPECT_EQ(view.chars, end) << length;
    }
}

TEST(Cell, ReaderAcceptsLongerLengthFields) {
    // 127 in one byte, and small lengths in more bytes than a writer takes.
    const std::array<uchar, 1> oneByte{0xFF};
    EXPECT_EQ(cell::text(oneByte.data()).length, 127);
    const std::array<uchar, 8> threeBytes{0x03, 0x00, 0x80, 'a', 0, 'b', 0};
    EXPECT_EQ(cell::text(threeBytes.data()).length, 3);
    EXPECT_EQ(cell::textBytes(threeBytes.data()), 7);
    EXPECT_EQ(qStringFromBytes(threeBytes.data()), "ab");
    const std::array<uchar, 4> fourBytes{0x02, 0x00, 0x00, 0x80};
    EXPECT_EQ(cell::text(fourBytes.data()).length, 2);
    EXPECT_EQ(cell::textBytes(fourBytes.data()), 6);
    // The empty text in two bytes takes both of them.
    const std::array<uchar, 2> empty{0x01, 0x80};
    EXPECT_EQ(cell::textBytes(empty.data()), 2);
    EXPECT_FALSE(qStringFromBytes(empty.data()).isNull());
}

TEST(Cell, NullIsNotEmpty) {
    EXPECT_TRUE(cell::isNull(&cell::nullText, MetaTypeText));
    EXPECT_FALSE(cell::isNull(&cell::emptyText, MetaTypeText));
    EXPECT_EQ(cell::textBytes(&cell::nullText), 1);
    EXPECT_EQ(cell::textBytes(&cell::emptyText), 1);
    EXPECT_TRUE(qStringFromBytes(&cell::nullText).isNull());
    EXPECT_FALSE(qStringFromBytes(&cell::emptyText).isNull());

    std::array<uchar, 9> odd{};
    for (const quint32 key : {0xFFFFFFFFu, 0xFFFFFFFEu, 0xFFFFFFFDu}) {
        cell::storeKey(odd.data() + 1, key);
        EXPECT_EQ(cell::loadKey(odd.data() + 1), key);
        EXPECT_EQ(cell::isNull(odd.data() + 1, MetaTypeKey), key != 0xFFFFFFFDu);
    }
    cell::storeFloat(odd.data() + 1, cell::invalidFloat());
    EXPECT_EQ(cell::loadFloatBits(odd.data() + 1), cell::invalidFloatBits);
    EXPECT_FALSE(cell::isNull(odd.data() + 1, MetaTypeFloat));
    // What arithmetic on a null Float gives is a value that isn't a number, never a null.
    cell::storeFloat(odd.data() + 1, cell::storableFloat(cell::nullFloat() + 1));
    EXPECT_FALSE(cell::isNull(odd.data() + 1, MetaTypeFloat));
}

TEST(Cell, SharedNullsAreOfTheirColumnsForm) {
    for (const qint32 type : {MetaTypeKey, MetaTypeFloat, MetaTypeText})
        EXPECT_TRUE(cell::isNull(cell::nullCell(type), type));
    EXPECT_EQ(cell::loadKey(cell::nullCell(MetaTypeKey)), cell::nullKey);
    EXPECT_EQ(cell::nullCell(3), cell::nullCell(MetaTypeText));
}

} // namespace

// The allocator of cell bytes, and the functions that make String cells.
#include "host/row_buffer.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <vector>

namespace {

/// A stretch of bytes filled with a value of its own.
struct Filled {
    uchar* bytes;
    qsizetype size;
    uchar value;

    bool isIntact() const {
        return std::all_of(bytes, bytes + size, [&](uchar byte) { return byte == value; });
    }
};

TEST(RowBuffer, BytesStayUntilTheReset) {
    for (const int startSize : {0, 1, 2000, 65536}) {
        std::mt19937 random(5);
        RowBuffer buffer(startSize);
        for (int row = 0; row < 20; ++row) {
            buffer.reset();
            std::vector<Filled> all;
            for (int i = 0; i < 200; ++i) {
                const qsizetype size =
                    static_cast<qsizetype>(random() % (random() % 16 == 0 ? 20'000 : 100));
                all.push_back({buffer.alloc(size), size, static_cast<uchar>(random())});
                std::fill_n(all.back().bytes, size, all.back().value);
            }
            for (const Filled& filled : all)
                ASSERT_TRUE(filled.isIntact()) << startSize << ", row " << row;
        }
    }
}

TEST(RowBuffer, ResetKeepsTheMemoryForTheNextRow) {
    RowBuffer buffer;
    EXPECT_EQ(buffer.capacity(), 0);
    const auto oneRow = [&] {
        buffer.reset();
        uchar* const first = buffer.alloc(10);
        for (int i = 0; i < 50; ++i)
            buffer.alloc(1000);
        buffer.alloc(100'000);
        return first;
    };
    const uchar* const first = oneRow();
    const qsizetype held = buffer.capacity();
    for (int row = 0; row < 1000; ++row)
        ASSERT_EQ(oneRow(), first);
    EXPECT_EQ(buffer.capacity(), held);
}

TEST(RowBuffer, DeepResetGivesTheMemoryBack) {
    RowBuffer buffer(65536);
    buffer.alloc(200'000);
    buffer.deepReset(0);
    EXPECT_EQ(buffer.capacity(), 0);
    buffer.reset();
    std::fill_n(buffer.alloc(5000), 5000, uchar(1));
    EXPECT_GE(buffer.capacity(), 5000);
    buffer.deepReset(0);
    buffer.deepReset(0);
    EXPECT_EQ(buffer.capacity(), 0);
}

TEST(RowBuffer, HoldsATableInNotMuchMoreThanItsBytes) {
    RowBuffer buffer;
    constexpr qsizetype rows = 1'000'000;
    for (qsizetype i = 0; i < rows; ++i)
        buffer.alloc(100);
    EXPECT_LT(buffer.capacity(), rows * 100 + 2 * (16 << 20));
}

TEST(RowBuffer, StringCellsKeepNullAndEmptyApart) {
    RowBuffer buffer;
    EXPECT_EQ(*bytesFromQString(buffer, QString()), cell::nullText);
    EXPECT_EQ(*bytesFromQString(buffer, QString("")), cell::emptyText);
    EXPECT_TRUE(detach(QString()).isNull());
    EXPECT_FALSE(detach(QString("")).isNull());
    const QString texts[] = {QString(), QString(""), QString("a"), QString(300, QChar(0x4E2D))};
    for (const QString& text : texts) {
        const uchar* const copy = bytesFrombytes(buffer, bytesFromQString(buffer, text));
        EXPECT_EQ(cell::textBytes(copy), cell::textCellBytes(text.size()));
        EXPECT_EQ(qStringFromBytes(copy), text);
        EXPECT_EQ(qStringFromBytes(copy).isNull(), text.isNull());
    }
}

TEST(RowBuffer, DetachedTextOutlivesItsBytes) {
    QString kept;
    {
        const std::vector<QChar> chars(40, QChar('k'));
        kept = detach(QString::fromRawData(chars.data(), 40));
    }
    EXPECT_EQ(kept, QString(40, 'k'));
}

} // namespace

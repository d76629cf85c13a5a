#include "rows/big_malloc.h"

#include "tests/plain_box.h"

#include <gtest/gtest.h>

#include <algorithm>

namespace {

TEST(BigMalloc, givesZeroedPages) {
    for (const qint64 size : {1, 4096, 5 << 20}) {
        uchar* const block = bigMalloc(size);
        ASSERT_NE(block, nullptr);
        EXPECT_EQ(reinterpret_cast<quintptr>(block) % 4096, 0u);
        EXPECT_TRUE(std::all_of(block, block + size, [](uchar byte) { return byte == 0; }));
        std::fill(block, block + size, uchar(0xFF));
        bigFree(block);
    }
    bigFree(nullptr);
    EXPECT_EQ(BigMallocWatch::livingBlocks(), 0);
}

TEST(BigMalloc, givesUpAfterFiftyTries) {
    velmorra::test::HeldLog log;
    EXPECT_EQ(bigMalloc(qint64(1) << 60), nullptr);
    EXPECT_EQ(log.master.size(), 50);
    EXPECT_EQ(log.master.front(), QStringLiteral("[4] Warning: Big Malloc() failed. Retrying..."));
    for (const qint64 impossible : {qint64(0), qint64(-1)})
        EXPECT_EQ(bigMalloc(impossible), nullptr);
}

} // namespace

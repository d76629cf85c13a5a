#include "rows/packed_row.h"

#include "tests/plain_box.h"
#include "tests/rows/random_cells.h"

#include <gtest/gtest.h>

namespace {

const std::vector<qint32> mixedTypes = {'U', 'K', 'F', 'U', 'K', 'U', 'F', 'L'};

struct Packed {
    Bytes bytes;
    std::vector<const uchar*> cells;
};

TEST(PackedRow, unpacksToTheSameCells) {
    std::mt19937 random(5);
    const CellTable table = randomTable(random, mixedTypes, 200, 1000);
    OneRow row;
    setTypes(row, table.types);
    PackedRowDescriptor all;
    descriptorFromRow(all, row);
    PackedRowDescriptor copy;
    copyDescriptor(copy, all);
    releaseDescriptor(all);
    releaseDescriptor(all);
    EXPECT_EQ(copy.fixedSize, 4 * 2 + 8 * 2);
    for (const auto& cells : table.rows) {
        pointAt(row, cells);
        Bytes bytes(static_cast<size_t>(packedSize(copy, row.cells)) + 1, 0xAB);
        std::vector<const uchar*> repointed(cells.size());
        std::vector<const uchar*> unpacked(cells.size());
        uchar* const end = packRowRepoint(copy, row.cells, repointed.data(), bytes.data());
        EXPECT_EQ(end, bytes.data() + bytes.size() - 1);
        EXPECT_EQ(bytes.back(), 0xAB);
        EXPECT_EQ(unpackRow(copy, unpacked.data(), bytes.data()), end);
        EXPECT_EQ(repointed, unpacked);
        for (size_t i = 0; i < cells.size(); ++i)
            EXPECT_EQ(bytesOf(unpacked[i], table.types[i]), cells[i]);
    }
}

TEST(PackedRow, listsKeysThenFloatsThenTextsEachLastFirst) {
    const std::vector<Bytes> cells = {textCell(u"a"), keyCell(1), floatCell(2), nullTextCell,
                                      keyCell(3)};
    OneRow row;
    setTypes(row, {'U', 'K', 'F', 'U', 'K'});
    pointAt(row, cells);
    PackedRowDescriptor descriptor;
    descriptorFromRow(descriptor, row);
    Bytes bytes(static_cast<size_t>(packedSize(descriptor, row.cells)));
    std::vector<const uchar*> listed(5);
    packRowListing(descriptor, row.cells, listed.data(), bytes.data());
    std::vector<qint64> offsets;
    for (const uchar* const cellBytes : listed)
        offsets.push_back(cellBytes - bytes.data());
    // In memory: key 1, key 3, float 2, "a" (3 bytes), null.
    EXPECT_EQ(offsets, std::vector<qint64>({4, 0, 8, 19, 16}));
    EXPECT_EQ(bytes.size(), 20u);
}

TEST(PackedRow, copiesTextsAroundTheLimitOfTheShortCopies) {
    OneRow row;
    setTypes(row, {'U'});
    PackedRowDescriptor descriptor;
    descriptorFromRow(descriptor, row);
    // A length field of two bytes makes even sizes: 1 + 2n and, from 126 units on, 2 + 2n.
    for (const size_t units : {0u, 30u, 31u, 32u, 63u, 64u, 125u, 126u, 127u, 1000u}) {
        const std::vector<Bytes> cells = {textCell(std::u16string(units, u'y'))};
        pointAt(row, cells);
        Bytes bytes(static_cast<size_t>(packedSize(descriptor, row.cells)));
        EXPECT_EQ(packRow(descriptor, row.cells, bytes.data()), bytes.data() + bytes.size());
        EXPECT_EQ(bytes, cells.front());
    }
}

TEST(PackedRow, leavesOneColumnOutWithoutAGap) {
    OneRow row;
    setTypes(row, {'K', 'U', 'F', 'K'});
    PackedRowDescriptor descriptor;
    std::vector<qint32> sources;
    descriptorAllBut(descriptor, row, 1, &sources);
    EXPECT_EQ(sources, std::vector<qint32>({0, 2, 3}));
    EXPECT_EQ(descriptor.keyCount, 2);
    EXPECT_EQ(descriptor.keySources[0], 3);
    EXPECT_EQ(descriptor.keyTargets[0], 2);
    EXPECT_EQ(descriptor.floatTargets[0], 1);
    EXPECT_EQ(columnCount(descriptor), 3);
}

TEST(PackedRow, takesColumnsByNameInTheOrderOfTheNames) {
    OneRow row;
    setTypes(row, {'K', 'K'});
    PackedRowDescriptor descriptor;
    std::vector<qint32> sources;
    EXPECT_FALSE(descriptorFromNames(descriptor, row, {"c1", "c0"}, &sources));
    EXPECT_EQ(sources, std::vector<qint32>({1, 0}));
    const std::vector<Bytes> cells = {keyCell(7), keyCell(8)};
    pointAt(row, cells);
    Bytes bytes(8);
    packRow(descriptor, row.cells, bytes.data());
    EXPECT_EQ(cell::loadKey(bytes.data()), 8u);
    velmorra::test::HeldLog log;
    EXPECT_TRUE(descriptorFromNames(descriptor, row, {"c1", "no %1"}));
    EXPECT_EQ(log.master, QStringList("[1] cannot find column 'no %1'"));
}

TEST(PackedRow, ofNoColumnsHasNoBytes) {
    OneRow row;
    PackedRowDescriptor descriptor;
    descriptorFromRow(descriptor, row);
    uchar byte = 0;
    EXPECT_EQ(packedSize(descriptor, nullptr), 0);
    EXPECT_EQ(packRow(descriptor, nullptr, &byte), &byte);
}

} // namespace

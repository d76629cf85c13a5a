/// SlaveTableStore against a list that is searched from its end.
#include "rows/slave_table_store.h"

#include "tests/plain_box.h"
#include "tests/rows/random_cells.h"

#include <gtest/gtest.h>

namespace {

bool isSameKey(const Bytes& a, const Bytes& b, qint32 type) {
    if (type == MetaTypeFloat)
        return cell::loadFloat(a.data()) == cell::loadFloat(b.data());
    return a == b;
}

const uchar* find(const SlaveTableStore& store, int slot, const Bytes& key) {
    switch (store.keyType(slot)) {
    case MetaTypeKey:
        return store.findKey(slot, cell::loadKey(key.data()));
    case MetaTypeFloat:
        return store.findFloat(slot, cell::loadFloat(key.data()));
    default:
        return store.findText(slot, cell::text(key.data()));
    }
}

class RandomStore : public testing::TestWithParam<qint64> {};

TEST_P(RandomStore, findsTheLastRowOfEachKeyWithItsCells) {
    const std::vector<qint32> types = {'U', 'K', 'F', 'U', 'K', 'U'};
    const std::vector<int> stored = {0, 1, 2, 3, 5};
    const std::vector<int> keyPlaces = {0, 1, 2};
    for (unsigned seed = 0; seed < 10; ++seed) {
        SCOPED_TRACE(seed);
        std::mt19937 random(seed);
        const CellTable table = randomTable(random, types, 400, 150);
        OneRow row;
        setTypes(row, types);
        SlaveTableStore store(1, GetParam(), false);
        store.setColumns(row, stored, keyPlaces);
        for (const auto& cells : table.rows) {
            pointAt(row, cells);
            ASSERT_FALSE(store.addRow(row));
        }
        const std::vector<std::vector<int>> selections = {
            {}, {0}, {1, 4}, {0, 1, 1, 2, 3, 3, 3, 4}, {3}};
        for (const auto& probe : table.rows) {
            for (int slot = 0; slot < 3; ++slot) {
                const auto column = static_cast<size_t>(slot);
                const auto match = std::find_if(
                    table.rows.rbegin(), table.rows.rend(), [&](const std::vector<Bytes>& cells) {
                        return isSameKey(cells[column], probe[column], types[column]);
                    });
                const uchar* const found = find(store, slot, probe[column]);
                ASSERT_EQ(found == nullptr, match == table.rows.rend());
                if (found == nullptr)
                    continue;
                for (const std::vector<int>& places : selections) {
                    const uchar* out[9] = {};
                    const SlaveTableStore::Selection selection(store, places);
                    ASSERT_EQ(selection.point(found, out), out + places.size());
                    for (size_t i = 0; i < places.size(); ++i) {
                        const auto source =
                            static_cast<size_t>(stored[static_cast<size_t>(places[i])]);
                        EXPECT_EQ(bytesOf(out[i], types[source]), (*match)[source]);
                    }
                }
            }
        }
    }
}

// Blocks that hold many rows, a few rows, not even a row, and less than a cell.
INSTANTIATE_TEST_SUITE_P(BlockSizes, RandomStore, testing::Values(1 << 20, 2000, 200, 16));

TEST(SlaveTableStore, endsTheProcessForWantOfMemory) {
    for (const int calls : {0, 1, 2}) {
        EXPECT_EXIT(
            {
                BigMallocWatch::failAfter(calls);
                OneRow row;
                setTypes(row, {MetaTypeText});
                SlaveTableStore store(3, 1000, true);
                store.setColumns(row, {0}, {0});
                for (int i = 0;; ++i) {
                    const Bytes key = textCell(std::u16string(300, char16_t(u'a' + i)));
                    row.cells[0] = key.data();
                    store.addRow(row);
                }
            },
            testing::ExitedWithCode(99), "");
    }
}

} // namespace

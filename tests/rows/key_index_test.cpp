/// KeyIndex against a tree of keys that is built by the book: partition by one byte after the
/// other, each partition turning round the order of equal keys.
#include "rows/key_index.h"

#include "tests/plain_box.h"
#include "tests/rows/random_cells.h"

#include <gtest/gtest.h>

#include <map>

namespace {

constexpr int ended = 256;

/// What the tree knows: the rows of each key in the order of its chain, and the keys that came
/// twice in the order in which the tree meets them.
struct Reference {
    /// Compared byte by byte in code of our own: GCC 12 warns of the library's.
    struct IsLess {
        bool operator()(const Bytes& a, const Bytes& b) const {
            return std::lexicographical_compare(a.begin(), a.end(), b.begin(), b.end(),
                                                [](int x, int y) { return x < y; });
        }
    };
    std::map<Bytes, std::vector<int>, IsLess> chains;
    std::vector<Bytes> duplicates;
};

int valueAt(const Bytes& key, size_t place) {
    return place < key.size() ? key[place] : ended;
}

void partition(const std::vector<Bytes>& keys, const std::vector<int>& rows, size_t place,
               Reference& reference) {
    const Bytes& first = keys[static_cast<size_t>(rows.front())];
    const auto isEqual = [&](int row) { return keys[static_cast<size_t>(row)] == first; };
    if (std::all_of(rows.begin(), rows.end(), isEqual)) {
        reference.chains[first] = rows;
        if (rows.size() > 1)
            reference.duplicates.push_back(first);
        return;
    }
    std::map<int, std::vector<int>> groups;
    for (auto row = rows.rbegin(); row != rows.rend(); ++row)
        groups[valueAt(keys[static_cast<size_t>(*row)], place)].push_back(*row);
    if (groups.size() == 1) {
        partition(keys, rows, place + 1, reference);
        return;
    }
    for (const auto& [value, group] : groups)
        partition(keys, group, place + 1, reference);
}

Reference referenceOf(const std::vector<Bytes>& keys) {
    std::vector<int> rows;
    for (int row = static_cast<int>(keys.size()); row-- > 0;)
        rows.push_back(row);
    Reference reference;
    if (!rows.empty())
        partition(keys, rows, 0, reference);
    return reference;
}

/// Adds rows whose payload holds the row's number behind the link.
struct ChainedIndex {
    KeyIndex index{300, 16, DuplicatePolicy::ChainDuplicates};
    int rows = 0;

    void number(uchar* payload) {
        ASSERT_NE(payload, nullptr);
        std::memcpy(payload + 8, &rows, sizeof rows);
        ++rows;
    }
};

std::vector<int> chainAt(const uchar* payload) {
    std::vector<int> rows;
    for (; payload != nullptr; payload = KeyIndex::nextInChain(payload)) {
        int row;
        std::memcpy(&row, payload + 8, sizeof row);
        rows.push_back(row);
    }
    return rows;
}

Bytes textBytes(const Bytes& cellBytes) {
    const cell::TextView text = cell::text(cellBytes.data());
    return {text.chars, text.chars + 2 * text.size()};
}

std::u16string textOf(const Bytes& key) {
    std::u16string text(key.size() / 2, u' ');
    if (!key.empty())
        std::memcpy(text.data(), key.data(), key.size());
    return text;
}

std::u16string randomText(std::mt19937& random, unsigned letters) {
    std::u16string text(random() % 5, u' ');
    for (char16_t& unit : text)
        unit = static_cast<char16_t>(u'a' + (random() % letters) * 129);
    return text;
}

TEST(KeyIndex, chainsNumbersInTheOrderOfTheTree) {
    const double floats[] = {0.0,
                             -0.0,
                             1.5,
                             1e300,
                             -1e300,
                             3,
                             0.1,
                             0.2,
                             0.3,
                             7e-5,
                             cell::nullFloat(),
                             cell::invalidFloat()};
    for (unsigned seed = 0; seed < 120; ++seed) {
        SCOPED_TRACE(seed);
        std::mt19937 random(seed);
        ChainedIndex chained;
        std::vector<Bytes> keys;
        const bool isKey = seed % 2 == 0;
        const unsigned spread = 1u << random() % 20;
        const unsigned used = 1 + random() % std::size(floats);
        for (size_t count = random() % 400; keys.size() < count;) {
            const quint32 key = random() % spread * (random() % 2 == 0 ? 1 : 65537);
            const double number = floats[random() % used];
            keys.push_back(isKey ? keyCell(key) : floatCell(number));
            chained.number(isKey ? chained.index.addKey(key) : chained.index.addFloat(number));
        }
        ASSERT_FALSE(isKey ? chained.index.buildKey() : chained.index.buildFloat());
        for (const auto& [key, rows] : referenceOf(keys).chains)
            EXPECT_EQ(chainAt(isKey ? chained.index.findKey(cell::loadKey(key.data()))
                                    : chained.index.findFloat(cell::loadFloat(key.data()))),
                      rows);
        EXPECT_EQ(isKey ? chained.index.findKey(0xFFFF0001u) : chained.index.findFloat(99),
                  nullptr);
    }
}

TEST(KeyIndex, chainsTextsInTheOrderOfTheTreeAndNullsInTheirOwn) {
    for (unsigned seed = 0; seed < 120; ++seed) {
        SCOPED_TRACE(seed);
        std::mt19937 random(seed);
        ChainedIndex chained;
        std::vector<Bytes> keys;
        std::vector<int> rowsOfKeys;
        std::vector<int> nulls;
        const unsigned letters = 1 + random() % 3;
        for (int count = int(random() % 300); chained.rows < count;) {
            const bool isNull = random() % 10 == 0;
            // At an odd address, and gone behind the add.
            Bytes cellBytes = isNull ? nullTextCell : textCell(randomText(random, letters));
            (isNull ? nulls : rowsOfKeys).push_back(chained.rows);
            if (!isNull)
                keys.push_back(textBytes(cellBytes));
            cellBytes.insert(cellBytes.begin(), 0);
            chained.number(chained.index.addString(cellBytes.data() + 1));
        }
        ASSERT_FALSE(chained.index.buildString());
        for (auto& [key, rows] : referenceOf(keys).chains) {
            const Bytes cellBytes = textCell(textOf(key));
            std::vector<int> expected;
            for (const int row : rows)
                expected.push_back(rowsOfKeys[static_cast<size_t>(row)]);
            EXPECT_EQ(chainAt(chained.index.findString(cellBytes.data())), expected);
        }
        EXPECT_EQ(chainAt(chained.index.findString(nullTextCell.data())), nulls);
        EXPECT_EQ(chained.index.findString(textCell(u"zz").data()), nullptr);
    }
}

TEST(KeyIndex, tellsTheDuplicateThatTheTreeMeetsFirst) {
    for (unsigned seed = 0; seed < 40; ++seed) {
        SCOPED_TRACE(seed);
        std::mt19937 random(seed);
        KeyIndex numbers(300, 0, DuplicatePolicy::RejectDuplicates);
        KeyIndex texts(300, 0, DuplicatePolicy::RejectDuplicates);
        numbers.columnName = texts.columnName = QStringLiteral("id %1");
        std::vector<Bytes> numberKeys;
        std::vector<Bytes> textKeys;
        for (int i = 0; i < 40; ++i) {
            const quint32 key = random() % 64 * 4099;
            numberKeys.push_back(keyCell(key));
            numbers.addKey(key);
            const Bytes text = textCell(randomText(random, 3));
            textKeys.push_back(textBytes(text));
            texts.addString(text.data());
        }
        const QString start = QStringLiteral("[1] Error: Primary key in column 'id %1' on pin 1 is "
                                             "not unique: Duplicate value is :'");
        velmorra::test::HeldLog log;
        const Reference ofNumbers = referenceOf(numberKeys);
        EXPECT_EQ(numbers.buildKey(), !ofNumbers.duplicates.empty());
        if (!ofNumbers.duplicates.empty()) {
            const quint32 key = cell::loadKey(ofNumbers.duplicates.front().data());
            EXPECT_EQ(log.master, QStringList(start + QString::number(key) + QLatin1Char('\'')));
        }
        log.master.clear();
        const Bytes first = referenceOf(textKeys).duplicates.front();
        EXPECT_TRUE(texts.buildString());
        EXPECT_EQ(log.master, QStringList(start + QString::fromStdU16String(textOf(first)) +
                                          QLatin1Char('\'')));
        EXPECT_FALSE(texts.outOfMemory());
    }
}

TEST(KeyIndex, withoutEntriesMissesEverything) {
    KeyIndex index(300, 16, DuplicatePolicy::ChainDuplicates);
    EXPECT_FALSE(index.buildString());
    EXPECT_EQ(index.findString(nullTextCell.data()), nullptr);
    EXPECT_EQ(index.findString(textCell(u"").data()), nullptr);
    EXPECT_EQ(index.bytes(), 0);
}

TEST(KeyIndex, takesATextLongerThanItsBlocks) {
    ChainedIndex chained;
    const Bytes longCell = textCell(std::u16string(1 << 19, u'x'));
    const Bytes longer = textCell(std::u16string((1 << 19) + 1, u'x'));
    for (const Bytes* const each : {&longCell, &longer, &longCell})
        chained.number(chained.index.addString(each->data()));
    ASSERT_FALSE(chained.index.buildString());
    EXPECT_EQ(chainAt(chained.index.findString(longCell.data())), std::vector<int>({0, 2}));
    EXPECT_EQ(chainAt(chained.index.findString(longer.data())), std::vector<int>({1}));
}

TEST(KeyIndex, foldsADeepTreeWithoutRecursion) {
    // Each text is one unit longer than the last: the way to the longest has a branch per unit.
    constexpr int depth = 3000;
    ChainedIndex chained;
    for (int length = 1; length <= depth; ++length) {
        const Bytes cellBytes = textCell(std::u16string(static_cast<size_t>(length), u'x'));
        chained.number(chained.index.addString(cellBytes.data()));
    }
    for (const int length : {1, 2, depth}) {
        const Bytes cellBytes = textCell(std::u16string(static_cast<size_t>(length), u'x'));
        chained.number(chained.index.addString(cellBytes.data()));
    }
    ASSERT_FALSE(chained.index.buildString());
    const auto chainOf = [&](int length) {
        const Bytes cellBytes = textCell(std::u16string(static_cast<size_t>(length), u'x'));
        return chainAt(chained.index.findString(cellBytes.data()));
    };
    EXPECT_EQ(chainOf(1), std::vector<int>({0, depth}));                 // one branch
    EXPECT_EQ(chainOf(2), std::vector<int>({depth + 1, 1}));             // two
    EXPECT_EQ(chainOf(depth), std::vector<int>({depth - 1, depth + 2})); // depth - 1
}

TEST(KeyIndex, survivesWantOfMemoryAtEachPoint) {
    const int living = BigMallocWatch::livingBlocks();
    int calls = 0;
    for (bool failed = true; failed; ++calls) {
        velmorra::test::HeldLog log;
        BigMallocWatch::failAfter(calls);
        {
            KeyIndex index(300, 16, DuplicatePolicy::ChainDuplicates);
            bool added = true;
            for (int i = 0; added && i < 900; ++i)
                added =
                    index.addString(textCell(std::u16string(1, char16_t(u'a' + i % 450))).data()) !=
                    nullptr;
            failed = !added || index.buildString();
            EXPECT_EQ(failed, index.outOfMemory());
        }
        BigMallocWatch::failAfter(-1);
        EXPECT_EQ(BigMallocWatch::livingBlocks(), living);
        EXPECT_EQ(log.master.isEmpty(), !failed);
    }
    EXPECT_GT(calls, 5);
}

} // namespace

// Rows: values and texts of cells, stored blocks, copies, and the lookup of columns.
#include "host/number_text.h"
#include "tests/rows/random_cells.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <optional>

namespace {

/// The three ways to a cell's text agree; the text, as one of them gave it.
QString textOfCell(const OneRow& row) {
    ushort scratch[OneRow::scratchUnits];
    const QString text = detach(row.col(0, scratch));
    const QString hashed = detach(row.colForHash(0));
    EXPECT_EQ(hashed, text);
    EXPECT_EQ(hashed.isNull(), text.isNull());
    const ushort* chars = nullptr;
    const int units = row.col(0, &chars);
    EXPECT_EQ(units, text.size());
    EXPECT_EQ(chars == nullptr, text.isNull());
    for (int i = 0; i < units; ++i) {
        const auto* const bytes = reinterpret_cast<const uchar*>(chars);
        EXPECT_EQ(cell::unitAt(bytes, i), text[i].unicode());
    }
    return text;
}

constexpr double infinity = std::numeric_limits<double>::infinity();

/// A cell and what a row makes of it.
struct Example {
    qint32 type;
    Bytes bytes;
    QString text;
    std::optional<double> number; ///< none where the cell is no number
    qint64 key = -1;              ///< -1 where the cell is no key
};

std::vector<Example> examples() {
    std::vector<Example> all = {
        {'K', keyCell(4294967293u), "4294967293", 4294967293.0, 4294967293},
        {'K', keyCell(0), "0", 0, 0},
        {'K', keyCell(cell::nullKey), {}, {}},
        {'K', keyCell(cell::firstNullKey), {}, {}},
        {'F', floatCell(-0.1), "-0.1", -0.1},
        {'F', floatCell(-1.2345678901234568e-300), "-1.2345678901234568e-300",
         -1.2345678901234568e-300},
        {'F', floatCell(cell::nullFloat()), {}, {}},
        {'F', floatCell(cell::invalidFloat()), "nan", cell::invalidFloat()},
        {'F', floatCell(0), "0", 0, 0},
        {'F', floatCell(4294967293.0), "4294967293", 4294967293.0, 4294967293},
        {'U', textCell(u" 12.5 EUR"), " 12.5 EUR", 12.5},
        {'U', textCell(u"4294967293"), "4294967293", 4294967293.0, 4294967293},
        {'U', textCell(u"1.2e1"), "1.2e1", 12, 12},
        // The word is a number to the parser: callers that care test the bits first.
        {'U', textCell(u"null"), "null", cell::nullFloat()},
        {'U', nullTextCell, {}, {}},
        {'U', textCell(u""), "", {}}};
    for (const double value : {4294967293.5, 4294967294.0, 4294967295.0, 4294967296.0, 0.5, -1.0,
                               1e300, infinity, -infinity}) {
        char digits[numberTextRoom];
        const QString text = QString::fromLatin1(digits, formatFloat(value, digits));
        all.push_back({'F', floatCell(value), text, value});
        all.push_back({'U', textCell(text.toStdU16String()), text, value});
    }
    for (const char16_t* const text : {u"x", u"1,5", u"nan", u"inf"})
        all.push_back({'U', textCell(text), QString::fromUtf16(text),
                       *text == u'n'   ? std::optional(cell::invalidFloat())
                       : *text == u'i' ? std::optional(infinity)
                                       : std::nullopt});
    for (const int units : {1, 2, 33, 125, 126, 127, 16254, 16255, 20000}) {
        const QString text = QString(units - 1, QChar(0x0142)) + '!';
        all.push_back({'U', textCell(text.toStdU16String()), text, {}});
    }
    return all;
}

TEST(OneRow, CellsAsTextsNumbersAndKeysAtEvenAndOddAddresses) {
    for (const Example& example : examples()) {
        SCOPED_TRACE(example.text.left(40).toStdString());
        for (const size_t shift : {0, 1}) {
            // Just as long as needed, so that a read behind the cell is seen by the sanitizers.
            const auto bytes = std::make_unique<uchar[]>(example.bytes.size() + shift);
            std::copy(example.bytes.begin(), example.bytes.end(), bytes.get() + shift);
            OneRow row;
            row.setNumberOfColumns(1);
            row.setMetaType(0, {example.type, -1});
            row.setCol(0, bytes.get() + shift);
            EXPECT_EQ(textOfCell(row), example.text);
            EXPECT_EQ(textOfCell(row).isNull(), example.text.isNull());
            EXPECT_EQ(row.totalLengthField(0), qsizetype(example.bytes.size()));
            bool ok = false;
            const quint64 bits = std::bit_cast<quint64>(row.colAsDouble(0, &ok));
            EXPECT_EQ(ok, example.number.has_value());
            EXPECT_EQ(bits == cell::nullFloatBits, example.text.isNull() || example.text == "null");
            EXPECT_EQ(bits,
                      std::bit_cast<quint64>(ok ? *example.number : std::bit_cast<double>(bits)));
            const quint32 key = row.colAsKey(0, &ok);
            EXPECT_EQ(ok ? qint64(key) : -1, example.key);
        }
    }
}

TEST(OneRow, TextsThatAreSet) {
    OneRow row;
    row.setNumberOfColumns(1);
    RowBuffer buffer;
    row.setColAsString(0, buffer, "kept");
    EXPECT_EQ(textOfCell(row), "kept");
    row.setColAsString(0, buffer, QString());
    EXPECT_TRUE(textOfCell(row).isNull());
    row.setColAsString(0, buffer, "");
    EXPECT_FALSE(textOfCell(row).isNull());
    row.setColAsString(0, buffer, -42LL);
    EXPECT_EQ(textOfCell(row), "-42");
    row.setColAsString(0, buffer, std::numeric_limits<long long>::min());
    EXPECT_EQ(textOfCell(row), "-9223372036854775808");
}

TEST(OneRow, NullsAreOfTheColumnsForm) {
    OneRow row;
    row.setNumberOfColumns(1);
    EXPECT_TRUE(cell::isNull(row.cells[0], MetaTypeText));
    // Also where only the type changes: a null text is too short to be read as a number.
    for (const qint32 type : {MetaTypeFloat, MetaTypeText, MetaTypeKey, MetaTypeFloat}) {
        row.setMetaType(0, {type, -1});
        EXPECT_TRUE(cell::isNull(row.cells[0], type));
        EXPECT_EQ(row.storedBytes(), cell::bytes(cell::nullCell(type), type));
        row.setNull(0);
        EXPECT_TRUE(cell::isNull(row.cells[0], type));
    }
    row.setMetaData({MetaInfo(MetaTypeKey, -1)});
    EXPECT_EQ(row.storedBytes(), 4);
    // A cell with a value is left alone.
    const uchar value[8] = {1};
    row.setCol(0, value);
    row.setMetaType(0, {MetaTypeFloat, -1});
    EXPECT_EQ(row.cells[0], value);
}

/// Random rows over columns of all forms.
struct RandomTable {
    explicit RandomTable(unsigned seed) : random(seed) {
        std::vector<qint32> types(1 + random() % 12);
        for (qint32& type : types)
            type = "KFU"[random() % 3];
        table = randomTable(random, types, 20, 1000);
        setTypes(row, types);
        pointAt(row, table.rows[0]);
    }

    std::mt19937 random;
    CellTable table;
    OneRow row;
};

TEST(OneRow, StoredRowsReadBackAtEvenAndOddAddresses) {
    for (unsigned seed = 0; seed < 60; ++seed) {
        RandomTable random(seed);
        const OneRow& row = random.row;
        OneRow copy;
        copy.setShape(row.shape());
        RowBuffer store;
        Bytes packed;
        for (const std::vector<Bytes>& cells : random.table.rows) {
            pointAt(random.row, cells);
            const auto expectCells = [&](const OneRow& got, int first) {
                for (size_t i = 0; i < cells.size(); ++i)
                    ASSERT_EQ(bytesOf(got.cells[size_t(first) + i], random.table.types[i]),
                              cells[i]);
            };
            const uchar* const block = row.storeInBuffer(store);
            EXPECT_EQ(copy.initFromBuffer(block, 0, -1), block + row.storedBytes());
            expectCells(copy, 0);
            for (const qsizetype shift : {0, 1}) {
                packed.assign(size_t(row.storedBytes() + shift), 0);
                row.storeAt(packed.data() + shift);
                copy.initFromBuffer(packed.data() + shift, 0, -1);
                expectCells(copy, 0);
            }
            // As a part of a wider row.
            OneRow wide;
            wide.setNumberOfColumns(row.sz() + 3);
            for (int i = 0; i < row.sz(); ++i)
                wide.setMetaType(i + 2, row.getMetaType(i));
            EXPECT_EQ(wide.initFromBuffer(block, 2, wide.sz() - 1), block + row.storedBytes());
            expectCells(wide, 2);
            EXPECT_TRUE(cell::isNull(wide.cells[0], MetaTypeText));
            EXPECT_TRUE(cell::isNull(wide.cells[wide.sz() - 1], MetaTypeText));
        }
    }
}

TEST(OneRow, FirstCopyTakesOverTheShape) {
    RandomTable table(9);
    table.row.setSortInfos({{0, SortNumberRising}});
    OneRow out;
    EXPECT_TRUE(out.isFresh());
    out.copyFrom(table.row);
    EXPECT_FALSE(out.isFresh());
    EXPECT_EQ(out.shape(), table.row.shape());
    EXPECT_TRUE(std::equal(out.cells, out.cells + out.sz(), table.row.cells));

    out.makeFresh();
    EXPECT_EQ(out.sz(), 0);
    RandomTable other(10);
    out.copyFrom(other.row);
    EXPECT_EQ(out.shape(), other.row.shape());
}

TEST(OneRow, LaterCopiesLeaveAloneWhatWasSet) {
    RandomTable table(9);
    const int inputColumns = table.row.sz();
    OneRow out;
    out.copyFrom(table.row);
    // More columns than the row had room for, so that the pointers move.
    out.setNumberOfColumns(inputColumns + 50);
    out.setColName(0, "renamed");
    out.setColName(inputColumns, "added");
    out.setMetaType(inputColumns, {MetaTypeKey, -1});
    out.setSortInfos({{inputColumns, SortNumberRising}});
    const PinOutMetaData shape = out.shape();
    const uchar key[4] = {1, 0, 0, 0};
    out.setCol(inputColumns, key);
    for (const std::vector<Bytes>& cells : table.table.rows) {
        pointAt(table.row, cells);
        out.copyFrom(table.row);
        EXPECT_TRUE(std::equal(out.cells, out.cells + inputColumns, table.row.cells));
        EXPECT_EQ(out.cells[inputColumns], key);
        EXPECT_EQ(out.shape(), shape);
    }
    EXPECT_EQ(table.row.colName(0), "c0");

    out.setNumberOfColumns(1);
    out.copyFrom(table.row);
    EXPECT_EQ(out.sz(), 1);
    // A column that comes back is a new one.
    out.setNumberOfColumns(2);
    EXPECT_TRUE(cell::isNull(out.cells[1], MetaTypeText));
    EXPECT_EQ(out.getMetaType(1), MetaInfo());
    EXPECT_TRUE(out.colName(1).isNull());
}

TEST(OneRow, RowsWithoutColumns) {
    OneRow empty;
    empty.setNumberOfColumns(0);
    OneRow out;
    for (int i = 0; i < 3; ++i)
        out.copyFrom(empty);
    EXPECT_FALSE(out.isFresh());
    EXPECT_EQ(out.sz(), 0);
    EXPECT_EQ(out.storedBytes(), 0);
    EXPECT_EQ(out.getIndexOfColumn("a"), -1);
}

/// The plain meaning of indexOfColumnFrom.
int plainIndex(const OneRow& row, const QString& name, int from) {
    for (int i = from; i < row.sz(); ++i) {
        if (row.colName(i) == name)
            return i;
    }
    return -1;
}

TEST(OneRow, ColumnsAreFoundByExactNameFromAnyStart) {
    std::mt19937 random(8);
    const QString names[] = {"a", "A", "a ", "", "b", "\u00E4"};
    for (const int columns : {1, 3, 8, 9, 10, 40}) {
        OneRow row;
        row.setNumberOfColumns(columns);
        for (int i = 0; i < columns; ++i)
            row.setColName(i, names[random() % std::size(names)]);
        const auto checkAll = [&] {
            for (const QString& name : names) {
                EXPECT_EQ(row.getIndexOfColumn(name), plainIndex(row, name, 0));
                for (int from = 0; from <= columns + 1; ++from)
                    EXPECT_EQ(row.indexOfColumnFrom(name, from), plainIndex(row, name, from));
            }
        };
        checkAll();
        row.setColName(columns / 2, "b"); // a change after a lookup is seen
        checkAll();
        row.setNumberOfColumns(columns + 1);
        row.setColName(columns, "A");
        EXPECT_EQ(row.indexOfColumnFrom("A", columns), columns);
    }
}

TEST(OneRow, OccurrencesOfOneNameAreFoundInTurn) {
    // A hostile table: as many columns as there may be, all of one name. A lookup that searched
    // from the first one again each time would take the square of that.
    constexpr int columns = 1 << 20;
    OneRow row;
    row.setShape({QVector<QString>(columns, "same"), QVector<MetaInfo>(columns), {}});
    int column = -1;
    for (int i = 0; i < columns; ++i) {
        column = row.indexOfColumnFrom("same", column + 1);
        ASSERT_EQ(column, i);
    }
    EXPECT_EQ(row.indexOfColumnFrom("same", columns), -1);
}

TEST(OneRow, DeepCopiesStayWhenTheRowChanges) {
    OneRow row;
    row.setNumberOfColumns(1);
    QString name = "a";
    row.setColName(0, QString::fromRawData(name.constData(), 1));
    row.setSortInfos({{0, SortTextRising}});
    const QVector<QString> names = row.getColNamesDeep();
    const QVector<MetaInfo> types = row.getMetaDataDeep();
    const QVector<SortInfos> sort = row.getSortInfosDeep();
    name[0] = 'x';
    EXPECT_EQ(row.colName(0), "a");
    row.setColName(0, "b");
    row.setMetaType(0, {MetaTypeKey, -1});
    row.setSortInfos({});
    EXPECT_EQ(names, QVector<QString>{"a"});
    EXPECT_EQ(types, QVector<MetaInfo>{MetaInfo()});
    EXPECT_EQ(sort.size(), 1);
}

} // namespace

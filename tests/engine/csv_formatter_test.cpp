/// Formatting CSV, typed headers, and that what is written reads back.
#include "csv_text.h"

#include "engine/csv/csv_formatter.h"
#include "engine/csv/field_marks.h"
#include "engine/typed_header.h"

#include <gtest/gtest.h>

#include <random>

using namespace velmorra;

namespace {

PinOutMetaData shapeOf(std::initializer_list<std::pair<const char*, char>> columns) {
    PinOutMetaData shape;
    for (const auto& [name, type] : columns) {
        shape.names.push_back(QString::fromUtf8(name));
        shape.types.push_back(MetaInfo(type, -1));
    }
    return shape;
}

std::string taken(CsvFormatter& formatter) {
    std::string bytes(formatter.bytes(), size_t(formatter.size()));
    formatter.clear();
    return bytes;
}

/// The line of one row of texts; a null string is a null cell. Cells stand at odd addresses.
std::string lineOf(const std::vector<QString>& texts, qint64* broken = nullptr) {
    PinOutMetaData shape;
    std::vector<const uchar*> cells;
    RowBuffer buffer;
    for (const QString& text : texts) {
        shape.names.push_back(QStringLiteral("c"));
        shape.types.push_back({});
        uchar* const bytes = buffer.alloc(cell::textCellBytes(text.size()) + 1);
        cells.push_back(bytesFromQString(bytes + (~quintptr(bytes) & 1), text));
    }
    CsvFormatter formatter;
    formatter.setColumns(shape);
    formatter.writeRow(cells.data());
    if (broken != nullptr)
        *broken = formatter.brokenCharacters();
    return taken(formatter);
}

} // namespace

TEST(CsvFormatter, QuotesOnlyWhatNeedsIt) {
    const QString empty = QStringLiteral("");
    EXPECT_EQ(lineOf({"a", QString(), empty, "b c"}), "a,,\"\",b c\n");
    EXPECT_EQ(lineOf({"x,y", "say \"hi\"", "l\nf", "c\rr", "\""}),
              "\"x,y\",\"say \"\"hi\"\"\",\"l\nf\",\"c\rr\",\"\"\"\"\n");
    EXPECT_EQ(lineOf({QString()}), "\n");
    EXPECT_EQ(lineOf({empty}), "\"\"\n");
    EXPECT_EQ(lineOf({QString(), QString()}), ",\n");
    // Units whose low byte is that of a special character aren't one.
    EXPECT_EQ(lineOf({QString::fromUtf8("abcdefg\u012C\u0122")}), "abcdefg\u012C\u0122\n");
    EXPECT_EQ(lineOf({QChar(0xFEFF) + QStringLiteral("x"), QChar(0xFEFF) + QStringLiteral("y")}),
              "\"\xEF\xBB\xBFx\",\xEF\xBB\xBFy\n");
}

TEST(CsvFormatter, WritesEveryCharacterAndCountsHalfOnes) {
    const char* const texts[] = {"\xC3\xA9", "\xE2\x82\xAC", "\xF0\x9F\x98\x80",
                                 "seven77\xF0\x9F\x98\x80,",
                                 "12345678\xC3\xA9"
                                 "abcdefghij"};
    for (const char* text : texts) {
        const bool quoted = std::strchr(text, ',') != nullptr;
        const std::string expected = quoted ? '"' + std::string(text) + '"' : text;
        EXPECT_EQ(lineOf({QString::fromUtf8(text)}), expected + "\n");
    }
    const QString low(QChar(0xDC00));
    const QString high(QChar(0xD800));
    qint64 broken = 0;
    EXPECT_EQ(lineOf({low, high, high + "a" + low, high + high + low}, &broken),
              "\xEF\xBF\xBD,\xEF\xBF\xBD,\xEF\xBF\xBD"
              "a\xEF\xBF\xBD,\xEF\xBF\xBD\xF0\x90\x80\x80\n");
    EXPECT_EQ(broken, 5);
}

TEST(CsvFormatter, WritesNumbersAndTheHeader) {
    PinOutMetaData shape = shapeOf({{"id", 'K'}, {"a:K", 'F'}, {"te,xt", 'U'}});
    shape.sort = {{-1, SortTextRising}, {1, SortNumberFalling}, {0, SortNumberRising}};
    uchar bytes[2][32] = {};
    CsvFormatter formatter;
    formatter.setColumns(shape);
    formatter.writeHeader(shape, false);
    EXPECT_EQ(taken(formatter), "id,a:K,\"te,xt\"\n");
    formatter.writeHeader(shape, true);
    EXPECT_EQ(taken(formatter), "id:K:02,a:K:F:91,\"te,xt:U\"\n");
    const auto row = [&](quint32 key, double number) {
        cell::storeKey(bytes[0] + 1, key);
        cell::storeFloat(bytes[1] + 1, number);
        const uchar* const cells[] = {bytes[0] + 1, bytes[1] + 1, &cell::nullText};
        formatter.writeRow(cells);
        return taken(formatter);
    };
    EXPECT_EQ(row(0, 100000), "0,100000,\n");
    EXPECT_EQ(row(0xFFFFFFFD, cell::nullFloat()), "4294967293,,\n");
    EXPECT_EQ(row(0xFFFFFFFE, cell::invalidFloat()), ",nan,\n");
    EXPECT_EQ(row(0xFFFFFFFF, -HUGE_VAL), ",-inf,\n");
    CsvFormatter nothing;
    nothing.setColumns({});
    nothing.writeHeader({}, true);
    nothing.writeRow(nullptr);
    EXPECT_EQ(nothing.size(), 0);
}

TEST(CsvFormatter, LaysOutAsAsked) {
    PinOutMetaData shape = shapeOf({{"id", 'K'}, {"x", 'F'}, {"t;", 'U'}});
    uchar bytes[2][32] = {};
    cell::storeKey(bytes[0], 7);
    cell::storeFloat(bytes[1], -0.5);
    RowBuffer buffer;
    const auto linesOf = [&](const CsvLayout& layout, const char* text) {
        const uchar* const row[] = {bytes[0], bytes[1],
                                    bytesFromQString(buffer, QString::fromUtf8(text))};
        const uchar* const nulls[] = {cell::nullCell('K'), cell::nullCell('F'), &cell::nullText};
        CsvFormatter formatter(layout);
        formatter.setColumns(shape);
        formatter.writeHeader(shape, false);
        formatter.writeRow(row);
        formatter.writeRow(nulls);
        return taken(formatter);
    };
    CsvLayout layout;
    layout.delimiter = ';';
    layout.decimal = ',';
    layout.returnFeed = true;
    EXPECT_EQ(linesOf(layout, "a,b"), "id;x;\"t;\"\r\n7;-0,5;a,b\r\n;;\r\n");
    layout.delimiter = ',';
    EXPECT_EQ(linesOf(layout, "a;b"), "id,x,t;\r\n7,\"-0,5\",a;b\r\n,,\r\n");
    layout = {};
    layout.quoting = CsvQuoting::Text;
    EXPECT_EQ(linesOf(layout, "a\"b"), "\"id\",\"x\",\"t;\"\n7,-0.5,\"a\"\"b\"\n,,\n");
    layout.quoting = CsvQuoting::All;
    EXPECT_EQ(linesOf(layout, "a"), "\"id\",\"x\",\"t;\"\n\"7\",\"-0.5\",\"a\"\n,,\n");
    layout = {};
    layout.safe = true;
    const auto safe = [&](const char* text) {
        const std::string lines = linesOf(layout, text);
        return lines.substr(15, lines.size() - 19);
    };
    for (const char* plain : {"a=1", "-1", "+1.5e3", "'=1", "1-2"})
        EXPECT_EQ(safe(plain), plain);
    for (const char* formula : {"=1", "@x", "-a", "+1+2", "-", "-inf", "\t=1", "-1,5"})
        EXPECT_NE(safe(formula).find("'" + std::string(formula)), std::string::npos) << formula;
    EXPECT_EQ(safe("=\"x\",y"), "\"'=\"\"x\"\",y\"");
}

TEST(CsvFormatter, WritesWhatReadsBackToTheSame) {
    std::mt19937 random(1);
    const char16_t alphabet[] = u"ab,\"\n\r\u00E9\u20AC 0123456789abcdefghijkl\uFEFF";
    for (int round = 0; round < 200; ++round) {
        const size_t columns = 1 + random() % 4;
        CsvFormatter formatter;
        PinOutMetaData shape;
        shape.types = QVector<MetaInfo>(qsizetype(columns));
        formatter.setColumns(shape);
        std::vector<std::vector<QString>> rows(1 + random() % 20);
        for (auto& row : rows) {
            RowBuffer buffer;
            std::vector<const uchar*> cells;
            for (size_t c = 0; c < columns; ++c) {
                QString text;
                if (random() % 4 != 0)
                    text = QStringLiteral("");
                for (size_t n = random() % 4 == 0 ? random() % 40 : 0; n > 0; --n)
                    text += QChar(alphabet[random() % (std::size(alphabet) - 1)]);
                row.push_back(text);
                cells.push_back(bytesFromQString(buffer, text));
            }
            formatter.writeRow(cells.data());
        }
        CsvParser parser(bytesSource(taken(formatter), 13), QString(), {});
        const bool headed = parser.readFirstRow().rows > 0;
        parser.setColumns(std::vector<CsvColumn>(headed || columns == 1 ? columns : 0), shape,
                          true);
        RowBatch batch;
        parser.fill(batch);
        ASSERT_EQ(batch.problem.toStdString(), "");
        ASSERT_EQ(size_t(batch.rows), rows.size());
        for (size_t r = 0; r < rows.size(); ++r) {
            for (size_t c = 0; c < columns; ++c) {
                const QString back = qStringFromBytes(batch.row(int(r))[c]);
                EXPECT_EQ(back.isNull(), rows[r][c].isNull());
                EXPECT_EQ(back, rows[r][c]);
            }
        }
    }
}

TEST(TextBlocks, BothFormsAgree) {
    std::mt19937 random(7);
    const uchar likely[] = {',', '"', '\r', '\n', 0, 0x7F, 0x80, 0xFF, 'a', 0x2C, 0x22, 1};
    for (int round = 0; round < 2000; ++round) {
        uchar bytes[scanBlock + 1];
        for (uchar& byte : bytes)
            byte = random() % 3 == 0 ? likely[random() % std::size(likely)] : uchar('b');
        const uchar* const at = bytes + random() % 2;
        EXPECT_EQ(findSpecials(at, ',', '"'), portable::findSpecials(at, ',', '"'));
        uchar wide[2][2 * widenBytes];
        EXPECT_EQ(widenBlock(at, wide[0]), portable::widenBlock(at, wide[1]));
        EXPECT_EQ(std::memcmp(wide[0], wide[1], sizeof wide[0]), 0);
        const qsizetype units = 1 + qsizetype(random() % 31);
        char narrow[2][scanBlock / 2];
        const Narrowed one = narrowText(at, units, narrow[0], {',', '"'});
        const Narrowed two = portable::narrowText(at, units, narrow[1], {',', '"'});
        EXPECT_EQ(one.ascii, two.ascii);
        EXPECT_EQ(one.special, two.special);
        for (uchar& byte : bytes)
            byte = &byte < at || (&byte - at) % 2 != 0 ? 0 : uchar('a' + random() % 26);
        bytes[at - bytes + 2 * (random() % size_t(units))] = likely[random() % std::size(likely)];
        const Narrowed plain = narrowText(at, units, narrow[0], {',', '"'});
        EXPECT_EQ(plain.special, portable::narrowText(at, units, narrow[1], {',', '"'}).special);
        EXPECT_TRUE(!plain.ascii || std::equal(narrow[0], narrow[0] + units, narrow[1]));
    }
}

TEST(TextBlocks, FindTheSameMarksInWideBlocks) {
    std::mt19937 random(5);
    constexpr qsizetype most = 5;
    for (int round = 0; round < 2000; ++round) {
        uchar bytes[most * scanBlock + 1];
        for (uchar& byte : bytes)
            byte = static_cast<uchar>(random() % 8 == 0 ? 0 : random());
        const uchar* const at = bytes + random() % 2;
        const qsizetype blocks = 1 + qsizetype(random() % most);
        const auto delimiter = static_cast<uchar>(random());
        quint64 marks[2][most] = {};
        findMarks(at, blocks, delimiter, '"', marks[0]);
        for (qsizetype i = 0; i < blocks; ++i)
            marks[1][i] = portable::findSpecials(at + i * scanBlock, delimiter, '"');
        EXPECT_TRUE(std::equal(marks[0], marks[0] + most, marks[1]));
    }
}

TEST(TypedHeader, ReadsNamesTypesAndRanksFromTheRight) {
    PinOutMetaData shape;
    EXPECT_TRUE(
        parseTypedHeader({"day:K:01", "a:b:K:U:A2", ":F", "K:K", "x:01:U"}, &shape).isNull());
    EXPECT_EQ(shape.names, (QVector<QString>{"day", "a:b:K", "", "K", "x:01"}));
    EXPECT_EQ(shape.sort, (QVector<SortInfos>{{0, SortNumberRising}, {1, SortTextRising}}));
    EXPECT_EQ(shape.types[2].type, MetaTypeFloat);
    EXPECT_EQ(typedHeader(shape),
              (QVector<QString>{"day:K:01", "a:b:K:U:A2", ":F", "K:K", "x:01:U"}));
    for (const char* cell : {"", "a", "a:", "a:X", "a:k", "a:K:", "a:K:0", "a:K:00", "a:K:B1", "K",
                             "a:K:0-1", "a:K:0+1", "a:K:0 1", "a:K:099999999999", ":01"})
        EXPECT_FALSE(parseTypedHeader({cell}, &shape).isNull()) << cell;
    EXPECT_NE(parseTypedHeader({"a:K:01", "b:K:01"}, &shape).indexOf("1 to 2"), -1);
    EXPECT_FALSE(parseTypedHeader({"a:K:02"}, &shape).isNull());
}

TEST(TypedHeader, AppliesListsOfTypesAndOrders) {
    PinOutMetaData shape = shapeOf({{"id", 'U'}, {"a,b", 'U'}, {"x:y", 'U'}, {"id", 'U'}});
    EXPECT_TRUE(applyTypes("id:K,\"a,b\":F,\"x:y:F\",id:F", &shape).isNull());
    EXPECT_EQ(shape.types[0].type, MetaTypeKey);
    EXPECT_EQ(shape.types[1].type, MetaTypeFloat);
    EXPECT_EQ(shape.types[2].type, MetaTypeFloat);
    EXPECT_EQ(shape.types[3].type, MetaTypeFloat);
    EXPECT_TRUE(applySorted("x:y:9,id:A", &shape).isNull());
    EXPECT_EQ(shape.sort, (QVector<SortInfos>{{2, SortNumberFalling}, {0, SortTextRising}}));
    const auto typeProblem = [&](const char* list) {
        return applyTypes(list, &shape).toStdString();
    };
    EXPECT_EQ(typeProblem("ID:K"), "types 'ID:K': there is no column 'ID'; did you mean 'id'?");
    EXPECT_EQ(typeProblem("id:X"),
              "types 'id:X': 'X' is no type; K (key), F (float) or U (text) is expected");
    EXPECT_EQ(typeProblem("x:y:F,x:y:K"), "types 'x:y:F,x:y:K': column 'x:y' is named twice");
    EXPECT_EQ(typeProblem("id"), "types 'id': 'id' has no colon behind the column's name");
    EXPECT_EQ(typeProblem("\"id:K"), "types '\"id:K': a quote isn't closed");
    EXPECT_FALSE(applySorted("id:B", &shape).isNull());
    EXPECT_FALSE(applySorted("x:y:A", &shape).isNull());
    EXPECT_FALSE(applyTypes("id:K,", &shape).isNull());
}

/// Parsing CSV: what is read, and what is said about broken files.
#include "csv_text.h"

#include "engine/csv/field_value.h"

#include <gtest/gtest.h>

#include <random>

using namespace velmorra;

namespace {

std::string rowsOf(const std::string& bytes, const CsvWays& options = {}) {
    const CsvRead parsed = readCsv(bytes, options);
    return parsed.problem.empty() ? parsed.rows : parsed.problem;
}

std::string problemOf(const std::string& bytes, const CsvWays& options = {}) {
    const CsvRead parsed = readCsv(bytes, options);
    return parsed.problem.empty() ? "rows: " + parsed.rows : parsed.problem;
}

const std::vector<CsvColumn> keyFloatText = {{QStringLiteral("id"), MetaTypeKey, true, 0xFFFFFFFDu},
                                             {QStringLiteral("x"), MetaTypeFloat, true, 0},
                                             {QStringLiteral("name"), MetaTypeText, true, 0}};

} // namespace

TEST(CsvParser, ReadsFieldsQuotesAndLineEnds) {
    EXPECT_EQ(rowsOf("a,b\n1,2\n3,4\n"), "1|2\n3|4\n");
    EXPECT_EQ(rowsOf("a,b\r\n1,2\r\n3,4"), "1|2\n3|4\n");
    EXPECT_EQ(rowsOf("a,b\n\"x,y\",\"say \"\"hi\"\"\"\n"), "x,y|say \"hi\"\n");
    EXPECT_EQ(rowsOf("a,b\r\n\"x\r\ny\",\"z\"\r\n"), "x\r\ny|z\n");
    EXPECT_EQ(rowsOf("a,b\n\"x\ny\",\"z\""), "x\ny|z\n");
    EXPECT_EQ(rowsOf("a\n\"\"\"\"\n\"\"\"x\"\"\"\n"), "\"\n\"x\"\n");
    EXPECT_EQ(rowsOf("a,b\n1,\n,2"), "1|~\n~|2\n");
}

TEST(CsvParser, TellsNullFromEmptyAndKnowsEmptyLines) {
    EXPECT_EQ(rowsOf("a,b\n,\"\"\n"), "~|\"\"\n");
    EXPECT_EQ(rowsOf("a\n\nx\n\"\"\n\r\n"), "~\nx\n\"\"\n~\n");
    EXPECT_EQ(rowsOf("\n\r\na,b\n\n1,2\r\n\r\n\n3,4\n\n"), "1|2\n3|4\n");
    EXPECT_EQ(rowsOf(""), "");
    EXPECT_EQ(rowsOf("\xEF\xBB\xBF"), "");
    EXPECT_EQ(rowsOf("a,b"), "");
    EXPECT_EQ(rowsOf("\xEF\xBB\xBF\"a\",b\n1,2"), "1|2\n");
}

TEST(CsvParser, GivesTheFirstRowAsDataWhereThereIsNoHeader) {
    CsvWays options;
    options.header = false;
    options.columns = keyFloatText;
    EXPECT_EQ(rowsOf("\n7,1.5,\"\"\n8,,x\n", options), "7|1.5|\"\"\n8|~|x\n");
    EXPECT_EQ(problemOf("7,a,b\n", options),
              "'t.csv' line 1, column 2 'x': 'a' is not a Float (a decimal number)");
    options.columns = {{QStringLiteral("col1"), MetaTypeKey, true, 100}};
    options.rowsAtATime = 2;
    const CsvRead parsed = readCsv("\n\n\n5\n\n", options);
    EXPECT_EQ(parsed.rows, "~\n~\n~\n5\n~\n");
    EXPECT_EQ(parsed.batchLines, (std::vector<qint64>{1, 3, 5}));
    EXPECT_EQ(rowsOf("\n\n", options), "~\n~\n");
}

TEST(CsvParser, ReadsTheDeclaredTypes) {
    CsvWays options;
    options.columns = keyFloatText;
    EXPECT_EQ(rowsOf("h,h,h\n0,-1.5e3,a\n4294967293,+.5,b\n,,\n\"7\",\"1\",c\n0007,inf,d\n"
                     "1,-inf,e\n1,nan,f\n1,-NaN,g\n1,1e-400,h\n",
                     options),
              "0|-1500|a\n4294967293|0.5|b\n~|~|~\n7|1|c\n7|inf|d\n1|-inf|e\n1|nan|f\n1|nan|g\n"
              "1|0|h\n");
    for (const char* key : {"4294967294", "-1", "1.0", " 1", "1 ", "1x", "99999999999", "\"\""})
        EXPECT_NE(problemOf(std::string("h,h,h\n") + key + ",1,a\n", options)
                      .find("line 2, column 1 'id'"),
                  std::string::npos)
            << key;
    for (const char* number : {"1e999", "-1e999", "1,5", "0x10", " 1", "1 ", "+-1", "--1", "1e",
                               "nan(1)", "n", ".", "+", "\"\"", "1.5.2"})
        EXPECT_NE(problemOf(std::string("h,h,h\n1,\"") + number + "\",a\n", options)
                      .find("line 2, column 2 'x'"),
                  std::string::npos)
            << number;
    options.columns[0].largestKey = 0xFFFFFFFFu;
    EXPECT_EQ(rowsOf("h,h,h\n4294967295,,a\n", options), "~|~|a\n");
    EXPECT_EQ(problemOf("h,h,h\n4294967296,,a\n", options),
              "'t.csv' line 2, column 1 'id': '4294967296' is not a Key (a whole number from 0 to "
              "4294967295)");
}

TEST(CsvParser, ReadsNumbersOfFewDigitsAsTheLanguageDoes) {
    std::mt19937_64 random(11);
    for (int round = 0; round < 20000; ++round) {
        // Around the number of digits that a double holds exactly, with the sign at any place.
        std::string text = std::to_string(random());
        text.resize(1 + random() % std::min<size_t>(text.size(), 18));
        text.insert(random() % (text.size() + 1), random() % 8 == 0 ? "" : ".");
        text.insert(0, random() % 3 == 0 ? "-" : "");
        double value = 0;
        char* end = nullptr;
        const double expected = std::strtod(text.c_str(), &end);
        ASSERT_TRUE(readFloat(reinterpret_cast<const uchar*>(text.data()), qsizetype(text.size()),
                              '.', &value))
            << text;
        ASSERT_EQ(std::bit_cast<quint64>(value), std::bit_cast<quint64>(expected)) << text;
    }
}

TEST(CsvParser, MakesTheOneFormOfEveryTextCell) {
    // Around the lengths where the length field grows, with and without characters that take more
    // bytes than units, so that the assumed and the real length differ.
    for (const int size : {1, 15, 16, 17, 63, 125, 126, 127, 16253, 16254, 16255, 40000}) {
        for (const char* end : {"", "x", "\xC3\xA9", "\xE2\x82\xAC", "\xF0\x9F\x98\x80"}) {
            const std::string text = std::string(size_t(size), 'a') + end + "b";
            CsvParser parser(bytesSource("h\n" + text + "\n", 1 << 20), QString(), {});
            parser.readFirstRow();
            PinOutMetaData shape;
            parser.setColumns({{QStringLiteral("h")}}, shape, false);
            RowBatch batch;
            parser.fill(batch);
            const QString expected = QString::fromStdString(text);
            ASSERT_EQ(batch.rows, 1) << batch.problem.toStdString();
            RowBuffer buffer;
            const uchar* const cell = bytesFromQString(buffer, expected);
            const uchar* const got = batch.row(0)[0];
            ASSERT_EQ(cell::textBytes(got), cell::textBytes(cell)) << size << end;
            EXPECT_EQ(std::memcmp(got, cell, size_t(cell::textBytes(cell))), 0) << size << end;
            EXPECT_EQ(reinterpret_cast<quintptr>(cell::text(got).chars) & 1, 0u);
        }
    }
}

TEST(CsvParser, GivesTheSameRowsHoweverTheBytesArrive) {
    std::string file = "\xEF\xBB\xBFname,\"te\"\"xt\",n\r\n";
    std::string expected;
    for (int i = 0; i < 300; ++i) {
        const std::string number = std::to_string(i);
        const std::string fill(size_t(i % 70), 'f');
        file += "\xC3\xA9" + fill + ",\"q\"\"" + number + "\r\n\xF0\x9F\x98\x80," + fill + "\"," +
                (i % 3 == 0 ? "\"" + number + "\"" : number) + (i % 2 == 0 ? "\r\n" : "\n");
        expected += "\xC3\xA9" + fill + "|q\"" + number + "\r\n\xF0\x9F\x98\x80," + fill + "|" +
                    number + "\n";
    }
    for (const qint64 piece : {1, 2, 3, 7, 64, 1000, 1 << 20}) {
        for (const int rows : {1, 7, 1024}) {
            CsvWays options;
            options.piece = piece;
            options.rowsAtATime = rows;
            EXPECT_EQ(rowsOf(file, options), expected) << piece << ' ' << rows;
        }
    }
}

TEST(CsvParser, NamesThePlaceOfWhatIsBroken) {
    EXPECT_EQ(problemOf("a,b\n1,2\n3,\"x\ny\n"),
              "'t.csv' line 3, column 2 'b': the file ends inside the quotes that open here: 'x'");
    EXPECT_EQ(problemOf("a,b\n\"1\n\n\",2\n1\n"),
              "'t.csv' line 5: the row has 1 field where 2 are expected");
    EXPECT_EQ(problemOf("a,b\n1,2,3,4\n"),
              "'t.csv' line 2: the row has 4 fields where 2 are expected");
    EXPECT_EQ(problemOf(std::string("a,b\n1,x\0y\n", 10)),
              "'t.csv' line 2, column 2 'b': a NUL byte; is this a text file?");
    EXPECT_EQ(problemOf("a,b\n1,\"x\n\xE9t\"\n"),
              "'t.csv' line 3, column 2 'b': the byte 0xE9 is not valid UTF-8, behind 'x\\n'");
    EXPECT_EQ(problemOf("a,b\n1,\"x\"y\n"),
              "'t.csv' line 2, column 2 'b': text stands behind the closing quote: 'y'");
    EXPECT_EQ(problemOf("a,b\n1,x\"y\n"),
              "'t.csv' line 2, column 2 'b': a quote stands inside a field without quotes: "
              "'x\"y'");
    EXPECT_EQ(problemOf("a,b\n1,2\r3,4\n"),
              "'t.csv' line 2: a carriage return without a line feed behind it");
    EXPECT_EQ(problemOf("a,b\r"),
              "'t.csv' line 1: a carriage return without a line feed behind it");
    EXPECT_EQ(problemOf("a,\"b"),
              "'t.csv' line 1, column 2: the file ends inside the quotes that open here: 'b'");
    EXPECT_EQ(problemOf("a,b\n1,\"x\"\x01\n"),
              "'t.csv' line 2, column 2 'b': text stands behind the closing quote: '\\x01'");
}

TEST(CsvParser, KeepsTheRowsInFrontOfAProblem) {
    const CsvRead parsed = readCsv("a,b\n1,2\n3,4\n5\n6,7\n", {});
    EXPECT_EQ(parsed.rows, "1|2\n3|4\n");
    EXPECT_FALSE(parsed.problem.empty());
}

TEST(CsvParser, RefusesInvalidUtf8) {
    for (const char* bytes :
         {"\x80", "\xC0\xAF", "\xC3", "\xC3(", "\xE0\x80\x80", "\xED\xA0\x80", "\xF0\x80\x80\x80",
          "\xF4\x90\x80\x80", "\xF5\x80\x80\x80", "\xE2\x82", "\xFF\xFE"})
        EXPECT_NE(problemOf(std::string("h\nabc") + bytes + "\n").find("is not valid UTF-8"),
                  std::string::npos);
    EXPECT_EQ(rowsOf("h\n\xC2\x80\n\xED\x9F\xBF\n\xEE\x80\x80\n\xF4\x8F\xBF\xBF\n\xEF\xBB\xBF\n"),
              "\xC2\x80\n\xED\x9F\xBF\n\xEE\x80\x80\n\xF4\x8F\xBF\xBF\n\xEF\xBB\xBF\n");
}

TEST(CsvParser, BoundsFieldsAndColumns) {
    CsvWays options;
    options.settings.fieldLimit = 5;
    EXPECT_EQ(rowsOf("h\n12345\n\"12345\"\n", options), "12345\n12345\n");
    EXPECT_EQ(problemOf("h\n123456\n", options),
              "'t.csv' line 2, column 1 'h': the field is over the limit of 5 bytes");
    options.piece = 10;
    EXPECT_EQ(problemOf("h\nx\n\"" + std::string(1000, '\n'), options),
              "'t.csv' line 3, column 1 'h': the field is over the limit of 5 bytes; its quotes "
              "open here");
    EXPECT_EQ(problemOf(std::string((size_t(1) << 20) - 1, ',') + "\n"), "rows: ");
    EXPECT_EQ(problemOf(std::string(size_t(1) << 20, ',') + "\n"),
              "'t.csv' line 1: the row has more than 1048576 columns");
    EXPECT_EQ(problemOf("h\n" + std::string(size_t(1) << 20, ',') + "\n"),
              "'t.csv' line 2: the row has more than 1048576 columns");
}

TEST(CsvParser, PassesOverColumnsThatNobodyReads) {
    CsvWays options;
    options.columns = keyFloatText;
    options.columns[0].wanted = false;
    options.columns[2].wanted = false;
    EXPECT_EQ(rowsOf("h,h,h\nnot a key,2,\"a\"\"\n\xFF\"\n,3,\n", options), "~|2|~\n~|3|~\n");
    EXPECT_EQ(problemOf("h,h,h\n1,2,\"a\n", options),
              "'t.csv' line 2, column 3 'name': the file ends inside the quotes that open here: "
              "'a'");
}

TEST(CsvParser, ChecksTheDeclaredOrderAcrossBatches) {
    CsvWays options;
    options.columns = keyFloatText;
    options.sort = {{0, SortNumberRising}, {2, SortTextRising}};
    for (const int rows : {1, 2, 1024}) {
        options.rowsAtATime = rows;
        EXPECT_EQ(rowsOf("h,h,h\n,1,\n1,1,a\n1,0,a\n1,0,b\n2,9,a\n", options),
                  "~|1|~\n1|1|a\n1|0|a\n1|0|b\n2|9|a\n");
        EXPECT_EQ(problemOf("h,h,h\n1,1,\"a\n\"\n1,1,b\n1,1,ab\n", options),
                  "'t.csv' line 5: the row is out of the declared order (rising by text): line 4 "
                  "has 'name' = 'b', line 5 has 'name' = 'ab'");
        EXPECT_EQ(problemOf("h,h,h\n9,1,a\n10,1,\n9,1,z\n", options),
                  "'t.csv' line 4: the row is out of the declared order (rising by number): line 3 "
                  "has 'id' = 10, line 4 has 'id' = 9");
    }
}

TEST(CsvParser, KeepsABatchWithinBoundsAndARowWhole) {
    const std::string wide(300 << 10, 'w');
    std::string file = "a,b\n";
    for (int i = 0; i < 20; ++i)
        file += wide + "," + std::to_string(i) + "\n";
    CsvParser parser(bytesSource(file, 1 << 20), QString(), {});
    parser.readFirstRow();
    parser.setColumns({{QStringLiteral("a")}, {QStringLiteral("b")}}, {}, false);
    RowBatch batch;
    int rows = 0;
    do {
        parser.fill(batch);
        EXPECT_LE(batch.rows, 1);
        rows += batch.rows;
    } while (batch.end == BatchEnd::More);
    EXPECT_EQ(rows, 20);
}

/// Rows that go to the rejects: which bytes go, and which rows are read behind them.
#include "csv_text.h"

#include <gtest/gtest.h>

using namespace velmorra;

namespace {

struct KeptRejects : RejectedRows {
    void begin(const QString& problem) override {
        problems.push_back(problem.toStdString());
        rows.emplace_back();
    }
    bool take(const uchar* bytes, qsizetype size) override {
        rows.back().append(reinterpret_cast<const char*>(bytes), size_t(size));
        return left-- > 0;
    }
    QString failure() const override { return QStringLiteral("full"); }

    std::vector<std::string> problems;
    std::vector<std::string> rows;
    int left = 1 << 30;
};

/// The rows that were read, and behind a line of dashes those that were rejected.
std::string split(const std::string& bytes, CsvWays ways, KeptRejects& rejects) {
    ways.rejects = &rejects;
    ways.rowsAtATime = 3;
    if (ways.columns.empty())
        ways.columns = columnsOf("KU");
    const CsvRead read = readCsv(bytes, ways);
    if (!read.isRead)
        return read.problem;
    std::string text = read.rows + "--\n";
    for (const std::string& row : rejects.rows)
        text += row + ';';
    return text + read.problem;
}

std::string split(const std::string& bytes, CsvWays ways = {}) {
    std::string result;
    for (const qint64 piece : {1, 5, 1 << 20}) {
        ways.piece = piece;
        KeptRejects rejects;
        const std::string text = split(bytes, ways, rejects);
        EXPECT_TRUE(result.empty() || result == text) << piece;
        result = text;
    }
    return result;
}

} // namespace

TEST(CsvRejects, TakeWholeRowsThatAreRaggedOrDoNotFit) {
    EXPECT_EQ(split("a,b\n1,x\n2\n3,y,z\r\n4,w\n"), "1|x\n4|w\n--\n2\n;3,y,z\r\n;");
    EXPECT_EQ(split("a,b\nx,\"two\nlines\"\n2,y\n-1,z"), "2|y\n--\nx,\"two\nlines\"\n;-1,z;");
    EXPECT_EQ(split("a,b\n1,x\n2,\"\xFF\"\n3,\xC3\n4,y\n"), "1|x\n4|y\n--\n2,\"\xFF\"\n;3,\xC3\n;");
    CsvWays options;
    options.sort = {{0, SortNumberRising}};
    EXPECT_EQ(split("a,b\n1,x\n5,x\n2,y\n4,y\n5,z\n\n7\n6,w\n", options),
              "1|x\n5|x\n5|z\n6|w\n--\n2,y\n;4,y\n;7\n;");
    options.sort.clear();
    options.header = false;
    EXPECT_EQ(split("\nx,\"1\n\"\n2,y\n", options), "2|y\n--\nx,\"1\n\"\n;");
    options.columns = columnsOf("K");
    EXPECT_EQ(split("\n7\nx\n\n8", options), "~\n7\n~\n8\n--\nx\n;");
}

TEST(CsvRejects, EndABrokenRowWithTheLineOfTheBrokenPlace) {
    EXPECT_EQ(split("a,b\n1,x\"y\n2,z\n"), "2|z\n--\n1,x\"y\n;");
    EXPECT_EQ(split("a,b\n1,\"x\"y\n2,z\n"), "2|z\n--\n1,\"x\"y\n;");
    EXPECT_EQ(split("a,b\n1,\"x\n2,\"y\n3,z\n"), "3|z\n--\n1,\"x\n2,\"y\n;");
    EXPECT_EQ(split("a,b\n1,x\r2,y\n3,z\n"), "3|z\n--\n1,x\r2,y\n;");
    EXPECT_EQ(split(std::string("a,b\n1,x\0y\n2,z\n", 14)), std::string("2|z\n--\n1,x\0y\n;", 14));
    // Quotes that never close: what stands on the lines behind them is read.
    EXPECT_EQ(split("a,b\n1,\"x\n2,y\n3,z\n"), "2|y\n3|z\n--\n1,\"x\n;");
    EXPECT_EQ(split("a,b\n1,\"x"), "--\n1,\"x;");
    EXPECT_EQ(split("a,b\n1,y\r"), "--\n1,y\r;");
}

TEST(CsvRejects, BoundWhatABrokenRowTakes) {
    std::string rows;
    std::string expected;
    for (int i = 0; i < 20000; ++i) {
        rows += std::to_string(i) + ",x\n";
        expected += std::to_string(i) + "|x\n";
    }
    // The next quote is far away: the one that opens is to blame.
    KeptRejects rejects;
    EXPECT_EQ(split("a,b\n1,\"x\n" + rows + "2,\"y\"\n", {}, rejects),
              expected + "2|y\n--\n1,\"x\n;");
    CsvWays options;
    options.settings.fieldLimit = 100;
    EXPECT_EQ(split("a,b\n1,\"x\n" + rows, options), expected + "--\n1,\"x\n;");
    const std::string line = "1," + std::string(300 << 10, 'x') + "\n";
    EXPECT_EQ(split("a,b\n" + line + "2,y\n" + line, options, rejects).substr(0, 7), "2|y\n--\n");
    EXPECT_EQ(rejects.rows.back(), line);
    // Nothing is right, and no memory is piled up for it.
    KeptRejects all;
    options.columns = columnsOf("KF");
    EXPECT_EQ(split("a,b\n" + rows, options, all).substr(0, 3), "--\n");
    EXPECT_EQ(all.rows.size(), 20000u);
}

TEST(CsvRejects, LeaveTheHeaderAndAFullDiskAsFailures) {
    KeptRejects rejects;
    EXPECT_EQ(split("a,\"b\n1,2\n", {}, rejects),
              "'t.csv' line 1, column 2: the file ends inside the quotes that open here: 'b'");
    rejects.left = 1;
    EXPECT_EQ(split("a,b\nx,1\ny,2\nz,3\n", {}, rejects), "--\nx,1\n;y,2\n;full");
    EXPECT_EQ(
        rejects.problems.front(),
        "'t.csv' line 2, column 1 'c': 'x' is not a Key (a whole number from 0 to 4294967293)");
}

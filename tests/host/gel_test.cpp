// Stored tables: what is written comes back, and what was damaged is never taken for something
// else.
#include "gel_tables.h"

#include "host/citem_hd_reader.h"
#include "host/global_parameters.h"
#include "host/main_ui.h"

#include <QtCore/QTemporaryDir>

#include <gtest/gtest.h>

namespace {

class Gel : public testing::Test {
protected:
    QString path(const char* name) const { return folder_.filePath(QLatin1String(name)); }

private:
    QTemporaryDir folder_;
};

TEST_F(Gel, GivesBackWhatWasWritten) {
    std::mt19937_64 random(11);
    const QString file = path("a.gel");
    for (int round = 0; round < 120; ++round) {
        const size_t columns = random() % 7;
        const size_t rows = round % 10 == 0 ? 20'000 : random() % 300;
        const PackedRows table = randomGelTable(random, columns, rows);
        const QByteArray bytes = gelBytes(table);
        ASSERT_EQ(gelBytes(table, 3), bytes) << "round " << round;
        writeFile(file, bytes);
        const ReadResult result = readGel(file, round % 2 == 0);
        ASSERT_TRUE(result.problem.isNull()) << result.problem.toStdString();
        ASSERT_TRUE(result.table == table) << "round " << round;
    }
}

TEST_F(Gel, TakesRowsLargerThanABlockAndManyColumns) {
    std::mt19937_64 random(12);
    PackedRows wide = randomGelTable(random, 3000, 40);
    PackedRows large;
    large.columns.names = {QStringLiteral("t")};
    large.columns.types = {MetaInfo(MetaTypeText, -1)};
    for (const qsizetype units : {3, 9'000'000, 0, 5'000'000, 1}) {
        std::vector<uchar> cell(static_cast<size_t>(cell::textCellBytes(units)));
        cell::writeText(cell.data(), QString(units, QChar(ushort(units % 500 + 'x'))).constData(),
                        static_cast<int>(units));
        large.rows.push_back(std::move(cell));
    }
    for (const PackedRows& table : {wide, large}) {
        writeFile(path("a.gel"), gelBytes(table));
        EXPECT_TRUE(readGel(path("a.gel")).table == table);
    }
}

} // namespace

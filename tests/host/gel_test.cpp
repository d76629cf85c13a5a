// Stored tables: what is written comes back, and what was damaged is never taken for something
// else.
#include "gel_tables.h"

#include "host/citem_hd_reader.h"
#include "host/global_parameters.h"
#include "host/main_ui.h"

#include <QtCore/QRegularExpression>
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
    for (int round = 0; round < 60; ++round) {
        const size_t columns = random() % 7;
        const size_t rows = round % 10 == 0 ? 6000 : random() % 300;
        const PackedRows table = randomGelTable(random, columns, rows);
        const quint32 blockRows = round % 3 == 0 ? gel::mostBlockRows : 1 + random() % 100;
        const QByteArray bytes = gelBytes(table, 0, blockRows);
        ASSERT_EQ(gelBytes(table, 3, blockRows), bytes) << "round " << round;
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

/// A few hundred bytes with everything in them: three blocks of five rows.
struct SmallFile {
    static constexpr int rowsOfABlock = 5;

    SmallFile() {
        std::mt19937_64 random(13);
        table = randomGelTable(random, 0, 0);
        table.columns.names = {QStringLiteral("key"), QStringLiteral("x"), QStringLiteral("é")};
        table.columns.types = {MetaInfo(MetaTypeKey, -1), MetaInfo(MetaTypeFloat, -1),
                               MetaInfo(MetaTypeText, -1)};
        table.columns.sort = {{0, SortNumberRising}};
        for (size_t row = 0; row < 3 * rowsOfABlock; ++row) {
            std::vector<uchar> packed;
            for (const MetaInfo& type : table.columns.types) {
                const auto cell = randomGelCell(random, type.type, Pattern::Counter, row);
                packed.insert(packed.end(), cell.begin(), cell.end());
            }
            table.rows.push_back(std::move(packed));
        }
        bytes = gelBytes(table, 0, rowsOfABlock);
    }

    /// The rows without one of the blocks.
    PackedRows without(int block) const {
        PackedRows rest = table;
        const auto first = rest.rows.begin() + block * rowsOfABlock;
        rest.rows.erase(first, first + rowsOfABlock);
        return rest;
    }

    PackedRows table;
    QByteArray bytes;
};

TEST_F(Gel, NoticesEveryChangedByte) {
    const SmallFile small;
    const QString file = path("a.gel");
    const QRegularExpression block(QStringLiteral("block (\\d) of 3 \\(rows \\d+ to \\d+\\)"));
    int skipped = 0;
    for (qsizetype change = 0; change < 2 * small.bytes.size(); ++change) {
        const qsizetype at = change / 2;
        QByteArray bytes = small.bytes;
        bytes[at] = static_cast<char>(bytes[at] ^ (change % 2 == 0 ? 0xFF : 1 << at % 8));
        writeFile(file, bytes);
        const ReadResult strict = readGel(file, at % 2 == 0);
        ASSERT_FALSE(strict.problem.isNull()) << "byte " << at;
        const ReadResult lenient = readGel(file, at % 2 == 0, true);
        const auto place = block.match(strict.problem);
        if (!place.hasMatch()) {
            ASSERT_TRUE(strict.table.rows.empty() && lenient.table.rows.empty()) << "byte " << at;
            ASSERT_EQ(lenient.problem, strict.problem);
            continue;
        }
        ++skipped;
        const int number = place.captured(1).toInt() - 1;
        ASSERT_EQ(strict.table.rows.size(), size_t(number * SmallFile::rowsOfABlock));
        ASSERT_TRUE(lenient.problem.isNull() && lenient.table == small.without(number));
        ASSERT_EQ(lenient.warnings.size(), 1);
        ASSERT_TRUE(lenient.warnings[0].startsWith(strict.problem));
    }
    EXPECT_GT(skipped, 2 * 3 * 20);
}

TEST_F(Gel, RefusesWhatIsNoWholeFileBeforeTheFirstRow) {
    const SmallFile small;
    const QString file = path("a.gel");
    for (qsizetype size = 0; size < small.bytes.size(); ++size) {
        writeFile(file, small.bytes.left(size));
        const ReadResult result = readGel(file, false, true);
        ASSERT_TRUE(!result.problem.isNull() && result.table.rows.empty()) << size << " bytes";
    }
    QByteArray newer = small.bytes;
    newer[8] = 2;
    const std::pair<QByteArray, const char*> cases[] = {
        {{}, "'FILE' is not a gel file: it is empty"},
        {"id,name\n1,Ann\n", "'FILE' is not a gel file"},
        {"a table that is longer than the head of a file", "'FILE' is not a gel file"},
        {newer, "'FILE' is a gel file of version 2; this program reads version 1"},
        {small.bytes.left(40), "'FILE' is damaged: it is cut off, or its header is wrong"},
        {small.bytes.chopped(1), "'FILE' is damaged: it is cut off, or its end is wrong"},
        {small.bytes + '\n', "'FILE' is damaged: it is cut off, or its end is wrong"},
        {small.bytes + small.bytes, "'FILE' is damaged: it is cut off, or its end is wrong"},
    };
    for (const auto& [bytes, message] : cases) {
        writeFile(file, bytes);
        EXPECT_EQ(readGel(file).problem,
                  QString::fromUtf8(message).replace(QLatin1String("FILE"), file));
    }
}

TEST_F(Gel, SaysOnceHowManyMoreBlocksArePassedOver) {
    std::mt19937_64 random(14);
    const PackedRows table = randomGelTable(random, 3, 200);
    QByteArray bytes = gelBytes(table, 0, 4);
    const qsizetype index = bytes.size() - qsizetype(gel::footerBytes + 50 * gel::indexEntryBytes);
    for (qsizetype at = 200; at < index; ++at) // behind the header
        bytes[at] = 0;
    writeFile(path("a.gel"), bytes);
    const ReadResult result = readGel(path("a.gel"), true, true);
    EXPECT_TRUE(result.problem.isNull() && result.table.rows.size() <= 8);
    ASSERT_EQ(result.warnings.size(), 21);
    EXPECT_TRUE(result.warnings[20].contains(QLatin1String("more blocks are passed over")));
}

/// Messages, and the parameters of a run.
struct ReaderRun : MessageSink {
    void take(const Message& message) override {
        log += QStringLiteral("%1 %2").arg(message.level).arg(message.text);
    }
    QStringList log;
    WindowlessMainUI ui{*this};
    GlobalParameters parameters;
};

TEST_F(Gel, ReaderOfActionsTellsOpeningFromContent) {
    const SmallFile small;
    const QString file = path("a.gel");
    QByteArray damaged = small.bytes;
    const qsizetype index = damaged.size() - qsizetype(gel::footerBytes + 3 * gel::indexEntryBytes);
    const qsizetype thirdEntry = index + qsizetype(2 * gel::indexEntryBytes);
    const auto* const stored =
        reinterpret_cast<const uchar*>(damaged.constData()) + thirdEntry + 12;
    const qsizetype endOfSecond = index - gel::load<quint32>(stored) - 1;
    damaged[endOfSecond] = static_cast<char>(damaged[endOfSecond] ^ 1);
    struct Case {
        const char* sentence;
        QByteArray bytes;
        bool skips;
        int rows;
        qint32 status;
        const char* log;
    };
    const Case cases[] = {
        {"a sound file", small.bytes, false, 15, 0, ""},
        {"a damaged block", damaged, false, 5, 3, "1 'FILE' is damaged: block 2 of 3"},
        {"a damaged block passed over", damaged, true, 10, 1, "2 'FILE' is damaged: block 2 of 3"},
        {"not a gel file", "x", true, 0, 3, "1 'FILE' is not a gel file"},
    };
    for (const int buffers : {1, 2}) {
        for (const Case& one : cases) {
            SCOPED_TRACE(one.sentence);
            writeFile(file, one.bytes);
            ReaderRun run;
            PinOutMetaData columns;
            CItemHDReader reader(&columns, true);
            ASSERT_EQ(reader.init(&run.parameters, file, -1, buffers, false, one.skips), 0);
            int rows = 0;
            while (const OneRow* const row = reader.readFromHD()) {
                ASSERT_EQ(row, reader.currentRow);
                ASSERT_TRUE(row->shape() == small.table.columns && columns == row->shape());
                ++rows;
            }
            EXPECT_EQ(rows, one.rows);
            EXPECT_EQ(reader.currentRow, nullptr);
            EXPECT_EQ(reader.status, one.status);
            EXPECT_EQ(run.parameters.runStatus == RunStatus::Failed, one.status == 3);
            EXPECT_EQ(run.log.size(), one.status == 0 ? 0 : 1);
            const QString log = QString::fromUtf8(one.log).replace(QLatin1String("FILE"), file);
            EXPECT_TRUE(run.log.value(0, log).startsWith(log)) << run.log.value(0).toStdString();
        }
    }
    ReaderRun run;
    CItemHDReader reader(nullptr, true);
    for (const char* const name : {"", "missing.gel", "."}) {
        EXPECT_NE(
            reader.init(&run.parameters, *name == 0 ? QString() : path(name), -1, 2, false, true),
            0);
        EXPECT_EQ(reader.readFromHD(), nullptr);
    }
    EXPECT_TRUE(run.log.isEmpty());
    writeFile(file, small.bytes);
    ASSERT_EQ(reader.init(&run.parameters, file, -1, 2, false, false), 0);
    run.parameters.runStatus = RunStatus::Cancelled;
    EXPECT_EQ(reader.readFromHD(), nullptr);
    EXPECT_EQ(reader.status, 0);
}

} // namespace

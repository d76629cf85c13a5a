/// Sorting: keys as bytes against the comparison of cells, sorted tables against a naive sort under
/// limits of memory from none to nothing, and what ends a sort early.
#include "engine/boxes/sort.h"
#include "engine/packed_table.h"
#include "engine/run.h"
#include "tests/engine/scripted_box.h"
#include "tests/rows/random_cells.h"

#include <gtest/gtest.h>

#include <QtCore/QDir>
#include <QtCore/QElapsedTimer>
#include <QtCore/QTemporaryDir>

#include <algorithm>
#include <csignal>
#include <limits>
#include <random>
#include <sys/resource.h>
#include <thread>

using namespace velmorra;
using namespace velmorra::test;

namespace {

constexpr qint64 noLimit = std::numeric_limits<qint64>::max();

Bytes floatBits(quint64 bits) {
    return floatCell(std::bit_cast<double>(bits));
}

Bytes cellOf(const QString& text) {
    return text.isNull() ? nullTextCell : textCell(text.toStdU16String());
}

/// Cells that are near one another in the order, by meta type.
std::vector<Bytes> delicateCells(qint32 metaType) {
    std::vector<Bytes> cells;
    if (metaType == MetaTypeKey) {
        for (const quint32 key :
             {0u, 1u, 9u, 10u, 99u, 100u, 255u, 256u, 65536u, 123456789u, 1234567890u, 0x7FFFFFFFu,
              0x80000000u, 4294967293u, 0xFFFFFFFEu, 0xFFFFFFFFu})
            cells.push_back(keyCell(key));
        return cells;
    }
    if (metaType == MetaTypeFloat) {
        for (const double value :
             {0.0, -0.0, 1.0, -1.0, 1.5, -1.5, 5e-324, -5e-324, 1e308, -1e308,
              std::numeric_limits<double>::infinity(), -std::numeric_limits<double>::infinity()})
            cells.push_back(floatCell(value));
        for (const quint64 bits : {cell::nullFloatBits, cell::invalidFloatBits,
                                   quint64(0x7FF8000000000000), quint64(0x7FF0000000000001)})
            cells.push_back(floatBits(bits));
        return cells;
    }
    const QString longText = QStringLiteral("abcdefghijklmnopqrstuvwxyz0123456789").repeated(2);
    QStringList texts =
        QStringLiteral(";0;-0;-1;1;1.5;10;9;+9; 9;nan;null;nullx;inf;-inf;abc;abcdefg;abcdefgh;"
                       "abcdefghi;abcdefghj;abcdefgi;|;};~;A")
            .split(QLatin1Char(';'));
    for (const QString& text : texts << longText + u'y' << longText + u'z')
        cells.push_back(cellOf(text));
    for (const unsigned unit : {0x00u, 0x01u, 0x7Du, 0x7Eu, 0x7Fu, 0x80u, 0xFFu, 0x100u, 0x407Du,
                                0x407Eu, 0x407Fu, 0x4100u, 0xD800u, 0xFFFFu}) {
        cells.push_back(cellOf(QString(QChar(unit))));
        cells.push_back(cellOf(QStringLiteral("abcdefg") + QChar(unit)));
        cells.push_back(cellOf(QString(QChar(unit)) + QChar(1)));
    }
    cells.push_back(cellOf(QString()));
    return cells;
}

int sign(int order) {
    return (order > 0) - (order < 0);
}

int compareByPieces(const SortKey& key, const uchar* a, const uchar* b) {
    for (int number = 0;; ++number) {
        quint64 pieceA = 0;
        quint64 pieceB = 0;
        const bool more = key.piece(a, number, &pieceA);
        EXPECT_TRUE(key.piece(b, number, &pieceB) == more || pieceA != pieceB);
        if (pieceA != pieceB)
            return pieceA < pieceB ? -1 : 1;
        if (!more)
            return 0;
    }
}

PinOutMetaData shapeOf(const std::string& types, const QVector<SortInfos>& order) {
    PinOutMetaData shape;
    for (const char type : types) {
        shape.names.push_back(QString::number(shape.names.size()));
        shape.types.push_back(MetaInfo(type, -1));
    }
    shape.sort = order;
    return shape;
}

/// Rows of cells from few values, the last column their number.
PackedTable randomTable(const std::string& types, const QVector<SortInfos>& order, quint32 rows,
                        unsigned seed) {
    PackedTable table(shapeOf(types + 'K', order));
    std::mt19937 random(seed);
    OneRow row;
    row.setShape(table.shape);
    for (quint32 number = 0; number < rows; ++number) {
        std::vector<Bytes> cells;
        for (const char type : types) {
            const std::vector<Bytes> choice = delicateCells(type);
            cells.push_back(choice[random() % choice.size()]);
        }
        cells.push_back(keyCell(number));
        if (number % 100 == 99 && types.back() == 'U')
            cells[cells.size() - 2] = cellOf(QString(int(random() % 3000), QChar('x')));
        for (size_t i = 0; i < cells.size(); ++i)
            row.setCol(int(i), cells[i].data());
        table.append(row);
    }
    return table;
}

std::vector<quint32> numbersOf(const PackedTable& table) {
    std::vector<quint32> numbers;
    OneRow row;
    row.setShape(table.shape);
    for (size_t place = 0; place < table.rows(); ++place) {
        table.read(place, row);
        numbers.push_back(cell::loadKey(row.cells[row.columns - 1]));
    }
    return numbers;
}

/// The order of the rows by a stable sort that compares cell by cell.
std::vector<quint32> naivelySorted(const PackedTable& table) {
    std::vector<quint32> numbers = numbersOf(table);
    OneRow a;
    OneRow b;
    a.setShape(table.shape);
    b.setShape(table.shape);
    std::stable_sort(numbers.begin(), numbers.end(), [&](quint32 placeA, quint32 placeB) {
        table.read(placeA, a);
        table.read(placeB, b);
        for (const SortInfos& sort : table.shape.sort) {
            const CellOrder compare = cellOrder(sort.SortType, table.shape.types[sort.column].type);
            if (const int order = compare(a.cells[sort.column], b.cells[sort.column]))
                return order < 0;
        }
        return false;
    });
    return numbers;
}

/// Adds all rows; false where the sorter stops.
bool addAll(RowSorter& sorter, const PackedTable& table) {
    OneRow row;
    row.setShape(table.shape);
    bool running = true;
    for (size_t place = 0; place < table.rows() && running; ++place) {
        table.read(place, row);
        running = sorter.add(row);
    }
    return running;
}

/// Sorts by the box's own means; also checks that no row has changed.
std::vector<quint32> sorted(const PackedTable& table, qint64 memory) {
    const RunStatus status;
    RowSorter sorter(table.shape, memory, QString(), status);
    EXPECT_TRUE(addAll(sorter, table) && sorter.finish()) << sorter.problem().toStdString();
    OneRow row;
    OneRow original;
    row.setShape(table.shape);
    original.setShape(table.shape);
    std::vector<quint32> numbers;
    while (sorter.next(row)) {
        numbers.push_back(cell::loadKey(row.cells[row.columns - 1]));
        table.read(numbers.back(), original);
        for (int i = 0; i < row.columns; ++i)
            EXPECT_EQ(bytesOf(row.cells[i], row.getMetaType(i).type),
                      bytesOf(original.cells[i], row.getMetaType(i).type));
    }
    EXPECT_TRUE(sorter.problem().isNull()) << sorter.problem().toStdString();
    return numbers;
}

/// A run of keys through a Sort box into a sink.
class SortRun : public testing::Test {
protected:
    /// The texts "0", "1", ... falling, without end, or as many.
    static Script texts(qint64 count = -1) {
        Script script{.pinsIn = 0, .pinsOut = 1, .step = nullptr};
        script.step = [count, bytes = Bytes()](ScriptedBox& box) mutable {
            OneRow& row = *box.getOutputRowForOutputPin(0);
            if (row.isFresh())
                row.setShape(shapeOf("U", {}));
            if (count >= 0 && box.steps >= count)
                return true;
            bytes = cellOf(QStringLiteral("row ") + QString::number(1000000 - box.steps++));
            row.setCol(0, bytes.data());
            box.setRowReadyForOutput(0);
            return false;
        };
        return script;
    }

    Sort& build(const Script& source, std::function<void(qint64 rows)> onRow = {}) {
        const int first = addScript(graph, source);
        auto box = std::make_unique<Sort>(XMLNode::emptyNode(), &graph.parameters);
        Sort& sort = *box;
        sort.by = QStringLiteral("0:A");
        sort.temporaryFolder = folder.path();
        const int middle = graph.addBox(std::move(box));
        Script sink{.pinsIn = 1, .pinsOut = 0, .step = nullptr};
        sink.step = [onRow, this](ScriptedBox& reader) {
            if (reader.getNextRowFromInPin(0) == nullptr)
                return true;
            ++rows;
            if (onRow)
                onRow(rows);
            return false;
        };
        const int last = addScript(graph, sink);
        graph.addLink({first, 0, middle, 0});
        graph.addLink({middle, 0, last, 0});
        return sort;
    }

    RunOutcome run() {
        velmorra::Run running(graph, messages, options);
        return running.execute();
    }

    void expectNothingLeft() const {
        EXPECT_TRUE(QDir(folder.path())
                        .entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot)
                        .isEmpty());
    }

    Graph graph;
    KeptMessages messages;
    RunOptions options;
    QTemporaryDir folder;
    qint64 rows = 0;
};

} // namespace

TEST(SortKey, OrdersAsTheCellsDo) {
    for (const qint32 metaType : {MetaTypeKey, MetaTypeFloat, MetaTypeText}) {
        const std::vector<Bytes> cells = delicateCells(metaType);
        for (const char sortType : {'0', '9', 'A', 'Z'}) {
            const CellOrder compare = cellOrder(sortType, metaType);
            if (compare == nullptr)
                continue;
            const PinOutMetaData shape =
                shapeOf(std::string(1, char(metaType)), {{0, qint32(sortType)}});
            const SortKey key(shape, shape.sort);
            for (const Bytes& a : cells) {
                for (const Bytes& b : cells) {
                    const int expected = sign(compare(a.data(), b.data()));
                    EXPECT_EQ(compareByPieces(key, a.data(), b.data()), expected);
                    EXPECT_EQ(sign(key.compare(a.data(), b.data())), expected);
                }
            }
        }
    }
}

TEST(RowSorter, SortsAsANaiveSortWithinAnyMemory) {
    struct {
        const char* types;
        QVector<SortInfos> order;
        quint32 rows;
    } const tables[] = {
        {"K", {{0, '0'}}, 3000},
        {"KU", {{1, 'A'}}, 3000},
        {"FU", {{0, '9'}, {1, 'Z'}}, 3000},
        {"UKF", {{1, 'Z'}, {0, '0'}, {2, '0'}}, 3000},
        {"UU", {{1, 'A'}, {0, '9'}}, 1},
        {"UU", {{1, 'A'}, {0, 'A'}}, 20000},
    };
    for (const auto& each : tables) {
        const PackedTable table = randomTable(each.types, each.order, each.rows, 7);
        const std::vector<quint32> expected = naivelySorted(table);
        for (const qint64 memory : {qint64(1), qint64(5000), qint64(200000), noLimit})
            EXPECT_EQ(sorted(table, memory), expected) << each.types << " in " << memory;
    }
}

TEST(RowSorter, TellsWhatTheFileSystemSays) {
    const PackedTable table = randomTable("U", {{0, 'A'}}, 3000, 1);
    const RunStatus status;
    const auto problemIn = [&](const QString& folder) {
        RowSorter sorter(table.shape, 1000, folder, status);
        EXPECT_FALSE(addAll(sorter, table));
        return sorter.problem().toStdString();
    };
    EXPECT_EQ(problemIn("/nowhere/at/all"),
              "can't make a temporary file in '/nowhere/at/all': No such file or directory");
    QTemporaryDir folder;
    struct rlimit before = {};
    ::getrlimit(RLIMIT_FSIZE, &before);
    const auto ignored = std::signal(SIGXFSZ, SIG_IGN);
    const rlimit small = {10000, before.rlim_max};
    ::setrlimit(RLIMIT_FSIZE, &small);
    const std::string problem = problemIn(folder.path());
    ::setrlimit(RLIMIT_FSIZE, &before);
    std::signal(SIGXFSZ, ignored);
    EXPECT_EQ(problem, "can't write sorted rows to a temporary file in '" +
                           folder.path().toStdString() + "': File too large");
    EXPECT_TRUE(QDir(folder.path()).isEmpty());
}

TEST_F(SortRun, NeedsTheFolderOnlyUntilTheFileIsThere) {
    options.sortMemory = 1000;
    Sort& sort = build(texts(10000), [this](qint64 count) {
        if (count == 1)
            folder.remove();
    });
    EXPECT_EQ(run(), RunOutcome::Done);
    EXPECT_EQ(rows, 10000);
    sort.temporaryFolder = QStringLiteral("/nowhere");
    EXPECT_EQ(run(), RunOutcome::Failed);
    EXPECT_EQ(messages.lines, std::vector<std::string>{"[1] 2: can't make a temporary file in "
                                                       "'/nowhere': No such file or directory"});
}

TEST_F(SortRun, EndsSoonWhenCancelledWhileReading) {
    build(texts());
    for (const qint64 memory : {qint64(0), qint64(1), qint64(100000)}) {
        options.sortMemory = memory;
        velmorra::Run running(graph, messages, options);
        QElapsedTimer sinceCancel;
        std::thread canceller([&] {
            std::this_thread::sleep_for(std::chrono::milliseconds(50));
            sinceCancel.start();
            running.cancel();
        });
        EXPECT_EQ(running.execute(), RunOutcome::Cancelled);
        canceller.join();
        // Ten times the aim: the machine may be busy, and sanitizers are slow.
        EXPECT_LT(sinceCancel.elapsed(), 2000);
        expectNothingLeft();
    }
    EXPECT_TRUE(messages.lines.empty());
}

TEST_F(SortRun, EndsAtOnceWhenCancelledWhileMerging) {
    build(texts(10000), [this](qint64 count) {
        if (count == 17)
            graph.parameters.runStatus = RunStatus::Cancelled;
    });
    options.sortMemory = 1000;
    EXPECT_EQ(run(), RunOutcome::Cancelled);
    EXPECT_EQ(rows, 17);
    expectNothingLeft();
}

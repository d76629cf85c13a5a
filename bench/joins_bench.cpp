/// The in-memory joins, rows already in memory.
///
/// `lookup`: finding a random key in an index or a store of n rows and touching what was found, the
/// probe keys one behind the other in memory. `floor` is the same through a bare array of n
/// pointers to the same rows: two dependent loads. `build`: adding n rows; `bytes` is the memory a
/// row took. `run`: whole Actions over a main table of a million rows, from an in-memory source
/// into a null sink; `run/none` is the same without a join.
#include "engine/packed_table.h"
#include "engine/run.h"
#include "rows/interval_index.h"
#include "rows/key_index.h"
#include "rows/slave_table_store.h"

#include <benchmark/benchmark.h>

#include <map>
#include <random>

namespace {

using namespace velmorra;

constexpr size_t probes = 1 << 20;
constexpr qint64 mainRows = 1'000'000;

/// Distinct keys in no order: a bijection of 32 bits.
quint32 keyOf(quint64 number) {
    auto key = static_cast<quint32>(number * 0x9E3779B1u);
    key ^= key >> 16;
    return key % 0xFFFFFFF0u;
}

double floatOf(quint64 number) {
    return static_cast<double>(keyOf(number)) / 4;
}

/// A text of 12 characters.
QString textOf(quint64 number) {
    return QStringLiteral("K%1").arg(keyOf(number), 11, 10, QLatin1Char('0'));
}

enum KeyKind { AsKey, AsFloat, AsText };

const uchar* keyCell(RowBuffer& buffer, KeyKind kind, quint64 number) {
    if (kind == AsText)
        return bytesFromQString(buffer, textOf(number));
    uchar* const bytes = buffer.alloc(kind == AsKey ? 4 : 8);
    if (kind == AsKey)
        cell::storeKey(bytes, keyOf(number));
    else
        cell::storeFloat(bytes, floatOf(number));
    return bytes;
}

std::vector<const uchar*> probeCells(RowBuffer& buffer, KeyKind kind, qint64 rows) {
    std::mt19937_64 random(7);
    std::vector<const uchar*> cells(probes);
    for (const uchar*& each : cells)
        each = keyCell(buffer, kind, random() % quint64(rows));
    return cells;
}

void fill(KeyIndex& index, KeyKind kind, qint64 rows) {
    RowBuffer buffer;
    for (qint64 i = 0; i < rows; ++i) {
        buffer.reset();
        const uchar* const key = keyCell(buffer, kind, quint64(i));
        kind == AsKey     ? index.addKey(cell::loadKey(key))
        : kind == AsFloat ? index.addFloat(cell::loadFloat(key))
                          : index.addString(key);
    }
    kind == AsKey ? index.buildKey() : kind == AsFloat ? index.buildFloat() : index.buildString();
}

const uchar* find(const KeyIndex& index, KeyKind kind, const uchar* key) {
    return kind == AsKey     ? index.findKey(cell::loadKey(key))
           : kind == AsFloat ? index.findFloat(cell::loadFloat(key))
                             : index.findString(key);
}

void lookupInIndex(benchmark::State& state, KeyKind kind) {
    const qint64 rows = state.range(0);
    KeyIndex index(4 << 20, 16, DuplicatePolicy::ChainDuplicates);
    fill(index, kind, rows);
    RowBuffer buffer;
    const std::vector<const uchar*> keys = probeCells(buffer, kind, rows);
    for (auto round : state) {
        quint64 sum = 0;
        for (const uchar* const key : keys)
            sum += *find(index, kind, key);
        benchmark::DoNotOptimize(sum);
    }
    state.SetItemsProcessed(state.iterations() * qint64(probes));
}

struct StoreOfRows {
    StoreOfRows(KeyKind kind, qint64 rows) : store(1, 10 << 20, true) {
        constexpr qint32 types[] = {MetaTypeKey, MetaTypeFloat, MetaTypeText};
        OneRow row;
        row.setNumberOfColumns(2);
        row.setMetaType(0, MetaInfo(types[kind], -1));
        row.setMetaType(1, MetaInfo(MetaTypeKey, -1));
        store.setColumns(row, {0, 1}, {0});
        RowBuffer buffer;
        for (qint64 i = 0; i < rows; ++i) {
            buffer.reset();
            row.cells[0] = keyCell(buffer, kind, quint64(i));
            row.cells[1] = keyCell(buffer, AsKey, quint64(i));
            store.addRow(row);
        }
    }
    SlaveTableStore store;
};

void lookupInStore(benchmark::State& state, KeyKind kind) {
    const qint64 rows = state.range(0);
    const StoreOfRows filled(kind, rows);
    RowBuffer buffer;
    const std::vector<const uchar*> keys = probeCells(buffer, kind, rows);
    for (auto round : state) {
        quint64 sum = 0;
        for (const uchar* const key : keys)
            sum += *(kind == AsKey     ? filled.store.findKey(0, cell::loadKey(key))
                     : kind == AsFloat ? filled.store.findFloat(0, cell::loadFloat(key))
                                       : filled.store.findText(0, cell::text(key)));
        benchmark::DoNotOptimize(sum);
    }
    state.SetItemsProcessed(state.iterations() * qint64(probes));
}

/// The way to a row through an array of pointers, as random as a lookup.
void lookupFloor(benchmark::State& state) {
    const auto rows = static_cast<size_t>(state.range(0));
    std::vector<uchar> bytes(rows * 16, 1);
    std::vector<const uchar*> pointers(rows);
    for (size_t i = 0; i < rows; ++i)
        pointers[i] = &bytes[i * 16];
    std::mt19937_64 random(7);
    std::vector<quint32> places(probes);
    for (quint32& place : places)
        place = static_cast<quint32>(random() % rows);
    for (auto round : state) {
        quint64 sum = 0;
        for (const quint32 place : places)
            sum += *pointers[place];
        benchmark::DoNotOptimize(sum);
    }
    state.SetItemsProcessed(state.iterations() * qint64(probes));
}

void perRow(benchmark::State& state, qint64 bytes) {
    state.counters["bytes"] = double(bytes) / double(state.range(0));
    state.SetItemsProcessed(state.iterations() * state.range(0));
}

void buildIndex(benchmark::State& state, KeyKind kind) {
    qint64 bytes = 0;
    for (auto round : state) {
        KeyIndex index(4 << 20, 16, DuplicatePolicy::ChainDuplicates);
        fill(index, kind, state.range(0));
        bytes = index.bytes();
    }
    perRow(state, bytes);
}

void buildStore(benchmark::State& state, KeyKind kind) {
    qint64 bytes = 0;
    for (auto round : state)
        bytes = StoreOfRows(kind, state.range(0)).store.bytes();
    perRow(state, bytes);
}

void buildIntervals(benchmark::State& state, bool isNested) {
    const qint64 rows = state.range(0);
    size_t listed = 0;
    for (auto round : state) {
        IntervalIndex index;
        for (qint64 i = 0; i < rows; ++i)
            index.add(double(i), isNested ? 3.0 * double(rows) - double(i) : double(i) + 1);
        index.build(IntervalIndex::All);
        listed = index.listed();
    }
    state.counters["listed"] = double(listed) / double(rows);
    state.SetItemsProcessed(state.iterations() * rows);
}

/// Hands on the rows of a table.
class TableOfBench : public ActionItem {
public:
    TableOfBench(std::shared_ptr<const PackedTable> table, GlobalParameters* parameters)
        : ActionItem(XMLNode::emptyNode(), parameters),
          table_(std::move(table)) {
        nPinIn = 0;
    }
    const char* actionName() const override { return "TableOfBench"; }
    QString actionDescription() const override { return {}; }
    QStringList actionCategories() const override { return {}; }
    QStringList actionKeywords() const override { return {}; }
    ActionItem* newFromXML(XMLNode, GlobalParameters* parameters) const override {
        return new TableOfBench(table_, parameters);
    }
    const StoredElement& storedElement() const override {
        static const StoredElement element(1);
        return element;
    }
    void rewindRun() override {
        next_ = 0;
        setStep<&TableOfBench::giveRow>();
    }

private:
    bool giveRow() {
        if (next_ == table_->rows())
            return true;
        OneRow& row = *getOutputRowForOutputPin(0);
        if (row.isFresh())
            row.setShape(table_->shape);
        table_->read(next_++, row);
        setRowReadyForOutput(0);
        return false;
    }

    std::shared_ptr<const PackedTable> table_;
    size_t next_ = 0;
};

/// A table of columns of numbers: `k` and `t` are the number's key and text, `x` the number.
template <class NumberOf>
std::shared_ptr<const PackedTable> tableOf(qint64 rows, NumberOf numberOf) {
    PinOutMetaData shape;
    shape.names = {QStringLiteral("k"), QStringLiteral("t"), QStringLiteral("x"),
                   QStringLiteral("y")};
    for (const int type : {MetaTypeKey, MetaTypeText, MetaTypeFloat, MetaTypeFloat})
        shape.types.push_back(MetaInfo(type, -1));
    auto table = std::make_shared<PackedTable>(shape);
    OneRow row;
    row.setShape(shape);
    RowBuffer buffer;
    for (qint64 i = 0; i < rows; ++i) {
        buffer.reset();
        const auto [number, low, high] = numberOf(i);
        row.cells[0] = keyCell(buffer, AsKey, quint64(number));
        row.cells[1] = keyCell(buffer, AsText, quint64(number));
        uchar* const bounds = buffer.alloc(16);
        cell::storeFloat(bounds, low);
        cell::storeFloat(bounds + 8, high);
        row.cells[2] = bounds;
        row.cells[3] = bounds + 8;
        table->append(row);
    }
    return table;
}

struct Numbers {
    qint64 key;
    double low, high;
};

enum SlaveKind { Unique, Triple, Disjoint, Million, Nested };

std::shared_ptr<const PackedTable> slaveOf(SlaveKind kind) {
    static std::map<SlaveKind, std::shared_ptr<const PackedTable>> tables;
    auto& table = tables[kind];
    if (table != nullptr)
        return table;
    const qint64 rows = kind == Unique     ? 100'000
                        : kind == Triple   ? 300'000
                        : kind == Disjoint ? 10'000
                        : kind == Million  ? 1'000'000
                                           : 2'000;
    table = tableOf(rows, [&](qint64 i) {
        if (kind == Nested)
            return Numbers{i, double(i), 1e6 - double(i)};
        const double width = 1e6 / double(rows);
        return Numbers{kind == Triple ? i / 3 : i, double(i) * width, double(i + 1) * width};
    });
    return table;
}

void run(benchmark::State& state, const char* element, SlaveKind kind, int slaves) {
    static const auto mainTable = [] {
        auto random = std::make_shared<std::mt19937_64>(3);
        return tableOf(mainRows, [random](qint64) {
            const double low = double((*random)() % 1'000'000'000) / 1000;
            return Numbers{qint64((*random)() % 100'000), low, low + 1};
        });
    }();
    ActionCatalog catalog;
    const QString error = catalog.load();
    if (!error.isEmpty()) {
        state.SkipWithError(qPrintable(error));
        return;
    }
    Graph graph;
    const int source = graph.addBox(std::make_unique<TableOfBench>(mainTable, &graph.parameters));
    if (element != nullptr) {
        const int box =
            graph.addBox(catalog.create(XMLNode::parse(element).root, &graph.parameters));
        graph.addLink({source, 0, box, 0});
        for (int pin = 1; pin <= slaves; ++pin) {
            const int slave =
                graph.addBox(std::make_unique<TableOfBench>(slaveOf(kind), &graph.parameters));
            graph.addLink({slave, 0, box, pin});
        }
    }
    class : public MessageSink {
        void take(const Message&) override {}
    } messages;
    for (auto round : state) {
        Run each(graph, messages);
        if (each.execute() != RunOutcome::Done)
            state.SkipWithError("the run failed");
    }
    state.SetItemsProcessed(state.iterations() * mainRows);
}

#define SCALES ->Arg(100'000)->Arg(1'000'000)->Arg(10'000'000)->Unit(benchmark::kMillisecond)

BENCHMARK(lookupFloor)->Name("lookup/floor") SCALES;
BENCHMARK_CAPTURE(lookupInIndex, key, AsKey)->Name("lookup/index/key") SCALES;
BENCHMARK_CAPTURE(lookupInIndex, float, AsFloat)->Name("lookup/index/float") SCALES;
BENCHMARK_CAPTURE(lookupInIndex, text, AsText)->Name("lookup/index/text") SCALES;
BENCHMARK_CAPTURE(lookupInStore, key, AsKey)->Name("lookup/store/key") SCALES;
BENCHMARK_CAPTURE(lookupInStore, text, AsText)->Name("lookup/store/text") SCALES;

BENCHMARK_CAPTURE(buildIndex, key, AsKey)->Name("build/index/key") SCALES;
BENCHMARK_CAPTURE(buildIndex, float, AsFloat)->Name("build/index/float") SCALES;
BENCHMARK_CAPTURE(buildIndex, text, AsText)->Name("build/index/text") SCALES;
BENCHMARK_CAPTURE(buildStore, key, AsKey)->Name("build/store/key") SCALES;
BENCHMARK_CAPTURE(buildStore, float, AsFloat)->Name("build/store/float") SCALES;
BENCHMARK_CAPTURE(buildStore, text, AsText)->Name("build/store/text") SCALES;
BENCHMARK_CAPTURE(buildIntervals, disjoint, false)
    ->Name("build/intervals/disjoint")
    ->Arg(1'000'000);
BENCHMARK_CAPTURE(buildIntervals, nested, true)
    ->Name("build/intervals/nested")
    ->Arg(10'000)
    ->Arg(1'000'000);

#undef SCALES

void addRun(const char* name, const char* element, SlaveKind kind, int slaves) {
    benchmark::RegisterBenchmark(name, run, element, kind, slaves)
        ->Unit(benchmark::kMillisecond)
        ->MeasureProcessCPUTime();
}

const bool runsAdded = [] {
    addRun("run/none", nullptr, Unique, 0);
    addRun("run/multi_join/key", "<MultiJoin><Join mainKey='k' slaveKey='k'/></MultiJoin>", Unique,
           1);
    addRun("run/multi_join/text", "<MultiJoin><Join mainKey='t' slaveKey='t'/></MultiJoin>", Unique,
           1);
    addRun("run/multi_join/three",
           "<MultiJoin nPinIn='4'><Join pin='1' mainKey='k' slaveKey='k'/>"
           "<Join pin='2' mainKey='k' slaveKey='k'/><Join pin='3' mainKey='t' slaveKey='t'/>"
           "</MultiJoin>",
           Unique, 3);
    addRun("run/in_memory_join", "<InMemoryJoin jm='1' mainKey='k' slaveKey='k'/>", Triple, 1);
    addRun("run/filter_on_key", "<FilterOnKey slaveKey='k'><s>k</s></FilterOnKey>", Unique, 1);
    const char* const points = "<IntervalJoin mainLowKey='x' slaveLowKey='x' slaveHighKey='y'/>";
    addRun("run/interval_join/points_in_10000", points, Disjoint, 1);
    addRun("run/interval_join/points_in_1000000", points, Million, 1);
    addRun("run/interval_join/points_in_nested_best",
           "<IntervalJoin outputMode='2' mainLowKey='x' slaveLowKey='x' slaveHighKey='y'/>", Nested,
           1);
    addRun("run/interval_join/overlaps",
           "<IntervalJoin mode='1' mainLowKey='x' mainHighKey='y' slaveLowKey='x' "
           "slaveHighKey='y'/>",
           Million, 1);
    return true;
}();

} // namespace

BENCHMARK_MAIN();

/// The in-memory joins, rows already in memory.
///
/// `lookup`: finding a random key in an index or a store of n rows and touching what was found, the
/// probe keys one behind the other in memory, so that the processor works on several at a time.
/// `latency`: the same where each probe waits for the one before. `floor` is the way through a bare
/// array of n pointers to rows of 16 bytes: two dependent loads. `build`: adding n rows of a key
/// and a Key column (FilterOnKey: the key alone) that are in memory; per row, `held` is the memory
/// that it takes, `peak` what the process needed at most meanwhile, `data` the bytes of its cells.
/// `run`: whole Actions over a main table of a million rows, from an in-memory source into a null
/// sink; `run/none` is the same without a join.
#include "bench/bench_source.h"
#include "engine/packed_table.h"
#include "engine/run.h"
#include "rows/interval_index.h"
#include "rows/key_index.h"
#include "rows/slave_table_store.h"

#include <benchmark/benchmark.h>

#include <fstream>
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

enum KeyKind { AsKey, AsFloat, AsText };

constexpr int textUnits = 12;

qint64 keyBytes(KeyKind kind) {
    return kind == AsKey ? 4 : kind == AsFloat ? 8 : cell::textCellBytes(textUnits);
}

void writeKey(uchar* bytes, KeyKind kind, quint64 number) {
    if (kind == AsKey)
        return cell::storeKey(bytes, keyOf(number));
    if (kind == AsFloat)
        return cell::storeFloat(bytes, floatOf(number));
    char16_t text[textUnits] = {u'K'};
    quint32 rest = keyOf(number);
    for (int i = textUnits; --i > 0; rest /= 10)
        text[i] = static_cast<char16_t>(u'0' + rest % 10);
    cell::writeText(bytes, text, textUnits);
}

const uchar* keyCell(RowBuffer& buffer, KeyKind kind, quint64 number) {
    uchar* const bytes = buffer.alloc(keyBytes(kind));
    writeKey(bytes, kind, number);
    return bytes;
}

/// Key cells one behind the other.
class Keys {
public:
    template <class NumberOf>
    Keys(KeyKind kind, qint64 count, NumberOf numberOf)
        : size_(static_cast<size_t>(keyBytes(kind))),
          bytes_(static_cast<size_t>(count) * size_) {
        for (size_t i = 0; i < static_cast<size_t>(count); ++i)
            writeKey(&bytes_[i * size_], kind, quint64(numberOf(i)));
    }
    const uchar* at(size_t place) const { return &bytes_[place * size_]; }

private:
    size_t size_;
    std::vector<uchar> bytes_;
};

Keys allKeys(KeyKind kind, qint64 rows) {
    return {kind, rows, [](size_t i) { return i; }};
}

Keys probeKeys(KeyKind kind, qint64 rows) {
    std::mt19937_64 random(7);
    return {kind, probes, [&](size_t) { return random() % quint64(rows); }};
}

constexpr qint64 blockSize = 10 << 20;

const uchar* findIn(const KeyIndex& index, KeyKind kind, const uchar* key) {
    return kind == AsKey     ? index.findKey(cell::loadKey(key))
           : kind == AsFloat ? index.findFloat(cell::loadFloat(key))
                             : index.findString(key);
}

uchar* addTo(KeyIndex& index, KeyKind kind, const uchar* key, qint64 moreBytes) {
    return kind == AsKey     ? index.addKey(cell::loadKey(key), moreBytes)
           : kind == AsFloat ? index.addFloat(cell::loadFloat(key), moreBytes)
                             : index.addString(key, moreBytes);
}

/// As InMemoryJoin fills it; each row is its number.
struct FilledIndex {
    FilledIndex(KeyKind kind, const Keys& keys, qint64 rows)
        : kind_(kind),
          index_(blockSize, 8, DuplicatePolicy::ChainDuplicates) {
        for (quint32 i = 0; i < rows; ++i)
            cell::storeKey(addTo(index_, kind, keys.at(i), 4) + 8, i);
        kind == AsKey     ? index_.buildKey()
        : kind == AsFloat ? index_.buildFloat()
                          : index_.buildString();
    }
    uchar touch(const uchar* key) const { return *findIn(index_, kind_, key); }
    qint64 bytes() const { return index_.bytes(); }

private:
    KeyKind kind_;
    KeyIndex index_;
};

/// As FilterOnKey fills it.
struct FilledFilter {
    FilledFilter(KeyKind kind, const Keys& keys, qint64 rows)
        : kind_(kind),
          index_(4 << 20, 0, DuplicatePolicy::RejectDuplicates) {
        for (size_t i = 0; i < size_t(rows); ++i)
            addTo(index_, kind, keys.at(i), 0);
    }
    uchar touch(const uchar* key) const { return findIn(index_, kind_, key) != nullptr ? 1 : 0; }
    qint64 bytes() const { return index_.bytes(); }

private:
    KeyKind kind_;
    KeyIndex index_;
};

struct FilledStore {
    FilledStore(KeyKind kind, const Keys& keys, qint64 rows)
        : kind_(kind),
          store_(1, blockSize, true) {
        constexpr qint32 types[] = {MetaTypeKey, MetaTypeFloat, MetaTypeText};
        OneRow row;
        row.setNumberOfColumns(2);
        row.setMetaType(0, MetaInfo(types[kind], -1));
        row.setMetaType(1, MetaInfo(MetaTypeKey, -1));
        store_.setColumns(row, {0, 1}, {0});
        uchar number[4];
        row.cells[1] = number;
        for (quint32 i = 0; i < rows; ++i) {
            row.cells[0] = keys.at(i);
            cell::storeKey(number, i);
            store_.addRow(row);
        }
    }
    uchar touch(const uchar* key) const {
        return *(kind_ == AsKey     ? store_.findKey(0, cell::loadKey(key))
                 : kind_ == AsFloat ? store_.findFloat(0, cell::loadFloat(key))
                                    : store_.findText(0, cell::text(key)));
    }
    qint64 bytes() const { return store_.bytes(); }

private:
    KeyKind kind_;
    SlaveTableStore store_;
};

template <class Filled>
void lookUp(benchmark::State& state, KeyKind kind) {
    const Filled filled(kind, allKeys(kind, state.range(0)), state.range(0));
    const Keys keys = probeKeys(kind, state.range(0));
    for (auto round : state) {
        quint64 sum = 0;
        for (size_t i = 0; i < probes; ++i)
            sum += filled.touch(keys.at(i));
        benchmark::DoNotOptimize(sum);
    }
    state.SetItemsProcessed(state.iterations() * qint64(probes));
}

template <class Filled>
void lookUpInTurn(benchmark::State& state, KeyKind kind) {
    const Filled filled(kind, allKeys(kind, state.range(0)), state.range(0));
    const Keys keys = probeKeys(kind, state.range(0));
    for (auto round : state) {
        size_t found = 0;
        for (size_t i = 0; i < probes; ++i) {
            // The compiler doesn't know that the byte shifted away is all there is.
            found = filled.touch(keys.at(i + (found >> 8)));
            benchmark::DoNotOptimize(found);
        }
    }
    state.SetItemsProcessed(state.iterations() * qint64(probes));
}

/// The way to a row through an array of pointers, as random as a lookup.
void lookupFloor(benchmark::State& state, bool inTurn) {
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
        size_t found = 0;
        for (const quint32 place : places) {
            found = inTurn ? *pointers[place + (found >> 8)] : found + *pointers[place];
            if (inTurn)
                benchmark::DoNotOptimize(found);
        }
        benchmark::DoNotOptimize(found);
    }
    state.SetItemsProcessed(state.iterations() * qint64(probes));
}

/// Memory of this process in bytes, now ("VmRSS") or at most ("VmHWM").
qint64 processMemory(const std::string& what) {
    std::ifstream status("/proc/self/status");
    for (std::string word; status >> word;) {
        if (word == what + ":") {
            qint64 kibibytes = 0;
            status >> kibibytes;
            return kibibytes * 1024;
        }
    }
    return 0;
}

/// What building needs, by row.
class MemoryWatch {
public:
    MemoryWatch() {
        std::ofstream("/proc/self/clear_refs") << 5; // the most so far is forgotten
        before_ = processMemory("VmRSS");
    }
    void report(benchmark::State& state, qint64 held, qint64 data) const {
        const auto rows = double(state.range(0));
        state.counters["held"] = double(held) / rows;
        state.counters["peak"] = double(processMemory("VmHWM") - before_) / rows;
        state.counters["data"] = double(data);
        state.SetItemsProcessed(state.iterations() * state.range(0));
    }

private:
    qint64 before_;
};

template <class Filled>
void build(benchmark::State& state, KeyKind kind, qint64 dataBeside) {
    const Keys keys = allKeys(kind, state.range(0));
    const MemoryWatch memory;
    qint64 held = 0;
    for (auto round : state)
        held = Filled(kind, keys, state.range(0)).bytes();
    memory.report(state, held, keyBytes(kind) + dataBeside);
}

/// Three rows a key, in no order: chains are turned round.
void buildChains(benchmark::State& state, KeyKind kind) {
    const qint64 rows = state.range(0);
    const Keys keys(kind, rows, [&](size_t i) { return i % size_t(rows / 3 + 1); });
    const MemoryWatch memory;
    qint64 held = 0;
    for (auto round : state)
        held = FilledIndex(kind, keys, rows).bytes();
    memory.report(state, held, keyBytes(kind) + 4);
}

void buildIntervals(benchmark::State& state, bool isNested, IntervalIndex::Preference preference) {
    const qint64 rows = state.range(0);
    const MemoryWatch memory;
    qint64 held = 0;
    for (auto round : state) {
        IntervalIndex index;
        for (qint64 i = 0; i < rows; ++i)
            index.add(double(i), isNested ? 3.0 * double(rows) - double(i) : double(i) + 1);
        index.build(preference);
        held = qint64(index.bytes());
    }
    memory.report(state, held, 16);
}

/// A point that half of the nested intervals cover.
void lookUpNested(benchmark::State& state) {
    const qint64 rows = state.range(0);
    IntervalIndex index;
    for (qint64 i = 0; i < rows; ++i)
        index.add(double(i), 3.0 * double(rows) - double(i));
    index.build(IntervalIndex::All);
    std::mt19937_64 random(7);
    IntervalIndex::Scratch scratch;
    qint64 found = 0;
    for (auto round : state) {
        const double point = double(random() % quint64(rows)) + 0.5;
        for (const qint32 number : index.covering(point, scratch))
            found += number >= 0 ? 1 : 0;
    }
    state.SetItemsProcessed(found);
}

/// Hands on the rows of a table.
class TableOfBench : public BenchSource {
public:
    TableOfBench(std::shared_ptr<const PackedTable> table, GlobalParameters* parameters)
        : BenchSource(parameters),
          table_(std::move(table)) {}
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

template <class Measure>
void add(const std::string& name, Measure measure, std::vector<qint64> scales) {
    auto* const added = benchmark::RegisterBenchmark(name.c_str(), measure);
    for (const qint64 scale : scales)
        added->Arg(scale);
    added->Unit(benchmark::kMillisecond);
}

const std::vector<qint64> scales = {100'000, 1'000'000, 10'000'000};

template <class Filled>
void addFilled(const std::string& name, qint64 dataBeside) {
    constexpr std::pair<KeyKind, const char*> kinds[] = {
        {AsKey, "/key"}, {AsFloat, "/float"}, {AsText, "/text"}};
    using State = benchmark::State;
    for (const auto& [kind, kindName] : kinds) {
        add(
            "lookup/" + name + kindName, [=](State& state) { lookUp<Filled>(state, kind); },
            scales);
        add(
            "latency/" + name + kindName, [=](State& state) { lookUpInTurn<Filled>(state, kind); },
            scales);
        add(
            "build/" + name + kindName,
            [=](State& state) { build<Filled>(state, kind, dataBeside); }, scales);
    }
}

const bool storesAdded = [] {
    using State = benchmark::State;
    add(
        "lookup/floor", [](State& state) { lookupFloor(state, false); }, scales);
    add(
        "latency/floor", [](State& state) { lookupFloor(state, true); }, scales);
    addFilled<FilledFilter>("filter_on_key", 0);
    addFilled<FilledIndex>("in_memory_join", 4);
    addFilled<FilledStore>("multi_join", 4);
    for (const KeyKind kind : {AsKey, AsText})
        add(
            std::string("build/in_memory_join/thrice/") + (kind == AsKey ? "key" : "text"),
            [=](State& state) { buildChains(state, kind); }, scales);
    const auto addIntervals = [](const char* name, bool isNested,
                                 IntervalIndex::Preference preference, std::vector<qint64> sizes) {
        add(
            name, [=](State& state) { buildIntervals(state, isNested, preference); },
            std::move(sizes));
    };
    addIntervals("build/intervals/disjoint", false, IntervalIndex::All, scales);
    addIntervals("build/intervals/disjoint_best", false, IntervalIndex::HighestLow, scales);
    addIntervals("build/intervals/nested", true, IntervalIndex::All,
                 {10'000, 100'000, 1'000'000, 10'000'000});
    add("lookup/intervals/nested", lookUpNested, {1'000, 10'000, 100'000});
    return true;
}();

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

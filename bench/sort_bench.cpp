/// Rows per second of sorting a million rows of three columns (a Key, a text of twelve characters,
/// a Float), by number and by text, in memory and through a temporary file; beside it a copy of the
/// rows into memory and back, and a standard stable sort of the bare Keys.
#include "engine/packed_table.h"
#include "engine/sort/row_sorter.h"

#include <benchmark/benchmark.h>

#include <algorithm>
#include <limits>
#include <random>

namespace {

using namespace velmorra;

constexpr quint32 rowCount = 1000000;
constexpr qint64 noLimit = std::numeric_limits<qint64>::max();

const PackedTable& table() {
    static const PackedTable rows = [] {
        PinOutMetaData shape;
        shape.names = {QStringLiteral("key"), QStringLiteral("text"), QStringLiteral("number")};
        shape.types = {MetaInfo(MetaTypeKey, -1), MetaInfo(MetaTypeText, -1),
                       MetaInfo(MetaTypeFloat, -1)};
        PackedTable made(shape);
        std::mt19937 random(42);
        OneRow row;
        row.setShape(shape);
        RowBuffer buffer;
        for (quint32 i = 0; i < rowCount; ++i) {
            buffer.reset();
            uchar* const key = buffer.alloc(4);
            uchar* const number = buffer.alloc(8);
            cell::storeKey(key, random());
            cell::storeFloat(number, random() / 1000.0);
            QString text;
            for (int letter = 0; letter < 12; ++letter)
                text += QChar(ushort('a' + random() % 26));
            row.setCol(0, key);
            row.setColAsString(1, buffer, text);
            row.setCol(2, number);
            made.append(row);
        }
        return made;
    }();
    return rows;
}

void sortRows(benchmark::State& state, const QVector<SortInfos>& order, qint64 memory) {
    PinOutMetaData shape = table().shape;
    shape.sort = order;
    OneRow row;
    row.setShape(shape);
    const RunStatus status;
    for (auto _ : state) {
        RowSorter sorter(shape, memory, QString(), status);
        for (size_t place = 0; place < table().rows(); ++place) {
            table().read(place, row);
            sorter.add(row);
        }
        sorter.finish();
        size_t rows = 0;
        for (; sorter.next(row); ++rows)
            benchmark::DoNotOptimize(row.cells[0]);
        if (rows != table().rows())
            state.SkipWithError("rows are missing");
    }
    state.SetItemsProcessed(state.iterations() * qint64(rowCount));
}

void copyRows(benchmark::State& state) {
    OneRow row;
    row.setShape(table().shape);
    for (auto _ : state) {
        PackedTable copy(table().shape);
        for (size_t place = 0; place < table().rows(); ++place) {
            table().read(place, row);
            copy.append(row);
        }
        for (size_t place = 0; place < copy.rows(); ++place) {
            copy.read(place, row);
            benchmark::DoNotOptimize(row.cells[0]);
        }
    }
    state.SetItemsProcessed(state.iterations() * qint64(rowCount));
}

void sortBareKeys(benchmark::State& state) {
    std::mt19937 random(42);
    std::vector<std::pair<quint32, quint32>> keys;
    for (quint32 i = 0; i < rowCount; ++i)
        keys.emplace_back(random(), i);
    for (auto _ : state) {
        auto copy = keys;
        std::stable_sort(copy.begin(), copy.end(),
                         [](const auto& a, const auto& b) { return a.first < b.first; });
        benchmark::DoNotOptimize(copy.data());
    }
    state.SetItemsProcessed(state.iterations() * qint64(rowCount));
}

BENCHMARK(copyRows)->Unit(benchmark::kMillisecond);
BENCHMARK(sortBareKeys)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(sortRows, by_key, QVector<SortInfos>{{0, SortNumberRising}}, noLimit)
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(sortRows, by_text, QVector<SortInfos>{{1, SortTextRising}}, noLimit)
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(sortRows, by_key_in_8_mib, QVector<SortInfos>{{0, SortNumberRising}}, 8 << 20)
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(sortRows, by_text_in_8_mib, QVector<SortInfos>{{1, SortTextRising}}, 8 << 20)
    ->Unit(benchmark::kMillisecond);

} // namespace

BENCHMARK_MAIN();

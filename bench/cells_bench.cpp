// What a cell costs: reading a number, writing one, taking a text apart, comparing, and handing on
// a row. Each stands beside the plain way of doing it, on the same values.
#include "host/cell_order.h"
#include "host/number_parser.h"
#include "host/number_text.h"
#include "host/one_row.h"

#include <benchmark/benchmark.h>

#include <charconv>
#include <cmath>
#include <cstdio>
#include <random>
#include <vector>

namespace {

constexpr size_t count = 4096;

enum Values { WholeNumbers, Prices, FullDoubles };

std::vector<double> valuesOf(benchmark::State& state) {
    static const char* const labels[] = {"whole numbers", "prices", "full doubles"};
    state.SetLabel(labels[state.range(0)]);
    std::mt19937_64 random(1);
    std::vector<double> values(count);
    for (double& value : values) {
        const auto whole = static_cast<double>(random() % 1'000'000);
        value = state.range(0) == WholeNumbers ? whole
                : state.range(0) == Prices     ? whole / 100
                                               : std::ldexp(static_cast<double>(random()), -70);
    }
    return values;
}

/// String cells of the values' texts, packed without padding: about half at odd addresses.
struct TextCells {
    explicit TextCells(const std::vector<double>& values) {
        for (const double value : values) {
            char digits[numberTextRoom];
            const int length = formatFloat(value, digits);
            cells.push_back(bytesFromQString(buffer, QString::fromLatin1(digits, length)));
        }
    }

    RowBuffer buffer{1 << 20};
    std::vector<const uchar*> cells;
};

void perValue(benchmark::State& state) {
    state.SetItemsProcessed(state.iterations() * static_cast<int64_t>(count));
}

void parseCell(benchmark::State& state) {
    const TextCells texts(valuesOf(state));
    for (auto _ : state) {
        for (const uchar* bytes : texts.cells) {
            const cell::TextView view = cell::text(bytes);
            bool ok = false;
            benchmark::DoNotOptimize(parseCellNumber(view.chars, view.size(), &ok));
        }
    }
    perValue(state);
}

void parseCellPlain(benchmark::State& state) {
    const TextCells texts(valuesOf(state));
    for (auto _ : state) {
        for (const uchar* bytes : texts.cells) {
            bool ok = false;
            benchmark::DoNotOptimize(qStringFromBytes(bytes).toDouble(&ok));
        }
    }
    perValue(state);
}

void formatNumber(benchmark::State& state) {
    const std::vector<double> values = valuesOf(state);
    char text[numberTextRoom];
    for (auto _ : state) {
        for (const double value : values) {
            benchmark::DoNotOptimize(formatFloat(value, text));
            benchmark::ClobberMemory();
        }
    }
    perValue(state);
}

void formatNumberPlain(benchmark::State& state) {
    const std::vector<double> values = valuesOf(state);
    char text[numberTextRoom];
    for (auto _ : state) {
        for (const double value : values) {
            benchmark::DoNotOptimize(std::snprintf(text, sizeof text, "%.17g", value));
            benchmark::ClobberMemory();
        }
    }
    perValue(state);
}

void formatNumberByLibrary(benchmark::State& state) {
    const std::vector<double> values = valuesOf(state);
    char text[numberTextRoom];
    for (auto _ : state) {
        for (const double value : values) {
            benchmark::DoNotOptimize(
                std::to_chars(text, text + sizeof text, value, std::chars_format::fixed));
            benchmark::ClobberMemory();
        }
    }
    perValue(state);
}

/// L by the loop that the length field's definition suggests.
int plainLength(const uchar* bytes) {
    int length = 0;
    for (int i = 0;; ++i) {
        length |= (bytes[i] & 0x7F) << (7 * i);
        if ((bytes[i] & 0x80) != 0 || i == 3)
            return length;
    }
}

template <bool Plain>
void readLength(benchmark::State& state) {
    std::mt19937 random(2);
    RowBuffer buffer(1 << 20);
    std::vector<const uchar*> cells;
    for (size_t i = 0; i < count; ++i) {
        const int units = static_cast<int>(random() % (i % 50 == 0 ? 300 : 30));
        cells.push_back(bytesFromQString(buffer, QString(units, 'x')));
    }
    for (auto _ : state) {
        for (const uchar* bytes : cells)
            benchmark::DoNotOptimize(Plain ? plainLength(bytes) : cell::text(bytes).length);
    }
    perValue(state);
}

template <bool Plain>
void compareTexts(benchmark::State& state) {
    std::mt19937 random(3);
    RowBuffer buffer(1 << 20);
    std::vector<const uchar*> cells;
    const QString prefix(static_cast<int>(state.range(0)), 'p');
    for (size_t i = 0; i < count; ++i)
        cells.push_back(bytesFromQString(buffer, prefix + QString::number(random())));
    const CellOrder order = cellOrder(SortTextRising, MetaTypeText);
    for (auto _ : state) {
        for (size_t i = 1; i < count; ++i) {
            if constexpr (Plain)
                benchmark::DoNotOptimize(
                    qStringFromBytes(cells[i - 1]).compare(qStringFromBytes(cells[i])));
            else
                benchmark::DoNotOptimize(order(cells[i - 1], cells[i]));
        }
    }
    perValue(state);
}

/// Nine columns, which a box hands on with one more of its own.
struct HandedOn {
    HandedOn() {
        in.setNumberOfColumns(9);
        out.copyFrom(in);
        out.setNumberOfColumns(10);
    }

    OneRow in;
    OneRow out;
};

void copyRow(benchmark::State& state) {
    HandedOn rows;
    for (auto _ : state) {
        rows.out.copyFrom(rows.in);
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(state.iterations());
}

void copyRowPlain(benchmark::State& state) {
    HandedOn rows;
    for (auto _ : state) {
        std::memcpy(rows.out.cells, rows.in.cells, 9 * sizeof(*rows.in.cells));
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(state.iterations());
}

BENCHMARK(parseCell)->DenseRange(WholeNumbers, FullDoubles);
BENCHMARK(parseCellPlain)->DenseRange(WholeNumbers, FullDoubles);
BENCHMARK(formatNumber)->DenseRange(WholeNumbers, FullDoubles);
BENCHMARK(formatNumberByLibrary)->DenseRange(WholeNumbers, FullDoubles);
BENCHMARK(formatNumberPlain)->DenseRange(WholeNumbers, FullDoubles);
BENCHMARK(readLength<false>);
BENCHMARK(readLength<true>);
BENCHMARK(compareTexts<false>)->Arg(0)->Arg(100);
BENCHMARK(compareTexts<true>)->Arg(0)->Arg(100);
BENCHMARK(copyRow);
BENCHMARK(copyRowPlain);

} // namespace

BENCHMARK_MAIN();

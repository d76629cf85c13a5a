/// Bytes per second of parsing and formatting CSV, beside a copy of the same bytes. The data: nine
/// columns of about 108 bytes a row, with accents and quotes.
#include "engine/csv/csv_formatter.h"
#include "engine/csv/csv_parser.h"
#include "host/one_row.h"
#include "host/row_buffer.h"

#include <benchmark/benchmark.h>

#include <random>
#include <string>

namespace {

using namespace velmorra;

constexpr int columnCount = 9;

const std::string& file() {
    static const std::string bytes = [] {
        std::mt19937 random(42);
        std::string text = "id,customer,code,price,weight,category,note,time,day\n";
        const char* const words[] = {"caf\xC3\xA9",
                                     "stra\xC3\x9F"
                                     "e",
                                     "plain",
                                     "\"\"quoted\"\"",
                                     "a, b",
                                     "dark",
                                     "window",
                                     "river"};
        const char* const categories[] = {"red", "green", "blue", "none"};
        for (int i = 0; i < 200000; ++i) {
            text += std::to_string(i) + ',' + std::to_string(random() % 100000) + ",C" +
                    std::to_string(1000000 + random() % 9000000) + ',' +
                    std::to_string(random() % 1000) + '.' + std::to_string(10 + random() % 90) +
                    ',' + std::to_string(random() % 100) + '.' + std::to_string(random() % 10000) +
                    ',' + categories[random() % 4] + ",\"";
            for (int word = 0; word < 6; ++word)
                text += std::string(word > 0 ? " " : "") + words[random() % 8];
            text += "\",2024-05-" + std::to_string(10 + random() % 20) +
                    " 12:" + std::to_string(10 + random() % 50) + ',' + std::to_string(i / 50000) +
                    '\n';
        }
        return text;
    }();
    return bytes;
}

ByteSource source() {
    return [at = size_t(0)](uchar* to, qint64 room) mutable {
        const size_t count = std::min(size_t(room), file().size() - at);
        std::memcpy(to, file().data() + at, count);
        at += count;
        return qint64(count);
    };
}

std::vector<CsvColumn> columns(unsigned wanted, bool typed, PinOutMetaData* shape) {
    const qint32 types[columnCount] = {'K', 'K', 'U', 'F', 'F', 'U', 'U', 'U', 'K'};
    std::vector<CsvColumn> result;
    for (int i = 0; i < columnCount; ++i) {
        const qint32 type = typed ? types[i] : qint32(MetaTypeText);
        const QString name = QStringLiteral("c%1").arg(i);
        result.push_back({name, type, (wanted >> i & 1) != 0, 0xFFFFFFFDu});
        shape->names.push_back(name);
        shape->types.push_back(MetaInfo(type, -1));
    }
    return result;
}

void countBytes(benchmark::State& state) {
    state.SetBytesProcessed(qint64(state.iterations()) * qint64(file().size()));
}

void copyBytes(benchmark::State& state) {
    std::vector<uchar> window(256 << 10);
    for (auto _ : state) {
        ByteSource bytes = source();
        while (bytes(window.data(), qint64(window.size())) > 0)
            benchmark::ClobberMemory();
    }
    countBytes(state);
}

void parse(benchmark::State& state, unsigned wanted, bool typed) {
    RowBatch batch;
    for (auto _ : state) {
        CsvParser parser(source(), QString(), {});
        parser.readFirstRow();
        PinOutMetaData shape;
        std::vector<CsvColumn> table = columns(wanted, typed, &shape);
        parser.setColumns(std::move(table), shape, false);
        do {
            parser.fill(batch);
        } while (batch.end == BatchEnd::More);
        if (!batch.problem.isNull())
            state.SkipWithError(batch.problem.toUtf8().constData());
    }
    countBytes(state);
}

void parseAndFormat(benchmark::State& state, unsigned wanted, bool typed) {
    RowBatch batch;
    for (auto _ : state) {
        CsvParser parser(source(), QString(), {});
        parser.readFirstRow();
        PinOutMetaData shape;
        std::vector<CsvColumn> table = columns(wanted, typed, &shape);
        parser.setColumns(std::move(table), shape, false);
        CsvFormatter formatter;
        formatter.setColumns(shape);
        do {
            parser.fill(batch);
            for (int i = 0; i < batch.rows; ++i)
                formatter.writeRow(batch.row(i));
            formatter.clear();
        } while (batch.end == BatchEnd::More);
    }
    countBytes(state);
}

/// With rows copied as it would take to format them on another thread.
void parsePackAndFormat(benchmark::State& state, unsigned wanted, bool typed) {
    RowBatch batch;
    RowBuffer bytes;
    std::vector<const uchar*> packed;
    for (auto _ : state) {
        CsvParser parser(source(), QString(), {});
        parser.readFirstRow();
        PinOutMetaData shape;
        std::vector<CsvColumn> table = columns(wanted, typed, &shape);
        parser.setColumns(std::move(table), shape, false);
        CsvFormatter formatter;
        formatter.setColumns(shape);
        OneRow row;
        row.setShape(shape);
        do {
            parser.fill(batch);
            bytes.reset();
            packed.clear();
            for (int i = 0; i < batch.rows; ++i) {
                std::memcpy(row.cells, batch.row(i), sizeof(uchar*) * columnCount);
                packed.push_back(row.storeInBuffer(bytes));
            }
            for (const uchar* const place : packed) {
                row.initFromBuffer(place, 0, -1);
                formatter.writeRow(row.cells);
            }
            formatter.clear();
        } while (batch.end == BatchEnd::More);
    }
    countBytes(state);
}

BENCHMARK(copyBytes)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(parse, nine_texts, 0x1FFu, false)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(parse, four_of_nine_texts, 0x6Cu, false)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(parse, nine_typed, 0x1FFu, true)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(parseAndFormat, nine_texts, 0x1FFu, false)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(parseAndFormat, nine_typed, 0x1FFu, true)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(parsePackAndFormat, nine_typed, 0x1FFu, true)->Unit(benchmark::kMillisecond);

} // namespace

BENCHMARK_MAIN();

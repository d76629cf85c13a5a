/// Writing and reading a stored table beside CSV: the same rows, from memory to memory, one thread.
/// The data: nine columns, of them three Keys and two Floats, about 110 bytes a row as CSV.
#include "engine/csv/csv_formatter.h"
#include "engine/csv/csv_parser.h"
#include "host/gel/gel_reader.h"
#include "host/gel/gel_writer.h"

#include <benchmark/benchmark.h>

#include <QtCore/QFile>
#include <QtCore/QTemporaryDir>

#include <random>
#include <string>

namespace {

using namespace velmorra;

constexpr int rowCount = 200'000;

std::string csvText() {
    static const char* const words[] = {"caf\xC3\xA9",
                                        "stra\xC3\x9F\x65",
                                        "na\xC3\xAFve",
                                        "window",
                                        "river",
                                        "se\xC3\xB1or",
                                        "fa\xC3\xA7\x61\x64\x65",
                                        "blue",
                                        "\xC3\xBC\x62\x65r",
                                        "forest"};
    static const char* const categories[] = {"red", "green", "blue", "none"};
    std::mt19937 random(42);
    const auto digits = [&](unsigned from, unsigned to) {
        return std::to_string(from + random() % (to - from));
    };
    std::string text;
    for (int i = 0; i < rowCount; ++i) {
        text += std::to_string(i) + ',' + digits(0, 100'000) + ",C" +
                digits(10'000'000, 100'000'000) + ',' + digits(0, 1000) + '.' + digits(10, 100) +
                ',' + digits(0, 100) + '.' + digits(1000, 10'000) + ',' + categories[random() % 4] +
                ',';
        for (int word = 0; word < 6; ++word)
            text += std::string(word > 0 ? " " : "") + words[random() % 10];
        text += ",2024-" + digits(10, 13) + '-' + digits(10, 29) + " 12:" + digits(10, 60) +
                ":00," + std::to_string(i / 50'000) + '\n';
    }
    return text;
}

const qint32 types[] = {'K', 'K', 'U', 'F', 'F', 'U', 'U', 'U', 'K'};

/// The rows as they are in memory, and as files.
struct Data {
    PinOutMetaData columns;
    std::string csv = csvText();
    RowBuffer cells;
    std::vector<const uchar*> rows;
    QTemporaryDir folder;
    QString gel = folder.filePath(QStringLiteral("rows.gel"));

    Data();
    std::unique_ptr<CsvParser> parser() const;
};

std::unique_ptr<CsvParser> Data::parser() const {
    auto parser = std::make_unique<CsvParser>(
        [this, at = size_t(0)](uchar* to, qint64 room) mutable {
            const size_t count = std::min(size_t(room), csv.size() - at);
            std::memcpy(to, csv.data() + at, count);
            at += count;
            return qint64(count);
        },
        QStringLiteral("'rows'"), CsvSettings());
    parser->readFirstRow();
    std::vector<CsvColumn> csvColumns;
    for (const qint32 type : types)
        csvColumns.push_back({QStringLiteral("c"), type, true, 0xFFFFFFFDu});
    parser->setColumns(csvColumns, columns, true);
    return parser;
}

Data::Data() {
    for (const qint32 type : types) {
        columns.names.push_back(QStringLiteral("c"));
        columns.types.push_back(MetaInfo(type, -1));
    }
    const auto csvRows = parser();
    OneRow row;
    row.setShape(columns);
    RowBatch batch;
    do {
        csvRows->fill(batch);
        for (int i = 0; i < batch.rows; ++i) {
            std::copy_n(batch.row(i), batch.columns, row.cells);
            rows.push_back(row.storeInBuffer(cells));
        }
    } while (batch.end == BatchEnd::More);
}

Data& data() {
    static Data rows;
    return rows;
}

/// Hands every row to `write`.
template <class Write>
void forEachRow(Write write) {
    OneRow row;
    row.setShape(data().columns);
    for (const uchar* const packed : data().rows) {
        row.initFromBuffer(packed, 0, -1);
        write(row.cells);
    }
}

void finishRows(benchmark::State& state, qint64 bytes) {
    state.SetItemsProcessed(state.iterations() * rowCount);
    state.counters["bytes/row"] = double(bytes) / rowCount;
}

void walk(benchmark::State& state) {
    for (auto _ : state)
        forEachRow([](const uchar* const* cells) { benchmark::DoNotOptimize(cells[8]); });
    finishRows(state, 0);
}

void writeCsv(benchmark::State& state) {
    qint64 bytes = 0;
    for (auto _ : state) {
        CsvFormatter formatter{CsvLayout()};
        formatter.setColumns(data().columns);
        bytes = 0;
        forEachRow([&](const uchar* const* cells) {
            formatter.writeRow(cells);
            if (formatter.size() > 256 << 10) {
                bytes += formatter.size();
                formatter.clear();
            }
        });
    }
    finishRows(state, bytes);
}

void writeGel(benchmark::State& state) {
    qint64 bytes = 0;
    for (auto _ : state) {
        QFile file(data().gel);
        file.open(QIODevice::WriteOnly | QIODevice::Unbuffered);
        gel::GelWriter writer;
        const auto flush = [&] {
            file.write(writer.bytes(), writer.size());
            writer.clear();
        };
        writer.start(data().columns);
        forEachRow([&](const uchar* const* cells) {
            writer.add(cells);
            if (writer.size() > 256 << 10)
                flush();
        });
        writer.finish();
        flush();
        bytes = file.size();
    }
    finishRows(state, bytes);
}

void readCsv(benchmark::State& state) {
    for (auto _ : state) {
        const auto parser = data().parser();
        RowBatch batch;
        do {
            parser->fill(batch);
            for (int i = 0; i < batch.rows; ++i)
                benchmark::DoNotOptimize(batch.row(i)[8]);
        } while (batch.end == BatchEnd::More);
    }
    finishRows(state, qint64(data().csv.size()));
}

/// Behind writeGel, which leaves the file.
void readGel(benchmark::State& state) {
    for (auto _ : state) {
        gel::GelReader reader;
        reader.open(data().gel, false, false);
        const uchar* cells[std::size(types)];
        while (reader.nextRow(cells))
            benchmark::DoNotOptimize(cells[8]);
    }
    finishRows(state, QFile(data().gel).size());
}

BENCHMARK(walk)->Unit(benchmark::kMillisecond);
BENCHMARK(writeCsv)->Unit(benchmark::kMillisecond);
BENCHMARK(writeGel)->Unit(benchmark::kMillisecond);
BENCHMARK(readCsv)->Unit(benchmark::kMillisecond);
BENCHMARK(readGel)->Unit(benchmark::kMillisecond);

} // namespace

BENCHMARK_MAIN();

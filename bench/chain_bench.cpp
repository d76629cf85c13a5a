/// What a box costs that hands rows on as they are: chains of pass-through boxes over rows of nine
/// columns, from an in-memory source into a null sink. The cost of a box is the difference between
/// chains, divided by rows and boxes; `copy` is the floor, the bare copy of nine pointers.
#include "bench/bench_source.h"
#include "engine/run.h"

#include <benchmark/benchmark.h>

namespace {

using namespace velmorra;

constexpr qint64 rowsPerRun = 1'000'000;
constexpr int columns = 9;

/// Hands on rows of nine text cells, a thousand different ones in turn.
class RowSource : public BenchSource {
public:
    explicit RowSource(GlobalParameters* parameters) : BenchSource(parameters) {
        for (int i = 0; i < 1000 * columns; ++i)
            cells_.push_back(bytesFromQString(bytes_, QStringLiteral("cell %1").arg(i)));
    }

    void rewindRun() override {
        given_ = 0;
        setStep<&RowSource::giveRow>();
    }

private:
    bool giveRow() {
        if (given_ == rowsPerRun)
            return true;
        OneRow& row = *getOutputRowForOutputPin(0);
        if (row.isFresh()) {
            row.setNumberOfColumns(columns);
            for (int i = 0; i < columns; ++i)
                row.setColName(i, QStringLiteral("c%1").arg(i));
        }
        std::memcpy(row.cells, &cells_[size_t(given_++ % 1000) * columns],
                    columns * sizeof *row.cells);
        setRowReadyForOutput(0);
        return false;
    }

    RowBuffer bytes_;
    std::vector<const uchar*> cells_;
    qint64 given_ = 0;
};

class NoMessages : public MessageSink {
public:
    void take(const Message&) override {}
};

const char* const selectAll = "<SelectColumns keep='1'><s>c0</s><s>c1</s><s>c2</s><s>c3</s>"
                              "<s>c4</s><s>c5</s><s>c6</s><s>c7</s><s>c8</s></SelectColumns>";
const char* const renameOne = "<ColumnRename mode='1'><before><s>c0</s></before>"
                              "<after><s>c0</s></after></ColumnRename>";

void chain(benchmark::State& state, const char* element) {
    ActionCatalog catalog;
    const QString error = catalog.load();
    if (!error.isEmpty()) {
        state.SkipWithError(qPrintable(error));
        return;
    }
    Graph graph;
    int last = graph.addBox(std::make_unique<RowSource>(&graph.parameters));
    const XMLNode node = XMLNode::parse(element).root;
    for (int64_t i = 0; i < state.range(0); ++i) {
        const int next = graph.addBox(catalog.create(node, &graph.parameters));
        graph.addLink({last, 0, next, 0});
        last = next;
    }
    NoMessages messages;
    for (auto round : state) {
        Run run(graph, messages);
        if (run.execute() != RunOutcome::Done)
            state.SkipWithError("the run failed");
    }
    state.SetItemsProcessed(state.iterations() * rowsPerRun);
}

void copyOfNinePointers(benchmark::State& state) {
    std::vector<const uchar*> from(columns);
    std::vector<const uchar*> to(columns);
    for (auto round : state) {
        for (qint64 row = 0; row < rowsPerRun; ++row) {
            std::memcpy(to.data(), from.data(), columns * sizeof(const uchar*));
            benchmark::ClobberMemory();
        }
    }
    state.SetItemsProcessed(state.iterations() * rowsPerRun);
}

BENCHMARK(copyOfNinePointers)->Name("copy")->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(chain, SelectColumns, selectAll)
    ->Arg(0)
    ->Arg(1)
    ->Arg(4)
    ->Arg(16)
    ->MeasureProcessCPUTime()
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(chain, ColumnRename, renameOne)
    ->Arg(0)
    ->Arg(1)
    ->Arg(4)
    ->Arg(16)
    ->MeasureProcessCPUTime()
    ->Unit(benchmark::kMillisecond);

} // namespace

BENCHMARK_MAIN();

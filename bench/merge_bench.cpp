/// Join of two sorted tables in memory, a million rows each, into a null sink; `floor` is the two
/// tables alone. A's keys are 0, 2, 4, ..., those of B 0, 3, 6, ... or, for the mode that joins all
/// rows of a key, each three times. An item is a row of A with one of B. The key is a number, a
/// text sorted by text, or a text sorted by number.
#include "bench/bench_source.h"
#include "engine/catalog.h"
#include "engine/graph.h"
#include "engine/run.h"

#include <benchmark/benchmark.h>

namespace {

using namespace velmorra;

constexpr qint64 rowsPerTable = 1'000'000;

enum KeyKind { NumberKey, TextKey, NumberInText };

/// Hands on rows of a key, a text of twelve characters and a number, whose cells are made before
/// the run.
class SortedSource : public BenchSource {
public:
    SortedSource(KeyKind kind, int step, int repeats, GlobalParameters* parameters)
        : BenchSource(parameters) {
        const qint32 keyType = kind == NumberKey ? MetaTypeKey : MetaTypeText;
        shape_.names = {QStringLiteral("k"), QStringLiteral("t"), QStringLiteral("x")};
        shape_.types = {MetaInfo(keyType, -1), MetaInfo(MetaTypeText, -1),
                        MetaInfo(MetaTypeFloat, -1)};
        shape_.sort = {{0, kind == TextKey ? SortTextRising : SortNumberRising}};
        keyBytes_ = kind == NumberKey ? 4 : textBytes;
        cells_.resize(static_cast<size_t>(rowsPerTable * (keyBytes_ + textBytes + 8)));
        uchar* place = cells_.data();
        for (qint64 row = 0; row < rowsPerTable; ++row) {
            const qint64 key = row / repeats * step;
            if (kind == NumberKey)
                cell::storeKey(place, static_cast<quint32>(key));
            else
                writeNumber(place, key);
            place += keyBytes_;
            writeNumber(place, row);
            cell::storeFloat(place + textBytes, double(row) / 4);
            place += textBytes + 8;
        }
    }
    void rewindRun() override {
        next_ = cells_.data();
        setStep<&SortedSource::giveRow>();
    }

private:
    static constexpr qint64 textBytes = 1 + 2 * 12;

    static void writeNumber(uchar* cell, qint64 number) {
        const QString text = QStringLiteral("%1").arg(number, 12, 10, QLatin1Char('0'));
        cell::writeText(cell, text.constData(), 12);
    }

    bool giveRow() {
        if (next_ == cells_.data() + cells_.size())
            return true;
        OneRow& row = *getOutputRowForOutputPin(0);
        if (row.isFresh())
            row.setShape(shape_);
        row.cells[0] = next_;
        row.cells[1] = next_ + keyBytes_;
        row.cells[2] = next_ + keyBytes_ + textBytes;
        next_ += keyBytes_ + textBytes + 8;
        setRowReadyForOutput(0);
        return false;
    }

    PinOutMetaData shape_;
    qint64 keyBytes_;
    std::vector<uchar> cells_;
    const uchar* next_ = nullptr;
};

void join(benchmark::State& state, int mode, KeyKind kind) {
    ActionCatalog catalog;
    const QString error = catalog.load();
    if (!error.isEmpty()) {
        state.SkipWithError(qPrintable(error));
        return;
    }
    Graph graph;
    const bool hasGroups = mode >= 6;
    const int a = graph.addBox(std::make_unique<SortedSource>(kind, 2, 1, &graph.parameters));
    const int b = graph.addBox(std::make_unique<SortedSource>(
        kind, hasGroups ? 9 : 3, hasGroups ? 3 : 1, &graph.parameters));
    if (mode >= 0) {
        const QByteArray element =
            "<Join joinMode='" + QByteArray::number(mode) +
            "' keyA='k'><SlaveKeys><s>k</s></SlaveKeys><Prefixes><s/><s>b_</s></Prefixes></Join>";
        const int box =
            graph.addBox(catalog.create(XMLNode::parse(element).root, &graph.parameters));
        graph.addLink({a, 0, box, 0});
        graph.addLink({b, 0, box, 1});
    }
    class : public MessageSink {
        void take(const Message&) override {}
    } messages;
    for (auto round : state) {
        Run each(graph, messages);
        if (each.execute() != RunOutcome::Done)
            state.SkipWithError("the run failed");
    }
    state.SetItemsProcessed(state.iterations() * rowsPerTable);
}

const bool added = [] {
    const std::pair<const char*, int> modes[] = {
        {"floor", -1}, {"left", 0}, {"inner", 1}, {"full", 2}, {"left_all", 6}};
    const std::pair<const char*, KeyKind> kinds[] = {
        {"number", NumberKey}, {"text", TextKey}, {"number_in_text", NumberInText}};
    for (const auto& [kindName, kind] : kinds) {
        for (const auto& [modeName, mode] : modes) {
            const std::string name = std::string(kindName) + '/' + modeName;
            benchmark::RegisterBenchmark(name.c_str(), join, mode, kind)
                ->Unit(benchmark::kMillisecond)
                ->MeasureProcessCPUTime();
        }
    }
    return true;
}();

} // namespace

BENCHMARK_MAIN();

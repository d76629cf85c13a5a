/// What table shaping costs in memory: a million input rows from an in-memory source, through one
/// Action into a null sink. `floor` is the source alone. The rows hold a key (a value for 20 rows),
/// a category (20 of them in turn), a number, and a text of six words; for Unflatten 20 columns of
/// numbers.
#include "bench/bench_source.h"
#include "engine/run.h"

#include <benchmark/benchmark.h>

namespace {

using namespace velmorra;

constexpr qint64 rowsPerRun = 1'000'000;
constexpr int categories = 20;

/// Hands on rows of one shape, whose cells are made before the run.
class RowSource : public BenchSource {
public:
    enum Kind { Long, Wide, Categories };

    RowSource(Kind kind, qint64 rows, GlobalParameters* parameters)
        : BenchSource(parameters),
          kind_(kind),
          rows_(rows) {
        if (kind == Long) {
            names_ = QStringList{"key", "category", "value", "text"};
            types_ = {MetaTypeKey, MetaTypeText, MetaTypeFloat, MetaTypeText};
        } else if (kind == Categories) {
            names_ = QStringList{"name"};
            types_ = {MetaTypeText};
        } else {
            for (int i = 0; i < categories; ++i)
                names_ += category(i);
            types_ = QVector<qint32>(categories, MetaTypeFloat);
        }
        makeCells();
    }

    static QString category(int number) { return QStringLiteral("category %1").arg(number); }

    void rewindRun() override {
        given_ = 0;
        setStep<&RowSource::giveRow>();
    }

private:
    static constexpr qint64 madeRows = 1000;

    const uchar* cellOf(int column, qint64 row) {
        if (types_[column] == MetaTypeFloat) {
            uchar* const cell = bytes_.alloc(sizeof(double));
            cell::storeFloat(cell, double(row % 97) / 4);
            return cell;
        }
        if (types_[column] == MetaTypeKey) {
            uchar* const cell = bytes_.alloc(sizeof(quint32));
            cell::storeKey(cell, static_cast<quint32>(row / categories));
            return cell;
        }
        const bool isText = kind_ == Long && column == 3;
        return bytesFromQString(bytes_, isText ? sentence(row)
                                               : category(static_cast<int>(row % categories)));
    }

    /// Six words of other lengths in each row.
    static QString sentence(qint64 row) {
        static const QStringList words = {"a",      "to",      "owl",      "dark", "river",
                                          "window", "cottage", "mountain", "blue"};
        QStringList chosen;
        for (auto some = static_cast<quint32>(row + 1) * 0x9E3779B1u; chosen.size() < 6; some /= 9)
            chosen += words[some % 9];
        return chosen.join(QLatin1Char(' '));
    }

    void makeCells() {
        for (qint64 row = 0; row < std::min(madeRows, rows_); ++row) {
            for (int column = 0; column < names_.size(); ++column)
                cells_.push_back(cellOf(column, row));
        }
    }

    bool giveRow() {
        if (given_ == rows_)
            return true;
        OneRow& row = *getOutputRowForOutputPin(0);
        const auto columns = static_cast<size_t>(names_.size());
        if (row.isFresh()) {
            row.setNumberOfColumns(static_cast<int>(columns));
            for (int i = 0; i < row.sz(); ++i) {
                row.setColName(i, names_[i]);
                row.setMetaType(i, MetaInfo(types_[i], -1));
            }
        }
        std::memcpy(row.cells, &cells_[size_t(given_++ % madeRows) * columns],
                    columns * sizeof *row.cells);
        setRowReadyForOutput(0);
        return false;
    }

    Kind kind_;
    qint64 rows_;
    QStringList names_;
    QVector<qint32> types_;
    RowBuffer bytes_;
    std::vector<const uchar*> cells_;
    qint64 given_ = 0;
};

class NoMessages : public MessageSink {
public:
    void take(const Message&) override {}
};

using Sources = std::vector<std::pair<RowSource::Kind, qint64>>;

const Sources oneLong = {{RowSource::Long, rowsPerRun}};
const Sources threeLong(3, {RowSource::Long, rowsPerRun / 3});
const Sources oneWide = {{RowSource::Wide, rowsPerRun}};
const Sources longAndCategories = {{RowSource::Long, rowsPerRun},
                                   {RowSource::Categories, categories}};

QByteArray setsElement() {
    QByteArray text = "<Unflatten setColumnName='category' newNames='value'><sets>";
    for (int i = 0; i < categories; ++i) {
        const QByteArray name = RowSource::category(i).toUtf8();
        text += "<set name='" + name + "'><s>" + name + "</s></set>";
    }
    return text + "</sets></Unflatten>";
}

void shape(benchmark::State& state, const Sources& sources, const QByteArray& element) {
    ActionCatalog catalog;
    const QString error = catalog.load();
    if (!error.isEmpty()) {
        state.SkipWithError(qPrintable(error));
        return;
    }
    Graph graph;
    std::vector<int> places;
    for (const auto& [kind, rows] : sources)
        places.push_back(graph.addBox(std::make_unique<RowSource>(kind, rows, &graph.parameters)));
    if (!element.isEmpty()) {
        const int box =
            graph.addBox(catalog.create(XMLNode::parse(element).root, &graph.parameters));
        for (size_t pin = 0; pin < places.size(); ++pin)
            graph.addLink({places[pin], 0, box, static_cast<int>(pin)});
    }
    NoMessages messages;
    for (auto round : state) {
        Run run(graph, messages);
        if (run.execute() != RunOutcome::Done)
            state.SkipWithError("the run failed");
    }
    state.SetItemsProcessed(state.iterations() * rowsPerRun);
}

void measured(const char* name, const Sources& sources, const QByteArray& element) {
    benchmark::RegisterBenchmark(name, shape, sources, element)
        ->MeasureProcessCPUTime()
        ->Unit(benchmark::kMillisecond);
}

} // namespace

int main(int argc, char** argv) {
    measured("floor", oneLong, {});
    measured("floor of 20 columns", oneWide, {});
    measured("Append by name", threeLong, "<Append output='0' nPinIn='3'/>");
    measured("Append by place", threeLong, "<Append output='4' nPinIn='3'/>");
    measured("InsertKey", oneLong, "<InsertKey><c name='a' value='b'/></InsertKey>");
    measured("Split", oneLong, "<Split><s>text</s></Split>");
    measured("Flatten", longAndCategories,
             "<Flatten key='key' category='category' checkSort='0'><ToTranspose><s>value</s>"
             "</ToTranspose></Flatten>");
    measured("Unflatten", oneWide, setsElement());
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
}

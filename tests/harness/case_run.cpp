#include "tests/harness/case_run.h"

#include "engine/element_text.h"
#include "engine/row_deal.h"
#include "host/main_ui.h"
#include "tests/harness/typed_table.h"

#include <QtCore/QFileInfo>

#include <algorithm>

namespace velmorra::harness {

namespace {

SourceHabits habitsOf(Circumstance circumstance) {
    SourceHabits habits;
    habits.oddAddresses = circumstance == Circumstance::OddAddresses;
    habits.late = circumstance == Circumstance::LatePins;
    return habits;
}

RunOptions optionsOf(Circumstance circumstance) {
    RunOptions options;
    if (circumstance == Circumstance::TinySpools) {
        options.spoolEveryWire = true;
        options.spoolBlock = 64;
        options.spoolMemory = 0;
        options.sortMemory = 1;
    }
    return options;
}

void setParameters(const Case& run, GlobalParameters& parameters) {
    for (const auto& [name, value] : run.parameters)
        parameters.set(name, value);
    parameters.setGraphFolder(QFileInfo(run.file).absolutePath());
}

/// Messages of settings that aren't known are the matter of those who write an element by hand; in
/// XML a case may have them, to show what becomes of them.
bool isFatal(const ElementProblem& problem, const QString& element) {
    return problem.kind != ElementProblem::Kind::Setting || !element.startsWith(QLatin1Char('<'));
}

/// Asks for the columns of the expected pins, with the messages held back.
void askColumns(const CaseGraph& built, CaseResult& result) {
    test::HeldLog heldBack;
    for (const auto& [place, sink] : built.sinks) {
        const PinColumns columns = columnsOfPin(
            built.graph, built.elements[static_cast<size_t>(place.element)], place.pin);
        if (columns.error.isEmpty())
            result.columns[place] = typedHeader(columns.shape);
    }
}

void runGraph(CaseGraph& built, CollectedLog& log, Circumstance circumstance, CaseResult& result) {
    if (circumstance == Circumstance::ColumnsFirst)
        askColumns(built, result);
    const QStringList ofConstructors = log.master;
    for (int runs = circumstance == Circumstance::TwoRuns ? 2 : 1; runs > 0; --runs) {
        log.master = ofConstructors;
        Run graphRun(built.graph, log, optionsOf(circumstance));
        result.outcome = graphRun.execute();
    }
}

/// Whether no value of the column comes back behind another one. If one does, an Action that goes
/// by runs of equal values may give other rows when workers share the table.
bool standsTogether(const PackedTable& table, int column) {
    OneRow row;
    row.setShape(table.shape);
    QVector<QString> seen;
    for (size_t place = 0; place < table.rows(); ++place) {
        table.read(place, row);
        const QString value = detach(row.colForHash(column));
        const auto isValue = [&](const QString& other) { return isSameValue(other, value); };
        if (!seen.isEmpty() && isValue(seen.back()))
            continue;
        if (std::any_of(seen.begin(), seen.end(), isValue))
            return false;
        seen.push_back(value);
    }
    return true;
}

CaseResult runParallel(const Case& run, const ActionCatalog& catalog, int copies) {
    CaseResult result;
    test::HeldLog log;
    GlobalParameters parameters;
    setParameters(run, parameters);
    const auto elements = makeElements(run, catalog, parameters, result.problem);
    if (!result.problem.isEmpty())
        return result;
    ActionItem& master = *elements.front();
    std::vector<const PackedTable*> inputs(static_cast<size_t>(master.nPinIn));
    for (const auto& [place, table] : run.inputs) {
        if (place.pin < master.nPinIn)
            inputs[static_cast<size_t>(place.pin)] = table.get();
    }
    ParallelResult parallel = runParallelSection(
        master, inputs, log, {copies, parallelPartition(run, catalog).value_or(QString()), 2});
    result.problem = parallel.defect;
    result.outcome = parallel.outcome;
    result.log = log.master;
    result.copiesLog = log.copies;
    for (size_t pin = 0; pin < parallel.outputs.size(); ++pin)
        result.outputs[{0, static_cast<int>(pin)}] = std::move(parallel.outputs[pin]);
    return result;
}

} // namespace

const char* nameOf(Circumstance circumstance) {
    static constexpr const char* names[] = {"plain",     "odd_addresses", "tiny_spools",
                                            "late_pins", "two_runs",      "columns_first",
                                            "one_copy",  "two_copies",    "three_copies"};
    return names[static_cast<int>(circumstance)];
}

int copiesOf(Circumstance circumstance) {
    if (circumstance < Circumstance::OneCopy)
        return 0;
    return static_cast<int>(circumstance) - static_cast<int>(Circumstance::OneCopy) + 1;
}

std::vector<std::unique_ptr<ActionItem>> makeElements(const Case& run, const ActionCatalog& catalog,
                                                      GlobalParameters& parameters,
                                                      QString& problem) {
    std::vector<std::unique_ptr<ActionItem>> made;
    for (const QString& text : run.elements) {
        const ElementList read = parseElements({text}, catalog);
        for (const ElementProblem& each : read.problems) {
            if (isFatal(each, text))
                problem = each.text;
        }
        if (problem.isEmpty() && read.elements.size() != 1)
            problem = QStringLiteral("%1 elements in one section").arg(read.elements.size());
        if (!problem.isEmpty())
            break;
        made.push_back(catalog.create(read.elements.front(), &parameters));
        if (made.back() == nullptr)
            problem = catalog.unknownActionText(QString::fromUtf8(read.elements.front().name()));
    }
    return made;
}

void buildGraph(CaseGraph& built, const Case& run, const ActionCatalog& catalog,
                SourceHabits habits, bool allPins) {
    Graph& graph = built.graph;
    setParameters(run, graph.parameters);
    auto elements = makeElements(run, catalog, graph.parameters, built.problem);
    if (!built.problem.isEmpty())
        return;
    const int last = run.lastElement();
    const int pinsOut = elements.back()->nPinOut;
    for (auto& element : elements)
        built.elements.push_back(graph.addBox(std::move(element)));
    for (int i = 0; i < last; ++i)
        graph.addLink({built.elements[static_cast<size_t>(i)], 0,
                       built.elements[static_cast<size_t>(i) + 1], 0});
    for (const auto& [place, table] : run.inputs) {
        const int source =
            graph.addBox(std::make_unique<TableSource>(table, habits, &graph.parameters));
        graph.addLink({source, 0, built.elements[static_cast<size_t>(place.element)], place.pin});
    }
    const auto addSink = [&](const Place& place, bool asksColumns = true) {
        auto sink = std::make_unique<TableSink>(&graph.parameters);
        sink->asksColumns = asksColumns;
        if (!built.sinks.try_emplace(place, sink.get()).second)
            return;
        const int box = graph.addBox(std::move(sink));
        graph.addLink({built.elements[static_cast<size_t>(place.element)], place.pin, box, 0});
    };
    for (const auto& [place, expected] : run.columns)
        addSink(place);
    for (const auto& [place, expected] : run.outputs)
        addSink(place, !expected.nothing);
    for (int pin = 0; allPins && pin < pinsOut; ++pin)
        addSink({last, pin});
    for (const GraphProblem& problem : graph.checkWiring())
        built.problem = problem.text;
}

CaseResult runCase(const Case& run, const ActionCatalog& catalog, Circumstance circumstance,
                   bool allPins) {
    if (copiesOf(circumstance) > 0)
        return runParallel(run, catalog, copiesOf(circumstance));
    CaseResult result;
    test::HeldLog log;
    CaseGraph built;
    buildGraph(built, run, catalog, habitsOf(circumstance), allPins);
    result.problem = built.problem;
    if (!result.problem.isEmpty())
        return result;
    runGraph(built, log, circumstance, result);
    result.log = log.master;
    if (run.files != nullptr)
        result.log.replaceInStrings(run.files->path(), QStringLiteral("${files}"));
    for (const auto& [place, sink] : built.sinks) {
        if (!sink->defect().isEmpty())
            result.problem = sink->defect();
        result.outputs[place] = sink->takeTable();
    }
    return result;
}

bool answersParallel(const Case& run, const ActionCatalog& catalog,
                     const QString& partitionColumn) {
    test::HeldLog heldBack;
    GlobalParameters parameters;
    setParameters(run, parameters);
    QString problem;
    const auto elements = makeElements(run, catalog, parameters, problem);
    bool answer = false;
    if (problem.isEmpty())
        elements.front()->canRunInParallel(partitionColumn, &answer);
    return answer;
}

std::optional<QString> parallelPartition(const Case& run, const ActionCatalog& catalog) {
    const auto main = run.inputs.find({0, 0});
    if (run.elements.size() != 1 || main == run.inputs.end() || main->second->rows() == 0)
        return {};
    if (answersParallel(run, catalog, {}))
        return QString();
    const QVector<QString>& names = main->second->shape.names;
    for (int column = 0; column < names.size(); ++column) {
        const bool usable = !names[column].isEmpty() && names.indexOf(names[column]) == column &&
                            standsTogether(*main->second, column);
        if (usable && answersParallel(run, catalog, names[column]))
            return names[column];
    }
    return {};
}

QString savedText(const Case& run, const ActionCatalog& catalog) {
    test::HeldLog heldBack;
    GlobalParameters parameters;
    setParameters(run, parameters);
    QString problem;
    const auto elements = makeElements(run, catalog, parameters, problem);
    if (!problem.isEmpty())
        return problem;
    XMLStream stream;
    elements.front()->saveToXML(stream, QString());
    return QString::fromStdU16String(stream.str());
}

} // namespace velmorra::harness

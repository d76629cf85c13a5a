// The words become a graph: a box for each element, and one for each table read or written.
#include "apply_command.h"

#include "run_monitor.h"

#include "engine/element_text.h"
#include "host/main_ui.h"

#include <CLI/CLI.hpp>

#include <limits>

#include <unistd.h>

namespace {

const char* const help = R"(An ELEMENT is an Action with its attributes, in one of three forms:
  SelectColumns keep=1 columns=id,name                  words of their own
  'SelectColumns keep=1 columns=id,name'                one word, split at blanks
  "<SelectColumns keep='1'><s>id</s></SelectColumns>"   XML, as in a graph file

Several elements make a chain: output pin 0 of each feeds input pin 0 of the next.
In one word, a value with blanks stands in single or double quotes. In words of their
own a value is taken as it stands. Lists are given as a,b,c with CSV quoting: "a,b" in
double quotes is one entry, "" the empty text. `velmorra action NAME` tells what an
Action takes.

N is the element's place from 1; without it --in means the first element, --out the
last one. FILE alone means pin 0, and - a standard stream, which is the default for
pin 0. A file name that holds = is given with its pin.

Examples:
  velmorra apply SelectColumns columns=id,name --in people.csv --out names.csv
  velmorra apply Accumulator colAcc=price --types price:F < prices.csv > sums.csv
  velmorra apply SelectColumns keep=0 columns=note ColumnRename before=id after=key \
      --in people.csv --in 2.1=renames.csv --out people2.csv
  velmorra apply 'Accumulator colAcc=x outColName="running sum"' --typed --limit 10 \
      --in table.csv)";

} // namespace

void ApplyCommand::declare(CLI::App& app) {
    app.add_option("ELEMENT", elementWords_, "Actions with their attributes, see below")
        ->type_name("")
        ->expected(0, std::numeric_limits<int>::max());
    addValues(app, "--in", inWords_, "[[N.]PIN=]FILE", "the table of an input pin");
    addValues(app, "--out", outWords_, "[[N.]PIN=]FILE", "where an output pin's table goes");
    app.add_flag("--typed", tables_.typed, "header cells carry types: name:K, name:U:A1");
    addValues(app, "--types", typesWords_, "[[N.]PIN=]TYPES",
              "column types of an input: id:K,x:F or auto");
    addValues(app, "--sorted", sortedWords_, "[[N.]PIN=]ORDER",
              "order of an input, checked as it is read: id:0,day:A");
    addValue(app, "--limit", limitWord_, "N", "write at most N rows of each output");
    settings_.declare(app);
    app.footer(help);
}

QString ApplyCommand::readWords() {
    if (elementWords_.empty())
        return QStringLiteral("apply needs an ELEMENT, such as SelectColumns columns=id,name");
    tables_.in = textsOf(inWords_);
    tables_.out = textsOf(outWords_);
    tables_.types = textsOf(typesWords_);
    tables_.sorted = textsOf(sortedWords_);
    if (!limitWord_.empty()) {
        tables_.limit = numberBetween(textOf(limitWord_), 0, std::numeric_limits<qint64>::max());
        if (!tables_.limit)
            return QLatin1String("--limit takes a number of rows, not '") + textOf(limitWord_) +
                   QLatin1Char('\'');
    }
    return settings_.read();
}

ExitStatus ApplyCommand::makeElements(velmorra::Graph& graph,
                                      const velmorra::ActionCatalog& catalog,
                                      MessageLog& log) const {
    using Kind = velmorra::ElementProblem::Kind;
    const velmorra::ElementList list = velmorra::parseElements(textsOf(elementWords_), catalog);
    for (const velmorra::ElementProblem& problem : list.problems) {
        if (problem.kind == Kind::Words)
            return wrongUsage(problem.text);
    }
    for (const velmorra::ElementProblem& problem : list.problems)
        log.take({1, problem.text, {}, {}});
    if (!list.problems.isEmpty())
        return ExitStatus::NotLoadable;
    if (list.elements.size() > velmorra::Graph::maxBoxes)
        return wrongUsage(QStringLiteral("too many elements: at most %1 can be chained")
                              .arg(velmorra::Graph::maxBoxes));
    for (const XMLNode& element : list.elements) {
        auto box = catalog.create(element, &graph.parameters);
        box->boxId = QString::number(graph.boxes().size() + 1);
        graph.addBox(std::move(box));
    }
    return ExitStatus::Done;
}

ExitStatus ApplyCommand::execute() {
    if (const QString error = readWords(); !error.isNull())
        return wrongUsage(error);

    MessageLog log;
    log.setFormat(settings_.logFormat);
    const WindowlessMainUI ui(log);
    velmorra::ActionCatalog catalog;
    if (const QString error = catalog.load(); !error.isNull()) {
        log.take({1, error, {}, {}});
        return ExitStatus::NotLoadable;
    }
    velmorra::Graph graph;
    for (const auto& [name, value] : settings_.parameters)
        graph.parameters.set(name, value);
    if (const ExitStatus status = makeElements(graph, catalog, log); status != ExitStatus::Done)
        return status;
    const TablePlan plan = planTables(tables_, graph.boxes());
    if (!plan.error.isNull())
        return wrongUsage(plan.error);
    if (plan.readsStandardInput() && isatty(STDIN_FILENO) == 1)
        return wrongUsage(QStringLiteral("no input: give --in FILE or pipe a table in"));
    addTableBoxes(graph, plan, tables_);
    if (log.takeProblems(graph.checkWiring()))
        return ExitStatus::NotLoadable;
    return executeRun(graph, log, settings_);
}

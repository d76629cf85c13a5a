// Both are a graph of two boxes, one that reads and one that writes.
#include "convert_command.h"

#include "run_monitor.h"

#include "host/main_ui.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <limits>

namespace {

const char* const convertHelp =
    R"(A file whose name ends in .gel is a stored table, any other one is CSV; - is a standard
stream, as CSV. Names, types and the declared order go over: with --typed also between
CSV headers, in both directions. A stored table needs no option.

Examples:
  velmorra convert sales.csv sales.gel --types day:K,price:F --sorted day:0
  velmorra convert typed.csv typed.gel --typed
  velmorra convert sales.gel sales.csv --typed)";

const char* const catHelp = R"(Examples:
  velmorra cat sales.gel --limit 10
  velmorra cat sales.gel --typed > sales.csv)";

const QString standardStream = QStringLiteral("-");

/// The number of rows that was given, if any; false when it isn't one.
bool readLimit(const std::string& word, std::optional<qint64>* limit) {
    if (!word.empty())
        *limit = numberBetween(textOf(word), 0, std::numeric_limits<qint64>::max());
    return word.empty() || limit->has_value();
}

QString limitProblem(const std::string& word) {
    return QLatin1String("--limit takes a number of rows, not '") + textOf(word) +
           QLatin1Char('\'');
}

ExitStatus copyTable(const SourceTable& source, const TargetTable& target,
                     const RunSettings& settings) {
    MessageLog log;
    log.setFormat(settings.logFormat);
    const WindowlessMainUI ui(log);
    velmorra::Graph graph;
    for (const auto& [name, value] : settings.parameters)
        graph.parameters.set(name, value);
    const int from = addTableBox(graph, source, QStringLiteral("in"));
    const int to = addTableBox(graph, target, QStringLiteral("out"));
    graph.addLink({from, 0, to, 0});
    return executeRun(graph, log, settings);
}

} // namespace

void ConvertCommand::declare(CLI::App& app) {
    app.add_option("IN", in_, "the table to read")->type_name("");
    app.add_option("OUT", out_, "the table to write")->type_name("");
    app.add_flag("--typed", typed_, "CSV header cells carry types: name:K, name:U:A1");
    addValue(app, "--types", types_, "TYPES", "column types of a CSV file: id:K,x:F or auto");
    addValue(app, "--sorted", sorted_, "ORDER",
             "order of a CSV file, checked as it is read: id:0,day:A");
    addValue(app, "--limit", limitWord_, "N", "write at most N rows");
    settings_.declare(app);
    app.footer(convertHelp);
}

/// What is wrong with the words, or a null string.
QString ConvertCommand::readWords(SourceTable* source, TargetTable* target) {
    if (in_.empty() || out_.empty())
        return QStringLiteral("convert needs two files: IN and OUT");
    *source = {textOf(in_), textOf(types_), textOf(sorted_), typed_, false};
    *target = {textOf(out_), typed_, {}};
    if (!readLimit(limitWord_, &target->limit))
        return limitProblem(limitWord_);
    const QString problem = settingsProblem(*source);
    return problem.isNull() ? settings_.read() : problem;
}

ExitStatus ConvertCommand::execute() {
    SourceTable source;
    TargetTable target;
    if (const QString error = readWords(&source, &target); !error.isNull())
        return wrongUsage(error);
    return copyTable(source, target, settings_);
}

void CatCommand::declare(CLI::App& app) {
    app.add_option("FILE", file_, "the stored table")->type_name("");
    app.add_flag("--typed", typed_, "header cells carry types: name:K, name:U:A1");
    addValue(app, "--limit", limitWord_, "N", "print at most N rows");
    settings_.declare(app);
    app.footer(catHelp);
}

ExitStatus CatCommand::execute() {
    if (file_.empty())
        return wrongUsage(QStringLiteral("cat needs a FILE, the name of a stored table"));
    TargetTable target{standardStream, typed_, {}};
    if (!readLimit(limitWord_, &target.limit))
        return wrongUsage(limitProblem(limitWord_));
    if (const QString error = settings_.read(); !error.isNull())
        return wrongUsage(error);
    return copyTable({textOf(file_), {}, {}, false, true}, target, settings_);
}

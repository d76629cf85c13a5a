// Unknown attributes are warnings here: a graph written by a newer program still runs.
#include "run_command.h"

#include "graph_words.h"
#include "run_monitor.h"

#include "host/main_ui.h"

#include <CLI/CLI.hpp>

namespace {

const char* const help = R"(Examples:
  velmorra run prices.vgraph
  velmorra run prices.vgraph --set year=2024 --log json 2> prices.log

A leading :/ in a file name of the graph stands for the graph's folder, ${year} for
the parameter year. An output file appears whole when the run has succeeded; until
then, and after a failure, the earlier file stays as it was.)";

} // namespace

void RunCommand::declare(CLI::App& app) {
    app.add_option("GRAPH", graph_, "the graph file (.vgraph)")->type_name("");
    settings_.declare(app);
    app.footer(help);
}

ExitStatus RunCommand::execute() {
    if (graph_.empty())
        return wrongUsage(QStringLiteral("run needs a GRAPH, the name of a graph file"));
    if (const QString error = settings_.read(); !error.isNull())
        return wrongUsage(error);

    MessageLog log;
    log.setFormat(settings_.logFormat);
    const WindowlessMainUI ui(log);
    GraphFile file;
    if (const ExitStatus status = loadGraphFile(graph_, settings_, log, file);
        status != ExitStatus::Done)
        return status;
    return executeRun(*file.load.graph, log, settings_);
}

// CSV for a program, a table for a person.
#include "preview_command.h"

#include "graph_words.h"
#include "run_monitor.h"
#include "table_text.h"

#include "engine/preview.h"
#include "host/main_ui.h"

#include <CLI/CLI.hpp>

#include <limits>

#include <sys/ioctl.h>
#include <unistd.h>

namespace {

const char* const help =
    R"(BOX is a box's id or label, PIN one of its output pins, 0 where left out. What lies
upstream is run until there are enough rows; no other box runs, and no file is
written. On a terminal the rows are shown as a table, with a null as nothing and the
empty text as ""; elsewhere they are CSV.

Examples:
  velmorra preview graph.vgraph 1
  velmorra preview graph.vgraph 1:0 -n 3 --typed > rows.csv)";

int terminalWidth() {
    constexpr int usualWidth = 80;
    winsize size = {};
    return ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0 ? size.ws_col
                                                                           : usualWidth;
}

QString noOutputPin(const velmorra::Graph& graph, int box) {
    QString text = velmorra::boxTitle(*graph.boxes()[static_cast<size_t>(box)]) +
                   QLatin1String(" has no output pin");
    for (const velmorra::Link& link : graph.links()) {
        if (link.to == box)
            return text + QLatin1String("; its rows come from ") +
                   graph.boxes()[static_cast<size_t>(link.from)]->boxId + QLatin1Char(':') +
                   QString::number(link.out);
    }
    return text;
}

} // namespace

void PreviewCommand::declare(CLI::App& app) {
    app.add_option("GRAPH", graph_, "the graph file (.vgraph)")->type_name("");
    app.add_option("BOX[:PIN]", box_, "a box, and one of its output pins")->type_name("");
    addValue(app, "-n,--rows", rowsWord_, "N", "rows to show (20)");
    app.add_flag("--typed", typed_, "header cells carry types: name:K, name:U:A1");
    settings_.declare(app);
    app.footer(help);
}

QString PreviewCommand::readWords() {
    if (graph_.empty())
        return QStringLiteral("preview needs a GRAPH, the name of a graph file");
    if (box_.empty())
        return QStringLiteral("preview needs a BOX, the id or label of a box of the graph");
    if (!rowsWord_.empty()) {
        const auto rows = numberBetween(textOf(rowsWord_), 0, std::numeric_limits<qint64>::max());
        if (!rows)
            return QLatin1String("-n takes a number of rows, not '") + textOf(rowsWord_) +
                   QLatin1Char('\'');
        rows_ = *rows;
    }
    return settings_.read();
}

ExitStatus PreviewCommand::execute() {
    if (const QString error = readWords(); !error.isNull())
        return wrongUsage(error);
    MessageLog log;
    log.setFormat(settings_.logFormat);
    const WindowlessMainUI ui(log);
    GraphFile file;
    if (const ExitStatus status = loadGraphFile(graph_, settings_, log, file);
        status != ExitStatus::Done)
        return status;
    const velmorra::Graph& graph = *file.load.graph;
    const BoxWord asked = readBoxWord(textOf(box_), graph);
    if (!asked.error.isNull())
        return wrongUsage(asked.error);
    if (graph.boxes()[static_cast<size_t>(asked.box)]->nPinOut == 0)
        return wrongUsage(noOutputPin(graph, asked.box));

    velmorra::PreviewGraph preview(graph, asked.box, std::max(asked.pin, 0));
    if (!preview.error().isNull()) {
        log.take({1, preview.error(), {}, {}});
        return ExitStatus::RunFailed;
    }
    if (isatty(STDOUT_FILENO) != 1) {
        preview.writeRows(rows_, typed_);
        return executeRun(preview.graph(), log, settings_);
    }
    const velmorra::KeepRows& kept = preview.keepRows(rows_);
    const ExitStatus status = executeRun(preview.graph(), log, settings_);
    // Rows in front of a failure are worth seeing.
    const ExitStatus written = writeAnswer(tableText(kept.table(), terminalWidth(), typed_));
    return status == ExitStatus::Done ? written : status;
}

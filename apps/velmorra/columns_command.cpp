// Columns that can't be told leave their pin empty, with what the boxes say about it.
#include "columns_command.h"

#include "aligned_lines.h"
#include "graph_words.h"

#include "engine/graph_check.h"
#include "host/main_ui.h"

#include <CLI/CLI.hpp>

#include <QtCore/QJsonArray>
#include <QtCore/QJsonDocument>
#include <QtCore/QJsonObject>

#include <algorithm>

namespace {

const char* const help =
    R"(BOX is a box's id or label, PIN one of its output pins; without them, all pins of the
graph are told. Each column has its type, and its rank in the order of the rows where
there is one. Files are opened and their headers read; tables that decide on columns
are read whole. Exit status: 1 when the columns of a pin can't be told.

Examples:
  velmorra columns graph.vgraph
  velmorra columns graph.vgraph 1:0 --json)";

struct Pin {
    const ActionItem* box;
    int pin;
    const std::optional<PinOutMetaData>* columns;
};

QString typeName(const MetaInfo& type) {
    return type.type == MetaTypeKey     ? QStringLiteral("Key")
           : type.type == MetaTypeFloat ? QStringLiteral("Float")
                                        : QStringLiteral("text");
}

QString orderName(qint32 sortType) {
    switch (sortType) {
    case SortNumberRising:
        return QStringLiteral("by number, rising");
    case SortNumberFalling:
        return QStringLiteral("by number, falling");
    case SortTextRising:
        return QStringLiteral("by text, rising");
    case SortTextFalling:
        return QStringLiteral("by text, falling");
    default:
        return QStringLiteral("of the kind ") + QChar(sortType);
    }
}

QString sortText(const PinOutMetaData& shape, qsizetype column) {
    for (qsizetype rank = 0; rank < shape.sort.size(); ++rank) {
        if (shape.sort[rank].column == column)
            return QStringLiteral("order %1: ").arg(rank + 1) +
                   orderName(shape.sort[rank].SortType);
    }
    return {};
}

QByteArray textOf(const Pin& pin) {
    QByteArray text =
        velmorra::boxTitle(*pin.box).toUtf8() + ", pin " + QByteArray::number(pin.pin) + '\n';
    if (!*pin.columns)
        return text + "  unknown\n";
    const PinOutMetaData& shape = **pin.columns;
    QVector<QStringList> lines;
    for (qsizetype column = 0; column < shape.names.size(); ++column) {
        lines += QStringList{shape.names[column], typeName(shape.types[column])};
        if (const QString order = sortText(shape, column); !order.isEmpty())
            lines.back() += order;
    }
    return text + (lines.isEmpty() ? QByteArray("  no columns\n") : alignedLines(lines, 2));
}

QJsonObject jsonOf(const Pin& pin) {
    QJsonObject json{{"box", pin.box->boxId},
                     {"action", pin.box->actionName()},
                     {"label", pin.box->label},
                     {"pin", pin.pin}};
    if (!*pin.columns) {
        json.insert(QLatin1String("columns"), QJsonValue::Null);
        return json;
    }
    const PinOutMetaData& shape = **pin.columns;
    QJsonArray columns;
    for (qsizetype column = 0; column < shape.names.size(); ++column)
        columns += QJsonObject{{"name", shape.names[column]},
                               {"type", QString(QChar(shape.types[column].type))}};
    json.insert(QLatin1String("columns"), columns);
    QJsonArray sort;
    for (const SortInfos& entry : shape.sort)
        sort += QJsonObject{{"column", entry.column},
                            {"name", shape.names.value(entry.column)},
                            {"type", QString(QChar(entry.SortType))}};
    json.insert(QLatin1String("sort"), sort);
    return json;
}

QByteArray textAnswer(const QVector<Pin>& pins) {
    QByteArray text;
    for (const Pin& pin : pins)
        text += (text.isEmpty() ? "" : "\n") + textOf(pin);
    return text;
}

QByteArray jsonAnswer(const QVector<Pin>& pins) {
    QJsonArray array;
    for (const Pin& pin : pins)
        array += jsonOf(pin);
    return QJsonDocument(array).toJson();
}

QVector<Pin> pinsAsked(const velmorra::Graph& graph, const velmorra::GraphLook& look,
                       const BoxWord& asked) {
    QVector<Pin> pins;
    for (size_t box = 0; box < look.columns.size(); ++box) {
        if (asked.box >= 0 && asked.box != static_cast<int>(box))
            continue;
        for (size_t pin = 0; pin < look.columns[box].size(); ++pin) {
            if (asked.pin < 0 || asked.pin == static_cast<int>(pin))
                pins.push_back(
                    {graph.boxes()[box].get(), static_cast<int>(pin), &look.columns[box][pin]});
        }
    }
    return pins;
}

} // namespace

void ColumnsCommand::declare(CLI::App& app) {
    app.add_option("GRAPH", graph_, "the graph file (.vgraph)")->type_name("");
    app.add_option("BOX[:PIN]", box_, "a box, and one of its output pins")->type_name("");
    settings_.declare(app);
    app.add_flag("--json", json_, "as JSON");
    app.footer(help);
}

ExitStatus ColumnsCommand::execute() {
    if (graph_.empty())
        return wrongUsage(QStringLiteral("columns needs a GRAPH, the name of a graph file"));
    if (const QString error = settings_.read(); !error.isNull())
        return wrongUsage(error);
    MessageLog log;
    const WindowlessMainUI ui(log);
    GraphFile file;
    if (const ExitStatus status = loadGraphFile(graph_, settings_, log, file);
        status != ExitStatus::Done)
        return status;
    const velmorra::Graph& graph = *file.load.graph;
    BoxWord asked;
    if (!box_.empty())
        asked = readBoxWord(textOf(box_), graph);
    if (!asked.error.isNull())
        return wrongUsage(asked.error);
    const velmorra::GraphLook look = velmorra::lookAt(graph, {}, asked.box);
    log.setGraph(&graph);
    const QVector<Pin> pins = pinsAsked(graph, look, asked);
    const bool areAllTold = std::all_of(pins.begin(), pins.end(),
                                        [](const Pin& pin) { return pin.columns->has_value(); });
    for (const velmorra::BoxProblem& problem : look.problems) {
        const ActionItem& box = *graph.boxes()[static_cast<size_t>(problem.box)];
        if (!areAllTold)
            log.take({problem.level, problem.text, box.boxId, QString::fromUtf8(box.actionName())});
    }
    const ExitStatus written = writeAnswer(json_ ? jsonAnswer(pins) : textAnswer(pins));
    return areAllTold ? written : ExitStatus::RunFailed;
}

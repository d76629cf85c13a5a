#include "table_file.h"

#include "engine/boxes/read_csv.h"
#include "engine/boxes/read_gel.h"
#include "engine/boxes/write_csv.h"
#include "engine/boxes/write_gel.h"

using velmorra::Graph;

namespace {

template <class Box>
std::unique_ptr<Box> makeBox(Graph& graph, const QString& file, const QString& id) {
    auto box = std::make_unique<Box>(XMLNode::emptyNode(), &graph.parameters);
    box->file = file;
    box->boxId = id;
    return box;
}

} // namespace

bool isStoredTable(const QString& file) {
    return file.endsWith(QLatin1String(".gel"), Qt::CaseInsensitive);
}

QString settingsProblem(const SourceTable& table) {
    if (!isStoredTable(table.file) || (table.types.isEmpty() && table.sorted.isEmpty()))
        return {};
    return QLatin1String(table.types.isEmpty() ? "--sorted" : "--types") +
           QLatin1String(" is for CSV: '") + table.file +
           QLatin1String("' is a stored table, which has its types and its order");
}

int addTableBox(Graph& graph, const SourceTable& table, const QString& id) {
    if (table.stored || isStoredTable(table.file))
        return graph.addBox(makeBox<velmorra::ReadGel>(graph, table.file, id));
    auto box = makeBox<velmorra::ReadCsv>(graph, table.file, id);
    box->types = table.types;
    box->sorted = table.sorted;
    box->typed = table.typed;
    return graph.addBox(std::move(box));
}

int addTableBox(Graph& graph, const TargetTable& table, const QString& id) {
    const qint64 limit = table.limit.value_or(-1);
    if (isStoredTable(table.file)) {
        auto box = makeBox<velmorra::WriteGel>(graph, table.file, id);
        box->limit = limit;
        return graph.addBox(std::move(box));
    }
    auto box = makeBox<velmorra::WriteCsv>(graph, table.file, id);
    box->typed = table.typed;
    box->limit = limit;
    return graph.addBox(std::move(box));
}

/// Graph files (.vgraph): XML with the parameters, the boxes and the links of a graph.
///
///     <VelmorraGraph version='4.2'>
///       <Parameters><p name='year' value='2024'/></Parameters>
///       <Actions>
///         <ReadCsv id='1' file=':/airports.csv'/>
///         <SelectColumns id='2' keep='1'><s>iata</s><s>city</s></SelectColumns>
///       </Actions>
///       <Links><l from='1' out='0' to='2' in='0'/></Links>
///     </VelmorraGraph>
///
/// `from` and `to` are ids of boxes, `out` and `in` pins, 0 where left out. A missing version
/// counts as the current one.
#pragma once

#include "engine/graph.h"

namespace velmorra {

/// Problems of reading a graph; it may be run when none of them is an error.
struct GraphLoad {
    std::unique_ptr<Graph> graph; ///< null when the file can't be read as a graph
    QVector<GraphProblem> problems;

    /// Input pins whose link comes from a box that isn't there or couldn't be made.
    QVector<InputPlace> cutPins;

    bool isRunnable() const;
};

/// Reads the graph file at `path`; its folder becomes the graph's folder. `overrides` are
/// parameters that win over those of the file. Wiring is checked too.
GraphLoad loadGraph(const QString& path, const ActionCatalog& catalog,
                    const QVector<std::pair<QString, QString>>& overrides = {});

/// The same for a text; `folder` is the graph's folder.
GraphLoad parseGraph(const QByteArray& text, const QString& folder, const ActionCatalog& catalog,
                     const QVector<std::pair<QString, QString>>& overrides = {});

/// The graph as the text of a graph file. An error text where a setting holds a character that XML
/// can't hold.
struct GraphText {
    QString text;
    QString error;
};
GraphText graphText(const Graph& graph);

} // namespace velmorra

/// Looking at a graph before it runs: the columns of every pin, and what would go wrong.
///
/// Boxes are asked in the order in which rows flow. Each gets one row of nulls on every connected
/// input pin, under the columns that the box in front of it has just told, and runs in columns-only
/// mode; pins whose whole table decides on the columns get that table. So files are opened, their
/// headers and first rows read, and no output is touched. What hangs on a box whose columns aren't
/// known is asked about its settings alone, and nothing is said of its columns.
#pragma once

#include "engine/graph.h"

#include <optional>

namespace velmorra {

/// A problem that a box would have when the graph runs.
struct BoxProblem {
    int level = 1; ///< 1 fatal error, 2 warning
    int box = -1;  ///< place in the graph
    int pin = -1;  ///< input pin, where one is meant
    QString
        setting;    ///< name of the attribute or list, where one is meant; of a child: `child.name`
    QString text;   ///< as the box says it, without line feeds at its end
    QString advice; ///< what would mend it; null when that can't be told
};

struct GraphLook {
    QVector<BoxProblem> problems; ///< in the order in which rows flow

    /// By box and output pin; nothing where the columns can't be told.
    std::vector<std::vector<std::optional<PinOutMetaData>>> columns;
};

/// Looks at the boxes of a graph whose wiring is sound: at all of them, or at those upstream of
/// `target` and `target` itself. `cutPins` are input pins whose table can't be known.
GraphLook lookAt(const Graph& graph, const QVector<InputPlace>& cutPins = {}, int target = -1);

} // namespace velmorra

/// A part of a graph with boxes of its own, for looking without touching the graph itself.
#pragma once

#include "engine/graph.h"

#include <functional>

namespace velmorra {

/// Which boxes of a part have to run in full: all, or those alone that feed a pin whose whole table
/// decides on the columns.
enum class PartKind { Rows, Columns };

/// The boxes upstream of one box and that box itself, as copies in a graph of their own, with the
/// same parameters.
struct GraphPart {
    GraphPart(const Graph& whole, int box, PartKind kind);

    Graph graph;
    std::vector<bool> full; ///< by box of the part: whether its rows are wanted
    int target = -1;        ///< the place in the part of the box asked for
    QString error;          ///< null unless a box can't be copied; the part is incomplete then
};

/// Runs `work` on a thread with stack for pulls through `boxes` boxes and waits for it; on this
/// thread where no such thread can be had.
void runWithStack(size_t boxes, std::function<void()> work);

} // namespace velmorra

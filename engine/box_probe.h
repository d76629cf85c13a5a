/// One box asked about its columns and its problems, outside of any run.
#pragma once

#include "engine/graph.h"
#include "host/message.h"

#include <optional>

namespace velmorra {

/// What a probe of a box finds on one input pin.
struct ProbeInput {
    enum class Kind {
        Unconnected, ///< no table
        Unknown,     ///< a table that nothing is known of
        Columns,     ///< one row of nulls
        WholeTable,  ///< every row of `producer`'s pin `out`
    };
    Kind kind = Kind::Unconnected;
    int producer = -1;
    int out = 0;
    PinOutMetaData columns;
};

/// What a box said, and the columns of its output pins.
struct ProbeAnswer {
    QVector<Message> messages;
    bool failed = false;
    std::vector<std::optional<PinOutMetaData>> columns; ///< by output pin; nothing when unknown

    bool hasProblem() const;
};

/// Runs a copy of a box of the graph in columns-only mode until it hands on a row or has finished.
/// With an unknown table among the inputs it is asked about its settings alone (`beforeRun`).
/// Messages of boxes that make a whole table are among the answer's.
ProbeAnswer probeBox(const Graph& graph, int box, const std::vector<ProbeInput>& inputs);

} // namespace velmorra

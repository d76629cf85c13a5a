/// What a box's message is about, and what would mend it. The texts of Actions are fixed, so that
/// this is found out by trying: an order that is missing is the one with which the box has nothing
/// to say.
#pragma once

#include "engine/box_probe.h"
#include "engine/graph_check.h"

namespace velmorra {

/// Finds the setting and the input pin that the problem's text means.
void locateProblem(const Graph& graph, const std::vector<ProbeInput>& inputs, BoxProblem& problem);

/// What would mend the problem; null when that can't be told. `problem` has been located.
QString adviceFor(const Graph& graph, const std::vector<ProbeInput>& inputs,
                  const BoxProblem& problem);

} // namespace velmorra

/// Carries a run through: shows its progress, and ends it on a signal.
#pragma once

#include "run_settings.h"

/// Runs the graph to its end. SIGINT, SIGTERM and SIGHUP cancel it; when the run doesn't end soon
/// by itself, what it has begun to write is removed and the program ends at once.
ExitStatus executeRun(velmorra::Graph& graph, MessageLog& log, const RunSettings& settings);

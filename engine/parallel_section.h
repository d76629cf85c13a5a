/// A parallel section: one Action run as a master and copies, each on a thread and on a part of the
/// rows of pin 0, with the output rows put back in the order of one thread.
///
///     pin 0   rows 1 2 | 3 4 | 5 6 | 7          batches of 2, a master and 2 copies
///     master       1 2         7                and all rows of the pins from 1 on
///     copy 1       3 4
///     copy 2       5 6
///
/// Output order: an output row belongs to the row of pin 0 that its worker had read last. With a
/// partition column a worker may hold rows back until their partition ends; an output row then
/// belongs to the last run of equal values, among those its worker has read, that has the row's own
/// value in the output column of that name. An Action that goes by runs of equal values sees two
/// runs of one value as one when what stood between them went to another worker; the rows of a
/// partition have to stand together for it, as they have to anyway.
///
/// Tables are in memory as a whole, inputs and outputs. The caller's thread runs the master.
#pragma once

#include "engine/packed_table.h"
#include "engine/run.h"

namespace velmorra {

struct ParallelOptions {
    int copies = 1;
    /// Column of pin 0 whose value decides to which worker a row goes; empty: batches in order.
    QString partitionColumn;
    int batchRows = 1024;
};

struct ParallelResult {
    RunOutcome outcome = RunOutcome::Failed;
    std::vector<PackedTable> outputs; ///< by output pin
    /// What the Action did against the contract of master and copies; empty when it kept to it.
    QString defect;
};

/// Runs `master` by the contract of ActionItem. `inputs` are its pins in order; a null one, or one
/// left out at the end, is an empty table. Messages go to `sink`, from several threads, each with
/// the instance that logs as `RunContextScope::current()->box`.
///
/// Requires: `master` has its parameters, whose `runStatus` ends the run from any thread and isn't
/// reset here.
ParallelResult runParallelSection(ActionItem& master, const std::vector<const PackedTable*>& inputs,
                                  MessageSink& sink, const ParallelOptions& options);

} // namespace velmorra

/// The columns of a table that has no rows.
///
/// An Action that saw no row leaves its output columns open. They are found by an instance of its
/// own that runs in columns-only mode on one row of nulls on pin 0, with its messages held back.
/// Other pins stay as they are: an empty one stays empty, since that may have a meaning of its own,
/// and one that the Action never asked gives the rows it really has.
#pragma once

#include "engine/wiring.h"

namespace velmorra {

/// The columns of an output pin of a box that has ended without a row there, kept in the box for
/// the next call; null, with one warning, when they can't be found.
const PinOutMetaData* columnsOfEmptyTable(RunningBox& box, int out, RunContext& context);

} // namespace velmorra

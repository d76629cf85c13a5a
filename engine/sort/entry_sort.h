/// Sorts a bounded number of held rows.
#pragma once

#include "engine/sort/sort_key.h"
#include "host/global_parameters.h"

namespace velmorra {

/// A held row with the first piece of its key.
struct SortEntry {
    quint64 piece;
    const uchar* row;
};

/// Puts entries in order, equal ones in the order in which they stand. `scratch` has room for as
/// many. False when the run was stopped; the entries are in some order then.
bool sortEntries(SortEntry* entries, size_t count, SortEntry* scratch, const SortKey& key,
                 const RunStatus& status);

} // namespace velmorra

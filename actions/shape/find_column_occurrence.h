/// Finds columns by name where a table may hold several columns of one name.
#pragma once

#include "host/one_row.h"

#include <vector>

/// Which columns of a row were found already: one byte for each. The caller makes and clears it.
using SeenColumns = std::vector<uchar>;

// Values of `report`; a larger one stands for pin `report - 1` of Append.
inline constexpr int reportNothing = -1;
inline constexpr int reportSelectColumns = 0;

/// The next column with exactly this name that isn't marked in `seen`, which then marks it; each
/// mention of a name so takes its next occurrence. -1 when there is none, with an error logged that
/// names the Action and the pin that `report` says.
int findColumnOccurrence(const OneRow& row, const QString& name, SeenColumns& seen, int report);

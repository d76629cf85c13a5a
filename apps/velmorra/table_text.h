/// A table as a person reads it on a terminal.
#pragma once

#include "engine/packed_table.h"

/// Columns below each other, numbers to the right; long cells are cut, and columns that don't fit
/// into `width` are named in a line below. Control characters are shown as escapes, a null as
/// nothing, the empty text as "". With `typed`, the header tells the types.
QByteArray tableText(const velmorra::PackedTable& table, int width, bool typed);

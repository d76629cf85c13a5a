/// The orders in which cells are sorted and merged.
#pragma once

#include "host/cell.h"

/// Compares two cells of one column: negative, 0 or positive.
using CellOrder = int (*)(const uchar* a, const uchar* b);

/// The comparison for a sort type and a meta type: by number ('0' rising, '9' falling) or by text
/// ('A', 'Z'); the falling orders are the negation, so that nulls come last there. Null when there
/// is none: a sort type without a comparison, or an order by text on a Float column.
VELMORRA_CORE CellOrder cellOrder(qint32 sortType, qint32 metaType);

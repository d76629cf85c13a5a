/// The text of the numbers in Key and Float cells.
#pragma once

#include "host/export.h"

/// Room in characters that the formatters below need.
inline constexpr int numberTextRoom = 32;

/// Writes the unsigned decimal form and returns its length. A null Key has no text: not for those.
VELMORRA_CORE int formatKey(quint32 key, char* out);

/// Writes the shortest digits that read back to the same double and returns the length: in fixed
/// notation from 1e-4 to below 1e16 (`100000`, `0.1`), else with an exponent (`1e+16`), without
/// `.0`; `nan` for a not-a-number, `inf` and `-inf`. No terminator.
VELMORRA_CORE int formatFloat(double value, char* out);

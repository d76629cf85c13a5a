/// The number syntax of text cells. Neither form allocates.
///
/// `ok` is false for a text that is no number; the result is then a value that callers don't use.
/// The words nan, inf and null (any case) are numbers: the invalid Float, infinity, the null Float.
/// What stands behind a number is ignored.
#pragma once

#include "host/export.h"

#include <QtCore/QString>

/// The number in `units` UTF-16 code units at `chars`, which may be at any address. A comma behind
/// the digits makes the text no number.
VELMORRA_CORE double parseCellNumber(const uchar* chars, qsizetype units, bool* ok);

/// The number in a string. The digits in front of a comma are the number.
VELMORRA_CORE double parseNumber(const QString& text, bool* ok);

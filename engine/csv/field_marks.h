/// Finding the bytes that separate fields, in many blocks at once, with the widest compares that
/// the processor has.
#pragma once

#include "engine/csv/text_blocks.h"

namespace velmorra {

/// For each of `blocks` times scanBlock bytes, what findSpecials gives.
void findMarks(const uchar* bytes, qsizetype blocks, uchar delimiter, uchar quote, quint64* marks);

namespace portable {
void findMarks(const uchar* bytes, qsizetype blocks, uchar delimiter, uchar quote, quint64* marks);
}

} // namespace velmorra

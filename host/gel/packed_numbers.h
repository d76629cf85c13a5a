/// Whole numbers packed into as few bits as the largest of a list needs.
///
/// The numbers are stored as differences from the least one, or, where that takes fewer bits, as
/// differences of neighbours from the least such difference: a counter takes no bits at all.
#pragma once

#include "host/gel/growing_bytes.h"

namespace gel {

/// Bytes in front of the packed bits at most.
inline constexpr size_t packedNumbersHead = 1 + 8 + 8;

/// Appends `count` numbers, which must be at least one.
void packNumbers(const quint64* numbers, size_t count, GrowingBytes* out);

/// Reads `count` numbers; false when the bytes can't be that. The bytes must be readable for
/// GrowingBytes::slack behind their end.
bool unpackNumbers(ByteTaker* bytes, size_t count, quint64* numbers);

} // namespace gel

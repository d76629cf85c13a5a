/// Transcoding in blocks of 16 bytes or 8 units, with shuffles that x86-64 processors have since
/// about 2008.
///
/// Decoding computes for each byte the unit that would end there, and then drops the places where
/// none does; encoding makes two or three bytes of each unit, and drops those that it doesn't need.
/// What isn't in the first 64 K characters, and what isn't valid, goes through the portable form.
#pragma once

#include "engine/csv/transcode.h"

namespace velmorra {

/// Whether the functions below may be called.
bool hasTranscodeBlocks();

namespace blocks {

// As the functions of these names in transcode.h.
Decoded decodeUtf8(const uchar* bytes, qsizetype size, uchar* units);
Encoded encodeUtf8(const uchar* units, qsizetype count, char* bytes);

} // namespace blocks

} // namespace velmorra

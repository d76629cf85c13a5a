/// Transcoding of 32 bytes or 32 units at a time, on processors that can move those of a block that
/// are kept together (AVX-512 with VBMI2). The steps are those of transcode_blocks.h; masks take
/// the place of shuffles from tables, and of special care for the end of a text.
#pragma once

#include "engine/csv/transcode.h"

namespace velmorra {

/// Whether the functions below may be called.
bool hasWideTranscode();

namespace wide {

// As the functions of these names in transcode.h.
Decoded decodeUtf8(const uchar* bytes, qsizetype size, uchar* units);
Encoded encodeUtf8(const uchar* units, qsizetype count, char* bytes);

} // namespace wide

} // namespace velmorra

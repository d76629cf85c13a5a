/// UTF-8 to UTF-16 and back, between files and String cells.
#pragma once

#include "engine/csv/text_blocks.h"

namespace velmorra {

/// Bytes that a decoded text may be read beyond its end, and code that decodes writes beyond its.
inline constexpr int transcodeSlack = 64;

struct Decoded {
    qsizetype units;      ///< code units written
    qsizetype badAt = -1; ///< offset of the first byte that isn't valid UTF-8, or -1
};

/// Decodes UTF-8. `bytes` must be readable for transcodeSlack bytes beyond the end, `units` (any
/// address) have room for 2 * size + transcodeSlack bytes. Overlong forms, surrogates and numbers
/// above U+10FFFF are invalid.
Decoded decodeUtf8(const uchar* bytes, qsizetype size, uchar* units);

/// The character of a sequence of more than one byte, of which `available` are there, and its
/// length; 0 when it is invalid.
char32_t characterAt(const uchar* bytes, qsizetype available, int* length);

/// Writes one character as UTF-8 (1 to 4 bytes) and returns the place behind it.
char* encodeCharacter(char32_t character, char* out);

} // namespace velmorra

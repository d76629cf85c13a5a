/// UTF-8 to UTF-16 and back, between files and String cells.
///
/// Text of any kind goes through blocks of bytes or units at a time where the processor can (see
/// transcode_wide.h and transcode_blocks.h), else through the portable forms, which give the same.
#pragma once

#include "engine/csv/text_blocks.h"

namespace velmorra {

/// Bytes that a decoded text may be read beyond its end, and code that decodes writes beyond its.
inline constexpr int transcodeSlack = 64;
/// Bytes that code that encodes may write beyond its end.
inline constexpr int encodeSlack = 64;
/// Most bytes that a code unit becomes.
inline constexpr int bytesPerUnit = 3;

struct Decoded {
    qsizetype units;      ///< code units written
    qsizetype badAt = -1; ///< offset of the first byte that isn't valid UTF-8, or -1
};

struct Encoded {
    char* end;     ///< behind the last byte written
    qint64 broken; ///< code units that are half a character; each was written as U+FFFD
};

/// Decodes UTF-8. `bytes` must be readable for transcodeSlack bytes beyond the end, `units` (any
/// address) have room for 2 * size + transcodeSlack bytes. Overlong forms, surrogates and numbers
/// above U+10FFFF are invalid.
Decoded decodeUtf8(const uchar* bytes, qsizetype size, uchar* units);

/// Encodes UTF-8. `units` may stand at any address and isn't read beyond its end; `bytes` must have
/// room for bytesPerUnit * count + encodeSlack.
Encoded encodeUtf8(const uchar* units, qsizetype count, char* bytes);

/// The character of a sequence of more than one byte, of which `available` are there, and its
/// length; 0 when it is invalid.
char32_t characterAt(const uchar* bytes, qsizetype available, int* length);

/// Writes one character as UTF-8 (1 to 4 bytes) and returns the place behind it.
char* encodeCharacter(char32_t character, char* out);

namespace portable {

Decoded decodeUtf8(const uchar* bytes, qsizetype size, uchar* units);
Encoded encodeUtf8(const uchar* units, qsizetype count, char* bytes);

/// A place in a text that is decoded, and the one that is written.
struct DecodeStep {
    qsizetype at;
    uchar* out;
    bool valid = true; ///< else the character at `at` isn't
};

/// Decodes the ASCII bytes from `at` on, a block of them at most, and the characters beyond ASCII
/// behind them. Requires: at < size.
DecodeStep decodeSome(const uchar* bytes, qsizetype size, qsizetype at, uchar* out);

/// Encodes the character at `at` and returns the place behind it.
qsizetype encodeOne(const uchar* units, qsizetype count, qsizetype at, Encoded* encoded);

} // namespace portable

} // namespace velmorra

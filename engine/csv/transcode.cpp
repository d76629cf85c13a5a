#include "engine/csv/transcode.h"

#include "engine/csv/transcode_blocks.h"
#include "engine/csv/transcode_wide.h"
#include "host/cell.h"

#include <algorithm>

namespace velmorra {

namespace {

constexpr char32_t replacement = 0xFFFD;

/// The lengths and lowest characters of the sequences that a leading byte may begin.
struct Lead {
    int length;
    char32_t lowest;
};

Lead leadOf(uchar byte) {
    if (byte >= 0xC2 && byte <= 0xDF)
        return {2, 0x80};
    if (byte >= 0xE0 && byte <= 0xEF)
        return {3, 0x800};
    if (byte >= 0xF0 && byte <= 0xF4)
        return {4, 0x10000};
    return {0, 0};
}

} // namespace

char32_t characterAt(const uchar* bytes, qsizetype available, int* length) {
    const Lead lead = leadOf(*bytes);
    if (lead.length == 0 || lead.length > available)
        return 0;
    char32_t character = *bytes & (0x7Fu >> lead.length);
    for (int i = 1; i < lead.length; ++i) {
        if ((bytes[i] & 0xC0) != 0x80)
            return 0;
        character = character << 6 | (bytes[i] & 0x3Fu);
    }
    const bool surrogate = character >= 0xD800 && character <= 0xDFFF;
    *length = lead.length;
    return character < lead.lowest || character > 0x10FFFF || surrogate ? 0 : character;
}

namespace {

uchar* putUnit(uchar* out, char32_t unit) {
    const char16_t value = static_cast<char16_t>(unit);
    std::memcpy(out, &value, sizeof value);
    return out + sizeof value;
}

} // namespace

portable::DecodeStep portable::decodeSome(const uchar* bytes, qsizetype size, qsizetype at,
                                          uchar* out) {
    const unsigned high = widenBlock(bytes + at, out);
    const qsizetype plain = high == 0 ? widenBytes : std::countr_zero(high);
    const qsizetype taken = std::min(plain, size - at);
    at += taken;
    out += 2 * taken;
    // Characters beyond ASCII often come in runs: a block each would be dear.
    while (at < size && bytes[at] >= 0x80) {
        int length = 0;
        const char32_t character = characterAt(bytes + at, size - at, &length);
        if (character == 0)
            return {at, out, false};
        at += length;
        if (character < 0x10000) {
            out = putUnit(out, character);
        } else {
            out = putUnit(out, 0xD7C0 + (character >> 10));
            out = putUnit(out, 0xDC00 + (character & 0x3FF));
        }
    }
    return {at, out};
}

Decoded portable::decodeUtf8(const uchar* bytes, qsizetype size, uchar* units) {
    DecodeStep step = {};
    step.out = units;
    while (step.at < size && step.valid)
        step = decodeSome(bytes, size, step.at, step.out);
    return {(step.out - units) / 2, step.valid ? -1 : step.at};
}

qsizetype portable::encodeOne(const uchar* units, qsizetype count, qsizetype at, Encoded* encoded) {
    char32_t character = cell::unitAt(units, at++);
    if (character >= 0xD800 && character <= 0xDFFF) {
        const char16_t low = at < count ? cell::unitAt(units, at) : u'\0';
        if (character < 0xDC00 && low >= 0xDC00 && low <= 0xDFFF) {
            character = 0x10000 + ((character - 0xD800) << 10) + (low - 0xDC00u);
            ++at;
        } else {
            character = replacement;
            ++encoded->broken;
        }
    }
    encoded->end = encodeCharacter(character, encoded->end);
    return at;
}

Encoded portable::encodeUtf8(const uchar* units, qsizetype count, char* bytes) {
    Encoded encoded = {};
    encoded.end = bytes;
    for (qsizetype at = 0; at < count;)
        at = encodeOne(units, count, at, &encoded);
    return encoded;
}

Decoded decodeUtf8(const uchar* bytes, qsizetype size, uchar* units) {
    static const auto decode = hasWideTranscode()     ? wide::decodeUtf8
                               : hasTranscodeBlocks() ? blocks::decodeUtf8
                                                      : portable::decodeUtf8;
    return decode(bytes, size, units);
}

Encoded encodeUtf8(const uchar* units, qsizetype count, char* bytes) {
    static const auto encode = hasWideTranscode()     ? wide::encodeUtf8
                               : hasTranscodeBlocks() ? blocks::encodeUtf8
                                                      : portable::encodeUtf8;
    return encode(units, count, bytes);
}

char* encodeCharacter(char32_t character, char* out) {
    const auto put = [&](char32_t byte) { *out++ = static_cast<char>(byte); };
    if (character < 0x80) {
        put(character);
        return out;
    }
    if (character < 0x800) {
        put(0xC0 | character >> 6);
    } else {
        if (character < 0x10000) {
            put(0xE0 | character >> 12);
        } else {
            put(0xF0 | character >> 18);
            put(0x80 | (character >> 12 & 0x3F));
        }
        put(0x80 | (character >> 6 & 0x3F));
    }
    put(0x80 | (character & 0x3F));
    return out;
}

} // namespace velmorra

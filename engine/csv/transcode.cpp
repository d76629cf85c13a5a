#include "engine/csv/transcode.h"

namespace velmorra {

namespace {

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

Decoded decodeUtf8(const uchar* bytes, qsizetype size, uchar* units) {
    uchar* out = units;
    qsizetype i = 0;
    while (i < size) {
        const unsigned high = widenBlock(bytes + i, out);
        const qsizetype plain = high == 0 ? widenBytes : std::countr_zero(high);
        const qsizetype taken = plain < size - i ? plain : size - i;
        i += taken;
        out += 2 * taken;
        // Characters beyond ASCII often come in runs: a block each would be dear.
        while (i < size && bytes[i] >= 0x80) {
            int length = 0;
            const char32_t character = characterAt(bytes + i, size - i, &length);
            if (character == 0)
                return {(out - units) / 2, i};
            i += length;
            if (character < 0x10000) {
                out = putUnit(out, character);
            } else {
                out = putUnit(out, 0xD7C0 + (character >> 10));
                out = putUnit(out, 0xDC00 + (character & 0x3FF));
            }
        }
    }
    return {(out - units) / 2, -1};
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

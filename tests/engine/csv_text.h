/// What the tests of CSV share: tables written as text, and parsed from memory.
#pragma once

#include "engine/csv/csv_parser.h"
#include "host/number_text.h"
#include "host/row_buffer.h"

#include <algorithm>
#include <string>

namespace velmorra {

/// A source over bytes in memory that gives at most `piece` bytes at a time.
inline ByteSource bytesSource(std::string bytes, qint64 piece) {
    return [bytes = std::move(bytes), piece, at = size_t(0)](uchar* to, qint64 room) mutable {
        const size_t most = size_t(std::min(room, piece));
        const size_t count = std::min(most, bytes.size() - at);
        std::copy_n(bytes.data() + at, count, to);
        at += count;
        return qint64(count);
    };
}

/// A cell as a test writes it: text as it is, "" for the empty text, ~ for null.
inline std::string shownCellText(const uchar* bytes, qint32 type) {
    if (cell::isNull(bytes, type))
        return "~";
    char digits[numberTextRoom];
    if (type == MetaTypeKey)
        return std::string(digits, size_t(formatKey(cell::loadKey(bytes), digits)));
    if (type == MetaTypeFloat)
        return std::string(digits, size_t(formatFloat(cell::loadFloat(bytes), digits)));
    const std::string text = qStringFromBytes(bytes).toStdString();
    return text.empty() ? "\"\"" : text;
}

} // namespace velmorra

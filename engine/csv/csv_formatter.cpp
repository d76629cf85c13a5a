#include "engine/csv/csv_formatter.h"

#include "engine/csv/field_value.h"
#include "engine/csv/transcode.h"
#include "engine/typed_header.h"
#include "host/number_text.h"

#include <algorithm>
#include <cstring>
#include <string>

namespace velmorra {

namespace {

constexpr char quote = '"';
constexpr qsizetype startBytes = 320 << 10;

/// What stands around a field: quotes, an apostrophe, a delimiter or line end, and what may be
/// written too much.
constexpr qsizetype bytesBehind = 2;
constexpr qsizetype bytesAround = 3 + bytesBehind + encodeSlack;

} // namespace

CsvFormatter::CsvFormatter(const CsvLayout& layout)
    : layout_(layout),
      separators_(layout.delimiter, quote) {
    grow(startBytes);
}

void CsvFormatter::grow(qsizetype bytes) {
    const qsizetype used = size();
    const qsizetype room = std::max<qsizetype>(2 * (end_ - buffer_.get()), used + bytes);
    std::unique_ptr<char[]> larger(new char[size_t(room)]);
    std::copy_n(buffer_.get(), used, larger.get());
    buffer_ = std::move(larger);
    next_ = buffer_.get() + used;
    end_ = buffer_.get() + room;
}

void CsvFormatter::setColumns(const PinOutMetaData& shape) {
    const bool quoted = layout_.quoting == CsvQuoting::All;
    const bool plain = !quoted && layout_.decimal == '.';
    writers_.clear();
    for (const MetaInfo& type : shape.types) {
        if (type.type == MetaTypeKey)
            writers_.push_back(quoted ? writeQuotedKey : writeKey);
        else if (type.type == MetaTypeFloat)
            writers_.push_back(plain ? writeFloat : writeOtherFloat);
        else
            writers_.push_back(writeText);
    }
}

void CsvFormatter::writeHeader(const PinOutMetaData& shape, bool typed) {
    const QVector<QString> cells = typed ? typedHeader(shape) : shape.names;
    if (cells.isEmpty())
        return;
    const qsizetype begin = size();
    for (const QString& cell : cells) {
        appendText(reinterpret_cast<const uchar*>(cell.constData()), static_cast<int>(cell.size()));
        *next_++ = layout_.delimiter;
    }
    endLine(begin);
}

void CsvFormatter::writeRow(const uchar* const* cells) {
    if (writers_.empty())
        return;
    const qsizetype begin = size();
    for (const WriteCell write : writers_) {
        write(*this, *cells++);
        *next_++ = layout_.delimiter;
    }
    endLine(begin);
}

/// Makes the last delimiter a line end.
void CsvFormatter::endLine(qsizetype begin) {
    if (layout_.returnFeed) {
        next_[-1] = '\r';
        *next_++ = '\n';
    } else {
        next_[-1] = '\n';
    }
    if (!atFileStart_)
        return;
    atFileStart_ = false;
    // A reader would take these three bytes for a byte order mark and drop them.
    char* const first = buffer_.get() + begin;
    if (next_ - first <= 3 || std::memcmp(first, "\xEF\xBB\xBF", 3) != 0)
        return;
    const std::string line(first, next_);
    const size_t fieldEnd = line.find_first_of(std::string("\r\n") + layout_.delimiter);
    next_ = first;
    reserve(static_cast<qsizetype>(line.size()) + 2);
    const std::string quoted = quote + line.substr(0, fieldEnd) + quote + line.substr(fieldEnd);
    next_ = std::copy(quoted.begin(), quoted.end(), next_);
}

void CsvFormatter::writeText(CsvFormatter& formatter, const uchar* cell) {
    const cell::TextView view = cell::text(cell);
    if (!view.isNull())
        formatter.appendText(view.chars, view.size());
    else
        formatter.reserve(bytesBehind);
}

void CsvFormatter::writeKey(CsvFormatter& formatter, const uchar* cell) {
    formatter.reserve(numberTextRoom + bytesBehind);
    const quint32 key = cell::loadKey(cell);
    if (key < cell::firstNullKey)
        formatter.next_ += formatKey(key, formatter.next_);
}

void CsvFormatter::writeQuotedKey(CsvFormatter& formatter, const uchar* cell) {
    formatter.reserve(numberTextRoom + 2 + bytesBehind);
    const quint32 key = cell::loadKey(cell);
    if (key >= cell::firstNullKey)
        return;
    *formatter.next_++ = quote;
    formatter.next_ += formatKey(key, formatter.next_);
    *formatter.next_++ = quote;
}

void CsvFormatter::writeFloat(CsvFormatter& formatter, const uchar* cell) {
    formatter.reserve(numberTextRoom + bytesBehind);
    if (cell::loadFloatBits(cell) != cell::nullFloatBits)
        formatter.next_ += formatFloat(cell::loadFloat(cell), formatter.next_);
}

/// With another decimal sign, or in quotes.
void CsvFormatter::writeOtherFloat(CsvFormatter& formatter, const uchar* cell) {
    formatter.reserve(numberTextRoom + 2 + bytesBehind);
    if (cell::loadFloatBits(cell) == cell::nullFloatBits)
        return;
    const CsvLayout& layout = formatter.layout_;
    char* const begin = formatter.next_;
    char* const end = begin + formatFloat(cell::loadFloat(cell), begin);
    char* const point = std::find(begin, end, '.');
    if (point != end)
        *point = layout.decimal;
    formatter.next_ = end;
    if (layout.quoting == CsvQuoting::All || (point != end && layout.decimal == layout.delimiter))
        formatter.quoteFrom(begin);
}

void CsvFormatter::appendText(const uchar* chars, int units) {
    reserve(bytesPerUnit * units + bytesAround);
    char* const begin = next_;
    const bool special = units == 0 || layout_.quoting != CsvQuoting::Needed;
    if (layout_.safe && isFormula(chars, units))
        *next_++ = '\'';
    const Narrowed narrowed = narrowText(chars, units, next_, separators_);
    if (narrowed.ascii) {
        next_ += units;
    } else {
        const Encoded encoded = encodeUtf8(chars, units, next_);
        next_ = encoded.end;
        broken_ += encoded.broken;
    }
    if (special || narrowed.special)
        quoteFrom(begin);
}

/// Whether a spreadsheet would run the text; a number is none.
bool CsvFormatter::isFormula(const uchar* chars, int units) const {
    const char16_t first = units > 0 ? cell::unitAt(chars, 0) : u'\0';
    if (first == u'=' || first == u'@' || first == u'\t' || first == u'\r')
        return true;
    if (first != u'+' && first != u'-')
        return false;
    uchar digits[numberTextRoom];
    if (units > numberTextRoom)
        return true;
    for (int i = 0; i < units; ++i) {
        const char16_t unit = cell::unitAt(chars, i);
        const bool inNumber = (unit >= u'0' && unit <= u'9') || unit == u'+' || unit == u'-' ||
                              unit == u'e' || unit == u'E' || unit == uchar(layout_.decimal);
        if (!inNumber)
            return true;
        digits[i] = static_cast<uchar>(unit);
    }
    double value = 0;
    return !readFloat(digits, units, layout_.decimal, &value);
}

CsvPlace CsvFormatter::placeOf(qsizetype offset) const {
    CsvPlace place;
    bool inQuotes = false;
    for (const char* at = buffer_.get(); at < buffer_.get() + offset; ++at) {
        inQuotes ^= *at == quote;
        if (inQuotes)
            continue;
        if (*at == layout_.delimiter)
            ++place.column;
        if (*at == '\n') {
            ++place.line;
            place.column = 0;
        }
    }
    return place;
}

/// Puts what was appended since `begin` into quotes and doubles those in it.
void CsvFormatter::quoteFrom(char* begin) {
    const auto inner = std::count(begin, next_, quote);
    char* from = next_;
    char* to = next_ + inner + 2;
    next_ = to;
    *--to = quote;
    while (from != begin) {
        *--to = *--from;
        if (*from == quote)
            *--to = quote;
    }
    *begin = quote;
}

} // namespace velmorra

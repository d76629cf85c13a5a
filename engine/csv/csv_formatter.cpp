#include "engine/csv/csv_formatter.h"

#include "engine/csv/transcode.h"
#include "engine/typed_header.h"
#include "host/number_text.h"

#include <algorithm>
#include <string>

namespace velmorra {

namespace {

constexpr char delimiter = ',';
constexpr char quote = '"';
constexpr char32_t replacement = 0xFFFD;
constexpr qsizetype startBytes = 320 << 10;

/// Most bytes that a code unit becomes, and what stands around a field: quotes, a delimiter, and
/// what a block may write too much.
constexpr qsizetype bytesPerUnit = 3;
constexpr qsizetype bytesAround = 3 + narrowUnits;

} // namespace

CsvFormatter::CsvFormatter() {
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
    writers_.clear();
    for (const MetaInfo& type : shape.types) {
        if (type.type == MetaTypeKey)
            writers_.push_back(writeKey);
        else
            writers_.push_back(type.type == MetaTypeFloat ? writeFloat : writeText);
    }
}

void CsvFormatter::writeHeader(const PinOutMetaData& shape, bool typed) {
    const QVector<QString> cells = typed ? typedHeader(shape) : shape.names;
    if (cells.isEmpty())
        return;
    const qsizetype begin = size();
    for (const QString& cell : cells) {
        appendText(reinterpret_cast<const uchar*>(cell.constData()), static_cast<int>(cell.size()));
        *next_++ = delimiter;
    }
    endLine(begin);
}

void CsvFormatter::writeRow(const uchar* const* cells) {
    if (writers_.empty())
        return;
    const qsizetype begin = size();
    for (const WriteCell write : writers_) {
        write(*this, *cells++);
        *next_++ = delimiter;
    }
    endLine(begin);
}

/// Makes the last delimiter a line end.
void CsvFormatter::endLine(qsizetype begin) {
    next_[-1] = '\n';
    if (!atFileStart_)
        return;
    atFileStart_ = false;
    // A reader would take these three bytes for a byte order mark and drop them.
    char* const first = buffer_.get() + begin;
    if (next_ - first <= 3 || std::memcmp(first, "\xEF\xBB\xBF", 3) != 0)
        return;
    const std::string line(first, next_);
    const size_t fieldEnd = line.find_first_of(",\n");
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
        formatter.reserve(1);
}

void CsvFormatter::writeKey(CsvFormatter& formatter, const uchar* cell) {
    formatter.reserve(numberTextRoom + 1);
    const quint32 key = cell::loadKey(cell);
    if (key < cell::firstNullKey)
        formatter.next_ += formatKey(key, formatter.next_);
}

void CsvFormatter::writeFloat(CsvFormatter& formatter, const uchar* cell) {
    formatter.reserve(numberTextRoom + 1);
    if (cell::loadFloatBits(cell) != cell::nullFloatBits)
        formatter.next_ += formatFloat(cell::loadFloat(cell), formatter.next_);
}

void CsvFormatter::appendText(const uchar* chars, int units) {
    reserve(bytesPerUnit * units + bytesAround);
    char* const begin = next_;
    bool special = units == 0;
    next_ = encode(chars, units, begin, &special);
    if (special)
        quoteFrom(begin);
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

char* CsvFormatter::encode(const uchar* chars, int units, char* out, bool* special) {
    int i = 0;
    while (units - i >= narrowUnits) {
        const NarrowResult block = narrowBlock(chars + 2 * qsizetype(i), out, delimiter, quote);
        *special |= block.special;
        const int end = i + narrowUnits;
        if (block.ascii) {
            i = end;
            out += narrowUnits;
        }
        while (i < end)
            i = encodeUnit(chars, i, units, &out, special);
    }
    while (i < units)
        i = encodeUnit(chars, i, units, &out, special);
    return out;
}

/// Encodes the character at `at` and returns the place behind it.
inline int CsvFormatter::encodeUnit(const uchar* chars, int at, int units, char** out,
                                    bool* special) {
    char32_t character = cell::unitAt(chars, at++);
    if (character < 0x80) {
        const char byte = static_cast<char>(character);
        *special |= byte == delimiter || byte == quote || byte == '\r' || byte == '\n';
        *(*out)++ = byte;
        return at;
    }
    if (character >= 0xD800 && character <= 0xDFFF) {
        const char16_t low = at < units ? cell::unitAt(chars, at) : u'\0';
        if (character < 0xDC00 && low >= 0xDC00 && low <= 0xDFFF) {
            character = 0x10000 + ((character - 0xD800) << 10) + (low - 0xDC00u);
            ++at;
        } else {
            character = replacement;
            ++broken_;
        }
    }
    *out = encodeCharacter(character, *out);
    return at;
}

} // namespace velmorra

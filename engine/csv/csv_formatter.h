/// From rows to the bytes of a CSV file.
///
/// A field is quoted where it must be: when it holds the delimiter, a quote or a line end, or is
/// the empty text. A null is an empty field. Lines end with LF. One thread at a time.
#pragma once

#include "host/cell.h"

#include <memory>
#include <vector>

namespace velmorra {

class CsvFormatter {
public:
    CsvFormatter();

    /// The columns of the rows to come; once, in front of everything else.
    void setColumns(const PinOutMetaData& shape);

    /// Appends the line of the columns' names, `name:TYPE:SORT` when `typed`. A table without
    /// columns has none.
    void writeHeader(const PinOutMetaData& shape, bool typed);

    /// Appends the line of a row.
    void writeRow(const uchar* const* cells);

    // What has been appended and not yet been taken.
    const char* bytes() const { return buffer_.get(); }
    qsizetype size() const { return next_ - buffer_.get(); }
    void clear() { next_ = buffer_.get(); }

    /// Code units that are half a character; each was written as U+FFFD.
    qint64 brokenCharacters() const { return broken_; }

private:
    /// Appends a cell and leaves room for the delimiter behind it.
    using WriteCell = void (*)(CsvFormatter& formatter, const uchar* cell);

    void reserve(qsizetype bytes) {
        if (end_ - next_ < bytes)
            grow(bytes);
    }
    void grow(qsizetype bytes);
    void appendText(const uchar* chars, int units);
    void quoteFrom(char* begin);
    char* encode(const uchar* chars, int units, char* out, bool* special);
    int encodeUnit(const uchar* chars, int at, int units, char** out, bool* special);
    void endLine(qsizetype begin);

    static void writeText(CsvFormatter& formatter, const uchar* cell);
    static void writeKey(CsvFormatter& formatter, const uchar* cell);
    static void writeFloat(CsvFormatter& formatter, const uchar* cell);

    std::vector<WriteCell> writers_;
    std::unique_ptr<char[]> buffer_;
    char* next_ = nullptr;
    char* end_ = nullptr;
    bool atFileStart_ = true;
    qint64 broken_ = 0;
};

} // namespace velmorra

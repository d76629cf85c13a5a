/// From rows to the bytes of a CSV file.
///
/// A field is quoted where it must be: when it holds the delimiter, a quote or a line end, or is
/// the empty text; all fields, or all texts, where that is asked for. A null is an empty field,
/// never quoted. The bytes are UTF-8. One thread at a time.
#pragma once

#include "engine/csv/text_blocks.h"
#include "host/cell.h"

#include <memory>
#include <vector>

namespace velmorra {

enum class CsvQuoting { Needed, Text, All };

/// How the file is to be laid out.
struct CsvLayout {
    char delimiter = ',';
    char decimal = '.';
    CsvQuoting quoting = CsvQuoting::Needed;
    bool returnFeed = false; ///< lines end with CR LF, not with LF
    /// Texts that a spreadsheet would run as a formula get an apostrophe in front.
    bool safe = false;
};

/// A place in what has been appended and not yet been taken.
struct CsvPlace {
    qint64 line = 0; ///< lines of the table in front of it, counted from what was taken last
    int column = 0;
};

class CsvFormatter {
public:
    explicit CsvFormatter(const CsvLayout& layout = {});

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

    /// Where the byte at an offset stands.
    CsvPlace placeOf(qsizetype offset) const;

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
    bool isFormula(const uchar* chars, int units) const;
    void quoteFrom(char* begin);
    void endLine(qsizetype begin);

    static void writeText(CsvFormatter& formatter, const uchar* cell);
    static void writeKey(CsvFormatter& formatter, const uchar* cell);
    static void writeFloat(CsvFormatter& formatter, const uchar* cell);
    static void writeQuotedKey(CsvFormatter& formatter, const uchar* cell);
    static void writeOtherFloat(CsvFormatter& formatter, const uchar* cell);

    CsvLayout layout_;
    Separators separators_;
    std::vector<WriteCell> writers_;
    std::unique_ptr<char[]> buffer_;
    char* next_ = nullptr;
    char* end_ = nullptr;
    bool atFileStart_ = true;
    qint64 broken_ = 0;
};

} // namespace velmorra

/// From the bytes of a CSV file to batches of rows.
///
/// Fields stand between delimiters, in quotes where they hold a delimiter, a quote (doubled) or a
/// line end; lines end with LF or CRLF, the last one also with the file. The text is UTF-8, with or
/// without a byte order mark. An unquoted empty field is null, a quoted one the empty text. An
/// empty line is a null in a table of one column and is passed over in any other; a line that
/// begins with the prefix of comments is passed over everywhere.
///
/// Bytes are scanned in blocks for the few that have a meaning, and a field is decoded when its end
/// is found. Memory is bounded by the batch and the largest field, not by the file. One thread at a
/// time; nothing here logs: a problem is a text of the batch.
#pragma once

#include "engine/csv/order_check.h"
#include "engine/csv/text_encoding.h"

#include <array>
#include <utility>

namespace velmorra {

struct CsvSettings {
    static constexpr qint64 defaultFieldLimit = 16 << 20;
    /// What a String cell can hold.
    static constexpr qint64 largestFieldLimit = cell::maxLength - 1;
    static constexpr int maxColumns = 1 << 20;
    /// Bytes of cells in one row.
    static constexpr qsizetype rowLimit = 1ll << 30;

    /// In place of a quote: a byte that has another meaning.
    static constexpr char noQuote = '\n';

    char delimiter = ',';
    char quote = '"';
    char decimal = '.';
    QByteArray comment;                         ///< prefix of lines without data; empty: none
    TextEncoding encoding = TextEncoding::Utf8; ///< of the file, for messages
    qint64 fieldLimit = defaultFieldLimit;      ///< bytes of a field, without the quotes around it
};

/// What becomes of the fields of a column.
struct CsvColumn {
    QString name;
    qint32 metaType = MetaTypeText;
    bool wanted = true;     ///< else its cells are null and its values aren't looked at
    quint32 largestKey = 0; ///< for a Key column
    bool proposed = false;  ///< nobody declared the type: for messages
};

/// Takes the rows that can't be read, as they stand in the UTF-8 of the file.
class RejectedRows {
public:
    virtual ~RejectedRows() = default;

    /// In front of the first row: the encoding of the file, and whether it has a byte order mark.
    virtual void start(TextEncoding, bool) {}
    /// The next row, and what is wrong with it. Its bytes come in one or several pieces.
    virtual void begin(const QString& problem) = 0;
    /// False when the bytes could not be kept; `failure` then says why, and is null when the run
    /// was stopped.
    virtual bool take(const uchar* bytes, qsizetype size) = 0;
    virtual QString failure() const = 0;
};

class CsvParser {
public:
    /// `fileName` stands in messages. With `handOnEarly` a batch of whole rows isn't kept back to
    /// wait for more bytes.
    CsvParser(ByteSource source, const QString& fileName, const CsvSettings& settings,
              bool handOnEarly = false);
    CsvParser(const CsvParser&) = delete;
    CsvParser& operator=(const CsvParser&) = delete;

    /// Broken rows go to `rows` from here on, and those behind them are read; else the first one is
    /// the end. In front of readFirstRow; `rows` must outlive the parser. The first row itself must
    /// be sound.
    ///
    /// Where quotes are broken, a row ends with the line of the broken place: the one where text
    /// stands behind a closing quote, or, where the quotes never close or hold more than
    /// mostInBrokenQuotes, the one where they open.
    void rejectTo(RejectedRows* rows) { rejects_ = rows; }
    static constexpr qsizetype mostInBrokenQuotes = 64 << 10;

    /// Reads the first row, of as many columns as it has, as text. Empty lines in
    /// front of it are passed over. No rows when the file has none; `end` tells a failure.
    const RowBatch& readFirstRow();

    /// Empty lines that readFirstRow passed over.
    qint64 emptyLinesPassed() const { return emptyLines_; }

    /// The columns of all rows from here on, and their declared order. When the first row is data,
    /// `fill` gives it again, and as nulls the empty lines in front of it where they are rows.
    void setColumns(std::vector<CsvColumn> columns, const PinOutMetaData& shape,
                    bool firstRowIsData);

    /// The next rows, at most `maxRows`.
    void fill(RowBatch& batch, int maxRows = RowBatch::maxRows);

private:
    enum class State { Plain, Quoted, QuoteSeen, ReturnSeen, InComment, InRejected };
    enum class Kind : uchar { Skipped, Text, Key, Float };
    enum class Scan { Exhausted, Full, Failed };

    struct Slot {
        Kind kind;
        const uchar* null;
        quint32 largestKey;
    };
    class PlainRows;

    // Windows and rows.
    void readRows(RowBatch& batch);
    void giveFirstRowAgain(RowBatch& batch);
    bool convertFirstRow(RowBatch& batch);
    bool refill(RowBatch& batch);
    bool passByteOrderMark(RowBatch& batch);
    Scan scanWindow(RowBatch& batch);
    void readPlainRows(RowBatch& batch);
    void indexMarks();
    qsizetype nextMark();
    bool special(RowBatch& batch, qsizetype at);
    bool specialInQuotes(RowBatch& batch, qsizetype at);
    bool endQuotedField(RowBatch& batch, qsizetype at);
    bool lineFeed(RowBatch& batch, qsizetype at);
    bool emptyLine(RowBatch& batch);
    bool endPassedLine(qsizetype at);
    bool isComment(qsizetype at) const;
    bool endInput(RowBatch& batch);
    bool isAtRowStart() const {
        return state_ == State::Plain && column_ == 0 && fieldStart_ == dataEnd_;
    }

    // Fields.
    bool endField(RowBatch& batch, qsizetype begin, qsizetype end, bool quoted);
    bool surplusField(RowBatch& batch, const uchar* bytes, qsizetype size, bool quoted);
    const uchar* textCell(RowBatch& batch, qint64 line, const uchar* bytes, qsizetype size);
    const uchar* textBeyondAscii(RowBatch& batch, qint64 line, const uchar* bytes, qsizetype size);
    const uchar* numberCell(RowBatch& batch, qint64 line, const uchar* bytes, qsizetype size);
    bool endRow(RowBatch& batch);
    bool acceptRow(RowBatch& batch, qint64 line);
    std::pair<const uchar*, qsizetype> withoutDoubledQuotes(const uchar* bytes, qsizetype size);

    // Rows that go to the rejects.
    bool rejects() const { return rejects_ != nullptr && !inFirstRow_ && !rejectsFailed_; }
    bool holdBack(RowBatch& batch);
    bool rejectRow(RowBatch& batch);
    bool rejectFirstRow(RowBatch& batch);
    bool resynchronise(RowBatch& batch, qsizetype spot);
    bool passPart(RowBatch& batch);
    bool giveToRejects(RowBatch& batch, const uchar* bytes, qsizetype size);
    void forgetRow(RowBatch& batch);

    // Problems; all false.
    bool isOverLimit(RowBatch& batch);
    bool fail(RowBatch& batch, qint64 line, const QString& what);
    bool failAtRowOf(RowBatch& batch, qint64 line, int fields);
    bool failInField(RowBatch& batch, qint64 line, const QString& what);
    bool failOverLimit(RowBatch& batch);
    bool failAtStrayByte(RowBatch& batch, qsizetype at);
    QString valueAround(qsizetype begin) const;

    // Settings.
    ByteSource source_;
    QString fileName_;
    CsvSettings settings_;
    bool handOnEarly_;
    RejectedRows* rejects_ = nullptr;
    bool rejectsFailed_ = false; ///< they take no more

    // The table.
    bool inFirstRow_ = true;
    bool firstRowIsData_ = false;
    RowBatch firstRow_;
    std::vector<uchar> firstRowBytes_; ///< as they stand, where they may have to be rejected
    std::vector<CsvColumn> columns_;
    std::vector<Slot> slots_; ///< what the scan needs of each column
    OrderCheck order_;

    // The window on the file: what isn't used up yet.
    std::unique_ptr<uchar[]> window_;
    qsizetype room_ = 0;
    qsizetype dataEnd_ = 0;
    qsizetype scanned_ = 0; ///< the next byte to look at
    bool atEnd_ = false;
    bool begun_ = false;

    // Where bytes with a meaning stand, in a part of the window.
    std::array<quint64, 64> marks_ = {}; ///< a bit for each byte from marksBegin_ on
    qsizetype marksBegin_ = 0;
    qsizetype marksEnd_ = 0;

    // The row that is being read.
    State state_ = State::Plain;
    qsizetype rowStart_ = 0;   ///< kept up to date, and in the window, where rows may be rejected
    qsizetype tooLongAt_ = -1; ///< where the field begins that was found to be over its limit
    bool badRow_ = false;      ///< to be rejected when its end is found; batch.problem says why
    qsizetype fieldStart_ = 0;
    qsizetype quoteAt_ = 0;  ///< in QuoteSeen: the quote that may close the field
    bool emptyLine_ = false; ///< in ReturnSeen: nothing stood on the line
    bool full_ = false;      ///< the batch takes no further row
    bool doubled_ = false;   ///< the field holds doubled quotes
    int column_ = 0;
    int rowsWanted_ = 0;
    const uchar** nextCell_ = nullptr;
    qsizetype rowBegan_ = 0; ///< bytes of the batch's arena in front of the row
    qint64 line_ = 1;
    qint64 rowLine_ = 1;
    qint64 fieldLine_ = 1;
    qint64 emptyLines_ = 0;
    qint64 nullRows_ = 0; ///< empty lines given as rows so far
    std::vector<uchar> unescaped_;
};

} // namespace velmorra

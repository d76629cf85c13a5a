/// The scanning half of the parser: where fields and rows end. Values and problems are in
/// csv_fields.cpp.
#include "engine/csv/csv_parser.h"

#include "engine/csv/field_marks.h"
#include "engine/csv/transcode.h"

#include <algorithm>
#include <cstring>
#include <tuple>
#include <utility>

namespace velmorra {

namespace {
constexpr qsizetype readBytes = 256 << 10;
constexpr qsizetype longestMark = 4;
constexpr qsizetype utf8Mark = 3;
} // namespace

CsvParser::CsvParser(ByteSource source, const QString& fileName, const CsvSettings& settings,
                     bool handOnEarly)
    : source_(std::move(source)),
      fileName_(fileName),
      settings_(settings),
      handOnEarly_(handOnEarly) {}

const RowBatch& CsvParser::readFirstRow() {
    inFirstRow_ = true;
    rowsWanted_ = 1;
    readRows(firstRow_);
    inFirstRow_ = false;
    firstRow_.columns = static_cast<int>(firstRow_.cells.size());
    return firstRow_;
}

void CsvParser::setColumns(std::vector<CsvColumn> columns, const PinOutMetaData& shape,
                           bool firstRowIsData) {
    columns_ = std::move(columns);
    firstRowIsData_ = firstRowIsData;
    slots_.clear();
    for (const CsvColumn& column : columns_) {
        const Kind kind = column.metaType == MetaTypeKey     ? Kind::Key
                          : column.metaType == MetaTypeFloat ? Kind::Float
                                                             : Kind::Text;
        slots_.push_back({column.wanted ? kind : Kind::Skipped, cell::nullCell(column.metaType),
                          column.largestKey});
    }
    order_.declare(shape);
}

void CsvParser::fill(RowBatch& batch, int maxRows) {
    batch.clear();
    batch.columns = static_cast<int>(columns_.size());
    rowsWanted_ = std::clamp(RowBatch::maxCells / std::max(batch.columns, 1), 1, maxRows);
    const size_t cells = size_t(rowsWanted_) * size_t(batch.columns);
    if (batch.cells.size() < cells)
        batch.cells.resize(cells);
    nextCell_ = batch.cells.data();
    rowBegan_ = 0;
    full_ = false;
    if (firstRowIsData_)
        giveFirstRowAgain(batch);
    if (batch.end == BatchEnd::More && !full_)
        readRows(batch);
    order_.keep();
}

void CsvParser::giveFirstRowAgain(RowBatch& batch) {
    while (batch.columns == 1 && nullRows_ < emptyLines_ && !full_) {
        *nextCell_++ = slots_.front().null;
        if (!acceptRow(batch, ++nullRows_))
            return;
    }
    if (full_)
        return;
    firstRowIsData_ = false;
    if (firstRow_.rows > 0) {
        const bool accepted = convertFirstRow(batch) && acceptRow(batch, firstRow_.firstLine);
        if (!accepted && rejects())
            rejectFirstRow(batch);
    }
    firstRow_ = {};
    firstRowBytes_ = {};
}

void CsvParser::readRows(RowBatch& batch) {
    for (;;) {
        const Scan scan = scanWindow(batch);
        if (scan != Scan::Exhausted)
            return;
        if (atEnd_) {
            if (endInput(batch)) {
                batch.end = BatchEnd::Table;
                return;
            }
            const bool open = state_ == State::Quoted;
            if (!resynchronise(batch, open ? fieldStart_ : dataEnd_) || full_)
                return;
            continue;
        }
        if (handOnEarly_ && batch.rows > 0 && isAtRowStart())
            return;
        if (state_ == State::Plain && isComment(dataEnd_))
            state_ = State::InComment;
        if (!passPart(batch))
            return;
        if (isOverLimit(batch)) {
            const bool open = state_ == State::Quoted || state_ == State::QuoteSeen;
            if (!resynchronise(batch, open ? fieldStart_ : dataEnd_) || full_)
                return;
            continue;
        }
        if (!refill(batch))
            return;
    }
}

/// Moves what is left of the last field to the front of the window and reads on behind it.
bool CsvParser::refill(RowBatch& batch) {
    if (batch.arena.used() - rowBegan_ > CsvSettings::rowLimit)
        return fail(batch, rowLine_, QStringLiteral("the row has more than 1 GiB of text"));
    const qsizetype keptFrom = rejects_ != nullptr ? rowStart_ : fieldStart_;
    const qsizetype kept = dataEnd_ - keptFrom;
    if (room_ < kept + readBytes) {
        const qsizetype larger = std::max(2 * room_, kept + readBytes);
        std::unique_ptr<uchar[]> window(new uchar[static_cast<size_t>(larger + transcodeSlack)]);
        std::copy_n(window_.get() + keptFrom, kept, window.get());
        window_ = std::move(window);
        room_ = larger;
    } else {
        std::memmove(window_.get(), window_.get() + keptFrom, static_cast<size_t>(kept));
    }
    quoteAt_ -= keptFrom;
    scanned_ -= keptFrom;
    fieldStart_ -= keptFrom;
    rowStart_ = 0;
    dataEnd_ = kept;
    marksBegin_ = marksEnd_ = 0;
    const bool atStart = !begun_;
    begun_ = true;
    do {
        const qint64 got = source_(window_.get() + dataEnd_, readBytes);
        if (got < 0) {
            batch.end = BatchEnd::Stopped;
            return false;
        }
        atEnd_ = got == 0;
        dataEnd_ += got;
    } while (atStart && !atEnd_ && dataEnd_ < longestMark);
    std::memset(window_.get() + dataEnd_, 0, transcodeSlack);
    return !atStart || passByteOrderMark(batch);
}

bool CsvParser::passByteOrderMark(RowBatch& batch) {
    const QString mark = encodingOfMark(window_.get(), dataEnd_);
    if (mark.isNull())
        return true;
    if (mark != QLatin1String("utf-8"))
        return fail(batch, 0,
                    QStringLiteral("begins with the byte order mark of ") + mark +
                        (mark == QLatin1String("utf-16")
                             ? QStringLiteral("; ask for it with encoding='utf-16'")
                             : QStringLiteral(", which can't be read")));
    rowStart_ = fieldStart_ = scanned_ = utf8Mark;
    return true;
}

/// Finds the bytes with a meaning in the part of the window that begins with the next byte to look
/// at.
void CsvParser::indexMarks() {
    marksBegin_ = scanned_;
    marksEnd_ = std::min(dataEnd_, scanned_ + qsizetype(marks_.size()) * scanBlock);
    const qsizetype size = marksEnd_ - marksBegin_;
    const qsizetype blocks = (size + scanBlock - 1) / scanBlock;
    findMarks(window_.get() + marksBegin_, blocks, static_cast<uchar>(settings_.delimiter),
              static_cast<uchar>(settings_.quote), marks_.data());
    if (size % scanBlock != 0)
        marks_[size_t(blocks - 1)] &= (quint64(1) << (size % scanBlock)) - 1;
}

/// The next byte with a meaning, or the end of the data.
qsizetype CsvParser::nextMark() {
    while (scanned_ < dataEnd_) {
        if (scanned_ < marksBegin_ || scanned_ >= marksEnd_)
            indexMarks();
        const qsizetype offset = scanned_ - marksBegin_;
        const quint64 marks =
            marks_[size_t(offset / scanBlock)] & (~quint64(0) << (offset % scanBlock));
        const qsizetype block = scanned_ - offset % scanBlock;
        if (marks != 0)
            return block + std::countr_zero(marks);
        scanned_ = block + scanBlock;
    }
    scanned_ = dataEnd_;
    return dataEnd_;
}

CsvParser::Scan CsvParser::scanWindow(RowBatch& batch) {
    const auto atRow = [this] { return column_ == 0 && state_ == State::Plain; };
    for (;;) {
        if (!full_ && atRow())
            readPlainRows(batch);
        if (full_)
            return Scan::Full;
        const qsizetype first = nextMark();
        if (first == dataEnd_)
            return Scan::Exhausted;
        const qsizetype offset = first - marksBegin_;
        const qsizetype block = first - offset % scanBlock;
        quint64 marks = marks_[size_t(offset / scanBlock)] & (~quint64(0) << (offset % scanBlock));
        scanned_ = std::min(block + scanBlock, dataEnd_);
        for (; marks != 0; marks &= marks - 1) {
            const qsizetype at = block + std::countr_zero(marks);
            if (!special(batch, at)) {
                if (!resynchronise(batch, at))
                    return Scan::Failed;
                break;
            }
            if (full_ || atRow()) {
                scanned_ = at + 1;
                break;
            }
        }
    }
}

/// Handles a byte that has a meaning. False when the batch has failed.
inline bool CsvParser::special(RowBatch& batch, qsizetype at) {
    if (state_ != State::Plain)
        return specialInQuotes(batch, at);
    const uchar byte = window_[at];
    if (column_ == 0 && isComment(at)) {
        state_ = State::InComment;
        return byte != '\n' || endPassedLine(at);
    }
    if (byte == uchar(settings_.delimiter)) {
        const qsizetype begin = std::exchange(fieldStart_, at + 1);
        return endField(batch, begin, at, false);
    }
    if (byte == '\n')
        return lineFeed(batch, at);
    if (byte == uchar(settings_.quote) && at == fieldStart_) {
        state_ = State::Quoted;
        doubled_ = false;
        fieldLine_ = line_;
        return true;
    }
    if (byte != '\r')
        return failAtStrayByte(batch, at);
    state_ = State::ReturnSeen;
    // The field, if there is one, has ended; an empty line has none.
    const qsizetype begin = std::exchange(fieldStart_, at + 1);
    emptyLine_ = column_ == 0 && begin == at;
    return emptyLine_ || endField(batch, begin, at, false);
}

bool CsvParser::lineFeed(RowBatch& batch, qsizetype at) {
    const qsizetype begin = std::exchange(fieldStart_, at + 1);
    if (column_ == 0 && begin == at) {
        ++line_;
        return emptyLine(batch);
    }
    const bool decoded = endField(batch, begin, at, false);
    ++line_;
    return decoded && endRow(batch);
}

bool CsvParser::emptyLine(RowBatch& batch) {
    if (!inFirstRow_ && columns_.size() == 1)
        return endField(batch, 0, 0, false) && endRow(batch);
    emptyLines_ += inFirstRow_ ? 1 : 0;
    rowLine_ = line_;
    rowStart_ = fieldStart_;
    return true;
}

/// Whether a line that reaches up to `at` at least is a comment. Requires: a line's first field.
inline bool CsvParser::isComment(qsizetype at) const {
    const qsizetype size = settings_.comment.size();
    return size != 0 && column_ == 0 && at - fieldStart_ >= size &&
           std::memcmp(window_.get() + fieldStart_, settings_.comment.constData(), size_t(size)) ==
               0;
}

/// Ends a line that isn't part of the table.
bool CsvParser::endPassedLine(qsizetype at) {
    state_ = State::Plain;
    rowStart_ = fieldStart_ = at + 1;
    rowLine_ = ++line_;
    return true;
}

bool CsvParser::specialInQuotes(RowBatch& batch, qsizetype at) {
    const uchar byte = window_[at];
    if (state_ == State::InComment)
        return byte != '\n' || endPassedLine(at);
    if (state_ == State::InRejected)
        return byte != '\n' ||
               (giveToRejects(batch, window_.get() + rowStart_, at + 1 - rowStart_) &&
                endPassedLine(at));
    const bool quote = byte == uchar(settings_.quote);
    if (state_ == State::Quoted) {
        if (quote) {
            state_ = State::QuoteSeen;
            quoteAt_ = at;
        } else if (byte == '\n') {
            ++line_;
        }
        return byte != 0 || failAtStrayByte(batch, at);
    }
    if (state_ == State::QuoteSeen) {
        if (at != quoteAt_ + 1 || byte == 0)
            return failAtStrayByte(batch, at);
        if (!quote)
            return endQuotedField(batch, at);
        doubled_ = true;
        state_ = State::Quoted;
        return true;
    }
    if (byte != '\n' || at != fieldStart_)
        return failAtStrayByte(batch, at);
    state_ = State::Plain;
    fieldStart_ = at + 1;
    ++line_;
    return emptyLine_ ? emptyLine(batch) : endRow(batch);
}

/// Ends the field whose closing quote was seen, at the delimiter or line end behind it.
bool CsvParser::endQuotedField(RowBatch& batch, qsizetype at) {
    const qsizetype begin = std::exchange(fieldStart_, at + 1) + 1;
    state_ = State::Plain;
    if (!endField(batch, begin, quoteAt_, true))
        return false;
    const uchar byte = window_[at];
    if (byte == '\r') {
        state_ = State::ReturnSeen;
        emptyLine_ = false;
    }
    if (byte != '\n')
        return true;
    ++line_;
    return endRow(batch);
}

/// Ends the last row, where no line end does. Changes nothing when called again.
bool CsvParser::endInput(RowBatch& batch) {
    if (state_ == State::Quoted)
        return failInField(batch, fieldLine_,
                           QStringLiteral("the file ends inside the quotes that open here: ") +
                               valueAround(fieldStart_ + 1));
    if (state_ == State::ReturnSeen || (state_ == State::QuoteSeen && dataEnd_ != quoteAt_ + 1))
        return failAtStrayByte(batch, dataEnd_);
    if (isAtRowStart() || state_ == State::InComment || state_ == State::InRejected ||
        (state_ == State::Plain && isComment(dataEnd_)))
        return true;
    const bool quoted = state_ == State::QuoteSeen;
    const qsizetype begin = std::exchange(fieldStart_, dataEnd_) + (quoted ? 1 : 0);
    state_ = State::Plain;
    return endField(batch, begin, quoted ? quoteAt_ : dataEnd_, quoted) && endRow(batch);
}

bool CsvParser::endField(RowBatch& batch, qsizetype begin, qsizetype end, bool quoted) {
    const uchar* bytes = window_.get() + begin;
    qsizetype size = end - begin;
    if (size > settings_.fieldLimit) {
        tooLongAt_ = begin;
        return failOverLimit(batch);
    }
    if (size_t(column_) >= slots_.size())
        return surplusField(batch, bytes, size, quoted);
    const Slot slot = slots_[size_t(column_)];
    const uchar* cell = slot.null;
    if (slot.kind != Kind::Skipped && (size > 0 || quoted) && !badRow_) {
        if (quoted && doubled_)
            std::tie(bytes, size) = withoutDoubledQuotes(bytes, size);
        const qint64 line = quoted ? fieldLine_ : line_;
        cell = slot.kind == Kind::Text ? textCell(batch, line, bytes, size)
                                       : numberCell(batch, line, bytes, size);
        if (cell == nullptr) {
            if (!holdBack(batch))
                return false;
            cell = slot.null;
        }
    }
    *nextCell_++ = cell;
    ++column_;
    return true;
}

/// The String cell for a text that isn't null; null when it isn't valid.
inline const uchar* CsvParser::textCell(RowBatch& batch, qint64 line, const uchar* bytes,
                                        qsizetype size) {
    if (size == 0)
        return &cell::emptyText;
    uchar* cell = batch.arena.reserve(2 * size + 8 + transcodeSlack);
    const int length = static_cast<int>(size) + 1;
    // Qt can take text at an even address as it is.
    cell += (reinterpret_cast<quintptr>(cell) + size_t(cell::lengthFieldBytes(length))) & 1;
    uchar* const units = cell::writeLength(cell, length);
    if (!widenText(bytes, size, units))
        return textBeyondAscii(batch, line, bytes, size);
    batch.arena.commit(units + 2 * size);
    return cell;
}

bool CsvParser::endRow(RowBatch& batch) {
    const qint64 line = std::exchange(rowLine_, line_);
    const int fields = std::exchange(column_, 0);
    const bool whole = inFirstRow_ || fields == batch.columns;
    const bool accepted =
        !badRow_ && (whole || failAtRowOf(batch, line, fields)) && acceptRow(batch, line);
    if (!accepted && (!rejects() || !rejectRow(batch)))
        return false;
    if (inFirstRow_ && rejects_ != nullptr)
        firstRowBytes_.assign(window_.get() + rowStart_, window_.get() + fieldStart_);
    rowStart_ = fieldStart_;
    return true;
}

bool CsvParser::acceptRow(RowBatch& batch, qint64 line) {
    if (order_.isNeeded() && !order_.accept(batch.row(batch.rows), line))
        return fail(batch, 0, order_.problem());
    if (batch.rows == 0)
        batch.firstLine = line;
    ++batch.rows;
    rowBegan_ = batch.arena.used();
    full_ = batch.rows == rowsWanted_ || rowBegan_ >= RowBatch::fullBytes;
    return true;
}

} // namespace velmorra

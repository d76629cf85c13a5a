/// The road that most rows take: a field for each column, values that are sound, and quotes that
/// hold neither a quote nor a line end. Whatever else turns up is left to the rest of the parser,
/// which judges it from the beginning of its field.
#include "engine/csv/csv_parser.h"
#include "engine/csv/field_value.h"
#include "engine/csv/transcode.h"

#include <tuple>
#include <utility>

namespace velmorra {

/// Works on copies of the parser's members: those the compiler can keep in registers, since a byte
/// of a cell that is stored can't be one of them.
class CsvParser::PlainRows {
public:
    class Marks;

    PlainRows(CsvParser& parser, RowBatch& batch)
        : parser_(parser),
          batch_(batch),
          window_(parser.window_.get()),
          limit_(parser.settings_.fieldLimit),
          decimal_(parser.settings_.decimal),
          firstSlot_(parser.slots_.data()),
          lastSlot_(firstSlot_ + parser.slots_.size() - 1),
          slot_(firstSlot_),
          start_(parser.fieldStart_),
          nextCell_(parser.nextCell_),
          rows_(batch.rows),
          line_(parser.line_),
          rowLine_(parser.rowLine_) {
        makeRoom(0);
    }

    /// Tells the parser how far it has come.
    void finish(qsizetype at) {
        batch_.arena.commit(out_);
        batch_.rows = rows_;
        parser_.nextCell_ = nextCell_;
        parser_.column_ = static_cast<int>(slot_ - firstSlot_);
        parser_.fieldStart_ = start_;
        parser_.line_ = line_;
        parser_.rowLine_ = rowLine_;
        parser_.scanned_ = at;
    }

    bool isInLastColumn() const { return slot_ == lastSlot_; }
    qsizetype start() const { return start_; }

    /// Takes the field up to `end`, behind which its delimiter or line end stands, in quotes or
    /// not. False, and nothing has changed, where there is more to it.
    bool takeField(qsizetype begin, qsizetype end, bool quoted) {
        const uchar* const bytes = window_ + begin;
        const qsizetype size = end - begin;
        if (size > limit_)
            return false;
        const uchar* cell = slot_->null;
        if ((size > 0 || quoted) && slot_->kind != Kind::Skipped) {
            cell = slot_->kind == Kind::Text  ? text(bytes, size)
                   : slot_->kind == Kind::Key ? key(bytes, size)
                                              : number(bytes, size);
            if (cell == nullptr)
                return false;
        }
        *nextCell_++ = cell;
        start_ = end + (quoted ? 2 : 1);
        ++slot_;
        return true;
    }

    /// Ends a row whose line end stands in front of `next`. True when the batch is full.
    bool endRow(qsizetype next) {
        if (rows_++ == 0)
            batch_.firstLine = rowLine_;
        rowLine_ = ++line_;
        start_ = next;
        slot_ = firstSlot_;
        parser_.rowStart_ = next;
        parser_.rowBegan_ = committed_ + (out_ - begin_);
        parser_.full_ = rows_ == parser_.rowsWanted_ || parser_.rowBegan_ >= RowBatch::fullBytes;
        return parser_.full_;
    }

private:
    /// Puts what was written into the arena, and finds room for more behind it.
    void makeRoom(qsizetype bytes) {
        if (out_ != nullptr)
            batch_.arena.commit(out_);
        std::tie(out_, end_) = batch_.arena.reserveRest(bytes);
        begin_ = out_;
        committed_ = batch_.arena.used();
    }

    const uchar* text(const uchar* bytes, qsizetype size) {
        if (size == 0)
            return &cell::emptyText;
        if (end_ - out_ < 2 * size + 8 + transcodeSlack)
            makeRoom(2 * size + 8 + transcodeSlack);
        const int length = static_cast<int>(size) + 1;
        // Qt can take text at an even address as it is.
        uchar* cell =
            out_ +
            ((reinterpret_cast<quintptr>(out_) + size_t(cell::lengthFieldBytes(length))) & 1);
        uchar* units = cell + 1;
        // Nearly all are short: no loop for those.
        if (cell::lengthFieldBytes(length) == 1)
            *cell = static_cast<uchar>(length | 0x80);
        else
            units = cell::writeLength(cell, length);
        if (!widenText(bytes, size, units))
            return beyondAscii(bytes, size);
        out_ = units + 2 * size;
        return cell;
    }

    const uchar* beyondAscii(const uchar* bytes, qsizetype size) {
        batch_.arena.commit(out_);
        const uchar* const cell = parser_.textBeyondAscii(batch_, line_, bytes, size);
        out_ = nullptr;
        makeRoom(0);
        return cell;
    }

    const uchar* key(const uchar* bytes, qsizetype size) {
        quint32 value = 0;
        if (!readKey(bytes, size, slot_->largestKey, &value))
            return nullptr;
        if (end_ - out_ < qsizetype(sizeof value))
            makeRoom(sizeof value);
        cell::storeKey(out_, value);
        return std::exchange(out_, out_ + sizeof value);
    }

    const uchar* number(const uchar* bytes, qsizetype size) {
        double value = 0;
        if (!readFloat(bytes, size, decimal_, &value))
            return nullptr;
        if (end_ - out_ < qsizetype(sizeof value))
            makeRoom(sizeof value);
        cell::storeFloat(out_, value);
        return std::exchange(out_, out_ + sizeof value);
    }

    CsvParser& parser_;
    RowBatch& batch_;
    const uchar* const window_;
    const qint64 limit_;
    const char decimal_;
    const Slot* const firstSlot_;
    const Slot* const lastSlot_;

    const Slot* slot_; ///< of the field that is being read
    qsizetype start_;  ///< where it begins
    const uchar** nextCell_;
    int rows_;
    qint64 line_;
    qint64 rowLine_;

    // What is left of the arena's block, and how much of it has been written.
    uchar* begin_ = nullptr;
    uchar* out_ = nullptr;
    uchar* end_ = nullptr;
    qsizetype committed_ = 0; ///< bytes in the arena when it began
};

/// The bytes with a meaning, one after the other.
class CsvParser::PlainRows::Marks {
public:
    /// Stands on the next byte to look at that has one.
    explicit Marks(CsvParser& parser) : parser_(parser) {
        const qsizetype at = parser.nextMark();
        if (at == parser.dataEnd_)
            return;
        const qsizetype offset = at - parser.marksBegin_;
        block_ = at - offset % scanBlock;
        bits_ = parser.marks_[size_t(offset / scanBlock)] & (~quint64(0) << (offset % scanBlock));
    }

    bool found() const { return bits_ != 0; }
    qsizetype at() const { return block_ + std::countr_zero(bits_); }

    /// False at the end of the data.
    bool next() {
        bits_ &= bits_ - 1;
        while (bits_ == 0) {
            block_ += scanBlock;
            if (block_ >= parser_.marksEnd_) {
                if (block_ >= parser_.dataEnd_)
                    return false;
                parser_.scanned_ = block_;
                parser_.indexMarks();
            }
            bits_ = parser_.marks_[size_t((block_ - parser_.marksBegin_) / scanBlock)];
        }
        return true;
    }

private:
    CsvParser& parser_;
    qsizetype block_ = 0;
    quint64 bits_ = 0; ///< of the block, from the one that it stands on
};

/// Reads rows until the batch is full, the data ends, or a byte or value needs a closer look.
/// Requires: at the beginning of a row.
void CsvParser::readPlainRows(RowBatch& batch) {
    if (slots_.empty() || inFirstRow_ || !settings_.comment.isEmpty())
        return;
    const bool ordered = order_.isNeeded();
    const uchar* const window = window_.get();
    const uchar delimiter = static_cast<uchar>(settings_.delimiter);
    const uchar quote = static_cast<uchar>(settings_.quote);
    const bool quotes = settings_.quote != CsvSettings::noQuote;
    PlainRows rows(*this, batch);
    PlainRows::Marks mark(*this);
    while (mark.found()) {
        const qsizetype first = mark.at();
        qsizetype end = first;
        const bool quoted = quotes && window[first] == quote && first == rows.start();
        if (quoted) {
            // A delimiter in quotes is text.
            do {
                if (!mark.next())
                    return rows.finish(first);
            } while (window[mark.at()] == delimiter);
            end = mark.at();
            if (window[end] != quote || !mark.next() || mark.at() != end + 1)
                return rows.finish(first);
        }
        const bool last = rows.isInLastColumn();
        const qsizetype behind = quoted ? end + 1 : end;
        const bool returnFeed = last && window[behind] == '\r' && window[behind + 1] == '\n';
        if (returnFeed)
            mark.next();
        else if (window[behind] != (last ? uchar('\n') : delimiter))
            return rows.finish(first);
        if ((last && ordered) || !rows.takeField(quoted ? first + 1 : rows.start(), end, quoted))
            return rows.finish(first);
        if (last && rows.endRow(behind + (returnFeed ? 2 : 1)))
            return rows.finish(rows.start());
        mark.next();
    }
    rows.finish(dataEnd_);
}

} // namespace velmorra

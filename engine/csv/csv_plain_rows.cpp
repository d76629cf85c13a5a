/// The road that most rows take: no quotes, a field for each column, and values that are sound.
/// Whatever else turns up is left to the rest of the parser, which judges it from the beginning of
/// its field.
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

    /// Takes the field that ends at `at`. False, and nothing has changed, where there is more to
    /// it.
    bool takeField(qsizetype at) {
        const uchar* const bytes = window_ + start_;
        const qsizetype size = at - start_;
        if (size > limit_)
            return false;
        const uchar* cell = slot_->null;
        if (size > 0 && slot_->kind != Kind::Skipped) {
            cell = slot_->kind == Kind::Text  ? text(bytes, size)
                   : slot_->kind == Kind::Key ? key(bytes, size)
                                              : number(bytes, size);
            if (cell == nullptr)
                return false;
        }
        *nextCell_++ = cell;
        start_ = at + 1;
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

/// Reads rows until the batch is full, the data ends, or a byte or value needs a closer look.
/// Requires: at the beginning of a row.
void CsvParser::readPlainRows(RowBatch& batch) {
    if (slots_.empty() || inFirstRow_ || !settings_.comment.isEmpty())
        return;
    PlainRows rows(*this, batch);
    const bool ordered = order_.isNeeded();
    const uchar* const window = window_.get();
    const uchar delimiter = static_cast<uchar>(settings_.delimiter);
    for (qsizetype at = nextMark(); at < dataEnd_; at = nextMark()) {
        const qsizetype block = at - (at - marksBegin_) % scanBlock;
        quint64 marks = marks_[size_t((at - marksBegin_) / scanBlock)] &
                        (~quint64(0) << ((at - marksBegin_) % scanBlock));
        for (; marks != 0; marks &= marks - 1) {
            at = block + std::countr_zero(marks);
            const bool last = rows.isInLastColumn();
            qsizetype next = at + 1;
            if (window[at] != (last ? uchar('\n') : delimiter)) {
                const bool returnFeed = last && window[at] == '\r' && window[next] == '\n' &&
                                        (marks & (marks - 1)) != 0;
                if (!returnFeed)
                    return rows.finish(at);
                marks &= marks - 1;
                ++next;
            }
            if ((last && ordered) || !rows.takeField(at))
                return rows.finish(at);
            if (last && rows.endRow(next))
                return rows.finish(next);
        }
        scanned_ = block + scanBlock;
    }
    rows.finish(dataEnd_);
}

} // namespace velmorra

/// The part of the parser that sends broken rows to the rejects and goes on behind them.
#include "engine/csv/csv_parser.h"

#include <algorithm>
#include <cstring>
#include <utility>

namespace velmorra {

namespace {
/// Bytes of a row, beyond those of a field, that are held in memory in case it must be rejected.
constexpr qsizetype rowBytesInMemory = 64 << 20;
} // namespace

/// Whether what is being read takes too much memory; the batch then has failed.
bool CsvParser::isOverLimit(RowBatch& batch) {
    if (dataEnd_ - fieldStart_ > settings_.fieldLimit + 2)
        return !failOverLimit(batch);
    if (rejects_ == nullptr || dataEnd_ - rowStart_ <= settings_.fieldLimit + rowBytesInMemory)
        return false;
    return !fail(batch, rowLine_,
                 QStringLiteral("the row is too long to be held for rejecting it"));
}

/// Keeps a problem of a value until the row's end is found. False when the problem ends the table.
bool CsvParser::holdBack(RowBatch& batch) {
    if (!rejects())
        return false;
    badRow_ = true;
    batch.end = BatchEnd::More;
    return true;
}

bool CsvParser::giveToRejects(RowBatch& batch, const uchar* bytes, qsizetype size) {
    if (rejects_->take(bytes, size))
        return true;
    rejectsFailed_ = true;
    batch.problem = rejects_->failure();
    batch.end = batch.problem.isNull() ? BatchEnd::Stopped : BatchEnd::Failed;
    return false;
}

/// Makes room for the next row.
void CsvParser::forgetRow(RowBatch& batch) {
    badRow_ = false;
    batch.end = BatchEnd::More;
    batch.problem = {};
    column_ = 0;
    nextCell_ = batch.cells.data() + size_t(batch.rows) * size_t(batch.columns);
    full_ = batch.arena.used() >= RowBatch::fullBytes;
    rowBegan_ = batch.arena.used();
}

/// Rejects the row whose last line end has just been read.
bool CsvParser::rejectRow(RowBatch& batch) {
    rejects_->begin(batch.problem);
    forgetRow(batch);
    return giveToRejects(batch, window_.get() + rowStart_, fieldStart_ - rowStart_);
}

bool CsvParser::rejectFirstRow(RowBatch& batch) {
    rejects_->begin(batch.problem);
    forgetRow(batch);
    return giveToRejects(batch, firstRowBytes_.data(), qsizetype(firstRowBytes_.size()));
}

/// Behind a failure inside a row: rejects the lines from the row's first to the one of `spot`, and
/// goes on behind them. False when the failure ends the table.
bool CsvParser::resynchronise(RowBatch& batch, qsizetype spot) {
    if (!rejects() || batch.end != BatchEnd::Failed)
        return false;
    const bool quoted = state_ == State::Quoted || state_ == State::QuoteSeen;
    if (quoted &&
        spot - fieldStart_ > std::min<qint64>(mostInBrokenQuotes, settings_.fieldLimit + 2))
        spot = fieldStart_;
    // It doesn't matter how much of such a field happened to be in the window.
    if (const qsizetype begin = std::exchange(tooLongAt_, -1); begin >= 0)
        spot = begin;
    rejects_->begin(batch.problem);
    forgetRow(batch);
    const uchar* const row = window_.get() + rowStart_;
    const void* const lineEnd = std::memchr(window_.get() + spot, '\n', size_t(dataEnd_ - spot));
    const uchar* const end =
        lineEnd != nullptr ? static_cast<const uchar*>(lineEnd) + 1 : window_.get() + dataEnd_;
    state_ = lineEnd != nullptr ? State::Plain : State::InRejected;
    line_ = rowLine_ + std::count(row, end, '\n');
    rowLine_ = line_;
    rowStart_ = fieldStart_ = scanned_ = end - window_.get();
    return giveToRejects(batch, row, end - row);
}

/// Lets go of what has been read of a line that isn't part of the table.
bool CsvParser::passPart(RowBatch& batch) {
    if (state_ != State::InComment && state_ != State::InRejected)
        return true;
    const qsizetype from = std::exchange(rowStart_, dataEnd_);
    fieldStart_ = dataEnd_;
    return state_ == State::InComment ||
           giveToRejects(batch, window_.get() + from, dataEnd_ - from);
}

} // namespace velmorra

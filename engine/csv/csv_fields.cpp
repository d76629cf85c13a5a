/// The value half of the parser: fields beyond plain text, and what is said about broken ones.
#include "engine/csv/csv_parser.h"
#include "engine/csv/field_value.h"
#include "engine/csv/transcode.h"

#include "host/row_buffer.h"

#include <algorithm>
#include <array>

namespace velmorra {

namespace {

QString number(qint64 value) {
    return QString::number(value);
}

} // namespace

std::pair<const uchar*, qsizetype> CsvParser::withoutDoubledQuotes(const uchar* bytes,
                                                                   qsizetype size) {
    if (unescaped_.size() < size_t(size + transcodeSlack))
        unescaped_.resize(size_t(size + transcodeSlack));
    uchar* out = unescaped_.data();
    const uchar* const end = bytes + size;
    while (bytes < end) {
        const uchar* const quote = std::find(bytes, end, uchar(settings_.quote));
        const uchar* const past = quote == end ? end : quote + 1;
        out = std::copy(bytes, past, out);
        // The second of the pair.
        bytes = quote == end ? end : past + 1;
    }
    return {unescaped_.data(), out - unescaped_.data()};
}

const uchar* CsvParser::textBeyondAscii(RowBatch& batch, qint64 line, const uchar* bytes,
                                        qsizetype size) {
    constexpr int longestLengthField = 4;
    uchar* const cell = batch.arena.reserve(2 * size + 2 * longestLengthField + transcodeSlack);
    // A text has fewer units than bytes, so its length field may turn out shorter than assumed.
    uchar* units = cell + cell::lengthFieldBytes(static_cast<int>(size) + 1);
    units += reinterpret_cast<quintptr>(units) & 1;
    const Decoded decoded = decodeUtf8(bytes, size, units);
    if (decoded.badAt >= 0) {
        const qint64 feeds = std::count(bytes, bytes + decoded.badAt, '\n');
        failInField(batch, line + feeds,
                    undecodable(settings_.encoding, bytes, size, decoded.badAt) +
                        QStringLiteral(", behind ") + shownValue(bytes, decoded.badAt));
        return nullptr;
    }
    const int length = static_cast<int>(decoded.units) + 1;
    uchar* const start = units - cell::lengthFieldBytes(length);
    cell::writeLength(start, length);
    batch.arena.commit(units + 2 * decoded.units);
    return start;
}

const uchar* CsvParser::numberCell(RowBatch& batch, qint64 line, const uchar* bytes,
                                   qsizetype size) {
    const CsvColumn& column = columns_[size_t(column_)];
    QString expected;
    if (column.metaType == MetaTypeKey) {
        quint32 value = 0;
        if (readKey(bytes, size, column.largestKey, &value)) {
            uchar* const cell = batch.arena.reserve(sizeof value);
            cell::storeKey(cell, value);
            batch.arena.commit(cell + sizeof value);
            return cell;
        }
        expected =
            QStringLiteral("a Key (a whole number from 0 to ") + number(column.largestKey) + u')';
    } else {
        double value = 0;
        if (readFloat(bytes, size, settings_.decimal, &value)) {
            uchar* const cell = batch.arena.reserve(sizeof value);
            cell::storeFloat(cell, value);
            batch.arena.commit(cell + sizeof value);
            return cell;
        }
        expected = settings_.decimal == '.'
                       ? QStringLiteral("a Float (a decimal number)")
                       : QStringLiteral("a Float (a decimal number with a comma)");
    }
    if (column.proposed)
        expected += QStringLiteral("; types='auto' proposed the type: declare it, as ") +
                    column.name + QStringLiteral(":U for text");
    failInField(batch, line, shownValue(bytes, size) + QStringLiteral(" is not ") + expected);
    return nullptr;
}

/// A field behind the last known column: one of the first row, or one too many.
bool CsvParser::surplusField(RowBatch& batch, const uchar* bytes, qsizetype size, bool quoted) {
    if (column_ == CsvSettings::maxColumns)
        return fail(batch, rowLine_,
                    QStringLiteral("the row has more than ") + number(CsvSettings::maxColumns) +
                        QStringLiteral(" columns"));
    if (inFirstRow_) {
        const uchar* cell = &cell::nullText;
        if (size > 0 || quoted) {
            if (quoted && doubled_)
                std::tie(bytes, size) = withoutDoubledQuotes(bytes, size);
            cell = size == 0 ? &cell::emptyText
                             : textBeyondAscii(batch, quoted ? fieldLine_ : line_, bytes, size);
        }
        if (cell == nullptr)
            return false;
        batch.cells.push_back(cell);
    }
    ++column_;
    return true;
}

/// Gives the first row, which was read as text, its columns' types.
bool CsvParser::convertFirstRow(RowBatch& batch) {
    for (column_ = 0; column_ < batch.columns; ++column_) {
        const uchar* const text = firstRow_.cells[size_t(column_)];
        const Slot slot = slots_[size_t(column_)];
        const uchar* cell = slot.null;
        if (slot.kind == Kind::Text) {
            const qsizetype size = cell::textBytes(text);
            uchar* const copy = batch.arena.reserve(size);
            std::memcpy(copy, text, size_t(size));
            batch.arena.commit(copy + size);
            cell = copy;
        } else if (slot.kind != Kind::Skipped && !cell::text(text).isNull()) {
            const QByteArray bytes = qStringFromBytes(text).toUtf8();
            cell = numberCell(batch, firstRow_.firstLine,
                              reinterpret_cast<const uchar*>(bytes.constData()), bytes.size());
        }
        if (cell == nullptr)
            break;
        *nextCell_++ = cell;
    }
    return std::exchange(column_, 0) == batch.columns;
}

bool CsvParser::fail(RowBatch& batch, qint64 line, const QString& what) {
    batch.end = BatchEnd::Failed;
    batch.problem = fileName_ + u' ';
    if (line > 0)
        batch.problem += QStringLiteral("line ") + number(line) + QStringLiteral(": ");
    batch.problem += what;
    return false;
}

bool CsvParser::failInField(RowBatch& batch, qint64 line, const QString& what) {
    QString place = QStringLiteral("column ") + number(column_ + 1);
    if (size_t(column_) < columns_.size())
        place += u' ' + shownValue(columns_[size_t(column_)].name);
    batch.end = BatchEnd::Failed;
    batch.problem = fileName_ + QStringLiteral(" line ") + number(line) + QStringLiteral(", ") +
                    place + QStringLiteral(": ") + what;
    return false;
}

bool CsvParser::failAtRowOf(RowBatch& batch, qint64 line, int fields) {
    return fail(
        batch, line,
        QStringLiteral("the row has ") + number(fields) +
            (fields == 1 ? QStringLiteral(" field where ") : QStringLiteral(" fields where ")) +
            number(batch.columns) + QStringLiteral(" are expected"));
}

bool CsvParser::failOverLimit(RowBatch& batch) {
    QString text = QStringLiteral("the field is over the limit of ") +
                   number(settings_.fieldLimit) + QStringLiteral(" bytes");
    const bool quoted = state_ == State::Quoted || state_ == State::QuoteSeen;
    if (quoted)
        text += QStringLiteral("; its quotes open here");
    return failInField(batch, quoted ? fieldLine_ : line_, text);
}

/// A byte that may not stand where it does, or one that is missing there.
bool CsvParser::failAtStrayByte(RowBatch& batch, qsizetype at) {
    if (at < dataEnd_ && window_[at] == 0)
        return failInField(batch, line_, QStringLiteral("a NUL byte; is this a text file?"));
    if (state_ == State::ReturnSeen)
        return fail(batch, line_,
                    QStringLiteral("a carriage return without a line feed behind it"));
    if (state_ == State::QuoteSeen)
        return failInField(batch, line_,
                           QStringLiteral("text stands behind the closing quote: ") +
                               valueAround(quoteAt_ + 1));
    return failInField(batch, line_,
                       QStringLiteral("a quote stands inside a field without quotes: ") +
                           valueAround(fieldStart_));
}

/// The rest of the line, or of the window, for a message.
QString CsvParser::valueAround(qsizetype begin) const {
    const uchar* const first = window_.get() + begin;
    const uchar* const last = window_.get() + dataEnd_;
    const uchar* const lineEnd =
        std::find_if(first, last, [](uchar byte) { return byte == '\n' || byte == '\r'; });
    return shownValue(first, lineEnd - first);
}

} // namespace velmorra

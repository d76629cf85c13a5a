#include "tests/harness/table_boxes.h"

namespace velmorra::harness {

namespace {
// As a text cell it is the empty text, so that a pointer that was kept too long gives a wrong row,
// and not a read beyond the bytes.
constexpr uchar poison = cell::emptyText;
} // namespace

TableSource::TableSource(std::shared_ptr<const PackedTable> table, SourceHabits habits,
                         GlobalParameters* parameters)
    : PlainBox(XMLNode(), parameters),
      table_(std::move(table)),
      habits_(habits) {
    nPinIn = 0;
}

ActionItem* TableSource::clone(GlobalParameters* parameters) const {
    return new TableSource(table_, habits_, parameters);
}

void TableSource::rewindRun() {
    next_ = 0;
    steps_ = 0;
    packed_.setShape(detached(table_->shape));
    setStep<&TableSource::step>();
}

bool TableSource::afterRun() {
    current_.clear();
    previous_.clear();
    return false;
}

bool TableSource::step() {
    OneRow& out = *getOutputRowForOutputPin(0);
    if (out.isFresh())
        out.setShape(table_->shape);
    // Waits of different lengths, none among them.
    if (habits_.late && steps_++ * 2654435761u >> 30 != 0 && isRunning())
        return false;
    std::fill(current_.begin(), current_.end(), poison);
    previous_.swap(current_);
    if (habits_.endless && next_ == table_->rows())
        next_ = 0;
    if (next_ == table_->rows() || !isRunning())
        return true;
    table_->read(next_++, packed_);
    out.copyFrom(packed_);
    if (habits_.oddAddresses)
        placeAtOddAddresses(out);
    setRowReadyForOutput(0);
    return !mustComputeFull();
}

void TableSource::placeAtOddAddresses(OneRow& row) {
    current_.assign(static_cast<size_t>(row.storedBytes() + 2 * row.columns + 1), poison);
    uchar* place = current_.data();
    for (int column = 0; column < row.columns; ++column) {
        const qint32 type = row.getMetaType(column).type;
        const bool isNumber = type == MetaTypeKey || type == MetaTypeFloat;
        // Of the texts, those in odd rows have the length field at an odd address, the others the
        // code units.
        const bool odd = isNumber || (static_cast<size_t>(column) + next_) % 2 != 0;
        if ((reinterpret_cast<quintptr>(place) & 1) != (odd ? 1 : 0))
            ++place;
        const auto size = static_cast<size_t>(cell::bytes(row.cells[column], type));
        std::memcpy(place, row.cells[column], size);
        row.setCol(column, place);
        place += size;
    }
}

TableSink::TableSink(GlobalParameters* parameters) : PlainBox(XMLNode(), parameters) {
    nPinOut = 0;
}

ActionItem* TableSink::clone(GlobalParameters* parameters) const {
    return new TableSink(parameters);
}

void TableSink::rewindRun() {
    table_ = PackedTable();
    defect_.clear();
    rowsTaken_ = 0;
    setStep<&TableSink::firstStep>();
}

bool TableSink::firstStep() {
    const OneRow* const row = getNextRowFromInPin(0);
    if (row == nullptr) {
        const PinOutMetaData* const columns =
            asksColumns && isRunning() ? columnsOfInPin(0) : nullptr;
        if (columns != nullptr)
            table_.shape = detached(*columns);
        return true;
    }
    table_.shape = detached(row->shape());
    setStep<&TableSink::step>();
    take(*row);
    return false;
}

bool TableSink::step() {
    const OneRow* const row = getNextRowFromInPin(0);
    if (row == nullptr) {
        const PinOutMetaData* const columns = columnsOfInPin(0);
        if (isRunning() && (columns == nullptr || !(*columns == table_.shape)))
            defect_ = QStringLiteral("the columns of the pin aren't those of its rows");
        return true;
    }
    if (!(row->shape() == table_.shape))
        defect_ = QStringLiteral("the columns changed at row %1").arg(rowsTaken_);
    else
        take(*row);
    return false;
}

void TableSink::take(const OneRow& row) {
    if (keepRows)
        table_.append(row);
    ++rowsTaken_;
}

} // namespace velmorra::harness

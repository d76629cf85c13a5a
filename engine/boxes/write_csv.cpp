#include "engine/boxes/write_csv.h"

#include "engine/run.h"
#include "host/main_ui.h"

#include <new>

namespace velmorra {

namespace {
constexpr qsizetype flushBytes = 256 << 10;
} // namespace

const BoxEntry& WriteCsv::entry() const {
    static const BoxEntry entry = {"WriteCsv",
                                   "Writes rows to a CSV file.",
                                   {QStringLiteral("csv"), QStringLiteral("file"),
                                    QStringLiteral("export"), QStringLiteral("write"),
                                    QStringLiteral("sink")}};
    return entry;
}

const StoredElement& WriteCsv::declaration() {
    static const StoredElement element =
        StoredElement(4.2)
            .text<&WriteCsv::file>("file", "", Written::Always,
                                   "the file to write; - is standard output")
            .boolean<&WriteCsv::header>("header", true, Written::WhenNotDefault,
                                        "the first line holds the columns' names")
            .boolean<&WriteCsv::typed>("typed", false, Written::WhenNotDefault,
                                       "the header's cells are name:TYPE or name:TYPE:SORT")
            .longInteger<&WriteCsv::limit>("limit", -1, Written::WhenNotDefault,
                                           "most rows to write; -1 for all");
    return element;
}

WriteCsv::WriteCsv(const XMLNode& element, GlobalParameters* parameters)
    : OutputBox(element, parameters) {
    nPinIn = 1;
    nPinOut = 0;
    readStored(declaration());
}

ActionItem* WriteCsv::newFromXML(XMLNode element, GlobalParameters* parameters) const {
    return new (std::nothrow) WriteCsv(element, parameters);
}

void WriteCsv::rewindRun() {
    setStep<&WriteCsv::firstStep>();
}

bool WriteCsv::beforeRun() {
    rows_ = 0;
    formatter_ = CsvFormatter();
    const bool limited = runOptions != nullptr && runOptions->rowLimit >= 0;
    rowLimit_ = limited ? runOptions->rowLimit : limit;
    if (typed && !header)
        return fail(QStringLiteral("a typed table needs its header: typed='1' and header='0' "
                                   "exclude each other"));
    if (!mustComputeFull())
        return false;
    {
        const std::lock_guard<std::mutex> guard(outputLock_);
        output_ = std::make_unique<OutputFile>();
    }
    const bool opened = output_->open(expandFile(file), [this] { return !isRunning(); });
    if (!opened && !output_->error().isNull())
        fail(output_->error());
    return !opened;
}

void WriteCsv::start(const PinOutMetaData& shape) {
    formatter_.setColumns(shape);
    if (header)
        formatter_.writeHeader(shape, typed);
}

bool WriteCsv::firstStep() {
    if (output_ == nullptr)
        return true;
    const OneRow* const row = getNextRowFromInPin(0);
    if (row == nullptr) {
        const PinOutMetaData* const shape = isRunning() ? columnsOfInPin(0) : nullptr;
        if (shape != nullptr)
            start(*shape);
        return true;
    }
    start(row->shape());
    setStep<&WriteCsv::nextRow>();
    return rowLimit_ == 0 || takeRow(*row);
}

bool WriteCsv::nextRow() {
    const OneRow* const row = getNextRowFromInPin(0);
    return row == nullptr || takeRow(*row);
}

/// True when no further row is to be taken.
bool WriteCsv::takeRow(const OneRow& row) {
    formatter_.writeRow(row.cells);
    const qint64 rows = rows_.load(std::memory_order_relaxed) + 1;
    rows_.store(rows, std::memory_order_relaxed);
    if (formatter_.size() >= flushBytes && !flush())
        return true;
    return rows == rowLimit_;
}

/// False when the output takes no more, be it that its reader has enough.
bool WriteCsv::flush() {
    const bool written = output_->write(formatter_.bytes(), formatter_.size());
    formatter_.clear();
    if (!written && !output_->error().isNull())
        fail(output_->error());
    return written && !output_->readerGone();
}

bool WriteCsv::finishOutput() {
    if (output_ == nullptr)
        return true;
    const bool finished =
        output_->write(formatter_.bytes(), formatter_.size()) && output_->finish();
    formatter_.clear();
    if (!finished && !output_->error().isNull())
        fail(output_->error());
    if (finished && formatter_.brokenCharacters() > 0)
        MainUI::addLog(2, QString::number(formatter_.brokenCharacters()) +
                              QStringLiteral(" half characters (lone surrogates) cannot be written "
                                             "as UTF-8; U+FFFD stands for each"));
    return finished;
}

bool WriteCsv::commitOutput() {
    if (output_ == nullptr || output_->commit())
        return true;
    fail(output_->error());
    return false;
}

void WriteCsv::discardOutput() {
    const std::lock_guard<std::mutex> guard(outputLock_);
    if (output_ != nullptr)
        output_->discard();
}

bool WriteCsv::afterRun() {
    formatter_ = CsvFormatter();
    const std::lock_guard<std::mutex> guard(outputLock_);
    output_.reset();
    return false;
}

} // namespace velmorra

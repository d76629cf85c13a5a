#include "engine/boxes/write_gel.h"

#include "engine/run.h"
#include "host/main_ui.h"

#include <algorithm>
#include <new>

namespace velmorra {

namespace {
constexpr qint64 flushBytes = 256 << 10;
// What the thread that runs the graph can keep busy.
constexpr int mostWorkers = 4;
} // namespace

const BoxEntry& WriteGel::entry() const {
    static const BoxEntry entry = {"WriteGel",
                                   "Writes rows to a stored table (gel file).",
                                   {QStringLiteral("gel"), QStringLiteral("file"),
                                    QStringLiteral("export"), QStringLiteral("sink"),
                                    QStringLiteral("stored"), QStringLiteral("write")}};
    return entry;
}

const StoredElement& WriteGel::declaration() {
    static const StoredElement element =
        StoredElement(4.2)
            .text<&WriteGel::file>("file", "", Written::Always,
                                   "the file to write; - is standard output")
            .longInteger<&WriteGel::limit>("limit", -1, Written::WhenNotDefault,
                                           "most rows to write; -1 for all")
            .exampleWords("WriteGel file=out.gel");
    return element;
}

WriteGel::WriteGel(const XMLNode& element, GlobalParameters* parameters)
    : FileOutputBox(element, parameters) {
    nPinIn = 1;
    nPinOut = 0;
    readStored(declaration());
}

ActionItem* WriteGel::newFromXML(XMLNode element, GlobalParameters* parameters) const {
    return new (std::nothrow) WriteGel(element, parameters);
}

void WriteGel::rewindRun() {
    setStep<&WriteGel::firstStep>();
}

bool WriteGel::beforeRun() {
    startCounting(limit);
    started_ = false;
    if (!mustComputeFull())
        return false;
    const int threads = runOptions != nullptr ? runOptions->threads : 1;
    writer_ = std::make_unique<gel::GelWriter>(std::clamp(threads - 1, 0, mostWorkers));
    const bool opened = openOutput(expandFile(file), [this] { return !isRunning(); });
    if (!opened && !output()->error().isNull())
        fail(output()->error());
    return !opened;
}

/// False when the table can't be stored.
bool WriteGel::start(const PinOutMetaData& columns) {
    const QString problem = writer_->start(columns);
    started_ = problem.isNull();
    if (!started_)
        fail(problem);
    return started_;
}

bool WriteGel::firstStep() {
    if (output() == nullptr)
        return true;
    const OneRow* const row = getNextRowFromInPin(0);
    if (row == nullptr) {
        const PinOutMetaData* const columns = isRunning() ? columnsOfInPin(0) : nullptr;
        start(columns != nullptr ? *columns : PinOutMetaData());
        return true;
    }
    setStep<&WriteGel::nextRow>();
    return !start(row->shape()) || !wantsRows() || takeRow(*row);
}

bool WriteGel::nextRow() {
    const OneRow* const row = getNextRowFromInPin(0);
    return row == nullptr || takeRow(*row);
}

/// True when no further row is to be taken.
bool WriteGel::takeRow(const OneRow& row) {
    const QString problem = writer_->add(row.cells);
    if (!problem.isNull())
        return fail(problem);
    const bool isLast = countRow();
    return (writer_->size() >= flushBytes && !flush()) || isLast;
}

/// Hands what is ready to the file; false when that takes no more, be it that its reader has
/// enough.
bool WriteGel::flush() {
    const bool written = output()->write(writer_->bytes(), writer_->size());
    writer_->clear();
    if (!written && !output()->error().isNull())
        fail(output()->error());
    return written && !output()->readerGone();
}

bool WriteGel::finishOutput() {
    if (output() == nullptr)
        return true;
    if (started_)
        writer_->finish();
    started_ = false;
    const bool finished = output()->write(writer_->bytes(), writer_->size()) && output()->finish();
    if (!finished && !output()->error().isNull())
        fail(output()->error());
    return finished;
}

bool WriteGel::afterRun() {
    writer_.reset();
    releaseOutput();
    return false;
}

} // namespace velmorra

#include "engine/boxes/sort.h"

#include "engine/run.h"
#include "engine/typed_header.h"

#include <algorithm>
#include <limits>
#include <new>

namespace velmorra {

namespace {

/// The order by columns of a table that a text asks for. A null string or a problem.
QString parseOrder(const QString& by, const PinOutMetaData& shape, QVector<SortInfos>* order) {
    // The types count in a check of their own, which has a message of its own.
    PinOutMetaData anyTypes = shape;
    anyTypes.types.fill(MetaInfo());
    const QString problem = applySorted(by, &anyTypes, "by");
    if (!problem.isNull())
        return problem;
    *order = anyTypes.sort;
    const bool comparable = std::all_of(order->begin(), order->end(), [&](const SortInfos& sort) {
        return cellOrder(sort.SortType, shape.types[sort.column].type) != nullptr;
    });
    return comparable ? QString()
                      : QStringLiteral("ERROR: 'Alphabetic' Sort-type and Meta-type of Key is "
                                       "'float': This is incompatible\n");
}

bool beginsWith(const QVector<SortInfos>& whole, const QVector<SortInfos>& beginning) {
    return whole.size() >= beginning.size() &&
           std::equal(beginning.begin(), beginning.end(), whole.begin());
}

} // namespace

const BoxEntry& Sort::entry() const {
    static const BoxEntry entry = {"Sort",
                                   "Sorts the rows of a table.",
                                   {QStringLiteral("order"), QStringLiteral("sort"),
                                    QStringLiteral("rank"), QStringLiteral("rows")}};
    return entry;
}

const StoredElement& Sort::declaration() {
    static const StoredElement element =
        StoredElement(4.2)
            .text<&Sort::by>("by", "", Written::Always,
                             "the columns to sort by, the main one first, each with its order, as "
                             "day:0,name:A: 0 by number, rising; 9 by number, falling; A by text, "
                             "rising; Z by text, falling")
            .longInteger<&Sort::memoryLimit>(
                "memoryLimit", defaultMemoryLimit, Written::WhenNotDefault,
                "MiB that the rows may take in memory before they go to a temporary file; 0: no "
                "limit")
            .text<&Sort::temporaryFolder>("temporaryFolder", "", Written::WhenNotDefault,
                                          "where the temporary file goes; empty: the system's "
                                          "folder for such files");
    return element;
}

Sort::Sort(const XMLNode& element, GlobalParameters* parameters) : EngineBox(element, parameters) {
    readStored(declaration());
}

ActionItem* Sort::newFromXML(XMLNode element, GlobalParameters* parameters) const {
    return new (std::nothrow) Sort(element, parameters);
}

void Sort::rewindRun() {
    setStep<&Sort::firstStep>();
}

bool Sort::beforeRun() {
    sorter_.reset();
    if (memoryLimit < 0 || memoryLimit > largestMemoryLimit)
        return fail(QStringLiteral("memoryLimit is ") + QString::number(memoryLimit) +
                    QStringLiteral("; it must be from 0 to ") +
                    QString::number(largestMemoryLimit));
    if (expandString(by).isEmpty())
        return fail(QStringLiteral("by is empty; it must name a column to sort by, as day:0 or "
                                   "name:A"));
    return false;
}

bool Sort::afterRun() {
    sorter_.reset();
    return false;
}

qint64 Sort::memoryBytes() const {
    if (runOptions != nullptr && runOptions->sortMemory > 0)
        return runOptions->sortMemory;
    return memoryLimit == 0 ? std::numeric_limits<qint64>::max() : memoryLimit << 20;
}

bool Sort::firstStep() {
    const OneRow* const row = getNextRowFromInPin(0);
    if (row == nullptr)
        return true;
    if (!resolve(*row))
        return true;
    if (isInOrder_ || !mustComputeFull()) {
        setRowReadyForOutput(0);
        setStep<&Sort::passRow>();
        return !mustComputeFull();
    }
    if (!readAll(row))
        return true;
    setStep<&Sort::nextRow>();
    return nextRow();
}

/// Sets the output's columns, with the cells of this row, and its order.
bool Sort::resolve(const OneRow& row) {
    QVector<SortInfos> order;
    const QString problem = parseOrder(expandString(by), row.shape(), &order);
    if (!problem.isNull())
        return !fail(problem);
    output_ = getOutputRowForOutputPin(0);
    output_->copyFrom(row);
    isInOrder_ = beginsWith(row.sortInfos(), order);
    if (!isInOrder_)
        output_->setSortInfos(order);
    return true;
}

/// Takes the table from a row on into the sorter. False when the run ends with that.
bool Sort::readAll(const OneRow* row) {
    const QString ofRun = runOptions != nullptr ? runOptions->temporaryFolder : QString();
    const QString folder = temporaryFolder.isEmpty() ? ofRun : expandFile(temporaryFolder);
    sorter_ = std::make_unique<RowSorter>(output_->shape(), memoryBytes(), folder,
                                          globalParameters->runStatus);
    bool sorted = true;
    for (; row != nullptr && sorted; row = getNextRowFromInPin(0))
        sorted = sorter_->add(*row);
    sorted = sorted && isRunning() && sorter_->finish();
    if (!sorter_->problem().isNull())
        fail(sorter_->problem());
    return sorted;
}

bool Sort::passRow() {
    const OneRow* const row = getNextRowFromInPin(0);
    if (row == nullptr)
        return true;
    output_->copyFrom(*row);
    setRowReadyForOutput(0);
    return false;
}

bool Sort::nextRow() {
    if (!sorter_->next(*output_))
        return sorter_->problem().isNull() || fail(sorter_->problem());
    setRowReadyForOutput(0);
    return false;
}

} // namespace velmorra

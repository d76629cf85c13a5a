#include "actions/aggregate/accumulator.h"

#include "host/number_parser.h"

namespace {

// Values that aren't numbers may come with any bits, and a sum keeps them: storableFloat sees to it
// that a sum never becomes null.

void addKey(double& sum, const uchar* bytes) {
    const quint32 key = cell::loadKey(bytes);
    if (key != cell::nullKey)
        sum += key;
}

void addFloat(double& sum, const uchar* bytes) {
    if (cell::loadFloatBits(bytes) != cell::nullFloatBits)
        sum = cell::storableFloat(sum + cell::loadFloat(bytes));
}

void addText(double& sum, const uchar* bytes) {
    const cell::TextView text = cell::text(bytes);
    if (text.isNull())
        return;
    bool ok = false;
    const double value = parseCellNumber(text.chars, text.size(), &ok);
    if (ok)
        sum = cell::storableFloat(sum + value);
}

} // namespace

const StoredElement& Accumulator::declaration() {
    static const StoredElement element =
        StoredElement(2.14)
            .text<&Accumulator::colAcc>("colAcc", "", Written::Always, "name of the column to sum")
            .text<&Accumulator::outColName>("outColName", "sum", Written::WhenNotDefault,
                                            "name of the new column")
            .text<&Accumulator::startVal>("startVal", "0", Written::WhenNotDefault,
                                          "number that each sum starts from; may hold parameters, "
                                          "and a text that is no number counts as 0")
            .text<&Accumulator::colPartition>("colPartition", "", Written::WhenNotDefault,
                                              "name of the partition column: the sum starts again "
                                              "where its value changes; empty for one sum over "
                                              "the whole table");
    return element;
}

Accumulator::Accumulator(const XMLNode& element, GlobalParameters* parameters)
    : PluginAction(element, parameters) {
    readStored(declaration());
}

void Accumulator::rewindRun() {
    setStep<&Accumulator::firstStep>();
}

char Accumulator::canRunInParallel(const QString& partitionColumn, bool* answer) {
    *answer = !colPartition.isEmpty() && partitionColumn == colPartition;
    return 0;
}

bool Accumulator::firstStep() {
    const OneRow* const row = getNextRowFromInPin(0);
    if (row == nullptr || !resolve(*row))
        return true;
    passOn(*row);
    return !mustComputeFull();
}

bool Accumulator::resolve(const OneRow& row) {
    OneRow& out = *getOutputRowForOutputPin(0);
    const int sumColumn = row.sz();
    out.copyFrom(row);
    out.setNumberOfColumns(sumColumn + 1);
    out.setColName(sumColumn, outColName);
    out.setMetaType(sumColumn, MetaInfo(MetaTypeFloat, -1));

    accIndex_ = row.getIndexOfColumn(colAcc);
    if (accIndex_ < 0)
        return !fail(QStringLiteral("ERROR: column to accumulate '%1' not found.\n").arg(colAcc));
    const qint32 metaType = row.getMetaType(accIndex_).type;
    addCell_ = metaType == MetaTypeKey ? &addKey : metaType == MetaTypeFloat ? &addFloat : &addText;

    startValue_ = cell::storableFloat(expandString(startVal).toDouble());
    sum_ = startValue_;
    out.setCol(sumColumn, reinterpret_cast<const uchar*>(&sum_));

    if (colPartition.isEmpty()) {
        setStep<&Accumulator::plainStep>();
        return true;
    }
    const int partitionIndex = row.getIndexOfColumn(colPartition);
    if (partitionIndex < 0)
        return !fail(QStringLiteral("ERROR: partition column '%1' not found.\n").arg(colPartition));
    partition_.begin(row, partitionIndex);
    setStep<&Accumulator::partitionStep>();
    return true;
}

bool Accumulator::plainStep() {
    const OneRow* const row = getNextRowFromInPin(0);
    if (row == nullptr)
        return true;
    passOn(*row);
    return false;
}

bool Accumulator::partitionStep() {
    const OneRow* const row = getNextRowFromInPin(0);
    if (row == nullptr)
        return true;
    if (partition_.changesAt(*row))
        sum_ = startValue_;
    passOn(*row);
    return false;
}

void Accumulator::passOn(const OneRow& row) {
    // The cell of the sum stands behind the input's cells and stays as it was set.
    getOutputRowForOutputPin(0)->copyFrom(row);
    addCell_(sum_, row.cells[accIndex_]);
    setRowReadyForOutput(0);
}

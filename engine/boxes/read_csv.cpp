#include "engine/boxes/read_csv.h"

#include <new>

namespace velmorra {

const BoxEntry& ReadCsv::entry() const {
    static const BoxEntry entry = {"ReadCsv",
                                   "Reads the rows of a CSV file.",
                                   {QStringLiteral("csv"), QStringLiteral("file"),
                                    QStringLiteral("import"), QStringLiteral("read"),
                                    QStringLiteral("source")}};
    return entry;
}

const StoredElement& ReadCsv::declaration() {
    static const StoredElement element =
        StoredElement(4.2)
            .text<&ReadCsv::file>("file", "", Written::Always,
                                  "the file to read; - is standard input")
            .boolean<&ReadCsv::header>("header", true, Written::WhenNotDefault,
                                       "the first line holds the columns' names; else they are "
                                       "named col1, col2, ...")
            .text<&ReadCsv::types>("types", "", Written::WhenNotDefault,
                                   "types of columns that aren't text, as id:K,x:F")
            .boolean<&ReadCsv::typed>("typed", false, Written::WhenNotDefault,
                                      "the header's cells are name:TYPE or name:TYPE:SORT")
            .text<&ReadCsv::sorted>("sorted", "", Written::WhenNotDefault,
                                    "the order of the rows, as id:0,day:A; it is checked")
            .longInteger<&ReadCsv::fieldLimit>("fieldLimit", CsvSettings::defaultFieldLimit,
                                               Written::WhenNotDefault,
                                               "most bytes that a field may have");
    return element;
}

ReadCsv::ReadCsv(const XMLNode& element, GlobalParameters* parameters)
    : SourceBox(element, parameters) {
    nPinIn = 0;
    nPinOut = 1;
    readStored(declaration());
}

ActionItem* ReadCsv::newFromXML(XMLNode element, GlobalParameters* parameters) const {
    return new (std::nothrow) ReadCsv(element, parameters);
}

void ReadCsv::rewindRun() {
    setStep<&ReadCsv::firstStep>();
}

bool ReadCsv::beforeRun() {
    wantedColumns.clear();
    batch_.clear();
    row_ = 0;
    if (fieldLimit < 1 || fieldLimit > CsvSettings::largestFieldLimit)
        return fail(QStringLiteral("fieldLimit is ") + QString::number(fieldLimit) +
                    QStringLiteral("; it must be from 1 to ") +
                    QString::number(CsvSettings::largestFieldLimit));
    if (typed && !header)
        return fail(QStringLiteral("a typed table needs its header: typed='1' and header='0' "
                                   "exclude each other"));
    return false;
}

bool ReadCsv::afterRun() {
    reader_.close();
    batch_ = {};
    row_ = 0;
    return false;
}

double ReadCsv::readShare() const {
    return reader_.share();
}

bool ReadCsv::firstStep() {
    CsvTableSettings settings;
    settings.format.fieldLimit = fieldLimit;
    settings.header = header;
    settings.typed = typed;
    settings.types = expandString(types);
    settings.sorted = expandString(sorted);
    if (!reader_.open(expandFile(file), settings, [this] { return !isRunning(); }))
        return reader_.problem().isNull() || fail(reader_.problem());
    output_ = getOutputRowForOutputPin(0);
    output_->setShape(reader_.shape());
    if (!wantedColumns.empty())
        reader_.setWanted(wantedColumns);
    if (!mustComputeFull()) {
        reader_.fill(batch_, 1);
        return batch_.rows == 0 || (nextRow(), true);
    }
    setStep<&ReadCsv::nextRow>();
    return nextRow();
}

bool ReadCsv::nextRow() {
    if (row_ == batch_.rows && !nextBatch())
        return true;
    std::memcpy(output_->cells, batch_.row(row_), sizeof(uchar*) * size_t(batch_.columns));
    ++row_;
    setRowReadyForOutput(0);
    return false;
}

/// False at the end of the table, whatever ended it. The rows in front of a problem come first, so
/// that it doesn't matter to a run that ends before it.
bool ReadCsv::nextBatch() {
    do {
        if (batch_.end == BatchEnd::Failed)
            fail(batch_.problem);
        if (batch_.end != BatchEnd::More || !isRunning())
            return false;
        reader_.fill(batch_);
        row_ = 0;
    } while (batch_.rows == 0);
    return true;
}

} // namespace velmorra

#include "engine/boxes/read_csv.h"

#include "engine/csv/dialect.h"
#include "engine/run.h"

#include "host/main_ui.h"

#include <QtCore/QFileInfo>

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
            .text<&ReadCsv::types>(
                "types", "", Written::WhenNotDefault,
                "types of columns that aren't text, as id:K,x:F; auto: proposed by "
                "the first rows")
            .boolean<&ReadCsv::typed>("typed", false, Written::WhenNotDefault,
                                      "the header's cells are name:TYPE or name:TYPE:SORT")
            .text<&ReadCsv::sorted>("sorted", "", Written::WhenNotDefault,
                                    "the order of the rows, as id:0,day:A; it is checked")
            .text<&ReadCsv::delimiter>("delimiter", "comma", Written::WhenNotDefault,
                                       "what parts the fields: comma, semicolon, tab, pipe, space, "
                                       "colon, the character itself, or auto: proposed by the "
                                       "first rows")
            .text<&ReadCsv::quote>("quote", "double", Written::WhenNotDefault,
                                   "what stands around fields: double, single, none, or the "
                                   "character itself")
            .text<&ReadCsv::decimal>("decimal", "point", Written::WhenNotDefault,
                                     "the decimal sign of Float columns: point, comma or auto")
            .text<&ReadCsv::commentPrefix>("commentPrefix", "", Written::WhenNotDefault,
                                           "lines that begin with this text are passed over")
            .text<&ReadCsv::encoding>("encoding", "utf-8", Written::WhenNotDefault,
                                      "utf-8, windows-1252, utf-16 (with a byte order mark), "
                                      "utf-16le, utf-16be or auto")
            .text<&ReadCsv::rejects>("rejects", "", Written::WhenNotDefault,
                                     "a file that takes the rows that can't be read, as they "
                                     "stand; without it the first one ends the run")
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
    begun_ = enough_ = false;
    if (fieldLimit < 1 || fieldLimit > CsvSettings::largestFieldLimit)
        return fail(QStringLiteral("fieldLimit is ") + QString::number(fieldLimit) +
                    QStringLiteral("; it must be from 1 to ") +
                    QString::number(CsvSettings::largestFieldLimit));
    if (typed && !header)
        return fail(QStringLiteral("a typed table needs its header: typed='1' and header='0' "
                                   "exclude each other"));
    const QString problem = resolveSettings();
    if (!problem.isNull())
        return fail(problem);
    return !rejects.isEmpty() && !openRejects();
}

/// False when the run can't begin.
bool ReadCsv::openRejects() {
    settings_.rejects = &dropped_;
    if (!mustComputeFull() || (runOptions != nullptr && runOptions->looksOnly))
        return true;
    const QString path = expandFile(rejects);
    const QString source = QFileInfo(expandFile(file)).canonicalFilePath();
    if (!source.isEmpty() && source == QFileInfo(path).canonicalFilePath())
        return !fail(QStringLiteral("rejects is the file that is read: '") + path + u'\'');
    {
        const std::lock_guard<std::mutex> guard(rejectsLock_);
        rejectFile_ = std::make_unique<RejectFile>();
    }
    settings_.rejects = rejectFile_.get();
    const bool opened = rejectFile_->open(path, [this] { return !isRunning(); });
    if (!opened && !rejectFile_->failure().isNull())
        fail(rejectFile_->failure());
    return opened;
}

bool ReadCsv::finishOutput() {
    if (rejectFile_ == nullptr)
        return true;
    if (!rejectFile_->finish()) {
        if (!rejectFile_->failure().isNull())
            fail(rejectFile_->failure());
        return false;
    }
    const qint64 rows = rejectFile_->rows();
    if (rows > 0) {
        hasWarning = true;
        MainUI::addLog(2, QString::number(rows) +
                              (rows == 1 ? QStringLiteral(" row") : QStringLiteral(" rows")) +
                              QStringLiteral(" went to the reject file '") + expandFile(rejects) +
                              QStringLiteral("'; the first: ") + rejectFile_->firstProblem());
    }
    return true;
}

bool ReadCsv::commitOutput() {
    if (rejectFile_ == nullptr || rejectFile_->commit())
        return true;
    fail(rejectFile_->failure());
    return false;
}

void ReadCsv::discardOutput() {
    const std::lock_guard<std::mutex> guard(rejectsLock_);
    if (rejectFile_ != nullptr)
        rejectFile_->discard();
}

/// The settings that don't depend on the file; the problem, or a null string.
QString ReadCsv::resolveSettings() {
    settings_ = {};
    CsvSettings& format = settings_.format;
    format.fieldLimit = fieldLimit;
    format.comment = expandString(commentPrefix).toUtf8();
    settings_.header = header;
    settings_.typed = typed;
    settings_.types = expandString(types);
    settings_.sorted = expandString(sorted);
    const QString automatic = QStringLiteral("auto");
    settings_.proposeDelimiter = expandString(delimiter) == automatic;
    settings_.proposeDecimal = expandString(decimal) == automatic;
    settings_.proposeEncoding = expandString(encoding) == automatic;
    settings_.proposeTypes = settings_.types == automatic;
    if (settings_.proposeTypes && typed)
        return QStringLiteral("a typed table has its types: typed='1' and types='auto' exclude "
                              "each other");
    QString problem = parseQuote(expandString(quote), &format.quote);
    if (problem.isNull() && !settings_.proposeDelimiter)
        problem = parseDelimiter(expandString(delimiter), &format.delimiter);
    if (problem.isNull() && !settings_.proposeDecimal)
        problem = parseDecimal(expandString(decimal), &format.decimal);
    if (problem.isNull() && !settings_.proposeEncoding)
        problem = parseEncodingSetting(expandString(encoding), &format.encoding);
    return problem.isNull() && !settings_.proposeDelimiter ? checkDialect(format) : problem;
}

bool ReadCsv::afterRun() {
    enough_ = true;
    ahead_.reset();
    reader_.close();
    batch_ = {};
    row_ = 0;
    const std::lock_guard<std::mutex> guard(rejectsLock_);
    rejectFile_.reset();
    return false;
}

double ReadCsv::readShare() const {
    return reader_.share();
}

bool ReadCsv::firstStep() {
    if (!reader_.open(expandFile(file), settings_, [this] { return !isRunning() || enough_; }))
        return reader_.problem().isNull() || fail(reader_.problem());
    for (const QString& notice : reader_.notices())
        MainUI::addLog(4, notice);
    output_ = getOutputRowForOutputPin(0);
    output_->setShape(reader_.shape());
    if (!wantedColumns.empty())
        reader_.setWanted(wantedColumns);
    if (!mustComputeFull()) {
        reader_.fill(batch_, 1);
        // The columns are known all the same.
        if (batch_.end == BatchEnd::Failed)
            MainUI::addLog(1, batch_.problem);
        return batch_.rows == 0 || (nextRow(), true);
    }
    setStep<&ReadCsv::nextRow>();
    return nextRow();
}

bool ReadCsv::nextRow() {
    if (row_ == batch_.rows && !nextBatch())
        return true;
    // The pointers stay where the batch has them: rows are many, and nobody writes to them.
    output_->cells = batch_.row(row_);
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
        takeBatch();
        row_ = 0;
    } while (batch_.rows == 0);
    return true;
}

/// Reading ahead begins behind the first batch, so that a look at some rows reads no more than it
/// shows. Where rows are rejected it doesn't: the reject file holds what was read.
void ReadCsv::takeBatch() {
    const bool small = runOptions != nullptr && runOptions->smallPieces;
    const int maxRows = small ? 1 : RowBatch::maxRows;
    if (ahead_ == nullptr && sideThreads != nullptr && begun_ && rejectFile_ == nullptr)
        ahead_ = std::make_unique<BatchesAhead>(*sideThreads, reader_, maxRows);
    if (ahead_ != nullptr)
        ahead_->next(batch_);
    else
        reader_.fill(batch_, maxRows);
    begun_ = true;
}

} // namespace velmorra

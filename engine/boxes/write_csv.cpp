#include "engine/boxes/write_csv.h"

#include "engine/csv/dialect.h"
#include "engine/csv/field_value.h"
#include "engine/csv/transcode.h"
#include "engine/run.h"
#include "host/main_ui.h"

#include <new>
#include <utility>

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
            .text<&WriteCsv::delimiter>("delimiter", "comma", Written::WhenNotDefault,
                                        "what parts the fields: comma, semicolon, tab, pipe, "
                                        "space, colon, or the character itself")
            .text<&WriteCsv::quoting>("quoting", "needed", Written::WhenNotDefault,
                                      "the fields that stand in quotes: needed (those that must), "
                                      "text (all texts) or all; a null never does")
            .text<&WriteCsv::lineEnd>("lineEnd", "lf", Written::WhenNotDefault,
                                      "what ends a line: lf or crlf")
            .text<&WriteCsv::decimal>("decimal", "point", Written::WhenNotDefault,
                                      "the decimal sign of Float columns: point or comma")
            .text<&WriteCsv::encoding>("encoding", "utf-8", Written::WhenNotDefault,
                                       "utf-8, utf-8-bom, windows-1252, utf-16 (with a byte order "
                                       "mark), utf-16le or utf-16be")
            .boolean<&WriteCsv::safe>("safe", false, Written::WhenNotDefault,
                                      "texts that a spreadsheet would run as a formula get an "
                                      "apostrophe in front")
            .longInteger<&WriteCsv::limit>("limit", -1, Written::WhenNotDefault,
                                           "most rows to write; -1 for all");
    return element;
}

WriteCsv::WriteCsv(const XMLNode& element, GlobalParameters* parameters)
    : FileOutputBox(element, parameters) {
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
    startCounting(limit);
    linesWritten_ = 0;
    markWritten_ = opened_ = false;
    names_.clear();
    CsvLayout layout;
    const QString problem = resolveLayout(&layout);
    if (!problem.isNull())
        return fail(problem);
    formatter_ = CsvFormatter(layout);
    flushAt_ = runOptions != nullptr && runOptions->smallPieces ? 1 : flushBytes;
    if (typed && !header)
        return fail(QStringLiteral("a typed table needs its header: typed='1' and header='0' "
                                   "exclude each other"));
    if (!mustComputeFull())
        return false;
    opened_ = openOutput(expandFile(file), [this] { return !mayWrite(); });
    if (!opened_)
        reportFailedWrite();
    else if (sideThreads != nullptr)
        behind_ = std::make_unique<WritesBehind>(*sideThreads, *output());
    return !opened_;
}

/// The settings of the file's form; the problem, or a null string.
QString WriteCsv::resolveLayout(CsvLayout* layout) {
    const QString quotingWord = expandString(quoting);
    const QString lineEndWord = expandString(lineEnd);
    layout->safe = safe;
    if (quotingWord == QLatin1String("text"))
        layout->quoting = CsvQuoting::Text;
    else if (quotingWord == QLatin1String("all"))
        layout->quoting = CsvQuoting::All;
    else if (quotingWord != QLatin1String("needed"))
        return QStringLiteral("quoting is ") + shownValue(quotingWord) +
               QStringLiteral("; it must be needed, text or all");
    layout->returnFeed = lineEndWord == QLatin1String("crlf");
    if (!layout->returnFeed && lineEndWord != QLatin1String("lf"))
        return QStringLiteral("lineEnd is ") + shownValue(lineEndWord) +
               QStringLiteral("; it must be lf or crlf");
    QString problem = parseDelimiter(expandString(delimiter), &layout->delimiter);
    if (problem.isNull())
        problem = parseDecimal(expandString(decimal), &layout->decimal);
    return problem.isNull() ? parseEncodingSetting(expandString(encoding), &encoding_) : problem;
}

void WriteCsv::start(const PinOutMetaData& shape) {
    names_ = shape.names;
    formatter_.setColumns(shape);
    if (header)
        formatter_.writeHeader(shape, typed);
}

bool WriteCsv::firstStep() {
    if (output() == nullptr)
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
    return !wantsRows() || takeRow(*row);
}

bool WriteCsv::nextRow() {
    const OneRow* const row = getNextRowFromInPin(0);
    return row == nullptr || takeRow(*row);
}

/// True when no further row is to be taken.
bool WriteCsv::takeRow(const OneRow& row) {
    formatter_.writeRow(row.cells);
    const bool isLast = countRow();
    return (formatter_.size() >= flushAt_ && !flush()) || isLast;
}

/// Whether a write may wait for room. What was handed over to be written behind is still written
/// when the run has failed, as if it had been written at once.
bool WriteCsv::mayWrite() const {
    return isRunning() || (opened_ && globalParameters->runStatus == RunStatus::Failed);
}

/// False when the output takes no more, be it that its reader has enough.
bool WriteCsv::flush() {
    if (!writeOut()) {
        reportFailedWrite();
        return false;
    }
    return behind_ != nullptr ? !behind_->readerGone() : !output()->readerGone();
}

/// Hands what has been formatted to the file. False when the run has failed, or the file has.
bool WriteCsv::writeOut() {
    if (encoding_ == TextEncoding::Utf8 && behind_ == nullptr) {
        const bool written = output()->write(formatter_.bytes(), formatter_.size());
        formatter_.clear();
        return written;
    }
    encoded_.resize(0);
    if (formatter_.size() > 0 && !std::exchange(markWritten_, true))
        encoded_ = byteOrderMarkOf(encoding_);
    const qsizetype badAt = encodeText(encoding_, formatter_.bytes(), formatter_.size(), &encoded_);
    if (badAt >= 0)
        return !fail(unencodable(badAt));
    if (encoding_ == TextEncoding::Windows1252)
        linesWritten_ += formatter_.placeOf(formatter_.size()).line;
    formatter_.clear();
    return behind_ != nullptr ? behind_->put(encoded_)
                              : output()->write(encoded_.constData(), encoded_.size());
}

quint64 WriteCsv::settle() {
    return behind_ == nullptr || behind_->settle() ? 0 : behind_->failedBlock();
}

void WriteCsv::reportFailedWrite() {
    settle();
    if (!output()->error().isNull())
        fail(output()->error());
    else if (behind_ != nullptr && behind_->failedBlock() != 0)
        fail(QStringLiteral("WriteCsv: Memory Allocation Error"));
}

/// What is said of a character that the encoding doesn't have.
QString WriteCsv::unencodable(qsizetype offset) const {
    const uchar* const bytes = reinterpret_cast<const uchar*>(formatter_.bytes()) + offset;
    int length = 0;
    const char32_t character = characterAt(bytes, formatter_.size() - offset, &length);
    const CsvPlace place = formatter_.placeOf(offset);
    const qint64 row = linesWritten_ + place.line + (header ? 0 : 1);
    QString text =
        row == 0 ? QStringLiteral("header") : QStringLiteral("row ") + QString::number(row);
    text += QStringLiteral(", column ") + QString::number(place.column + 1);
    if (place.column < names_.size())
        text += u' ' + shownValue(names_[place.column]);
    return text + QStringLiteral(": the character ") + shownValue(bytes, length) +
           QStringLiteral(" (U+") +
           QString::number(character, 16).toUpper().rightJustified(4, u'0') +
           QStringLiteral(") can't be written in ") + encodingName(encoding_);
}

bool WriteCsv::finishOutput() {
    if (output() == nullptr)
        return true;
    bool finished = settle() == 0;
    if (finished) {
        behind_.reset(); // the rest isn't worth a thread
        finished = writeOut() && output()->finish();
    }
    formatter_.clear();
    if (!finished)
        reportFailedWrite();
    if (finished && formatter_.brokenCharacters() > 0)
        MainUI::addLog(2, QString::number(formatter_.brokenCharacters()) +
                              QStringLiteral(" half characters (lone surrogates) cannot be written "
                                             "as UTF-8; U+FFFD stands for each"));
    return finished;
}

bool WriteCsv::afterRun() {
    behind_.reset();
    formatter_ = CsvFormatter();
    releaseOutput();
    return false;
}

} // namespace velmorra

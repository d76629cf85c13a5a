#include "engine/csv/csv_reader.h"

#include "engine/csv/dialect.h"
#include "engine/csv/field_value.h"
#include "engine/typed_header.h"
#include "host/row_buffer.h"

#include <algorithm>
#include <cstring>
#include <utility>

namespace velmorra {

bool CsvReader::open(const QString& file, const CsvTableSettings& settings, StopCheck stop) {
    problem_ = {};
    decoder_.reset();
    shape_ = {};
    wanted_.clear();
    columnsSet_ = false;
    sample_ = {};
    notices_.clear();
    typesProposed_ = false;
    if (!file_.open(file, std::move(stop))) {
        problem_ = file_.error();
        return false;
    }
    CsvTableSettings resolved = settings;
    ByteSource source = [this](uchar* bytes, qint64 room) { return file_.read(bytes, room); };
    if (!openText(&resolved, &source))
        return false;
    parser_ = std::make_unique<CsvParser>(std::move(source), file_.shownName(), resolved.format,
                                          !file_.isRegular());
    parser_->rejectTo(resolved.rejects);
    const bool read = readShape(resolved);
    sample_ = {};
    if (resolved.rejects != nullptr && decoder_)
        resolved.rejects->start(decoder_->encoding(), decoder_->hadMark());
    return read;
}

/// Makes a source of UTF-8 of the source of the file's bytes, and proposes what is left open.
bool CsvReader::openText(CsvTableSettings* settings, ByteSource* source) {
    TextEncoding& encoding = settings->format.encoding;
    if (settings->proposeEncoding) {
        CsvSample raw;
        if (!takeSample(source, &raw))
            return false;
        const QString problem = proposeEncoding(raw, &encoding);
        if (!problem.isNull())
            return failsWith(problem);
    }
    if (encoding != TextEncoding::Utf8 && encoding != TextEncoding::Utf8WithMark) {
        decoder_ = std::make_unique<TextDecoder>(encoding, std::move(*source));
        *source = [this](uchar* bytes, qint64 room) { return decoder_->read(bytes, room); };
    }
    const bool sampled =
        settings->proposeDelimiter || settings->proposeDecimal || settings->proposeTypes;
    if (sampled && !takeSample(source, &sample_))
        return false;
    return proposeDialect(settings);
}

/// Reads the sample; the source gives its bytes again, and then goes on.
bool CsvReader::takeSample(ByteSource* source, CsvSample* sample) {
    QByteArray bytes(CsvSample::mostBytes, Qt::Uninitialized);
    qsizetype size = 0;
    // Room enough for a decoder.
    constexpr qsizetype leastRoom = 64;
    while (bytes.size() - size >= leastRoom) {
        const qint64 got =
            (*source)(reinterpret_cast<uchar*>(bytes.data()) + size, bytes.size() - size);
        if (got < 0) {
            problem_ = sourceProblem();
            return false;
        }
        sample->whole = got == 0;
        size += got;
        if (got == 0)
            break;
    }
    bytes.truncate(size);
    sample->bytes = bytes;
    *source = [rest = std::move(*source), bytes, at = qsizetype(0)](uchar* to,
                                                                    qint64 room) mutable -> qint64 {
        if (at == bytes.size())
            return rest(to, room);
        const qsizetype count = std::min<qsizetype>(room, bytes.size() - at);
        std::memcpy(to, bytes.constData() + at, size_t(count));
        at += count;
        return count;
    };
    return true;
}

bool CsvReader::proposeDialect(CsvTableSettings* settings) {
    CsvSettings& format = settings->format;
    const bool header = settings->header || settings->typed;
    QString problem;
    QStringList words;
    if (settings->proposeEncoding)
        words += QStringLiteral("encoding='") + encodingName(format.encoding) + u'\'';
    if (settings->proposeDelimiter) {
        problem =
            proposeDelimiter(sample_, format, settings->rejects != nullptr, &format.delimiter);
        words += QStringLiteral("delimiter='") + delimiterText(format.delimiter) + u'\'';
    }
    if (problem.isNull() && settings->proposeDecimal) {
        problem = proposeDecimal(sample_, format, header, &format.decimal);
        words += format.decimal == ',' ? QStringLiteral("decimal='comma'")
                                       : QStringLiteral("decimal='point'");
    }
    if (problem.isNull())
        problem = checkDialect(format);
    if (!problem.isNull())
        return failsWith(problem);
    if (!words.isEmpty())
        notices_ += QStringLiteral("proposed: ") + words.join(u' ');
    return true;
}

void CsvReader::takeProposedTypes(const CsvSettings& format) {
    const std::vector<qint32> types =
        proposeTypes(sample_, format, header_, static_cast<int>(shape_.names.size()));
    for (size_t i = 0; i < types.size(); ++i)
        shape_.types[qsizetype(i)] = MetaInfo(types[i], -1);
    typesProposed_ = true;
    const QString list = typesText(shape_);
    notices_ += list.isEmpty() ? QStringLiteral("types: every column is text")
                               : QStringLiteral("types: ") + list;
}

bool CsvReader::failsWith(const QString& reason) {
    problem_ = file_.shownName() + QStringLiteral(": ") + reason;
    return false;
}

/// Why the bytes ended early; null when the run was stopped.
QString CsvReader::sourceProblem() const {
    if (decoder_ && !decoder_->problem().isNull())
        return file_.shownName() + QStringLiteral(": ") + decoder_->problem();
    return file_.error();
}

/// Whether a batch ended in a failure or a stop; takes over the problem.
bool CsvReader::fails(const RowBatch& batch) {
    if (batch.end != BatchEnd::Failed && batch.end != BatchEnd::Stopped)
        return false;
    problem_ = batch.end == BatchEnd::Failed ? batch.problem : sourceProblem();
    return true;
}

bool CsvReader::readShape(const CsvTableSettings& settings) {
    header_ = settings.header || settings.typed;
    largestKey_ = settings.typed ? largestTypedKey : largestDeclaredKey;
    const RowBatch& first = parser_->readFirstRow();
    if (fails(first))
        return false;
    QString problem = shapeFromFirstRow(first, settings);
    // A file of no bytes has no columns that a type or an order could be declared for.
    if (problem.isNull() && !shape_.names.isEmpty()) {
        if (settings.proposeTypes)
            takeProposedTypes(settings.format);
        else if (!settings.types.isEmpty())
            problem = applyTypes(settings.types, &shape_);
        if (problem.isNull() && !settings.sorted.isEmpty())
            problem = applySorted(settings.sorted, &shape_);
    }
    return problem.isNull() || failsWith(problem);
}

QString CsvReader::shapeFromFirstRow(const RowBatch& first, const CsvTableSettings& settings) {
    int columns = first.columns;
    // Lines without anything are rows of one column, if they aren't a header.
    if (!header_ && columns == 0 && parser_->emptyLinesPassed() > 0)
        columns = 1;
    QVector<QString> names;
    names.reserve(columns);
    for (int i = 0; i < columns; ++i) {
        if (!header_)
            names.push_back(QStringLiteral("col") + QString::number(i + 1));
        else
            names.push_back(qStringFromBytes(first.cells[size_t(i)]));
        if (names.back().isNull())
            names.back() = QStringLiteral("");
    }
    if (settings.typed)
        return parseTypedHeader(names, &shape_);
    shape_.names = names;
    shape_.types = QVector<MetaInfo>(columns, MetaInfo(MetaTypeText, -1));
    return {};
}

void CsvReader::setWanted(const std::vector<bool>& wanted) {
    wanted_ = wanted;
    wanted_.resize(size_t(shape_.names.size()), true);
    for (const SortInfos& sort : shape_.sort)
        wanted_[size_t(sort.column)] = true;
}

void CsvReader::fill(RowBatch& batch, int maxRows) {
    if (!columnsSet_) {
        std::vector<CsvColumn> columns;
        for (int i = 0; i < shape_.names.size(); ++i) {
            const bool wanted = wanted_.empty() || wanted_[size_t(i)];
            columns.push_back(
                {shape_.names[i], shape_.types[i].type, wanted, largestKey_, typesProposed_});
        }
        parser_->setColumns(std::move(columns), shape_, !header_);
        columnsSet_ = true;
    }
    parser_->fill(batch, maxRows);
    const QString problem = batch.end == BatchEnd::Stopped ? sourceProblem() : QString();
    if (!problem.isNull()) {
        batch.end = BatchEnd::Failed;
        batch.problem = problem;
    }
}

void CsvReader::close() {
    file_.close();
    parser_.reset();
    decoder_.reset();
}

} // namespace velmorra

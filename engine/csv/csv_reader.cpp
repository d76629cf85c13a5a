#include "engine/csv/csv_reader.h"

#include "engine/csv/field_value.h"
#include "engine/typed_header.h"
#include "host/row_buffer.h"

namespace velmorra {

bool CsvReader::open(const QString& file, const CsvTableSettings& settings, StopCheck stop) {
    problem_ = {};
    shape_ = {};
    wanted_.clear();
    columnsSet_ = false;
    if (!file_.open(file, std::move(stop))) {
        problem_ = file_.error();
        return false;
    }
    const auto source = [this](uchar* bytes, qint64 room) { return file_.read(bytes, room); };
    parser_ =
        std::make_unique<CsvParser>(source, file_.shownName(), settings.format, !file_.isRegular());
    return readShape(settings);
}

/// Whether a batch ended in a failure or a stop; takes over the problem.
bool CsvReader::fails(const RowBatch& batch) {
    if (batch.end != BatchEnd::Failed && batch.end != BatchEnd::Stopped)
        return false;
    problem_ = batch.end == BatchEnd::Failed ? batch.problem : file_.error();
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
        if (!settings.types.isEmpty())
            problem = applyTypes(settings.types, &shape_);
        if (problem.isNull() && !settings.sorted.isEmpty())
            problem = applySorted(settings.sorted, &shape_);
    }
    if (!problem.isNull())
        problem_ = file_.shownName() + QStringLiteral(": ") + problem;
    return problem.isNull();
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
            columns.push_back({shape_.names[i], shape_.types[i].type, wanted, largestKey_});
        }
        parser_->setColumns(std::move(columns), shape_, !header_);
        columnsSet_ = true;
    }
    parser_->fill(batch, maxRows);
    if (batch.end == BatchEnd::Stopped && !file_.error().isNull()) {
        batch.end = BatchEnd::Failed;
        batch.problem = file_.error();
    }
}

void CsvReader::close() {
    file_.close();
    parser_.reset();
}

} // namespace velmorra

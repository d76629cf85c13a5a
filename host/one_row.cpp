#include "host/one_row.h"

#include "host/number_parser.h"
#include "host/number_text.h"

#include <algorithm>
#include <charconv>
#include <cmath>

namespace {

/// The text of a Key or Float cell in `out` (OneRow::scratchUnits code units): its length, or -1
/// for a null cell.
int numberText(const uchar* cellBytes, qint32 metaType, ushort* out) {
    if (cell::isNull(cellBytes, metaType))
        return -1;
    char digits[OneRow::scratchUnits];
    const int length = metaType == MetaTypeKey ? formatKey(cell::loadKey(cellBytes), digits)
                                               : formatFloat(cell::loadFloat(cellBytes), digits);
    std::copy_n(digits, length, out);
    return length;
}

bool isNumberType(qint32 metaType) {
    return metaType == MetaTypeKey || metaType == MetaTypeFloat;
}

/// The bytes of a text as the code units they are, at any address: to be handed on, not read.
const ushort* unitsAt(const uchar* chars) {
    return static_cast<const ushort*>(static_cast<const void*>(chars));
}

QString textOf(const ushort* chars, int units) {
    return QString::fromRawData(reinterpret_cast<const QChar*>(chars), units);
}

} // namespace

double OneRow::colAsDouble(int column, bool* ok) const {
    const uchar* const bytes = cells[column];
    switch (meta_.types[column].type) {
    case MetaTypeKey: {
        const quint32 key = cell::loadKey(bytes);
        *ok = key < cell::firstNullKey;
        return *ok ? key : cell::nullFloat();
    }
    case MetaTypeFloat:
        *ok = cell::loadFloatBits(bytes) != cell::nullFloatBits;
        return cell::loadFloat(bytes);
    default: {
        const cell::TextView view = cell::text(bytes);
        *ok = false;
        return view.isNull() ? cell::nullFloat() : parseCellNumber(view.chars, view.size(), ok);
    }
    }
}

quint32 OneRow::colAsKey(int column, bool* ok) const {
    if (meta_.types[column].type == MetaTypeKey) {
        const quint32 key = cell::loadKey(cells[column]);
        *ok = key < cell::firstNullKey;
        return *ok ? key : cell::nullKey;
    }
    const double value = colAsDouble(column, ok);
    // The comparison is false for a not-a-number too.
    *ok = *ok && value >= 0 && value < double(cell::firstNullKey) && value == std::floor(value);
    return *ok ? static_cast<quint32>(value) : cell::nullKey;
}

QString OneRow::col(int column, ushort* scratch) const {
    const qint32 type = meta_.types[column].type;
    if (isNumberType(type)) {
        const int units = numberText(cells[column], type, scratch);
        return units < 0 ? QString() : textOf(scratch, units);
    }
    const cell::TextView view = cell::text(cells[column]);
    if (view.length == 1)
        return QStringLiteral("");
    // Qt reads through aligned pointers only; a text at an odd address is copied.
    if (view.isNull() || (reinterpret_cast<quintptr>(view.chars) & 1) != 0)
        return qStringFromBytes(cells[column]);
    return textOf(unitsAt(view.chars), view.size());
}

int OneRow::col(int column, const ushort** chars) const {
    const qint32 type = meta_.types[column].type;
    if (isNumberType(type)) {
        scratch_.resize(std::max<size_t>(scratch_.size(), scratchUnits));
        const int units = numberText(cells[column], type, scratch_.data());
        *chars = units < 0 ? nullptr : scratch_.data();
        return std::max(units, 0);
    }
    const cell::TextView view = cell::text(cells[column]);
    *chars = view.isNull() ? nullptr : unitsAt(view.chars);
    return view.size();
}

QString OneRow::colForHash(int column) const {
    const ushort* chars = nullptr;
    const int units = col(column, &chars);
    if (chars == nullptr)
        return {};
    if (units == 0)
        return QStringLiteral("");
    if ((reinterpret_cast<quintptr>(chars) & 1) != 0) {
        scratch_.resize(std::max(scratch_.size(), static_cast<size_t>(units)));
        std::memcpy(scratch_.data(), chars, 2 * static_cast<size_t>(units));
        chars = scratch_.data();
    }
    return textOf(chars, units);
}

void OneRow::setColAsString(int column, RowBuffer& buffer, const QString& text) {
    cells[column] = bytesFromQString(buffer, text);
}

void OneRow::setColAsString(int column, RowBuffer& buffer, long long number) {
    char digits[24];
    const char* const end = std::to_chars(digits, digits + sizeof digits, number).ptr;
    ushort units[sizeof digits];
    std::copy(static_cast<const char*>(digits), end, units);
    const int count = static_cast<int>(end - digits);
    uchar* const bytes = buffer.alloc(cell::textCellBytes(count));
    cell::writeText(bytes, units, count);
    cells[column] = bytes;
}

void OneRow::setNull(int column) {
    cells[column] = cell::nullCell(meta_.types[column].type);
}

qsizetype OneRow::storedBytes() const {
    const MetaInfo* const types = vMetaData();
    qsizetype sum = 0;
    for (qint32 i = 0; i < columns; ++i)
        sum += cell::bytes(cells[i], types[i].type);
    return sum;
}

void OneRow::storeAt(uchar* bytes) const {
    const MetaInfo* const types = vMetaData();
    for (qint32 i = 0; i < columns; ++i) {
        const qsizetype size = cell::bytes(cells[i], types[i].type);
        std::memcpy(bytes, cells[i], static_cast<size_t>(size));
        bytes += size;
    }
}

uchar* OneRow::storeInBuffer(RowBuffer& buffer) const {
    uchar* const block = buffer.alloc(storedBytes());
    storeAt(block);
    return block;
}

const uchar* OneRow::initFromBuffer(const uchar* bytes, int firstColumn, int lastColumn) {
    const MetaInfo* const types = vMetaData();
    const qint32 end = lastColumn < 0 ? columns : lastColumn;
    for (qint32 i = firstColumn; i < end; ++i) {
        cells[i] = bytes;
        bytes += cell::bytes(bytes, types[i].type);
    }
    return bytes;
}

void OneRow::resizeCells(int number) {
    if (number > room_) {
        std::unique_ptr<const uchar*[]> larger(new const uchar*[static_cast<size_t>(number)]);
        std::copy_n(cells, columns, larger.get());
        storage_ = std::move(larger);
        cells = storage_.get();
        room_ = number;
    }
    for (int i = columns; i < number; ++i)
        cells[i] = &cell::nullText;
    columns = number;
}

void OneRow::copyShape(const OneRow& row) {
    resizeCells(row.columns);
    std::copy_n(row.cells, row.columns, cells);
    meta_ = row.meta_;
    nameIndex_.reset();
    fresh_ = false;
}

void OneRow::setShape(const PinOutMetaData& shape) {
    resizeCells(static_cast<int>(shape.names.size()));
    meta_ = shape;
    nameIndex_.reset();
    fresh_ = false;
    for (int i = 0; i < columns; ++i)
        setNull(i);
}

void OneRow::makeFresh() {
    // Its producer may have pointed them elsewhere.
    cells = storage_.get();
    columns = 0;
    meta_ = {};
    nameIndex_.reset();
    fresh_ = true;
}

void OneRow::setNumberOfColumns(int number) {
    resizeCells(number);
    meta_.names.resize(number);
    meta_.types.resize(number);
    nameIndex_.reset();
    fresh_ = false;
}

void OneRow::setColName(int column, const QString& name) {
    meta_.names[column] = detach(name);
    nameIndex_.reset();
    fresh_ = false;
}

void OneRow::setMetaType(int column, const MetaInfo& type) {
    const bool wasNull = cells[column] == cell::nullCell(meta_.types[column].type);
    meta_.types[column] = type;
    fresh_ = false;
    // The one byte of a null text is too short to be read as the null of another form.
    if (wasNull)
        setNull(column);
}

void OneRow::setMetaData(const QVector<MetaInfo>& types) {
    for (int i = 0; i < columns; ++i)
        setMetaType(i, types.value(i));
    fresh_ = false;
}

void OneRow::setSortInfos(const QVector<SortInfos>& sort) {
    meta_.sort = sort;
    fresh_ = false;
}

QVector<QString> OneRow::getColNamesDeep() const {
    QVector<QString> names;
    names.reserve(meta_.names.size());
    for (const QString& name : meta_.names)
        names.push_back(detach(name));
    return names;
}

void OneRow::buildNameIndex() const {
    auto index = std::make_unique<NameIndex>();
    index->next.assign(static_cast<size_t>(columns), -1);
    index->first.reserve(columns);
    for (int i = columns - 1; i >= 0; --i) {
        const auto known = index->first.find(meta_.names[i]);
        if (known == index->first.end()) {
            index->first.insert(meta_.names[i], i);
        } else {
            index->next[static_cast<size_t>(i)] = *known;
            *known = i;
        }
    }
    nameIndex_ = std::move(index);
}

int OneRow::indexOfColumnFrom(const QString& name, int from) const {
    constexpr int fewColumns = 8;
    if (columns - from <= fewColumns) {
        for (int i = from; i < columns; ++i) {
            if (meta_.names[i] == name)
                return i;
        }
        return -1;
    }
    if (!nameIndex_)
        buildNameIndex();
    // Who asks for one occurrence after the other starts right behind the last one: going through
    // all that came before each time would take the square of their number.
    const bool behindSameName = from > 0 && meta_.names[from - 1] == name;
    int column = behindSameName ? nameIndex_->next[static_cast<size_t>(from - 1)]
                                : nameIndex_->first.value(name, -1);
    while (column >= 0 && column < from)
        column = nameIndex_->next[static_cast<size_t>(column)];
    return column;
}

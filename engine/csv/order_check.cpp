#include "engine/csv/order_check.h"

#include "engine/csv/field_value.h"
#include "host/number_text.h"
#include "host/row_buffer.h"

namespace velmorra {

namespace {

QString shownCell(const uchar* cellBytes, qint32 metaType) {
    if (cell::isNull(cellBytes, metaType))
        return QStringLiteral("null");
    if (metaType != MetaTypeKey && metaType != MetaTypeFloat)
        return shownValue(qStringFromBytes(cellBytes));
    char digits[numberTextRoom];
    const int length = metaType == MetaTypeKey ? formatKey(cell::loadKey(cellBytes), digits)
                                               : formatFloat(cell::loadFloat(cellBytes), digits);
    return QString::fromLatin1(digits, length);
}

const char* orderName(qint32 sortType) {
    switch (sortType) {
    case SortNumberRising:
        return "rising by number";
    case SortNumberFalling:
        return "falling by number";
    case SortTextRising:
        return "rising by text";
    default:
        return "falling by text";
    }
}

} // namespace

void OrderCheck::declare(const PinOutMetaData& shape) {
    for (const SortInfos& sort : shape.sort) {
        const qint32 metaType = shape.types[sort.column].type;
        const CellOrder compare = cellOrder(sort.SortType, metaType);
        if (compare == nullptr)
            return;
        keys_.push_back({sort.column, sort.SortType, metaType, compare, shape.names[sort.column]});
    }
}

void OrderCheck::keep() {
    if (previous_ == nullptr || keys_.empty())
        return;
    qsizetype bytes = 0;
    int columns = 0;
    for (const Key& key : keys_) {
        bytes += cell::bytes(previous_[key.column], key.metaType);
        columns = std::max(columns, key.column + 1);
    }
    std::vector<uchar> kept(static_cast<size_t>(bytes));
    std::vector<const uchar*> row(static_cast<size_t>(columns), nullptr);
    uchar* next = kept.data();
    for (const Key& key : keys_) {
        const uchar* const from = previous_[key.column];
        const qsizetype size = cell::bytes(from, key.metaType);
        std::memcpy(next, from, static_cast<size_t>(size));
        row[static_cast<size_t>(key.column)] = next;
        next += size;
    }
    keptBytes_ = std::move(kept);
    keptRow_ = std::move(row);
    previous_ = keptRow_.data();
}

bool OrderCheck::refuse(const Key& key, const uchar* const* row, qint64 line) {
    const QString column = QStringLiteral(" has ") + shownValue(key.name) + QStringLiteral(" = ");
    problem_ = QStringLiteral("line ") + QString::number(line) +
               QStringLiteral(": the row is out of the declared order (") +
               QLatin1String(orderName(key.sortType)) + QStringLiteral("): line ") +
               QString::number(line_) + column + shownCell(previous_[key.column], key.metaType) +
               QStringLiteral(", line ") + QString::number(line) + column +
               shownCell(row[key.column], key.metaType);
    return false;
}

} // namespace velmorra

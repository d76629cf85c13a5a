#include "actions/join/join_key.h"

#include "host/number_parser.h"
#include "plugin/type_letter.h"

namespace {

constexpr int textRoom = 2080;

/// Whether keys can be compared by a sort type at all; a Float column not by each of these.
bool isSupported(qint32 sortType) {
    return cellOrder(sortType, MetaTypeText) != nullptr;
}

bool isSortedOn(const OneRow& row, int column) {
    return !row.sortInfos().isEmpty() && row.sortInfos().first().column == column;
}

/// The number of a text cell. A null and a text without a number are told apart by what they give.
double numberOf(const uchar* textCell, double ofNull, double ofNoNumber) {
    const cell::TextView text = cell::text(textCell);
    if (text.isNull())
        return ofNull;
    bool ok = false;
    const double number = parseCellNumber(text.chars, text.size(), &ok);
    return ok ? number : ofNoNumber;
}

/// Compares the Float cell `number` with the number of a text cell.
template <SortTypes sortType>
int numberWithText(const uchar* number, const uchar* textCell) {
    static const CellOrder order = cellOrder(sortType, MetaTypeFloat);
    uchar other[sizeof(double)];
    cell::storeFloat(other, numberOf(textCell, cell::nullFloat(), cell::invalidFloat()));
    return order(number, other);
}

} // namespace

QString JoinKey::checkMaster(const OneRow& row, const QString& name) {
    column_ = row.getIndexOfColumn(name);
    if (column_ < 0)
        return QLatin1String("ERROR: column '") + name + QLatin1String("' not found.\n");
    if (!isSortedOn(row, column_))
        return QLatin1String("ERROR: table on pin 0 is not sorted on column '") + name +
               QLatin1String("'.\n");
    sortType_ = row.sortInfos().first().SortType;
    metaType_ = row.getMetaType(column_).type;
    if (!isSupported(sortType_))
        return QLatin1String("ERROR: unsupported sort type on pin 0 (") + typeLetter(sortType_) +
               QLatin1String(").\n");
    return {};
}

QString JoinKey::checkSlave(const OneRow& row, const QString& name, const QString& source,
                            int* column) const {
    *column = row.getIndexOfColumn(name);
    if (*column < 0)
        return QLatin1String("ERROR: key column '") + name + QLatin1String("' in slave table on ") +
               source + QLatin1String(" not found.\n");
    if (!isSortedOn(row, *column))
        return QLatin1String("ERROR: table on ") + source +
               QLatin1String(" is not sorted on column '") + name + QLatin1String("'.\n");
    const qint32 sortType = row.sortInfos().first().SortType;
    if (!isSupported(sortType))
        return QLatin1String("ERROR: unsupported sort type on ") + source + QLatin1String(" (") +
               typeLetter(sortType) + QLatin1String(").\n");
    if (sortType != sortType_)
        return QLatin1String("ERROR: Sort type on pin 0 and ") + source +
               QLatin1String(" do not match (") + typeLetter(sortType_) + QLatin1String("!=") +
               typeLetter(sortType) + QLatin1String(").\n");
    const qint32 metaType = row.getMetaType(*column).type;
    if (metaType != metaType_)
        return QLatin1String("ERROR: The meta-type of Master Key Column and Column '") + name +
               QLatin1String("' do not match (") + typeLetter(metaType_) + QLatin1String("!=") +
               typeLetter(metaType) + QLatin1Char(')');
    return {};
}

QString JoinKey::choose(Keeps keeps) {
    release();
    order_ = cellOrder(sortType_, metaType_);
    if (order_ == nullptr)
        return QStringLiteral("ERROR: 'Alphabetic' Sort-type and Meta-type of Key is 'float': This "
                              "is incompatible\n");
    const bool isByNumber = sortType_ == SortNumberRising || sortType_ == SortNumberFalling;
    const bool isText = metaType_ != MetaTypeKey && metaType_ != MetaTypeFloat;
    readsNumbers_ = isText && isByNumber && keeps == Keeps::Number;
    if (metaType_ == MetaTypeKey) {
        keep_ = &keepKey;
    } else if (metaType_ == MetaTypeFloat) {
        keep_ = &keepFloat;
    } else if (readsNumbers_) {
        order_ = sortType_ == SortNumberRising ? &numberWithText<SortNumberRising>
                                               : &numberWithText<SortNumberFalling>;
        keep_ = &keepNumber;
    } else {
        texts_ = RowBuffer(textRoom);
        keep_ = &keepText;
    }
    return {};
}

void JoinKey::release() {
    texts_.deepReset(0);
    current_ = nullptr;
}

const uchar* JoinKey::keepKey(JoinKey& joinKey, const uchar* key) {
    cell::storeKey(joinKey.fixed_, cell::loadKey(key));
    return joinKey.fixed_;
}

const uchar* JoinKey::keepFloat(JoinKey& joinKey, const uchar* key) {
    std::memcpy(joinKey.fixed_, key, sizeof joinKey.fixed_);
    return joinKey.fixed_;
}

const uchar* JoinKey::keepNumber(JoinKey& joinKey, const uchar* key) {
    cell::storeFloat(joinKey.fixed_, numberOf(key, cell::nullFloat(), cell::nullFloat()));
    return joinKey.fixed_;
}

const uchar* JoinKey::keepText(JoinKey& joinKey, const uchar* key) {
    joinKey.texts_.reset();
    return bytesFrombytes(joinKey.texts_, key);
}

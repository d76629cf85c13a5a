#include "actions/shape/flatten.h"

#include "host/number_parser.h"
#include "plugin/bounds.h"
#include "plugin/type_letter.h"

#include <algorithm>
#include <cmath>

/// An input column, with its meta type.
struct Flatten::Column {
    int column;
    qint32 metaType;
};

struct Flatten::Resolved {
    CategoryIndex categories;
    int keyColumn = -1;
    qint32 keyType = MetaTypeText;
    int categoryColumn = -1;
    std::vector<Column> transposed, kept;
    RowBuffer absentBytes;
    /// The cells of absent categories: those of the first category for each transposed column, ...
    std::vector<const uchar*> absent;
};

/// What pin 1 says.
struct Flatten::CategoryTable {
    MetaInfo type;
    QStringList names;
    QStringList absentValues; ///< with useDifferentNulls
};

namespace {

// A text cell in a group stands behind the number of bytes it has room for.
constexpr int roomBytes = sizeof(quint32);

/// The cell that stands for an absent category by what pin 1 says; the same one for all columns of
/// a form.
const uchar* absentCell(const QString& value, qint32 metaType, RowBuffer& buffer) {
    if (metaType != MetaTypeFloat && metaType != MetaTypeKey)
        return bytesFromQString(buffer, value);
    bool ok = false;
    const double number = value.isEmpty() ? 0 : parseNumber(value, &ok);
    if (metaType == MetaTypeFloat) {
        uchar* const bytes = buffer.alloc(sizeof number);
        cell::storeFloat(bytes, ok ? number : cell::nullFloat());
        return bytes;
    }
    // The comparisons are false for a not-a-number.
    const double whole = std::trunc(number);
    const bool fits = ok && whole >= 0 && whole <= double(cell::nullKey);
    uchar* const bytes = buffer.alloc(sizeof(quint32));
    cell::storeKey(bytes, fits ? static_cast<quint32>(whole) : cell::nullKey);
    return bytes;
}

bool isKnownSortType(qint32 sortType) {
    constexpr char known[] = {'A', 'Z', '0', '9', 'I', 'D'};
    return std::find(std::begin(known), std::end(known), sortType) != std::end(known);
}

} // namespace

const StoredElement& Flatten::declaration() {
    static const StoredElement element =
        StoredElement(2.08)
            .exampleWords("Flatten category=a ToTranspose=b --in 1=names.csv")
            .versionBy<Flatten>([](const Flatten& action) {
                if (action.outputFullyDefinedOnly == GroupsWithAnyCategory)
                    return 3.5;
                if (action.advancedMode)
                    return 3.48;
                return action.alternativeNaming < CategoryAlone ? 2.08 : 2.39;
            })
            .integer<&Flatten::alternativeNaming>(
                "alternativeNaming", CategoryFirst, Written::WhenNotDefault,
                "names of the new columns. 0: category_column; 1: column_category; 2: category")
            .boolean<&Flatten::checkSort>("checkSort", true, Written::WhenNotDefault,
                                          "1: the input must be sorted on the key")
            .boolean<&Flatten::allowMultithread>(
                "allowMultithread", false, Written::WhenNotDefault,
                "1: the rows may be shared among threads at any place, also within a group; 0: "
                "only between keys")
            .boolean<&Flatten::useDifferentNulls>(
                "useDifferentNulls", false, Written::WhenNotDefault,
                "1: the second column on input pin 1 holds what stands for an absent category")
            .integer<&Flatten::outputFullyDefinedOnly>(
                "outputFullyDefinedOnly", AllGroups, Written::WhenNotDefault,
                "groups that give a row. 0: all; 1: those with every category; 2: those with any "
                "listed category")
            .boolean<&Flatten::advancedMode>(
                "advancedMode", false, Written::WhenNotDefault,
                "1: the rows of input pin 2 name further columns to transpose, those of pin 3 "
                "columns to keep")
            .text<&Flatten::key>("key", "", Written::WhenNotDefault,
                                 "name of the key column, may hold parameters; empty: each row is "
                                 "a group")
            .text<&Flatten::category>("category", "", Written::Always,
                                      "name of the category column, may hold parameters; the "
                                      "first column of input pin 1 lists the categories")
            .layout({.afterOpen = "\n "})
            .childList<&Flatten::ToTranspose>("ToTranspose",
                                              "columns to spread out, one for each category",
                                              {.afterOpen = "", .afterClose = "\n "})
            .childList<&Flatten::ToKeep>("ToKeep",
                                         "columns to carry along, from the first row of a group",
                                         {.afterOpen = ""});
    return element;
}

Flatten::Flatten(const XMLNode& element, GlobalParameters* parameters)
    : FirstRowAction(element, parameters) {
    readStored(declaration());
    nPinIn = advancedMode ? 4 : 2;
}

bool Flatten::beforeRun() {
    if (alternativeNaming < CategoryFirst || alternativeNaming > CategoryAlone)
        return fail(outOfRange("alternativeNaming", QString::number(alternativeNaming),
                               int(CategoryFirst), int(CategoryAlone)));
    if (outputFullyDefinedOnly < AllGroups || outputFullyDefinedOnly > GroupsWithAnyCategory)
        return fail(outOfRange("outputFullyDefinedOnly", QString::number(outputFullyDefinedOnly),
                               int(AllGroups), int(GroupsWithAnyCategory)));
    if (ToTranspose.size() >= 2 && alternativeNaming == CategoryAlone && !advancedMode)
        return fail(QStringLiteral(
            "Flatten Error: Choose another naming option otherwise there will be collisions inside "
            "the new column's name: Aborting..."));
    return false;
}

void Flatten::release() {
    resolved_.reset();
    cells_.deepReset(0);
    seen_ = {};
}

void Flatten::takeFrom(const Flatten& master) {
    resolved_ = master.resolved_;
}

char Flatten::canRunInParallel(const QString& partitionColumn, bool* answer) {
    *answer = allowMultithread || key.isEmpty() || partitionColumn == key;
    if (!*answer) {
        MainUI::addLog(1,
                       QStringLiteral("Error in 'flatten': Please select the column '%1' as "
                                      "partition-column to be able to run 'flatten' in parallel.")
                           .arg(key));
        actionFailed = true;
    }
    return 0;
}

char Flatten::fullTableRequiredToComputeMetas(int pin, bool* answer) {
    *answer = pin > 0;
    return 0;
}

bool Flatten::begin(const OneRow& row) {
    startRun(row);
    setStep<&Flatten::groupStep>();
    if (mustComputeFull())
        return groupStep();
    beginGroup(row);
    addRow(row);
    setRowReadyForOutput(0);
    return true;
}

bool Flatten::resolve(const OneRow& row) {
    const auto found = std::make_shared<Resolved>();
    CategoryTable table;
    QStringList transposed = ToTranspose;
    QStringList kept = ToKeep;
    if (!readCategories(*found, table) ||
        (advancedMode && (!appendNames(2, transposed) || !appendNames(3, kept))) || !isRunning())
        return false;
    const qint64 width = transposed.size() * table.names.size() + kept.size() + 1;
    if (width > mostColumns)
        return !fail(tooManyColumns(width));
    getOutputRowForOutputPin(0)->setNumberOfColumns(static_cast<int>(width));
    if (!resolveKey(row, *found) || !resolveCategory(row, *found, table.type) ||
        !resolveKept(row, *found, kept) || !resolveTransposed(row, *found, transposed, table))
        return false;
    resolved_ = found;
    return true;
}

bool Flatten::readCategories(Resolved& found, CategoryTable& table) {
    const OneRow* row = nextRowToDrain(1);
    if (row == nullptr || row->sz() == 0)
        return !fail(QStringLiteral("Error: empty table on pin 1?"));
    if (useDifferentNulls && row->sz() < 2)
        return !fail(QStringLiteral(
            "Error: table on pin 1 must have 2 columns: category names and NULL values"));
    table.type = row->getMetaType(0);
    found.categories.begin(table.type.type);
    ushort scratch[OneRow::scratchUnits];
    for (; row != nullptr; row = nextRowToDrain(1)) {
        const QString name = row->col(0, scratch);
        if (!found.categories.add(row->cells[0]))
            return !fail(QLatin1String("Error: duplicate rows ('") + name +
                         QLatin1String("') in table on pin 1?"));
        if (found.categories.count() > mostColumns)
            return !fail(tooManyColumns(found.categories.count()));
        table.names.push_back(detach(name));
        if (useDifferentNulls)
            table.absentValues.push_back(detach(row->col(1, scratch)));
    }
    return true;
}

/// Appends the first column of a pin.
bool Flatten::appendNames(int pin, QStringList& names) {
    ushort scratch[OneRow::scratchUnits];
    while (const OneRow* const row = nextRowToDrain(pin)) {
        if (row->sz() > 0)
            names.push_back(detach(row->col(0, scratch)));
        if (names.size() > mostColumns)
            return !fail(tooManyColumns(names.size()));
    }
    return true;
}

/// The column's place; -1 with an error when there is none.
int Flatten::findColumn(const OneRow& row, const QString& name) {
    const int column = row.getIndexOfColumn(name);
    if (column < 0)
        fail(QStringLiteral("ERROR: column '%1' not found.\n").arg(name));
    return column;
}

bool Flatten::resolveKey(const OneRow& row, Resolved& found) {
    if (key.isEmpty())
        return true; // a new column is a nameless text
    const QString name = expandString(key);
    found.keyColumn = findColumn(row, name);
    if (found.keyColumn < 0 || !takeOrder(row, found))
        return false;
    OneRow& out = *getOutputRowForOutputPin(0);
    const MetaInfo type = row.getMetaType(found.keyColumn);
    found.keyType = type.type;
    out.setColName(0, name);
    out.setMetaType(0, type);
    return true;
}

/// The output is sorted on the key where the input is.
bool Flatten::takeOrder(const OneRow& row, const Resolved& found) {
    const QVector<SortInfos>& order = row.sortInfos();
    if (order.isEmpty() || order.front().column != found.keyColumn) {
        if (checkSort)
            return !fail(QStringLiteral("ERROR: the input table on pin 0 is not sorted on column "
                                        "'%1'.\n")
                             .arg(row.colName(found.keyColumn)));
        return true;
    }
    if (checkSort && !isKnownSortType(order.front().SortType))
        return !fail(QStringLiteral("ERROR: unsupported sort-type."));
    getOutputRowForOutputPin(0)->setSortInfos({{0, order.front().SortType}});
    return true;
}

bool Flatten::resolveCategory(const OneRow& row, Resolved& found, const MetaInfo& typeOnPin1) {
    found.categoryColumn = findColumn(row, expandString(category));
    if (found.categoryColumn < 0)
        return false;
    const MetaInfo type = row.getMetaType(found.categoryColumn);
    if (type.type != typeOnPin1.type)
        return !fail(QStringLiteral("ERROR: meta-type of the category column on pin 0('%1') and on "
                                    "pin 1('%2') do not match.\n")
                         .arg(typeLetter(type.type), typeLetter(typeOnPin1.type)));
    return true;
}

bool Flatten::resolveKept(const OneRow& row, Resolved& found, const QStringList& names) {
    OneRow& out = *getOutputRowForOutputPin(0);
    found.kept.resize(static_cast<size_t>(names.size()));
    for (int i = static_cast<int>(names.size()) - 1; i >= 0; --i) {
        const int column = findColumn(row, names[i]);
        if (column < 0)
            return false;
        const MetaInfo type = row.getMetaType(column);
        found.kept[static_cast<size_t>(i)] = {column, type.type};
        out.setColName(1 + i, row.colName(column));
        out.setMetaType(1 + i, type);
    }
    return true;
}

bool Flatten::resolveTransposed(const OneRow& row, Resolved& found, const QStringList& names,
                                const CategoryTable& table) {
    OneRow& out = *getOutputRowForOutputPin(0);
    found.transposed.resize(static_cast<size_t>(names.size()));
    std::vector<MetaInfo> types(found.transposed.size());
    for (size_t t = found.transposed.size(); t-- > 0;) {
        const int column = findColumn(row, names[static_cast<qsizetype>(t)]);
        if (column < 0)
            return false;
        types[t] = row.getMetaType(column);
        found.transposed[t] = {column, types[t].type};
    }
    int place = 1 + static_cast<int>(found.kept.size());
    for (qsizetype c = 0; c < table.names.size(); ++c) {
        const uchar* ofForm[3] = {};
        for (size_t t = 0; t < types.size(); ++t, ++place) {
            const qint32 type = types[t].type;
            out.setColName(place, newColumnName(table.names[c], names[static_cast<qsizetype>(t)]));
            out.setMetaType(place, types[t]);
            const uchar*& cell = ofForm[type == MetaTypeKey ? 0 : type == MetaTypeFloat ? 1 : 2];
            if (cell == nullptr)
                cell = useDifferentNulls
                           ? absentCell(table.absentValues[c], type, found.absentBytes)
                           : cell::nullCell(type);
            found.absent.push_back(cell);
        }
    }
    return true;
}

QString Flatten::newColumnName(const QString& categoryName, const QString& column) const {
    switch (alternativeNaming) {
    case ColumnFirst:
        return column + QLatin1Char('_') + categoryName;
    case CategoryAlone:
        return categoryName;
    default:
        return categoryName + QLatin1Char('_') + column;
    }
}

void Flatten::startRun(const OneRow& row) {
    if (resolved_->keyColumn >= 0)
        keyRun_.begin(row, resolved_->keyColumn);
    lastCategory_ = -1;
    group_ = 0;
    seen_.assign(static_cast<size_t>(resolved_->categories.count()), 0);
}

/// Each step makes a row of a group, whose first row the pin stands on.
bool Flatten::groupStep() {
    const OneRow* row = getCurRowFromInPin(0);
    if (row == nullptr)
        return true;
    const bool hasKey = resolved_->keyColumn >= 0;
    beginGroup(*row);
    do {
        addRow(*row);
        row = getNextRowFromInPin(0);
    } while (row != nullptr && hasKey && !keyRun_.changesAt(*row));
    endGroup();
    return row == nullptr;
}

void Flatten::beginGroup(const OneRow& row) {
    const Resolved& found = *resolved_;
    cells_.reset();
    const uchar** out = getOutputRowForOutputPin(0)->cells;
    *out++ = found.keyColumn < 0 ? cell::nullCell(MetaTypeText)
                                 : copied(row.cells[found.keyColumn], found.keyType);
    for (const Column& each : found.kept)
        *out++ = copied(row.cells[each.column], each.metaType);
    std::copy(found.absent.begin(), found.absent.end(), out);
    ++group_;
    foundCategory_ = false;
    categoriesSeen_ = 0;
}

void Flatten::addRow(const OneRow& row) {
    const Resolved& found = *resolved_;
    // Categories often come in their order.
    const int next = lastCategory_ + 1 == found.categories.count() ? 0 : lastCategory_ + 1;
    const int place = found.categories.find(row.cells[found.categoryColumn], next);
    if (place < 0)
        return;
    lastCategory_ = place;
    foundCategory_ = true;
    qint64& seenIn = seen_[static_cast<size_t>(place)];
    const bool isRepeat = seenIn == group_;
    categoriesSeen_ += isRepeat ? 0 : 1;
    seenIn = group_;
    const uchar** out = getOutputRowForOutputPin(0)->cells + 1 + found.kept.size() +
                        static_cast<size_t>(place) * found.transposed.size();
    for (const Column& each : found.transposed) {
        *out = copiedOver(isRepeat ? *out : nullptr, row.cells[each.column], each.metaType);
        ++out;
    }
}

void Flatten::endGroup() {
    if (outputFullyDefinedOnly == AllGroups ||
        (outputFullyDefinedOnly == GroupsWithAnyCategory && foundCategory_) ||
        (outputFullyDefinedOnly == GroupsWithAllCategories &&
         categoriesSeen_ == resolved_->categories.count()))
        setRowReadyForOutput(0);
}

const uchar* Flatten::copied(const uchar* cell, qint32 metaType) {
    const qsizetype size = cell::bytes(cell, metaType);
    uchar* const bytes = cells_.alloc(size);
    std::memcpy(bytes, cell, static_cast<size_t>(size));
    return bytes;
}

/// A copy of a cell, which takes the place of an earlier one of the group (null: there is none), so
/// that repeats of a category don't add up.
const uchar* Flatten::copiedOver(const uchar* earlier, const uchar* cell, qint32 metaType) {
    const qsizetype size = cell::bytes(cell, metaType);
    const bool hasFixedSize = metaType == MetaTypeKey || metaType == MetaTypeFloat;
    uchar* bytes = const_cast<uchar*>(earlier); // it stands in the buffer of the group
    if (hasFixedSize) {
        if (bytes == nullptr)
            bytes = cells_.alloc(size);
    } else {
        const qsizetype room = bytes == nullptr ? 0 : cell::loadKey(bytes - roomBytes);
        if (bytes == nullptr || room < size) {
            const qsizetype newRoom = std::max(size, 2 * room);
            bytes = cells_.alloc(roomBytes + newRoom) + roomBytes;
            cell::storeKey(bytes - roomBytes, static_cast<quint32>(newRoom));
        }
    }
    std::memcpy(bytes, cell, static_cast<size_t>(size));
    return bytes;
}

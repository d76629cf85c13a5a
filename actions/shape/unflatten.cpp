#include "actions/shape/unflatten.h"

#include "plugin/bounds.h"
#include "plugin/partition_run.h"
#include "plugin/type_letter.h"

#include <QtCore/QHash>

#include <algorithm>

const StoredElement& Unflatten::declaration() {
    using Set = UnflattenSet;
    static const StoredElement element =
        StoredElement(2.08)
            .exampleWords("\"<Unflatten><common><s>a</s></common>"
                          "<sets><set name='b'><s>b</s></set></sets></Unflatten>\"")
            .boolean<&Unflatten::addSetName>("addSetName", true, Written::WhenNotDefault,
                                             "1: a column behind those of the set holds its name")
            .boolean<&Unflatten::checkSort>("checkSort", true, Written::WhenNotDefault,
                                            "1: the table on input pin 1 must be sorted on its "
                                            "first column")
            .boolean<&Unflatten::skipNulls>("skipNulls", false, Written::WhenNotDefault,
                                            "1: where sets have one column, a null in it gives no "
                                            "row")
            .text<&Unflatten::setColumnName>("setColumnName", "", Written::WhenNotDefault,
                                             "name of the column that holds the name of the set; "
                                             "may hold parameters")
            .text<&Unflatten::newNames>("newNames", "", Written::WhenNotDefault,
                                        "names of the columns of the sets, with commas between; "
                                        "may hold parameters. Empty: the names of the first set")
            .layout({.afterOpen = "\n "})
            .childList<&Unflatten::common>("common", "columns that repeat on each row of a set",
                                           {.afterOpen = "", .afterClose = "\n "})
            .child("sets",
                   StoredElement(0)
                       .layout({.beforeClose = " "})
                       .records<&Unflatten::sets>(
                           "set", "a set of columns that gives a row",
                           StoredElement(0)
                               .text<&Set::name>("name", "", Written::Always, "name of the set")
                               .list<&Set::columns>("columns",
                                                    "its columns, as many as "
                                                    "those of the other sets",
                                                    {.afterOpen = "", .beforeOpen = "  "})));
    return element;
}

Unflatten::Unflatten(const XMLNode& element, GlobalParameters* parameters)
    : FirstRowAction(element, parameters) {
    nPinIn = 2;
    readStored(declaration());
}

void Unflatten::release() {
    nameCells_.deepReset(0);
    runSets_ = {};
    commonInputs_ = {};
}

char Unflatten::fullTableRequiredToComputeMetas(int pin, bool* answer) {
    *answer = pin > 0 && sets.empty();
    return 0;
}

void Unflatten::takeFrom(const Unflatten& master) {
    runSets_ = master.runSets_;
    commonInputs_ = master.commonInputs_;
    nullsToSkip_ = master.nullsToSkip_;
}

bool Unflatten::begin(const OneRow& row) {
    setStep<&Unflatten::nextStep>();
    takeRow(row);
    passOnSet(row);
    return !mustComputeFull();
}

bool Unflatten::resolve(const OneRow& row) {
    runSets_.clear();
    for (const UnflattenSet& set : sets)
        runSets_.push_back({set.name, set.columns, {}, nullptr});
    // Where only the columns are wanted, pin 1 has not all of its rows, nor are they needed.
    if ((mustComputeFull() || sets.empty()) && !addSetsOfPin1())
        return false;
    if (!isRunning() || !checkSets() || !shapeOutput(row) || !resolveCommon(row))
        return false;
    for (size_t set = 1; set < runSets_.size(); ++set) {
        if (!resolveSet(row, runSets_[set], true))
            return false;
    }
    return true;
}

bool Unflatten::addSetsOfPin1() {
    const OneRow* row = nextRowToDrain(1);
    if (row == nullptr)
        return true;
    if (row->sz() < 2)
        MainUI::addLog(
            1, QStringLiteral("WARNING unflatten: Table on pin 1 should have 2 columns.\n"));
    if (checkSort && !isPin1Sorted(*row))
        return !fail(
            QStringLiteral("ERROR unflatten: Table on pin 1 must be sorted on first column.\n"));
    const bool hasNames = row->sz() > 0;
    PartitionRun sameName;
    if (hasNames)
        sameName.begin(*row, 0);
    bool startsSet = true;
    for (int rows = 1; row != nullptr; ++rows) {
        if (rows > mostColumns)
            return !fail(QStringLiteral("ERROR unflatten: Table on pin 1 has more than %1 rows.\n")
                             .arg(mostColumns));
        if (hasNames)
            addRowOfPin1(*row, startsSet || row->sz() < 2);
        row = nextRowToDrain(1);
        startsSet = row != nullptr && hasNames && sameName.changesAt(*row);
    }
    return true;
}

bool Unflatten::isPin1Sorted(const OneRow& row) {
    return !row.sortInfos().isEmpty() && row.sortInfos().front().column == 0;
}

/// Adds the row's column to the set of its name; a table of one column names both.
void Unflatten::addRowOfPin1(const OneRow& row, bool startsSet) {
    ushort scratch[OneRow::scratchUnits];
    if (startsSet)
        runSets_.push_back({detach(row.col(0, scratch)), {}, {}, nullptr});
    runSets_.back().columns.push_back(detach(row.col(row.sz() < 2 ? 0 : 1, scratch)));
}

/// All sets must have the size of the first one, and names of their own.
bool Unflatten::checkSets() {
    if (runSets_.empty())
        return !fail(QStringLiteral("ERROR: no set defined?.\n"));
    // Null is a name of its own, unlike the empty text.
    QHash<std::pair<bool, QString>, int> uses;
    for (const RunSet& set : runSets_)
        ++uses[{set.name.isNull(), set.name}];
    const qsizetype size = runSets_.front().columns.size();
    for (size_t i = runSets_.size(); i-- > 0;) {
        const RunSet& set = runSets_[i];
        if (set.columns.size() != size)
            return !fail(QLatin1String("ERROR: The set '") + set.name +
                         QStringLiteral("' has not the right size (%1): it should contain exactly "
                                        "%2 columns.\n")
                             .arg(set.columns.size())
                             .arg(size));
        if (uses.value({set.name.isNull(), set.name}) > 1)
            return !fail(QLatin1String("ERROR: The same setName '") + set.name +
                         QLatin1String("' is used in 2 different sets"));
    }
    return true;
}

bool Unflatten::failNotFound(const QString& name) {
    return !fail(QStringLiteral("ERROR: column '%1' not found.\n").arg(name));
}

bool Unflatten::resolveSet(const OneRow& row, RunSet& set, bool checkTypes) {
    const OneRow& out = *getOutputRowForOutputPin(0);
    set.nameCell = bytesFromQString(nameCells_, set.name);
    set.inputs.resize(static_cast<size_t>(set.columns.size()));
    for (int place = static_cast<int>(set.columns.size()) - 1; place >= 0; --place) {
        const QString& name = set.columns[place];
        const int input = row.getIndexOfColumn(name);
        if (input < 0)
            return failNotFound(name);
        set.inputs[static_cast<size_t>(place)] = input;
        const MetaInfo type = row.getMetaType(input);
        if (checkTypes && type.type != out.getMetaType(place).type)
            return !fail(
                QLatin1String("An error occurred while initializing the 'Unflatten' Action \n"
                              "The Meta-type of the column '") +
                out.colName(place) + QLatin1String("'(type=") +
                typeLetter(out.getMetaType(place).type) +
                QLatin1String(") do not match the meta-type of column '") + name +
                QLatin1String("'(type=") + typeLetter(type.type) + QLatin1Char(')'));
    }
    return true;
}

/// Resolves the first set, whose columns are those of the output.
bool Unflatten::shapeOutput(const OneRow& row) {
    RunSet& first = runSets_.front();
    if (!resolveSet(row, first, false))
        return false;
    const qint64 count = first.columns.size() + (addSetName ? 1 : 0) + common.size();
    if (count > mostColumns)
        return !fail(tooManyColumns(count));
    OneRow& out = *getOutputRowForOutputPin(0);
    out.setNumberOfColumns(static_cast<int>(count));
    if (!nameValueColumns(first))
        return false;
    for (size_t place = 0; place < first.inputs.size(); ++place)
        out.setMetaType(static_cast<int>(place), row.getMetaType(first.inputs[place]));
    if (addSetName)
        out.setColName(static_cast<int>(first.columns.size()),
                       expandString(setColumnName).trimmed());
    const bool isSingle = first.columns.size() == 1;
    nullsToSkip_ = skipNulls && isSingle ? qint32(row.getMetaType(first.inputs[0]).type) : 0;
    return true;
}

bool Unflatten::nameValueColumns(const RunSet& first) {
    QStringList names = first.columns;
    const QString fixedNames = expandString(newNames).trimmed();
    if (!fixedNames.isEmpty()) {
        names = fixedNames.split(QLatin1Char(','), Qt::SkipEmptyParts);
        if (names.size() != first.columns.size())
            return !fail(
                QStringLiteral("ERROR: Wrong number of fixed column names (%1 instead of %2)")
                    .arg(names.size())
                    .arg(first.columns.size()));
        for (QString& name : names)
            name = name.trimmed();
    }
    OneRow& out = *getOutputRowForOutputPin(0);
    for (int place = 0; place < names.size(); ++place)
        out.setColName(place, names[place]);
    return true;
}

bool Unflatten::resolveCommon(const OneRow& row) {
    OneRow& out = *getOutputRowForOutputPin(0);
    const int firstPlace = out.sz() - static_cast<int>(common.size());
    commonInputs_.resize(static_cast<size_t>(common.size()));
    for (int i = static_cast<int>(common.size()) - 1; i >= 0; --i) {
        const int input = row.getIndexOfColumn(common[i]);
        if (input < 0)
            return failNotFound(common[i]);
        commonInputs_[static_cast<size_t>(i)] = input;
        out.setColName(firstPlace + i, row.colName(input));
        out.setMetaType(firstPlace + i, row.getMetaType(input));
    }
    return true;
}

bool Unflatten::nextStep() {
    const OneRow* row = getCurRowFromInPin(0);
    if (set_ == runSets_.size()) {
        row = getNextRowFromInPin(0);
        if (row == nullptr)
            return true;
        takeRow(*row);
    }
    passOnSet(*row);
    return false;
}

/// Begins with a row's first set; the common cells stay in the output for all of them.
void Unflatten::takeRow(const OneRow& row) {
    set_ = 0;
    OneRow& out = *getOutputRowForOutputPin(0);
    const uchar** cells = out.cells + out.columns - commonInputs_.size();
    for (const int input : commonInputs_)
        *cells++ = row.cells[input];
}

void Unflatten::passOnSet(const OneRow& row) {
    const RunSet& set = runSets_[set_++];
    const uchar** cells = getOutputRowForOutputPin(0)->cells;
    if (nullsToSkip_ != 0 && cell::isNull(row.cells[set.inputs[0]], nullsToSkip_))
        return;
    for (const int input : set.inputs)
        *cells++ = row.cells[input];
    if (addSetName)
        *cells = set.nameCell;
    setRowReadyForOutput(0);
}

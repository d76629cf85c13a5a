#include "actions/shape/select_columns.h"

#include <algorithm>

namespace {

constexpr int mostWarnings = 10;

/// The declared order that is left: up to the first column that the output hasn't, or whose name
/// doesn't tell it from another.
QVector<SortInfos> remainingOrder(const OneRow& row, const std::vector<int>& sources) {
    QVector<SortInfos> order = row.getSortInfosDeep();
    for (qsizetype i = 0; i < order.size(); ++i) {
        const int column = order[i].column;
        const auto hasName = [&](int source) { return row.colName(source) == row.colName(column); };
        const auto place = column < 0 || column >= row.sz()
                               ? sources.end()
                               : std::find_if(sources.begin(), sources.end(), hasName);
        if (place == sources.end() || *place != column ||
            std::any_of(place + 1, sources.end(), hasName)) {
            order.resize(i);
            break;
        }
        order[i].column = static_cast<qint32>(place - sources.begin());
    }
    return order;
}

} // namespace

const StoredElement& SelectColumns::declaration() {
    static const StoredElement element =
        StoredElement(2.08)
            .versionBy<SelectColumns>(
                [](const SelectColumns& action) { return action.abort ? 4.16 : 2.08; })
            .boolean<&SelectColumns::keep>("keep", true, Written::Always,
                                           "1: the names are the columns to keep; 0: the columns "
                                           "to drop")
            .boolean<&SelectColumns::abort>("abort", true, Written::WhenNotDefault,
                                            "1: a missing column to drop is an error; 0: it is a "
                                            "warning. A missing column to keep is always an error")
            .list<&SelectColumns::columns>(
                "columns", "names of columns; a name mentioned again means the next "
                           "column of that name. Names on input pin 1 come behind");
    return element;
}

SelectColumns::SelectColumns(const XMLNode& element, GlobalParameters* parameters)
    : RowByRowAction(element, parameters) {
    nPinIn = 2;
    readStored(declaration());
}

bool SelectColumns::beforeRun() {
    warnings_ = 0;
    return false;
}

char SelectColumns::fullTableRequiredToComputeMetas(int pin, bool* answer) {
    *answer = pin > 0;
    return 0;
}

bool SelectColumns::resolve(const OneRow& row) {
    sources_.clear();
    if (!(keep ? findKept(row) : findDropped(row)) || !isRunning())
        return false;
    if (sources_.empty())
        return !fail(QStringLiteral("An error occurred while initializing the Action "
                                    "'SelectColumns'\nNo columns to output?\n"));
    shapeOutput(row);
    return true;
}

/// Calls `take` with each name on pin 1 until it says false; blank ones are passed over.
template <class Take>
bool SelectColumns::forEachNameOnPin1(Take take) {
    ushort scratch[OneRow::scratchUnits];
    while (const OneRow* const row = nextRowToDrain(1)) {
        const QString name = row->sz() > 0 ? row->col(0, scratch).trimmed() : QString();
        if (!name.isEmpty() && !take(name))
            return false;
    }
    return true;
}

bool SelectColumns::findKept(const OneRow& row) {
    const auto columnCount = static_cast<size_t>(row.sz());
    SeenColumns seen(columnCount);
    std::vector<bool> kept(columnCount);
    const auto takeName = [&](const QString& name) {
        const int column = findColumnOccurrence(row, name, seen, reportSelectColumns);
        if (column < 0)
            return !failLogged();
        if (!kept[static_cast<size_t>(column)])
            sources_.push_back(column);
        kept[static_cast<size_t>(column)] = true;
        return true;
    };
    if (!std::all_of(columns.cbegin(), columns.cend(), takeName))
        return false;
    // Pin 1 counts occurrences anew, so that a name on it may repeat one of the list.
    std::fill(seen.begin(), seen.end(), uchar(0));
    return forEachNameOnPin1(takeName);
}

bool SelectColumns::findDropped(const OneRow& row) {
    const auto columnCount = static_cast<size_t>(row.sz());
    SeenColumns seen(columnCount);
    std::vector<bool> dropped(columnCount);
    const auto takeName = [&](const QString& name) {
        return markDropped(row, name, seen, dropped);
    };
    if (!std::all_of(columns.crbegin(), columns.crend(), takeName))
        return false;
    std::fill(seen.begin(), seen.end(), uchar(0));
    if (!forEachNameOnPin1(takeName))
        return false;
    for (int column = 0; column < row.sz(); ++column) {
        if (!dropped[static_cast<size_t>(column)])
            sources_.push_back(column);
    }
    return true;
}

bool SelectColumns::markDropped(const OneRow& row, const QString& name, SeenColumns& seen,
                                std::vector<bool>& dropped) {
    const int column =
        findColumnOccurrence(row, name, seen, abort ? reportSelectColumns : reportNothing);
    if (column >= 0)
        dropped[static_cast<size_t>(column)] = true;
    else if (abort)
        return !failLogged();
    else
        warnOfMissing(name);
    return true;
}

void SelectColumns::warnOfMissing(const QString& name) {
    if (warnings_ == mostWarnings)
        return;
    ++warnings_;
    hasWarning = true;
    MainUI::addLog(3, QLatin1String("Warning: Cannot drop column '") + name +
                          QLatin1String(warnings_ == mostWarnings
                                            ? "'. Some more warnings won't be reported."
                                            : "'"));
}

void SelectColumns::shapeOutput(const OneRow& row) {
    OneRow& out = *getOutputRowForOutputPin(0);
    out.setNumberOfColumns(static_cast<int>(sources_.size()));
    for (size_t i = 0; i < sources_.size(); ++i) {
        const int place = static_cast<int>(i);
        out.setColName(place, row.colName(sources_[i]));
        out.setMetaType(place, row.getMetaType(sources_[i]));
    }
    out.setSortInfos(remainingOrder(row, sources_));
}

void SelectColumns::passOn(const OneRow& row) {
    const uchar** out = getOutputRowForOutputPin(0)->cells;
    for (const int source : sources_)
        *out++ = row.cells[source];
    setRowReadyForOutput(0);
}

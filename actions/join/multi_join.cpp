#include "actions/join/multi_join.h"

#include "actions/join/join_texts.h"

#include <algorithm>
#include <numeric>

namespace {

constexpr int fewestPins = 2;

const uchar* findKey(const SlaveTableStore& store, int slot, const OneRow& row, int column) {
    const quint32 key = cell::loadKey(row.cells[column]);
    return key < cell::firstNullKey ? store.findKey(slot, key) : nullptr;
}

const uchar* findAsKey(const SlaveTableStore& store, int slot, const OneRow& row, int column) {
    bool ok = false;
    const quint32 key = row.colAsKey(column, &ok);
    return ok ? store.findKey(slot, key) : nullptr;
}

const uchar* findAsFloat(const SlaveTableStore& store, int slot, const OneRow& row, int column) {
    bool ok = false;
    const double number = row.colAsDouble(column, &ok);
    return ok ? store.findFloat(slot, number) : nullptr;
}

const uchar* findText(const SlaveTableStore& store, int slot, const OneRow& row, int column) {
    return store.findText(slot, cell::text(row.cells[column]));
}

const uchar* findAsText(const SlaveTableStore& store, int slot, const OneRow& row, int column) {
    const ushort* chars = nullptr;
    const int units = row.col(column, &chars);
    const int length = chars == nullptr ? 0 : units + 1;
    return store.findText(slot,
                          {static_cast<const uchar*>(static_cast<const void*>(chars)), length});
}

void prefetchKey(const SlaveTableStore& store, int slot, const OneRow& row, int column) {
    store.prefetchKey(slot, cell::loadKey(row.cells[column]));
}

void prefetchText(const SlaveTableStore& store, int slot, const OneRow& row, int column) {
    store.prefetchText(slot, cell::text(row.cells[column]));
}

void sortUnique(std::vector<int>& numbers) {
    std::sort(numbers.begin(), numbers.end());
    numbers.erase(std::unique(numbers.begin(), numbers.end()), numbers.end());
}

} // namespace

/// A join while its pin is resolved. Columns are the slave's.
struct MultiJoin::PinJoin {
    int place; ///< among all joins
    QString keyName;
    std::vector<int> named; ///< columns asked for by name
    int mainKeyColumn = -1;
    int keyColumn = -1;
    std::vector<int> outputs; ///< ascending
};

/// A slave pin that has a row.
struct MultiJoin::Slave {
    int pin;
    const OneRow* firstRow;
    std::vector<PinJoin> joins;
    std::vector<int> columns; ///< those to store, ascending

    int placeOf(int column) const {
        return static_cast<int>(std::lower_bound(columns.begin(), columns.end(), column) -
                                columns.begin());
    }
};

const StoredElement& MultiJoin::declaration() {
    static const StoredElement join =
        StoredElement(0)
            .integer<&JoinSpec::pin>("pin", 1, Written::Always, "pin of the slave table")
            .text<&JoinSpec::mainKey>("mainKey", "", Written::Always,
                                      "key column on pin 0; may hold parameters")
            .text<&JoinSpec::slaveKey>("slaveKey", "", Written::Always,
                                       "key column on the slave pin; may hold parameters")
            .text<&JoinSpec::prefix>("prefix", "", Written::Always,
                                     "put in front of the names of the new columns")
            .boolean<&JoinSpec::copyAll>("copyAll", true, Written::WhenNotDefault,
                                         "1: all columns of the slave but its key; 0: those named")
            .boolean<&JoinSpec::inner>("inner", false, Written::WhenNotDefault,
                                       "1: a row without a match is dropped")
            .list<&JoinSpec::columns>("columns",
                                      "columns of the slave, for copyAll='0'; they come out in "
                                      "the slave's order; may hold parameters",
                                      {.afterOpen = "\n  ",
                                       .beforeClose = "  ",
                                       .beforeOpen = "  ",
                                       .afterEntries = "\n"});
    static const StoredElement element =
        StoredElement(2.08)
            .integer<&MultiJoin::dataBlockSize>("dataBlockSize", 10240, Written::WhenNotDefault,
                                                "size in KiB of the blocks of memory that hold "
                                                "the slave tables")
            .integer<&MultiJoin::nPinIn>("nPinIn", fewestPins, Written::WhenNotDefault,
                                         "number of input pins")
            .boolean<&MultiJoin::checkUniquePKInSlaves>(
                "checkUniquePKInSlaves", true, Written::WhenNotDefault,
                "1: a key that stands twice in a slave table is an error; 0: its last row counts")
            .boolean<&MultiJoin::allowKeyOnly>("allowKeyOnly", false, Written::WhenNotDefault,
                                               "1: a join may add no column, and only filter")
            .boolean<&MultiJoin::outputSlaveKey>(
                "outputSlaveKey", false, Written::WhenNotDefault,
                "1: each join also adds its key, null where nothing matches")
            .records<&MultiJoin::joins>("Join", "a join, one element each", join);
    return element;
}

MultiJoin::MultiJoin(const XMLNode& element, GlobalParameters* parameters)
    : RowByRowAction(element, parameters) {
    pinsEditable = true;
    readStored(declaration());
}

void MultiJoin::removePinIn() {
    if (nPinIn > fewestPins)
        --nPinIn;
}

bool MultiJoin::beforeRun() {
    release();
    if (dataBlockSize >= 1 && dataBlockSize <= largestBlockSize)
        return false;
    return fail(outOfRange("dataBlockSize", QString::number(dataBlockSize), 1, largestBlockSize));
}

bool MultiJoin::resolve(const OneRow& row) {
    mainColumns_ = row.sz();
    resolved_ = std::vector<std::optional<LiveJoin>>(static_cast<size_t>(joins.size()));
    if (!checkPins())
        return false;
    for (int pin = 1; pin < nPinIn; ++pin) {
        if (!resolvePin(pin, row))
            return false;
    }
    return shapeOutput(row) && (!mustComputeFull() || loadSlaves());
}

bool MultiJoin::checkPins() {
    for (qsizetype place = joins.size(); place-- > 0;) {
        const int pin = joins[place].pin;
        const QString number = QString::number(place + 1);
        if (pin >= nPinIn)
            return !fail(QStringLiteral("No enough input pin to compute join %1 (minimum required "
                                        "number of pin=%2).")
                             .arg(number, QString::number(qint64(pin) + 1)));
        if (pin < 1)
            return !fail(QStringLiteral("Invalid join %1 (computed on pin=0?).").arg(number));
    }
    return true;
}

bool MultiJoin::resolvePin(int pin, const OneRow& row) {
    Slave slave{pin, nullptr, {}, {}};
    for (int place = 0; place < joins.size(); ++place) {
        if (joins[place].pin == pin)
            slave.joins.push_back({place, expandString(joins[place].slaveKey), {}, -1, -1, {}});
    }
    if (slave.joins.empty()) {
        MainUI::addLog(2, QStringLiteral("Pin %1 is unused?").arg(pin));
        return true;
    }
    slave.firstRow = nextRowToDrain(pin);
    if (slave.firstRow == nullptr)
        return isRunning() && skipPin(slave);
    if (!findColumns(slave))
        return false;
    for (auto join = slave.joins.rbegin(); join != slave.joins.rend(); ++join) {
        if (!resolveJoin(slave, *join, row))
            return false;
    }
    return storeFirstRow(slave, row);
}

/// A pin without rows: its joins vanish, or with an inner one all of the output.
bool MultiJoin::skipPin(const Slave& slave) {
    MainUI::addLog(2, noRowsOnPin(slave.pin));
    hasWarning = true;
    noOutput_ = std::any_of(slave.joins.begin(), slave.joins.end(),
                            [&](const PinJoin& join) { return joins[join.place].inner; });
    return !noOutput_;
}

/// Finds the columns to store: all of them where some join takes all.
bool MultiJoin::findColumns(Slave& slave) {
    const bool copyAny = std::any_of(slave.joins.begin(), slave.joins.end(),
                                     [&](const auto& join) { return joins[join.place].copyAll; });
    const auto take = [&](const QString& name, std::vector<int>& columns) {
        columns.push_back(slave.firstRow->getIndexOfColumn(name));
        return columns.back() >= 0 || !fail(cannotFindColumn(name, slave.pin));
    };
    for (PinJoin& join : slave.joins) {
        const JoinSpec& spec = joins[join.place];
        for (qsizetype i = 0; !spec.copyAll && i < spec.columns.size(); ++i) {
            if (!take(expandString(spec.columns[i]), join.named))
                return false;
        }
        slave.columns.insert(slave.columns.end(), join.named.begin(), join.named.end());
        if (!copyAny && !take(join.keyName, slave.columns))
            return false;
    }
    if (copyAny) {
        slave.columns.resize(static_cast<size_t>(slave.firstRow->sz()));
        std::iota(slave.columns.begin(), slave.columns.end(), 0);
        return true;
    }
    sortUnique(slave.columns);
    return true;
}

bool MultiJoin::resolveJoin(const Slave& slave, PinJoin& join, const OneRow& row) {
    const JoinSpec& spec = joins[join.place];
    const QString mainKey = expandString(spec.mainKey);
    join.mainKeyColumn = row.getIndexOfColumn(mainKey);
    if (join.mainKeyColumn < 0)
        return !fail(cannotFindColumn(mainKey, 0));
    join.keyColumn = slave.firstRow->getIndexOfColumn(join.keyName);
    if (join.keyColumn < 0)
        return !fail(cannotFindColumn(join.keyName, slave.pin));
    join.outputs = spec.copyAll ? slave.columns : join.named;
    std::sort(join.outputs.begin(), join.outputs.end());
    join.outputs.erase(std::remove(join.outputs.begin(), join.outputs.end(), join.keyColumn),
                       join.outputs.end());
    if (join.outputs.empty() && !allowKeyOnly)
        return !fail(QStringLiteral("No column to output for join '%1'").arg(join.place + 1));
    return true;
}

/// Makes the pin's store, its joins and their output columns.
bool MultiJoin::storeFirstRow(const Slave& slave, const OneRow& row) {
    std::vector<int> keys;
    for (const PinJoin& join : slave.joins)
        keys.push_back(slave.placeOf(join.keyColumn));
    sortUnique(keys);
    stores_.push_back(
        {slave.pin, std::make_unique<SlaveTableStore>(slave.pin, qint64(dataBlockSize) * 1024,
                                                      checkUniquePKInSlaves)});
    SlaveTableStore& store = *stores_.back().table;
    store.setColumns(*slave.firstRow, slave.columns, keys);
    for (const PinJoin& join : slave.joins) {
        LiveJoin& live = resolved_[static_cast<size_t>(join.place)].emplace();
        live.store = &store;
        live.slot = static_cast<int>(
            std::lower_bound(keys.begin(), keys.end(), slave.placeOf(join.keyColumn)) -
            keys.begin());
        live.mainKeyColumn = join.mainKeyColumn;
        live.inner = joins[join.place].inner;
        const qint32 mainType = row.getMetaType(join.mainKeyColumn).type;
        live.lookup = lookupFor(store.keyType(live.slot), mainType);
        live.prefetch = live.lookup == &findKey    ? &prefetchKey
                        : live.lookup == &findText ? &prefetchText
                                                   : nullptr;
        const auto addColumn = [&](const QString& name, qint32 type) {
            live.names.push_back(detach(joins[join.place].prefix + name));
            live.types.push_back(type);
            live.nullCells.push_back(cell::nullCell(type));
        };
        if (outputSlaveKey)
            addColumn(join.keyName, mainType);
        std::vector<int> places;
        for (const int column : join.outputs) {
            addColumn(slave.firstRow->colName(column), slave.firstRow->getMetaType(column).type);
            places.push_back(slave.placeOf(column));
        }
        live.selection = SlaveTableStore::Selection(store, std::move(places));
    }
    return !store.addRow(*slave.firstRow) || !failLogged();
}

MultiJoin::Lookup MultiJoin::lookupFor(qint32 slaveType, qint32 mainType) {
    if (slaveType == MetaTypeKey)
        return mainType == MetaTypeKey ? &findKey : &findAsKey;
    if (slaveType == MetaTypeFloat)
        return &findAsFloat;
    const bool isText = mainType != MetaTypeKey && mainType != MetaTypeFloat;
    return isText ? &findText : &findAsText;
}

bool MultiJoin::shapeOutput(const OneRow& row) {
    qint64 columns = mainColumns_;
    for (std::optional<LiveJoin>& join : resolved_) {
        if (!join)
            continue;
        columns += static_cast<qint64>(join->types.size());
        live_.push_back(std::move(*join));
    }
    resolved_.clear();
    if (columns > mostColumns)
        return !fail(tooManyColumns(columns));
    OneRow& out = *getOutputRowForOutputPin(0);
    out.copyFrom(row);
    out.setNumberOfColumns(static_cast<int>(columns));
    int place = mainColumns_;
    for (const LiveJoin& join : live_) {
        for (size_t i = 0; i < join.types.size(); ++i, ++place) {
            out.setColName(place, join.names[static_cast<qsizetype>(i)]);
            out.setMetaType(place, MetaInfo(join.types[i], -1));
        }
    }
    return true;
}

bool MultiJoin::loadSlaves() {
    for (const Store& store : stores_) {
        while (const OneRow* const row = nextRowToDrain(store.pin)) {
            if (store.table->addRow(*row))
                return !failLogged();
        }
        if (!isRunning())
            return false;
    }
    return true;
}

void MultiJoin::takeFrom(const MultiJoin& master) {
    live_ = master.live_;
    mainColumns_ = master.mainColumns_;
    noOutput_ = master.noOutput_;
}

/// Several tables are waited for at once.
void MultiJoin::prefetchKeys(const OneRow& row) const {
    for (const LiveJoin& join : live_) {
        if (join.prefetch != nullptr)
            join.prefetch(*join.store, join.slot, row, join.mainKeyColumn);
    }
}

void MultiJoin::passOn(const OneRow& row) {
    if (noOutput_)
        return;
    if (live_.size() > 1 && mustComputeFull())
        prefetchKeys(row);
    const uchar** out = getOutputRowForOutputPin(0)->cells;
    out = std::copy_n(row.cells, mainColumns_, out);
    const bool looksUp = mustComputeFull();
    for (const LiveJoin& join : live_) {
        const uchar* const found =
            looksUp ? join.lookup(*join.store, join.slot, row, join.mainKeyColumn) : nullptr;
        if (found == nullptr) {
            if (join.inner && looksUp)
                return;
            out = std::copy(join.nullCells.begin(), join.nullCells.end(), out);
            continue;
        }
        if (outputSlaveKey)
            *out++ = row.cells[join.mainKeyColumn];
        out = join.selection.point(found, out);
    }
    setRowReadyForOutput(0);
}

void MultiJoin::release() {
    live_.clear();
    resolved_.clear();
    stores_.clear();
    noOutput_ = false;
}

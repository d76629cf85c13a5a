// What the first row of a Join decides: keys, output columns and the step of the mode.
#include "actions/join/join.h"

#include "plugin/bounds.h"

bool Join::firstStep() {
    const OneRow* const a = getNextRowFromInPin(0);
    if (a == nullptr)
        return startWithoutA();
    if (!resolve(*a) || !isRunning())
        return true;
    return mustComputeFull() ? start(*a) : handOnColumns(*a);
}

/// Where rows of B come out too, they go through as they are.
bool Join::startWithoutA() {
    const bool keepsB = joinMode == FullUnique || joinMode == FullAll || joinMode == XorUnique ||
                        joinMode == XorAll;
    const OneRow* const b = keepsB ? nextRow(1) : nullptr;
    if (b == nullptr)
        return true;
    OneRow& out = *getOutputRowForOutputPin(0);
    out.copyFrom(*b);
    for (int column = 0; column < b->sz(); ++column)
        out.setColName(column, prefixes.value(1) + b->colName(column));
    const QString keyB = slaveKeys.value(0);
    const int key = b->getIndexOfColumn(keyB);
    if (key < 0)
        return fail(QLatin1String("ERROR: column '") + keyB + QLatin1String("' not found.\n"));
    out.setColName(key, prefixes.value(0) + keyB);
    setStep<&Join::copyBStep>();
    setRowReadyForOutput(0);
    return !mustComputeFull();
}

/// False when the run has ended.
bool Join::resolve(const OneRow& a) {
    columnsOfA_ = a.sz();
    const bool hasKeys = joinMode != Juxtapose && joinMode != CrossProduct;
    if (!(hasKeys ? checkKeys(a) : readFirstRows()) || !shapeOutput(a))
        return false;
    // Without rows of B a cross-product has none.
    return joinMode != CrossProduct || !slaves_.empty();
}

bool Join::checkKeys(const OneRow& a) {
    QString problem = key_.checkMaster(a, keyA);
    for (int pin = 1; pin < nPinIn && problem.isNull(); ++pin) {
        const OneRow* const b = nextRow(pin);
        if (b == nullptr)
            continue; // a table without rows has no part in the join
        const QString name = QLatin1String("Pin ") + QString::number(pin);
        slaves_.push_back({pin, 0, b->sz() - 1});
        problem = key_.checkSlave(*b, slaveKeys.value(pin - 1), name, &slaves_.back().key);
    }
    const bool comparesCells =
        joinMode == FullUnique || joinMode == XorUnique || joinMode == XorAll;
    if (problem.isNull())
        problem = key_.choose(comparesCells ? JoinKey::Keeps::Cell : JoinKey::Keeps::Number);
    return problem.isNull() || !fail(problem);
}

bool Join::readFirstRows() {
    for (int pin = 1; pin < nPinIn; ++pin) {
        const OneRow* const b = nextRow(pin);
        if (b != nullptr)
            slaves_.push_back({pin, -1, b->sz()});
    }
    return isRunning();
}

bool Join::shapeOutput(const OneRow& a) {
    qint64 columns = columnsOfA_;
    const bool addsColumns = joinMode != MinusUnique && joinMode != MinusAll;
    for (Slave& slave : slaves_) {
        slave.place = static_cast<int>(columns);
        if (addsColumns)
            columns += slave.columns;
        if (columns > mostColumns)
            return !fail(tooManyColumns(columns));
    }
    OneRow& out = *getOutputRowForOutputPin(0);
    out.copyFrom(a);
    out.setNumberOfColumns(static_cast<int>(columns));
    const QString prefixA = expandString(prefixes.value(0));
    for (int column = 0; column < columnsOfA_; ++column)
        out.setColName(column, prefixA + a.colName(column));
    out_ = out.cells;
    for (Slave& slave : slaves_) {
        const OneRow& b = *getCurRowFromInPin(slave.pin);
        const QString prefix = expandString(prefixes.value(slave.pin));
        int place = slave.place;
        slave.out = out_ + place;
        for (int column = 0; addsColumns && column < b.sz(); ++column) {
            if (column == slave.key)
                continue;
            out.setColName(place, prefix + b.colName(column));
            out.setMetaType(place++, b.getMetaType(column));
        }
    }
    if (!slaves_.empty()) {
        const Slave& slave = slaves_.front();
        descriptorAllBut(group_.descriptor(), *getCurRowFromInPin(slave.pin), slave.key);
    }
    for (int column = 0; column < columns; ++column)
        nulls_.push_back(cell::nullCell(out.getMetaType(column).type));
    return true;
}

/// One row, for its columns.
bool Join::handOnColumns(const OneRow& a) {
    for (const Slave& slave : slaves_) {
        if (joinMode == Juxtapose || joinMode == CrossProduct)
            putB(slave, *getCurRowFromInPin(slave.pin));
        else if (joinMode != MinusUnique && joinMode != MinusAll)
            putNulls(slave);
    }
    handOnA(a);
    return true;
}

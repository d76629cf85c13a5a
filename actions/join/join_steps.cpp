// The steps of a Join. Each hands on one row at most.
#include "actions/join/join.h"

#include <algorithm>

/// Stores the step of the mode and handles the first row as that step would.
bool Join::start(const OneRow& a) {
    const bool needsB = joinMode == InnerUnique || joinMode == InnerAll;
    if (slaves_.empty())
        return needsB ? restWithoutB<Kind::Inner>(a) : restWithoutB<Kind::Left>(a);
    switch (joinMode) {
    case LeftUnique:
        putNulls(slaves_.front());
        return slaves_.size() > 1 ? begin<&Join::manySlavesRow>(a)
                                  : begin<&Join::uniqueRow<Kind::Left>>(a);
    case InnerUnique:
        return begin<&Join::uniqueRow<Kind::Inner>>(a);
    case MinusUnique:
    case MinusAll:
        return begin<&Join::uniqueRow<Kind::Minus>>(a);
    case LeftAll:
        return begin<&Join::groupRow<Kind::Left>>(a);
    case InnerAll:
        return begin<&Join::groupRow<Kind::Inner>>(a);
    case FullAll:
        return begin<&Join::groupRow<Kind::Full>>(a);
    case FullUnique:
        setStep<&Join::mergeStep<Kind::Full>>();
        return merge<Kind::Full>();
    case XorUnique:
    case XorAll:
        setStep<&Join::mergeStep<Kind::Xor>>();
        return merge<Kind::Xor>();
    case Juxtapose:
        for (const Slave& slave : slaves_)
            putB(slave, *getCurRowFromInPin(slave.pin));
        return begin<&Join::handOnA>(a);
    default:
        return startCrossProduct(a);
    }
}

template <auto Handle>
bool Join::begin(const OneRow& a) {
    setStep<&Join::eachRowOfA<Handle>>();
    stepBehindReplay_ = runStep;
    return (this->*Handle)(a);
}

template <auto Handle>
bool Join::eachRowOfA() {
    const OneRow* const a = getNextRowFromInPin(0);
    return a != nullptr ? (this->*Handle)(*a) : endOfA();
}

// Words that the steps share.

void Join::putB(const Slave& slave, const OneRow& b) {
    const uchar** const out = std::copy_n(b.cells, std::max(slave.key, 0), slave.out);
    std::copy(b.cells + slave.key + 1, b.cells + b.sz(), out);
}

void Join::putNulls(const Slave& slave) {
    std::copy_n(nulls_.begin() + slave.place, slave.columns, slave.out);
}

/// What stands behind A's cells stays as it is.
bool Join::handOnA(const OneRow& a) {
    std::copy_n(a.cells, columnsOfA_, out_);
    setRowReadyForOutput(0);
    return false;
}

bool Join::handOnAWithNulls(const OneRow& a) {
    putNulls(slaves_.front());
    return handOnA(a);
}

/// B's key comes out in A's key column.
bool Join::handOnBAlone(const OneRow& b) {
    const Slave& slave = slaves_.front();
    std::copy_n(nulls_.begin(), columnsOfA_, out_);
    putB(slave, b);
    out_[key_.column()] = b.cells[slave.key];
    setRowReadyForOutput(0);
    return false;
}

/// Reads on to the first row of the slave that doesn't come in front of the current key, and says
/// whether it has that key. Null at the end of the table, and of the run.
const OneRow* Join::advance(Slave& slave) {
    const OneRow* b = getCurRowFromInPin(slave.pin);
    int order = 1;
    while (b != nullptr && (order = key_.compareKeys(b->cells[slave.key])) > 0)
        b = nextRow(slave.pin);
    slave.matches = order == 0;
    return b;
}

void Join::drain(int pin) {
    while (nextRowToDrain(pin) != nullptr) {
    }
}

/// Goes on with a row of A, whose key B can't have, when B has ended.
template <Join::Kind kind>
bool Join::restWithoutB(const OneRow& a) {
    if (!isRunning())
        return true;
    if constexpr (kind == Kind::Inner) {
        if (closeB)
            drain(0);
        return true;
    }
    if (kind != Kind::Minus && !slaves_.empty())
        putNulls(slaves_.front());
    return begin<&Join::handOnA>(a);
}

bool Join::endOfA() {
    if (!isRunning())
        return true;
    switch (joinMode) {
    case Juxtapose:
    case CrossProduct:
        return true;
    case FullUnique:
    case FullAll:
    case XorUnique:
    case XorAll:
        return restOfB();
    case LeftUnique:
        for (int pin = 1; pin < nPinIn; ++pin)
            nextRow(pin);
        break;
    default:
        break;
    }
    for (int pin = 1; closeB && pin < nPinIn; ++pin)
        drain(pin);
    return true;
}

/// Goes on with B's row, unless it was put out, and those behind it.
bool Join::restOfB() {
    const OneRow* const b = getCurRowFromInPin(1);
    if (b == nullptr)
        return true;
    setStep<&Join::onlyBStep>();
    return isMatched_ ? onlyBStep() : handOnBAlone(*b);
}

bool Join::onlyBStep() {
    const OneRow* const b = getNextRowFromInPin(1);
    return b == nullptr || handOnBAlone(*b);
}

bool Join::copyBStep() {
    const OneRow* const b = getNextRowFromInPin(1);
    if (b == nullptr)
        return true;
    getOutputRowForOutputPin(0)->copyFrom(*b);
    setRowReadyForOutput(0);
    return false;
}

// Unique keys, by A's rows: only the first row of B with a key counts, on which B stays while A has
// further rows with that key.

template <Join::Kind kind>
bool Join::uniqueRow(const OneRow& a) {
    Slave& slave = slaves_.front();
    const bool hadMatch = slave.matches;
    key_.lookAt(a.cells[key_.column()]);
    const OneRow* const b = advance(slave);
    if (b == nullptr)
        return restWithoutB<kind>(a);
    if (kind != Kind::Minus && slave.matches)
        putB(slave, *b);
    else if (kind == Kind::Left && hadMatch)
        putNulls(slave);
    if (kind != Kind::Left && slave.matches != (kind == Kind::Inner))
        return false;
    return handOnA(a);
}

bool Join::manySlavesRow(const OneRow& a) {
    const uchar* const key = a.cells[key_.column()];
    if (!key_.isNew(key))
        return handOnA(a);
    key_.setCurrentKey(key);
    for (Slave& slave : slaves_) {
        const OneRow* const b = advance(slave);
        if (slave.matches)
            putB(slave, *b);
        else
            putNulls(slave);
    }
    return !isRunning() || handOnA(a);
}

// All rows of B with a key, by A's rows: B's are held and replayed for each row of A.

template <Join::Kind kind>
bool Join::groupRow(const OneRow& a) {
    const uchar* const key = a.cells[key_.column()];
    if (!group_.isEmpty()) {
        if (!key_.isNew(key))
            return replay(a);
        group_.clear();
    }
    key_.lookAt(key);
    return meetGroup<kind>(a);
}

/// Brings B up to the key of a row of A, and joins.
template <Join::Kind kind>
bool Join::meetGroup(const OneRow& a) {
    Slave& slave = slaves_.front();
    const OneRow* b = getCurRowFromInPin(slave.pin);
    if constexpr (kind == Kind::Full) {
        const int order = b != nullptr ? key_.compareKeys(b->cells[slave.key]) : 1;
        if (b != nullptr && order > 0) {
            setStep<&Join::heldRowStep>();
            return handOnBAlone(*b);
        }
        slave.matches = order == 0;
    } else {
        b = advance(slave);
    }
    if (b == nullptr)
        return restWithoutB<kind>(a);
    if (!slave.matches) {
        if (kind != Kind::Inner)
            handOnAWithNulls(a);
        return false;
    }
    key_.setCurrentKey(a.cells[key_.column()]);
    for (; b != nullptr && key_.compareKeys(b->cells[slave.key]) == 0; b = nextRow(slave.pin))
        group_.add(b->cells);
    return !isRunning() || replay(a);
}

/// B's row went out alone, while the row of A waits.
bool Join::heldRowStep() {
    const OneRow* const b = getNextRowFromInPin(slaves_.front().pin);
    if (b == nullptr && !isRunning())
        return true;
    runStep = stepBehindReplay_;
    return meetGroup<Kind::Full>(*getCurRowFromInPin(0));
}

bool Join::replay(const OneRow& a) {
    std::copy_n(a.cells, columnsOfA_, out_);
    group_.toFirst();
    setStep<&Join::replayStep>();
    return replayStep();
}

bool Join::replayStep() {
    if (!group_.unpackNext(slaves_.front().out))
        runStep = stepBehindReplay_;
    setRowReadyForOutput(0);
    return false;
}

bool Join::startCrossProduct(const OneRow& a) {
    const Slave& slave = slaves_.front();
    for (const OneRow* b = getCurRowFromInPin(slave.pin); b != nullptr;
         b = nextRowToDrain(slave.pin))
        group_.add(b->cells);
    return !isRunning() || begin<&Join::replay>(a);
}

// Rows of both tables, by key.

template <Join::Kind kind>
bool Join::mergeStep() {
    if (getNextRowFromInPin(pinToRead_) == nullptr && !isRunning())
        return true;
    return merge<kind>();
}

template <Join::Kind kind>
bool Join::merge() {
    const Slave& slave = slaves_.front();
    while (isRunning()) {
        const OneRow* const a = getCurRowFromInPin(0);
        const OneRow* const b = getCurRowFromInPin(slave.pin);
        if (a == nullptr)
            return restOfB();
        if (b == nullptr)
            return restWithoutB<kind>(*a);
        const int order = key_.compareKeys(a->cells[key_.column()], b->cells[slave.key]);
        if (order < 0) {
            pinToRead_ = 0;
            return handOnAWithNulls(*a);
        }
        if (order > 0 && !isMatched_) {
            pinToRead_ = slave.pin;
            return handOnBAlone(*b);
        }
        if constexpr (kind == Kind::Xor) {
            skipKey();
        } else if (order == 0) {
            isMatched_ = true;
            pinToRead_ = 0;
            putB(slave, *b);
            return handOnA(*a);
        } else {
            isMatched_ = false;
            nextRow(slave.pin);
        }
    }
    return true;
}

/// Passes over the rows of a key that both tables have.
void Join::skipKey() {
    const Slave& slave = slaves_.front();
    key_.setCurrentKey(getCurRowFromInPin(0)->cells[key_.column()]);
    const auto skip = [this](int pin, int column) {
        const OneRow* row = nextRow(pin);
        while (row != nullptr && key_.compareKeys(row->cells[column]) == 0)
            row = nextRow(pin);
    };
    skip(0, key_.column());
    skip(slave.pin, slave.key);
}

#include "actions/shape/append.h"

#include "plugin/bounds.h"
#include "plugin/type_letter.h"

#include <algorithm>
#include <numeric>

namespace {

constexpr int fewestPins = 2;

QString typesDiffer(const QString& name, const QString& pin, const MetaInfo& type, int otherPin,
                    const MetaInfo& otherType) {
    return QLatin1String("An error occurred while initializing the 'Append' Action \n"
                         "The Meta-type of the column '") +
           name + QLatin1String("' do not match on pin ") + pin + QLatin1String(" (type=") +
           typeLetter(type.type) + QLatin1String(") and on pin ") + QString::number(otherPin) +
           QLatin1String(" (type=") + typeLetter(otherType.type) + QLatin1Char(')');
}

} // namespace

const StoredElement& Append::declaration() {
    static const StoredElement element =
        StoredElement(2.08)
            .integer<&Append::output>(
                "output", Selection, Written::WhenNotDefault,
                "columns that come out, and how those of a pin are found. 0: the columns of the "
                "first pin that has rows, by name; 1: those that all pins have, sorted; 2: those "
                "that any pin has, sorted, null where a pin lacks one; 3: the listed columns, by "
                "name; 4: the columns of the first pin that has rows, by place, whatever their "
                "names; 5: as 3, a row of each pin in turn; 6: as 4, a row of each pin in turn")
            .boolean<&Append::check>("check", true, Written::WhenNotDefault,
                                     "1: all tables are checked before the first row goes out; 0: "
                                     "each when its turn comes")
            .integer<&Append::nPinIn>("nPinIn", fewestPins, Written::WhenNotDefault,
                                      "number of input pins; less than 2 counts as 2")
            .settledBy([](qint64 read) { return std::max<qint64>(read, fewestPins); })
            .list<&Append::columns>("columns",
                                    "columns that come out where 'output' is 3 or 5; a name "
                                    "mentioned again means the next column of that name",
                                    {"\n  ", "\n"});
    return element;
}

Append::Append(const XMLNode& element, GlobalParameters* parameters)
    : PluginAction(element, parameters) {
    pinsEditable = true;
    readStored(declaration());
}

void Append::removePinIn() {
    if (nPinIn > fewestPins)
        --nPinIn;
}

bool Append::beforeRun() {
    pin_ = 0;
    active_.clear();
    if (output < FirstPin || output > RotatingByPlace)
        return fail(
            outOfRange("output", QString::number(output), int(FirstPin), int(RotatingByPlace)));
    return false;
}

bool Append::afterRun() {
    inputs_ = {};
    outputs_ = {};
    active_ = {};
    return false;
}

void Append::rewindRun() {
    setStep<&Append::firstStep>();
}

bool Append::firstStep() {
    const OneRow* row = getNextRowFromInPin(pin_);
    while (row == nullptr && pin_ + 1 < nPinIn && isRunning())
        row = getNextRowFromInPin(++pin_);
    if (row == nullptr || !settle(*row) || !isRunning())
        return true;
    switch (output) {
    case ByPlace:
        passOnByPlace(*row);
        break;
    case Union:
        passOnUnion(*row);
        break;
    case RotatingSelection:
    case RotatingByPlace:
        passOnTurn(*row);
        break;
    default:
        passOn(*row, inputs_);
    }
    return !mustComputeFull();
}

/// Shapes the output, checks the other pins as the mode asks for, and stores the step. False when
/// the Action has failed or finished.
bool Append::settle(const OneRow& row) {
    OneRow& out = *getOutputRowForOutputPin(0);
    prefetched_ = output == Intersection || output == Union || (check && mustComputeFull());
    if (output == ByPlace || output == RotatingByPlace) {
        out.copyFrom(row);
        inputs_.resize(static_cast<size_t>(row.sz()));
        std::iota(inputs_.begin(), inputs_.end(), 0);
    } else if (!settleNames(row)) {
        return false;
    }
    // The appended table promises no order.
    out.setSortInfos({});
    switch (output) {
    case Union:
        setStep<&Append::unionStep>();
        return true;
    case ByPlace:
        prefetched_ = false;
        setStep<&Append::placeStep>();
        return true;
    case RotatingSelection:
    case RotatingByPlace:
        return collectTurns();
    default:
        setStep<&Append::namedStep>();
        return !prefetched_ || checkLaterPins();
    }
}

bool Append::settleNames(const OneRow& row) {
    switch (output) {
    case FirstPin:
        shapeByNames(row.getColNamesDeep());
        return takeTypes(row);
    case Selection:
    case RotatingSelection:
        if (columns.isEmpty())
            return !fail(QStringLiteral("An error occurred while initializing the 'Append' Action "
                                        "\nNo columns to output?\n"));
        shapeByNames(columns);
        return takeTypes(row);
    default:
        return settleCommonNames(row);
    }
}

/// The names that all pins have, or any pin has.
bool Append::settleCommonNames(const OneRow& row) {
    if (output == Intersection && pin_ != 0)
        return false;
    NamesOnPins found;
    if (!countNames(row, pin_, found))
        return false;
    for (int pin = pin_ + 1; pin < nPinIn; ++pin) {
        const OneRow* const first = getNextRowFromInPin(pin);
        if (!isRunning() || (first == nullptr && output == Intersection) ||
            (first != nullptr && !countNames(*first, pin, found)))
            return false;
    }
    QVector<QString> names;
    for (auto each = found.cbegin(); each != found.cend(); ++each) {
        if (output == Union || each->pins == nPinIn)
            names.push_back(each.key());
    }
    if (names.isEmpty())
        return false;
    shapeByNames(names);
    if (output == Intersection)
        return takeTypes(row);
    OneRow& out = *getOutputRowForOutputPin(0);
    for (int column = 0; column < out.sz(); ++column)
        out.setMetaType(column, found[names[column]].type);
    mapUnion(row);
    return true;
}

bool Append::countNames(const OneRow& row, int pin, NamesOnPins& names) {
    for (int column = row.sz() - 1; column >= 0; --column) {
        const QString& name = row.colName(column);
        const MetaInfo type = row.getMetaType(column);
        NameOnPins& known = names[name];
        if (known.lastPin == pin)
            return !fail(QLatin1String("An error occurred while initializing the 'Append' Action:\n"
                                       "The column '") +
                         name +
                         QStringLiteral("' is in double on pin %1 (this is unsupported in "
                                        "'Intersection' and 'Union' mode).")
                             .arg(pin));
        if (known.pins == 0)
            known.type = type;
        else if (output == Union && known.type.type != type.type)
            return !fail(typesDiffer(name, QStringLiteral("?"), known.type, pin, type));
        ++known.pins;
        known.lastPin = pin;
    }
    return true;
}

void Append::shapeByNames(const QVector<QString>& names) {
    OneRow& out = *getOutputRowForOutputPin(0);
    out.setNumberOfColumns(static_cast<int>(names.size()));
    for (int column = 0; column < out.sz(); ++column)
        out.setColName(column, names[column]);
}

/// Each output column gets the type of its column on the current pin.
bool Append::takeTypes(const OneRow& row) {
    if (!mapPinColumns(row, pin_, inputs_))
        return false;
    OneRow& out = *getOutputRowForOutputPin(0);
    for (int column = 0; column < out.sz(); ++column)
        out.setMetaType(column, row.getMetaType(inputs_[static_cast<size_t>(column)]));
    return true;
}

/// Fetches the first row of each later pin, unless that was done, and checks that it fits.
bool Append::checkLaterPins() {
    std::vector<int> inputs;
    for (int pin = pin_ + 1; pin < nPinIn && isRunning(); ++pin) {
        const OneRow* const row =
            output == Intersection ? getCurRowFromInPin(pin) : getNextRowFromInPin(pin);
        if (row != nullptr &&
            (!mapPinColumns(*row, pin, inputs) || !checkPinTypes(*row, pin, inputs, pin_)))
            return false;
    }
    return isRunning();
}

/// Fetches and checks the first row of each later pin; those that have one take turns.
bool Append::collectTurns() {
    const bool byName = output == RotatingSelection;
    active_.push_back({pin_, inputs_});
    for (int pin = pin_ + 1; pin < nPinIn && isRunning(); ++pin) {
        const OneRow* const row = getNextRowFromInPin(pin);
        if (row == nullptr)
            continue;
        std::vector<int> inputs;
        if (byName ? !mapPinColumns(*row, pin, inputs) || !checkPinTypes(*row, pin, inputs, pin_)
                   : !checkPlaces(*row, pin, pin_))
            return false;
        active_.push_back({pin, std::move(inputs)});
    }
    turn_ = 0;
    someEnded_ = false;
    if (active_.size() > 1)
        setStep<&Append::firstTurnsStep>();
    else
        setStep<&Append::turnsStep>();
    return isRunning();
}

/// Goes on to the next pin that has a row; null past the last one.
const OneRow* Append::rowOfNextPin() {
    while (++pin_ < nPinIn && isRunning()) {
        const OneRow* const row =
            prefetched_ ? getCurRowFromInPin(pin_) : getNextRowFromInPin(pin_);
        if (row != nullptr)
            return row;
    }
    pin_ = nPinIn - 1;
    return nullptr;
}

bool Append::namedStep() {
    const OneRow* row = getNextRowFromInPin(pin_);
    if (row == nullptr) {
        row = rowOfNextPin();
        if (row == nullptr || !mapPinColumns(*row, pin_, inputs_) ||
            !checkPinTypes(*row, pin_, inputs_, -1))
            return true;
    }
    passOn(*row, inputs_);
    return false;
}

bool Append::unionStep() {
    const OneRow* row = getNextRowFromInPin(pin_);
    if (row == nullptr) {
        row = rowOfNextPin();
        if (row == nullptr)
            return true;
        mapUnion(*row);
    }
    passOnUnion(*row);
    return false;
}

bool Append::placeStep() {
    const OneRow* row = getNextRowFromInPin(pin_);
    if (row == nullptr) {
        row = rowOfNextPin();
        if (row == nullptr || !checkPlaces(*row, pin_, 0))
            return true;
    }
    passOnByPlace(*row);
    return false;
}

/// The first row of each pin but the first was fetched when the columns were settled.
bool Append::firstTurnsStep() {
    const OneRow& row = *getCurRowFromInPin(active_[turn_].pin);
    if (turn_ + 1 == active_.size())
        setStep<&Append::turnsStep>();
    passOnTurn(row);
    return false;
}

bool Append::turnsStep() {
    for (;; ++turn_) {
        if (turn_ == active_.size() && !startRound())
            return true;
        ActivePin& active = active_[turn_];
        const OneRow* const row = active.hasEnded ? nullptr : getNextRowFromInPin(active.pin);
        if (row != nullptr) {
            passOnTurn(*row);
            return false;
        }
        active.hasEnded = true;
        someEnded_ = true;
    }
}

/// Leaves out the pins that have ended. False when none is left.
bool Append::startRound() {
    turn_ = 0;
    if (someEnded_)
        std::erase_if(active_, [](const ActivePin& pin) { return pin.hasEnded; });
    someEnded_ = false;
    return !active_.empty() && isRunning();
}

/// Finds the output columns by name; each mention of a name takes its next occurrence.
bool Append::mapPinColumns(const OneRow& row, int pin, std::vector<int>& inputs) {
    const OneRow& out = *getOutputRowForOutputPin(0);
    SeenColumns seen(static_cast<size_t>(row.sz()));
    inputs.clear();
    for (int column = 0; column < out.sz(); ++column) {
        inputs.push_back(findColumnOccurrence(row, out.colName(column), seen, pin + 1));
        if (inputs.back() < 0)
            return !failLogged();
    }
    return true;
}

bool Append::checkPinTypes(const OneRow& row, int pin, const std::vector<int>& inputs,
                           int otherPin) {
    const OneRow& out = *getOutputRowForOutputPin(0);
    for (int column = out.sz() - 1; column >= 0; --column) {
        const MetaInfo type = row.getMetaType(inputs[static_cast<size_t>(column)]);
        const MetaInfo wanted = out.getMetaType(column);
        if (type.type != wanted.type)
            return !fail(
                typesDiffer(out.colName(column), QString::number(otherPin), wanted, pin, type));
    }
    return true;
}

bool Append::checkPlaces(const OneRow& row, int pin, int otherPin) {
    const OneRow& out = *getOutputRowForOutputPin(0);
    if (row.sz() != out.sz())
        return !fail(
            QStringLiteral("'Append' Action: incorrect number of column on pin %3 (%1!=%2)")
                .arg(row.sz())
                .arg(out.sz())
                .arg(pin));
    return checkPinTypes(row, pin, inputs_, otherPin);
}

/// Finds the columns that the pin has; the others are null until the next pin.
void Append::mapUnion(const OneRow& row) {
    OneRow& out = *getOutputRowForOutputPin(0);
    inputs_.clear();
    outputs_.clear();
    for (int column = out.sz() - 1; column >= 0; --column) {
        const int input = row.getIndexOfColumn(out.colName(column));
        if (input < 0) {
            out.setNull(column);
            continue;
        }
        inputs_.push_back(input);
        outputs_.push_back(column);
    }
}

void Append::passOn(const OneRow& row, const std::vector<int>& inputs) {
    const uchar** out = getOutputRowForOutputPin(0)->cells;
    for (const int input : inputs)
        *out++ = row.cells[input];
    setRowReadyForOutput(0);
}

void Append::passOnUnion(const OneRow& row) {
    const uchar** const out = getOutputRowForOutputPin(0)->cells;
    for (size_t i = 0; i < inputs_.size(); ++i)
        out[outputs_[i]] = row.cells[inputs_[i]];
    setRowReadyForOutput(0);
}

void Append::passOnByPlace(const OneRow& row) {
    getOutputRowForOutputPin(0)->copyFrom(row);
    setRowReadyForOutput(0);
}

/// Hands on a row of the pin whose turn it is, and goes on to the next turn.
void Append::passOnTurn(const OneRow& row) {
    if (output == RotatingSelection)
        passOn(row, active_[turn_].inputs);
    else
        passOnByPlace(row);
    ++turn_;
}

#include "actions/join/filter_on_key.h"

#include "actions/join/join_texts.h"
#include "rows/key_form.h"

const StoredElement& FilterOnKey::declaration() {
    static const StoredElement element =
        StoredElement(2.08)
            .exampleWords("FilterOnKey slaveKey=a mainKeys=a --in 1=slaves.csv")
            .boolean<&FilterOnKey::checkUniquePKInSlaves>(
                "checkUniquePKInSlaves", true, Written::WhenNotDefault,
                "1: a key that stands twice on pin 1 is an error")
            .boolean<&FilterOnKey::truncate>("truncate", false, Written::WhenNotDefault,
                                             "1: the first row with no key found is the last row")
            .boolean<&FilterOnKey::approximate>("approximate", true, Written::WhenNotDefault,
                                                "kept for older files; has no effect")
            .text<&FilterOnKey::slaveKey>("slaveKey", "", Written::Always,
                                          "key column on pin 1; may hold parameters")
            .text<&FilterOnKey::mainKey>("mainKey", "", Written::ReadOnly,
                                         "the only key column on pin 0, where the list is empty")
            .list<&FilterOnKey::mainKeys>("mainKeys",
                                          "key columns on pin 0, of the type of the key on pin 1; "
                                          "may hold parameters",
                                          {.afterOpen = "\n  "});
    return element;
}

FilterOnKey::FilterOnKey(const XMLNode& element, GlobalParameters* parameters)
    : FirstRowAction(element, parameters) {
    nPinIn = 2;
    nPinOut = OutPinCount;
    readStored(declaration());
    if (mainKeys.isEmpty() && element.getAttribute("mainKey", nullptr) != nullptr)
        mainKeys.push_back(mainKey);
}

bool FilterOnKey::beforeRun() {
    release();
    return false;
}

void FilterOnKey::release() {
    ownIndex_.reset();
    index_ = nullptr;
    keyColumns_.clear();
    route_ = nullptr;
}

char FilterOnKey::canRunInParallel(const QString&, bool* answer) {
    *answer = !truncate;
    return 0;
}

void FilterOnKey::takeFrom(const FilterOnKey& master) {
    index_ = master.index_;
    keyColumns_ = master.keyColumns_;
    route_ = master.route_;
}

bool FilterOnKey::begin(const OneRow& row) {
    setStep<&FilterOnKey::nextStep>();
    if (mustComputeFull())
        return sendOn(row, (this->*route_)(row));
    for (int pin = 0; pin < OutPinCount; ++pin)
        setRowReadyForOutput(pin);
    return true;
}

bool FilterOnKey::resolve(const OneRow& row) {
    for (int pin = 0; pin < OutPinCount; ++pin)
        getOutputRowForOutputPin(pin)->copyFrom(row);
    if (!mustComputeFull())
        return true;
    const OneRow* const slaveRow = nextRowToDrain(1);
    if (slaveRow == nullptr) {
        if (!isRunning())
            return false;
        MainUI::addLog(2, noRowsOnPin(1));
        hasWarning = true;
        route_ = &FilterOnKey::routeToNone;
        return true;
    }
    const QString name = expandString(slaveKey);
    const int column = slaveRow->getIndexOfColumn(name);
    if (column < 0)
        return !fail(cannotFindColumn(name, 1));
    const qint32 type = slaveRow->getMetaType(column).type;
    if (!findMainKeys(row, type))
        return false;
    ownIndex_ = std::make_unique<KeyIndex>(indexBlockSize, 0,
                                           checkUniquePKInSlaves ? DuplicatePolicy::RejectDuplicates
                                                                 : DuplicatePolicy::KeepOne);
    ownIndex_->columnName = name;
    index_ = ownIndex_.get();
    const bool isOne = keyColumns_.size() == 1;
    return withKeyForm(type, [&](auto form) {
        using Form = decltype(form);
        route_ = isOne ? &FilterOnKey::routeByOne<Form> : &FilterOnKey::routeBySeveral<Form>;
        return loadKeys<Form>(slaveRow, column);
    });
}

bool FilterOnKey::findMainKeys(const OneRow& row, qint32 slaveType) {
    keyColumns_.resize(static_cast<size_t>(mainKeys.size()));
    for (size_t i = keyColumns_.size(); i-- > 0;) {
        const QString name = expandString(mainKeys[static_cast<qsizetype>(i)]);
        keyColumns_[i] = row.getIndexOfColumn(name);
        if (keyColumns_[i] < 0)
            return !fail(cannotFindColumn(name, 0));
    }
    for (size_t i = keyColumns_.size(); i-- > 0;) {
        const qint32 type = row.getMetaType(keyColumns_[i]).type;
        if (type != slaveType) {
            MainUI::addLog(4, keyTypesDiffer(type, slaveType));
            return !failLogged();
        }
    }
    return true;
}

template <class Form>
bool FilterOnKey::loadKeys(const OneRow* slaveRow, int column) {
    for (; slaveRow != nullptr; slaveRow = nextRowToDrain(1)) {
        if (Form::add(*ownIndex_, slaveRow->cells[column], 0) == nullptr)
            return !fail(memoryError(actionName()));
    }
    if (!isRunning())
        return false;
    if (!Form::build(*ownIndex_))
        return true;
    return ownIndex_->outOfMemory() ? !fail(memoryError(actionName())) : !failLogged();
}

bool FilterOnKey::nextStep() {
    const OneRow* const row = getNextRowFromInPin(0);
    return row == nullptr || sendOn(*row, (this->*route_)(*row));
}

/// True when this row was the last one.
bool FilterOnKey::sendOn(const OneRow& row, int pin) {
    getOutputRowForOutputPin(pin)->copyFrom(row);
    setRowReadyForOutput(pin);
    return truncate && pin == NoneFound;
}

template <class Form>
int FilterOnKey::routeByOne(const OneRow& row) const {
    return Form::find(*index_, row.cells[keyColumns_.front()]) != nullptr ? AllFound : NoneFound;
}

template <class Form>
int FilterOnKey::routeBySeveral(const OneRow& row) const {
    if (keyColumns_.empty())
        return AllFound;
    const auto isFound = [&](int column) {
        return Form::find(*index_, row.cells[column]) != nullptr;
    };
    const bool first = isFound(keyColumns_.back());
    for (size_t i = keyColumns_.size() - 1; i-- > 0;) {
        if (isFound(keyColumns_[i]) != first)
            return SomeFound;
    }
    return first ? AllFound : NoneFound;
}

#include "actions/shape/insert_key.h"

namespace {

/// What a stored start counts as: its low 32 bits, and 0 where these are a negative number.
qint64 settledStart(qint64 read) {
    const auto low = static_cast<qint32>(static_cast<quint32>(read));
    return low < 0 ? 0 : low;
}

} // namespace

const StoredElement& InsertKey::declaration() {
    using Constant = ConstantColumn;
    static const StoredElement element =
        StoredElement(2.08)
            .boolean<&InsertKey::isInfinite>("isInfinite", false, Written::WhenNotDefault,
                                             "1: there is no input, and rows without end come out")
            .boolean<&InsertKey::insertKey>("insertKey", true, Written::WhenNotDefault,
                                            "1: the counter is added; 0: only the constants are")
            .boolean<&InsertKey::keyType>("keyType", true, Written::WhenNotDefault,
                                          "1: the counter is a Key column, which starts again "
                                          "from 0 behind 4294967295; 0: it is a text column")
            .longInteger<&InsertKey::startCount>("startCount", 0, Written::Always,
                                                 "first value of the counter, from 0 to "
                                                 "2147483647; a negative one counts as 0")
            .settledBy(&settledStart)
            .text<&InsertKey::columnName>("columnName", "Key", Written::Always,
                                          "name of the counter's column")
            .layout({.closedWithoutRecords = true})
            .records<&InsertKey::constants>(
                "c", "a column that holds the same value in each row, behind the counter",
                StoredElement(0)
                    .layout({.beforeOpen = "  "})
                    .text<&Constant::name>("name", "", Written::Always, "name of the column")
                    .text<&Constant::value>("value", "", Written::Always,
                                            "the value as it stands; where the type is K or F, "
                                            "a text that is no number gives null")
                    .character<&Constant::type>("type", QChar(MetaTypeText), Written::Always,
                                                "type of the column: K, F or U"));
    return element;
}

InsertKey::InsertKey(const XMLNode& element, GlobalParameters* parameters)
    : PluginAction(element, parameters) {
    readStored(declaration());
    if (isInfinite)
        nPinIn = 0;
}

bool InsertKey::beforeRun() {
    counter_ = startCount;
    // Each row counts before it is handed on.
    keyCell_ = static_cast<quint32>(startCount) - 1;
    return false;
}

bool InsertKey::afterRun() {
    textBuffer_.deepReset(0);
    constantBuffer_.deepReset(0);
    return false;
}

void InsertKey::rewindRun() {
    if (isInfinite)
        setStep<&InsertKey::firstEndlessStep>();
    else
        setStep<&InsertKey::firstStep>();
}

char InsertKey::canRunInParallel(const QString&, bool* answer) {
    *answer = !insertKey;
    return 0;
}

bool InsertKey::firstStep() {
    const OneRow* const row = getNextRowFromInPin(0);
    if (row == nullptr)
        return true;
    OneRow& out = *getOutputRowForOutputPin(0);
    out.copyFrom(*row);
    shapeOutput(row->sz());
    if (!insertKey) {
        setStep<&InsertKey::nextStep<false, false>>();
    } else if (keyType) {
        setStep<&InsertKey::nextStep<true, false>>();
        countRow<true, false>();
    } else {
        setStep<&InsertKey::nextStep<false, true>>();
        countRow<false, true>();
    }
    setRowReadyForOutput(0);
    return !mustComputeFull();
}

bool InsertKey::firstEndlessStep() {
    shapeOutput(0);
    if (!insertKey)
        setStep<&InsertKey::endlessStep<false, false>>();
    else if (keyType)
        setStep<&InsertKey::endlessStep<true, false>>();
    else
        setStep<&InsertKey::endlessStep<false, true>>();
    return runStep(this) || !mustComputeFull();
}

void InsertKey::shapeOutput(int inputColumns) {
    OneRow& out = *getOutputRowForOutputPin(0);
    counterColumn_ = inputColumns;
    int column = inputColumns;
    out.setNumberOfColumns(inputColumns + (insertKey ? 1 : 0) + static_cast<int>(constants.size()));
    if (insertKey) {
        if (out.sortInfos().isEmpty())
            out.setSortInfos({{column, SortNumberRising}});
        out.setColName(column, columnName);
        out.setMetaType(column, MetaInfo(keyType ? MetaTypeKey : MetaTypeText, -1));
        if (keyType)
            out.setCol(column, reinterpret_cast<const uchar*>(&keyCell_));
        ++column;
    }
    for (const ConstantColumn& constant : constants) {
        out.setColName(column, constant.name);
        out.setMetaType(column, MetaInfo(constant.type.unicode(), -1));
        out.setCol(column, constantCell(constant));
        ++column;
    }
}

/// Makes the cell of a constant, once for the run.
const uchar* InsertKey::constantCell(const ConstantColumn& constant) {
    bool ok = false;
    if (constant.type == QChar(MetaTypeFloat)) {
        const double value = constant.value.toDouble(&ok);
        if (!ok)
            return cell::nullCell(MetaTypeFloat);
        uchar* const bytes = constantBuffer_.alloc(sizeof value);
        cell::storeFloat(bytes, cell::storableFloat(value));
        return bytes;
    }
    if (constant.type == QChar(MetaTypeKey)) {
        const quint32 value = constant.value.toUInt(&ok, 10);
        if (!ok)
            return cell::nullCell(MetaTypeKey);
        uchar* const bytes = constantBuffer_.alloc(sizeof value);
        cell::storeKey(bytes, value);
        return bytes;
    }
    return bytesFromQString(constantBuffer_,
                            constant.value.isNull() ? QStringLiteral("") : constant.value);
}

/// The cells of the output behind those of the input stay in place from row to row.
template <bool hasKey, bool hasText>
void InsertKey::countRow() {
    if constexpr (hasKey) {
        ++keyCell_;
    } else if constexpr (hasText) {
        textBuffer_.reset();
        getOutputRowForOutputPin(0)->setColAsString(counterColumn_, textBuffer_, counter_);
        ++counter_;
    }
}

template <bool hasKey, bool hasText>
bool InsertKey::nextStep() {
    const OneRow* const row = getNextRowFromInPin(0);
    if (row == nullptr)
        return true;
    getOutputRowForOutputPin(0)->copyFrom(*row);
    countRow<hasKey, hasText>();
    setRowReadyForOutput(0);
    return false;
}

template <bool hasKey, bool hasText>
bool InsertKey::endlessStep() {
    countRow<hasKey, hasText>();
    setRowReadyForOutput(0);
    return false;
}

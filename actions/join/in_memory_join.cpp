#include "actions/join/in_memory_join.h"

#include "actions/join/join_texts.h"
#include "rows/key_form.h"

namespace {

/// A row of pin 1 in memory: the link to the next row of its key, then its packed cells.
constexpr qint64 linkBytes = 8;

} // namespace

const StoredElement& InMemoryJoin::declaration() {
    static const StoredElement element =
        StoredElement(2.08)
            .exampleWords("InMemoryJoin mainKey=a slaveKey=a columns=b --in 1=slaves.csv")
            .integer<&InMemoryJoin::jm>("jm", LeftJoin, Written::WhenNotDefault,
                                        "0: left join, a row without a match gets nulls; 1: inner "
                                        "join, it is dropped")
            .integer<&InMemoryJoin::dataBlockSize>("dataBlockSize", 10240, Written::WhenNotDefault,
                                                   "size in KiB of the blocks of memory that hold "
                                                   "pin 1; also the largest size of a row")
            .text<&InMemoryJoin::mainKey>("mainKey", "", Written::Always,
                                          "key column on pin 0; may hold parameters")
            .gap("  ")
            .text<&InMemoryJoin::slaveKey>("slaveKey", "", Written::Always,
                                           "key column on pin 1; may hold parameters")
            .text<&InMemoryJoin::prefixMain>("prefixMain", "", Written::WhenNotDefault,
                                             "put in front of the names of the columns of pin 0")
            .text<&InMemoryJoin::prefixSlave>("prefixSlave", "", Written::WhenNotDefault,
                                              "put in front of the names of the columns of pin 1")
            .boolean<&InMemoryJoin::copyAll>("copyAll", true, Written::WhenNotDefault,
                                             "1: all columns of pin 1 but its key; 0: those in the "
                                             "list")
            .list<&InMemoryJoin::columns>(
                "columns",
                "columns of pin 1, for copyAll='0'; they come out in the "
                "order of the list; may hold parameters",
                {.afterOpen = "\n  ", .beforeClose = "\n  ", .closedWithoutEntries = true});
    return element;
}

InMemoryJoin::InMemoryJoin(const XMLNode& element, GlobalParameters* parameters)
    : FirstRowAction(element, parameters) {
    nPinIn = 2;
    readStored(declaration());
}

bool InMemoryJoin::beforeRun() {
    release();
    if (jm < LeftJoin || jm > InnerJoin)
        return fail(outOfRange("jm", QString::number(jm), LeftJoin, InnerJoin));
    if (dataBlockSize < 1 || dataBlockSize > largestBlockSize)
        return fail(
            outOfRange("dataBlockSize", QString::number(dataBlockSize), 1, largestBlockSize));
    return false;
}

void InMemoryJoin::release() {
    ownIndex_.reset();
    index_ = nullptr;
    releaseDescriptor(pack_);
    nullCells_.clear();
    handle_ = nullptr;
    nextRowStep_ = nullptr;
    nextDuplicate_ = nullptr;
}

char InMemoryJoin::canRunInParallel(const QString&, bool* answer) {
    *answer = jm == LeftJoin || jm == InnerJoin;
    return 0;
}

void InMemoryJoin::takeFrom(const InMemoryJoin& master) {
    mainColumns_ = master.mainColumns_;
    mainKeyColumn_ = master.mainKeyColumn_;
    nullCells_ = master.nullCells_;
    index_ = master.index_;
    copyDescriptor(pack_, master.pack_);
    outputCells_ = getOutputRowForOutputPin(0)->cells;
    handle_ = master.handle_;
    nextRowStep_ = master.nextRowStep_;
}

bool InMemoryJoin::begin(const OneRow& row) {
    runStep = nextRowStep_;
    if (mustComputeFull())
        return (this->*handle_)(row);
    setRowReadyForOutput(0);
    return true;
}

bool InMemoryJoin::resolve(const OneRow& row) {
    mainColumns_ = row.sz();
    const OneRow* const slaveRow = nextRowToDrain(1);
    if (slaveRow == nullptr)
        return isRunning() && resolveWithoutSlaves(row);
    const QString mainName = expandString(mainKey);
    mainKeyColumn_ = row.getIndexOfColumn(mainName);
    if (mainKeyColumn_ < 0)
        return !fail(cannotFindColumn(mainName, 0));
    const QString slaveName = expandString(slaveKey);
    const int keyColumn = slaveRow->getIndexOfColumn(slaveName);
    if (keyColumn < 0)
        return !fail(cannotFindColumn(slaveName, 1));
    const qint32 mainType = row.getMetaType(mainKeyColumn_).type;
    const qint32 slaveType = slaveRow->getMetaType(keyColumn).type;
    if (mainType != slaveType) {
        MainUI::addLog(4, keyTypesDiffer(mainType, slaveType));
        return !failLogged();
    }
    std::vector<qint32> sources;
    if (!selectColumns(*slaveRow, slaveName, keyColumn, sources))
        return false;
    const qint64 columnsOut = qint64(mainColumns_) + qint64(sources.size());
    if (columnsOut > mostColumns)
        return !fail(tooManyColumns(columnsOut));
    shapeOutput(row, slaveRow, sources);
    if (!mustComputeFull()) {
        for (size_t i = 0; i < sources.size(); ++i)
            outputCells_[static_cast<size_t>(mainColumns_) + i] = slaveRow->cells[sources[i]];
        return true;
    }
    return withKeyForm(slaveType, [&](auto form) {
        using Form = decltype(form);
        if (jm == InnerJoin)
            handleRowsWith<&InMemoryJoin::join<Form, true>>();
        else
            handleRowsWith<&InMemoryJoin::join<Form, false>>();
        return load<Form>(slaveRow, keyColumn);
    });
}

/// Without rows on pin 1, those of pin 0 go through in a left join.
bool InMemoryJoin::resolveWithoutSlaves(const OneRow& row) {
    MainUI::addLog(2, noRowsOnPin(1));
    hasWarning = true;
    shapeOutput(row, nullptr, {});
    if (jm == InnerJoin)
        handleRowsWith<&InMemoryJoin::finish>();
    else
        handleRowsWith<&InMemoryJoin::passOn>();
    return true;
}

bool InMemoryJoin::selectColumns(const OneRow& slaveRow, const QString& keyName, int keyColumn,
                                 std::vector<qint32>& sources) {
    if (copyAll) {
        descriptorAllBut(pack_, slaveRow, keyColumn, &sources);
        return true;
    }
    QStringList names;
    for (const QString& column : columns) {
        const QString name = expandString(column);
        if (name != keyName)
            names.push_back(name);
    }
    return !descriptorFromNames(pack_, slaveRow, names, &sources) || !failLogged();
}

void InMemoryJoin::shapeOutput(const OneRow& row, const OneRow* slaveRow,
                               const std::vector<qint32>& sources) {
    OneRow& out = *getOutputRowForOutputPin(0);
    out.copyFrom(row);
    out.setNumberOfColumns(mainColumns_ + static_cast<int>(sources.size()));
    for (int column = 0; column < mainColumns_; ++column)
        out.setColName(column, prefixMain + row.colName(column));
    int place = mainColumns_;
    for (const qint32 source : sources) {
        if (slaveRow == nullptr)
            break; // an empty slave table has no columns, so there are no sources either
        const MetaInfo type = slaveRow->getMetaType(source);
        out.setColName(place, prefixSlave + slaveRow->colName(source));
        out.setMetaType(place++, type);
        nullCells_.push_back(cell::nullCell(type.type));
    }
    outputCells_ = out.cells;
}

template <class Form>
bool InMemoryJoin::load(const OneRow* slaveRow, int keyColumn) {
    const qint64 blockSize = qint64(dataBlockSize) * 1024;
    ownIndex_ = std::make_unique<KeyIndex>(blockSize, linkBytes, DuplicatePolicy::ChainDuplicates);
    index_ = ownIndex_.get();
    for (; slaveRow != nullptr; slaveRow = nextRowToDrain(1)) {
        const qint64 size = packedSize(pack_, slaveRow->cells);
        if (size > blockSize - linkBytes)
            return !fail(QStringLiteral("Memory Buffer Size is too small"));
        uchar* const payload = Form::add(*ownIndex_, slaveRow->cells[keyColumn], size);
        if (payload == nullptr)
            return !fail(memoryError(actionName()));
        packRow(pack_, slaveRow->cells, payload + linkBytes);
    }
    if (!isRunning())
        return false;
    return !Form::build(*ownIndex_) || !fail(memoryError(actionName()));
}

template <auto Handle>
void InMemoryJoin::handleRowsWith() {
    handle_ = Handle;
    setStep<&InMemoryJoin::nextRowStep<Handle>>();
    nextRowStep_ = runStep;
}

template <auto Handle>
bool InMemoryJoin::nextRowStep() {
    const OneRow* const row = getNextRowFromInPin(0);
    return row == nullptr || (this->*Handle)(*row);
}

/// Never true: the input has more rows until it says otherwise.
template <class Form, bool isInner>
bool InMemoryJoin::join(const OneRow& row) {
    const uchar* const payload = Form::find(*index_, row.cells[mainKeyColumn_]);
    if (payload == nullptr && isInner)
        return false;
    const uchar** const behind = std::copy_n(row.cells, mainColumns_, outputCells_);
    if (payload != nullptr) {
        handOn(payload);
    } else {
        std::copy(nullCells_.begin(), nullCells_.end(), behind);
        setRowReadyForOutput(0);
    }
    return false;
}

void InMemoryJoin::handOn(const uchar* payload) {
    nextDuplicate_ = KeyIndex::nextInChain(payload);
    // The next row comes while others work on this one.
    __builtin_prefetch(nextDuplicate_);
    if (nextDuplicate_ != nullptr)
        setStep<&InMemoryJoin::duplicateStep>();
    else
        runStep = nextRowStep_;
    unpackRow(pack_, outputCells_ + mainColumns_, payload + linkBytes);
    setRowReadyForOutput(0);
}

bool InMemoryJoin::duplicateStep() {
    handOn(nextDuplicate_);
    return false;
}

bool InMemoryJoin::passOn(const OneRow& row) {
    std::copy_n(row.cells, mainColumns_, outputCells_);
    setRowReadyForOutput(0);
    return false;
}

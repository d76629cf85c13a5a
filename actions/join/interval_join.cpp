#include "actions/join/interval_join.h"

#include "actions/join/join_texts.h"

#include <cmath>
#include <new>

namespace {

constexpr int mostBoundWarnings = 500;
constexpr qint64 pointerBytes = sizeof(void*);
constexpr qint64 rowBlockSize = 1 << 20;

QString cellText(const OneRow& row, int column) {
    ushort scratch[OneRow::scratchUnits];
    return row.col(column, scratch);
}

QString general(double number) {
    return QString::number(number, 'g');
}

/// The text of a cell of any type; null for a null cell. Valid until the row's next call.
cell::TextView textOf(const OneRow& row, int column) {
    const ushort* chars = nullptr;
    const int units = row.col(column, &chars);
    const int length = chars == nullptr ? 0 : units + 1;
    return {static_cast<const uchar*>(static_cast<const void*>(chars)), length};
}

} // namespace

/// Pin 1 while it is read.
struct IntervalJoin::Slave {
    const OneRow* row;
    int lowColumn = -1;
    int highColumn = -1;
    int partitionColumn = -1;
    std::vector<int> selected; ///< columns to store
    RowBuffer cells;           ///< for the text of a nominal key
};

const StoredElement& IntervalJoin::declaration() {
    static const StoredElement element =
        StoredElement(2.08)
            .exampleWords("IntervalJoin mainLowKey=a slaveLowKey=a slaveHighKey=b columns=b --in "
                          "1=slaves.csv")
            .integer<&IntervalJoin::mode>(
                "mode", PointInIntervals, Written::WhenNotDefault,
                "0: points on pin 0, intervals on pin 1; 1: intervals on both; 2: intervals on "
                "pin 0, points on pin 1")
            .boolean<&IntervalJoin::outputRowWhenNoMatch>(
                "outputRowWhenNoMatch", true, Written::WhenNotDefault,
                "1: a row without a match gets nulls; 0: it is dropped")
            .boolean<&IntervalJoin::outputAllColumns>("outputAllColumns", true,
                                                      Written::WhenNotDefault,
                                                      "1: all columns of pin 1; 0: those in the "
                                                      "list")
            .text<&IntervalJoin::mainLowKey>("mainLowKey", "", Written::Always,
                                             "column of pin 0 with the point or the lower bound")
            .text<&IntervalJoin::mainHighKey>("mainHighKey", "", Written::WhenNotDefault,
                                              "column of pin 0 with the upper bound, which isn't "
                                              "part of the interval; for modes 1 and 2")
            .text<&IntervalJoin::slaveLowKey>("slaveLowKey", "", Written::Always,
                                              "column of pin 1 with the point or the lower bound")
            .text<&IntervalJoin::slaveHighKey>("slaveHighKey", "", Written::Always,
                                               "column of pin 1 with the upper bound, which isn't "
                                               "part of the interval; for modes 0 and 1")
            .text<&IntervalJoin::partitionColumnMaster>(
                "partitionColumnMaster", "", Written::WhenNotDefault,
                "nominal key on pin 0: rows match only where it has the text of the one on pin 1")
            .text<&IntervalJoin::partitionColumnSlave>(
                "partitionColumnSlave", "", Written::WhenNotDefault, "nominal key on pin 1")
            .text<&IntervalJoin::prefixSlave>("prefixSlave", "", Written::WhenNotDefault,
                                              "put in front of the names of the columns of pin 1")
            .integer<&IntervalJoin::outputMode>(
                "outputMode", IntervalIndex::All, Written::WhenNotDefault,
                "0: all matches; one match, in modes 0 and 1: 1 the smallest lower bound, 2 the "
                "highest lower bound, 3 the smallest upper bound, 4 the highest upper bound")
            .list<&IntervalJoin::columns>(
                "columns",
                "columns of pin 1, for outputAllColumns='0'; they come "
                "out in the order of the list",
                {.afterOpen = "\n  ", .beforeClose = "\n", .closedWithoutEntries = true});
    return element;
}

IntervalJoin::IntervalJoin(const XMLNode& element, GlobalParameters* parameters)
    : FirstRowAction(element, parameters) {
    nPinIn = 2;
    readStored(declaration());
}

bool IntervalJoin::beforeRun() {
    release();
    if (mode < PointInIntervals || mode > PointsInInterval)
        return fail(outOfRange("mode", QString::number(mode), PointInIntervals, PointsInInterval));
    if (outputMode < IntervalIndex::All || outputMode > IntervalIndex::HighestHigh)
        return fail(outOfRange("outputMode", QString::number(outputMode), IntervalIndex::All,
                               IntervalIndex::HighestHigh));
    return false;
}

void IntervalJoin::release() {
    ownPartitionTable_.reset();
    ownPartitions_.clear();
    slaveRows_.reset();
    boundWarnings_ = 0;
    partitionTable_ = nullptr;
    onlyPartition_ = nullptr;
    partitionColumn_ = -1;
    nullCells_.clear();
    state_ = Finished;
    current_ = nullptr;
    scratch_ = {};
    left_ = {};
}

void IntervalJoin::takeFrom(const IntervalJoin& master) {
    mainColumns_ = master.mainColumns_;
    mainLowColumn_ = master.mainLowColumn_;
    mainHighColumn_ = master.mainHighColumn_;
    partitionColumn_ = master.partitionColumn_;
    nullCells_ = master.nullCells_;
    state_ = master.state_;
    partitionTable_ = master.partitionTable_;
    onlyPartition_ = master.onlyPartition_;
    out_ = getOutputRowForOutputPin(0);
}

bool IntervalJoin::begin(const OneRow& row) {
    if (state_ == Finished)
        return true;
    if (state_ == Joining) {
        setStep<&IntervalJoin::rowStep>();
        return join(row);
    }
    setStep<&IntervalJoin::passStep>();
    passOn(row);
    return !mustComputeFull();
}

/// Finds columns, shapes the output and reads pin 1. False when the Action has failed.
bool IntervalJoin::resolve(const OneRow& row) {
    mainColumns_ = row.sz();
    out_ = getOutputRowForOutputPin(0);
    const auto findMain = [&](const QString& name, int& column) {
        column = row.getIndexOfColumn(name);
        return column >= 0 || !fail(cannotFindColumn(name, 0));
    };
    if (!findMain(mainLowKey, mainLowColumn_) ||
        (mode != PointInIntervals && !findMain(mainHighKey, mainHighColumn_)))
        return false;
    Slave slave{nextRowToDrain(1), -1, -1, -1, {}, RowBuffer()};
    if (slave.row == nullptr) {
        if (!isRunning())
            return false;
        MainUI::addLog(2, noRowsOnPin(1));
        hasWarning = true;
        out_->copyFrom(row);
        state_ = outputRowWhenNoMatch ? Passing : Finished;
        return true;
    }
    if (!findSlaveColumns(slave) || !findNominalKeys(row, slave) || !shapeOutput(row, slave))
        return false;
    state_ = mustComputeFull() ? Joining : Passing;
    if (state_ == Passing)
        return true;
    try {
        return load(slave);
    } catch (const std::bad_alloc&) {
        return !fail(memoryError(actionName()));
    }
}

bool IntervalJoin::findSlaveColumns(Slave& slave) {
    const auto find = [&](const QString& name, int& column) {
        column = slave.row->getIndexOfColumn(name);
        return column >= 0 || !fail(cannotFindColumn(name, 1));
    };
    return find(slaveLowKey, slave.lowColumn) &&
           (mode == PointsInInterval || find(slaveHighKey, slave.highColumn));
}

bool IntervalJoin::findNominalKeys(const OneRow& row, Slave& slave) {
    const auto find = [&](const OneRow& table, int pin, const QString& name, int& column) {
        column = name.isEmpty() ? -1 : table.getIndexOfColumn(name);
        return name.isEmpty() || column >= 0 || !fail(cannotFindColumn(name, pin));
    };
    if (!find(row, 0, partitionColumnMaster, partitionColumn_) ||
        !find(*slave.row, 1, partitionColumnSlave, slave.partitionColumn))
        return false;
    if ((partitionColumn_ < 0) != (slave.partitionColumn < 0))
        return !fail(QStringLiteral("Additional nominal join is not properly defined"));
    return true;
}

bool IntervalJoin::shapeOutput(const OneRow& row, Slave& slave) {
    for (int column = 0; outputAllColumns && column < slave.row->sz(); ++column)
        slave.selected.push_back(column);
    for (qsizetype i = 0; !outputAllColumns && i < columns.size(); ++i) {
        slave.selected.push_back(slave.row->getIndexOfColumn(columns[i]));
        if (slave.selected.back() < 0)
            return !fail(cannotFindColumn(columns[i], 1));
    }
    const qint64 columnsOut = qint64(mainColumns_) + qint64(slave.selected.size());
    if (columnsOut > mostColumns)
        return !fail(tooManyColumns(columnsOut));
    const bool sharesNominal = outputAllColumns && prefixSlave.isEmpty() &&
                               !partitionColumnMaster.isEmpty() &&
                               partitionColumnMaster == partitionColumnSlave;
    out_->copyFrom(row);
    out_->setNumberOfColumns(static_cast<int>(columnsOut));
    int place = mainColumns_;
    for (const int column : slave.selected) {
        const bool isNominal = sharesNominal && column == slave.partitionColumn;
        const MetaInfo type = slave.row->getMetaType(column);
        out_->setColName(place, (isNominal ? QStringLiteral("_") : prefixSlave) +
                                    slave.row->colName(column));
        out_->setMetaType(place++, type);
        nullCells_.push_back(cell::nullCell(type.type));
    }
    return true;
}

bool IntervalJoin::load(Slave& slave) {
    slaveRows_ = std::make_unique<BlockChain>(rowBlockSize);
    if (partitionColumn_ >= 0)
        ownPartitionTable_ =
            std::make_unique<KeyIndex>(indexBlockSize, pointerBytes, DuplicatePolicy::KeepOne);
    else
        ownPartitions_.push_back(std::make_unique<Partition>());
    for (qint64 number = 1; slave.row != nullptr; ++number, slave.row = nextRowToDrain(1)) {
        Partition* const partition =
            partitionColumn_ < 0 ? ownPartitions_.front().get() : partitionFor(slave);
        if (partition == nullptr)
            return !fail(memoryError(actionName()));
        const bool added = mode == PointsInInterval ? addPoint(*partition, slave, number)
                                                    : addInterval(*partition, slave, number);
        if (!added)
            return false;
    }
    if (!isRunning())
        return false;
    for (const std::unique_ptr<Partition>& partition : ownPartitions_) {
        if (mode == PointsInInterval)
            partition->points.build();
        else
            partition->intervals.build(static_cast<IntervalIndex::Preference>(outputMode));
    }
    if (ownPartitionTable_ == nullptr)
        onlyPartition_ = ownPartitions_.front().get();
    else if (ownPartitionTable_->buildString())
        return !fail(memoryError(actionName()));
    partitionTable_ = ownPartitionTable_.get();
    return true;
}

/// The partition of the row of pin 1, a new one for a new key; null when memory fails.
IntervalJoin::Partition* IntervalJoin::partitionFor(Slave& slave) {
    const cell::TextView text = textOf(*slave.row, slave.partitionColumn);
    if (const uchar* const known = ownPartitionTable_->findText(text))
        return partitionAt(known);
    slave.cells.reset();
    uchar* const bytes = slave.cells.alloc(cell::textCellBytes(text.size()));
    if (text.isNull())
        *bytes = cell::nullText;
    else
        cell::writeText(bytes, text.chars, text.size());
    uchar* const payload = ownPartitionTable_->addString(bytes);
    if (payload == nullptr)
        return nullptr;
    Partition* const added = ownPartitions_.emplace_back(std::make_unique<Partition>()).get();
    std::memcpy(payload, &added, pointerBytes);
    return added;
}

IntervalJoin::Partition* IntervalJoin::partitionAt(const uchar* payload) {
    Partition* partition;
    std::memcpy(&partition, payload, pointerBytes);
    return partition;
}

bool IntervalJoin::readSlave(const Slave& slave, int column, const QString& name, qint64 number,
                             double& value) {
    bool ok = false;
    value = slave.row->colAsDouble(column, &ok);
    return ok || !fail(QLatin1String("Error: column '") + name +
                       QLatin1String("' on pin 1 is not a number on row ") +
                       QString::number(number) + QLatin1String(": content is :'") +
                       cellText(*slave.row, column) + QLatin1Char('\''));
}

/// Ends the run for a number that can't be compared.
bool IntervalJoin::refuse(const char* what, qint64 number) {
    MainUI::addLog(2, QLatin1String("Warning: invalid ") + QLatin1String(what) +
                          QLatin1String(" on row ") + QString::number(number) +
                          QLatin1String(" on pin 1."));
    return !failLogged();
}

bool IntervalJoin::addInterval(Partition& partition, const Slave& slave, qint64 number) {
    double low = 0;
    double high = 0;
    if (!readSlave(slave, slave.lowColumn, slaveLowKey, number, low) ||
        !readSlave(slave, slave.highColumn, slaveHighKey, number, high))
        return false;
    if (!std::isfinite(low))
        return refuse("lower bound", number);
    if (!std::isfinite(high))
        return refuse("upper bound", number);
    if (low == high) {
        warnOfEqualBounds(low, number);
        return true;
    }
    if (low > high)
        return !fail(QLatin1String("Error: lower bound is greater than upper bounds (") +
                     general(low) + QLatin1Char('>') + general(high) + QLatin1String(") on row ") +
                     QString::number(number) + QLatin1String(" on pin 1."));
    partition.intervals.add(low, high);
    return storeRow(partition, slave);
}

bool IntervalJoin::addPoint(Partition& partition, const Slave& slave, qint64 number) {
    double point = 0;
    if (!readSlave(slave, slave.lowColumn, slaveLowKey, number, point))
        return false;
    if (!std::isfinite(point))
        return refuse("(non-finite) number", number);
    partition.points.add(point);
    return storeRow(partition, slave);
}

void IntervalJoin::warnOfEqualBounds(double bound, qint64 number) {
    hasWarning = true;
    if (boundWarnings_ == mostBoundWarnings)
        return;
    ++boundWarnings_;
    MainUI::addLog(2, boundWarnings_ == mostBoundWarnings
                          ? QStringLiteral("Warnings: Some More Warnings (lower and upper bounds "
                                           "are equal) are not reported")
                          : QLatin1String("Warning: lower and upper bounds are equal (") +
                                general(bound) + QLatin1String(") on row ") +
                                QString::number(number) +
                                QLatin1String(" on pin 1: Discarding this interval."));
}

bool IntervalJoin::storeRow(Partition& partition, const Slave& slave) {
    qint64 size = 0;
    for (const int column : slave.selected)
        size += slave.row->totalLengthField(column);
    uchar* const stored = slaveRows_->alloc(size);
    if (stored == nullptr)
        return !fail(memoryError(actionName()));
    uchar* to = stored;
    for (const int column : slave.selected) {
        const auto bytes = static_cast<size_t>(slave.row->totalLengthField(column));
        std::memcpy(to, slave.row->cells[column], bytes);
        to += bytes;
    }
    partition.rows.push_back(stored);
    return true;
}

bool IntervalJoin::passStep() {
    const OneRow* const row = getNextRowFromInPin(0);
    if (row == nullptr)
        return true;
    passOn(*row);
    return false;
}

void IntervalJoin::passOn(const OneRow& row) {
    std::copy_n(row.cells, mainColumns_, out_->cells);
    handOnNulls();
}

bool IntervalJoin::rowStep() {
    const OneRow* const row = getNextRowFromInPin(0);
    return row == nullptr || join(*row);
}

/// True when the Action has failed.
bool IntervalJoin::join(const OneRow& row) {
    std::copy_n(row.cells, mainColumns_, out_->cells);
    current_ = onlyPartition_;
    if (partitionTable_ != nullptr) {
        const uchar* const payload = partitionTable_->findText(textOf(row, partitionColumn_));
        current_ = payload == nullptr ? nullptr : partitionAt(payload);
        if (current_ == nullptr)
            return noMatch();
    }
    double low = 0;
    double high = 0;
    if (!readMain(row, mainLowColumn_, mainLowKey, low) ||
        (mode != PointInIntervals && !readMain(row, mainHighColumn_, mainHighKey, high)))
        return true;
    if (!std::isfinite(low))
        return noMatch();
    if (mode == PointInIntervals)
        return outputMode == IntervalIndex::All
                   ? beginList({current_->intervals.covering(low, scratch_), {}})
                   : handOnBest(current_->intervals.bestCovering(low));
    // An infinite upper bound is none; points want both.
    if (std::isnan(high) || (mode == PointsInInterval && !std::isfinite(high)))
        return noMatch();
    if (mode == PointsInInterval)
        return beginPoints(low, high);
    return outputMode == IntervalIndex::All
               ? beginList(current_->intervals.overlapping(low, high, scratch_))
               : handOnBest(current_->intervals.bestOverlapping(low, high));
}

bool IntervalJoin::readMain(const OneRow& row, int column, const QString& name, double& value) {
    bool ok = false;
    value = row.colAsDouble(column, &ok);
    return ok || !fail(QLatin1String("Error: column '") + name +
                       QLatin1String("' on pin 0 is not a number: content is :'") +
                       cellText(row, column) + QLatin1Char('\''));
}

bool IntervalJoin::noMatch() {
    if (outputRowWhenNoMatch)
        handOnNulls();
    return false;
}

/// Where only one match is wanted, none is a row of nulls.
bool IntervalJoin::handOnBest(qint32 number) {
    if (number < 0)
        handOnNulls();
    else
        handOn(number);
    return false;
}

bool IntervalJoin::beginList(IntervalIndex::Overlaps list) {
    if (list.isEmpty())
        return noMatch();
    left_ = list;
    return listStep();
}

bool IntervalJoin::listStep() {
    IntervalIndex::Numbers& numbers = left_.covering.empty() ? left_.beginning : left_.covering;
    handOn(numbers.front());
    numbers = numbers.subspan(1);
    if (left_.isEmpty())
        setStep<&IntervalJoin::rowStep>();
    else
        setStep<&IntervalJoin::listStep>();
    return false;
}

bool IntervalJoin::beginPoints(double low, double high) {
    point_ = current_->points.begin(low);
    upperForPoints_ = high;
    return current_->points.isBelow(point_, high) ? pointStep() : noMatch();
}

bool IntervalJoin::pointStep() {
    handOn(current_->points.numberAt(point_));
    if (current_->points.isBelow(++point_, upperForPoints_))
        setStep<&IntervalJoin::pointStep>();
    else
        setStep<&IntervalJoin::rowStep>();
    return false;
}

void IntervalJoin::handOn(qint32 number) {
    out_->initFromBuffer(current_->rows[static_cast<size_t>(number)], mainColumns_, -1);
    setRowReadyForOutput(0);
}

void IntervalJoin::handOnNulls() {
    std::copy(nullCells_.begin(), nullCells_.end(), out_->cells + mainColumns_);
    setRowReadyForOutput(0);
}

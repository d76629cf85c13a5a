/// IntervalJoin joins rows whose keys are points and intervals [low, high) of numbers.
///
///     t | mainLowKey="t"          slaveLowKey="from" slaveHighKey="to"      t | from | to | name
///     4 |                         from | to | name                          4 |    0 |  5 | calm
///     9 |                            0 |  5 | calm                          9 |
///
/// Pin 1 is read whole before the first row. Rows come out in the order of pin 0; those of one row
/// in the order of pin 1, or of the points; of overlapping intervals, first those that cover the
/// lower bound. A nominal key narrows the search: each of its values has an index of its own. Holds
/// the chosen columns of pin 1 and, for an interval, 32 bytes, or 113 however deeply they nest.
#pragma once

#include "plugin/first_row_action.h"
#include "rows/block_chain.h"
#include "rows/interval_index.h"
#include "rows/key_index.h"

#include <vector>

class IntervalJoin final : public FirstRowAction<IntervalJoin, ActionIndex::IntervalJoin> {
public:
    IntervalJoin(const XMLNode& element, GlobalParameters* parameters);
    static const StoredElement& declaration();

    bool beforeRun() override;

    // What is stored.
    int mode = 0;
    bool outputAllColumns = true; ///< of pin 1; else those in `columns`
    bool outputRowWhenNoMatch = true;
    int outputMode = 0;
    QString mainLowKey, mainHighKey, slaveLowKey, slaveHighKey;
    QString prefixSlave, partitionColumnMaster, partitionColumnSlave;
    QStringList columns;

private:
    friend FirstRowAction;

    // Called by the frame.
    bool resolve(const OneRow& row);
    void takeFrom(const IntervalJoin& master);
    bool begin(const OneRow& row);
    void release();

    enum Mode { PointInIntervals, IntervalInIntervals, PointsInInterval };

    /// The rows of pin 1 with one value of the nominal key, or all of them.
    struct Partition {
        IntervalIndex intervals;
        PointIndex points;
        std::vector<const uchar*> rows; ///< by number
    };
    struct Slave;

    bool passStep();
    bool rowStep();
    bool listStep();
    bool pointStep();

    bool findSlaveColumns(Slave& slave);
    bool findNominalKeys(const OneRow& row, Slave& slave);
    bool shapeOutput(const OneRow& row, Slave& slave);
    bool load(Slave& slave);
    Partition* partitionFor(Slave& slave);
    static Partition* partitionAt(const uchar* payload);
    bool addInterval(Partition& partition, const Slave& slave, qint64 number);
    bool addPoint(Partition& partition, const Slave& slave, qint64 number);
    bool readSlave(const Slave& slave, int column, const QString& name, qint64 number,
                   double& value);
    bool refuse(const char* what, qint64 number);
    void warnOfEqualBounds(double bound, qint64 number);
    bool storeRow(Partition& partition, const Slave& slave);

    bool join(const OneRow& row);
    bool readMain(const OneRow& row, int column, const QString& name, double& value);
    bool beginList(IntervalIndex::Overlaps list);
    bool beginPoints(double low, double high);
    bool handOnBest(qint32 number);
    bool noMatch();
    void passOn(const OneRow& row);
    void handOn(qint32 number);
    void handOnNulls();

    // What the first row resolved.
    enum { Finished, Passing, Joining } state_ = Finished; ///< what is done with further rows
    int mainColumns_ = 0;
    int mainLowColumn_ = -1;
    int mainHighColumn_ = -1;
    int partitionColumn_ = -1;
    std::vector<const uchar*> nullCells_;

    // What a master built.
    std::unique_ptr<KeyIndex> ownPartitionTable_; ///< from a nominal key to its partition
    std::vector<std::unique_ptr<Partition>> ownPartitions_;
    std::unique_ptr<BlockChain> slaveRows_;
    int boundWarnings_ = 0;

    // The same, as copies share it: one of the two.
    const KeyIndex* partitionTable_ = nullptr;
    const Partition* onlyPartition_ = nullptr;

    // What changes by row.
    OneRow* out_ = nullptr;
    const Partition* current_ = nullptr;
    IntervalIndex::Scratch scratch_;
    IntervalIndex::Overlaps left_; ///< what is still to be handed on for this row
    qsizetype point_ = 0;          ///< the place of the next point
    double upperForPoints_ = 0;
};

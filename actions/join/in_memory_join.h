/// InMemoryJoin joins each row of pin 0 with all rows of its key on pin 1.
///
///     who | city     mainKey="city" slaveKey="code"     who | city | street
///     Ann | BRU                                         Ann | BRU  | Rue Haute
///     Bob | XXX      code | street                      Ann | BRU  | Grand-Place
///                    BRU  | Rue Haute                   Bob | XXX  |
///                    BRU  | Grand-Place
///
/// Pin 1 is read whole before the first row. Rows come out in the order and with the declared order
/// of pin 0; those of one row follow each other in the order of KeyIndex's chains. Keys are
/// compared byte by byte without conversion, and a null text matches a null text. Holds the chosen
/// columns of pin 1, packed, the keys, and 20 to 30 bytes a row.
#pragma once

#include "plugin/first_row_action.h"
#include "rows/key_index.h"
#include "rows/packed_row.h"

#include <vector>

class InMemoryJoin final : public FirstRowAction<InMemoryJoin, ActionIndex::InMemoryJoin> {
public:
    InMemoryJoin(const XMLNode& element, GlobalParameters* parameters);
    static const StoredElement& declaration();

    bool beforeRun() override;
    char canRunInParallel(const QString& partitionColumn, bool* answer) override;

    // What is stored.
    int jm = 0;
    int dataBlockSize = 0; ///< KiB
    QString mainKey, slaveKey, prefixMain, prefixSlave;
    bool copyAll = true; ///< all columns of pin 1; else those in `columns`
    QStringList columns;

private:
    friend FirstRowAction;

    // Called by the frame.
    bool resolve(const OneRow& row);
    void takeFrom(const InMemoryJoin& master);
    bool begin(const OneRow& row);
    void release();

    enum JoinMode { LeftJoin, InnerJoin };

    bool duplicateStep();
    template <auto Handle>
    void handleRowsWith();
    template <auto Handle>
    bool nextRowStep();
    bool passOn(const OneRow& row);
    bool finish(const OneRow&) { return true; }
    template <class Form, bool isInner>
    bool join(const OneRow& row);

    bool resolveWithoutSlaves(const OneRow& row);
    bool selectColumns(const OneRow& slaveRow, const QString& keyName, int keyColumn,
                       std::vector<qint32>& sources);
    void shapeOutput(const OneRow& row, const OneRow* slaveRow, const std::vector<qint32>& sources);
    template <class Form>
    bool load(const OneRow* slaveRow, int keyColumn);
    void handOn(const uchar* payload);

    // What the first row resolved.
    int mainColumns_ = 0;
    int mainKeyColumn_ = -1;
    PackedRowDescriptor pack_;
    std::vector<const uchar*> nullCells_;
    std::unique_ptr<KeyIndex> ownIndex_; ///< of a master: the keys and rows of pin 1
    const KeyIndex* index_ = nullptr;
    bool (InMemoryJoin::*handle_)(const OneRow&) = nullptr; ///< joins a row of pin 0
    Step nextRowStep_ = nullptr;                            ///< reads the next one and joins it

    // What changes by row.
    const uchar** outputCells_ = nullptr;
    const uchar* nextDuplicate_ = nullptr; ///< of the row of pin 0 that is being joined
};

/// FilterOnKey parts a table by whether its keys stand in a column of another table.
///
///     who | city     slaveKey="code"  mainKeys: city     pin 0 (found): Ann | BRU
///     Ann | BRU                                          pin 2 (not):   Bob | XXX
///     Bob | XXX      code
///                    BRU
///
/// With several key columns a row goes to pin 0 when all keys are found, to pin 2 when none is, and
/// to pin 1 when some are. Row by row, in order, rows unchanged; pin 1 is read whole before the
/// first row. Keys are compared without conversion, and null is a key like any other. Holds the
/// keys of pin 1: 7 to 11 bytes for a Key, 13 to 21 for a Float, a text and 11 to 21.
#pragma once

#include "plugin/first_row_action.h"
#include "rows/key_index.h"

#include <vector>

class FilterOnKey final : public FirstRowAction<FilterOnKey, ActionIndex::FilterOnKey> {
public:
    FilterOnKey(const XMLNode& element, GlobalParameters* parameters);
    static const StoredElement& declaration();

    bool beforeRun() override;
    char canRunInParallel(const QString& partitionColumn, bool* answer) override;

    // What is stored.
    bool checkUniquePKInSlaves = true;
    bool truncate = false; ///< the first row that goes to pin 2 ends the run
    bool approximate = true;
    QString slaveKey;
    QString mainKey; ///< of older files: the only main key
    QStringList mainKeys;

private:
    friend FirstRowAction;

    // Called by the frame.
    bool resolve(const OneRow& row);
    void takeFrom(const FilterOnKey& master);
    bool begin(const OneRow& row);
    void release();

    enum OutPinNumber { AllFound, SomeFound, NoneFound, OutPinCount };
    using Route = int (FilterOnKey::*)(const OneRow&) const;

    bool nextStep();
    bool findMainKeys(const OneRow& row, qint32 slaveType);
    template <class Form>
    bool loadKeys(const OneRow* slaveRow, int column);
    bool sendOn(const OneRow& row, int pin);

    template <class Form>
    int routeByOne(const OneRow& row) const;
    template <class Form>
    int routeBySeveral(const OneRow& row) const;
    int routeToNone(const OneRow&) const { return NoneFound; }

    // What the first row resolved.
    std::unique_ptr<KeyIndex> ownIndex_; ///< of a master
    const KeyIndex* index_ = nullptr;
    std::vector<int> keyColumns_;
    Route route_ = nullptr;
};

/// MultiJoin adds columns of other tables, held in memory, to each row of pin 0.
///
///     flight | from     <Join pin='1' mainKey='from' slaveKey='code'/>     flight | from | city
///          1 | BRU                                                              1 | BRU  |
///          Brussels 2 | XXX      code | city                                             2 | XXX |
///                       BRU  | Brussels
///
/// Any number of joins, several of them on one pin if need be. Row by row, in the order and with
/// the declared order of pin 0; the pins from 1 on are read whole before the first row comes out. A
/// row comes out at most once: without a match its new cells are null, or with an inner join it is
/// dropped. A key of another type than the slave's is converted, and what can't be converted
/// matches nothing. Holds of each slave table the columns that some join asks for, and 11 to 21
/// bytes a key.
#pragma once

#include "plugin/row_by_row_action.h"
#include "rows/slave_table_store.h"

#include <optional>
#include <vector>

class MultiJoin final : public RowByRowAction<MultiJoin, ActionIndex::MultiJoin> {
public:
    struct JoinSpec {
        int pin = 1;
        QString mainKey;
        QString slaveKey;
        QString prefix;      ///< in front of the name of each new column
        bool copyAll = true; ///< all columns of the slave; else those in `columns`
        bool inner = false;  ///< a row without a match is dropped
        QStringList columns;
    };

    MultiJoin(const XMLNode& element, GlobalParameters* parameters);
    static const StoredElement& declaration();

    void removePinIn() override;
    bool beforeRun() override;

    // What is stored.
    QVector<JoinSpec> joins;
    int dataBlockSize = 0; ///< KiB
    bool checkUniquePKInSlaves = true;
    bool allowKeyOnly = false;
    bool outputSlaveKey = false;

private:
    friend FirstRowAction;
    friend RowByRowAction;

    using Lookup = const uchar* (*)(const SlaveTableStore&, int slot, const OneRow&, int column);
    using Prefetch = void (*)(const SlaveTableStore&, int slot, const OneRow&, int column);

    /// A join as the first rows settled it.
    struct LiveJoin {
        const SlaveTableStore* store = nullptr; ///< not owned
        Lookup lookup = nullptr;
        Prefetch prefetch = nullptr; ///< null: the key must be converted first
        int slot = 0;
        int mainKeyColumn = 0;
        bool inner = false;
        SlaveTableStore::Selection selection;
        std::vector<const uchar*> nullCells; ///< of all its output columns

        // For the output's columns.
        QVector<QString> names;
        std::vector<qint32> types;
    };
    struct PinJoin;
    struct Slave;
    struct Store {
        int pin;
        std::unique_ptr<SlaveTableStore> table;
    };

    bool resolve(const OneRow& row);
    void takeFrom(const MultiJoin& master);
    void passOn(const OneRow& row);
    void release();

    bool checkPins();
    bool resolvePin(int pin, const OneRow& row);
    bool skipPin(const Slave& slave);
    bool findColumns(Slave& slave);
    bool resolveJoin(const Slave& slave, PinJoin& join, const OneRow& row);
    bool storeFirstRow(const Slave& slave, const OneRow& row);
    bool shapeOutput(const OneRow& row);
    bool loadSlaves();
    void prefetchKeys(const OneRow& row) const;
    static Lookup lookupFor(qint32 slaveType, qint32 mainType);

    // What the first row resolved.
    std::vector<Store> stores_;                     ///< in the order of their pins
    std::vector<std::optional<LiveJoin>> resolved_; ///< by place in `joins`, while resolving
    std::vector<LiveJoin> live_; ///< in the order of `joins`, without those on empty pins
    int mainColumns_ = 0;
    bool noOutput_ = false; ///< an inner join has nothing to match
};

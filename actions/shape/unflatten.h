/// Unflatten turns groups of columns of a row into rows of their own.
///
///     id | jan | feb    sets jan (column jan), feb (column feb)    amount | month | id
///      1 |  10 |  20    common id, setColumnName='month',              10 | jan   |  1
///                       newNames='amount'                              20 | feb   |  1
///
/// Every row gives a row for each set, in the order of the sets: the set's columns, the set's name,
/// and the common columns. The sets are a stored list, and behind it those of pin 1: runs of rows
/// of one name in the first column, with the columns in the second. All sets have as many columns,
/// of the same types. Pin 1 is read whole before the first row. The output declares no order. Cells
/// pass by pointer; holds the names of the sets.
#pragma once

#include "plugin/first_row_action.h"

#include <vector>

class Unflatten final : public FirstRowAction<Unflatten, ActionIndex::Unflatten> {
public:
    struct UnflattenSet {
        QString name;
        QStringList columns;
    };

    Unflatten(const XMLNode& element, GlobalParameters* parameters);
    static const StoredElement& declaration();

    /// Where no set is stored, the columns of the first one stand on pin 1.
    char fullTableRequiredToComputeMetas(int pin, bool* answer) override;

    // What is stored.
    bool addSetName = true; ///< the set's name is a column
    bool checkSort = true;  ///< the table on pin 1 must be sorted on its first column
    bool skipNulls = false; ///< no row for a null, where sets have one column
    QString setColumnName;  ///< may hold parameters of the graph
    QString newNames;       ///< of the set's columns, with commas between; may hold parameters
    QStringList common;
    std::vector<UnflattenSet> sets;

private:
    friend FirstRowAction;

    // Called by the frame.
    bool resolve(const OneRow& row);
    void takeFrom(const Unflatten& master);
    bool begin(const OneRow& row);
    void release();

    /// A set as it is used in a run.
    struct RunSet {
        QString name;
        QStringList columns;
        std::vector<int> inputs; ///< input columns
        const uchar* nameCell = nullptr;
    };

    bool nextStep();

    bool addSetsOfPin1();
    bool isPin1Sorted(const OneRow& row);
    void addRowOfPin1(const OneRow& row, bool startsSet);
    bool checkSets();
    bool resolveSet(const OneRow& row, RunSet& set, bool checkTypes);
    bool shapeOutput(const OneRow& row);
    bool nameValueColumns(const RunSet& first);
    bool resolveCommon(const OneRow& row);
    bool failNotFound(const QString& name);

    void takeRow(const OneRow& row);
    void passOnSet(const OneRow& row);

    // What the first row resolved.
    std::vector<RunSet> runSets_;
    std::vector<int> commonInputs_;
    RowBuffer nameCells_;
    qint32 nullsToSkip_ = 0; ///< meta type of the only column of the sets; 0 when all rows come out

    // What changes per row.
    size_t set_ = 0; ///< of the next output row
};

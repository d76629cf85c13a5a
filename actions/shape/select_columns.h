/// SelectColumns keeps or drops columns by name.
///
///     a | b | c     keep='1', columns c, a     c | a
///     1 | 2 | 3                                3 | 1
///
/// The names are a stored list, and behind it the first column of pin 1. Kept columns come in the
/// order of the names. Row by row; pin 1 is read whole before the first row. Rows keep their order,
/// and the table the part of its declared order whose columns are left. Each mention of a name
/// takes the next column of that name. Holds one number per output column.
#pragma once

#include "actions/shape/find_column_occurrence.h"
#include "plugin/row_by_row_action.h"

#include <vector>

class SelectColumns final : public RowByRowAction<SelectColumns, ActionIndex::SelectColumns> {
public:
    SelectColumns(const XMLNode& element, GlobalParameters* parameters);
    static const StoredElement& declaration();

    bool beforeRun() override;
    char fullTableRequiredToComputeMetas(int pin, bool* answer) override;

    // What is stored.
    QStringList columns;
    bool keep = true;  ///< the names are those to keep; else those to drop
    bool abort = true; ///< a missing column to drop is an error; else a warning

private:
    friend FirstRowAction;
    friend RowByRowAction;

    bool resolve(const OneRow& row);
    void takeFrom(const SelectColumns& master) { sources_ = master.sources_; }
    void passOn(const OneRow& row);
    void release() { sources_ = {}; }

    bool findKept(const OneRow& row);
    bool findDropped(const OneRow& row);
    bool markDropped(const OneRow& row, const QString& name, SeenColumns& seen,
                     std::vector<bool>& dropped);
    void warnOfMissing(const QString& name);
    template <class Take>
    bool forEachNameOnPin1(Take take);
    void shapeOutput(const OneRow& row);

    // What the first row resolved.
    std::vector<int> sources_; ///< for each output column the input column that fills it

    // What the run counts.
    int warnings_ = 0;
};

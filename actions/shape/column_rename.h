/// ColumnRename gives columns new names, and adds columns that are missing.
///
///     a | b     before: a, z   after: x, y     x | b | y
///     1 | 2                                    1 | 2 |
///
/// The renames come from pin 1 (first column: the name before, second: the name after), then from
/// the stored tables, then from the quick rename of a list of columns; a change of case of all
/// names may follow. A missing column is added as a text column of null cells, behind the others
/// and in the order in which it was first asked for, or is an error. Row by row; pin 1 is read
/// whole before the first row. Rows keep their order, and the table its declared order. Holds the
/// names only.
#pragma once

#include "plugin/row_by_row_action.h"

#include <optional>

class ColumnRename final : public RowByRowAction<ColumnRename, ActionIndex::ColumnRename> {
public:
    enum CaseMode : int { AsIs, UpperCase, LowerCase, TitleCase };

    ColumnRename(const XMLNode& element, GlobalParameters* parameters);
    static const StoredElement& declaration();

    bool beforeRun() override;
    char fullTableRequiredToComputeMetas(int pin, bool* answer) override;

    // What is stored.
    bool addMissingColumns = true;
    bool mode = true; ///< names are looked up in the input; else among those renamed so far
    QVector<QString> before, after; ///< of the same length
    QVector<QString> quickColumns;
    QString prefix, suffix, search, replace;
    int caseMode = AsIs;

private:
    friend FirstRowAction;
    friend RowByRowAction;
    struct Renaming;

    bool resolve(const OneRow& row);
    void takeFrom(const ColumnRename& master) { addedColumns_ = master.addedColumns_; }
    void passOn(const OneRow& row);
    void release() { addedColumns_ = {}; }

    bool renameFromPin1(Renaming& renaming);
    bool renameFromTables(Renaming& renaming);
    bool renameOne(Renaming& renaming, const QString& name, const QString& newName);
    std::optional<int> findColumn(const Renaming& renaming, const QString& name);
    std::optional<int> numberedColumn(const Renaming& renaming, const QString& number);
    bool renameQuickly(Renaming& renaming);
    QString inCase(const QString& name) const;
    void changeCase(Renaming& renaming);
    void addColumns(Renaming& renaming);

    // What the first row resolved.
    QVector<QString> addedColumns_;
};

/// Flatten turns the rows that share a key into one row, with columns of its own for each category.
///
///     id | month | sum   key='id' category='month'   id | name | jan_sum | feb_sum
///      1 | jan   |  10   ToTranspose sum              1 | Ann  |      10 |      20
///      1 | feb   |  20   ToKeep name                  2 | Bob  |         |       5
///      2 | feb   |   5   pin 1: jan, feb
///
/// The categories are the first column of pin 1, so that the output columns are known in advance. A
/// group is a run of consecutive rows of one key; without a key each row is one. Of rows with one
/// key and category the last counts, of the columns to keep those of the group's first row. In
/// advanced mode pins 2 and 3 add names of columns to transpose and to keep. The pins from 1 on are
/// read whole before the first row. Groups keep their order; the output declares that of the key.
/// Holds one output row and the cells for absent categories.
#pragma once

#include "actions/shape/category_index.h"
#include "plugin/first_row_action.h"
#include "plugin/partition_run.h"

#include <memory>
#include <vector>

class Flatten final : public FirstRowAction<Flatten, ActionIndex::Flatten> {
public:
    enum Naming : int { CategoryFirst, ColumnFirst, CategoryAlone };
    enum Groups : int { AllGroups, GroupsWithAllCategories, GroupsWithAnyCategory };

    Flatten(const XMLNode& element, GlobalParameters* parameters);
    static const StoredElement& declaration();

    bool beforeRun() override;
    char canRunInParallel(const QString& partitionColumn, bool* answer) override;
    char fullTableRequiredToComputeMetas(int pin, bool* answer) override;

    // What is stored.
    QString key;      ///< may be empty; may hold parameters of the graph
    QString category; ///< may hold parameters of the graph
    QStringList ToTranspose, ToKeep;
    int alternativeNaming = CategoryFirst;
    int outputFullyDefinedOnly = AllGroups; ///< groups that give a row
    bool checkSort = true;                  ///< the input must be sorted on the key
    bool allowMultithread = false;
    bool useDifferentNulls = false; ///< pin 1 says what stands for an absent category
    bool advancedMode = false;      ///< there are pins 2 and 3

private:
    friend FirstRowAction;

    // Called by the frame.
    bool resolve(const OneRow& row);
    void takeFrom(const Flatten& master);
    bool begin(const OneRow& row);
    void release();

    /// What the first row resolves, which copies share with their master.
    struct Resolved;
    struct Column;
    struct CategoryTable;

    bool groupStep();

    bool readCategories(Resolved& found, CategoryTable& table);
    bool appendNames(int pin, QStringList& names);
    bool resolveKey(const OneRow& row, Resolved& found);
    bool takeOrder(const OneRow& row, const Resolved& found);
    bool resolveCategory(const OneRow& row, Resolved& found, const MetaInfo& typeOnPin1);
    bool resolveKept(const OneRow& row, Resolved& found, const QStringList& names);
    bool resolveTransposed(const OneRow& row, Resolved& found, const QStringList& names,
                           const CategoryTable& table);
    int findColumn(const OneRow& row, const QString& name);
    QString newColumnName(const QString& categoryName, const QString& column) const;

    void startRun(const OneRow& row);
    void beginGroup(const OneRow& row);
    void addRow(const OneRow& row);
    void endGroup();
    const uchar* copied(const uchar* cell, qint32 metaType);
    const uchar* copiedOver(const uchar* earlier, const uchar* cell, qint32 metaType);

    // What the first row resolved.
    std::shared_ptr<const Resolved> resolved_;

    // What changes per row.
    PartitionRun keyRun_;
    RowBuffer cells_; ///< of the group's output row
    int lastCategory_ = -1;
    bool foundCategory_ = false;
    int categoriesSeen_ = 0;
    qint64 group_ = 0;         ///< number of the group
    std::vector<qint64> seen_; ///< for each category the last group that had it
};

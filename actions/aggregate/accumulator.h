/// Accumulator adds a column with the running sum of a column.
///
///     day | amount     colAcc="amount" colPartition="day"     day | amount | sum
///     mon |     10                                            mon |     10 |  10
///     mon |      5                                            mon |      5 |  15
///     tue |      7                                            tue |      7 |   7
///
/// Row by row; the rows keep their order and the table its declared order. A partition is a run of
/// consecutive rows of the same text, so the input needn't be sorted, and a value that comes back
/// starts the sum again. A cell that holds no number leaves the sum as it is. Holds one number and
/// one cell.
#pragma once

#include "plugin/partition_run.h"
#include "plugin/plugin_action.h"

class Accumulator final : public PluginAction<Accumulator, ActionIndex::Accumulator> {
public:
    Accumulator(const XMLNode& element, GlobalParameters* parameters);
    static const StoredElement& declaration();

    void rewindRun() override;
    /// A sum over the whole table has no parts, so without a partition column the answer is no.
    char canRunInParallel(const QString& partitionColumn, bool* answer) override;

    // What is stored.
    QString colAcc;
    QString outColName;
    QString startVal; ///< may hold parameters of the graph
    QString colPartition;

private:
    using AddCell = void (*)(double& sum, const uchar* cell);

    bool firstStep();
    bool plainStep();
    bool partitionStep();
    bool resolve(const OneRow& row);
    void passOn(const OneRow& row);

    // What the first row resolved.
    int accIndex_ = -1;
    AddCell addCell_ = nullptr;
    double startValue_ = 0;

    // What changes per row.
    PartitionRun partition_;
    double sum_ = 0; ///< the output cell of the new column
};

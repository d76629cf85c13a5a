/// InsertKey adds a counter, columns of constants, or both; or makes such rows without end.
///
///     a      columnName='id', constant unit = "kg"     a | id | unit
///     x                                                x |  0 | kg
///     y                                                y |  1 | kg
///
/// Row by row; rows keep their order, and the table its declared order. Where it has none, the
/// counter becomes its declared order. With `isInfinite` there is no input pin and the rows never
/// end, so that a graph may start here: the run ends when every sink has what it asked for. Holds
/// one counter and a cell for each constant.
#pragma once

#include "plugin/plugin_action.h"

#include <vector>

class InsertKey final : public PluginAction<InsertKey, ActionIndex::InsertKey> {
public:
    struct ConstantColumn {
        QString name;
        QString value;
        QChar type = QChar(MetaTypeText); ///< letter of the meta type
    };

    InsertKey(const XMLNode& element, GlobalParameters* parameters);
    static const StoredElement& declaration();

    bool beforeRun() override;
    bool afterRun() override;
    void rewindRun() override;
    /// A counter must see all rows in order.
    char canRunInParallel(const QString& partitionColumn, bool* answer) override;

    // What is stored.
    bool insertKey = true;
    QString columnName;
    bool keyType = true; ///< the counter is a Key column, else a text column
    qint64 startCount = 0;
    bool isInfinite = false;
    std::vector<ConstantColumn> constants;

private:
    bool firstStep();
    bool firstEndlessStep();
    template <bool hasKey, bool hasText>
    bool nextStep();
    template <bool hasKey, bool hasText>
    bool endlessStep();

    void shapeOutput(int inputColumns);
    const uchar* constantCell(const ConstantColumn& constant);
    template <bool hasKey, bool hasText>
    void countRow();

    // What the first row resolved.
    int counterColumn_ = 0;
    RowBuffer constantBuffer_; ///< the cells of the constants

    // What changes per row.
    qint64 counter_ = 0;   ///< of the next row
    quint32 keyCell_ = 0;  ///< the counter's cell in the output, where it is a Key
    RowBuffer textBuffer_; ///< the counter's cell, where it is a text
};

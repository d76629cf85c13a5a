/// ReadCsv: the rows of a CSV file.
///
///     id,name            file='people.csv' types='id:K'     id  name
///     7,Ann                                          -->     7   Ann
///     8,                                                     8   (null)
///
/// Columns are text unless `types` or a typed header says otherwise. A declared order becomes the
/// table's sort metadata and is checked row by row. What is broken, out of order or of the wrong
/// type ends the run with its place. Holds one batch of rows.
#pragma once

#include "engine/csv/csv_reader.h"
#include "engine/engine_box.h"

#include <algorithm>

namespace velmorra {

class ReadCsv : public SourceBox {
public:
    ReadCsv(const XMLNode& element, GlobalParameters* parameters);

    const BoxEntry& entry() const override;
    static const StoredElement& declaration();
    const StoredElement& storedElement() const override { return declaration(); }
    ActionItem* newFromXML(XMLNode element, GlobalParameters* parameters) const override;
    QStringList getFileTypes() const override { return {QStringLiteral("csv")}; }

    void rewindRun() override;
    bool beforeRun() override;
    bool afterRun() override;
    float computeCompletion() override { return static_cast<float>(std::max(0.0, readShare())); }
    double readShare() const override;

    /// Columns that somebody reads, by place; those behind its end are read. Set between beforeRun
    /// and the first step; a run starts with all.
    std::vector<bool> wantedColumns;

    // Stored.
    QString file;
    bool header = true;
    QString types;
    bool typed = false;
    QString sorted;
    qint64 fieldLimit = CsvSettings::defaultFieldLimit;

private:
    bool firstStep();
    bool nextRow();
    bool nextBatch();

    // Resolved by the first step.
    CsvReader reader_;
    OneRow* output_ = nullptr;

    // Per batch.
    RowBatch batch_;
    int row_ = 0;
};

} // namespace velmorra

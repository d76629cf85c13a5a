/// WriteCsv: rows as a CSV file.
///
///     id  name           file='people.csv' typed='1'    id:K,name:U
///      7  Ann      -->                                  7,Ann
///      8  (null)                                        8,
///
/// The file takes its place when the run has succeeded; a failed or cancelled run leaves what stood
/// there. A table without rows gives its header alone, one without columns an empty file. Holds a
/// buffer of rows.
#pragma once

#include "engine/csv/csv_formatter.h"
#include "engine/engine_box.h"
#include "engine/output_file.h"

#include <memory>

namespace velmorra {

class WriteCsv : public OutputBox {
public:
    WriteCsv(const XMLNode& element, GlobalParameters* parameters);

    const BoxEntry& entry() const override;
    static const StoredElement& declaration();
    const StoredElement& storedElement() const override { return declaration(); }
    ActionItem* newFromXML(XMLNode element, GlobalParameters* parameters) const override;

    void rewindRun() override;
    bool beforeRun() override;
    bool afterRun() override;

    bool finishOutput() override;
    bool commitOutput() override;
    void discardOutput() override;
    qint64 rowsWritten() const override { return rows_.load(std::memory_order_relaxed); }

    // Stored.
    QString file;
    bool header = true;
    bool typed = false;
    qint64 limit = -1;

private:
    bool firstStep();
    bool nextRow();
    bool takeRow(const OneRow& row);
    bool flush();
    void start(const PinOutMetaData& shape);

    // Resolved by the first step.
    qint64 rowLimit_ = -1;

    // Per row.
    CsvFormatter formatter_;
    std::atomic<qint64> rows_{0};

    std::mutex outputLock_; ///< guards the pointer against a discard from another thread
    std::unique_ptr<OutputFile> output_;
};

} // namespace velmorra

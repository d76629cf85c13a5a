/// ReadCsv: the rows of a CSV file.
///
///     id,name            file='people.csv' types='id:K'     id  name
///     7,Ann                                          -->     7   Ann
///     8,                                                     8   (null)
///
/// Delimiter, quote, decimal sign, comment lines and encoding can be set. Columns are text unless
/// `types` or a typed header says otherwise. A declared order becomes the
/// table's sort metadata and is checked row by row. What is broken, out of order or of the wrong
/// type ends the run with its place, or goes to the file of `rejects`. Holds one batch of rows, and
/// where there are threads for it up to three more, which they read ahead.
#pragma once

#include "engine/csv/batches_ahead.h"
#include "engine/csv/reject_file.h"
#include "engine/engine_box.h"

#include <algorithm>
#include <memory>
#include <mutex>

namespace velmorra {

class ReadCsv : public SourceBox, public OutputKeeper {
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

    // The reject file, where there is one.
    bool finishOutput() override;
    bool commitOutput() override;
    void discardOutput() override;

    /// Columns that somebody reads, by place; those behind its end are read. Set between beforeRun
    /// and the first step; a run starts with all.
    std::vector<bool> wantedColumns;

    // Stored.
    QString file;
    bool header = true;
    QString types;
    bool typed = false;
    QString sorted;
    QString delimiter = QStringLiteral("comma");
    QString quote = QStringLiteral("double");
    QString decimal = QStringLiteral("point");
    QString commentPrefix;
    QString encoding = QStringLiteral("utf-8");
    QString rejects;
    qint64 fieldLimit = CsvSettings::defaultFieldLimit;

private:
    QString resolveSettings();
    bool openRejects();
    bool firstStep();
    bool nextRow();
    bool nextBatch();
    void takeBatch();

    // Resolved by beforeRun and the first step.
    CsvTableSettings settings_;
    CsvReader reader_;
    OneRow* output_ = nullptr;

    // Per batch.
    RowBatch batch_;
    int row_ = 0;
    bool begun_ = false;                  ///< a batch was read
    std::atomic<bool> enough_{false};     ///< nobody wants further rows
    std::unique_ptr<BatchesAhead> ahead_; ///< null where this thread reads

    CountedRejects dropped_; ///< takes broken rows where only the columns are wanted
    std::mutex rejectsLock_; ///< guards the pointer against a discard from another thread
    std::unique_ptr<RejectFile> rejectFile_;
};

} // namespace velmorra

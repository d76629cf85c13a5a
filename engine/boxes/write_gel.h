/// WriteGel: rows as a stored table.
///
///     id  name           file='people.gel'     people.gel
///      7  Ann                  -->
///      8  (null)
///
/// Names, types and declared order are stored with the rows. The file takes its place when the run
/// has succeeded; a failed or cancelled run leaves what stood there. Holds a block of rows, and one
/// more for each further thread that the run may use: those compress.
#pragma once

#include "engine/engine_box.h"
#include "engine/output_file.h"

#include "host/gel/gel_writer.h"

namespace velmorra {

class WriteGel : public OutputBox {
public:
    WriteGel(const XMLNode& element, GlobalParameters* parameters);

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
    qint64 limit = -1;

private:
    bool firstStep();
    bool nextRow();
    bool start(const PinOutMetaData& columns);
    bool takeRow(const OneRow& row);
    bool flush();

    // Resolved by beforeRun.
    qint64 rowLimit_ = -1;
    bool started_ = false;

    // Per row.
    std::unique_ptr<gel::GelWriter> writer_;
    std::atomic<qint64> rows_{0};

    std::mutex outputLock_; ///< guards the pointer against a discard from another thread
    std::unique_ptr<OutputFile> output_;
};

} // namespace velmorra

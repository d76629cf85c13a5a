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

#include "engine/file_output_box.h"
#include "host/gel/gel_writer.h"

namespace velmorra {

class WriteGel : public FileOutputBox {
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

    // Stored.
    QString file;
    qint64 limit = -1;

private:
    bool firstStep();
    bool nextRow();
    bool start(const PinOutMetaData& columns);
    bool takeRow(const OneRow& row);
    bool flush();

    bool started_ = false;
    std::unique_ptr<gel::GelWriter> writer_;
};

} // namespace velmorra

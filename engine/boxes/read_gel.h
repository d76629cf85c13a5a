/// ReadGel: the rows of a stored table.
///
///     people.gel         file='people.gel'     id  name
///                              -->              7   Ann
///                                               8   (null)
///
/// Names, types and declared order are those that were stored. A damaged file ends the run with the
/// number of the block; with `skipCorruptedBlocks` such blocks are passed over with a warning each.
/// Holds one block of rows, or two where the run may use several threads: the next one is read
/// while the current one is handed out.
#pragma once

#include "engine/engine_box.h"

#include "host/gel/gel_reader.h"

namespace velmorra {

class ReadGel : public SourceBox {
public:
    ReadGel(const XMLNode& element, GlobalParameters* parameters);

    const BoxEntry& entry() const override;
    static const StoredElement& declaration();
    const StoredElement& storedElement() const override { return declaration(); }
    ActionItem* newFromXML(XMLNode element, GlobalParameters* parameters) const override;
    QStringList getFileTypes() const override { return {QStringLiteral("gel")}; }

    void rewindRun() override;
    bool beforeRun() override;
    bool afterRun() override;
    float computeCompletion() override { return static_cast<float>(readShare()); }
    double readShare() const override { return reader_.share(); }

    // Stored.
    QString file;
    bool skipCorruptedBlocks = false;

private:
    bool firstStep();
    bool nextRow();
    void report();

    // Resolved by the first step.
    OneRow* output_ = nullptr;

    // Per row.
    gel::GelReader reader_;
};

} // namespace velmorra

/// Sort: the rows of a table in another order.
///
///     day  name          by='day:9,name:A'      day  name
///      3   Bob                                   7   Ann
///      7   Zoe           -->                     7   Zoe
///      7   Ann                                   3   Bob
///
/// Rows that are equal in all sort columns keep their order. The order becomes the table's sort
/// metadata. Needs the whole pin, unless that declares an order which begins with the one asked
/// for: then the rows pass as they come. Holds rows up to a limit; beyond it they go to a temporary
/// file, and a merge of what is there streams out.
#pragma once

#include "engine/engine_box.h"
#include "engine/sort/row_sorter.h"

namespace velmorra {

class Sort : public EngineBox {
public:
    Sort(const XMLNode& element, GlobalParameters* parameters);

    const BoxEntry& entry() const override;
    static const StoredElement& declaration();
    const StoredElement& storedElement() const override { return declaration(); }
    ActionItem* newFromXML(XMLNode element, GlobalParameters* parameters) const override;

    void rewindRun() override;
    bool beforeRun() override;
    bool afterRun() override;

    static constexpr qint64 defaultMemoryLimit = 256;
    static constexpr qint64 largestMemoryLimit = 16 << 20;

    // Stored.
    QString by;
    qint64 memoryLimit = defaultMemoryLimit; ///< in MiB; 0: none
    QString temporaryFolder;

private:
    bool firstStep();
    bool passRow();
    bool nextRow();
    bool resolve(const OneRow& row);
    bool readAll(const OneRow* row);
    qint64 memoryBytes() const;

    // Resolved by the first step.
    OneRow* output_ = nullptr;
    bool isInOrder_ = false;

    // Per row.
    std::unique_ptr<RowSorter> sorter_;
};

} // namespace velmorra

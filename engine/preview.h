/// The rows of an output pin, for looking at: a run of what lies upstream, with boxes of its own,
/// that ends when it has enough rows.
#pragma once

#include "engine/engine_box.h"
#include "engine/graph_part.h"
#include "engine/packed_table.h"

namespace velmorra {

/// A box at the end of a preview, which keeps the first rows of its table.
class KeepRows : public EngineBox {
public:
    /// Keeps at most `limit` rows.
    KeepRows(qint64 limit, GlobalParameters* parameters);

    const BoxEntry& entry() const override;
    const StoredElement& storedElement() const override;
    ActionItem* newFromXML(XMLNode element, GlobalParameters* parameters) const override;
    void rewindRun() override;
    bool beforeRun() override;

    /// The rows of the run, and their columns; without columns when these are unknown.
    const PackedTable& table() const { return *table_; }

private:
    bool firstStep();
    bool nextRow();
    bool takeRow(const OneRow& row);

    const qint64 limit_;
    std::unique_ptr<PackedTable> table_;
};

/// A graph that makes the rows of an output pin, and nothing else: the boxes upstream of it, and
/// behind the pin a box of the preview. Run it like any other graph.
class PreviewGraph {
public:
    PreviewGraph(const Graph& whole, int box, int pin);

    /// Why there is no preview; null when there is one.
    const QString& error() const { return part_.error; }

    Graph& graph() { return part_.graph; }

    /// Puts a box that keeps rows behind the pin; the graph owns it.
    const KeepRows& keepRows(qint64 limit);

    /// Puts a box that writes the first rows behind the pin, as CSV on standard output.
    void writeRows(qint64 limit, bool typed);

private:
    void addSink(std::unique_ptr<ActionItem> sink);

    GraphPart part_;
    const int pin_;
};

} // namespace velmorra

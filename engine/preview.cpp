#include "engine/preview.h"

#include "engine/boxes/write_csv.h"

#include <new>

namespace velmorra {

KeepRows::KeepRows(qint64 limit, GlobalParameters* parameters)
    : EngineBox(XMLNode::emptyNode(), parameters),
      limit_(limit),
      table_(std::make_unique<PackedTable>()) {
    nPinOut = 0;
    boxId = QStringLiteral("the preview");
}

const BoxEntry& KeepRows::entry() const {
    static const BoxEntry entry = {"Preview", "Keeps the first rows of a table.", {}};
    return entry;
}

const StoredElement& KeepRows::storedElement() const {
    static const StoredElement element(4.2);
    return element;
}

ActionItem* KeepRows::newFromXML(XMLNode, GlobalParameters* parameters) const {
    return new (std::nothrow) KeepRows(limit_, parameters);
}

void KeepRows::rewindRun() {
    setStep<&KeepRows::firstStep>();
}

bool KeepRows::beforeRun() {
    table_ = std::make_unique<PackedTable>();
    return false;
}

bool KeepRows::firstStep() {
    const OneRow* const row = getNextRowFromInPin(0);
    if (row == nullptr) {
        const PinOutMetaData* const shape = isRunning() ? columnsOfInPin(0) : nullptr;
        if (shape != nullptr)
            table_->shape = detached(*shape);
        return true;
    }
    table_->shape = detached(row->shape());
    setStep<&KeepRows::nextRow>();
    return limit_ == 0 || takeRow(*row);
}

bool KeepRows::nextRow() {
    const OneRow* const row = getNextRowFromInPin(0);
    return row == nullptr || takeRow(*row);
}

bool KeepRows::takeRow(const OneRow& row) {
    table_->append(row);
    return static_cast<qint64>(table_->rows()) == limit_;
}

PreviewGraph::PreviewGraph(const Graph& whole, int box, int pin)
    : part_(whole, box, PartKind::Rows),
      pin_(pin) {}

const KeepRows& PreviewGraph::keepRows(qint64 limit) {
    auto sink = std::make_unique<KeepRows>(limit, &part_.graph.parameters);
    const KeepRows& kept = *sink;
    addSink(std::move(sink));
    return kept;
}

void PreviewGraph::writeRows(qint64 limit, bool typed) {
    auto sink = std::make_unique<WriteCsv>(XMLNode::emptyNode(), &part_.graph.parameters);
    sink->boxId = QStringLiteral("the preview");
    sink->file = QStringLiteral("-");
    sink->typed = typed;
    sink->limit = limit;
    addSink(std::move(sink));
}

void PreviewGraph::addSink(std::unique_ptr<ActionItem> sink) {
    const int place = part_.graph.addBox(std::move(sink));
    part_.graph.addLink({part_.target, pin_, place, 0});
}

} // namespace velmorra

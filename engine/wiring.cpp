#include "engine/wiring.h"

#include "engine/columns_probe.h"
#include "engine/engine_box.h"
#include "engine/run.h"
#include "host/main_ui.h"

#include <new>

namespace velmorra {

namespace {

const OneRow* fetchNothing(InPin&) {
    return nullptr;
}

/// Steps the producer until it hands on a row, and gives the producer's own row object.
const OneRow* fetchDirect(InPin& pin) {
    const Wire& wire = static_cast<const Wire&>(pin);
    RunningBox& producer = *wire.producer;
    OutPin& out = producer.outPins[static_cast<size_t>(wire.out)];
    ActionItem* const consumer = wire.context->box;
    wire.context->box = producer.action;
    const OneRow* row = nullptr;
    if (producer.finished)
        producer.closeInputs();
    while (!producer.finished && *wire.status == RunStatus::Running) {
        producer.step();
        if (out.ready) {
            out.ready = false;
            row = &out.row;
            break;
        }
    }
    wire.context->box = consumer;
    return row;
}

/// Puts what a step handed on into the spools of its pins.
void spoolReadyRows(RunningBox& box) {
    for (size_t pin = 0; pin < box.spools.size(); ++pin) {
        OutPin& out = box.outPins[pin];
        if (!out.ready)
            continue;
        out.ready = false;
        QString error;
        if (box.spools[pin] && !box.spools[pin]->append(out.row, &error))
            box.action->fail(error);
    }
}

/// The next row of the wire's own reader, for which the producer is stepped where it has to be.
const OneRow* fetchSpooled(InPin& pin) {
    const Wire& wire = static_cast<const Wire&>(pin);
    RunningBox& producer = *wire.producer;
    ActionItem* const consumer = wire.context->box;
    wire.context->box = producer.action;
    const OneRow* row = nullptr;
    while (*wire.status == RunStatus::Running) {
        QString error;
        row = wire.reader->next(&error);
        if (!error.isNull())
            producer.action->fail(error);
        if (row != nullptr || producer.finished)
            break;
        producer.step();
        spoolReadyRows(producer);
        if (producer.finished)
            producer.closeInputs();
    }
    wire.context->box = consumer;
    return row;
}

/// The fetch of a wire until its first row, so that later ones need not ask what the pin has seen.
const OneRow* fetchFirst(InPin& pin) {
    Wire& wire = static_cast<Wire&>(pin);
    const OneRow* const row = wire.steadyFetch(pin);
    if (row != nullptr) {
        wire.state = PinState::HadRows;
        wire.fetch = wire.steadyFetch;
    } else {
        wire.state = PinState::EndedEmpty;
        wire.fetch = fetchNothing;
    }
    return row;
}

const PinOutMetaData* columnsOfWire(InPin& pin) {
    static const PinOutMetaData noColumns;
    Wire& wire = static_cast<Wire&>(pin);
    if (wire.producer == nullptr)
        return &noColumns;
    const OneRow& row = wire.producer->outPins[static_cast<size_t>(wire.out)].row;
    return row.isFresh() ? columnsOfEmptyTable(*wire.producer, wire.out, *wire.context)
                         : &row.shape();
}

} // namespace

/// A box that has finished reads no more: what waits for it alone is dropped, and so on upstream
/// along boxes that nobody asks any more.
void RunningBox::closeInputs() {
    for (size_t pin = 0; pin < spools.size(); ++pin) {
        // Its columns may yet be asked for, which may take rows that it left unread.
        if (outPins[pin].row.isFresh())
            return;
    }
    std::vector<RunningBox*> open = {this};
    while (!open.empty()) {
        RunningBox& box = *open.back();
        open.pop_back();
        for (Wire& wire : box.wires) {
            if (wire.producer == nullptr || wire.isClosed)
                continue;
            wire.isClosed = true;
            if (wire.reader)
                wire.reader->close();
            if (--wire.producer->consumers == 0)
                open.push_back(wire.producer);
        }
    }
}

void failWithException(ActionItem& box, const std::exception& exception) {
    if (dynamic_cast<const std::bad_alloc*>(&exception) != nullptr)
        box.fail(QLatin1String(box.actionName()) + QLatin1String(": Memory Allocation Error"));
    else
        box.fail(QLatin1String("unexpected error: ") + QString::fromUtf8(exception.what()));
}

Wiring::Wiring(Graph& graph, RunContext& context, const RunOptions& options,
               const std::vector<bool>& computeFull)
    : graph_(graph),
      context_(context),
      store_(options.spoolMemory, options.spoolFileLimit, options.temporaryFolder) {
    for (size_t i = 0; i < graph.boxes().size(); ++i) {
        ActionItem& action = *graph.boxes()[i];
        auto box = std::make_unique<RunningBox>();
        box->action = &action;
        box->wires = std::vector<Wire>(static_cast<size_t>(action.nPinIn));
        for (Wire& wire : box->wires) {
            wire.fetch = fetchNothing;
            wire.columnsOf = columnsOfWire;
            wire.status = &graph.parameters.runStatus;
            wire.context = &context;
            box->inPins.push_back(&wire);
        }
        const auto outPins = static_cast<size_t>(action.nPinOut);
        box->outPins = std::make_unique<OutPin[]>(outPins);
        box->spools.resize(outPins);
        box->foundColumns.resize(outPins);
        action.parallelGroup = &box->group;
        action.connectPins(box->inPins.data(), box->outPins.get(), computeFull[i]);
        if (auto* const engineBox = dynamic_cast<EngineBox*>(&action))
            engineBox->runOptions = &options;
        boxes_.push_back(std::move(box));
    }
    for (const Link& link : graph.links())
        ++boxes_[static_cast<size_t>(link.from)]->consumers;
    for (const Link& link : graph.links()) {
        RunningBox& producer = *boxes_[static_cast<size_t>(link.from)];
        auto& spool = producer.spools[static_cast<size_t>(link.out)];
        const bool direct = producer.consumers == 1;
        if (!spool && (!direct || options.spoolEveryWire))
            spool = std::make_unique<Spool>(store_, options.spoolBlock);
        connect(link);
    }
}

Wiring::~Wiring() {
    for (const auto& box : boxes_) {
        // Readers refer to spools of other boxes.
        for (Wire& wire : box->wires)
            wire.reader.reset();
        box->action->parallelGroup = nullptr;
        box->action->connectPins(nullptr, nullptr, true);
        if (auto* const engineBox = dynamic_cast<EngineBox*>(box->action)) {
            engineBox->runOptions = nullptr;
            engineBox->sideThreads = nullptr;
        }
    }
}

void Wiring::connect(const Link& link) {
    RunningBox& producer = *boxes_[static_cast<size_t>(link.from)];
    Wire& wire = boxes_[static_cast<size_t>(link.to)]->wires[static_cast<size_t>(link.in)];
    const auto& spool = producer.spools[static_cast<size_t>(link.out)];
    wire.producer = &producer;
    wire.from = producer.action;
    wire.out = link.out;
    if (spool)
        wire.reader = spool->addReader();
    wire.steadyFetch = spool ? fetchSpooled : fetchDirect;
    wire.fetch = fetchFirst;
}

bool Wiring::begin() {
    for (const auto& box : boxes_) {
        box->action->hasWarning = false;
        box->action->actionFailed = false;
        box->action->rewindRun();
    }
    bool accepted = true;
    for (const auto& box : boxes_) {
        bool refused = false;
        const bool returned =
            runGuarded(context_, *box->action, [&] { refused = box->action->beforeRun(); });
        accepted = accepted && returned && !refused;
    }
    if (!accepted)
        graph_.parameters.runStatus.endAs(RunStatus::Failed);
    return accepted;
}

void Wiring::end() {
    for (const auto& box : boxes_)
        runGuarded(context_, *box->action, [&] { box->action->afterRun(); });
    context_.box = nullptr;
}

void Wiring::stepSpooled(RunningBox& box) {
    box.step();
    spoolReadyRows(box);
}

} // namespace velmorra

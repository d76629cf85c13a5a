#include "engine/columns_probe.h"

#include "host/main_ui.h"

namespace velmorra {

namespace {

/// Holds the messages of a probe back, and keeps the first error for the one warning.
class HeldMessages : public MessageSink {
public:
    void take(const Message& message) override {
        if (message.level == 1 && firstError.isNull())
            firstError = message.text.trimmed();
    }
    QString firstError;
};

/// An input pin of a probe.
struct ProbePin : InPin {
    Wire* wire = nullptr; ///< where rows come from that the box itself never asked for
    RunContext* runContext = nullptr;
    OneRow nullRow;
    bool nullRowIsDue = false;
};

const OneRow* fetchNullRow(InPin& pin) {
    ProbePin& probe = static_cast<ProbePin&>(pin);
    const bool due = probe.nullRowIsDue;
    probe.nullRowIsDue = false;
    return due ? &probe.nullRow : nullptr;
}

const OneRow* fetchFromWire(InPin& pin) {
    ProbePin& probe = static_cast<ProbePin&>(pin);
    // What runs upstream belongs to the run itself, with its messages.
    const RunContextScope scope(probe.runContext);
    probe.wire->current = probe.wire->fetch(*probe.wire);
    return probe.wire->current;
}

const PinOutMetaData* columnsOfProbePin(InPin& pin) {
    ProbePin& probe = static_cast<ProbePin&>(pin);
    const RunContextScope scope(probe.runContext);
    return probe.wire->columnsOf(*probe.wire);
}

/// Sets a pin of the probe up. False when its columns, which are needed, aren't known.
bool preparePin(ProbePin& probe, Wire& wire, bool isMain, RunContext& context) {
    probe.wire = &wire;
    probe.runContext = &context;
    probe.columnsOf = columnsOfProbePin;
    if (!isMain && wire.state == PinState::Untouched) {
        probe.fetch = fetchFromWire;
        return true;
    }
    probe.fetch = fetchNullRow;
    if (!isMain && wire.state == PinState::EndedEmpty)
        return true;
    const PinOutMetaData* const columns = wire.columnsOf(wire);
    if (columns == nullptr)
        return false;
    // A main pin that isn't connected, or a file of no bytes, has no columns to show.
    probe.nullRowIsDue = !columns->names.isEmpty();
    probe.nullRow.setShape(*columns);
    return true;
}

/// Runs the probe until it has set its columns or ended.
void runProbe(ActionItem& action, OutPin* outPins, RunContext& context) {
    constexpr int mostSteps = 100;
    action.rewindRun();
    runGuarded(context, action, [&] {
        bool finished = action.beforeRun();
        for (int step = 0; !finished && step < mostSteps && action.isRunning(); ++step) {
            finished = action.runStep(&action);
            for (int pin = 0; pin < action.nPinOut; ++pin)
                finished = finished || outPins[pin].ready;
        }
    });
    runGuarded(context, action, [&] { action.afterRun(); });
}

} // namespace

const PinOutMetaData* columnsOfEmptyTable(RunningBox& box, int out, RunContext& context) {
    const auto place = static_cast<size_t>(out);
    if (box.foundColumns[place])
        return &*box.foundColumns[place];
    ActionItem* const asked = context.box;
    context.box = box.action;

    std::vector<ProbePin> pins(box.wires.size());
    std::vector<InPin*> inPins;
    bool known = true;
    for (size_t pin = 0; pin < pins.size() && known; ++pin) {
        known = preparePin(pins[pin], box.wires[pin], pin == 0, context);
        inPins.push_back(&pins[pin]);
    }
    HeldMessages held;
    if (known && box.action->globalParameters != nullptr) {
        GlobalParameters parameters(*box.action->globalParameters);
        const std::unique_ptr<ActionItem> action(box.action->clone(&parameters));
        const auto outPins = std::make_unique<OutPin[]>(box.spools.size());
        if (action) {
            RunContext probeContext{&held, nullptr};
            const RunContextScope scope(&probeContext);
            ParallelGroup group;
            action->parallelGroup = &group;
            action->connectPins(inPins.data(), outPins.get(), false);
            runProbe(*action, outPins.get(), probeContext);
            for (size_t pin = 0; action->isRunning() && pin < box.spools.size(); ++pin) {
                if (!outPins[pin].row.isFresh())
                    box.foundColumns[pin] = outPins[pin].row.shape();
            }
        }
        if (!box.foundColumns[place] && !held.firstError.isNull())
            MainUI::addLog(2, QLatin1String("the columns of its empty table can't be told: ") +
                                  held.firstError);
    }
    context.box = asked;
    return box.foundColumns[place] ? &*box.foundColumns[place] : nullptr;
}

} // namespace velmorra

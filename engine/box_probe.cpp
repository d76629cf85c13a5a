#include "engine/box_probe.h"

#include "engine/graph_part.h"
#include "engine/run.h"
#include "engine/wiring.h"

#include <algorithm>

namespace velmorra {

namespace {

class KeptMessages : public MessageSink {
public:
    explicit KeptMessages(QVector<Message>& messages) : messages_(messages) {}
    void take(const Message& message) override { messages_.push_back(message); }

private:
    QVector<Message>& messages_;
};

/// The rows of an output pin, from boxes of its own.
class WholeTable {
public:
    WholeTable(const Graph& graph, int box, int pin, MessageSink& messages)
        : part_(graph, box, PartKind::Rows),
          pin_(static_cast<size_t>(pin)),
          context_{&messages, nullptr} {
        if (!part_.error.isNull())
            return;
        const RunContextScope scope(&context_);
        wiring_.emplace(part_.graph, context_, options_, part_.full);
        target_ = wiring_->boxes()[static_cast<size_t>(part_.target)].get();
        wiring_->begin();
    }
    ~WholeTable() {
        const RunContextScope scope(&context_);
        if (wiring_)
            wiring_->end();
    }
    WholeTable(const WholeTable&) = delete;
    WholeTable& operator=(const WholeTable&) = delete;

    const OneRow* next() {
        const RunContextScope scope(&context_);
        const OneRow* row = nullptr;
        if (target_ != nullptr)
            runGuarded(context_, *target_->action, [&] { row = pull(); });
        return row;
    }

    bool failed() const {
        return target_ == nullptr || part_.graph.parameters.runStatus != RunStatus::Running;
    }

private:
    const OneRow* pull() {
        while (!target_->finished && target_->action->isRunning()) {
            target_->step();
            OutPin& out = target_->outPins[pin_];
            const bool ready = out.ready;
            for (int pin = 0; pin < target_->action->nPinOut; ++pin)
                target_->outPins[static_cast<size_t>(pin)].ready = false;
            if (ready)
                return &out.row;
        }
        return nullptr;
    }

    GraphPart part_;
    size_t pin_;
    RunContext context_;
    const RunOptions options_;
    std::optional<Wiring> wiring_;
    RunningBox* target_ = nullptr;
};

struct ProbePin : InPin {
    PinOutMetaData shape;
    OneRow nullRow;
    bool nullRowIsDue = false;
    std::unique_ptr<WholeTable> table;
};

const OneRow* fetchNullRow(InPin& pin) {
    ProbePin& probe = static_cast<ProbePin&>(pin);
    const bool due = probe.nullRowIsDue;
    probe.nullRowIsDue = false;
    return due ? &probe.nullRow : nullptr;
}

const OneRow* fetchTableRow(InPin& pin) {
    return static_cast<ProbePin&>(pin).table->next();
}

const PinOutMetaData* columnsOfProbe(InPin& pin) {
    return &static_cast<ProbePin&>(pin).shape;
}

/// A copy of the box with the ends of its wires.
class Probe {
public:
    Probe(const Graph& graph, int box, const std::vector<ProbeInput>& inputs, ProbeAnswer& answer)
        : answer_(answer),
          messages_(answer.messages),
          context_{&messages_, nullptr},
          parameters_(graph.parameters),
          pins_(inputs.size()) {
        const RunContextScope scope(&context_);
        const ActionItem& original = *graph.boxes()[static_cast<size_t>(box)];
        answer_.columns.resize(static_cast<size_t>(original.nPinOut));
        for (size_t pin = 0; pin < inputs.size(); ++pin) {
            prepare(graph, pins_[pin], inputs[pin]);
            inPins_.push_back(&pins_[pin]);
        }
        action_.reset(original.clone(&parameters_));
    }

    void ask(bool settingsOnly) {
        const RunContextScope scope(&context_);
        if (!action_) {
            answer_.failed = true;
            return;
        }
        const auto outPins = std::make_unique<OutPin[]>(answer_.columns.size());
        ParallelGroup group;
        action_->parallelGroup = &group;
        action_->connectPins(inPins_.data(), outPins.get(), false);
        action_->rewindRun();
        bool refused = false;
        const bool returned = runGuarded(context_, *action_, [&] {
            refused = action_->beforeRun();
            if (!refused && !settingsOnly)
                step(outPins.get());
        });
        const bool tableFailed = std::any_of(pins_.begin(), pins_.end(), [](const ProbePin& pin) {
            return pin.table && pin.table->failed();
        });
        answer_.failed =
            refused || !returned || action_->actionFailed || !action_->isRunning() || tableFailed;
        if (!answer_.failed && !settingsOnly)
            takeColumns(outPins.get());
        runGuarded(context_, *action_, [&] { action_->afterRun(); });
    }

private:
    void prepare(const Graph& graph, ProbePin& pin, const ProbeInput& input) {
        pin.shape = input.columns;
        pin.columnsOf = columnsOfProbe;
        if (input.kind == ProbeInput::Kind::WholeTable) {
            pin.table = std::make_unique<WholeTable>(graph, input.producer, input.out, messages_);
            pin.fetch = fetchTableRow;
            return;
        }
        pin.fetch = fetchNullRow;
        pin.nullRowIsDue = !input.columns.names.isEmpty();
        pin.nullRow.setShape(input.columns);
    }

    void step(OutPin* outPins) {
        constexpr int mostSteps = 100;
        bool ended = false;
        for (int step = 0; !ended && step < mostSteps && action_->isRunning(); ++step) {
            ended = action_->runStep(action_.get());
            for (size_t pin = 0; pin < answer_.columns.size(); ++pin)
                ended = ended || outPins[pin].ready;
        }
    }

    void takeColumns(const OutPin* outPins) {
        const bool hadColumns = std::any_of(pins_.begin(), pins_.end(), [](const ProbePin& pin) {
            return !pin.shape.names.isEmpty();
        });
        for (size_t pin = 0; pin < answer_.columns.size(); ++pin) {
            if (!outPins[pin].row.isFresh())
                answer_.columns[pin] = outPins[pin].row.shape();
            else if (!hadColumns && !pins_.empty())
                answer_.columns[pin] = PinOutMetaData(); // nothing comes out of nothing
        }
    }

    ProbeAnswer& answer_;
    KeptMessages messages_;
    RunContext context_;
    GlobalParameters parameters_;
    std::vector<ProbePin> pins_;
    std::vector<InPin*> inPins_;
    std::unique_ptr<ActionItem> action_;
};

} // namespace

bool ProbeAnswer::hasProblem() const {
    return failed || std::any_of(messages.begin(), messages.end(),
                                 [](const Message& message) { return message.level == 1; });
}

ProbeAnswer probeBox(const Graph& graph, int box, const std::vector<ProbeInput>& inputs) {
    ProbeAnswer answer;
    const bool settingsOnly =
        std::any_of(inputs.begin(), inputs.end(), [](const ProbeInput& input) {
            return input.kind == ProbeInput::Kind::Unknown;
        });
    Probe(graph, box, inputs, answer).ask(settingsOnly);
    return answer;
}

} // namespace velmorra

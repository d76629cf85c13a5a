#include "engine/run.h"

#include "engine/columns_probe.h"
#include "engine/engine_box.h"
#include "engine/graph_part.h"
#include "engine/side_work.h"
#include "engine/wiring.h"
#include "host/main_ui.h"

#include <algorithm>
#include <unordered_set>

namespace velmorra {

namespace {

/// Steps that a sink is given before the next one has its turn, so that spools stay short.
constexpr int stepsPerTurn = 1024;

/// The boxes of a run that write something.
struct Outputs : std::vector<std::pair<ActionItem*, OutputKeeper*>> {
    /// Waits until all have written what they were given. When one couldn't, the first that failed
    /// reports it, and the answer is false.
    bool settle() {
        const value_type* failed = nullptr;
        quint64 failedBlock = 0;
        for (const value_type& output : *this) {
            const quint64 block = output.second->settle();
            if (block != 0 && (failed == nullptr || block < failedBlock)) {
                failed = &output;
                failedBlock = block;
            }
        }
        if (failed == nullptr)
            return true;
        RunContext& context = *RunContextScope::current();
        ActionItem* const speaker = std::exchange(context.box, failed->first);
        failed->second->reportFailedWrite();
        context.box = speaker;
        return false;
    }
};

/// Passes messages on until the run is cancelled: what boxes say about inputs that end early
/// because of that is of no interest.
///
/// A message waits for what is written behind the run. If that fails, the run would have ended
/// there, had it been written at once: the failure is told, and nothing else any more.
class RunMessages : public MessageSink {
public:
    RunMessages(MessageSink& sink, const RunStatus& status, Outputs& outputs)
        : sink_(sink),
          status_(status),
          outputs_(outputs) {}

    void take(const Message& message) override {
        if (status_ == RunStatus::Cancelled || writeFailed_)
            return;
        if (!isSettling_) {
            isSettling_ = true;
            writeFailed_ = !outputs_.settle();
            isSettling_ = false;
        }
        if (!writeFailed_)
            sink_.take(message);
    }

private:
    MessageSink& sink_;
    const RunStatus& status_;
    Outputs& outputs_;
    bool isSettling_ = false;
    bool writeFailed_ = false;
};

/// How much of some sources has been read, from 0 to 1; negative when unknown.
double readShareOf(const std::vector<const SourceBox*>& sources) {
    double sum = 0;
    for (const SourceBox* const source : sources) {
        const double share = source->readShare();
        if (share < 0)
            return -1;
        sum += share;
    }
    return sources.empty() ? -1 : sum / double(sources.size());
}

/// The sources upstream of a box.
std::vector<const SourceBox*> sourcesOf(const RunningBox& box) {
    std::vector<const SourceBox*> sources;
    std::vector<const RunningBox*> open = {&box};
    std::unordered_set<const RunningBox*> seen = {&box};
    while (!open.empty()) {
        const RunningBox& next = *open.back();
        open.pop_back();
        if (const auto* const source = dynamic_cast<const SourceBox*>(next.action))
            sources.push_back(source);
        for (const Wire& wire : next.wires) {
            if (wire.producer != nullptr && seen.insert(wire.producer).second)
                open.push_back(wire.producer);
        }
    }
    return sources;
}

/// A box without consumers, as the run drives it.
struct Sink {
    RunningBox* box;
    const OutputBox* output;               ///< null for one whose rows are dropped
    std::vector<const SourceBox*> sources; ///< upstream of it
    std::atomic<qint64> rows{0};

    explicit Sink(RunningBox& running)
        : box(&running),
          output(dynamic_cast<const OutputBox*>(running.action)),
          sources(sourcesOf(running)) {}

    void turn(const RunStatus& status) {
        qint64 taken = 0;
        for (int step = 0; step < stepsPerTurn && !box->finished && status == RunStatus::Running;
             ++step) {
            box->step();
            if (output == nullptr)
                taken += dropRows();
        }
        if (box->finished)
            box->closeInputs();
        if (output != nullptr)
            rows.store(output->rowsWritten(), std::memory_order_relaxed);
        else
            rows.fetch_add(taken, std::memory_order_relaxed);
    }

    /// Takes back what the last step handed on; the number of rows on its first pin.
    qint64 dropRows() {
        const bool counted = box->action->nPinOut > 0 && box->outPins[0].ready;
        for (int pin = 0; pin < box->action->nPinOut; ++pin)
            box->outPins[static_cast<size_t>(pin)].ready = false;
        return counted ? 1 : 0;
    }
};

} // namespace

struct Run::State {
    Outputs outputs;
    RunMessages messages;
    SideThreads sideThreads;
    RunContext context;
    Wiring wiring;
    std::vector<std::unique_ptr<Sink>> sinks;
    std::vector<const SourceBox*> sources;

    State(Graph& graph, MessageSink& sink, const RunOptions& options)
        : messages(sink, graph.parameters.runStatus, outputs),
          sideThreads(options.threads - 1),
          context{&messages, nullptr},
          wiring(graph, context, options, std::vector<bool>(graph.boxes().size(), true)) {
        for (const auto& box : wiring.boxes()) {
            auto* const engineBox = dynamic_cast<EngineBox*>(box->action);
            if (engineBox != nullptr && options.threads > 1)
                engineBox->sideThreads = &sideThreads;
            if (box->consumers == 0)
                sinks.push_back(std::make_unique<Sink>(*box));
            if (const auto* const source = dynamic_cast<const SourceBox*>(box->action))
                sources.push_back(source);
            if (auto* const output = dynamic_cast<OutputKeeper*>(box->action))
                outputs.emplace_back(box->action, output);
        }
    }

    /// Serves the sinks in turn until all have finished or the run has ended otherwise.
    void serveSinks(const RunStatus& status) {
        for (bool working = true; working && status == RunStatus::Running;) {
            working = false;
            for (const auto& sink : sinks) {
                if (sink->box->finished)
                    continue;
                runGuarded(context, *sink->box->action, [&] { sink->turn(status); });
                working = true;
            }
        }
    }

    /// Calls an operation of every output, as long as it succeeds.
    bool forEachOutput(bool (OutputKeeper::*operation)()) {
        for (const auto& [box, output] : outputs) {
            bool succeeded = false;
            runGuarded(context, *box, [&, keeper = output] { succeeded = (keeper->*operation)(); });
            if (!succeeded)
                return false;
        }
        return true;
    }
};

Run::Run(Graph& graph, MessageSink& sink, const RunOptions& options)
    : graph_(graph),
      sink_(sink),
      options_(options) {
    graph_.parameters.runStatus = RunStatus::Running;
    state_ = std::make_unique<State>(graph_, sink_, options_);
}

Run::~Run() = default;

RunOutcome Run::execute() {
    RunStatus& status = graph_.parameters.runStatus;
    runWithStack(graph_.boxes().size(), [&] {
        const RunContextScope scope(&state_->context);
        if (state_->wiring.begin())
            state_->serveSinks(status);
        const bool failed = std::any_of(graph_.boxes().begin(), graph_.boxes().end(),
                                        [](const auto& box) { return box->actionFailed; });
        // What is written behind belongs to what the run did before it failed.
        if (status == RunStatus::Failed)
            state_->outputs.settle();
        // Every output is whole before the first one is put in its place.
        if (failed || status != RunStatus::Running ||
            !state_->forEachOutput(&OutputKeeper::finishOutput) || status != RunStatus::Running ||
            !state_->forEachOutput(&OutputKeeper::commitOutput)) {
            status.endAs(RunStatus::Failed);
            removeTemporaryFiles();
        }
        state_->wiring.end();
    });
    if (status == RunStatus::Cancelled)
        return RunOutcome::Cancelled;
    return status == RunStatus::Running ? RunOutcome::Done : RunOutcome::Failed;
}

void Run::removeTemporaryFiles() {
    for (const auto& [box, output] : state_->outputs)
        output->discardOutput();
}

std::vector<SinkProgress> Run::sinks() const {
    std::vector<SinkProgress> progress;
    for (const auto& sink : state_->sinks) {
        const ActionItem& action = *sink->box->action;
        progress.push_back({boxTitle(action), action.boxId, QString::fromUtf8(action.actionName()),
                            sink->rows.load(std::memory_order_relaxed),
                            readShareOf(sink->sources)});
    }
    return progress;
}

double Run::completion() const {
    return readShareOf(state_->sources);
}

namespace {

/// Keeps the first error, for the answer.
class FirstError : public MessageSink {
public:
    void take(const Message& message) override {
        if (message.level == 1 && text.isNull())
            text = message.text;
    }
    QString text;
};

} // namespace

PinColumns columnsOfPin(const Graph& graph, int box, int pin) {
    PinColumns result;
    FirstError messages;
    GraphPart part(graph, box, PartKind::Columns);
    if (!part.error.isEmpty()) {
        result.error = part.error;
        return result;
    }
    const RunOptions options;
    runWithStack(part.graph.boxes().size(), [&] {
        RunContext context{&messages, nullptr};
        const RunContextScope scope(&context);
        Wiring wiring(part.graph, context, options, part.full);
        RunningBox& target = *wiring.boxes()[static_cast<size_t>(part.target)];
        const OutPin& out = target.outPins[static_cast<size_t>(pin)];
        const PinOutMetaData* columns = nullptr;
        if (wiring.begin()) {
            runGuarded(context, *target.action, [&] {
                while (!target.finished && out.row.isFresh() && target.action->isRunning())
                    wiring.stepSpooled(target);
                if (target.action->isRunning())
                    columns = out.row.isFresh() ? columnsOfEmptyTable(target, pin, context)
                                                : &out.row.shape();
            });
        }
        if (columns != nullptr)
            result.shape = *columns;
        else
            result.error = messages.text.isNull() ? QStringLiteral("the columns can't be told")
                                                  : messages.text;
        wiring.end();
    });
    return result;
}

} // namespace velmorra

#include "engine/run.h"

#include "engine/columns_probe.h"
#include "engine/engine_box.h"
#include "engine/wiring.h"
#include "host/main_ui.h"

#include <algorithm>
#include <functional>
#include <pthread.h>

namespace velmorra {

namespace {

/// Steps that a sink is given before the next one has its turn, so that spools stay short.
constexpr int stepsPerTurn = 1024;

// A pull goes down the whole chain of boxes on the stack.
constexpr size_t stackBytes = 16 << 20;
constexpr size_t stackBytesPerBox = 32 << 10;

/// Passes messages on until the run is cancelled: what boxes say about inputs that end early
/// because of that is of no interest.
class RunMessages : public MessageSink {
public:
    RunMessages(MessageSink& sink, const RunStatus& status) : sink_(sink), status_(status) {}
    void take(const Message& message) override {
        if (status_ != RunStatus::Cancelled)
            sink_.take(message);
    }

private:
    MessageSink& sink_;
    const RunStatus& status_;
};

/// Runs `work` on a thread with `bytes` of stack and waits for it; on this thread where no such
/// thread can be had.
void runWithStack(size_t bytes, std::function<void()> work) {
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    pthread_attr_setstacksize(&attributes, bytes);
    pthread_t thread;
    const auto entry = [](void* argument) -> void* {
        (*static_cast<std::function<void()>*>(argument))();
        return nullptr;
    };
    const int failed = pthread_create(&thread, &attributes, entry, &work);
    pthread_attr_destroy(&attributes);
    if (failed != 0)
        work();
    else
        pthread_join(thread, nullptr);
}

/// A box without consumers, as the run drives it.
struct Sink {
    RunningBox* box;
    const OutputBox* output; ///< null for one whose rows are dropped
    std::atomic<qint64> rows{0};

    explicit Sink(RunningBox& running)
        : box(&running),
          output(dynamic_cast<const OutputBox*>(running.action)) {}

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
    RunMessages messages;
    RunContext context;
    Wiring wiring;
    std::vector<std::unique_ptr<Sink>> sinks;
    std::vector<SourceBox*> sources;
    std::vector<std::pair<ActionItem*, OutputKeeper*>> outputs;

    State(Graph& graph, MessageSink& sink, const RunOptions& options)
        : messages(sink, graph.parameters.runStatus),
          context{&messages, nullptr},
          wiring(graph, context, options, std::vector<bool>(graph.boxes().size(), true)) {
        for (const auto& box : wiring.boxes()) {
            if (box->consumers == 0)
                sinks.push_back(std::make_unique<Sink>(*box));
            if (auto* const source = dynamic_cast<SourceBox*>(box->action))
                sources.push_back(source);
            if (auto* const output = dynamic_cast<OutputKeeper*>(box->action))
                outputs.push_back({box->action, output});
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
    runWithStack(stackBytes + stackBytesPerBox * graph_.boxes().size(), [&] {
        const RunContextScope scope(&state_->context);
        if (state_->wiring.begin())
            state_->serveSinks(status);
        const bool failed = std::any_of(graph_.boxes().begin(), graph_.boxes().end(),
                                        [](const auto& box) { return box->actionFailed; });
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
    for (const auto& sink : state_->sinks)
        progress.push_back(
            {boxTitle(*sink->box->action), sink->rows.load(std::memory_order_relaxed)});
    return progress;
}

double Run::completion() const {
    double sum = 0;
    for (const SourceBox* const source : state_->sources) {
        const double share = source->readShare();
        if (share < 0)
            return -1;
        sum += share;
    }
    return state_->sources.empty() ? -1 : sum / double(state_->sources.size());
}

namespace {

/// The boxes that lie upstream of `target`, itself among them, and whether each has to run in full:
/// those that feed a pin whose whole table decides on the columns.
struct Upstream {
    std::vector<bool> included;
    std::vector<bool> full;

    Upstream(const Graph& graph, int target)
        : included(graph.boxes().size(), false),
          full(graph.boxes().size(), false) {
        std::vector<std::vector<const Link*>> inputs(graph.boxes().size());
        for (const Link& link : graph.links())
            inputs[static_cast<size_t>(link.to)].push_back(&link);
        included[static_cast<size_t>(target)] = true;
        std::vector<int> open = {target};
        while (!open.empty()) {
            const auto box = static_cast<size_t>(open.back());
            open.pop_back();
            for (const Link* const link : inputs[box]) {
                const auto from = static_cast<size_t>(link->from);
                const bool whole = full[box] || graph.boxes()[box]->needsFullTable(link->in);
                if (included[from] && (full[from] || !whole))
                    continue;
                included[from] = true;
                full[from] = full[from] || whole;
                open.push_back(link->from);
            }
        }
    }
};

/// The part of a graph that Upstream chose, with instances of its own.
struct PartOfGraph {
    Graph graph;
    std::vector<bool> full;
    int target = -1;
    QString error;

    PartOfGraph(const Graph& whole, int box) {
        for (const auto& [name, value] : whole.parameters.parameters())
            graph.parameters.set(name, value);
        graph.parameters.setGraphFolder(whole.parameters.graphFolder());
        graph.parameters.fileVersion = whole.parameters.fileVersion;
        const Upstream upstream(whole, box);
        std::vector<int> place(whole.boxes().size(), -1);
        for (size_t i = 0; i < whole.boxes().size(); ++i) {
            if (!upstream.included[i])
                continue;
            std::unique_ptr<ActionItem> copy(whole.boxes()[i]->clone(&graph.parameters));
            if (!copy) {
                error = boxTitle(*whole.boxes()[i]) + QLatin1String(": can't be copied");
                return;
            }
            place[i] = graph.addBox(std::move(copy));
            full.push_back(upstream.full[i]);
        }
        for (const Link& link : whole.links()) {
            const int to = place[static_cast<size_t>(link.to)];
            if (to >= 0)
                graph.addLink({place[static_cast<size_t>(link.from)], link.out, to, link.in});
        }
        target = place[static_cast<size_t>(box)];
    }
};

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
    PartOfGraph part(graph, box);
    if (!part.error.isEmpty()) {
        result.error = part.error;
        return result;
    }
    const RunOptions options;
    runWithStack(stackBytes + stackBytesPerBox * part.graph.boxes().size(), [&] {
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

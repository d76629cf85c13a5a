/// The boxes of one run with the wires between them, and the pull along them.
///
/// A wire is direct where it is the only one that leaves its producer: the consumer then gets the
/// producer's own row object. Everywhere else the rows go through a spool, from which each consumer
/// reads with a row object of its own. One thread at a time.
#pragma once

#include "engine/graph.h"
#include "engine/spool.h"
#include "host/message.h"

#include <exception>
#include <optional>

namespace velmorra {

struct RunOptions;
struct RunningBox;

/// What an input pin has seen of its table.
enum class PinState { Untouched, HadRows, EndedEmpty };

/// An input pin at run time.
struct Wire : InPin {
    RunningBox* producer = nullptr; ///< null when nothing is connected
    int out = 0;                    ///< output pin of the producer
    const RunStatus* status = nullptr;
    RunContext* context = nullptr;
    PinState state = PinState::Untouched;
    bool isClosed = false;                          ///< nobody will ask for further rows
    const OneRow* (*steadyFetch)(InPin&) = nullptr; ///< takes over behind the first row
    std::unique_ptr<SpoolReader> reader;            ///< null on a direct wire
};

/// A box at run time.
struct RunningBox {
    ActionItem* action = nullptr;
    ParallelGroup group;
    std::vector<Wire> wires;
    std::vector<InPin*> inPins;
    std::unique_ptr<OutPin[]> outPins;
    std::vector<std::unique_ptr<Spool>> spools; ///< by output pin; null where none is needed
    std::vector<std::optional<PinOutMetaData>> foundColumns; ///< by output pin, of an empty table
    int consumers = 0; ///< wires that lead here and may still be read
    bool finished = false;

    /// One step; a row that it hands on stays ready in its output pin.
    void step() { finished = action->runStep(action); }

    /// For a box that has finished and whose last row is no longer in use: what waits for it alone
    /// is dropped.
    void closeInputs();
};

class Wiring {
public:
    /// Connects the boxes of a graph whose wiring is sound. `computeFull` says for each box whether
    /// its rows are wanted, or only its columns. The graph and the context must outlive the wiring.
    Wiring(Graph& graph, RunContext& context, const RunOptions& options,
           const std::vector<bool>& computeFull);
    ~Wiring();
    Wiring(const Wiring&) = delete;
    Wiring& operator=(const Wiring&) = delete;

    std::vector<std::unique_ptr<RunningBox>>& boxes() { return boxes_; }

    /// Tells every box that a run begins: `rewindRun`, then `beforeRun`. False when one refused.
    bool begin();

    /// Ends the run of every box: `afterRun`.
    void end();

    /// Steps a box and puts what it hands on into its spools.
    void stepSpooled(RunningBox& box);

    SpoolStore& store() { return store_; }

private:
    void connect(const Link& link);

    Graph& graph_;
    RunContext& context_;
    SpoolStore store_;
    std::vector<std::unique_ptr<RunningBox>> boxes_;
};

/// Reports an exception that came out of a box, and fails the box.
void failWithException(ActionItem& box, const std::exception& exception);

/// Runs `work` as code of `box`: messages name it, and no exception leaves it. False with a message
/// when one was thrown.
template <class Work>
bool runGuarded(RunContext& context, ActionItem& box, Work work) {
    context.box = &box;
    try {
        work();
        return true;
    } catch (const std::exception& exception) {
        // The box that runs now may lie upstream of the one that was asked.
        failWithException(*context.box, exception);
        return false;
    }
}

} // namespace velmorra

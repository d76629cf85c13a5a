/// A run of a graph: wires the boxes, pulls rows through the sinks, and commits the outputs.
#pragma once

#include "engine/graph.h"

#include "host/message.h"

namespace velmorra {

struct RunOptions {
    /// Threads that the run may use in all; results don't depend on it.
    int threads = 1;

    /// For tests: tables are read and written in the smallest pieces that there can be.
    bool smallPieces = false;

    /// Bytes of rows that wires with several readers may hold in memory, in all; beyond that they
    /// go to one unlinked temporary file of at most spoolFileLimit bytes.
    qint64 spoolMemory = 64ll << 20;
    qint64 spoolFileLimit = 64ll << 30;
    qint64 spoolBlock = 256 << 10;
    QString temporaryFolder; ///< empty: the system's

    /// For tests: bytes that a sort may hold in memory, whatever its box says; 0: what it says.
    qint64 sortMemory = 0;

    /// For tests: a spool on every wire, also where the producer's row could be handed on as it is.
    bool spoolEveryWire = false;

    /// For a look at some rows: boxes upstream write no files of their own.
    bool looksOnly = false;

    /// Rows that a sink takes at most; negative: all.
    qint64 rowLimit = -1;
};

enum class RunOutcome { Done, Failed, Cancelled };

/// What a monitor may read of a sink while the run goes on.
struct SinkProgress {
    QString title;
    QString boxId;
    QString boxName; ///< the Action's name
    qint64 rows = 0;
    double share = -1; ///< of what its sources hold, from 0 to 1; negative when unknown
};

class Run {
public:
    /// The graph must not be changed during the run; messages go to `sink`, which may be called on
    /// another thread than the caller's. Both must outlive the run. The graph's wiring must be
    /// sound.
    Run(Graph& graph, MessageSink& sink, const RunOptions& options = {});
    ~Run();
    Run(const Run&) = delete;
    Run& operator=(const Run&) = delete;

    /// Runs the graph to its end on a thread of its own with room for deep graphs. Once per object.
    RunOutcome execute();

    /// Ends the run soon, from any thread or a signal handler: no output file changes.
    void cancel() { graph_.parameters.runStatus.endAs(RunStatus::Cancelled); }

    /// Removes what an interrupted run leaves behind in the file system (temporary outputs), for a
    /// program that is about to end without waiting. Callable from any thread.
    void removeTemporaryFiles();

    // For a monitor on another thread.

    std::vector<SinkProgress> sinks() const;

    /// How much of the sources has been read, from 0 to 1; negative when unknown.
    double completion() const;

private:
    struct State;

    Graph& graph_;
    MessageSink& sink_;
    RunOptions options_;
    std::unique_ptr<State> state_;
};

/// The columns of an output pin, found by running instances of their own in columns-only mode; an
/// error text where that failed.
struct PinColumns {
    PinOutMetaData shape;
    QString error;
};
PinColumns columnsOfPin(const Graph& graph, int box, int pin);

} // namespace velmorra

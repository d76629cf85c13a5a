/// Runs a case in-process, under circumstances that may not change its result.
#pragma once

#include "engine/parallel_section.h"
#include "tests/harness/case_file.h"
#include "tests/harness/table_boxes.h"
#include "tests/plain_box.h"

#include <array>

namespace velmorra::harness {

enum class Circumstance {
    Plain,
    OddAddresses, ///< cells at odd addresses that are overwritten behind the consumer
    TinySpools,   ///< every wire spooled, in tiny blocks, all of it through the file
    LatePins,     ///< steps of the sources without a row
    TwoRuns,      ///< the second run of the same boxes
    ColumnsFirst, ///< columns-only mode before the run
    OneCopy,      ///< master and copies on threads
    TwoCopies,
    ThreeCopies,
};

inline constexpr std::array circumstances = {
    Circumstance::Plain,    Circumstance::OddAddresses, Circumstance::TinySpools,
    Circumstance::LatePins, Circumstance::TwoRuns,      Circumstance::ColumnsFirst,
    Circumstance::OneCopy,  Circumstance::TwoCopies,    Circumstance::ThreeCopies,
};

const char* nameOf(Circumstance circumstance);

/// Copies beside the master; 0 for a circumstance of a single thread.
int copiesOf(Circumstance circumstance);

using test::CollectedLog;

/// What a run of a case gave.
struct CaseResult {
    QString problem; ///< why it couldn't be run at all, or how a box broke its contract
    RunOutcome outcome = RunOutcome::Failed;
    std::map<Place, PackedTable> outputs;
    std::map<Place, QString> columns; ///< headers in columns-only mode, where that was asked for
    QStringList log;
    QStringList copiesLog;
};

/// The graph of a case, with sources on the pins that have a table and sinks behind those that are
/// expected (all of the last element's when `allPins`).
struct CaseGraph {
    Graph graph;
    std::vector<int> elements; ///< places of the boxes
    std::map<Place, TableSink*> sinks;
    QString problem;
};

/// Makes the elements of a case; a problem names what is wrong with them.
std::vector<std::unique_ptr<ActionItem>> makeElements(const Case& run, const ActionCatalog& catalog,
                                                      GlobalParameters& parameters,
                                                      QString& problem);

void buildGraph(CaseGraph& built, const Case& run, const ActionCatalog& catalog,
                SourceHabits habits, bool allPins);

CaseResult runCase(const Case& run, const ActionCatalog& catalog, Circumstance circumstance,
                   bool allPins = false);

/// Whether the case's one element may run as a master and copies, and with which partition column
/// of pin 0; null when it may not, or there is no row to share.
std::optional<QString> parallelPartition(const Case& run, const ActionCatalog& catalog);

/// What canRunInParallel of the case's first element answers.
bool answersParallel(const Case& run, const ActionCatalog& catalog, const QString& partitionColumn);

/// The element as loading and saving gives it back, on its own.
QString savedText(const Case& run, const ActionCatalog& catalog);

} // namespace velmorra::harness

/// The words GRAPH and BOX[:PIN] of a command line.
#pragma once

#include "message_log.h"
#include "run_settings.h"

#include "engine/graph_file.h"

/// A graph with the Actions that it is made of.
struct GraphFile {
    velmorra::ActionCatalog catalog;
    velmorra::GraphLoad load;
};

/// Reads a graph and what is wrong with it. Anything but Done, with a message logged, when there
/// are no Actions. Constructors speak to the program, so that a MainUI must stand.
ExitStatus readGraphFile(const std::string& path, const GraphSettings& settings, MessageLog& log,
                         GraphFile& file);

/// The same for a graph that must be fit to run; what is wrong with it is logged.
ExitStatus loadGraphFile(const std::string& path, const GraphSettings& settings, MessageLog& log,
                         GraphFile& file);

/// A box by its id or label, and a pin of it.
struct BoxWord {
    int box = -1;
    int pin = -1;  ///< negative when none is given
    QString error; ///< null when the box is there
};

/// Reads BOX[:PIN]; a pin must be an output pin of the box.
BoxWord readBoxWord(const QString& word, const velmorra::Graph& graph);

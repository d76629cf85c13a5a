/// The tables that `apply` reads and writes: which file belongs to which pin of which element.
#pragma once

#include "engine/graph.h"

#include <optional>

/// What was given on the command line, as it stands.
struct TableOptions {
    QStringList in;     ///< `[N.]PIN=FILE` or FILE
    QStringList out;    ///< the same
    QStringList types;  ///< `[N.]PIN=TYPES` or TYPES
    QStringList sorted; ///< `[N.]PIN=ORDER` or ORDER
    bool typed = false;
    std::optional<qint64> limit; ///< rows to write
};

/// A table on a pin of an element; elements by their place, from 0. File `-` is a standard stream.
struct PinTable {
    int element = 0;
    int pin = 0;
    QString file;
    QString types;
    QString sorted;
};

/// Tables in the order of elements and pins, or what is wrong with the options.
struct TablePlan {
    QVector<PinTable> inputs;
    QVector<PinTable> outputs;
    QString error;

    bool readsStandardInput() const;
};

/// Settles the tables of a chain of elements, each one's output pin 0 the next one's input pin 0.
TablePlan planTables(const TableOptions& options,
                     const std::vector<std::unique_ptr<ActionItem>>& elements);

/// Links the chain, whose elements are the graph's boxes, and adds boxes that read and write the
/// tables.
void addTableBoxes(velmorra::Graph& graph, const TablePlan& plan, const TableOptions& options);

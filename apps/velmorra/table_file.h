/// Boxes for the tables that the command line names: CSV, or a stored table by its ending.
#pragma once

#include "engine/graph.h"

#include <optional>

/// Whether a name is that of a stored table: it ends in `.gel`.
bool isStoredTable(const QString& file);

/// A table to be read. A stored one has its types and order; what is given is for CSV.
struct SourceTable {
    QString file;
    QString types;
    QString sorted;
    bool typed = false;  ///< the header carries types
    bool stored = false; ///< whatever its ending
};

/// A table to be written.
struct TargetTable {
    QString file;
    bool typed = false;          ///< a CSV header carries types
    std::optional<qint64> limit; ///< most rows
};

/// Why the settings of a source can't be: they are for CSV only. Else a null string.
QString settingsProblem(const SourceTable& table);

/// Adds the box that reads or writes the table; its place in the graph.
int addTableBox(velmorra::Graph& graph, const SourceTable& table, const QString& id);
int addTableBox(velmorra::Graph& graph, const TargetTable& table, const QString& id);

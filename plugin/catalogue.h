/// The catalogue: what the plug-in tells about each of its Actions, in one table.
#pragma once

#include <QtCore/QStringList>

/// Places in the catalogue. The host asks the factory for Actions by these numbers.
enum class ActionIndex : unsigned {
    JoinInput,
    SelectColumns,
    NaiveDeduplicate,
    Flatten,
    Unflatten,
    InsertKey,
    ReplaceStrings,
    ColumnRename,
    Append,
    Join,
    MultiJoin,
    FilterOnKey,
    ReadSquareFiles,
    AggregateOnColumns,
    RegularExpressionTest,
    IntervalJoin,
    PropagateDown,
    ActionCRC,
    ActionMD5,
    Split,
    TimeTravel,
    TimeAggregate,
    SmoothenRows,
    InMemoryJoin,
    Accumulator,
    ListFiles,
    Count
};

struct CatalogueEntry {
    ActionIndex index;
    const char* name; ///< also the name of the stored element
    const char* helpKey;
    const char* description;
    const char* icon; ///< resource path; null for Join, whose mode decides (joinIcon)
    QStringList categories;
    QStringList keywords;
};

/// The entry of an Action; it lives as long as the process.
const CatalogueEntry& catalogueEntry(ActionIndex index);

/// The resource path of Join's picture for a `joinMode`; null for a mode that has none.
const char* joinIcon(int joinMode);

/// The two ends of a wire, as an Action sees them. The engine makes them and outlives their use.
#pragma once

#include "host/one_row.h"

class ActionItem;

/// An input pin. Pulling is one indirect call: `fetch` steps the producer until it hands on a row.
struct InPin {
    /// The next row, valid until the next call for this pin; null when the table has ended, or the
    /// run was stopped.
    const OneRow* (*fetch)(InPin&) = nullptr;

    /// The columns of the pin's table, also when it has no rows; null when they can't be known.
    const PinOutMetaData* (*columnsOf)(InPin&) = nullptr;

    const OneRow* current = nullptr;

    /// The box that the rows come from, not owned; null when nothing is connected.
    ActionItem* from = nullptr;
};

/// An output pin: the row object that an Action fills, and whether it has handed it on.
struct OutPin {
    OneRow row;
    bool ready = false;
};

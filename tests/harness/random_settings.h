/// Random settings of an Action, within the kinds that it declares for what it stores.
#pragma once

#include "host/action_item.h"

#include <string>

namespace velmorra::harness {

/// Sets every declared attribute and list of an Action, the same for the same seed. All lists of
/// one Action get the same length, since pairs of lists belong together, but none gets shorter than
/// it is by default: loading fills such lists up.
void setRandomly(ActionItem& action, unsigned seed);

/// The first setting that differs between two instances of one Action, with both values; empty when
/// none does. Null and the empty text are two values in a list.
std::string differenceOfSettings(ActionItem& a, ActionItem& b);

} // namespace velmorra::harness

/// The factory of the Actions that are built.
#pragma once

class ActionItem;

/// A new Action with every default, owned by the caller; null for an index that has none.
ActionItem* newPrototype(unsigned index);

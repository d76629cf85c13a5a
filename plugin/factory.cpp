#include "plugin/factory.h"

#include "actions/aggregate/accumulator.h"
#include "actions/join/filter_on_key.h"
#include "actions/join/in_memory_join.h"
#include "actions/join/interval_join.h"
#include "actions/join/join.h"
#include "actions/join/join_input.h"
#include "actions/join/multi_join.h"
#include "actions/shape/append.h"
#include "actions/shape/column_rename.h"
#include "actions/shape/flatten.h"
#include "actions/shape/insert_key.h"
#include "actions/shape/select_columns.h"
#include "actions/shape/split.h"
#include "actions/shape/unflatten.h"
#include "plugin/catalogue.h"

#include <algorithm>
#include <iterator>

namespace {

struct Registration {
    ActionIndex index;
    ActionItem* (*make)(const XMLNode&, GlobalParameters*);
};

template <class Action>
constexpr Registration registered() {
    return {Action::catalogueIndex, &makeAction<Action>};
}

// In the order of the catalogue.
constexpr Registration registrations[] = {
    registered<JoinInput>(),    registered<SelectColumns>(), registered<Flatten>(),
    registered<Unflatten>(),    registered<InsertKey>(),     registered<ColumnRename>(),
    registered<Append>(),       registered<Join>(),          registered<MultiJoin>(),
    registered<FilterOnKey>(),  registered<IntervalJoin>(),  registered<Split>(),
    registered<InMemoryJoin>(), registered<Accumulator>(),
};

constexpr bool comesBefore(const Registration& a, const Registration& b) {
    return a.index < b.index;
}

static_assert(std::is_sorted(std::begin(registrations), std::end(registrations), comesBefore));

} // namespace

ActionItem* newPrototype(unsigned index) {
    const Registration wanted{static_cast<ActionIndex>(index), nullptr};
    const auto* const found =
        std::lower_bound(std::begin(registrations), std::end(registrations), wanted, comesBefore);
    if (found == std::end(registrations) || found->index != wanted.index)
        return nullptr;
    return found->make(XMLNode::emptyNode(), nullptr);
}

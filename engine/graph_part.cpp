#include "engine/graph_part.h"

#include <pthread.h>

namespace velmorra {

namespace {

// A pull goes down the whole chain of boxes on the stack.
constexpr size_t stackBytes = 16 << 20;
constexpr size_t stackBytesPerBox = 32 << 10;

/// The boxes that lie upstream of `target`, itself among them, and whether each has to run in full.
struct Upstream {
    std::vector<bool> included;
    std::vector<bool> full;

    Upstream(const Graph& graph, int target, PartKind kind)
        : included(graph.boxes().size(), false),
          full(graph.boxes().size(), false) {
        std::vector<std::vector<const Link*>> inputs(graph.boxes().size());
        for (const Link& link : graph.links())
            inputs[static_cast<size_t>(link.to)].push_back(&link);
        included[static_cast<size_t>(target)] = true;
        full[static_cast<size_t>(target)] = kind == PartKind::Rows;
        std::vector<int> open = {target};
        while (!open.empty()) {
            const auto box = static_cast<size_t>(open.back());
            open.pop_back();
            for (const Link* const link : inputs[box]) {
                const auto from = static_cast<size_t>(link->from);
                const bool whole = full[box] || graph.boxes()[box]->needsFullTable(link->in);
                if (included[from] && (full[from] || !whole))
                    continue;
                included[from] = true;
                full[from] = full[from] || whole;
                open.push_back(link->from);
            }
        }
    }
};

} // namespace

GraphPart::GraphPart(const Graph& whole, int box, PartKind kind) {
    for (const auto& [name, value] : whole.parameters.parameters())
        graph.parameters.set(name, value);
    graph.parameters.setGraphFolder(whole.parameters.graphFolder());
    graph.parameters.fileVersion = whole.parameters.fileVersion;
    const Upstream upstream(whole, box, kind);
    std::vector<int> place(whole.boxes().size(), -1);
    for (size_t i = 0; i < whole.boxes().size(); ++i) {
        if (!upstream.included[i])
            continue;
        std::unique_ptr<ActionItem> copy(whole.boxes()[i]->clone(&graph.parameters));
        if (!copy) {
            error = boxTitle(*whole.boxes()[i]) + QLatin1String(": can't be copied");
            return;
        }
        place[i] = graph.addBox(std::move(copy));
        full.push_back(upstream.full[i]);
    }
    for (const Link& link : whole.links()) {
        const int to = place[static_cast<size_t>(link.to)];
        if (to >= 0)
            graph.addLink({place[static_cast<size_t>(link.from)], link.out, to, link.in});
    }
    target = place[static_cast<size_t>(box)];
}

void runWithStack(size_t boxes, std::function<void()> work) {
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    pthread_attr_setstacksize(&attributes, stackBytes + stackBytesPerBox * boxes);
    pthread_t thread;
    const auto entry = [](void* argument) -> void* {
        (*static_cast<std::function<void()>*>(argument))();
        return nullptr;
    };
    const int failed = pthread_create(&thread, &attributes, entry, &work);
    pthread_attr_destroy(&attributes);
    if (failed != 0)
        work();
    else
        pthread_join(thread, nullptr);
}

} // namespace velmorra

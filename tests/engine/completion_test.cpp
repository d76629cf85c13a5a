/// How much has been read, as an Action sees it that reads all of its pins.
#include "engine/run.h"
#include "tests/engine/scripted_box.h"

#include <gtest/gtest.h>

using namespace velmorra;
using namespace velmorra::test;

namespace {

/// A source of three Keys that says how much of it was read.
class ToldSource : public ScriptedBox {
public:
    ToldSource(float completion, GlobalParameters* parameters)
        : ScriptedBox(keys(3), parameters),
          completion_(completion) {}
    float computeCompletion() override { return completion_; }

private:
    float completion_;
};

} // namespace

TEST(Completion, isTheShareOfAllSourcesUpstreamEachCountedOnce) {
    Graph graph;
    const auto addSource = [&](float completion) {
        return graph.addBox(std::make_unique<ToldSource>(completion, &graph.parameters));
    };
    float seen = -1;
    Script all{.pinsIn = 4, .pinsOut = 0, .step = nullptr};
    all.step = [&](ScriptedBox& box) {
        seen = completionIsSumOfAllCompletions(&box);
        return true;
    };
    const int half = addSource(0.5F);
    const int whole = addSource(1);
    int chain = half;
    // Both ways of each diamond lead to the same source; walking all ways would never end.
    for (int i = 0; i < 100; ++i) {
        Script two = pass();
        two.pinsIn = 2;
        const int next = addScript(graph, two);
        graph.addLink({chain, 0, next, 0});
        graph.addLink({chain, 0, next, 1});
        chain = next;
    }
    const int sink = addScript(graph, all);
    graph.addLink({chain, 0, sink, 0});
    graph.addLink({half, 0, sink, 1});
    graph.addLink({whole, 0, sink, 3}); // nothing leads to pin 2
    EXPECT_EQ(completionIsSumOfAllCompletions(graph.boxes().back().get()), 0);
    KeptMessages messages;
    EXPECT_EQ(velmorra::Run(graph, messages).execute(), RunOutcome::Done);
    EXPECT_EQ(seen, 0.75F);
}

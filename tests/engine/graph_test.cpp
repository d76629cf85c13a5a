#include "engine/graph.h"

#include "tests/engine/scripted_box.h"

#include <gtest/gtest.h>

using namespace velmorra;
using namespace velmorra::test;

namespace {

std::vector<std::string> problems(const Graph& graph) {
    std::vector<std::string> texts;
    for (const GraphProblem& problem : graph.checkWiring())
        texts.push_back(problem.text.toStdString());
    return texts;
}

} // namespace

TEST(GraphWiring, namesTheBoxOfEveryLinkThatCanNotBe) {
    Graph graph;
    const int source = addScript(graph, keys(1));
    const int box = addScript(graph, pass());
    graph.addLink({source, 1, box, 0});
    graph.addLink({source, 0, box, 0});
    graph.addLink({source, 0, box, 7});
    EXPECT_EQ(problems(graph),
              (std::vector<std::string>{
                  "box 1 (Scripted): a link leaves output pin 1, but the box has only pin 0",
                  "box 2 (Scripted): input pin 0 has two links",
                  "box 2 (Scripted): a link leads to input pin 7, but the box has only pin 0"}));
}

TEST(GraphWiring, aLoopNamesABoxThatIsOnIt) {
    Graph graph;
    const int source = addScript(graph, keys(1));
    const int before = addScript(graph, pass());
    const int one = addScript(graph, pass());
    const int two = addScript(graph, pass());
    const int behind = addScript(graph, pass());
    graph.addLink({source, 0, before, 0});
    graph.addLink({two, 0, one, 0});
    graph.addLink({one, 0, two, 0});
    graph.addLink({two, 0, behind, 0});
    ASSERT_EQ(problems(graph).size(), 1u);
    EXPECT_TRUE(problems(graph)[0] == "box 3 (Scripted): the links make a loop through this box" ||
                problems(graph)[0] == "box 4 (Scripted): the links make a loop through this box");

    Graph self;
    const int box = addScript(self, pass());
    self.addLink({box, 0, box, 0});
    EXPECT_EQ(problems(self),
              std::vector<std::string>{"box 1 (Scripted): the links make a loop through this box"});
}

TEST(GraphWiring, twoBoxesOfOneIdAreRefused) {
    Graph graph;
    for (int i = 0; i < 2; ++i) {
        auto box = std::make_unique<ScriptedBox>(pass(), &graph.parameters);
        box->boxId = QStringLiteral("a");
        graph.addBox(std::move(box));
    }
    EXPECT_EQ(problems(graph),
              std::vector<std::string>{"box a (Scripted): another box has the same id"});
}

TEST(GraphWiring, aBoxWithPinsBeyondMeasureIsRefused) {
    Graph graph;
    addScript(graph, pass());
    Script many = pass();
    many.pinsIn = 2'000'000'000;
    addScript(graph, many);
    EXPECT_EQ(problems(graph),
              std::vector<std::string>{"box 2 (Scripted): it has 2000000000 input pins; at most "
                                       "1048576 are possible in a graph"});
}

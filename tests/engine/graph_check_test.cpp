// What is found out about boxes before a run: columns, problems, and the order that would help.
#include "engine/graph_check.h"
#include "engine/run.h"
#include "scripted_box.h"

#include <gtest/gtest.h>

using namespace velmorra;
using namespace velmorra::test;

namespace {

/// A source of rows without end, with columns x (Key), y (text) and z (Float).
Script endless() {
    Script script{.pinsIn = 0, .pinsOut = 1, .step = nullptr};
    script.step = [](ScriptedBox& box) {
        OneRow& out = *box.getOutputRowForOutputPin(0);
        if (out.isFresh()) {
            PinOutMetaData shape;
            shape.names = {"x", "y", "z"};
            shape.types = {MetaInfo(MetaTypeKey, -1), MetaInfo(MetaTypeText, -1),
                           MetaInfo(MetaTypeFloat, -1)};
            out.setShape(shape);
        }
        ++box.steps;
        box.setRowReadyForOutput(0);
        return false;
    };
    return script;
}

/// Passes rows on that are declared to be sorted as `order` says; else it fails with `message`.
Script wantsOrder(const QVector<SortInfos>& order, const char* message, int pins = 1) {
    Script script{.pinsIn = pins, .pinsOut = 1, .step = nullptr};
    script.step = [order, message, pins](ScriptedBox& box) {
        for (int pin = 0; pin < pins; ++pin) {
            const OneRow* const row = box.getNextRowFromInPin(pin);
            if (row == nullptr)
                return true;
            if (pin == pins - 1 && row->sortInfos() != order)
                return box.fail(QString::fromUtf8(message));
            box.getOutputRowForOutputPin(0)->copyFrom(*row);
        }
        box.setRowReadyForOutput(0);
        return true;
    };
    return script;
}

std::string adviceOf(const QVector<SortInfos>& order, const char* message, int pins = 1) {
    Graph graph;
    const int box = addScript(graph, wantsOrder(order, message, pins));
    for (int pin = 0; pin < pins; ++pin)
        graph.addLink({addScript(graph, endless()), 0, box, pin});
    const GraphLook look = lookAt(graph);
    if (look.problems.size() != 1 || look.problems[0].box != box)
        return "not one problem of the box";
    return look.problems[0].advice.toStdString();
}

} // namespace

TEST(GraphCheck, tellsTheOrderThatIsMissing) {
    EXPECT_EQ(adviceOf({{0, '0'}}, "ERROR: the input table is not sorted on column 'x'.\n"),
              "put a Sort by=x:0 in front of pin 0");
    EXPECT_EQ(adviceOf({{1, 'A'}}, "ERROR: table on Pin 1 is not sorted on column 'y'.\n", 2),
              "put a Sort by=y:A in front of pin 1");
    EXPECT_EQ(adviceOf({{2, 'A'}}, "'z' must be sorted"), "put a Sort by=z:A in front of pin 0");
    EXPECT_EQ(adviceOf({{0, '0'}}, "must be sorted on first column"),
              "put a Sort by=x:0 in front of pin 0");
    EXPECT_EQ(adviceOf({{2, '0'}, {1, 'A'}}, "not sorted on 'z', 'y'"),
              "put a Sort by=z:0,y:A in front of pin 0");
    // No order helps: nothing is promised.
    EXPECT_EQ(adviceOf({{0, 'I'}}, "not sorted on column 'x'"), "");
}

TEST(GraphCheck, mutesOnlyWhatHangsOnABoxThatFails) {
    Graph graph;
    Script failing{.pinsIn = 0, .pinsOut = 1, .step = nullptr};
    failing.step = [](ScriptedBox& box) { return box.fail(QStringLiteral("no such file\n")); };
    Script complaining{.pinsIn = 1, .pinsOut = 1, .step = nullptr};
    complaining.step = [](ScriptedBox& box) {
        return box.getNextRowFromInPin(0) == nullptr || box.fail(QStringLiteral("bad column"));
    };
    Script refusing{.pinsIn = 1, .pinsOut = 0, .step = [](ScriptedBox&) { return true; }};
    refusing.before = [](ScriptedBox& box) { return box.fail(QStringLiteral("bad setting")); };

    const int broken = addScript(graph, failing);
    const int muted = addScript(graph, complaining);
    const int refused = addScript(graph, refusing);
    const int sound = addScript(graph, endless());
    const int told = addScript(graph, complaining);
    graph.addLink({broken, 0, muted, 0});
    graph.addLink({muted, 0, refused, 0});
    graph.addLink({sound, 0, told, 0});
    const GraphLook look = lookAt(graph);
    ASSERT_EQ(look.problems.size(), 3);
    EXPECT_EQ(look.problems[0].text, "no such file");
    EXPECT_EQ(look.problems[1].box, refused) << "settings don't hang on columns";
    EXPECT_EQ(look.problems[2].box, told);
    EXPECT_FALSE(look.columns[static_cast<size_t>(muted)][0]);
    ASSERT_TRUE(look.columns[static_cast<size_t>(sound)][0]);
    EXPECT_EQ(look.columns[static_cast<size_t>(sound)][0]->names,
              (QVector<QString>{"x", "y", "z"}));

    EXPECT_EQ(lookAt(graph, {}, sound).problems.size(), 0) << "only what lies upstream";
    EXPECT_EQ(lookAt(graph, {{told, 0}}).problems.size(), 2) << "a pin that was cut is unknown";
}

TEST(GraphCheck, aBoxThatNeverEndsOrThrowsIsNoTrap) {
    Graph graph;
    Script idle{.pinsIn = 0, .pinsOut = 1, .step = [](ScriptedBox&) { return false; }};
    Script throwing{.pinsIn = 0, .pinsOut = 1, .step = nullptr};
    throwing.step = [](ScriptedBox&) -> bool { throw std::runtime_error("oh"); };
    addScript(graph, idle);
    addScript(graph, throwing);
    const GraphLook look = lookAt(graph);
    ASSERT_EQ(look.problems.size(), 2);
    EXPECT_EQ(look.problems[0].level, 2) << "its columns can't be told";
    EXPECT_EQ(look.problems[1].text, "unexpected error: oh");
}

#include "engine/run.h"

#include "tests/engine/scripted_box.h"

#include <gtest/gtest.h>

#include <numeric>
#include <thread>

using namespace velmorra;
using namespace velmorra::test;

namespace {

std::vector<quint32> range(quint32 count) {
    std::vector<quint32> keysOf(count);
    std::iota(keysOf.begin(), keysOf.end(), 0u);
    return keysOf;
}

/// Takes all of pin 1, then all of pin 0, and hands both on.
Script secondPinFirst() {
    Script script{.pinsIn = 2, .pinsOut = 1, .step = nullptr};
    script.step = [](ScriptedBox& box) {
        const OneRow* in = box.state == 0 ? box.getNextRowFromInPin(1) : nullptr;
        if (in == nullptr) {
            box.state = 1;
            in = box.getNextRowFromInPin(0);
        }
        if (in == nullptr)
            return true;
        box.getOutputRowForOutputPin(0)->copyFrom(*in);
        box.setRowReadyForOutput(0);
        return false;
    };
    script.before = [](ScriptedBox& box) { return box.state = 0; };
    return script;
}

/// Runs every graph twice: as it is, and with every row going through the temporary file.
class RunTest : public testing::TestWithParam<bool> {
protected:
    RunTest() {
        options.spoolEveryWire = GetParam();
        if (GetParam()) {
            options.spoolMemory = 0;
            options.spoolBlock = 64;
        }
    }

    RunOutcome run() {
        velmorra::Run running(graph, messages, options);
        return running.execute();
    }

    int add(const Script& script) { return addScript(graph, script); }
    void link(int from, int to, int out = 0, int in = 0) { graph.addLink({from, out, to, in}); }
    /// Adds a box behind pin 0 of another one.
    int behind(int from, const Script& script, int out = 0) {
        const int added = add(script);
        link(from, added, out);
        return added;
    }
    /// Both pins of a box that reads the second one first, behind these.
    int joined(int left, int right, int rightOut = 0) {
        const int join = behind(left, secondPinFirst());
        link(right, join, rightOut, 1);
        return join;
    }

    Graph graph;
    KeptMessages messages;
    RunOptions options;
    std::vector<quint32> first;
    std::vector<quint32> second;
};

/// Even Keys on pin 0, odd ones on pin 1, multiples of ten on both.
Script deal() {
    Script script{.pinsIn = 1, .pinsOut = 2, .step = nullptr};
    script.step = [](ScriptedBox& box) {
        const OneRow* const in = box.getNextRowFromInPin(0);
        if (in == nullptr)
            return true;
        const quint32 key = cell::loadKey(in->cells[0]);
        for (int pin = 0; pin < 2; ++pin) {
            OneRow& out = *box.getOutputRowForOutputPin(pin);
            out.copyFrom(*in);
            if (key % 2 == static_cast<quint32>(pin) || key % 10 == 0)
                box.setRowReadyForOutput(pin);
        }
        return false;
    };
    return script;
}

} // namespace

TEST_P(RunTest, aRunOfThousandsOfBoxesDeepEnds) {
    int last = add(keys(3));
    for (int i = 0; i < Graph::maxBoxes - 2; ++i)
        last = behind(last, pass());
    behind(last, collect(first));
    ASSERT_TRUE(graph.checkWiring().isEmpty());
    EXPECT_EQ(run(), RunOutcome::Done);
    EXPECT_EQ(first, range(3));
}

TEST_P(RunTest, aSplitThatJoinsAgainLosesNothingWhenOneSideIsReadFirst) {
    const int source = add(keys(3000));
    behind(joined(behind(source, pass()), behind(source, pass())), collect(first));
    EXPECT_EQ(run(), RunOutcome::Done);
    std::vector<quint32> expected = range(3000);
    expected.insert(expected.end(), first.begin(), first.begin() + 3000);
    EXPECT_EQ(first, expected);
}

TEST_P(RunTest, outputPinsOfOneBoxRunAtTheirOwnSpeed) {
    const int dealer = behind(add(keys(100)), deal());
    behind(joined(dealer, dealer, 1), collect(first));
    EXPECT_EQ(run(), RunOutcome::Done);
    ASSERT_EQ(first.size(), 110u);
    EXPECT_EQ(first[0], 0u);
    EXPECT_EQ(first[1], 1u);
    EXPECT_EQ(first[60], 0u);
    EXPECT_EQ(first.back(), 98u);
}

TEST_P(RunTest, aSinkThatHasEnoughEndsAnEndlessSource) {
    behind(add(keys(-1)), collect(first, 10));
    EXPECT_EQ(run(), RunOutcome::Done);
    EXPECT_EQ(first, range(10));
}

TEST_P(RunTest, aBranchThatEndedEarlyHoldsNoRowsForItsSake) {
    const int source = add(keys(200000));
    behind(behind(source, pass()), collect(first, 5));
    behind(source, collect(second));
    // Far too little for the rows that the first branch leaves unread.
    options.spoolMemory = 0;
    options.spoolBlock = 64;
    options.spoolFileLimit = 100 * 1024;
    EXPECT_EQ(run(), RunOutcome::Done);
    EXPECT_EQ(first, range(5));
    EXPECT_EQ(second, range(200000));
    EXPECT_TRUE(messages.lines.empty()) << messages.lines[0];
}

TEST_P(RunTest, aTemporaryFileThatIsFullOrCanNotBeFailsTheRunWithAMessage) {
    const int source = add(keys(200000));
    behind(joined(source, source), collect(first));
    options.spoolMemory = 0;
    options.spoolBlock = 4096;
    options.spoolFileLimit = 100 * 1024;
    EXPECT_EQ(run(), RunOutcome::Failed);
    options.temporaryFolder = QStringLiteral("/nonexistent/folder");
    EXPECT_EQ(run(), RunOutcome::Failed);
    ASSERT_EQ(messages.lines.size(), 2u);
    EXPECT_NE(messages.lines[0].find("limit of 102400 bytes"), std::string::npos);
    EXPECT_NE(messages.lines[1].find("/nonexistent/folder"), std::string::npos);
}

TEST_P(RunTest, unconnectedPinsAreEmptyTablesAndDroppedRows) {
    behind(add(secondPinFirst()), collect(first));
    add(keys(100));                                         // its rows go nowhere
    behind(behind(add(keys(50)), deal()), collect(second)); // nor those of pin 1
    EXPECT_EQ(run(), RunOutcome::Done);
    EXPECT_TRUE(first.empty());
    EXPECT_EQ(second.size(), 25u);
}

TEST_P(RunTest, theRowOfAStepThatEndsIsDelivered) {
    Script last = pass();
    last.step = [](ScriptedBox& box) {
        box.getOutputRowForOutputPin(0)->copyFrom(*box.getNextRowFromInPin(0));
        box.setRowReadyForOutput(0);
        return true;
    };
    const int source = add(keys(100));
    behind(behind(source, last), collect(first));
    behind(source, collect(second));
    EXPECT_EQ(run(), RunOutcome::Done);
    EXPECT_EQ(first, range(1));
    EXPECT_EQ(second, range(100));
}

TEST_P(RunTest, aFailureEndsEveryBranchAndAfterRunAlwaysComes) {
    int ended = 0;
    const auto count = [&](ScriptedBox&) { ++ended; };
    Script failing = pass();
    failing.step = [](ScriptedBox& box) {
        return box.getNextRowFromInPin(0) == nullptr || (++box.steps > 10 && box.fail("broken\n"));
    };
    Script watched = collect(first);
    failing.after = watched.after = count;
    const int source = add(keys(-1));
    behind(source, failing);
    behind(source, watched);
    EXPECT_EQ(run(), RunOutcome::Failed);
    EXPECT_EQ(ended, 2);
    EXPECT_EQ(messages.lines, std::vector<std::string>{"[1] 2: broken\n"});
    // A refusal runs nothing.
    Script refusing = collect(second);
    refusing.before = [](ScriptedBox&) { return true; };
    refusing.after = count;
    behind(source, refusing);
    EXPECT_EQ(run(), RunOutcome::Failed);
    EXPECT_EQ(ended, 5);
    EXPECT_TRUE(second.empty());
}

TEST_P(RunTest, anExceptionOfABoxBecomesAMessageThatNamesIt) {
    Script hungry = pass();
    hungry.step = [](ScriptedBox&) -> bool { throw std::bad_alloc(); };
    behind(behind(add(keys(10)), hungry), collect(first));
    EXPECT_EQ(run(), RunOutcome::Failed);
    EXPECT_EQ(messages.lines, std::vector<std::string>{"[1] 2: Scripted: Memory Allocation Error"});
}

TEST_P(RunTest, aCancelEndsAnEndlessRunSoonAndSilently) {
    const int source = add(keys(-1));
    Script counting = collect(first);
    counting.step = [](ScriptedBox& box) { return box.getNextRowFromInPin(0) == nullptr; };
    behind(behind(source, pass()), counting);
    Script draining = counting; // drains its pin within one step, as an index build does
    draining.step = [](ScriptedBox& box) {
        while (box.getNextRowFromInPin(0) != nullptr) {
        }
        return box.fail(QStringLiteral("the input ended"));
    };
    behind(source, draining);
    velmorra::Run running(graph, messages, options);
    std::chrono::steady_clock::time_point cancelled;
    std::thread canceller([&] {
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
        cancelled = std::chrono::steady_clock::now();
        running.cancel();
    });
    EXPECT_EQ(running.execute(), RunOutcome::Cancelled);
    const auto taken = std::chrono::steady_clock::now() - cancelled;
    canceller.join();
    EXPECT_LT(taken, std::chrono::milliseconds(200));
    EXPECT_TRUE(messages.lines.empty());
}

INSTANTIATE_TEST_SUITE_P(DirectAndSpooled, RunTest, testing::Bool(),
                         [](const auto& tested) { return tested.param ? "spooled" : "direct"; });

namespace {

/// Passes rows on, but sets its columns up only on the first row, as Actions do; the output has a
/// column more. `pin 1` names go behind, read on the first row.
Script widen() {
    Script script{.pinsIn = 2, .pinsOut = 1, .step = nullptr, .wholePins = true};
    script.step = [](ScriptedBox& box) {
        const OneRow* const in = box.getNextRowFromInPin(0);
        if (in == nullptr)
            return true;
        OneRow& out = *box.getOutputRowForOutputPin(0);
        if (out.isFresh()) {
            out.copyFrom(*in);
            int more = 0;
            while (box.getNextRowFromInPin(1) != nullptr)
                ++more;
            out.setNumberOfColumns(in->columns + more);
            for (int i = 0; i < more; ++i)
                out.setColName(in->columns + i, QStringLiteral("new%1").arg(i));
        }
        out.copyFrom(*in);
        box.setRowReadyForOutput(0);
        return !box.mustComputeFull();
    };
    return script;
}

/// Keeps the columns of its pin, asked for at the end.
Script columnsAtEnd(PinOutMetaData& columns) {
    Script script{.pinsIn = 1, .pinsOut = 0, .step = nullptr};
    script.step = [&columns](ScriptedBox& box) {
        while (box.getNextRowFromInPin(0) != nullptr) {
        }
        if (const PinOutMetaData* const found = box.columnsOfInPin(0))
            columns = *found;
        return true;
    };
    return script;
}

} // namespace

TEST(EmptyTables, keepTheirColumnsAlongAChain) {
    for (const int extra : {0, 3}) {
        Graph graph;
        KeptMessages messages;
        PinOutMetaData columns;
        const int source = addScript(graph, keys(0));
        const int names = addScript(graph, keys(extra));
        const int one = addScript(graph, widen());
        const int two = addScript(graph, widen());
        const int sink = addScript(graph, columnsAtEnd(columns));
        graph.addLink({source, 0, one, 0});
        graph.addLink({names, 0, one, 1});
        graph.addLink({one, 0, two, 0});
        graph.addLink({names, 0, two, 1});
        graph.addLink({two, 0, sink, 0});
        velmorra::Run running(graph, messages);
        EXPECT_EQ(running.execute(), RunOutcome::Done);
        EXPECT_EQ(columns.names.size(), 1 + 2 * extra);
        EXPECT_EQ(columns.types.value(0).type, MetaTypeKey);
        EXPECT_TRUE(messages.lines.empty());
        EXPECT_EQ(columnsOfPin(graph, two, 0).shape, columns);
    }
}

TEST(EmptyTables, aProbeThatFailsIsOneWarning) {
    Graph graph;
    KeptMessages messages;
    PinOutMetaData columns;
    Script failing = pass();
    failing.step = [](ScriptedBox& box) {
        return box.getNextRowFromInPin(0) == nullptr || box.fail(QStringLiteral("no column 'x'\n"));
    };
    const int source = addScript(graph, keys(0));
    const int box = addScript(graph, failing);
    graph.addLink({source, 0, box, 0});
    graph.addLink({box, 0, addScript(graph, columnsAtEnd(columns)), 0});
    velmorra::Run running(graph, messages);
    EXPECT_EQ(running.execute(), RunOutcome::Done);
    EXPECT_TRUE(columns.names.isEmpty());
    EXPECT_EQ(messages.lines,
              std::vector<std::string>{"[2] 2: the columns of its empty table can't be told: "
                                       "no column 'x'"});
}

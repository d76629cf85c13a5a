/// How a master and its copies meet and part, step by step, for the Actions whose copies take what
/// the master resolved. Runs with real work and many threads are the matter of the cases.
#include "tests/plugin/hand_driven.h"
#include "tests/plugin/loaded_plugin.h"

#include <gtest/gtest.h>

#include <chrono>
#include <future>
#include <thread>

namespace {

using namespace std::chrono_literals;

struct Scene {
    const char* name;
    ActionIndex index;
    const char* element;       ///< on a table with the columns a and b
    const char* failing;       ///< the same, asking for a column that isn't there
    QStringList names;         ///< of the output, with one more column from pin 1
    QStringList row;           ///< for the row 1, 2
    QVector<QStringList> pin1; ///< of two columns
};

const Scene scenes[] = {
    {"select",
     ActionIndex::SelectColumns,
     "<SelectColumns><s>b</s></SelectColumns>",
     "<SelectColumns><s>nowhere</s></SelectColumns>",
     {"b", "a"},
     {"2", "1"},
     {{"a", ""}}},
    {"rename",
     ActionIndex::ColumnRename,
     "<ColumnRename><before><s>b</s></before><after><s>B</s></after></ColumnRename>",
     "<ColumnRename addMissingColumns='0'><before><s>nowhere</s></before><after><s>x</s></after>"
     "</ColumnRename>",
     {"a", "B", "new"},
     {"1", "2", QString()},
     {{"missing", "new"}}},
};

class ParallelCopies : public testing::TestWithParam<Scene> {
protected:
    std::unique_ptr<ActionItem> box(const char* element) {
        return boxFrom(GetParam().index, element, parameters);
    }

    TablePin rows() { return {{"a", "b"}, {{"1", "2"}}}; }

    GlobalParameters parameters;
    TablePin settings{{"first", "second"}, GetParam().pin1};
    TablePin noSettings{{"first", "second"}, {}};
};

TEST_P(ParallelCopies, aMasterWithoutRowsLetsThemGo) {
    HandDriven master(box(GetParam().failing));
    HandDriven copy(box(GetParam().failing), &master);
    TablePin none({"a", "b"}, {});
    TablePin alsoNone({"a", "b"}, {});
    ASSERT_FALSE(master.begin({&none, &settings}));
    ASSERT_FALSE(copy.begin({&alsoNone, &noSettings}));
    EXPECT_TRUE(master.step());
    EXPECT_EQ(master.group().metaReady.available(), ParallelGroup::metaPermits);
    EXPECT_EQ(settings.read, 0);
    EXPECT_TRUE(copy.step());
    EXPECT_TRUE(master.messages().isEmpty());
    copy.afterRun();
    master.afterRun();
}

TEST_P(ParallelCopies, finishWhenTheRunIsCancelledBeforeTheMasterStarts) {
    HandDriven master(box(GetParam().element));
    HandDriven copy(box(GetParam().element), &master);
    TablePin masterRows = rows();
    TablePin copyRows = rows();
    ASSERT_FALSE(master.begin({&masterRows, &settings}));
    ASSERT_FALSE(copy.begin({&copyRows, &noSettings}));

    auto copied = std::async(std::launch::async, [&] { return copy.step(); });
    std::this_thread::sleep_for(10ms);
    parameters.runStatus.endAs(RunStatus::Cancelled);
    ASSERT_EQ(copied.wait_for(2s), std::future_status::ready);
    EXPECT_TRUE(copied.get());
    copy.afterRun();
    master.afterRun();
}

TEST_P(ParallelCopies, tellTheirMasterOncePerRunThatTheyAreDone) {
    HandDriven master(box(GetParam().element));
    HandDriven copy(box(GetParam().element), &master);
    for (int run = 0; run < 2; ++run) {
        TablePin none({"a", "b"}, {});
        ASSERT_FALSE(copy.begin({&none, &noSettings}));
        ASSERT_FALSE(master.begin({&none, &noSettings}));
        auto parted = std::async(std::launch::async, [&] { return master.afterRun(); });
        EXPECT_EQ(parted.wait_for(20ms), std::future_status::timeout);
        copy.afterRun();
        copy.afterRun();
        EXPECT_FALSE(parted.get());
        EXPECT_EQ(master.group().workersDone.available(), 0);
        EXPECT_FALSE(master.afterRun());
    }
}

INSTANTIATE_TEST_SUITE_P(Actions, ParallelCopies, testing::ValuesIn(scenes),
                         [](const auto& scene) { return std::string(scene.param.name); });

} // namespace

TEST(CancelledRun, whilePin1IsReadSaysNothingMore) {
    struct CancellingPin : TablePin {
        CancellingPin(const QStringList& names, RunStatus& status)
            : TablePin(names, {}),
              runStatus(status) {
            fetch = [](InPin& pin) -> const OneRow* {
                static_cast<CancellingPin&>(pin).runStatus.endAs(RunStatus::Cancelled);
                return nullptr;
            };
        }
        RunStatus& runStatus;
    };
    GlobalParameters parameters;
    // With the names on pin 1 unread, there would be no columns to output.
    HandDriven run(boxFrom(ActionIndex::SelectColumns, "<SelectColumns/>", parameters));
    TablePin rows({"a"}, {{"1"}});
    CancellingPin names({"name"}, parameters.runStatus);
    ASSERT_FALSE(run.begin({&rows, &names}));
    EXPECT_TRUE(run.step());
    EXPECT_TRUE(run.messages().isEmpty());
    EXPECT_EQ(parameters.runStatus, RunStatus::Cancelled);
    EXPECT_EQ(run.action().stepBudget, 10);
    run.afterRun();
}

TEST(ColumnRenameElement, defaultsByTheVersionOfTheGraph) {
    const char* const element = "<ColumnRename><before><s>a</s><s>b</s></before>"
                                "<after><s>b</s><s>c</s></after></ColumnRename>";
    for (const auto& [version, names] :
         {std::pair(3.86, QStringList({"c", "b"})), std::pair(3.87, QStringList({"b", "c"}))}) {
        GlobalParameters parameters;
        parameters.fileVersion = version;
        HandDriven run(boxFrom(ActionIndex::ColumnRename, element, parameters));
        TablePin rows({"a", "b"}, {{"1", "2"}});
        TablePin none({"before", "after"}, {});
        ASSERT_FALSE(run.begin({&rows, &none}));
        EXPECT_FALSE(run.step());
        EXPECT_EQ(run.output().shape().names, names) << version;
        run.afterRun();
    }
}

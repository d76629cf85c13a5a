/// What table shaping does that a case file can't say: pins that are added and removed, counters at
/// the end of their numbers, and orders that no file declares.
#include "tests/plain_box.h"
#include "tests/plugin/hand_driven.h"
#include "tests/plugin/loaded_plugin.h"

#include <gtest/gtest.h>

namespace {

class Shaping : public testing::Test {
protected:
    std::unique_ptr<ActionItem> made(ActionIndex index, const char* element) {
        return boxFrom(index, element, parameters);
    }
    GlobalParameters parameters;
};

using Append = Shaping;
using InsertKey = Shaping;
using Flatten = Shaping;
using Unflatten = Shaping;

/// A pin that hands out one and the same row, so many times.
struct RepeatingPin : InPin {
    OneRow row;
    int left;

    RepeatingPin(const PinOutMetaData& shape, int times) : left(times) {
        row.setShape(shape);
        fetch = [](InPin& pin) -> const OneRow* {
            auto& self = static_cast<RepeatingPin&>(pin);
            return self.left-- > 0 ? &self.row : nullptr;
        };
    }
};

PinOutMetaData shapeOf(const QStringList& names, const QVector<SortInfos>& sort = {}) {
    return {names, QVector<MetaInfo>(names.size()), sort};
}

} // namespace

TEST_F(Append, KeepsAtLeastTwoPins) {
    const auto action = made(ActionIndex::Append, "<Append nPinIn='2'/>");
    EXPECT_TRUE(action->pinsEditable);
    action->removePinIn();
    EXPECT_EQ(action->nPinIn, 2);
    action->addPinIn();
    EXPECT_EQ(action->nPinIn, 3);
    action->removePinIn();
    EXPECT_EQ(action->nPinIn, 2);
}

TEST_F(InsertKey, AKeyCounterStartsAgainBehindTheNullKey) {
    auto action = made(ActionIndex::InsertKey, "<InsertKey isInfinite='1'/>");
    EXPECT_EQ(action->nPinIn, 0);
    // No file holds a start beyond 2^31, but a run of many rows comes there.
    for (const StoredAttribute& attribute : action->storedElement().attributes()) {
        if (std::string_view(attribute.name) == "startCount")
            *static_cast<qint64*>(attribute.member(action.get())) = 0xFFFFFFFE;
    }
    HandDriven driven(std::move(action));
    for (int run = 0; run < 2; ++run) {
        EXPECT_FALSE(driven.begin({}));
        for (const quint32 expected : {0xFFFFFFFEu, cell::nullKey, 0u, 1u}) {
            EXPECT_FALSE(driven.step());
            EXPECT_EQ(cell::loadKey(driven.output().cells[0]), expected);
        }
        driven.afterRun();
    }
}

TEST_F(Flatten, AnOrderOfNoKnownKindFailsOnlyWhereItIsChecked) {
    for (const bool checks : {true, false}) {
        parameters.runStatus = RunStatus::Running;
        HandDriven driven(
            made(ActionIndex::Flatten, checks ? "<Flatten key='k' category='c'/>"
                                              : "<Flatten key='k' category='c' checkSort='0'/>"));
        RepeatingPin rows(shapeOf({"c", "k"}, {{1, 'x'}, {0, 'A'}}), 1);
        RepeatingPin categories(shapeOf({"c"}), 1);
        EXPECT_FALSE(driven.begin({&rows, &categories}));
        EXPECT_TRUE(driven.step());
        EXPECT_EQ(driven.action().actionFailed, checks);
        if (checks)
            EXPECT_EQ(driven.messages(), QStringList{"ERROR: unsupported sort-type."});
        else
            EXPECT_EQ(driven.output().sortInfos(), (QVector<SortInfos>{{0, 'x'}}));
        driven.afterRun();
    }
}

TEST_F(Flatten, SaysWhyItDoesNotRunInParallel) {
    const auto action = made(ActionIndex::Flatten, "<Flatten key='a%1'/>");
    velmorra::test::HeldLog kept;
    bool answer = true;
    EXPECT_EQ(action->canRunInParallel("b", &answer), 0);
    EXPECT_EQ(
        kept.master,
        QStringList{"[1] Error in 'flatten': Please select the column 'a%1' as partition-column "
                    "to be able to run 'flatten' in parallel."});
    EXPECT_FALSE(answer);
    EXPECT_TRUE(action->actionFailed);
}

TEST_F(Unflatten, NeedsAllOfPin1OnlyWhereTheFirstSetStandsThere) {
    EXPECT_TRUE(made(ActionIndex::Unflatten, "<Unflatten/>")->needsFullTable(1));
    EXPECT_FALSE(made(ActionIndex::Unflatten, "<Unflatten/>")->needsFullTable(0));
    EXPECT_FALSE(made(ActionIndex::Unflatten, "<Unflatten><sets><set name='a'/></sets></Unflatten>")
                     ->needsFullTable(1));
}

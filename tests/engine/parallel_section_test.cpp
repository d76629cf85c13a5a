/// Master and copies: order of the rows, hand-over of what the master resolved, and ends of a run.
#include "engine/parallel_section.h"

#include "tests/plain_box.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <thread>

namespace velmorra {

namespace {

/// What the test Action does at some moments of its life; empty ones do nothing.
struct Script {
    std::function<bool(ActionItem&)> onFirstRow; ///< of the master; true ends it
    std::function<void(ActionItem&, int row)> onRow;
    bool refuses = false;
    std::atomic<int> afterRuns{0};
    std::atomic<int> copiesMet{0};
};

/// Row by row: adds the sum of pin 1, which the master reads, to column 0, drops rows that divide
/// by 3, and hands on those that divide by 5 twice.
class AddLoaded : public test::PlainBox {
public:
    AddLoaded(Script& script, GlobalParameters* parameters)
        : PlainBox(XMLNode::emptyNode(), parameters),
          script_(script) {
        nPinIn = 2;
    }

    const char* actionName() const override { return "AddLoaded"; }
    ActionItem* clone(GlobalParameters* parameters) const override {
        return new AddLoaded(script_, parameters);
    }
    void rewindRun() override { setStep<&AddLoaded::firstStep>(); }
    bool beforeRun() override { return script_.refuses && fail(QStringLiteral("refused\n")); }
    bool afterRun() override {
        ++script_.afterRuns;
        if (isParallelCopy())
            parallelGroup->masterAction->parallelGroup->workersDone.release();
        else
            parallelGroup->workersDone.acquire(parallelGroup->workerCount);
        return false;
    }

private:
    bool firstStep() {
        const OneRow* const in = getNextRowFromInPin(0);
        bool ends = in == nullptr;
        if (!isParallelCopy()) {
            ends = ends || load(*in);
            parallelGroup->metaReady.release(ParallelGroup::metaPermits);
        } else if (!ends) {
            const auto* const master = static_cast<AddLoaded*>(parallelGroup->masterAction);
            master->parallelGroup->metaReady.acquire();
            if (!isRunning())
                return true;
            ++script_.copiesMet;
            loaded_ = master->loaded_;
            copyMetaFromMasterAction();
        }
        if (ends || !isRunning())
            return true;
        setStep<&AddLoaded::step>();
        return handle(*in);
    }

    bool load(const OneRow& in) {
        if (script_.onFirstRow && script_.onFirstRow(*this))
            return true;
        bool ok = false;
        while (const OneRow* const row = getNextRowFromInPin(1))
            loaded_ += static_cast<quint32>(row->colAsDouble(0, &ok));
        getOutputRowForOutputPin(0)->copyFrom(in);
        return false;
    }

    bool step() {
        const OneRow* const in = getNextRowFromInPin(0);
        return in == nullptr || handle(*in);
    }

    bool handle(const OneRow& in) {
        if (script_.onRow)
            script_.onRow(*this, rows_++);
        const quint32 value = cell::loadKey(in.cells[0]);
        if (value % 3 == 0)
            return false;
        cell::storeKey(sum_, value + loaded_);
        OneRow* const out = getOutputRowForOutputPin(0);
        out->copyFrom(in);
        out->setCol(0, sum_);
        setRowReadyForOutput(0);
        if (value % 5 == 0)
            setStep<&AddLoaded::again>();
        return false;
    }

    bool again() {
        setRowReadyForOutput(0);
        setStep<&AddLoaded::step>();
        return false;
    }

    Script& script_;
    uchar sum_[4] = {};
    quint32 loaded_ = 0; ///< sum of pin 1
    int rows_ = 0;
};

/// Rows (n, partition), n from 0, the partition being a letter of `letters`, or "a" for all.
PackedTable numbers(quint32 count, const char* letters = nullptr) {
    PackedTable table({{QStringLiteral("n"), QStringLiteral("p")},
                       {MetaInfo(MetaTypeKey, -1), MetaInfo(MetaTypeText, -1)},
                       {}});
    OneRow row;
    row.setShape(table.shape);
    for (quint32 i = 0; i < count; ++i) {
        RowBuffer buffer;
        uchar bytes[4];
        cell::storeKey(bytes, i);
        row.setCol(0, bytes);
        row.setColAsString(1, buffer, QString(QLatin1Char(letters == nullptr ? 'a' : letters[i])));
        table.append(row);
    }
    return table;
}

PackedTable partitioned(const char* letters) {
    return numbers(static_cast<quint32>(std::strlen(letters)), letters);
}

std::vector<quint32> firstColumn(const PackedTable& table) {
    std::vector<quint32> values;
    OneRow row;
    row.setShape(table.shape);
    for (size_t i = 0; i < table.rows(); ++i) {
        table.read(i, row);
        values.push_back(cell::loadKey(row.cells[0]));
    }
    return values;
}

/// A run of a test Action, once.
struct ScriptedRun {
    Script script;
    test::CollectedLog log;
    GlobalParameters parameters;

    ParallelResult run(const std::vector<const PackedTable*>& inputs,
                       const ParallelOptions& options) {
        WindowlessMainUI ui(log);
        AddLoaded master(script, &parameters);
        return runParallelSection(master, inputs, log, options);
    }
};

TEST(ParallelSections, RowsComeInTheOrderOfOneThreadWhateverTheWorkersAndBatches) {
    const PackedTable main = numbers(1000);
    const PackedTable other = numbers(5); // its sum is 10
    std::vector<quint32> expected;
    for (quint32 i = 0; i < 1000; ++i) {
        for (int times = i % 3 == 0 ? 0 : i % 5 == 0 ? 2 : 1; times > 0; --times)
            expected.push_back(i + 10);
    }
    for (const int copies : {0, 1, 2, 3, 7}) {
        for (const int batch : {1, 2, 33, 5000}) {
            ScriptedRun each;
            const auto result = each.run({&main, &other}, {copies, {}, batch});
            EXPECT_EQ(result.outcome, RunOutcome::Done);
            EXPECT_EQ(result.defect.toStdString(), "");
            EXPECT_EQ(firstColumn(result.outputs[0]), expected) << copies << ' ' << batch;
            EXPECT_EQ(each.script.afterRuns, copies + 1);
            EXPECT_EQ(each.script.copiesMet, batch == 5000 ? 0 : copies);
        }
    }
}

class ParallelSection : public testing::Test, public ScriptedRun {};

TEST_F(ParallelSection, RowsOfAPartitionThatComesBackKeepTheirPlaces) {
    const PackedTable main = partitioned("abcabbaacdabcddbaefgea");
    std::vector<quint32> expected;
    for (quint32 i = 0; i < main.rows(); ++i)
        expected.insert(expected.end(), i % 3 == 0 ? 0 : i % 5 == 0 ? 2 : 1, i);
    const auto result = run({&main}, {3, QStringLiteral("p"), 1});
    EXPECT_EQ(firstColumn(result.outputs[0]), expected);
}

TEST(ParallelSections, FailuresOfTheMasterAreSaidOnceAndReleaseWaitingCopies) {
    const PackedTable main = numbers(100);
    for (const char* const text : {"master failed", "not enough memory", "refused"}) {
        ScriptedRun each;
        each.script.onFirstRow = [&](ActionItem& master) {
            return text[0] == 'm' ? master.fail(QLatin1String(text)) : throw std::bad_alloc();
        };
        each.script.refuses = text[0] == 'r';
        EXPECT_EQ(each.run({&main}, {3, {}, 2}).outcome, RunOutcome::Failed);
        EXPECT_EQ(each.log.master, QStringList{QLatin1String("[1] ") + text});
        EXPECT_TRUE(each.log.copies.isEmpty());
        EXPECT_EQ(each.script.copiesMet, 0);
        EXPECT_EQ(each.script.afterRuns, each.script.refuses ? 1 : 4);
    }
}

TEST_F(ParallelSection, FailureInACopyEndsEveryoneAndItsMessageNamesTheCopy) {
    const PackedTable main = numbers(100000);
    script.onRow = [](ActionItem& action, int row) {
        if (action.isParallelCopy() && row == 10)
            action.fail(QStringLiteral("copy failed\n"));
    };
    const auto result = run({&main}, {1, {}, 2});
    EXPECT_EQ(result.outcome, RunOutcome::Failed);
    EXPECT_EQ(log.copies, QStringList{"[1] copy failed"});
    EXPECT_TRUE(log.master.isEmpty());
    EXPECT_EQ(script.afterRuns, 2);
}

TEST_F(ParallelSection, WorkersWithoutARowEndAndTheTableKeepsItsColumns) {
    const PackedTable none = numbers(0);
    const PackedTable one = numbers(2);
    auto result = run({&none}, {3, {}, 2});
    EXPECT_EQ(result.outcome, RunOutcome::Done);
    EXPECT_EQ(result.outputs[0].rows(), 0u);
    result = run({&one}, {3, {}, 1});
    EXPECT_EQ(result.outcome, RunOutcome::Done);
    EXPECT_EQ(firstColumn(result.outputs[0]), std::vector<quint32>{1});
    EXPECT_EQ(result.outputs[0].shape, one.shape);
    EXPECT_EQ(script.afterRuns, 8);
}

TEST_F(ParallelSection, CancellingEndsTheRunWhileCopiesWaitForTheMaster) {
    const PackedTable main = numbers(100);
    // The master's load goes on until it notices that the run is over.
    script.onFirstRow = [](ActionItem& action) {
        while (action.isRunning())
            std::this_thread::yield();
        return true;
    };
    std::thread canceller([&] {
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        parameters.runStatus.endAs(RunStatus::Cancelled);
    });
    const auto result = run({&main}, {3, {}, 2});
    canceller.join();
    EXPECT_EQ(result.outcome, RunOutcome::Cancelled);
    EXPECT_EQ(script.copiesMet, 0);
    EXPECT_EQ(script.afterRuns, 4);
    EXPECT_TRUE(log.master.isEmpty() && log.copies.isEmpty());
}

TEST_F(ParallelSection, MissingPartitionColumnFailsWithItsName) {
    const PackedTable main = numbers(10);
    const auto result = run({&main}, {2, QStringLiteral("day"), 2});
    EXPECT_EQ(result.outcome, RunOutcome::Failed);
    EXPECT_EQ(log.master, QStringList{"[1] partition column 'day' not found on input pin 0"});
}

} // namespace

} // namespace velmorra

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

/// What a test Action does at some moments of its life; empty ones do nothing.
struct Script {
    std::function<void(ActionItem&)> whileMasterLoads;
    std::function<void(ActionItem&, int row)> onRow;
    bool masterFailsOnFirstRow = false;
    bool refuses = false;
    bool throwsOnFirstRow = false;
    std::atomic<int> afterRuns{0};
    std::atomic<int> copiesMet{0};
};

/// The frame of the test Actions: the master reads pin 1 and copies meet it, as every Action that
/// builds something does.
class Scripted : public test::PlainBox {
public:
    Scripted(Script& script, GlobalParameters* parameters)
        : PlainBox(XMLNode::emptyNode(), parameters),
          script_(script) {
        nPinIn = 2;
    }

    const char* actionName() const override { return "Scripted"; }

    void rewindRun() override { setStep<&Scripted::firstStep>(); }
    bool beforeRun() override {
        rows_ = 0;
        return script_.refuses && fail(QStringLiteral("refused\n"));
    }
    bool afterRun() override {
        ++script_.afterRuns;
        if (isParallelCopy())
            parallelGroup->masterAction->parallelGroup->workersDone.release();
        else
            parallelGroup->workersDone.acquire(parallelGroup->workerCount);
        return false;
    }

protected:
    virtual bool handle(const OneRow& in) = 0;

    bool step() {
        const OneRow* const in = getNextRowFromInPin(0);
        return in == nullptr ? atEnd() : handleRow(*in);
    }

    Script& script_;
    RowBuffer cells_;
    double loaded_ = 0; ///< sum of pin 1, made by the master

private:
    bool firstStep() {
        const OneRow* const in = getNextRowFromInPin(0);
        if (in == nullptr) {
            if (!isParallelCopy())
                parallelGroup->metaReady.release(ParallelGroup::metaPermits);
            return true;
        }
        if (isParallelCopy()) {
            const auto* const master = static_cast<Scripted*>(parallelGroup->masterAction);
            master->parallelGroup->metaReady.acquire();
            if (!isRunning())
                return true;
            ++script_.copiesMet;
            loaded_ = master->loaded_;
            copyMetaFromMasterAction();
        } else {
            const bool failed = load(*in);
            parallelGroup->metaReady.release(ParallelGroup::metaPermits);
            if (failed || !isRunning())
                return true;
        }
        setStep<&Scripted::step>();
        return handleRow(*in);
    }

    bool load(const OneRow& in) {
        if (script_.throwsOnFirstRow)
            throw std::bad_alloc();
        if (script_.whileMasterLoads)
            script_.whileMasterLoads(*this);
        if (script_.masterFailsOnFirstRow)
            return fail(QStringLiteral("master failed\n"));
        loaded_ = 0;
        bool ok = false;
        while (const OneRow* const row = getNextRowFromInPin(1))
            loaded_ += row->colAsDouble(0, &ok);
        getOutputRowForOutputPin(0)->copyFrom(in);
        return false;
    }

    bool handleRow(const OneRow& in) {
        if (script_.onRow)
            script_.onRow(*this, rows_);
        ++rows_;
        return handle(in);
    }

    virtual bool atEnd() { return true; }

    int rows_ = 0;
};

/// Row by row: adds the sum of pin 1 to column 0, drops rows that divide by 3, and hands on those
/// that divide by 5 twice.
class AddLoaded : public Scripted {
public:
    using Scripted::Scripted;
    ActionItem* clone(GlobalParameters* parameters) const override {
        return new AddLoaded(script_, parameters);
    }

protected:
    bool handle(const OneRow& in) override {
        const quint32 value = cell::loadKey(in.cells[0]);
        if (value % 3 == 0)
            return false;
        cells_.reset();
        uchar* const sum = cells_.alloc(4);
        cell::storeKey(sum, value + static_cast<quint32>(loaded_));
        OneRow* const out = getOutputRowForOutputPin(0);
        out->copyFrom(in);
        out->setCol(0, sum);
        setRowReadyForOutput(0);
        if (value % 5 == 0)
            setStep<&AddLoaded::again>();
        return false;
    }

private:
    bool again() {
        setRowReadyForOutput(0);
        setStep<&AddLoaded::step>();
        return false;
    }
};

/// By partition (column 1): hands on the rows of a run of equal values one row late, as an Action
/// that looks ahead does.
class OneBehind : public Scripted {
public:
    using Scripted::Scripted;
    ActionItem* clone(GlobalParameters* parameters) const override {
        return new OneBehind(script_, parameters);
    }
    void rewindRun() override {
        held_ = nullptr;
        Scripted::rewindRun();
    }

protected:
    bool handle(const OneRow& in) override {
        const bool hadRow = held_ != nullptr;
        if (hadRow)
            handOn();
        // Two buffers in turn: one holds what was handed on, the other what is held back.
        std::swap(cells_, other_);
        cells_.reset();
        held_ = in.storeInBuffer(cells_);
        return false;
    }
    bool atEnd() override {
        if (held_ != nullptr)
            handOn();
        return true;
    }

private:
    void handOn() {
        getOutputRowForOutputPin(0)->initFromBuffer(held_, 0, -1);
        setRowReadyForOutput(0);
        held_ = nullptr;
    }

    const uchar* held_ = nullptr;
    RowBuffer other_;
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

    template <class Action = AddLoaded>
    ParallelResult run(const std::vector<const PackedTable*>& inputs,
                       const ParallelOptions& options) {
        WindowlessMainUI ui(log);
        Action master(script, &parameters);
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

TEST(ParallelSections, PartitionsStayWholeAndHeldBackRowsFindTheirPlace) {
    const PackedTable main = partitioned("aabbbccccdddeeeffffgh");
    std::vector<quint32> expected(main.rows());
    for (size_t i = 0; i < expected.size(); ++i)
        expected[i] = static_cast<quint32>(i);
    for (const int copies : {1, 2, 3}) {
        ScriptedRun each;
        const auto result = each.run<OneBehind>({&main}, {copies, QStringLiteral("p"), 1});
        EXPECT_EQ(result.outcome, RunOutcome::Done);
        EXPECT_EQ(firstColumn(result.outputs[0]), expected) << copies;
        EXPECT_GT(each.script.copiesMet, 0);
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
        each.script.masterFailsOnFirstRow = text[0] == 'm';
        each.script.throwsOnFirstRow = text[0] == 'n';
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
    script.whileMasterLoads = [](ActionItem& action) {
        while (action.isRunning())
            std::this_thread::yield();
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

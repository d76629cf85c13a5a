/// Joins that find no memory for a slave table, at each point where they ask for some. They are
/// linked into this program, so that it can make their memory fail.
#include "actions/join/filter_on_key.h"
#include "actions/join/in_memory_join.h"
#include "actions/join/interval_join.h"
#include "rows/big_malloc.h"
#include "tests/plugin/hand_driven.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <functional>

namespace {

/// Requests of the language's own that count: what grows with a slave table.
constexpr std::size_t largeSize = 4096;
thread_local int largeRequestsLeft = -1;

bool isDenied(std::size_t size) {
    if (size < largeSize || largeRequestsLeft < 0)
        return false;
    return largeRequestsLeft == 0 || largeRequestsLeft-- == 0;
}

} // namespace

void* operator new(std::size_t size) {
    void* const bytes = isDenied(size) ? nullptr : std::malloc(size);
    if (bytes == nullptr)
        throw std::bad_alloc();
    return bytes;
}
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
    return isDenied(size) ? nullptr : std::malloc(size);
}
void operator delete(void* bytes) noexcept {
    std::free(bytes);
}
void operator delete(void* bytes, std::size_t) noexcept {
    std::free(bytes);
}

namespace {

template <class Action>
std::unique_ptr<ActionItem> make(const char* element, GlobalParameters& parameters) {
    return std::make_unique<Action>(XMLNode::parse(element).root, &parameters);
}

struct Scene {
    const char* name;
    std::unique_ptr<ActionItem> (*make)(const char* element, GlobalParameters& parameters);
    const char* element;
    int fewestRequests; ///< of both kinds, or the sweep tests nothing
};

const Scene scenes[] = {
    {"FilterOnKey", &make<FilterOnKey>, "<FilterOnKey slaveKey='text'><s>a</s></FilterOnKey>", 2},
    {"InMemoryJoin", &make<InMemoryJoin>,
     "<InMemoryJoin mainKey='a' slaveKey='twice' dataBlockSize='4'/>", 5},
    {"IntervalJoin", &make<IntervalJoin>,
     "<IntervalJoin mainLowKey='b' slaveLowKey='low' slaveHighKey='high'/>", 15},
    {"IntervalJoin", &make<IntervalJoin>,
     "<IntervalJoin mode='2' mainLowKey='b' mainHighKey='b' slaveLowKey='low'/>", 8},
    {"IntervalJoin", &make<IntervalJoin>,
     "<IntervalJoin outputMode='3' mainLowKey='b' slaveLowKey='low' slaveHighKey='high' "
     "partitionColumnMaster='a' partitionColumnSlave='text'/>",
     8},
};

class WantOfMemory : public testing::TestWithParam<Scene> {
protected:
    WantOfMemory() {
        for (int i = 0; i < 1500; ++i)
            slaveRows.push_back({QStringLiteral("key %1").arg(i),
                                 QStringLiteral("key %1").arg(i / 2), QString::number(i),
                                 QString::number(i + 700)});
    }

    /// Fails each request in turn, until a run has met none that fails. Returns their number.
    int sweep(const std::function<void(int)>& failAfter) {
        const QString message =
            QLatin1String(GetParam().name) + QStringLiteral(": Memory Allocation Error");
        for (int requests = 0;; ++requests) {
            SCOPED_TRACE(requests);
            GlobalParameters parameters;
            HandDriven run(GetParam().make(GetParam().element, parameters));
            TablePin rows({"a", "b"}, {{"key 7", "7"}});
            TablePin slave({"text", "twice", "low", "high"}, slaveRows);
            EXPECT_FALSE(run.begin({&rows, &slave}));
            failAfter(requests);
            const bool finished = run.step();
            failAfter(-1);
            const bool failed = run.action().actionFailed;
            EXPECT_EQ(finished, failed);
            EXPECT_EQ(parameters.runStatus, failed ? RunStatus::Failed : RunStatus::Running);
            EXPECT_EQ(run.messages().isEmpty() ? QString() : run.messages().back(),
                      failed ? message : QString());
            run.afterRun();
            EXPECT_EQ(BigMallocWatch::livingBlocks(), 0);
            if (!failed || HasFailure())
                return requests;
        }
    }

    QVector<QStringList> slaveRows;
};

TEST_P(WantOfMemory, endsTheRunWithAMessageAndLeaksNothing) {
    const int blocks = sweep(&BigMallocWatch::failAfter);
    const int requests = sweep([](int left) { largeRequestsLeft = left; });
    EXPECT_GE(blocks + requests, GetParam().fewestRequests) << blocks << " blocks";
}

INSTANTIATE_TEST_SUITE_P(Joins, WantOfMemory, testing::ValuesIn(scenes));

} // namespace

#include "plugin/parallel_meeting.h"

#include "host/action_item.h"

#include <utility>

namespace {
/// How often a waiting copy looks whether the run has ended without a word from the master.
constexpr int watchMilliseconds = 50;
} // namespace

void ParallelMeeting::rewind() {
    copiesWait_ = true;
    together_ = true;
}

void ParallelMeeting::letCopiesGo() {
    if (std::exchange(copiesWait_, false))
        action_.parallelGroup->metaReady.release(ParallelGroup::metaPermits);
}

bool ParallelMeeting::meetMaster() {
    MeetingSemaphore& ready = action_.parallelGroup->masterAction->parallelGroup->metaReady;
    while (!ready.tryAcquire(1, watchMilliseconds)) {
        if (!action_.isRunning())
            return false;
    }
    return action_.isRunning();
}

void ParallelMeeting::part() {
    if (action_.parallelGroup == nullptr || !std::exchange(together_, false))
        return;
    if (action_.isParallelCopy()) {
        action_.parallelGroup->masterAction->parallelGroup->workersDone.release(1);
        return;
    }
    // A master whose first step never came still has copies waiting for it.
    letCopiesGo();
    action_.parallelGroup->workersDone.acquire(action_.parallelGroup->workerCount);
}

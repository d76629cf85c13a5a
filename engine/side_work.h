/// Threads that help the thread of a run.
///
/// What can be done ahead of the run or behind it comes as units that follow each other. Each is
/// done by whichever thread comes first, and the run's thread never waits for one that nobody has
/// begun: it does that one itself. So any number of helpers will do, also none, and one that waits
/// for a slow pipe holds up nothing else. Helpers log nothing: what they find goes to the run's
/// thread, which tells it at its place.
#pragma once

#include <QtCore/QtGlobal>

#include <condition_variable>
#include <mutex>
#include <thread>
#include <vector>

namespace velmorra {

/// Units of work that follow each other: one at a time, on any thread.
class SideWork {
public:
    virtual ~SideWork() = default;

private:
    friend class SideThreads;

    /// Whether a unit can be done now. Asked under the lock of the threads.
    virtual bool isDue() const = 0;
    /// Does a unit, without the lock.
    virtual void doUnit() noexcept = 0;
    /// Takes note of a unit's end, under the lock again.
    virtual void unitDone() = 0;

    bool busy_ = false;
};

class SideThreads {
public:
    /// At most so many, each started when there is something to do for it.
    explicit SideThreads(int most);
    /// Requires: all work was removed.
    ~SideThreads();
    SideThreads(const SideThreads&) = delete;
    SideThreads& operator=(const SideThreads&) = delete;

    // For the thread of the run.

    void add(SideWork& work);

    /// No further unit of the work begins; waits for the one under way.
    void remove(SideWork& work);

    /// Looks at a work or changes what it says is due, under the lock.
    template <class Change>
    void update(Change change) {
        const std::lock_guard<std::mutex> guard(mutex_);
        change();
        wakeOne();
    }

    /// Does units of a work, or waits for the one under way, until a condition of it holds, which
    /// is asked under the lock. Requires: the work's units lead to it.
    template <class Condition>
    void workUntil(SideWork& work, Condition condition) {
        std::unique_lock<std::mutex> lock(mutex_);
        while (!condition()) {
            if (!work.busy_ && work.isDue())
                doUnit(work, lock);
            else
                unitDone_.wait(lock);
        }
    }

    /// Rises from call to call, to tell later what came first. Requires the lock.
    quint64 nextNumber() { return ++lastNumber_; }

private:
    void wakeOne();
    SideWork* nextDue();
    void doUnit(SideWork& work, std::unique_lock<std::mutex>& lock);
    void help();

    std::mutex mutex_;
    std::condition_variable unitDue_;
    std::condition_variable unitDone_;
    std::vector<SideWork*> works_;
    size_t turn_ = 0; ///< the work that is asked first
    quint64 lastNumber_ = 0;
    size_t most_;
    size_t idle_ = 0;
    bool closing_ = false;
    std::vector<std::thread> threads_;
};

} // namespace velmorra

#include "engine/side_work.h"

#include <algorithm>
#include <system_error>

namespace velmorra {

SideThreads::SideThreads(int most) : most_(static_cast<size_t>(std::max(most, 0))) {}

SideThreads::~SideThreads() {
    {
        const std::lock_guard<std::mutex> guard(mutex_);
        closing_ = true;
    }
    unitDue_.notify_all();
    for (std::thread& thread : threads_)
        thread.join();
}

void SideThreads::add(SideWork& work) {
    update([&] { works_.push_back(&work); });
}

void SideThreads::remove(SideWork& work) {
    std::unique_lock<std::mutex> lock(mutex_);
    works_.erase(std::remove(works_.begin(), works_.end(), &work), works_.end());
    unitDone_.wait(lock, [&] { return !work.busy_; });
}

/// Requires the lock. A change makes one unit due at most, and a helper looks for more by itself.
void SideThreads::wakeOne() {
    if (nextDue() == nullptr)
        return;
    if (idle_ > 0) {
        unitDue_.notify_one();
        return;
    }
    if (threads_.size() == most_)
        return;
    try {
        threads_.emplace_back([this] { help(); });
    } catch (const std::system_error&) {
        most_ = threads_.size(); // those that there are will do
    }
}

/// Requires the lock.
SideWork* SideThreads::nextDue() {
    for (size_t i = 0; i < works_.size(); ++i) {
        SideWork* const work = works_[(turn_ + i) % works_.size()];
        if (!work->busy_ && work->isDue())
            return work;
    }
    return nullptr;
}

void SideThreads::doUnit(SideWork& work, std::unique_lock<std::mutex>& lock) {
    work.busy_ = true;
    lock.unlock();
    work.doUnit();
    lock.lock();
    work.busy_ = false;
    work.unitDone();
    unitDone_.notify_all();
}

void SideThreads::help() {
    std::unique_lock<std::mutex> lock(mutex_);
    while (!closing_) {
        if (SideWork* const work = nextDue()) {
            ++turn_;
            doUnit(*work, lock);
            continue;
        }
        ++idle_;
        unitDue_.wait(lock);
        --idle_;
    }
}

} // namespace velmorra

/// The meeting point of an Action and its parallel copies.
///
/// The only synchronisation between copies, besides the state of the run: what the master built is
/// read-only from its release of `metaReady` until every copy has released `workersDone`.
#pragma once

#include <QtCore/QSemaphore>

class ActionItem;

#if defined(__SANITIZE_THREAD__)
extern "C" void __tsan_acquire(void*);
extern "C" void __tsan_release(void*);
#endif

/// A QSemaphore whose ordering ThreadSanitizer can see: stock Qt is built without instrumentation,
/// so its atomics would be invisible and every hand-over through one reported as a race.
class MeetingSemaphore : public QSemaphore {
public:
    void acquire(int n = 1) {
        QSemaphore::acquire(n);
#if defined(__SANITIZE_THREAD__)
        __tsan_acquire(this);
#endif
    }

    /// Waits at most `milliseconds`. False when there were not enough permits.
    bool tryAcquire(int n, int milliseconds) {
        const bool acquired = QSemaphore::tryAcquire(n, milliseconds);
#if defined(__SANITIZE_THREAD__)
        if (acquired)
            __tsan_acquire(this);
#endif
        return acquired;
    }

    void release(int n = 1) {
#if defined(__SANITIZE_THREAD__)
        __tsan_release(this);
#endif
        QSemaphore::release(n);
    }
};

struct ParallelGroup {
    /// Permits that a master releases on `metaReady`, whatever the number of copies.
    static constexpr int metaPermits = 1000;

    qint32 workerCount = 0; ///< copies beside the master
    MeetingSemaphore metaReady;
    MeetingSemaphore workersDone;
    ActionItem* masterAction = nullptr; ///< null on the master itself; not owned
};

#pragma once

#include <atomic>
#include <cstddef>
#include <mutex>

#include "platform/ThreadSafety.h"

namespace kavaro {

// A lock that carries a number. A thread can wait until the lock is free and the number has a given value; whoever
// unlocks says which value it has from then on. Not recursive.
//
// Whoever unlocks hands the lock to the thread that has waited longest among those whose condition holds. A thread
// that unlocks and locks again at once therefore lets every waiting thread go first, and each waits for at most one
// turn of every thread before it. Without a waiting thread a pair of calls costs two short holds of a mutex and wakes
// nobody.
class KAVARO_CAPABILITY("condition lock") ConditionLock {
  public:
    explicit ConditionLock(int condition) : _condition(condition) {}
    ConditionLock(const ConditionLock&) = delete;
    ConditionLock& operator=(const ConditionLock&) = delete;

    void lock() KAVARO_ACQUIRE();
    // Waits until the lock is free and condition() is `condition`, then takes it.
    void lockWhenCondition(int condition) KAVARO_ACQUIRE();
    // Frees the lock, leaving the condition as it is.
    void unlock() KAVARO_RELEASE();
    void unlockWithCondition(int condition) KAVARO_RELEASE();
    // Readable without the lock; the value may be old by the time the caller looks at it.
    int condition() const { return _condition.load(std::memory_order_relaxed); }
    // Number of threads that wait at this moment, for tests and diagnosis.
    std::size_t waitingThreads();

  private:
    struct Waiter;  // lives on the waiting thread's stack
    void take(bool anyCondition, int condition);
    void handOver(int condition);

    std::mutex _mutex;            // guards all below, for moments only
    bool _held = false;           // when false, no waiter's condition holds
    Waiter* _first = nullptr;     // in order of arrival
    Waiter** _end = &_first;      // where the next one is linked in
    std::atomic<int> _condition;  // written under _mutex
};

// Holds a lock for a block.
class KAVARO_SCOPED_CAPABILITY ConditionLocker {
  public:
    explicit ConditionLocker(ConditionLock& lock) KAVARO_ACQUIRE(lock) : _lock(lock) { _lock.lock(); }
    ~ConditionLocker() KAVARO_RELEASE() { _lock.unlock(); }
    ConditionLocker(const ConditionLocker&) = delete;
    ConditionLocker& operator=(const ConditionLocker&) = delete;

  private:
    ConditionLock& _lock;
};

}  // namespace kavaro

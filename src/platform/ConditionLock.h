#pragma once

#include <atomic>
#include <condition_variable>
#include <mutex>

#include "platform/ThreadSafety.h"

namespace kavaro {

// A lock that carries a number. A thread can wait until the lock is free and the number has a given value; whoever
// unlocks says which value it has from then on. Not recursive.
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

  private:
    std::mutex _mutex;
    std::condition_variable _changed;
    bool _held = false;
    std::atomic<int> _condition;
};

}  // namespace kavaro

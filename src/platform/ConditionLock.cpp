#include "platform/ConditionLock.h"

#include <condition_variable>

namespace kavaro {

struct ConditionLock::Waiter {
    Waiter(bool any, int value) : anyCondition(any), condition(value) {}
    const bool anyCondition;
    const int condition;
    bool granted = false;
    std::condition_variable changed;
    Waiter* next = nullptr;
};

// The members below are the lock: the analysis has nothing to say about what is inside.

void ConditionLock::lock() KAVARO_NO_THREAD_SAFETY_ANALYSIS {
    take(true, 0);
}

void ConditionLock::lockWhenCondition(int condition) KAVARO_NO_THREAD_SAFETY_ANALYSIS {
    take(false, condition);
}

void ConditionLock::unlock() KAVARO_NO_THREAD_SAFETY_ANALYSIS {
    std::lock_guard guard(_mutex);
    handOver(_condition.load(std::memory_order_relaxed));
}

void ConditionLock::unlockWithCondition(int condition) KAVARO_NO_THREAD_SAFETY_ANALYSIS {
    std::lock_guard guard(_mutex);
    _condition.store(condition, std::memory_order_relaxed);
    handOver(condition);
}

std::size_t ConditionLock::waitingThreads() {
    std::lock_guard guard(_mutex);
    std::size_t count = 0;
    for (const Waiter* waiter = _first; waiter; waiter = waiter->next) count++;
    return count;
}

void ConditionLock::take(bool anyCondition, int condition) {
    std::unique_lock guard(_mutex);
    if (!_held && (anyCondition || condition == _condition.load(std::memory_order_relaxed))) {
        _held = true;
        return;
    }
    Waiter self(anyCondition, condition);
    *_end = &self;
    _end = &self.next;
    self.changed.wait(guard, [&self] { return self.granted; });
}

// Gives the lock to the first waiter whose condition holds; frees it when there is none.
void ConditionLock::handOver(int condition) {
    for (Waiter** link = &_first; *link; link = &(*link)->next) {
        Waiter* waiter = *link;
        if (!waiter->anyCondition && waiter->condition != condition) continue;
        *link = waiter->next;
        if (_end == &waiter->next) _end = link;
        waiter->granted = true;
        // Under the mutex: the waiter is gone as soon as it sees `granted`.
        waiter->changed.notify_one();
        return;
    }
    _held = false;
}

}  // namespace kavaro

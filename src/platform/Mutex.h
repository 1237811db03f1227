#pragma once

#include <mutex>

#include "platform/ThreadSafety.h"

namespace kavaro {

// A std::mutex that Clang's thread-safety analysis knows.
class KAVARO_CAPABILITY("mutex") Mutex {
  public:
    Mutex() = default;
    Mutex(const Mutex&) = delete;
    Mutex& operator=(const Mutex&) = delete;

    void lock() KAVARO_ACQUIRE() { _mutex.lock(); }
    void unlock() KAVARO_RELEASE() { _mutex.unlock(); }

  private:
    std::mutex _mutex;
};

// Holds a mutex for a block.
class KAVARO_SCOPED_CAPABILITY MutexLock {
  public:
    explicit MutexLock(Mutex& mutex) KAVARO_ACQUIRE(mutex) : _mutex(mutex) { _mutex.lock(); }
    ~MutexLock() KAVARO_RELEASE() { _mutex.unlock(); }
    MutexLock(const MutexLock&) = delete;
    MutexLock& operator=(const MutexLock&) = delete;

  private:
    Mutex& _mutex;
};

}  // namespace kavaro

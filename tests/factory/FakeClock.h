#pragma once

#include <pthread.h>

#include <condition_variable>
#include <mutex>
#include <string>
#include <vector>

#include "platform/Clock.h"

namespace kavaro {

// A clock on which no time passes. sleep() returns at once and is written down with the name of the thread that slept;
// the notification thread can be held in it, so that a test says when a pass is made. Every question for the time
// moves it by `step` seconds.
class FakeClock final : public Clock {
  public:
    struct Sleep {
        std::string thread;
        double seconds;
        bool operator==(const Sleep&) const = default;
    };

    double monotonicSeconds() override {
        std::lock_guard lock(_mutex);
        return _now += _step;
    }
    double wallSeconds() override { return 1000000000; }
    void sleep(double seconds) override {
        char name[16] = "";
        pthread_getname_np(pthread_self(), name, sizeof name);
        std::unique_lock lock(_mutex);
        _sleeps.push_back({name, seconds});
        if (_sleeps.back().thread != kNotificationThread) return;
        ++_sleeping;
        _changed.notify_all();
        _changed.wait(lock, [this] { return !_held || _passes > 0; });
        if (_held) --_passes;
        --_sleeping;
    }

    void setStep(double seconds) {
        std::lock_guard lock(_mutex);
        _step = seconds;
    }
    // From now on the notification thread stays in its sleep.
    void hold() {
        std::lock_guard lock(_mutex);
        _held = true;
        _passes = 0;
    }
    // Lets it make one pass.
    void pass() {
        std::lock_guard lock(_mutex);
        ++_passes;
        _changed.notify_all();
    }
    void go() {
        std::lock_guard lock(_mutex);
        _held = false;
        _changed.notify_all();
    }
    // Waits until the notification thread is held.
    void waitUntilHeld() {
        std::unique_lock lock(_mutex);
        _changed.wait(lock, [this] { return _held && _passes == 0 && _sleeping > 0; });
    }
    std::vector<Sleep> sleeps() const {
        std::lock_guard lock(_mutex);
        return _sleeps;
    }
    std::vector<double> sleepsOf(const std::string& thread) const {
        std::vector<double> seconds;
        for (const Sleep& sleep : sleeps())
            if (sleep.thread == thread) seconds.push_back(sleep.seconds);
        return seconds;
    }

    static constexpr const char* kNotificationThread = "notifications";
    static constexpr const char* kWorkerThread = "sizing";

  private:
    mutable std::mutex _mutex;
    std::condition_variable _changed;
    double _now = 0;
    double _step = 0;
    bool _held = false;
    int _passes = 0;
    int _sleeping = 0;
    std::vector<Sleep> _sleeps;
};

}  // namespace kavaro

#pragma once

#include <pthread.h>

#include <condition_variable>
#include <map>
#include <mutex>
#include <string>
#include <vector>

#include "platform/Clock.h"

namespace kavaro {

// A clock on which no time passes. sleep() returns at once and is written down with the name of the thread that slept.
// A thread can be held in it, at a place where it holds no lock, so that a test says when it goes on: the notification
// thread before each pass, and the worker after each step when trace is on. Every question for the time moves it by
// `step` seconds.
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
        const std::string thread = name;
        const bool place = thread == kWorkerThread ? seconds > 0.1 : thread == kNotificationThread && seconds < 1;
        if (!place) return;
        Turnstile& stile = _stiles[thread];
        ++stile.sleeping;
        _changed.notify_all();
        _changed.wait(lock, [&] { return !stile.held || stile.passes > 0; });
        if (stile.held) --stile.passes;
        --stile.sleeping;
    }

    void setStep(double seconds) {
        std::lock_guard lock(_mutex);
        _step = seconds;
    }
    // From now on the thread stays in its sleep.
    void hold(const char* thread = kNotificationThread) {
        std::lock_guard lock(_mutex);
        _stiles[thread].held = true;
        _stiles[thread].passes = 0;
    }
    // Lets it go on until its next sleep.
    void pass(const char* thread = kNotificationThread) {
        std::lock_guard lock(_mutex);
        ++_stiles[thread].passes;
        _changed.notify_all();
    }
    // Waits until it has come to where it is held.
    void waitUntilHeld(const char* thread = kNotificationThread) {
        std::unique_lock lock(_mutex);
        Turnstile& stile = _stiles[thread];
        _changed.wait(lock, [&] { return stile.held && stile.passes == 0 && stile.sleeping > 0; });
    }
    void go() {
        std::lock_guard lock(_mutex);
        for (auto& [thread, stile] : _stiles) stile.held = false;
        _changed.notify_all();
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
    struct Turnstile {
        bool held = false;
        int passes = 0;
        int sleeping = 0;
    };

    mutable std::mutex _mutex;
    std::condition_variable _changed;
    double _now = 0;
    double _step = 0;
    std::map<std::string, Turnstile> _stiles;
    std::vector<Sleep> _sleeps;
};

}  // namespace kavaro

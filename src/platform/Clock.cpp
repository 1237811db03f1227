#include "platform/Clock.h"

#include <time.h>

namespace kavaro {

namespace {

double secondsOf(clockid_t id) {
    timespec now{};
    clock_gettime(id, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

class SystemClock final : public Clock {
  public:
    double monotonicSeconds() override { return secondsOf(CLOCK_MONOTONIC); }
    double wallSeconds() override { return secondsOf(CLOCK_REALTIME); }
    void sleep(double seconds) override {
        if (seconds <= 0) return;
        timespec left{};
        left.tv_sec = static_cast<time_t>(seconds);
        left.tv_nsec = static_cast<long>((seconds - static_cast<double>(left.tv_sec)) * 1e9);
        while (nanosleep(&left, &left) != 0) {
        }
    }
};

}  // namespace

Clock& Clock::system() {
    // Never taken down: detached threads still ask for the time while the process ends.
    static SystemClock& clock = *new SystemClock;
    return clock;
}

}  // namespace kavaro

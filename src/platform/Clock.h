#pragma once

namespace kavaro {

// Time, handed in wherever it matters, so that tests wait for nothing. Implementations are safe from any thread.
class Clock {
  public:
    virtual ~Clock() = default;
    // Seconds since some fixed moment; never runs backwards.
    virtual double monotonicSeconds() = 0;
    // Seconds since 1970-01-01 00:00:00 UTC.
    virtual double wallSeconds() = 0;
    // Suspends the calling thread.
    virtual void sleep(double seconds) = 0;

    // The machine's own clock; lives as long as the process.
    static Clock& system();
};

}  // namespace kavaro

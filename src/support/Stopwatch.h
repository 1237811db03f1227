#pragma once

#include "platform/Clock.h"

namespace kavaro {

// Time since it was made, for the log lines that end in "in %9.3f ms".
class Stopwatch {
  public:
    double milliseconds() const { return (Clock::system().monotonicSeconds() - _start) * 1000; }

  private:
    const double _start = Clock::system().monotonicSeconds();
};

}  // namespace kavaro

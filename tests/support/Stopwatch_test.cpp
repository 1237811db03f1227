#include "support/Stopwatch.h"

#include <gtest/gtest.h>

namespace kavaro {
namespace {

TEST(Stopwatch, CountsMillisecondsOfTheMachinesClock) {
    const double before = Clock::system().monotonicSeconds();
    const Stopwatch watch;
    const double made = Clock::system().monotonicSeconds();
    while (Clock::system().monotonicSeconds() - made < 0.002) {
    }
    const double shown = watch.milliseconds();
    EXPECT_GE(shown, 2);
    EXPECT_LE(shown, (Clock::system().monotonicSeconds() - before) * 1000);
}

}  // namespace
}  // namespace kavaro

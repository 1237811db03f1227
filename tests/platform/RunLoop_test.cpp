#include "platform/RunLoop.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <future>
#include <limits>
#include <string>
#include <thread>
#include <vector>

#include "platform/Clock.h"

namespace kavaro {
namespace {

constexpr double kLong = 60;  // never waited for unless something is broken

double now() {
    return Clock::system().monotonicSeconds();
}

TEST(RunLoop, RunEndsAtItsDeadline) {
    double start = now();
    EXPECT_TRUE(RunLoop::main().run(0.02));
    EXPECT_GE(now() - start, 0.02);
    EXPECT_TRUE(RunLoop::main().run(0));
    EXPECT_TRUE(RunLoop::main().run(-1));
}

TEST(RunLoop, StopEndsTheCurrentRunWithFalse) {
    RunLoop& loop = RunLoop::main();
    loop.schedule(0, [&] { loop.stop(); });
    EXPECT_FALSE(loop.run(kLong));
    EXPECT_TRUE(loop.run(0.001));
}

TEST(RunLoop, StopBeforeARunEndsTheNextOne) {
    RunLoop::main().stop();
    EXPECT_FALSE(RunLoop::main().run(kLong));
    EXPECT_TRUE(RunLoop::main().run(0));
}

TEST(RunLoop, StopFromAnotherThread) {
    RunLoop& loop = RunLoop::main();
    std::thread other([&] { loop.stop(); });
    EXPECT_FALSE(loop.run(kLong));
    other.join();
}

TEST(RunLoop, WakeUpEndsARunWithTrue) {
    RunLoop& loop = RunLoop::main();
    std::thread other([&] { loop.wakeUp(); });
    EXPECT_TRUE(loop.run(kLong));
    other.join();
}

TEST(RunLoop, StopEndsOnlyTheInnerOfTwoRuns) {
    RunLoop& loop = RunLoop::main();
    bool inner = true;
    loop.schedule(0, [&] {
        loop.schedule(0, [&] { loop.stop(); });
        inner = loop.run(kLong);
        loop.wakeUp();
    });
    EXPECT_TRUE(loop.run(kLong));
    EXPECT_FALSE(inner);
}

TEST(RunLoop, TimersFireInTheOrderOfTheirTimes) {
    RunLoop& loop = RunLoop::main();
    std::string order;
    loop.schedule(0.1, [&] { order += 'd'; });
    loop.schedule(0, [&] { order += 'a'; });
    loop.schedule(0.000001, [&] { order += 'b'; });
    loop.schedule(0.002, [&] { order += 'c'; });
    EXPECT_TRUE(loop.runUntil([&] { return order.size() == 4; }, kLong));
    EXPECT_EQ(order, "abcd");
}

TEST(RunLoop, TimersOfOddDurations) {
    RunLoop& loop = RunLoop::main();
    int fired = 0;
    for (double seconds : {0.0, -5.0, 1e-12, std::numeric_limits<double>::quiet_NaN()}) {
        loop.schedule(seconds, [&] { ++fired; });
    }
    bool never = false;
    auto far = loop.schedule(std::numeric_limits<double>::infinity(), [&] { never = true; });
    EXPECT_TRUE(loop.runUntil([&] { return fired == 4; }, kLong));
    loop.cancel(far);
    EXPECT_FALSE(never);
}

TEST(RunLoop, ATimerFiresOnceAndMayScheduleOthersAndCancelItself) {
    RunLoop& loop = RunLoop::main();
    int fired = 0;
    RunLoop::TimerID own = 0;
    std::function<void()> again = [&] {
        ++fired;
        loop.cancel(own);
        if (fired < 100) own = loop.schedule(0, again);
    };
    own = loop.schedule(0, again);
    EXPECT_TRUE(loop.runUntil([&] { return fired == 100; }, kLong));
    loop.run(0.002);
    EXPECT_EQ(fired, 100);
}

TEST(RunLoop, ATimerMayCancelAnotherThatIsDueToo) {
    RunLoop& loop = RunLoop::main();
    bool first = false, second = false;
    RunLoop::TimerID victim = 0;
    loop.schedule(0, [&] {
        first = true;
        loop.cancel(victim);
    });
    victim = loop.schedule(0, [&] { second = true; });
    loop.run(0.005);
    EXPECT_TRUE(first);
    EXPECT_FALSE(second);
    loop.cancel(victim);
    loop.cancel(0);
    loop.cancel(123456);
}

TEST(RunLoop, CancelReleasesWhatTheActionHolds) {
    auto held = std::make_shared<int>(1);
    auto timer = RunLoop::main().schedule(kLong, [held] {});
    EXPECT_EQ(held.use_count(), 2);
    RunLoop::main().cancel(timer);
    EXPECT_EQ(held.use_count(), 1);
}

TEST(RunLoop, AChainOfImmediateTimersLeavesRoomForOthers) {
    RunLoop& loop = RunLoop::main();
    bool stop = false, reached = false;
    std::function<void()> chain = [&] {
        if (!stop) loop.schedule(0, chain);
    };
    chain();
    loop.performOnMain([&] { reached = true; });
    EXPECT_TRUE(loop.runUntil([&] { return reached; }, kLong));
    EXPECT_TRUE(loop.run(0.002));
    stop = true;
}

TEST(RunLoop, ActionsKeepTheirOrderAlsoBeforeTheLoopRuns) {
    RunLoop& loop = RunLoop::main();
    constexpr int kCount = 5000;
    std::vector<int> seen;
    bool wrongThread = false;
    auto mainThread = std::this_thread::get_id();
    auto post = [&](int from, int to) {
        for (int i = from; i < to; ++i) {
            loop.performOnMain([&, i] {
                wrongThread |= std::this_thread::get_id() != mainThread;
                seen.push_back(i);
            });
        }
    };
    std::thread first([&] { post(0, kCount); });
    first.join();
    EXPECT_TRUE(seen.empty());
    std::thread second([&] { post(kCount, 2 * kCount); });
    EXPECT_TRUE(loop.runUntil([&] { return seen.size() == 2 * kCount; }, kLong));
    second.join();
    EXPECT_FALSE(wrongThread);
    EXPECT_TRUE(std::is_sorted(seen.begin(), seen.end()));
}

TEST(RunLoop, AnActionMayRunTheLoopAndTheOrderStays) {
    RunLoop& loop = RunLoop::main();
    std::string order;
    loop.performOnMain([&] {
        order += 'a';
        EXPECT_TRUE(loop.runUntil([&] { return order.find('c') != std::string::npos; }, kLong));
        order += 'd';
    });
    loop.performOnMain([&] { order += 'b'; });
    loop.performOnMain([&] { order += 'c'; });
    loop.runUntil([&] { return order.size() == 4; }, kLong);
    EXPECT_EQ(order, "abcd");
}

TEST(RunLoop, PerformAndWaitFromAWorkerKeepsOrder) {
    RunLoop& loop = RunLoop::main();
    std::vector<int> seen;
    std::atomic<bool> inTime{true};
    std::atomic<bool> finished{false};
    std::thread worker([&] {
        for (int i = 0; i < 500; ++i) {
            loop.performOnMain([&, i] { seen.push_back(2 * i); });
            bool ran = false;
            loop.performOnMainAndWait([&, i] {
                seen.push_back(2 * i + 1);
                ran = true;
            });
            if (!ran) inTime = false;
        }
        finished = true;
        loop.wakeUp();
    });
    EXPECT_TRUE(loop.runUntil([&] { return finished.load(); }, kLong));
    worker.join();
    EXPECT_TRUE(inTime);
    ASSERT_EQ(seen.size(), 1000u);
    EXPECT_TRUE(std::is_sorted(seen.begin(), seen.end()));
}

TEST(RunLoop, PerformAndWaitOnMainRunsAtOnce) {
    bool ran = false;
    RunLoop::main().performOnMainAndWait([&] { ran = true; });
    EXPECT_TRUE(ran);
}

TEST(RunLoop, AnEndlessChainOfActionsDoesNotHoldBackTheDeadline) {
    RunLoop& loop = RunLoop::main();
    bool stop = false;
    std::function<void()> chain = [&] {
        if (!stop) loop.performOnMain(chain);
    };
    chain();
    EXPECT_TRUE(loop.run(0.01));
    stop = true;
    EXPECT_TRUE(loop.run(0));
}

TEST(RunLoop, RunUntilReportsTheLastAnswer) {
    RunLoop& loop = RunLoop::main();
    EXPECT_FALSE(loop.runUntil([] { return false; }, 0.005));
    EXPECT_TRUE(loop.runUntil([] { return true; }, 0));
    int asked = 0;
    EXPECT_TRUE(loop.runUntil([&] { return ++asked > 1; }, 0));
}

TEST(RunLoop, ASignalWakesTheLoopAndIsReported) {
    RunLoop& loop = RunLoop::main();
    EXPECT_EQ(RunLoop::caughtSignal(), 0);
    loop.catchTerminationSignals();
    loop.catchTerminationSignals();
    std::vector<int> reported;
    loop.onSignal([&](int number) { reported.push_back(number); });
    std::thread other([] { kill(getpid(), SIGTERM); });
    EXPECT_TRUE(loop.run(kLong));
    other.join();
    EXPECT_EQ(RunLoop::caughtSignal(), SIGTERM);
    EXPECT_EQ(RunLoop::caughtSignalCount(), 1);
    loop.runUntil([&] { return !reported.empty(); }, kLong);
    EXPECT_EQ(reported, std::vector<int>{SIGTERM});

    raise(SIGINT);  // while the loop is busy elsewhere
    EXPECT_EQ(RunLoop::caughtSignal(), SIGINT);
    EXPECT_EQ(RunLoop::caughtSignalCount(), 2);
    EXPECT_FALSE(loop.runUntil([] { return false; }, 0.005));
    EXPECT_EQ(reported, (std::vector<int>{SIGTERM, SIGINT}));
    EXPECT_TRUE(loop.run(kLong)) << "a signal that came between two runs ends the next one";
    EXPECT_TRUE(loop.run(0.001));
}

TEST(RunLoop, SignalsOfBrokenPipesAreIgnoredAndAnIgnoredHangUpStays) {
    signal(SIGHUP, SIG_IGN);
    RunLoop::main().catchTerminationSignals();
    raise(SIGHUP);
    raise(SIGPIPE);
    EXPECT_EQ(RunLoop::caughtSignalCount(), 0);
}

TEST(RunLoop, ASignalDuringALongQueueEndsTheRunSoon) {
    RunLoop& loop = RunLoop::main();
    loop.catchTerminationSignals();
    int ran = 0;
    for (int i = 0; i < 1000; ++i) {
        loop.performOnMain([&] {
            if (++ran == 3) raise(SIGTERM);
        });
    }
    EXPECT_TRUE(loop.run(kLong));
    EXPECT_LT(ran, 200);
    EXPECT_TRUE(loop.runUntil([&] { return ran == 1000; }, kLong));
}

}  // namespace
}  // namespace kavaro

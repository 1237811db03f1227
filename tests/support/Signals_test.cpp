#include "support/Signals.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include <thread>

#include "platform/Clock.h"

namespace kavaro {
namespace {

// Exit statuses of the child that catches a signal.
enum Outcome {
    kAsExpected = 0,
    kCaughtTooEarly = 11,
    kNotCaught = 12,
    kWrongNumber = 13,
    kStoppedTheLoop = 14,
    kSlow = 15
};

// The flag is set once for the whole process, so each case runs in a process of its own.
[[noreturn]] void runWhile(int signal, void (*send)(int)) {
    ::signal(signal, SIG_DFL);  // a hang-up that was ignored from outside would stay so
    RunLoop& loop = RunLoop::main();
    loop.catchTerminationSignals();
    if (Tuv_caughtSignal()) _exit(kCaughtTooEarly);
    const double start = Clock::system().monotonicSeconds();
    send(signal);
    if (!loop.run(60)) _exit(kStoppedTheLoop);
    if (Clock::system().monotonicSeconds() - start > 30) _exit(kSlow);
    if (!Tuv_caughtSignal()) _exit(kNotCaught);
    if (RunLoop::caughtSignal() != signal) _exit(kWrongNumber);
    _exit(kAsExpected);
}

void sendBeforeTheRun(int signal) {
    raise(signal);
}

void sendWithinTheRun(int signal) {
    RunLoop::main().performOnMain([=] { raise(signal); });
}

void sendFromAnotherThread(int signal) {
    RunLoop::main().performOnMain([=] { std::thread([=] { kill(getpid(), signal); }).detach(); });
}

TEST(Signals, NoneIsCaughtAtFirst) {
    EXPECT_FALSE(Tuv_caughtSignal());
}

TEST(Signals, TerminationSignalsSetTheFlagAndWakeTheLoop) {
    for (int signal : {SIGTERM, SIGINT, SIGHUP}) {
        EXPECT_EXIT(runWhile(signal, sendBeforeTheRun), testing::ExitedWithCode(kAsExpected), "") << signal;
        EXPECT_EXIT(runWhile(signal, sendWithinTheRun), testing::ExitedWithCode(kAsExpected), "") << signal;
        EXPECT_EXIT(runWhile(signal, sendFromAnotherThread), testing::ExitedWithCode(kAsExpected), "") << signal;
    }
}

TEST(Signals, AnyThreadMayAsk) {
    const auto askElsewhere = [] {
        RunLoop::main().catchTerminationSignals();
        raise(SIGTERM);
        bool caught = false;
        std::thread([&] { caught = Tuv_caughtSignal(); }).join();
        _exit(caught ? kAsExpected : kNotCaught);
    };
    EXPECT_EXIT(askElsewhere(), testing::ExitedWithCode(kAsExpected), "");
}

TEST(Signals, ALaterOneMayEndTheProcessWhateverItDoes) {
    const auto beBusy = [] {
        RunLoop::main().catchTerminationSignals();
        RunLoop::leaveAtSignal(2, 130);
        raise(SIGINT);
        if (RunLoop::caughtSignalCount() != 1) _exit(kNotCaught);
        raise(SIGTERM);
        _exit(kNotCaught);
    };
    EXPECT_EXIT(beBusy(), testing::ExitedWithCode(130), "");
}

TEST(Signals, AProcessThatDoesNotEndAfterOneIsEnded) {
    const auto beStuck = [] {
        RunLoop::main().catchTerminationSignals();
        RunLoop::leaveAfterSignal(1, 7);
        raise(SIGTERM);
        while (true) pause();
    };
    EXPECT_EXIT(beStuck(), testing::ExitedWithCode(7), "");
}

TEST(Signals, OtherSignalsKeepTheirMeaning) {
    const auto useSignal = [] {
        RunLoop::main().catchTerminationSignals();
        raise(SIGUSR1);
        _exit(kNotCaught);
    };
    EXPECT_EXIT(useSignal(), testing::KilledBySignal(SIGUSR1), "");
}

}  // namespace
}  // namespace kavaro

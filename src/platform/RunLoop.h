#pragma once

#include <cstdint>
#include <functional>
#include <memory>

namespace kavaro {

// The main thread's event loop: timers, calls from other threads, bus traffic and caught signals. One per process,
// made by the first call of main(), which must come from the main thread. Functions say which thread may call them.
class RunLoop {
  public:
    using TimerID = std::uint64_t;  // 0 is no timer

    static RunLoop& main();
    ~RunLoop();

    // Main thread. Handles what arrives until `seconds` have passed, stop() was called or a signal was caught; one
    // caught since the last run ends it at once. Returns false when stop() ended this run.
    bool run(double seconds);
    // Main thread. Handles what arrives until done() is true or `seconds` have passed; returns the last done().
    // A caught signal does not end it.
    bool runUntil(const std::function<bool()>& done, double seconds);
    // Any thread. Makes the current run() return false, or the next one if none is active.
    void stop();
    // Any thread. Makes the current run() return true soon, or the next one if none is active.
    void wakeUp();

    // Main thread. Calls `action` once, `seconds` from now.
    TimerID schedule(double seconds, std::function<void()> action);
    void cancel(TimerID timer);

    // Any thread. Runs `action` on the main thread, after everything handed in before it. Does not wait.
    void performOnMain(std::function<void()> action);
    // Any thread. As above and waits until it has run; on the main thread itself it runs at once. The main thread must
    // go on running the loop meanwhile (also when it waits for the calling thread to end).
    void performOnMainAndWait(const std::function<void()>& action);

    // Main thread. From now on TERM, INT and HUP set caughtSignal() and wake the loop. A HUP that was ignored before
    // stays ignored. SIGPIPE is ignored.
    void catchTerminationSignals();
    // Main thread. The `count`th caught signal ends the process at once with `status`, whatever it is doing.
    static void leaveAtSignal(int count, int status);
    // Main thread. A process that is still there `seconds` after the first caught signal is ended with `status`,
    // whatever it is doing or waiting for. Takes SIGALRM.
    static void leaveAfterSignal(unsigned seconds, int status);
    // Any thread. The number of the last caught signal, 0 for none.
    static int caughtSignal();
    // How many have been caught: tells a second Ctrl-C from the first.
    static int caughtSignalCount();
    // Main thread. Called on the main thread for each caught signal.
    void onSignal(std::function<void(int)> action);

  private:
    RunLoop();
    struct Impl;
    std::unique_ptr<Impl> _impl;
};

}  // namespace kavaro

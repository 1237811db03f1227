#include "platform/RunLoop.h"

#include <errno.h>
#include <fcntl.h>
#include <glib-unix.h>
#include <glib.h>
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <cstdlib>
#include <deque>
#include <map>
#include <mutex>
#include <thread>
#include <utility>

#include "platform/Mutex.h"

namespace kavaro {

namespace {

// At most this many queued actions run before timers, signals and the bus get their turn.
constexpr int kActionsPerTurn = 64;

constexpr double kLongestTimer = 1e9;  // seconds

// Written by the signal handler, so everything here is lock-free. The pipe is never closed.
std::atomic<int> caughtSignalNumber{0};
std::atomic<int> caughtSignals{0};
std::atomic<int> signalPipeInput{-1};
std::atomic<int> lastSignal{0};  // the one that ends the process, counted from 1; 0: none does
std::atomic<int> lastSignalStatus{0};
std::atomic<unsigned> patience{0};  // seconds that the process has after a signal; 0: no limit
std::atomic<int> patienceStatus{0};
static_assert(std::atomic<int>::is_always_lock_free);

void noteSignal(int number) {
    int savedError = errno;
    caughtSignalNumber.store(number);
    const int count = caughtSignals.fetch_add(1) + 1;
    if (count == lastSignal.load()) _exit(lastSignalStatus.load());
    if (count == 1 && patience.load() > 0) alarm(patience.load());
    auto byte = static_cast<unsigned char>(number);
    ssize_t written = write(signalPipeInput.load(), &byte, 1);  // a full pipe wakes the loop as well
    static_cast<void>(written);
    errno = savedError;
}

gint64 microseconds(double seconds) {
    if (!(seconds > 0)) return 0;
    return static_cast<gint64>(std::min(seconds, kLongestTimer) * 1e6);
}

using SourceCallback = void (*)(void*);

// A source that calls back whenever its ready time has come. Its callback may run the loop again.
struct ReadySource {
    GSource base;
    SourceCallback callback;
    void* owner;
};

gboolean dispatchReadySource(GSource* source, GSourceFunc, gpointer) {
    auto* ready = reinterpret_cast<ReadySource*>(source);
    ready->callback(ready->owner);
    return TRUE;
}

GSourceFuncs readySourceFunctions = {nullptr, nullptr, dispatchReadySource, nullptr, nullptr, nullptr};

GSource* attachReadySource(GMainContext* context, SourceCallback callback, void* owner) {
    GSource* source = g_source_new(&readySourceFunctions, sizeof(ReadySource));
    auto* ready = reinterpret_cast<ReadySource*>(source);
    ready->callback = callback;
    ready->owner = owner;
    g_source_set_can_recurse(source, TRUE);
    g_source_attach(source, context);
    return source;
}

void dropSource(GSource* source) {
    if (!source) return;
    g_source_destroy(source);
    g_source_unref(source);
}

}  // namespace

struct RunLoop::Impl {
    struct Timer {
        TimerID id;
        std::function<void()> action;
    };

    Impl();
    ~Impl();

    void runActions();
    void runTimers();
    void updateTimerSource();
    void readSignals();
    bool takeAction(std::function<void()>* action);

    GMainContext* const context = g_main_context_default();
    const std::thread::id mainThread = std::this_thread::get_id();

    // Main thread.
    GSource* timerSource = nullptr;
    GSource* signalSource = nullptr;
    std::multimap<gint64, Timer> timers;  // by due time; equal times in the order they were made
    TimerID lastTimer = 0;
    std::function<void(int)> signalAction;
    int signalsSeenByRun = 0;
    int signalPipeOutput = -1;

    // Any thread.
    std::atomic<bool> stopped{false};
    std::atomic<bool> woken{false};
    GSource* actionSource = nullptr;  // ready exactly while `actions` is not empty
    Mutex mutex;
    std::deque<std::function<void()>> actions KAVARO_GUARDED_BY(mutex);
};

RunLoop::Impl::Impl() {
    // Owned for good: no other thread may run, by accident, what is meant for the main thread.
    g_main_context_acquire(context);
    actionSource = attachReadySource(
        context, [](void* impl) { static_cast<Impl*>(impl)->runActions(); }, this);
    timerSource = attachReadySource(
        context, [](void* impl) { static_cast<Impl*>(impl)->runTimers(); }, this);
}

RunLoop::Impl::~Impl() {
    dropSource(signalSource);
    dropSource(timerSource);
    dropSource(actionSource);
    g_main_context_release(context);
}

bool RunLoop::Impl::takeAction(std::function<void()>* action) {
    MutexLock lock(mutex);
    if (actions.empty()) return false;
    *action = std::move(actions.front());
    actions.pop_front();
    if (actions.empty()) g_source_set_ready_time(actionSource, -1);
    return true;
}

void RunLoop::Impl::runActions() {
    int signalsBefore = caughtSignals.load();
    std::function<void()> action;
    for (int turn = 0; turn < kActionsPerTurn && takeAction(&action); ++turn) {
        action();
        action = nullptr;
        if (stopped.load() || caughtSignals.load() != signalsBefore) return;
    }
}

void RunLoop::Impl::updateTimerSource() {
    g_source_set_ready_time(timerSource, timers.empty() ? -1 : timers.begin()->first);
}

void RunLoop::Impl::runTimers() {
    gint64 now = g_get_monotonic_time();
    TimerID newest = lastTimer;  // timers made by these actions wait for the next turn
    while (!timers.empty() && timers.begin()->first <= now && timers.begin()->second.id <= newest) {
        std::function<void()> action = std::move(timers.begin()->second.action);
        timers.erase(timers.begin());
        updateTimerSource();
        action();
    }
}

void RunLoop::Impl::readSignals() {
    unsigned char numbers[64];
    ssize_t count;
    while ((count = read(signalPipeOutput, numbers, sizeof numbers)) > 0) {
        for (ssize_t i = 0; i < count; ++i) {
            auto current = signalAction;  // it may replace itself
            if (current) current(numbers[i]);
        }
    }
}

RunLoop::RunLoop() : _impl(std::make_unique<Impl>()) {}

RunLoop::~RunLoop() = default;

RunLoop& RunLoop::main() {
    // Never destroyed: threads may still hand in actions while the process ends.
    static RunLoop* loop = new RunLoop;
    return *loop;
}

bool RunLoop::run(double seconds) {
    const gint64 deadline = g_get_monotonic_time() + microseconds(seconds);
    TimerID end = schedule(seconds, [] {});
    bool result = true;
    while (true) {
        bool expired = g_get_monotonic_time() >= deadline;
        if (_impl->stopped.exchange(false)) {
            result = false;
            break;
        }
        bool caught = caughtSignals.load() != _impl->signalsSeenByRun;
        bool woken = _impl->woken.exchange(false);
        bool last = expired || caught || woken;
        g_main_context_iteration(_impl->context, last ? FALSE : TRUE);
        if (!last) continue;
        _impl->signalsSeenByRun = caughtSignals.load();
        result = !_impl->stopped.exchange(false);
        break;
    }
    cancel(end);
    return result;
}

bool RunLoop::runUntil(const std::function<bool()>& done, double seconds) {
    const gint64 deadline = g_get_monotonic_time() + microseconds(seconds);
    TimerID end = schedule(seconds, [] {});
    bool result = done();
    while (!result) {
        bool expired = g_get_monotonic_time() >= deadline;
        g_main_context_iteration(_impl->context, expired ? FALSE : TRUE);
        result = done();
        if (expired) break;
    }
    cancel(end);
    return result;
}

void RunLoop::stop() {
    _impl->stopped.store(true);
    g_main_context_wakeup(_impl->context);
}

void RunLoop::wakeUp() {
    _impl->woken.store(true);
    g_main_context_wakeup(_impl->context);
}

RunLoop::TimerID RunLoop::schedule(double seconds, std::function<void()> action) {
    TimerID id = ++_impl->lastTimer;
    _impl->timers.emplace(g_get_monotonic_time() + microseconds(seconds), Impl::Timer{id, std::move(action)});
    _impl->updateTimerSource();
    return id;
}

void RunLoop::cancel(TimerID timer) {
    auto& timers = _impl->timers;
    auto found = std::find_if(timers.begin(), timers.end(), [&](auto& entry) { return entry.second.id == timer; });
    if (found == timers.end()) return;
    std::function<void()> action = std::move(found->second.action);  // destroyed last: it may own anything
    timers.erase(found);
    _impl->updateTimerSource();
}

void RunLoop::performOnMain(std::function<void()> action) {
    MutexLock lock(_impl->mutex);
    _impl->actions.push_back(std::move(action));
    if (_impl->actions.size() == 1) g_source_set_ready_time(_impl->actionSource, 0);
}

void RunLoop::performOnMainAndWait(const std::function<void()>& action) {
    if (std::this_thread::get_id() == _impl->mainThread) {
        action();
        return;
    }
    std::mutex mutex;
    std::condition_variable finished;
    bool done = false;
    performOnMain([&] {
        action();
        std::lock_guard lock(mutex);
        done = true;
        finished.notify_one();
    });
    std::unique_lock lock(mutex);
    finished.wait(lock, [&] { return done; });
}

void RunLoop::catchTerminationSignals() {
    if (_impl->signalSource) return;
    int ends[2];
    if (pipe2(ends, O_CLOEXEC | O_NONBLOCK) == 0) {
        _impl->signalPipeOutput = ends[0];
        signalPipeInput.store(ends[1]);
        _impl->signalSource = g_unix_fd_source_new(ends[0], G_IO_IN);
        GUnixFDSourceFunc read = [](gint, GIOCondition, gpointer impl) -> gboolean {
            static_cast<Impl*>(impl)->readSignals();
            return TRUE;
        };
        g_source_set_callback(_impl->signalSource, G_SOURCE_FUNC(read), _impl.get(), nullptr);
        g_source_set_can_recurse(_impl->signalSource, TRUE);
        g_source_set_priority(_impl->signalSource, G_PRIORITY_HIGH);
        g_source_attach(_impl->signalSource, _impl->context);
    }
    struct sigaction action {};
    action.sa_handler = noteSignal;
    action.sa_flags = SA_RESTART;
    sigemptyset(&action.sa_mask);
    for (int number : {SIGTERM, SIGINT, SIGHUP}) {
        struct sigaction before {};
        // A process started to survive its terminal keeps ignoring the hang-up.
        if (number == SIGHUP && sigaction(number, nullptr, &before) == 0 && before.sa_handler == SIG_IGN) continue;
        sigaction(number, &action, nullptr);
    }
    signal(SIGPIPE, SIG_IGN);
}

void RunLoop::leaveAtSignal(int count, int status) {
    lastSignalStatus.store(status);
    lastSignal.store(count);
}

void RunLoop::leaveAfterSignal(unsigned seconds, int status) {
    patienceStatus.store(status);
    struct sigaction action {};
    action.sa_handler = [](int) { _exit(patienceStatus.load()); };
    sigemptyset(&action.sa_mask);
    sigaction(SIGALRM, &action, nullptr);
    patience.store(seconds);
}

int RunLoop::caughtSignal() {
    return caughtSignalNumber.load();
}

int RunLoop::caughtSignalCount() {
    return caughtSignals.load();
}

void RunLoop::onSignal(std::function<void(int)> action) {
    _impl->signalAction = std::move(action);
}

}  // namespace kavaro

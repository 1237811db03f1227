#pragma once

#include <atomic>
#include <functional>

#include "fsevents/WaitingEvents.h"
#include "platform/Clock.h"

namespace kavaro {

// Takes the waiting events in batches, at a slow pace so that all that happens to a file in between becomes one event,
// coalesces each batch and hands it to TuvFSEvent::processItems(). The body of the resolving thread. What is handed in
// must outlive it.
class BatchResolver {
  public:
    struct Pacing {
        double seconds;  // before each batch
        int logged;
    };
    static constexpr Pacing kLive{15.0, 15};
    static constexpr Pacing kSimulation{0.1, 0};
    static constexpr double kTracePause = 0.25;  // after each batch, when trace is on

    using Look = std::function<void(const TuvObjectArray& batch)>;

    BatchResolver(WaitingEvents& events, ConditionLock& lock, Clock& clock, Pacing pacing);
    // Called with each batch as it was taken and as coalescing left it, on the resolving thread; for programs that
    // show them. Both are called for a data collector too, which does not coalesce. Before run().
    void setLooks(Look taken, Look coalesced);

    // Until end().
    void run();
    // Pauses, waits until an event waits, and handles one batch. False, and nothing is done, once it has ended.
    bool step();
    // Any thread. A pause that has begun is waited for; what waits then is left.
    void end();

    // The three passes in their order.
    static void coalesce(TuvObjectArray& batch, TuvFSEvent::Covers covers = TuvFSEvent::Covers::samePrefix);

  private:
    TuvRef<TuvObjectArray> take();
    void handle(TuvObjectArray& batch);

    WaitingEvents& _events;  // under _lock
    ConditionLock& _lock;    // condition 1 while events wait
    Clock& _clock;
    const Pacing _pacing;
    Look _taken;
    Look _coalesced;
    std::atomic<bool> _ended{false};
};

}  // namespace kavaro

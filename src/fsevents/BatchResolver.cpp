#include "fsevents/BatchResolver.h"

#include <utility>

#include "fsevents/FSEventsLog.h"

namespace kavaro {

namespace {

constexpr const char* kSelector = "_resolveFSEventsTH:";

}  // namespace

BatchResolver::BatchResolver(WaitingEvents& events, ConditionLock& lock, Clock& clock, Pacing pacing)
    : _events(events), _lock(lock), _clock(clock), _pacing(pacing) {}

void BatchResolver::setLooks(Look taken, Look coalesced) {
    _taken = std::move(taken);
    _coalesced = std::move(coalesced);
}

void BatchResolver::run() {
    while (step()) {
    }
}

bool BatchResolver::step() {
    if (_ended) return false;
    TuvLog::info(tuvFSEventsLog, kSelector, "will sleep %d seconds ...", _pacing.logged);
    _clock.sleep(_pacing.seconds);
    TuvRef<TuvObjectArray> batch = take();
    if (!batch) return false;
    handle(*batch);
    batch = nullptr;
    if (tuvFSEventsLog.traceOn()) _clock.sleep(kTracePause);
    return true;
}

void BatchResolver::end() {
    _ended = true;
    _lock.lock();
    _lock.unlockWithCondition(1);
}

// Null once it has ended.
TuvRef<TuvObjectArray> BatchResolver::take() {
    _lock.lockWhenCondition(1);
    TuvRef<TuvObjectArray> batch;
    if (!_ended) batch = _events.takeAll();
    _lock.unlockWithCondition(_events.count() > 0 ? 1 : 0);
    return batch;
}

void BatchResolver::coalesce(TuvObjectArray& batch, TuvFSEvent::Covers covers) {
    TuvFSEvent::coalesce_DELETE(&batch, covers);
    TuvFSEvent::coalesce_CREATE_DIR(&batch, covers);
    TuvFSEvent::coalesce_CREATE_MODIFY_RENAME(&batch);
}

void BatchResolver::handle(TuvObjectArray& batch) {
    TuvLog::debug(tuvFSEventsLog, kSelector, "%d events -------------------------", batch.count());
    if (_taken) _taken(batch);
    if (!TuvFSEvent::runAsDataCollector()) {
        coalesce(batch);
        TuvFSEvent::debugEvents(&batch);
        TuvFSEvent::processItems(&batch);
    }
    if (_coalesced) _coalesced(batch);
    if (tuvFSEventsLog.debugOn()) TuvFSEvent::debugEvents(&batch);
}

}  // namespace kavaro

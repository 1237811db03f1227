#include "fsevents/TuvFSEvents.h"

#include "fsevents/BatchResolver.h"
#include "fsevents/EventReplay.h"
#include "fsevents/FSEventsLog.h"
#include "fsevents/KernelRecord.h"
#include "fsevents/VolumeEventDevice.h"
#include "platform/Thread.h"
#include "platform/UserDefaults.h"

namespace kavaro {

namespace {

constexpr double kReadPause = 0.01;  // after a read that gave nothing
constexpr double kReadWait = 1;      // for one that has nothing yet
constexpr const char* kDeviceThread = "_listenForFSEventsTH:";

TuvFSEvents::Surroundings& surroundings() {
    static TuvFSEvents::Surroundings& surroundings = *new TuvFSEvents::Surroundings;
    return surroundings;
}

bool listensFromLogFile() {
    return UserDefaults::standard().boolForKey("listenFromLogFile");
}

std::string watchedVolume() {
    const std::string volume = UserDefaults::standard().stringForKey("fsEventsVolume").value_or("");
    return volume.empty() ? "/" : volume;
}

}  // namespace

void TuvFSEvents::setSurroundings(const Surroundings& wanted) {
    surroundings() = wanted;
}

TuvFSEvents* TuvFSEvents::sharedFSEvents() {
    static TuvFSEvents* shared = new TuvFSEvents(surroundings());
    return shared;
}

void TuvFSEvents::startFSEvents() {
    sharedFSEvents()->listenForFileChanges();
}

void TuvFSEvents::listenForFileChanges() {
    constexpr const char* kSelector = "listenForFileChanges";
    if (_isListening == 1) {
        TuvLog::error(tuvFSEventsLog, kSelector, "already listening");
        return;
    }
    // What an earlier start left.
    if (ConditionLock* lock = eventLock()) {
        lock->lock();
        _events.takeAll();
        lock->unlockWithCondition(0);
    }
    const bool fromFile = listensFromLogFile();
    const bool listens = detachThread("fsevents", [this, fromFile] {
        if (fromFile) return _listenForFSEventsFromFileTH();
        _listenForFSEventsTH();
    });
    if (!listens || !detachThread("fsevents-resolve", [this] { _resolveFSEventsTH(); }))
        TuvLog::error(tuvFSEventsLog, kSelector, "There is no room for another thread: changes are not followed.");
}

// The device thread is started first: what it adds before there is a lock would not be guarded by it.
ConditionLock* TuvFSEvents::waitForEventLock() {
    _eventLock.wait(nullptr);
    return _eventLock.load();
}

void TuvFSEvents::_listenForFSEventsTH() {
    TuvLog::info(tuvFSEventsLog, kDeviceThread, "");
    const std::string volume = watchedVolume();
    EventDevice::Problem problem;
    const std::unique_ptr<EventDevice> device = _surroundings.openDevice ? _surroundings.openDevice(volume, &problem)
                                                                         : VolumeEventDevice::open(volume, &problem);
    if (!device) {
        TuvLog::error(tuvFSEventsLog, kDeviceThread, "%s", problem.text);
        if (!problem.isVolume)
            TuvLog::error(tuvFSEventsLog, kDeviceThread, "This code needs to run as administrator ...");
        TuvLog::info(tuvFSEventsLog, kDeviceThread, "completed");
        return;
    }
    TuvFSEvent::setAcceptedDevice(device->device());
    TuvLog::info(tuvFSEventsLog, kDeviceThread, "listening ....");
    _isListening = 1;
    waitForEventLock();
    std::uint8_t buffer[record::kReadSize];
    while (!device->isGone()) {
        const int length = device->read(buffer, sizeof buffer, kReadWait);
        if (length > 0) {
            TuvFSEvents_print_event(this, buffer, length);
        } else if (!device->isGone()) {
            _surroundings.clock->sleep(kReadPause);
        }
    }
    TuvLog::error(tuvFSEventsLog, kDeviceThread, "The volume %@ has been unmounted: its changes are not followed.",
                  volume);
    _isListening = 0;  // it may be started again when the volume is back
    TuvLog::info(tuvFSEventsLog, kDeviceThread, "completed");
}

void TuvFSEvents::addEvent(TuvRef<TuvFSEvent> event) {
    if (!event) return;
    ++_eventCount;
    if (_arrival) return _arrival(std::move(event));
    TuvFSEvent::addEvent(event.leak(), &_events, eventLock());
}

void TuvFSEvents::_listenForFSEventsFromFileTH() {
    constexpr const char* kSelector = "_listenForFSEventsFromFileTH:";
    const std::string name = UserDefaults::standard().stringForKey("listenFromLogFileName").value_or("");
    if (name.empty()) {
        TuvLog::error(tuvFSEventsLog, kSelector,
                      "The default listenFromLogFileName is missing: it names the recording that is to be replayed.");
        TuvLog::info(tuvFSEventsLog, kSelector, "completed");
        return;
    }
    ConditionLock& lock = *waitForEventLock();
    Clock& clock = *_surroundings.clock;
    EventReplay replay(clock, EventReplay::toWaitingEvents(_events, lock, clock));
    replay.replayFile(name);
}

void TuvFSEvents::_resolveFSEventsTH() {
    if (eventLock()) return;
    const BatchResolver::Pacing pacing = listensFromLogFile() ? BatchResolver::kSimulation : BatchResolver::kLive;
    raiseThreadPriority();
    TuvLog::debug(tuvFSEventsLog, "_resolveFSEventsTH:", "starting ...");
    auto* lock = new ConditionLock(0);
    ConditionLock* none = nullptr;
    if (!_eventLock.compare_exchange_strong(none, lock)) {
        delete lock;
        return;
    }
    _eventLock.notify_all();
    BatchResolver(_events, *lock, *_surroundings.clock, pacing).run();
}

}  // namespace kavaro

#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <utility>

#include "fsevents/EventDevice.h"
#include "fsevents/TuvFSEvent.h"
#include "fsevents/WaitingEvents.h"
#include "platform/Clock.h"
#include "platform/ConditionLock.h"

namespace kavaro {

// Listens to every change of a volume: a device thread reads kernel records, or a recording, and lets events wait; a
// resolving thread takes them in batches. The two share the waiting events alone, under the event lock. The threads end
// with the process, or with the volume: the object must live as long.
class TuvFSEvents {
  public:
    struct Surroundings {
        Clock* clock = &Clock::system();
        EventDevice::Open openDevice;  // empty: the real one
    };

    // The one of the process. First asked for by one thread.
    static TuvFSEvents* sharedFSEvents();
    static void startFSEvents();
    // Takes effect for a shared one that is made afterwards.
    static void setSurroundings(const Surroundings& surroundings);

    TuvFSEvents() : TuvFSEvents(Surroundings()) {}
    explicit TuvFSEvents(const Surroundings& surroundings) : _surroundings(surroundings) {}
    TuvFSEvents(const TuvFSEvents&) = delete;
    TuvFSEvents& operator=(const TuvFSEvents&) = delete;
    // REQUIRES: no thread of its runs.
    ~TuvFSEvents() { delete _eventLock.load(); }

    // Starts both threads. The recording named by the default "listenFromLogFileName" takes the place of the device
    // when the default "listenFromLogFile" is set.
    void listenForFileChanges();
    // 1 from when the volume of the default "fsEventsVolume" ("/" without it) is watched until it is unmounted.
    int isListening() const { return _isListening.load(); }

    // The threads' bodies.
    void _listenForFSEventsTH();
    void _listenForFSEventsFromFileTH();
    void _resolveFSEventsTH();

    WaitingEvents& events() { return _events; }
    ConditionLock* eventLock() { return _eventLock.load(); }  // null until there is a resolving thread
    // Of events that were made of records.
    std::uint64_t eventCount() const { return _eventCount; }
    void addEvent(TuvRef<TuvFSEvent> event);
    // Is given what is made of records in place of events(). Before anything is read.
    using Arrival = std::function<void(TuvRef<TuvFSEvent> event)>;
    void setArrival(Arrival arrival) { _arrival = std::move(arrival); }

  private:
    ConditionLock* waitForEventLock();

    const Surroundings _surroundings;
    std::atomic<int> _isListening{0};
    WaitingEvents _events;                            // under *_eventLock once it is there
    std::atomic<ConditionLock*> _eventLock{nullptr};  // made by the resolving thread
    std::atomic<std::uint64_t> _eventCount{0};
    Arrival _arrival;
};

// Makes events of the records in the buffer and lets them wait. Reads no byte beyond its length. Iterative.
void TuvFSEvents_print_event(TuvFSEvents* listener, const std::uint8_t* buffer, int length);

// Puts one argument of a record into the event, which may be null. Gives the argument's type, or -1 when it is longer
// than the `remaining` bytes; `consumed` is its whole length, which may be more than `remaining`.
int TuvFSEvents_dump_entry(const std::uint8_t* entry, int remaining, int* consumed, TuvFSEvent* event);

// The short name of a running process's command; null when there is none. Valid until this thread's next call.
const char* TuvFSEvents_name_from_pid(int process);

}  // namespace kavaro

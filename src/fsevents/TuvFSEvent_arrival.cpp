// addEvent(): where an arriving event goes. The rules are the same for a sorted array and for the events that wait.

#include "fsevents/EventHelpers.h"
#include "fsevents/WaitingEvents.h"

namespace kavaro {

namespace {

class SortedArray {
  public:
    explicit SortedArray(TuvObjectArray* array) : _array(array) {}
    int count() const { return _array->count(); }
    TuvFSEvent* eventWithInode(std::uint32_t inode) const {
        return static_cast<TuvFSEvent*>(_array->binaryObjectWithID(inode));
    }
    void insert(TuvFSEvent* event) {
        const std::int32_t inode = signedInode(*event);
        int low = 0;
        int high = _array->count();
        // Recordings bring their events in this order.
        if (high > 0 && signedInode(*eventAtIndex(*_array, high - 1)) < inode) low = high;
        while (low < high) {
            const int middle = low + (high - low) / 2;
            if (signedInode(*eventAtIndex(*_array, middle)) <= inode)
                low = middle + 1;
            else
                high = middle;
        }
        _array->insertObjectAtIndex(event, low);
    }
    void remove(std::uint32_t inode) { _array->removeObjectAtIndex(_array->binaryIndexOfObjectWithID(inode)); }

  private:
    TuvObjectArray* _array;
};

template <class Events>
void arrive(TuvFSEvent* event, Events& events) {
    TuvFSEvent* waiting = events.eventWithInode(event->inode());
    if (!waiting) {
        events.insert(event);
        return;
    }
    waiting->addChildEvent(event);
    if (!TuvFSEvent::runAsDataCollector() && waiting->is_CREATE_DELETE()) events.remove(waiting->inode());
}

// A lock that may be absent is more than the analysis can follow.
template <class Events>
void filterAndArrive(TuvFSEvent* event, Events& events, ConditionLock* lock) KAVARO_NO_THREAD_SAFETY_ANALYSIS {
    if (!event) return;
    if (!event->shouldAddEvent()) {
        event->release();
        return;
    }
    if (lock) lock->lock();
    arrive(event, events);
    event->release();  // under the lock: the count is a plain number, and the next holder may take the event
    if (lock) lock->unlockWithCondition(events.count() > 0 ? 1 : 0);
}

}  // namespace

void TuvFSEvent::addEvent(TuvFSEvent* event, TuvObjectArray* array, ConditionLock* lock) {
    SortedArray events(array);
    filterAndArrive(event, events, lock);
}

void TuvFSEvent::addEvent(TuvFSEvent* event, WaitingEvents* events, ConditionLock* lock) {
    filterAndArrive(event, *events, lock);
}

}  // namespace kavaro

#include "fsevents/TuvFSEvent.h"

#include <atomic>

namespace kavaro {

namespace {

std::atomic<bool> collects{false};

}  // namespace

void TuvFSEvent::setRunAsDataCollector(bool flag) {
    collects.store(flag, std::memory_order_relaxed);
}

bool TuvFSEvent::runAsDataCollector() {
    return collects.load(std::memory_order_relaxed);
}

}  // namespace kavaro

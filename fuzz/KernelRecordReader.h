#pragma once

#include <cstdint>
#include <cstdlib>

#include "fsevents/TuvFSEvents.h"
#include "platform/ByteView.h"

// What the fuzzer runs, and the test with the corpus: the reader of kernel records, over bytes that may be anything.
// Ends the process when it breaks its promise.
namespace kavaro::fuzz {

inline constexpr std::uint32_t kRecordDevice = 0x0801;

inline void readKernelRecords(ByteView bytes) {
    TuvFSEvent::setAcceptedDevice(kRecordDevice);
    TuvFSEvents listener;
    TuvFSEvents_print_event(&listener, bytes.data(), static_cast<int>(bytes.size()));
    // A record takes four bytes at least, even one that is cut short, and what waits is sorted.
    if (listener.eventCount() > bytes.size() / 4) std::abort();
    const TuvRef<TuvObjectArray> batch = listener.events().takeAll();
    for (int i = 0; i < batch->count(); ++i) {
        const auto* event = static_cast<const TuvFSEvent*>(batch->objectAtIndex(i));
        if (!TuvFSEvent::shouldHandleEventType(event->type()) || event->device() != kRecordDevice) std::abort();
        if (i > 0 && static_cast<std::int32_t>(batch->objectAtIndex(i - 1)->objectID()) >=
                         static_cast<std::int32_t>(event->inode()))
            std::abort();
    }
}

}  // namespace kavaro::fuzz

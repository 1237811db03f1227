#pragma once

#include <cstdint>

#include "fsevents/TuvFSEvent.h"

namespace kavaro {

// Small questions about events and the arrays that hold them, for this room's sources.

inline TuvFSEvent* eventAtIndex(const TuvObjectArray& array, int index) {
    return static_cast<TuvFSEvent*>(array.objectAtIndex(index));
}

// Of a slot as sorting hands it over.
inline const TuvFSEvent* eventOfSlot(const void* slot) {
    return static_cast<const TuvFSEvent*>(*static_cast<const TuvObject* const*>(slot));
}

inline std::int32_t signedInode(const TuvFSEvent& event) {
    return static_cast<std::int32_t>(event.inode());
}

inline bool isRename(const TuvFSEvent& event) {
    static const int rename = TuvFSEvent::intType("RENAME");
    return event.type() == rename;
}

}  // namespace kavaro

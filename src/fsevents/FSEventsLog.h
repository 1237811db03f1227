#pragma once

#include "support/TuvLog.h"

namespace kavaro {

inline constinit const LogComponent tuvFSEventLog{"TuvFSEvent"};
inline constinit const LogComponent tuvFSEventsLog{"TuvFSEvents"};
inline constinit const LogComponent mainLog{"MAIN"};

}  // namespace kavaro

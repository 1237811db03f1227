#pragma once

#include "platform/RunLoop.h"

namespace kavaro {

// Any thread. True once the process has caught TERM, INT or HUP after RunLoop::catchTerminationSignals(). The signal
// also wakes the run loop.
inline bool Tuv_caughtSignal() {
    return RunLoop::caughtSignal() != 0;
}

}  // namespace kavaro

#pragma once

#include <functional>
#include <string_view>

namespace kavaro {

// Starts a detached thread with a name of at most 15 bytes (the rest is cut). The thread lives until `body` returns.
// False when the system has no room for another thread; `body` is then not called.
bool detachThread(std::string_view name, std::function<void()> body);

// Tries once to give the calling thread the nice value -5. False where the process may not; never an error.
bool raiseThreadPriority();

}  // namespace kavaro

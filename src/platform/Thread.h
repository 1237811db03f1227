#pragma once

#include <functional>
#include <string_view>

namespace kavaro {

// Starts a detached thread with a name of at most 15 bytes. The thread lives until `body` returns.
void detachThread(std::string_view name, std::function<void()> body);

// Tries once to give the calling thread the nice value -5. False where the process may not; never an error.
bool raiseThreadPriority();

}  // namespace kavaro

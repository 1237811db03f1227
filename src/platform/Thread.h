#pragma once

#include <cstddef>
#include <functional>
#include <string_view>

namespace kavaro {

// Starts a detached thread with a name of at most 15 bytes (the rest is cut). The thread lives until `body` returns.
// False when the system has no room for another thread; `body` is then not called.
bool detachThread(std::string_view name, std::function<void()> body);

// Processors that this process may use, 1 at least.
int usableProcessors();

// Calls `work` with each index below `count`, in any order, on as many threads as are given, of which the caller is
// one; on fewer where the system has no room for them. Returns when all is done.
void forEachIndex(std::size_t count, int threads, const std::function<void(std::size_t)>& work);

// Tries once to give the calling thread the nice value -5. False where the process may not; never an error.
bool raiseThreadPriority();

}  // namespace kavaro

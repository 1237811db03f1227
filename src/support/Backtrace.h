#pragma once

#include <string>

namespace kavaro {

// The calling thread's stack on one line, innermost call first, for the line after "Exception: %@": names where the
// program carries them, else the file and the offset in it, such as "kavarod+0x1a2b4" (for addr2line). At most 64
// calls. Takes a few milliseconds the first time.
std::string backtrace();

}  // namespace kavaro

#pragma once

#include <string>

namespace kavaro {

// True when the path, of any length, names a symbolic link. False for everything else, also for what cannot be looked
// at. One system call for a path that fits into one.
bool isSymbolicLink(const std::string& path);

}  // namespace kavaro

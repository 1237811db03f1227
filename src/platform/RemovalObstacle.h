#pragma once

#include <cstdint>
#include <string>

#include "platform/Removal.h"

namespace kavaro {

// Why an entry that should have been removed may still be there, as far as it can be told by looking: for people,
// without a full stop; empty when nothing stands in the way. Touches nothing. `asThisUser`: it was tried by a process
// with this one's rights. Looks at no more than 10,000 folders below the entry.
std::string removalObstacle(const std::string& path, RemovalKind kind, bool asThisUser);

// The same for a file that a process with this one's rights should have replaced by a new one of so many bytes.
std::string rewriteObstacle(const std::string& path, std::uint64_t bytes);

}  // namespace kavaro

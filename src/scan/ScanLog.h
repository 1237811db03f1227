#pragma once

#include "support/TuvLog.h"

namespace kavaro {

// Listings are operations of the folder node and are filed under its name.
inline const LogComponent scanLog{"TuvDirNode"};

}  // namespace kavaro

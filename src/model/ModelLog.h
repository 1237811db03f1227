#pragma once

#include "support/TuvLog.h"

namespace kavaro {

inline constinit const LogComponent tuvObjectArrayLog{"TuvObjectArray"};
inline constinit const LogComponent tuvNodeLog{"TuvNode"};
inline constinit const LogComponent tuvDirNodeLog{"TuvDirNode"};

}  // namespace kavaro

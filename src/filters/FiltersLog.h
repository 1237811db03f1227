#pragma once

#include "support/TuvLog.h"

namespace kavaro {

inline constinit const LogComponent tuvNodeFilterLog{"TuvNodeFilter"};
inline constinit const LogComponent tuvNodeFilterItemLog{"TuvNodeFilterItem"};

}  // namespace kavaro

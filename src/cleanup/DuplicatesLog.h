#pragma once

#include "support/TuvLog.h"

namespace kavaro {

inline constinit const LogComponent tuvNodeMD5HashLog{"TuvNodeMD5Hash"};

}  // namespace kavaro

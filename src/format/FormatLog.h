#pragma once

#include "support/TuvLog.h"

namespace kavaro {

inline constinit const LogComponent tuvNodeFormatterLog{"TuvNodeFormatter"};

}  // namespace kavaro

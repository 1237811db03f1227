#pragma once

#include "support/TuvLog.h"

namespace kavaro {

inline constinit const LogComponent serverLog{"TuvNodeFactoryServer"};

}  // namespace kavaro

#pragma once

#include "support/TuvLog.h"

namespace kavaro {

inline const LogComponent serverLog{"TuvNodeFactoryServer"};

}  // namespace kavaro

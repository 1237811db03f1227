#pragma once

#include "support/TuvLog.h"

namespace kavaro {

inline constinit const LogComponent proxyLog{"TuvKavaroProxy"};
inline constinit const LogComponent factoryLog{"TuvNodeFactory"};

}  // namespace kavaro

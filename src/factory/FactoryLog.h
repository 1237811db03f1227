#pragma once

#include "support/TuvLog.h"

namespace kavaro {

inline const LogComponent proxyLog{"TuvKavaroProxy"};
inline const LogComponent factoryLog{"TuvNodeFactory"};

}  // namespace kavaro

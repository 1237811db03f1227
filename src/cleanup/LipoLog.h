#pragma once

#include <string>
#include <vector>

#include "support/TuvLog.h"

namespace kavaro {

inline constinit const LogComponent tuvLipoNodeLog{"TuvLipoNode"};
inline constinit const LogComponent lipoLog{"lipo"};

// "ppc, i386"
inline std::string joined(const std::vector<std::string>& names) {
    std::string text;
    for (const std::string& name : names) text += (text.empty() ? "" : ", ") + name;
    return text;
}

}  // namespace kavaro

#pragma once

#include <string_view>

#include "model/ModelLog.h"
#include "model/TuvNode.h"

namespace kavaro {

// The one line about bytes that cannot be read. Gives false, the reader's result.
bool malformed(const LogComponent& component, const char* what, std::int64_t at, std::size_t size);

// An absent name is written as an empty one.
inline std::string_view nameToWrite(const TuvNode& node) {
    return node.hasFileName() ? node.fileName() : std::string_view();
}

}  // namespace kavaro

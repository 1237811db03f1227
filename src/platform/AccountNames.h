#pragma once

#include <cstdint>
#include <string>

namespace kavaro {

// The name of a user or a group of this system, by its number; empty when nobody has it. Safe from any thread.
std::string userName(std::uint32_t user);
std::string groupName(std::uint32_t group);

}  // namespace kavaro

#pragma once

#include <cstdint>

namespace kavaro {

// Byte counts, in binary multiples.
inline constexpr std::uint64_t Tuv_KB = 1024;
inline constexpr std::uint64_t Tuv_MB = 1024 * Tuv_KB;
inline constexpr std::uint64_t Tuv_GB = 1024 * Tuv_MB;
inline constexpr std::uint64_t Tuv_TB = 1024 * Tuv_GB;

// Depth that debug texts of a whole tree ask for: as good as unlimited.
inline constexpr int Tuv_debugDepth = 1 << 20;

}  // namespace kavaro

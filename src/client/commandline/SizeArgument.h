#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

namespace kavaro {

// A number of bytes as people write it: digits with or without a fraction, and a unit of binary multiples in any letter
// case, with or without blanks before it: "4096", "10 MB", "1.5g", "7 bytes". A part of a byte is left off. Nothing for
// other texts and for more than 64 bits hold.
std::optional<std::uint64_t> readSize(std::string_view text);

}  // namespace kavaro

#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace kavaro {

// How much room text takes on a terminal, in columns: 2 for wide characters, 0 for combining marks, 1 for everything
// else, bytes that are not UTF-8 included. Give it printable() text: control characters count 1.
std::size_t displayWidth(std::string_view text);

// The text, or, when it is wider than `columns`, its beginning and its end with "…" between them. Marks stay with their
// letter. Never wider than `columns`.
std::string cutInMiddle(std::string_view text, std::size_t columns);

// The text with each byte sequence that is not UTF-8 replaced by U+FFFD.
std::string validUTF8(std::string_view text);

}  // namespace kavaro

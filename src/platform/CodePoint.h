#pragma once

#include <unicode/utf8.h>

#include <algorithm>
#include <cstdint>
#include <string_view>

namespace kavaro {

// Reads the code point at `position` and moves behind it. Negative for a byte that is not UTF-8; then it moves by one.
// REQUIRES: position < text.size(). For sources of platform only.
inline UChar32 nextCodePoint(std::string_view text, std::size_t& position) {
    const auto* bytes = reinterpret_cast<const std::uint8_t*>(text.data()) + position;
    // A code point has at most four bytes, and the macro counts in 32 bits.
    const auto length = static_cast<std::int32_t>(std::min<std::size_t>(text.size() - position, U8_MAX_LENGTH));
    std::int32_t offset = 0;
    UChar32 codePoint = 0;
    U8_NEXT(bytes, offset, length, codePoint);
    position += codePoint < 0 ? 1 : static_cast<std::size_t>(offset);
    return codePoint;
}

}  // namespace kavaro

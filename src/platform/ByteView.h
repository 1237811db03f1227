#pragma once

#include <cstdint>
#include <span>
#include <string_view>

namespace kavaro {

// Borrowed bytes. A view whose data() is null stands for "no data", which is not the same as empty data.
using ByteView = std::span<const std::uint8_t>;

inline ByteView bytesOf(std::string_view text) {
    return {reinterpret_cast<const std::uint8_t*>(text.data()), text.size()};
}

inline std::string_view textOf(ByteView bytes) {
    return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

}  // namespace kavaro

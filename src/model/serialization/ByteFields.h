#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <limits>
#include <string_view>

#include "platform/ByteBuffer.h"
#include "platform/ByteView.h"

namespace kavaro {

// Raw fields behind a byte cursor, in host byte order. Every read is checked against what remains; false leaves the
// cursor and the destination alone. Cursors are signed 32-bit: nothing is read beyond 2 GiB - 1.

inline bool hasBytes(ByteView data, int cursor, std::size_t length) {
    constexpr std::size_t kLimit = std::numeric_limits<int>::max();
    const std::size_t end = data.size() < kLimit ? data.size() : kLimit;
    return cursor >= 0 && static_cast<std::size_t>(cursor) <= end && length <= end - static_cast<std::size_t>(cursor);
}

inline void serializeIVar(ByteBuffer& data, const void* bytes, std::size_t length) {
    std::memcpy(data.extend(length), bytes, length);
}

inline bool deserializeIVar(ByteView data, void* destination, int* cursor, std::size_t length) {
    if (!hasBytes(data, *cursor, length)) return false;
    std::memcpy(destination, data.data() + *cursor, length);
    *cursor += static_cast<int>(length);
    return true;
}

inline void serializeNSString(ByteBuffer& data, const char* utf8, std::size_t length) {
    data.append(utf8, length);
}

// The text lies within `data` and lives as long. Its data() is never null: an empty text is not an absent one.
inline bool deserializeNSString(ByteView data, int* cursor, std::size_t length, std::string_view* text) {
    if (!hasBytes(data, *cursor, length)) return false;
    *text = length ? textOf(data.subspan(static_cast<std::size_t>(*cursor), length)) : std::string_view("");
    *cursor += static_cast<int>(length);
    return true;
}

}  // namespace kavaro

#pragma once

#include <rapidjson/writer.h>

#include <string_view>

#include "client/commandline/Output.h"

namespace kavaro {

// Lets a JSON writer write to an Output. Escapes the delete character, which only strings can hold: JSON allows it,
// but ncdu does not read it.
struct JsonStream {
    using Ch = char;
    Output& output;
    void Put(char byte) {
        if (byte == '\x7F') {
            output.write("\\u007F");
        } else {
            output.put(byte);
        }
    }
    void Flush() {}
};

// Bytes of strings pass through as they are but for quotes, backslashes and control characters.
using JsonWriter = rapidjson::Writer<JsonStream>;

inline void writeString(JsonWriter& writer, std::string_view text) {
    writer.String(text.data(), static_cast<rapidjson::SizeType>(text.size()));
}

inline void writeKey(JsonWriter& writer, std::string_view key) {
    writer.Key(key.data(), static_cast<rapidjson::SizeType>(key.size()));
}

}  // namespace kavaro

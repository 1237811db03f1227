#pragma once

#include <cstdint>
#include <string_view>
#include <vector>

#include "client/Measurement.h"
#include "client/commandline/JsonStream.h"

namespace kavaro {

// Members of JSON objects that several outputs have.
void writeNumber(JsonWriter& writer, std::string_view key, std::uint64_t value);
void writeTrue(JsonWriter& writer, std::string_view key);
void writeSeconds(JsonWriter& writer, std::string_view key, double seconds);  // three decimals
// `key` and, for bytes that are not UTF-8, `rawKey`: the bytes in base64.
void writeText(JsonWriter& writer, std::string_view key, std::string_view rawKey, std::string_view text);
// "lowerBound" and "unread"; nothing where all was read.
void writeUnread(JsonWriter& writer, const std::vector<UnreadFolder>& unread);
// "modified": ISO 8601 in UTC, null when unknown.
void writeModified(JsonWriter& writer, const TuvNode& node);

}  // namespace kavaro

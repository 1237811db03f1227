#include "client/commandline/JsonFields.h"

#include <cmath>

#include "client/commandline/JsonOutput.h"
#include "platform/Text.h"
#include "platform/TextDisplay.h"

namespace kavaro {

void writeNumber(JsonWriter& writer, std::string_view key, std::uint64_t value) {
    writeKey(writer, key);
    writer.Uint64(value);
}

void writeTrue(JsonWriter& writer, std::string_view key) {
    writeKey(writer, key);
    writer.Bool(true);
}

void writeSeconds(JsonWriter& writer, std::string_view key, double seconds) {
    writeKey(writer, key);
    writer.Double(std::round(seconds * 1000) / 1000);
}

void writeText(JsonWriter& writer, std::string_view key, std::string_view rawKey, std::string_view text) {
    writeKey(writer, key);
    if (isValidUTF8(text)) {
        writeString(writer, text);
        return;
    }
    writeString(writer, validUTF8(text));
    writeKey(writer, rawKey);
    writeString(writer, base64(bytesOf(text)));
}

void writeUnread(JsonWriter& writer, const std::vector<UnreadFolder>& unread) {
    if (unread.empty()) return;
    writeTrue(writer, "lowerBound");
    writeKey(writer, "unread");
    writer.StartArray();
    for (const UnreadFolder& folder : unread) {
        writer.StartObject();
        writeText(writer, "path", "pathRaw", folder.path);
        writeText(writer, "reason", "reasonRaw", folder.reason);
        writer.EndObject();
    }
    writer.EndArray();
}

void writeModified(JsonWriter& writer, const TuvNode& node) {
    writeKey(writer, "modified");
    if (node.contentModDate() > 0) {
        writeString(writer, isoTime(node.modDate()));
    } else {
        writer.Null();
    }
}

}  // namespace kavaro

#include "cleanup/HashRecordMessage.h"

namespace kavaro {

namespace {

constexpr std::string_view kData = "data";
constexpr std::string_view kHeaderData = "headerData";

BusValue valueOf(const MD5HashHeader& header) {
    return BusValue::texts({header.begin(), header.end()});
}

std::optional<HashRecordMessage> messageOf(const BusValue& data, const BusValue& header) {
    const auto bytes = data.asData();
    const auto texts = header.asDictionary();
    if (!bytes || !texts) return std::nullopt;
    HashRecordMessage message{*bytes, {}};
    for (const auto& [key, text] : *texts) message.header[key] = text.asString().value_or("");
    return message;
}

}  // namespace

std::vector<BusValue> hashRecordArguments(const TuvObjectArray* records) {
    MD5HashHeader header;
    ByteBuffer data;
    TuvNodeMD5Hash::serialize_TuvObjectArray(records, &header, data);
    return {BusValue::variant(BusValue::data(data.view())), valueOf(header)};
}

std::optional<HashRecordMessage> readHashRecordArguments(const std::vector<BusValue>& arguments) {
    return arguments.size() < 2 ? std::nullopt : messageOf(arguments[0], arguments[1]);
}

BusValue hashRecordAnswer(ByteView data, const MD5HashHeader& header) {
    return BusValue::dictionary(
        {{std::string(kData), BusValue::data(data)}, {std::string(kHeaderData), valueOf(header)}});
}

TuvRef<TuvObjectArray> readHashRecordAnswer(const BusValue& answer) {
    const auto message = messageOf(answer.get(kData), answer.get(kHeaderData));
    return message ? TuvNodeMD5Hash::deserialize_TuvObjectArray(message->header, message->data.view()) : nullptr;
}

}  // namespace kavaro

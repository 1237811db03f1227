#pragma once

#include <optional>
#include <vector>

#include "cleanup/TuvNodeMD5Hash.h"
#include "platform/BusValue.h"

namespace kavaro {

// Hash records on the bus: the arguments of fileDuplicatesHeader and its answer.

// Bytes that came with their header. They may be anything.
struct HashRecordMessage {
    BusData data;
    MD5HashHeader header;
};

// The records in their full form, as the arguments of a call.
std::vector<BusValue> hashRecordArguments(const TuvObjectArray* records);
// Nothing when they are not bytes (or a memory file) and texts.
std::optional<HashRecordMessage> readHashRecordArguments(const std::vector<BusValue>& arguments);

BusValue hashRecordAnswer(ByteView data, const MD5HashHeader& header);
// The records in an answer; null when there are none in it that make sense.
TuvRef<TuvObjectArray> readHashRecordAnswer(const BusValue& answer);

}  // namespace kavaro

#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/ByteBuffer.h"

namespace kavaro {

// What a notification carries beside its name. An entry that is absent is not in the dictionary; when none is there,
// there is no dictionary.
struct NotificationUserInfo {
    std::shared_ptr<const ByteBuffer> serialized;            // "serialized"
    std::optional<std::vector<std::uint32_t>> parentInodes;  // "parentInodes"
    std::optional<std::vector<std::string>> folders;         // "folders", with:
    std::vector<std::string> reasons;                        // "reasons", one for each folder

    bool isEmpty() const { return !serialized && !parentInodes && !folders; }
};

}  // namespace kavaro

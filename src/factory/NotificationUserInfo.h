#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/ByteBuffer.h"
#include "platform/PropertyList.h"

namespace kavaro {

// Why one path is not in the Trash.
struct TrashError {
    std::string reason;       // "reason"
    std::string pathName;     // "pathName"
    PropertyList attributes;  // "attributes": of the file; null and absent for a path that could not be loaded
    std::string detail;       // "detail": what the system says, for people; empty and absent when unknown
};

// What a notification carries beside its name. An entry that is absent is not in the dictionary; when none is there,
// there is no dictionary.
struct NotificationUserInfo {
    std::shared_ptr<const ByteBuffer> serialized;            // "serialized"
    std::optional<std::vector<std::uint32_t>> parentInodes;  // "parentInodes"
    std::optional<std::vector<std::string>> folders;         // "folders", with:
    std::vector<std::string> reasons;                        // "reasons", one for each folder
    std::optional<std::vector<TrashError>> errors;           // "errors"

    bool isEmpty() const { return !serialized && !parentInodes && !folders && !errors; }
};

}  // namespace kavaro

#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "platform/BusValue.h"
#include "platform/PropertyList.h"

namespace kavaro {

// What a client asks of the engine about architectures, and what it is told.

// A file whose architectures are asked for. The inode is what the answer is known by.
struct LipoQuestion {
    std::uint32_t inode = 0;
    std::string filePath;
    bool operator==(const LipoQuestion&) const = default;
};

// Tables of architectures (TuvLipoNode) by inode; none is empty.
using LipoTables = std::map<std::uint32_t, PropertyList>;

// What is to be removed from a file.
struct LipoRemoval {
    std::string filePath;
    std::vector<std::string> archTypes;
    bool operator==(const LipoRemoval&) const = default;
};

// The same as values of the bus: aa{sv}, a{ua{sa{ss}}} and aa{sv}. Nothing is read from a value of which a part makes
// no sense: one that is missing, has another type, or is a path that is not absolute or holds a NUL byte.
BusValue busValueOf(const std::vector<LipoQuestion>& files);
BusValue busValueOf(const LipoTables& tables);
BusValue busValueOf(const std::vector<LipoRemoval>& files);
std::optional<std::vector<LipoQuestion>> lipoQuestionsIn(const BusValue& value);
std::optional<LipoTables> lipoTablesIn(const BusValue& value);
std::optional<std::vector<LipoRemoval>> lipoRemovalsIn(const BusValue& value);

}  // namespace kavaro

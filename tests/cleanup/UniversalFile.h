#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "cleanup/UniversalHeader.h"

namespace kavaro {

// Processor types as they stand in files.
inline constexpr std::uint32_t kTypeIntel = 7, kTypeIntel64 = 0x01000007, kTypeARM64 = 0x0100000c, kTypePowerPC = 18;

// Made-up code for one kind of processor.
struct MadeSlice {
    std::uint32_t cpuType;
    std::uint32_t cpuSubtype;
    std::string content;
    std::uint32_t alignment = 12;
};

inline const MadeSlice kPPC{kTypePowerPC, 0, std::string(1000, 'p')};
inline const MadeSlice kPPC7400{kTypePowerPC, 10, std::string(2000, 'q')};
inline const MadeSlice kI386{kTypeIntel, 3, std::string(3000, 'i')};
inline const MadeSlice kX86_64{kTypeIntel64, 0x80000003, std::string(4000, 'x')};
inline const MadeSlice kARM64{kTypeARM64, 0, std::string(5000, 'a'), 14};

// The table and the code, each slice at the first place that its alignment allows, zeros between them.
inline std::string universalFile(const std::vector<MadeSlice>& slices, bool isWide = false) {
    UniversalHeader header;
    header.isWide = isWide;
    std::uint64_t next = 8 + slices.size() * (isWide ? 32 : 20);
    for (const MadeSlice& slice : slices) {
        const std::uint64_t unit = std::uint64_t{1} << slice.alignment;
        next = (next + unit - 1) / unit * unit;
        header.slices.push_back({slice.cpuType, slice.cpuSubtype, next, slice.content.size(), slice.alignment, 0});
        next += slice.content.size();
    }
    std::string bytes = header.bytes();
    for (std::size_t i = 0; i < slices.size(); ++i) {
        bytes.resize(static_cast<std::size_t>(header.slices[i].offset), '\0');
        bytes += slices[i].content;
    }
    return bytes;
}

inline const std::vector<MadeSlice> kFourSlices = {kPPC, kPPC7400, kI386, kX86_64};

}  // namespace kavaro

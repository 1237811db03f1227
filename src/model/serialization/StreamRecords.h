#pragma once

#include <cstddef>
#include <cstdint>

namespace kavaro {

// Fixed parts of the stream form, in host byte order, without padding; a name follows each header. Bytes on the wire:
// do not change. docs/byte-formats.md has them as tables.
#pragma pack(push, 1)
struct NodeHeader {
    std::uint32_t inode;
    double contentModDate;  // seconds since 1904-01-01 00:00:00 UTC
    std::uint64_t logicalSize;
    std::uint64_t physicalSize;
    std::uint32_t nameLength;  // bytes
};
struct FolderHeader {
    NodeHeader node;
    std::uint16_t flags;
    std::int16_t depth;  // above 1: the files array and the folders array follow the name
};
#pragma pack(pop)
static_assert(sizeof(NodeHeader) == 32 && sizeof(FolderHeader) == 36);

using ArrayCount = std::int32_t;
using TypeCode = std::uint32_t;  // TuvNode::Type, in front of each record of the mixed form

// Depths with a meaning of their own: 2 is one level of children, anything larger the whole subtree.
constexpr int kDepthOfHeader = 0;
constexpr int kDepthOfChildren = 2;

}  // namespace kavaro

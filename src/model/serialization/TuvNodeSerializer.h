#pragma once

#include <cstdint>
#include <string>

#include "platform/ByteBuffer.h"

namespace kavaro {

// Records of the three-stream database form, in host byte order. Bytes on disk: do not change.
struct TuvNodeIndex {
    std::uint32_t inode = 0;
    std::uint32_t parentInode = 0;  // 0: no parent
};
static_assert(sizeof(TuvNodeIndex) == 8);

struct TuvNodeBase {
    double contentModDate = 0;  // seconds since 1904-01-01 00:00:00 UTC
    std::uint64_t logicalSize = 0;
    std::uint64_t physicalSize = 0;
    std::uint32_t nameOffset = 0;  // in the data stream
    std::uint16_t nameLength = 0;  // bytes
    std::uint16_t flags = 0;
};
static_assert(sizeof(TuvNodeBase) == 32);

// The state of a three-file write, owned by its caller and used by one thread. Memory stays bounded: each buffer goes
// to its file when it holds over one mebibyte. The caller flushes the three streams with `force` before
// TuvNodeSerializer_dealloc, which does not.
struct TuvNodeSerializer {
    static constexpr std::size_t kFlushBytes = 1u << 20;
    static constexpr std::uint32_t kPoolInterval = 1000;

    // The count starts anew after this many nodes. Nothing is pooled here: both are kept for whoever watches a write.
    std::uint32_t poolInterval = kPoolInterval;
    std::uint32_t nodesSinceRenewal = 0;
    std::uint32_t nodesTotal = 0;
    std::uint32_t indexBytes = 0;  // written to the index file so far
    ByteBuffer indexBuffer;
    int indexFile = -1;
    std::uint32_t nodeBytes = 0;  // written to the node file so far
    ByteBuffer nodeBuffer;
    int nodeFile = -1;
    std::uint32_t dataOffset = 0;  // the offset that the next name gets
    ByteBuffer dataBuffer;
    int dataFile = -1;
};

// Creates (or empties) the three files. False, with a log line, when one cannot be opened: then none is left open.
bool TuvNodeSerializer_alloc(TuvNodeSerializer& serializer, const std::string& indexPath, const std::string& nodePath,
                             const std::string& dataPath);
// Closes the files after their content has reached the disk.
void TuvNodeSerializer_dealloc(TuvNodeSerializer& serializer);
// Each writes its buffer when it holds more than kFlushBytes or `force` is set.
void serializeIndexBytes(TuvNodeSerializer& serializer, bool force);
void serializeNodeBytes(TuvNodeSerializer& serializer, bool force);
void serializeDataBytes(TuvNodeSerializer& serializer, bool force);
// Writes all of the data; a failure is logged and the data is lost.
void serializeBytes(int fileDescriptor, const ByteBuffer& data);

}  // namespace kavaro

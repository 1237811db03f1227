#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "platform/ByteBuffer.h"

namespace kavaro {

// The records that the event device delivers, back to back, little-endian, packed: type (4 bytes), process (4), then
// arguments, each with its type (2), the length of its data (2) and the data; then the end marker (2). Do not change.
namespace record {

enum EventType : std::int32_t {
    kCreateFile = 0,
    kDelete = 1,
    kStatChanged = 2,
    kRename = 3,
    kModified = 4,
    kCreateDir = 7,
};

enum ArgumentType : std::uint16_t {
    kVnode = 1,   // path
    kString = 2,  // path
    kPath = 3,    // path
    kInt32 = 4,
    kInt64 = 5,
    kRaw = 6,
    kInode = 7,  // 32 bits, as are the others
    kUser = 8,
    kDevice = 9,
    kMode = 10,
    kGroup = 11,
    kFinderInfo = 12,
    kDone = 0xB33F,
};

inline constexpr int kHeadSize = 8;
inline constexpr int kArgumentHeadSize = 4;
inline constexpr int kDoneSize = 2;
inline constexpr int kReadSize = 32000;  // at most what one read of the device gives
inline constexpr std::size_t kLongestData = 65535;

}  // namespace record

// Writes records, one argument after another.
class KernelRecordWriter {
  public:
    explicit KernelRecordWriter(ByteBuffer& buffer) : _buffer(buffer) {}

    void begin(std::int32_t type, std::int32_t process);
    // With its closing NUL. REQUIRES: at most kLongestData bytes with it.
    void addText(record::ArgumentType type, std::string_view text);
    void addNumber(record::ArgumentType type, std::uint32_t number);
    void end();

  private:
    void add16(std::uint32_t value);
    void add32(std::uint32_t value);

    ByteBuffer& _buffer;
};

}  // namespace kavaro

#include <bit>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <limits>

#include "cleanup/DuplicatesLog.h"
#include "cleanup/TuvNodeMD5Hash.h"
#include "model/serialization/ByteFields.h"
#include "platform/Text.h"

namespace kavaro {

namespace {

constexpr int kDigestField = 34;
constexpr int kLargeCount = 8000;
constexpr const char* kInstanceCount = "instanceCount";
constexpr const char* kDataSize = "dataSize";

// The fixed part of a full record, little-endian. Bytes on the wire: do not change.
struct FixedPart {
    std::uint32_t inode = 0;
    char digest[kDigestField] = {};
    std::uint8_t padding[2] = {};
    std::uint64_t modified = 0;  // the bits of a double
    std::uint32_t pathLength = 0;
    std::uint32_t unused = 0;  // not written: the compiler would put it here anyway
};
static_assert(offsetof(FixedPart, digest) == 4 && offsetof(FixedPart, modified) == 40);
static_assert(offsetof(FixedPart, pathLength) == TuvNodeMD5HashCompactDataSize);
static_assert(offsetof(FixedPart, unused) == TuvNodeMD5HashDataSize);

std::uint32_t little(std::uint32_t value) {
    return std::endian::native == std::endian::little ? value : __builtin_bswap32(value);
}
std::uint64_t little(std::uint64_t value) {
    return std::endian::native == std::endian::little ? value : __builtin_bswap64(value);
}

std::size_t fixedSize(signed char compact) {
    return compact ? TuvNodeMD5HashCompactDataSize : TuvNodeMD5HashDataSize;
}

// The number at the beginning of a header's text, as far as an int holds it; 0 when there is none.
int headerNumber(const MD5HashHeader& header, const char* key) {
    const auto entry = header.find(std::string_view(key));
    if (entry == header.end()) return 0;
    const long long number = std::strtoll(entry->second.c_str(), nullptr, 10);
    if (number > std::numeric_limits<int>::max()) return std::numeric_limits<int>::max();
    if (number < std::numeric_limits<int>::min()) return std::numeric_limits<int>::min();
    return static_cast<int>(number);
}

}  // namespace

void TuvNodeMD5Hash::serialize(ByteBuffer& data, signed char compact) const {
    std::string_view digest = _md5Hash;
    const bool traceOn = tuvNodeMD5HashLog.traceOn();
    if (traceOn) TuvLog::trace(tuvNodeMD5HashLog, "serialize", "inode=%d, md5Hash=%@", _inode, _md5Hash);
    if (digest.size() > kLongestDigest) {
        TuvLog::error(tuvNodeMD5HashLog, "serialize", "%d is larger than what we can handle(%d), inode=%d, md5Hash=%@",
                      digest.size(), kDigestField, _inode, _md5Hash);
        digest = digest.substr(0, kLongestDigest);
    }
    FixedPart fixed;
    fixed.inode = little(_inode);
    std::memcpy(fixed.digest, digest.data(), digest.size());
    fixed.modified = little(std::bit_cast<std::uint64_t>(_modified));
    const std::string_view path = _filePath ? std::string_view(*_filePath) : std::string_view();
    fixed.pathLength = little(static_cast<std::uint32_t>(path.size()));
    serializeIVar(data, &fixed, fixedSize(compact));
    if (!compact) serializeNSString(data, path.data(), path.size());
    if (traceOn) TuvLog::trace(tuvNodeMD5HashLog, "serialize", "inode=%d, md5Hash=%@", _inode, _md5Hash);
}

void TuvNodeMD5Hash::serializeCompact_TuvObjectArray(const TuvObjectArray* records, MD5HashHeader* header,
                                                     ByteBuffer& data, signed char compact) {
    const char* const selector = "serializeCompact_TuvObjectArray";
    const int count = records ? records->count() : 0;
    if (tuvNodeMD5HashLog.debugOn()) TuvLog::debug(tuvNodeMD5HashLog, selector, "%d objects", count);
    if (count == 0) {
        TuvLog::error(tuvNodeMD5HashLog, selector, "Can't serialze %d objects", 0);
        return;
    }
    (*header)[kInstanceCount] = std::to_string(count);
    for (TuvObject* record : *records) static_cast<const TuvNodeMD5Hash*>(record)->serialize(data, compact);
    (*header)[kDataSize] = std::to_string(data.size());
    if (tuvNodeMD5HashLog.debugOn()) TuvLog::debug(tuvNodeMD5HashLog, selector, "%d bytes", data.size());
    if (count > kLargeCount)
        TuvLog::info(tuvNodeMD5HashLog, selector, "large array with %d rows, %d bytes", count, data.size());
}

void TuvNodeMD5Hash::serialize_TuvObjectArray(const TuvObjectArray* records, MD5HashHeader* header, ByteBuffer& data) {
    serializeCompact_TuvObjectArray(records, header, data, 0);
}

bool TuvNodeMD5Hash::deserialize(ByteView data, int* cursor, signed char compact) {
    if (tuvNodeMD5HashLog.traceOn()) TuvLog::trace(tuvNodeMD5HashLog, "deserialize", "%d bytes", data.size());
    const int begin = *cursor;
    const auto fail = [&] {
        TuvLog::error(tuvNodeMD5HashLog, "deserialize", "the record at %d leads past the end of %d bytes", begin,
                      data.size());
        return false;
    };
    FixedPart fixed;
    if (!deserializeIVar(data, &fixed, cursor, fixedSize(compact))) return fail();
    _inode = little(fixed.inode);
    _modified = std::bit_cast<double>(little(fixed.modified));
    const std::string_view digest(fixed.digest, strnlen(fixed.digest, sizeof fixed.digest));
    setMD5Hash(isValidUTF8(digest) ? digest : std::string_view());
    if (!compact) {
        std::string_view path;
        if (!deserializeNSString(data, cursor, little(fixed.pathLength), &path)) return fail();
        _filePath = std::string(path);
    }
    if (tuvNodeMD5HashLog.traceOn()) TuvLog::trace(tuvNodeMD5HashLog, "deserialize", "%@", this);
    return true;
}

TuvRef<TuvObjectArray> TuvNodeMD5Hash::deserializeCompact_TuvObjectArray(const MD5HashHeader& header, ByteView data,
                                                                         signed char compact) {
    const char* const selector = "deserializeCompact_TuvObjectArray";
    if (tuvNodeMD5HashLog.debugOn()) TuvLog::debug(tuvNodeMD5HashLog, selector, "%d bytes", data.size());
    if (data.empty()) {
        TuvLog::error(tuvNodeMD5HashLog, selector, "Can't serialze %d bytes", 0);
        return nullptr;
    }
    const int size = headerNumber(header, kDataSize);
    if (size < 0 || static_cast<std::size_t>(size) != data.size()) {
        TuvLog::error(tuvNodeMD5HashLog, selector, "We got %d bytes, but the header says %d.", data.size(), size);
        return nullptr;
    }
    const int count = headerNumber(header, kInstanceCount);
    if (count <= 0) {
        TuvLog::error(tuvNodeMD5HashLog, selector, "What's the number of items ? We got %d bytes.", data.size());
        return nullptr;
    }
    // Before there is room made for them.
    if (data.size() / fixedSize(compact) < static_cast<std::size_t>(count)) {
        TuvLog::error(tuvNodeMD5HashLog, selector, "%d bytes cannot hold %d records", data.size(), count);
        return nullptr;
    }
    auto records = make<TuvObjectArray>(count);
    int cursor = 0;
    for (int i = 0; i < count; ++i) {
        auto record = make<TuvNodeMD5Hash>();
        if (!record->deserialize(data, &cursor, compact)) return nullptr;
        records->adoptObject(record.leak());
    }
    if (tuvNodeMD5HashLog.debugOn()) TuvLog::debug(tuvNodeMD5HashLog, selector, "%d items", records->count());
    return records;
}

TuvRef<TuvObjectArray> TuvNodeMD5Hash::deserialize_TuvObjectArray(const MD5HashHeader& header, ByteView data) {
    return deserializeCompact_TuvObjectArray(header, data, 0);
}

}  // namespace kavaro

#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>

#include "model/TuvNode.h"
#include "model/TuvObject.h"
#include "model/TuvObjectArray.h"
#include "platform/ByteBuffer.h"

namespace kavaro {

// "instanceCount" and "dataSize" of records in their byte form, as decimal numbers.
using MD5HashHeader = std::map<std::string, std::string, std::less<>>;

// Fixed part of a record in its byte form. Bytes on the wire: do not change.
inline constexpr std::size_t TuvNodeMD5HashDataSize = 52;         // the path follows
inline constexpr std::size_t TuvNodeMD5HashCompactDataSize = 48;  // without a path

// The digest of one file, with what tells later whether it still holds. Made from a node or from bytes, gets its digest
// once. Arrays of records and nodes here are changed by one thread at a time. Failures are log lines and an empty
// digest.
class TuvNodeMD5Hash : public TuvObject {
  public:
    static constexpr int kBatchSize = 20;              // files that the tool is given at once
    static constexpr std::size_t kLongestDigest = 33;  // bytes that the byte form has room for

    explicit TuvNodeMD5Hash(const TuvNode* node);  // without a digest
    TuvNodeMD5Hash();

    std::uint32_t objectID() const override { return _inode; }
    std::uint32_t inode() const { return _inode; }
    // Texts that are a message of the tool are refused with a log line: the digest is then empty.
    void setMD5Hash(std::string_view text);
    const std::string& md5Hash() const { return _md5Hash; }  // 32 hexadecimal characters, or empty
    // Absent in records that were read from the compact form.
    const std::optional<std::string>& filePath() const { return _filePath; }
    void setFilePath(std::optional<std::string> path) { _filePath = std::move(path); }
    // The file's own date when the record was made, in seconds since 1904-01-01 00:00:00 UTC.
    double modified() const { return _modified; }
    std::string description() const override;

    // Of an array of records. The second REQUIRES: ascending by inode; null when there is none.
    static TuvNodeMD5Hash* atIndex(const TuvObjectArray* records, int index) {
        return static_cast<TuvNodeMD5Hash*>(records->objectAtIndex(index));
    }
    static TuvNodeMD5Hash* recordOfNode(const TuvObjectArray* records, const TuvNode* node) {
        return static_cast<TuvNodeMD5Hash*>(records->binaryObjectWithID(node->inode()));
    }

    void loadMD5Hash();                                      // of this file
    static void loadMD5Hash(const TuvObjectArray* records);  // in batches; null for none
    // One fresh record a node, in their order.
    static TuvRef<TuvObjectArray> md5HashesFromTuvNodes(const TuvObjectArray* nodes);
    // The members of all groups, in order.
    static TuvRef<TuvObjectArray> flatenArray(const TuvObjectArray* groups);
    // The nodes without a record as recent as they are. REQUIRES: records ascending by inode.
    static TuvRef<TuvObjectArray> fileNodesToReload(const TuvObjectArray* nodes, const TuvObjectArray* records);
    // Leaves the newest record of each inode, and that only with a digest; returns how many went. A record with inode 0
    // goes, too, when it is the first. REQUIRES: sorted by TuvNodeMD5Hash_sortByInode.
    static int cleanedArray(TuvObjectArray* records);
    // Groups of nodes whose digest is that of the first member. Those groups lose their other members, members without
    // a record stay; groups that are left with one member leave the potential ones, those whose first member has no
    // record neither leave them nor become real. Sorts the records.
    static TuvRef<TuvObjectArray> duplicateFiles(TuvObjectArray* potentialGroups, TuvObjectArray* records);
    static void debugDuplicates(const TuvObjectArray* records, const char* selector);

    // Byte form, full (0) or compact (TuvNodeMD5Hash_serialization.cpp). Readers give false or null, with a log line,
    // for bytes that are cut short or make no sense.
    void serialize(ByteBuffer& data, signed char compact) const;
    bool deserialize(ByteView data, int* cursor, signed char compact);
    // An empty array leaves header and data alone.
    static void serializeCompact_TuvObjectArray(const TuvObjectArray* records, MD5HashHeader* header, ByteBuffer& data,
                                                signed char compact);
    static void serialize_TuvObjectArray(const TuvObjectArray* records, MD5HashHeader* header, ByteBuffer& data);
    static TuvRef<TuvObjectArray> deserializeCompact_TuvObjectArray(const MD5HashHeader& header, ByteView data,
                                                                    signed char compact);
    static TuvRef<TuvObjectArray> deserialize_TuvObjectArray(const MD5HashHeader& header, ByteView data);

  protected:
    ~TuvNodeMD5Hash() override = default;

  private:
    static void loadBatch(TuvObjectArray* batch);

    std::optional<std::string> _filePath;
    std::uint32_t _inode = 0;
    std::string _md5Hash;
    double _modified = 0;
};

// Comparisons for TuvObjectArray::sortByFunction.
int TuvNodeMD5Hash_sortByInode(const void* a, const void* b);     // of one inode, the latest date first
int TuvNodeMD5Hash_sortByFilePath(const void* a, const void* b);  // letter case ignored

}  // namespace kavaro

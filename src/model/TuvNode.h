#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "model/NodeText.h"
#include "model/TuvObject.h"
#include "model/TuvObjectArray.h"
#include "platform/ByteBuffer.h"
#include "platform/Catalog.h"

namespace kavaro {

class NodeFilterRule;
class PropertyList;
class TuvDirNode;
struct TuvNodeBase;
struct TuvNodeIndex;
struct TuvNodeSerializer;

// One entry of a measured tree: a file here, a folder in TuvDirNode. Made in the hundreds of thousands: 72 bytes and
// the name. The parent owns its children through its arrays; the pointer back is not retained, and nobody clears it:
// a node that outlives its parent must not be asked for its path. Used by one thread at a time, like its tree.
class TuvNode : public TuvObject {
  public:
    enum Flag : std::uint16_t {  // these values travel in byte forms: do not change
        kFile = 0x01,
        kFolder = 0x02,
        kResolved = 0x10,   // the sizes are final
        kHasLoaded = 0x20,  // a folder whose children have been loaded
    };
    enum Type { kTypeFile = 1, kTypeFolder = 2, kTypeOther = 3 };
    static constexpr std::string_view kNoFileName = "No File Name !!!";
    static constexpr std::string_view kNoPath = "NO FILE NAME";
    // Paths up to this length stay cached in every node on the way up; longer ones only in the node that was asked,
    // or a very deep tree would hold a path for each level.
    static constexpr std::size_t kCachedAncestorPathLimit = 4096;

    TuvNode();

    std::uint32_t objectID() const override { return _inode; }
    std::uint32_t inode() const { return _inode; }
    void setInode(std::uint32_t inode) { _inode = inode; }
    bool isEqual(const TuvObject* other) const override;  // REQUIRES: other is a TuvNode or null
    std::uint16_t flags() const { return _flags; }
    void setFlags(std::uint16_t flags) { _flags = flags; }
    int nodeType() const { return _flags & kFile ? kTypeFile : _flags & kFolder ? kTypeFolder : kTypeOther; }
    const char* nodeTypeString() const;
    bool isDirectory() const { return _flags & kFolder; }
    bool isResolved() const { return _flags & kResolved; }
    virtual void setIsResolved(bool flag);
    virtual void setIsResolved(bool flag, bool recursive);
    virtual int fileCount() const { return 0; }
    virtual int folderCount() const { return 0; }
    virtual int recursiveFileCount() const { return 1; }
    virtual int recursiveFolderCount() const { return 0; }
    virtual bool isSymbolicLink() const { return false; }
    virtual bool isHardLink() const { return nodeType() == kTypeFile; }
    bool isSameFileSystem() const { return true; }
    bool isReadOnly() const { return false; }
    // Inodes from the folder with `stopInode` down to this one, outermost first; nothing for a plain node.
    virtual void parentINodes(std::uint32_t stopInode, std::vector<std::uint32_t>& inodes) const;
    virtual std::vector<std::uint32_t> parentINodes(const TuvNode& node) const;

    std::uint64_t logicalSize() const { return _logicalSize; }    // bytes of content
    std::uint64_t physicalSize() const { return _physicalSize; }  // bytes allocated
    void setLogicalSize(std::uint64_t size) { _logicalSize = size; }
    void setPhysicalSize(std::uint64_t size) { _physicalSize = size; }
    // Seconds since 1904-01-01 00:00:00 UTC.
    double contentModDate() const { return _contentModDate; }
    void setContentModDate(double seconds) { _contentModDate = seconds; }
    double modDate() const;          // the same moment in seconds since 1970-01-01 00:00:00 UTC
    static double dateForJan1904();  // the epoch in seconds since 1970: negative
    static double timeIntervalFromUTCDateTime(UTCDateTime value);
    static std::optional<double> convertUTCtoNSDate(UTCDateTime value);  // seconds since 1970; nothing for zero

    // Views are valid until the name or the path changes.
    std::string_view fileName() const;
    bool hasFileName() const { return !_fileName.isNull(); }
    void setFileName(std::string_view name);
    void setFileName(NodeText name);
    std::string convertedFileName() const;
    std::string fileExtension() const;
    std::string fileNameWithoutExtension() const;
    std::string_view filePath() const;  // from the parents; fills the cache, which a change above does not empty
    void setFilePath(std::string_view path);
    bool hasCachedFilePath() const { return !_filePath.isNull(); }
    TuvDirNode* parent() const { return _parent; }
    void setParent(TuvDirNode* parent);
    std::string description() const override;  // the path
    // The path less as many characters from its front as the other's path matches anywhere in it, letter case ignored.
    std::string filePathRelativeOfNode(const TuvNode* other) const;
    // Of a name that is a whole path: what follows the parent's path.
    void setFileNameAsChildOfParent();
    // The ancestors below `upTo` (all of them when it is null or none) and this node, outermost first.
    TuvRef<TuvObjectArray> parentChain(const TuvNode* upTo, bool includeUpTo);

    // Takes over the other's sizes and name. Always true.
    bool mergeNode(const TuvNode& other);
    // The flag is handed to the filter, which reads it as: the exact name. Logs what passes at trace level.
    bool filterUsing(const NodeFilterRule& filter, bool flag = false) const;
    bool filterUsing(const NodeFilterRule* filter, signed char flag = 0) const {
        return filterUsing(*filter, flag != 0);
    }

    // scan/
    // Both dates are there (seconds since 1970) and the reference is earlier: logged, `label` names the date.
    static bool hasFileSytemChanged(std::optional<double> current, std::optional<double> reference,
                                    std::string_view path, std::string_view label);
    // Held against attributes as fileAttributesAtPath() gave them before: the entry is gone, a file became a folder or
    // the reverse, or it has a newer date of creation or modification. The number is not used.
    virtual bool hasFileSytemChanged(const PropertyList& cachedAttributes, int ignored);

    // Nodes alive in the process.
    static int instanceCount();
    // User defaults, read and written on every call; a write that fails is logged.
    static bool doNotAutoRemeasure();
    static bool autoRemeasure();  // not doNotAutoRemeasure()
    static void setDoNotAutoRemeasure(bool flag);
    static bool removeAsSudo();
    static void setRemoveAsSudo(bool flag);

    // Byte forms (serialization/). Readers give false or null, with one log line, for bytes that are cut short or make
    // no sense; the cursor is then unspecified.
    virtual void serialize(ByteBuffer& data, int depth) const;
    virtual bool deserialize(ByteView data, int* cursor);
    virtual ByteBuffer serialize() const;
    virtual TuvNode* deserialize(ByteView data);
    virtual void tuvNodeDatabase_serialize(ByteBuffer* index, ByteBuffer* node, ByteBuffer* data) const;
    virtual void tuvNodeDatabase_serialize2(TuvNodeSerializer& serializer) const;
    bool tuvNodeDatabase_deserialize(const TuvNodeIndex& index, const TuvNodeBase& node, ByteView data);

    void debugHeader() const override;
    void debug(int shift, int depth) const override;
    void debug() const override;

  protected:
    explicit TuvNode(std::uint16_t flags);
    ~TuvNode() override;

  private:
    friend class TuvDirNode;  // chains dying folders by their parent pointers
    std::string composePath() const;

    std::uint16_t _flags;
    std::uint32_t _inode = 0;
    TuvDirNode* _parent = nullptr;  // not retained
    double _contentModDate = 0;
    std::uint64_t _logicalSize = 0;
    std::uint64_t _physicalSize = 0;
    NodeText _fileName;
    mutable NodeText _filePath;
};

inline TuvNode* TuvObjectArray::asNode(TuvObject* object) {
    return static_cast<TuvNode*>(object);
}

// Comparisons for TuvObjectArray::sortByFunction.
int TuvNode_sortByPhysicalSize(const void* a, const void* b);  // largest first
int TuvNode_sortByLogicalSize(const void* a, const void* b);   // largest first
int TuvNode_sortByModDate(const void* a, const void* b);       // newest first
int TuvNode_sortByInode(const void* a, const void* b);
int TuvNode_sortByName(const void* a, const void* b);
int TuvNode_sortByNameInsensitive(const void* a, const void* b);
int TuvNode_sortByPath(const void* a, const void* b);
int TuvNode_sortByPathInsensitive(const void* a, const void* b);
void TuvNode_resetSortByNameCount();
int TuvNode_sortByNameCount();  // comparisons by TuvNode_sortByName since the last reset

}  // namespace kavaro
